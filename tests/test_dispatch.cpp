// Build selection: the tables, the stubs, lumStaticInitCpu and the six
// version records.
#include <gtest/gtest.h>
#include <omp.h>

#include <cstring>
#include <string>

#include "core/lum_internal.h"
#include "lum.h"
#include "support/builds.h"
#include "support/cpu_reference.h"
#include "support/threads.h"

namespace {

using lumtest::IndexScope;

TEST(StaticInitCpu, EveryCode) {
  IndexScope restoreIndex;
  lumtest::ThreadCountScope restoreThreads(1);
  const int procs = omp_get_num_procs();
  ASSERT_GE(procs, 1);
  std::vector<Lum32u> codes;
  for (Lum32u c = 0; c <= 130; ++c) codes.push_back(c);
  codes.push_back(0xFFFFFFFFu);
  codes.push_back(0x80000000u);
  for (Lum32u code : codes) {
    for (int before : {3, 1}) {
      lumJumpIndexForMergedLibs = before;
      ASSERT_EQ(lumSetNumThreads(procs + 7), lumStsNoErr);
      const LumStatus st = lumStaticInitCpu(code);
      const int listed = lumref::explicitIndex(code);
      if (listed >= 0) {
        EXPECT_EQ(st, lumStsNoErr) << "code " << code;
        EXPECT_EQ(lumJumpIndexForMergedLibs, listed) << "code " << code;
      } else {
        EXPECT_EQ(st, lumStsCpuNotSet) << "code " << code;
        EXPECT_EQ(lumJumpIndexForMergedLibs, before) << "a refused code " << code
                                                      << " changed the selection";
      }
      // The thread count follows the processor count, refused code or not.
      int threads = 0;
      ASSERT_EQ(lumGetNumThreads(&threads), lumStsNoErr);
      EXPECT_EQ(threads, procs) << "code " << code;
    }
  }
}

TEST(StaticInitCpu, LastCallWins) {
  IndexScope restoreIndex;
  lumtest::ThreadCountScope restoreThreads(1);
  ASSERT_EQ(lumStaticInitCpu(67), lumStsNoErr);
  ASSERT_EQ(lumStaticInitCpu(5), lumStsNoErr);
  EXPECT_EQ(lumJumpIndexForMergedLibs, 1);
  EXPECT_STREQ(lumiGetLibVersion()->targetCpu, "k1");
  ASSERT_EQ(lumStaticInitCpu(96), lumStsCpuNotSet);
  EXPECT_STREQ(lumiGetLibVersion()->targetCpu, "k1");
}

TEST(Dispatch, TableEntryIIsBuildKi) {
  const std::string tag[] = {"k0", "k1", "k2", "k3", "k4", "k5"};
  for (int k = 0; k < lumtest::kNumBuilds; ++k) {
    const LumLibraryVersion* v = lumiGetLibVersion_arraddr[k]();
    ASSERT_NE(v, nullptr);
    EXPECT_EQ(v->targetCpu, tag[k]);
    EXPECT_EQ(std::string(v->name), "lumi" + tag[k] + "t.a");
  }
  using Mul = decltype(&k0_lumiMul_32f_C1R);
  const Mul mul[] = {k0_lumiMul_32f_C1R, k1_lumiMul_32f_C1R, k2_lumiMul_32f_C1R,
                     k3_lumiMul_32f_C1R, k4_lumiMul_32f_C1R, k5_lumiMul_32f_C1R};
  for (int k = 0; k < lumtest::kNumBuilds; ++k) EXPECT_EQ(lumiMul_32f_C1R_arraddr[k], mul[k]);
  using Mul8u = decltype(&k0_lumiMul_8u_C1RSfs);
  const Mul8u mul8u[] = {k0_lumiMul_8u_C1RSfs, k1_lumiMul_8u_C1RSfs, k2_lumiMul_8u_C1RSfs,
                         k3_lumiMul_8u_C1RSfs, k4_lumiMul_8u_C1RSfs, k5_lumiMul_8u_C1RSfs};
  for (int k = 0; k < lumtest::kNumBuilds; ++k)
    EXPECT_EQ(lumiMul_8u_C1RSfs_arraddr[k], mul8u[k]);
  using Mul16s = decltype(&k0_lumiMul_16s_C1RSfs);
  const Mul16s mul16s[] = {k0_lumiMul_16s_C1RSfs, k1_lumiMul_16s_C1RSfs, k2_lumiMul_16s_C1RSfs,
                           k3_lumiMul_16s_C1RSfs, k4_lumiMul_16s_C1RSfs, k5_lumiMul_16s_C1RSfs};
  for (int k = 0; k < lumtest::kNumBuilds; ++k)
    EXPECT_EQ(lumiMul_16s_C1RSfs_arraddr[k], mul16s[k]);
}

TEST(Dispatch, StubsGoToTheSelectedBuild) {
  IndexScope restoreIndex;
  for (int k = 0; k < lumtest::kNumBuilds; ++k) {
    lumJumpIndexForMergedLibs = k;
    EXPECT_EQ(lumiGetLibVersion(), lumiGetLibVersion_arraddr[k]()) << "index " << k;
    if (!lumtest::buildSupported(k)) continue;
    const float a[2] = {3.0f, 0.5f}, b[2] = {-2.0f, 0.25f};
    float d[2] = {};
    EXPECT_EQ(lumiMul_32f_C1R(a, 8, b, 8, d, 8, {2, 1}), lumStsNoErr);
    EXPECT_EQ(d[0], -6.0f);
    EXPECT_EQ(d[1], 0.125f);
  }
}

TEST(VersionRecords, SixRecordsDifferOnlyInTagAndName) {
  for (int k = 0; k < lumtest::kNumBuilds; ++k) {
    const LumLibraryVersion* v = lumiGetLibVersion_arraddr[k]();
    EXPECT_EQ(v->major, 5);
    EXPECT_EQ(v->minor, 3);
    EXPECT_EQ(v->majorBuild, 85);
    EXPECT_EQ(v->build, 499);
    const char tag[4] = {'k', static_cast<char>('0' + k), 0, 0};
    EXPECT_EQ(std::memcmp(v->targetCpu, tag, 4), 0) << "targetCpu is NUL-padded";
    EXPECT_STREQ(v->version, "5.3 Update 1 build 85.18");
    EXPECT_STREQ(v->buildDate, "Nov 18 2007");
    // One version string and one date shared by all records.
    EXPECT_EQ(v->version, lumiGetLibVersion_arraddr[0]()->version);
    EXPECT_EQ(v->buildDate, lumiGetLibVersion_arraddr[0]()->buildDate);
  }
  // The record's layout is part of the ABI.
  EXPECT_EQ(offsetof(LumLibraryVersion, targetCpu), 16u);
  EXPECT_EQ(offsetof(LumLibraryVersion, name), 20u);
  EXPECT_EQ(offsetof(LumLibraryVersion, buildDate), 28u);
  EXPECT_EQ(sizeof(LumLibraryVersion), 32u);
}

}  // namespace
