// lumiDiv_8u_C1RSfs and lumiDiv_16s_C1RSfs: pDst = pSrc2 / pSrc1 * 2^-scaleFactor,
// rounded to nearest with ties to even and saturated; a zero divisor gives
// the saturated value of the dividend's sign and the warning lumStsDivByZero.
//
// Every build computes the exact rule. The generic builds (k0, k1) on the x87
// unit in extended precision; from k2 on a row kernel divides operands that
// are exact in single precision once, correctly rounded, which decides every
// rounding as the exact quotient would; in 16s below scale factor -7, where
// the shifted dividend exceeds 24 bits, that division rounds down, which
// still places the quotient exactly between halfway points, and ties are
// found in integer arithmetic.
#include <climits>

#include "image/arith/div_rows.h"

LUM_BEGIN_BUILD

namespace {

// ---- The generic builds: the exact rule on the x87 unit -----------------------

#if LUM_BUILD <= 1
// Every quotient is formed and rounded under this control word, whatever
// the caller's: all exceptions masked, 64-bit significand, rounding toward
// zero so that storing an integer truncates. The divisor is at most 255 or
// 32768, so an inexact quotient lies at least 2^-31 of its magnitude from
// any halfway point, far more than the last bit of a 64-bit significand:
// rounding the quotient and the added half toward zero never moves a result.
constexpr uint16_t kX87Truncating = 0x0F7F;

inline int x87Truncate(long double v) {
  int n;
  __asm__("fistpl %0" : "=m"(n) : "t"(v) : "st");
  return n;
}

// 2^-scaleFactor by halving or doubling 1. After 16500 steps the factor is
// 0 or infinite in extended precision and stays so.
inline long double x87Factor(int scaleFactor) {
  const long double step = scaleFactor > 0 ? 0.5L : 2.0L;
  const int steps = scaleFactor == INT_MIN ? 16500 : (scaleFactor < 0 ? -scaleFactor : scaleFactor);
  long double f = 1;
  for (int i = 0; i < steps && i < 16500; ++i) f *= step;
  return f;
}

// t = x + offset + 1/2 truncated, with a tie (t an integer already) going to
// the even neighbour below.
inline int x87RoundHalfEven(long double t) {
  const int n = x87Truncate(t);
  return ((n & 1) != 0 && t == static_cast<long double>(n)) ? n - 1 : n;
}

inline Lum8u div8uExtended(int a, int b, long double f, bool negativeScale) {
  const int n = x87RoundHalfEven(b * f / a + 0.5L);
  return static_cast<Lum8u>(negativeScale && n > 255 ? 255 : n);
}

// The quotient is moved into the non-negative range to be rounded, and back.
inline Lum16s div16sExtended(int a, int b, long double f, bool positiveScale) {
  if (b == 0) return 0;  // exact, and keeps 0 * an infinite factor out
  const long double x = b * f / a;
  if (!positiveScale) {
    if (x < -32768) return -32768;
    if (x > 32767) return 32767;
  }
  return static_cast<Lum16s>(x87RoundHalfEven(x + 32768.5L) - 32768);
}

template <class T, class Pixel>
inline bool divRowExtended(const T* a, const T* b, T* d, int len, const Pixel& pixel) {
  bool zero = false;
  for (int i = 0; i < len; ++i) {
    const int x = loadPixel(a + i), y = loadPixel(b + i);
    if (x == 0) zero = true;
    storePixel(d + i, x == 0 ? divByZero<T>(y) : pixel(x, y));
  }
  return zero;
}
#endif

// ---- k2..k5: one correctly rounded division of exact operands ------------------

#if LUM_BUILD >= 2
// The kernels' rounding, all exceptions masked, no flush-to-zero or
// denormals-are-zero, whatever the caller's MXCSR says: to nearest with ties
// to even, or toward minus infinity for 16s below scale factor -7. The row
// function sets it.
constexpr uint32_t kMxcsrNearest = kMxcsrMasks;
constexpr uint32_t kMxcsrDown = kMxcsrMasks | kMxcsrRoundDown;

// Why one single-precision division gives the exact rule. Let x = B / D with
// B = b 2^-scaleFactor and D = a (or B = b and D = a 2^scaleFactor), both
// exact in single precision (at most 16 significant bits), and q = fl(B / D),
// correctly rounded, then rounded to an integer with ties to even. A tie
// n + 1/2 (below 2^23) is representable and q is exactly it. Any other x lies
// at least 1 / (2 |a| 2^max(scaleFactor, 0)) from every halfway point, while
// q is within 2^-24 |x| of x: q rounds as x does whenever |B| < 2^23 (for
// scaleFactor >= 0 in the scaled divisor's terms). For 8u, B <= 255 * 2^15
// always; for 16s, up to scaleFactor -7. Saturated quotients keep their side:
// the halfway point at each end of the range is representable, so q lies on
// x's side of it or on it, and on it rounds outwards (255.5 to 256, 32767.5
// to 32768, -32768.5 to -32768).
//
// A zero divisor becomes 2^-16, smaller than any other divisor: a nonzero
// dividend then gives a quotient of at least 2^16 in magnitude, which
// saturates by its sign, and a zero one gives 0. The quotient stays within
// 2^31 (255 * 2^16, or 32768 * 2^16 for the dividend -32768 exactly) where
// it is converted; below -7 it is not converted at all (Div16sShiftedBlock).
constexpr float kZeroDivisor = 0x1p-16f;
constexpr int kDiv16sSingleFrom = -7;  // 16s scale factors from here on round to nearest
constexpr int kDiv16sTiesFrom = -14;  // below it a 16s quotient is never a tie (Div16sShiftedBlock)

inline uint32_t div16sRounding(int scaleFactor) {
  return scaleFactor < kDiv16sSingleFrom ? kMxcsrDown : kMxcsrNearest;
}

// 2^e as a float, for -126 <= e <= 127.
inline float pow2f(int e) {
  const uint32_t bits = static_cast<uint32_t>(127 + e) << 23;
  float f;
  __builtin_memcpy(&f, &bits, 4);
  return f;
}

inline __m128i load16B(const void* p) { return _mm_loadu_si128(static_cast<const __m128i*>(p)); }
inline void store16B(void* p, __m128i v) { _mm_storeu_si128(static_cast<__m128i*>(p), v); }

// Whether a divisor of the row was 0, gathered by lane and read once per row:
// the least divisor byte (8u), the least divisor word or the lanes found equal
// to 0 (16s).
struct ZeroBytes {
  __m128i least = _mm_set1_epi8(-1);
  void note(__m128i a) { least = _mm_min_epu8(a, least); }
  bool any() const { return _mm_movemask_epi8(_mm_cmpeq_epi8(least, _mm_setzero_si128())) != 0; }
};
#if LUM_BUILD >= 5
struct ZeroWords {
  __m128i least = _mm_set1_epi16(-1);
  void note(__m128i a) { least = _mm_min_epu16(a, least); }
  bool any() const { return _mm_movemask_epi8(_mm_cmpeq_epi16(least, _mm_setzero_si128())) != 0; }
};
#else
struct ZeroWords {
  __m128i seen = _mm_setzero_si128();
  void note(__m128i a) { seen = _mm_or_si128(seen, _mm_cmpeq_epi16(a, _mm_setzero_si128())); }
  bool any() const { return _mm_movemask_epi8(seen) != 0; }
};
#endif

// A divisor lane of 0 becomes kZeroDivisor, the others (at least 2^-7 in
// magnitude) stay: the unsigned maximum of the bits, which before SSE4.1 is
// taken on the upper halves (the replacement's lower half is 0).
inline __m128 replaceZeroDivisor(__m128 d) {
  const __m128i replacement = _mm_castps_si128(_mm_set1_ps(kZeroDivisor)),
                bits = _mm_castps_si128(d);
#if LUM_BUILD >= 5
  return _mm_castsi128_ps(_mm_max_epu32(bits, replacement));
#else
  return _mm_castsi128_ps(_mm_add_epi16(_mm_subs_epu16(bits, replacement), replacement));
#endif
}

#if LUM_BUILD <= 4
// Floats from 16-bit lanes without a conversion: the float whose bits are
// (150 + s) << 23 | u is 2^s (2^23 + u), so one unpack with the exponent
// words and one exact subtraction give u 2^s, the scaling included. Signed
// words come biased by 2^15 (their sign bit flipped), which the subtraction
// takes off again.
struct WordFloats {
  __m128i exponent;
  __m128 offset;
  WordFloats(int s, int bias)
      : exponent(_mm_set1_epi16(static_cast<short>((150 + s) << 7))),
        offset(_mm_set1_ps((8388608.0f + static_cast<float>(bias)) * pow2f(s))) {}
  __m128 lo(__m128i u) const {
    return _mm_sub_ps(_mm_castsi128_ps(_mm_unpacklo_epi16(u, exponent)), offset);
  }
  __m128 hi(__m128i u) const {
    return _mm_sub_ps(_mm_castsi128_ps(_mm_unpackhi_epi16(u, exponent)), offset);
  }
};

// Signed words to floats by conversion, the low and the high four lanes.
inline __m128 lo32f(__m128i v) {
  return _mm_cvtepi32_ps(_mm_srai_epi32(_mm_unpacklo_epi16(v, v), 16));
}
inline __m128 hi32f(__m128i v) {
  return _mm_cvtepi32_ps(_mm_srai_epi32(_mm_unpackhi_epi16(v, v), 16));
}
#else
// Four pixels from any address, converted to floats.
inline __m128 fourFloats(const Lum8u* p) {
  return _mm_cvtepi32_ps(_mm_cvtepu8_epi32(_mm_loadu_si32(p)));
}
inline __m128 fourFloats(const Lum16s* p) {
  return _mm_cvtepi32_ps(_mm_cvtepi16_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p))));
}
#endif

