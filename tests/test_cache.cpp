// The cache-size query: the leaf-2 walk on made-up processors, against the
// reference reading of support/cpu_reference and hand-worked cases, and the
// answer kept from the first call (the status on each kind of processor is
// checked in test_cpu.cpp); the extended leaf read where the query fails,
// and the largest cache the streaming choice takes from the two.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <thread>
#include <tuple>
#include <vector>

#include "core/cpu_internal.h"
#include "support/cpu_reference.h"
#include "support/fake_cpu.h"

namespace {

using lumtest::FakeCpu;

// The library's walk over leaf 2, checked against the reference on the way.
int walk(Lum32u eax, Lum32u ebx, Lum32u ecx, Lum32u edx) {
  const uint32_t r[4] = {eax, ebx, ecx, edx};
  FakeCpu cpu({{2, {eax, ebx, ecx, edx}}});
  const int size = ownGetCacheSize(ownCacheDescriptors);
  EXPECT_EQ(size, lumref::leaf2CacheSize(r))
      << std::hex << eax << " " << ebx << " " << ecx << " " << edx;
  return size;
}

TEST(CacheSize, EveryByteEveryPositionEveryPairAndWorkedCases) {
  std::vector<Lum32u> known;
  for (Lum32u b = 0; b < 256; ++b) {
    if (lumref::descriptorSize(static_cast<uint8_t>(b)) > 0) known.push_back(b);
    for (int pos = 1; pos < 16; ++pos) {
      Lum32u r[4] = {1, 0, 0, 0};
      r[pos / 4] |= b << (8 * (pos % 4));
      walk(r[0], r[1], r[2], r[3]);
    }
  }
  ASSERT_EQ(known.size(), 39u);
  for (Lum32u x : known)  // either one first, the larger cache wins
    for (Lum32u y : known) {
      EXPECT_EQ(walk(1 | x << 8, y << 16, 0, 0),
                std::max(lumref::descriptorSize(x), lumref::descriptorSize(y)));
      walk(1 | x << 24, 0, 0, y << 24);  // a top byte of 0x80 or more drops the register
    }
  // Next to unknown bytes; registers with bit 31 set are empty and the others
  // packed without gaps; with EAX dropped the walk still covers positions
  // 1..count, passing over the first byte of the first kept register; only
  // the single-round form is read.
  const struct {
    Lum32u r[4];
    int size;
  } cases[] = {{{1, 0x2C492C, 0, 0}, 4 << 20},
               {{1, 0x2C2C2C2C, 0x00F0FFFF, 0}, -1},
               {{1, 0x43, 0, 0x8500004D}, 512 << 10},
               {{1, 0x80000000, 0x90000000, 0x3A000000}, 192 << 10},
               {{0x80000001, 0x4D, 0, 0}, -1},
               {{0x80000001, 0x4D000000, 0, 0}, 16 << 20},
               {{0x80000001, 0x4D, 0x43, 0}, 512 << 10},
               {{0x4D4D00, 0x4D, 0, 0}, -1},
               {{0x4D4D02, 0x4D, 0, 0}, -1},
               {{0x4D4DFF, 0x4D, 0, 0}, -1}};
  for (const auto& c : cases) EXPECT_EQ(walk(c.r[0], c.r[1], c.r[2], c.r[3]), c.size);
}

TEST(CacheSize, WorkedOutOnceOnTheFirstCallWithAPointer) {
  for (bool hasCpuid : {true, false}) {
    ownResetCacheState();
    FakeCpu cpu(lumtest::cpuLeaves());
    cpu.leaves[2] = {0x00430001, 0x7D, 0, 0};
    cpu.hasCpuid = hasCpuid;
    EXPECT_EQ(lumGetMaxCacheSizeB(nullptr), lumStsNullPtrErr);  // leaves the answer undetermined
    cpu.leaves[2].ebx = 0x49;
    for (int call = 0; call < 2; ++call) {
      int size = -1;
      EXPECT_EQ(lumGetMaxCacheSizeB(&size), hasCpuid ? lumStsNoErr : lumStsCpuNotSupported) << call;
      EXPECT_EQ(size, hasCpuid ? 4 << 20 : 0) << call;
      cpu.leaves[2].ebx = 0x4C;  // a larger cache now: the answer is not worked out again
    }
    EXPECT_EQ(cpu.blindReads, 0);
  }
  ownResetCacheState();
}

// The library's reading of the extended leaves `x` of a made-up processor, checked against the
// reference; nothing read without CPUID.
int extendedReading(const lumref::ExtendedLeaves& x) {
  int size = -1;
  for (bool hasCpuid : {true, false}) {
    FakeCpu cpu(x);
    cpu.hasCpuid = hasCpuid;
    const int got = ownGetExtendedCacheSize();
    EXPECT_EQ(got, hasCpuid ? lumref::extendedCacheSize(x) : 0)
        << std::hex << x.highest << " " << x.x1Ecx << " " << x.x6[2] << " " << x.x6[3]
        << " list of " << x.cacheList.size();
    EXPECT_EQ(cpu.blindReads, 0);
    if (hasCpuid) size = got;
  }
  return size;
}

constexpr Lum32u kListed = 1u << 22;  // 0x80000001 ECX: leaf 0x8000001D lists the caches

// Leaf 0x80000006: level 2 in KiB in ECX bits 31..16, level 3 in units of 512 KiB in EDX bits
// 31..18, the bits below ignored; nothing without the leaf, or with a highest extended leaf that
// is no extended leaf. The same where the cache list is there and names nothing.
TEST(ExtendedCacheSize, Leaf0x80000006) {
  for (auto [top, ecx, edx, want] : {std::tuple{0x80000006u, 0x02000000u, 0u, 512 << 10},
                                     {0x80000008u, 0x0100FFFFu, 0x0A009140u, 320 << 20},
                                     {0x80000021u, 0x08000140u, 0x0003FFFFu, 2 << 20},
                                     {0x80000006u, 0x08000000u, 0x00C00000u, 24 << 20},
                                     {0x80000006u, 0x08000000u, 0x01000000u, 32 << 20},
                                     {0x80000006u, 0u, 0xFFFC0000u, INT32_MAX},
                                     {0x80000006u, 0xFFFF0000u, 0u, 65535 << 10},
                                     {0x80000006u, 0x0000FFFFu, 0x0003FFFFu, 0},
                                     {0x80000005u, 0x02000000u, 0x01000000u, 0},
                                     {0x80000001u, 0x02000000u, 0x01000000u, 0},
                                     {0x00000004u, 0x02000000u, 0x01000000u, 0},
                                     {0x80010006u, 0x02000000u, 0x01000000u, 0}})
    for (Lum32u x1Ecx : {0u, kListed}) {
      lumref::ExtendedLeaves x{top, x1Ecx, {0, 0, ecx, edx}, {}};
      EXPECT_EQ(extendedReading(x), want) << std::hex << top << " " << ecx << " " << edx;
      x.cacheList = {{0x122, 0x01C0003F, 0x3F, 0}, {}, {0x163, 0x03C0003F, 0x7FFF, 0}};
      EXPECT_EQ(extendedReading(x), want) << std::hex << top << " " << ecx << " " << edx;
    }
}

// Leaf 0x8000001D, where the highest extended leaf reaches it and 0x80000001 says it is there:
// the largest data (type 1) or unified (type 3) cache up to the first entry of type 0, ways x
// partitions x line bytes x sets, each field one less than its count; taken over leaf
// 0x80000006 even where that describes a larger cache. A processor of family 25 answers with
// its leaf 0x80000006's level 3 of 320 MiB and a list whose level 3 is 32 MiB.
TEST(ExtendedCacheSize, CacheListOverLeaf0x80000006) {
  using List = std::vector<std::array<uint32_t, 4>>;
  const List family25 = {{0x121, 0x01C0003F, 0x3F, 0},
                         {0x122, 0x01C0003F, 0x3F, 0},
                         {0x143, 0x01C0003F, 0x7FF, 2},
                         {0x4163, 0x03C0003F, 0x7FFF, 1}};
  const std::array<uint32_t, 4> data32K = {0x121, 0x01C0003F, 0x3F, 0},
                                unified2M = {0x143, 0x03C0003F, 0x7FF, 0};
  List decreasing;  // longer than any processor's list, the largest first
  for (uint32_t i = 0; i < 40; ++i) decreasing.push_back({0x163, 0x01C0003F, 0x1000 - i, 0});
  const uint32_t x6Ecx = 0x04006140, x6Edx = 0x0A009140;  // 1 MiB and 320 MiB
  for (auto [top, x1Ecx, list, want] :
       {std::tuple{0x80000021u, kListed, family25, 32 << 20},
        {0x8000001Du, 0xFFFFFFFFu, family25, 32 << 20},
        {0x80000021u, ~kListed, family25, 320 << 20},  // the list not there
        {0x8000001Cu, kListed, family25, 320 << 20},   // nor this far
        {0x80000021u, kListed, List{}, 320 << 20},     // an empty list
        {0x80000021u, kListed, List{{0x122, 0x01C0003F, 0x3F, 0}}, 320 << 20},  // code only
        {0x80000021u, kListed, List{data32K, {}, unified2M}, 32 << 10},         // ends at type 0
        {0x80000021u, kListed,
         List{{0x124, 0x03C0003F, 0x7FFF, 0}, {0x13F, 0x03C0003F, 0x7FFF, 0}, data32K},
         32 << 10},  // types 4 and 31 are no caches of data
        {0x80000021u, kListed, List{{0xFFFFFFE3u, 0x01C0003F, 0x3F, 0}}, 32 << 10},
        {0x80000021u, kListed, List{{0x3, 0x00403003, 0, 0}}, 32},  // 2 x 4 x 4 x 1
        {0x80000021u, kListed, List{{0x3, 0xFFC0003F, 32766, 0}}, 2147418112},
        {0x80000021u, kListed, List{{0x3, 0xFFC0003F, 32767, 0}}, INT32_MAX},
        {0x80000021u, kListed, List{{0x3, 0xFFFFFFFF, 0xFFFFFFFF, 0}}, INT32_MAX},
        {0x80000021u, kListed, List{data32K, unified2M, data32K}, 2 << 20},
        {0x80000021u, kListed, decreasing, 0x1001 * 8 * 64}}) {
    const lumref::ExtendedLeaves x{top, x1Ecx, {0, 0, x6Ecx, x6Edx}, list};
    EXPECT_EQ(extendedReading(x), want)
        << std::hex << top << " " << x1Ecx << " list of " << list.size();
  }
  // The list wins where leaf 0x80000006 describes a smaller cache too.
  EXPECT_EQ(extendedReading({0x80000021u, kListed, {0, 0, 0x02000000u, 0}, family25}), 32 << 20);
}

// The cache the streaming choice takes: the query's where it succeeds, the extended leaf's where
// the vendor is unknown or leaf 2 names no cache, 0 where neither can be read; the query's own
// answers unchanged; worked out once, by whichever of several threads asks first.
TEST(ExtendedCacheSize, TakenWhereTheQueryFailsOnce) {
  const Lum32u big = 0x4D, none = 0xFF;  // leaf-2 descriptors: 16 MiB, and one that names no cache
  for (auto [vendor, descriptor, extended, status, querySize, largest] :
       {std::tuple{"GenuineTorva", big, true, lumStsNoErr, 16 << 20, 16 << 20},
        {"GenuineTorva", none, true, lumStsCacheSizeUnknown, 0, 3 << 20},
        {"GenuineTorva", none, false, lumStsCacheSizeUnknown, 0, 0},
        {"OtherVendorX", big, true, lumStsCpuNotSupported, 0, 3 << 20},
        {"OtherVendorX", big, false, lumStsCpuNotSupported, 0, 0}}) {
    lumtest::CpuLeaves leaves = lumtest::cpuLeaves(vendor);
    leaves[2] = {0x00000001 | descriptor << 8, 0, 0, 0};
    if (extended)
      leaves[0x80000000u] = {0x80000006u, 0, 0, 0},
      leaves[0x80000006u] = {0, 0, 0x01000000u, 0x00180000u};
    FakeCpu cpu(leaves);
    ownResetCacheState();
    std::atomic<int> wrong{0};
    std::vector<std::thread> askers;
    for (int t = 0; t < 4; ++t)
      askers.emplace_back([&, largest = largest] { wrong += ownGetLargestCacheSize() != largest; });
    for (std::thread& t : askers) t.join();
    EXPECT_EQ(wrong.load(), 0) << vendor << " " << descriptor << " " << extended;
    cpu.leaves[0x80000006u] = {0, 0, 0x7FFF0000u, 0};  // a larger cache now: not read again
    cpu.leaves[2] = {0x00000001 | 0x4C << 8, 0, 0, 0};
    int size = -1;
    EXPECT_EQ(lumGetMaxCacheSizeB(&size), status) << vendor << " " << descriptor << " " << extended;
    EXPECT_EQ(size, querySize) << vendor << " " << descriptor << " " << extended;
    EXPECT_EQ(ownGetLargestCacheSize(), largest) << vendor << " " << descriptor << " " << extended;
  }
  ownResetCacheState();
}

}  // namespace
