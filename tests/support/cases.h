// The element-wise functions as harness cases, each with its reference and its argument checks in
// their documented order; shared by their tests and their fuzz targets.
#ifndef LUM_TESTS_SUPPORT_CASES_H
#define LUM_TESTS_SUPPORT_CASES_H

#include <xmmintrin.h>

#include <algorithm>
#include <cmath>
#include <type_traits>

#include "core/lum_internal.h"
#include "image/thresholds.h"
#include "support/harness.h"
#include "support/scaled_reference.h"

namespace lumtest {

// ---- Multiplication and fill: exact integer rule; for floats the product in double (exact)
// rounded once to float.
template <class T>
Case<T> mulCase(int build, int sf) {
  if constexpr (std::is_same_v<T, Lum32f>) {
    Case<T> c{"lumiMul_32f_C1R",
              reinterpret_cast<const void*>(lumiMul_32f_C1R_arraddr[build]),
              2,
              {},
              {},
              [build](const float* a, const float* b, Ctx& ctx) {
                return floatReference(a, b, build, ctx, sseMul,
                                      [](double x, double y) { return x * y; });
              },
              nullAndSizeChecks(2)};
    c.perThread = build >= 1 ? lum::kMul32fPixelsPerThread : 0;
    return c;
  } else {
    constexpr bool k8u = sizeof(T) == 1;
    constexpr int lo = k8u ? 0 : -32768, hi = k8u ? 255 : 32767;
    const auto ref = [sf](int a, int b) { return scaledReference(a, b, sf, lo, hi); };
    Case<T> c{(k8u ? "lumiMul_8u_C1RSfs, scale factor " : "lumiMul_16s_C1RSfs, scale factor ") +
                  std::to_string(sf),
              k8u ? reinterpret_cast<const void*>(lumiMul_8u_C1RSfs_arraddr[build])
                  : reinterpret_cast<const void*>(lumiMul_16s_C1RSfs_arraddr[build]),
              2,
              {},
              {uint32_t(sf)},
              [ref](const T* a, const T* b, Ctx&) { return T(ref(*a, *b)); },
              nullAndSizeChecks(2)};
    c.readsSources = ref(lo, lo) || ref(hi, hi);  // else every product rounds to 0
    c.perThread = build >= 1 && c.readsSources
                      ? (k8u ? lum::kMul8uPixelsPerThread : lum::kMul16sPixelsPerThread)
                      : 0;
    return c;
  }
}

template <class T>
Case<T> fillCase(int build, int value) {
#define LUM_SET(k, ...) \
  (sizeof(T) == 1 ? (const void*)k##_lumiSet_8u_C1R : (const void*)k##_lumiSet_16s_C1R),
  const void* const set[] = { LUM_FOR_EACH_BUILD(LUM_SET) };
#undef LUM_SET
  return {(sizeof(T) == 1 ? "lumiSet_8u_C1R " : "lumiSet_16s_C1R ") + std::to_string(T(value)),
          set[build],
          0,
          {uint32_t(value)},
          {},
          [value](const T*, const T*, Ctx&) { return T(value); },
          nullAndSizeChecks(0)};
}

// ---- Division: for 8u and 16s the exact rational rule in every build, for floats one rounding of
// the exact quotient (the generic build) or the estimate formula computed here with the processor's
// own reciprocal estimate (the others); the zero-divisor tables exactly in every build.
// Checks of the image functions after the null pointers and sizes: each step below 1.
inline std::vector<Check> divChecks() {
  std::vector<Check> c = nullAndSizeChecks(2);
  for (int i = 0; i < 3; ++i)
    for (int bad : {0, -1, INT_MIN})
      c.push_back({"step " + std::to_string(i) + " = " + std::to_string(bad),
                   [=](Args& a) { (i < 2 ? a.srcStep[i] : a.dstStep) = bad; }, lumStsStepErr,
                   [](const Args& a) {
                     return std::min({a.srcStep[0], a.srcStep[1], a.dstStep}) < 1;
                   }});
  return c;
}

template <class T>
Case<T> divIntCase(int build, int sf) {
  constexpr bool k8u = sizeof(T) == 1;
  constexpr int lo = k8u ? 0 : -32768, hi = k8u ? 255 : 32767;
  Case<T> c{(k8u ? "lumiDiv_8u_C1RSfs, scale factor " : "lumiDiv_16s_C1RSfs, scale factor ") +
                std::to_string(sf),
            k8u ? reinterpret_cast<const void*>(lumiDiv_8u_C1RSfs_arraddr[build])
                : reinterpret_cast<const void*>(lumiDiv_16s_C1RSfs_arraddr[build]),
            2,
            {},
            {uint32_t(sf)},
            [=](const T* divisor, const T* dividend, Ctx& ctx) {
              if (*divisor == 0)
                return ctx.status = lumStsDivByZero, T(*dividend > 0 ? hi : *dividend < 0 ? lo : 0);
              return T(scaledQuotientReference(*dividend, *divisor, sf, lo, hi));
            },
            divChecks()};
  c.anySteps = false;
  c.perThread = build >= 4 ? (k8u ? lum::kDiv8uPixelsPerThread : lum::kDiv16sPixelsPerThread) : 0,
  c.minRow = 1024;
  return c;
}

// The estimate formula of k1..k5 for one pair, with this processor's estimate, under the caller's
// MXCSR: y0 + (y0 + e*y0)*e, every operation with the operands in the order written (the first in
// the destination register), so that where two NaNs meet the same one wins as in the kernels: the
// dividend's NaN where it is one, else the divisor's.
__attribute__((target("sse"))) inline void estimated(const float* divisor, const float* dividend,
                                                     float* out) {
  const float one = 1.0f;
  float r, dr, e, y0, ey0, s, se;
  _mm_store_ss(&r, _mm_rcp_ps(_mm_load1_ps(divisor)));
  dr = sseMul(divisor, &r), e = sseSub(&one, &dr), y0 = sseMul(dividend, &r);
  ey0 = sseMul(&e, &y0), s = sseAdd(&y0, &ey0), se = sseMul(&s, &e);
  *out = sseAdd(&y0, &se);
}
__attribute__((target("sse"))) inline int sseCompare(const float* x, int predicate) {
  const __m128 v = _mm_load_ss(x), z = _mm_setzero_ps();
  return _mm_movemask_ps(predicate < 0   ? _mm_cmplt_ss(v, z)
                         : predicate > 0 ? _mm_cmpgt_ss(v, z)
                                         : _mm_cmpeq_ss(v, z)) &
         1;
}
inline float fromBits(uint32_t b) {
  float f;
  return std::memcpy(&f, &b, 4), f;
}
inline uint32_t bitsOf(float f) {
  uint32_t b;
  return std::memcpy(&b, &f, 4), b;
}

// A zero divisor: the dividend's infinity, or the build's NaN.
inline float byZero(bool positive, bool negative, uint32_t nan) {
  return fromBits(positive ? 0x7F800000u : negative ? 0xFF800000u : nan);
}

// k0: the x87 compares (a denormal is no zero) and divides, rounding once. k1..k5: the SSE compare
// (under denormals-are-zero a denormal divisor is zero); the estimate formula, or the correctly
// rounded quotient where a zero divisor shares the group, which depends on where the pixel lies.
inline float div32f(const float* divisor, const float* dividend, int build, Ctx& ctx) {
  if (build == 0 ? *divisor == 0 : sseCompare(divisor, 0)) {
    ctx.status = lumStsDivByZero;
    if (build == 0) return byZero(*dividend > 0, *dividend < 0, 0xFFC00000u);
    return byZero(sseCompare(dividend, 1), sseCompare(dividend, -1), 0x7FC00000u);
  }
  if (build == 0)
    return floatReference(dividend, divisor, 0, ctx, sseDiv,
                          [](double x, double y) { return x / y; });
  // Where a zero divisor shares the group: the exact quotient, or for a NaN divisor the NaN of the
  // table.
  float y;
  estimated(divisor, dividend, &y);
  ctx.hasAlso = true;
  ctx.also = std::isnan(*divisor) ? 0x7FC00000u : bitsOf(sseDiv(dividend, divisor));
  return y;
}

inline Case<Lum32f> div32fCase(int build) {
  Case<Lum32f> c{
      "lumiDiv_32f_C1R",
      reinterpret_cast<const void*>(lumiDiv_32f_C1R_arraddr[build]),
      2,
      {},
      {},
      [build](const float* a, const float* b, Ctx& ctx) { return div32f(a, b, build, ctx); },
      divChecks()};
  c.anySteps = false;
  c.perThread = build >= 4 ? lum::kDiv32fPixelsPerThread : 0, c.minRow = 4096;
  return c;
}

// ---- Absolute difference: exact for bytes; for floats one rounding of the exact difference, the
// sign then cleared. k1..k5 round the difference on the SSE unit and clear its sign; k0 takes the
// absolute value on the x87 before the value is stored, so under a directed rounding it is |a - b|
// that is rounded (the same in the default environment, where rounding is symmetric).
inline float absDiff32f(const float* a, const float* b, int build, Ctx& ctx) {
  float d =
      floatReference(a, b, build, ctx, sseSub, [](double x, double y) { return std::fabs(x - y); });
  uint32_t bits;
  std::memcpy(&bits, &d, 4), bits &= 0x7FFFFFFF;
  return std::memcpy(&d, &bits, 4), d;
}

template <class T>
Case<T> absDiffCase(int build) {
  const int px = sizeof(T);
  Case<T> c{sizeof(T) == 1 ? "lumiAbsDiff_8u_C1R" : "lumiAbsDiff_32f_C1R",
            sizeof(T) == 1 ? (const void*)lumiAbsDiff_8u_C1R_arraddr[build]
                           : (const void*)lumiAbsDiff_32f_C1R_arraddr[build],
            2,
            {},
            {},
            [=](const T* a, const T* b, Ctx& ctx) {
              if constexpr (sizeof(T) == 1)
                return T(*a > *b ? *a - *b : *b - *a);
              else
                return absDiff32f(a, b, build, ctx);
            },
            nullAndSizeChecks(2)};
  // Then steps below one row, each operand in turn; for floats steps that are not whole pixels.
  for (int i = 0; i < 3; ++i) {
    const auto step = [i](Args& a) -> int& { return i < 2 ? a.srcStep[i] : a.dstStep; };
    // Short by 1, and by 2^30 (the width may have been broken to INT_MIN already).
    for (int under : {1, 1 << 30})
      c.checks.push_back({"step " + std::to_string(i) + " short",
                          [=](Args& a) {
                            step(a) = int(std::max(INT_MIN * 1LL, 1LL * a.size.width * px - under));
                          },
                          lumStsStepErr,
                          [](const Args& a) {
                            return std::min({a.srcStep[0], a.srcStep[1], a.dstStep}) <
                                   1LL * a.size.width * sizeof(T);
                          }});
    if (px == 4)
      c.checks.push_back({"step " + std::to_string(i) + " odd",
                          [=](Args& a) { step(a) += 2 + 4 * i; }, lumStsStepNotPixelMultipleErr,
                          [](const Args& a) {
                            return ((a.srcStep[0] | a.srcStep[1] | a.dstStep) & (sizeof(T) - 1)) !=
                                   0;
                          }});
  }
  std::stable_partition(c.checks.begin(), c.checks.end(),
                        [](const Check& k) { return k.status != lumStsStepNotPixelMultipleErr; });
  c.anySteps = false, c.stepUnit = px;
  return c;
}

}  // namespace lumtest

#endif