// ---- 8u: sixteen pixels a step --------------------------------------------------

// b / max(a 2^scaleFactor, 2^-16), rounded; the packs saturate. kScaled: a
// scale factor other than 0.
template <bool kScaled>
struct Div8uBlock {
  static constexpr int kPixels = 16;
  using T = Lum8u;
  using Zeros = ZeroBytes;
  __m128 scale, replacement = _mm_set1_ps(kZeroDivisor);
  explicit Div8uBlock(int scaleFactor) : scale(_mm_set1_ps(pow2f(scaleFactor))) {}
#if LUM_BUILD >= 5
  __m128i four(const T* a, const T* b) const {
    __m128 d = fourFloats(a);
    if (kScaled) d = _mm_mul_ps(d, scale);
    const __m128 x = fourFloats(b);
    return _mm_cvtps_epi32(_mm_div_ps(x, _mm_max_ps(d, replacement)));
  }
  Zeros operator()(const T* a, const T* b, T* d, Zeros zeros) const {
    zeros.note(load16B(a));
    const __m128i lo = _mm_packs_epi32(four(a, b), four(a + 4, b + 4));
    const __m128i hi = _mm_packs_epi32(four(a + 8, b + 8), four(a + 12, b + 12));
    store16B(d, _mm_packus_epi16(lo, hi));
    return zeros;
  }
#else
  // Eight pixels at a time, from 8-byte loads, to keep within the eight
  // registers.
  __m128i eight(const T* a, const T* b) const {
    const __m128i z = _mm_setzero_si128();
    const __m128i aw = _mm_unpacklo_epi8(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(a)), z);
    const __m128i bw = _mm_unpacklo_epi8(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(b)), z);
    const __m128 x0 = _mm_cvtepi32_ps(_mm_unpacklo_epi16(bw, z)),
                 x1 = _mm_cvtepi32_ps(_mm_unpackhi_epi16(bw, z));
    __m128 d0 = _mm_cvtepi32_ps(_mm_unpacklo_epi16(aw, z)),
           d1 = _mm_cvtepi32_ps(_mm_unpackhi_epi16(aw, z));
    if (kScaled) d0 = _mm_mul_ps(d0, scale), d1 = _mm_mul_ps(d1, scale);
    const __m128i lo = _mm_cvtps_epi32(_mm_div_ps(x0, _mm_max_ps(d0, replacement)));
    const __m128i hi = _mm_cvtps_epi32(_mm_div_ps(x1, _mm_max_ps(d1, replacement)));
    return _mm_packs_epi32(lo, hi);
  }
  Zeros operator()(const T* a, const T* b, T* d, Zeros zeros) const {
    zeros.note(load16B(a));
    const __m128i lo = eight(a, b);
    store16B(d, _mm_packus_epi16(lo, eight(a + 8, b + 8)));
    return zeros;
  }
