#include <gtest/gtest.h>

#include <quillon2/headers/kesmet.hpp>

TEST(Utf, RoundTripsAscii) {
  EXPECT_EQ(L"abc", kesmet2::utf8_to_utf16("abc"));
  EXPECT_EQ("abc", kesmet2::utf16_to_utf8(L"abc"));
}
