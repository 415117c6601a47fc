// The constant fill of every build (k0_lumiSet_8u_C1R .. k5_lumiSet_16s_C1R):
// exactly the region written, byte for byte, at every alignment and size.
#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <string>
#include <vector>

#include "core/lum_internal.h"
#include "support/builds.h"
#include "support/fp_env.h"
#include "support/guarded.h"

namespace {

using lumtest::Against;

const decltype(&k0_lumiSet_8u_C1R) kSet8u[] = {k0_lumiSet_8u_C1R, k1_lumiSet_8u_C1R, k2_lumiSet_8u_C1R,
                                                k3_lumiSet_8u_C1R, k4_lumiSet_8u_C1R, k5_lumiSet_8u_C1R};
const decltype(&k0_lumiSet_16s_C1R) kSet16s[] = {k0_lumiSet_16s_C1R, k1_lumiSet_16s_C1R, k2_lumiSet_16s_C1R,
                                                 k3_lumiSet_16s_C1R, k4_lumiSet_16s_C1R, k5_lumiSet_16s_C1R};

class Fill : public PerBuild {
 protected:
  // Fills a guarded region and checks it: every region byte holds the value,
  // every other byte of the block its pattern, and the MMX and floating-point
  // state are as they were.
  template <class T>
  void fillAndCheck(T value, int width, int height, int step, int gap, Against against) {
    lumtest::GuardedImage d({width, height, static_cast<int>(sizeof(T)), step}, against, gap);
    const lumtest::FpControl before = lumtest::readFpControl();
    LumStatus st;
    if constexpr (sizeof(T) == 1)
      st = kSet8u[build()](value, d.origin<T>(), step, LumSize{width, height});
    else
      st = kSet16s[build()](value, d.origin<T>(), step, LumSize{width, height});
    const std::string where = std::to_string(width) + "x" + std::to_string(height) + " step " +
                              std::to_string(step) + " gap " + std::to_string(gap);
    ASSERT_EQ(st, lumStsNoErr) << where;
    ASSERT_EQ(lumtest::readFpControl(), before) << where;
    ASSERT_TRUE(lumtest::x87RegistersFree()) << where << ": MMX state not cleared";
    ASSERT_EQ(d.paddingDamage(), "") << where;
    const std::vector<uint8_t> got = d.store();
    for (size_t i = 0; i < got.size(); ++i)  // the value's bytes, little-endian
      ASSERT_EQ(got[i], uint8_t(uint16_t(value) >> (8 * (i % sizeof(T))))) << where << ", byte " << i;
  }
};

TEST_P(Fill, ArgumentChecksAndNothingWritten) {
  Lum16s d[16];
  std::memset(d, 0x11, sizeof d);
  const auto set8 = kSet8u[build()];
  const auto set16 = kSet16s[build()];
  for (LumSize size : {LumSize{4, 4}, LumSize{0, -1}, LumSize{-4, 0}}) {  // the pointer first
    EXPECT_EQ(set8(1, nullptr, 4, size), lumStsNullPtrErr);
    EXPECT_EQ(set16(1, nullptr, 8, size), lumStsNullPtrErr);
  }
  for (LumSize bad : {LumSize{0, 1}, LumSize{1, 0}, LumSize{-5, 2}, LumSize{2, -5}, LumSize{INT_MIN, INT_MAX}}) {
    EXPECT_EQ(set8(1, reinterpret_cast<Lum8u*>(d), 4, bad), lumStsSizeErr);
    EXPECT_EQ(set16(1, d, 8, bad), lumStsSizeErr);
  }
  for (Lum16s v : d) EXPECT_EQ(v, 0x1111);
}

TEST_P(Fill, ShortAndLongRowsAtEveryAlignment) {
  // Rows of 1..80 bytes (the short-row stores and the byte tail), then long
  // ones; 16s rows at odd addresses must still have the value's bytes in order.
  std::vector<int> widths = {127, 128, 200, 1000};
  for (int width = 1; width <= 80; ++width) widths.push_back(width);
  for (int width : widths)
    for (int gap = 0; gap < 16; ++gap) {
      const Against side = gap % 2 ? Against::Start : Against::End;
      fillAndCheck<Lum8u>(0, width, 1, width, gap, Against::Start);
      fillAndCheck<Lum8u>(static_cast<Lum8u>(0xA5 + width), width, 3, width + 3 + gap, gap, side);
      if (width <= 40) fillAndCheck<Lum16s>(0, width, 1, 2 * width, gap, Against::Start);
      if (width <= 40 || width > 63)
        fillAndCheck<Lum16s>(static_cast<Lum16s>(0x1234 + 0x101 * width), width, 3, 2 * width + gap, gap, side);
      if (HasFatalFailure()) return;
    }
}

TEST_P(Fill, AroundTheStreamingSize) {
  // 2 MiB exactly (ordinary stores) and one byte or pixel more (streaming
  // stores in k2..k5): the bytes must be the same either way.
  fillAndCheck<Lum8u>(0x5E, 1024, 2048, 1024, 0, Against::End);
  fillAndCheck<Lum8u>(0x5E, 2097153, 1, 2097153, 3, Against::End);
  fillAndCheck<Lum8u>(0x5E, 1025, 2047, 1025, 7, Against::Start);  // 2098175: above
  fillAndCheck<Lum8u>(0x5E, 1024, 2048, 1030, 5, Against::End);    // rows apart, exactly 2 MiB
  fillAndCheck<Lum8u>(0x5E, 4097, 512, 4100, 9, Against::Start);   // rows apart, above
  fillAndCheck<Lum16s>(-300, 1024, 1024, 2048, 1, Against::End);   // exactly 2 MiB, odd start
  fillAndCheck<Lum16s>(-300, 1025, 1023, 2051, 1, Against::Start); // above, odd start
}

TEST_P(Fill, ContiguousPaddedZeroAndNegativeSteps) {
  // step == width: one long row in the vector builds; a padded step the
  // same rows one at a time.
  for (int width : {1, 7, 16, 63, 100})
    for (int height : {1, 2, 9, 70}) {
      fillAndCheck<Lum8u>(0x3C, width, height, width, height % 16, Against::End);
      fillAndCheck<Lum8u>(0x3C, width, height, width + 1, height % 16, Against::End);
      if (HasFatalFailure()) return;
    }
  for (int width : {5, 70}) {
    fillAndCheck<Lum8u>(9, width, 4, 0, 1, Against::End);
    fillAndCheck<Lum8u>(9, width, 4, -width - 2, 1, Against::End);
    fillAndCheck<Lum16s>(0x0102, width, 4, 0, 3, Against::Start);
    fillAndCheck<Lum16s>(0x0102, width, 4, -2 * width - 3, 3, Against::Start);
    // A negative step of exactly the width is not a contiguous region.
    fillAndCheck<Lum8u>(7, width, 3, -width, 2, Against::End);
  }
}

LUM_INSTANTIATE_PER_BUILD(Fill);

}  // namespace
