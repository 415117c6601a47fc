// Processor identification: the raw queries, the processor code, the
// identification record and the automatic initializer, on made-up processors
// (register tables per leaf) and on the processor the tests run on.
#include <cpuid.h>
#include <gtest/gtest.h>
#include <omp.h>

#include <cstddef>
#include <cstring>
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
namespace bits = lumtest::bits;

using lumtest::IndexScope;

// Feature sets, lowest level to highest, each with everything below it.
constexpr Lum32u kEdxSse = bits::kMmx | bits::kSse;
constexpr Lum32u kEdxSse2 = kEdxSse | bits::kSse2;

CpuDesc torva(Lum32u family, Lum32u model, Lum32u ecx = 0, Lum32u edx = kEdxSse2) {
  CpuDesc d;
  d.family = family;
  d.model = model;
  d.ecx1 = ecx;
  d.edx1 = edx;
  return d;
}

CpuDesc other(Lum32u family, Lum32u model, Lum32u ecx = 0, Lum32u edx = kEdxSse2) {
  CpuDesc d = torva(family, model, ecx, edx);
  d.vendor = "OtherVendorX";
  return d;
}

// Effective model m of family 6 written with its extended model field.
CpuDesc torva6(Lum32u m, Lum32u ecx = 0, Lum32u edx = kEdxSse2) {
  CpuDesc d = torva(6, m & 15, ecx, edx);
  d.extModel = m >> 4;
  return d;
}

Lum32u typeOf(const CpuDesc& d) {
  FakeCpu cpu(d);
  return static_cast<Lum32u>(lumGetCpuType());
}

// ---- Processor codes, row by row ------------------------------------------

struct Row {
  const char* what;
  CpuDesc desc;
  Lum32u code;
};

