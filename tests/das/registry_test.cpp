// The type registry: ids, registrants coming and going, creation by name, typed
// pointers in variants and bags, and proxies of types not registered yet.
#include "das/das_support.hpp"

using namespace das_test;

namespace q2test_types {

class plain_t : public object_interface_t {};

}  // namespace q2test_types

namespace {

inline constexpr wchar_t k_widget[] = L"dasID_q2test::widget_t";
// Registered for creation only while a test holds a widget_registration_t.
using widget_t = named_probe_t<k_widget>;

int failing_creator(sptr_t<serializable_object_interface_t>& result) {
  result = sptr_t<serializable_object_interface_t>(new ref_counted_t<widget_t>());
  return DAS_E_FAIL;
}

class widget_registration_t {
 public:
  widget_registration_t()
      : m_info(register_type_for_dyncreate(k_widget, &widget_t::das_create_this_object)) {}
  ~widget_registration_t() { unregister_dyncreate_type(m_info.m_type, m_info.m_instance_id); }
  unsigned type() const { return m_info.m_type; }

 private:
  object_registering_info_t m_info;
};

notype_ptr_t proxy_of(int size, wchar_t const* type = k_widget) {
  variant_bag_t data = bag_of(L"x", variant_t(size));
  notype_ptr_t p;
  EXPECT_EQ(p.create_from_runtime_info(data, type, nullptr), DAS_OK);
  return p;
}

TEST(RegistryLifecycle, TwoRegistrantsShareOneTypeUntilBothLeave) {
  object_registering_info_t const first = register_type(L"dasID_q2test::shared_t", false);
  object_registering_info_t const second = register_type(L"dasID_q2test::shared_t", true);
  EXPECT_EQ(first.m_type, second.m_type);
  EXPECT_EQ(add_alias(first.m_type, L"shared alias"), first.m_type);
  unregister_dyncreate_type(first.m_type, first.m_instance_id);
  EXPECT_EQ(get_type_from_string(L"dasID_q2test::shared_t"), first.m_type);
  unregister_dyncreate_type(second.m_type, second.m_instance_id);
  EXPECT_EQ(get_type_from_string(L"dasID_q2test::shared_t"), DAS_UNREGISTERED_TYPE);
  EXPECT_EQ(get_type_from_string(L"shared alias"), DAS_UNREGISTERED_TYPE);
  object_registering_info_t const again = register_type(L"dasID_q2test::shared_t", false);
  EXPECT_GT(again.m_type, first.m_type);
  unregister_dyncreate_type(again.m_type, again.m_instance_id);
}

TEST(RegistryLifecycle, MisuseReports) {
  q2test::assert_recorder_t capture;
  object_registering_info_t const a = register_type(L"dasID_q2test::a_t", false);
  object_registering_info_t const b = register_type(L"dasID_q2test::b_t", false);
  EXPECT_EQ(add_alias(a.m_type, L"dasID_q2test::b_t"), b.m_type);
  unregister_dyncreate_type(a.m_type, 999999);
  unregister_dyncreate_type(a.m_type, a.m_instance_id);
  unregister_dyncreate_type(b.m_type, b.m_instance_id);
  unregister_dyncreate_type(a.m_type, a.m_instance_id);
  add_alias(DAS_UNREGISTERED_TYPE, L"nothing");
  EXPECT_EQ(capture.conditions(),
            (std::vector<std::string>{"get_type_from_string(alias) == DAS_UNREGISTERED_TYPE || "
                                      "get_type_from_string(alias) == type",
                                      "it->second.is_there_this_id(instance_id)", "false",
                                      "type != DAS_UNREGISTERED_TYPE"}));
  EXPECT_EQ(get_type_from_string(L"nothing"), DAS_UNREGISTERED_TYPE);
}

TEST(RegistryCreate, ByNameGivesTheObjectOrAnExactCode) {
  int const alive = widget_t::alive;
  object_registering_info_t const plain = register_type(L"dasID_q2test::plain_t", true);
  object_registering_info_t const failing =
      register_type_for_dyncreate(L"dasID_q2test::failing_t", &failing_creator);
  notype_ptr_t out = probe(1);
  EXPECT_EQ(das_create(L"dasID_q2test::nobody", out, nullptr), DAS_E_UNKNOWN_TYPE);
  EXPECT_FALSE(out.is_null());
  EXPECT_EQ(get_factory().create(L"dasID_None", out, nullptr), DAS_OK);
  EXPECT_TRUE(out.is_null());
  EXPECT_EQ(das_create(L"dasID_q2test::plain_t", out, nullptr), DAS_E_NOT_CREATABLE);
  EXPECT_EQ(das_create(L"dasID_q2test::failing_t", out, nullptr), DAS_E_FAIL);
  EXPECT_TRUE(out.is_null());
  EXPECT_EQ(widget_t::alive, alive);
  EXPECT_EQ(get_object_registry().create(0x7FFFFFF0u, out, 0), DAS_E_NOT_CREATABLE);
  unregister_dyncreate_type(plain.m_type, plain.m_instance_id);
  unregister_dyncreate_type(failing.m_type, failing.m_instance_id);
}

TEST(RegistryTypeIds, AnUnregisteredStaticTypeReportsOnceAndRegistersOnTheSpot) {
  q2test::assert_recorder_t capture;
  unsigned const id = type_id_t<q2test_types::plain_t>::get_type();
  EXPECT_EQ(get_type_from_string(L"dasID_q2test_types::plain_t"), id);
  EXPECT_EQ(type_id_t<q2test_types::plain_t>::get_type(), id);
  EXPECT_EQ(capture.conditions(), std::vector<std::string>{"false"});
  EXPECT_NE(type_id_t<q2test_types::plain_t const>::get_type(), id);
}

TEST(TypedPointers, ObjectsLiveWhileHeldAndCompareByContent) {
  widget_registration_t registration;
  int const alive = widget_t::alive;
  {
    notype_ptr_t a, b;
    ASSERT_EQ(das_create(k_widget, a, nullptr), DAS_OK);
    EXPECT_EQ(a.get_ptr_type(), registration.type());
    das_create(k_widget, b, nullptr);
    EXPECT_EQ(a, b);
    b.get<widget_t>()->m_x = 3;
    EXPECT_NE(variant_t(a), variant_t(b));
    EXPECT_EQ(notype_ptr_compare(&a, &b), &a < &b ? -1 : 1);
    variant_bag_t bag;
    EXPECT_EQ(bag.put(L"obj", a).get_object(), a.get_object());
    variant_t v(a);
    a = notype_ptr_t();
    variant_t copy(v);
    v = variant_t();
    EXPECT_EQ(widget_t::alive, alive + 2);
    EXPECT_NE(copy.hash(), 0u);
    bag.remove<notype_ptr_t>(L"obj");
    EXPECT_EQ(bag.get<notype_ptr_t>(L"obj"), nullptr);
  }
  EXPECT_EQ(widget_t::alive, alive);
  sptr_t<serializable_object_interface_t> object;
  EXPECT_EQ(notype_ptr_t().get_serializable_object(object), DAS_E_NULL_OBJECT);
}

TEST(Proxies, KeepTheirDataUntilTheTypeIsRegisteredAndThenCompareAsObjects) {
  notype_ptr_t p = proxy_of(7);
  EXPECT_FALSE(p.get<widget_t>());
  sptr_t<serializable_object_interface_t> object;
  ASSERT_EQ(p.get_serializable_object(object), DAS_OK);
  variant_bag_t saved;
  object->save(saved);
  EXPECT_EQ(saved.get_variant(L"x", variant_t()), variant_t(7));
  object.reset();
  notype_ptr_t const a = proxy_of(4), b = proxy_of(4), d = proxy_of(5);
  EXPECT_NE(a, proxy_of(4, L"dasID_q2test::gadget_t"));

  widget_registration_t registration;
  EXPECT_EQ(a, b);
  EXPECT_NE(a, d);
  EXPECT_EQ(p.get<widget_t>()->m_x, 7);
}

TEST(Proxies, InstantiationReportsWhyItFails) {
  notype_ptr_t p = proxy_of(0, L"dasID_q2test::nobody");
  sptr_t<serializable_object_interface_t> object;
  ASSERT_EQ(p.get_serializable_object(object), DAS_OK);
  auto* proxy = dynamic_cast<das_proxy_t*>(object.get());
  ASSERT_NE(proxy, nullptr);
  notype_ptr_t out;
  EXPECT_EQ(proxy->instantiate_object_interface(out), DAS_E_UNKNOWN_TYPE);
  object_registering_info_t const plain = register_type(L"dasID_q2test::nobody", true);
  EXPECT_EQ(proxy->instantiate_object_interface(out), DAS_E_NOT_CREATABLE);
  unregister_dyncreate_type(plain.m_type, plain.m_instance_id);
}

}  // namespace
