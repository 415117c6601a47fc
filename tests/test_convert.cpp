// The float-to-integer row conversions (8u in k1..k5, 16s in k2..k5) against the exact rule worked out
// here: the value times 2^-scaleFactor in long double (exact for these values), rounded towards zero
// (mode 0), to nearest with ties to even (1) or with ties away from zero (any other mode) by comparing
// its fraction with a half, then saturated; NaN 0. Rows of floats swept densely around every integer and
// half of both ranges and their edges, at every scale factor from -3 to 3, rows between guard pages,
// under each caller environment, which must come back unchanged.
#include <xmmintrin.h>

#include <cfloat>

#include "support/builds.h"
#include "support/harness.h"

#define LUM_CONVERT_8U(k) namespace lum::k { LumStatus lumsConvert_32f8u_Sfs(const Lum32f*, Lum8u*, int, int, int); }
#define LUM_CONVERT_16S(k) namespace lum::k { LumStatus lumsConvert_32f16s_Sfs(const Lum32f*, Lum16s*, int, int, int); }
LUM_CONVERT_8U(k1) LUM_CONVERT_8U(k2) LUM_CONVERT_8U(k3) LUM_CONVERT_8U(k4) LUM_CONVERT_8U(k5)
LUM_CONVERT_16S(k2) LUM_CONVERT_16S(k3) LUM_CONVERT_16S(k4) LUM_CONVERT_16S(k5)

