// The reference result of the scaled integer operations, computed from the
// definition with exact 64-bit integers: value * 2^-scaleFactor, rounded to
// the nearest integer with ties to the even one, then saturated. Written as
// a floor division and a comparison of the remainder with one half, not as
// the library's rounding shift.
#ifndef LUM_TESTS_SUPPORT_SCALED_REFERENCE_H
#define LUM_TESTS_SUPPORT_SCALED_REFERENCE_H

namespace lumtest {

inline long long floorDivide(long long p, long long d) {  // d > 0
  long long q = p / d;
  if (p % d != 0 && p < 0) --q;
  return q;
}

// p * 2^-scaleFactor rounded half to even, for |p| < 2^40. Factors so large
// or so small that the answer is settled are cut short: below -40 any nonzero
// p is huge (its sign is all that matters after saturation), above 41 every
// such p is under one half.
inline long long scaledHalfEven(long long p, int scaleFactor) {
  if (scaleFactor <= 0) {
    if (scaleFactor < -40) return p > 0 ? (1LL << 60) : (p < 0 ? -(1LL << 60) : 0);
    return p * (1LL << -scaleFactor);
  }
  if (scaleFactor > 41) return 0;
  const long long d = 1LL << scaleFactor;
  long long q = floorDivide(p, d);
  const long long twiceRemainder = 2 * (p - q * d);  // 0 <= remainder < d
  if (twiceRemainder > d || (twiceRemainder == d && (q % 2 != 0))) ++q;
  return q;
}

inline long long saturateTo(long long v, long long lo, long long hi) {
  return v < lo ? lo : (v > hi ? hi : v);
}

inline int referenceMul8u(int a, int b, int scaleFactor) {
  return static_cast<int>(saturateTo(scaledHalfEven(static_cast<long long>(a) * b, scaleFactor), 0, 255));
}

inline int referenceMul16s(int a, int b, int scaleFactor) {
  return static_cast<int>(
      saturateTo(scaledHalfEven(static_cast<long long>(a) * b, scaleFactor), -32768, 32767));
}

}  // namespace lumtest

#endif