#endif
};

// ---- 16s, scale factors -7..15: sixteen pixels a step ----------------------------

// k5 converts four pixels at a time; the builds before it widen and convert
// the dividends, and the divisors too or through WordFloats where they are
// scaled, which keeps within the eight registers.
template <bool kScaled>
struct Div16sBlock {
  static constexpr int kPixels = 16;
  using T = Lum16s;
  using Zeros = ZeroWords;
#if LUM_BUILD >= 5
  __m128 scale;
  explicit Div16sBlock(int scaleFactor) : scale(_mm_set1_ps(pow2f(scaleFactor))) {}
  __m128i four(const T* a, const T* b) const {
    __m128 d = fourFloats(a);
    if (kScaled) d = _mm_mul_ps(d, scale);
    const __m128 x = fourFloats(b);
    return _mm_cvtps_epi32(_mm_div_ps(x, replaceZeroDivisor(d)));
  }
  Zeros eight(const T* a, const T* b, T* d, Zeros zeros) const {
    zeros.note(load16B(a));
    store16B(d, _mm_packs_epi32(four(a, b), four(a + 4, b + 4)));
    return zeros;
  }
#else
  WordFloats divisors;
  __m128i bias = _mm_set1_epi16(-32768);
  explicit Div16sBlock(int scaleFactor) : divisors(scaleFactor, 32768) {}
  Zeros eight(const T* a, const T* b, T* d, Zeros zeros) const {
    const __m128i av = load16B(a), bv = load16B(b);
    zeros.note(av);
    const __m128i ab = _mm_xor_si128(av, bias);
    const __m128 d0 = kScaled ? divisors.lo(ab) : lo32f(av),
                 d1 = kScaled ? divisors.hi(ab) : hi32f(av);
    const __m128i lo = _mm_cvtps_epi32(_mm_div_ps(lo32f(bv), replaceZeroDivisor(d0)));
    const __m128i hi = _mm_cvtps_epi32(_mm_div_ps(hi32f(bv), replaceZeroDivisor(d1)));
    store16B(d, _mm_packs_epi32(lo, hi));
    return zeros;
  }
#endif
  Zeros operator()(const T* a, const T* b, T* d, Zeros zeros) const {
    return eight(a + 8, b + 8, d + 8, eight(a, b, d, zeros));
  }
};

