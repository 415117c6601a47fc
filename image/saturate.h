// Saturation to the integer pixel types and right shifts that round to
// nearest with ties to even: the vocabulary of every integer rule (the
// multiplications' scaling, the conversions of float sums to pixels), for
// one build.
//
// LUM_MMX_INLINE: k1's vector kernels run these on their short rows,
// prologues and tails while their MMX constants are live (image/build.h).
//
// Included by per-build sources after image/build.h.
#ifndef LUM_IMAGE_SATURATE_H
#define LUM_IMAGE_SATURATE_H

#include "image/build.h"

LUM_BEGIN_BUILD

// ---- Saturation ------------------------------------------------------------

// The values of an integer pixel type.
template <class T>
struct PixelRange;
template <>
struct PixelRange<Lum8u> {
  static constexpr int kLowest = 0, kHighest = 255;
};
template <>
struct PixelRange<Lum16s> {
  static constexpr int kLowest = -32768, kHighest = 32767;
};

// v saturated to the range of the pixel type T: as an int, for arithmetic
// that goes on, and as the pixel.
template <class T>
LUM_MMX_INLINE int saturateTo(int v) {
  return v < PixelRange<T>::kLowest ? PixelRange<T>::kLowest
                                    : (v > PixelRange<T>::kHighest ? PixelRange<T>::kHighest : v);
}
template <class T>
LUM_MMX_INLINE T saturate(int v) {
  return static_cast<T>(saturateTo<T>(v));
}

// ---- Rounding right shifts ---------------------------------------------------

// p / 2^s rounded to nearest, ties to the even neighbour, for s >= 1 and any
// sign of p (the shift is arithmetic): adding 2^(s-1) - 1 rounds ties down,
// and the lowest kept bit pushes the odd ones up. The sum stays inside 32
// bits for every product of two 16-bit pixels and s <= 30.
LUM_MMX_INLINE int shiftRoundHalfEven(int p, int s) {
  return (p + ((1 << (s - 1)) - 1) + ((p >> s) & 1)) >> s;
}

// The same for s = 1, where the constant vanishes.
LUM_MMX_INLINE int shiftRoundHalfEven1(int p) { return (p + ((p >> 1) & 1)) >> 1; }

LUM_END_BUILD

#endif
