// Starting, waiting for and killing a child with posix_spawn (spawn time does not grow
// with the parent's memory). The child gets exactly its standard streams and the side
// channels passed on purpose, whatever descriptors the host holds without close-on-exec,
// an empty signal mask and default dispositions.
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include <quillon2/core/assert.hpp>
#include <quillon2/core/check.hpp>
#include <quillon2/headers/kesmet.hpp>

#include "core/das/include/xml_file_io.hpp"
#include "core/miscellaneous/include/environ_internal.hpp"
#include "core/miscellaneous/include/logging.hpp"
#include "core/miscellaneous/include/posix_io.hpp"
#include "core/process/include/environment_impl.hpp"
#include "core/process/include/process_impl.hpp"
#include "core/process/posix/include/child.hpp"
#include "core/process/posix/include/process_posix.hpp"

namespace quillon2::process {

namespace {

log4cplus::Logger& logger() { return quillon2::internal::main_logger(); }

std::string current_directory() {
  std::vector<char> buffer(4096);
  while (::getcwd(buffer.data(), buffer.size()) == nullptr) {
    if (errno != ERANGE) return std::string();
    buffer.resize(buffer.size() * 2);
  }
  return buffer.data();
}

std::string absolute(std::string const& path) {
  if (!path.empty() && path[0] == '/') return path;
  std::string const cwd = current_directory();
  return path.empty() ? cwd : cwd + "/" + path;
}

// The file that execvp would run for `name`: a path with "/" made absolute, a bare name
// searched in this process's PATH. 0, or the errno that the start fails with.
int resolve_binary(std::string const& name, std::string& file) {
  if (name.empty()) return ENOENT;
  if (name.find('/') != std::string::npos) {
    file = absolute(name);
    return 0;
  }
  std::string path;
  if (!quillon2::internal::read_environ_unrecorded("PATH", path)) path = "/bin:/usr/bin";
  int error = ENOENT;
  std::size_t begin = 0;
  for (;;) {
    std::size_t const end = std::min(path.find(':', begin), path.size());
    std::string const candidate = absolute(path.substr(begin, end - begin)) + "/" + name;
    struct stat info;
    if (::stat(candidate.c_str(), &info) == 0 && S_ISREG(info.st_mode)) {
      if (::access(candidate.c_str(), X_OK) == 0) {
        file = candidate;
        return 0;
      }
      error = EACCES;
    }
    if (end == path.size()) return error;
    begin = end + 1;
  }
}

// The narrow "NAME=value" entries of the child's environment.
std::vector<std::string> environment_entries(sptr_t<IEnvironment> const& environment) {
  std::vector<std::string> entries;
  if (!environment) {
    quillon2::internal::copy_environ_unrecorded(entries);
  } else if (auto* own = dynamic_cast<Environment*>(environment.get())) {
    entries = own->buildNarrow();
  } else {
    for (wchar_t const* entry = environment->build(true); entry != nullptr && *entry != L'\0';
         entry += std::wcslen(entry) + 1) {
      entries.push_back(kesmet2::utf16_to_utf8(entry));
    }
  }
  return entries;
}

std::vector<char*> pointers(std::vector<std::string>& texts) {
  std::vector<char*> result;
  result.reserve(texts.size() + 1);
  for (std::string& text : texts) result.push_back(text.data());
  result.push_back(nullptr);
  return result;
}

class spawn_setup_t {
 public:
  spawn_setup_t() {
    posix_spawn_file_actions_init(&m_actions);
    posix_spawnattr_init(&m_attributes);
  }
  ~spawn_setup_t() {
    posix_spawn_file_actions_destroy(&m_actions);
    posix_spawnattr_destroy(&m_attributes);
  }
  spawn_setup_t(spawn_setup_t const&) = delete;
  spawn_setup_t& operator=(spawn_setup_t const&) = delete;

  // Each stream gets its redirection, this process's own stream, or /dev/null where
  // this process has that stream closed.
  int standardStream(int stream, int redirection) {
    if (redirection > 0) return posix_spawn_file_actions_adddup2(&m_actions, redirection, stream);
    if (::fcntl(stream, F_GETFD) == -1) {
      return posix_spawn_file_actions_addopen(&m_actions, stream, "/dev/null",
                                              stream == 0 ? O_RDONLY : O_WRONLY, 0);
    }
    // Clears a close-on-exec flag of the host's in the child only.
    return posix_spawn_file_actions_adddup2(&m_actions, stream, stream);
  }

  // Every descriptor from 3 on is closed in the child but those of `passed`, which
  // lose their close-on-exec flag there (never in the parent, where another thread's
  // spawn would inherit them).
  int keepOnly(std::set<int> const& passed) {
    int next = 3;
    for (int fd : passed) {
      if (int const error = posix_spawn_file_actions_adddup2(&m_actions, fd, fd)) return error;
      for (; next < fd; ++next) {
        if (int const error = posix_spawn_file_actions_addclose(&m_actions, next)) return error;
      }
      next = fd + 1;
    }
    return posix_spawn_file_actions_addclosefrom_np(&m_actions, next);
  }

  int directory(char const* path) {
    return path != nullptr ? posix_spawn_file_actions_addchdir_np(&m_actions, path) : 0;
  }

