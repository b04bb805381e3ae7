// The pool's layout and reuse rules, observed through the addresses it hands out.
//
// The pool is process-wide, so every case starts on a fresh current page of its own and
// reasons about addresses relative to that page's first block. A block's page is found
// through the 4-byte record in front of the block, which holds its distance from the
// page's start.
#include <malloc.h>

#include <cstdint>
#include <cstring>
#include <new>
#include <random>
#include <thread>
#include <vector>

#include <boost/thread/barrier.hpp>
#include <gtest/gtest.h>

#include <quillon2/core/pool_allocator.hpp>

namespace {

using quillon2::alloc::pool_allocate;
using quillon2::alloc::pool_deallocate;

constexpr std::uint64_t page_size = 0x80000;
// Page header: two page pointers, the 32-bit live count (padded), 5 x (size, block).
constexpr std::uint64_t page_header_size = 8 + 8 + 8 + 5 * 16;
// The first block: behind the header and the block's 4-byte record, aligned to 8.
constexpr std::uint32_t first_block_offset = 112;

char* allocate(std::uint64_t size) { return static_cast<char*>(pool_allocate(size)); }

std::uint32_t record_of(void const* block) {
  std::uint32_t offset;
  std::memcpy(&offset, static_cast<char const*>(block) - 4, sizeof offset);
  return offset;
}

char const* page_of(void const* block) {
  return static_cast<char const*>(block) - record_of(block);
}

char* next_block_after(char* block, std::uint64_t size) {
  auto const end = reinterpret_cast<std::uintptr_t>(block) + size + 4;
  return reinterpret_cast<char*>((end + 7) & ~std::uintptr_t{7});
}

// Makes the pool start a new current page and returns its first block, of `size` bytes.
char* first_block_on_fresh_page(std::uint64_t size) {
  char* big = allocate(page_size);  // no current page has room: it gets a page of its own
  char* first = allocate(size);     // nothing more is cut behind `big`: a fresh page
  pool_deallocate(big, page_size);  // an older page whose last block goes
  return first;
}

TEST(PoolLayout, FirstBlockLiesBehindThePageHeader) {
  char* first = first_block_on_fresh_page(24);
  EXPECT_EQ(first_block_offset, record_of(first));
  EXPECT_EQ(0u, reinterpret_cast<std::uintptr_t>(first) % 8);
  pool_deallocate(first, 24);
}

TEST(PoolLayout, BlocksOf24Lie32BytesApart) {
  char* a = first_block_on_fresh_page(24);
  char* b = allocate(24);
  char* c = allocate(24);
  EXPECT_EQ(32, b - a);
  EXPECT_EQ(32, c - b);
  EXPECT_EQ(first_block_offset + 32, record_of(b));
  EXPECT_EQ(first_block_offset + 64, record_of(c));
  EXPECT_EQ(page_of(a), page_of(c));
  for (char* block : {c, b, a}) pool_deallocate(block, 24);
}

TEST(PoolLayout, EveryBlockIsAlignedBehindItsRecord) {
  std::vector<std::pair<char*, std::uint64_t>> blocks{{first_block_on_fresh_page(1), 1}};
  for (std::uint64_t size = 1; size <= 40; ++size) {
    auto const [previous, previous_size] = blocks.back();
    char* block = allocate(size);
    EXPECT_EQ(next_block_after(previous, previous_size), block) << "size " << size;
    EXPECT_EQ(page_of(blocks.front().first), page_of(block));
    std::memset(block, 0xA5, size);
    blocks.emplace_back(block, size);
  }
  for (auto it = blocks.rbegin(); it != blocks.rend(); ++it) pool_deallocate(it->first, it->second);
}

TEST(PoolLayout, SizeZeroIsServedAsOne) {
  char* a = first_block_on_fresh_page(0);
  char* b = allocate(0);
  EXPECT_EQ(8, b - a);
  pool_deallocate(b, 0);
  EXPECT_EQ(b, allocate(0));  // the last block came back
  pool_deallocate(b, 0);
  pool_deallocate(a, 0);
}

TEST(PoolReuse, LastBlockFreedComesBackFirst) {
  char* a = first_block_on_fresh_page(24);
  char* b = allocate(24);
  pool_deallocate(b, 24);
  EXPECT_EQ(b, allocate(24));
  pool_deallocate(b, 24);
  EXPECT_EQ(b, allocate(64)) << "the room of the last block is free for any size";
  pool_deallocate(b, 64);
  pool_deallocate(a, 24);
}

TEST(PoolReuse, MiddleBlockComesBackOnlyForItsExactSize) {
  char* a = first_block_on_fresh_page(40);
  char* middle = allocate(40);
  char* last = allocate(40);
  pool_deallocate(middle, 40);
  char* other = allocate(48);
  EXPECT_EQ(next_block_after(last, 40), other);
  EXPECT_EQ(middle, allocate(40));
  for (auto [block, size] : {std::pair{other, 48}, {last, 40}, {middle, 40}, {a, 40}}) {
    pool_deallocate(block, size);
  }
}

TEST(PoolReuse, CachedBlocksComeBackInTheOrderTheyWereFreed) {
  char* a = first_block_on_fresh_page(8);
  char* m1 = allocate(40);
  char* s = allocate(8);
  char* m2 = allocate(40);
  char* z = allocate(8);
  pool_deallocate(m2, 40);
  pool_deallocate(m1, 40);
  EXPECT_EQ(m2, allocate(40));
  EXPECT_EQ(m1, allocate(40));
  char* fresh = allocate(40);
  EXPECT_EQ(next_block_after(z, 8), fresh);
  for (auto [block, size] : {std::pair{fresh, 40}, {z, 8}, {m2, 40}, {s, 8}, {m1, 40}, {a, 8}}) {
    pool_deallocate(block, size);
  }
}

TEST(PoolReuse, FullCacheLosesTheSixthBlockUntilThePageGoes) {
  char* a = first_block_on_fresh_page(8);
  std::vector<std::pair<char*, std::uint64_t>> middle;
  for (std::uint64_t size : {16, 24, 32, 40, 48, 56}) middle.emplace_back(allocate(size), size);
  char* tail = allocate(8);
  for (auto [block, size] : middle) pool_deallocate(block, size);  // the sixth finds no entry

  char* replacement = allocate(56);
  EXPECT_NE(middle[5].first, replacement);
  EXPECT_EQ(next_block_after(tail, 8), replacement);
  for (int i = 0; i < 5; ++i) EXPECT_EQ(middle[i].first, allocate(middle[i].second));

  for (int i = 4; i >= 0; --i) pool_deallocate(middle[i].first, middle[i].second);
  pool_deallocate(replacement, 56);
  pool_deallocate(tail, 8);
  pool_deallocate(a, 8);
  EXPECT_EQ(a, allocate(56)) << "the page is empty and starts again";
  pool_deallocate(a, 56);
}

TEST(PoolReuse, EmptiedCurrentPageStartsAgainAndForgetsItsCache) {
  char* a = first_block_on_fresh_page(24);
  char* b = allocate(40);
  char* c = allocate(24);
  pool_deallocate(b, 40);  // cached
  pool_deallocate(a, 24);  // cached
  pool_deallocate(c, 24);  // the last live block: the page starts again
  char* again = allocate(40);
  EXPECT_EQ(a, again) << "cut at the page's start, not taken from the forgotten cache";
  char* next = allocate(24);
  EXPECT_EQ(next_block_after(again, 40), next);
  pool_deallocate(next, 24);
  pool_deallocate(again, 40);
}

TEST(PoolReuse, BlocksFreedOnAnOlderPageAreNotReused) {
  char* old_first = first_block_on_fresh_page(32);
  char* old_second = allocate(32);
  char* old_third = allocate(32);
  char* current = first_block_on_fresh_page(32);
  pool_deallocate(old_second, 32);  // remembered by the older page only
  char* taken = allocate(32);
  EXPECT_NE(old_second, taken);
  EXPECT_EQ(next_block_after(current, 32), taken);
  for (char* block : {old_first, old_third, taken, current}) pool_deallocate(block, 32);
}

TEST(PoolPages, PageSizedRequestGetsAPageWithRoomForHeaderAndRecord) {
  char* a = first_block_on_fresh_page(16);
  EXPECT_GE(malloc_usable_size(const_cast<char*>(page_of(a))), page_size);
  char* big = allocate(page_size);
  EXPECT_EQ(first_block_offset, record_of(big));
  EXPECT_GE(malloc_usable_size(const_cast<char*>(page_of(big))),
            page_size + 4 + page_header_size + 7);
  std::memset(big, 0x5A, page_size);
  pool_deallocate(big, page_size);
  pool_deallocate(a, 16);
}

TEST(PoolPages, OversizeRequestGetsAPageOfItsOwn) {
  char* a = first_block_on_fresh_page(16);
  std::uint64_t const size = 3 * page_size + 5;
  char* big = allocate(size);
  EXPECT_EQ(first_block_offset, record_of(big));
  EXPECT_NE(page_of(a), page_of(big));
  EXPECT_GE(malloc_usable_size(const_cast<char*>(page_of(big))), size + 4 + page_header_size + 7);
  std::memset(big, 0x5A, size);
  char* small = allocate(16);
  EXPECT_NE(page_of(big), page_of(small)) << "nothing is cut from the big page while it lives";
  EXPECT_EQ(first_block_offset, record_of(small));
  for (auto [block, n] : {std::pair{big, size}, {small, 16}, {a, 16}}) pool_deallocate(block, n);
}

TEST(PoolPages, OversizePageIsReusedOnceItsBlockDiesWhileCurrent) {
  char* big = allocate(2 * page_size);
  pool_deallocate(big, 2 * page_size);  // its page is current: it starts again
  char* small = allocate(16);
  EXPECT_EQ(big, small);
  pool_deallocate(small, 16);
}

TEST(PoolPages, OlderPagesGoWhenTheirLastBlockReturns) {
  // Pages from newest to oldest: p4 -> p3 -> p2 -> p1. Unlinking them in a mixed
  // order must keep the list sound; a stale link would be written through later
  // (the address sanitizer build catches that) or walked when the library unloads.
  std::vector<char*> pages;
  for (int i = 0; i < 4; ++i) {
    char* block = first_block_on_fresh_page(64);
    std::memset(block, 0x10 + i, 64);
    pages.push_back(block);
  }
  pool_deallocate(pages[1], 64);  // a middle page
  pool_deallocate(pages[0], 64);  // the oldest
  pool_deallocate(pages[2], 64);  // the newest but one
  char* block = allocate(64);
  EXPECT_EQ(next_block_after(pages[3], 64), block);
  for (char c : std::string(pages[3], 64)) ASSERT_EQ(0x13, c);
  std::vector<char*> more{block};
  for (int i = 0; i < 3; ++i) more.push_back(first_block_on_fresh_page(64));
  pool_deallocate(pages[3], 64);
  pool_deallocate(more[0], 64);
  for (int i = 1; i < 3; ++i) pool_deallocate(more[i], 64);
  pool_deallocate(more[3], 64);
}

TEST(PoolFailure, NullBlockIsIgnored) {
  char* a = first_block_on_fresh_page(24);
  char* b = allocate(24);
  pool_deallocate(nullptr, 24);
  pool_deallocate(b, 24);
  EXPECT_EQ(b, allocate(24)) << "the page still counts two live blocks";
  pool_deallocate(b, 24);
  pool_deallocate(a, 24);
}

TEST(PoolFailure, BlockWhoseRecordPointsOutsideAPageIsIgnored) {
  char* a = first_block_on_fresh_page(24);
  char* b = allocate(24);
  alignas(8) char foreign[64] = {};
  for (std::uint32_t record : {0u, 8u, 100u, 0x80000u, 0xFFFFFFFFu}) {
    std::memcpy(foreign + 12, &record, sizeof record);
    pool_deallocate(foreign + 16, 24);
  }
  pool_deallocate(b, 24);
  EXPECT_EQ(b, allocate(24));
  pool_deallocate(b, 24);
  pool_deallocate(a, 24);
}

TEST(PoolFailure, ImpossibleRequestThrowsAndLeavesThePoolAsItWas) {
  char* a = first_block_on_fresh_page(24);
  EXPECT_THROW(pool_allocate(~std::uint64_t{0}), std::bad_alloc);
  EXPECT_THROW(pool_allocate(std::uint64_t{1} << 45), std::bad_alloc);
  char* b = allocate(24);  // the lock was released and nothing moved
  EXPECT_EQ(a + 32, b);
  pool_deallocate(b, 24);
  pool_deallocate(a, 24);
}

// Threads allocate and free mixed sizes on one pool, each block filled with a pattern
// of its owner that is checked before the block goes back.
TEST(PoolThreads, BlocksStayIntactUnderConcurrentUse) {
  constexpr int thread_count = 3;
  constexpr int rounds = 20000;
  boost::barrier start(thread_count);
  std::vector<int> damaged(thread_count, 0);
  auto work = [&](int id) {
    std::mt19937 random(id + 1);
    std::vector<std::pair<unsigned char*, std::uint64_t>> live;
    auto const fill = static_cast<unsigned char>(0x30 + id);
    auto release = [&](std::size_t index) {
      auto [block, size] = live[index];
      for (std::uint64_t i = 0; i < size; ++i) damaged[id] += block[i] != fill;
      pool_deallocate(block, size);
      live[index] = live.back();
      live.pop_back();
    };
    start.wait();
    for (int round = 0; round < rounds; ++round) {
      if (live.size() < 64 && random() % 3 != 0) {
        std::uint64_t size = 1 + random() % 300;
        if (random() % 1000 == 0) size = page_size + random() % 1000;
        auto* block = static_cast<unsigned char*>(pool_allocate(size));
        std::memset(block, fill, size);
        live.emplace_back(block, size);
      } else if (!live.empty()) {
        // Mostly the newest block (stack-like), otherwise any.
        release(random() % 2 ? live.size() - 1 : random() % live.size());
      }
    }
    while (!live.empty()) release(live.size() - 1);
  };
  std::vector<std::thread> threads;
  for (int id = 0; id < thread_count; ++id) threads.emplace_back(work, id);
  for (auto& thread : threads) thread.join();
  for (int id = 0; id < thread_count; ++id) EXPECT_EQ(0, damaged[id]) << "thread " << id;
}

}  // namespace
