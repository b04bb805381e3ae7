// The environment table: remembered values, read counts, order, threads.
#include <stdlib.h>

#include <tuple>

#include <quillon2/core/environ.hpp>

#include "core/core_support.hpp"

namespace {

using quillon2::get_environ_value;
using quillon2::set_environ_value;
using entries_t = std::vector<std::tuple<std::wstring, std::wstring, unsigned>>;

// Collects the remembered variables whose names start with a prefix, up to a number.
struct collector_t : quillon2::environ_value_callback_t {
  collector_t(std::wstring p, std::size_t most) : prefix(std::move(p)), most(most) {}
  bool on_value(wchar_t const* name, wchar_t const* value, unsigned read_count) override {
    if (std::wstring(name).compare(0, prefix.size(), prefix) == 0)
      entries.emplace_back(name, value, read_count);
    return entries.size() < most;
  }
  std::wstring prefix;
  std::size_t most;
  entries_t entries;
};

// The table lives as long as the process: each test uses names of its own.
class EnvironTest : public testing::Test {
 protected:
  std::wstring name(std::wstring const& suffix = L"A") const { return m_prefix + suffix; }
  std::string narrow(std::wstring const& suffix = L"A") const {
    std::wstring const wide = name(suffix);
    return std::string(wide.begin(), wide.end());
  }
  entries_t remembered(std::size_t most = SIZE_MAX) const {
    collector_t collector(m_prefix, most);
    quillon2::iterate_environ_values(collector);
    return collector.entries;
  }
  std::string const m_test = testing::UnitTest::GetInstance()->current_test_info()->name();
  std::wstring const m_prefix = L"Q2_ENV_" + std::wstring(m_test.begin(), m_test.end()) + L"_";
};

TEST_F(EnvironTest, RemembersTheFirstReadAndCountsReads) {
  setenv(narrow().c_str(), "hello", 1);
  EXPECT_EQ(L"hello", get_environ_value(name()));
  setenv(narrow().c_str(), "changed elsewhere", 1);  // unseen
  EXPECT_EQ(L"hello", get_environ_value(name()));
  EXPECT_EQ(L"", get_environ_value(name(L"UNSET")));
  setenv(narrow(L"UNSET").c_str(), "later", 1);
  EXPECT_EQ(L"", get_environ_value(name(L"UNSET")));
  EXPECT_EQ((entries_t{{name(), L"hello", 2}, {name(L"UNSET"), L"", 2}}), remembered());
  setenv(narrow(L"BAD").c_str(), "bad\xFF", 1);
  EXPECT_EQ(L"bad\uFFFD", get_environ_value(name(L"BAD")));
}

TEST_F(EnvironTest, SetChangesTheEnvironmentAndOnlyRememberedValues) {
  set_environ_value(name(), L"first");  // before any read: no entry
  EXPECT_TRUE(remembered().empty());
  EXPECT_EQ(L"first", get_environ_value(name()));
  set_environ_value(name(), L"\u00E9\U0001F600");  // after a read: value, not count
  EXPECT_STREQ("\xC3\xA9\xF0\x9F\x98\x80", getenv(narrow().c_str()));
  EXPECT_EQ((entries_t{{name(), L"\u00E9\U0001F600", 1}}), remembered());
  set_environ_value(name(), L"");  // removes the variable, keeps the entry
  EXPECT_EQ(nullptr, getenv(narrow().c_str()));
  EXPECT_EQ((entries_t{{name(), L"", 1}}), remembered());
}

TEST_F(EnvironTest, NamesAreCaseSensitiveAndOrderedByUnit) {
  for (wchar_t const* suffix : {L"PATH", L"Path", L"PAT"}) get_environ_value(name(suffix));
  EXPECT_EQ((entries_t{{name(L"PAT"), L"", 1}, {name(L"PATH"), L"", 1}, {name(L"Path"), L"", 1}}),
            remembered());
  EXPECT_EQ(2u, remembered(2).size());  // the callback stops the walk
}

TEST_F(EnvironTest, WhatTheSystemCannotHoldStaysInTheTableOnly) {
  set_environ_value(name(L"A=B"), L"x");
  set_environ_value(name(L"A") + std::wstring(1, L'\0') + L"C", L"y");
  EXPECT_EQ(nullptr, getenv(narrow().c_str()));
  get_environ_value(name(L"Z"));
  set_environ_value(name(L"Z"), std::wstring(L"ab\0cd", 5));  // C text ends at the zero
  EXPECT_STREQ("ab", getenv(narrow(L"Z").c_str()));
  EXPECT_EQ(std::wstring(L"ab\0cd", 5), get_environ_value(name(L"Z")));
  set_environ_value(L"", L"z");
  EXPECT_EQ(L"", get_environ_value(L""));
}

TEST_F(EnvironTest, CallbacksMayUseTheTableAgain) {
  get_environ_value(name());
  struct reentrant_t : quillon2::environ_value_callback_t {
    std::wstring a, b;
    bool on_value(wchar_t const* name, wchar_t const*, unsigned) override {
      if (name == a) {
        set_environ_value(a, L"changed");
        get_environ_value(a);
        get_environ_value(b);
      }
      return true;
    }
  } callback;
  callback.a = name();
  callback.b = name(L"B");
  quillon2::iterate_environ_values(callback);
  EXPECT_EQ((entries_t{{name(), L"changed", 2}, {name(L"B"), L"", 1}}), remembered());
}

TEST_F(EnvironTest, CountsEveryReadFromManyThreads) {
  q2test::on_threads(4, [&](int t) {
    for (int i = 0; i < 2000; ++i) {
      get_environ_value(name(L"SHARED"));
      if (i % 100 == 0) set_environ_value(name(L"SHARED"), std::to_wstring(t));
      get_environ_value(name(std::to_wstring(i % 10)));
    }
  });
  entries_t const entries = remembered();
  ASSERT_EQ(11u, entries.size());
  unsigned total = 0;
  for (auto const& entry : entries) total += std::get<2>(entry);
  EXPECT_EQ(16000u, total);
  EXPECT_EQ(8000u, std::get<2>(entries.back()));
}

}  // namespace
