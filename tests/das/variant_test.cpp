// Variants: construction, blobs, shared blocks, access, cross-type comparison
// and copies of one value on many threads.
#include <atomic>
#include <cstring>
#include <limits>
#include <thread>

#include "das/das_support.hpp"

using namespace das_test;

namespace {

TEST(VariantConstruction, TextIsCopiedUnlessByReferenceAndNullReadsAsEmpty) {
  wchar_t buffer[] = L"abc";
  variant_t copied(buffer);
  variant_t referenced(buffer, true);
  buffer[0] = L'z';
  EXPECT_STREQ(copied.get<const wchar_t*>(), L"abc");
  EXPECT_EQ(referenced.get<const wchar_t*>(), buffer);
  EXPECT_STREQ(variant_t(static_cast<char const*>(nullptr)).get<const char*>(), "");
  EXPECT_EQ(variant_t(static_cast<wchar_t const*>(nullptr)), variant_t(L""));
}

TEST(VariantBlob, SizeDataCopiesAndEquality) {
  unsigned char const bytes[] = {1, 2, 3, 4};
  variant_t blob(bytes, sizeof bytes);
  EXPECT_EQ(blob.get_blob_size(), 4u);
  unsigned char out[8] = {};
  EXPECT_EQ(blob.get_blob_data(out, sizeof out), 4u);
  EXPECT_EQ(std::memcmp(out, bytes, 4), 0);
  // Other types answer the maximum; null data is zero-filled.
  EXPECT_EQ(variant_t(L"abc").get_blob_data(out, sizeof out), std::numeric_limits<u64_t>::max());
  unsigned char const zeros[3] = {0, 0, 0};
  EXPECT_EQ(variant_t(static_cast<void const*>(nullptr), 3), variant_t(zeros, 3));
}

// Short blocks are compared a word at a time: a difference in any byte, at any size on
// either side of a word and of the short-block limit, must still tell them apart.
TEST(VariantBlob, EqualityFindsADifferenceInAnyByte) {
  for (std::size_t size = 0; size <= 80; ++size) {
    std::vector<unsigned char> bytes(size);
    for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<unsigned char>(i * 7 + 1);
    variant_t const blob(static_cast<void const*>(bytes.data()), size);
    EXPECT_EQ(blob, variant_t(static_cast<void const*>(bytes.data()), size)) << size;
    for (std::size_t at = 0; at < size; ++at) {
      std::vector<unsigned char> other = bytes;
      other[at] ^= 0x10;
      EXPECT_NE(blob, variant_t(static_cast<void const*>(other.data()), size)) << size << ' ' << at;
    }
  }
}

TEST(VariantCopy, CopiesShareTheirBlockAndSurviveTheOriginal) {
  auto* original = new variant_t(L"shared text");
  variant_t copy(*original);
  variant_t assigned;
  assigned = *original;
  EXPECT_EQ(copy.get<const wchar_t*>(), original->get<const wchar_t*>());
  delete original;
  EXPECT_STREQ(copy.get<const wchar_t*>(), L"shared text");
  EXPECT_STREQ(assigned.get<const wchar_t*>(), L"shared text");
  variant_t moved(std::move(copy));
  EXPECT_EQ(copy.get_type(), vtNull);
  EXPECT_STREQ(moved.get<const wchar_t*>(), L"shared text");
}

TEST(VariantAccess, WiderReadsOfNarrowerTagsSignExtendedAndFloatingBySignedness) {
  variant_t us(static_cast<unsigned short>(7));
  EXPECT_FALSE(us.can_get<s8_t>());
  EXPECT_FALSE(variant_t(1).can_get<s16_t>());
  EXPECT_TRUE(variant_t(1).can_get<double>());
  EXPECT_FALSE(variant_t(1.0).can_get<s64_t>());
  EXPECT_FALSE(variant_t("x").can_get<const wchar_t*>());
  EXPECT_EQ(variant_t('a').get_type(), vtSByte);
  EXPECT_EQ(variant_t(static_cast<s8_t>(-1)).get<u64_t>(), ~u64_t(0));
  EXPECT_EQ(variant_t(~u64_t(0)).get<double>(), 18446744073709551615.0);
}

TEST(VariantAccess, WrongReadsReportTheExactCondition) {
  q2test::assert_recorder_t capture;
  variant_t v(70000);
  EXPECT_EQ(v.get<s16_t>(), static_cast<s16_t>(70000));
  EXPECT_STREQ(v.get<const wchar_t*>(), L"");
  variant_t(L"x").get<u8_t>();
  variant_t(L"x").get<double>();
  EXPECT_STREQ(variant_t(L"x").get<const char*>(), "");
  EXPECT_EQ(
      capture.conditions(),
      (std::vector<std::string>{"can_get<s16_t>()", "can_get<const wchar_t*>()", "can_get<u8_t>()",
                                "can_get<double>()", "can_get<const char*>()"}));
}

TEST(VariantCompare, NumbersAcrossTagsTextWithinItsWidth) {
  EXPECT_EQ(variant_t(true), variant_t(1));
  EXPECT_EQ(variant_t(1), variant_t(1.0));
  EXPECT_NE(variant_t(0.1f), variant_t(0.1));
  EXPECT_NE(variant_t(-1), variant_t(0xFFFFFFFFu));
  double const nan = std::numeric_limits<double>::quiet_NaN();
  EXPECT_NE(variant_t(nan), variant_t(nan));
  EXPECT_NE(variant_t("a"), variant_t(L"a"));
  EXPECT_LT(variant_t(-1), variant_t(1u));
  EXPECT_GT(variant_t(~u64_t(0)), variant_t(1u));
}

TEST(VariantCompare, UnrelatedTypesOrderByTagLargestFirstTextAndBlobsByContent) {
  variant_t const null;
  EXPECT_LT(null, variant_t("x"));
  EXPECT_LT(variant_t("x"), variant_t(5));
  EXPECT_LT(variant_t(L"a"), variant_t("a"));
  EXPECT_GT(variant_t(L"b"), variant_t(L"a", true));
  unsigned char const big[] = {0xFF};
  unsigned char const small[] = {0x00, 0x00};
  EXPECT_LT(variant_t(big, 1), variant_t(small, 2));
  EXPECT_LT(variant_t(small, 1), variant_t(big, 1));
  EXPECT_GT(variant_t("\xC3"), variant_t("a"));
}

// Copies of one value are made, read and destroyed on several threads at once; the
// shared block must be freed exactly once (checked by the sanitizers).
TEST(VariantThreads, CopiesOfOneValueLiveOnManyThreads) {
  constexpr int threads = 8;
  auto* source = new variant_t(L"a block shared between threads");
  std::atomic<bool> go{false};
  std::atomic<int> mismatches{0};
  std::vector<std::thread> workers;
  for (int t = 0; t < threads; ++t) {
    workers.emplace_back([&, copy = *source]() mutable {
      while (!go.load()) std::this_thread::yield();
      for (int i = 0; i < 2000; ++i) {
        variant_t local(copy);
        variant_t other;
        other = local;
        if (std::wcscmp(other.get<const wchar_t*>(), L"a block shared between threads") != 0)
          ++mismatches;
      }
    });
  }
  go = true;
  delete source;
  for (auto& w : workers) w.join();
  EXPECT_EQ(mismatches.load(), 0);
}

}  // namespace
