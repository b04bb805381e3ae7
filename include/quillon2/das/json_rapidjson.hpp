// The RapidJSON-facing part of the JSON mapping (RapidJSON 1.1, package rapidjson-dev):
// the adapter that puts a RapidJSON writer behind IJSONWriter, the SAX handler that the
// reader feeds to build a bag, and two helpers for RapidJSON documents of wide text.
//
// Wide text is UTF-32 here (wchar_t is 32 bits), so the DOM helpers work on
// rapidjson::UTF32<wchar_t> values. This header is not part of <quillon2/quillon2.hpp>:
// include it where RapidJSON types are wanted. How RAPIDJSON_ASSERT is defined is the
// includer's choice; the library's own code reports RapidJSON's assertions through the
// library's assertion service.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <boost/shared_ptr.hpp>
#include <rapidjson/document.h>
#include <rapidjson/encodings.h>
#include <rapidjson/stream.h>
#include <rapidjson/prettywriter.h>
#include <rapidjson/writer.h>

#include <quillon2/das/json.hpp>
#include <quillon2/das/variant.hpp>
#include <quillon2/das/variant_bag.hpp>
#include <quillon2/export.hpp>

namespace quillon2::internal {
class node_arena_t;
struct json_reader_access_t;
}  // namespace quillon2::internal

namespace quillon2::json {

// IJSONWriter on a held RapidJSON writer W of UTF-8 text (Writer or PrettyWriter over
// any RapidJSON output stream). The adapter shares the writer; it does not flush it.
template <class W>
class WriterAdapter : public IJSONWriter {
 public:
  explicit WriterAdapter(boost::shared_ptr<W> writer) : m_writer(std::move(writer)) {}

  bool Null() override { return m_writer->Null(); }
  bool Bool(bool value) override { return m_writer->Bool(value); }
  bool Int(int value) override { return m_writer->Int(value); }
  bool Uint(unsigned value) override { return m_writer->Uint(value); }
  bool Int64(s64_t value) override { return m_writer->Int64(value); }
  bool Uint64(u64_t value) override { return m_writer->Uint64(value); }
  bool Double(double value) override { return m_writer->Double(value); }
  bool String(KESMET_2_18::strings::ustring8 const& value) override {
    return m_writer->String(value.data(), static_cast<rapidjson::SizeType>(value.size()));
  }
  bool Key(KESMET_2_18::strings::ustring8 const& name) override {
    return m_writer->Key(name.data(), static_cast<rapidjson::SizeType>(name.size()));
  }
  bool StartObject() override { return m_writer->StartObject(); }
  bool EndObject() override { return m_writer->EndObject(); }
  bool StartArray() override { return m_writer->StartArray(); }
  bool EndArray() override { return m_writer->EndArray(); }

  W& writer() { return *m_writer; }

 private:
  boost::shared_ptr<W> m_writer;
};

// The SAX handler of the reader: builds the JSON text's bag in `root`. Text arrives as
// wide text (the reader transcodes UTF-8 to UTF-32). Objects become child bags named by
// the current key, arrays child bags with "arrayOf" = "item"; in a bag that has an
// "arrayOf" entry every scalar and structure becomes a child of the name that entry
// holds. Returns false (ending the parse) beyond `max_depth` nested levels and for text
// holding a surrogate code point, which only a lone \uDC00..\uDFFF escape can give.
class QUILLON2_API Handler {
 public:
  static constexpr std::size_t max_depth = 1000;

  explicit Handler(variant_bag_t& root);
  // With the stream the reader reads from, numbers with a fraction or an exponent are
  // converted again from their text, exactly (correctly rounded), whatever precision
  // the reader was asked for.
  Handler(variant_bag_t& root, rapidjson::StringStream const* source);

  bool Null();
  bool Bool(bool value);
  bool Int(int value);
  bool Uint(unsigned value);
  bool Int64(std::int64_t value);
  bool Uint64(std::uint64_t value);
  bool Double(double value);
  bool RawNumber(wchar_t const* text, rapidjson::SizeType length, bool copy);
  bool String(wchar_t const* text, rapidjson::SizeType length, bool copy);
  bool StartObject();
  bool Key(wchar_t const* text, rapidjson::SizeType length, bool copy);
  bool EndObject(rapidjson::SizeType members);
  bool StartArray();
  bool EndArray(rapidjson::SizeType elements);

  // Whether the parse ended on a lone surrogate escape rather than on nesting.
  bool saw_lone_surrogate() const { return m_lone_surrogate; }


 private:
  // One open structure: the name its children get when its bag has an "arrayOf" entry
  // (the text of that entry, which lives as long as the entry), else null.
  // For an array, the number of values of its last element: the elements of one array
  // mostly have the same members, and the next one starts with room for as many.
  struct frame_t {
    wchar_t const* m_child_name;
    std::size_t m_child_length;
    std::size_t m_element_values = 0;
  };

  // The text values of recent child names, by name hash: the "#tag_name" of every child
  // of one name shares its text.
  struct tag_cache_entry_t {
    std::uint32_t m_hash = 0;
    std::size_t m_length = 0;
    variant_t m_text;
  };
  static constexpr std::size_t tag_cache_size = 16;

  bool startNode();
  void endNode();
  bool scalar(variant_t& value);
  template <class T>
  bool value_event(T value);
  // The length of the text up to its first NUL, or -1 when it holds a surrogate.
  std::ptrdiff_t checked_length(wchar_t const* text, rapidjson::SizeType length);
  variant_bag_t& add_child(wchar_t const* name, std::size_t length);

  variant_bag_t& m_root;
  variant_bag_t* m_currentNode;
  std::wstring m_key;
  std::vector<frame_t> m_frames;
  rapidjson::StringStream const* m_source;
  bool m_lone_surrogate;
  tag_cache_entry_t m_tags[tag_cache_size];
  // Where the library's own loads take the nodes of the document from; null otherwise.
  internal::node_arena_t* m_arena = nullptr;
  friend struct internal::json_reader_access_t;
};

// A RapidJSON value of wide text with its usual allocator.
using wide_value_t =
    rapidjson::GenericValue<rapidjson::UTF32<wchar_t>,
                            rapidjson::MemoryPoolAllocator<rapidjson::CrtAllocator>>;

// The value as compact JSON text. A value that the writer refuses (NaN, infinity) ends
// the text where it stands.
QUILLON2_API std::wstring rapidJsonValueToString(wide_value_t const& value);

// Adds the string member `name`: `member_value` to the object `object`, copying both
// strings through `allocator`, and returns `object`. A value that is no object is
// reported by an assertion and left as it is.
QUILLON2_API wide_value_t& addStringMember(
    wide_value_t& object, std::wstring const& name, std::wstring const& member_value,
    rapidjson::MemoryPoolAllocator<rapidjson::CrtAllocator>& allocator);

}  // namespace quillon2::json
