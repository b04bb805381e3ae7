// Shared pieces of the das tests, and the one include they need: a serializable object
// registered by name, bags of every value type, blobs, deep chains of bags, hostile
// entity documents, and a temporary directory whose files are named as wide text.
#pragma once

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <filesystem>
#include <iterator>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <quillon2/das/das_proxy.hpp>
#include <quillon2/das/notype_ptr.hpp>
#include <quillon2/das/path_accessor.hpp>
#include <quillon2/das/type_factory.hpp>
#include <quillon2/das/variant.hpp>
#include <quillon2/das/variant_bag.hpp>
#include <quillon2/das/variant_bag_serialization.hpp>
#include <quillon2/das/variant_bag_serialization2.hpp>
#include <quillon2/das/variant_bag_visitor.hpp>
#include <quillon2/das/variant_operations.hpp>
#include <quillon2/headers/kesmet.hpp>

#include "support/assert_recorder.hpp"
#include "support/temp_dir.hpp"

namespace das_test {

using namespace quillon2;
using list_t = std::vector<std::string>;

constexpr int k_failure = 0x40000001;

// An object registered under `Name` that saves a number and a text, or fails its save
// with a code of its own. `alive` counts the objects of one name.
template <wchar_t const* Name>
class named_probe_t : public serializable_object_interface_t {
 public:
  named_probe_t() { ++alive; }
  ~named_probe_t() override { --alive; }
  int save(variant_bag_t& out) const override {
    if (m_fail != 0) return m_fail;
    out.put(L"x", variant_t(m_x));
    if (!m_text.empty()) out.put(L"text", variant_t(m_text.c_str(), false));
    return 1;
  }
  int load(variant_bag_t const& in) override {
    m_x = in.get_variant(L"x", variant_t(-1)).get<s32_t>();
    m_text = in.get_variant(L"text", variant_t(L"", false)).get<wchar_t const*>();
    return 1;
  }
  static int das_create_this_object(sptr_t<serializable_object_interface_t>& result) {
    result = sptr_t<serializable_object_interface_t>(new ref_counted_t<named_probe_t>());
    return 1;
  }
  static inline int alive = 0;
  int m_x = 0;
  int m_fail = 0;
  std::wstring m_text;

 protected:
  u32_t get_type() const override { return get_type_from_string(Name); }
};

inline constexpr wchar_t k_probe_name[] = L"dasID_das_test::probe_t";
using probe_t = named_probe_t<k_probe_name>;

inline notype_ptr_t probe(int x, int fail = 0, std::wstring text = L"") {
  auto* object = new ref_counted_t<probe_t>();
  object->m_x = x;
  object->m_fail = fail;
  object->m_text = std::move(text);
  return notype_ptr_t(sptr_t<probe_t>(object));
}

inline std::wstring wide(std::string const& text) {
  return KESMET_2_18::strings::utf8_to_utf16(text);
}
inline std::string narrow(wchar_t const* text) {
  return KESMET_2_18::strings::utf16_to_utf8(text != nullptr ? text : L"");
}

inline variant_t blob(std::string const& bytes) {
  return variant_t(static_cast<void const*>(bytes.data()), static_cast<u64_t>(bytes.size()));
}

// A bag holding one value.
inline variant_bag_t bag_of(wchar_t const* name, variant_t const& value) {
  variant_bag_t bag;
  bag.add(name, value);
  return bag;
}

// One value of every type both XML forms keep exactly, in the order the attribute
// form gives them back (wide strings first, then by prefix).
inline variant_bag_t every_type() {
  variant_bag_t bag;
  for (auto const& [name, value] : std::vector<std::pair<wchar_t const*, variant_t>>{
           {L"text", variant_t(L" gr\u00fc\u00dfe \u65e5\u672c \U0001F600 <&>\"' \t\r\n x", false)},
           {L"b", true},
           {L"s8", static_cast<signed char>(-128)},
           {L"d", -2.25e-300},
           {L"f", 1.5f},
           {L"s32", -2147483647 - 1},
           {L"s64", static_cast<s64_t>(INT64_MIN)},
           {L"nothing", variant_t()},
           {L"s16", static_cast<short>(-32768)},
           {L"u8", static_cast<unsigned char>(255)},
           {L"u32", 4294967295u},
           {L"u64", static_cast<u64_t>(UINT64_MAX)},
           {L"u16", static_cast<unsigned short>(65535)}})
    bag.add(name, value);
  return bag;
}

// The value has the type of `expected` and its value.
inline ::testing::AssertionResult same(variant_t const& expected, variant_t const& actual) {
  if (expected.get_type() == actual.get_type() && expected == actual)
    return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << "type " << actual.get_type() << " value " << actual;
}

// Every value of `expected` is in `actual` under its name, with its type and value.
inline void expect_same_values(variant_bag_t const& expected, variant_bag_t const& actual) {
  for (auto it = expected.begin<variant_t>(); !it.at_end(); it.next())
    EXPECT_TRUE(same(it.get_value(), actual.get_variant(it.get_name(), variant_t(L"?"))))
        << narrow(it.get_name());
}

// `depth` bags named "n" inside each other, the innermost holding leaf = depth.
inline variant_bag_t chain(int depth) {
  variant_bag_t bag;
  variant_bag_t* level = &bag;
  for (int i = 0; i < depth; ++i) level = &level->add_variant_bag(L"n", variant_bag_t());
  level->add<variant_t>(L"leaf", variant_t(depth));
  return bag;
}

// A document type declaring entities a..<last>, each `fanout` references to the one
// before: expanding the last one would give 16 * fanout^(levels) characters.
inline std::string entity_bomb(char const* root, char last, int fanout) {
  std::string bomb = std::string("<!DOCTYPE ") + root + " [<!ENTITY a 'aaaaaaaaaaaaaaaa'>";
  for (char c = 'b'; c <= last; ++c) {
    bomb += std::string("<!ENTITY ") + c + " '";
    for (int i = 0; i < fanout; ++i) bomb += std::string("&") + static_cast<char>(c - 1) + ";";
    bomb += "'>";
  }
  return bomb + "]>";
}

// A fixture with a temporary directory whose files are named as wide text, as the
// library's file calls take them.
class file_test : public q2test::temp_dir_test {
 protected:
  std::wstring name(std::string const& file) const { return wide(m_dir.file(file)); }
  // How many files the directory holds, to see that no temporary file was left behind.
  long files() const {
    return std::distance(std::filesystem::directory_iterator(m_dir.path()), {});
  }
  // Holds a flock of the given kind on a file while it lives.
  struct lock_t {
    lock_t(std::string const& path, int kind) : fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC)) {
      EXPECT_EQ(0, ::flock(fd, kind | LOCK_NB));
    }
    ~lock_t() { ::close(fd); }
    int fd;
  };
};

}  // namespace das_test

// Registered once per test file; the registry counts the registrants of one name.
QUILLON_DAS_REGISTER_SERIALIZABLE_TYPE(das_test::probe_t);
