// What a division gives where no quotient is computed: the zero-divisor
// tables, and the scale factors so large or so small that the result no
// longer depends on the quotient. Every path of every build that meets a zero
// divisor or an extreme scale factor takes its value from here.
//
// Included by per-build sources after image/build.h.
#ifndef LUM_IMAGE_ARITH_DIV_RULE_H
#define LUM_IMAGE_ARITH_DIV_RULE_H

#include "image/build.h"
#include "image/saturate.h"

LUM_BEGIN_BUILD

// ---- Zero divisors ------------------------------------------------------------

// The saturated value of the quotient's sign: a zero dividend gives 0.
template <class T>
inline T divByZero(int dividend) {
  return static_cast<T>(dividend > 0   ? PixelRange<T>::kHighest
                        : dividend < 0 ? PixelRange<T>::kLowest
                                       : 0);
}

// Floats: an infinity of the dividend's sign (the zero's own sign does not
// count), and `nan` for a zero or NaN dividend, as bits. Each path brings
// its own infinity and NaN, and its own comparisons: x87 in the generic
// build, SSE in the kernel, so that denormals count as zero exactly where the
// arithmetic of that build treats them so.
inline uint32_t div32fByZero(bool positive, bool negative, uint32_t inf, uint32_t nan) {
  return positive ? inf : (negative ? inf | 0x80000000u : nan);
}

// ---- Scale factors beyond the quotient ------------------------------------------

enum class DivCase {
  Ordinary,  // the quotient is computed
  Zero,      // every quotient of a nonzero divisor rounds to 0
  SignOnly   // every nonzero quotient saturates, whatever the divisor
};

// Bounds of the two extreme cases, by pixel type. 8u: 255 * 2^-9 is below
// one half, so above 8 every quotient rounds to 0; 1 * 2^16 / 255 is above
// 255, so below -15 every nonzero one saturates. 16s: 32768 * 2^-16 is one
// half, which rounds to the even 0; below -30 the smallest quotient,
// 2^31 / 32768, is far beyond the range.
template <class T>
struct DivBounds;
template <>
struct DivBounds<Lum8u> {
  static constexpr int kZeroAbove = 8, kSignOnlyBelow = -15;
};
template <>
struct DivBounds<Lum16s> {
  static constexpr int kZeroAbove = 15, kSignOnlyBelow = -30;
};

template <class T>
inline DivCase divCase(int scaleFactor) {
  if (scaleFactor > DivBounds<T>::kZeroAbove) return DivCase::Zero;
  if (scaleFactor < DivBounds<T>::kSignOnlyBelow) return DivCase::SignOnly;
  return DivCase::Ordinary;
}

// One pixel of the two extreme cases; `zeroDivisor` is set when the divisor
// is 0. a is the divisor, b the dividend.
template <class T>
inline T divZero(int a, int b, bool& zeroDivisor) {
  if (a != 0) return 0;
  zeroDivisor = true;
  return divByZero<T>(b);
}
// The quotient's sign decides, a zero divisor counting as positive.
template <class T>
inline T divSignOnly(int a, int b, bool& zeroDivisor) {
  zeroDivisor |= a == 0;
  if (b == 0) return 0;
  return static_cast<T>((a < 0) == (b < 0) ? PixelRange<T>::kHighest : PixelRange<T>::kLowest);
}

LUM_END_BUILD

#endif
