// lumiDiv_8u_C1RSfs and lumiDiv_16s_C1RSfs: pDst = pSrc2 / pSrc1 * 2^-scaleFactor,
// rounded to nearest with ties to even and saturated; a zero divisor gives
// the saturated value of the dividend's sign and the warning lumStsDivByZero.
//
// The generic builds (k0, k1) compute the exact rule on the x87 unit in
// extended precision. From k2 on a row kernel computes the quotient in single
// precision through the reciprocal estimate refined twice; ties are then
// decided on the computed value, which may fall either side of a halfway
// point it lies very close to.
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
inline bool divRowExtended(const T* a, const T* b, T* d, int len, const Pixel& pixel,
                           T (*byZero)(int)) {
  bool zero = false;
  for (int i = 0; i < len; ++i) {
    const int x = loadPixel(a + i), y = loadPixel(b + i);
    if (x == 0) zero = true;
    storePixel(d + i, x == 0 ? byZero(y) : pixel(x, y));
  }
  return zero;
}
#endif

// ---- k2..k5: the reciprocal estimate ------------------------------------------

#if LUM_BUILD >= 2
// Rounding to nearest with ties to even, all exceptions masked, no
// flush-to-zero: the kernels' conversions and arithmetic run under it
// whatever the caller's MXCSR says.
constexpr uint32_t kMxcsrNearest = 0x1F80;

// Four quotients b / (a * 2^scaleFactor). The scaling is by a power of two
// and exact. A zero divisor is replaced by 2^-15, so that any nonzero
// dividend gives at least 2^15 in magnitude and saturates (and a zero one
// gives 0), while no quotient passes 2^30. The estimate r of 1/d, about 12
// bits, is refined twice: with e = 1 - d*r, y0 = b*r, y1 = y0 + e*y0 and
// y = y1 + e*e*y1, that is y0 (1 + e)(1 + e^2), in single precision.
struct Quotients {
  __m128 scale, replacement = _mm_set1_ps(0x1p-15f), one = _mm_set1_ps(1.0f);
  explicit Quotients(int scaleFactor) : scale(_mm_castsi128_ps(_mm_set1_epi32((127 + scaleFactor) << 23))) {}
  __m128 operator()(__m128 b, __m128 a, __m128& zeroLanes) const {
    const __m128 scaled = _mm_mul_ps(a, scale);
    const __m128 zero = _mm_cmpeq_ps(scaled, _mm_setzero_ps());
    zeroLanes = _mm_or_ps(zeroLanes, zero);
    const __m128 d = _mm_or_ps(scaled, _mm_and_ps(zero, replacement));
    const __m128 r = _mm_rcp_ps(d);
    const __m128 e = _mm_sub_ps(one, _mm_mul_ps(d, r));
    const __m128 y0 = _mm_mul_ps(b, r);
    const __m128 y1 = _mm_add_ps(y0, _mm_mul_ps(e, y0));
    return _mm_add_ps(y1, _mm_mul_ps(_mm_mul_ps(e, e), y1));
  }
};

inline __m128 lo32f(__m128i v16, __m128i sign) { return _mm_cvtepi32_ps(_mm_unpacklo_epi16(v16, sign)); }
inline __m128 hi32f(__m128i v16, __m128i sign) { return _mm_cvtepi32_ps(_mm_unpackhi_epi16(v16, sign)); }
// The sign words of eight 16-bit lanes, for widening them to 32 bits.
inline __m128i signs16(__m128i v) { return _mm_srai_epi16(v, 15); }

// Eight 8u quotients from eight divisor and dividend bytes (the low halves).
// Quotients stay below 2^31, so the conversion never overflows; the packs
// saturate.
struct Div8uBlock {
  using T = Lum8u;
  static constexpr int kAlign = 8;  // the destination's alignment in the main loop
  Quotients q;
  static __m128i load(const T* p) { return _mm_loadl_epi64(reinterpret_cast<const __m128i*>(p)); }
  static void store(T* p, __m128i v) { _mm_storel_epi64(reinterpret_cast<__m128i*>(p), v); }
  __m128i operator()(__m128i a8, __m128i b8, __m128& zeroLanes) const {
    const __m128i z = _mm_setzero_si128();
    const __m128i a = _mm_unpacklo_epi8(a8, z), b = _mm_unpacklo_epi8(b8, z);
    const __m128 lo = q(lo32f(b, z), lo32f(a, z), zeroLanes);
    const __m128 hi = q(hi32f(b, z), hi32f(a, z), zeroLanes);
    const __m128i words = _mm_packs_epi32(_mm_cvtps_epi32(lo), _mm_cvtps_epi32(hi));
    return _mm_packus_epi16(words, words);
  }
};

