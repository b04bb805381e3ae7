// Bags to JSON text: the walker that turns a bag into events, for the public writer
// interface and for the printer behind the save functions (one pass into one buffer).
//
// The walker keeps its pending work on the heap (a stack of work items), so that the
// depth of a bag costs no call stack. It decides before writing a key whether a value
// can be written at all, so the text is valid JSON whatever the bag holds.
// clang-format off: RapidJSON's settings come before any of its headers.
#include "core/das/json/include/rapidjson_setup.hpp"
// clang-format on

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <cwchar>
#include <ostream>
#include <string>
#include <vector>

#include <quillon2/das/json.hpp>
#include <quillon2/das/variant.hpp>
#include <quillon2/das/variant_bag.hpp>

#include "core/das/include/bag_impl.hpp"
#include "core/das/include/bag_runahead.hpp"
#include "core/das/include/vb_helper.hpp"
#include "core/das/include/xml_safety.hpp"
#include "core/das/json/include/json_names.hpp"
#include "core/das/json/include/json_printer.hpp"
#include "core/miscellaneous/include/logging.hpp"

namespace quillon2::json {

IJSONWriter::~IJSONWriter() = default;

namespace {

// The largest magnitude that a double holds exactly, 2^53 - 1. Integers from there on
// are written as big-integer objects.
constexpr std::uint64_t exact_bound = 0x1FFFFFFFFFFFFFull;

using internal_names::array_of_hash;
using internal_names::array_of_length;
using internal_names::array_of_name;
using internal_names::empty_name_hash;
using internal_names::is_array_of;

// What a bag is written as.
enum class shape_t { array, scalar, null, object };

// UTF-8 of `length` units of wide text into `out` (replacing its content). Units that
// are no Unicode scalar value become U+FFFD, so the text is always valid UTF-8.
void to_utf8(wchar_t const* text, std::size_t length, std::string& out) {
  out.clear();
  internal::append_wide_as_utf8(out, text, length);
}

void to_utf8(wchar_t const* text, std::string& out) { to_utf8(text, std::wcslen(text), out); }

bool is_writable(das_variant_type_t type) {
  return type != vtDummy && type != vtBlob && type != vtNotypePtr && type >= vtBool &&
         type < vtNotypePtr;
}

void log_unsupported(das_variant_type_t type) {
  Q2_LOG(internal::main_logger(), internal::log_error,
         L"JSON serialization for variant type " << static_cast<int>(type) << L" is not supported."
                                                 << L", at file: " << __FILE__ << L":" << __LINE__);
}

template <class T>
internal::bag_impl_base_t<T> const& list_of(variant_bag_t const& bag) {
  return internal::vb_helper::impl<T>(bag);
}

// The shape of a bag: a visible "arrayOf" value makes an array; a bag whose whole
// visible content is the value of the empty name is that scalar, given in `scalar`.
// Hidden entries (the bag's own name among them) never reach the text, so they do not
// count. With `leaf_only` only scalar and null are told apart from the rest, which is
// answered as object, arrays included.
//
// The counts settle most bags. A list of a few values is looked through (its nodes are
// read for the text soon anyway, and their names only when seven units long); a longer
// one is asked through its index.
shape_t shape_of(variant_bag_t const& bag, variant_t const** scalar, bool leaf_only) {
  constexpr u64_t few = 4;
  internal::bag_impl_base_t<variant_t> const& values = list_of<variant_t>(bag);
  u64_t const visible = values.visible();
  bool const children = list_of<variant_bag_t>(bag).visible() != 0;
  bool const may_be_array = !leaf_only && visible != 0;
  bool const may_be_scalar = visible == 1 && !children;
  if (!may_be_array && !may_be_scalar) {
    return children || visible != 0 ? shape_t::object : shape_t::null;
  }
  internal::bag_node_base_t const* only = nullptr;  // the visible value, when it is one
  if (values.size() <= few) {
    for (internal::bag_node_base_t const* n = values.first(); n != values.end(); n = n->m_next) {
      if (n->m_hidden) continue;
      if (may_be_array && is_array_of(n->m_name, n->m_length)) return shape_t::array;
      only = n;
    }
  } else {
    if (may_be_array && values.find(array_of_name, array_of_length, array_of_hash()) != nullptr) {
      return shape_t::array;
    }
    if (may_be_scalar) {
      internal::bag_slot_t const* const slot = values.find(L"", 0, empty_name_hash());
      only = slot != nullptr ? slot->m_first : nullptr;
    }
  }
  if (may_be_scalar && only != nullptr && only->m_length == 0) {
    *scalar = &values.node_of(only)->m_value;
    return shape_t::scalar;
  }
  return shape_t::object;
}

// The events of the public interface: UTF-8 text for every key and string, one virtual
// call an event.
class event_sink_t {
 public:
  explicit event_sink_t(IJSONWriter& writer) : m_writer(writer) {}

