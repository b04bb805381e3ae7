// System information against what a caller would otherwise use.
//   process_list/<impl>: pid, executable name, parent, threads and nice of every process:
//                        ours, a bare getdents + stat-file + readlink loop, libproc2
//   exec_kind/<impl>:    the kind of 1,000 files (programs, libraries, scripts, text):
//                        ours against libmagic
//   fs_info/<impl>:      file system and drive kind of a path: ours against statfs + stat
#include <dirent.h>
#include <fcntl.h>
#include <magic.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <libproc2/pids.h>

#include <quillon2/core/file_system/fs_info.hpp>
#include <quillon2/core/file_system/path.hpp>
#include <quillon2/das/das_process.hpp>

namespace {

void process_list_ours(benchmark::State& state) {
  for (auto _ : state) {
    quillon2::generic_iterator_t<quillon2::sptr_t<quillon2::process_t>> list;
    quillon2::process_t::get_process_list(list);
    std::size_t n = 0;
    for (; !list.at_end(); list.next()) {
      auto const p = list.current();
      n += p->get_value(quillon2::process_t::ppProcessId).get<unsigned>();
      benchmark::DoNotOptimize(p->get_value(quillon2::process_t::ppExeName));
    }
    benchmark::DoNotOptimize(n);
  }
}

void process_list_bare(benchmark::State& state) {
  struct entry_t {
    unsigned pid, ppid, threads;
    int nice;
    std::string exe;
  };
  for (auto _ : state) {
    std::vector<entry_t> entries;
    DIR* proc = ::opendir("/proc");
    while (dirent* d = ::readdir(proc)) {
      if (d->d_name[0] < '1' || d->d_name[0] > '9') continue;
      std::string const base = std::string("/proc/") + d->d_name;
      int const fd = ::open((base + "/stat").c_str(), O_RDONLY | O_CLOEXEC);
      if (fd < 0) continue;
      char buffer[1024];
      ssize_t const n = ::read(fd, buffer, sizeof buffer - 1);
      ::close(fd);
      if (n <= 0) continue;
      buffer[n] = 0;
      char const* close = std::strrchr(buffer, ')');
      if (close == nullptr) continue;
      entry_t e{static_cast<unsigned>(std::atoi(d->d_name)), 0, 0, 0, {}};
      char state_char;
      long fields[17];
      std::sscanf(close + 2, "%c %ld %ld %ld %ld %ld %ld %ld %ld %ld %ld %ld %ld %ld %ld %ld %ld %ld",
                  &state_char, &fields[0], &fields[1], &fields[2], &fields[3], &fields[4], &fields[5],
                  &fields[6], &fields[7], &fields[8], &fields[9], &fields[10], &fields[11], &fields[12],
                  &fields[13], &fields[14], &fields[15], &fields[16]);
      e.ppid = static_cast<unsigned>(fields[0]);
      e.nice = static_cast<int>(fields[15]);
      e.threads = static_cast<unsigned>(fields[16]);
      char target[4096];
      ssize_t const m = ::readlink((base + "/exe").c_str(), target, sizeof target);
      e.exe = m > 0 ? std::string(target, static_cast<std::size_t>(m)) : std::string();
      entries.push_back(std::move(e));
    }
    ::closedir(proc);
    benchmark::DoNotOptimize(entries.data());
  }
}

void process_list_libproc2(benchmark::State& state) {
  enum pids_item items[] = {PIDS_ID_PID, PIDS_EXE, PIDS_ID_PPID, PIDS_NLWP, PIDS_NICE};
  pids_info* info = nullptr;
  if (procps_pids_new(&info, items, 5) < 0) {
    state.SkipWithError("libproc2 unavailable");
    return;
  }
  for (auto _ : state) {
    pids_fetch* fetched = procps_pids_reap(info, PIDS_FETCH_TASKS_ONLY);
    std::size_t n = 0;
    for (int i = 0; fetched != nullptr && i < fetched->counts->total; ++i)
      n += static_cast<std::size_t>(PIDS_VAL(0, s_int, fetched->stacks[i], info));
    benchmark::DoNotOptimize(n);
  }
  procps_pids_unref(&info);
}

// 1,000 files of four kinds, made once.
std::vector<std::string> const& kind_files() {
  static std::vector<std::string> files = [] {
    std::vector<std::string> made;
    char dir[] = "/tmp/q2bench-kinds-XXXXXX";
    if (::mkdtemp(dir) == nullptr) return made;
    std::string head(65536, '\0');
    std::ifstream("/proc/self/exe", std::ios::binary).read(head.data(), static_cast<long>(head.size()));
    int const count = std::getenv("Q2_BENCH_QUICK") != nullptr ? 40 : 1000;
    for (int i = 0; i < count; ++i) {
      std::string const name = std::string(dir) + "/f" + std::to_string(i);
      std::ofstream out(name, std::ios::binary);
      switch (i % 4) {
        case 0: out << head; break;
        case 1: out << "#!/bin/sh\necho " << i << "\n"; break;
        case 2: out << "plain text " << i << "\n"; break;
        default: out << head.substr(0, 52); break;
      }
      out.close();
      ::chmod(name.c_str(), 0755);
      made.push_back(name);
    }
    return made;
  }();
  return files;
}

void exec_kind_ours(benchmark::State& state) {
  std::vector<quillon2::path_t> paths;
  for (auto const& f : kind_files()) paths.push_back(quillon2::make_path(f));
  for (auto _ : state)
    for (auto const& p : paths) {
      quillon2::exec_file_info_t info;
      benchmark::DoNotOptimize(quillon2::get_executable_file_info(p, info));
    }
}

void exec_kind_libmagic(benchmark::State& state) {
  magic_t cookie = magic_open(MAGIC_NONE);
  if (cookie == nullptr || magic_load(cookie, nullptr) != 0) {
    state.SkipWithError("libmagic has no database");
    return;
  }
  for (auto _ : state)
    for (auto const& f : kind_files()) benchmark::DoNotOptimize(magic_file(cookie, f.c_str()));
  magic_close(cookie);
}

void fs_info_ours(benchmark::State& state) {
  quillon2::path_t const path(L"/tmp");
  for (auto _ : state) {
    quillon2::fs_info_t info;
    benchmark::DoNotOptimize(quillon2::get_filesystem_info(path, info));
  }
}

void fs_info_statfs(benchmark::State& state) {
  for (auto _ : state) {
    struct statfs fs;
    struct stat st;
    benchmark::DoNotOptimize(::statfs("/tmp", &fs));
    benchmark::DoNotOptimize(::stat("/tmp", &st));
  }
}

BENCHMARK(process_list_ours)->Name("process_list/ours")->Unit(benchmark::kMicrosecond);
BENCHMARK(process_list_bare)->Name("process_list/bare")->Unit(benchmark::kMicrosecond);
BENCHMARK(process_list_libproc2)->Name("process_list/libproc2")->Unit(benchmark::kMicrosecond);
BENCHMARK(exec_kind_ours)->Name("exec_kind/ours")->Unit(benchmark::kMillisecond);
BENCHMARK(exec_kind_libmagic)->Name("exec_kind/libmagic")->Unit(benchmark::kMillisecond);
BENCHMARK(fs_info_ours)->Name("fs_info/ours");
BENCHMARK(fs_info_statfs)->Name("fs_info/statfs");

}  // namespace
