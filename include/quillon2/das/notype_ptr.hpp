// notype_ptr_t: the untyped, counted object pointer that a variant_t of tag vtNotypePtr
// holds, together with the id of the static type through which the object is seen.
// serializable_object_interface_t is the interface of objects that can be saved into a
// bag and loaded from one, which is how objects travel through bag files.
#pragma once

#include <quillon2/core/object_interface.hpp>
#include <quillon2/das/type_factory.hpp>
#include <quillon2/export.hpp>

namespace quillon2 {

class variant_bag_t;
class das_proxy_t;

class QUILLON2_API serializable_object_interface_t : public object_interface_t {
 public:
  virtual int save(variant_bag_t& out) const = 0;
  virtual int load(variant_bag_t const& in) = 0;

 protected:
  ~serializable_object_interface_t() override = default;
};

class QUILLON2_API notype_ptr_t : private object_accessor_t {
 public:
  notype_ptr_t() noexcept : m_object(nullptr), m_ptr_type(DAS_UNREGISTERED_TYPE) {}
  // Takes a reference on object, seen through the type ptr_type.
  notype_ptr_t(object_interface_t const* object, unsigned ptr_type);
  // An object seen through its static type T.
  template <class T>
  explicit notype_ptr_t(sptr_t<T> const& object)
      : notype_ptr_t(object.get(), type_id_t<T>::get_type()) {}
  notype_ptr_t(notype_ptr_t const& other);
  notype_ptr_t(notype_ptr_t&& other) noexcept;
  notype_ptr_t& operator=(notype_ptr_t const& other);
  notype_ptr_t& operator=(notype_ptr_t&& other) noexcept;
  ~notype_ptr_t();

  bool is_null() const { return m_object == nullptr; }
  unsigned get_ptr_type() const { return m_ptr_type; }
  // The object's own type id, else the pointer type; 0 for no object.
  unsigned get_object_type() const;
  wchar_t const* get_obj_type_as_string() const;
  wchar_t const* get_ptr_type_as_string() const;
  object_interface_t* get_object() const { return m_object; }

  // Stores a proxy that holds the two type names and a copy of data; returns 1.
  int create_from_runtime_info(variant_bag_t const& data, wchar_t const* obj_type,
                               wchar_t const* ptr_type);
  int get_serializable_object(sptr_t<serializable_object_interface_t>& out) const;

  // The object as T, or null. A proxy whose type has become known is replaced by the
  // real object first.
  template <class T>
  sptr_t<T> get() const {
    convert_if_possible();
    return sptr_t<T>(dynamic_cast<T*>(m_object));
  }

  bool operator==(notype_ptr_t const& other) const;
  bool operator!=(notype_ptr_t const& other) const { return !(*this == other); }

 private:
  friend QUILLON2_API int notype_ptr_compare(notype_ptr_t const* a, notype_ptr_t const* b);
  bool is_proxy() const;
  das_proxy_t* get_proxy() const;
  void convert_if_possible() const;

  object_interface_t* m_object;
  unsigned m_ptr_type;
};

// Three-way comparison used by variant_t: -1, 0 or 1.
QUILLON2_API int notype_ptr_compare(notype_ptr_t const* a, notype_ptr_t const* b);

}  // namespace quillon2
