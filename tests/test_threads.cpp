#include <gtest/gtest.h>

#include "lum.h"
#include "support/threads.h"

namespace {

TEST(ThreadCount, SetGetAndCountsBelowOneRefused) {
  lumtest::ThreadCountScope restore(1);
  for (int n : {1, 2, 3, 1000, 7, 0, -1, INT32_MIN}) {
    int before = -1, got = -1;
    ASSERT_EQ(lumGetNumThreads(&before), lumStsNoErr);
    EXPECT_EQ(lumSetNumThreads(n), n >= 1 ? lumStsNoErr : lumStsSizeErr) << n;
    ASSERT_EQ(lumGetNumThreads(&got), lumStsNoErr);
    EXPECT_EQ(got, n >= 1 ? n : before) << n;
  }
  EXPECT_EQ(lumGetNumThreads(nullptr), lumStsNullPtrErr);
}

}  // namespace