// ---- 16s, scale factors -30..-8: eight pixels a step, rounding down ---------------

// Under rounding toward minus infinity, fl(2x) <= 2x lies at or above an
// integer exactly when 2x does (RD is monotone and keeps integers), so
// F = floor(fl(2x)) = floor(2x), and R = (F + 1) >> 1 = floor(x + 1/2) is the
// rounded quotient except at a tie x = R - 1/2 with R odd, which goes to the
// even R - 1. F comes without a conversion: q = fl(b / a) is x 2^-k, scaled
// exactly, and z = fl(q + M) with M = 1.5 * 2^(22-k) + 2^-(k+1), whose last
// place is 2^-(k+1), is M + 2^-(k+1) F for |x| < 2^21, so the bits of z less
// those of M are F; those of M are odd, so R = (bits(z) >> 1) - (bits(M) - 1) / 2,
// which cannot wrap. Beyond, the bits of a float order it (a negative one
// reads as a large negative number) and the pack saturates.
// A tie is 2B = (2R - 1) a, B = b 2^k: a is then a multiple of 2^(k+1), so
// from k = 15 on there are none (the divisor would be 0), and below only
// blocks holding such a divisor are tested. There a tie is 2 (R a - B) - a = 0;
// elsewhere that is a (2R - 2x - 1) with 2R - 2x - 1 in (-2, 0), nonzero and
// below 2^16 in magnitude, so products modulo 2^16 decide. Saturated lanes do
// not mislead the test: at the bottom R = -32768 is even; at the top R = 32767
// and a false tie would need 2B = -3a modulo 2^16, so 2^(k+1) | a and
// |x| = |b| / (2 |a| 2^-(k+1)) <= 16384 (a zero divisor takes 1 for the test:
// an odd a never matches the even 2B).
template <bool kTies>
struct Div16sShiftedBlock {
  static constexpr int kPixels = 8;
  using T = Lum16s;
  using Zeros = ZeroWords;
  __m128 magic;
  // shifted: 2^k, B modulo 2^16 is b times it.
  __m128i halfMagic, lowBits, shifted, one = _mm_set1_epi16(1);
#if LUM_BUILD <= 4
  // A zero dividend comes out as -0 when rounding down, which does no harm.
  WordFloats dividends{0, 32768};
  __m128i bias = _mm_set1_epi16(-32768);
#endif
  explicit Div16sShiftedBlock(int scaleFactor)
      : magic(_mm_set1_ps(pow2f(22 + scaleFactor) * 1.5f + pow2f(scaleFactor - 1))),
        halfMagic(_mm_srli_epi32(_mm_castps_si128(magic), 1)),
        lowBits(_mm_set1_epi16(static_cast<short>(kTies ? (2 << -scaleFactor) - 1 : 0))),
        shifted(_mm_set1_epi16(static_cast<short>(kTies ? 1 << -scaleFactor : 0))) {}
  __m128i floorHalfUp(__m128 x, __m128 d) const {
    const __m128 z = _mm_add_ps(_mm_div_ps(x, replaceZeroDivisor(d)), magic);
    return _mm_sub_epi32(_mm_srai_epi32(_mm_castps_si128(z), 1), halfMagic);
  }
  // R with ties moved to the even neighbour: 2 (R a - B) = a modulo 2^16, a
  // zero divisor taken as 1, clears the last bit of R.
  __m128i evenAtTies(__m128i r, __m128i a, __m128i b) const {
#if LUM_BUILD >= 5
    const __m128i tested = _mm_max_epu16(a, one);
#else
    const __m128i tested = _mm_add_epi16(_mm_subs_epu16(a, one), one);
#endif
    const __m128i t = _mm_sub_epi16(_mm_mullo_epi16(r, tested), _mm_mullo_epi16(b, shifted));
    const __m128i tie = _mm_cmpeq_epi16(_mm_add_epi16(t, t), tested);
    return _mm_andnot_si128(_mm_and_si128(tie, one), r);
  }
  Zeros operator()(const T* a, const T* b, T* d, Zeros zeros) const {
    const __m128i av = load16B(a);
    if (!kTies) zeros.note(av);  // else below: a zero divisor is a multiple of 2^(k+1) too
#if LUM_BUILD >= 5
    const __m128 x0 = fourFloats(b), x1 = fourFloats(b + 4);
    const __m128i r =
        _mm_packs_epi32(floorHalfUp(x0, fourFloats(a)), floorHalfUp(x1, fourFloats(a + 4)));
#else
    // The divisors by conversion: the subtraction of WordFloats would make a zero one -0 here.
    const __m128 a0 = lo32f(av), a1 = hi32f(av);
    const __m128i bb = _mm_xor_si128(load16B(b), bias);
    const __m128i r =
        _mm_packs_epi32(floorHalfUp(dividends.lo(bb), a0), floorHalfUp(dividends.hi(bb), a1));
#endif
    if (kTies &&
        _mm_movemask_epi8(_mm_cmpeq_epi16(_mm_and_si128(av, lowBits), _mm_setzero_si128())) != 0) {
      zeros.note(av);
      return store16B(d, evenAtTies(r, av, load16B(b))), zeros;
    }
    store16B(d, r);
    return zeros;
  }
};

