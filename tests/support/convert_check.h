// The float-to-integer row conversions checked against the exact rule worked out here: the value
// times 2^-scaleFactor in long double (exact for these values), rounded towards zero (mode 0), to
// nearest with ties to even (1) or with ties away from zero (any other mode) by comparing its
// fraction with a half, then saturated; NaN 0. Where the conversion builds its multiplier in single
// precision (all but k1's ties-away path, which builds it in extended precision), below scale
// factor -127 it is infinite: every value but zero then saturates, however small (found by
// fuzz_convert: a denormal at scale -151, 22524 exactly, gave 32767). Shared by the conversions'
// tests and their fuzz target.
#ifndef LUM_TESTS_SUPPORT_CONVERT_CHECK_H
#define LUM_TESTS_SUPPORT_CONVERT_CHECK_H

#include <algorithm>
#include <cmath>
#include <iterator>
#include <vector>

#include "support/builds.h"
#include "support/harness.h"

#define LUM_CONVERT_8U(k, ...)                                           \
  namespace lum::k {                                                     \
  LumStatus lumsConvert_32f8u_Sfs(const Lum32f*, Lum8u*, int, int, int); \
  }
#define LUM_CONVERT_16S(k, ...)                                            \
  namespace lum::k {                                                       \
  LumStatus lumsConvert_32f16s_Sfs(const Lum32f*, Lum16s*, int, int, int); \
  }
LUM_FOR_EACH_BUILD_FROM_K1(LUM_CONVERT_8U)
LUM_FOR_EACH_BUILD_FROM_K2(LUM_CONVERT_16S)
#undef LUM_CONVERT_8U
#undef LUM_CONVERT_16S

namespace lumtest {

template <class T>
using Convert = LumStatus (*)(const Lum32f*, T*, int, int, int);
// Each build's conversions; none where a build has none (k0 has neither, k1 no 16s one).
inline const Convert<Lum8u> to8u[] = {
    nullptr, LUM_FOR_EACH_BUILD_FROM_K1(LUM_BUILD_ENTRY, lumsConvert_32f8u_Sfs)};
inline const Convert<Lum16s> to16s[] = {
    nullptr, nullptr, LUM_FOR_EACH_BUILD_FROM_K2(LUM_BUILD_ENTRY, lumsConvert_32f16s_Sfs)};
static_assert(std::size(to8u) == kNumBuilds && std::size(to16s) == kNumBuilds,
              "an entry per build");

inline long convertReference(float x, int mode, int sf, long lo, long hi, bool singleMultiplier) {
  if (std::isnan(x)) return 0;
  if (singleMultiplier && sf < -127 && x != 0) return x > 0 ? hi : lo;
  // Beyond 2^40000 either way every float is infinite or zero, in long double too.
  const long double v = std::ldexp(static_cast<long double>(x), -std::clamp(sf, -40000, 40000)),
                    f = std::floor(v), d = v - f;
  long double r = std::isinf(v) ? v
                  : mode == 0   ? std::trunc(v)
                  : d < 0.5L    ? f
                  : d > 0.5L    ? f + 1
                  : mode == 1   ? f + (std::fmod(f, 2.0L) != 0)
                  : v > 0       ? f + 1
                                : f;
  return long(std::fmax(lo, std::fmin(hi, r)));
}

// One row in `build`: src (at `offset` bytes past a page start, read only) to a destination row
// against a guard page, under env e with the exception flags of the turn set beforehand
// (support/harness.h); every value and byte checked, and the caller's control state and flags.
template <class T>
void checkConvertRow(int build, Convert<T> fn, const std::vector<float>& src, int mode, int sf,
                     int offset, int e) {
  const int n = int(src.size()), P = sizeof(T);
  const long lo = P == 1 ? 0 : -32768, hi = P == 1 ? 255 : 32767;
  Image in(n * 4 + offset, 1, {n * 4 + offset, 0, e != 1}),
      out(n * P, 1, {n * P, offset % 3, e == 1});
  std::memcpy(in.row(0) + offset, src.data(), 4 * n);
  in.protect(PROT_READ);
  std::vector<uint8_t> want = out.bytes();
  FpAroundCall fp(kEnvs[e]);
  const LumStatus st = fn(reinterpret_cast<const float*>(in.row(0) + offset),
                          reinterpret_cast<T*>(out.row(0)), n, mode, sf);
  fp.called();
  fp.restore();
  EXPECT_EQ(st, lumStsNoErr);
  EXPECT_EQ(fp.fault(), "") << "mode " << mode;
  EXPECT_TRUE(fp.x87RegistersFree()) << "MMX state not cleared, mode " << mode;
  // Under denormals-are-zero a denormal reads as zero, but on the x87, where k1 converts ties away.
  const bool daz = (kEnvs[e].mxcsr & 0x40) && (build > 1 || mode == 0 || mode == 1);
  for (int i = 0; i < n; ++i) {
    const float x =
        daz && std::fpclassify(src[i]) == FP_SUBNORMAL ? std::copysign(0.0f, src[i]) : src[i];
    const T w = T(convertReference(x, mode, sf, lo, hi, build > 1 || mode == 0 || mode == 1));
    std::memcpy(&want[out.row(0) - out.begin() + i * P], &w, P);
  }
  const std::vector<uint8_t> got = out.bytes();
  const size_t o = std::mismatch(got.begin(), got.end(), want.begin()).first - got.begin();
  if (o < got.size()) {
    const ptrdiff_t i = (ptrdiff_t(o) - (out.row(0) - out.begin())) / P;
    ADD_FAILURE() << "k" << build << " " << P * 8 << "-bit, mode " << mode << " scale " << sf
                  << " env " << e << ": value "
                  << (i >= 0 && i < n ? show(src[i]) : "none (outside the row)") << " byte " << o
                  << " got " << +got[o] << " want " << +want[o];
  }
}

}  // namespace lumtest

#endif
