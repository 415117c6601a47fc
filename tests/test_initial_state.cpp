// What a process sees before it initializes anything. Its own executable,
// so that no other test can have changed the state first.
#include <gtest/gtest.h>

#include "lum.h"

namespace {

TEST(InitialState, GenericBuildOneThread) {
  EXPECT_EQ(lumJumpIndexForMergedLibs, 0);
  int threads = -1;
  ASSERT_EQ(lumGetNumThreads(&threads), lumStsNoErr);
  EXPECT_EQ(threads, 1);
  const LumLibraryVersion* v = lumiGetLibVersion();
  ASSERT_NE(v, nullptr);
  EXPECT_STREQ(v->targetCpu, "k0");
  EXPECT_STREQ(v->name, "lumik0t.a");
  // The image functions work without any initialization.
  const float a[3] = {1.5f, -2.0f, 3.0f}, b[3] = {2.0f, 2.0f, -0.5f};
  float d[3] = {};
  ASSERT_EQ(lumiMul_32f_C1R(a, 12, b, 12, d, 12, {3, 1}), lumStsNoErr);
  EXPECT_TRUE(d[0] == 3.0f && d[1] == -4.0f && d[2] == -1.5f) << d[0] << " " << d[1] << " " << d[2];
}

}  // namespace
