// Rows of floats to 8u (k1..k5) or 16s (k2..k5) pixels, each value first
// multiplied by 2^-scaleFactor, then rounded by the caller's choice of mode
// and saturated to the pixel type. The filters' fast paths write their
// integer rows through here with mode 1 and no scale.
//
// Modes 0 (towards zero) and 1 (to nearest, ties to even) convert under the
// SSE unit's own rounding control, set for the row and put back after it
// (OwnMxcsr: the caller keeps its flags).
// The vector minimum caps each value at the type's maximum (+infinity and
// NaN included: a NaN comes out of it as the maximum and raises the invalid
// flag); the conversion to 32-bit integers gives the most negative integer
// for anything below its range, and the saturating narrowing then gives the
// type's minimum. A NaN is mended afterwards: when the row raised the invalid
// flag, a second pass writes 0 wherever the source holds a NaN.
//
// Every other mode rounds ties away from zero, and exactly: the value is
// split into its truncated integer and its fraction, both exact in single
// precision, and the integer moves one away from zero when the fraction
// reaches a half. Adding a half before truncating would round 0.49999997 up
// in single precision. NaN gives 0 here too.
//
// In every mode an infinity gives its sign's end of the type whatever the
// scale factor, also where the multiplier underflows to zero, and the
// caller's denormals-are-zero applies to the values, not to a multiplier
// that is a denormal.
#include "image/build.h"

#if LUM_BUILD >= 1

#include <limits.h>

#include "image/checks.h"
#include "image/int_vec.h"
#include "image/saturate.h"
LUM_BEGIN_BUILD

