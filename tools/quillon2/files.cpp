// quillon2 digest, path and fsinfo: digests of files, the library's path type, and what
// kind of file and volume a path is.
#include <cstdio>
#include <string>
#include <vector>

#include "common.hpp"

namespace q2cli {

namespace {

std::string hex32(unsigned long value) {
  char text[9];
  std::snprintf(text, sizeof text, "%08lx", value & 0xFFFFFFFFul);
  return text;
}

// The digest of one file in lower-case hexadecimal; false when it can't be read.
bool digest_of(std::string const& algorithm, std::string const& name, std::string& digest) {
  if (name == "-") {
    std::string const bytes = read_input("-");
    if (algorithm == "md5") {
      quillon2::md5_t md5;
      md5.update(bytes);
      digest = utf8(md5.get_digest_base16());
    } else if (algorithm == "sha1") {
      quillon2::sha1_t sha1;
      sha1.update(bytes.data(), bytes.size());
      digest = utf8(sha1.get_digest_base16());
    } else {
      throw usage_t{"crc32 reads files only, not standard input"};
    }
    return true;
  }
  quillon2::path_t const path = file_path(name);
  constexpr quillon2::u64_t k_chunk = 1 << 20;
  if (algorithm == "md5") {
    quillon2::md5_t md5;
    if (!md5.update_from_file(path, k_chunk)) return false;
    digest = utf8(md5.get_digest_base16());
  } else if (algorithm == "sha1") {
    quillon2::sha1_t sha1;
    if (!sha1.update_from_file(path, k_chunk)) return false;
    digest = utf8(sha1.get_digest_base16());
  } else {
    // A CRC of 0 is also the answer for an unreadable file: ask whether it is readable.
    std::FILE* f = std::fopen(name.c_str(), "rbe");
    if (f == nullptr) return false;
    std::fclose(f);
    digest = hex32(quillon2::generate_hash(path, k_chunk));
  }
  return true;
}

char const* fs_name(quillon2::fs_type_t type) {
  switch (type) {
    case quillon2::FS_TYPE_FAT: return "FAT";
    case quillon2::FS_TYPE_NTFS: return "NTFS";
    case quillon2::FS_TYPE_OTHER: return "other";
    default: return "unknown";
  }
}

char const* drive_name(quillon2::drive_kind_t kind) {
  switch (kind) {
    case quillon2::DRIVE_KIND_FIXED: return "fixed";
    case quillon2::DRIVE_KIND_REMOVABLE: return "removable";
    case quillon2::DRIVE_KIND_REMOTE: return "remote";
    case quillon2::DRIVE_KIND_OPTICAL: return "optical";
    default: return "unknown";
  }
}

std::string exec_name(quillon2::exec_file_info_t info) {
  if (info == quillon2::EXEC_UNKNOWN) return "unknown";
  if (info == quillon2::EXEC_NOT_EXECUTABLE) return "not executable";
  if (info & quillon2::EXEC_SCRIPT) return "script";
  if (info & quillon2::EXEC_GUI) return "graphical program";
  return "program";
}

}  // namespace

void add_file_commands(CLI::App& app) {
  // digest
  {
    auto* sub = app.add_subcommand(
        "digest",
        "Print the MD5, SHA-1 or CRC-32 of files as md5sum and sha1sum do (DIGEST  NAME), so "
        "that md5sum -c reads the MD5 lines. Goes on after a file that can't be read and "
        "exits with 1 at the end.");
    static std::string algorithm;
    static std::vector<std::string> files;
    sub->add_option("ALGORITHM", algorithm, "md5, sha1 or crc32")
        ->required()
        ->check(CLI::IsMember({"md5", "sha1", "crc32"}));
    sub->add_option("FILE", files, "Files, or - for standard input")->required();
    on_run(sub, "digest", [] {
      std::vector<std::string const*> names;
      for (auto const& f : files) names.push_back(&f);
      at_most_one_stdin(names);
      std::string failed;
      for (auto const& name : files) {
        std::string digest;
        if (!digest_of(algorithm, name, digest)) {
          std::fprintf(stderr, "quillon2: digest: %s: cannot read the file\n", name.c_str());
          failed = name;
          continue;
        }
        out(digest + "  " + name + "\n");
      }
      if (!failed.empty()) throw failure_t{"", ""};
    });
  }

  // path
  {
    auto* path = app.add_subcommand(
        "path",
        "The library's path type: paths print with \"\\\", reach the system with \"/\", and "
        "compare without regard to case.");
    path->require_subcommand(1);
    static std::string text, base;
    auto* parse = path->add_subcommand("parse", "Show how a path text parses");
    parse->add_option("TEXT", text, "A path")->required();
    on_run(parse, "path parse", [] {
      int position = -1;
      if (!quillon2::path_t::validate(wide(text), false, position))
        throw failure_t{text, "does not parse, from character " + std::to_string(position)};
      quillon2::path_t const p(wide(text));
      std::string kind = p.is_absolute() ? "absolute" : "relative";
      std::string report = "printed: " + utf8(p.as_string()) + "\nnative: " + p.native_string() +
                           "\nkind: " + kind + "\nelements:";
      for (auto const& part : p.as_string_list()) report += " [" + utf8(part) + "]";
      out(report + "\nleaf: " + utf8(p.get_leaf()) + "\nbranch: " + utf8(p.get_branch()) +
          "\nextension: " + utf8(p.get_ext()) + "\n");
    });
    auto* normalize = path->add_subcommand("normalize", "Fold . and .. away");
    normalize->add_option("TEXT", text, "A path")->required();
    on_run(normalize, "path normalize", [] {
      quillon2::path_t p(wide(text));
      if (p.is_empty() || !p.normalize()) throw failure_t{text, "can't be normalised"};
      out(utf8(p.as_string()) + "\n");
    });
    auto* relative = path->add_subcommand("relative", "Express a path relative to a base");
    relative->add_option("TEXT", text, "A path")->required();
    relative->add_option("BASE", base, "The base")->required();
    on_run(relative, "path relative", [] {
      quillon2::path_t const r = quillon2::path_t(wide(text)).get_relative(quillon2::path_t(wide(base)));
      if (r.is_empty()) throw failure_t{text, "has no relative form against " + base};
      out(utf8(r.as_string()) + "\n");
    });
    auto* native = path->add_subcommand("native", "The name the system sees");
    native->add_option("TEXT", text, "A path")->required();
    on_run(native, "path native", [] {
      std::string const n = quillon2::path_t(wide(text)).native_string();
      if (n.empty()) throw failure_t{text, "has no native form (a drive, UNC or empty path)"};
      out(n + "\n");
    });
  }

  // fsinfo
  {
    auto* sub = app.add_subcommand("fsinfo", "The file system, drive kind and executable kind of a path");
    static std::string name;
    sub->add_option("PATH", name, "A file or directory")->required();
    on_run(sub, "fsinfo", [] {
      quillon2::path_t const path = file_path(name);
      quillon2::fs_info_t volume;
      quillon2::fs_info_error_t const v = quillon2::get_filesystem_info(path, volume);
      if (v == quillon2::FS_INFO_NOT_FOUND) throw failure_t{name, "no such file or directory"};
      if (v != quillon2::FS_INFO_OK) throw failure_t{name, "the volume can't be examined"};
      quillon2::exec_file_info_t kind = quillon2::EXEC_UNKNOWN;
      quillon2::get_executable_file_info(path, kind);
      out(std::string("file system: ") + fs_name(volume.file_system) + "\ndrive: " +
          drive_name(volume.drive_kind) + "\nexecutable: " + exec_name(kind) + "\n");
    });
  }
}

}  // namespace q2cli
