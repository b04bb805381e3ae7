// Raising with the source position and the failure check. Whether a failed check asserts
// is read from QUILLON_ERROR_HANDLING once for the process: the fixture settles it to
// "log" before any check, and the cases that log or assert run in child processes.
#include <cstdlib>
#include <cstring>
#include <utility>

#include <quillon2/core/check.hpp>
#include <quillon2/core/environ.hpp>

#include "core/core_support.hpp"

namespace q2test_check {

using quillon2::error_code_t;
namespace error = quillon2::error;

unsigned g_line = 0;

error_code_t open_file(bool exists, std::string const& name) {
  g_line = __LINE__ + 1;
  QUILLON_CHECK(exists, error::FailedTo.Open.The.File(name));
  return error_code_t();
}

class reader_t {
 public:
  explicit reader_t(bool ok) {
    g_line = __LINE__ + 1;
    QUILLON_CHECK_THROW(ok, error::FailedTo.Open.The.Stream("in"));
  }
  error::code_t const* read() const {
    g_line = __LINE__ + 1;
    return QUILLON_RAISE(error::FailedTo.Read.Full.Data("3 bytes"));
  }
  error_code_t close(error_code_t const& cause) const {
    return QUILLON_TRANSLATE(cause, error::FailedTo.Close.The.Stream());
  }
};

int g_evaluations = 0;
error_code_t check_counted(bool ok) {
  QUILLON_CHECK(ok, (++g_evaluations, error::IsNot.Valid.State("counted")));
  return error_code_t();
}

}  // namespace q2test_check

namespace {

using quillon2::error_code_t;
using quillon2::internal::compose_check_message;
using quillon2::internal::qualified_function_name;
namespace error = quillon2::error;
namespace q = q2test_check;

// `text` as a regular expression that matches it literally.
std::string literally(std::string const& text) {
  std::string pattern;
  for (char c : text) {
    if (std::strchr(".[]{}()\\*+?|^$", c) != nullptr) pattern += '\\';
    pattern += c;
  }
  return pattern;
}

// The text a failed open_file() logs and asserts.
std::string open_file_message(std::string const& name) {
  return "exists 'error::FailedTo.Open.The.File(name):" + name + "'\n" + __FILE__ + "(" +
         std::to_string(q::g_line) + "): q2test_check::open_file\n";
}

TEST(CheckFunctionName, KeepsOnlyTheQualifiedName) {
  std::pair<char const*, char const*> const cases[] = {
      {"int main()", "main"},
      {"quillon2::error_code_t quillon2::create_directory_archive(const std::wstring&, "
       "quillon2::sptr_t<archive_t>&)",
       "quillon2::create_directory_archive"},
      {"ns::cls_t::cls_t(int)", "ns::cls_t::cls_t"},
      {"static std::map<int, std::vector<int> > ns::cls_t::st()", "ns::cls_t::st"},
      {"void ns::box_t<T>::put(T) [with T = int]", "ns::box_t<T>::put"},
      {"int ns::{anonymous}::helper()", "ns::{anonymous}::helper"},
      {"bool ns::cls_t::operator==(const ns::cls_t&) const", "ns::cls_t::operator=="},
      {"ns::cls_t::operator bool() const", "ns::cls_t::operator bool"},
      {"bool ns::operator<(const a&, const b&)", "ns::operator<"},
      {"void* operator new(std::size_t)", "operator new"},
      // What cannot be taken apart stays as it is.
      {"top level", "top level"},
      {"ns::run()::<lambda(int)>", "ns::run()::<lambda(int)>"},
      {"((", "(("},
  };
  for (auto const& [signature, name] : cases) {
    EXPECT_STREQ(name, qualified_function_name(signature)) << signature;
  }
  EXPECT_STREQ("", qualified_function_name(nullptr));
  // A function returning a function pointer does not come apart cleanly; no crash.
  EXPECT_NE(nullptr, qualified_function_name("void (* ns::f(int))(long)"));
  char const* once = qualified_function_name("int a::b(int)");
  EXPECT_EQ(once, qualified_function_name("long a::b(int)"));  // kept once for the process
}

TEST(CheckMessage, ShowsConditionErrorAndPosition) {
  EXPECT_EQ(
      "path.is_exists() 'error::IsNot.Valid.Path(path.as_string()):x'\n"
      "dir/file.cpp(12): ns::fn\n",
      compose_check_message("path.is_exists()", "error::IsNot.Valid.Path(path.as_string())", "x",
                            "dir/file.cpp", 12, "ns::fn"));
  // Malformed UTF-8 in the text shows as U+FFFD.
  EXPECT_EQ("c 'e:a\xEF\xBF\xBD'\nf(2): g\n",
            compose_check_message("c", "e", "a\xFF", "f", 2, "g"));
}

// A child process of its own: nothing reads the setting in it before the statement.
TEST(CheckDeathTest, FailedChecksAssertWhenAskedToEvenAfterTheVariableChanges) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  ASSERT_FALSE(q::open_file(true, "").failed());  // learns the line of the check
  std::string const first =
      std::string(__FILE__) + "(" + std::to_string(q::g_line) +
      "): q2test_check::open_file: assertion failed: " + open_file_message("a.txt");
  EXPECT_EXIT(
      {
        quillon2::set_environ_value(L"QUILLON_ERROR_HANDLING", L"log,assert");
        quillon2::internal::set_assert_hook(nullptr);
        bool const failed = q::open_file(false, "a.txt").failed();
        quillon2::set_environ_value(L"QUILLON_ERROR_HANDLING", L"");
        try {
          q::reader_t const reader(false);
        } catch (quillon2::exception const&) {
          std::exit(failed ? 0 : 1);
        }
      },
      testing::ExitedWithCode(0),
      literally(first) + ".*" +
          literally("assertion failed: ok 'error::FailedTo.Open.The.Stream(\"in\"):in'"));
}

