// The aligned float buffers of builds k1..k5 through counting allocator hooks: the exact request,
// the alignment, the raw block in the word below, release through i_free, and hooks read at every
// call.
#include <gtest/gtest.h>

#include <climits>
#include <iterator>

#include "core/lum_internal.h"
#include "support/alloc_hooks.h"
#include "support/processor.h"

namespace {

using Counting = lumtest::CountingHooks;

// The copies of builds k1 on: copy b is build b + 1's.
#define LUM_MALLOC_OF(tag, ...) tag##_lumsMalloc_32f,
#define LUM_FREE_OF(tag, ...) tag##_lumsFree,
Lum32f* (*const kMalloc[])(int) = {LUM_FOR_EACH_BUILD_FROM_K1(LUM_MALLOC_OF)};
void (*const kFree[])(Lum32f*) = {LUM_FOR_EACH_BUILD_FROM_K1(LUM_FREE_OF)};
#undef LUM_MALLOC_OF
#undef LUM_FREE_OF
constexpr int kCopies = int(std::size(kMalloc));

TEST(AlignedFloats, EveryBuildsCopy) {
  EXPECT_TRUE(i_malloc == std::malloc && i_calloc == std::calloc && i_realloc == std::realloc &&
              i_free == std::free);
  EXPECT_TRUE(i_version == 1 && i_min_version == 0);
  for (int b = 0; b < kCopies; ++b) {
    if (!lumtest::processorRunsBuild(b + 1))
      GTEST_SKIP() << "this processor cannot run build k" << b + 1;
    kFree[b](kMalloc[b](3));  // through the C library's allocator, before the hooks change
    Counting hooks(false);
    for (int n : {0, -5, INT_MIN}) EXPECT_EQ(kMalloc[b](n), nullptr) << n;
    kFree[b](nullptr);
    EXPECT_EQ(Counting::mallocs + Counting::frees, 0)
        << "k" << b + 1 << ": no hook for a count below 1 or a null";
    for (int n = 1; n <= 300; n += 1 + n / 16) {
      Lum32f* p = kMalloc[b](n);
      const uintptr_t raw = uintptr_t(Counting::given), at = uintptr_t(p);
      ASSERT_NE(p, nullptr);
      EXPECT_EQ(Counting::asked, size_t(4 * n + 36)) << n;
      EXPECT_TRUE(at % 32 == 0 && at - raw >= 4 && at - raw <= 35)
          << n << ": " << at - raw << " bytes in";
      EXPECT_EQ(*reinterpret_cast<void**>(at - 4), Counting::given) << n;
      for (int i = 0; i < n; ++i) p[i] = float(i);  // the whole area is usable
      kFree[(b + n) % kCopies](p);                  // any copy releases what another gave
      EXPECT_EQ(Counting::freed, Counting::given) << n;
    }
    EXPECT_EQ(Counting::mallocs, Counting::frees);
  }
}

// A failing hook gives null; the request is 32-bit arithmetic, wrapping from 1073741815 floats on.
TEST(AlignedFloats, FailingHookAndWrappedSizes) {
  Counting hooks(true);
  if (!lumtest::processorRunsBuild(LUM_NUM_BUILDS - 1))
    GTEST_SKIP() << "this processor cannot run every build";
  for (int b = 0; b < kCopies; ++b)
    for (auto [n, bytes] : {std::pair{10, 76u},
                            {1073741814, 4294967292u},
                            {1073741815, 0u},
                            {1073741816, 4u},
                            {INT_MAX, 32u}}) {
      EXPECT_EQ(kMalloc[b](n), nullptr);
      EXPECT_EQ(Counting::asked, bytes) << n;
    }
  EXPECT_EQ(Counting::mallocs, 5 * kCopies);  // five requests of each copy
}

}  // namespace
