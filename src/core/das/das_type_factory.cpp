// The object registry, the factory and the static registrations of the library's own
// types.
#include <cxxabi.h>

#include <cstdlib>
#include <memory>

#include <quillon2/das/das_proxy.hpp>
#include <quillon2/das/notype_ptr.hpp>
#include <quillon2/das/type_factory.hpp>

#include "core/das/include/object_type.hpp"

namespace quillon2 {

namespace {
unsigned g_instance_counter = 0;
constexpr wchar_t const none_type_name[] = L"dasID_None";
}  // namespace

type_full_info_t::type_full_info_t()
    : m_instance_id_to_creator(new std::map<unsigned, das_instance_record_t>()) {}

type_full_info_t::type_full_info_t(std::wstring name)
    : m_name(std::move(name)),
      m_instance_id_to_creator(new std::map<unsigned, das_instance_record_t>()) {}

type_full_info_t::type_full_info_t(type_full_info_t const& other)
    : m_name(other.m_name),
      m_instance_id_to_creator(
          new std::map<unsigned, das_instance_record_t>(*other.m_instance_id_to_creator)) {}

type_full_info_t& type_full_info_t::operator=(type_full_info_t const& other) {
  if (this != &other) {
    m_name = other.m_name;
    *m_instance_id_to_creator = *other.m_instance_id_to_creator;
  }
  return *this;
}

type_full_info_t::~type_full_info_t() { delete m_instance_id_to_creator; }

bool type_full_info_t::is_there_this_id(unsigned instance_id) const {
  return m_instance_id_to_creator->count(instance_id) != 0;
}

das_creator_t type_full_info_t::get_any_creator_func_ptr() const {
  QUILLON_ASSERT(!m_instance_id_to_creator->empty());
  if (m_instance_id_to_creator->empty()) return nullptr;
  return m_instance_id_to_creator->begin()->second.m_creator;
}

object_registry_t::object_registry_t()
    : m_names(new std::map<std::wstring, unsigned>()),
      m_types(new std::map<unsigned, type_full_info_t>()),
      m_next_number(1) {}

object_registry_t::~object_registry_t() {
  delete m_types;
  delete m_names;
}

object_registering_info_t object_registry_t::register_type(wchar_t const* name, bool serializable) {
  QUILLON_ASSERT(name != NULL);
  if (!name) return object_registering_info_t{};
  unsigned type = get_type_from_string(name);
  if (type == DAS_UNREGISTERED_TYPE) {
    type = (m_next_number++ & ~DAS_SERIALIZABLE_TYPE_FLAG) |
           (serializable ? DAS_SERIALIZABLE_TYPE_FLAG : 0u);
    (*m_names)[name] = type;
    m_types->emplace(type, type_full_info_t(name));
  }
  unsigned const instance_id = ++g_instance_counter;
  das_instance_record_t& record = (*(*m_types)[type].m_instance_id_to_creator)[instance_id] =
      das_instance_record_t{};
  return object_registering_info_t{&record, type, instance_id};
}

object_registering_info_t object_registry_t::register_type_for_dyncreate(wchar_t const* name,
                                                                         das_creator_t creator) {
  object_registering_info_t info = register_type(name, true);
  wchar_t const* const type_name = name;
  QUILLON_ASSERT(get_type_from_string(type_name) != DAS_UNREGISTERED_TYPE);
  if (info.m_record) info.m_record->m_creator = creator;
  return info;
}

unsigned object_registry_t::add_alias(unsigned type, wchar_t const* alias) {
  QUILLON_ASSERT(type != DAS_UNREGISTERED_TYPE);
  if (!alias) return DAS_UNREGISTERED_TYPE;
  if (get_type_from_string(alias) != DAS_UNREGISTERED_TYPE) {
    QUILLON_ASSERT(get_type_from_string(alias) == DAS_UNREGISTERED_TYPE ||
                   get_type_from_string(alias) == type);
  }
  if (type != DAS_UNREGISTERED_TYPE) m_names->emplace(alias, type);
  return get_type_from_string(alias);
}

unsigned object_registry_t::get_type_from_string(wchar_t const* name) const {
  if (!name) return DAS_UNREGISTERED_TYPE;
  auto const it = m_names->find(name);
  return it == m_names->end() ? DAS_UNREGISTERED_TYPE : it->second;
}

wchar_t const* object_registry_t::get_name_from_id(unsigned type) const {
  auto const it = m_types->find(type);
  if (it == m_types->end() || it->second.m_name.empty()) return nullptr;
  return it->second.m_name.c_str();
}

void object_registry_t::deregister(unsigned type, unsigned instance_id) {
  auto const it = m_types->find(type);
  if (it == m_types->end()) {
    QUILLON_ASSERT(false);
    return;
  }
  QUILLON_ASSERT(it->second.is_there_this_id(instance_id));
  it->second.m_instance_id_to_creator->erase(instance_id);
  if (it->second.m_instance_id_to_creator->empty()) {
    remove_all_names_for_type(type);
    m_types->erase(it);
  }
}

void object_registry_t::remove_all_names_for_type(unsigned type) {
  for (auto it = m_names->begin(); it != m_names->end();) {
    if (it->second == type) {
      it = m_names->erase(it);
    } else {
      ++it;
    }
  }
}

int object_registry_t::create(unsigned type, notype_ptr_t& out, unsigned ptr_type) {
  auto const it = m_types->find(type);
  if (it == m_types->end() || it->second.m_instance_id_to_creator->empty())
    return DAS_E_NOT_CREATABLE;
  das_creator_t const creator = it->second.get_any_creator_func_ptr();
  if (!creator) return DAS_E_NOT_CREATABLE;
  sptr_t<serializable_object_interface_t> object;
  int const result = creator(object);
  if (das_failed(result)) {
    object.reset();
    return result;
  }
  out = notype_ptr_t(object.get(), ptr_type);
  return DAS_OK;
}

int object_registry_t::create(wchar_t const* type, notype_ptr_t& out, wchar_t const* ptr_type) {
  unsigned const object_type = get_type_from_string(type);
  unsigned const pointer_type = ptr_type ? get_type_from_string(ptr_type) : object_type;
  if (object_type != DAS_UNREGISTERED_TYPE && pointer_type != DAS_UNREGISTERED_TYPE)
    return create(object_type, out, pointer_type);
  if (type && std::wstring(type) == none_type_name) {
    out = notype_ptr_t(nullptr, pointer_type);
    return DAS_OK;
  }
  return DAS_E_UNKNOWN_TYPE;
}

int factory_t::create(unsigned type, notype_ptr_t& out, unsigned ptr_type) {
  return get_object_registry().create(type, out, ptr_type);
}

int factory_t::create(wchar_t const* type, notype_ptr_t& out, wchar_t const* ptr_type) {
  return get_object_registry().create(type, out, ptr_type);
}

object_registry_t& get_object_registry() {
  // Never destroyed: modules that are unloaded after the library's own statics still
  // deregister their types through it.
  static object_registry_t* registry = new object_registry_t();
  return *registry;
}

factory_t& get_factory() {
  static factory_t factory;
  return factory;
}

object_registering_info_t register_type(wchar_t const* name, bool serializable) {
  return get_object_registry().register_type(name, serializable);
}

object_registering_info_t register_type_for_dyncreate(wchar_t const* name, das_creator_t creator) {
  return get_object_registry().register_type_for_dyncreate(name, creator);
}

unsigned add_alias(unsigned type, wchar_t const* alias) {
  return get_object_registry().add_alias(type, alias);
}

unsigned get_type_from_string(wchar_t const* name) {
  return get_object_registry().get_type_from_string(name);
}

wchar_t const* get_name_from_id(unsigned type) {
  return get_object_registry().get_name_from_id(type);
}

bool is_serializable(unsigned type) { return (type >> 31) != 0; }

void unregister_dyncreate_type(unsigned type, unsigned instance_id) {
  get_object_registry().deregister(type, instance_id);
}

void remove_all_names_for_type(unsigned type) {
  get_object_registry().remove_all_names_for_type(type);
}

int das_create(wchar_t const* type, notype_ptr_t& out, wchar_t const* ptr_type) {
  return get_object_registry().create(type, out, ptr_type);
}

namespace internal {

std::wstring demangled_type_name(std::type_info const& type) {
  int status = 0;
  std::unique_ptr<char, void (*)(void*)> name(
      abi::__cxa_demangle(type.name(), nullptr, nullptr, &status), &std::free);
  char const* const text = (status == 0 && name) ? name.get() : type.name();
  std::wstring result;
  for (char const* p = text; *p; ++p)
    result += static_cast<wchar_t>(static_cast<unsigned char>(*p));
  return result;
}

type_holder_t::~type_holder_t() {
  if (m_info.m_type != DAS_UNREGISTERED_TYPE)
    get_object_registry().deregister(m_info.m_type, m_info.m_instance_id);
}

void register_into(type_holder_t& holder, wchar_t const* name, bool serializable,
                   das_creator_t creator) {
  object_registry_t& registry = get_object_registry();
  if (holder.m_info.m_type != DAS_UNREGISTERED_TYPE) {
    registry.add_alias(holder.m_info.m_type, name);
    return;
  }
  holder.m_info = creator ? registry.register_type_for_dyncreate(name, creator)
                          : registry.register_type(name, serializable);
}

}  // namespace internal

// The library's own types. The spelling of these names is what bag files carry.
namespace {
struct library_registrations_t {
  library_registrations_t() {
    internal::register_into(type_id_t<serializable_object_interface_t>::holder(),
                            L"dasID_quillon2::serializable_object_interface_t", true, nullptr);
    internal::register_into(type_id_t<serializable_object_interface_t const>::holder(),
                            L"dasID_constDAS1_NAMESPACE::serializable_object_interface_t", true,
                            nullptr);
  }
} const g_library_registrations;
}  // namespace

namespace quillon2 {
QUILLON_DAS_REGISTER_SERIALIZABLE_TYPE(ql2::das_proxy_t);
}  // namespace quillon2

}  // namespace quillon2
