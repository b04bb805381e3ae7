// variant_t: the library's dynamically typed value, a 64-bit payload and a type tag.
//
// Numbers live in the payload itself. Text, blobs and object pointers live in an
// immutable block that is shared between copies and counted atomically, so copying a
// value is a tag, a payload and at most one atomic increment. Copies of one value may be
// read and destroyed on different threads; a single variant_t object is not synchronised
// (concurrent reads are fine, a write needs exclusion).
//
// Every block is allocated and freed through variant_t::m_mem, which must be set before
// the first variant exists if a client wants its own heap.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include <quillon2/core/assert.hpp>
#include <quillon2/export.hpp>
#include <quillon2/headers/kesmet.hpp>

namespace quillon2 {

class notype_ptr_t;

namespace internal {
struct variant_buddy_t;

// Equality of `size` bytes. Texts, blobs and names are mostly short: up to 64 bytes
// they are compared in words, in place, without the call and the size dispatch of
// memcmp. The loads stay within the `size` bytes of both; the last word overlaps the
// one before it.
inline std::uint64_t word_at(unsigned char const* p) noexcept {
  std::uint64_t w;
  std::memcpy(&w, p, sizeof w);
  return w;
}
inline bool bytes_equal(void const* a, void const* b, std::size_t size) noexcept {
  auto const* p = static_cast<unsigned char const*>(a);
  auto const* q = static_cast<unsigned char const*>(b);
  if (size > 64) return std::memcmp(p, q, size) == 0;
  if (size >= 8) {
    std::uint64_t diff = word_at(p + size - 8) ^ word_at(q + size - 8);
    for (std::size_t i = 0; i + 8 < size; i += 8) diff |= word_at(p + i) ^ word_at(q + i);
    return diff == 0;
  }
  for (std::size_t i = 0; i < size; ++i) {
    if (p[i] != q[i]) return false;
  }
  return true;
}
}  // namespace internal

// The type tag. The numeric order matters: comparisons across types rest on it.
enum das_variant_type_t : std::int32_t {
  vtBool = 0,
  vtDummy = 1,
  vtSByte = 2,
  vtUByte = 3,
  vtSShort = 4,
  vtUShort = 5,
  vtSInt = 6,
  vtUInt = 7,
  vtSInt64 = 8,
  vtUInt64 = 9,
  vtFloat = 10,
  vtDouble = 11,
  vtString = 12,
  vtWString = 13,
  vtCharPtr = 14,
  vtWCharPtr = 15,
  vtBlob = 16,
  vtNull = 17,
  vtNotypePtr = 18,
  vtLast_Used = 19
};

class QUILLON2_API variant_t {
 public:
  // The pair of functions through which every dynamic block is allocated and freed.
  struct deleter_t {
    void (*m_free)(void*);
    void* (*m_malloc)(std::size_t);
    deleter_t();
  };
  static deleter_t m_mem;

  // The header placed directly before the payload of every dynamic block.
  struct data_header_t {
    u64_t m_size;
    std::int32_t m_ref_count;
  };

  variant_t() noexcept : m_type(vtNull) { m_value.m_uint = 0; }
  variant_t(bool v) noexcept : m_type(vtBool) { m_value.m_uint = v ? 1 : 0; }
  variant_t(char v) noexcept : m_type(vtSByte) { m_value.m_int = static_cast<signed char>(v); }
  variant_t(signed char v) noexcept : m_type(vtSByte) { m_value.m_int = v; }
  variant_t(unsigned char v) noexcept : m_type(vtUByte) { m_value.m_uint = v; }
  variant_t(short v) noexcept : m_type(vtSShort) { m_value.m_int = v; }
  variant_t(unsigned short v) noexcept : m_type(vtUShort) { m_value.m_uint = v; }
  variant_t(int v) noexcept : m_type(vtSInt) { m_value.m_int = v; }
  variant_t(unsigned int v) noexcept : m_type(vtUInt) { m_value.m_uint = v; }
  // long is 64 bits here and is the same type as s64_t, so it takes the 64-bit tags.
  variant_t(long v) noexcept : m_type(vtSInt64) { m_value.m_int = v; }
  variant_t(unsigned long v) noexcept : m_type(vtUInt64) { m_value.m_uint = v; }
  variant_t(long long v) noexcept : m_type(vtSInt64) { m_value.m_int = v; }
  variant_t(unsigned long long v) noexcept : m_type(vtUInt64) { m_value.m_uint = v; }
  variant_t(float v) noexcept : m_type(vtFloat) { m_value.m_double = v; }
  variant_t(double v) noexcept : m_type(vtDouble) { m_value.m_double = v; }

  // Text: copied into a new block (vtString, vtWString) unless by_reference is set, in
  // which case the pointer is kept (vtCharPtr, vtWCharPtr) and the caller guarantees
  // that the text outlives the value and all its copies. A null pointer copies as an
  // empty text.
  variant_t(char const* s, bool by_reference = false);
  variant_t(wchar_t const* s, bool by_reference = false);
  // vtBlob of size bytes; with null data the block is zero-filled.
  variant_t(void const* data, u64_t size);
  // vtNotypePtr: the block holds a copy of the pointer, which keeps the object alive.
  variant_t(notype_ptr_t const& ptr);

