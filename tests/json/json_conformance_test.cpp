// Texts that a strict JSON reader must accept, and texts it must refuse with the reason
// and the byte offset where it stopped.
#include <string>

#include <gtest/gtest.h>

#include <quillon2/das/json.hpp>
#include <quillon2/das/variant_bag.hpp>

namespace {

using quillon2::error_code_t;
using quillon2::variant_bag_t;

struct case_t {
  std::string text;
  std::string error;  // "<offset>: <reason>", empty for a text that must load
};

std::string const prefix = "JSON deserialization error at position ";

case_t const corpus[] = {
    // Accepted: every value kind, white space, escapes, numbers at the edges.
    {" \t\r\n{} \n", ""},
    {"[1, -0, 0.5e-3, 1E+2, -1.7976931348623157e308, 4.9e-324, 123456789012345678901234567890]", ""},
    {R"({"a":[true,false,null],"":{"b":"\"\\\/\b\f\n\r\t\u0041\uD834\uDD1E"}})", ""},
    {"\"\xE2\x82\xAC\xF0\x9F\x98\x80\xF4\x8F\xBF\xBF\"", ""},
    // Empty documents, text after the root, and zero bytes inside the text.
    {"", "0: The document is empty."},
    {std::string("{}\0{}", 5), "2: The document root must not follow by other values."},
    {std::string("[1\0]", 4), "2: Missing a comma or ']' after an array element."},
    {std::string("\"a\0b\"", 5), "2: Missing a closing quotation mark in string."},
    // Values, objects, arrays, numbers.
    {"[1,]", "3: Invalid value."},
    {"{\"a\":1,}", "7: Missing a name for object member."},
    {"{\"a\" 1}", "5: Missing a colon after a name of object member."},
    {"{\"a\":1 \"b\":2}", "7: Missing a comma or '}' after an object member."},
    {"1.", "2: Miss fraction part in number."},
    {"1e", "2: Miss exponent in number."},
    {"1e309", "0: Number too big to be stored in double."},
    // Strings: escapes, surrogates, control characters, encoding (also cut at the end).
    {R"("\x")", "1: Invalid escape character in string."},
    {"\"tab\there\"", "4: Invalid escape character in string."},
    {R"("\u12G4")", "1: Incorrect hex digit after \\u escape in string."},
    {R"("\uD800")", "1: The surrogate pair in string is invalid."},
    {R"("\uDC00")", "8: The surrogate pair in string is invalid."},
    {R"({"\uDFFF":1})", "9: The surrogate pair in string is invalid."},
    {R"(["abcdefgh\uDC00"])", "17: The surrogate pair in string is invalid."},
    {R"({"abcde\uDFFFfghij":1})", "19: The surrogate pair in string is invalid."},
    {"\"\xED\xA0\x80\"", "1: Invalid encoding in string."},
    {"\"\xEB", "1: Invalid encoding in string."},
    {"\"\xF0", "1: Invalid encoding in string."},
    // Nesting beyond 1,000 levels.
    {std::string(1001, '[') + std::string(1001, ']'), "1000: Terminate parsing due to Handler error."},
};

TEST(JsonConformance, EveryTextLoadsOrFailsWithItsReasonAndOffset) {
  for (case_t const& c : corpus) {
    variant_bag_t bag;
    error_code_t const ec = quillon2::json::load_variant_bag_from_json_string(c.text, bag);
    if (c.error.empty()) {
      EXPECT_TRUE(ec.is_ok()) << c.text << ": " << ec.as_string();
      continue;
    }
    ASSERT_TRUE(ec.failed()) << c.text;
    EXPECT_TRUE(ec == quillon2::error::FailedTo.Execute.This.Operation) << c.text;
    EXPECT_EQ(ec.pass()->text, prefix + c.error) << c.text;
    EXPECT_TRUE(bag.is_empty()) << c.text;
  }
}

}  // namespace
