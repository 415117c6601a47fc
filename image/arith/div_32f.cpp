// lumiDiv_32f_C1R: pDst = pSrc2 / pSrc1 in single precision, per pixel. A
// divisor equal to zero (of either sign) gives an infinity of the dividend's
// sign, or NaN for a zero or NaN dividend, and the warning lumStsDivByZero.
//
// The generic build divides on the x87 unit and rounds once to single. From
// k1 on one kernel computes groups of lanes through the reciprocal estimate;
// a group holding a zero divisor is computed lane by lane instead, correctly
// rounded, so the same two pixels may differ in their last bits depending on
// whether a zero divisor shares their group. The caller's rounding and
// denormal settings apply unchanged.
#include "image/arith/div_rows.h"

LUM_BEGIN_BUILD

namespace {

inline uint32_t bitsOf(Lum32f v) {
  uint32_t b;
  __builtin_memcpy(&b, &v, 4);
  return b;
}
inline Lum32f floatOf(uint32_t b) {
  Lum32f v;
  __builtin_memcpy(&v, &b, 4);
  return v;
}

#if LUM_BUILD == 0
// The generic row: the divisor compared with zero on the x87 unit (a NaN
// divisor is not equal and divides); the quotient in extended precision,
// rounded once when stored. The table's constants are the library's own.
inline bool divRow32fGeneric(const Lum32f* a, const Lum32f* b, Lum32f* d, int len) {
  bool zero = false;
  for (int i = 0; i < len; ++i) {
    const Lum32f x = loadPixel(a + i), y = loadPixel(b + i);
    if (x == 0) {
      zero = true;
      storePixel(d + i,
                 floatOf(div32fByZero(__builtin_isgreater(y, 0.0f), __builtin_isless(y, 0.0f),
                                      bitsOf(lumConstantOfINF_32f), bitsOf(lumConstantOfNAN_32f))));
    } else {
      storePixel(d + i, static_cast<Lum32f>(static_cast<long double>(y) / x));
    }
  }
  return zero;
}
#else
// SSE operations with the destination register as first operand, written
// out: the compiler may swap the operands of an operation it considers
// commutative, and where both are NaN the first one's payload is the result.
inline __m128 mulFirst(__m128 a, __m128 b) {
  __asm__("mulps %1, %0" : "+x"(a) : "x"(b));
  return a;
}
inline __m128 addFirst(__m128 a, __m128 b) {
  __asm__("addps %1, %0" : "+x"(a) : "x"(b));
  return a;
}
inline __m128 subFirst(__m128 a, __m128 b) {
  __asm__("subps %1, %0" : "+x"(a) : "x"(b));
  return a;
}

// The quotients of one group of lanes: b / a.
struct Div32fGroup {
  // The table's values are built from small constants: 1.0 | 2.0 is +Inf,
  // 1.0 | -2.0 is -Inf, 3.0 | +Inf the NaN 0x7FC00000.
  __m128 one = _mm_set1_ps(1.0f);
  __m128 inf = _mm_or_ps(one, _mm_set1_ps(2.0f));
  __m128 nan = _mm_or_ps(_mm_set1_ps(3.0f), inf);

  static int zeroLanes(__m128 a) { return _mm_movemask_ps(_mm_cmpeq_ps(a, _mm_setzero_ps())); }
  // Whether either of two groups holds a zero divisor, in one mask: the
  // round's loop then keeps its bound in a register.
  static bool anyZero(__m128 a0, __m128 a1) {
    const __m128 zero = _mm_setzero_ps();
    return _mm_movemask_ps(_mm_or_ps(_mm_cmpeq_ps(a0, zero), _mm_cmpeq_ps(a1, zero))) != 0;
  }

  // No zero divisor: r = the estimate of 1/a, e = 1 - a*r, y0 = b*r, and
  // the quotient y0 + (y0 + e*y0)*e, each step in single precision.
  //
  // The inner sum is taken as y0*e + y0, which saves a register copy a
  // group: the same operations on the same values, so the same bits and
  // flags. Only a NaN payload could tell the orders apart, and it cannot:
  // where y0 is NaN the quotient is y0, the last addition's first operand;
  // where only e is NaN, both forms give e.
  __m128 estimated(__m128 a, __m128 b) const {
    const __m128 r = _mm_rcp_ps(a);
    const __m128 e = subFirst(one, mulFirst(a, r));
    const __m128 y0 = mulFirst(b, r);
    return addFirst(y0, mulFirst(addFirst(mulFirst(y0, e), y0), e));
  }

