// The object registry: a process-wide map from type names ("dasID_" plus the qualified
// type name) to 32-bit type ids, and for creatable types to creator functions. A bag
// file names the type of a stored object; the registry turns that name into an object.
//
// Registration happens in static initialisers (QUILLON_DAS_REGISTER_TYPE and its kin)
// and is undone at exit. The registry has no lock: registering or deregistering while
// another thread creates objects is not safe.
#pragma once

#include <map>
#include <string>
#include <type_traits>
#include <typeinfo>

#include <quillon2/core/assert.hpp>
#include <quillon2/core/object_interface.hpp>
#include <quillon2/export.hpp>

namespace quillon2 {

class notype_ptr_t;
class serializable_object_interface_t;

// Type ids: 0 is "not registered"; the top bit marks a serializable type.
constexpr unsigned DAS_UNREGISTERED_TYPE = 0;
constexpr unsigned DAS_SERIALIZABLE_TYPE_FLAG = 0x80000000u;

// Integer results of the data model: 1 is success, bit 30 marks a failure.
constexpr int DAS_OK = 1;
constexpr int DAS_E_FAIL = 0x40000001;           // general failure of persistence and XSL
constexpr int DAS_E_UNKNOWN_TYPE = 0x40000065;   // the type name is unknown
constexpr int DAS_E_NOT_CREATABLE = 0x40000066;  // cannot be created or is not serializable
constexpr int DAS_E_NULL_OBJECT = 0x40000069;    // no object; a rejected XSL parameter
constexpr int DAS_E_XSL_NO_INPUT = 0x4000006B;   // XSL document or stylesheet missing
constexpr int DAS_E_NO_PATH = 0x4000006C;        // a path accessor call without a path
constexpr bool das_failed(int result) { return ((result >> 30) & 1) != 0; }
constexpr bool das_succeeded(int result) { return !das_failed(result); }

using das_creator_t = int (*)(sptr_t<serializable_object_interface_t>& result);

// One registration of a type: a type known to several modules has one record for each.
struct das_instance_record_t {
  void* m_registrar;
  das_creator_t m_creator;
};

struct object_registering_info_t {
  das_instance_record_t* m_record;
  unsigned m_type;
  unsigned m_instance_id;
};

struct QUILLON2_API type_full_info_t {
  std::wstring m_name;
  std::map<unsigned, das_instance_record_t>* m_instance_id_to_creator;

  type_full_info_t();
  explicit type_full_info_t(std::wstring name);
  type_full_info_t(type_full_info_t const& other);
  type_full_info_t& operator=(type_full_info_t const& other);
  ~type_full_info_t();

  bool is_there_this_id(unsigned instance_id) const;
  // The creator of the registration with the lowest instance id.
  das_creator_t get_any_creator_func_ptr() const;
};

class QUILLON2_API object_registry_t {
 public:
  object_registry_t();
  ~object_registry_t();
  object_registry_t(object_registry_t const&) = delete;
  object_registry_t& operator=(object_registry_t const&) = delete;

  object_registering_info_t register_type(wchar_t const* name, bool serializable);
  object_registering_info_t register_type_for_dyncreate(wchar_t const* name, das_creator_t creator);
  unsigned add_alias(unsigned type, wchar_t const* alias);
  unsigned get_type_from_string(wchar_t const* name) const;
  wchar_t const* get_name_from_id(unsigned type) const;
  bool is_serializable(unsigned type) const { return (type >> 31) != 0; }
  void deregister(unsigned type, unsigned instance_id);
  void remove_all_names_for_type(unsigned type);
  int create(unsigned type, notype_ptr_t& out, unsigned ptr_type);
  int create(wchar_t const* type, notype_ptr_t& out, wchar_t const* ptr_type);

