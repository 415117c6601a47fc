// Absolute difference of every build through the harness, against the difference worked out here:
// exact for bytes; for floats one rounding of the exact difference, the sign then cleared. The float
// kernels of k2, k4 and k5 stream from the cache size on: both sides of that switch.
#include <algorithm>
#include <tuple>

#include "core/cpu_internal.h"
#include "support/builds.h"
#include "support/fake_cpu.h"
#include "support/harness.h"

namespace lum {
namespace k2 { bool ownAbsDiffStreams_32f(int width, int height); }
namespace k4 { bool ownAbsDiffStreams_32f(int width, int height); }
namespace k5 { bool ownAbsDiffStreams_32f(int width, int height); }
}  // namespace lum

namespace {

using namespace lumtest;

// The difference as floatReference has it, then the sign cleared.
float absDiff32f(const float* a, const float* b, int build, Ctx& ctx) {
  float d = floatReference(a, b, build, ctx, sseSub, [](double x, double y) { return x - y; });
  uint32_t bits;
  std::memcpy(&bits, &d, 4), bits &= 0x7FFFFFFF;
  return std::memcpy(&d, &bits, 4), d;
}

template <class T>
Case<T> absDiffCase(int build) {
  const int px = sizeof(T);
  Case<T> c{sizeof(T) == 1 ? "lumiAbsDiff_8u_C1R" : "lumiAbsDiff_32f_C1R",
            sizeof(T) == 1 ? (const void*)lumiAbsDiff_8u_C1R_arraddr[build] : (const void*)lumiAbsDiff_32f_C1R_arraddr[build],
            2, {}, {}, [build](const T* a, const T* b, Ctx& ctx) {
              if constexpr (sizeof(T) == 1) return T(*a > *b ? *a - *b : *b - *a);
              else return absDiff32f(a, b, build, ctx);
            }, nullAndSizeChecks(2)};
  // Then steps below one row, each operand in turn; for floats steps that are not whole pixels.
  for (int i = 0; i < 3; ++i) {
    const auto step = [i](Args& a) -> int& { return i < 2 ? a.srcStep[i] : a.dstStep; };
    // Short by 1, and by 2^30 (the width may have been broken to INT_MIN already).
    for (int under : {1, 1 << 30})
      c.checks.push_back({"step " + std::to_string(i) + " short",
                          [=](Args& a) { step(a) = int(std::max(INT_MIN * 1LL, 1LL * a.size.width * px - under)); },
                          lumStsStepErr});
    if (px == 4) c.checks.push_back({"step " + std::to_string(i) + " odd", [=](Args& a) { step(a) += 2 + 4 * i; },
                                     lumStsStepNotPixelMultipleErr});
  }
  std::stable_partition(c.checks.begin(), c.checks.end(), [](const Check& k) { return k.status != lumStsStepNotPixelMultipleErr; });
  c.anySteps = false, c.stepUnit = px;
  return c;
}

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