// ---- The extreme scale factors: compare and select -----------------------------------

// The zero-divisor table of 16s by lane: highest, lowest or 0 by the dividend's sign.
inline __m128i div16sByZeroLanes(__m128i b) {
  const __m128i z = _mm_setzero_si128();
  return _mm_or_si128(
      _mm_and_si128(_mm_cmpgt_epi16(b, z), _mm_set1_epi16(PixelRange<Lum16s>::kHighest)),
      _mm_and_si128(_mm_cmpgt_epi16(z, b),
                    _mm_set1_epi16(static_cast<short>(PixelRange<Lum16s>::kLowest))));
}

// Every quotient of a nonzero divisor rounds to 0: zero divisors take the table.
struct Div8uZeroBlock {
  static constexpr int kPixels = 16;
  using T = Lum8u;
  using Zeros = ZeroBytes;
  Zeros operator()(const T* a, const T* b, T* d, Zeros zeros) const {
    const __m128i av = load16B(a), z = _mm_setzero_si128();
    zeros.note(av);
    const __m128i byZero =
        _mm_andnot_si128(_mm_cmpeq_epi8(load16B(b), z),
                         _mm_set1_epi8(static_cast<char>(PixelRange<Lum8u>::kHighest)));
    store16B(d, _mm_and_si128(_mm_cmpeq_epi8(av, z), byZero));
    return zeros;
  }
};
struct Div16sZeroBlock {
  static constexpr int kPixels = 8;
  using T = Lum16s;
  using Zeros = ZeroWords;
  Zeros operator()(const T* a, const T* b, T* d, Zeros zeros) const {
    const __m128i av = load16B(a);
    zeros.note(av);
    store16B(
        d, _mm_and_si128(_mm_cmpeq_epi16(av, _mm_setzero_si128()), div16sByZeroLanes(load16B(b))));
    return zeros;
  }
};

// Every nonzero quotient saturates, whatever the divisor: the dividend's
// sign decides, with the divisor's for 16s (a zero divisor counting as positive).
struct Div8uSignOnlyBlock {
  static constexpr int kPixels = 16;
  using T = Lum8u;
  using Zeros = ZeroBytes;
  Zeros operator()(const T* a, const T* b, T* d, Zeros zeros) const {
    zeros.note(load16B(a));
    store16B(d, _mm_andnot_si128(_mm_cmpeq_epi8(load16B(b), _mm_setzero_si128()),
                                 _mm_set1_epi8(static_cast<char>(PixelRange<Lum8u>::kHighest))));
    return zeros;
  }
};
struct Div16sSignOnlyBlock {
  static constexpr int kPixels = 8;
  using T = Lum16s;
  using Zeros = ZeroWords;
  Zeros operator()(const T* a, const T* b, T* d, Zeros zeros) const {
    const __m128i av = load16B(a), bv = load16B(b);
    zeros.note(av);
    const __m128i unlike = _mm_srai_epi16(_mm_xor_si128(av, bv), 15);
    const __m128i saturated = _mm_or_si128(
        _mm_andnot_si128(unlike, _mm_set1_epi16(PixelRange<Lum16s>::kHighest)),
        _mm_and_si128(unlike, _mm_set1_epi16(static_cast<short>(PixelRange<Lum16s>::kLowest))));
    store16B(d, _mm_andnot_si128(_mm_cmpeq_epi16(bv, _mm_setzero_si128()), saturated));
    return zeros;
  }
};