std::vector<Row> codeRows() {
  using namespace bits;
  std::vector<Row> rows = {
      {"fam5 model1", torva(5, 1, 0, 0), 1},
      {"fam5 model2", torva(5, 2, 0, kMmx), 1},
      {"fam5 model4", torva(5, 4, 0, kMmx), 2},
      {"fam6 model1", torva6(1, 0, 0), 3},
      {"fam6 model3", torva6(3, 0, kMmx), 4},
      {"fam6 model5", torva6(5, 0, kMmx), 4},
      {"fam6 model6", torva6(6, 0, kMmx), 4},
      {"fam6 model7", torva6(7, 0, kEdxSse), 5},
      {"fam6 model8", torva6(8, 0, kEdxSse), 5},
      {"fam6 model10", torva6(10, 0, kEdxSse), 5},
      {"fam6 model11", torva6(11, 0, kEdxSse), 5},
      {"fam6 model9", torva6(9), 9},
      {"fam6 model13", torva6(13), 9},
      {"fam6 model14 one core", torva6(14, kSse3).cores(1), 10},
      {"fam6 model14 two cores", torva6(14, kSse3).cores(2), 11},
      {"fam6 model15 one core", torva6(15, kSse3 | kSsse3).cores(1), 33},
      {"fam6 model15 two cores", torva6(15, kSse3 | kSsse3).cores(2), 33},
      {"fam6 model15 three cores", torva6(15, kSse3 | kSsse3).cores(3), 34},
      {"fam6 model15 four cores", torva6(15, kSse3 | kSsse3).cores(4), 34},
      {"fam6 model23 without sse4.1", torva6(23, kSse3 | kSsse3), 68},
      {"fam6 model23 nothing at all", torva6(23, 0, 0), 68},
      {"fam6 model26", torva6(26, kSse3 | kSsse3 | kSse41), 35},
      {"fam6 model26 with sse4.2", torva6(26, kSse3 | kSsse3 | kSse41 | kSse42), 35},
      {"fam6 model28", torva6(28, kSse3 | kSsse3), 36},
      {"fam15 sse2", torva(15, 2), 6},
      {"fam15 sse2 smt", torva(15, 2).logical(2), 7},
      {"fam15 sse3", torva(15, 3, kSse3), 8},
      {"fam15 sse3 x64", [] { CpuDesc d = torva(15, 4, kSse3); d.extEdx = kX64; return d; }(), 32},
      {"edx30 fam7", torva(7, 1, 0, kEdxSse | kEdx30), 16},
      {"edx30 fam6", torva6(26, kSse3 | kSsse3 | kSse41, kEdxSse2 | kEdx30), 17},
      {"edx30 fam15", torva(15, 2, kSse3, kEdxSse2 | kEdx30), 17},
      {"edx30 fam5 no sse", torva(5, 4, 0, kEdx30), 17},
      // Feature path: each level on its own and on top of the lower ones.
      {"other sse", other(6, 7, 0, kEdxSse), 64},
      {"other sse2", other(6, 9), 65},
      {"other sse3", other(6, 14, kSse3), 66},
      {"other ssse3", other(6, 15, kSse3 | kSsse3), 67},
      {"other sse4.1", other(6, 7, kSse3 | kSsse3 | kSse41).logical(2), 68},
      {"other sse4.2", other(6, 10, kSse3 | kSsse3 | kSse41 | kSse42), 69},
      {"other sse4.2 alone", other(6, 10, kSse42, 0), 69},
      {"other sse4.1 alone", other(6, 10, kSse41, 0), 68},
      {"other ssse3 alone", other(6, 10, kSsse3, 0), 67},
      {"other sse3 alone", other(6, 10, kSse3, 0), 66},
      {"other sse2 alone", other(6, 10, 0, kSse2), 65},
      {"other nothing", other(6, 10, 0, kMmx), 0},
      {"other fam5 model4", other(5, 4, 0, kMmx), 0},
      {"other fam15 sse3 x64", [] { CpuDesc d = other(15, 4, kSse3); d.extEdx = kX64; return d; }(), 66},
      {"other edx30 fam7", other(7, 1, 0, kEdxSse | kEdx30), 64},
      {"x64 without sse", [] { CpuDesc d = other(6, 10, 0, kMmx); d.extEdx = kX64; return d; }(), 96},
      {"torva fam4 x64 without sse", [] { CpuDesc d = torva(4, 1, 0, 0); d.extEdx = kX64; return d; }(), 96},
      // Family 15 with an extended family is not family 15 any more.
      {"fam15+1 sse3", [] { CpuDesc d = torva(15, 3, kSse3); d.extFamily = 1; return d; }(), 66},
      {"fam15+1 sse2", [] { CpuDesc d = torva(15, 2); d.extFamily = 1; return d; }(), 65},
      {"fam15+1 smt", [] { CpuDesc d = torva(15, 2).logical(2); d.extFamily = 1; return d; }(), 65},
      {"fam15+1 nothing", [] { CpuDesc d = torva(15, 2, 0, 0); d.extFamily = 1; return d; }(), 0},
      // Other families go to the feature path.
      {"fam4", torva(4, 2), 65},
      {"fam7 without edx30", torva(7, 1, kSse3), 66},
      {"fam5 model3", torva(5, 3, 0, kEdxSse), 64},
      {"fam5 model5", torva(5, 5, 0, 0), 0},
  };
  // Family 6 models without an entry of their own.
  for (Lum32u m : {0u, 2u, 4u, 12u, 16u, 17u, 18u, 19u, 20u, 21u, 22u, 24u, 25u, 27u, 29u, 30u,
                   44u, 255u}) {
    rows.push_back({"fam6 unlisted model, sse2", torva6(m), 65});
    rows.push_back({"fam6 unlisted model, sse4.2",
                    torva6(m, kSse3 | kSsse3 | kSse41 | kSse42), 69});
  }
  return rows;
}

TEST(CpuType, EveryRowOfTheTable) {
  for (const Row& row : codeRows()) {
    const CpuDesc& d = row.desc;
    EXPECT_EQ(typeOf(d), row.code)
        << row.what << " (family " << d.family << " ext " << d.extFamily << ", model " << d.model
        << " ext " << d.extModel << ")";
  }
}

