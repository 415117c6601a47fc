// Source pixels as floats for the filters' SSE paths (builds k1..k5): one
// pixel in lane 0, four or eight neighbours in one or two registers, at any
// address. Widening is exact: bytes and shorts are small integers. k1 widens
// through MMX and must leave its state with endVectorState().
#ifndef LUM_IMAGE_FILTER_WIDEN_H
#define LUM_IMAGE_FILTER_WIDEN_H

#include "image/build.h"

#if LUM_BUILD >= 1

LUM_BEGIN_BUILD

inline __m128 onePixel(const Lum32f* p) {
  Lum32f t[1];  // through an aligned copy: the pixel may lie at any address
  __builtin_memcpy(t, p, 4);
  return _mm_load_ss(t);
}
inline __m128 onePixel(const Lum16s* p) { return _mm_cvtsi32_ss(_mm_setzero_ps(), loadPixel(p)); }
inline __m128 onePixel(const Lum8u* p) { return _mm_cvtsi32_ss(_mm_setzero_ps(), loadPixel(p)); }

inline __m128 fourPixels(const Lum32f* p) { return _mm_loadu_ps(p); }
inline __m128 alignedFour(const Lum32f* p) { return _mm_load_ps(p); }

#if LUM_BUILD == 1

inline __m64 eightBytes(const void* p) {
  __m64 v;
  __builtin_memcpy(&v, p, 8);
  return v;
}
inline __m128 fourPixels(const Lum16s* p) { return _mm_cvtpi16_ps(eightBytes(p)); }
inline __m128 alignedFour(const Lum16s* p) { return fourPixels(p); }
inline __m128 fourPixels(const Lum8u* p) {
  int32_t bits;
  __builtin_memcpy(&bits, p, 4);
  return _mm_cvtpu8_ps(_mm_cvtsi32_si64(bits));
}
inline void eightPixels(const Lum8u* p, __m128& lo, __m128& hi) {
  const __m64 v = eightBytes(p);
  lo = _mm_cvtpu8_ps(v), hi = _mm_cvtpu8_ps(_mm_srli_si64(v, 32));
}
inline void endVectorState() { _mm_empty(); }

#else

inline __m128 fourPixels(const Lum8u* p) {
  int32_t bits;
  __builtin_memcpy(&bits, p, 4);
#if LUM_BUILD >= 5
  return _mm_cvtepi32_ps(_mm_cvtepu8_epi32(_mm_cvtsi32_si128(bits)));
#else
  const __m128i zero = _mm_setzero_si128();
  return _mm_cvtepi32_ps(_mm_unpacklo_epi16(_mm_unpacklo_epi8(_mm_cvtsi32_si128(bits), zero), zero));
#endif
}
inline __m128 fourPixels(const Lum16s* p) {
  const __m128i v = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(p));
#if LUM_BUILD >= 5
  return _mm_cvtepi32_ps(_mm_cvtepi16_epi32(v));
#else
  return _mm_cvtepi32_ps(_mm_srai_epi32(_mm_unpacklo_epi16(v, v), 16));
#endif
}
inline void eightPixels(const Lum8u* p, __m128& lo, __m128& hi) {
  const __m128i v = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(p));
#if LUM_BUILD >= 5
  lo = _mm_cvtepi32_ps(_mm_cvtepu8_epi32(v)), hi = _mm_cvtepi32_ps(_mm_cvtepu8_epi32(_mm_srli_si128(v, 4)));
#else
  const __m128i zero = _mm_setzero_si128(), w = _mm_unpacklo_epi8(v, zero);
  lo = _mm_cvtepi32_ps(_mm_unpacklo_epi16(w, zero)), hi = _mm_cvtepi32_ps(_mm_unpackhi_epi16(w, zero));
#endif
}
inline void eightPixels(const Lum16s* p, __m128& lo, __m128& hi) {
  const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
#if LUM_BUILD >= 5
  lo = _mm_cvtepi32_ps(_mm_cvtepi16_epi32(v)), hi = _mm_cvtepi32_ps(_mm_cvtepi16_epi32(_mm_srli_si128(v, 8)));
#else
  lo = _mm_cvtepi32_ps(_mm_srai_epi32(_mm_unpacklo_epi16(v, v), 16));
  hi = _mm_cvtepi32_ps(_mm_srai_epi32(_mm_unpackhi_epi16(v, v), 16));
#endif
}
inline void endVectorState() {}

#endif

LUM_END_BUILD

#endif
#endif
