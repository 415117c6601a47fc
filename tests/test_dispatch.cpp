// Build selection: lumStaticInitCpu, the address tables, the stubs and the
// six version records.
#include <gtest/gtest.h>
#include <omp.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "core/lum_internal.h"
#include "support/threads.h"

namespace {

TEST(StaticInitCpu, ListedCodesSelectTheirBuildOthersAreRefused) {
  lumtest::IndexScope restoreIndex;
  lumtest::ThreadCountScope restoreThreads(1);
  const std::vector<Lum32u> listed[6] = {
      {0, 1, 2, 3, 4, 0xFFFFFFFFu}, {5, 16, 17, 64},  {6, 7, 9, 65},
      {8, 10, 11, 32, 66},          {33, 34, 36, 67}, {35, 37, 68, 69}};
  for (Lum32u i = 0; i < 2 * 132; ++i) {
    // Codes 0 to 128, 0xFFFFFFFF, 0xC0000000 and 0x80000001, each after index 3 and after index 1.
    const Lum32u code = i / 2 <= 128 ? i / 2 : 0xFFFFFFFFu - (i / 2 - 129) * 0x3FFFFFFFu;
    const int before = i % 2 ? 1 : 3;
    int build = -1;
    for (int k = 0; k < 6; ++k)
      build = std::count(listed[k].begin(), listed[k].end(), code) ? k : build;
    lumJumpIndexForMergedLibs = before;
    ASSERT_EQ(lumSetNumThreads(omp_get_num_procs() + 7), lumStsNoErr);
    EXPECT_EQ(lumStaticInitCpu(code), build >= 0 ? lumStsNoErr : lumStsCpuNotSet) << code;
    EXPECT_EQ(lumJumpIndexForMergedLibs, build >= 0 ? build : before) << code;
    int threads = 0;  // the processor count, refused code or not
    lumGetNumThreads(&threads);
    EXPECT_EQ(threads, omp_get_num_procs()) << code;
  }
}

// Entry k of each table is build k of that function; the version stub at
// index k returns build k's record, and the six differ only in tag and name.
#define EXPECT_TABLE_OF(f)                                                          \
  for (int k = 0; k < 6; ++k) {                                                     \
    const decltype(&f) builds[] = {k0_##f, k1_##f, k2_##f, k3_##f, k4_##f, k5_##f}; \
    EXPECT_EQ(f##_arraddr[k], builds[k]) << #f << " entry " << k;                   \
  }

TEST(Dispatch, TablesStubsAndVersionRecords) {
  EXPECT_TABLE_OF(lumiGetLibVersion);
  EXPECT_TABLE_OF(lumiMul_8u_C1RSfs);
  EXPECT_TABLE_OF(lumiMul_16s_C1RSfs);
  EXPECT_TABLE_OF(lumiMul_32f_C1R);
  static_assert(offsetof(LumLibraryVersion, targetCpu) == 16 && sizeof(LumLibraryVersion) == 32,
                "record layout");
  lumtest::IndexScope restoreIndex;
  for (int k = 0; k < 6; ++k) {
    lumJumpIndexForMergedLibs = k;
    const LumLibraryVersion *v = lumiGetLibVersion(), *k0 = lumiGetLibVersion_arraddr[0]();
    const char tag[4] = {'k', static_cast<char>('0' + k), 0, 0};  // NUL-padded
    EXPECT_TRUE(std::memcmp(v->targetCpu, tag, 4) == 0 &&
                v->name == "lumi" + std::string(tag) + "t.a")
        << k;
    EXPECT_TRUE(v->major == 5 && v->minor == 3 && v->majorBuild == 85 && v->build == 499) << k;
    EXPECT_TRUE(!std::strcmp(v->version, "5.3 Update 1 build 85.18") &&
                !std::strcmp(v->buildDate, "Nov 18 2007"));
    EXPECT_TRUE(v->version == k0->version && v->buildDate == k0->buildDate)
        << "shared by all records: " << k;
  }
}

}  // namespace