namespace {

using namespace lumtest;

template <class T>
using Convert = LumStatus (*)(const Lum32f*, T*, int, int, int);
const Convert<Lum8u> to8u[] = {nullptr, lum::k1::lumsConvert_32f8u_Sfs, lum::k2::lumsConvert_32f8u_Sfs,
                               lum::k3::lumsConvert_32f8u_Sfs, lum::k4::lumsConvert_32f8u_Sfs, lum::k5::lumsConvert_32f8u_Sfs};
const Convert<Lum16s> to16s[] = {nullptr, nullptr, lum::k2::lumsConvert_32f16s_Sfs, lum::k3::lumsConvert_32f16s_Sfs,
                                 lum::k4::lumsConvert_32f16s_Sfs, lum::k5::lumsConvert_32f16s_Sfs};

long reference(float x, int mode, int sf, long lo, long hi) {
  if (std::isnan(x)) return 0;
  const long double v = std::ldexp(static_cast<long double>(x), -sf), f = std::floor(v), d = v - f;
  long double r = std::isinf(v) ? v : mode == 0 ? std::trunc(v) : d < 0.5L ? f : d > 0.5L ? f + 1 : mode == 1 ? f + (std::fmod(f, 2.0L) != 0) : v > 0 ? f + 1 : f;
  return long(std::fmax(lo, std::fmin(hi, r)));
}

float fromBits(uint32_t b) { float f; std::memcpy(&f, &b, 4); return f; }

// Four floats either side of every integer and half up to 300 in magnitude and around both ends of the
// 16s range, scaled by 2^sf so that the converted values sweep them; then values of every class.
std::vector<float> sweep(int sf) {
  std::vector<float> v;
  for (int h = -65540; h <= 65540; ++h)
    if (std::abs(h) <= 600 || std::abs(std::abs(h) - 65534) <= 6) {
      float x = std::ldexp(h / 2.0f, sf), up = x, down = x;
      v.push_back(x);
      for (int i = 0; i < 4; ++i) v.push_back(up = std::nextafter(up, INFINITY)), v.push_back(down = std::nextafter(down, -INFINITY));
    }
  for (uint32_t b : {0x7FC00000u, 0xFFC00001u, 0x7F800001u, 0xFF812345u, 0x7F800000u, 0xFF800000u, 0x80000000u, 0u, 1u,
                     0x80000001u, 0x00800000u, 0x7F7FFFFFu, 0xFF7FFFFFu, 0x4F000000u, 0xCF000000u, 0xCF000001u, 0x3EFFFFFFu,
                     0xBEFFFFFFu, 0x501502F9u, 0xD01502F9u})
    v.push_back(fromBits(b));
  return v;
}

class Convert32f : public PerBuild {
 protected:
  // One row in build(): src (at `offset` bytes past a page start, read only) to a destination row against
  // a guard page, under env e with the invalid flag set beforehand; every value and byte checked.
  template <class T>
  void row(Convert<T> fn, const std::vector<float>& src, int mode, int sf, int offset, int e) {
    const int n = int(src.size()), P = sizeof(T);
    const long lo = P == 1 ? 0 : -32768, hi = P == 1 ? 255 : 32767;
    Image in(n * 4 + offset, 1, {n * 4 + offset, 0, e != 1}), out(n * P, 1, {n * P, offset % 3, e == 1});
    std::memcpy(in.row(0) + offset, src.data(), 4 * n);
    in.protect(PROT_READ);
    std::vector<uint8_t> want = out.bytes();
    const FpEnv caller = readFp(), set = writeFp(kEnvs[e]);
    uint32_t flagged = set.mxcsr | 1, after;
    __asm__ __volatile__("ldmxcsr %0" ::"m"(flagged));
    const LumStatus st = fn(reinterpret_cast<const float*>(in.row(0) + offset), reinterpret_cast<T*>(out.row(0)), n, mode, sf);
    __asm__ __volatile__("stmxcsr %0" : "=m"(after));
    bool mmxFree;
    const FpEnv back = readFp(&mmxFree);
    writeFp(caller);
    ASSERT_EQ(st, lumStsNoErr);
    EXPECT_TRUE(back.mxcsr == set.mxcsr && back.x87 == set.x87 && (after & 1) && mmxFree) << "control state changed, mode " << mode;
    for (int i = 0; i < n; ++i) {
      const T w = T(reference(src[i], mode, sf, lo, hi));
      std::memcpy(&want[out.row(0) - out.begin() + i * P], &w, P);
    }
    const std::vector<uint8_t> got = out.bytes();
    const size_t o = std::mismatch(got.begin(), got.end(), want.begin()).first - got.begin();
    if (o < got.size()) {
      const ptrdiff_t i = (ptrdiff_t(o) - (out.row(0) - out.begin())) / P;
      ADD_FAILURE() << "k" << build() << " " << P * 8 << "-bit, mode " << mode << " scale " << sf << " env " << e << ": value "
                    << (i >= 0 && i < n ? show(src[i]) : "none (outside the row)") << " byte " << o << " got " << +got[o] << " want " << +want[o];
    }
  }
  template <class T>
  void all(Convert<T> fn) {
    if (fn == nullptr) return;
    for (int sf = -3; sf <= 3; ++sf)
      for (int mode : {0, 1, 2, -7, 1 << 30}) row(fn, sweep(sf), mode, sf, 4 * ((sf + 3) % 4) + (sf == 2) * 2, ((sf + mode) % 3 + 3) % 3);
    const std::vector<float> s = sweep(1);
    for (int len = 1; len <= 40; ++len) row(fn, std::vector<float>(s.begin() + 600 + len * 37, s.begin() + 600 + len * 38), len % 3, len % 5 - 2, len % 16, len % 3);
  }
};

TEST_P(Convert32f, EveryModeAndScaleAgainstTheExactRule) {
  if (build() == 0) GTEST_SKIP() << "the generic build has no conversions";
  all(to8u[build()]), all(to16s[build()]);
}

// The rules as stated, one value each: (value, mode, scale factor, 8u, 16s).
TEST_P(Convert32f, TheRulesOneByOne) {
  if (build() == 0) GTEST_SKIP() << "the generic build has no conversions";
  for (auto [x, mode, sf, w8, w16] : {std::tuple{0.5f, 1, 0, 0, 0}, {1.5f, 1, 0, 2, 2}, {2.5f, 1, 0, 2, 2}, {254.5f, 1, 0, 254, 254},
       {300.0f, 1, 0, 255, 300}, {INFINITY, 1, 0, 255, 32767}, {-3.7f, 1, 0, 0, -4}, {-INFINITY, 1, 0, 0, -32768}, {NAN, 1, 0, 0, 0},
       {2.9f, 0, 0, 2, 2}, {-0.9f, 0, 0, 0, 0}, {-2.5f, 1, 0, 0, -2}, {40000.0f, 1, 0, 255, 32767}, {-1e10f, 1, 0, 0, -32768},
       {2.5f, 2, 0, 3, 3}, {0.5f, 2, 0, 1, 1}, {-2.5f, 5, 0, 0, -3}, {0.49999997f, 2, 0, 0, 0}, {5.0f, 1, 1, 2, 2}, {5.0f, 2, 1, 3, 3},
       {3.3f, 1, -2, 13, 13}, {NAN, 2, 0, 0, 0}, {-32768.5f, 2, 0, 0, -32768}}) {
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
  for (auto [src, dst, len, want] : {std::tuple{(float*)nullptr, true, 0, lumStsNullPtrErr}, {&x, false, 1, lumStsNullPtrErr},
                                     {&x, true, 0, lumStsSizeErr}, {&x, true, INT_MIN, lumStsSizeErr}}) {
    EXPECT_EQ(to8u[build()](src, dst ? &d8 : nullptr, len, 1, 0), want);
    if (to16s[build()]) {
      EXPECT_EQ(to16s[build()](src, dst ? &d16 : nullptr, len, 2, 0), want);
    }
  }
  EXPECT_TRUE(d8 == 7 && d16 == 7);
}

LUM_INSTANTIATE_PER_BUILD(Convert32f);

}  // namespace
