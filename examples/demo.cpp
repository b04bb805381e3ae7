// A tour of quillon2's main roads. Each section shows one capability as a client would
// use it; run it with scripts/demo.
#include <future>
#include <iostream>
#include <string>
#include <thread>
#include <vector>

#include <boost/make_shared.hpp>

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

// Tasks, stages and units: a stage runs on a pool worker, which then reports that the
// stage has completed.
void units() {
  section("signals, tasks and units");
  namespace qt = q2::threading;
  struct listener_t : q2::_internal::subscriber_base_t {
    std::promise<void> finished;
    void work(boost::shared_ptr<qt::task_t> task) {
      std::cout << task->get_display_name() << " runs on " << qt::get_thread_name() << "\n";
    }
    void completed(boost::shared_ptr<qt::task_t>) { finished.set_value(); }
  } listener;
  auto finished = listener.finished.get_future();

  qt::thread_pool_unit_t pool(2);  // workers start on demand
  pool.stage_completed.connect(&listener, &listener_t::completed);
  qt::stage_t::signal_type work;
  work.connect(&listener, &listener_t::work);
  auto task = boost::make_shared<qt::default_task_t>();
  task->set_display_name("greeting");
  if (pool.execute(task, boost::make_shared<qt::stage_t>(qt::unit_service, work)) == qt::seOk) {
    finished.wait();
  }
  pool.terminate();
}

// Bags go to XML and back; values compute and print with their types.
void bags_as_xml() {
  section("bags as XML, value arithmetic");
  q2::variant_bag_t bag;
  bag.add<q2::variant_t>(L"count", q2::variant_t(5));
  bag.add<q2::variant_t>(L"title", q2::variant_t(L"Stra\u00DFe & Co"));
  bag.add<q2::variant_t>(L"data", q2::variant_t(static_cast<void const*>("\x01\x02"), 2));
  q2::variant_bag_t child;
  child.add<q2::variant_t>(L"id", q2::variant_t(L"1"));
  bag.add_variant_bag(L"child", child);

  q2::variant_t text;
  if (q2::save_variant_bag_to_string(bag, &text) != 1) return;
  std::cout << kesmet2::utf16_to_utf8(text.get<wchar_t const*>());

  q2::variant_bag_t loaded;
  if (q2::load_variant_bag_from_string(loaded, text) != 1) return;
  q2::variant_t const count = loaded.get_variant(L"count", q2::variant_t());
  std::cout << "count: " << count << "; plus 2.5: "
            << q2::variant_add(count, q2::variant_t(2.5), L"") << "\n";
  q2::debug_print_variant_bag(loaded, true, L">");
}

// The attribute form: each value is an attribute whose namespace prefix says its type.
// The same text can be read into a bag, or into a visitor of one's own that sees the
// document as events without building anything.
void bags_as_attributes() {
  section("bags as XML, attribute form; visitors");
  q2::variant_bag_t settings;
  settings.add<q2::variant_t>(L"width", q2::variant_t(640));
  settings.add<q2::variant_t>(L"ratio", q2::variant_t(0.75));
  settings.add<q2::variant_t>(L"title", q2::variant_t(L"Stra\u00DFe & Co"));
  q2::variant_bag_t recent;
  recent.add<q2::variant_t>(L"file", q2::variant_t(L"a.txt"));
  settings.add_variant_bag(L"recent", recent);

  kesmet2::ustring8 xml;
  if (q2::save_variant_bag_to_string2(settings, xml, L"project.settings") != 1) return;
  std::cout << xml;

  q2::variant_bag_t loaded;
  if (q2::load_variant_bag_from_string2(loaded, xml, L"project.settings") != 1) return;
  // The values come back typed, in the order of their attributes (by prefix, then name).
  q2::debug_print_variant_bag(loaded, true, L"loaded ");

  // A visitor of our own: counts what it sees, keeps nothing.
  struct counter_t : q2::variant_bag_visitor_t {
    int bags = 0;
    int values = 0;
    bool on_start_variant_bag(char const*) override { return ++bags, true; }
    bool on_end_variant_bag() override { return true; }
    bool on_start_pointer(char const*, char const*, char const*) override { return true; }
    bool on_end_pointer() override { return true; }
    bool on_variant(char const*, q2::variant_t const&) override { return ++values, true; }
  };
  q2::sptr_t<counter_t> counter(new q2::ref_counted_t<counter_t>());
  q2::read_xml_to_visitor(xml.c_str(), counter.get(), "project.settings");
  std::cout << "a visitor saw " << counter->bags << " bag and " << counter->values
            << " values\n";
}

