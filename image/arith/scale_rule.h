// The scale/round/saturate rule of the integer Sfs operations, for one
// build: result = saturate(round(p * 2^-scaleFactor)), ties to even. Every
// scalar path of the multiplications (the generic build's loops, and the
// short rows, prologues and tails of the vector kernels) computes its pixels
// through these functions; the vector kernels are tested against them.
//
// LUM_MMX_INLINE: the vector kernels run these on their short rows, prologues
// and tails while their MMX constants are live in k1 (image/build.h).
//
// Included by per-build sources after image/build.h.
#ifndef LUM_IMAGE_ARITH_SCALE_RULE_H
#define LUM_IMAGE_ARITH_SCALE_RULE_H

#include "image/build.h"
#include "image/saturate.h"

LUM_BEGIN_BUILD

// ---- Which computation a scale factor needs -----------------------------------

enum class MulCase {
  Plain,      // 0: saturate(p)
  SignOnly,   // so negative that every nonzero product saturates
  LeftShift,  // other negative factors: saturate(p * 2^k)
  Zero,       // so large that every product rounds to 0: fill, compute nothing
  Half,       // 1: the s = 1 form of the rounding shift
  RightShift  // the rest: rounding shift by s
};

// Bounds of the two extreme cases, by pixel type: above kZeroAbove every
// product rounds to 0, below kSignOnlyBelow every nonzero one saturates.
// 8u products are at most 255 * 255 < 2^16, so from s = 17 on they are all
// below one half; any nonzero product times 2^8 exceeds 255. 16s products
// have magnitude at most 2^30, exactly one half at s = 31 which rounds to
// the even 0; any nonzero product times 2^15 leaves the 16-bit range.
template <class T>
struct MulBounds;
template <>
struct MulBounds<Lum8u> {
  static constexpr int kZeroAbove = 16, kSignOnlyBelow = -7;
};
template <>
struct MulBounds<Lum16s> {
  static constexpr int kZeroAbove = 30, kSignOnlyBelow = -14;
};

// The tests run in this order: zero, negative (sign-only below the bound),
// above the fill bound, one, the rest.
LUM_MMX_INLINE MulCase mulCase(int scaleFactor, int zeroAbove, int signOnlyBelow) {
  if (scaleFactor == 0) return MulCase::Plain;
  if (scaleFactor < 0) return scaleFactor < signOnlyBelow ? MulCase::SignOnly : MulCase::LeftShift;
  if (scaleFactor > zeroAbove) return MulCase::Zero;
  if (scaleFactor == 1) return MulCase::Half;
  return MulCase::RightShift;
}
template <class T>
LUM_MMX_INLINE MulCase mulCase(int scaleFactor) {
  return mulCase(scaleFactor, MulBounds<T>::kZeroAbove, MulBounds<T>::kSignOnlyBelow);
}

// ---- One pixel of each case -----------------------------------------------------
// a and b are the source pixels; s is the right shift (2..16 / 2..30), k the
// left shift (1..7 / 1..14).

template <class T>
LUM_MMX_INLINE T mulPlain(int a, int b) {
  return saturate<T>(a * b);
}
template <class T>
LUM_MMX_INLINE T mulHalf(int a, int b) {
  return saturate<T>(shiftRoundHalfEven1(a * b));
}
template <class T>
LUM_MMX_INLINE T mulRightShift(int a, int b, int s) {
  return saturate<T>(shiftRoundHalfEven(a * b, s));
}

// The product is below 2^16 and k <= 7, so the shift stays below 2^23.
LUM_MMX_INLINE Lum8u mul8uLeftShift(int a, int b, int k) { return saturate<Lum8u>((a * b) << k); }
// Clamping first keeps the shifted value inside 32 bits (|v| <= 2^15, k <= 14)
// and gives the same saturated result as shifting the exact product.
LUM_MMX_INLINE Lum16s mul16sLeftShift(int a, int b, int k) {
  return saturate<Lum16s>(saturateTo<Lum16s>(a * b) * (1 << k));
}

// Every nonzero product saturates: 255 exactly where both pixels are nonzero.
LUM_MMX_INLINE Lum8u mul8uSignOnly(int a, int b) {
  return (a != 0 && b != 0) ? PixelRange<Lum8u>::kHighest : 0;
}
// 0 when either pixel is 0, otherwise the saturated value of the product's sign.
LUM_MMX_INLINE Lum16s mul16sSignOnly(int a, int b) {
  if (a == 0 || b == 0) return 0;
  return static_cast<Lum16s>((a ^ b) < 0 ? PixelRange<Lum16s>::kLowest
                                         : PixelRange<Lum16s>::kHighest);
}

LUM_END_BUILD

#endif