// The model and family fields outside the extended ones do not matter.
TEST(CpuType, ExtendedModelCountsOnlyForFamilies6And15) {
  // Family 5 with extended model 1: still model 4, not 20.
  CpuDesc d = torva(5, 4, 0, bits::kMmx);
  d.extModel = 1;
  EXPECT_EQ(typeOf(d), 2u);
  // Family 6 model 7 with extended model 1 is model 23.
  EXPECT_EQ(typeOf(torva6(16 + 7, 0, kEdxSse)), 68u);
  // Family 6 model 10 with extended model 1 is model 26.
  EXPECT_EQ(typeOf(torva6(26, 0, kEdxSse)), 35u);
  // An extended family on family 6 is ignored.
  CpuDesc e = torva6(26);
  e.extFamily = 3;
  EXPECT_EQ(typeOf(e), 35u);
  // Stepping and type bits change nothing.
  CpuDesc f = torva6(9);
  f.stepping = 15;
  f.typeBits = 3;
  EXPECT_EQ(typeOf(f), 9u);
}

TEST(CpuType, NoCpuidAtAll) {
  FakeCpu cpu(torva6(26, bits::kSse3 | bits::kSsse3 | bits::kSse41));
  cpu.setHasCpuid(false);
  EXPECT_EQ(lumGetCpuType(), lumCpuUnknown);
  EXPECT_EQ(lumGetNumCoresOnDie(), 1);
  EXPECT_EQ(cpu.totalReads(), 0) << "CPUID executed on a processor without it";
}

TEST(CpuType, VendorStringIsComparedWhole) {
  // One character changed in each of the three registers.
  for (const char* vendor : {"GenuineTorva", "GenvineTorva", "GenuinzTorva", "GenuineTorvb",
                             "genuineTorva", "GenuineTorv\x80"}) {
    CpuDesc d = torva6(26, bits::kSse3 | bits::kSsse3);
    d.vendor = vendor;
    FakeCpu cpu(d);
    const bool genuine = std::string(vendor) == "GenuineTorva";
    EXPECT_EQ(lum_is_GenuineTorva(), genuine ? 1 : 0) << vendor;
    EXPECT_EQ(static_cast<Lum32u>(lumGetCpuType()), genuine ? 35u : 67u) << vendor;
  }
}

TEST(CpuType, CoresComeFromLeaf4OnlyWhenLeaf0ReachesIt) {
  {
    CpuDesc d = torva6(14, bits::kSse3).cores(2);
    d.maxLeaf = 3;
    FakeCpu cpu(d);
    EXPECT_EQ(lumGetCpuType(), lumCpuFam6E);
    EXPECT_EQ(lum_get_cores_on_die(), 1);
    EXPECT_EQ(cpu.reads(4), 0);
  }
  {
    // Leaf 0 EAX is compared as a signed number.
    CpuDesc d = torva6(15, bits::kSse3 | bits::kSsse3).cores(4);
    d.maxLeaf = 0x80000004u;
    FakeCpu cpu(d);
    EXPECT_EQ(lumGetCpuType(), lumCpuFam6G);
    EXPECT_EQ(lum_get_cores_on_die(), 1);
  }
  {
    CpuDesc d = torva6(15, bits::kSse3 | bits::kSsse3).cores(4);
    FakeCpu cpu(d);
    EXPECT_EQ(lumGetCpuType(), lumCpuFam6H);
    EXPECT_EQ(lum_get_cores_on_die(), 4);
    EXPECT_EQ(lumGetNumCoresOnDie(), 4);
    // Sub-leaf 0 of leaf 4, every time it is asked for.
    EXPECT_EQ(cpu.subLeaves(4), "0,0,0");
  }
  {
    CpuDesc d = torva6(15).cores(64);
    d.leaf4Eax |= 0x03FFFFFFu;  // the cache fields below bit 26 do not count
    FakeCpu cpu(d);
    EXPECT_EQ(lum_get_cores_on_die(), 64);
    cpu.setHasCpuid(false);
    EXPECT_EQ(lumGetNumCoresOnDie(), 1);
  }
}

