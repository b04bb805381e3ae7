// A tour of quillon2's main roads. Each section shows one capability as a client would
// use it; run it with scripts/demo.
#include <iostream>
#include <string>
#include <thread>
#include <vector>

#include <quillon2/quillon2.hpp>

namespace q2 = quillon2;

namespace {

void section(char const* title) { std::cout << "\n== " << title << "\n"; }

// Text: UTF-8 and wide text convert without ever failing; case mapping does not depend
// on the process locale; code pages go through iconv; numbers parse and print.
void text_layer() {
  section("text layer");
  std::wstring const name = kesmet2::utf8_to_utf16("Stra\xC3\x9F" "e M\xC3\xBCller");
  std::cout << "upper case: " << kesmet2::utf16_to_utf8(kesmet2::to_upper(name)) << "\n";
  kesmet2::code_page const cp1252("CP1252");
  std::cout << "the euro sign and \" 5\" take " << cp1252.encode("\xE2\x82\xAC 5").size()
            << " bytes in CP1252\n";
  std::string const number = "-42";
  std::cout << "parsed: " << kesmet2::generic::convert::str_to_int32(number.c_str(), number.size())
            << "\n";
}

// Environment values are read once, remembered and counted.
void environment() {
  section("environment");
  q2::set_environ_value(L"DEMO_VALUE", L"\u00E9t\u00E9");
  q2::get_environ_value(L"DEMO_VALUE");
  std::wstring const value = q2::get_environ_value(L"DEMO_VALUE");
  struct printer_t : q2::environ_value_callback_t {
    bool on_value(wchar_t const* name, wchar_t const* value, unsigned reads) override {
      std::cout << kesmet2::utf16_to_utf8(name) << " = " << kesmet2::utf16_to_utf8(value)
                << " (read " << reads << " times)\n";
      return true;
    }
  } printer;
  q2::iterate_environ_values(printer);
}

// Errors read as sentences, chain their causes and travel between threads.
q2::error_code_t open_settings(std::wstring const& name) {
  return QUILLON_RAISE(q2::error::FailedTo.Open.The.File(name));
}
q2::error_code_t load_settings() {
  q2::error_code_t const result = open_settings(L"settings.xml");
  if (result.failed()) return QUILLON_TRANSLATE(result, q2::error::FailedTo.Read.Full.Data);
  return result;
}
void errors() {
  section("error codes");
  q2::error_code_t const result = load_settings();
  std::cout << result.as_string(1) << "\n";
  q2::error::container_t carried;
  carried.set(result);
  std::thread([&carried] {
    std::cout << "on another thread: " << carried.get().as_string(1) << "\n";
  }).join();
  std::cout << "Ok prints " << q2::error_code_t().as_string(1) << ", False prints "
            << q2::error_code_t::False().as_string(1) << "\n";
}

// Counted objects live in the pool and die with their last sptr_t.
struct greeting_t : q2::object_interface_t {
  virtual std::string text() const = 0;
};
struct hello_t : greeting_t {
  std::string text() const override { return "hello from a counted object"; }
};
void objects() {
  section("counted objects, pool and iterators");
  q2::sptr_t<greeting_t> greeting(new q2::ref_counted_t<hello_t>());
  q2::sptr_t<greeting_t> copy = greeting;
  std::cout << copy->text() << "\n";
  void* block = q2::alloc::pool_allocate(24);
  q2::alloc::pool_deallocate(block, 24);

  auto it = q2::iterutil::make_owned_iterator_from<std::wstring>(
      std::vector<std::wstring>{L"one", L"two", L"three"});
  for (; !it.at_end(); it.next()) std::cout << kesmet2::utf16_to_utf8(it.current()) << " ";
  std::cout << "\nphysical memory: " << (q2::getPhysicalMemorySize() >> 20) << " MiB, host "
            << kesmet2::utf16_to_utf8(q2::get_fq_host_name()) << "\n";
}

// Values and bags: named values and child bags in insertion order, dotted paths,
// overlays of one bag on another.
void values_and_bags() {
  section("variants and bags");
  q2::variant_bag_t settings;
  settings.put(L"title", q2::variant_t(L"quillon2 demo"));
  q2::variant_bag_t& window = settings.add_variant_bag(L"window", q2::variant_bag_t());
  window.put(L"width", q2::variant_t(800));
  window.put(L"height", q2::variant_t(600));

  q2::path_accessor_t path(settings);
  int const width = path.get_variant(L"window.width", q2::variant_t(0)).get<q2::s32_t>();
  q2::variant_bag_t user;
  user.add_variant_bag(L"window", q2::variant_bag_t()).put(L"width", q2::variant_t(1024));
  q2::merge(settings, user);
  for (auto it = window.begin<q2::variant_t>(); !it.at_end(); it.next())
    std::cout << kesmet2::utf16_to_utf8(it.get_name()) << " = " << it.get_value().get<q2::s64_t>()
              << "\n";
  std::cout << "width was " << width << " before the overlay\n";
}

}  // namespace

int main() {
  // Logging goes to standard error unless QUILLON_LOG_CONFIG names a properties file.
  hollin_1::log::configureComponentLogger(L"QUILLON");
  std::cout << "quillon2 demo\n";
  text_layer();
  environment();
  errors();
  objects();
  values_and_bags();
  return 0;
}
