// The JSON mapping of bags: shapes, numbers at the exact-integer bounds, round trips of
// every value type, the array convention, unwritable values, and the load contract.
#include <cmath>
#include <limits>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <log4cplus/appender.h>
#include <log4cplus/logger.h>
#include <log4cplus/spi/loggingevent.h>

#include <quillon2/das/json.hpp>
#include <quillon2/das/json_rapidjson.hpp>
#include <quillon2/das/variant.hpp>
#include <quillon2/das/variant_bag.hpp>
#include <quillon2/headers/kesmet.hpp>

#include "support/assert_recorder.hpp"

namespace {

using namespace quillon2;
using json::Compact;
using json::Pretty;

std::string save(variant_bag_t const& bag, json::JSONFormat format = Compact) {
  std::ostringstream out;
  EXPECT_TRUE(json::save_variant_bag_to_json_string(bag, out, format).is_ok());
  return out.str();
}

variant_bag_t load(std::string const& text) {
  variant_bag_t bag;
  error_code_t const ec = json::load_variant_bag_from_json_string(text, bag);
  EXPECT_TRUE(ec.is_ok()) << text << ": " << ec.as_string();
  return bag;
}

variant_t blob(u64_t size) { return variant_t(static_cast<void const*>(nullptr), size); }

// The JSON text after one more load and save.
std::string again(std::string const& text) { return save(load(text)); }

TEST(JsonShapes, LoadThenSave) {
  // The stable ones keep their full form where {"":1}, {"arrayOf":null} or a value beside a
  // child of the same name would read back as something else.
  std::pair<char const*, char const*> const cases[] = {
      {"42", nullptr}, {"\"t\"", nullptr}, {"1.5", nullptr}, {"[]", nullptr}, {"null", nullptr},
      {"[1,\"a\",null,[2],{\"x\":1}]", nullptr}, {R"({"":{}})", nullptr},
      {R"({"k":{"":{"":1}}})", nullptr}, {R"({"arrayOf":{},"a":{"arrayOf":{"":2}}})", nullptr},
      {R"({"n":1,"n":{}})", nullptr},
      {R"({"n":{"value":"9007199254740991","type":"bigInt"},"n":{},"n":[]})", nullptr},
      // Elements of one array of different sizes, each after one sized otherwise.
      {R"([{"a":1,"b":2,"c":3,"d":4,"e":5},{"x":1},{"a":1,"b":2,"c":3,"d":4,"e":5,"f":6,"g":7,"h":8,"i":9}])",
       nullptr},
      {R"({"o":{},"e":null})", R"({"e":null,"o":null})"},  // a null child joins the values
      {R"({"v":1,"v":2,"n":{"x":1},"n":{"x":2}})", R"({"v":2,"n":{"x":1},"n":{"x":2}})"},
      // After an "arrayOf" member, the object's scalars are elements named by it.
      {R"({"a":1,"arrayOf":"row","b":2,"c":{"d":3}})", R"([2,{"d":3}])"},
      {R"({"a":"\ud83d\ude00\u00e9\/","b":"x\u0000y","c\u0000d":1})",
       "{\"a\":\"\xF0\x9F\x98\x80\xC3\xA9/\",\"b\":\"x\",\"c\":1}"},
      {R"({"s":"abcdefgh\u0000ij","abcdef\u0000gh":1})", R"({"s":"abcdefgh","abcdef":1})"}};
  for (auto const& [text, saved] : cases) EXPECT_EQ(again(text), saved ? saved : text);

  EXPECT_EQ(load("null").get<variant_t>(L"")->get_type(), vtNull);
  variant_bag_t const empty_array = load("[]");
  EXPECT_EQ(empty_array.count<variant_t>(nullptr), 1u);
  EXPECT_EQ(std::wstring(empty_array.get<variant_t>(L"arrayOf")->get<const wchar_t*>()), L"item");
  variant_bag_t const scalars = load("[1,2]");
  EXPECT_EQ(scalars.count<variant_bag_t>(L"item"), 2u);
  EXPECT_EQ(*scalars.get<variant_bag_t>(L"item")->get<variant_t>(L""), variant_t(1u));
  EXPECT_TRUE(load(R"({"o":{}})").get<variant_bag_t>(L"o")->is_empty());
  variant_bag_t const pair = load(R"({"a":"\ud83d\ude00"})");
  EXPECT_EQ(std::wstring(pair.get<variant_t>(L"a")->get<const wchar_t*>()), L"\U0001F600");
}

TEST(JsonShapes, WhatTheWriterMakesOfBags) {
  EXPECT_EQ(save(variant_bag_t()), "null");
  variant_bag_t bag;
  bag.add<variant_t>(L"a", variant_t(1));
  bag.add<variant_t>(L"a", variant_t(2));
  bag.add_variant_bag(L"b", variant_bag_t()).add<variant_t>(L"c", variant_t(L"text"));
  bag.add_variant_bag(L"e", variant_bag_t());
  variant_bag_t& d = bag.add_variant_bag(L"d", variant_bag_t());
  d.add<variant_t>(L"arrayOf", variant_t(L"e"));
  d.add_variant_bag(L"e", variant_bag_t()).add<variant_t>(L"", variant_t(L"x"));
  d.add_variant_bag(L"e", variant_bag_t()).add<variant_t>(L"f", variant_t(false));
  d.add_variant_bag(L"other", variant_bag_t());
  d.add<variant_t>(L"skipped", variant_t(1));
  EXPECT_EQ(save(bag), R"({"a":1,"a":2,"e":null,"b":{"c":"text"},"d":["x",{"f":false}]})");
  // "arrayOf" that holds no text gives no elements.
  variant_bag_t odd;
  odd.add<variant_t>(L"arrayOf", variant_t(5));
  odd.add_variant_bag(L"item", variant_bag_t());
  EXPECT_EQ(save(odd), "[]");
  // Wide text that is no Unicode is written as U+FFFD.
  odd = variant_bag_t();
  std::wstring const lone{L'a', static_cast<wchar_t>(0xD800), L'b'};
  odd.add<variant_t>(L"s", variant_t(lone.c_str()));
  EXPECT_EQ(save(odd), "{\"s\":\"a\xEF\xBF\xBD" "b\"}");
  // Hidden entries never count, however they came: a bag of "" beside a hidden value is
  // that scalar, one whose only child was renamed hidden is null.
  variant_bag_t hidden;
  variant_bag_t& scalar = hidden.add_variant_bag(L"s", variant_bag_t());
  scalar.add<variant_t>(L"#note", variant_t(1));
  scalar.add<variant_t>(L"", variant_t(L"v"));
  hidden.add_variant_bag(L"n", variant_bag_t())
      .add_variant_bag(L"c", variant_bag_t())
      .rename(L"#c");
  EXPECT_EQ(save(hidden), R"({"s":"v","n":null})");
  EXPECT_TRUE(hidden.get<variant_bag_t>(L"n")->is_empty());
  EXPECT_TRUE(hidden.get<variant_bag_t>(L"n")->begin<variant_bag_t>().at_end());
  hidden.get<variant_bag_t>(L"n")->get<variant_bag_t>(L"#c")->rename(L"c");
  EXPECT_EQ(save(hidden), R"({"s":"v","n":{"c":null}})");
}

// The exact bytes of escapes, of raw UTF-8 beside them, of doubles, and of the readable
// form, so that a change of the writer shows at once.
TEST(JsonBytes, EscapesDoublesAndTheReadableForm) {
  std::wstring text;
  for (wchar_t c = 1; c < 0x20; ++c) text += c;
  text += L"\x7f\"\\/\u2028\u2029\u00e9\uffff\U00010000\U0010FFFF";
  for (wchar_t bad : {0xDC00, 0x110000, -1}) text += static_cast<wchar_t>(bad);
  std::string const escaped =
      "\"\\u0001\\u0002\\u0003\\u0004\\u0005\\u0006\\u0007\\b\\t\\n\\u000B\\f\\r\\u000E\\u000F"
      "\\u0010\\u0011\\u0012\\u0013\\u0014\\u0015\\u0016\\u0017\\u0018\\u0019\\u001A\\u001B"
      "\\u001C\\u001D\\u001E\\u001F\x7F\\\"\\\\/\xE2\x80\xA8\xE2\x80\xA9\xC3\xA9\xEF\xBF\xBF"
      "\xF0\x90\x80\x80\xF4\x8F\xBF\xBF\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\"";
  variant_bag_t strings;
  strings.add<variant_t>(text.c_str(), variant_t(text.c_str()));
  EXPECT_EQ(save(strings), "{" + escaped + ":" + escaped + "}");
  // Every ASCII character, at every place among plain ones, reads back as it was.
  for (wchar_t c = 1; c < 0x80; ++c) {
    for (std::size_t at = c == L'#' ? 1 : 0; at <= 8; ++at) {
      std::wstring plain = L"abcdefgh";
      plain.insert(at, 1, c);
      variant_bag_t one;
      one.add<variant_t>(plain.c_str(), variant_t(plain.c_str()));
      variant_bag_t const loaded = load(save(one));
      variant_t const* back = loaded.get<variant_t>(plain.c_str());
      ASSERT_NE(back, nullptr) << static_cast<int>(c) << " at " << at;
      EXPECT_EQ(std::wstring(back->get<const wchar_t*>()), plain);
    }
  }

  variant_bag_t doubles;
  for (double d : {0.1, 1.0, -0.0, 1e21, 1e-7, 123456.789, 5e-324, 1.7976931348623157e308, 1e-6,
                   2.5e-5}) {
    doubles.add<variant_t>(L"d", variant_t(d));
  }
  doubles.add<variant_t>(L"f", variant_t(3.3f));
  EXPECT_EQ(save(doubles),
            R"({"d":0.1,"d":1.0,"d":-0.0,"d":1e21,"d":1e-7,"d":123456.789,"d":5e-324,)"
            R"("d":1.7976931348623157e308,"d":0.000001,"d":0.000025,"f":3.299999952316284})");

  std::string const pretty = save(
      load(R"({"a":[1,[],{},{"b":"c"}],"o":{"y":{"z":[[]]}},"n":{},"q":{"":{}},)"
           R"("big":{"value":"9007199254740993","type":"bigInt"},"k\"":-1.5})"),
      Pretty);
  EXPECT_EQ(pretty, R"({
    "k\"": -1.5,
    "n": null,
    "a": [
        1,
        [],
        null,
        {
            "b": "c"
        }
    ],
    "o": {
        "y": {
            "z": [
                []
            ]
        }
    },
    "q": {
        "": {}
    },
    "big": {
        "value": "9007199254740993",
        "type": "bigInt"
    }
})");
  EXPECT_EQ(save(load("[{}]"), Pretty), "[\n    null\n]");
  EXPECT_EQ(save(load("\"s\""), Pretty), "\"s\"");

  // A text many times the printer's buffer reaches the stream whole: no character or
  // escape is cut where the buffer is handed over (the wide form prints in one buffer).
  variant_bag_t large;
  for (int i = 0; i < 4000; ++i) {
    std::wstring const value = L"\u00e9\U00010000\"\n" + std::to_wstring(i) + L"\x1f";
    large.add<variant_t>(L"k\u65e5", variant_t(value.c_str()));
  }
  large.add<variant_t>(L"long", variant_t(std::wstring(100000, L'\u00e9').c_str()));
  for (json::JSONFormat format : {Compact, Pretty}) {
    std::wstring wide;
    ASSERT_TRUE(json::save_variant_bag_to_json_string(large, wide, format).is_ok());
    EXPECT_EQ(save(large, format), KESMET_2_18::strings::utf16_to_utf8(wide));
  }
}