  int signals() {
    sigset_t set;
    sigemptyset(&set);
    if (int const error = posix_spawnattr_setsigmask(&m_attributes, &set)) return error;
    sigfillset(&set);
    if (int const error = posix_spawnattr_setsigdefault(&m_attributes, &set)) return error;
    return posix_spawnattr_setflags(&m_attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
  }

  int spawn(pid_t& pid, std::string const& file, char* const* argv, char* const* envp) {
    return posix_spawn(&pid, file.c_str(), &m_actions, &m_attributes, argv, envp);
  }

 private:
  posix_spawn_file_actions_t m_actions;
  posix_spawnattr_t m_attributes;
};

int open_pidfd(pid_t pid) {
#ifdef SYS_pidfd_open
  return internal::move_above_standard(static_cast<int>(::syscall(SYS_pidfd_open, pid, 0)));
#else
  return -1;
#endif
}

}  // namespace

error_code_t Process::run(wchar_t const* binary, generic_iterator_t<std::wstring> arguments,
                          sptr_t<IEnvironment> environment, wchar_t const* working_directory,
                          bool /*hidden*/, wchar_t const* /*console_title*/, bool inherit_handles) {
  m_environment = environment;
  std::vector<std::string> environment_texts = environment_entries(environment);
  if (working_directory != nullptr && *working_directory == L'\0') working_directory = nullptr;

  std::wstring const binary_text = binary != nullptr ? binary : L"";
  std::vector<std::wstring> wide_arguments;
  for (; !arguments.at_end(); arguments.next()) wide_arguments.push_back(arguments.current());
  Q2_LOG(logger(), quillon2::internal::log_info,
         L"run cli:" << commandLine(binary_text, wide_arguments));

  std::vector<std::string> argument_texts;
  argument_texts.push_back(kesmet2::utf16_to_utf8(binary_text));
  for (std::wstring const& argument : wide_arguments) {
    argument_texts.push_back(kesmet2::utf16_to_utf8(argument));
  }
  std::string const directory =
      working_directory != nullptr ? quillon2::internal::native_file_name(working_directory) : "";

  std::string file;
  int error = resolve_binary(quillon2::internal::native_file_name(binary_text), file);
  pid_t pid = 0;
  if (error == 0) {
    spawn_setup_t setup;
    for (int stream = 0; stream < 3 && error == 0; ++stream) {
      error = setup.standardStream(stream, m_redirection.getHandle(stream)->getHandle());
    }
    std::set<int> passed;
    if (inherit_handles) {
      for (auto const& channel : m_redirection.sideChannels()) {
        if (channel->getHandle() > 2) passed.insert(channel->getHandle());
      }
    }
    if (error == 0) error = setup.keepOnly(passed);
    if (error == 0) error = setup.directory(working_directory != nullptr ? directory.c_str() : nullptr);
    if (error == 0) error = setup.signals();
    if (error == 0) {
      std::vector<char*> const argv = pointers(argument_texts);
      std::vector<char*> const envp = pointers(environment_texts);
      error = setup.spawn(pid, file, argv.data(), envp.data());
    }
  }

  if (error != 0) {
    Q2_LOG(logger(), quillon2::internal::log_error,
           L"run cli error: " << kesmet2::utf8_to_utf16(quillon2::internal::posix::errno_text(error))
                              << L", at file: " << __FILE__ << L":" << __LINE__);
    if (error == ENOENT || error == ENOTDIR) {
      m_error_text = L"failed to find binary" + binary_text + L" in " +
                     (working_directory != nullptr ? working_directory : L"");
    } else {
      m_error_text = L"failed to create process" + binary_text;
    }
    return error_code_t::False();
  }

  Q2_LOG(logger(), quillon2::internal::log_info, L"Fork process");
  {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_process = std::make_shared<internal::child_t>(pid, open_pidfd(pid));
  }
  return startReadingThreads();
}

error_code_t Process::wait(int milliseconds) {
  QUILLON_ASSERT(milliseconds > 0);
  std::shared_ptr<internal::child_t> child;
  {
    std::lock_guard<std::mutex> lock(m_mutex);
    child = m_process;
  }
  if (!child) return error_code_t();
  int code = internal::still_active;
  internal::child_t::state_t const state = child->waitFor(std::max(milliseconds, 0), code);
  m_exit_code = code;
  if (state == internal::child_t::state_t::running) return error_code_t::False();
  if (code == 0) return error_code_t();
  return QUILLON_RAISE(error::FailedTo.Execute.The.Operation("Wait operation failed"));
}

void Process::waitForExit() {
  std::shared_ptr<internal::child_t> child;
  {
    std::lock_guard<std::mutex> lock(m_mutex);
    child = m_process;
  }
  if (!child) return;
  int code = internal::still_active;
  child->waitForEver(code);
  m_exit_code = code;
}

error_code_t Process::join() {
  error_code_t const result = ProcessImpl::join();
  std::lock_guard<std::mutex> lock(m_mutex);
  m_process.reset();
  return result;
}

error_code_t Process::terminate() {
  std::shared_ptr<internal::child_t> child;
  {
    std::lock_guard<std::mutex> lock(m_mutex);
    child = m_process;
  }
  if (child) {
    bool const killed = child->kill();
    {
      std::lock_guard<std::mutex> lock(m_mutex);
      m_process.reset();
    }
    child.reset();
    error_code_t const threadsStopCode = stopThreads();
    QUILLON_CHECK(threadsStopCode.succeeded(), error::FailedTo.Stop.Thread.Array);
    QUILLON_CHECK(killed, error::FailedTo.Execute.The.Operation("Failed to terminate the process"));
    return error_code_t();
  }
  error_code_t const threadsTerminateCode = terminateThreads();
  QUILLON_CHECK(threadsTerminateCode.succeeded(), error::FailedTo.Terminate.Thread.Array);
  return error_code_t();
}

bool Process::isRunning() {
  std::lock_guard<std::mutex> lock(m_mutex);
  return m_process != nullptr;
}

}  // namespace quillon2::process
