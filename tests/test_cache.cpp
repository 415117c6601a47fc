// The cache-size query: the leaf-2 descriptor walk on made-up processors, the
// answer kept after the first call, and the processor the tests run on.
#include <gtest/gtest.h>

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

// Every test starts from the load-time state and leaves it so, for the
// tests that ask the real processor.
class CacheQuery : public testing::Test {
 protected:
  void SetUp() override { ownResetCacheState(); }
  void TearDown() override { ownResetCacheState(); }
};

CpuDesc withLeaf2(CpuRegs leaf2) {
  CpuDesc d;
  d.leaf2 = leaf2;
  return d;
}

int walk(CpuRegs leaf2) {
  FakeCpu cpu(withLeaf2(leaf2));
  return ownGetCacheSize(ownCacheDescriptors);
}

// The documented table, row by row: size, then its descriptors in order.
struct SizeRow {
  int size;
  std::vector<Lum32u> descriptors;
};
const SizeRow kTable[] = {
    {16 * MiB, {0x4D}},
    {12 * MiB, {0x4C}},
    {8 * MiB, {0x4B, 0x47}},
    {6 * MiB, {0x4E, 0x4A}},
    {4 * MiB, {0x49, 0x29, 0x46}},
    {3 * MiB, {0x48}},
    {2 * MiB, {0x25, 0x7D, 0x85, 0x45}},
    {1 * MiB, {0x23, 0x87, 0x7C, 0x78, 0x84, 0x44}},
    {512 * KiB, {0x22, 0x7B, 0x80, 0x86, 0x3E, 0x7F, 0x83, 0x43}},
    {384 * KiB, {0x3D}},
    {256 * KiB, {0x7A, 0x82, 0x3C, 0x3F, 0x42}},
    {192 * KiB, {0x3A}},
    {128 * KiB, {0x79, 0x39, 0x3B, 0x41}},
};

TEST(CacheDescriptors, TableInItsOrder) {
  std::vector<OwnCacheDescriptor> expected;
  for (const SizeRow& row : kTable)
    for (Lum32u d : row.descriptors) expected.push_back({d, static_cast<Lum32u>(row.size)});
  ASSERT_EQ(expected.size(), 39u);
  size_t n = 0;
  while (ownCacheDescriptors[n].descriptor != 0) ++n;
  ASSERT_EQ(n, expected.size());
  for (size_t i = 0; i < n; ++i) {
    EXPECT_EQ(ownCacheDescriptors[i].descriptor, expected[i].descriptor) << "entry " << i;
    EXPECT_EQ(ownCacheDescriptors[i].size, expected[i].size) << "entry " << i;
  }
}

// Each descriptor alone, in each of the fifteen descriptor positions.
TEST(CacheDescriptors, EveryDescriptorInEveryPosition) {
  for (const SizeRow& row : kTable) {
    for (Lum32u d : row.descriptors) {
      for (int pos = 1; pos < 16; ++pos) {
        Lum32u regs[4] = {1, 0, 0, 0};
        regs[pos / 4] |= d << (8 * (pos % 4));
        const CpuRegs leaf2{regs[0], regs[1], regs[2], regs[3]};
        // A register whose top byte is 0x80 or more reads as empty.
        const bool dropped = pos % 4 == 3 && d >= 0x80;
        EXPECT_EQ(walk(leaf2), dropped ? -1 : row.size)
            << std::hex << "descriptor 0x" << d << " at byte " << std::dec << pos;
      }
    }
  }
}

TEST(CacheDescriptors, UnknownDescriptorNextToAKnownOne) {
  EXPECT_EQ(walk({1, 0x492C, 0, 0}), 4 * MiB);
  EXPECT_EQ(walk({1, 0x2C49, 0, 0}), 4 * MiB);
  EXPECT_EQ(walk({1, 0x2C2C2C2C, 0x00F0FFFF, 0}), -1);
  EXPECT_EQ(walk({1, 0, 0, 0}), -1);
}

TEST(CacheDescriptors, LargestWinsWhereverItSits) {
  EXPECT_EQ(walk({0x00004301, 0, 0, 0x7D000000}), 2 * MiB);
  EXPECT_EQ(walk({0x007D0001, 0, 0, 0x00000043}), 2 * MiB);
  // The larger one comes after the smaller in register order, then before.
  EXPECT_EQ(walk({0x00000001, 0x00000043, 0, 0x4D000000}), 16 * MiB);
  EXPECT_EQ(walk({0x004D0001, 0x00000043, 0, 0}), 16 * MiB);
  EXPECT_EQ(walk({0x3A790001, 0x3D3B4139, 0x42223F3C, 0x3E7A4843}), 3 * MiB);
}

