// Bags to JSON text: the walker that turns a bag into writer events, and the save
// functions that put RapidJSON's compact or pretty writer behind it.
//
// The walker keeps its pending work on the heap (a stack of work items), so that the
// depth of a bag costs no call stack. It decides before writing a key whether a value
// can be written at all, so the text is valid JSON whatever the bag holds.
#include "core/das/json/include/rapidjson_setup.hpp"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <cwchar>
#include <ostream>
#include <sstream>
#include <string>
#include <vector>

#include <boost/make_shared.hpp>
#include <boost/shared_ptr.hpp>

#include <quillon2/das/json.hpp>
#include <quillon2/das/variant.hpp>
#include <quillon2/das/variant_bag.hpp>

#include "core/das/include/bag_impl.hpp"
#include "core/das/include/vb_helper.hpp"
#include "core/miscellaneous/include/logging.hpp"
#include "core/miscellaneous/include/utf8.hpp"

namespace quillon2::json {

IJSONWriter::~IJSONWriter() = default;

namespace {

// The largest magnitude that a double holds exactly, 2^53 - 1. Integers from there on
// are written as big-integer objects.
constexpr std::uint64_t exact_bound = 0x1FFFFFFFFFFFFFull;

wchar_t const array_of_name[] = L"arrayOf";

// What a bag is written as.
enum class shape_t { array, scalar, null, object };

// UTF-8 of `length` units of wide text into `out` (replacing its content). Units that
// are no Unicode scalar value become U+FFFD, so the text is always valid UTF-8.
void to_utf8(wchar_t const* text, std::size_t length, std::string& out) {
  out.resize(length * 4);
  char* const begin = &out[0];
  char* p = begin;
  for (std::size_t i = 0; i < length; ++i) {
    auto c = static_cast<std::uint32_t>(text[i]);
    if (c < 0x80) {
      *p++ = static_cast<char>(c);
      continue;
    }
    if (c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) c = internal::replacement_character;
    p = internal::encode_utf8(static_cast<char32_t>(c), p);
  }
  out.resize(static_cast<std::size_t>(p - begin));
}

void to_utf8(wchar_t const* text, std::string& out) { to_utf8(text, std::wcslen(text), out); }

bool is_writable(das_variant_type_t type) {
  return type != vtDummy && type != vtBlob && type != vtNotypePtr && type >= vtBool &&
         type < vtNotypePtr;
}

void log_unsupported(das_variant_type_t type) {
  Q2_LOG(internal::main_logger(), internal::log_error,
         L"JSON serialization for variant type " << static_cast<int>(type)
                                                 << L" is not supported." << L", at file: "
                                                 << __FILE__ << L":" << __LINE__);
}

template <class T>
internal::bag_impl_base_t<T> const& list_of(variant_bag_t const& bag) {
  return internal::vb_helper::impl<T>(bag);
}

bool has_visible(internal::bag_index_t const& list) {
  for (internal::bag_node_base_t const* n = list.first(); n != list.end(); n = n->m_next) {
    if (!internal::is_hidden_name(n->m_name)) return true;
  }
  return false;
}

bool is_array_of(internal::bag_node_base_t const* n) {
  return n->m_length == 7 && std::wmemcmp(n->m_name, array_of_name, 7) == 0;
}

// One pass over the values decides the shape: an "arrayOf" entry makes an array; a bag
// whose whole visible content is the value of the empty name is that scalar. Hidden
// entries (the bag's own name among them) never reach the text, so they do not count.
shape_t shape_of(variant_bag_t const& bag) {
  internal::bag_index_t const& values = list_of<variant_t>(bag);
  std::size_t visible = 0;
  bool empty_name = false;
  for (internal::bag_node_base_t const* n = values.first(); n != values.end(); n = n->m_next) {
    if (internal::is_hidden_name(n->m_name)) continue;
    if (is_array_of(n)) return shape_t::array;
    ++visible;
    empty_name = n->m_length == 0;
  }
  bool const bags = has_visible(list_of<variant_bag_t>(bag));
  if (visible == 1 && empty_name && !bags) return shape_t::scalar;
  if (visible == 0 && !bags) return shape_t::null;
  return shape_t::object;
}

class walker_t {
 public:
  explicit walker_t(IJSONWriter& writer) : m_writer(writer) {}

