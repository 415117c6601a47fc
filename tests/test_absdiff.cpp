// Absolute difference of every build through the harness, against the difference worked out here:
// exact for bytes; for floats one rounding of the exact difference, the sign then cleared. The
// float kernels of k2, k4 and k5 stream from the cache size on: both sides of that switch.
#include <algorithm>
#include <tuple>

#include "core/cpu_internal.h"
#include "support/builds.h"
#include "support/fake_cpu.h"
#include "support/cases.h"

namespace lum {
namespace k2 {
bool ownAbsDiffStreams_32f(int width, int height);
}
namespace k4 {
bool ownAbsDiffStreams_32f(int width, int height);
}
namespace k5 {
bool ownAbsDiffStreams_32f(int width, int height);
}
}  // namespace lum

namespace {

using namespace lumtest;

// A processor for the scope whose largest cache comes from `descriptor` of leaf 2 (vendor
// GenuineTorva), or from the extended leaves of a vendor the query does not know (0x80000006's ECX
// and EDX, or those and a cache list); the query answers afresh.
struct CacheScope {
  explicit CacheScope(Lum32u descriptor)
      : cpu([=] {
          CpuLeaves l = cpuLeaves();
          return l[2] = {1 | descriptor << 8, 0, 0, 0}, l;
        }()) {
    ownResetCacheState();
  }
  explicit CacheScope(const lumref::ExtendedLeaves& x) : cpu(x) { ownResetCacheState(); }
  CacheScope(Lum32u topExtendedLeaf, Lum32u ecx, Lum32u edx)
      : CacheScope(lumref::ExtendedLeaves{topExtendedLeaf, 0, {0, 0, ecx, edx}, {}}) {}
  ~CacheScope() { ownResetCacheState(); }
  FakeCpu cpu;
};

class AbsDiff : public PerBuild {};

TEST_P(AbsDiff, Harness8u) {
  checkAll<Lum8u>(build(), 1, [&](int, int) { return absDiffCase<Lum8u>(build()); });
}

// On the largest cache this processor describes (in leaf 2, or in the extended leaves where the
// query fails), then on one of 16 MiB, which every region here fits.
TEST_P(AbsDiff, Harness32fOnThisCacheAndOnALargeOne) {
  checkAll<Lum32f>(build(), 1, [&](int, int) { return absDiffCase<Lum32f>(build()); });
  CacheScope large(0x4D);
  checkAll<Lum32f>(build(), 1, [&](int, int) { return absDiffCase<Lum32f>(build()); });
}

// Streamed rows: padded rows of aligned operands (every start and step a multiple of 16) starting
// at each 16-byte offset of a 64-byte line, through every streaming kernel (k1's and k3's, and
// k2's, k4's and k5's where nothing tells the cache size); bytes, which k1 streams whatever the
// alignment, at any offset. Rows end where they may, so that the lines at either end are partial.
TEST_P(AbsDiff, StreamedRowsAtEveryLineOffset) {
  CacheScope noCacheSize(0x80000005u, 0, 0);
  for (int w : {4, 16, 20, 33, 64, 100, 250})
    for (int at = 0; at < 64; at += 16)
      for (int extra : {16, 48}) {
        const int step32 = (4 * w + 15) / 16 * 16 + extra, step8 = w + extra + at % 7;
        run(build(), absDiffCase<Lum32f>(build()),
            {w, 5, {{step32, at, true}, {step32, (at + 16) % 64, true}}, {step32, at, true}});
        run(build(), absDiffCase<Lum8u>(build()),
            {w, 5, {{step8, at + 1, true}, {step8, at, true}}, {step8, at + 3, true}});
      }
}

LUM_INSTANTIATE_PER_BUILD(AbsDiff);

// Three images of width x height floats stream from the largest cache's size on: that of leaf 2, or
// where the query fails the extended leaves' (the cache list's, else leaf 0x80000006's level 2 or
// level 3, whichever is larger), every region where neither can be read.
TEST(AbsDiffCacheSwitch, AtTheCacheSizeAndOnePixelBelow) {
  for (auto streams : {lum::k2::ownAbsDiffStreams_32f, lum::k4::ownAbsDiffStreams_32f,
                       lum::k5::ownAbsDiffStreams_32f}) {
    const auto edge = [&](const char* what, int cache) {
      const int pixels = (cache + 11) / 12;  // the first count that reaches it
      EXPECT_TRUE(streams(pixels > 0 ? pixels : 1, 1)) << what << ", cache " << cache;
      EXPECT_TRUE(pixels < 2 || !streams(pixels - 1, 1)) << what << ", cache " << cache;
    };
    {
      CacheScope cache(0x3A);  // 192 KiB: 16384 pixels
      for (const auto& [w, h, want] : {std::tuple{128, 128, true},
                                       {16384, 1, true},
                                       {1, 16384, true},
                                       {16383, 1, false},
                                       {127, 129, false},
                                       {2, 8192, true},
                                       {8191, 2, false}})
        EXPECT_EQ(streams(w, h), want) << w << "x" << h;
    }
    {
      CacheScope cache(0x80000008u, 0x01000000u,
                       0x00080000u);  // level 2 of 256 KiB, level 3 of 1 MiB
      edge("level 3", 1 << 20);
      EXPECT_TRUE(streams(1024, 86) && !streams(1024, 85));
    }
    {
      CacheScope cache(0x80000006u, 0x00C0FFFFu, 0x0003FFFFu);  // level 2 of 192 KiB, no level 3
      edge("level 2", 192 << 10);
    }
    {
      // A cache list whose level 3 is 1 MiB, where leaf 0x80000006 counts 4 MiB.
      CacheScope cache(lumref::ExtendedLeaves{0x8000001Du,
                                              1u << 22,
                                              {0, 0, 0x01000000u, 0x00200000u},
                                              {{0x163, 0x03C0003F, 0x3FF, 0}}});
      edge("the list's level 3", 1 << 20);
    }
    for (Lum32u top : {0x80000005u, 0x80000001u}) {
      CacheScope cache(top, 0x01000000u, 0x00080000u);  // no extended leaf 0x80000006: every region
      EXPECT_TRUE(streams(1, 1)) << std::hex << top;
    }
    int size = 0;
    const LumStatus st = lumGetMaxCacheSizeB(&size);
    edge("this processor", st == lumStsNoErr ? size : ownGetExtendedCacheSize());
  }
}

}  // namespace