// ---- A row --------------------------------------------------------------------------------

// Whole blocks, then the rest through the block on copies padded with divisor
// 1 and dividend 0, so that every pixel of a row gets the same arithmetic.
// Nonzero when a divisor was 0.
template <class Block, class T = typename Block::T>
inline int divRowByBlocks(const T* a, const T* b, T* d, int len, const Block& block) {
  constexpr int n = Block::kPixels;
  typename Block::Zeros zeros;
  int i = 0;
  for (; i + n <= len; i += n) zeros = block(a + i, b + i, d + i, zeros);
  if (i < len) {
    T pa[n], pb[n], pd[n];
    for (int k = 0; k < n; ++k) pa[k] = 1, pb[k] = 0;
    for (int k = i; k < len; ++k) pa[k - i] = loadPixel(a + k), pb[k - i] = loadPixel(b + k);
    zeros = block(pa, pb, pd, zeros);
    for (int k = i; k < len; ++k) storePixel(d + k, pd[k - i]);
  }
  return zeros.any() ? 1 : 0;
}
#endif

}  // namespace

// ---- Row kernels (k2..k5) and their forms in two pieces (k4, k5) -----------------
// The kernels take any scale factor (the extreme ones need no division), and
// run under the rounding the row function sets: to nearest, or for 16s the
// one div16sRounding gives.

#if LUM_BUILD >= 2
int ownlumsDiv_8u(const Lum8u* pSrc1, const Lum8u* pSrc2, Lum8u* pDst, int len, int scaleFactor) {
  switch (divCase<Lum8u>(scaleFactor)) {
    case DivCase::Zero:
      return divRowByBlocks(pSrc1, pSrc2, pDst, len, Div8uZeroBlock());
    case DivCase::SignOnly:
      return divRowByBlocks(pSrc1, pSrc2, pDst, len, Div8uSignOnlyBlock());
    case DivCase::Ordinary:
      break;
  }
  if (scaleFactor == 0) return divRowByBlocks(pSrc1, pSrc2, pDst, len, Div8uBlock<false>(0));
  return divRowByBlocks(pSrc1, pSrc2, pDst, len, Div8uBlock<true>(scaleFactor));
}
int ownlumsDiv_16s(const Lum16s* pSrc1, const Lum16s* pSrc2, Lum16s* pDst, int len,
                   int scaleFactor) {
  switch (divCase<Lum16s>(scaleFactor)) {
    case DivCase::Zero:
      return divRowByBlocks(pSrc1, pSrc2, pDst, len, Div16sZeroBlock());
    case DivCase::SignOnly:
      return divRowByBlocks(pSrc1, pSrc2, pDst, len, Div16sSignOnlyBlock());
    case DivCase::Ordinary:
      break;
  }
  if (scaleFactor < kDiv16sTiesFrom)
    return divRowByBlocks(pSrc1, pSrc2, pDst, len, Div16sShiftedBlock<false>(scaleFactor));
  if (scaleFactor < kDiv16sSingleFrom)
    return divRowByBlocks(pSrc1, pSrc2, pDst, len, Div16sShiftedBlock<true>(scaleFactor));
  if (scaleFactor == 0) return divRowByBlocks(pSrc1, pSrc2, pDst, len, Div16sBlock<false>(0));
  return divRowByBlocks(pSrc1, pSrc2, pDst, len, Div16sBlock<true>(scaleFactor));
}
#endif

#if LUM_BUILD >= 4
// One long row in its two pieces, on the threads its pixels pay for.
int ownlumsDiv_8u_omp(const Lum8u* pSrc1, const Lum8u* pSrc2, Lum8u* pDst, int len,
                      int scaleFactor) {
  return divKernelRows(
      pSrc1, 0, pSrc2, 0, pDst, 0, LumSize{len, 1}, teamFor(2, len, kDiv8uPixelsPerThread),
      [=](const Lum8u* a, const Lum8u* b, Lum8u* d, int n) {
        return ownlumsDiv_8u(a, b, d, n, scaleFactor);
      },
      divMiddle<Lum8u>);
}
int ownlumsDiv_16s_omp(const Lum16s* pSrc1, const Lum16s* pSrc2, Lum16s* pDst, int len,
                       int scaleFactor) {
  return divKernelRows(
      pSrc1, 0, pSrc2, 0, pDst, 0, LumSize{len, 1}, teamFor(2, len, kDiv16sPixelsPerThread),
      [=](const Lum16s* a, const Lum16s* b, Lum16s* d, int n) {
        return ownlumsDiv_16s(a, b, d, n, scaleFactor);
      },
      divMiddle<Lum16s>);
}
#endif

