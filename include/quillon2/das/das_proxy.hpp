// das_proxy_t stands in for an object whose type is not registered in the running
// process: it keeps the type names and the object's saved bag, so that the object
// survives a load and a save unchanged, and becomes the real object once its type is
// registered. Its reference count is plain: a proxy belongs to one thread at a time.
#pragma once

#include <string>

#include <quillon2/das/notype_ptr.hpp>
#include <quillon2/export.hpp>

namespace quillon2 {

class variant_bag_t;

class QUILLON2_API das_proxy_t : public virtual serializable_object_interface_t {
 public:
  static int das_create_this_object(sptr_t<serializable_object_interface_t>& result);

  u32_t add_ref() const override;
  u32_t release() const override;

  // The names, or null when empty.
  wchar_t const* get_obj_type() const;
  wchar_t const* get_ptr_type() const;

  int save(variant_bag_t& out) const override;
  int load(variant_bag_t const& in) override;

  // Creates the real object by name and loads the held bag into it.
  int instantiate_object_interface(notype_ptr_t& out) const;

 protected:
  das_proxy_t(wchar_t const* obj_type, wchar_t const* ptr_type, variant_bag_t const& data);
  ~das_proxy_t() override;
  u32_t get_type() const override;

 private:
  friend class notype_ptr_t;

  std::wstring m_obj_type;
  std::wstring m_ptr_type;
  mutable unsigned m_type_id;
  mutable u32_t m_ref_count;
  variant_bag_t* m_data;
};

}  // namespace quillon2
