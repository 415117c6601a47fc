// Processor identification on made-up processors (register tables per leaf)
// and the raw register access on the processor the tests run on. The
// queries and the classification of the real processor are compared with an
// independent reading by the cpu_probe tests.
#include <cpuid.h>
#include <gtest/gtest.h>
#include <omp.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <sstream>
#include <string>
#include <vector>

#include "core/cpu_internal.h"
#include "lum.h"
#include "support/cpu_reference.h"
#include "support/fake_cpu.h"
#include "support/threads.h"

namespace {

using lumtest::CpuDesc;
using lumtest::FakeCpu;
using namespace lumtest::bits;

constexpr Lum32u kEdxSse = kMmx | kSse, kEdxSse2 = kEdxSse | kSse2;
constexpr Lum32u kToSse41 = kSse3 | kSsse3 | kSse41, kToSse42 = kToSse41 | kSse42;

// Models above 15 go into the extended model field. Stepping and type bits
// vary and must not matter.
CpuDesc torva(Lum32u family, Lum32u model, Lum32u ecx = 0, Lum32u edx = kEdxSse2,
              const char* vendor = "GenuineTorva") {
  CpuDesc d;
  d.vendor = vendor;
  d.family = family;
  d.model = model & 15;
  d.extModel = model >> 4;
  d.stepping = (model * 7 + 3) & 15;
  d.typeBits = family & 3;
  d.ecx1 = ecx;
  d.edx1 = edx;
  return d;
}
CpuDesc other(Lum32u family, Lum32u model, Lum32u ecx = 0, Lum32u edx = kEdxSse2) {
  return torva(family, model, ecx, edx, "OtherVendorX");
}
CpuDesc with(CpuDesc d, Lum32u extEdx, Lum32u extFamily = 0) {
  d.extEdx = extEdx;
  d.extFamily = extFamily;
  return d;
}

struct Row {
  CpuDesc desc;
  Lum32u code;
};

std::vector<Row> codeRows() {
  const Lum32u k3 = kSse3 | kSsse3;
  std::vector<Row> rows = {
      {torva(5, 1, 0, 0), 1}, {torva(5, 2, 0, kMmx), 1}, {torva(5, 4, 0, kMmx), 2},
      {torva(6, 1, 0, 0), 3}, {torva(6, 3, 0, kMmx), 4}, {torva(6, 5, 0, kMmx), 4},
      {torva(6, 6, 0, kMmx), 4}, {torva(6, 7, 0, kEdxSse), 5}, {torva(6, 8, 0, kEdxSse), 5},
      {torva(6, 10, 0, kEdxSse), 5}, {torva(6, 11, 0, kEdxSse), 5}, {torva(6, 9), 9},
      {torva(6, 13), 9}, {torva(6, 14, kSse3).cores(1), 10}, {torva(6, 14, kSse3).cores(2), 11},
      {torva(6, 15, k3).cores(1), 33}, {torva(6, 15, k3).cores(2), 33}, {torva(6, 15, k3).cores(3), 34},
      {torva(6, 23, k3), 68}, {torva(6, 23, 0, 0), 68}, {torva(6, 26, kToSse41), 35},
      {torva(6, 26, kToSse42), 35}, {torva(6, 28, k3), 36}, {torva(15, 2), 6},
      {torva(15, 2).logical(2), 7}, {torva(15, 3, kSse3), 8}, {with(torva(15, 4, kSse3), kX64), 32},
      // EDX bit 30 before any family.
      {torva(7, 1, 0, kEdxSse | kEdx30), 16}, {torva(6, 26, kToSse41, kEdxSse2 | kEdx30), 17},
      {torva(15, 2, kSse3, kEdxSse2 | kEdx30), 17}, {torva(5, 4, 0, kEdx30), 17},
      // The feature path: each level on top of the lower ones, and alone.
      {other(6, 7, 0, kEdxSse), 64}, {other(6, 9), 65}, {other(6, 14, kSse3), 66},
      {other(6, 15, k3), 67}, {other(6, 7, kToSse41).logical(2), 68}, {other(6, 10, kToSse42), 69},
      {other(6, 10, kSse42, 0), 69}, {other(6, 10, kSse41, 0), 68}, {other(6, 10, kSsse3, 0), 67},
      {other(6, 10, kSse3, 0), 66}, {other(6, 10, 0, kSse2), 65}, {other(6, 10, 0, kMmx), 0},
      {other(5, 4, 0, kMmx), 0}, {with(other(15, 4, kSse3), kX64), 66},
      {other(7, 1, 0, kEdxSse | kEdx30), 64},
      // x64 without SSE.
      {with(other(6, 10, 0, kMmx), kX64), 96}, {with(torva(4, 1, 0, 0), kX64), 96},
      // Family 15 with an extended family is not family 15 any more.
      {with(torva(15, 3, kSse3), 0, 1), 66}, {with(torva(15, 2), 0, 1), 65},
      {with(torva(15, 2).logical(2), 0, 1), 65}, {with(torva(15, 2, 0, 0), 0, 1), 0},
      // The extended model counts for families 6 and 15 only, the extended
      // family for 15 only.
      {torva(5, 20, 0, kMmx), 2}, {with(torva(6, 26), 0, 3), 35},
      // Other families and models fall through to the feature path.
      {torva(4, 2), 65}, {torva(7, 1, kSse3), 66}, {torva(5, 3, 0, kEdxSse), 64}, {torva(5, 5, 0, 0), 0},
  };
  for (Lum32u m : {0u, 2u, 4u, 12u, 16u, 17u, 18u, 19u, 20u, 21u, 22u, 24u, 25u, 27u, 29u, 30u, 44u, 255u}) {
    rows.push_back({torva(6, m), 65});
    rows.push_back({torva(6, m, kToSse42), 69});
  }
  return rows;
}

// The highest build whose instruction set the leaf-1 bits show, each level on
// top of the lower ones: MMX and SSE, SSE2, SSE3, SSSE3, SSE4.1.
int featureLevel(const CpuDesc& d) {
  const bool has[5] = {(d.edx1 & kMmx) && (d.edx1 & kSse), (d.edx1 & kSse2) != 0, (d.ecx1 & kSse3) != 0,
                       (d.ecx1 & kSsse3) != 0, (d.ecx1 & kSse41) != 0};
  int level = 0;
  while (level < 5 && has[level]) ++level;
  return level;
}

std::string describe(const CpuDesc& d) {
  std::ostringstream os;
  os << d.vendor << " family " << d.family << "+" << d.extFamily << " model " << d.model << "+"
     << d.extModel << std::hex << " ecx 0x" << d.ecx1 << " edx 0x" << d.edx1 << " x64 edx 0x" << d.extEdx;
  return os.str();
}

TEST(CpuType, NoCpuidAtAll) {
  lumtest::IndexScope restoreIndex;
  lumtest::ThreadCountScope restoreThreads(1);
  FakeCpu cpu(torva(6, 26, kToSse41));
  cpu.setHasCpuid(false);
  EXPECT_EQ(lumGetCpuType(), lumCpuUnknown);
  EXPECT_EQ(lumGetNumCoresOnDie(), 1);
  lumJumpIndexForMergedLibs = 5;
  EXPECT_EQ(lumStaticInit(), lumStsNotGenuineCpu);
  EXPECT_EQ(lumJumpIndexForMergedLibs, 0);
  EXPECT_EQ(cpu.totalReads(), 0) << "CPUID executed on a processor without it";
  int threads = 0;
  lumGetNumThreads(&threads);
  EXPECT_EQ(threads, omp_get_num_procs());
}

TEST(CpuType, VendorStringIsComparedWhole) {
  for (const char* vendor : {"GenuineTorva", "GenvineTorva", "GenuinzTorva", "GenuineTorvb",
                             "genuineTorva", "GenuineTorv\x80"}) {
    FakeCpu cpu(torva(6, 26, kSse3 | kSsse3, kEdxSse2, vendor));
    const bool genuine = std::string(vendor) == "GenuineTorva";
    EXPECT_EQ(lum_is_GenuineTorva(), genuine ? 1 : 0) << vendor;
    EXPECT_EQ(static_cast<Lum32u>(lumGetCpuType()), genuine ? 35u : 67u) << vendor;
  }
}

TEST(CpuType, CoresComeFromLeaf4OnlyWhenLeaf0ReachesIt) {
  const struct { Lum32u model, maxLeaf, cores; LumCpuType code; int seen; } cases[] = {{14, 3, 2, lumCpuFam6E, 1},
               {15, 0x80000004u, 4, lumCpuFam6G, 1},  // leaf 0 EAX compared as signed
               {15, 4, 4, lumCpuFam6H, 4}};
  for (const auto& c : cases) {
    CpuDesc d = torva(6, c.model, kSse3 | kSsse3).cores(c.cores);
    d.maxLeaf = c.maxLeaf;
    FakeCpu cpu(d);
    EXPECT_EQ(lumGetCpuType(), c.code) << c.maxLeaf;
    EXPECT_EQ(lum_get_cores_on_die(), c.seen) << c.maxLeaf;
    EXPECT_EQ(lumGetNumCoresOnDie(), c.seen) << c.maxLeaf;
    // Sub-leaf 0 of leaf 4, every time it is asked for.
    EXPECT_EQ(cpu.subLeaves(4), std::vector<Lum32u>(c.seen > 1 ? 3 : 0, 0)) << c.maxLeaf;
  }
  CpuDesc d = torva(6, 15).cores(64);
  d.leaf4Eax |= 0x03FFFFFFu;  // the cache fields below bit 26 do not count
  FakeCpu cpu(d);
  EXPECT_EQ(lum_get_cores_on_die(), 64);
}

TEST(CpuType, SmtNeedsTheFlagAndTwoLogicalProcessors) {
  const struct { Lum32u ebx, edx; int smt; } cases[] = {
      {2u << 16, kSmt, 1},   {1u << 16, kSmt, 0}, {0, kSmt, 0},           {255u << 16, kSmt, 1},
      {2u << 16, 0, 0},      {0xFF00FFFFu, kSmt, 0}, {0x0001FFFFu, kSmt, 0}, {(128u << 16) | 0xFFFF, kSmt, 1}};
  for (const auto& c : cases) {
    CpuDesc d = torva(15, 2, 0, kEdxSse2 | c.edx);
    d.ebx1 = c.ebx;
    FakeCpu cpu(d);
    LumCpuIdent ident{};
    lum_get_kestrel_ident(&ident);
    EXPECT_EQ(lum_is_smt_extension(), c.smt) << std::hex << c.ebx << " " << c.edx;
    EXPECT_EQ(static_cast<Lum32u>(lumGetCpuType()), c.smt ? 7u : 6u) << std::hex << c.ebx;
    EXPECT_EQ(ident.smt, c.smt) << std::hex << c.ebx;
  }
}

// The classification asks leaf 0x80000001 whenever leaf 0x80000000 reports
// anything but its top bit; the query and the record need it in range.
TEST(CpuType, X64FlagAsTheClassificationReadsIt) {
  const struct { Lum32u maxExt, extEdx, code, query; int read, ident; } cases[] = {
      {0x80000001u, kX64, 96, 1, 1, 1},          {0x80000008u, kX64, 96, 1, 1, 1},
      {0x80000000u, kX64, 0, 0x80000000u, 0, 0}, {0, kX64, 0, 0, 0, 0},
      {0x12, kX64, 96, 0x12, 1, 0},              {0x80000001u, ~kX64, 0, 0, 1, 0}};
  for (const auto& c : cases) {
    CpuDesc d = with(other(6, 10, 0, kMmx), c.extEdx);
    d.maxExtLeaf = c.maxExt;
    FakeCpu cpu(d);
    LumCpuIdent ident{};
    lum_get_kestrel_ident(&ident);
    cpu.resetReads();
    EXPECT_EQ(static_cast<Lum32u>(lumGetCpuType()), c.code) << std::hex << c.maxExt;
    EXPECT_EQ(cpu.reads(0x80000001u), c.read) << std::hex << c.maxExt;
    EXPECT_EQ(static_cast<Lum32u>(lum_is_x64_extension()), c.query) << std::hex << c.maxExt;
    EXPECT_EQ(ident.x64, c.ident) << std::hex << c.maxExt;
  }
}

TEST(CpuQueries, EachFeatureBitAndNoOther) {
  const struct { const char* name; int (*fn)(void); bool inEcx; int bit; } queries[] = {
      {"rdtsc", lum_has_rdtsc, false, 4},           {"mmx", lum_is_mmx_extension, false, 23},
      {"sse", lum_is_ssx_extension, false, 25},     {"sse2", lum_is_sse2_extension, false, 26},
      {"sse3", lum_is_sse3_extension, true, 0},     {"ssse3", lum_is_ssse3_extension, true, 9},
      {"sse4.1", lum_is_sse41_extension, true, 19}, {"sse4.2", lum_is_sse42_extension, true, 20}};
  for (const auto& q : queries)
    for (bool inverted : {false, true}) {  // the bit alone, and every bit but this one
      CpuDesc d = torva(6, 26, 0, 0);
      (q.inEcx ? d.ecx1 : d.edx1) = inverted ? ~(1u << q.bit) : 1u << q.bit;
      FakeCpu cpu(d);
      EXPECT_EQ(q.fn(), inverted ? 0 : 1) << q.name << (inverted ? " with every other bit" : "");
      EXPECT_EQ(cpu.reads(0), 0) << q.name << " asks whether CPUID exists: that is the caller's job";
    }
}

TEST(CpuQueries, MaxInputAndVendorDoNotCheckForCpuid) {
  CpuDesc d = other(6, 10);
  d.maxLeaf = 0x8000000Bu;
  FakeCpu cpu(d);
  cpu.setHasCpuid(false);
  EXPECT_EQ(static_cast<Lum32u>(lum_max_cpuid_input()), 0x8000000Bu);
  EXPECT_EQ(lum_is_GenuineTorva(), 0);
  EXPECT_EQ(lum_has_cpuid(), 0);
}

// The record's fields in order (twenty words, part of the interface).
std::vector<int> identOf() {
  LumCpuIdent id;
  std::memset(&id, 0x5A, sizeof id);
  lum_get_kestrel_ident(&id);
  std::vector<int> words(20);
  std::memcpy(words.data(), &id, sizeof id);
  return words;
}

TEST(CpuIdent, FieldsFromTheirBits) {
  static_assert(sizeof(LumCpuIdent) == 80 && offsetof(LumCpuIdent, spare) == 32 &&
                    offsetof(LumCpuIdent, extModel) == 76,
                "record layout");
  CpuDesc d = torva(15, 0xC, kSse3 | kSse41, kMmx | kSse2 | kSmt | 0x800u);  // and EDX bit 11
  d.maxLeaf = 1;  // leaf 2 is read all the same, leaf 4 is not
  d.stepping = 0x9;
  d.extModel = 0x5;
  d.extFamily = 0xA7;
  d.typeBits = 0x2;
  d.ebx1 = 3u << 16;
  d.leaf2 = {0x11223301u, 0x44556677u, 0x8899AABBu, 0xCCDDEEFFu};
  d.cores(6);
  d.extEdx = kX64;
  FakeCpu cpu(d);
  // family, stepping, model, type (EAX bits 11..12), featureEdx, leaf2 EAX
  // and EDX, mmx, spare (the caller's), sse, sse2, smt, sse3, x64, ssse3,
  // cores, sse4.1, sse4.2, extFamily, extModel.
  EXPECT_EQ(identOf(), (std::vector<int>{15, 9, 12, 1, static_cast<int>(d.edx1), 0x11223301,
                                         static_cast<int>(0xCCDDEEFFu), 1, 0x5A5A5A5A, 0, 1, 1, 1,
                                         1, 0, 1, 1, 0, 0xA7, 5}));
  EXPECT_EQ(cpu.reads(2), 1);
  d.maxLeaf = 4;
  d.family = 6;  // EAX bit 11 clear
  d.typeBits = 0x1;
  d.ecx1 = kSsse3 | kSse42;
  d.edx1 = kSse;
  d.ebx1 = 0;
  cpu.load(d);
  EXPECT_EQ(identOf(), (std::vector<int>{6, 9, 12, 2, static_cast<int>(kSse), 0x11223301,
                                         static_cast<int>(0xCCDDEEFFu), 0, 0x5A5A5A5A, 1, 0, 0, 0,
                                         1, 1, 6, 0, 1, 0xA7, 5}));
}

TEST(StaticInit, SelectsTheBuildOfTheClassification) {
  lumtest::IndexScope restoreIndex;
  lumtest::ThreadCountScope restoreThreads(1);
  const int procs = omp_get_num_procs();
  for (const Row& row : codeRows())
    // As described, then the same processor under another vendor string.
    for (bool asDescribed : {true, false}) {
      CpuDesc d = row.desc;
      if (!asDescribed) d.vendor = "OtherVendorX";
      FakeCpu cpu(d);
      const Lum32u code = static_cast<Lum32u>(lumGetCpuType());
      EXPECT_TRUE(!asDescribed || code == row.code) << describe(d) << " code " << code << ", want " << row.code;
      lumJumpIndexForMergedLibs = 3;
      ASSERT_EQ(lumSetNumThreads(procs + 5), lumStsNoErr);
      EXPECT_EQ(lumStaticInit(), d.vendor == "GenuineTorva" ? lumStsNoErr : lumStsNotGenuineCpu)
          << describe(d);
      const int index = std::min(lumref::autoIndex(code), featureLevel(d));
      EXPECT_EQ(lumJumpIndexForMergedLibs, index) << describe(d) << " code " << code;
      int threads = 0;
      ASSERT_EQ(lumGetNumThreads(&threads), lumStsNoErr);
      EXPECT_EQ(threads, procs);
      EXPECT_EQ(lumiGetLibVersion()->targetCpu, "k" + std::to_string(index)) << describe(d);
    }
}

// Whatever the processor is called, the automatic choice stays within the
// instruction sets its feature bits show.
TEST(StaticInit, NeverSelectsABuildBeyondTheFeatureBits) {
  lumtest::IndexScope restoreIndex;
  lumtest::ThreadCountScope restoreThreads(1);
  const Lum32u edxBits[] = {kMmx, kSse, kSse2}, ecxBits[] = {kSse3, kSsse3, kSse41, kSse42};
  for (CpuDesc d : {torva(6, 23), torva(6, 26), torva(6, 7), torva(6, 15).cores(4), torva(15, 3), torva(7, 1),
                    torva(5, 4), other(6, 23)})
    for (Lum32u set = 0; set < 128; ++set) {
      d.edx1 &= ~(kMmx | kSse | kSse2);
      d.ecx1 = 0;
      for (int i = 0; i < 3; ++i) d.edx1 |= set >> i & 1 ? edxBits[i] : 0;
      for (int i = 0; i < 4; ++i) d.ecx1 |= set >> (3 + i) & 1 ? ecxBits[i] : 0;
      for (Lum32u edx30 : {0u, kEdx30}) {
        d.edx1 = (d.edx1 & ~kEdx30) | edx30;
        FakeCpu cpu(d);
        lumStaticInit();
        EXPECT_LE(lumJumpIndexForMergedLibs, featureLevel(d)) << describe(d) << " code " << lumGetCpuType();
      }
    }
}

TEST(ThisProcessor, RegisterBlockInOrderWithTheSubLeafInEcx) {
  ASSERT_EQ(lum_has_cpuid(), 1);
  ASSERT_EQ(lum_has_cpuid(), 1) << "a second time, with the ID bit left flipped";
  for (Lum32u leaf : {0u, 4u})
    for (Lum32u sub = 0; sub < (leaf == 4 && __get_cpuid_max(0, nullptr) >= 4 ? 3u : 1u); ++sub) {
      Lum32u r[4] = {1, 2, 3, 4};
      unsigned w[4];
      ownGetReg(r, leaf, sub);
      __cpuid_count(leaf, sub, w[0], w[1], w[2], w[3]);
      for (int i = 0; i < 4; ++i) EXPECT_EQ(r[i], w[i]) << leaf << "." << sub << " reg " << i;
    }
}

TEST(ThisProcessor, TimeStampCounterRuns) {
  const Lum64u t0 = lum_get_kestrel_counter();
  const Lum64u t1 = lumGetCpuClocks();
  volatile unsigned sink = 0;
  for (unsigned i = 0; i < 100000; ++i) sink = sink + i;
  const Lum64u t2 = lum_get_kestrel_counter();
  EXPECT_LE(t0, t1);
  EXPECT_LT(t1, t2);
}

}  // namespace
