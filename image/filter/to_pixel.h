// The filter's own float-to-integer rule for 8u and 16s pixels: round to
// the nearest integer with ties to even, saturate, and make NaN 0. Every
// path of the filter writes integer pixels through here.
//
// The sum arrives as the accumulation left it: long double from the x87
// (k0, k1), float from SSE (k2..k5). All comparisons are made on that
// unrounded sum in its own precision, and the caller's rounding mode never
// changes what a pixel becomes.
//
// An x87 sum is stored by FISTP rounding to nearest with ties to even
// (x87NearestToInt, which switches the control word only where the caller
// rounds otherwise). Float sums are rounded four at a time, a single one in
// every lane of the same operations: a half step in double, exact for every
// sum of 2^-30 or more in magnitude (smaller ones truncate to 0 however it
// rounds), SSE2's truncating conversion, which has no rounding mode to
// switch, and a tie (n - sum exactly a half) made even towards zero's side
// of the half.
#ifndef LUM_IMAGE_FILTER_TO_PIXEL_H
#define LUM_IMAGE_FILTER_TO_PIXEL_H

#include "image/build.h"

LUM_BEGIN_BUILD

#if LUM_BUILD <= 1
// A NaN is told apart first, by the one comparison that raises nothing for a
// quiet NaN: the ordered ones (>=, <=) raise invalid on any NaN, which traps
// where the caller has unmasked it.
inline Lum8u toPixel8u(long double s) {
  if (s != s) return 0;
  if (s >= 255) return 255;
  if (s <= 0.5L) return 0;
  return static_cast<Lum8u>(x87NearestToInt(s));
}

inline Lum16s toPixel16s(long double s) {
  if (s != s) return 0;
  if (s >= 32767) return 32767;
  if (s <= -32768) return -32768;
  return static_cast<Lum16s>(x87NearestToInt(s));
}
#endif

#if LUM_BUILD >= 2
// Four float sums. A lane the rule does not round (NaN, saturated, or 8u
// at or below 0.5) first takes a stand-in whose every step is exact and
// lands on its pixel: 0.5 rounds to 0, a top plus a half to one past the
// top, which the packing saturates, and -32768.5 to -32768. Only
// comparisons touch the sum in those lanes, quiet ones while it may still
// be a NaN, so that a lane raises the flags of its own sum alone.
inline __m128 selectLanes(__m128 mask, __m128 yes, __m128 no) {
  return _mm_or_ps(_mm_and_ps(mask, yes), _mm_andnot_ps(mask, no));
}

// n = s + half truncated, then a tie (n - s exactly the half) made even
// towards zero's side of the half: for 0.5 a tie moves n down, for -0.5 up.
// With kPositive every lane is above zero (8u: its stand-ins included) and
// the half is 0.5; otherwise each lane's half goes by its sign.
template <bool kPositive>
inline __m128i nearestEven4(__m128 s) {
  const __m128 positive =
      kPositive ? _mm_castsi128_ps(_mm_set1_epi32(-1)) : _mm_cmpgt_ps(s, _mm_setzero_ps());
  const __m128 half = _mm_xor_ps(_mm_set1_ps(-0.5f), _mm_and_ps(positive, _mm_set1_ps(-0.0f)));
  const __m128d low = _mm_add_pd(_mm_cvtps_pd(s), _mm_cvtps_pd(half));
  const __m128d high =
      _mm_add_pd(_mm_cvtps_pd(_mm_movehl_ps(s, s)), _mm_cvtps_pd(_mm_movehl_ps(half, half)));
  const __m128i n = _mm_unpacklo_epi64(_mm_cvttpd_epi32(low), _mm_cvttpd_epi32(high));
  const __m128i one = _mm_set1_epi32(1);
  const __m128i tie = _mm_castps_si128(_mm_cmpeq_ps(_mm_sub_ps(_mm_cvtepi32_ps(n), s), half));
  if (kPositive) return _mm_sub_epi32(n, _mm_and_si128(tie, _mm_and_si128(n, one)));
  // The step is 1 where the half is positive, -1 (all ones) where not.
  const __m128i odd = _mm_cmpeq_epi32(_mm_and_si128(n, one), one);
  const __m128i step =
      _mm_or_si128(_mm_andnot_si128(_mm_castps_si128(positive), _mm_set1_epi32(-1)), one);
  return _mm_sub_epi32(n, _mm_and_si128(_mm_and_si128(tie, odd), step));
}

inline void storeFourPixels8u(Lum8u* d, __m128 s) {
  const __m128 nan = _mm_cmpunord_ps(s, s), s0 = _mm_andnot_ps(nan, s);
  const __m128 zero = _mm_or_ps(nan, _mm_cmple_ps(s0, _mm_set1_ps(0.5f)));
  const __m128 stand = selectLanes(_mm_cmpge_ps(s0, _mm_set1_ps(255.0f)), _mm_set1_ps(255.5f),
                                   selectLanes(zero, _mm_set1_ps(0.5f), s0));
  const __m128i n = nearestEven4<true>(stand), words = _mm_packs_epi32(n, n);
  const int32_t bytes = _mm_cvtsi128_si32(_mm_packus_epi16(words, words));
  __builtin_memcpy(d, &bytes, 4);
}

inline void storeFourPixels16s(Lum16s* d, __m128 s) {
  const __m128 nan = _mm_cmpunord_ps(s, s), s0 = _mm_andnot_ps(nan, s);
  const __m128 stand =
      selectLanes(_mm_cmpge_ps(s0, _mm_set1_ps(32767.0f)), _mm_set1_ps(32767.5f),
                  selectLanes(_mm_cmple_ps(s0, _mm_set1_ps(-32768.0f)), _mm_set1_ps(-32768.5f),
                              selectLanes(nan, _mm_set1_ps(0.5f), s0)));
  const __m128i n = nearestEven4<false>(stand);
  alignas(8) Lum16s t[4];
  _mm_storel_epi64(reinterpret_cast<__m128i*>(t), _mm_packs_epi32(n, n));
  __builtin_memcpy(d, t, 8);
}
#endif

// The pixel of each type from a sum: the rule above for integers, the
// nearest float under the caller's rounding mode for 32f. The x87 builds
// take one long double sum at a time; from SSE2 on, a register of four
// float sums (storeFour), and a single sum in lane 0 (pixelOfSum).
template <class T>
struct FromSum;
template <>
struct FromSum<Lum8u> {
#if LUM_BUILD <= 1
  static Lum8u pixel(long double s) { return toPixel8u(s); }
#else
  static void storeFour(Lum8u* d, __m128 s) { storeFourPixels8u(d, s); }
#endif
};
template <>
struct FromSum<Lum16s> {
#if LUM_BUILD <= 1
  static Lum16s pixel(long double s) { return toPixel16s(s); }
#else
  static void storeFour(Lum16s* d, __m128 s) { storeFourPixels16s(d, s); }
#endif
};
template <>
struct FromSum<Lum32f> {
#if LUM_BUILD <= 1
  static Lum32f pixel(long double s) { return static_cast<Lum32f>(s); }
#else
  static void storeFour(Lum32f* d, __m128 s) { _mm_storeu_ps(d, s); }
#endif
};

#if LUM_BUILD >= 2
// One float sum through the four-lane form, the sum in every lane, so that
// the other lanes raise nothing the first does not.
template <class T>
inline T pixelOfSum(float s) {
  T p[4];
  FromSum<T>::storeFour(p, _mm_set1_ps(s));
  return p[0];
}
#endif

LUM_END_BUILD

#endif