  void Null() { m_writer.Null(); }
  void Bool(bool value) { m_writer.Bool(value); }
  void Integer(int value) { m_writer.Int(value); }
  void Integer(unsigned value) { m_writer.Uint(value); }
  void Integer(s64_t value) { m_writer.Int64(value); }
  void Integer(u64_t value) { m_writer.Uint64(value); }
  void Double(double value) { m_writer.Double(value); }
  void String(wchar_t const* text) {
    to_utf8(text, m_text);
    m_writer.String(m_text);
  }
  void String(char const* text) { m_writer.String(text); }
  void Key(wchar_t const* name, std::size_t length) {
    to_utf8(name, length, m_text);
    m_writer.Key(m_text);
  }
  void Key(char const* name) { m_writer.Key(name); }
  void StartObject() { m_writer.StartObject(); }
  void EndObject() { m_writer.EndObject(); }
  void StartArray() { m_writer.StartArray(); }
  void EndArray() { m_writer.EndArray(); }

 private:
  IJSONWriter& m_writer;
  std::string m_text;  // the UTF-8 of the current key or string, reused
};

// Sends the JSON form of a bag to a sink: event_sink_t or the printer of the saves.
template <class Sink>
class walker_t {
 public:
  explicit walker_t(Sink& sink) : m_sink(sink) {}

