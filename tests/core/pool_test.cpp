// The pool's layout and reuse rules, observed through the addresses it hands out.
// The pool is process-wide, so each case starts on a fresh current page and reasons
// from that page's first block. The 4 bytes in front of a block hold its distance from
// the page's start.
#include <malloc.h>

#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <new>
#include <random>
#include <utility>

#include <quillon2/core/pool_allocator.hpp>

#include "core/core_support.hpp"

namespace {

using quillon2::alloc::pool_allocate;
using quillon2::alloc::pool_deallocate;
using block_t = std::pair<char*, std::uint64_t>;

constexpr std::uint64_t page_size = 0x80000;
// Two page pointers, the live count (padded) and 5 x (size, block).
constexpr std::uint64_t page_header_size = 8 + 8 + 8 + 5 * 16;
constexpr std::uint32_t first_block_offset = 112;  // behind header and record, aligned

char* allocate(std::uint64_t size) { return static_cast<char*>(pool_allocate(size)); }
void release(std::initializer_list<block_t> blocks) {
  for (auto [block, size] : blocks) pool_deallocate(block, size);
}

std::uint32_t record_of(void const* block) {
  std::uint32_t offset;
  std::memcpy(&offset, static_cast<char const*>(block) - 4, sizeof offset);
  return offset;
}
char* page_of(char* block) { return block - record_of(block); }
char* next_block_after(char* block, std::uint64_t size) {
  auto const end = reinterpret_cast<std::uintptr_t>(block) + size + 4;
  return reinterpret_cast<char*>((end + 7) & ~std::uintptr_t{7});
}

// A fresh current page's first block, of `size` bytes.
char* first_block_on_fresh_page(std::uint64_t size) {
  char* big = allocate(page_size);  // fits no current page: a page of its own
  char* first = allocate(size);     // nothing is cut behind `big`: a fresh page
  pool_deallocate(big, page_size);  // an older page whose last block goes
  return first;
}

TEST(PoolLayout, BlocksFollowEachOtherAndTheLastFreedComesBackForAnySize) {
  char* a = first_block_on_fresh_page(24);
  char* b = allocate(24);
  char* empty = allocate(0);  // served as 1 byte
  char* c = allocate(5);
  EXPECT_EQ(first_block_offset, record_of(a));
  EXPECT_EQ(32, b - a);
  EXPECT_EQ(first_block_offset + 32, record_of(b));
  EXPECT_EQ(next_block_after(b, 24), empty);
  EXPECT_EQ(next_block_after(empty, 1), c);
  pool_deallocate(c, 5);
  EXPECT_EQ(c, allocate(64));
  release({{c, 64}, {empty, 0}, {b, 24}, {a, 24}});
}

TEST(PoolReuse, CachedBlocksComeBackOnlyForTheirExactSize) {
  char* a = first_block_on_fresh_page(8);
  std::vector<block_t> middle;
  for (std::uint64_t size : {16, 24, 32, 40, 48, 40}) middle.emplace_back(allocate(size), size);
  char* tail = allocate(8);
  for (auto [block, size] : middle) pool_deallocate(block, size);  // the sixth finds no entry

  char* other = allocate(56);
  EXPECT_EQ(next_block_after(tail, 8), other) << "no cached block has this size";
  EXPECT_EQ(middle[3].first, allocate(40));
  char* lost = allocate(40);
  EXPECT_EQ(next_block_after(other, 56), lost) << "the sixth block was not remembered";
  for (int i : {0, 1, 2, 4}) EXPECT_EQ(middle[i].first, allocate(middle[i].second));

  release({{lost, 40}, {other, 56}, {tail, 8}});
  for (auto [block, size] : middle) {
    if (block != middle[5].first) pool_deallocate(block, size);
  }
  pool_deallocate(a, 8);
}

TEST(PoolReuse, EmptiedCurrentPageStartsAgainAndForgetsItsCache) {
  char* a = first_block_on_fresh_page(24);
  char* b = allocate(40);
  char* c = allocate(24);
  release({{b, 40}, {a, 24}, {c, 24}});  // two cached, then the last live block
  char* again = allocate(40);
  EXPECT_EQ(a, again) << "cut at the page's start, not taken from the cache";
  pool_deallocate(again, 40);
}

TEST(PoolReuse, BlocksFreedOnAnOlderPageAreNotReused) {
  char* old_first = first_block_on_fresh_page(32);
  char* old_second = allocate(32);
  char* old_third = allocate(32);
  char* current = first_block_on_fresh_page(32);
  pool_deallocate(old_second, 32);  // remembered by its own page only
  char* taken = allocate(32);
  EXPECT_EQ(next_block_after(current, 32), taken);
  release({{old_first, 32}, {old_third, 32}, {taken, 32}, {current, 32}});
}

TEST(PoolPages, OversizeRequestGetsAPageOfItsOwnSize) {
  char* a = first_block_on_fresh_page(16);
  EXPECT_GE(malloc_usable_size(page_of(a)), page_size);
  std::uint64_t const size = 3 * page_size + 5;
  char* huge = allocate(size);
  EXPECT_EQ(first_block_offset, record_of(huge));
  EXPECT_GE(malloc_usable_size(page_of(huge)), size + 4 + page_header_size + 7);
  std::memset(huge, 0x5A, size);
  char* small = allocate(16);
  EXPECT_NE(page_of(huge), page_of(small)) << "nothing more is cut from the big page";
  release({{huge, size}, {small, 16}});
  char* big = allocate(2 * page_size);
  pool_deallocate(big, 2 * page_size);  // its page is current: it is used again
  EXPECT_EQ(big, allocate(16));
  release({{big, 16}, {a, 16}});
}

TEST(PoolPages, OlderPagesGoWhenTheirLastBlockReturns) {
  // Pages unlinked in a mixed order must leave the list sound: a stale link is written
  // through later (the address sanitizer catches that) or walked at unload.
  std::vector<char*> pages;
  for (int i = 0; i < 4; ++i) {
    pages.push_back(first_block_on_fresh_page(64));
    std::memset(pages.back(), 0x10 + i, 64);
  }
  release({{pages[1], 64}, {pages[0], 64}, {pages[2], 64}});
  char* block = allocate(64);
  EXPECT_EQ(next_block_after(pages[3], 64), block);
  EXPECT_EQ(std::string(64, 0x13), std::string(pages[3], 64));
  char* newer = first_block_on_fresh_page(64);
  release({{pages[3], 64}, {block, 64}, {newer, 64}});
}

TEST(PoolFailure, NullAndForeignBlocksAreIgnored) {
  char* a = first_block_on_fresh_page(24);
  char* b = allocate(24);
  pool_deallocate(nullptr, 24);
  alignas(8) char foreign[64] = {};
  for (std::uint32_t record : {0u, 100u, 0x80000u, 0xFFFFFFFFu}) {
    std::memcpy(foreign + 12, &record, sizeof record);
    pool_deallocate(foreign + 16, 24);
  }
  pool_deallocate(b, 24);
  EXPECT_EQ(b, allocate(24)) << "the page still counts two live blocks";
  release({{b, 24}, {a, 24}});
}

TEST(PoolFailure, ImpossibleRequestIsReportedAndLeavesThePoolAsItWas) {
  char* a = first_block_on_fresh_page(24);
  EXPECT_THROW(pool_allocate(~std::uint64_t{0}), std::bad_alloc);
  quillon2::error_code_t::clean_last();
  EXPECT_THROW(pool_allocate(std::uint64_t{1} << 45), std::bad_alloc);
  auto const reported = quillon2::error_code_t::get_last();
  EXPECT_TRUE(reported == quillon2::error::FailedTo.Get.Enough.Memory);
  EXPECT_NE(std::string::npos,
            reported.as_string().find("Failed memory allocation, alloc_size=35184372088832"));
  char* b = allocate(24);  // the lock was released and nothing moved
  EXPECT_EQ(a + 32, b);
  release({{b, 24}, {a, 24}});
}

TEST(PoolThreads, BlocksStayIntactUnderConcurrentUse) {
  std::vector<int> damaged(3, 0);
  q2test::on_threads(3, [&](int id) {
    std::mt19937 random(id + 1);
    std::vector<block_t> live;
    auto const fill = static_cast<char>(0x30 + id);
    auto release_at = [&](std::size_t index) {
      auto [block, size] = live[index];
      damaged[id] += block[0] != fill || std::memcmp(block, block + 1, size - 1) != 0;
      pool_deallocate(block, size);
      live[index] = live.back();
      live.pop_back();
    };
    for (int round = 0; round < 20000; ++round) {
      if (live.size() < 64 && random() % 3 != 0) {
        std::uint64_t const size = random() % 1000 ? 1 + random() % 300 : page_size + 9;
        live.emplace_back(allocate(size), size);
        std::memset(live.back().first, fill, size);
      } else if (!live.empty()) {
        release_at(random() % 2 ? live.size() - 1 : random() % live.size());
      }
    }
    while (!live.empty()) release_at(live.size() - 1);
  });
  EXPECT_EQ(std::vector<int>(3, 0), damaged);
}

}  // namespace