TEST(CacheDescriptors, RegistersWithBit31AreEmpty) {
  EXPECT_EQ(walk({1, 0x00000043, 0, 0x8500004D}), 512 * KiB);
  EXPECT_EQ(walk({1, 0x8000004D, 0x4C000000, 0}), 12 * MiB);
  EXPECT_EQ(walk({1, 0x8000004D, 0x80004C00, 0xFFFFFFFF}), -1);
}

// Registers are packed without gaps: a descriptor in the top byte of EDX is
// still inside the walked range when EBX and ECX are empty.
TEST(CacheDescriptors, EmptyRegistersLeaveNoGap) {
  EXPECT_EQ(walk({1, 0, 0, 0x7D000000}), 2 * MiB);
  EXPECT_EQ(walk({1, 0, 0x4B000000, 0}), 8 * MiB);
  EXPECT_EQ(walk({1, 0x80000000, 0x90000000, 0x3A000000}), 192 * KiB);
}

// With EAX dropped the walk still covers positions 1..count: the first byte
// of the first kept register is passed over, and one cleared byte past the
// packed data is looked at.
TEST(CacheDescriptors, DroppedEaxShiftsTheRange) {
  EXPECT_EQ(walk({0x80000001, 0x0000004D, 0, 0}), -1);
  EXPECT_EQ(walk({0x80000001, 0x00004D00, 0, 0}), 16 * MiB);
  EXPECT_EQ(walk({0x80000001, 0x4D000000, 0, 0}), 16 * MiB);
  EXPECT_EQ(walk({0x80000001, 0x00000043, 0x0000004D, 0}), 16 * MiB);
  EXPECT_EQ(walk({0x80000001, 0x0000004D, 0x00000043, 0}), 512 * KiB);
  // Kept EAX: the same EBX byte is a descriptor.
  EXPECT_EQ(walk({0x00000001, 0x0000004D, 0, 0}), 16 * MiB);
  // Nothing kept at all.
  EXPECT_EQ(walk({0x80000001, 0, 0x80000000, 0}), -1);
}

// Only the low byte of a table entry's descriptor word is compared, and the
// byte past the packed data is zero: an entry whose low byte is 0 finds it
// exactly when EAX was dropped.
TEST(CacheDescriptors, CustomTables) {
  const OwnCacheDescriptor lowByte[] = {{0x1234564D, 77}, {0, 0}};
  {
    FakeCpu cpu(withLeaf2({1, 0, 0x4D00, 0}));
    EXPECT_EQ(ownGetCacheSize(lowByte), 77);
  }
  const OwnCacheDescriptor zeroByte[] = {{0x100, 5}, {0, 0}};
  {
    FakeCpu cpu(withLeaf2({0x80000001, 0x11111111, 0x22222222, 0x33333333}));
    EXPECT_EQ(ownGetCacheSize(zeroByte), 5) << "the byte past the data reads as 0";
  }
  {
    FakeCpu cpu(withLeaf2({0x11111101, 0x11111111, 0x22222222, 0x33333333}));
    EXPECT_EQ(ownGetCacheSize(zeroByte), -1) << "no zero byte among positions 1..15";
  }
  {
    // With EAX kept the walk ends at the last packed byte, not one past it.
    FakeCpu cpu(withLeaf2({0x11111101, 0x22222222, 0, 0}));
    EXPECT_EQ(ownGetCacheSize(zeroByte), -1) << "walked past the packed data";
  }
  const OwnCacheDescriptor roundCount[] = {{0x01, 6}, {0, 0}};
  {
    FakeCpu cpu(withLeaf2({0x22222201, 0, 0, 0}));
    EXPECT_EQ(ownGetCacheSize(roundCount), -1) << "position 0 (the round count) is not walked";
  }
  const OwnCacheDescriptor empty[] = {{0, 1234}, {0x4D, 99}};
  {
    FakeCpu cpu(withLeaf2({1, 0x4D, 0, 0}));
    EXPECT_EQ(ownGetCacheSize(empty), -1) << "a zero descriptor word ends the table";
  }
}

TEST(CacheDescriptors, OnlySingleRoundLeaf2) {
  for (Lum32u rounds : {0u, 2u, 3u, 0xFFu}) {
    EXPECT_EQ(walk({rounds | 0x4D4D00, 0x4D, 0, 0}), -1) << "rounds " << rounds;
  }
  EXPECT_EQ(walk({0x101, 0, 0, 0}), -1);  // descriptor 0x01 is not a cache
}

// ---- lumGetMaxCacheSizeB: status and the answer kept --------------------------

