// The float-to-integer row conversions (8u in k1..k5, 16s in k2..k5) against the exact rule of
// support/convert_check.h: rows of floats swept densely around every integer and half of both
// ranges and their edges, at every scale factor from -3 to 3, rows between guard pages, under each
// caller environment, which must come back unchanged.
#include <xmmintrin.h>

#include <cfloat>

#include "support/builds.h"
#include "support/convert_check.h"

namespace {

using namespace lumtest;

float fromBits(uint32_t b) {
  float f;
  std::memcpy(&f, &b, 4);
  return f;
}

// Four floats either side of every integer and half up to 300 in magnitude and around both ends of
// the 16s range, scaled by 2^sf so that the converted values sweep them; then values of every
// class.
std::vector<float> sweep(int sf) {
  std::vector<float> v;
  for (int h = -65540; h <= 65540; ++h)
    if (std::abs(h) <= 600 || std::abs(std::abs(h) - 65534) <= 6) {
      float x = std::ldexp(h / 2.0f, sf), up = x, down = x;
      v.push_back(x);
      for (int i = 0; i < 4; ++i)
        v.push_back(up = std::nextafter(up, INFINITY)),
            v.push_back(down = std::nextafter(down, -INFINITY));
    }
  for (uint32_t b :
       {0x7FC00000u, 0xFFC00001u, 0x7F800001u, 0xFF812345u, 0x7F800000u, 0xFF800000u, 0x80000000u,
        0u,          1u,          0x80000001u, 0x00800000u, 0x7F7FFFFFu, 0xFF7FFFFFu, 0x4F000000u,
        0xCF000000u, 0xCF000001u, 0x3EFFFFFFu, 0xBEFFFFFFu, 0x501502F9u, 0xD01502F9u})
    v.push_back(fromBits(b));
  return v;
}

class Convert32f : public PerBuild {
 protected:
  template <class T>
  void all(Convert<T> fn) {
    if (fn == nullptr) return;
    for (int sf = -3; sf <= 3; ++sf)
      for (int mode : {0, 1, 2, -7, 1 << 30})
        checkConvertRow(build(), fn, sweep(sf), mode, sf, 4 * ((sf + 3) % 4) + (sf == 2) * 2,
                        ((sf + mode) % kNumEnvs + kNumEnvs) % kNumEnvs);
    const std::vector<float> s = sweep(1);
    for (int len = 1; len <= 40; ++len)
      checkConvertRow(build(), fn,
                      std::vector<float>(s.begin() + 600 + len * 37, s.begin() + 600 + len * 38),
                      len % 3, len % 5 - 2, len % 16, len % kNumEnvs);
  }
};

TEST_P(Convert32f, EveryModeAndScaleAgainstTheExactRule) {
  if (build() == 0) GTEST_SKIP() << "the generic build has no conversions";
  all(to8u[build()]), all(to16s[build()]);
}

// Whole numbers convert exactly, raising nothing of their own, and a NaN among them raises the
// invalid flag alone: every flag state the harness takes in turn is still set after the row, in
// each mode and environment.
TEST_P(Convert32f, ExceptionFlagsSetBeforeTheCallStaySet) {
  if (build() == 0) GTEST_SKIP() << "the generic build has no conversions";
  std::vector<float> whole(37);
  for (int i = 0; i < 37; ++i) whole[i] = float(i * 71 % 400 - 60);
  std::vector<float> withNaN = whole;
  withNaN[5] = NAN;
  for (unsigned turn = 0; turn < kFpFlagTurns; ++turn)
    for (int mode : {0, 1, 2})
      for (int e = 0; e < kNumEnvs; ++e)
        for (const std::vector<float>* row : {&whole, &withNaN}) {
          if (to8u[build()])
            fpFlagsTurn() = turn, checkConvertRow(build(), to8u[build()], *row, mode, 0, 4, e);
          if (to16s[build()])
            fpFlagsTurn() = turn, checkConvertRow(build(), to16s[build()], *row, mode, 0, 4, e);
        }
}

// Scale factors whose single-precision multiplier is a denormal (127..149, which denormals-are-zero
// in the caller's MXCSR must not turn into zero: 3e38 at 127 is 1.76) or zero (beyond), or whose
// extended one is zero (k1's ties-away path): 2^-scaleFactor is never zero, so an infinity still
// gives its sign's end of the type (found by fuzz_convert: -infinity gave 255 at scale INT_MAX).
TEST_P(Convert32f, InfinitiesSaturateWhateverTheScale) {
  if (build() == 0) GTEST_SKIP() << "the generic build has no conversions";
  const std::vector<float> row = {INFINITY, -INFINITY, 1,        -1,        NAN, 3e38f,
                                  -3e38f,   1e-40f,    INFINITY, -INFINITY, 0,   -INFINITY};
  for (int sf : {127, 149, 150, 200, 16446, 20000, INT_MAX})
    for (int mode : {0, 1, 2})
      for (int e = 0; e < kNumEnvs; ++e) {
        if (to8u[build()]) checkConvertRow(build(), to8u[build()], row, mode, sf, 4 * e, e);
        if (to16s[build()]) checkConvertRow(build(), to16s[build()], row, mode, sf, 4 * e + 2, e);
      }
}

// The rules as stated, one value each: (value, mode, scale factor, 8u, 16s).
TEST_P(Convert32f, TheRulesOneByOne) {
  if (build() == 0) GTEST_SKIP() << "the generic build has no conversions";
  for (auto [x, mode, sf, w8, w16] : {std::tuple{0.5f, 1, 0, 0, 0},
                                      {1.5f, 1, 0, 2, 2},
                                      {2.5f, 1, 0, 2, 2},
                                      {254.5f, 1, 0, 254, 254},
                                      {300.0f, 1, 0, 255, 300},
                                      {INFINITY, 1, 0, 255, 32767},
                                      {-3.7f, 1, 0, 0, -4},
                                      {-INFINITY, 1, 0, 0, -32768},
                                      {NAN, 1, 0, 0, 0},
                                      {2.9f, 0, 0, 2, 2},
                                      {-0.9f, 0, 0, 0, 0},
                                      {-2.5f, 1, 0, 0, -2},
                                      {40000.0f, 1, 0, 255, 32767},
                                      {-1e10f, 1, 0, 0, -32768},
                                      {2.5f, 2, 0, 3, 3},
                                      {0.5f, 2, 0, 1, 1},
                                      {-2.5f, 5, 0, 0, -3},
                                      {0.49999997f, 2, 0, 0, 0},
                                      {5.0f, 1, 1, 2, 2},
                                      {5.0f, 2, 1, 3, 3},
                                      {3.3f, 1, -2, 13, 13},
                                      {NAN, 2, 0, 0, 0},
                                      {-32768.5f, 2, 0, 0, -32768},
                                      {1e-30f, 2, INT_MIN, 255, 32767},
                                      {-1e-30f, 1, INT_MIN, 0, -32768},
                                      {3e38f, 2, INT_MAX, 0, 0},
                                      {-0.0f, 2, INT_MIN, 0, 0},
                                      {0.0f, 0, INT_MIN, 0, 0},
                                      {-0.0f, 1, -128, 0, 0},
                                      {0.0f, 1, -200, 0, 0},
                                      {1e-40f, 1, -140, 255, 32767},
                                      {-1.17549435e-38f, 0, -128, 0, -32768}}) {
    Lum8u d8[2] = {7, 7};
    Lum16s d16[2] = {7, 7};
    EXPECT_EQ(to8u[build()](&x, d8, 1, mode, sf), lumStsNoErr);
    EXPECT_EQ(+d8[0], w8) << x << " mode " << mode << " scale " << sf;
    if (to16s[build()]) {
      EXPECT_EQ(to16s[build()](&x, d16, 1, mode, sf), lumStsNoErr);
      EXPECT_EQ(d16[0], w16) << x << " mode " << mode;
    }
    EXPECT_TRUE(d8[1] == 7 && d16[1] == 7);
  }
  // Checks: a null pointer first, then a length below 1; nothing written.
  float x = 1;
  Lum8u d8 = 7;
  Lum16s d16 = 7;
  for (auto [src, dst, len, want] : {std::tuple{(float*)nullptr, true, 0, lumStsNullPtrErr},
                                     {&x, false, 1, lumStsNullPtrErr},
                                     {&x, true, 0, lumStsSizeErr},
                                     {&x, true, INT_MIN, lumStsSizeErr}}) {
    EXPECT_EQ(to8u[build()](src, dst ? &d8 : nullptr, len, 1, 0), want);
    if (to16s[build()]) {
      EXPECT_EQ(to16s[build()](src, dst ? &d16 : nullptr, len, 2, 0), want);
    }
  }
  EXPECT_TRUE(d8 == 7 && d16 == 7);
}

LUM_INSTANTIATE_PER_BUILD(Convert32f);

}  // namespace