  // A zero divisor among the lanes: each lane correctly rounded, a zero
  // divisor's from the table and a NaN divisor's the NaN of the table. Those
  // lanes divide by 1 instead, so that they raise no flag.
  __m128 laneByLane(__m128 a, __m128 b) const {
    const __m128 zero = _mm_setzero_ps(), isZero = _mm_cmpeq_ps(a, zero);
    const __m128 special = _mm_or_ps(isZero, _mm_cmpunord_ps(a, a));
    alignas(16) uint32_t quotient[4], zeroDivisor[4], nanDivisor[4], positive[4], negative[4],
        table[2];
    const auto put = [](uint32_t* to, __m128 v) { _mm_store_ps(reinterpret_cast<Lum32f*>(to), v); };
    put(quotient, _mm_div_ps(b, _mm_or_ps(_mm_andnot_ps(special, a), _mm_and_ps(special, one))));
    put(zeroDivisor, isZero);
    put(nanDivisor, _mm_cmpunord_ps(a, a));
    // b > 0 and b < 0 from quiet comparisons (the ordered ones would trap on a
    // NaN where the caller unmasks invalid), denormals-are-zero alike: b
    // nonzero and ordered, then its sign bit as a mask (1.0 with b's sign
    // against 1.0).
    const __m128 signed_ = _mm_and_ps(_mm_cmpneq_ps(b, zero), _mm_cmpord_ps(b, b));
    const __m128 isNegative = _mm_cmpneq_ps(_mm_or_ps(_mm_and_ps(b, _mm_set1_ps(-0.0f)), one), one);
    put(positive, _mm_andnot_ps(isNegative, signed_));
    put(negative, _mm_and_ps(isNegative, signed_));
    _mm_store_ss(reinterpret_cast<Lum32f*>(&table[0]), inf);
    _mm_store_ss(reinterpret_cast<Lum32f*>(&table[1]), nan);
    for (int l = 0; l < 4; ++l) {
      if (zeroDivisor[l] != 0)
        quotient[l] = div32fByZero(positive[l] != 0, negative[l] != 0, table[0], table[1]);
      else if (nanDivisor[l] != 0)
        quotient[l] = table[1];
    }
    return _mm_load_ps(reinterpret_cast<const Lum32f*>(quotient));
  }
};
#endif

#if LUM_BUILD >= 1
// One group of lanes; `zero` is set when a divisor was zero.
inline __m128 divGroup(const Div32fGroup& g, __m128 a, __m128 b, bool& zero) {
  if (Div32fGroup::zeroLanes(a) == 0) return g.estimated(a, b);
  zero = true;
  return g.laneByLane(a, b);
}

// Two lanes and one lane, the others padded with 1.0, never a zero divisor.
// Pixels may lie at any byte address: they pass through aligned copies,
// which the compiler turns into direct loads and stores.
inline __m128 loadPair(const Lum32f* p, __m128 one) {
  alignas(8) Lum32f t[2];
  __builtin_memcpy(t, p, 8);
  return _mm_loadl_pi(one, reinterpret_cast<const __m64*>(t));
}
inline void storePair(Lum32f* p, __m128 v) {
  alignas(8) Lum32f t[2];
  _mm_storel_pi(reinterpret_cast<__m64*>(t), v);
  __builtin_memcpy(p, t, 8);
}
inline __m128 loadOne(const Lum32f* p, __m128 one) {
  Lum32f t[1];
  __builtin_memcpy(t, p, 4);
  return _mm_move_ss(one, _mm_load_ss(t));
}
inline void storeOne(Lum32f* p, __m128 v) {
  Lum32f t[1];
  _mm_store_ss(t, v);
  __builtin_memcpy(p, t, 4);
}

inline void divPair(const Div32fGroup& g, const Lum32f* a, const Lum32f* b, Lum32f* d, bool& zero) {
  storePair(d, divGroup(g, loadPair(a, g.one), loadPair(b, g.one), zero));
}
inline void divOne(const Div32fGroup& g, const Lum32f* a, const Lum32f* b, Lum32f* d, bool& zero) {
  storeOne(d, divGroup(g, loadOne(a, g.one), loadOne(b, g.one), zero));
}

// The last 0..3 elements from i: a pair if two remain, then one.
inline void divPairAndOne(const Div32fGroup& g, const Lum32f* a, const Lum32f* b, Lum32f* d, int i,
                          int len, bool& zero) {
  if (i + 2 <= len) divPair(g, a + i, b + i, d + i, zero), i += 2;
  if (i < len) divOne(g, a + i, b + i, d + i, zero);
}

template <bool kAlignedSources>
inline __m128 loadSource(const Lum32f* p) {
  return kAlignedSources ? _mm_load_ps(p) : _mm_loadu_ps(p);
}

// A round of eight from i (both registers one group) holding a zero divisor:
// lane by lane, away from the loop that meets one only there.
template <bool kAlignedSources>
__attribute__((noinline, cold)) void divRoundWithAZero(const Div32fGroup& g, const Lum32f* a,
                                                       const Lum32f* b, Lum32f* d, int i,
                                                       bool& zero) {
  zero = true;
  for (int at = i; at < i + 8; at += 4)
    _mm_store_ps(d + at, g.laneByLane(loadSource<kAlignedSources>(a + at),
                                      loadSource<kAlignedSources>(b + at)));
}

// From i, with the destination 16-byte aligned: rounds of eight elements,
// both registers one group, then one group of four. Returns where it stopped.
// Where neither register holds a zero divisor both take the estimate.
template <bool kAlignedSources>
inline int divAlignedBody(const Div32fGroup& g, const Lum32f* a, const Lum32f* b, Lum32f* d, int i,
                          int len, bool& zero) {
  for (const int last = len - 8; i <= last; i += 8) {
    const __m128 a0 = loadSource<kAlignedSources>(a + i),
                 a1 = loadSource<kAlignedSources>(a + i + 4);
    if (__builtin_expect(Div32fGroup::anyZero(a0, a1), 0)) {
      divRoundWithAZero<kAlignedSources>(g, a, b, d, i, zero);
      continue;
    }
    _mm_store_ps(d + i, g.estimated(a0, loadSource<kAlignedSources>(b + i)));
    _mm_store_ps(d + i + 4, g.estimated(a1, loadSource<kAlignedSources>(b + i + 4)));
  }
  if (i + 4 <= len) {
    _mm_store_ps(d + i, divGroup(g, loadSource<kAlignedSources>(a + i),
                                 loadSource<kAlignedSources>(b + i), zero));
    i += 4;
  }
  return i;
}
#endif

// The first element at or below `i` that starts a group of the row's own
// layout: a group of four from the start where an operand does not start at
// a whole float; otherwise a round of eight from the first element whose
// destination is 16-byte aligned (the one, two or three before it form the
// leading groups).
inline int groupStart(const Lum32f* a, const Lum32f* b, const Lum32f* d, int i) {
  if (!isAligned(a, 4) || !isAligned(b, 4) || !isAligned(d, 4)) return i & ~3;
  const int lead = int((16 - (reinterpret_cast<uintptr_t>(d) & 15)) & 15) / 4;
  return i < lead ? i : lead + ((i - lead) & ~7);
}

// Whether the rows of a region can be divided as one row: they follow one
// another in all three images, and every row ends where a group ends and
// the next row's groups start where the whole row's would (rows of whole
// rounds of eight from an aligned destination, or of whole groups of four
// where an operand does not start at a whole float), so that no pixel
// changes its group.
inline bool rowsJoinInGroups(const Lum32f* a, int aStep, const Lum32f* b, int bStep,
                             const Lum32f* d, int dStep, LumSize roi) {
  if (!rowsJoin(4 * roi.width, roi.height, aStep, bStep, dStep)) return false;
  if (!isAligned(a, 4) || !isAligned(b, 4) || !isAligned(d, 4)) return roi.width % 4 == 0;
  return isAligned(d, 16) && roi.width % 8 == 0;
}
}  // namespace

