// stage_t constructors.
#include <quillon2/core/threading/stage.hpp>
#include <quillon2/core/threading/task.hpp>

namespace quillon2::threading {

stage_t::stage_t() : delay(0), flags(task_t::started_flag) {}

stage_t::stage_t(std::wstring const& unit_name, signal_type const& handler)
    : unit(unit_name), signal(handler), delay(0), flags(task_t::started_flag) {}

stage_t::stage_t(std::wstring const& unit_name, int delay_ms)
    : unit(unit_name), delay(delay_ms), flags(0) {}

}  // namespace quillon2::threading