TEST(CpuType, SmtNeedsTheFlagAndTwoLogicalProcessors) {
  struct Case {
    Lum32u ebx, edx;
    int smt;
  } cases[] = {
      {2u << 16, bits::kSmt, 1},      {1u << 16, bits::kSmt, 0},     {0, bits::kSmt, 0},
      {255u << 16, bits::kSmt, 1},    {2u << 16, 0, 0},              {0xFF00FFFFu, bits::kSmt, 0},
      {0x0001FFFFu, bits::kSmt, 0},   {(128u << 16) | 0xFFFF, bits::kSmt, 1},
  };
  for (const Case& c : cases) {
    CpuDesc d = torva(15, 2, 0, kEdxSse2 | c.edx);
    d.ebx1 = c.ebx;
    FakeCpu cpu(d);
    EXPECT_EQ(lum_is_smt_extension(), c.smt) << std::hex << c.ebx << " " << c.edx;
    EXPECT_EQ(static_cast<Lum32u>(lumGetCpuType()), c.smt ? 7u : 6u) << std::hex << c.ebx;
    LumCpuIdent ident{};
    lum_get_kestrel_ident(&ident);
    EXPECT_EQ(ident.smt, c.smt) << std::hex << c.ebx;
  }
}

// The classification asks leaf 0x80000001 whenever leaf 0x80000000 reports
// anything but its top bit; the query needs 0x80000001 to be in range.
TEST(CpuType, X64FlagAsTheClassificationReadsIt) {
  struct Case {
    Lum32u maxExt;
    bool classifiedX64;  // what the classification sees
    Lum32u query;        // what lum_is_x64_extension returns
    int ident;
  } cases[] = {
      {0x80000001u, true, 1, 1},
      {0x80000008u, true, 1, 1},
      {0x80000000u, false, 0x80000000u, 0},
      {0x00000000u, false, 0, 0},
      {0x00000012u, true, 0x12, 0},
  };
  for (const Case& c : cases) {
    CpuDesc d = other(6, 10, 0, bits::kMmx);
    d.maxExtLeaf = c.maxExt;
    d.extEdx = bits::kX64;
    FakeCpu cpu(d);
    EXPECT_EQ(static_cast<Lum32u>(lumGetCpuType()), c.classifiedX64 ? 96u : 0u)
        << std::hex << c.maxExt;
    EXPECT_EQ(cpu.reads(0x80000001u), c.classifiedX64 ? 1 : 0) << std::hex << c.maxExt;
    EXPECT_EQ(static_cast<Lum32u>(lum_is_x64_extension()), c.query) << std::hex << c.maxExt;
    LumCpuIdent ident{};
    lum_get_kestrel_ident(&ident);
    EXPECT_EQ(ident.x64, c.ident) << std::hex << c.maxExt;
  }
  // Bit 29 and nothing else.
  CpuDesc d = other(6, 10, 0, bits::kMmx);
  d.extEdx = ~bits::kX64;
  FakeCpu cpu(d);
  EXPECT_EQ(lum_is_x64_extension(), 0);
  EXPECT_EQ(lumGetCpuType(), lumCpuUnknown);
}

TEST(CpuType, Leaf2IsReadWhenLeaf0ReachesIt) {
  for (Lum32u maxLeaf : {1u, 2u, 4u}) {
    CpuDesc d = torva6(26);
    d.maxLeaf = maxLeaf;
    d.leaf2 = {0x0000FF02u, 0x4D4D4D4Du, 0, 0};  // whatever leaf 2 says changes nothing
    FakeCpu cpu(d);
    EXPECT_EQ(lumGetCpuType(), lumCpuFam6I);
    EXPECT_EQ(cpu.reads(2), maxLeaf >= 2 ? 1 : 0) << "highest leaf " << maxLeaf;
  }
}

// ---- The single queries ------------------------------------------------------