  void run(variant_bag_t const& root) {
    m_work.push_back({kind_bag, &root, nullptr, false});
    while (!m_work.empty()) {
      work_item_t const item = m_work.back();
      m_work.pop_back();
      switch (item.kind) {
        case kind_end_object:
          m_writer.EndObject();
          break;
        case kind_end_array:
          m_writer.EndArray();
          break;
        default:
          write_bag(*item.bag, item.key, item.bag == &root, item.full);
          break;
      }
    }
  }

 private:
  enum kind_t { kind_bag = 0, kind_end_object = 1, kind_end_array = 2 };

  // A bag to write, or the end of a structure. A null key writes no key (the root and
  // array elements); the empty name writes the key "".
  // `full` writes a scalar-shaped or empty bag as an object all the same ({"":v}, {}).
  struct work_item_t {
    kind_t kind;
    variant_bag_t const* bag;
    wchar_t const* key;
    bool full;
  };

  void write_key(wchar_t const* key) {
    if (key == nullptr) return;
    to_utf8(key, m_text);
    m_writer.Key(m_text);
  }

  void write_bag(variant_bag_t const& bag, wchar_t const* key, bool is_root, bool full) {
    shape_t const shape = shape_of(bag);
    if (full && (shape == shape_t::scalar || shape == shape_t::null)) {
      write_key(key);
      write_object(bag);
      return;
    }
    switch (shape) {
      case shape_t::array:
        write_key(key);
        write_array(bag);
        break;
      case shape_t::scalar: {
        variant_t const& value = *bag.get<variant_t>(L"");
        if (is_writable(value.get_type())) {
          write_key(key);
          write_value(value);
        } else {
          log_unsupported(value.get_type());
          if (is_root) m_writer.Null();  // the text needs its one root value
        }
        break;
      }
      case shape_t::null:
        write_key(key);
        m_writer.Null();
        break;
      case shape_t::object:
        write_key(key);
        write_object(bag);
        break;
    }
  }

  // Children go on the work stack in reverse, behind the end marker, so that they are
  // taken off in bag order and the walk is depth first.
  template <class Iterator>
  void push_children(Iterator it, bool with_keys, kind_t end_kind) {
    m_work.push_back({end_kind, nullptr, nullptr, false});
    std::size_t const first = m_work.size();
    for (; !it.at_end(); it.next()) {
      m_work.push_back({kind_bag, &it.get_value(), with_keys ? it.get_name() : nullptr, false});
    }
    std::reverse(m_work.begin() + static_cast<std::ptrdiff_t>(first), m_work.end());
  }

  void write_array(variant_bag_t const& bag) {
    m_writer.StartArray();
    variant_t const& item_name = *bag.get<variant_t>(array_of_name);
    if (item_name.can_get<const wchar_t*>()) {
      push_children(bag.begin_by_name<variant_bag_t>(item_name.get<const wchar_t*>()), false,
                    kind_end_array);
    } else {
      m_work.push_back({kind_end_array, nullptr, nullptr, false});
    }
  }