TEST_F(CacheQuery, AnswerOfAGenuineProcessorIsKept) {
  FakeCpu cpu(withLeaf2({0x00430001, 0x7D, 0, 0}));
  int size = -1;
  EXPECT_EQ(lumGetMaxCacheSizeB(&size), lumStsNoErr);
  EXPECT_EQ(size, 2 * MiB);
  EXPECT_EQ(cpu.reads(2), 1);
  // A different answer from the processor now changes nothing.
  cpu.load(withLeaf2({1, 0x4D, 0, 0}));
  cpu.resetReads();
  size = -1;
  EXPECT_EQ(lumGetMaxCacheSizeB(&size), lumStsNoErr);
  EXPECT_EQ(size, 2 * MiB);
  EXPECT_EQ(cpu.totalReads(), 0) << "the kept answer is not worked out again";
  EXPECT_EQ(lumGetMaxCacheSizeB(nullptr), lumStsNullPtrErr);
}

TEST_F(CacheQuery, SeveralRoundsMeansUnknownForGood) {
  FakeCpu cpu(withLeaf2({0x00004D02, 0, 0, 0}));
  int size = -1;
  EXPECT_EQ(lumGetMaxCacheSizeB(&size), lumStsCacheSizeUnknown);
  EXPECT_EQ(size, 0);
  cpu.load(withLeaf2({0x00004D01, 0, 0, 0}));
  size = -1;
  EXPECT_EQ(lumGetMaxCacheSizeB(&size), lumStsCacheSizeUnknown);
  EXPECT_EQ(size, 0);
}

TEST_F(CacheQuery, NoDescriptorFoundIsUnknown) {
  FakeCpu cpu(withLeaf2({0x80000001, 0x4D, 0, 0}));
  int size = -1;
  EXPECT_EQ(lumGetMaxCacheSizeB(&size), lumStsCacheSizeUnknown);
  EXPECT_EQ(size, 0);
}

TEST_F(CacheQuery, AnotherVendorIsNotSupportedWithoutReadingLeaf2) {
  CpuDesc d = withLeaf2({1, 0x4D, 0, 0});
  d.vendor = "OtherVendorX";
  FakeCpu cpu(d);
  int size = -1;
  EXPECT_EQ(lumGetMaxCacheSizeB(&size), lumStsCpuNotSupported);
  EXPECT_EQ(size, 0);
  EXPECT_EQ(cpu.reads(2), 0);
  // Kept as well.
  cpu.load(withLeaf2({1, 0x4D, 0, 0}));
  size = -1;
  EXPECT_EQ(lumGetMaxCacheSizeB(&size), lumStsCpuNotSupported);
  EXPECT_EQ(size, 0);
}

TEST_F(CacheQuery, Leaf2BeyondTheHighestLeafIsNotSupported) {
  CpuDesc d = withLeaf2({1, 0x4D, 0, 0});
  d.maxLeaf = 1;
  FakeCpu cpu(d);
  int size = -1;
  EXPECT_EQ(lumGetMaxCacheSizeB(&size), lumStsCpuNotSupported);
  EXPECT_EQ(size, 0);
  EXPECT_EQ(cpu.reads(2), 0);
}

TEST_F(CacheQuery, HighestLeafComparedAsSigned) {
  CpuDesc d = withLeaf2({1, 0x4D, 0, 0});
  d.maxLeaf = 0x80000002u;
  FakeCpu cpu(d);
  int size = -1;
  EXPECT_EQ(lumGetMaxCacheSizeB(&size), lumStsCpuNotSupported);
}

TEST_F(CacheQuery, NoCpuidIsNotSupported) {
  FakeCpu cpu(withLeaf2({1, 0x4D, 0, 0}));
  cpu.setHasCpuid(false);
  int size = -1;
  EXPECT_EQ(lumGetMaxCacheSizeB(&size), lumStsCpuNotSupported);
  EXPECT_EQ(size, 0);
  EXPECT_EQ(cpu.totalReads(), 0);
}

TEST_F(CacheQuery, NullPointerOnTheFirstCallLeavesItUndetermined) {
  FakeCpu cpu(withLeaf2({1, 0x4D, 0, 0}));
  EXPECT_EQ(lumGetMaxCacheSizeB(nullptr), lumStsNullPtrErr);
  EXPECT_EQ(cpu.totalReads(), 0);
  int size = -1;
  EXPECT_EQ(lumGetMaxCacheSizeB(&size), lumStsNoErr);
  EXPECT_EQ(size, 16 * MiB);
}

TEST_F(CacheQuery, ThisProcessor) {
  const lumref::Snapshot s = lumref::readThisProcessor();
  int expectedSize = -1;
  const int expectedStatus = lumref::cacheStatus(s, &expectedSize);
  int size = -1;
  EXPECT_EQ(lumGetMaxCacheSizeB(&size), expectedStatus);
  EXPECT_EQ(size, expectedSize);
}

}  // namespace
