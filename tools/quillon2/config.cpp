// quillon2 config: read and change the typed XML configuration store.
#include <list>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "common.hpp"

namespace q2cli {

namespace {

// The text of a stored value, whatever its type.
std::string text_of(boost::any const& value) {
  std::wostringstream text;
  text.imbue(std::locale::classic());
  if (auto const* v = boost::any_cast<std::wstring>(&value)) return utf8(*v);
  if (auto const* v = boost::any_cast<bool>(&value)) return *v ? "true" : "false";
  if (auto const* v = boost::any_cast<int>(&value)) text << *v;
  else if (auto const* v = boost::any_cast<long>(&value)) text << *v;
  else if (auto const* v = boost::any_cast<unsigned long>(&value)) text << *v;
  else if (auto const* v = boost::any_cast<unsigned int>(&value)) text << *v;
  else if (auto const* v = boost::any_cast<unsigned short>(&value)) text << *v;
  else if (auto const* v = boost::any_cast<float>(&value)) text << *v;
  else if (auto const* v = boost::any_cast<double>(&value)) text << *v;
  else if (auto const* v = boost::any_cast<quillon2::path_t>(&value)) text << v->as_string();
  else if (auto const* v = boost::any_cast<std::vector<std::wstring>>(&value)) {
    for (auto const& item : *v) text << (text.tellp() > 0 ? L", " : L"") << item;
  } else if (auto const* v = boost::any_cast<std::list<std::wstring>>(&value)) {
    for (auto const& item : *v) text << (text.tellp() > 0 ? L", " : L"") << item;
  } else if (auto const* v = boost::any_cast<std::vector<int>>(&value)) {
    for (int item : *v) text << (text.tellp() > 0 ? L", " : L"") << item;
  } else if (auto const* v = boost::any_cast<std::map<std::wstring, std::wstring>>(&value)) {
    for (auto const& item : *v) text << (text.tellp() > 0 ? L", " : L"") << item.first << L"=" << item.second;
  } else {
    return "?";
  }
  return utf8(text.str());
}

// The value of `text` for a type word: string, bool, int, long, double, path.
boost::any value_of(std::string const& type, std::string const& text) {
  try {
    if (type == "string") return boost::any(wide(text));
    if (type == "bool") {
      if (text == "true" || text == "1") return boost::any(true);
      if (text == "false" || text == "0") return boost::any(false);
    } else if (type == "int") {
      std::size_t used = 0;
      int const v = std::stoi(text, &used);
      if (used == text.size()) return boost::any(v);
    } else if (type == "long") {
      std::size_t used = 0;
      long const v = std::stol(text, &used);
      if (used == text.size()) return boost::any(v);
    } else if (type == "double") {
      std::istringstream in(text);
      in.imbue(std::locale::classic());
      double v;
      if (in >> v && in.eof()) return boost::any(v);
    } else if (type == "path") {
      return boost::any(quillon2::path_t(wide(text)));
    } else {
      throw usage_t{"unknown type \"" + type + "\" (string, bool, int, long, double, path)"};
    }
  } catch (std::logic_error const&) {
  }
  throw usage_t{"\"" + text + "\" is no " + type};
}

quillon2::advanced_xml_config_t load_store(std::string const& file, bool must_exist) {
  quillon2::advanced_xml_config_t store;
  if (!store.load(file_path(file)) && must_exist)
    throw failure_t{file, "not a configuration file that can be read"};
  return store;
}

}  // namespace

void add_config_commands(CLI::App& app) {
  auto* config = app.add_subcommand("config", "The typed XML configuration store");
  config->require_subcommand(1);
  static std::string file, key, value, type = "string";

  auto* list = config->add_subcommand("list", "Every key with its value");
  list->add_option("FILE", file, "Configuration file")->required();
  on_run(list, "config list", [] {
    quillon2::advanced_xml_config_t const store = load_store(file, true);
    std::vector<std::wstring> names;
    store.get_names(names);
    std::string text;
    for (auto const& name : names) text += utf8(name) + " = " + text_of(store.get_value(name, boost::any())) + "\n";
    out(text);
  });

  auto* get = config->add_subcommand("get", "The value of a key (keys ignore case)");
  get->add_option("FILE", file, "Configuration file")->required();
  get->add_option("KEY", key, "Dotted key")->required();
  on_run(get, "config get", [] {
    quillon2::advanced_xml_config_t const store = load_store(file, true);
    if (!store.has_value(wide(key))) throw failure_t{file, "no key " + key};
    out(text_of(store.get_value(wide(key), boost::any())) + "\n");
  });

  auto* set = config->add_subcommand(
      "set", "Set a key and save the file (made if missing); the file is replaced whole or not at all");
  set->add_option("FILE", file, "Configuration file")->required();
  set->add_option("KEY", key, "Dotted key")->required();
  set->add_option("VALUE", value, "The value")->required();
  set->add_option("--type", type, "string (default), bool, int, long, double or path");
  on_run(set, "config set", [] {
    boost::any const typed = value_of(type, value);
    quillon2::path_t const path = file_path(file);
    quillon2::advanced_xml_config_t store;
    if (path.is_exists() && !store.load(path)) throw failure_t{file, "not a configuration file that can be read"};
    store.set_value(wide(key), typed);
    if (!store.save(path)) throw failure_t{file, "cannot be saved (the key may be no XML name)"};
  });
}

}  // namespace q2cli