struct Query {
  const char* name;
  int (*fn)(void);
  bool inEcx;
  int bit;
};
const Query kQueries[] = {
    {"lum_has_rdtsc", lum_has_rdtsc, false, 4},
    {"lum_is_mmx_extension", lum_is_mmx_extension, false, 23},
    {"lum_is_ssx_extension", lum_is_ssx_extension, false, 25},
    {"lum_is_sse2_extension", lum_is_sse2_extension, false, 26},
    {"lum_is_sse3_extension", lum_is_sse3_extension, true, 0},
    {"lum_is_ssse3_extension", lum_is_ssse3_extension, true, 9},
    {"lum_is_sse41_extension", lum_is_sse41_extension, true, 19},
    {"lum_is_sse42_extension", lum_is_sse42_extension, true, 20},
};

TEST(CpuQueries, EachFeatureBitAndNoOther) {
  for (const Query& q : kQueries) {
    for (bool inverted : {false, true}) {
      // The bit alone, and every bit but this one.
      const Lum32u mask = 1u << q.bit;
      CpuDesc d = torva6(26, 0, 0);
      const Lum32u value = inverted ? ~mask : mask;
      (q.inEcx ? d.ecx1 : d.edx1) = value;
      FakeCpu cpu(d);
      EXPECT_EQ(q.fn(), inverted ? 0 : 1) << q.name << (inverted ? " with every other bit" : "");
      EXPECT_EQ(cpu.reads(0), 0) << q.name << " asks whether CPUID exists: that is the caller's job";
    }
  }
}

TEST(CpuQueries, MaxInputAndVendor) {
  CpuDesc d = other(6, 10);
  d.maxLeaf = 0x8000000Bu;
  FakeCpu cpu(d);
  EXPECT_EQ(static_cast<Lum32u>(lum_max_cpuid_input()), 0x8000000Bu);
  EXPECT_EQ(lum_is_GenuineTorva(), 0);
  cpu.setHasCpuid(false);
  // The raw queries do not check for CPUID themselves.
  EXPECT_EQ(static_cast<Lum32u>(lum_max_cpuid_input()), 0x8000000Bu);
  EXPECT_EQ(lum_has_cpuid(), 0);
}

