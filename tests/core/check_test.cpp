// Raising with the source position and the failure check, with the error-handling
// variable asking only for logging. The case that asserts has a source file of its own
// (check_assert_test.cpp), since the variable is read once for each source file.
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>

#include <gtest/gtest.h>

#include <quillon2/core/check.hpp>
#include <quillon2/core/environ.hpp>

#include "core/error_handling_fixture.hpp"

namespace q2test_check {

using quillon2::error_code_t;
namespace error = quillon2::error;

unsigned g_line = 0;

error_code_t open_file(bool exists, std::string const& name) {
  g_line = __LINE__ + 1;
  QUILLON_CHECK(exists, error::FailedTo.Open.The.File(name));
  return error_code_t();
}

error_code_t not_yet() {
  QUILLON_CHECK(ql2::internal::unconditional_alert(), error::IsNot.Implemented.Function);
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

template <class T>
struct box_t {
  error_code_t put(T) { return QUILLON_RAISE(error::IsNot.Valid.Argument); }
};

int g_evaluations = 0;
error::code_t counted_error() {
  ++g_evaluations;
  return error::IsNot.Valid.State("counted");
}
error_code_t check_counted(bool ok) {
  QUILLON_CHECK(ok, counted_error());
  return error_code_t();
}

}  // namespace q2test_check

namespace {

using quillon2::error_code_t;
using quillon2::internal::compose_check_message;
using quillon2::internal::qualified_function_name;
namespace error = quillon2::error;
namespace q = q2test_check;

// --- Function names --------------------------------------------------------------------

TEST(CheckFunctionName, KeepsOnlyTheQualifiedName) {
  std::pair<char const*, char const*> const cases[] = {
      {"int main()", "main"},
      {"quillon2::error_code_t quillon2::create_directory_archive(const std::wstring&, "
       "quillon2::sptr_t<archive_t>&)",
       "quillon2::create_directory_archive"},
      {"ns::cls_t::cls_t(int)", "ns::cls_t::cls_t"},
      {"ns::cls_t::~cls_t()", "ns::cls_t::~cls_t"},
      {"static std::map<int, std::vector<int> > ns::cls_t::st()", "ns::cls_t::st"},
      {"void ns::box_t<T>::put(T) [with T = int]", "ns::box_t<T>::put"},
      {"int ns::{anonymous}::helper()", "ns::{anonymous}::helper"},
      {"bool ns::cls_t::operator==(const ns::cls_t&) const", "ns::cls_t::operator=="},
      {"void ns::cls_t::operator()(int) &&", "ns::cls_t::operator()"},
      {"ns::cls_t::operator bool() const", "ns::cls_t::operator bool"},
      {"bool ns::operator<(const a&, const b&)", "ns::operator<"},
      {"void* operator new(std::size_t)", "operator new"},
      // What cannot be taken apart stays as it is.
      {"top level", "top level"},
      {"ns::run()::<lambda(int)>", "ns::run()::<lambda(int)>"},
      {"", ""},
      {"((", "(("},
      {") x", ") x"},
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

// --- Raising with the source position --------------------------------------------------

constexpr wchar_t k_log[] = L"log";
class CheckTest : public q2test::error_handling_test_t<k_log> {};

bool ends_with(std::string const& text, std::string const& tail) {
  return text.size() >= tail.size() &&
         text.compare(text.size() - tail.size(), tail.size(), tail) == 0;
}

TEST_F(CheckTest, RaiseRecordsTheFunctionFileAndLine) {
  q::reader_t const reader(true);
  error_code_t const raised = reader.read();
  ASSERT_TRUE(raised.failed());
  EXPECT_EQ("q2test_check::reader_t::read", raised.pass()->function);
  EXPECT_EQ(__FILE__, raised.pass()->file);
  EXPECT_EQ(q::g_line, raised.pass()->line);
  EXPECT_EQ("q2test_check::reader_t::read: FailedTo Read Full Data(3 bytes)", raised.as_string(1));

  EXPECT_EQ("q2test_check::box_t<T>::put", q::box_t<int>().put(1).pass()->function);
  EXPECT_EQ("q2test_check::box_t<T>::put", q::box_t<double>().put(1.0).pass()->function);
}

TEST_F(CheckTest, TranslateChainsWithThePosition) {
  q::reader_t const reader(true);
  error_code_t const cause = reader.read();
  error_code_t const top = reader.close(cause);
  EXPECT_EQ(cause.pass(), top.pass()->cause);
  EXPECT_EQ(
      "q2test_check::reader_t::close: FailedTo Close Stream <- "
      "q2test_check::reader_t::read: FailedTo Read Full Data(3 bytes)",
      top.as_string(1));
}

// --- The failure check -----------------------------------------------------------------

TEST_F(CheckTest, MessageShowsConditionErrorAndPosition) {
  EXPECT_EQ(
      "path.is_exists() 'error::IsNot.Valid.Path(path.as_string()):x'\n"
      "dir/file.cpp(12): ns::fn\n",
      compose_check_message("path.is_exists()", "error::IsNot.Valid.Path(path.as_string())", "x",
                            "dir/file.cpp", 12, "ns::fn"));
  EXPECT_EQ("ok 'error::IsNot.Valid.Size:'\nf.cpp(1): \n",
            compose_check_message("ok", "error::IsNot.Valid.Size", "", "f.cpp", 1, nullptr));
  EXPECT_EQ(" ':'\n(0): \n", compose_check_message(nullptr, nullptr, "", nullptr, 0, nullptr));
  // Malformed UTF-8 in the text shows as U+FFFD.
  EXPECT_EQ("c 'e:a\xEF\xBF\xBD'\nf(2): g\n",
            compose_check_message("c", "e", "a\xFF", "f", 2, "g"));
}

TEST_F(CheckTest, PassingCheckChangesNothing) {
  error_code_t const earlier = error_code_t::raise(error::FailedTo.Get.The.Info());
  EXPECT_EQ(nullptr, q::open_file(true, "a.txt").pass());
  EXPECT_EQ(earlier.pass(), error_code_t::get_last().pass());
  EXPECT_FALSE(q::check_counted(true).failed());
  EXPECT_EQ(0, q::g_evaluations);  // the error expression is not evaluated
}

TEST_F(CheckTest, FailedCheckRaisesAndReturnsWithoutAsserting) {
  error_code_t const result = q::open_file(false, "a.txt");
  ASSERT_TRUE(result.failed());
  EXPECT_EQ(result.pass(), error_code_t::get_last().pass());
  EXPECT_EQ(error::FailedTo.Open.The.File, result);
  EXPECT_EQ("a.txt", result.pass()->text);
  EXPECT_EQ("q2test_check::open_file", result.pass()->function);
  EXPECT_TRUE(ends_with(result.pass()->file, "check_test.cpp"));
  EXPECT_EQ(q::g_line, result.pass()->line);
  EXPECT_TRUE(m_asserts.reports().empty());

  EXPECT_TRUE(q::check_counted(false).failed());
  EXPECT_EQ(1, q::g_evaluations);
}

TEST_F(CheckTest, SettingIsReadOnceForTheSourceFile) {
  EXPECT_TRUE(q::open_file(false, "first").failed());
  quillon2::set_environ_value(L"QUILLON_ERROR_HANDLING", L"assert");
  EXPECT_TRUE(q::open_file(false, "second").failed());
  EXPECT_TRUE(m_asserts.reports().empty());
}

TEST_F(CheckTest, UnconditionalCheckAlwaysFails) {
  EXPECT_FALSE(ql2::internal::unconditional_alert());
  error_code_t const result = q::not_yet();
  EXPECT_EQ("q2test_check::not_yet: IsNot Implemented Function", result.as_string(1));
}

TEST_F(CheckTest, ThrowingCheckThrowsTheRaisedError) {
  EXPECT_NO_THROW(q::reader_t{true});
  try {
    q::reader_t const reader(false);
    ADD_FAILURE() << "no exception";
  } catch (quillon2::exception const& thrown) {
    EXPECT_STREQ("q2test_check::reader_t::reader_t: FailedTo Open Stream(in)", thrown.what());
    EXPECT_EQ(error_code_t::get_last().pass(), thrown.code().pass());
    EXPECT_EQ(q::g_line, thrown.code().pass()->line);
  }
}

// The log line goes to standard error with the default logging set-up; a child process
// runs the failing check with its standard error on a pipe.
TEST_F(CheckTest, FailedCheckLogsTheMessageAndPosition) {
  if (std::getenv("QUILLON_LOG_CONFIG") != nullptr) {
    GTEST_SKIP() << "logging is configured from outside";
  }
  ASSERT_FALSE(q::open_file(true, "").failed());  // learns the line of the check
  int pipe_ends[2];
  ASSERT_EQ(0, pipe(pipe_ends));
  pid_t const child = fork();
  ASSERT_NE(-1, child);
  if (child == 0) {
    dup2(pipe_ends[1], STDERR_FILENO);
    close(pipe_ends[0]);
    close(pipe_ends[1]);
    bool const raised = q::open_file(false, "logged.txt").failed();
    std::fflush(stderr);
    _exit(raised ? 0 : 1);
  }
  close(pipe_ends[1]);
  std::string output;
  char buffer[4096];
  for (ssize_t got; (got = read(pipe_ends[0], buffer, sizeof buffer)) > 0;) {
    output.append(buffer, static_cast<std::size_t>(got));
  }
  close(pipe_ends[0]);
  int status = 0;
  ASSERT_EQ(child, waitpid(child, &status, 0));
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(0, WEXITSTATUS(status));

  std::string const line = std::to_string(q::g_line);
  std::string const expected = "exists 'error::FailedTo.Open.The.File(name):logged.txt'\n" +
                               std::string(__FILE__) + "(" + line +
                               "): q2test_check::open_file\n, at file: " + __FILE__ + ":" + line;
  EXPECT_NE(std::string::npos, output.find(expected)) << output;
}

}  // namespace
