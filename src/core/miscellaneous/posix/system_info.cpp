// The platform side of the system queries: total memory from sysconf and the host's
// name from gethostname and the resolver.
#include <limits.h>
#include <netdb.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>

#include <quillon2/core/system_info.hpp>
#include <quillon2/headers/kesmet.hpp>

namespace quillon2 {

u64_t getPhysicalMemorySize() {
  long const pages = sysconf(_SC_PHYS_PAGES);
  long const page_size = sysconf(_SC_PAGESIZE);
  if (pages <= 0 || page_size <= 0) return 0;
  return static_cast<u64_t>(pages) * static_cast<u64_t>(page_size);
}

std::wstring get_fq_host_name() {
  char host[HOST_NAME_MAX + 1] = {};
  if (gethostname(host, sizeof host - 1) != 0 || host[0] == '\0') return std::wstring();

  std::string name = host;
  addrinfo hints{};
  hints.ai_family = AF_UNSPEC;
  hints.ai_flags = AI_CANONNAME;
  addrinfo* found = nullptr;
  if (getaddrinfo(host, nullptr, &hints, &found) == 0) {
    if (found != nullptr && found->ai_canonname != nullptr && found->ai_canonname[0] != '\0') {
      name = found->ai_canonname;
    }
    freeaddrinfo(found);
  }
  return kesmet2::utf8_to_utf16(name);
}

}  // namespace quillon2
