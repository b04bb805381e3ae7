// Bags as streams of events.
//
// variant_bag_visitor_t is the event interface of a bag: a bag is walked as nested
// start/end pairs for child bags and object pointers, with one on_variant call for each
// value in between. Producers: dump_variant_bag walks a bag in memory, read_xml_to_visitor
// and read_xml_file_to_visitor read the attribute form of XML (<quillon2/das/
// variant_bag_serialization2.hpp>). Consumers: the builder made by
// create_variant_bag_builder rebuilds a bag, the visitor made by create_visitor_to_xml
// writes the attribute form, and a client may implement the interface itself, for
// example to read a large document without building a bag.
//
// Events:
// - Names are UTF-8 and valid only for the call; a visitor copies what it keeps.
// - Each on_start_variant_bag has its on_end_variant_bag and each on_start_pointer its
//   on_end_pointer; on_variant calls come between them. A value with the empty name is
//   the text of the enclosing element.
// - An operation returns false to report that it cannot take the event. dump_variant_bag
//   stops at the first false and fails; the XML readers go on regardless.
//
// Ownership and threads: visitors are counted objects held through sptr_t. The visitors
// made here count atomically and may be handed between threads, but one walk belongs to
// one thread.
#pragma once

#include <list>
#include <string>

#include <quillon2/core/object_interface.hpp>
#include <quillon2/core/pool_allocator.hpp>
#include <quillon2/export.hpp>
#include <quillon2/headers/kesmet.hpp>

namespace quillon2 {

class variant_t;
class variant_bag_t;

class QUILLON2_API variant_bag_visitor_t : public object_interface_t {
 public:
  // A child bag starts; the events up to the matching on_end_variant_bag are its content.
  virtual bool on_start_variant_bag(char const* name) = 0;
  virtual bool on_end_variant_bag() = 0;
  // An object pointer starts: `type_id` names the object's type ("dasID_None" for a null
  // pointer) and `ptr_type` the type it is seen through. The events up to the matching
  // on_end_pointer are the bag that the object saved.
  virtual bool on_start_pointer(char const* name, char const* type_id, char const* ptr_type) = 0;
  virtual bool on_end_pointer() = 0;
  // A value of the current bag.
  virtual bool on_variant(char const* name, variant_t const& value) = 0;

 protected:
  ~variant_bag_visitor_t() override = default;
};

// A visitor that writes what it receives as the attribute form of XML.
class QUILLON2_API variant_bag_visitor_to_xml_t : public variant_bag_visitor_t {
 public:
  // The document in UTF-8, without the XML declaration (`out` starts with the line feed
  // that follows it). 1, or 0x40000001 when the document cannot be written (for example
  // when no bag was started, so the document element has no name).
  virtual int to_xml_string(KESMET_2_18::strings::ustring8& out) = 0;
  // Writes the document, with its declaration, to a file in `encoding` (null or
  // "UTF-8" for UTF-8). The file is replaced atomically: a failure leaves the old one.
  virtual int to_xml_file(wchar_t const* file_name, char const* encoding) = 0;

 protected:
  ~variant_bag_visitor_to_xml_t() override = default;
};

namespace internal {

// A standard allocator on the library's pool.
template <class T>
struct pool_allocator_t {
  using value_type = T;
  pool_allocator_t() noexcept = default;
  template <class U>
  pool_allocator_t(pool_allocator_t<U> const&) noexcept {}
  T* allocate(std::size_t n) { return static_cast<T*>(alloc::pool_allocate(n * sizeof(T))); }
  void deallocate(T* p, std::size_t n) noexcept { alloc::pool_deallocate(p, n * sizeof(T)); }
  template <class U>
  bool operator==(pool_allocator_t<U> const&) const noexcept {
    return true;
  }
  template <class U>
  bool operator!=(pool_allocator_t<U> const&) const noexcept {
    return false;
  }
};

}  // namespace internal

// Turns the UTF-8 names of events into wide text that stays valid as long as the
// converter lives, for visitors that keep names (for example as bag names). Not
// synchronised.
class QUILLON2_API to_ustring_converter_t {
 public:
  // The wide form of `utf8` (null reads as the empty text); malformed UTF-8 gives U+FFFD.
  wchar_t const* convert(char const* utf8);

 private:
  std::list<std::wstring, internal::pool_allocator_t<std::wstring>> m_strings;
};

// Receives the messages of a RELAX NG check: severity 1 for errors, 0 for warnings, and
// the message (at most 1023 bytes).
class QUILLON2_API check_relaxng_callback_t {
 public:
  virtual void on_message(int severity, char const* message) = 0;

 protected:
  ~check_relaxng_callback_t() = default;
};

// A visitor that rebuilds a bag in `bag`, which it clears at once and which must outlive
// it. Values go in with put (a later value of one name replaces the earlier one), bags
// with add_variant_bag (bags of one name stay side by side), and object pointers as
// proxies (das_proxy_t) that stand for the object until its type is known.
QUILLON2_API sptr_t<variant_bag_visitor_t> create_variant_bag_builder(variant_bag_t& bag);

// A visitor that writes the attribute form. `root_path` (UTF-8, steps separated by ".",
// may be null) opens those elements in advance, each inside the previous one, so that the
// events land in the last; without it the first on_start_variant_bag names the document
// element.
QUILLON2_API sptr_t<variant_bag_visitor_to_xml_t> create_visitor_to_xml(char const* root_path);

// Walks `bag` into `visitor`: its values and object pointers in bag order (a pointer's
// object is saved into a bag first, which is walked between on_start_pointer and
// on_end_pointer), then its child bags in bag order. Names beginning with "#" are not
// walked. 1 on success; 0x40000001 when the visitor answers false; the code of an object
// whose save fails. A null visitor gives 1 and does nothing. The walk needs no stack
// depth of its own, however deep the bag.
QUILLON2_API int dump_variant_bag(variant_bag_t const& bag, sptr_t<variant_bag_visitor_t> visitor);

// Reads attribute-form XML (UTF-8 text, or a file) into `visitor`. `path` (UTF-8, may be
// null) selects the part of the document that reaches the visitor: steps separated by
// ".", the first naming the document element, each a wildcard pattern ("?" one
// character, "*" any run) matched against an element's local name; the selected
// element's own attributes and children then land at the visitor's top level. With a null
// `visitor` the text is only parsed. 1 when the document is well formed, else 0x40000001,
// the visitor having seen the events up to the error. External entities and DTDs are
// never loaded.
QUILLON2_API int read_xml_to_visitor(char const* xml, variant_bag_visitor_t* visitor,
                                     char const* path);
QUILLON2_API int read_xml_file_to_visitor(wchar_t const* file, variant_bag_visitor_t* visitor,
                                          char const* path);

// Validates the XML document `xml` against the RELAX NG schema `schema` (both UTF-8).
// 1 when it is valid; 0x40000001 when it is not, when it is not well formed, or when the
// schema is broken. Messages go to `callback`, which may be null.
QUILLON2_API int check_relaxng(char const* xml, char const* schema,
                               check_relaxng_callback_t* callback);
QUILLON2_API int check_relaxng(wchar_t const* xml, wchar_t const* schema,
                               check_relaxng_callback_t* callback);

}  // namespace quillon2
