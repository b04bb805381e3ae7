// path_t's questions to the file system: existence, directories and the access
// trials behind is_readonly. The system calls themselves are in posix/.
#include <quillon2/core/assert.hpp>
#include <quillon2/core/file_system/path.hpp>

#include "core/file_system/include/file_system_os.hpp"

namespace quillon2 {

namespace {

namespace os = internal::fs_os;

// A directory trial gives up after this many names in a row turned out to be taken.
constexpr unsigned k_max_trial_names = 10000;

os::probe_t probe_text(std::wstring const& text) { return os::probe(path_t(text).native_string()); }

}  // namespace

bool path_t::exists(std::wstring const& path) {
  // Errors other than those that mean absence leave something there that can't be
  // examined. Drive letters have no counterpart here, so a bare drive is absent.
  return probe_text(path) != os::probe_t::missing;
}

bool path_t::is_directory(std::wstring const& path) {
  return probe_text(path) == os::probe_t::directory;
}

bool path_t::is_exists() const { return exists(as_string(false)); }

bool path_t::is_directory() const { return is_directory(as_string(false)); }

void path_t::readonly(std::wstring const& path, bool& is_read_only, bool& failed, int mode) {
  failed = true;
  is_read_only = false;
  path_t const target(path);
  std::string const target_native = target.native_string();
  auto const kind = os::probe(target_native);
  if (kind == os::probe_t::missing) return;
  if (kind != os::probe_t::directory) {
    is_read_only = !os::can_open_for_writing(target_native);
    failed = false;
    return;
  }

  // Trial names carry the process and thread so that concurrent trials in one
  // directory stay apart; the counter settles what is left.
  std::wstring const stem = L".dummy-" + std::to_wstring(os::current_process_id()) + L"-" +
                            std::to_wstring(os::current_thread_id()) + L"-";
  for (unsigned i = 0; i < k_max_trial_names; ++i) {
    path_t trial = target;
    trial.append(path_t(stem + std::to_wstring(i) + L".tmp"));
    std::string const native = trial.native_string();
    if (mode & readonly_try_directory) {
      auto const made = os::try_create_directory(native);
      if (made == os::create_t::exists) continue;
      is_read_only = made != os::create_t::created;
    }
    if (!(mode & readonly_try_file)) {
      failed = false;
      return;
    }
    auto const made = os::try_create_file(native);
    if (made == os::create_t::exists) continue;
    if (made != os::create_t::created) is_read_only = true;
    failed = false;
    return;
  }
}

bool path_t::is_readonly(int mode) const {
  if (is_empty()) return false;
  bool is_read_only = false;
  bool fail = false;
  readonly(as_string(false), is_read_only, fail, mode);
  if (fail) {
    KESMET_2_18::debug::_private::____________________ASSERT____________________(
        "fail == false", __FILE__, __LINE__, "quillon2::path_t::is_readonly");
  }
  return is_read_only;
}

}  // namespace quillon2
