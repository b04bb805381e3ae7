// The cost of reporting an error: raising one, translating it, and printing a chain of
// three, beside what a program would otherwise use: std::error_code with
// std::system_error, or throwing and catching a std::runtime_error with a formatted
// message. Every family reports the same file name ("archive_17.zip").
#include <cerrno>
#include <stdexcept>
#include <string>
#include <system_error>

#include <benchmark/benchmark.h>

#include <quillon2/core/error_code.hpp>

namespace {

using quillon2::error_code_t;
namespace error = quillon2::error;

std::string const g_name = "archive_17.zip";

// --- Raising: an error with a text and a source position --------------------------------

void error_raise_ours(benchmark::State& state) {
  for (auto _ : state) {
    error_code_t const raised = error_code_t::raise(error::FailedTo.Open.The.Archive(g_name),
                                                    "quillon2::open_archive", __FILE__, __LINE__);
    benchmark::DoNotOptimize(raised.pass());
  }
  error_code_t::clean_last();
}
BENCHMARK(error_raise_ours)->Name("error_raise/ours");

// The code alone carries no text; the system_error carries it as its message.
void error_raise_std_error_code(benchmark::State& state) {
  for (auto _ : state) {
    std::error_code const code(ENOENT, std::generic_category());
    std::system_error const raised(code, "cannot open archive " + g_name);
    benchmark::DoNotOptimize(&raised);
  }
}
BENCHMARK(error_raise_std_error_code)->Name("error_raise/std_error_code");

void error_raise_throw(benchmark::State& state) {
  for (auto _ : state) {
    try {
      throw std::runtime_error("cannot open archive " + g_name);
    } catch (std::runtime_error const& caught) {
      benchmark::DoNotOptimize(&caught);
    }
  }
}
BENCHMARK(error_raise_throw)->Name("error_raise/throw_runtime_error");

// --- Translating: putting a new error in front of one already raised --------------------

void error_translate_ours(benchmark::State& state) {
  error_code_t cause = error_code_t::raise(error::IsNot.Valid.Argument(g_name));
  int depth = 0;
  for (auto _ : state) {
    error_code_t const translated = cause.translate(error::FailedTo.Read.The.Archive(),
                                                    "quillon2::read_archive", __FILE__, __LINE__);
    benchmark::DoNotOptimize(translated.pass());
    if (++depth == 256) {  // keeps the list short at the cost of one raise in 256
      cause = error_code_t::raise(error::IsNot.Valid.Argument(g_name));
      depth = 0;
    }
  }
  error_code_t::clean_last();
}
BENCHMARK(error_translate_ours)->Name("error_translate/ours");

// The peer wraps the earlier error's message in a new std::system_error.
void error_translate_std_system_error(benchmark::State& state) {
  std::system_error const cause(std::make_error_code(std::errc::invalid_argument), g_name);
  for (auto _ : state) {
    std::system_error const translated(std::make_error_code(std::errc::io_error),
                                       std::string("cannot read archive <- ") + cause.what());
    benchmark::DoNotOptimize(&translated);
  }
}
BENCHMARK(error_translate_std_system_error)->Name("error_translate/std_system_error");

void error_translate_throw_nested(benchmark::State& state) {
  for (auto _ : state) {
    try {
      try {
        throw std::invalid_argument(g_name);
      } catch (std::exception const&) {
        std::throw_with_nested(std::runtime_error("cannot read archive"));
      }
    } catch (std::exception const& caught) {
      benchmark::DoNotOptimize(&caught);
    }
  }
}
BENCHMARK(error_translate_throw_nested)->Name("error_translate/throw_nested");

// --- Printing a chain of three ----------------------------------------------------------

void error_print_ours(benchmark::State& state) {
  error_code_t const first = error_code_t::raise(error::IsNot.Valid.Argument(g_name),
                                                 "quillon2::check_name", __FILE__, __LINE__);
  error_code_t const second =
      first.translate(error::FailedTo.Read.Full.Data(), nullptr, nullptr, 0);
  error_code_t const third = second.translate(error::FailedTo.Open.The.Archive(g_name),
                                              "quillon2::open_archive", __FILE__, __LINE__);
  for (auto _ : state) {
    std::string text = third.as_string(1);
    benchmark::DoNotOptimize(text.data());
  }
  error_code_t::clean_last();
}
BENCHMARK(error_print_ours)->Name("error_print/ours");

// The same sentence from a std::system_error: made from the code and the composed
// message, then read through what() and copied out, as ours is.
void error_print_std_system_error(benchmark::State& state) {
  std::string const message = "quillon2::open_archive: FailedTo Open Archive(" + g_name +
                              ") <- FailedTo Read Full Data <- quillon2::check_name: IsNot "
                              "Valid Argument(" +
                              g_name + ")";
  for (auto _ : state) {
    std::system_error const error(std::make_error_code(std::errc::io_error), message);
    std::string text = error.what();
    benchmark::DoNotOptimize(text.data());
  }
}
BENCHMARK(error_print_std_system_error)->Name("error_print/std_system_error");

}  // namespace
