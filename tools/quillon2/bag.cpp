// quillon2 bag: convert between the bag file forms, print, get a value, validate against
// RELAX NG, and query with XPath.
#include <map>
#include <string>

#include "common.hpp"

namespace q2cli {

namespace {

constexpr int k_ok = 1;

enum class form_t { element, attribute, json };

// The form a file name says: ".bag.xml" is the attribute form, ".xml" the element form
// (when reading: whichever form the document is), ".json" JSON.
bool form_of_name(std::string const& name, form_t& form) {
  auto ends = [&](char const* end) {
    std::string const e(end);
    return name.size() >= e.size() && name.compare(name.size() - e.size(), e.size(), e) == 0;
  };
  if (ends(".bag.xml")) form = form_t::attribute;
  else if (ends(".xml")) form = form_t::element;
  else if (ends(".json")) form = form_t::json;
  else return false;
  return true;
}

form_t parse_form(std::string const& word) {
  static std::map<std::string, form_t> const words = {
      {"xml", form_t::element}, {"element", form_t::element}, {"bag.xml", form_t::attribute},
      {"attribute", form_t::attribute}, {"xml2", form_t::attribute}, {"json", form_t::json}};
  auto const found = words.find(word);
  if (found == words.end()) throw usage_t{"unknown form \"" + word + "\" (xml, bag.xml, json)"};
  return found->second;
}

// The element form's document element is "root"; every other document is the attribute form.
form_t sniff_xml(std::string const& text) {
  std::size_t at = 0;
  while ((at = text.find('<', at)) != std::string::npos) {
    if (at + 1 < text.size() && (text[at + 1] == '?' || text[at + 1] == '!')) {
      ++at;
      continue;
    }
    return text.compare(at + 1, 4, "root") == 0 &&
                   (at + 5 >= text.size() || std::string(" \t\r\n/>").find(text[at + 5]) != std::string::npos)
               ? form_t::element
               : form_t::attribute;
  }
  return form_t::element;
}

struct format_options_t {
  std::string from;
  std::string to;
  bool pretty = false;
  bool compact = false;
};

quillon2::variant_bag_t load_bag(std::string const& name, std::string const& from) {
  form_t form;
  if (!from.empty()) {
    form = parse_form(from);
  } else if (name == "-" || !form_of_name(name, form)) {
    throw usage_t{"say the form of " + name + " with --from"};
  }
  std::string const text = read_input(name);
  if (form == form_t::element && from.empty()) form = sniff_xml(text);
  quillon2::variant_bag_t bag;
  int result = 0;
  switch (form) {
    case form_t::element: {
      std::wstring const wide_text = wide(text);
      result = quillon2::load_variant_bag_from_string(bag, quillon2::variant_t(wide_text.c_str()));
      break;
    }
    case form_t::attribute: {
      quillon2::variant_bag_t loaded;
      result = quillon2::load_variant_bag_from_string2(loaded, text, nullptr);
      // Without a path the document element comes as the one child bag: its content is the bag.
      auto it = loaded.begin<quillon2::variant_bag_t>();
      if (result == k_ok && !it.at_end()) bag = it.get_value();
      break;
    }
    case form_t::json:
      try {
        result = load_json(bag, text);
      } catch (failure_t const& f) {
        throw failure_t{name, f.reason};
      }
      break;
  }
  if (result != k_ok) throw failure_t{name, "not a bag file of that form"};
  return bag;
}

std::string save_bag(quillon2::variant_bag_t const& bag, form_t form, format_options_t const& options,
                     std::string const& name) {
  switch (form) {
    case form_t::element: {
      quillon2::variant_t text;
      if (quillon2::save_variant_bag_to_string(bag, &text) != k_ok || text.get_type() != quillon2::vtWString)
        throw failure_t{name, "the bag can't be written in the element form"};
      return utf8(text.get<wchar_t const*>());
    }
    case form_t::attribute: {
      std::string text;
      if (quillon2::save_variant_bag_to_string2(bag, text, L"bag") != k_ok)
        throw failure_t{name, "the bag can't be written in the attribute form"};
      return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>" + text;
    }
    case form_t::json:
      return save_json(bag, options.pretty && !options.compact, name);
  }
  return {};
}

void print_bag(quillon2::variant_bag_t const& bag, std::string const& indent, std::string& text) {
  for (auto it = bag.begin<quillon2::variant_t>(); !it.at_end(); it.next()) {
    quillon2::variant_t printed;
    quillon2::print_variant(it.get_value(), printed, true);
    text += indent + utf8(it.get_name()) + " = " +
            (printed.get_type() == quillon2::vtWString ? utf8(printed.get<wchar_t const*>()) : "") + "\n";
  }
  for (auto it = bag.begin<quillon2::variant_bag_t>(); !it.at_end(); it.next()) {
    text += indent + "[" + utf8(it.get_name()) + "]\n";
    print_bag(it.get_value(), indent + "\t", text);
  }
}

struct relaxng_messages_t : quillon2::check_relaxng_callback_t {
  std::string text;
  void on_message(int /*severity*/, char const* message) override {
    text += message;
    if (!text.empty() && text.back() != '\n') text += '\n';
  }
};

}  // namespace

quillon2::variant_bag_t load_bag_for_query(std::string const& file, std::string const& from) {
  return load_bag(file, from);
}

void add_bag_commands(CLI::App& app) {
  CLI::App* bag = app.add_subcommand("bag", "Look at, convert, query and check bag files");
  bag->require_subcommand(1);

  // bag convert
  {
    auto* sub = bag->add_subcommand(
        "convert",
        "Convert a bag file between the element form (.xml), the attribute form (.bag.xml) "
        "and JSON (.json). An .xml input may be of either XML form: the tool looks. Use "
        "--from/--to with \"-\" (standard input or output) or other names.");
    static std::string in, out_name;
    static format_options_t options;
    sub->add_option("IN", in, "Input file, or - for standard input")->required();
    sub->add_option("OUT", out_name, "Output file, or - for standard output")->required();
    sub->add_option("--from", options.from, "Form of IN: xml, bag.xml or json");
    sub->add_option("--to", options.to, "Form of OUT: xml, bag.xml or json");
    sub->add_flag("--pretty", options.pretty, "JSON with line breaks and indentation (default)");
    sub->add_flag("--compact", options.compact, "JSON on one line");
    on_run(sub, "bag convert", [] {
      form_t to;
      if (!options.to.empty()) {
        to = parse_form(options.to);
      } else if (out_name == "-" || !form_of_name(out_name, to)) {
        throw usage_t{"say the form of " + out_name + " with --to"};
      }
      if (options.pretty && options.compact) throw usage_t{"--pretty and --compact exclude each other"};
      if (!options.compact) options.pretty = true;
      quillon2::variant_bag_t const loaded = load_bag(in, options.from);
      write_output(out_name, save_bag(loaded, to, options, out_name));
    });
  }

  // bag print
  {
    auto* sub = bag->add_subcommand("print", "Print a bag: \"name = value !type\" lines, child bags in [brackets]");
    static std::string file, from;
    sub->add_option("FILE", file, "Bag file, or - for standard input")->required();
    sub->add_option("--from", from, "Form of FILE: xml, bag.xml or json");
    on_run(sub, "bag print", [] {
      std::string text;
      print_bag(load_bag(file, from), "", text);
      out(text);
    });
  }

  // bag get
  {
    auto* sub = bag->add_subcommand("get", "Print the value at a dotted path (a.b.c) of a bag");
    static std::string file, path, from;
    sub->add_option("FILE", file, "Bag file, or - for standard input")->required();
    sub->add_option("PATH", path, "Dotted path of the value")->required();
    sub->add_option("--from", from, "Form of FILE: xml, bag.xml or json");
    on_run(sub, "bag get", [] {
      quillon2::variant_bag_t bag = load_bag(file, from);
      quillon2::variant_t const missing;
      quillon2::variant_t const value = quillon2::path_accessor_t(bag).get_variant(wide(path).c_str(), missing);
      if (value.get_type() == quillon2::vtNull) throw failure_t{file, "no value at " + path};
      quillon2::variant_t printed;
      quillon2::print_variant(value, printed, false);
      out((printed.get_type() == quillon2::vtWString ? utf8(printed.get<wchar_t const*>()) : "") + "\n");
    });
  }

  // bag validate
  {
    auto* sub = bag->add_subcommand("validate", "Check an XML file against a RELAX NG schema");
    static std::string file, schema;
    sub->add_option("FILE", file, "XML file, or - for standard input")->required();
    sub->add_option("SCHEMA", schema, "RELAX NG schema (.rng)")->required();
    on_run(sub, "bag validate", [] {
      at_most_one_stdin({&file, &schema});
      std::string const xml = read_input(file);
      std::string const rng = read_input(schema);
      relaxng_messages_t messages;
      if (quillon2::check_relaxng(xml.c_str(), rng.c_str(), &messages) != k_ok)
        throw failure_t{file, "not valid" + (messages.text.empty() ? std::string() : ":\n" + messages.text)};
      out(file + ": valid\n");
    });
  }
  add_bag_xpath_command(bag);
}

}  // namespace q2cli
