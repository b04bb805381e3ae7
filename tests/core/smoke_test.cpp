#include <gtest/gtest.h>

#include <quillon2/quillon2.hpp>

extern "C" const char* quillon2_version();

TEST(Library, ReportsItsVersion) { EXPECT_STREQ("2.0.0", quillon2_version()); }
