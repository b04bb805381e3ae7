// quillon2 zip: list, print, create and extract ZIP archives.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

#include "common.hpp"

namespace q2cli {

namespace {

quillon2::sptr_t<quillon2::archive_reader_t> open_zip(std::string const& name) {
  quillon2::sptr_t<quillon2::archive_reader_t> reader;
  if (!quillon2::create_zip_reader(file_path(name), reader) || !reader)
    throw failure_t{name, "not a ZIP archive that can be read"};
  return reader;
}

std::vector<std::wstring> members_of(quillon2::archive_reader_t& reader) {
  std::vector<std::wstring> names;
  for (auto it = reader.enum_streams(); !it.at_end(); it.next()) names.push_back(it.current());
  return names;
}

std::string read_member(quillon2::archive_reader_t& reader, std::wstring const& member,
                        std::string const& archive) {
  if (!reader.open_stream(member)) throw failure_t{archive, "no member " + utf8(member)};
  std::string bytes;
  char buffer[1 << 16];
  for (;;) {
    quillon2::u64_t got = 0;
    if (!reader.read(buffer, sizeof buffer, &got)) throw failure_t{archive, "cannot read " + utf8(member)};
    if (got == 0) break;
    bytes.append(buffer, static_cast<std::size_t>(got));
  }
  if (!reader.close()) throw failure_t{archive, utf8(member) + " is damaged (its checksum does not match)"};
  return bytes;
}

// A member name that stays inside the target directory: relative, no "..", no empty or
// "." steps that would hide a climb.
bool safe_member_name(std::string const& name) {
  if (name.empty() || name[0] == '/' || name.find('\\') != std::string::npos) return false;
  std::size_t at = 0;
  while (at <= name.size()) {
    std::size_t const end = std::min(name.find('/', at), name.size());
    std::string const step = name.substr(at, end - at);
    if (step == "..") return false;
    if (step.empty() && end != name.size()) return false;
    at = end + 1;
  }
  return true;
}

void make_directories(std::string const& path) {
  for (std::size_t at = path.find('/', 1); at != std::string::npos; at = path.find('/', at + 1))
    ::mkdir(path.substr(0, at).c_str(), 0777);
}

}  // namespace

void add_zip_commands(CLI::App& app) {
  auto* zip = app.add_subcommand("zip", "ZIP archives: list, print members, create, extract");
  zip->require_subcommand(1);
  static std::string archive, target;
  static std::vector<std::string> names;

  auto* list = zip->add_subcommand("list", "List the members of an archive, one a line");
  list->add_option("ARCHIVE", archive, "A ZIP file")->required();
  on_run(list, "zip list", [] {
    auto reader = open_zip(archive);
    std::string text;
    for (auto const& name : members_of(*reader)) text += utf8(name) + "\n";
    out(text);
  });

  auto* cat = zip->add_subcommand("cat", "Write members to standard output");
  cat->add_option("ARCHIVE", archive, "A ZIP file")->required();
  cat->add_option("MEMBER", names, "Member names")->required();
  on_run(cat, "zip cat", [] {
    auto reader = open_zip(archive);
    for (auto const& name : names) out(read_member(*reader, wide(name), archive));
  });

  auto* create = zip->add_subcommand(
      "create", "Make an archive of files, each stored under the name given; the archive "
                "appears whole or not at all");
  create->add_option("ARCHIVE", archive, "The ZIP file to make")->required();
  create->add_option("FILE", names, "Files to put in")->required();
  on_run(create, "zip create", [] {
    std::string const temp = archive + ".q2-tmp-" + std::to_string(::getpid());
    quillon2::sptr_t<quillon2::archive_writer_t> writer;
    auto abandon = [&](std::string const& file, std::string const& why) {
      writer = nullptr;
      std::remove(temp.c_str());
      throw failure_t{file, why};
    };
    if (!quillon2::create_zip_writer(file_path(temp), writer, false) || !writer)
      abandon(archive, "cannot create the archive");
    for (auto const& name : names) {
      std::string bytes;
      try {
        bytes = read_input(name);
      } catch (failure_t const& f) {
        abandon(f.file, f.reason);
      }
      std::string member = name;
      while (member.rfind("./", 0) == 0) member.erase(0, 2);
      if (!writer->create_new_stream(wide(member), 0) || !writer->write(bytes.data(), bytes.size()) ||
          !writer->close())
        abandon(name, "cannot be added to the archive");
    }
    writer = nullptr;  // the last release finishes the file
    if (std::rename(temp.c_str(), archive.c_str()) != 0) abandon(archive, "cannot be replaced");
  });

  auto* extract = zip->add_subcommand(
      "extract", "Write every member under a directory; a member whose name would leave it "
                 "is refused and nothing is written for it");
  extract->add_option("ARCHIVE", archive, "A ZIP file")->required();
  extract->add_option("DIR", target, "Target directory (default: the working directory)");
  on_run(extract, "zip extract", [] {
    auto reader = open_zip(archive);
    std::string const root = target.empty() ? std::string(".") : target;
    bool refused = false;
    for (auto const& member : members_of(*reader)) {
      std::string const name = utf8(member);
      if (!safe_member_name(name)) {
        std::fprintf(stderr, "quillon2: zip extract: %s: member %s would leave the target\n",
                     archive.c_str(), name.c_str());
        refused = true;
        continue;
      }
      if (name.back() == '/') {
        make_directories(root + "/" + name);
        continue;
      }
      std::string const bytes = read_member(*reader, member, archive);
      make_directories(root + "/" + name);
      write_output(root + "/" + name, bytes);
    }
    if (refused) throw failure_t{"", ""};
  });
}

}  // namespace q2cli
