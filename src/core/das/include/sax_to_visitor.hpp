// The SAX2 reader of the attribute form, shared by the public readers.
#pragma once

#include <cstddef>
#include <string>

namespace quillon2 {
class variant_bag_visitor_t;
}

namespace quillon2::internal {

// Parses `size` bytes of XML into `visitor` (null: parse only), with the filter `path`
// (UTF-8, may be null). `is_utf8` says that the bytes are UTF-8 whatever the document
// declares. 1, or 0x40000001 with a reason for the log in `why`.
int read_xml_memory_to_visitor(char const* data, std::size_t size, bool is_utf8,
                               variant_bag_visitor_t* visitor, char const* path, std::string& why);

}  // namespace quillon2::internal