TEST(JsonNumbers, ExactIntegerBoundsAndBigIntegers) {
  s64_t const bound = 0x1FFFFFFFFFFFFF;
  std::pair<variant_t, char const*> const cases[] = {
      {variant_t(bound - 1), "9007199254740990"},
      {variant_t(bound), R"({"value":"9007199254740991","type":"bigInt"})"},
      {variant_t(-bound + 1), "-9007199254740990"},
      {variant_t(-bound), R"({"value":"-9007199254740991","type":"bigInt"})"},
      {variant_t(std::numeric_limits<s64_t>::min()),
       R"({"value":"-9223372036854775808","type":"bigInt"})"},
      {variant_t(static_cast<u64_t>(bound - 1)), "9007199254740990"},
      {variant_t(static_cast<u64_t>(bound)), R"({"value":"9007199254740991","type":"bigInt"})"},
      {variant_t(std::numeric_limits<u64_t>::max()),
       R"({"value":"18446744073709551615","type":"bigInt"})"}};
  for (auto const& [value, text] : cases) {
    variant_bag_t bag;
    bag.add<variant_t>(L"n", value);
    EXPECT_EQ(save(bag), std::string(R"({"n":)") + text + "}");
  }

  // Reading: the smallest type of the table that holds the number.
  variant_bag_t const n = load(
      R"({"u":5,"s":-5,"u64":5000000000,"s64":-5000000000,"d":1.5,"e":1e2,"over":18446744073709551616,"max":18446744073709551615,"z":0e-30,"nz":-0.0e99,"tiny":1e-400})");
  std::pair<wchar_t const*, das_variant_type_t> const types[] = {
      {L"u", vtUInt},   {L"s", vtSInt},   {L"u64", vtUInt64},   {L"s64", vtSInt64},
      {L"d", vtDouble}, {L"e", vtDouble}, {L"over", vtDouble}};
  for (auto const& [name, type] : types) {
    EXPECT_EQ(n.get<variant_t>(name)->get_type(), type) << name;
  }
  EXPECT_EQ(*n.get<variant_t>(L"max"), variant_t(std::numeric_limits<u64_t>::max()));
  for (wchar_t const* zero : {L"z", L"nz", L"tiny"}) EXPECT_EQ(*n.get<variant_t>(zero), variant_t(0.0));
  EXPECT_TRUE(std::signbit(n.get<variant_t>(L"nz")->get<double>()));
  // Correctly rounded: RapidJSON's own conversion of this one is a unit in the last
  // place off.
  EXPECT_EQ(load(R"({"x":930.23445853463659930e-14})").get<variant_t>(L"x")->get<double>(),
            9.3023445853463653e-12);
}