namespace {

// 2^-scaleFactor as 1.0 halved or doubled scaleFactor times in single
// precision makes it: exact down to the smallest denormal, then 0; exact up
// to 2^127, then infinity.
float scaleMultiplier(int scaleFactor) {
  uint32_t bits;
  if (scaleFactor > 149)
    bits = 0;
  else if (scaleFactor > 126)
    bits = 1u << (149 - scaleFactor);
  else if (scaleFactor >= -127)
    bits = static_cast<uint32_t>(127 - scaleFactor) << 23;
  else
    bits = 0x7F800000u;
  float m;
  __builtin_memcpy(&m, &bits, 4);
  return m;
}

// A value's magnitude bits, read without loading it as a float.
uint32_t magnitudeBits(const Lum32f* p) {
  uint32_t bits;
  __builtin_memcpy(&bits, p, 4);
  return bits & 0x7FFFFFFFu;
}
bool isNaNBits(const Lum32f* p) { return magnitudeBits(p) > 0x7F800000u; }
// Zero, or under denormals-are-zero a denormal too.
bool readsAsZero(const Lum32f* p, bool denormalsAreZero) {
  return magnitudeBits(p) <= (denormalsAreZero ? 0x007FFFFFu : 0u);
}

// What a row conversion writes: its range as floats and ints, and how a
// 32-bit integer narrows with saturation.
template <class T>
struct Pixel;
template <>
struct Pixel<Lum8u> {
  static constexpr float kMaxF = 255.0f, kMinF = 0.0f;
  static Lum8u narrow(int n) { return saturate<Lum8u>(n); }
};
template <>
struct Pixel<Lum16s> {
  static constexpr float kMaxF = 32767.0f, kMinF = -32768.0f;
  static Lum16s narrow(int n) { return saturate<Lum16s>(n); }
};

// Scale factors 127..149 make the multiplier a denormal, which the caller's
// denormals-are-zero would read as zero: such rows run without it (a source
// denormal times the multiplier gives 0 either way).
bool denormalMultiplier(int scaleFactor) { return scaleFactor > 126 && scaleFactor <= 149; }

// Beyond them the multiplier is zero in single precision, which makes an
// infinity NaN; but 2^-scaleFactor is never zero, and an infinity gives its
// sign's end of the type whatever the scale. Every other value gives 0
// through the arithmetic already.
bool zeroMultiplier(int scaleFactor) { return scaleFactor > 149; }
template <class T>
void saturateInfinities(const Lum32f* src, T* dst, int len) {
  for (int i = 0; i < len; ++i)
    if (magnitudeBits(src + i) == 0x7F800000u) {
      uint32_t bits;
      __builtin_memcpy(&bits, src + i, 4);
      storePixel(dst + i, Pixel<T>::narrow(bits >> 31 ? INT_MIN : INT_MAX));
    }
}

// A value into lane 0 from any address: the row may start anywhere.
inline __m128 loadOne(const Lum32f* p) { return _mm_set_ss(loadPixel(p)); }

// ---- Modes 0 and 1 ----------------------------------------------------------------------------
// One value in lane 0 of the same operations as the vector rounds, under the
// rounding control already set.
template <class T, bool kScaled>
inline T roundedOne(const Lum32f* p, __m128 m, __m128 max) {
  __m128 v = loadOne(p);
  if (kScaled) v = _mm_mul_ss(v, m);
  return Pixel<T>::narrow(_mm_cvtss_si32(_mm_min_ss(v, max)));
}

// Eight values from `from` on, scaled and capped at max, the next 64 bytes
// prefetched: the step every vector round starts with (LUM_MMX_INLINE: k1's
// MMX leaf runs it while its MMX registers are live).
struct Eight {
  __m128 lo, hi;
};
template <bool kAligned, bool kScaled>
LUM_MMX_INLINE Eight cappedEight(const Lum32f* from, __m128 m, __m128 max) {
  _mm_prefetch(reinterpret_cast<const char*>(from) + 64, _MM_HINT_T0);
  __m128 a = kAligned ? _mm_load_ps(from) : _mm_loadu_ps(from);
  __m128 b = kAligned ? _mm_load_ps(from + 4) : _mm_loadu_ps(from + 4);
  if (kScaled) a = _mm_mul_ps(a, m), b = _mm_mul_ps(b, m);
  return {_mm_min_ps(a, max), _mm_min_ps(b, max)};
}

#if LUM_BUILD == 1

// Two lanes at a time into MMX integers, narrowed there with saturation: one
// MMX leaf routine (image/build.h), ended by EMMS.
template <bool kAligned, bool kScaled>
LUM_MMX_LEAF int roundedRounds(const Lum32f* src, Lum8u* dst, int len, __m128 m) {
  const __m128 max = _mm_set1_ps(255.0f);
  int i = 0;
  for (; i + 8 <= len; i += 8) {
    const Eight v = cappedEight<kAligned, kScaled>(src + i, m, max);
    const __m64 lo =
        _mm_packs_pi32(_mm_cvtps_pi32(v.lo), _mm_cvtps_pi32(_mm_movehl_ps(v.lo, v.lo)));
    const __m64 hi =
        _mm_packs_pi32(_mm_cvtps_pi32(v.hi), _mm_cvtps_pi32(_mm_movehl_ps(v.hi, v.hi)));
    vStore(dst + i, _mm_packs_pu16(lo, hi));
  }
  _mm_empty();
  return i;
}

#else

inline __m128i roundedInts(__m128 v, bool truncate) {
  return truncate ? _mm_cvttps_epi32(v) : _mm_cvtps_epi32(v);
}
inline void storeEight(Lum8u* d, __m128i lo, __m128i hi) {
  const __m128i s = _mm_packs_epi32(lo, hi);
  _mm_storel_epi64(reinterpret_cast<__m128i*>(d), _mm_packus_epi16(s, s));
}
inline void storeEight(Lum16s* d, __m128i lo, __m128i hi) {
  _mm_storeu_si128(reinterpret_cast<__m128i*>(d), _mm_packs_epi32(lo, hi));
}

// Mode 0 truncates by instruction, mode 1 rounds under the control set.
template <bool kAligned, bool kScaled, class T>
int roundedRounds(const Lum32f* src, T* dst, int len, __m128 m, bool truncate) {
  const __m128 max = _mm_set1_ps(Pixel<T>::kMaxF);
  int i = 0;
  for (; i + 8 <= len; i += 8) {
    const Eight v = cappedEight<kAligned, kScaled>(src + i, m, max);
    storeEight(dst + i, roundedInts(v.lo, truncate), roundedInts(v.hi, truncate));
  }
  return i;
}

#endif

template <bool kScaled, class T>
void roundedRow(const Lum32f* src, T* dst, int len, __m128 m, int mode) {
  const __m128 max = _mm_set_ss(Pixel<T>::kMaxF);
  int i = 0;
  // Single values up to a 16-byte boundary when there is one to reach.
  for (; i < len && isAligned(src, 4) && !isAligned(src + i, 16); ++i)
    storePixel(dst + i, roundedOne<T, kScaled>(src + i, m, max));
#if LUM_BUILD == 1
  (void)mode;
  i += isAligned(src + i, 16) ? roundedRounds<true, kScaled>(src + i, dst + i, len - i, m)
                              : roundedRounds<false, kScaled>(src + i, dst + i, len - i, m);
#else
  i += isAligned(src + i, 16)
           ? roundedRounds<true, kScaled>(src + i, dst + i, len - i, m, mode == 0)
           : roundedRounds<false, kScaled>(src + i, dst + i, len - i, m, mode == 0);
#endif
  for (; i < len; ++i) storePixel(dst + i, roundedOne<T, kScaled>(src + i, m, max));
}

// The caller's MXCSR but for the rounding control, the exception masks (a
// NaN raises the invalid flag here, which must not trap) and, for a
// denormal multiplier, denormals-are-zero; with the flags clear so that the
// row's own invalid flag shows. The caller's comes back with every flag it
// had and those the row raised.
template <class T>
void convertRounded(const Lum32f* src, T* dst, int len, int mode, int scaleFactor) {
  const uint32_t own =
      kMxcsrRounding | kMxcsrMasks | (denormalMultiplier(scaleFactor) ? kMxcsrDenormalsAreZero : 0);
  const OwnMxcsr rounding((mode == 0 ? kMxcsrRoundTowardsZero : 0) | kMxcsrMasks, ~own);
  if (scaleFactor == 0)
    roundedRow<false>(src, dst, len, _mm_setzero_ps(), mode);
  else
    roundedRow<true>(src, dst, len, _mm_set1_ps(scaleMultiplier(scaleFactor)), mode);
  // A NaN converts to 0, and so does a zero times an infinite multiplier
  // (NaN in single precision, the type's maximum after the clamp above).
  const bool infinite = scaleFactor < -127, daz = (rounding.caller() & kMxcsrDenormalsAreZero) != 0;
  if (rounding.raised() & kFpInvalidFlag)
    for (int i = 0; i < len; ++i)
      if (isNaNBits(src + i) || (infinite && readsAsZero(src + i, daz))) storePixel(dst + i, T(0));
  if (zeroMultiplier(scaleFactor)) saturateInfinities(src, dst, len);
}

// ---- Ties away from zero ----------------------------------------------------------------------
#if LUM_BUILD == 1

// On the x87 in extended precision. The product of a float and a power of
// two is exact there, and so is the fraction left by truncation, whatever
// precision and rounding the caller's control word selects.
Lum8u awayFromZeroOne(const Lum32f* p, long double m) {
  const long double v = static_cast<long double>(loadPixel(p)) * m;
  if (v != v || v <= 0) return 0;
  if (v >= 255) return 255;
  const int n = x87TruncateToInt(v);
  return static_cast<Lum8u>(v - n >= 0.5L ? n + 1 : n);
}

void convertAwayFromZero(const Lum32f* src, Lum8u* dst, int len, int scaleFactor) {
  long double m = 1;
  // Either way past any float's range is enough; halved to zero, the
  // multiplier would make an infinity NaN.
  for (int i = 0; i < scaleFactor && m >= 1e-4000L; ++i) m /= 2;
  for (int i = 0; i > scaleFactor && m <= 1e4000L; --i) m *= 2;
  for (int i = 0; i < len; ++i) storePixel(dst + i, awayFromZeroOne(src + i, m));
}

#else

// Four values: clamped to the type's range (NaN to 0), truncated, and moved
// one away from zero where the exact fraction is at least a half.
template <class T>
inline __m128i awayFromZeroFour(__m128 v) {
  const __m128 ordered = _mm_cmpord_ps(v, v);
  v = _mm_and_ps(
      _mm_max_ps(_mm_min_ps(v, _mm_set1_ps(Pixel<T>::kMaxF)), _mm_set1_ps(Pixel<T>::kMinF)),
      ordered);
  const __m128i n = _mm_cvttps_epi32(v);
  const __m128 fraction = _mm_sub_ps(v, _mm_cvtepi32_ps(n));
  const __m128i up = _mm_castps_si128(_mm_cmpge_ps(fraction, _mm_set1_ps(0.5f)));
  const __m128i down = _mm_castps_si128(_mm_cmple_ps(fraction, _mm_set1_ps(-0.5f)));
  return _mm_add_epi32(_mm_sub_epi32(n, up), down);
}

template <bool kScaled, class T>
void awayFromZeroRow(const Lum32f* src, T* dst, int len, __m128 m) {
  int i = 0;
  for (; i + 8 <= len; i += 8) {
    __m128 a = _mm_loadu_ps(src + i), b = _mm_loadu_ps(src + i + 4);
    if (kScaled) a = _mm_mul_ps(a, m), b = _mm_mul_ps(b, m);
    storeEight(dst + i, awayFromZeroFour<T>(a), awayFromZeroFour<T>(b));
  }
  for (; i < len; ++i) {
    __m128 v = loadOne(src + i);
    if (kScaled) v = _mm_mul_ss(v, m);
    storePixel(dst + i, Pixel<T>::narrow(_mm_cvtsi128_si32(awayFromZeroFour<T>(v))));
  }
}

// Under the caller's MXCSR with every exception masked (the clamps signal
// invalid on a NaN), and without denormals-are-zero for a denormal
// multiplier.
template <class T>
void convertAwayFromZero(const Lum32f* src, T* dst, int len, int scaleFactor) {
  const __m128 m = _mm_set1_ps(scaleMultiplier(scaleFactor));
  const uint32_t own = kMxcsrMasks | (denormalMultiplier(scaleFactor) ? kMxcsrDenormalsAreZero : 0);
  const OwnMxcsr masked(kMxcsrMasks, ~own);
  if (scaleFactor == 0)
    awayFromZeroRow<false>(src, dst, len, m);
  else
    awayFromZeroRow<true>(src, dst, len, m);
  if (zeroMultiplier(scaleFactor)) saturateInfinities(src, dst, len);
}

#endif

template <class T, void (*rounded)(const Lum32f*, T*, int, int, int),
          void (*away)(const Lum32f*, T*, int, int)>
LumStatus convert(const Lum32f* src, T* dst, int len, int mode, int scaleFactor) {
  if (const LumStatus st = firstFailing(pointers(src, dst), sizes(len))) return st;
  if (mode == 0 || mode == 1)
    rounded(src, dst, len, mode, scaleFactor);
  else
    away(src, dst, len, scaleFactor);
  return lumStsNoErr;
}

}  // namespace

// The named row conversions of one pixel type: its two own kernels and the
// checked row function over them.
#define LUM_CONVERT_ROWS(name, T)                                                                \
  void ownlumsCnvrt_##name(const Lum32f* pSrc, T* pDst, int len, int rndMode, int scaleFactor) { \
    convertRounded(pSrc, pDst, len, rndMode, scaleFactor);                                       \
  }                                                                                              \
  void ownlumsCnvrtFin_##name(const Lum32f* pSrc, T* pDst, int len, int scaleFactor) {           \
    convertAwayFromZero(pSrc, pDst, len, scaleFactor);                                           \
  }                                                                                              \
  LumStatus lumsConvert_##name(const Lum32f* pSrc, T* pDst, int len, int rndMode,                \
                               int scaleFactor) {                                                \
    return convert<T, ownlumsCnvrt_##name, ownlumsCnvrtFin_##name>(pSrc, pDst, len, rndMode,     \
                                                                   scaleFactor);                 \
  }
LUM_CONVERT_ROWS(32f8u_Sfs, Lum8u)
#if LUM_BUILD >= 2
LUM_CONVERT_ROWS(32f16s_Sfs, Lum16s)
#endif
#undef LUM_CONVERT_ROWS

LUM_END_BUILD

#endif