// ---- Row kernel (k1..k5) and its form in two pieces (k4, k5) --------------------------

#if LUM_BUILD >= 1
int ownlumsDiv_32f(const Lum32f* pSrc1, const Lum32f* pSrc2, Lum32f* pDst, int len) {
  const Div32fGroup g;
  const Lum32f *a = pSrc1, *b = pSrc2;
  Lum32f* d = pDst;
  bool zero = false;
  int i = 0;
  if (!isAligned(a, 4) || !isAligned(b, 4) || !isAligned(d, 4)) {
    // Pixels at addresses that are not whole floats: unaligned groups of four.
    for (; i + 4 <= len; i += 4)
      _mm_storeu_ps(d + i, divGroup(g, _mm_loadu_ps(a + i), _mm_loadu_ps(b + i), zero));
    divPairAndOne(g, a, b, d, i, len, zero);
    return zero;
  }
  // One element, then a pair, until the destination is 16-byte aligned.
  if (!isAligned(d, 8)) divOne(g, a, b, d, zero), i = 1;
  if (i + 2 <= len && !isAligned(d + i, 16)) divPair(g, a + i, b + i, d + i, zero), i += 2;
  if (i < len) {
    i = isAligned(a + i, 16) && isAligned(b + i, 16)
            ? divAlignedBody<true>(g, a, b, d, i, len, zero)
            : divAlignedBody<false>(g, a, b, d, i, len, zero);
    divPairAndOne(g, a, b, d, i, len, zero);
  }
  return zero;
}
#endif

