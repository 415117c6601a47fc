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

LUM_MMX_INLINE int saturate8u(int v) { return v < 0 ? 0 : (v > 255 ? 255 : v); }
LUM_MMX_INLINE int saturate16s(int v) { return v < -32768 ? -32768 : (v > 32767 ? 32767 : v); }

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