  void write_object(variant_bag_t const& bag) {
    m_writer.StartObject();
    bool wrote_value = false;
    internal::bag_impl_base_t<variant_t> const& values = list_of<variant_t>(bag);
    for (internal::bag_node_base_t* n = values.first(); n != values.end(); n = n->m_next) {
      if (internal::is_hidden_name(n->m_name)) continue;
      variant_t const& value = internal::bag_impl_base_t<variant_t>::node_of(n)->m_value;
      if (!is_writable(value.get_type())) {
        log_unsupported(value.get_type());
        continue;
      }
      to_utf8(n->m_name, n->m_length, m_text);
      m_writer.Key(m_text);
      write_value(value);
      wrote_value = true;
    }
    // A child that would be written as a bare value or null reads back as a value, and
    // values come first. Such children are therefore written right behind the values,
    // when their key reads back unchanged; the others keep the full object form ({} or
    // {"":v}), so that the saved text of a loaded text is stable.
    internal::bag_impl_base_t<variant_bag_t> const& children = list_of<variant_bag_t>(bag);
    std::size_t visible_children = 0;
    for (internal::bag_node_base_t* n = children.first(); n != children.end(); n = n->m_next) {
      if (!internal::is_hidden_name(n->m_name)) ++visible_children;
    }
    bool const lone_child = !wrote_value && visible_children == 1;
    m_work.push_back({kind_end_object, nullptr, nullptr, false});
    std::size_t const first = m_work.size();
    for (internal::bag_node_base_t* n = children.first(); n != children.end(); n = n->m_next) {
      if (internal::is_hidden_name(n->m_name)) continue;
      variant_bag_t const& child = internal::bag_impl_base_t<variant_bag_t>::node_of(n)->m_value;
      shape_t const shape = shape_of(child);
      bool const leaf = shape == shape_t::scalar || shape == shape_t::null;
      if (leaf && reads_back_as_value(bag, n, lone_child)) {
        write_leaf(child, n, shape);
        continue;
      }
      m_work.push_back({kind_bag, &child, n->m_name, leaf});
    }
    std::reverse(m_work.begin() + static_cast<std::ptrdiff_t>(first), m_work.end());
  }

  // Whether "key": scalar reads back as a value of that name in the same place: not the
  // array marker, not the only member "" (the whole object would read as that scalar),
  // and no other value or child of the name that it would replace or pass.
  static bool reads_back_as_value(variant_bag_t const& parent, internal::bag_node_base_t const* n,
                                  bool lone_child) {
    if (is_array_of(n)) return false;
    if (n->m_length == 0 && lone_child) return false;
    return !parent.has<variant_t>(n->m_name) && parent.count<variant_bag_t>(n->m_name) == 1;
  }

  void write_leaf(variant_bag_t const& child, internal::bag_node_base_t const* n, shape_t shape) {
    if (shape == shape_t::null) {
      to_utf8(n->m_name, n->m_length, m_text);
      m_writer.Key(m_text);
      m_writer.Null();
      return;
    }
    variant_t const& value = *child.get<variant_t>(L"");
    if (!is_writable(value.get_type())) {
      log_unsupported(value.get_type());
      return;
    }
    to_utf8(n->m_name, n->m_length, m_text);
    m_writer.Key(m_text);
    write_value(value);
  }

  void write_big_integer(std::string const& digits) {
    m_writer.StartObject();
    m_writer.Key("value");
    m_writer.String(digits);
    m_writer.Key("type");
    m_writer.String("bigInt");
    m_writer.EndObject();
  }

  void write_value(variant_t const& value) {
    switch (value.get_type()) {
      case vtBool:
        m_writer.Bool(value.get<bool>());
        break;
      case vtSByte:
      case vtSShort:
      case vtSInt:
        m_writer.Int(static_cast<int>(value.get<s64_t>()));
        break;
      case vtUByte:
      case vtUShort:
      case vtUInt:
        m_writer.Uint(static_cast<unsigned>(value.get<u64_t>()));
        break;
      case vtSInt64: {
        s64_t const v = value.get<s64_t>();
        auto const bound = static_cast<s64_t>(exact_bound);
        if (v > -bound && v < bound) {
          m_writer.Int64(v);
        } else {
          write_big_integer(std::to_string(v));
        }
        break;
      }
      case vtUInt64: {
        u64_t const v = value.get<u64_t>();
        if (v < exact_bound) {
          m_writer.Uint64(v);
        } else {
          write_big_integer(std::to_string(v));
        }
        break;
      }
      case vtFloat:
      case vtDouble: {
        double const d = value.get<double>();
        if (std::isfinite(d)) {
          m_writer.Double(d);
        } else {
          m_writer.Null();
        }
        break;
      }
      case vtWString:
      case vtWCharPtr:
      case vtString:
      case vtCharPtr:
        // Narrow text is not written: get asserts "can_get<const wchar_t*>()" and gives
        // the empty text.
        to_utf8(value.get<const wchar_t*>(), m_text);
        m_writer.String(m_text);
        break;
      default:
        m_writer.Null();
        break;
    }
  }

