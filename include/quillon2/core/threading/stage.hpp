// A stage: one step of a task. It names the unit that is to run it and carries a
// signal whose subscribers are the work; the unit emits it with the task.
#pragma once

#include <string>

#include <boost/shared_ptr.hpp>

#include <quillon2/core/functor/signal.hpp>
#include <quillon2/export.hpp>

namespace quillon2::threading {

class task_t;

// The units of the default scheduler, by registration name.
static const std::wstring unit_main(L"main");                // stages one after the other
static const std::wstring unit_service(L"service");          // a pool of workers
static const std::wstring unit_long_tasks(L"long tasks");    // a thread per stage
static const std::wstring unit_delay_tasks(L"delay tasks");  // a pure wait of `delay` ms

struct QUILLON2_API stage_t {
  using signal_type = _internal::signal_t<boost::shared_ptr<task_t>>;

  // No unit, no work; flags 1.
  stage_t();
  // Work for `unit`: the connections of `handler` are copied; flags 1 (a start).
  stage_t(std::wstring const& unit, signal_type const& handler);
  // A wait of `delay` milliseconds on `unit`; flags 0, so it does not count as a start.
  stage_t(std::wstring const& unit, int delay);

  // A copy has the source's connections; assignment copies the text and the numbers and
  // adds the source's connections to those already there.

  std::wstring unit;
  signal_type signal;
  int delay;  // milliseconds; only the delay unit looks at it
  int flags;  // merged into the task's flags when the stage is handed to its unit
};

}  // namespace quillon2::threading
