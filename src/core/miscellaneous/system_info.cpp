// The platform-neutral system queries: MPI rank and job from the environment, the
// locale check and the tracing switch. The platform layer (posix/system_info.cpp)
// gives getPhysicalMemorySize and get_fq_host_name.
#include <atomic>
#include <initializer_list>
#include <string>

#include <quillon2/core/environ.hpp>
#include <quillon2/core/system_info.hpp>

#include "core/miscellaneous/include/zephnotify.hpp"

namespace quillon2 {
namespace {

// The first non-empty value among `names`, read in order; empty if all are empty.
std::wstring first_set_value(std::initializer_list<wchar_t const*> names) {
  for (wchar_t const* name : names) {
    std::wstring value = get_environ_value(name);
    if (!value.empty()) return value;
  }
  return std::wstring();
}

std::atomic<bool> zephnotify_switch{false};

}  // namespace

int detectMPIRank() {
  std::wstring const rank = first_set_value({L"PMI_RANK", L"PMI_ID", L"OMPI_COMM_WORLD_RANK"});
  if (rank.empty()) return -1;
  return kesmet2::generic::convert::str_to_int(rank.c_str(), rank.size());
}

std::wstring getMPIJobId() {
  return first_set_value({L"ZL_MPI_HYDRA_UUID", L"SLURM_JOBID", L"SLURM_JOB_ID", L"PBS_JOBID",
                          L"LSB_JOBID", L"JOB_ID"});
}

bool is_valid_locale() { return true; }

void enable_zephnotify() { zephnotify_switch.store(true, std::memory_order_relaxed); }

bool internal::zephnotify_enabled() noexcept {
  return zephnotify_switch.load(std::memory_order_relaxed);
}

}  // namespace quillon2
