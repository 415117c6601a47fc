// Absolute difference of every build through the harness, against the difference worked out here:
// exact for bytes; for floats one rounding of the exact difference, the sign then cleared. The float
// kernels of k2, k4 and k5 stream from the cache size on: both sides of that switch.
#include <algorithm>
#include <tuple>

#include "core/cpu_internal.h"
#include "support/builds.h"
#include "support/fake_cpu.h"
#include "support/cases.h"

namespace lum {
namespace k2 { bool ownAbsDiffStreams_32f(int width, int height); }
namespace k4 { bool ownAbsDiffStreams_32f(int width, int height); }
namespace k5 { bool ownAbsDiffStreams_32f(int width, int height); }
}  // namespace lum

namespace {

using namespace lumtest;

// The largest cache made `descriptor` of leaf 2 for the scope; the query answers afresh.
struct CacheScope {
  explicit CacheScope(Lum32u descriptor) : cpu([=] {
    CpuLeaves l = cpuLeaves();
    return l[2] = {1 | descriptor << 8, 0, 0, 0}, l;
  }()) { ownResetCacheState(); }
  ~CacheScope() { ownResetCacheState(); }
  FakeCpu cpu;
};

class AbsDiff : public PerBuild {};

TEST_P(AbsDiff, Harness8u) { checkAll<Lum8u>(build(), 1, [&](int, int) { return absDiffCase<Lum8u>(build()); }); }

// On the cache this processor reports (none under an emulator: every region streams in k2, k4 and
// k5), then on one of 16 MiB, which every region here fits.
TEST_P(AbsDiff, Harness32fOnThisCacheAndOnALargeOne) {
  checkAll<Lum32f>(build(), 1, [&](int, int) { return absDiffCase<Lum32f>(build()); });
  CacheScope large(0x4D);
  checkAll<Lum32f>(build(), 1, [&](int, int) { return absDiffCase<Lum32f>(build()); });
}

LUM_INSTANTIATE_PER_BUILD(AbsDiff);

// Three images of width x height floats stream from the largest cache's size on; a failed query
// counts as 0.
TEST(AbsDiffCacheSwitch, AtTheCacheSizeAndOnePixelBelow) {
  for (auto streams : {lum::k2::ownAbsDiffStreams_32f, lum::k4::ownAbsDiffStreams_32f, lum::k5::ownAbsDiffStreams_32f}) {
    {
      CacheScope cache(0x3A);  // 192 KiB: 16384 pixels
      for (const auto& [w, h, want] : {std::tuple{128, 128, true}, {16384, 1, true}, {1, 16384, true},
                                       {16383, 1, false}, {127, 129, false}, {2, 8192, true}, {8191, 2, false}})
        EXPECT_EQ(streams(w, h), want) << w << "x" << h;
    }
    int cache = 0;
    lumGetMaxCacheSizeB(&cache);
    const int pixels = (cache + 11) / 12;  // the first count that reaches it
    EXPECT_TRUE(streams(pixels > 0 ? pixels : 1, 1)) << "cache " << cache;
    EXPECT_TRUE(pixels < 2 || !streams(pixels - 1, 1)) << "cache " << cache;
  }
}

}  // namespace
