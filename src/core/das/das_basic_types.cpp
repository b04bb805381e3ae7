// variant_t: construction of shared blocks, their release, and the comparison rules.
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <functional>
#include <limits>
#include <new>

#include <quillon2/das/notype_ptr.hpp>
#include <quillon2/das/variant.hpp>

#include "core/das/include/variant_buddy.hpp"
#include "core/miscellaneous/include/posix_io.hpp"

namespace quillon2 {

namespace {

// Blocks always have room for a wide terminator, so that a text built from a null
// pointer (payload size 0) still reads as an empty string.
constexpr u64_t min_block_payload = sizeof(wchar_t);

constexpr u64_t no_blob = std::numeric_limits<u64_t>::max();

bool is_number(das_variant_type_t t) { return t >= vtBool && t <= vtDouble; }
bool is_floating(das_variant_type_t t) { return t == vtFloat || t == vtDouble; }
bool is_narrow_text(das_variant_type_t t) { return t == vtString || t == vtCharPtr; }
bool is_wide_text(das_variant_type_t t) { return t == vtWString || t == vtWCharPtr; }

}  // namespace

variant_t::deleter_t::deleter_t() : m_free(&std::free), m_malloc(&std::malloc) {}

variant_t::deleter_t variant_t::m_mem;

variant_t::variant_t(char const* s, bool by_reference) {
  if (by_reference) {
    m_type = vtCharPtr;
    m_value.m_str = s;
    return;
  }
  m_type = vtNull;
  m_value.m_uint = 0;
  set_data(vtString, s, s ? std::strlen(s) + 1 : 0);
}

variant_t::variant_t(wchar_t const* s, bool by_reference) {
  if (by_reference) {
    m_type = vtWCharPtr;
    m_value.m_wstr = s;
    return;
  }
  m_type = vtNull;
  m_value.m_uint = 0;
  set_data(vtWString, s, s ? (std::wcslen(s) + 1) * sizeof(wchar_t) : 0);
}

variant_t::variant_t(void const* data, u64_t size) {
  m_type = vtNull;
  m_value.m_uint = 0;
  set_data(vtBlob, data, size);
}

variant_t::variant_t(notype_ptr_t const& ptr) {
  m_type = vtNull;
  m_value.m_uint = 0;
  set_data(vtNotypePtr, nullptr, sizeof(notype_ptr_t));
  new (m_value.m_data) notype_ptr_t(ptr);
}

void variant_t::free_block(data_header_t* h) noexcept {
  QUILLON_ASSERT(m_value.m_data != NULL);
  if (h) {
    if (m_type == vtNotypePtr) static_cast<notype_ptr_t*>(m_value.m_data)->~notype_ptr_t();
    m_mem.m_free(h);
  }
  m_type = vtNull;
  m_value.m_uint = 0;
}

void variant_t::free_data() noexcept {
  if (is_dynamic_type()) release_block();
  m_type = vtNull;
  m_value.m_uint = 0;
}

void variant_t::set_data(das_variant_type_t type, void const* data, u64_t size) {
  if (is_dynamic_type()) free_data();
  m_type = type;
  m_value.m_uint = 0;
  QUILLON_ASSERT(is_dynamic_type());
  m_type = vtNull;
  void* const body = set_block(type, size);
  if (body == nullptr) return;
  if (data != nullptr && size != 0) {
    std::memcpy(body, data, size);
  } else {
    std::memset(body, 0, size);
  }
}

void* variant_t::set_block(das_variant_type_t type, u64_t size) {
  // An object behind a pointer has its own life: its block is never taken over.
  if (m_type == type && is_dynamic_type() && type != vtNotypePtr) {
    data_header_t* const h = get_data_header();
    if (h != nullptr && __atomic_load_n(&h->m_ref_count, __ATOMIC_ACQUIRE) == 1 &&
        h->m_size >= size && h->m_size / 2 <= size) {
      h->m_size = size;
      return m_value.m_data;
    }
  }
  if (type != vtString && type != vtWString && type != vtBlob && type != vtNotypePtr) {
    free_data();
    return nullptr;
  }
  // The new block first: a value that cannot get one keeps what it held.
  u64_t const payload = size < min_block_payload ? min_block_payload : size;
  if (payload > std::numeric_limits<std::size_t>::max() - sizeof(data_header_t)) {
    throw std::bad_alloc();
  }
  void* raw = m_mem.m_malloc(sizeof(data_header_t) + payload);
  if (!raw) throw std::bad_alloc();
  internal::posix::advise_huge_pages(raw, sizeof(data_header_t) + payload);
  free_data();
  auto* h = static_cast<data_header_t*>(raw);
  h->m_size = size;
  h->m_ref_count = 1;
  char* body = static_cast<char*>(raw) + sizeof(data_header_t);
  // The bytes past the size (a block has room for one wide unit at least) are zero.
  if (size < payload) std::memset(body + size, 0, payload - size);
  m_type = type;
  m_value.m_data = body;
  return body;
}

u64_t variant_t::get_blob_size() const {
  if (m_type != vtBlob) return no_blob;
  data_header_t const* h = get_data_header();
  return h ? h->m_size : 0;
}

u64_t variant_t::get_blob_data(void* destination, u64_t size) const {
  if (m_type != vtBlob) return no_blob;
  data_header_t const* h = get_data_header();
  u64_t const n = h ? (size < h->m_size ? size : h->m_size) : 0;
  if (destination && n) std::memcpy(destination, m_value.m_data, n);
  return n;
}

double variant_t::number_as_double() const noexcept {
  if (is_floating(m_type)) return m_value.m_double;
  if (is_unsigned_integer()) return static_cast<double>(m_value.m_uint);
  return static_cast<double>(m_value.m_int);
}

char const* variant_t::narrow_text() const noexcept {
  if (m_type == vtCharPtr) return m_value.m_str;
  if (m_type == vtString && m_value.m_data) return static_cast<char const*>(m_value.m_data);
  return "";
}

wchar_t const* variant_t::wide_text() const noexcept {
  if (m_type == vtWCharPtr) return m_value.m_wstr;
  if (m_type == vtWString && m_value.m_data) return static_cast<wchar_t const*>(m_value.m_data);
  return L"";
}

notype_ptr_t const* variant_t::notype_ptr() const noexcept {
  if (m_type != vtNotypePtr || !m_value.m_data) return nullptr;
  return static_cast<notype_ptr_t const*>(m_value.m_data);
}

int variant_t::string_compare(char const* a, char const* b) {
  if (a == b) return 0;
  int const c = std::strcmp(a ? a : "", b ? b : "");  // compares as unsigned bytes
  return (c > 0) - (c < 0);
}

int variant_t::string_compare(wchar_t const* a, wchar_t const* b) {
  if (a == b) return 0;
  int const c = std::wcscmp(a ? a : L"", b ? b : L"");
  return (c > 0) - (c < 0);
}

// One case analysis serves all six comparison operators: each step applies the
// operator's own relation to the quantities that decide it, which keeps the rules for
// not-a-number and for unrelated tags the same everywhere.
template <class Relation>
bool variant_t::relate(variant_t const& a, variant_t const& b, Relation relation) {
  das_variant_type_t const ta = a.m_type;
  das_variant_type_t const tb = b.m_type;
  if (ta != tb) {
    if (is_number(ta) && is_number(tb)) {
      if (is_floating(ta) || is_floating(tb))
        return relation(a.number_as_double(), b.number_as_double());
      if (a.is_unsigned_integer() && b.is_unsigned_integer())
        return relation(a.m_value.m_uint, b.m_value.m_uint);
      return relation(a.m_value.m_int, b.m_value.m_int);
    }
    if (is_narrow_text(ta) && is_narrow_text(tb))
      return relation(string_compare(a.narrow_text(), b.narrow_text()), 0);
    if (is_wide_text(ta) && is_wide_text(tb))
      return relation(string_compare(a.wide_text(), b.wide_text()), 0);
    // Unrelated kinds order by tag, the larger tag first.
    return relation(static_cast<int>(tb), static_cast<int>(ta));
  }
  switch (ta) {
    case vtBool:
    case vtSByte:
    case vtSShort:
    case vtSInt:
    case vtSInt64:
      return relation(a.m_value.m_int, b.m_value.m_int);
    case vtDummy:
    case vtUByte:
    case vtUShort:
    case vtUInt:
    case vtUInt64:
      return relation(a.m_value.m_uint, b.m_value.m_uint);
    case vtFloat:
    case vtDouble:
      return relation(a.m_value.m_double, b.m_value.m_double);
    case vtString:
    case vtCharPtr:
      return relation(string_compare(a.narrow_text(), b.narrow_text()), 0);
    case vtWString:
    case vtWCharPtr:
      return relation(string_compare(a.wide_text(), b.wide_text()), 0);
    case vtBlob: {
      u64_t const sa = a.get_blob_size();
      u64_t const sb = b.get_blob_size();
      if (sa != sb) return relation(sa, sb);
      int const c = sa ? std::memcmp(a.m_value.m_data, b.m_value.m_data, sa) : 0;
      return relation(c, 0);
    }
    case vtNotypePtr:
      return relation(notype_ptr_compare(a.notype_ptr(), b.notype_ptr()), 0);
    default:
      return relation(0, 0);
  }
}

namespace {
// Length in characters of a text block: a block made from a null pointer has size 0.
inline u64_t text_length(u64_t block_size, u64_t unit) {
  return block_size ? block_size / unit - 1 : 0;
}
}  // namespace

bool variant_t::equals(variant_t const& var) const {
  if (m_type == var.m_type) {
    switch (m_type) {
      case vtWString:
      case vtString:
      case vtBlob: {
        // Blocks know their sizes, so most unequal values are told apart without reading.
        if (m_value.m_data == var.m_value.m_data) return true;
        data_header_t const* const a = get_data_header();
        data_header_t const* const b = var.get_data_header();
        if (!a || !b) break;
        u64_t const unit = m_type == vtWString ? sizeof(wchar_t) : 1;
        u64_t const na = m_type == vtBlob ? a->m_size : text_length(a->m_size, unit);
        u64_t const nb = m_type == vtBlob ? b->m_size : text_length(b->m_size, unit);
        if (na != nb) return false;
        return na == 0 || std::memcmp(m_value.m_data, var.m_value.m_data, na * unit) == 0;
      }
      case vtNull:
        return true;
      default:
        if (m_type == vtDummy || m_type < vtBool || m_type >= vtLast_Used) {
          QUILLON_ASSERT(m_type == vtNull && var.m_type == vtNull);
          return true;
        }
    }
  }
  return relate(*this, var, std::equal_to<>());
}

bool variant_t::operator<(variant_t const& other) const {
  return relate(*this, other, std::less<>());
}
bool variant_t::operator>(variant_t const& other) const {
  return relate(*this, other, std::greater<>());
}
bool variant_t::operator<=(variant_t const& other) const {
  return relate(*this, other, std::less_equal<>());
}
bool variant_t::operator>=(variant_t const& other) const {
  return relate(*this, other, std::greater_equal<>());
}

u64_t variant_t::hash() const {
  u64_t h = 0;
  switch (m_type) {
    case vtString:
    case vtCharPtr:
      for (char const* p = narrow_text(); p && *p; ++p)
        h = static_cast<u64_t>(static_cast<s64_t>(static_cast<signed char>(*p))) ^ (h * 17);
      return h;
    case vtWString:
    case vtWCharPtr:
      for (wchar_t const* p = wide_text(); p && *p; ++p)
        h = static_cast<u64_t>(static_cast<std::uint32_t>(*p)) ^ (h * 17);
      return h;
    case vtBlob: {
      auto const* p = static_cast<unsigned char const*>(m_value.m_data);
      u64_t const n = get_blob_size();
      for (u64_t i = 0; i < n; ++i) h = static_cast<u64_t>(p[i]) ^ (h * 17);
      return h;
    }
    case vtNotypePtr: {
      notype_ptr_t const* p = notype_ptr();
      return p ? reinterpret_cast<u64_t>(p->get_object()) : 0;
    }
    default:
      return m_value.m_uint;
  }
}

template <>
notype_ptr_t variant_t::get<notype_ptr_t>() const {
  QUILLON_ASSERT(can_get<notype_ptr_t>());
  notype_ptr_t const* p = notype_ptr();
  return p ? *p : notype_ptr_t();
}

}  // namespace quillon2