TEST(JsonRoundTrip, EveryWritableTypeBothForms) {
  std::pair<wchar_t const*, variant_t> const values[] = {
      {L"bool", variant_t(true)}, {L"sbyte", variant_t(static_cast<signed char>(-8))},
      {L"ubyte", variant_t(static_cast<unsigned char>(200))},
      {L"sshort", variant_t(static_cast<short>(-300))},
      {L"ushort", variant_t(static_cast<unsigned short>(60000))},
      {L"sint", variant_t(std::numeric_limits<int>::min())},
      {L"uint", variant_t(std::numeric_limits<unsigned>::max())},
      {L"sint64", variant_t(static_cast<s64_t>(-1234567890123))},
      {L"uint64", variant_t(static_cast<u64_t>(1234567890123))}, {L"float", variant_t(0.1f)},
      {L"double", variant_t(std::numeric_limits<double>::max())},
      {L"tiny", variant_t(std::numeric_limits<double>::denorm_min())},
      {L"text", variant_t(L"quote \" slash \\ tab \t nl \n \u00e9 \u65e5 \U0001F600")},
      {L"by_ref", variant_t(L"ref", true)}, {L"control", variant_t(L"\x01\x1f")}, {L"null", variant_t()}};
  variant_bag_t bag;
  for (auto const& [name, value] : values) bag.add<variant_t>(name, value);
  variant_bag_t& child = bag.add_variant_bag(L"child", variant_bag_t());
  child.add<variant_t>(L"\U0001F600 key", variant_t(L"\U00010000\U0010FFFF"));
  child.add_variant_bag(L"", variant_bag_t()).add<variant_t>(L"deep", variant_t(1));

  std::string const compact = save(bag, Compact);
  std::string const pretty = save(bag, Pretty);
  EXPECT_NE(pretty.find("\n    \"bool\": true"), std::string::npos) << pretty;
  EXPECT_NE(compact.find("\xF0\x9F\x98\x80"), std::string::npos);  // raw UTF-8, no escape
  variant_bag_t const from_compact = load(compact);
  EXPECT_EQ(from_compact, bag) << compact;
  EXPECT_EQ(load(pretty), from_compact);
  EXPECT_EQ(save(from_compact), compact);
  EXPECT_EQ(*from_compact.get<variant_t>(L"float"), variant_t(static_cast<double>(0.1f)));

  // The wide forms carry the same text.
  std::wstring wide;
  EXPECT_TRUE(json::save_variant_bag_to_json_string(bag, wide, Compact).is_ok());
  EXPECT_EQ(wide, KESMET_2_18::strings::utf8_to_utf16(compact));
  EXPECT_EQ(json::variant_bag_to_json_string(bag, Pretty), KESMET_2_18::strings::utf8_to_utf16(pretty));
  variant_bag_t from_wide;
  EXPECT_TRUE(json::load_variant_bag_from_json_string(wide, from_wide).is_ok());
  EXPECT_EQ(from_wide, bag);
}

