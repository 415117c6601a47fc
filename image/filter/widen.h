// Source pixels as floats for the filters' SSE paths (builds k1..k5).
// Widening is exact: bytes and shorts are small integers.
//
// From k2 on: one pixel in lane 0, four or eight neighbours in one or two
// registers, at any address, widened where they are used. k1 has no SSE2
// integer registers and widens through MMX, whose state must end before any
// x87 instruction (image/build.h): it widens a whole source row into a float
// row at once, in one leaf routine (widenRow), and the filters then read
// that row through the float forms here.
#ifndef LUM_IMAGE_FILTER_WIDEN_H
#define LUM_IMAGE_FILTER_WIDEN_H

#include "image/build.h"

#if LUM_BUILD >= 1

#include "image/int_vec.h"

LUM_BEGIN_BUILD

inline __m128 onePixel(const Lum32f* p) {
  Lum32f t[1];  // through an aligned copy: the pixel may lie at any address
  __builtin_memcpy(t, p, 4);
  return _mm_load_ss(t);
}
inline __m128 onePixel(const Lum16s* p) { return _mm_cvtsi32_ss(_mm_setzero_ps(), loadPixel(p)); }
inline __m128 onePixel(const Lum8u* p) { return _mm_cvtsi32_ss(_mm_setzero_ps(), loadPixel(p)); }

inline __m128 fourPixels(const Lum32f* p) { return _mm_loadu_ps(p); }
inline void eightPixels(const Lum32f* p, __m128& lo, __m128& hi) {
  lo = _mm_loadu_ps(p), hi = _mm_loadu_ps(p + 4);
}

#if LUM_BUILD == 1

// len pixels from src into dst (16-byte aligned), in one MMX leaf routine:
// eight bytes or four shorts a step, extended to 32-bit lanes (bytes with
// zero, shorts with their sign) and converted two lanes at a time; then
// EMMS, and the last few pixels after it.
LUM_MMX_LEAF inline void widenRow(const Lum8u* src, Lum32f* dst, int len) {
  const __m64 zero = _mm_setzero_si64();
  int i = 0;
  for (; i + 8 <= len; i += 8) {
    const __m64 v = vLoad(src + i), lo = _mm_unpacklo_pi8(v, zero), hi = _mm_unpackhi_pi8(v, zero);
    _mm_store_ps(dst + i,
                 _mm_cvtpi32x2_ps(_mm_unpacklo_pi16(lo, zero), _mm_unpackhi_pi16(lo, zero)));
    _mm_store_ps(dst + i + 4,
                 _mm_cvtpi32x2_ps(_mm_unpacklo_pi16(hi, zero), _mm_unpackhi_pi16(hi, zero)));
  }
  _mm_empty();
  for (; i < len; ++i) storePixel(dst + i, static_cast<Lum32f>(loadPixel(src + i)));
}
LUM_MMX_LEAF inline void widenRow(const Lum16s* src, Lum32f* dst, int len) {
  int i = 0;
  for (; i + 4 <= len; i += 4) {
    const __m64 v = vLoad(src + i), sign = _mm_cmpgt_pi16(_mm_setzero_si64(), v);
    _mm_store_ps(dst + i, _mm_cvtpi32x2_ps(_mm_unpacklo_pi16(v, sign), _mm_unpackhi_pi16(v, sign)));
  }
  _mm_empty();
  for (; i < len; ++i) storePixel(dst + i, static_cast<Lum32f>(loadPixel(src + i)));
}

#else

inline __m128 fourPixels(const Lum8u* p) {
  int32_t bits;
  __builtin_memcpy(&bits, p, 4);
#if LUM_BUILD >= 5
  return _mm_cvtepi32_ps(_mm_cvtepu8_epi32(_mm_cvtsi32_si128(bits)));
#else
  const __m128i zero = _mm_setzero_si128();
  return _mm_cvtepi32_ps(
      _mm_unpacklo_epi16(_mm_unpacklo_epi8(_mm_cvtsi32_si128(bits), zero), zero));
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
  lo = _mm_cvtepi32_ps(_mm_cvtepu8_epi32(v)),
  hi = _mm_cvtepi32_ps(_mm_cvtepu8_epi32(_mm_srli_si128(v, 4)));
#else
  const __m128i zero = _mm_setzero_si128(), w = _mm_unpacklo_epi8(v, zero);
  lo = _mm_cvtepi32_ps(_mm_unpacklo_epi16(w, zero)),
  hi = _mm_cvtepi32_ps(_mm_unpackhi_epi16(w, zero));
#endif
}
inline void eightPixels(const Lum16s* p, __m128& lo, __m128& hi) {
  const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
#if LUM_BUILD >= 5
  lo = _mm_cvtepi32_ps(_mm_cvtepi16_epi32(v)),
  hi = _mm_cvtepi32_ps(_mm_cvtepi16_epi32(_mm_srli_si128(v, 8)));
#else
  lo = _mm_cvtepi32_ps(_mm_srai_epi32(_mm_unpacklo_epi16(v, v), 16));
  hi = _mm_cvtepi32_ps(_mm_srai_epi32(_mm_unpackhi_epi16(v, v), 16));
#endif
}

#endif

LUM_END_BUILD

#endif
#endif
