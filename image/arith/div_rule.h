// What a division gives where no quotient is computed: the zero-divisor
// tables, and the scale factors so large or so small that the result no
// longer depends on the quotient. Every path of every build that meets a zero
// divisor or an extreme scale factor takes its value from here.
//
// Included by per-build sources after image/build.h.
#ifndef LUM_IMAGE_ARITH_DIV_RULE_H
#define LUM_IMAGE_ARITH_DIV_RULE_H

#include "image/build.h"

LUM_BEGIN_BUILD

// The saturated quotients, which the vector paths select by lane.
constexpr int kDiv8uHighest = 255;
constexpr int kDiv16sHighest = 32767;
constexpr int kDiv16sLowest = -32768;

// ---- Zero divisors ------------------------------------------------------------
// The saturated value of the quotient's sign: a zero dividend gives 0.

inline Lum8u div8uByZero(int dividend) { return dividend != 0 ? kDiv8uHighest : 0; }
inline Lum16s div16sByZero(int dividend) {
  return static_cast<Lum16s>(dividend > 0 ? kDiv16sHighest : (dividend < 0 ? kDiv16sLowest : 0));
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

// 8u: 255 * 2^-9 is below one half, so above 8 every quotient rounds to 0;
// 1 * 2^16 / 255 is above 255, so below -15 every nonzero one saturates.
constexpr int kDiv8uZeroAbove = 8;
constexpr int kDiv8uSignOnlyBelow = -15;
// 16s: 32768 * 2^-16 is one half, which rounds to the even 0; below -30 the
// smallest quotient, 2^31 / 32768, is far beyond the range.
constexpr int kDiv16sZeroAbove = 15;
constexpr int kDiv16sSignOnlyBelow = -30;

inline DivCase divCase(int scaleFactor, int zeroAbove, int signOnlyBelow) {
  if (scaleFactor > zeroAbove) return DivCase::Zero;
  if (scaleFactor < signOnlyBelow) return DivCase::SignOnly;
  return DivCase::Ordinary;
}
inline DivCase divCase8u(int scaleFactor) {
  return divCase(scaleFactor, kDiv8uZeroAbove, kDiv8uSignOnlyBelow);
}
inline DivCase divCase16s(int scaleFactor) {
  return divCase(scaleFactor, kDiv16sZeroAbove, kDiv16sSignOnlyBelow);
}

// One pixel of the two extreme cases; `zeroDivisor` is set when the divisor
// is 0. a is the divisor, b the dividend.
inline Lum8u div8uZero(int a, int b, bool& zeroDivisor) {
  if (a != 0) return 0;
  zeroDivisor = true;
  return div8uByZero(b);
}
inline Lum8u div8uSignOnly(int a, int b, bool& zeroDivisor) {
  zeroDivisor |= a == 0;
  return b != 0 ? kDiv8uHighest : 0;
}
inline Lum16s div16sZero(int a, int b, bool& zeroDivisor) {
  if (a != 0) return 0;
  zeroDivisor = true;
  return div16sByZero(b);
}
// A zero divisor counts as positive.
inline Lum16s div16sSignOnly(int a, int b, bool& zeroDivisor) {
  zeroDivisor |= a == 0;
  if (b == 0) return 0;
  return static_cast<Lum16s>((a < 0) == (b < 0) ? kDiv16sHighest : kDiv16sLowest);
}

LUM_END_BUILD

#endif