TEST(CpuIdent, FieldsFromTheirBits) {
  CpuDesc d;
  d.maxLeaf = 1;  // leaf 2 is read all the same
  d.stepping = 0x9;
  d.model = 0xC;
  d.family = 0xF;
  d.extModel = 0x5;
  d.extFamily = 0xA7;
  d.typeBits = 0x2;  // bits 12..13 = 10b
  d.ecx1 = bits::kSse3 | bits::kSse41;
  d.edx1 = bits::kMmx | bits::kSse2 | bits::kSmt | 0x800u;  // and bit 11 of EDX
  d.ebx1 = 3u << 16;
  d.leaf2 = {0x11223301u, 0x44556677u, 0x8899AABBu, 0xCCDDEEFFu};
  d.cores(6);
  d.extEdx = bits::kX64;
  FakeCpu cpu(d);

  LumCpuIdent id;
  std::memset(&id, 0x5A, sizeof id);
  lum_get_kestrel_ident(&id);
  EXPECT_EQ(id.family, 0xF);
  EXPECT_EQ(id.stepping, 0x9);
  EXPECT_EQ(id.model, 0xC);
  EXPECT_EQ(id.type, 1) << "bit 11 (family 15: set) and bit 12 (clear); bit 13 is not read";
  EXPECT_EQ(static_cast<Lum32u>(id.featureEdx), d.edx1);
  EXPECT_EQ(static_cast<Lum32u>(id.leaf2Eax), 0x11223301u);
  EXPECT_EQ(static_cast<Lum32u>(id.leaf2Edx), 0xCCDDEEFFu);
  EXPECT_EQ(id.mmx, 1);
  EXPECT_EQ(id.spare, 0x5A5A5A5A) << "the caller's value must survive";
  EXPECT_EQ(id.sse, 0);
  EXPECT_EQ(id.sse2, 1);
  EXPECT_EQ(id.smt, 1);
  EXPECT_EQ(id.sse3, 1);
  EXPECT_EQ(id.x64, 1);
  EXPECT_EQ(id.ssse3, 0);
  EXPECT_EQ(id.coresOnDie, 1) << "leaf 4 is beyond the highest basic leaf 1";
  EXPECT_EQ(id.sse41, 1);
  EXPECT_EQ(id.sse42, 0);
  EXPECT_EQ(id.extFamily, 0xA7);
  EXPECT_EQ(id.extModel, 0x5);
  EXPECT_EQ(cpu.reads(2), 1);

  // The complementary flags, and the type from bits 11..12 only.
  CpuDesc e = d;
  e.maxLeaf = 4;
  e.family = 6;      // bit 11 (the top bit of the family) clear
  e.typeBits = 0x1;  // bit 12
  e.ecx1 = bits::kSsse3 | bits::kSse42;
  e.edx1 = bits::kSse;
  e.ebx1 = 0;
  cpu.load(e);
  lum_get_kestrel_ident(&id);
  EXPECT_EQ(id.type, 2);
  EXPECT_EQ(id.mmx, 0);
  EXPECT_EQ(id.sse, 1);
  EXPECT_EQ(id.sse2, 0);
  EXPECT_EQ(id.smt, 0);
  EXPECT_EQ(id.sse3, 0);
  EXPECT_EQ(id.ssse3, 1);
  EXPECT_EQ(id.sse41, 0);
  EXPECT_EQ(id.sse42, 1);
  EXPECT_EQ(id.coresOnDie, 6);
  EXPECT_EQ(id.spare, 0x5A5A5A5A);
  // The record's layout is part of the interface: twenty words in order.
  EXPECT_EQ(sizeof(LumCpuIdent), 80u);
  EXPECT_EQ(offsetof(LumCpuIdent, spare), 32u);
  EXPECT_EQ(offsetof(LumCpuIdent, extModel), 76u);
}

// ---- The automatic initializer -------------------------------------------------

TEST(StaticInit, SelectsTheBuildOfTheClassification) {
  IndexScope restoreIndex;
  lumtest::ThreadCountScope restoreThreads(1);
  const int procs = omp_get_num_procs();
  for (const Row& row : codeRows()) {
    // As described, then the same processor under another vendor string.
    for (bool asDescribed : {true, false}) {
      CpuDesc d = row.desc;
      if (!asDescribed) d.vendor = "OtherVendorX";
      const bool genuine = d.vendor == "GenuineTorva";
      FakeCpu cpu(d);
      const Lum32u code = static_cast<Lum32u>(lumGetCpuType());
      if (asDescribed) {
        ASSERT_EQ(code, row.code) << row.what;
      }
      lumJumpIndexForMergedLibs = 3;
      ASSERT_EQ(lumSetNumThreads(procs + 5), lumStsNoErr);
      const LumStatus st = lumStaticInit();
      EXPECT_EQ(st, genuine ? lumStsNoErr : lumStsNotGenuineCpu) << row.what;
      EXPECT_EQ(lumJumpIndexForMergedLibs, lumref::autoIndex(code)) << row.what << " code " << code;
      int threads = 0;
      ASSERT_EQ(lumGetNumThreads(&threads), lumStsNoErr);
      EXPECT_EQ(threads, procs);
      const char tag[3] = {'k', static_cast<char>('0' + lumref::autoIndex(code)), 0};
      EXPECT_STREQ(lumiGetLibVersion()->targetCpu, tag) << row.what;
    }
  }
}