 private:
  std::map<std::wstring, unsigned>* m_names;
  std::map<unsigned, type_full_info_t>* m_types;
  unsigned m_next_number;
};

// Stateless front of the registry.
class QUILLON2_API factory_t {
 public:
  int create(unsigned type, notype_ptr_t& out, unsigned ptr_type);
  int create(wchar_t const* type, notype_ptr_t& out, wchar_t const* ptr_type);
};

QUILLON2_API object_registry_t& get_object_registry();
QUILLON2_API factory_t& get_factory();

QUILLON2_API object_registering_info_t register_type(wchar_t const* name, bool serializable);
QUILLON2_API object_registering_info_t register_type_for_dyncreate(wchar_t const* name,
                                                                   das_creator_t creator);
QUILLON2_API unsigned add_alias(unsigned type, wchar_t const* alias);
QUILLON2_API unsigned get_type_from_string(wchar_t const* name);
QUILLON2_API wchar_t const* get_name_from_id(unsigned type);
QUILLON2_API bool is_serializable(unsigned type);
QUILLON2_API void unregister_dyncreate_type(unsigned type, unsigned instance_id);
QUILLON2_API void remove_all_names_for_type(unsigned type);
QUILLON2_API int das_create(wchar_t const* type, notype_ptr_t& out, wchar_t const* ptr_type);

namespace internal {

// The qualified name of a type as the compiler spells it (demangled).
QUILLON2_API std::wstring demangled_type_name(std::type_info const& type);

// Holds the registration of one static type and undoes it at exit.
struct QUILLON2_API type_holder_t {
  object_registering_info_t m_info{};
  type_holder_t() = default;
  type_holder_t(type_holder_t const&) = delete;
  type_holder_t& operator=(type_holder_t const&) = delete;
  ~type_holder_t();
};

// Registers name for the holder's type: a fresh registration, or an alias when the
// holder already has one.
QUILLON2_API void register_into(type_holder_t& holder, wchar_t const* name, bool serializable,
                                das_creator_t creator);

template <class T, class = void>
struct dyncreate_of {
  static das_creator_t get() { return nullptr; }
};
template <class T>
struct dyncreate_of<T, std::void_t<decltype(&T::das_create_this_object)>> {
  static das_creator_t get() { return &T::das_create_this_object; }
};

}  // namespace internal

// The type id of T. If no static registration of T has run yet, this is reported and T
// is registered on the spot under its demangled name.
template <class T>
class QUILLON2_API type_id_t {
 public:
  static unsigned get_type() {
    internal::type_holder_t& h = holder();
    if (h.m_info.m_type == DAS_UNREGISTERED_TYPE) {
      QUILLON_ASSERT(false);
      using bare_t = std::remove_cv_t<T>;
      std::wstring const name = std::wstring(std::is_const<T>::value ? L"dasID_const" : L"dasID_") +
                                internal::demangled_type_name(typeid(bare_t));
      das_creator_t const creator =
          std::is_const<T>::value ? nullptr : internal::dyncreate_of<bare_t>::get();
      internal::register_into(h, name.c_str(), creator != nullptr, creator);
    }
    return h.m_info.m_type;
  }
  static internal::type_holder_t& holder() {
    static internal::type_holder_t h;
    return h;
  }
};

// Registers T and const T at static initialisation under the given names.
template <class T>
struct type_registrar_t {
  type_registrar_t(wchar_t const* name, wchar_t const* const_name, bool serializable) {
    das_creator_t const creator = serializable ? internal::dyncreate_of<T>::get() : nullptr;
    internal::register_into(type_id_t<T>::holder(), name, serializable, creator);
    internal::register_into(type_id_t<T const>::holder(), const_name, serializable, nullptr);
  }
};

}  // namespace quillon2

#define QUILLON_DAS_CONCAT_(a, b) a##b
#define QUILLON_DAS_CONCAT(a, b) QUILLON_DAS_CONCAT_(a, b)
// At namespace scope of a source file: registers a type under "dasID_" and the type as
// spelled here. The serializable form also stores T::das_create_this_object when T has
// one, so that the type can be created by name.
#define QUILLON_DAS_REGISTER_TYPE(T)                                                         \
  static ::quillon2::type_registrar_t<T> QUILLON_DAS_CONCAT(q2_das_registrar_, __COUNTER__)( \
      L"dasID_" #T, L"dasID_const" #T, false)
#define QUILLON_DAS_REGISTER_SERIALIZABLE_TYPE(T)                                            \
  static ::quillon2::type_registrar_t<T> QUILLON_DAS_CONCAT(q2_das_registrar_, __COUNTER__)( \
      L"dasID_" #T, L"dasID_const" #T, true)
