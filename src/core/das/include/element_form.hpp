// The element form of bags as building blocks for the public calls and for the readers
// that accept more than one form. Nothing here logs: a failure comes back as the result
// and, where it helps a log message, a reason in `why`.
#pragma once

#include <cstddef>
#include <string>

namespace quillon2 {
class variant_bag_t;
}

namespace quillon2::internal {

// The length of the text of a blob of `size` bytes: a line feed before every run of 16
// bytes and one at the end, two digits for each byte.
inline std::size_t blob_text_length(std::size_t size) { return 2 * size + (size + 15) / 16 + 1; }

// The whole document in UTF-8, declaration included. A failure leaves `utf8` empty.
int write_element_form(variant_bag_t const& bag, std::string& utf8, std::string& why);

// Reads an element-form file into `bag` (which the caller has cleared): the file is
// locked while it is read, the document element must be "root", and `path` (UTF-8,
// steps separated by "."; empty for "root" itself; null is a failure) names the element
// whose children are read.
int read_element_form_file(variant_bag_t& bag, std::string const& native_name, char const* path,
                           std::string& why);

// The same for a file's content already read. `recognised` tells whether the document
// is of the element form at all (it parses and its document element is "root"): a
// reader that accepts another form too tries that one only when it is not.
int read_element_form_document(variant_bag_t& bag, std::string const& content, char const* path,
                               std::string& why, bool& recognised);

// Reads a whole element-form document from UTF-8 text into `bag`.
int read_element_form_text(variant_bag_t& bag, char const* utf8, std::size_t size,
                           std::string& why);

}  // namespace quillon2::internal