// Collects the messages logged on "QUILLON".
class log_capture_t : public log4cplus::Appender {
 public:
  ~log_capture_t() override { destructorImpl(); }
  void close() override {}
  std::vector<std::string> lines;

 protected:
  void append(log4cplus::spi::InternalLoggingEvent const& event) override {
    lines.push_back(event.getMessage());
  }
};

TEST(JsonUnwritable, LeftOutWithTheirKeysAndLogged) {
  json::variant_bag_to_json_string(variant_bag_t());  // the library's logging is set up
  log4cplus::SharedAppenderPtr appender(new log_capture_t());
  auto& capture = static_cast<log_capture_t&>(*appender);
  log4cplus::Logger logger = log4cplus::Logger::getInstance("QUILLON");
  logger.addAppender(appender);

  variant_bag_t bag;
  bag.add<variant_t>(L"blob", variant_t(static_cast<void const*>("ab"), 2));
  bag.add<variant_t>(L"nan", variant_t(std::nan("")));
  bag.add<variant_t>(L"inf", variant_t(-std::numeric_limits<double>::infinity()));
  bag.add_variant_bag(L"wrapped", variant_bag_t()).add<variant_t>(L"", blob(1));
  bag.add<variant_t>(L"last", variant_t(1));
  EXPECT_EQ(save(bag), R"({"nan":null,"inf":null,"last":1})");
  variant_bag_t blob_root;
  blob_root.add<variant_t>(L"", blob(3));
  EXPECT_EQ(save(blob_root), "null");
  variant_bag_t blob_items;
  blob_items.add<variant_t>(L"arrayOf", variant_t(L"item"));
  blob_items.add_variant_bag(L"item", variant_bag_t()).add<variant_t>(L"", blob(3));
  blob_items.add_variant_bag(L"item", variant_bag_t()).add<variant_t>(L"", variant_t(2));
  EXPECT_EQ(save(blob_items), "[2]");

  logger.removeAppender(appender);
  ASSERT_EQ(capture.lines.size(), 4u);
  EXPECT_EQ(capture.lines[0].rfind("JSON serialization for variant type 16 is not supported., at file: ", 0), 0u)
      << capture.lines[0];

  // Narrow text is reported and written as the empty text.
  q2test::assert_recorder_t recorder;
  variant_bag_t narrow;
  narrow.add<variant_t>(L"n", variant_t("narrow"));
  EXPECT_EQ(save(narrow), R"({"n":""})");
  EXPECT_TRUE(recorder.saw("can_get<const wchar_t*>()"));
}

