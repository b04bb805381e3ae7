// Processes: composing a child's environment, pipe throughput of a shared handle,
// starting /bin/true with two redirected pipes (from a small parent and from one that
// holds 1 GiB), and 200 MB through a reading callback. Each beside the bare system calls
// or the library a user would pick.
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

#include <benchmark/benchmark.h>
#include <boost/process.hpp>

#include <quillon2/quillon2.hpp>

extern char** environ;

namespace {

namespace q2 = quillon2;
namespace qp = quillon2::process;

// ---- environment: 200 variables, then 50 lines that refer to them ----

std::wstring variable_lines() {
  std::wstring text;
  for (int i = 0; i < 200; ++i) {
    text += L"VARIABLE_" + std::to_wstring(i) + L"=/opt/some/directory/number/" +
            std::to_wstring(i) + L"\n";
  }
  return text;
}

std::wstring expansion_lines() {
  std::wstring text;
  for (int i = 0; i < 50; ++i) {
    text += L"EXPANDED_" + std::to_wstring(i) + L"=%VARIABLE_" + std::to_wstring(i * 3) +
            L"%:%VARIABLE_" + std::to_wstring(i * 2 + 1) + L"%:/usr/bin\n";
  }
  return text;
}

void env_compose_ours(benchmark::State& state) {
  std::wstring const variables = variable_lines(), expansions = expansion_lines();
  for (auto _ : state) {
    auto env = qp::IEnvironment::create(false);
    env->addLines(variables, false);
    env->addLines(expansions, false);
    benchmark::DoNotOptimize(env->build(false));
  }
}

// The same lines into a bare hash map: split, expand references, then the block.
void add_lines_bare(std::unordered_map<std::wstring, std::wstring>& table, std::wstring const& text) {
  std::size_t begin = 0;
  while (begin < text.size()) {
    std::size_t end = text.find(L'\n', begin);
    if (end == std::wstring::npos) end = text.size();
    std::size_t const equals = text.find(L'=', begin + 1);
    if (equals < end) {
      std::wstring value;
      std::size_t at = equals + 1;
      while (at < end) {
        std::size_t const open = text.find(L'%', at);
        if (open >= end) {
          value.append(text, at, end - at);
          break;
        }
        value.append(text, at, open - at);
        std::size_t const close = text.find(L'%', open + 1);
        auto found = table.find(text.substr(open + 1, close - open - 1));
        if (found != table.end()) value += found->second;
        at = close + 1;
      }
      table[text.substr(begin, equals - begin)] = std::move(value);
    }
    begin = end + 1;
  }
}

void env_compose_unordered_map(benchmark::State& state) {
  std::wstring const variables = variable_lines(), expansions = expansion_lines();
  for (auto _ : state) {
    std::unordered_map<std::wstring, std::wstring> table;
    add_lines_bare(table, variables);
    add_lines_bare(table, expansions);
    std::wstring block;
    for (auto const& [name, value] : table) {
      block += name;
      block += L'=';
      block += value;
      block += L'\0';
    }
    benchmark::DoNotOptimize(block.data());
  }
}

// ---- pipe throughput: 16 MiB in 64 KiB writes, read in 64 KiB reads ----

constexpr std::size_t pipe_total = 16u << 20;
constexpr std::size_t chunk = 64u << 10;

void handle_pipe_ours(benchmark::State& state) {
  for (auto _ : state) {
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0) state.SkipWithError("pipe");
    auto reader = qp::ISharedFileHandle::deserialize(std::to_wstring(fds[0]));
    auto writer = qp::ISharedFileHandle::deserialize(std::to_wstring(fds[1]));
    std::thread producer([&] {
      std::vector<char> data(chunk, 'x');
      for (std::size_t sent = 0; sent < pipe_total; sent += chunk) writer->write(data.data(), chunk);
      writer->setHandle(0);
    });
    std::vector<char> buffer(chunk + 1);
    std::size_t received = 0;
    for (int n; (n = reader->read(buffer.data(), chunk + 1)) > 0;) received += n;
    producer.join();
    benchmark::DoNotOptimize(received);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * pipe_total));
}

void handle_pipe_raw_read_write(benchmark::State& state) {
  for (auto _ : state) {
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0) state.SkipWithError("pipe");
    std::thread producer([&] {
      std::vector<char> data(chunk, 'x');
      for (std::size_t sent = 0; sent < pipe_total;) {
        ssize_t const n = ::write(fds[1], data.data(), chunk);
        if (n > 0) sent += static_cast<std::size_t>(n);
      }
      ::close(fds[1]);
    });
    std::vector<char> buffer(chunk + 1);
    std::size_t received = 0;
    for (ssize_t n; (n = ::read(fds[0], buffer.data(), chunk)) > 0;) received += n;
    ::close(fds[0]);
    producer.join();
    benchmark::DoNotOptimize(received);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * pipe_total));
}

// ---- spawning /bin/true with standard output and error into pipes ----

// Memory the parent holds while the argument (MiB) says so, touched page by page.
struct ballast_t {
  explicit ballast_t(long mib) : size(static_cast<std::size_t>(mib) << 20) {
    if (size == 0) return;
    block.reset(new char[size]);
    for (std::size_t i = 0; i < size; i += 4096) block[i] = static_cast<char>(i);
  }
  std::size_t size;
  std::unique_ptr<char[]> block;
};

struct discard_t : qp::IPipeReaderCallback {
  q2::error_code_t onRead(char const*, unsigned size) override {
    bytes += size;
    return q2::error_code_t();
  }
  std::size_t bytes = 0;
};

