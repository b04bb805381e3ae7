// The environment table: remembered values, read counts, order, threads.
#include <stdlib.h>

#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include <quillon2/core/environ.hpp>

namespace {

using entry_t = std::tuple<std::wstring, std::wstring, unsigned>;

// Collects the remembered variables whose names start with a prefix.
class collector_t : public quillon2::environ_value_callback_t {
 public:
  explicit collector_t(std::wstring prefix, std::size_t stop_after = SIZE_MAX)
      : m_prefix(std::move(prefix)), m_stop_after(stop_after) {}
  bool on_value(wchar_t const* name, wchar_t const* value, unsigned read_count) override {
    ++m_calls;
    std::wstring const text(name);
    if (text.compare(0, m_prefix.size(), m_prefix) == 0)
      m_entries.emplace_back(text, value, read_count);
    return m_entries.size() < m_stop_after;
  }
  std::vector<entry_t> m_entries;
  std::size_t m_calls = 0;

 private:
  std::wstring m_prefix;
  std::size_t m_stop_after;
};

std::vector<entry_t> remembered(std::wstring const& prefix) {
  collector_t collector(prefix);
  quillon2::iterate_environ_values(collector);
  return collector.m_entries;
}

// A name of this test alone, since the table lives as long as the process.
std::wstring unique_name(char const* suffix) {
  auto const* info = testing::UnitTest::GetInstance()->current_test_info();
  std::string const name = std::string("Q2_ENV_") + info->name() + "_" + suffix;
  return std::wstring(name.begin(), name.end());
}

std::string narrow(std::wstring const& ascii) { return std::string(ascii.begin(), ascii.end()); }

}  // namespace

TEST(Environ, ReadsAVariableAndCountsReads) {
  std::wstring const name = unique_name("A");
  setenv(narrow(name).c_str(), "hello", 1);
  EXPECT_EQ(L"hello", quillon2::get_environ_value(name));
  EXPECT_EQ(L"hello", quillon2::get_environ_value(name));
  EXPECT_EQ(L"hello", quillon2::get_environ_value(name));
  EXPECT_EQ((std::vector<entry_t>{{name, L"hello", 3}}), remembered(name));
}

TEST(Environ, AnUnsetVariableReadsEmptyAndStaysRemembered) {
  std::wstring const name = unique_name("A");
  unsetenv(narrow(name).c_str());
  EXPECT_EQ(L"", quillon2::get_environ_value(name));
  // A change by other means than set_environ_value stays unseen.
  setenv(narrow(name).c_str(), "later", 1);
  EXPECT_EQ(L"", quillon2::get_environ_value(name));
  EXPECT_EQ((std::vector<entry_t>{{name, L"", 2}}), remembered(name));
}

TEST(Environ, SetBeforeTheFirstReadMakesNoEntry) {
  std::wstring const name = unique_name("A");
  quillon2::set_environ_value(name, L"first");
  EXPECT_TRUE(remembered(name).empty());
  EXPECT_STREQ("first", getenv(narrow(name).c_str()));
  EXPECT_EQ(L"first", quillon2::get_environ_value(name));
  EXPECT_EQ((std::vector<entry_t>{{name, L"first", 1}}), remembered(name));
}

TEST(Environ, SetAfterAReadChangesTheValueButNotTheCount) {
  std::wstring const name = unique_name("A");
  setenv(narrow(name).c_str(), "old", 1);
  EXPECT_EQ(L"old", quillon2::get_environ_value(name));
  quillon2::set_environ_value(name, L"new");
  EXPECT_STREQ("new", getenv(narrow(name).c_str()));
  EXPECT_EQ((std::vector<entry_t>{{name, L"new", 1}}), remembered(name));
  EXPECT_EQ(L"new", quillon2::get_environ_value(name));
}

TEST(Environ, AnEmptyValueRemovesTheVariableButKeepsTheEntry) {
  std::wstring const name = unique_name("A");
  setenv(narrow(name).c_str(), "x", 1);
  quillon2::get_environ_value(name);
  quillon2::set_environ_value(name, L"");
  EXPECT_EQ(nullptr, getenv(narrow(name).c_str()));
  EXPECT_EQ((std::vector<entry_t>{{name, L"", 1}}), remembered(name));
}

