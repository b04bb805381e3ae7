// The environment of a child: lines, expansion, merging, list values, the block, and
// variables that reach a real child unchanged.
#include <stdlib.h>

#include "process_test_support.hpp"

namespace {

namespace q2 = quillon2;
namespace qp = quillon2::process;

std::wstring block_of(q2::sptr_t<qp::IEnvironment> const& env) {
  wchar_t const* block = env->build(false);
  std::wstring text;
  for (wchar_t const* entry = block; *entry != L'\0'; entry += wcslen(entry) + 1) {
    text += entry;
    text += L'|';
  }
  return text;
}

q2::generic_iterator_t<std::wstring> values(std::vector<std::wstring> list) {
  return q2::iterutil::make_owned_iterator_from<std::wstring>(std::move(list));
}

TEST(Environment, LinesExpandAndIgnoreCaseOfNames) {
  auto env = qp::IEnvironment::create(false);
  env->addLines(L"Path=x\nA=1\nB=%a%:2\nC=a%b\nD=a%%b\nE=a%\nF=<%unknown%>\nG=1\r\n", false);
  EXPECT_EQ(env->get(L"PATH"), L"x");
  EXPECT_EQ(env->get(L"path"), L"x");
  // A line without "=" after its first character is passed over; the name keeps its case.
  env->addLines(L"novalue\n=x\n", false);
  EXPECT_EQ(block_of(env), L"A=1|B=1:2|C=a%b|D=a%b|E=a%|F=<>|G=1\r|Path=x|");

  std::wstring const big(1 << 20, L'v');
  env->addLines(L"BIG=" + big + L"\nTWICE=%BIG%%BIG%", false);
  EXPECT_EQ(env->get(L"TWICE").size(), 2u << 20);
}

TEST(Environment, MergingPutsNewValuesInFront) {
  auto env = qp::IEnvironment::create(false);
  env->addLines(L"PATH=/old", false);
  env->addLines(L"PATH=/new\nPATH=\nNEWVAR=", true);
  EXPECT_EQ(env->get(L"PATH"), L"/new:/old");
  EXPECT_EQ(block_of(env), L"NEWVAR=|PATH=/new:/old|");
  env->addLines(L"path=/only", false);
  EXPECT_EQ(env->get(L"PATH"), L"/only");
}

TEST(Environment, AddValuesJoinsLists) {
  auto env = qp::IEnvironment::create(false);
  env->addValues(L"LIST", values({L"", L""}), true);
  env->addValues(L"LIST", values({}), false);
  EXPECT_EQ(std::wstring(env->build(true)), L"");
  EXPECT_EQ(env->get(L"PATH"), L"");
  env->addLines(L"PATH=/usr/bin", false);
  env->addValues(L"PATH", values({L"/a", L"", L"/b"}), true);
  EXPECT_EQ(env->get(L"PATH"), L"/usr/bin:/a:/b");
  env->addValues(L"PATH", values({L"/c"}), false);
  EXPECT_EQ(env->get(L"PATH"), L"/c:/usr/bin:/a:/b");
  // Written under the name as given: a second entry beside PATH.
  env->addValues(L"Path", values({L"/d"}), true);
  env->addValues(L"", values({L"x"}), true);
  env->addValues(L"A=B", values({L"x"}), true);
  EXPECT_EQ(block_of(env), L"PATH=/c:/usr/bin:/a:/b|Path=/c:/usr/bin:/a:/b:/d|");
}

TEST(Environment, VariablesReachAChildUnchanged) {
  ::setenv("Q2_TEST_RAW", "\xff\xfe raw \x80", 1);
  ::setenv("q2_test_proxy", "lower", 1);
  ::setenv("Q2_TEST_PROXY", "upper", 1);
  auto env = qp::IEnvironment::create(true);
  ::unsetenv("Q2_TEST_RAW");
  ::unsetenv("q2_test_proxy");
  ::unsetenv("Q2_TEST_PROXY");
  EXPECT_EQ(env->get(L"q2_test_proxy"), L"lower");
  EXPECT_EQ(env->get(L"Q2_TEST_PROXY"), L"upper");
  EXPECT_EQ(env->get(L"Q2_Test_Proxy"), L"");  // two spellings: no match that ignores case
  env->addLines(L"Q2_TEST_ADDED=%Q2_TEST_PROXY%-\u00e9\nq2_TEST_proxy=%q2_test_proxy%", false);
  std::string const text = "\n" + q2test::output_of(L"/usr/bin/env", {}, env);
  for (char const* line : {"\nQ2_TEST_RAW=\xff\xfe raw \x80\n", "\nq2_test_proxy=lower\n",
                           "\nQ2_TEST_PROXY=upper\n", "\nQ2_TEST_ADDED=upper-\xc3\xa9\n",
                           "\nq2_TEST_proxy=lower\n"}) {
    EXPECT_NE(text.find(line), std::string::npos) << line;
  }

  env = qp::IEnvironment::create(false);
  env->addLines(L"ONLY=1", false);
  EXPECT_EQ(q2test::output_of(L"/usr/bin/env", {}, env), "ONLY=1\n");
}

}  // namespace
