// The child that the process tests start: each mode gives one exact behaviour of the
// standard streams, descriptors or exit.
//   write OUT ERR      writes OUT bytes to stdout and ERR bytes to stderr, interleaved,
//                      byte i of each stream being i % 251
//   fds                prints the numbers of its open descriptors: "0 1 2"
//   handle TEXT MSG    prints its descriptors as fds does, opens the inherited handle
//                      TEXT and writes MSG to it, then " cloexec" if the handle is now
//                      close-on-exec
//   closed-std         closes 0, 1 and 2, starts a shell with both output streams into
//                      callbacks and exits 0 if that child saw /dev/null as its input and
//                      two distinct pipes as its output streams
#include <algorithm>
#include <cstdio>
#include <sstream>

#include "process_test_support.hpp"

namespace qp = quillon2::process;

namespace {

int write_streams(long out, long err) {
  std::vector<char> chunk(65536);
  long done[2] = {0, 0};
  long const total[2] = {out, err};
  while (done[0] < total[0] || done[1] < total[1]) {
    for (int s = 0; s < 2; ++s) {
      long const n = std::min<long>(static_cast<long>(chunk.size()), total[s] - done[s]);
      if (n <= 0) continue;
      for (long i = 0; i < n; ++i) chunk[i] = static_cast<char>((done[s] + i) % 251);
      if (write(s + 1, chunk.data(), n) != n) return 3;
      done[s] += n;
    }
  }
  return 0;
}

int list_fds() {
  DIR* dir = opendir("/proc/self/fd");
  if (dir == nullptr) return 2;
  std::vector<int> fds;
  while (dirent* entry = readdir(dir)) {
    if (entry->d_name[0] == '.') continue;
    int const fd = std::atoi(entry->d_name);
    if (fd != dirfd(dir)) fds.push_back(fd);
  }
  closedir(dir);
  std::sort(fds.begin(), fds.end());
  std::string text;
  for (int fd : fds) text += (text.empty() ? "" : " ") + std::to_string(fd);
  std::printf("%s", text.c_str());
  return 0;
}

int closed_standard_streams() {
  close(0);
  close(1);
  close(2);
  auto out = q2test::make_collector();
  auto child = qp::IProcess::create();
  child->registerReadingCallback(1, out);
  child->registerReadingCallback(2, q2test::make_collector());
  std::wstring const script = L"readlink /proc/$$/fd/0 /proc/$$/fd/1 /proc/$$/fd/2";
  if (!q2test::run(child, L"/bin/sh", {L"-c", script}).is_ok()) return 12;
  child->join();
  std::istringstream lines(out->data());
  std::string in_link, out_link, err_link;
  lines >> in_link >> out_link >> err_link;
  if (in_link != "/dev/null") return 13;
  if (out_link.rfind("pipe:", 0) != 0 || err_link.rfind("pipe:", 0) != 0) return 14;
  return out_link == err_link ? 15 : 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) return 100;
  std::string const mode = argv[1];
  if (mode == "write" && argc == 4) return write_streams(std::atol(argv[2]), std::atol(argv[3]));
  if (mode == "fds") return list_fds();
  if (mode == "handle" && argc == 4) {
    list_fds();
    std::fflush(stdout);
    auto handle = qp::ISharedFileHandle::deserialize(kesmet2::utf8_to_utf16(argv[2]));
    if (!handle) return 20;
    std::string text = argv[3];
    if (fcntl(handle->getHandle(), F_GETFD) & FD_CLOEXEC) text += " cloexec";
    return handle->write(text.data(), static_cast<unsigned>(text.size())) ==
                   static_cast<int>(text.size())
               ? 0
               : 21;
  }
  if (mode == "closed-std") return closed_standard_streams();
  return 101;
}