  variant_t(variant_t const& other) noexcept : m_value(other.m_value), m_type(other.m_type) {
    if (is_dynamic_type()) add_block_ref();
  }
  variant_t(variant_t&& other) noexcept : m_value(other.m_value), m_type(other.m_type) {
    other.m_type = vtNull;
    other.m_value.m_uint = 0;
  }
  variant_t& operator=(variant_t const& other) noexcept {
    variant_t copy(other);
    swap(copy);
    return *this;
  }
  variant_t& operator=(variant_t&& other) noexcept {
    variant_t moved(static_cast<variant_t&&>(other));
    swap(moved);
    return *this;
  }
  ~variant_t() {
    if (is_dynamic_type()) release_block();
  }

  void swap(variant_t& other) noexcept {
    value_t v = m_value;
    m_value = other.m_value;
    other.m_value = v;
    das_variant_type_t t = m_type;
    m_type = other.m_type;
    other.m_type = t;
  }

  das_variant_type_t get_type() const noexcept { return m_type; }

  // Payload size of a vtBlob; the maximum u64_t for every other type.
  u64_t get_blob_size() const;
  // Copies min(size, blob size) bytes into destination (unless it is null) and returns
  // that count; the maximum u64_t for every other type than vtBlob.
  u64_t get_blob_data(void* destination, u64_t size) const;

  template <class T>
  bool can_get() const noexcept;
  template <class T>
  T get() const;

  bool operator==(variant_t const& other) const {
    if (m_type == other.m_type) {
      if (m_type <= vtUInt64) return m_value.m_uint == other.m_value.m_uint;
      if (m_type == vtDouble || m_type == vtFloat)
        return m_value.m_double == other.m_value.m_double;
      if (m_type == vtWString || m_type == vtString || m_type == vtBlob) return blocks_equal(other);
    }
    return equals(other);
  }
  bool operator!=(variant_t const& other) const { return !(*this == other); }
  bool operator<(variant_t const& other) const;
  bool operator>(variant_t const& other) const;
  bool operator<=(variant_t const& other) const;
  bool operator>=(variant_t const& other) const;

  u64_t hash() const;

 private:
  friend struct internal::variant_buddy_t;

  union value_t {
    s64_t m_int;
    u64_t m_uint;
    double m_double;
    char const* m_str;
    wchar_t const* m_wstr;
    void* m_data;
  };

  bool is_dynamic_type() const noexcept {
    return m_type == vtString || m_type == vtWString || m_type == vtBlob || m_type == vtNotypePtr;
  }
  bool is_unsigned_integer() const noexcept { return m_type <= vtUInt64 && (m_type & 1) != 0; }
  data_header_t* get_data_header() const noexcept {
    if (!is_dynamic_type() || m_value.m_data == nullptr) return nullptr;
    return reinterpret_cast<data_header_t*>(static_cast<char*>(m_value.m_data) -
                                            sizeof(data_header_t));
  }
  // Copying takes one reference on the shared block.
  void add_block_ref() const noexcept {
    data_header_t* const h = get_data_header();
    QUILLON_ASSERT(h != NULL);
    if (h) __atomic_add_fetch(&h->m_ref_count, 1, __ATOMIC_RELAXED);
  }
  // Drops this value's reference; the last one frees the block.
  void release_block() noexcept {
    data_header_t* const h = get_data_header();
    if (h && __atomic_sub_fetch(&h->m_ref_count, 1, __ATOMIC_ACQ_REL) != 0) return;
    free_block(h);
  }
  void free_block(data_header_t* h) noexcept;
  // Equality of two text or blob blocks of one tag: sizes first, then the bytes.
  bool blocks_equal(variant_t const& other) const {
    void const* const a = m_value.m_data;
    void const* const b = other.m_value.m_data;
    if (a == b) return true;
    if (!a || !b) return equals(other);
    u64_t const sa = static_cast<data_header_t const*>(a)[-1].m_size;
    u64_t const sb = static_cast<data_header_t const*>(b)[-1].m_size;
    if (sa == sb) return internal::bytes_equal(a, b, sa);
    // A text made from a null pointer has size 0 and equals the empty text.
    if (m_type != vtBlob && (sa == 0 || sb == 0)) return equals(other);
    return false;
  }
  void free_data() noexcept;
  // Replaces the value by a new block of `size` bytes filled from `data`, or zeroed when
  // `data` is null.
  void set_data(das_variant_type_t type, void const* data, u64_t size);
  // Makes the value a block of `type` and `size` bytes that the caller then fills whole,
  // and gives its payload. The value's own block serves again when it has that type,
  // nobody shares it and it is not more than twice as large. Null, with the value null,
  // for a type that has no block.
  void* set_block(das_variant_type_t type, u64_t size);
  bool equals(variant_t const& other) const;
  double number_as_double() const noexcept;
  char const* narrow_text() const noexcept;
  wchar_t const* wide_text() const noexcept;
  notype_ptr_t const* notype_ptr() const noexcept;

