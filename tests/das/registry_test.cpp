#include <string>

#include <gtest/gtest.h>

#include <quillon2/das/das_proxy.hpp>
#include <quillon2/das/notype_ptr.hpp>
#include <quillon2/das/type_factory.hpp>
#include <quillon2/das/variant_bag.hpp>

#include "support/assert_recorder.hpp"

using namespace quillon2;

namespace q2test_types {

int g_alive = 0;

// A serializable object with one number, creatable by name once registered.
class widget_t : public serializable_object_interface_t {
 public:
  widget_t() { ++g_alive; }
  ~widget_t() override { --g_alive; }
  int save(variant_bag_t& out) const override {
    out.put(L"size", variant_t(m_size));
    return DAS_OK;
  }
  int load(variant_bag_t const& in) override {
    m_size = in.get_variant(L"size", variant_t(-1)).get<s32_t>();
    return DAS_OK;
  }
  static int das_create_this_object(sptr_t<serializable_object_interface_t>& result) {
    result = sptr_t<serializable_object_interface_t>(new ref_counted_t<widget_t>());
    return DAS_OK;
  }
  int m_size = 0;

 protected:
  u32_t get_type() const override { return get_type_from_string(L"dasID_q2test::widget_t"); }
};

class plain_t : public object_interface_t {};

int failing_creator(sptr_t<serializable_object_interface_t>& result) {
  result = sptr_t<serializable_object_interface_t>(new ref_counted_t<widget_t>());
  return DAS_E_FAIL;
}

}  // namespace q2test_types

namespace {

using q2test_types::widget_t;

// Registers the widget type for the life of a test.
class widget_registration_t {
 public:
  widget_registration_t()
      : m_info(register_type_for_dyncreate(L"dasID_q2test::widget_t",
                                           &widget_t::das_create_this_object)) {}
  ~widget_registration_t() { unregister_dyncreate_type(m_info.m_type, m_info.m_instance_id); }
  unsigned type() const { return m_info.m_type; }

