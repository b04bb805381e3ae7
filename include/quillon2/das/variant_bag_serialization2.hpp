// Bags as XML, attribute form.
//
// Every value of a bag is an attribute of the element of its bag, and the namespace
// prefix of the attribute says the value's type: int:count="5", double:ratio="0.25",
// boolean:on="true"; a wide string has no prefix. Child bags are child elements, an
// object pointer is an element pointer:name with the attributes pointer:type_id and
// pointer:ptr_type around the bag that the object saved, and a value with the empty name
// is the text of its element. The caller names the document element by a root path.
// Names that begin with "#" are not written. Blobs are written as empty attributes
// (blob:name=""): this form does not keep their bytes.
//
// On loading, attributes with an unknown prefix, blobs, and booleans that are none of
// "true", "false", "1", "0" come back as wide strings named "prefix:name"; white space
// around an element's text is dropped. Of several attributes or values of one name the
// last wins; child bags of one name all stay, in order.
//
// Results: 1 is success, a value with bit 30 set is failure, 0x40000001 the general one;
// the failure code of an object's own save passes through. Bad input, a file that cannot
// be read and text that XML cannot hold give the general failure; nothing crashes, and
// external entities and DTDs are never loaded. Saving a file replaces it atomically, so a
// failed save leaves the old file as it was.
//
// All functions may be called from any thread on different bags.
#pragma once

#include <quillon2/export.hpp>
#include <quillon2/headers/kesmet.hpp>

namespace quillon2 {

class variant_t;
class variant_bag_t;

// Writes `bag` in the attribute form to `file_name`, as UTF-8 with an XML declaration.
// `root_path` names the document element; with steps separated by "." ("a.b") the
// elements nest and the bag goes into the last.
QUILLON2_API int save_variant_bag2(variant_bag_t const& bag, wchar_t const* file_name,
                                   wchar_t const* root_path);

// Reads a bag file of either form into `bag`. With `try_element_form` set, the file is
// first read as the element form (its document element is "root"), with `path` less its
// first step naming the element to read; when that fails, and always without the flag,
// it is read as the attribute form with `path` as the filter (see
// load_variant_bag_from_string2), and the bag then gets the hidden entry "#file_name"
// holding `file_name`.
QUILLON2_API int load_variant_bag2(variant_bag_t& bag, wchar_t const* file_name,
                                   wchar_t const* path, bool try_element_form);

// The attribute form without the XML declaration: the text starts with a line feed.
QUILLON2_API int save_variant_bag_to_string2(variant_bag_t const& bag,
                                             KESMET_2_18::strings::ustring8& text,
                                             wchar_t const* root_path);
// The same as a wide-string variant.
QUILLON2_API int save_variant_bag_to_string2(variant_bag_t const& bag, variant_t& text,
                                             wchar_t const* root_path);

// Reads attribute-form text (UTF-8) into `bag`, which is cleared first. `path` selects
// the element whose content becomes the bag: steps separated by ".", the first naming
// the document element, each a wildcard pattern ("?", "*") matched against local names;
// the bag is then renamed to the last step. Without a path the bag receives the document
// element as a child bag.
QUILLON2_API int load_variant_bag_from_string2(variant_bag_t& bag,
                                               KESMET_2_18::strings::ustring8 const& text,
                                               wchar_t const* path);
// The same from a wide-string variant.
QUILLON2_API int load_variant_bag_from_string2(variant_bag_t& bag, variant_t const& text,
                                               wchar_t const* path);

// Placeholders of a TOML form that does not exist: they look at nothing and always give
// 0x40000001.
QUILLON2_API int load_variant_bag_from_toml(variant_bag_t& bag, wchar_t const* file_name,
                                            wchar_t const* path);
QUILLON2_API int save_variant_bag_to_toml(variant_bag_t const& bag, wchar_t const* file_name,
                                          wchar_t const* root_path);

}  // namespace quillon2