TEST(JsonLoad, TargetMustBeEmptyAndStaysUnchangedOnFailure) {
  variant_bag_t full;
  full.add<variant_t>(L"x", variant_t(1));
  error_code_t ec = json::load_variant_bag_from_json_string(std::string("{}"), full);
  ASSERT_TRUE(ec.failed());
  EXPECT_TRUE(ec == error::IsNot.Valid.Argument);
  EXPECT_EQ(ec.pass()->text, "Expected empty variant bag");
  EXPECT_EQ(full.count<variant_t>(nullptr), 1u);

  // A linked child with only its name counts as empty: it keeps its name and parent.
  variant_bag_t parent;
  variant_bag_t& child = parent.add_variant_bag(L"child", variant_bag_t());
  ec = json::load_variant_bag_from_json_string(std::string(R"({"a":[1,{"b":2}])"), child);
  ASSERT_TRUE(ec.failed());
  EXPECT_EQ(ec.pass()->text, "JSON deserialization error at position 16: Missing a comma or '}' after an object member.");
  EXPECT_TRUE(child.is_empty());
  ASSERT_TRUE(json::load_variant_bag_from_json_string(std::string(R"({"a":[1,{"b":2}]}  )"), child).is_ok());
  EXPECT_EQ(std::wstring(child.get_name()), L"child");
  EXPECT_EQ(child.get_parent(), &parent);
  variant_bag_t* const a = child.get<variant_bag_t>(L"a");
  ASSERT_NE(a, nullptr);
  EXPECT_EQ(a->get_parent(), &child);
  EXPECT_EQ(save(parent), R"({"child":{"a":[1,{"b":2}]}})");
}

