// Build selection: the list of builds, lumStaticInitCpu, the address tables, the stubs, the
// version records and the export list of the dispatched functions.
#include <gtest/gtest.h>
#include <omp.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "core/lum_internal.h"
#include "support/threads.h"

namespace {

// Build kN has index N, the builds listed in index order from 0, as many as the public tables have
// entries; the lists from k1 and from k2 are the list's tail from there.
TEST(Builds, EachTagNamesItsIndexInOrder) {
#define LUM_TAG_AND_INDEX(tag, index, ...) {#tag, index},
  using Listed = std::vector<std::pair<std::string, int>>;
  const Listed all = { LUM_FOR_EACH_BUILD(LUM_TAG_AND_INDEX) };
  const Listed fromK1 = { LUM_FOR_EACH_BUILD_FROM_K1(LUM_TAG_AND_INDEX) };
  const Listed fromK2 = { LUM_FOR_EACH_BUILD_FROM_K2(LUM_TAG_AND_INDEX) };
#undef LUM_TAG_AND_INDEX
  ASSERT_EQ(all.size(), std::size(lumiGetLibVersion_arraddr));
  for (int k = 0; k < int(all.size()); ++k)
    EXPECT_EQ(all[k], std::make_pair("k" + std::to_string(k), k));
  EXPECT_TRUE(std::equal(fromK1.begin(), fromK1.end(), all.begin() + 1, all.end()));
  EXPECT_TRUE(std::equal(fromK2.begin(), fromK2.end(), all.begin() + 2, all.end()));
}

TEST(StaticInitCpu, ListedCodesSelectTheirBuildOthersAreRefused) {
  lumtest::IndexScope restoreIndex;
  lumtest::ThreadCountScope restoreThreads(1);
  const std::vector<Lum32u> listed[LUM_NUM_BUILDS] = {
      {0, 1, 2, 3, 4, 0xFFFFFFFFu}, {5, 16, 17, 64},  {6, 7, 9, 65},
      {8, 10, 11, 32, 66},          {33, 34, 36, 67}, {35, 37, 68, 69}};
  for (Lum32u i = 0; i < 2 * 132; ++i) {
    // Codes 0 to 128, 0xFFFFFFFF, 0xC0000000 and 0x80000001, each after index 3 and after index 1.
    const Lum32u code = i / 2 <= 128 ? i / 2 : 0xFFFFFFFFu - (i / 2 - 129) * 0x3FFFFFFFu;
    const int before = i % 2 ? 1 : 3;
    int build = -1;
    for (int k = 0; k < LUM_NUM_BUILDS; ++k)
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

// Entry k of each table is build k of that function (the build the list gives index k); the
// version stub at index k returns build k's record, and the records differ only in tag and name.
#define LUM_EXPECT_ENTRY(tag, index, f) \
  EXPECT_EQ(f##_arraddr[index], tag##_##f) << #f << " entry " << index;
#define EXPECT_TABLE_OF(f) LUM_FOR_EACH_BUILD(LUM_EXPECT_ENTRY, f)

TEST(Dispatch, TablesStubsAndVersionRecords) {
  EXPECT_TABLE_OF(lumiGetLibVersion);
  EXPECT_TABLE_OF(lumiMul_8u_C1RSfs);
  EXPECT_TABLE_OF(lumiMul_16s_C1RSfs);
  EXPECT_TABLE_OF(lumiMul_32f_C1R);
  static_assert(offsetof(LumLibraryVersion, targetCpu) == 16 && sizeof(LumLibraryVersion) == 32,
                "record layout");
  lumtest::IndexScope restoreIndex;
  for (int k = 0; k < LUM_NUM_BUILDS; ++k) {
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

// The export list (core/lum.map) names every dispatched function and its table, and no table of
// anything else: a line of dispatched.def alone would build and dispatch a function that the
// library does not export.
TEST(ExportList, NamesEveryDispatchedFunctionAndItsTable) {
  std::ifstream map(LUM_EXPORT_LIST);
  ASSERT_TRUE(map) << "cannot read " << LUM_EXPORT_LIST;
  std::set<std::string> exported;
  bool global = false;
  for (std::string line, first; std::getline(map, line);) {
    std::istringstream(line) >> first;
    if (first == "global:" || first == "local:")
      global = first == "global:";
    else if (global && first.size() > 1 && first.back() == ';')
      exported.insert(first.substr(0, first.size() - 1));
    first.clear();
  }
  const std::vector<std::string> dispatched = {
#define LUM_DISPATCHED(ret, name, params, args) #name,
#include "core/dispatched.def"
#undef LUM_DISPATCHED
  };
  ASSERT_FALSE(dispatched.empty());
  for (const std::string& name : dispatched)
    EXPECT_TRUE(exported.count(name) && exported.count(name + "_arraddr")) << name;
  const std::string table = "_arraddr";
  EXPECT_EQ(std::count_if(exported.begin(), exported.end(),
                          [&](const std::string& s) {
                            return s.size() > table.size() &&
                                   s.compare(s.size() - table.size(), table.size(), table) == 0;
                          }),
            std::ptrdiff_t(dispatched.size()));
}

}  // namespace