// XPath over a bag: mirror it once, ask several questions, get the bag's own entries back.
void xpath_over_bags() {
  section("XPath over bags");
  q2::variant_bag_t shelf;
  for (int i = 1; i <= 3; ++i) {
    q2::variant_bag_t& book = shelf.add_variant_bag(L"book", q2::variant_bag_t());
    book.add<q2::variant_t>(L"year", q2::variant_t(1990 + 10 * i));
    book.add<q2::variant_t>(L"", q2::variant_t((L"Title " + std::to_wstring(i)).c_str()));
  }
  auto const xp = q2::variant_bag_xpath(shelf, L"shelf");
  for (q2::variant_bag_t* book : xp.select(L"/shelf/book[@year > 2005]").get_nodes()) {
    book->put<q2::variant_t>(L"recent", q2::variant_t(true));  // the bag's own child
  }
  std::cout << "books: " << xp.select(L"count(//book)").get_value().get<double>()
            << ", first title: "
            << kesmet2::utf16_to_utf8(
                   xp.select(L"string(/shelf/book[1])").get_value().get<wchar_t const*>())
            << ", bad query error: " << xp.select(L"/shelf[").get_error() << "\n";
  q2::sptr_t<q2::variant_bag_generic_tree_t> view(
      new q2::ref_counted_t<q2::variant_bag_generic_tree_t>());
  view->init(shelf);
  // find gives the view of a descendant; its location path selects it again.
  auto const first = view->find(shelf.get<q2::variant_bag_t>(L"book"));
  std::cout << "found " << kesmet2::utf16_to_utf8(first->get_xpath().get<wchar_t const*>()) << "\n";
  for (auto children = view->get_children(); !children.at_end(); children.next()) {
    std::cout << kesmet2::utf16_to_utf8(children.current()->get_xpath().get<wchar_t const*>())
              << (children.current()->get_value().has<q2::variant_t>(L"recent") ? " (recent)" : "")
              << "\n";
  }
}

// Help texts in a little HTML become console text; hyphenated option names match by
// the prefixes of their words.
void text_helpers() {
  section("text helpers");
  std::wstring const help =
      L"<p>Run <strong>once</strong>.</p><ul><li>see <a href='run.html' cli='run --help'>"
      L"Running</a></li></ul>";
  std::cout << kesmet2::utf16_to_utf8(q2::removeHtmlMarkupFromText(help));
  std::cout << kesmet2::utf16_to_utf8(q2::escape_regex_chars(L"a.b*c")) << "\n";
  q2::generic_iterator_t<std::wstring> matches;
  int const found = q2::find_best_match(
      q2::iterutil::make_owned_iterator_from<std::wstring>(
          std::vector<std::wstring>{L"start-now", L"start-later", L"stop-now"}),
      L"st-n", matches);
  std::cout << "st-n matches " << found << ":";
  for (; !matches.at_end(); matches.next()) {
    std::cout << " " << kesmet2::utf16_to_utf8(matches.current());
  }
  std::cout << "\n";
}

// Files: one path type, printed with backslashes on every platform and handed to the
// system in its native form; a fresh directory taken atomically; whole text files.
void files() {
  section("paths, files and text content");
  auto utf8 = [](std::wstring const& w) { return kesmet2::utf16_to_utf8(w); };
  std::wstring work;
  if (q2::create_unique_dir(L"/tmp", L"q2demo-@@@@", work) != q2::RC_CREATED) return;
  q2::path_t const dir(work);
  q2::path_t notes = dir;
  notes.append(q2::path_t(L"notes/today.txt"));
  q2::create_directory(q2::path_t(notes.get_branch()));
  q2::set_file_content(L"caf\u00e9 \u65e5\u672c", q2::CP_UTF16, notes);
  std::cout << utf8(notes.as_string()) << " is " << notes.native_string() << " here\n"
            << "relative to the work directory: " << utf8(notes.get_relative(dir).as_string())
            << "\n";
  q2::code_page_t const cp = q2::get_file_cp(notes);
  std::cout << "content (" << (cp == q2::CP_UTF16 ? "UTF-16" : "other") << "): "
            << utf8(q2::get_file_content(cp, notes)) << "\n"
            << q2::find_files(dir, L"*.txt", true).size() << " text file below "
            << utf8(dir.get_leaf()) << "\n";
  q2::remove_directory(dir, true);
}

// The scheduler: a task of two stages ("service", then a 20 ms wait on "delay tasks")
// in a group; an observer hears of its end; cancel_and_wait waits for the group.
void scheduler() {
  section("the scheduler");
  namespace qt = q2::threading;
  struct greeter_t : q2::_internal::subscriber_base_t {
    void greet(boost::shared_ptr<qt::task_t>) { std::cout << "hello from " << qt::get_thread_name() << "\n"; }
  } greeter;
  struct watcher_t : qt::scheduler_status_callback_t {
    void task_completed(boost::shared_ptr<qt::task_t> task) override {
      std::cout << "completed: " << task->get_display_name() << "\n";
    }
  };
  auto scheduler = qt::create_default_scheduler(
      boost::make_shared<watcher_t>(), boost::make_shared<qt::default_scheduler_wait_callback_t>());
  auto task = boost::make_shared<qt::default_task_t>();
  qt::stage_t::signal_type work;
  work.connect(&greeter, &greeter_t::greet);
  task->push_stage(boost::make_shared<qt::stage_t>(qt::unit_service, work));
  task->push_stage(boost::make_shared<qt::stage_t>(qt::unit_delay_tasks, 20));
  task->set_display_name("greeting");
  scheduler->add_task(task, L"demo/greetings");
  scheduler->cancel_and_wait(L"demo", nullptr);
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
  units();
  bags_as_xml();
  bags_as_attributes();
  xpath_over_bags();
  files();
  text_helpers();
  scheduler();
  return 0;
}
