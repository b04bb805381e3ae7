// A tour of quillon2's main roads. Each section shows one capability as a client would
// use it; run it with scripts/demo.
#include <unistd.h>

#include <cstdio>
#include <future>
#include <iostream>
#include <mutex>
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

// JSON: a bag as compact and readable text, arrays by the "arrayOf" convention, and a
// refused text with the offset where reading stopped.
void bags_as_json() {
  section("bags as JSON");
  q2::variant_bag_t config;
  config.add<q2::variant_t>(L"name", q2::variant_t(L"demo \U0001F600"));
  config.add<q2::variant_t>(L"size", q2::variant_t(640));
  config.add<q2::variant_t>(L"big", q2::variant_t(static_cast<q2::u64_t>(1) << 60));
  q2::variant_bag_t& tags = config.add_variant_bag(L"tags", q2::variant_bag_t());
  tags.add<q2::variant_t>(L"arrayOf", q2::variant_t(L"tag"));
  tags.add_variant_bag(L"tag", q2::variant_bag_t()).add<q2::variant_t>(L"", q2::variant_t(L"a"));
  tags.add_variant_bag(L"tag", q2::variant_bag_t()).add<q2::variant_t>(L"", q2::variant_t(L"b"));
  q2::json::save_variant_bag_to_json_string(config, std::cout, q2::json::Compact);
  std::cout << "\n";
  q2::json::save_variant_bag_to_json_string(config, std::cout, q2::json::Pretty);
  std::cout << "\n";

  q2::variant_bag_t loaded;
  if (q2::json::load_variant_bag_from_json_string(std::string(R"({"a":[1,2.5,"x"],"b":null})"),
                                                  loaded)) {
    std::cout << kesmet2::utf16_to_utf8(q2::json::variant_bag_to_json_string(loaded)) << "\n";
  }
  q2::variant_bag_t refused;
  q2::error_code_t const ec =
      q2::json::load_variant_bag_from_json_string(std::string("{\"a\":1,}"), refused);
  std::cout << "refused: " << ec.as_string() << "\n";
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

// XSL: a stylesheet over a bag, with a parameter from a value and an extension function
// of our own; a visitor hears the stylesheet's messages.
void xsl_transformation() {
  section("XSL transformation");
  q2::variant_bag_t order;
  for (int i = 1; i <= 3; ++i) {
    q2::variant_bag_t line;
    line.add<q2::variant_t>(L"item", q2::variant_t((L"part " + std::to_wstring(i)).c_str()));
    line.add<q2::variant_t>(L"price", q2::variant_t(2.5 * i));
    order.add_variant_bag(L"line", line);
  }
  // Called from the stylesheet as exsl:discount(total).
  struct discount_t : q2::xsl_function_base_t {
    double total = 0;
    bool add_argument(q2::variant_bag_t const&) override { return false; }
    bool add_argument(q2::variant_t const& value) override {
      total = value.get<double>();
      return true;
    }
    unsigned get_result_type() override { return 1; }
    void get_result(q2::variant_t& out) override { out = q2::variant_t(total * 0.9); }
    void get_result(q2::variant_bag_t&) override {}
    void get_name(std::wstring& out) override { out = L"discount"; }
    q2::threading::mutex_t* get_mutex() override { return &mutex; }
    q2::threading::mutex_t mutex;
  };
  struct printer_t : q2::xsl_visitor_t {
    void on_start(int, int) override {}
    void on_message(wchar_t const* text) override { std::wcout << L"message: " << text << L"\n"; }
    bool on_progress(int, int) override { return true; }
    void on_finish(bool success) override { std::cout << "finished: " << success << "\n"; }
  } printer;

  auto xsl = q2::xsl_t::create();
  xsl->set_visitor(&printer);
  xsl->add_function(q2::sptr_t<q2::xsl_function_base_t>(new q2::ref_counted_t<discount_t>()));
  xsl->add_parameter(L"customer", q2::variant_t(L"O'Brien"));
  xsl->set_xml(order);
  xsl->set_stylesheet(R"~(<xsl:stylesheet version="1.0"
      xmlns:xsl="http://www.w3.org/1999/XSL/Transform" xmlns:exsl="http://exslt.org/common"
      xmlns:double="urn:quillon2/2001/XMLSchema#double">
    <xsl:output method="text"/>
    <xsl:param name="customer"/>
    <xsl:template match="/bag">
      <xsl:message>pricing <xsl:value-of select="count(line)"/> lines</xsl:message>
      <xsl:for-each select="line"><xsl:value-of select="@item"/>: <xsl:value-of select="@double:price"/>
        <xsl:text>&#10;</xsl:text></xsl:for-each>total for <xsl:value-of select="$customer"/>: <xsl:value-of select="exsl:discount(sum(line/@double:price))"/>
    </xsl:template>
  </xsl:stylesheet>)~");
  kesmet2::ustring8 text;
  if (xsl->transform(text) == 1) std::cout << text;
}

// Configuration: typed values under dotted keys, saved to an XML file beside the user's
// other configuration and read back; every change is announced.
void configuration() {
  section("configuration");
  auto utf8 = [](std::wstring const& w) { return kesmet2::utf16_to_utf8(w); };
  struct watcher_t : q2::_internal::subscriber_base_t {
    void changed(std::wstring const& key, boost::any const&, boost::any const&) {
      std::cout << "changed: " << kesmet2::utf16_to_utf8(key) << "\n";
    }
  } watcher;
  std::wstring work;
  if (q2::create_unique_dir(L"/tmp", L"q2config-@@@@", work) != q2::RC_CREATED) return;
  q2::config_manager_t places(L"/usr/share/demo", L"demo");
  places.override_user_config_folder(q2::path_t(work));
  q2::path_t const file = places.user_config_path(L"gui");

  q2::advanced_xml_config_t config;
  config.m_on_change.connect(&watcher, &watcher_t::changed);
  config.set_value(L"GUI.Panel.Width", 100);
  config.set_value(L"gui.title", L"Fish & Chips");
  config.set_value(L"gui.recent", std::vector<std::wstring>{L"a.txt", L"b <new>.txt"});
  config.save(file);

  q2::advanced_xml_config_t loaded;
  loaded.load(file);
  std::cout << "width " << boost::any_cast<int>(loaded.get_value(L"gui.panel.width", 0))
            << ", title \"" << utf8(boost::any_cast<std::wstring>(loaded.get_value(L"gui.title", std::wstring())))
            << "\"\nuser configuration lives in "
            << q2::stdpaths::get_user_config_dir(L"").native_string() << ", temporary files in "
            << q2::stdpaths::get_temp_dir().native_string() << "\n";
  q2::remove_directory(q2::path_t(work), true);
}

// Child processes: run one with its own environment, capture its output through a
// callback (on a reader thread), and read its exit code.
void child_process() {
  section("child process");
  struct capture_t : q2::process::IPipeReaderCallback {
    std::mutex mutex;
    std::string text;
    q2::error_code_t onRead(char const* data, unsigned size) override {
      std::lock_guard<std::mutex> lock(mutex);
      text.append(data, size);
      return q2::error_code_t();
    }
  };
  q2::sptr_t<capture_t> output(new q2::ref_counted_t<capture_t>());
  auto environment = q2::process::IEnvironment::create(true);
  environment->addLines(L"GREETING=hello, your home is %HOME%", false);
  auto child = q2::process::IProcess::create();
  child->registerReadingCallback(1, output);
  std::vector<std::wstring> arguments{L"-c", L"echo \"$GREETING\"; exit 7"};
  if (child->run(L"sh", q2::iterutil::make_owned_iterator_from<std::wstring>(arguments),
                 environment, nullptr, false, nullptr, false)
          .is_false()) {
    std::cout << "could not start: " << kesmet2::utf16_to_utf8(child->errorText()) << "\n";
    return;
  }
  child->join();
  std::cout << "child said: " << output->text << "exit code: " << child->exitCode() << "\n";
}

// Archives: a small ZIP written and read back through the stream interface, and a
// member seen as one block of memory.
void archives() {
  section("archives and mappings");
  std::wstring work;
  if (q2::create_unique_dir(L"/tmp", L"q2demo-@@@@", work) != q2::RC_CREATED) return;
  q2::path_t zip_path(work);
  zip_path.append(q2::path_t(L"demo.zip"));
  {
    q2::sptr_t<q2::archive_writer_t> zip;
    if (!q2::create_zip_writer(zip_path, zip, false)) return;
    for (std::wstring name : {L"hello.txt", L"gr\u00fc\u00dfe.txt"}) {
      std::string const text = "contents of " + kesmet2::utf16_to_utf8(name) + "\n";
      zip->create_new_stream(name, 0);
      zip->write(text.data(), text.size());
      zip->close();
    }
  }  // the last release writes the central directory
  q2::sptr_t<q2::archive_reader_t> zip;
  if (q2::error_code_t const ec = q2::create_zip_reader(zip_path, zip); !ec) {
    std::cout << ec.as_string() << "\n";
    return;
  }
  for (auto it = zip->enum_streams(); !it.at_end(); it.next()) {
    std::string text(256, '\0');
    q2::u64_t got = 0;
    zip->open_stream(it.current());
    zip->read(text.data(), text.size(), &got);
    zip->close();
    std::cout << kesmet2::utf16_to_utf8(it.current()) << ": " << text.substr(0, got);
  }
  zip->open_stream(L"hello.txt");
  q2::sptr_t<q2::file_mapping_t> block;
  if (q2::create_mapping_on_stream(block, q2::sptr_t<q2::read_stream_t>(zip), 0)) {
    std::cout << "hello.txt as a block of " << block->get_size() << " bytes\n";
  }
  q2::remove_directory(q2::path_t(work), true);
}

// Digests of text and of a file, and a scope timer that prints its line at the end.
void digests() {
  section("digests");
  q2::debugging::time_logger_t timer("digests took (ns):");
  q2::md5_t md5;
  md5.update(std::string("abc"));
  std::cout << "md5(abc) = " << kesmet2::utf16_to_utf8(md5.get_digest_base16()) << "\n"
            << "crc32(L\"abc\") = " << std::hex << q2::generate_hash(std::wstring(L"abc"))
            << std::dec << "\n";
  std::string const file = "/tmp/q2demo-digest.txt";
  if (FILE* f = std::fopen(file.c_str(), "we")) {
    std::fputs("123456789", f);
    std::fclose(f);
    q2::sha1_t sha1;
    if (sha1.update_from_file(q2::make_path(file), 4096))
      std::cout << "sha1(" << file << ") = " << kesmet2::utf16_to_utf8(sha1.get_digest_base16())
                << "\n";
    std::remove(file.c_str());
  }
}

// A system library loaded by name through the system's search, and one of its symbols.
void libraries() {
  section("dynamic libraries");
  q2::shared_lib_t zlib(L"libz.so.1", q2::path_t());
  if (!zlib) {
    std::cout << "libz.so.1 did not load: " << kesmet2::utf16_to_utf8(zlib.get_error_text()) << "\n";
    return;
  }
  auto version = reinterpret_cast<char const* (*)()>(zlib.get_symbol(L"zlibVersion"));
  std::cout << "zlib " << (version != nullptr ? version() : "?") << " through shared_lib_t\n";
  q2::shared_lib_t missing(L"no-such-plugin", q2::path_t(L"/tmp"));
  std::cout << "a missing plugin: status " << missing.get_error_status() << " ("
            << kesmet2::utf16_to_utf8(missing.get_error_text()) << ")\n";
}

// This process in the system's process list, and what kind of file its program is.
void system_information() {
  section("system information");
  q2::generic_iterator_t<q2::sptr_t<q2::process_t>> list;
  if (!q2::process_t::get_process_list(list)) return;
  std::size_t count = 0;
  for (; !list.at_end(); list.next(), ++count) {
    auto const process = list.current();
    if (process->get_value(q2::process_t::ppProcessId).get<unsigned>() != static_cast<unsigned>(::getpid()))
      continue;
    q2::variant_t const name = process->get_value(q2::process_t::ppExeName);
    q2::variant_t const user = process->get_value(q2::process_t::ppUser);
    std::cout << "this process: " << kesmet2::utf16_to_utf8(name.get<wchar_t const*>()) << ", "
              << process->get_value(q2::process_t::ppThreadCount).get<unsigned>() << " thread(s), owner "
              << (user.get_type() == q2::vtWString ? kesmet2::utf16_to_utf8(user.get<wchar_t const*>()) : "?")
              << "\n";
  }
  std::cout << count << " processes in the snapshot\n";
  q2::exec_file_info_t kind;
  q2::get_executable_file_info(q2::path_t(L"/bin/sh"), kind);
  q2::fs_info_t volume;
  q2::get_filesystem_info(q2::path_t(L"/tmp"), volume);
  std::cout << "/bin/sh is of kind 0x" << std::hex << kind << std::dec << "; /tmp: file system "
            << volume.file_system << ", drive kind " << volume.drive_kind << "\n";
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
  bags_as_json();
  xpath_over_bags();
  files();
  archives();
  text_helpers();
  scheduler();
  xsl_transformation();
  configuration();
  child_process();
  digests();
  libraries();
  system_information();
  return 0;
}