// Eight 16s quotients. A quotient can reach 2^45 (dividend scaled by 2^30);
// clamping before the conversion keeps it inside the 32-bit lane.
struct Div16sBlock {
  using T = Lum16s;
  static constexpr int kAlign = 16;
  Quotients q;
  __m128 lowest = _mm_set1_ps(-32768.0f), highest = _mm_set1_ps(32767.0f);
  static __m128i load(const T* p) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p)); }
  static void store(T* p, __m128i v) { _mm_storeu_si128(reinterpret_cast<__m128i*>(p), v); }
  __m128i convert(__m128 y) const { return _mm_cvtps_epi32(_mm_min_ps(_mm_max_ps(y, lowest), highest)); }
  __m128i operator()(__m128i a, __m128i b, __m128& zeroLanes) const {
    const __m128i sa = signs16(a), sb = signs16(b);
    const __m128 lo = q(lo32f(b, sb), lo32f(a, sa), zeroLanes);
    const __m128 hi = q(hi32f(b, sb), hi32f(a, sa), zeroLanes);
    return _mm_packs_epi32(convert(lo), convert(hi));
  }
};

// Fewer than eight pixels, from `from` to `to`: through the block, on copies
// padded with divisor 1 and dividend 0, so that every pixel of a row, in the
// body or not, gets the same arithmetic.
template <class Block, class T>
inline void divShortRun(const T* a, const T* b, T* d, int from, int to, const Block& block,
                        __m128& zeroLanes) {
  T pa[8], pb[8], pd[8];
  for (int i = 0; i < 8; ++i) pa[i] = 1, pb[i] = 0;
  for (int i = from; i < to; ++i) pa[i - from] = loadPixel(a + i), pb[i - from] = loadPixel(b + i);
  Block::store(pd, block(Block::load(pa), Block::load(pb), zeroLanes));
  for (int i = from; i < to; ++i) storePixel(d + i, pd[i - from]);
}

// A row: pixels until the destination is aligned for the block's store, then
// blocks of eight, then the rest. Nonzero when a divisor was 0.
template <class Block, class T>
inline int divRowEstimated(const T* a, const T* b, T* d, int len, const Block& block) {
  __m128 zeroLanes = _mm_setzero_ps();  // all ones where a divisor was 0
  const uintptr_t misaligned = reinterpret_cast<uintptr_t>(d) & (Block::kAlign - 1);
  int head = misaligned % sizeof(T) != 0 ? 0 : int((Block::kAlign - misaligned) % Block::kAlign / sizeof(T));
  if (head > len) head = len;
  if (head > 0) divShortRun(a, b, d, 0, head, block, zeroLanes);
  int i = head;
  for (; i + 8 <= len; i += 8) Block::store(d + i, block(Block::load(a + i), Block::load(b + i), zeroLanes));
  if (i < len) divShortRun(a, b, d, i, len, block, zeroLanes);
  return _mm_movemask_ps(zeroLanes);
}
#endif

}  // namespace

// ---- Row kernels (k2..k5) and their two-thread forms (k4, k5) -------------------

#if LUM_BUILD >= 2
int ownlumsDiv_8u(const Lum8u* pSrc1, const Lum8u* pSrc2, Lum8u* pDst, int len, int scaleFactor) {
  return divRowEstimated(pSrc1, pSrc2, pDst, len, Div8uBlock{Quotients(scaleFactor)});
}
int ownlumsDiv_16s(const Lum16s* pSrc1, const Lum16s* pSrc2, Lum16s* pDst, int len, int scaleFactor) {
  return divRowEstimated(pSrc1, pSrc2, pDst, len, Div16sBlock{Quotients(scaleFactor)});
}
#endif

#if LUM_BUILD >= 4
int ownlumsDiv_8u_omp(const Lum8u* pSrc1, const Lum8u* pSrc2, Lum8u* pDst, int len, int scaleFactor) {
  return divRowInTwo(len, [=](int from, int count) {
    return ownlumsDiv_8u(pSrc1 + from, pSrc2 + from, pDst + from, count, scaleFactor);
  });
}
int ownlumsDiv_16s_omp(const Lum16s* pSrc1, const Lum16s* pSrc2, Lum16s* pDst, int len, int scaleFactor) {
  return divRowInTwo(len, [=](int from, int count) {
    return ownlumsDiv_16s(pSrc1 + from, pSrc2 + from, pDst + from, count, scaleFactor);
  });
}
#endif

