// Processor identification and the cache query on made-up processors, and on
// the processor the tests run on (emulated ones too, see CMakeLists.txt).
#include <cpuid.h>
#include <gtest/gtest.h>
#include <omp.h>

#include <stdio.h>
#include <stdlib.h>

#include <algorithm>
#include <string>
#include <vector>

#include "core/cpu_internal.h"
#include "support/cpu_reference.h"
#include "support/fake_cpu.h"
#include "support/threads.h"

namespace {

using namespace lumtest;

// Leaf-1 EDX and ECX feature bits; by default SSE2 and the time-stamp counter.
constexpr Lum32u kMmx = 1u << 23, kSse = 1u << 25, kSse2 = 1u << 26, kSmt = 1u << 28,
                 kEdx30 = 1u << 30, kSse3 = 1, kSsse3 = 1u << 9, kSse41 = 1u << 19,
                 kSse42 = 1u << 20, kEdxSse = kMmx | kSse, kEdxSse2 = kEdxSse | kSse2,
                 k3 = kSse3 | kSsse3, k41 = k3 | kSse41, k42 = k41 | kSse42,
                 kDefault = kEdxSse2 | 1u << 4;

// Family and model (above 15 the extended model field holds the rest);
// stepping, type bits and leaf 2 (one round or three) vary and must not matter.
CpuLeaves T(Lum32u family, Lum32u model, Lum32u ecx = 0, Lum32u edx = kDefault,
            const char* vendor = "GenuineTorva") {
  CpuLeaves l = cpuLeaves(vendor);
  const Lum32u m = model & 15, extModel = model >> 4, stepping = (model * 7 + 3) & 15;
  l[1] = {stepping | m << 4 | family << 8 | (family & 3) << 12 | extModel << 16, 0, ecx, edx};
  return l[2] = {0x00443301u | (model & 1) << 1, 0x7D, 0, 0x0C0D0E0Fu * family}, l;
}
CpuLeaves O(Lum32u f, Lum32u m, Lum32u ecx = 0, Lum32u edx = kDefault) {
  return T(f, m, ecx, edx, "OtherVendorX");
}
// n cores in leaf 4 (cache fields below bit 26 set, and not counted); `top`, the highest basic
// leaf.
CpuLeaves cores(CpuLeaves l, Lum32u n, Lum32u top = 4) {
  return l[4].eax = (n - 1) << 26 | 0x3FFFFFF, l[0].eax = top, l;
}
// The logical processor count in EBX bits 16..23, with the SMT flag.
CpuLeaves smt(CpuLeaves l, Lum32u ebx = 2u << 16, Lum32u flag = kSmt) {
  return l[1].ebx = ebx, l[1].edx |= flag, l;
}
// The highest extended leaf and leaf 0x80000001 EDX (x64 is bit 29).
CpuLeaves x64(CpuLeaves l, Lum32u top = 0x80000001u, Lum32u e = 1u << 29) {
  return l[0x80000000u].eax = top, l[0x80000001u].edx = e, l;
}
CpuLeaves extFamily(CpuLeaves l, Lum32u f) { return l[1].eax |= f << 20, l; }
lumref::Leaves current() {
  return lumref::readLeaves([](uint32_t r[4], uint32_t n) { ownGetReg(r, n, 0); });
}

// A processor, its code and the build that code names (the selected build is
// the lower of that and the feature level).
struct Row {
  CpuLeaves cpu;
  Lum32u code;
  int build;
};

std::vector<Row> rows() {
  std::vector<Row> r = {// By vendor, family and model; the core count from leaf 4 only when leaf
                        // 0, compared as signed, reaches it; SMT is the flag and two or more
                        // logical processors.
                        {T(5, 1, 0, 0), 1, 0},
                        {T(5, 2, 0, kMmx), 1, 0},
                        {T(5, 4, 0, kMmx), 2, 0},
                        {T(6, 1, 0, 0), 3, 0},
                        {T(6, 3, 0, kMmx), 4, 0},
                        {T(6, 5, 0, kMmx), 4, 0},
                        {T(6, 6, 0, kMmx), 4, 0},
                        {T(6, 7, 0, kEdxSse), 5, 1},
                        {T(6, 8, 0, kEdxSse), 5, 1},
                        {T(6, 10, 0, kEdxSse), 5, 1},
                        {T(6, 11, 0, kEdxSse), 5, 1},
                        {T(6, 9), 9, 2},
                        {T(6, 13), 9, 2},
                        {T(6, 23, k41), 68, 5},
                        {T(6, 26, k42), 35, 5},
                        {T(6, 28, k3), 36, 4},
                        {T(15, 2), 6, 2},
                        {T(15, 3, kSse3), 8, 3},
                        {x64(T(15, 4, kSse3)), 32, 3},
                        {T(6, 14, kSse3), 10, 3},
                        {cores(T(6, 14, kSse3), 2), 11, 3},
                        {cores(T(6, 14, kSse3), 2, 3), 10, 3},
                        {cores(T(6, 14, kSse3), 2, 1), 10, 3},
                        {cores(T(6, 15, k3), 2), 33, 4},
                        {cores(T(6, 15, k3), 3), 34, 4},
                        {cores(T(6, 15, k3), 64), 34, 4},
                        {cores(T(6, 15, k3), 4, 0x80000004u), 33, 4},
                        {smt(T(15, 2)), 7, 2},
                        {smt(T(15, 2), 255u << 16), 7, 2},
                        {smt(T(15, 2), 128u << 16 | 0xFFFF), 7, 2},
                        {smt(T(15, 2), 1u << 16), 6, 2},
                        {smt(T(15, 2), 0), 6, 2},
                        {smt(T(15, 2), 2u << 16, 0), 6, 2},
                        {smt(T(15, 2), 0xFF00FFFFu), 6, 2},
                        {smt(T(15, 2), 0x0001FFFFu), 6, 2},
                        // Codes by family and model whose build the feature bits do not show.
                        {T(6, 23, k3), 68, 5},
                        {T(6, 23, 0, 0), 68, 5},
                        {T(6, 23, kSsse3 | kSse41), 68, 5},
                        {T(6, 28, kSsse3), 36, 4},
                        {T(6, 26, k3 | kSse42), 35, 5},
                        {T(6, 7, 0, kSse), 5, 1},
                        {T(6, 7, 0, kMmx), 5, 1},
                        {T(6, 14), 10, 3},
                        {T(6, 9, 0, kEdxSse), 9, 2},
                        {T(15, 2, 0, kEdxSse), 6, 2},
                        // EDX bit 30 comes before any family.
                        {T(7, 1, 0, kEdxSse | kEdx30), 16, 1},
                        {T(7, 1, 0, kEdx30), 16, 1},
                        {T(6, 26, k41, kEdxSse2 | kEdx30), 17, 1},
                        {T(15, 2, kSse3, kEdxSse2 | kEdx30), 17, 1},
                        {T(5, 4, 0, kEdx30), 17, 1},
                        // By the highest feature level: on top of the lower ones, alone, and with
                        // every other bit of its register.
                        {O(6, 7, 0, kEdxSse), 64, 1},
                        {O(6, 9), 65, 2},
                        {O(6, 14, kSse3), 66, 3},
                        {O(6, 15, k3), 67, 4},
                        {smt(O(6, 7, k41)), 68, 5},
                        {O(6, 10, k42), 69, 5},
                        {O(6, 10, kSse42, 0), 69, 5},
                        {O(6, 10, kSse41, 0), 68, 5},
                        {O(6, 10, kSsse3, 0), 67, 4},
                        {O(6, 10, kSse3, 0), 66, 3},
                        {O(6, 10, 0, kSse2), 65, 2},
                        {O(6, 10, 0, kMmx), 0, 0},
                        {O(5, 4, 0, kMmx), 0, 0},
                        {x64(O(15, 4, kSse3)), 66, 3},
                        {O(7, 1, 0, kEdxSse | kEdx30), 64, 1},
                        {O(6, 10, ~kSse42), 68, 5},
                        {O(6, 10, ~kSse41), 69, 5},
                        {O(6, 10, ~kSse3), 69, 5},
                        {O(6, 10, 0, ~kSse2), 64, 1},
                        {O(6, 10, 0, ~kMmx), 65, 2},
                        {O(6, 10, 0, ~kSse), 65, 2},
                        // x64 without SSE: leaf 0x80000001 is asked whenever the highest
                        // extended leaf has anything but its top bit.
                        {x64(O(6, 10, 0, kMmx)), 96, 0},
                        {x64(T(4, 1, 0, 0)), 96, 0},
                        {x64(O(6, 10, 0, kMmx), 0x80000008u), 96, 0},
                        {x64(O(6, 10, 0, kMmx), 0x12), 96, 0},
                        {x64(O(6, 10, 0, kMmx), 0x80000000u), 0, 0},
                        {x64(O(6, 10, 0, kMmx), 0), 0, 0},
                        {x64(O(6, 10, 0, kMmx), 0x80000001u, ~(1u << 29)), 0, 0},
                        // Family 15 with an extended family is not family 15; the extended model
                        // counts for families 6 and 15 only, the extended family for 15 only.
                        {extFamily(T(15, 3, kSse3), 1), 66, 3},
                        {extFamily(smt(T(15, 2)), 1), 65, 2},
                        {T(5, 20, 0, kMmx), 2, 0},
                        {extFamily(T(15, 2, 0, 0), 1), 0, 0},
                        {extFamily(T(6, 26, k41), 0xA7), 35, 5},
                        // Other families and models, and other vendor strings, go by features.
                        {T(4, 2), 65, 2},
                        {T(7, 1, kSse3), 66, 3},
                        {T(5, 3, 0, kEdxSse), 64, 1},
                        {T(5, 5, 0, 0), 0, 0}};
  for (const char* v :
       {"GenvineTorva", "GenuinzTorva", "GenuineTorvb", "genuineTorva", "GenuineTorv\x80"})
    r.push_back({T(6, 26, k3, kEdxSse2, v), 67, 4});
  for (Lum32u m :
       {0u, 2u, 4u, 12u, 16u, 17u, 18u, 19u, 20u, 21u, 22u, 24u, 25u, 27u, 29u, 30u, 44u, 255u})
    r.push_back({T(6, m), 65, 2}), r.push_back({T(6, m, k42), 69, 5});
  return r;
}

// Each processor as described, then under another vendor string; queries,
// record and cache size against the reference reading of its leaves.
TEST(StaticInit, CodeBuildQueriesAndCacheOfEachProcessor) {
  IndexScope restoreIndex;
  ThreadCountScope restoreThreads(1);
  const std::vector<Row> table = rows();
  for (size_t i = 0; i < table.size(); ++i)
    for (bool renamed : {false, true}) {
      const Row& row = table[i];
      FakeCpu cpu(row.cpu);
      if (renamed) cpu.leaves[0] = cpuLeaves("OtherVendorX", cpu.leaves[0].eax)[0];
      const std::string what =
          "row " + std::to_string(i) + (renamed ? " under another vendor string" : "");
      const lumref::Leaves leaves = current();
      EXPECT_TRUE(renamed || static_cast<Lum32u>(lumGetCpuType()) == row.code)
          << what << ": " << lumGetCpuType();
      EXPECT_EQ(lumref::queryMismatches(leaves), "") << what;
      lumJumpIndexForMergedLibs = 3;
      EXPECT_EQ(lumStaticInit(), lumref::isGenuineTorva(leaves) ? lumStsNoErr : lumStsNotGenuineCpu)
          << what;
      // By features alone, the build is the feature level itself.
      const int level = lumref::featureLevel(leaves);
      EXPECT_EQ(lumJumpIndexForMergedLibs, renamed ? level : std::min(row.build, level)) << what;
      int size = -1, want = 0;
      ownResetCacheState();
      EXPECT_EQ(lumGetMaxCacheSizeB(&size), lumref::cacheStatus(leaves, &want)) << what;
      EXPECT_EQ(size, want) << what;
    }
  ownResetCacheState();
}

TEST(CpuType, NoCpuidAtAll) {
  IndexScope restoreIndex;
  ThreadCountScope restoreThreads(1);
  FakeCpu cpu(T(6, 26, k41));
  cpu.hasCpuid = false;
  lumJumpIndexForMergedLibs = 5;
  EXPECT_EQ(lumGetCpuType(), lumCpuUnknown);
  EXPECT_EQ(lumGetNumCoresOnDie(), 1);
  EXPECT_EQ(lumStaticInit(), lumStsNotGenuineCpu);
  EXPECT_EQ(lumJumpIndexForMergedLibs, 0);
  EXPECT_EQ(cpu.blindReads, 0) << "CPUID executed on a processor without it";
  EXPECT_EQ(lumref::queryMismatches(current()),
            "");  // the raw queries leave the check to their caller
}

// The processor the tests run on, emulated ones included, against its raw
// leaves as the compiler's own helpers read them. An emulated processor comes
// with LUM_TEST_CPU_EXPECT: the processor code worked out by hand, the build
// it names and the feature level its qemu options give (so that a flag the
// emulator ignored shows); the selected build is the lower of the two.
TEST(ThisProcessor, AgainstItsRawLeaves) {
  IndexScope restoreIndex;
  ThreadCountScope restoreThreads(omp_get_num_procs() +
                                  5);  // lumStaticInit sets the processor count
  ownResetCacheState();
  ASSERT_EQ(lumGetMaxCacheSizeB(nullptr), lumStsNullPtrErr);  // leaves the answer undetermined
  const lumref::Leaves s = lumref::readLeaves(
      [](uint32_t r[4], uint32_t leaf) { __cpuid_count(leaf, 0, r[0], r[1], r[2], r[3]); });
  const int level = lumref::featureLevel(s);
  unsigned code = 0;
  int build = 0, wantLevel = 0;
  const char* expect = getenv("LUM_TEST_CPU_EXPECT");
  const bool emulated = expect && sscanf(expect, "%u %d %d", &code, &build, &wantLevel) == 3;
  EXPECT_TRUE(!emulated || level == wantLevel) << "feature level " << level;
  ASSERT_TRUE(lum_has_cpuid() && lum_has_cpuid()) << "twice, with the ID bit left flipped";
  EXPECT_EQ(lumref::queryMismatches(s), "");
  EXPECT_TRUE(!emulated || static_cast<unsigned>(lumGetCpuType()) == code) << lumGetCpuType();
  EXPECT_EQ(lumStaticInit(), lumref::isGenuineTorva(s) ? lumStsNoErr : lumStsNotGenuineCpu);
  const int index = lumJumpIndexForMergedLibs;
  EXPECT_EQ(index,
            std::min(level, emulated ? build : index));  // without expectations: at most the level
  EXPECT_EQ(lumiGetLibVersion()->targetCpu[1], '0' + index);
  int threads = 0, size = -1, want = 0;
  lumGetNumThreads(&threads);
  EXPECT_EQ(threads, omp_get_num_procs());
  // A build the processor cannot run ends here with an illegal instruction.
  Lum8u a[64], d[64];
  for (int i = 0; i < 64; ++i) a[i] = static_cast<Lum8u>(i);
  ASSERT_EQ(lumiMul_8u_C1RSfs(a, 64, a, 64, d, 64, {64, 1}, 2), lumStsNoErr);
  for (int i = 0; i < 64; ++i)
    EXPECT_EQ(d[i], std::min(255, i * i / 4)) << i;  // i*i/4 never ends in a half
  const LumStatus status = lumref::cacheStatus(s, &want);
  for (int call = 0; call < 2; ++call)
    EXPECT_TRUE(lumGetMaxCacheSizeB(&size) == status && size == want) << size;
  ownResetCacheState();
  // CPUID sub-leaves in ECX, and the time-stamp counter.
  Lum32u r[4], w[4];
  ownGetReg(r, 4, 1);
  __cpuid_count(4, 1, w[0], w[1], w[2], w[3]);
  EXPECT_TRUE(r[0] == w[0] && r[1] == w[1] && r[2] == w[2] && r[3] == w[3]);
  const Lum64u t0 = lum_get_kestrel_counter(), t1 = lumGetCpuClocks();
  for (volatile unsigned i = 0; i < 100000; i = i + 1) continue;
  EXPECT_LE(t0, t1);
  EXPECT_LT(t1, lum_get_kestrel_counter());
}

}  // namespace