 private:
  object_registering_info_t m_info;
};

TEST(RegistryIds, SerializableBitAnswersWithoutLookup) {
  EXPECT_TRUE(is_serializable(0x80000001u));
  EXPECT_FALSE(is_serializable(1u));
  EXPECT_TRUE(get_object_registry().is_serializable(0x80000005u));
  EXPECT_TRUE(das_failed(DAS_E_NO_PATH));
  EXPECT_FALSE(das_failed(DAS_OK));
}

TEST(RegistryIds, LibraryTypesAreRegisteredUnderTheirFileNames) {
  unsigned const proxy = get_type_from_string(L"dasID_ql2::das_proxy_t");
  EXPECT_NE(proxy, DAS_UNREGISTERED_TYPE);
  EXPECT_TRUE(is_serializable(proxy));
  EXPECT_NE(get_type_from_string(L"dasID_constql2::das_proxy_t"), DAS_UNREGISTERED_TYPE);
  EXPECT_NE(get_type_from_string(L"dasID_quillon2::serializable_object_interface_t"),
            DAS_UNREGISTERED_TYPE);
  EXPECT_NE(get_type_from_string(L"dasID_constDAS1_NAMESPACE::serializable_object_interface_t"),
            DAS_UNREGISTERED_TYPE);
  EXPECT_STREQ(get_name_from_id(proxy), L"dasID_ql2::das_proxy_t");
  EXPECT_EQ(get_name_from_id(0x7FFFFFF0u), nullptr);
}

TEST(RegistryLifecycle, TwoRegistrantsShareOneTypeUntilBothLeave) {
  object_registering_info_t const first = register_type(L"dasID_q2test::shared_t", false);
  object_registering_info_t const second = register_type(L"dasID_q2test::shared_t", true);
  EXPECT_EQ(first.m_type, second.m_type);
  EXPECT_NE(first.m_instance_id, second.m_instance_id);
  EXPECT_FALSE(is_serializable(second.m_type));
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
  EXPECT_TRUE(
      capture.saw("get_type_from_string(alias) == DAS_UNREGISTERED_TYPE || "
                  "get_type_from_string(alias) == type"));
  unregister_dyncreate_type(a.m_type, 999999);
  EXPECT_TRUE(capture.saw("it->second.is_there_this_id(instance_id)"));
  unregister_dyncreate_type(a.m_type, a.m_instance_id);
  unregister_dyncreate_type(b.m_type, b.m_instance_id);
  unregister_dyncreate_type(a.m_type, a.m_instance_id);
  EXPECT_TRUE(capture.saw("false"));
  add_alias(DAS_UNREGISTERED_TYPE, L"nothing");
  EXPECT_TRUE(capture.saw("type != DAS_UNREGISTERED_TYPE"));
  EXPECT_EQ(get_type_from_string(L"nothing"), DAS_UNREGISTERED_TYPE);
}

TEST(RegistryCreate, ByNameGivesTheObjectOrAnExactCode) {
  widget_registration_t registration;
  notype_ptr_t out;
  EXPECT_EQ(das_create(L"dasID_q2test::widget_t", out, nullptr), DAS_OK);
  ASSERT_FALSE(out.is_null());
  EXPECT_EQ(out.get_ptr_type(), registration.type());
  EXPECT_EQ(out.get_object_type(), registration.type());
  EXPECT_STREQ(out.get_obj_type_as_string(), L"dasID_q2test::widget_t");
  EXPECT_TRUE(out.get<widget_t>());

  notype_ptr_t untouched(out);
  EXPECT_EQ(das_create(L"dasID_q2test::nobody", untouched, nullptr), DAS_E_UNKNOWN_TYPE);
  EXPECT_EQ(untouched.get_object(), out.get_object());

  notype_ptr_t none(out);
  EXPECT_EQ(get_factory().create(L"dasID_None", none, nullptr), DAS_OK);
  EXPECT_TRUE(none.is_null());
}

TEST(RegistryCreate, TypesWithoutCreatorOrWithAFailingOneAreRefused) {
  int const alive = q2test_types::g_alive;
  object_registering_info_t const plain = register_type(L"dasID_q2test::plain_t", true);
  object_registering_info_t const failing =
      register_type_for_dyncreate(L"dasID_q2test::failing_t", &q2test_types::failing_creator);
  notype_ptr_t out;
  EXPECT_EQ(das_create(L"dasID_q2test::plain_t", out, nullptr), DAS_E_NOT_CREATABLE);
  EXPECT_EQ(das_create(L"dasID_q2test::failing_t", out, nullptr), DAS_E_FAIL);
  EXPECT_TRUE(out.is_null());
  EXPECT_EQ(q2test_types::g_alive, alive);
  EXPECT_EQ(get_object_registry().create(0x7FFFFFF0u, out, 0), DAS_E_NOT_CREATABLE);
  unregister_dyncreate_type(plain.m_type, plain.m_instance_id);
  unregister_dyncreate_type(failing.m_type, failing.m_instance_id);
}

TEST(RegistryTypeIds, AnUnregisteredStaticTypeReportsAndRegistersOnTheSpot) {
  q2test::assert_recorder_t capture;
  unsigned const id = type_id_t<q2test_types::plain_t>::get_type();
  EXPECT_TRUE(capture.saw("false"));
  EXPECT_NE(id, DAS_UNREGISTERED_TYPE);
  EXPECT_EQ(get_type_from_string(L"dasID_q2test_types::plain_t"), id);
  EXPECT_FALSE(is_serializable(id));
  EXPECT_EQ(type_id_t<q2test_types::plain_t>::get_type(), id);
  EXPECT_EQ(capture.count(), 1u);
  EXPECT_NE(type_id_t<q2test_types::plain_t const>::get_type(), id);
  EXPECT_NE(get_type_from_string(L"dasID_constq2test_types::plain_t"), DAS_UNREGISTERED_TYPE);
}

TEST(TypedPointers, ObjectsLiveAsLongAsAVariantHoldsThem) {
  widget_registration_t registration;
  int const alive = q2test_types::g_alive;
  {
    notype_ptr_t p;
    ASSERT_EQ(das_create(L"dasID_q2test::widget_t", p, nullptr), DAS_OK);
    variant_t v(p);
    p = notype_ptr_t();
    variant_t copy(v);
    v = variant_t();
    EXPECT_EQ(q2test_types::g_alive, alive + 1);
    EXPECT_TRUE(copy.can_get<notype_ptr_t>());
    EXPECT_FALSE(copy.get<notype_ptr_t>().is_null());
    EXPECT_NE(copy.hash(), 0u);
  }
  EXPECT_EQ(q2test_types::g_alive, alive);
}

TEST(TypedPointers, SerializableAccessAndComparison) {
  widget_registration_t registration;
  notype_ptr_t null_ptr;
  sptr_t<serializable_object_interface_t> object;
  EXPECT_EQ(null_ptr.get_serializable_object(object), DAS_E_NULL_OBJECT);
  notype_ptr_t a, b;
  das_create(L"dasID_q2test::widget_t", a, nullptr);
  das_create(L"dasID_q2test::widget_t", b, nullptr);
  EXPECT_EQ(a.get_serializable_object(object), DAS_OK);
  EXPECT_EQ(a, b);
  b.get<widget_t>()->m_size = 3;
  EXPECT_NE(a, b);
  EXPECT_NE(variant_t(a), variant_t(b));
  EXPECT_EQ(notype_ptr_compare(&a, &b), &a < &b ? -1 : 1);
  EXPECT_EQ(variant_t(a), variant_t(a));
}

TEST(Proxies, KeepTheirDataUntilTheTypeIsRegistered) {
  variant_bag_t data;
  data.put(L"size", variant_t(7));
  notype_ptr_t p;
  EXPECT_EQ(p.create_from_runtime_info(data, L"dasID_q2test::widget_t", nullptr), DAS_OK);
  EXPECT_STREQ(p.get_obj_type_as_string(), L"dasID_q2test::widget_t");
  EXPECT_EQ(p.get_ptr_type_as_string(), nullptr);
  EXPECT_FALSE(p.get<widget_t>());
  sptr_t<serializable_object_interface_t> object;
  ASSERT_EQ(p.get_serializable_object(object), DAS_OK);
  variant_bag_t saved;
  object->save(saved);
  EXPECT_EQ(saved, data);
  object.reset();

  widget_registration_t registration;
  sptr_t<widget_t> real = p.get<widget_t>();
  ASSERT_TRUE(real);
  EXPECT_EQ(real->m_size, 7);
  EXPECT_EQ(p.get_object_type(), registration.type());
}

TEST(Proxies, EqualNamesAndBagsCompareEqualOnceInstantiable) {
  variant_bag_t data;
  data.put(L"size", variant_t(4));
  notype_ptr_t a, b, c;
  a.create_from_runtime_info(data, L"dasID_q2test::widget_t", nullptr);
  b.create_from_runtime_info(data, L"dasID_q2test::widget_t", nullptr);
  c.create_from_runtime_info(data, L"dasID_q2test::gadget_t", nullptr);
  EXPECT_NE(a, c);
  widget_registration_t registration;
  EXPECT_EQ(a, b);
  variant_bag_t other;
  other.put(L"size", variant_t(5));
  notype_ptr_t d;
  d.create_from_runtime_info(other, L"dasID_q2test::widget_t", nullptr);
  EXPECT_NE(a, d);
}

TEST(Proxies, InstantiationReportsWhyItFails) {
  variant_bag_t data;
  notype_ptr_t p;
  p.create_from_runtime_info(data, L"dasID_q2test::nobody", nullptr);
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

TEST(BagPointers, NotypeFormsWorkOnTheValues) {
  widget_registration_t registration;
  variant_bag_t bag;
  notype_ptr_t p;
  das_create(L"dasID_q2test::widget_t", p, nullptr);
  notype_ptr_t& stored = bag.put(L"obj", p);
  EXPECT_EQ(stored.get_object(), p.get_object());
  EXPECT_TRUE(bag.has<notype_ptr_t>(L"obj"));
  EXPECT_EQ(bag.get<notype_ptr_t>(L"obj")->get_object(), p.get_object());
  bag.put(L"num", variant_t(1));
  EXPECT_FALSE(bag.has<notype_ptr_t>(L"num"));
  EXPECT_EQ(bag.get<notype_ptr_t>(L"num"), nullptr);
  bag.remove<notype_ptr_t>(L"obj");
  EXPECT_FALSE(bag.has<variant_t>(L"obj"));
}

}  // namespace