namespace {

inline LumStatus divStatus(bool zeroDivisor) { return zeroDivisor ? lumStsDivByZero : lumStsNoErr; }

// The extreme scale factors, pixel by pixel: true with the row done and its
// status in `st`, false for an ordinary scale factor.
template <class T, class Zero, class SignOnly>
inline bool divRowExtremes(DivCase c, const T* a, const T* b, T* d, int len, const Zero& zeroPixel,
                           const SignOnly& signOnlyPixel, LumStatus& st) {
  if (c == DivCase::Ordinary) return false;
  bool zero = false;
  for (int i = 0; i < len; ++i) {
    const int x = loadPixel(a + i), y = loadPixel(b + i);
    storePixel(d + i, c == DivCase::Zero ? zeroPixel(x, y, zero) : signOnlyPixel(x, y, zero));
  }
  st = divStatus(zero);
  return true;
}

#if LUM_BUILD <= 1
// The exact rule: pixel(divisor, dividend, 2^-scaleFactor, scaleFactor).
template <class T, class Pixel>
inline LumStatus divRowExact(const T* a, const T* b, T* d, int len, int scaleFactor, const Pixel& pixel,
                             T (*byZero)(int)) {
  const OwnX87Control truncating(kX87Truncating);
  const long double f = x87Factor(scaleFactor);
  return divStatus(divRowExtended(
      a, b, d, len, [=](int x, int y) { return pixel(x, y, f, scaleFactor); }, byZero));
}
#else
// Rows of 1024 pixels or more are split between two threads in k4 and k5.
constexpr int kDivIntRowInTwo = 1024;

// The estimate: `kernel` on the row, or `longRow` on one of 1024 pixels or more.
template <class T, class Kernel>
inline LumStatus divRowEstimate(const T* a, const T* b, T* d, int len, int scaleFactor,
                                Kernel kernel, Kernel longRow) {
  const OwnMxcsr nearest(kMxcsrNearest);
  return divStatus((len >= kDivIntRowInTwo ? longRow : kernel)(a, b, d, len, scaleFactor) != 0);
}
#endif

}  // namespace

#if LUM_BUILD >= 4
#define LUM_DIV_LONG_ROW(kernel) kernel##_omp
#else
#define LUM_DIV_LONG_ROW(kernel) kernel
#endif

// ---- Row functions ---------------------------------------------------------------

LumStatus lumsDiv_8u_Sfs(const Lum8u* pSrc1, const Lum8u* pSrc2, Lum8u* pDst, int len, int scaleFactor) {
  LumStatus st = divRowArguments(pSrc1, pSrc2, pDst, len);
  if (st != lumStsNoErr ||
      divRowExtremes(divCase8u(scaleFactor), pSrc1, pSrc2, pDst, len, div8uZero, div8uSignOnly, st))
    return st;
#if LUM_BUILD <= 1
  return divRowExact(pSrc1, pSrc2, pDst, len, scaleFactor,
                     [](int a, int b, long double f, int sf) { return div8uExtended(a, b, f, sf < 0); },
                     div8uByZero);
#else
  return divRowEstimate(pSrc1, pSrc2, pDst, len, scaleFactor, ownlumsDiv_8u,
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
  return divRowExact(pSrc1, pSrc2, pDst, len, scaleFactor,
                     [](int a, int b, long double f, int sf) { return div16sExtended(a, b, f, sf > 0); },
                     div16sByZero);
#else
  if (divRowExtremes(divCase16s(scaleFactor), pSrc1, pSrc2, pDst, len, div16sZero, div16sSignOnly, st))
    return st;
  return divRowEstimate(pSrc1, pSrc2, pDst, len, scaleFactor, ownlumsDiv_16s,
                        LUM_DIV_LONG_ROW(ownlumsDiv_16s));
#endif
}

#undef LUM_DIV_LONG_ROW

// ---- Row loops ---------------------------------------------------------------------

LumStatus ownlumiDiv_8u_Sfs(const Lum8u* pSrc1, int src1Step, const Lum8u* pSrc2, int src2Step,
                            Lum8u* pDst, int dstStep, LumSize roiSize, int scaleFactor) {
  return divRows(pSrc1, src1Step, pSrc2, src2Step, pDst, dstStep, roiSize,
                 [=](const Lum8u* a, const Lum8u* b, Lum8u* d) {
                   return lumsDiv_8u_Sfs(a, b, d, roiSize.width, scaleFactor);
                 });
}

LumStatus ownlumiDiv_16s_Sfs(const Lum16s* pSrc1, int src1Step, const Lum16s* pSrc2, int src2Step,
                             Lum16s* pDst, int dstStep, LumSize roiSize, int scaleFactor) {
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