  static int string_compare(char const* a, char const* b);
  static int string_compare(wchar_t const* a, wchar_t const* b);
  template <class Relation>
  static bool relate(variant_t const& a, variant_t const& b, Relation relation);

  value_t m_value;
  das_variant_type_t m_type;
};

// can_get<T>: which tags the type T can read. A wider integer reads every narrower tag.
template <>
inline bool variant_t::can_get<bool>() const noexcept {
  return m_type <= vtUInt64;
}
template <>
inline bool variant_t::can_get<s8_t>() const noexcept {
  return m_type <= vtUByte;
}
template <>
inline bool variant_t::can_get<u8_t>() const noexcept {
  return m_type <= vtUByte;
}
template <>
inline bool variant_t::can_get<s16_t>() const noexcept {
  return m_type <= vtUShort;
}
template <>
inline bool variant_t::can_get<u16_t>() const noexcept {
  return m_type <= vtUShort;
}
template <>
inline bool variant_t::can_get<s32_t>() const noexcept {
  return m_type <= vtUInt;
}
template <>
inline bool variant_t::can_get<u32_t>() const noexcept {
  return m_type <= vtUInt;
}
template <>
inline bool variant_t::can_get<s64_t>() const noexcept {
  return m_type <= vtUInt64;
}
template <>
inline bool variant_t::can_get<u64_t>() const noexcept {
  return m_type <= vtUInt64;
}
template <>
inline bool variant_t::can_get<float>() const noexcept {
  return m_type <= vtDouble;
}
template <>
inline bool variant_t::can_get<double>() const noexcept {
  return m_type <= vtDouble;
}
template <>
inline bool variant_t::can_get<const wchar_t*>() const noexcept {
  return m_type == vtWString || m_type == vtWCharPtr;
}
template <>
inline bool variant_t::can_get<const char*>() const noexcept {
  return m_type == vtString || m_type == vtCharPtr;
}
template <>
inline bool variant_t::can_get<notype_ptr_t>() const noexcept {
  return m_type == vtNotypePtr;
}

// get<T>: asserts can_get<T>; if the assertion returns, numbers are read from the payload
// as if it had the asked-for type, and text of the wrong width reads as empty.
template <>
inline bool variant_t::get<bool>() const {
  QUILLON_ASSERT(can_get<bool>());
  return m_value.m_uint != 0;
}
template <>
inline s8_t variant_t::get<s8_t>() const {
  QUILLON_ASSERT(can_get<s8_t>());
  return static_cast<s8_t>(m_value.m_uint);
}
template <>
inline u8_t variant_t::get<u8_t>() const {
  QUILLON_ASSERT(can_get<u8_t>());
  return static_cast<u8_t>(m_value.m_uint);
}
template <>
inline s16_t variant_t::get<s16_t>() const {
  QUILLON_ASSERT(can_get<s16_t>());
  return static_cast<s16_t>(m_value.m_uint);
}
template <>
inline u16_t variant_t::get<u16_t>() const {
  QUILLON_ASSERT(can_get<u16_t>());
  return static_cast<u16_t>(m_value.m_uint);
}
template <>
inline s32_t variant_t::get<s32_t>() const {
  QUILLON_ASSERT(can_get<s32_t>());
  return static_cast<s32_t>(m_value.m_uint);
}
template <>
inline u32_t variant_t::get<u32_t>() const {
  QUILLON_ASSERT(can_get<u32_t>());
  return static_cast<u32_t>(m_value.m_uint);
}
template <>
inline s64_t variant_t::get<s64_t>() const {
  QUILLON_ASSERT(can_get<s64_t>());
  return m_value.m_int;
}
template <>
inline u64_t variant_t::get<u64_t>() const {
  QUILLON_ASSERT(can_get<u64_t>());
  return m_value.m_uint;
}
template <>
inline double variant_t::get<double>() const {
  QUILLON_ASSERT(can_get<double>());
  return number_as_double();
}
template <>
inline float variant_t::get<float>() const {
  QUILLON_ASSERT(can_get<float>());
  return static_cast<float>(number_as_double());
}
template <>
inline const wchar_t* variant_t::get<const wchar_t*>() const {
  QUILLON_ASSERT(can_get<const wchar_t*>());
  return wide_text();
}
template <>
inline const char* variant_t::get<const char*>() const {
  QUILLON_ASSERT(can_get<const char*>());
  return narrow_text();
}
// get<notype_ptr_t> is defined with notype_ptr_t in <quillon2/das/notype_ptr.hpp>.
template <>
QUILLON2_API notype_ptr_t variant_t::get<notype_ptr_t>() const;

inline void swap(variant_t& a, variant_t& b) noexcept { a.swap(b); }

}  // namespace quillon2
