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

std::string repeat(std::string const& part, std::size_t times) {
  std::string text;
  while (times-- > 0) text += part;
  return text;
}

std::string const prefix = "JSON deserialization error at position ";

case_t const corpus[] = {
    // Accepted: every value kind, white space, escapes, numbers at the edges.
    {" \t\r\n{} \n", ""},
    {"[1, -0, 0.5e-3, 1E+2, -1.7976931348623157e308, 4.9e-324, 123456789012345678901234567890]", ""},
    {R"({"a":[true,false,null],"":{"b":"\"\\\/\b\f\n\r\t\u0041\uD834\uDD1E"}})", ""},
    {"\"\xE2\x82\xAC\xF0\x9F\x98\x80\xF4\x8F\xBF\xBF\"", ""},
    {"\"\xEF\xBB\xBF text after a BOM-like character\"", ""},
    {R"({"dup":1,"dup":2,"arrayOf":"x","y":[]})", ""},
    // Empty documents and text after the root.
    {"", "0: The document is empty."},
    {"  \n", "3: The document is empty."},
    {"{} {}", "3: The document root must not follow by other values."},
    {"1 2", "2: The document root must not follow by other values."},
    {std::string("{}\0{}", 5), "2: The document root must not follow by other values."},
    {std::string("[1\0]", 4), "2: Missing a comma or ']' after an array element."},
    {std::string("\"a\0b\"", 5), "2: Missing a closing quotation mark in string."},
    // Values, objects, arrays.
    {"tru", "3: Invalid value."},
    {"nul", "3: Invalid value."},
    {"NaN", "0: Invalid value."},
    {"'a'", "0: Invalid value."},
    {"[1,]", "3: Invalid value."},
    {"{\"a\":1,}", "7: Missing a name for object member."},
    {"{a:1}", "1: Missing a name for object member."},
    {"{\"a\" 1}", "5: Missing a colon after a name of object member."},
    {"{\"a\":1 \"b\":2}", "7: Missing a comma or '}' after an object member."},
    {"[1 2]", "3: Missing a comma or ']' after an array element."},
    {"[1", "2: Missing a comma or ']' after an array element."},
    {"/* comment */ 1", "0: Invalid value."},
    // Numbers.
    {"01", "1: The document root must not follow by other values."},
    {"[-01]", "3: Missing a comma or ']' after an array element."},
    {"+1", "0: Invalid value."},
    {".5", "0: Invalid value."},
    {"-", "1: Invalid value."},
    {"1.", "2: Miss fraction part in number."},
    {"1.e5", "2: Miss fraction part in number."},
    {"1e", "2: Miss exponent in number."},
    {"1e+", "3: Miss exponent in number."},
    {"1e309", "0: Number too big to be stored in double."},
    {"-1e400", "0: Number too big to be stored in double."},
    {"0x10", "1: The document root must not follow by other values."},
    // Strings: escapes, surrogates, control characters, encoding.
    {R"("\x")", "1: Invalid escape character in string."},
    {R"("\u12G4")", "1: Incorrect hex digit after \\u escape in string."},
    {R"("\uD800")", "1: The surrogate pair in string is invalid."},
    {R"("\uD800\u0041")", "1: The surrogate pair in string is invalid."},
    {R"("\uDC00")", "8: The surrogate pair in string is invalid."},
    {R"({"\uDFFF":1})", "9: The surrogate pair in string is invalid."},
    {"\"tab\there\"", "4: Invalid escape character in string."},
    {"\"nl\n\"", "3: Invalid escape character in string."},
    {"\"open", "5: Missing a closing quotation mark in string."},
    {"\"\xFF\"", "1: Invalid encoding in string."},
    {"\"\xC0\xAF\"", "1: Invalid encoding in string."},
    {"\"\xE0\x80\xAF\"", "1: Invalid encoding in string."},
    {"\"\xED\xA0\x80\"", "1: Invalid encoding in string."},
    {"\"\xF4\x90\x80\x80\"", "1: Invalid encoding in string."},
    {"\"\xE2\x82\"", "1: Invalid encoding in string."},
    {"\xC3\xA9", "0: Invalid value."},
    {"\"\xEB", "1: Invalid encoding in string."},
    {"\"\xF0", "1: Invalid encoding in string."},
    // Nesting beyond 1,000 levels.
    {std::string(1001, '[') + std::string(1001, ']'), "1000: Terminate parsing due to Handler error."},
    {repeat("{\"a\":", 1001) + "1" + std::string(1001, '}'),
     "5000: Terminate parsing due to Handler error."},
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