void spawn_true_ours(benchmark::State& state) {
  ballast_t const ballast(state.range(0));
  std::vector<std::wstring> const no_arguments;
  for (auto _ : state) {
    auto child = qp::IProcess::create();
    child->registerReadingCallback(1, q2::sptr_t<qp::IPipeReaderCallback>(new q2::ref_counted_t<discard_t>()));
    child->registerReadingCallback(2, q2::sptr_t<qp::IPipeReaderCallback>(new q2::ref_counted_t<discard_t>()));
    child->run(L"/bin/true", q2::iterutil::make_iterator<std::wstring>(no_arguments.begin(), no_arguments.end()),
               nullptr, nullptr, false, nullptr, false);
    child->join();
  }
}

void drain(int fd) {
  char buffer[chunk];
  while (::read(fd, buffer, sizeof buffer) > 0) {
  }
  ::close(fd);
}

void spawn_true_posix_spawn(benchmark::State& state) {
  ballast_t const ballast(state.range(0));
  char arg0[] = "/bin/true";
  char* argv[] = {arg0, nullptr};
  for (auto _ : state) {
    int out[2], err[2];
    if (::pipe2(out, O_CLOEXEC) != 0 || ::pipe2(err, O_CLOEXEC) != 0) state.SkipWithError("pipe");
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, out[1], 1);
    posix_spawn_file_actions_adddup2(&actions, err[1], 2);
    posix_spawn_file_actions_addclosefrom_np(&actions, 3);
    pid_t pid;
    posix_spawn(&pid, "/bin/true", &actions, nullptr, argv, environ);
    posix_spawn_file_actions_destroy(&actions);
    ::close(out[1]);
    ::close(err[1]);
    std::thread err_reader([&] { drain(err[0]); });
    drain(out[0]);
    err_reader.join();
    int status;
    ::waitpid(pid, &status, 0);
  }
}

void spawn_true_boost_process(benchmark::State& state) {
  ballast_t const ballast(state.range(0));
  namespace bp = boost::process;
  for (auto _ : state) {
    bp::ipstream out, err;
    bp::child child("/bin/true", bp::std_out > out, bp::std_err > err);
    std::string line;
    while (std::getline(out, line)) {
    }
    while (std::getline(err, line)) {
    }
    child.wait();
  }
}

// ---- 200 MB of a child's output through a callback, or a bare 64 KiB read loop ----

constexpr char const* big_output = "head -c 200000000 /dev/zero";

void pipe_callback_ours(benchmark::State& state) {
  std::vector<std::wstring> const arguments{L"-c", kesmet2::utf8_to_utf16(big_output)};
  for (auto _ : state) {
    auto child = qp::IProcess::create();
    q2::sptr_t<discard_t> sink(new q2::ref_counted_t<discard_t>());
    child->registerReadingCallback(1, sink);
    child->run(L"/bin/sh", q2::iterutil::make_iterator<std::wstring>(arguments.begin(), arguments.end()),
               nullptr, nullptr, false, nullptr, false);
    child->join();
    if (sink->bytes != 200000000u) state.SkipWithError("short read");
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * 200000000));
}

void pipe_callback_raw_read(benchmark::State& state) {
  char arg0[] = "/bin/sh", arg1[] = "-c";
  std::string command = big_output;
  char* argv[] = {arg0, arg1, command.data(), nullptr};
  for (auto _ : state) {
    int out[2];
    if (::pipe2(out, O_CLOEXEC) != 0) state.SkipWithError("pipe");
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, out[1], 1);
    pid_t pid;
    posix_spawn(&pid, "/bin/sh", &actions, nullptr, argv, environ);
    posix_spawn_file_actions_destroy(&actions);
    ::close(out[1]);
    std::size_t total = 0;
    std::unique_ptr<char[]> buffer(new char[chunk]);
    for (ssize_t n; (n = ::read(out[0], buffer.get(), chunk)) > 0;) total += n;
    ::close(out[0]);
    int status;
    ::waitpid(pid, &status, 0);
    if (total != 200000000u) state.SkipWithError("short read");
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * 200000000));
}

}  // namespace

BENCHMARK(env_compose_ours)->Name("env_compose/ours");
BENCHMARK(env_compose_unordered_map)->Name("env_compose/unordered_map");
BENCHMARK(handle_pipe_ours)->Name("handle_pipe/ours")->UseRealTime();
BENCHMARK(handle_pipe_raw_read_write)->Name("handle_pipe/raw_read_write")->UseRealTime();
// Spawn times are noisy here: the three run interleaved, repeated, and report medians.
BENCHMARK(spawn_true_ours)->Name("spawn_true/ours")->Arg(0)->Arg(1024)->UseRealTime()->Repetitions(5)->ReportAggregatesOnly();
BENCHMARK(spawn_true_posix_spawn)->Name("spawn_true/posix_spawn")->Arg(0)->Arg(1024)->UseRealTime()->Repetitions(5)->ReportAggregatesOnly();
BENCHMARK(spawn_true_boost_process)->Name("spawn_true/boost_process")->Arg(0)->Arg(1024)->UseRealTime()->Repetitions(5)->ReportAggregatesOnly();
BENCHMARK(pipe_callback_ours)->Name("pipe_callback/ours")->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(pipe_callback_raw_read)->Name("pipe_callback/raw_read")->UseRealTime()->Unit(benchmark::kMillisecond);