TEST(Environ, NamesAreCaseSensitiveAndOrderedByUnit) {
  std::wstring const prefix = unique_name("");
  for (wchar_t const* suffix : {L"PATH", L"Path", L"path", L"PAT"})
    quillon2::get_environ_value(prefix + suffix);
  EXPECT_EQ((std::vector<entry_t>{{prefix + L"PAT", L"", 1},
                                  {prefix + L"PATH", L"", 1},
                                  {prefix + L"Path", L"", 1},
                                  {prefix + L"path", L"", 1}}),
            remembered(prefix));
}

TEST(Environ, IterationStopsAtTheFirstFalse) {
  std::wstring const prefix = unique_name("");
  for (wchar_t const* suffix : {L"1", L"2", L"3"}) quillon2::get_environ_value(prefix + suffix);
  collector_t collector(prefix, 2);
  quillon2::iterate_environ_values(collector);
  EXPECT_EQ(2u, collector.m_entries.size());
}

TEST(Environ, CallbacksMayUseTheTableAgain) {
  std::wstring const prefix = unique_name("");
  quillon2::get_environ_value(prefix + L"A");
  struct reentrant_t : quillon2::environ_value_callback_t {
    std::wstring prefix;
    bool on_value(wchar_t const* name, wchar_t const*, unsigned) override {
      if (std::wstring(name) == prefix + L"A") {
        quillon2::set_environ_value(name, L"changed");
        quillon2::get_environ_value(name);
        quillon2::get_environ_value(prefix + L"B");
      }
      return true;
    }
  } callback;
  callback.prefix = prefix;
  quillon2::iterate_environ_values(callback);
  auto const entries = remembered(prefix);
  ASSERT_EQ(2u, entries.size());
  EXPECT_EQ((entry_t{prefix + L"A", L"changed", 2}), entries[0]);
  EXPECT_EQ(prefix + L"B", std::get<0>(entries[1]));
}

TEST(Environ, ValuesTravelAsUtf8) {
  std::wstring const name = unique_name("A");
  quillon2::set_environ_value(name, L"\u00E9\u20AC\U0001F600");
  EXPECT_STREQ("\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80", getenv(narrow(name).c_str()));
  std::wstring const other = unique_name("B");
  setenv(narrow(other).c_str(), "bad\xFF", 1);
  EXPECT_EQ(L"bad\uFFFD", quillon2::get_environ_value(other));
}

TEST(Environ, NamesTheSystemCannotHoldLeaveTheEnvironmentAlone) {
  std::wstring const base = unique_name("A");
  unsetenv(narrow(base).c_str());
  quillon2::get_environ_value(base + L"=B");
  quillon2::set_environ_value(base + L"=B", L"x");
  EXPECT_EQ(nullptr, getenv(narrow(base).c_str()));
  EXPECT_EQ(L"x", quillon2::get_environ_value(base + L"=B"));
  std::wstring const with_zero = base + std::wstring(1, L'\0') + L"C";
  quillon2::set_environ_value(with_zero, L"y");
  EXPECT_EQ(nullptr, getenv(narrow(base).c_str()));
  EXPECT_EQ(L"", quillon2::get_environ_value(with_zero));
  quillon2::set_environ_value(L"", L"z");
  EXPECT_EQ(L"", quillon2::get_environ_value(L""));
}

TEST(Environ, AValueEndsAtAZeroUnitInTheEnvironment) {
  std::wstring const name = unique_name("A");
  std::wstring const value(L"ab\0cd", 5);
  quillon2::get_environ_value(name);
  quillon2::set_environ_value(name, value);
  EXPECT_STREQ("ab", getenv(narrow(name).c_str()));
  EXPECT_EQ(value, quillon2::get_environ_value(name));
}

TEST(Environ, CountsEveryReadFromManyThreads) {
  std::wstring const prefix = unique_name("");
  constexpr int threads = 4;
  constexpr int rounds = 2000;
  std::vector<std::thread> workers;
  for (int t = 0; t < threads; ++t)
    workers.emplace_back([&, t] {
      for (int i = 0; i < rounds; ++i) {
        quillon2::get_environ_value(prefix + L"SHARED");
        if (i % 100 == 0) quillon2::set_environ_value(prefix + L"SHARED", std::to_wstring(t));
        quillon2::get_environ_value(prefix + std::to_wstring(i % 10));
      }
    });
  for (auto& worker : workers) worker.join();
  auto const entries = remembered(prefix);
  ASSERT_EQ(11u, entries.size());
  unsigned total = 0;
  for (auto const& entry : entries) total += std::get<2>(entry);
  EXPECT_EQ(static_cast<unsigned>(2 * threads * rounds), total);
  EXPECT_EQ(static_cast<unsigned>(threads * rounds), std::get<2>(entries.back()));
}
