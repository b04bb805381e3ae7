// The failure check with the error-handling variable asking for assertions. A source
// file of its own, since the variable is read once for each source file.
#include <string>

#include <gtest/gtest.h>

#include <quillon2/core/check.hpp>
#include <quillon2/core/environ.hpp>

#include "core/error_handling_fixture.hpp"

namespace q2test_check_assert {

using quillon2::error_code_t;
namespace error = quillon2::error;

unsigned g_line = 0;

error_code_t find_editor(bool found) {
  g_line = __LINE__ + 1;
  QUILLON_CHECK(found, error::FailedTo.Find.Any.Editor(L"vi"));
  return error_code_t();
}

struct mapping_t {
  explicit mapping_t(long size) {
    QUILLON_CHECK_THROW(size > 0, error::IsNot.Valid.Size(std::to_string(size)));
  }
};

}  // namespace q2test_check_assert

namespace {

using quillon2::error_code_t;
namespace q = q2test_check_assert;

constexpr wchar_t k_log_and_assert[] = L"log,assert";
class CheckAssertTest : public q2test::error_handling_test_t<k_log_and_assert> {};

TEST_F(CheckAssertTest, FailedCheckAssertsWithTheMessageThenRaises) {
  error_code_t const result = q::find_editor(false);
  ASSERT_TRUE(result.failed());
  EXPECT_EQ("q2test_check_assert::find_editor: FailedTo Find Any Editor(vi)", result.as_string(1));

  auto const reports = m_asserts.reports();
  ASSERT_EQ(1u, reports.size());
  std::string const position = std::string(__FILE__) + "(" + std::to_string(q::g_line) + ")";
  EXPECT_EQ("found 'error::FailedTo.Find.Any.Editor(L\"vi\"):vi'\n" + position +
                ": q2test_check_assert::find_editor\n",
            reports[0].condition);
  EXPECT_EQ(__FILE__, reports[0].file);
  EXPECT_EQ(q::g_line, reports[0].line);
  EXPECT_EQ("q2test_check_assert::find_editor", reports[0].function);
}

TEST_F(CheckAssertTest, PassingCheckDoesNotAssert) {
  EXPECT_FALSE(q::find_editor(true).failed());
  EXPECT_TRUE(m_asserts.reports().empty());
}

TEST_F(CheckAssertTest, SettingStaysOnWhenTheVariableChanges) {
  EXPECT_TRUE(q::find_editor(false).failed());
  quillon2::set_environ_value(L"QUILLON_ERROR_HANDLING", L"");
  EXPECT_TRUE(q::find_editor(false).failed());
  EXPECT_THROW(q::mapping_t{0}, quillon2::exception);
  EXPECT_EQ(3u, m_asserts.reports().size());
}

TEST_F(CheckAssertTest, ThrowingCheckAssertsToo) {
  try {
    q::mapping_t const mapping(-1);
    ADD_FAILURE() << "no exception";
  } catch (quillon2::exception const& thrown) {
    EXPECT_STREQ("q2test_check_assert::mapping_t::mapping_t: IsNot Valid Size(-1)", thrown.what());
  }
  ASSERT_EQ(1u, m_asserts.reports().size());
  EXPECT_EQ(0u, m_asserts.reports()[0].condition.find(
                    "size > 0 'error::IsNot.Valid.Size(std::to_string(size)):-1'\n"));
}

// Whether a value asks for assertions: the word anywhere in it.
TEST(CheckSetting, AssertAnywhereInTheValueTurnsItOn) {
  std::wstring const saved = quillon2::get_environ_value(L"Q2TEST_ERROR_HANDLING");
  for (auto const* value : {L"assert", L"log,assert", L"xassertx"}) {
    quillon2::set_environ_value(L"Q2TEST_ERROR_HANDLING", value);
    EXPECT_TRUE(quillon2::internal::read_error_handling_setting("Q2TEST"));
  }
  for (auto const* value : {L"", L"log", L"ASSERT", L"asser"}) {
    quillon2::set_environ_value(L"Q2TEST_ERROR_HANDLING", value);
    EXPECT_FALSE(quillon2::internal::read_error_handling_setting("Q2TEST"));
  }
  quillon2::set_environ_value(L"Q2TEST_ERROR_HANDLING", saved);
}

}  // namespace