namespace {

#if LUM_BUILD <= 1
// The extreme scale factors of 8u, pixel by pixel: true with the row done and
// its status in `st`, false for an ordinary scale factor.
inline bool divRowExtremes8u(int scaleFactor, const Lum8u* a, const Lum8u* b, Lum8u* d, int len,
                             LumStatus& st) {
  const DivCase c = divCase<Lum8u>(scaleFactor);
  if (c == DivCase::Ordinary) return false;
  bool zero = false;
  for (int i = 0; i < len; ++i) {
    const int x = loadPixel(a + i), y = loadPixel(b + i);
    storePixel(d + i,
               c == DivCase::Zero ? divZero<Lum8u>(x, y, zero) : divSignOnly<Lum8u>(x, y, zero));
  }
  st = divStatus(zero);
  return true;
}

// The exact rule: pixel(divisor, dividend, 2^-scaleFactor, scaleFactor).
template <class T, class Pixel>
inline LumStatus divRowExact(const T* a, const T* b, T* d, int len, int scaleFactor,
                             const Pixel& pixel) {
  const OwnX87Control truncating(kX87Truncating);
  const long double f = x87Factor(scaleFactor);
  return divStatus(
      divRowExtended(a, b, d, len, [=](int x, int y) { return pixel(x, y, f, scaleFactor); }));
}
#else
// The extreme scale factors, on the calling thread: true with the row done
// and its status in `st`, false for an ordinary scale factor.
template <class T>
inline bool divRowExtremes(DivCase c, int (*kernel)(const T*, const T*, T*, int, int), const T* a,
                           const T* b, T* d, int len, int scaleFactor, LumStatus& st) {
  if (c == DivCase::Ordinary) return false;
  st = divStatus(kernel(a, b, d, len, scaleFactor) != 0);
  return true;
}

// Rows of 1024 pixels or more are cut in two pieces in k4 and k5, which
// threads may share.
constexpr int kDivIntRowInTwo = 1024;

// The quotients under the kernel's rounding: `kernel` on the row, or
// `longRow` on one of 1024 pixels or more.
template <class T, class Kernel>
inline LumStatus divRowQuotients(const T* a, const T* b, T* d, int len, int scaleFactor,
                                 uint32_t rounding, Kernel kernel, Kernel longRow) {
  const OwnMxcsr own(rounding);
  return divStatus((len >= kDivIntRowInTwo ? longRow : kernel)(a, b, d, len, scaleFactor) != 0);
}
#endif

#if LUM_BUILD >= 4
// The long rows of a call in the ordinary case: the kernel's pieces under
// its rounding, all rows in one region of the team divTeam allows.
template <class T>
inline LumStatus divLongRowsQuotients(const T* pSrc1, int src1Step, const T* pSrc2, int src2Step,
                                      T* pDst, int dstStep, LumSize roiSize, int scaleFactor,
                                      uint32_t rounding,
                                      int (*kernel)(const T*, const T*, T*, int, int),
                                      long long minPixelsPerThread) {
  const OwnMxcsr own(rounding);
  const int team = divTeam<T>(dstStep, roiSize, minPixelsPerThread);
  return divStatus(
      divKernelRows(
          pSrc1, src1Step, pSrc2, src2Step, pDst, dstStep, roiSize, team,
          [=](const T* a, const T* b, T* d, int n) { return kernel(a, b, d, n, scaleFactor); },
          divMiddle<T>) != 0);
}
#endif

}  // namespace

#if LUM_BUILD >= 4
#define LUM_DIV_LONG_ROW(kernel) kernel##_omp
#else
#define LUM_DIV_LONG_ROW(kernel) kernel
#endif

// ---- Row functions ---------------------------------------------------------------

LumStatus lumsDiv_8u_Sfs(const Lum8u* pSrc1, const Lum8u* pSrc2, Lum8u* pDst, int len,
                         int scaleFactor) {
  LumStatus st = divRowArguments(pSrc1, pSrc2, pDst, len);
  if (st != lumStsNoErr) return st;
#if LUM_BUILD <= 1
  if (divRowExtremes8u(scaleFactor, pSrc1, pSrc2, pDst, len, st)) return st;
  return divRowExact(pSrc1, pSrc2, pDst, len, scaleFactor, [](int a, int b, long double f, int sf) {
    return div8uExtended(a, b, f, sf < 0);
  });
#else
  if (divRowExtremes(divCase<Lum8u>(scaleFactor), ownlumsDiv_8u, pSrc1, pSrc2, pDst, len,
                     scaleFactor, st))
    return st;
  return divRowQuotients(pSrc1, pSrc2, pDst, len, scaleFactor, kMxcsrNearest, ownlumsDiv_8u,
                         LUM_DIV_LONG_ROW(ownlumsDiv_8u));
#endif
}