class CheckTest : public q2test::error_list_test {
 protected:
  static void SetUpTestSuite() {
    quillon2::set_environ_value(L"QUILLON_ERROR_HANDLING", L"log");
    quillon2::internal::failed_checks_assert();
  }
  void SetUp() override {
    if (quillon2::internal::failed_checks_assert()) GTEST_SKIP() << "checks assert here";
    error_list_test::SetUp();
  }
  q2test::assert_recorder_t m_asserts;
};

TEST_F(CheckTest, RaiseAndTranslateRecordTheFunctionFileAndLine) {
  q::reader_t const reader(true);
  error_code_t const raised = reader.read();
  ASSERT_TRUE(raised.failed());
  EXPECT_EQ(__FILE__, raised.pass()->file);
  EXPECT_EQ(q::g_line, raised.pass()->line);
  EXPECT_EQ("q2test_check::reader_t::read: FailedTo Read Full Data(3 bytes)", raised.as_string(1));
  error_code_t const top = reader.close(raised);
  EXPECT_EQ(raised.pass(), top.pass()->cause);
  EXPECT_EQ(
      "q2test_check::reader_t::close: FailedTo Close Stream <- "
      "q2test_check::reader_t::read: FailedTo Read Full Data(3 bytes)",
      top.as_string(1));
}

TEST_F(CheckTest, FailedCheckRaisesAndReturnsWithoutAsserting) {
  error_code_t const earlier = error_code_t::raise(error::FailedTo.Get.The.Info());
  EXPECT_FALSE(q::check_counted(true).failed());
  EXPECT_EQ(0, q::g_evaluations);  // the error expression is not evaluated
  EXPECT_EQ(earlier.pass(), error_code_t::get_last().pass());

  // The setting was read once: changing the variable now asks for nothing.
  quillon2::set_environ_value(L"QUILLON_ERROR_HANDLING", L"assert");
  error_code_t const result = q::open_file(false, "a.txt");
  ASSERT_TRUE(result.failed());
  EXPECT_EQ(result.pass(), error_code_t::get_last().pass());
  EXPECT_EQ("q2test_check::open_file: FailedTo Open File(a.txt)", result.as_string(1));
  EXPECT_EQ(q::g_line, result.pass()->line);
  EXPECT_TRUE(q::check_counted(false).failed());
  EXPECT_EQ(1, q::g_evaluations);
  try {
    q::reader_t const reader(false);
    ADD_FAILURE() << "no exception";
  } catch (quillon2::exception const& thrown) {
    EXPECT_STREQ("q2test_check::reader_t::reader_t: FailedTo Open Stream(in)", thrown.what());
    EXPECT_EQ(error_code_t::get_last().pass(), thrown.code().pass());
    EXPECT_EQ(q::g_line, thrown.code().pass()->line);
  }
  EXPECT_TRUE(m_asserts.reports().empty());
}

// The log line goes to standard error with the default logging set-up.
TEST_F(CheckTest, FailedCheckLogsTheMessageAndPosition) {
  if (std::getenv("QUILLON_LOG_CONFIG") != nullptr) GTEST_SKIP() << "logging set from outside";
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  ASSERT_FALSE(q::open_file(true, "").failed());  // learns the line of the check
  std::string const line = std::to_string(q::g_line);
  EXPECT_EXIT(std::exit(q::open_file(false, "logged.txt").failed() ? 0 : 1),
              testing::ExitedWithCode(0),
              literally(open_file_message("logged.txt") + ", at file: " + __FILE__ + ":" + line));
}

}  // namespace
