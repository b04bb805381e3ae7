// Bags as XML, element form, and the text form of single values.
//
// In the element form every value of a bag is an element of its own, named after the
// entry, whose "type" attribute names the value's type; nested bags are nested elements
// and the document element is "root". Values stand ahead of object pointers, and those
// ahead of nested bags, whatever order they were added in.
//
// Results: 1 is success; a value with bit 30 set is failure, 0x40000001 the general one.
// A failure code of an object's own save passes through unchanged.
//
// A save never loses data: text that XML 1.0 cannot hold (control characters other than
// tab, line feed and carriage return, lone surrogates), names that XML cannot hold, and
// content beyond what the loader accepts (texts over 10,000,000 bytes, nesting over 256
// levels) make the save fail, and a file is replaced atomically, so that a failed save
// leaves the old file as it was.
//
// All functions may be called from any thread on different bags. A file being loaded or
// saved is locked (flock); a lock held by someone else makes the call fail at once.
#pragma once

#include <quillon2/export.hpp>

namespace quillon2 {

class variant_t;
class variant_bag_t;

// Writes `bag` in the element form to `file_name`.
QUILLON2_API int save_variant_bag(variant_bag_t const& bag, wchar_t const* file_name);

// Reads the element form from `file_name` into `bag`, which is cleared first. `path`
// names the element whose children are read, in steps separated by "."; the empty path
// stands for "root" itself.
QUILLON2_API int load_variant_bag(variant_bag_t& bag, wchar_t const* file_name,
                                  wchar_t const* path);

// The element form, with its XML declaration, as a wide-string variant.
QUILLON2_API int save_variant_bag_to_string(variant_bag_t const& bag, variant_t* text);

// Reads a whole element-form document from a wide-string variant into `bag`.
QUILLON2_API int load_variant_bag_from_string(variant_bag_t& bag, variant_t const& text);

// Builds a value from its element-form type name and text; false for an unknown type,
// and then `out` is left as it was.
QUILLON2_API bool create_variant_from_string(variant_t& out, wchar_t const* type,
                                             wchar_t const* value);

// The element-form type name of the value; the empty text for a wide string, and null for
// the types that have no name of their own (blobs, object pointers, narrow texts).
QUILLON2_API wchar_t const* get_type_string(variant_t const& value);

// The value as text: "true"/"false", decimal integers, floating-point numbers with six
// significant digits (classic locale), wide text as it is; the empty text for the rest.
QUILLON2_API variant_t get_value_string(variant_t const& value);

}  // namespace quillon2
