// unit_t defaults, and the observer copy of the library's units.
#include <quillon2/core/threading/unit.hpp>

namespace quillon2::threading {

unit_t::unit_t() = default;

unit_t::~unit_t() = default;

void unit_t::on_registered() {}

void unit_t::terminate() {}

void unit_t::set_status_callbacks(status_callbacks_t const&) {}

}  // namespace quillon2::threading

namespace quillon2::_internal {

void unit_observers_t::assign(threading::status_callbacks_t const& callbacks) {
  boost::lock_guard<boost::recursive_mutex> guard(m_mutex);
  m_callbacks = callbacks;
}

}  // namespace quillon2::_internal
