// unit_t defaults.
#include <quillon2/core/threading/unit.hpp>

namespace quillon2::threading {

unit_t::unit_t() = default;

unit_t::~unit_t() = default;

void unit_t::on_registered() {}

void unit_t::terminate() {}

void unit_t::set_status_callbacks(status_callbacks_t const&) {}

}  // namespace quillon2::threading