  void run(variant_bag_t const& root) {
    m_work.push_back({kind_bag, &root, nullptr, 0, false});
    while (!m_work.empty()) {
      work_item_t const item = m_work.back();
      m_work.pop_back();
      prefetch_ahead();
      switch (item.kind) {
        case kind_end_object:
          m_sink.EndObject();
          break;
        case kind_end_array:
          m_sink.EndArray();
          break;
        default:
          write_bag(*item.bag, item.key, item.length, item.bag == &root, item.full);
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
    std::uint32_t length;
    bool full;
  };

  // The walk is bound by the latency of memory: every bag is a few lists of nodes of
  // their own. Its next bags are therefore brought closer in stages while the current
  // one is written: the bag of the third next item, the lists of the second, and the
  // values of the next one by the runahead, which each value written steps.
  void prefetch_ahead() {
    std::size_t const size = m_work.size();
    if (size >= 3 && m_work[size - 3].kind == kind_bag) __builtin_prefetch(m_work[size - 3].bag);
    if (size >= 2 && m_work[size - 2].kind == kind_bag) {
      variant_bag_t const& bag = *m_work[size - 2].bag;
      __builtin_prefetch(&list_of<variant_t>(bag));
      __builtin_prefetch(&list_of<variant_bag_t>(bag));
    }
    if (size >= 1 && m_work[size - 1].kind == kind_bag) {
      variant_bag_t const& bag = *m_work[size - 1].bag;
      m_runahead.follow(bag);
      __builtin_prefetch(list_of<variant_bag_t>(bag).first());
    }
    // Its lists were fetched an item ago: one step for every item, so that bags with
    // no values to write (the elements of arrays of scalars) are fetched as well.
    m_runahead.step();
  }

  void write_key(wchar_t const* key, std::size_t length) {
    if (key != nullptr) m_sink.Key(key, length);
  }

  void write_bag(variant_bag_t const& bag, wchar_t const* key, std::size_t length, bool is_root,
                 bool full) {
    variant_t const* scalar = nullptr;
    shape_t const shape = shape_of(bag, &scalar, false);
    if (full && (shape == shape_t::scalar || shape == shape_t::null)) {
      write_key(key, length);
      write_object(bag);
      return;
    }
    switch (shape) {
      case shape_t::array:
        write_key(key, length);
        write_array(bag);
        break;
      case shape_t::scalar:
        if (is_writable(scalar->get_type())) {
          write_key(key, length);
          write_value(*scalar);
        } else {
          log_unsupported(scalar->get_type());
          if (is_root) m_sink.Null();  // the text needs its one root value
        }
        break;
      case shape_t::null:
        write_key(key, length);
        m_sink.Null();
        break;
      case shape_t::object:
        write_key(key, length);
        write_object(bag);
        break;
    }
  }

  // The elements go on the work stack in reverse, behind the end marker, so that they
  // are taken off in bag order and the walk is depth first.
  void write_array(variant_bag_t const& bag) {
    m_sink.StartArray();
    m_work.push_back({kind_end_array, nullptr, nullptr, 0, false});
    internal::bag_slot_t const* const marker =
        list_of<variant_t>(bag).find(array_of_name, array_of_length, array_of_hash());
    variant_t const& item_name =
        internal::bag_impl_base_t<variant_t>::node_of(marker->m_first)->m_value;
    if (!item_name.can_get<const wchar_t*>()) return;
    std::size_t const first = m_work.size();
    for (auto it = bag.begin_by_name<variant_bag_t>(item_name.get<const wchar_t*>()); !it.at_end();
         it.next()) {
      m_work.push_back({kind_bag, &it.get_value(), nullptr, 0, false});
    }
    std::reverse(m_work.begin() + static_cast<std::ptrdiff_t>(first), m_work.end());
  }

  // The children of a bag are looked at right after its values: while the values are
  // written, their nodes and lists are fetched one child a value. The first child's
  // node was fetched with the bag's lists.
  class children_ahead_t {
   public:
    explicit children_ahead_t(internal::bag_index_t const& children)
        : m_node(children.first()), m_end(children.end()) {}
    void step() {
      if (m_node == m_end) return;
      variant_bag_t const& child =
          internal::bag_impl_base_t<variant_bag_t>::node_of(m_node)->m_value;
      __builtin_prefetch(&list_of<variant_t>(child));
      __builtin_prefetch(&list_of<variant_bag_t>(child));
      m_node = m_node->m_next;
      if (m_node != m_end) __builtin_prefetch(m_node);
    }

   private:
    internal::bag_node_base_t const* m_node;
    internal::bag_node_base_t const* m_end;
  };

  void write_object(variant_bag_t const& bag) {
    m_sink.StartObject();
    bool wrote_value = false;
    internal::bag_impl_base_t<variant_t> const& values = list_of<variant_t>(bag);
    children_ahead_t children_ahead(list_of<variant_bag_t>(bag));
    for (internal::bag_node_base_t* n = values.first(); n != values.end(); n = n->m_next) {
      if (n->m_hidden) continue;
      variant_t const& value = internal::bag_impl_base_t<variant_t>::node_of(n)->m_value;
      if (!is_writable(value.get_type())) {
        log_unsupported(value.get_type());
        continue;
      }
      m_sink.Key(n->m_name, n->m_length);
      write_value(value);
      m_runahead.step();
      children_ahead.step();
      wrote_value = true;
    }
    // A child that would be written as a bare value or null reads back as a value, and
    // values come first. Such children are therefore written right behind the values,
    // when their key reads back unchanged; the others keep the full object form ({} or
    // {"":v}), so that the saved text of a loaded text is stable.
    internal::bag_impl_base_t<variant_bag_t> const& children = list_of<variant_bag_t>(bag);
    bool const lone_child = !wrote_value && children.visible() == 1;
    m_work.push_back({kind_end_object, nullptr, nullptr, 0, false});
    std::size_t const first = m_work.size();
    for (internal::bag_node_base_t* n = children.first(); n != children.end(); n = n->m_next) {
      if (n->m_hidden) continue;
      variant_bag_t const& child = internal::bag_impl_base_t<variant_bag_t>::node_of(n)->m_value;
      variant_t const* scalar = nullptr;
      shape_t const shape = shape_of(child, &scalar, true);
      bool const leaf = shape == shape_t::scalar || shape == shape_t::null;
      if (leaf && reads_back_as_value(bag, n, lone_child)) {
        write_leaf(scalar, n);
        continue;
      }
      m_work.push_back({kind_bag, &child, n->m_name, n->m_length, leaf});
    }
    std::reverse(m_work.begin() + static_cast<std::ptrdiff_t>(first), m_work.end());
  }

  // Whether "key": scalar reads back as a value of that name in the same place: not the
  // array marker, not the only member "" (the whole object would read as that scalar),
  // and no other value or child of the name that it would replace or pass.
  static bool reads_back_as_value(variant_bag_t const& parent, internal::bag_node_base_t const* n,
                                  bool lone_child) {
    if (is_array_of(n->m_name, n->m_length)) return false;
    if (n->m_length == 0 && lone_child) return false;
    // The node knows its name's length and hash: the lookups need not find them again.
    if (list_of<variant_t>(parent).find(n->m_name, n->m_length, n->m_hash)) return false;
    internal::bag_slot_t const* const same =
        list_of<variant_bag_t>(parent).find(n->m_name, n->m_length, n->m_hash);
    return same != nullptr && same->m_count == 1;
  }

  // A child written as the value of its name: its scalar, or null without one.
  void write_leaf(variant_t const* scalar, internal::bag_node_base_t const* n) {
    if (scalar == nullptr) {
      m_sink.Key(n->m_name, n->m_length);
      m_sink.Null();
      return;
    }
    if (!is_writable(scalar->get_type())) {
      log_unsupported(scalar->get_type());
      return;
    }
    m_sink.Key(n->m_name, n->m_length);
    write_value(*scalar);
  }

  void write_big_integer(s64_t value, bool is_signed) {
    char digits[24];
    char* const end = is_signed ? std::to_chars(digits, digits + 23, value).ptr
                                : std::to_chars(digits, digits + 23, static_cast<u64_t>(value)).ptr;
    *end = 0;
    m_sink.StartObject();
    m_sink.Key("value");
    m_sink.String(static_cast<char const*>(digits));
    m_sink.Key("type");
    m_sink.String("bigInt");
    m_sink.EndObject();
  }

  void write_value(variant_t const& value) {
    switch (value.get_type()) {
      case vtBool:
        m_sink.Bool(value.get<bool>());
        break;
      case vtSByte:
      case vtSShort:
      case vtSInt:
        m_sink.Integer(static_cast<int>(value.get<s64_t>()));
        break;
      case vtUByte:
      case vtUShort:
      case vtUInt:
        m_sink.Integer(static_cast<unsigned>(value.get<u64_t>()));
        break;
      case vtSInt64: {
        s64_t const v = value.get<s64_t>();
        auto const bound = static_cast<s64_t>(exact_bound);
        if (v > -bound && v < bound) {
          m_sink.Integer(v);
        } else {
          write_big_integer(v, true);
        }
        break;
      }
      case vtUInt64: {
        u64_t const v = value.get<u64_t>();
        if (v < exact_bound) {
          m_sink.Integer(v);
        } else {
          write_big_integer(static_cast<s64_t>(v), false);
        }
        break;
      }
      case vtFloat:
      case vtDouble: {
        double const d = value.get<double>();
        if (std::isfinite(d)) {
          m_sink.Double(d);
        } else {
          m_sink.Null();
        }
        break;
      }
      case vtWString:
      case vtWCharPtr:
      case vtString:
      case vtCharPtr:
        // Narrow text is not written: get asserts "can_get<const wchar_t*>()" and gives
        // the empty text.
        m_sink.String(value.get<const wchar_t*>());
        break;
      default:
        m_sink.Null();
        break;
    }
  }

  Sink& m_sink;
  std::vector<work_item_t> m_work;
  internal::bag_runahead_t m_runahead;
};

}  // namespace

void write_variant_bag(variant_bag_t const& bag, IJSONWriter& writer) {
  event_sink_t sink(writer);
  walker_t<event_sink_t>(sink).run(bag);
}

error_code_t save_variant_bag_to_json_string(variant_bag_t const& bag, std::ostream& out,
                                             JSONFormat format) {
  internal_printer::json_printer_t printer(format != Compact, &out);
  walker_t<internal_printer::json_printer_t>(printer).run(bag);
  printer.flush();
  return error_code_t();
}

error_code_t save_variant_bag_to_json_string(variant_bag_t const& bag, std::wstring& text,
                                             JSONFormat format) {
  internal_printer::json_printer_t printer(format != Compact);
  walker_t<internal_printer::json_printer_t>(printer).run(bag);
  text.clear();
  internal::append_utf8_as_wide(text, printer.data(), printer.size());
  return error_code_t();
}

std::wstring variant_bag_to_json_string(variant_bag_t const& bag, JSONFormat format) {
  std::wstring text;
  save_variant_bag_to_json_string(bag, text, format);
  return text;
}

}  // namespace quillon2::json
