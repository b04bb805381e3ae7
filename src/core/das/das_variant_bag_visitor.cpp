// Bags as event streams: the walk of a bag (dump_variant_bag) and the builder that turns
// events back into a bag.
//
// Both keep their nesting on explicit stacks, so that neither the depth of a bag in
// memory nor the nesting of a stream of events reaches the depth of the call stack.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <cwchar>
#include <deque>
#include <exception>
#include <memory>
#include <string>
#include <vector>

#include <quillon2/das/notype_ptr.hpp>
#include <quillon2/das/type_factory.hpp>
#include <quillon2/das/variant.hpp>
#include <quillon2/das/variant_bag.hpp>
#include <quillon2/das/variant_bag_visitor.hpp>

#include "core/das/include/bag_builder.hpp"
#include "core/das/include/bag_runahead.hpp"
#include "core/das/include/utf8_codec.hpp"
#include "core/das/include/vb_helper.hpp"
#include "core/das/include/xml_safety.hpp"
#include "core/das/include/xml_tag_writer.hpp"

namespace quillon2 {

namespace {

// UTF-8 of a wide name into a buffer that is reused from call to call; null for a name
// that holds a character that is no Unicode scalar value (a lone surrogate), which UTF-8
// can't carry: the walk fails rather than hand on another name.
// The text ends at its first NUL, which c_str() shows as well; the buffer's size is only
// its room, so that the ASCII names that nearly all names are need no resizing.
char const* utf8_of(std::string& buffer, wchar_t const* text) {
  if (text == nullptr) {
    buffer.clear();
    return buffer.c_str();
  }
  std::size_t ascii = 0;
  while (text[ascii] != L'\0' && static_cast<std::uint32_t>(text[ascii]) < 0x80) ++ascii;
  if (buffer.size() <= ascii) buffer.resize(std::max<std::size_t>(ascii + 1, 64));
  char* const out = &buffer[0];
  for (std::size_t i = 0; i < ascii; ++i) out[i] = static_cast<char>(text[i]);
  if (text[ascii] == L'\0') {
    out[ascii] = '\0';
    return buffer.c_str();
  }
  buffer.resize(ascii);
  std::size_t const length = std::wcslen(text + ascii);
  for (std::size_t i = ascii; i < ascii + length; ++i) {
    auto const c = static_cast<std::uint32_t>(text[i]);
    if (c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) return nullptr;
  }
  internal::append_wide_as_utf8(buffer, text + ascii, length);
  return buffer.c_str();
}

// Wide text of a UTF-8 name, the same way.
wchar_t const* wide_of(std::wstring& buffer, char const* text) {
  if (text == nullptr) text = "";
  auto const* s = reinterpret_cast<unsigned char const*>(text);
  buffer.clear();
  std::size_t ascii = 0;
  for (; s[ascii] != 0 && s[ascii] < 0x80; ++ascii)
    buffer.push_back(static_cast<wchar_t>(s[ascii]));
  if (s[ascii] != 0) {
    char const* rest = text + ascii;
    internal::append_utf8_as_wide(buffer, rest, std::strlen(rest));
  }
  return buffer.c_str();
}

}  // namespace

wchar_t const* to_ustring_converter_t::convert(char const* utf8) {
  std::wstring wide;
  if (utf8 != nullptr) internal::append_utf8_as_wide(wide, utf8, std::strlen(utf8));
  m_strings.push_back(std::move(wide));
  return m_strings.back().c_str();
}

// ---------------------------------------------------------------------------------------
// The walk

namespace {

// The walk of dump_variant_bag. `read_ahead` fetches the next child bag's values while
// the current bag is written, and the bag after it once those are fetched.
int dump_bag(variant_bag_t const& bag, variant_bag_visitor_t& events, bool read_ahead) {
  struct frame_t {
    std::unique_ptr<variant_bag_t> object_data;  // what a pointer's object saved
    bool values_done = false;
    variant_bag_t::const_iterator_t<variant_t> values;
    // The next child bag to walk and the end of the list of child bags.
    internal::bag_node_base_t const* child = nullptr;
    internal::bag_node_base_t const* children_end = nullptr;
    // Fetches the child bags after the one being walked. Each level keeps its own, so
    // that a walk down into a child does not lose what was fetched of its siblings.
    internal::bag_runahead_t runahead;
  };
  std::vector<frame_t> stack;
  // Starts the walk of a bag in a frame of its own (which may move the frames below it).
  auto const push = [&stack](variant_bag_t const& next) -> frame_t& {
    frame_t& frame = stack.emplace_back();
    frame.values = next.begin<variant_t>();
    internal::bag_impl_base_t<variant_bag_t> const& children =
        internal::vb_helper::impl<variant_bag_t>(next);
    frame.children_end = children.end();
    frame.child = internal::first_visible(children.first(), frame.children_end);
    return frame;
  };
  // The values being walked belong to the child that its parent's runahead started at.
  auto const step = [&stack, read_ahead] {
    if (read_ahead && stack.size() >= 2) stack[stack.size() - 2].runahead.step();
  };
  push(bag);

  std::string name;
  std::string type_id;
  std::string ptr_type;

  while (!stack.empty()) {
    frame_t* frame = &stack.back();
    if (!frame->values_done) {
      std::unique_ptr<variant_bag_t> object_data;
      for (; !frame->values.at_end(); frame->values.next()) {
        variant_t const& value = frame->values.get_value();
        if (value.get_type() != vtNotypePtr) {
          variant_t const own(value);  // the visitor gets a value of its own
          char const* const utf8_name = utf8_of(name, frame->values.get_name());
          // Two steps a value, with the work of the name between them: each of the
          // runahead's two lanes moves on a node for every value.
          step();
          if (utf8_name == nullptr || !events.on_variant(utf8_name, own)) {
            return DAS_E_FAIL;
          }
          step();
          continue;
        }
        notype_ptr_t const pointer = value.get<notype_ptr_t>();
        if (utf8_of(name, frame->values.get_name()) == nullptr) return DAS_E_FAIL;
        if (pointer.is_null()) {
          if (!events.on_start_pointer(
                  name.c_str(), "dasID_None",
                  utf8_of(ptr_type, get_name_from_id(pointer.get_ptr_type()))) ||
              !events.on_end_pointer()) {
            return DAS_E_FAIL;
          }
          continue;
        }
        sptr_t<serializable_object_interface_t> object;
        int result = pointer.get_serializable_object(object);
        if (das_failed(result)) return result;
        object_data.reset(new variant_bag_t());
        result = object->save(*object_data);
        if (das_failed(result)) return result;
        utf8_of(type_id, pointer.get_obj_type_as_string());
        if (pointer.get_ptr_type() != pointer.get_object_type()) {
          utf8_of(ptr_type, pointer.get_ptr_type_as_string());
        } else {
          ptr_type = type_id;
        }
        if (utf8_of(name, frame->values.get_name()) == nullptr ||
            !events.on_start_pointer(name.c_str(), type_id.c_str(), ptr_type.c_str())) {
          return DAS_E_FAIL;
        }
        frame->values.next();
        break;
      }
      if (object_data) {
        // The object's bag is walked next, as a frame of its own.
        push(*object_data).object_data = std::move(object_data);
        continue;
      }
      frame->values_done = true;
    }
    if (frame->child != frame->children_end) {
      internal::bag_node_base_t const* const node = frame->child;
      wchar_t const* entry_name = node->m_name;
      variant_bag_t const& child = internal::bag_impl_base_t<variant_bag_t>::node_of(node)->m_value;
      frame->child = internal::first_visible(node->m_next, frame->children_end);
      if (read_ahead) frame->runahead.start(frame->child, frame->children_end);
      char const* const utf8_name = utf8_of(name, entry_name);
      if (utf8_name == nullptr || !events.on_start_variant_bag(utf8_name)) return DAS_E_FAIL;
      push(child);
      continue;
    }
    bool const was_pointer = frame->object_data != nullptr;
    stack.pop_back();
    if (stack.empty()) break;
    if (!(was_pointer ? events.on_end_pointer() : events.on_end_variant_bag())) {
      return DAS_E_FAIL;
    }
  }
  return DAS_OK;
}

}  // namespace

int dump_variant_bag(variant_bag_t const& bag, sptr_t<variant_bag_visitor_t> visitor) {
  if (!visitor) return DAS_OK;
  // Another visitor may change the bag while it is walked: nothing is read ahead.
  return dump_bag(bag, *visitor, false);
}

int internal::dump_to_own_visitor(variant_bag_t const& bag, variant_bag_visitor_t& visitor) {
  return dump_bag(bag, visitor, true);
}

// ---------------------------------------------------------------------------------------
// The builder

variant_bag_builder_t::variant_bag_builder_t(variant_bag_t& target) : m_current(&target) {
  target.clear();
}

std::uint32_t variant_bag_builder_t::widen_name(std::wstring& wide, char const* name) {
  wide_of(wide, name);
  return internal::hash_name(wide.data(), wide.size());
}

void variant_bag_builder_t::put_value(char const* name, variant_t& value) {
  std::uint32_t const hash = widen_name(m_name, name);
  take_variant(m_name.data(), m_name.size(), hash, value);
}

void variant_bag_builder_t::take_variant(wchar_t const* wide, std::size_t length,
                                         std::uint32_t hash, variant_t& value) {
  internal::vb_helper::put_moved(&m_arena, *m_current, wide, length, hash, value);
}

bool variant_bag_builder_t::on_start_variant_bag(char const* name) {
  std::uint32_t const hash = widen_name(m_name, name);
  start_variant_bag(m_name.data(), m_name.size(), hash);
  return true;
}

void variant_bag_builder_t::start_variant_bag(wchar_t const* wide, std::size_t length,
                                              std::uint32_t hash) {
  tag_slot_t& tag = m_tags[hash % m_tags.size()];
  if (tag.hash != hash || tag.text.get_type() != vtWString ||
      std::wcscmp(wide, tag.text.get<wchar_t const*>()) != 0) {
    tag.text = variant_t(wide);
    tag.hash = hash;
  }
  variant_bag_t& child =
      internal::vb_helper::add_empty_child(&m_arena, *m_current, wide, length, hash, tag.text);
  m_levels.push_back(level_t{m_current, false});
  m_current = &child;
}

void variant_bag_builder_t::reserve_values(std::size_t names) {
  internal::vb_helper::impl<variant_t>(*m_current).reserve(names);
}

bool variant_bag_builder_t::on_end_variant_bag() {
  if (m_levels.empty() || m_levels.back().is_pointer) {
    report("!m_bag_stack.empty()", "quillon2::variant_bag_builder_t::on_end_variant_bag");
    return false;
  }
  m_current = m_levels.back().parent;
  m_levels.pop_back();
  return true;
}

bool variant_bag_builder_t::on_start_pointer(char const* name, char const* type_id,
                                             char const* ptr_type) {
  m_frames.emplace_back();
  pointer_frame_t& frame = m_frames.back();
  frame.name = name != nullptr ? name : "";
  frame.type_id = type_id != nullptr ? type_id : "";
  frame.ptr_type = ptr_type != nullptr ? ptr_type : "";
  m_levels.push_back(level_t{m_current, true});
  m_current = &frame.bag;
  return true;
}

bool variant_bag_builder_t::on_end_pointer() {
  if (m_levels.empty() || !m_levels.back().is_pointer || m_frames.empty()) {
    report("!m_pointer_stack.empty()", "quillon2::variant_bag_builder_t::on_end_pointer");
    return false;
  }
  pointer_frame_t& frame = m_frames.back();
  std::wstring type_id;
  std::wstring ptr_type;
  internal::append_utf8_as_wide(type_id, frame.type_id.data(), frame.type_id.size());
  internal::append_utf8_as_wide(ptr_type, frame.ptr_type.data(), frame.ptr_type.size());
  notype_ptr_t pointer;
  pointer.create_from_runtime_info(frame.bag, type_id.c_str(), ptr_type.c_str());
  m_current = m_levels.back().parent;
  variant_t value(pointer);
  put_value(frame.name.c_str(), value);
  m_levels.pop_back();
  m_frames.pop_back();
  return true;
}

bool variant_bag_builder_t::on_variant(char const* name, variant_t const& value) {
  variant_t copy(value);
  put_value(name, copy);
  return true;
}

void variant_bag_builder_t::take_variant(char const* name, variant_t& value) {
  put_value(name, value);
}

void variant_bag_builder_t::report(char const* condition, char const* function) {
  ::KESMET_2_18::debug::_private::____________________ASSERT____________________(
      condition, __FILE__, __LINE__, function);
}

sptr_t<variant_bag_visitor_t> create_variant_bag_builder(variant_bag_t& bag) {
  return sptr_t<variant_bag_visitor_t>(
      new ref_counted_t<variant_bag_builder_t, mt_ref_count_impl_t>(bag));
}

}  // namespace quillon2