// A loaded document's entries outlive the load and may be removed, renamed and destroyed
// in any order, on another thread.
TEST(JsonLoad, LoadedEntriesLiveOnTheirOwn) {
  std::string text = "{";
  for (int i = 0; i < 5000; ++i) {
    text += "\"k" + std::to_string(i) + "\":{\"v\":" + std::to_string(i) + "},";
  }
  text += "\"last\":\"" + std::string(100000, 'x') + "\"}";
  auto bag = std::make_unique<variant_bag_t>(load(text));
  std::thread([&bag] {
    for (int i = 0; i < 5000; i += 2) {
      bag->remove<variant_bag_t>((L"k" + std::to_wstring(i)).c_str());
    }
    bag->get<variant_bag_t>(L"k1")->rename(L"a much longer name than the one it had");
    variant_bag_t kept = *bag->get<variant_bag_t>(L"k4999");
    variant_bag_t taken;  // the loaded lists and nodes themselves, out of the loaded bag
    taken.swap(*bag->get<variant_bag_t>(L"k4001"));
    bag.reset();
    EXPECT_EQ(*kept.get<variant_t>(L"v"), variant_t(4999u));
    EXPECT_EQ(*taken.get<variant_t>(L"v"), variant_t(4001u));
  }).join();
}

TEST(JsonDepth, NestingIsBoundedAndDeepBagsWrite) {
  auto nested = [](std::size_t levels) { return std::string(levels, '[') + std::string(levels, ']'); };
  EXPECT_EQ(again(nested(1000)), nested(1000));
  variant_bag_t bag;  // far deeper than the stack could recurse
  EXPECT_TRUE(json::load_variant_bag_from_json_string(nested(200000), bag).failed());
  variant_bag_t deep;
  variant_bag_t* at = &deep;
  for (int i = 0; i < 10000; ++i) at = &at->add_variant_bag(L"d", variant_bag_t());
  at->add<variant_t>(L"v", variant_t(1));
  std::string const text = save(deep);
  EXPECT_EQ(text.size(), 10000 * 5 + 7 + 10000u);
}

// Records the events of the walker.
class event_log_t : public json::IJSONWriter {
 public:
  std::string events;
  bool Null() override { return add("n"); }
  bool Bool(bool v) override { return add(v ? "t" : "f"); }
  bool Int(int v) override { return add("i" + std::to_string(v)); }
  bool Uint(unsigned v) override { return add("u" + std::to_string(v)); }
  bool Int64(s64_t v) override { return add("I" + std::to_string(v)); }
  bool Uint64(u64_t v) override { return add("U" + std::to_string(v)); }
  bool Double(double) override { return add("d"); }
  bool String(std::string const& v) override { return add("s" + v); }
  bool Key(std::string const& v) override { return add("k" + v); }
  bool StartObject() override { return add("{"); }
  bool EndObject() override { return add("}"); }
  bool StartArray() override { return add("["); }
  bool EndArray() override { return add("]"); }

 private:
  bool add(std::string const& e) {
    events += e + " ";
    return true;
  }
};

TEST(JsonInterfaces, WalkerEventsAndDomHelpers) {
  variant_bag_t const bag =
      load(R"({"a":-1,"b":[3000000000,-3000000000,2.5],"c":{"":"x"}})");
  event_log_t log;
  json::write_variant_bag(bag, log);
  EXPECT_EQ(log.events, "{ ka i-1 kc sx kb [ u3000000000 I-3000000000 d ] } ");

  rapidjson::GenericDocument<rapidjson::UTF32<wchar_t>> doc;
  doc.SetObject();
  std::wstring name = L"k\U0001F600";
  std::wstring value = L"v\"";
  json::wide_value_t& same = json::addStringMember(doc, name, value, doc.GetAllocator());
  EXPECT_EQ(&same, &doc);
  name.assign(L"gone");
  value.assign(L"gone");
  EXPECT_EQ(json::rapidJsonValueToString(doc), L"{\"k\U0001F600\":\"v\\\"\"}");
  q2test::assert_recorder_t recorder;
  json::wide_value_t number(5);
  json::addStringMember(number, L"a", L"b", doc.GetAllocator());
  EXPECT_TRUE(recorder.saw("object.IsObject()"));
  EXPECT_EQ(json::rapidJsonValueToString(number), L"5");
}

}  // namespace
