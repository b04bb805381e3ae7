// The shared parts of the tool; see common.hpp.
#include "common.hpp"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>

namespace q2cli {

namespace {
std::string g_command = "quillon2";
}

bool quiet = false;

void set_command(std::string const& name) { g_command = name; }
std::string const& command() { return g_command; }

std::string utf8(std::wstring const& text) { return kesmet2::utf16_to_utf8(text); }
std::wstring wide(std::string const& text) { return kesmet2::utf8_to_utf16(text); }

quillon2::path_t file_path(std::string const& name) {
  if (!name.empty() && name[0] == '/') return quillon2::make_path(name);
  char cwd[4096];
  if (::getcwd(cwd, sizeof cwd) == nullptr) throw failure_t{name, "the working directory is unknown"};
  return quillon2::make_path(std::string(cwd) + "/" + name);
}

std::string read_input(std::string const& name) {
  std::string bytes;
  if (name == "-") {
    char buffer[65536];
    std::size_t n;
    while ((n = std::fread(buffer, 1, sizeof buffer, stdin)) > 0) bytes.append(buffer, n);
    if (std::ferror(stdin)) throw failure_t{"-", "cannot read standard input"};
    return bytes;
  }
  std::ifstream in(name, std::ios::binary);
  if (!in) throw failure_t{name, std::strerror(errno)};
  in.seekg(0, std::ios::end);
  auto const size = static_cast<std::uint64_t>(std::max<std::streamoff>(in.tellg(), 0));
  in.seekg(0, std::ios::beg);
  progress_t progress("reading", size);
  char buffer[1 << 16];
  while (in.read(buffer, sizeof buffer) || in.gcount() > 0) {
    bytes.append(buffer, static_cast<std::size_t>(in.gcount()));
    progress.update(bytes.size());
  }
  if (in.bad()) throw failure_t{name, "cannot read the file"};
  return bytes;
}

void write_output(std::string const& name, std::string_view bytes) {
  if (name == "-") {
    out(bytes);
    return;
  }
  std::string why;
  if (!quillon2::save_file_atomically(file_path(name), bytes, &why))
    throw failure_t{name, why.empty() ? "cannot write the file" : why};
}

void out(std::string_view text) { std::fwrite(text.data(), 1, text.size(), stdout); }

void at_most_one_stdin(std::vector<std::string const*> const& names) {
  int dashes = 0;
  for (auto const* name : names) dashes += *name == "-" ? 1 : 0;
  if (dashes > 1) throw usage_t{"\"-\" stands for standard input only once"};
}

progress_t::progress_t(std::string label, std::uint64_t total)
    : m_label(std::move(label)),
      m_total(total),
      m_shown(!quiet && total > (1u << 20) && ::isatty(2) == 1),
      m_next(std::chrono::steady_clock::now()) {}

progress_t::~progress_t() {
  if (m_drawn) std::fprintf(stderr, "\r\033[K");
}

void progress_t::update(std::uint64_t done) {
  if (!m_shown) return;
  auto const now = std::chrono::steady_clock::now();
  if (now < m_next) return;
  m_next = now + std::chrono::milliseconds(100);
  int const percent = m_total == 0 ? 100 : static_cast<int>(done * 100 / m_total);
  int const filled = percent * 30 / 100;
  std::fprintf(stderr, "\r%s [%.*s%*s] %3d%%", m_label.c_str(), filled,
               "##############################", 30 - filled, "", percent);
  m_drawn = true;
}

}  // namespace q2cli