  IJSONWriter& m_writer;
  std::vector<work_item_t> m_work;
  std::string m_text;  // the UTF-8 of the current key or string, reused
};

// A RapidJSON output stream that gathers the text in a buffer and hands it to the
// std::ostream in large pieces: one ostream::put per character costs a sentry each.
class buffered_ostream_t {
 public:
  using Ch = char;

  explicit buffered_ostream_t(std::ostream& out) : m_out(out), m_buffer(1 << 16), m_used(0) {}
  ~buffered_ostream_t() { Flush(); }
  buffered_ostream_t(buffered_ostream_t const&) = delete;
  buffered_ostream_t& operator=(buffered_ostream_t const&) = delete;

  void Put(char c) {
    if (m_used == m_buffer.size()) Flush();
    m_buffer[m_used++] = c;
  }
  void Flush() {
    if (m_used != 0) m_out.write(m_buffer.data(), static_cast<std::streamsize>(m_used));
    m_used = 0;
  }
  // Room for `count` more characters, which PutUnsafe then writes without checks.
  void Reserve(std::size_t count) {
    if (m_buffer.size() - m_used >= count) return;
    Flush();
    if (m_buffer.size() < count) m_buffer.resize(count);
  }
  void PutUnchecked(char c) { m_buffer[m_used++] = c; }

 private:
  std::ostream& m_out;
  std::vector<char> m_buffer;
  std::size_t m_used;
};

// RapidJSON's writer reserves room for a whole string or number and then writes it
// character by character; these overloads, found by argument-dependent lookup, let it.
inline void PutReserve(buffered_ostream_t& stream, std::size_t count) { stream.Reserve(count); }
inline void PutUnsafe(buffered_ostream_t& stream, char c) { stream.PutUnchecked(c); }

using compact_writer_t = rapidjson::Writer<buffered_ostream_t>;
using pretty_writer_t = rapidjson::PrettyWriter<buffered_ostream_t>;

template <class W>
void write_with(variant_bag_t const& bag, buffered_ostream_t& stream) {
  auto writer = boost::make_shared<W>(stream);
  boost::shared_ptr<IJSONWriter> adapter = boost::make_shared<WriterAdapter<W>>(writer);
  write_variant_bag(bag, *adapter);
}

}  // namespace

void write_variant_bag(variant_bag_t const& bag, IJSONWriter& writer) {
  walker_t(writer).run(bag);
}

error_code_t save_variant_bag_to_json_string(variant_bag_t const& bag, std::ostream& out,
                                             JSONFormat format) {
  buffered_ostream_t stream(out);
  if (format == Compact) {
    write_with<compact_writer_t>(bag, stream);
  } else {
    write_with<pretty_writer_t>(bag, stream);
  }
  stream.Flush();
  return error_code_t();
}

error_code_t save_variant_bag_to_json_string(variant_bag_t const& bag, std::wstring& text,
                                             JSONFormat format) {
  std::ostringstream out;
  save_variant_bag_to_json_string(bag, out, format);
  text = KESMET_2_18::strings::utf8_to_utf16(out.str());
  return error_code_t();
}

std::wstring variant_bag_to_json_string(variant_bag_t const& bag, JSONFormat format) {
  std::wstring text;
  save_variant_bag_to_json_string(bag, text, format);
  return text;
}

}  // namespace quillon2::json
