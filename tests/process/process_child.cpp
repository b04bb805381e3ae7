// The child that the process tests start: each mode gives one exact behaviour of the
// standard streams, descriptors or exit.
//   echo A B...        prints each argument on a line of its own
//   write OUT ERR      writes OUT bytes to stdout and ERR bytes to stderr, interleaved,
//                      byte i of each stream being i % 251
//   fds                prints the numbers of its open descriptors: "0 1 2"
//   handle TEXT MSG    opens the inherited handle TEXT and writes MSG to it, then
//                      " cloexec" if the handle is now close-on-exec
//   lock PATH          waits for a shared lock on PATH, then exits
//   closed-std         closes 0, 1 and 2, starts `process_child links` with both output
//                      streams into callbacks and exits 0 if that child saw /dev/null as
//                      its input and two distinct pipes as its output streams
//   links              prints where its descriptors 0, 1 and 2 lead
#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <sstream>
#include <string>
#include <vector>

#include <quillon2/quillon2.hpp>

namespace q2 = quillon2;
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

std::string link_of(int fd) {
  char target[256] = {};
  ssize_t const n = readlink(("/proc/self/fd/" + std::to_string(fd)).c_str(), target, 255);
  return n > 0 ? std::string(target, n) : std::string("closed");
}

struct collect_t : qp::IPipeReaderCallback {
  std::mutex mutex;
  std::string data;
  q2::error_code_t onRead(char const* bytes, unsigned size) override {
    std::lock_guard<std::mutex> lock(mutex);
    data.append(bytes, size);
    return q2::error_code_t();
  }
};

int closed_standard_streams(char const* self) {
  close(0);
  close(1);
  close(2);
  q2::sptr_t<collect_t> out(new q2::ref_counted_t<collect_t>());
  q2::sptr_t<collect_t> err(new q2::ref_counted_t<collect_t>());
  auto child = qp::IProcess::create();
  if (child->registerReadingCallback(1, out).failed()) return 10;
  if (child->registerReadingCallback(2, err).failed()) return 11;
  std::vector<std::wstring> args{L"links"};
  if (!child->run(kesmet2::utf8_to_utf16(self).c_str(),
                  q2::iterutil::make_owned_iterator_from<std::wstring>(args), nullptr, nullptr,
                  false, nullptr, false)
           .is_ok())
    return 12;
  child->join();
  std::istringstream lines(out->data);
  std::string in_link, out_link, err_link;
  std::getline(lines, in_link);
  std::getline(lines, out_link);
  std::getline(lines, err_link);
  if (in_link != "/dev/null") return 13;
  if (out_link.rfind("pipe:", 0) != 0 || err_link.rfind("pipe:", 0) != 0) return 14;
  if (out_link == err_link) return 15;
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) return 100;
  std::string const mode = argv[1];
  if (mode == "echo") {
    for (int i = 2; i < argc; ++i) std::printf("%s\n", argv[i]);
    return 0;
  }
  if (mode == "write" && argc == 4) return write_streams(std::atol(argv[2]), std::atol(argv[3]));
  if (mode == "fds") return list_fds();
  if (mode == "handle" && argc == 4) {
    auto handle = qp::ISharedFileHandle::deserialize(kesmet2::utf8_to_utf16(argv[2]));
    if (!handle) return 20;
    std::string text = argv[3];
    if (fcntl(handle->getHandle(), F_GETFD) & FD_CLOEXEC) text += " cloexec";
    return handle->write(text.data(), static_cast<unsigned>(text.size())) ==
                   static_cast<int>(text.size())
               ? 0
               : 21;
  }
  if (mode == "lock" && argc == 3) {
    int const fd = open(argv[2], O_RDONLY | O_CLOEXEC);
    return fd >= 0 && flock(fd, LOCK_SH) == 0 ? 0 : 30;
  }
  if (mode == "closed-std") return closed_standard_streams(argv[0]);
  if (mode == "links") {
    std::printf("%s\n%s\n%s\n", link_of(0).c_str(), link_of(1).c_str(), link_of(2).c_str());
    return 0;
  }
  return 101;
}
