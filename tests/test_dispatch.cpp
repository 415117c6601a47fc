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
  std::vector<Lum32u> codes = {0xFFFFFFFFu, 0x80000000u};
  for (Lum32u c = 0; c <= 130; ++c) codes.push_back(c);
  for (Lum32u code : codes)
    for (int before : {3, 1}) {
      lumJumpIndexForMergedLibs = before;
      ASSERT_EQ(lumSetNumThreads(procs + 7), lumStsNoErr);
      const LumStatus st = lumStaticInitCpu(code);
      const int listed = lumref::explicitIndex(code);
      EXPECT_EQ(st, listed >= 0 ? lumStsNoErr : lumStsCpuNotSet) << "code " << code;
      EXPECT_EQ(lumJumpIndexForMergedLibs, listed >= 0 ? listed : before)
          << "code " << code << (listed >= 0 ? "" : " refused, yet the selection changed");
      EXPECT_STREQ(lumiGetLibVersion()->targetCpu,
                   ("k" + std::to_string(lumJumpIndexForMergedLibs)).c_str());
      // The thread count follows the processor count, refused code or not.
      int threads = 0;
      ASSERT_EQ(lumGetNumThreads(&threads), lumStsNoErr);
      EXPECT_EQ(threads, procs) << "code " << code;
    }
}

TEST(Dispatch, TableEntryIIsBuildKi) {
#define LUM_DISPATCHED(ret, name, params, args)                                              \
  {                                                                                         \
    ret(*const builds[]) params = {k0_##name, k1_##name, k2_##name, k3_##name, k4_##name, k5_##name}; \
    for (int k = 0; k < lumtest::kNumBuilds; ++k) EXPECT_EQ(name##_arraddr[k], builds[k]) << #name << " " << k; \
  }
#include "core/dispatched.def"
#undef LUM_DISPATCHED
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
    EXPECT_TRUE(d[0] == -6.0f && d[1] == 0.125f) << d[0] << " " << d[1];
  }
}

TEST(VersionRecords, SixRecordsDifferOnlyInTagAndName) {
  static_assert(offsetof(LumLibraryVersion, targetCpu) == 16 && offsetof(LumLibraryVersion, name) == 20 &&
                    offsetof(LumLibraryVersion, buildDate) == 28 && sizeof(LumLibraryVersion) == 32,
                "the record's layout is part of the interface");
  for (int k = 0; k < lumtest::kNumBuilds; ++k) {
    const LumLibraryVersion* v = lumiGetLibVersion_arraddr[k]();
    const char tag[4] = {'k', static_cast<char>('0' + k), 0, 0};
    EXPECT_EQ(std::memcmp(v->targetCpu, tag, 4), 0) << "targetCpu, NUL-padded, of " << k;
    EXPECT_EQ(std::string(v->name), "lumi" + std::string(tag) + "t.a");
    EXPECT_EQ(std::vector<int>({v->major, v->minor, v->majorBuild, v->build}),
              std::vector<int>({5, 3, 85, 499}));
    EXPECT_STREQ(v->version, "5.3 Update 1 build 85.18");
    EXPECT_STREQ(v->buildDate, "Nov 18 2007");
    // One version string and one date shared by all records.
    EXPECT_EQ(v->version, lumiGetLibVersion_arraddr[0]()->version);
    EXPECT_EQ(v->buildDate, lumiGetLibVersion_arraddr[0]()->buildDate);
  }
}

}  // namespace