#if LUM_BUILD >= 4
namespace {
// Rows of 4096 pixels or more are cut in two pieces in k4 and k5, which
// threads may share. The second piece starts where a group of the whole row
// starts, so that every pixel shares its group with the same neighbours as
// in the whole row (a zero divisor in a group changes how the others are
// computed).
constexpr int kDiv32fRowInTwo = 4096;

inline int div32fRows(const Lum32f* pSrc1, int src1Step, const Lum32f* pSrc2, int src2Step,
                      Lum32f* pDst, int dstStep, LumSize roiSize, int team) {
  return divKernelRows(pSrc1, src1Step, pSrc2, src2Step, pDst, dstStep, roiSize, team,
                       ownlumsDiv_32f, groupStart);
}
}  // namespace

// One long row in its two pieces, on the threads its pixels pay for.
int ownlumsDiv_32f_omp(const Lum32f* pSrc1, const Lum32f* pSrc2, Lum32f* pDst, int len) {
  return div32fRows(pSrc1, 0, pSrc2, 0, pDst, 0, LumSize{len, 1},
                    teamFor(2, len, kDiv32fPixelsPerThread));
}
#endif

LumStatus lumsDiv_32f(const Lum32f* pSrc1, const Lum32f* pSrc2, Lum32f* pDst, int len) {
  if (const LumStatus st = divRowArguments(pSrc1, pSrc2, pDst, len)) return st;
#if LUM_BUILD == 0
  const bool zero = divRow32fGeneric(pSrc1, pSrc2, pDst, len);
#elif LUM_BUILD >= 4
  const bool zero = (len >= kDiv32fRowInTwo ? ownlumsDiv_32f_omp(pSrc1, pSrc2, pDst, len)
                                            : ownlumsDiv_32f(pSrc1, pSrc2, pDst, len)) != 0;
#else
  const bool zero = ownlumsDiv_32f(pSrc1, pSrc2, pDst, len) != 0;
#endif
  return divStatus(zero);
}

// Row by row through the row function; in k4 and k5 long rows go to the
// kernel's pieces directly, all of them in one region.
LumStatus ownlumiDiv_32f(const Lum32f* pSrc1, int src1Step, const Lum32f* pSrc2, int src2Step,
                         Lum32f* pDst, int dstStep, LumSize roiSize) {
#if LUM_BUILD >= 4
  if (roiSize.width >= kDiv32fRowInTwo) {
    const int team = divTeam<Lum32f>(dstStep, roiSize, kDiv32fPixelsPerThread);
    return divStatus(div32fRows(pSrc1, src1Step, pSrc2, src2Step, pDst, dstStep, roiSize, team) !=
                     0);
  }
#endif
#if LUM_BUILD >= 1
  if (rowsJoinInGroups(pSrc1, src1Step, pSrc2, src2Step, pDst, dstStep, roiSize))
    return divStatus(ownlumsDiv_32f(pSrc1, pSrc2, pDst, roiSize.width * roiSize.height) != 0);
#endif
  return divRows(pSrc1, src1Step, pSrc2, src2Step, pDst, dstStep, roiSize,
                 [=](const Lum32f* a, const Lum32f* b, Lum32f* d) {
                   return lumsDiv_32f(a, b, d, roiSize.width);
                 });
}

LUM_END_BUILD

extern "C" LumStatus LUM_ENTRY(lumiDiv_32f_C1R)(const Lum32f* pSrc1, int src1Step,
                                                const Lum32f* pSrc2, int src2Step, Lum32f* pDst,
                                                int dstStep, LumSize roiSize) {
  using namespace lum::LUM_TAG;
  if (const LumStatus st = divArguments(pSrc1, src1Step, pSrc2, src2Step, pDst, dstStep, roiSize))
    return st;
  return ownlumiDiv_32f(pSrc1, src1Step, pSrc2, src2Step, pDst, dstStep, roiSize);
}
