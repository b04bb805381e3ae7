// notype_ptr_t, its comparison, and das_proxy_t, the stand-in for objects of types the
// running process does not know.
#include <cstring>
#include <cwchar>
#include <functional>
#include <utility>

#include <quillon2/das/das_proxy.hpp>
#include <quillon2/das/notype_ptr.hpp>
#include <quillon2/das/variant_bag.hpp>

#include "core/das/include/object_type.hpp"

namespace quillon2 {

namespace {

constexpr wchar_t const proxy_type_name[] = L"dasID_ql2::das_proxy_t";
constexpr wchar_t const none_type_name[] = L"dasID_None";

unsigned proxy_type_id() { return get_type_from_string(proxy_type_name); }

int address_order(notype_ptr_t const* a, notype_ptr_t const* b) {
  return std::less<notype_ptr_t const*>()(a, b) ? -1 : 1;
}

}  // namespace

notype_ptr_t::notype_ptr_t(object_interface_t const* object, unsigned ptr_type)
    : m_object(const_cast<object_interface_t*>(object)), m_ptr_type(ptr_type) {
  add_ref(m_object);
}

notype_ptr_t::notype_ptr_t(notype_ptr_t const& other)
    : m_object(other.m_object), m_ptr_type(other.m_ptr_type) {
  add_ref(m_object);
}

notype_ptr_t::notype_ptr_t(notype_ptr_t&& other) noexcept
    : m_object(other.m_object), m_ptr_type(other.m_ptr_type) {
  other.m_object = nullptr;
  other.m_ptr_type = DAS_UNREGISTERED_TYPE;
}

notype_ptr_t& notype_ptr_t::operator=(notype_ptr_t const& other) {
  notype_ptr_t copy(other);
  std::swap(m_object, copy.m_object);
  std::swap(m_ptr_type, copy.m_ptr_type);
  return *this;
}

notype_ptr_t& notype_ptr_t::operator=(notype_ptr_t&& other) noexcept {
  notype_ptr_t moved(std::move(other));
  std::swap(m_object, moved.m_object);
  std::swap(m_ptr_type, moved.m_ptr_type);
  return *this;
}

notype_ptr_t::~notype_ptr_t() {
  object_interface_t* const object = m_object;
  m_object = nullptr;
  release(object);
}

unsigned notype_ptr_t::get_object_type() const {
  if (!m_object) return DAS_UNREGISTERED_TYPE;
  unsigned const type = internal::object_type_of(m_object);
  return type != DAS_UNREGISTERED_TYPE ? type : m_ptr_type;
}

bool notype_ptr_t::is_proxy() const {
  if (!m_object) return false;
  unsigned const proxy = proxy_type_id();
  return proxy != DAS_UNREGISTERED_TYPE && internal::object_type_of(m_object) == proxy;
}

das_proxy_t* notype_ptr_t::get_proxy() const {
  return is_proxy() ? dynamic_cast<das_proxy_t*>(m_object) : nullptr;
}

wchar_t const* notype_ptr_t::get_obj_type_as_string() const {
  if (das_proxy_t const* proxy = get_proxy()) return proxy->get_obj_type();
  return get_name_from_id(get_object_type());
}

wchar_t const* notype_ptr_t::get_ptr_type_as_string() const {
  if (das_proxy_t const* proxy = get_proxy()) return proxy->get_ptr_type();
  return get_name_from_id(m_ptr_type);
}

int notype_ptr_t::create_from_runtime_info(variant_bag_t const& data, wchar_t const* obj_type,
                                           wchar_t const* ptr_type) {
  auto* proxy = new das_proxy_t(obj_type, ptr_type, data);
  wchar_t const* const seen_as = (ptr_type && *ptr_type) ? ptr_type : obj_type;
  *this = notype_ptr_t(static_cast<serializable_object_interface_t*>(proxy),
                       get_type_from_string(seen_as));
  return DAS_OK;
}

int notype_ptr_t::get_serializable_object(sptr_t<serializable_object_interface_t>& out) const {
  if (!m_object) return DAS_E_NULL_OBJECT;
  unsigned const type = internal::object_type_of(m_object);
  if (type == DAS_UNREGISTERED_TYPE || !is_serializable(type)) return DAS_E_NOT_CREATABLE;
  auto* const object = dynamic_cast<serializable_object_interface_t*>(m_object);
  if (!object) return DAS_E_NOT_CREATABLE;
  out = sptr_t<serializable_object_interface_t>(object);
  return DAS_OK;
}

void notype_ptr_t::convert_if_possible() const {
  das_proxy_t const* const proxy = get_proxy();
  if (!proxy) return;
  notype_ptr_t real;
  if (das_failed(proxy->instantiate_object_interface(real)) || real.is_null()) return;
  // The proxy gives way to the real object, in spite of the const: the pointer still
  // stands for the same data.
  const_cast<notype_ptr_t&>(*this) = std::move(real);
}

namespace {

// The two sides as they are compared: a proxy is replaced by its real object where that
// can be made.
notype_ptr_t instantiated(notype_ptr_t const& p) {
  notype_ptr_t copy(p);
  copy.get<object_interface_t>();
  return copy;
}

bool save_to_bag(notype_ptr_t const& p, variant_bag_t& out) {
  sptr_t<serializable_object_interface_t> object;
  if (das_failed(p.get_serializable_object(object))) return false;
  return !das_failed(object->save(out));
}

}  // namespace

int notype_ptr_compare(notype_ptr_t const* a, notype_ptr_t const* b) {
  if (a == b) return 0;
  if (!a || !b) return a ? 1 : -1;
  if (a->m_object == b->m_object) return 0;
  notype_ptr_t const x = instantiated(*a);
  notype_ptr_t const y = instantiated(*b);
  if (x.m_object == y.m_object) return 0;
  if (x.get_ptr_type() != y.get_ptr_type() || x.get_object_type() != y.get_object_type())
    return address_order(a, b);
  // Proxies that stayed proxies stand for the types that they name.
  das_proxy_t const* const px = x.get_proxy();
  das_proxy_t const* const py = y.get_proxy();
  if (px && py) {
    wchar_t const* const nx = px->get_obj_type();
    wchar_t const* const ny = py->get_obj_type();
    if (std::wcscmp(nx ? nx : L"", ny ? ny : L"") != 0) return address_order(a, b);
  }
  unsigned const type = x.get_object_type();
  if (!x.m_object || !y.m_object || !is_serializable(type)) return address_order(a, b);
  variant_bag_t saved_x;
  variant_bag_t saved_y;
  if (!save_to_bag(x, saved_x) || !save_to_bag(y, saved_y)) return address_order(a, b);
  return saved_x == saved_y ? 0 : address_order(a, b);
}

bool notype_ptr_t::operator==(notype_ptr_t const& other) const {
  return notype_ptr_compare(this, &other) == 0;
}

das_proxy_t::das_proxy_t(wchar_t const* obj_type, wchar_t const* ptr_type,
                         variant_bag_t const& data)
    : m_obj_type(obj_type ? obj_type : L""),
      m_ptr_type(ptr_type ? ptr_type : L""),
      m_type_id(DAS_UNREGISTERED_TYPE),
      m_ref_count(0),
      m_data(new variant_bag_t(data)) {}

das_proxy_t::~das_proxy_t() { delete m_data; }

int das_proxy_t::das_create_this_object(sptr_t<serializable_object_interface_t>& result) {
  result = sptr_t<serializable_object_interface_t>(static_cast<serializable_object_interface_t*>(
      new das_proxy_t(nullptr, nullptr, variant_bag_t())));
  return DAS_OK;
}

u32_t das_proxy_t::add_ref() const { return ++m_ref_count; }

u32_t das_proxy_t::release() const {
  u32_t const count = --m_ref_count;
  if (count == 0) delete this;
  return count;
}

u32_t das_proxy_t::get_type() const {
  if (m_type_id == DAS_UNREGISTERED_TYPE) m_type_id = proxy_type_id();
  return m_type_id;
}

wchar_t const* das_proxy_t::get_obj_type() const {
  return m_obj_type.empty() ? nullptr : m_obj_type.c_str();
}

wchar_t const* das_proxy_t::get_ptr_type() const {
  return m_ptr_type.empty() ? nullptr : m_ptr_type.c_str();
}

int das_proxy_t::save(variant_bag_t& out) const {
  out = *m_data;
  return DAS_OK;
}

int das_proxy_t::load(variant_bag_t const& in) {
  *m_data = in;
  return DAS_OK;
}

int das_proxy_t::instantiate_object_interface(notype_ptr_t& out) const {
  int const result = das_create(m_obj_type.c_str(), out, get_ptr_type());
  if (das_failed(result)) return result;
  if (m_obj_type == none_type_name) return result;
  sptr_t<serializable_object_interface_t> serializable;
  int const found = out.get_serializable_object(serializable);
  if (das_failed(found)) return found;
  if (!m_data->is_empty()) return serializable->load(*m_data);
  return result;
}

}  // namespace quillon2
