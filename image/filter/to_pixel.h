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
// rounds otherwise). A float sum takes a half step in double, where it is
// exact, is truncated by chopping (x87TruncateToInt), and a tie (n - sum
// exactly a half) is made even towards zero's side of the half.
#ifndef LUM_IMAGE_FILTER_TO_PIXEL_H
#define LUM_IMAGE_FILTER_TO_PIXEL_H

#include "image/build.h"

LUM_BEGIN_BUILD

// n = sum + half truncated, then a tie (n - sum exactly a half) made even
// towards zero's side of the half: for half = 0.5 a tie moves n down, for
// half = -0.5 up.
template <class Sum>
inline int roundHalfToEven(Sum s, int half) {
  int n = x87TruncateToInt(static_cast<double>(s) + static_cast<double>(half) / 2);
  if (static_cast<Sum>(n) - s == static_cast<Sum>(half) / 2 && (n & 1) != 0) n -= half;
  return n;
}

// The nearest integer, ties to even, of a sum inside the type's range.
template <class Sum>
inline int nearestEven(Sum s) {
  return s > 0 ? roundHalfToEven(s, 1) : roundHalfToEven(s, -1);
}
inline int nearestEven(long double s) { return x87NearestToInt(s); }

// A NaN is told apart first, by the one comparison that raises nothing for a
// quiet NaN: the ordered ones (>=, <=) raise invalid on any NaN, which traps
// where the caller has unmasked it.
template <class Sum>
inline Lum8u toPixel8u(Sum s) {
  if (s != s) return 0;
  if (s >= 255) return 255;
  if (s <= static_cast<Sum>(0.5)) return 0;
  return static_cast<Lum8u>(nearestEven(s));
}

template <class Sum>
inline Lum16s toPixel16s(Sum s) {
  if (s != s) return 0;
  if (s >= 32767) return 32767;
  if (s <= -32768) return -32768;
  return static_cast<Lum16s>(nearestEven(s));
}

// The pixel of each type from a sum: the rule above for integers, the
// nearest float under the caller's rounding mode for 32f.
template <class T>
struct FromSum;
template <>
struct FromSum<Lum8u> {
  template <class Sum>
  static Lum8u pixel(Sum s) {
    return toPixel8u(s);
  }
};
template <>
struct FromSum<Lum16s> {
  template <class Sum>
  static Lum16s pixel(Sum s) {
    return toPixel16s(s);
  }
};
template <>
struct FromSum<Lum32f> {
  template <class Sum>
  static Lum32f pixel(Sum s) {
    return static_cast<Lum32f>(s);
  }
};

LUM_END_BUILD

#endif