TEST(StaticInit, X64WithoutSseIsGenericHereAndRefusedExplicitly) {
  IndexScope restoreIndex;
  lumtest::ThreadCountScope restoreThreads(1);
  CpuDesc d = other(6, 10, 0, bits::kMmx);
  d.extEdx = bits::kX64;
  FakeCpu cpu(d);
  ASSERT_EQ(lumGetCpuType(), lumCpuX64);
  lumJumpIndexForMergedLibs = 4;
  EXPECT_EQ(lumStaticInit(), lumStsNotGenuineCpu);
  EXPECT_EQ(lumJumpIndexForMergedLibs, 0);
  lumJumpIndexForMergedLibs = 4;
  EXPECT_EQ(lumStaticInitCpu(lumCpuX64), lumStsCpuNotSet);
  EXPECT_EQ(lumJumpIndexForMergedLibs, 4);
}

TEST(StaticInit, WithoutCpuidGenericAndNotGenuine) {
  IndexScope restoreIndex;
  lumtest::ThreadCountScope restoreThreads(1);
  FakeCpu cpu(torva6(26, bits::kSse3 | bits::kSsse3 | bits::kSse41));
  cpu.setHasCpuid(false);
  lumJumpIndexForMergedLibs = 5;
  EXPECT_EQ(lumStaticInit(), lumStsNotGenuineCpu);
  EXPECT_EQ(lumJumpIndexForMergedLibs, 0);
  EXPECT_EQ(cpu.totalReads(), 0);
  int threads = 0;
  lumGetNumThreads(&threads);
  EXPECT_EQ(threads, omp_get_num_procs());
}

// Every code the two initializers accept maps to the same build; the
// automatic one sends everything else to the generic build.
TEST(StaticInit, AgreesWithTheExplicitInitializerOnListedCodes) {
  IndexScope restoreIndex;
  lumtest::ThreadCountScope restoreThreads(1);
  for (Lum32u code = 0; code < 130; ++code) {
    lumJumpIndexForMergedLibs = 2;
    const LumStatus st = lumStaticInitCpu(code);
    const int expected = lumref::explicitIndex(code);
    if (expected < 0) {
      EXPECT_EQ(st, lumStsCpuNotSet) << code;
      EXPECT_EQ(ownBuildIndexForCpu(code), -1) << code;
    } else {
      EXPECT_EQ(st, lumStsNoErr) << code;
      EXPECT_EQ(lumJumpIndexForMergedLibs, expected) << code;
    }
  }
}

// ---- The processor the tests run on ---------------------------------------------

TEST(ThisProcessor, QueriesAgreeWithTheCompilersReading) {
  ASSERT_EQ(lum_has_cpuid(), 1);
  // Twice: the ID bit is left flipped, and the test must still succeed.
  ASSERT_EQ(lum_has_cpuid(), 1);
  unsigned a = 0, b = 0, c = 0, d = 0;
  const unsigned maxLeaf = __get_cpuid_max(0, nullptr);
  EXPECT_EQ(static_cast<unsigned>(lum_max_cpuid_input()), maxLeaf);
  ASSERT_TRUE(__get_cpuid(1, &a, &b, &c, &d));
  EXPECT_EQ(lum_has_rdtsc(), static_cast<int>((d >> 4) & 1));
  EXPECT_EQ(lum_is_mmx_extension(), static_cast<int>((d >> 23) & 1));
  EXPECT_EQ(lum_is_ssx_extension(), static_cast<int>((d >> 25) & 1));
  EXPECT_EQ(lum_is_sse2_extension(), static_cast<int>((d >> 26) & 1));
  EXPECT_EQ(lum_is_smt_extension(), static_cast<int>(((d >> 28) & 1) && ((b >> 16) & 0xFF) > 1));
  EXPECT_EQ(lum_is_sse3_extension(), static_cast<int>(c & 1));
  EXPECT_EQ(lum_is_ssse3_extension(), static_cast<int>((c >> 9) & 1));
  EXPECT_EQ(lum_is_sse41_extension(), static_cast<int>((c >> 19) & 1));
  EXPECT_EQ(lum_is_sse42_extension(), static_cast<int>((c >> 20) & 1));
  // The feature queries and the compiler's own feature test agree too.
  __builtin_cpu_init();
  EXPECT_EQ(lum_is_sse2_extension() != 0, __builtin_cpu_supports("sse2") != 0);
  EXPECT_EQ(lum_is_sse41_extension() != 0, __builtin_cpu_supports("sse4.1") != 0);

  LumCpuIdent id{};
  lum_get_kestrel_ident(&id);
  EXPECT_EQ(id.family, static_cast<int>((a >> 8) & 15));
  EXPECT_EQ(id.model, static_cast<int>((a >> 4) & 15));
  EXPECT_EQ(id.stepping, static_cast<int>(a & 15));
  EXPECT_EQ(id.extModel, static_cast<int>((a >> 16) & 15));
  EXPECT_EQ(id.extFamily, static_cast<int>((a >> 20) & 255));
  EXPECT_EQ(static_cast<unsigned>(id.featureEdx), d);
  EXPECT_EQ(id.sse41, lum_is_sse41_extension());

  int cores = 1;
  if (static_cast<int>(maxLeaf) >= 4) {
    __cpuid_count(4, 0, a, b, c, d);
    cores = static_cast<int>(a >> 26) + 1;
  }
  EXPECT_EQ(lum_get_cores_on_die(), cores);
  EXPECT_EQ(lumGetNumCoresOnDie(), cores);

  const unsigned maxExt = __get_cpuid_max(0x80000000u, nullptr);
  if (maxExt >= 0x80000001u) {
    __cpuid(0x80000001u, a, b, c, d);
    EXPECT_EQ(lum_is_x64_extension(), static_cast<int>((d >> 29) & 1));
  } else {
    EXPECT_EQ(static_cast<unsigned>(lum_is_x64_extension()), maxExt);
  }

  __cpuid(0, a, b, c, d);
  const bool genuine = b == 0x756E6547u && d == 0x54656E69u && c == 0x6176726Fu;
  EXPECT_EQ(lum_is_GenuineTorva(), genuine ? 1 : 0);
}

