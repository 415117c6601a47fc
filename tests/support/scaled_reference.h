// The reference results of the scaled integer operations, from the definitions with exact 64-bit
// integers: the exact value rounded to the nearest integer, ties to the even one, then saturated to
// lo..hi; a floor division and a comparison of the remainder with one half, not the library's
// rounding.
#ifndef LUM_TESTS_SUPPORT_SCALED_REFERENCE_H
#define LUM_TESTS_SUPPORT_SCALED_REFERENCE_H

namespace lumtest {

// n / d (d > 0) rounded to nearest, ties to even, saturated to lo..hi.
inline int roundedQuotient(long long n, long long d, long long lo, long long hi) {
  long long q = n / d - (n % d != 0 && n < 0);       // floor
  const long long twiceRemainder = 2 * (n - q * d);  // 0 <= remainder < d
  if (twiceRemainder > d || (twiceRemainder == d && q % 2 != 0)) ++q;
  return static_cast<int>(q < lo ? lo : (q > hi ? hi : q));
}

// a * b * 2^-scaleFactor, for 16-bit a and b. Beyond -32 the sign alone decides (a nonzero product
// is 2^32 or more, and a product up to 2^30 shifted further would not fit 64 bits); beyond 41 it is
// 0.
inline int scaledReference(int a, int b, int scaleFactor, long long lo, long long hi) {
  const long long p = static_cast<long long>(a) * b;
  if (scaleFactor < -32)
    return roundedQuotient(p > 0 ? (1LL << 60) : (p < 0 ? -(1LL << 60) : 0), 1, lo, hi);
  if (scaleFactor <= 0) return roundedQuotient(p * (1LL << -scaleFactor), 1, lo, hi);
  return scaleFactor <= 41 ? roundedQuotient(p, 1LL << scaleFactor, lo, hi) : 0;
}

// dividend / divisor * 2^-scaleFactor, for 16-bit operands and a nonzero divisor; beyond -40 the
// sign alone decides, beyond 41 it is 0.
inline int scaledQuotientReference(int dividend, int divisor, int scaleFactor, long long lo,
                                   long long hi) {
  long long n = divisor < 0 ? -dividend : dividend, d = divisor < 0 ? -divisor : divisor;
  if (scaleFactor < -40)
    n = n > 0 ? (1LL << 60) : (n < 0 ? -(1LL << 60) : 0);
  else if (scaleFactor <= 0)
    n *= 1LL << -scaleFactor;
  else if (scaleFactor <= 41)
    d <<= scaleFactor;
  else
    return 0;
  return roundedQuotient(n, d, lo, hi);
}

}  // namespace lumtest

#endif
