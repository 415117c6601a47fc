// The reference result of the scaled integer operations, from the definition with exact 64-bit
// integers: a * b * 2^-scaleFactor rounded to the nearest integer, ties to the even one, then
// saturated to lo..hi; a floor division and a comparison of the remainder with one half, not the
// library's rounding shift. Beyond -40 and 41, for |a * b| < 2^31, the sign alone decides.
#ifndef LUM_TESTS_SUPPORT_SCALED_REFERENCE_H
#define LUM_TESTS_SUPPORT_SCALED_REFERENCE_H

namespace lumtest {

inline int scaledReference(int a, int b, int scaleFactor, long long lo, long long hi) {
  const long long p = static_cast<long long>(a) * b;
  long long q = 0;
  if (scaleFactor < -40)
    q = p > 0 ? (1LL << 60) : (p < 0 ? -(1LL << 60) : 0);
  else if (scaleFactor <= 0)
    q = p * (1LL << -scaleFactor);
  else if (scaleFactor <= 41) {
    const long long d = 1LL << scaleFactor;
    q = p / d - (p % d != 0 && p < 0);                  // floor
    const long long twiceRemainder = 2 * (p - q * d);  // 0 <= remainder < d
    if (twiceRemainder > d || (twiceRemainder == d && q % 2 != 0)) ++q;
  }
  return static_cast<int>(q < lo ? lo : (q > hi ? hi : q));
}

}  // namespace lumtest

#endif
