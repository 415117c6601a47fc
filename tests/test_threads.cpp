#include <gtest/gtest.h>

#include "lum.h"
#include "support/threads.h"

namespace {

TEST(ThreadCount, SetAndGet) {
  lumtest::ThreadCountScope restore(1);
  for (int n : {1, 2, 3, 1000, 7}) {
    ASSERT_EQ(lumSetNumThreads(n), lumStsNoErr);
    int got = -1;
    ASSERT_EQ(lumGetNumThreads(&got), lumStsNoErr);
    EXPECT_EQ(got, n);
  }
}

TEST(ThreadCount, RefusesCountsBelowOneAndKeepsTheOld) {
  lumtest::ThreadCountScope restore(5);
  for (int bad : {0, -1, INT32_MIN}) {
    EXPECT_EQ(lumSetNumThreads(bad), lumStsSizeErr);
    int got = -1;
    ASSERT_EQ(lumGetNumThreads(&got), lumStsNoErr);
    EXPECT_EQ(got, 5);
  }
}

TEST(ThreadCount, NullPointer) { EXPECT_EQ(lumGetNumThreads(nullptr), lumStsNullPtrErr); }

}  // namespace