// The generic builds form the factor for any scale factor; the others settle
// the extreme ones first.
LumStatus lumsDiv_16s_Sfs(const Lum16s* pSrc1, const Lum16s* pSrc2, Lum16s* pDst, int len,
                          int scaleFactor) {
  LumStatus st = divRowArguments(pSrc1, pSrc2, pDst, len);
  if (st != lumStsNoErr) return st;
#if LUM_BUILD <= 1
  return divRowExact(pSrc1, pSrc2, pDst, len, scaleFactor, [](int a, int b, long double f, int sf) {
    return div16sExtended(a, b, f, sf > 0);
  });
#else
  if (divRowExtremes(divCase<Lum16s>(scaleFactor), ownlumsDiv_16s, pSrc1, pSrc2, pDst, len,
                     scaleFactor, st))
    return st;
  return divRowQuotients(pSrc1, pSrc2, pDst, len, scaleFactor, div16sRounding(scaleFactor),
                         ownlumsDiv_16s, LUM_DIV_LONG_ROW(ownlumsDiv_16s));
#endif
}

#undef LUM_DIV_LONG_ROW

// ---- Row loops ---------------------------------------------------------------------
// Row by row through the row function; in k4 and k5 long rows of the ordinary
// case go to the kernel's pieces directly, all of them in one region.

LumStatus ownlumiDiv_8u_Sfs(const Lum8u* pSrc1, int src1Step, const Lum8u* pSrc2, int src2Step,
                            Lum8u* pDst, int dstStep, LumSize roiSize, int scaleFactor) {
#if LUM_BUILD >= 4
  if (roiSize.width >= kDivIntRowInTwo && divCase<Lum8u>(scaleFactor) == DivCase::Ordinary)
    return divLongRowsQuotients(pSrc1, src1Step, pSrc2, src2Step, pDst, dstStep, roiSize,
                                scaleFactor, kMxcsrNearest, ownlumsDiv_8u, kDiv8uPixelsPerThread);
#endif
  return divRows(pSrc1, src1Step, pSrc2, src2Step, pDst, dstStep, roiSize,
                 [=](const Lum8u* a, const Lum8u* b, Lum8u* d) {
                   return lumsDiv_8u_Sfs(a, b, d, roiSize.width, scaleFactor);
                 });
}

LumStatus ownlumiDiv_16s_Sfs(const Lum16s* pSrc1, int src1Step, const Lum16s* pSrc2, int src2Step,
                             Lum16s* pDst, int dstStep, LumSize roiSize, int scaleFactor) {
#if LUM_BUILD >= 4
  if (roiSize.width >= kDivIntRowInTwo && divCase<Lum16s>(scaleFactor) == DivCase::Ordinary)
    return divLongRowsQuotients(pSrc1, src1Step, pSrc2, src2Step, pDst, dstStep, roiSize,
                                scaleFactor, div16sRounding(scaleFactor), ownlumsDiv_16s,
                                kDiv16sPixelsPerThread);
#endif
  return divRows(pSrc1, src1Step, pSrc2, src2Step, pDst, dstStep, roiSize,
                 [=](const Lum16s* a, const Lum16s* b, Lum16s* d) {
                   return lumsDiv_16s_Sfs(a, b, d, roiSize.width, scaleFactor);
                 });
}

LUM_END_BUILD

// ---- Image functions -------------------------------------------------------------------

extern "C" LumStatus LUM_ENTRY(lumiDiv_8u_C1RSfs)(const Lum8u* pSrc1, int src1Step,
                                                  const Lum8u* pSrc2, int src2Step, Lum8u* pDst,
                                                  int dstStep, LumSize roiSize, int scaleFactor) {
  using namespace lum::LUM_TAG;
  if (const LumStatus st = divArguments(pSrc1, src1Step, pSrc2, src2Step, pDst, dstStep, roiSize))
    return st;
  return ownlumiDiv_8u_Sfs(pSrc1, src1Step, pSrc2, src2Step, pDst, dstStep, roiSize, scaleFactor);
}

extern "C" LumStatus LUM_ENTRY(lumiDiv_16s_C1RSfs)(const Lum16s* pSrc1, int src1Step,
                                                   const Lum16s* pSrc2, int src2Step, Lum16s* pDst,
                                                   int dstStep, LumSize roiSize, int scaleFactor) {
  using namespace lum::LUM_TAG;
  if (const LumStatus st = divArguments(pSrc1, src1Step, pSrc2, src2Step, pDst, dstStep, roiSize))
    return st;
  return ownlumiDiv_16s_Sfs(pSrc1, src1Step, pSrc2, src2Step, pDst, dstStep, roiSize, scaleFactor);
}
