// The cache-size query: the leaf-2 descriptor walk on made-up processors,
// against the independent reading of support/cpu_reference and hand-worked
// cases, and the answer kept after the first call.
#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "core/cpu_internal.h"
#include "lum.h"
#include "support/cpu_reference.h"
#include "support/fake_cpu.h"

namespace {

using lumtest::CpuDesc;
using lumtest::CpuRegs;
using lumtest::FakeCpu;

constexpr int KiB = 1024, MiB = 1024 * 1024;

CpuDesc withLeaf2(CpuRegs leaf2, const char* vendor = "GenuineTorva") {
  CpuDesc d;
  d.vendor = vendor;
  d.leaf2 = leaf2;
  return d;
}

int walk(CpuRegs leaf2) {
  FakeCpu cpu(withLeaf2(leaf2));
  return ownGetCacheSize(ownCacheDescriptors);
}

// Leaf 2 with descriptor bytes at the given positions 1..15 (EAX kept).
CpuRegs placed(std::vector<std::pair<int, Lum32u>> bytes) {
  Lum32u r[4] = {1, 0, 0, 0};
  for (const auto& [pos, d] : bytes) r[pos / 4] |= d << (8 * (pos % 4));
  return {r[0], r[1], r[2], r[3]};
}

void expectAsReference(const CpuRegs& r) {
  EXPECT_EQ(walk(r), lumref::leaf2CacheSize({r.eax, r.ebx, r.ecx, r.edx}))
      << std::hex << r.eax << " " << r.ebx << " " << r.ecx << " " << r.edx;
}

TEST(CacheDescriptors, EveryByteInEveryPosition) {
  int known = 0;
  for (Lum32u d = 0; d < 256; ++d) {
    known += lumref::descriptorSize(static_cast<uint8_t>(d)) > 0;
    for (int pos = 1; pos < 16; ++pos) expectAsReference(placed({{pos, d}}));
  }
  EXPECT_EQ(known, 39);
}

// Every pair of known descriptors, each before the other in register order:
// the larger wins wherever it sits.
TEST(CacheDescriptors, EveryPairTheLargerWins) {
  std::vector<Lum32u> known;
  for (Lum32u d = 1; d < 256; ++d)
    if (lumref::descriptorSize(static_cast<uint8_t>(d)) > 0) known.push_back(d);
  for (Lum32u x : known)
    for (Lum32u y : known) {
      const int want = std::max(lumref::descriptorSize(x), lumref::descriptorSize(y));
      ASSERT_EQ(walk(placed({{1, x}, {6, y}})), want) << std::hex << x << " " << y;
      expectAsReference(placed({{3, x}, {9, y}}));  // a top byte of 0x80 or more drops EAX
      expectAsReference(placed({{2, x}, {15, y}}));
    }
}

TEST(CacheDescriptors, WorkedCases) {
  const struct { CpuRegs leaf2; int size; } cases[] = {
      {{1, 0x492C, 0, 0}, 4 * MiB}, {{1, 0x2C49, 0, 0}, 4 * MiB},  // next to an unknown one
      {{1, 0x2C2C2C2C, 0x00F0FFFF, 0}, -1},
      {{0x3A790001, 0x3D3B4139, 0x42223F3C, 0x3E7A4843}, 3 * MiB},
      // Registers with bit 31 set are empty; the others are packed without
      // gaps, so a top byte of EDX is still walked.
      {{1, 0x00000043, 0, 0x8500004D}, 512 * KiB},
      {{1, 0x8000004D, 0x4C000000, 0}, 12 * MiB},
      {{1, 0x8000004D, 0x80004C00, 0xFFFFFFFF}, -1},
      {{1, 0x80000000, 0x90000000, 0x3A000000}, 192 * KiB},
      // With EAX dropped the walk still covers positions 1..count: the first
      // byte of the first kept register is passed over.
      {{0x80000001, 0x0000004D, 0, 0}, -1}, {{0x80000001, 0x00004D00, 0, 0}, 16 * MiB},
      {{0x80000001, 0x4D000000, 0, 0}, 16 * MiB}, {{0x80000001, 0, 0x80000000, 0}, -1},
      {{0x80000001, 0x00000043, 0x0000004D, 0}, 16 * MiB},
      {{0x80000001, 0x0000004D, 0x00000043, 0}, 512 * KiB},
      // Only single-round leaf 2.
      {{0x4D4D00, 0x4D, 0, 0}, -1}, {{0x4D4D02, 0x4D, 0, 0}, -1},
      {{0x4D4D03, 0x4D, 0, 0}, -1}, {{0x4D4DFF, 0x4D, 0, 0}, -1},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(walk(c.leaf2), c.size) << std::hex << c.leaf2.eax << " " << c.leaf2.ebx << " "
                                     << c.leaf2.ecx << " " << c.leaf2.edx;
    expectAsReference(c.leaf2);
  }
}

// ---- lumGetMaxCacheSizeB: status, and the answer kept ---------------------------

class CacheQuery : public testing::Test {
 protected:
  void SetUp() override { ownResetCacheState(); }
  void TearDown() override { ownResetCacheState(); }
};

TEST_F(CacheQuery, StatusSizeAndTheAnswerKeptAfterTheFirstCallWithAPointer) {
  const struct {
    const char* what;
    CpuDesc desc;
    Lum32u maxLeaf;
    bool hasCpuid;
    LumStatus status;
    int size, leaf2Reads;
  } cases[] = {
      {"genuine", withLeaf2({0x00430001, 0x7D, 0, 0}), 4, true, lumStsNoErr, 2 * MiB, 1},
      {"several rounds", withLeaf2({0x00004D02, 0, 0, 0}), 4, true, lumStsCacheSizeUnknown, 0, 1},
      {"no descriptor", withLeaf2({0x80000001, 0x4D, 0, 0}), 4, true, lumStsCacheSizeUnknown, 0, 1},
      {"other vendor", withLeaf2({1, 0x4D, 0, 0}, "OtherVendorX"), 4, true, lumStsCpuNotSupported, 0, 0},
      {"leaf 2 out of range", withLeaf2({1, 0x4D, 0, 0}), 1, true, lumStsCpuNotSupported, 0, 0},
      {"highest leaf as signed", withLeaf2({1, 0x4D, 0, 0}), 0x80000002u, true, lumStsCpuNotSupported, 0, 0},
      {"no CPUID", withLeaf2({1, 0x4D, 0, 0}), 4, false, lumStsCpuNotSupported, 0, 0},
  };
  for (const auto& c : cases) {
    ownResetCacheState();
    CpuDesc d = c.desc;
    d.maxLeaf = c.maxLeaf;
    FakeCpu cpu(d);
    cpu.setHasCpuid(c.hasCpuid);
    // A null pointer first leaves the answer undetermined.
    EXPECT_EQ(lumGetMaxCacheSizeB(nullptr), lumStsNullPtrErr);
    EXPECT_EQ(cpu.totalReads(), 0);
    int size = -1;
    EXPECT_EQ(lumGetMaxCacheSizeB(&size), c.status) << c.what;
    EXPECT_EQ(size, c.size) << c.what;
    EXPECT_EQ(cpu.reads(2), c.leaf2Reads) << c.what;
    EXPECT_TRUE(c.hasCpuid || cpu.totalReads() == 0) << c.what;
    // A different processor now changes nothing: the answer is not worked out again.
    cpu.load(withLeaf2({1, 0x4C, 0, 0}));
    cpu.setHasCpuid(true);
    cpu.resetReads();
    size = -1;
    EXPECT_EQ(lumGetMaxCacheSizeB(&size), c.status) << c.what << ", again";
    EXPECT_EQ(size, c.size) << c.what << ", again";
    EXPECT_EQ(cpu.totalReads(), 0) << c.what << ", again";
    EXPECT_EQ(lumGetMaxCacheSizeB(nullptr), lumStsNullPtrErr);
  }
}

}  // namespace
