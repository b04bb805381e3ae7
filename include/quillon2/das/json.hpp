// Bags as JSON text, and JSON text as bags, in namespace quillon2::json.
//
// Mapping: the values of a bag are the members of an object, followed by its child bags
// as nested objects (child bags of one name give repeated keys). A bag with an entry
// "arrayOf" is an array of its child bags of the name that entry holds; a bag that holds
// only the value of the empty name is written as that bare value; an empty bag is null.
// Integers from 2^53 - 1 on (and signed ones from -(2^53 - 1) down) are written as the
// object {"value":"<digits>","type":"bigInt"}, which reads back as a child bag.
//
// On reading, objects become child bags, arrays become child bags with "arrayOf" equal to
// "item" and one child "item" per element, a scalar root goes into the entry of the empty
// name. Of repeated keys the last value wins; repeated objects all stay.
//
// The output is always valid JSON: a value that JSON cannot hold (blob, object pointer,
// the reserved type) is left out together with its key, and logged on the "QUILLON"
// logger; NaN and the infinities are written as null. Input is strict JSON (RFC 8259)
// with exactly one root value, valid UTF-8 and at most 1,000 nested levels; text beyond
// the root, a NUL byte, a lone surrogate escape and texts of 2^31 bytes or more are
// refused. A failed load leaves the bag as it was.
//
// This header does not need RapidJSON; <quillon2/das/json_rapidjson.hpp> adds the
// RapidJSON-facing part (the writer adapter, the reader's handler, DOM helpers).
//
// Every call works on its own objects: different bags may be used on different threads.
#pragma once

#include <iosfwd>
#include <string>

#include <quillon2/core/error_code.hpp>
#include <quillon2/export.hpp>
#include <quillon2/headers/kesmet.hpp>

namespace quillon2 {

class variant_bag_t;

namespace json {

// 0 is the compact form; any other value is the readable one (four spaces per level).
enum JSONFormat : int { Compact = 0, Pretty = 1 };

// A sink of JSON events, so that one walker serves every output form. Text is UTF-8.
// Each operation returns false when the underlying writer refuses the event.
class QUILLON2_API IJSONWriter {
 public:
  virtual ~IJSONWriter();
  virtual bool Null() = 0;
  virtual bool Bool(bool value) = 0;
  virtual bool Int(int value) = 0;
  virtual bool Uint(unsigned value) = 0;
  virtual bool Int64(s64_t value) = 0;
  virtual bool Uint64(u64_t value) = 0;
  virtual bool Double(double value) = 0;
  virtual bool String(KESMET_2_18::strings::ustring8 const& value) = 0;
  virtual bool Key(KESMET_2_18::strings::ustring8 const& name) = 0;
  virtual bool StartObject() = 0;
  virtual bool EndObject() = 0;
  virtual bool StartArray() = 0;
  virtual bool EndArray() = 0;
};

// Walks `bag` depth first without recursion and sends its JSON form to `writer`: exactly
// one root value, whatever the bag holds.
QUILLON2_API void write_variant_bag(variant_bag_t const& bag, IJSONWriter& writer);

// Reads JSON text (UTF-8) into `bag`, which must be empty (hidden entries such as
// "#tag_name" may be there and stay). Errors: IsNot.Valid.Argument("Expected empty
// variant bag"), and FailedTo.Execute.This.Operation("JSON deserialization error at
// position <byte offset>: <reason>") for text that is no acceptable JSON. On failure the
// bag is unchanged.
QUILLON2_API error_code_t load_variant_bag_from_json_string(
    KESMET_2_18::strings::ustring8 const& text, variant_bag_t& bag);
// The same for wide text, converted to UTF-8 first (positions count UTF-8 bytes).
QUILLON2_API error_code_t load_variant_bag_from_json_string(std::wstring const& text,
                                                           variant_bag_t& bag);

// Writes the JSON form of `bag` (UTF-8) to `out`. Always Ok.
QUILLON2_API error_code_t save_variant_bag_to_json_string(variant_bag_t const& bag,
                                                         std::ostream& out,
                                                         JSONFormat format = Compact);
// The JSON form as wide text, replacing `text`. Always Ok.
QUILLON2_API error_code_t save_variant_bag_to_json_string(variant_bag_t const& bag,
                                                         std::wstring& text,
                                                         JSONFormat format = Compact);
// The JSON form as wide text.
QUILLON2_API std::wstring variant_bag_to_json_string(variant_bag_t const& bag,
                                                     JSONFormat format = Compact);

}  // namespace json
}  // namespace quillon2