TEST(ThisProcessor, ClassificationAndInitializer) {
  IndexScope restoreIndex;
  lumtest::ThreadCountScope restoreThreads(1);
  const lumref::Snapshot s = lumref::readThisProcessor();
  const Lum32u code = lumref::cpuType(s);
  EXPECT_EQ(static_cast<Lum32u>(lumGetCpuType()), code);
  EXPECT_EQ(lumStaticInit(), lumref::isGenuineTorva(s) ? lumStsNoErr : lumStsNotGenuineCpu);
  EXPECT_EQ(lumJumpIndexForMergedLibs, lumref::autoIndex(code));
}

TEST(ThisProcessor, RegisterBlockInOrder) {
  Lum32u r[4] = {1, 2, 3, 4};
  ownGetReg(r, 0, 0);
  unsigned a = 0, b = 0, c = 0, d = 0;
  __cpuid_count(0, 0, a, b, c, d);
  EXPECT_EQ(r[0], a);
  EXPECT_EQ(r[1], b);
  EXPECT_EQ(r[2], c);
  EXPECT_EQ(r[3], d);
  // The sub-leaf reaches ECX: leaf 4 describes a different cache per
  // sub-leaf on processors that have it.
  if (__get_cpuid_max(0, nullptr) >= 4) {
    for (unsigned sub = 0; sub < 3; ++sub) {
      ownGetReg(r, 4, sub);
      __cpuid_count(4, sub, a, b, c, d);
      EXPECT_EQ(r[0], a) << "sub-leaf " << sub;
      EXPECT_EQ(r[1], b) << "sub-leaf " << sub;
    }
  }
}

TEST(ThisProcessor, TimeStampCounterRuns) {
  ASSERT_EQ(lum_has_rdtsc(), 1) << "every processor these tests run on counts cycles";
  const Lum64u t0 = lum_get_kestrel_counter();
  const Lum64u t1 = lumGetCpuClocks();
  volatile unsigned sink = 0;
  for (unsigned i = 0; i < 100000; ++i) sink = sink + i;
  const Lum64u t2 = lum_get_kestrel_counter();
  EXPECT_LE(t0, t1);
  EXPECT_LT(t1, t2);
}

}  // namespace
