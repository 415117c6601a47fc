// lumiMul_8u_C1RSfs: pDst = saturate(round(pSrc1 * pSrc2 * 2^-scaleFactor)),
// rounded half to even, per pixel; and its row kernels ownsMul_8u*.
//
// The kernels multiply in 16-bit lanes: a product of two bytes is at most
// 65025 and fits, and every step after it is arranged to stay inside the
// lane as an unsigned value before the final pack with unsigned saturation
// (which reads its input as signed, so lanes above 32767 are avoided).
#include "image/arith/mul_rows.h"

LUM_BEGIN_BUILD

namespace {

#if LUM_BUILD >= 1
// The products of the low and of the high half of the bytes, widened to
// 16-bit lanes: at most 255 * 255, so they fit.
struct Products {
  Vec lo, hi;
};
LUM_MMX_INLINE Products products(Vec a, Vec b, Vec zero) {
  return {vMulLo16(vUnpackLo8(a, zero), vUnpackLo8(b, zero)),
          vMulLo16(vUnpackHi8(a, zero), vUnpackHi8(b, zero))};
}
#endif

// ---- The five cases -----------------------------------------------------------
// Block sizes and row minimums: a row must hold one block after the longest
// alignment prologue for the vector path to pay off.

// saturate(p): min(p, 255) in the lane, then pack.
struct Mul8uPlainOp {
  static constexpr int kMinRow = kBuild == 1 ? 23 : 31;
  static constexpr int kBlock = 16;
  LUM_MMX_INLINE Mul8uPlainOp() {}
  LUM_MMX_INLINE Lum8u scalar(int a, int b) const { return mulPlain<Lum8u>(a, b); }
#if LUM_BUILD >= 1
  Vec zero = vZero(), c255 = vSet16(255);
  LUM_MMX_INLINE Vec vector(Vec a, Vec b) const {
    const Products p = products(a, b, zero);
    return vPackUS16(vMin255U16(p.lo, c255), vMin255U16(p.hi, c255));
  }
#endif
};

// (p + ((p >> 1) & 1)) >> 1: at most 65026 before the shift, 32513 after.
struct Mul8uHalfOp {
  static constexpr int kMinRow = kBuild == 1 ? 15 : 31;
  static constexpr int kBlock = kBuild == 1 ? 8 : 16;
  LUM_MMX_INLINE Mul8uHalfOp() {}
  LUM_MMX_INLINE Lum8u scalar(int a, int b) const { return mulHalf<Lum8u>(a, b); }
#if LUM_BUILD >= 1
  Vec zero = vZero(), one = vSet16(1);
  LUM_MMX_INLINE Vec round(Vec p) const {
    return vShrU16By(vAdd16(p, vAnd(vShrU16By(p, 1), one)), 1);
  }
  LUM_MMX_INLINE Vec vector(Vec a, Vec b) const {
    const Products p = products(a, b, zero);
    return vPackUS16(round(p.lo), round(p.hi));
  }
#endif
};

// Rounding shift by s = 2..16. p + 2^(s-1) - 1 + bit can pass 2^16, so the
// lane works on h = p >> 1 and l = p & 1:
//   t = (l + 2^(s-1) - 1 + ((h >> (s-1)) & 1)) >> 1,  result = (h + t) >> (s-1)
// which is the same floor division done in two steps; every intermediate
// stays below 2^16 (h + t <= 32512 + 16384). The shifts by s - 1, whose
// count is known only at run time, are unsigned high multiplies by
// 2^(17-s): (x * 2^(17-s)) >> 16 == x >> (s-1) for any 16-bit x, in one
// operation where a shift by a register count takes two.
struct Mul8uRightShiftOp {
  static constexpr int kMinRow = kBuild == 1 ? 15 : 31;
  static constexpr int kBlock = kBuild == 1 ? 8 : 16;
  int s;
  LUM_MMX_INLINE explicit Mul8uRightShiftOp(int shift) : s(shift) {}
  LUM_MMX_INLINE Lum8u scalar(int a, int b) const { return mulRightShift<Lum8u>(a, b, s); }
#if LUM_BUILD >= 1
  Vec zero = vZero(), one = vSet16(1);
  Vec bias = vSet16((1 << (s - 1)) - 1), shiftRest = vSet16(1 << (17 - s));
  LUM_MMX_INLINE Vec round(Vec p) const {
    const Vec h = vShrU16By(p, 1);
    const Vec l = vAnd(p, one);
    const Vec odd = vAnd(vMulHiU16(h, shiftRest), one);
    const Vec t = vShrU16By(vAdd16(vAdd16(l, bias), odd), 1);
    return vMulHiU16(vAdd16(h, t), shiftRest);
  }
  LUM_MMX_INLINE Vec vector(Vec a, Vec b) const {
    const Products p = products(a, b, zero);
    return vPackUS16(round(p.lo), round(p.hi));
  }
#endif
};

// saturate(p << k), k = 1..7: clamping to 255 first gives the same result
// and keeps the shifted lane below 2^15.
struct Mul8uLeftShiftOp {
  static constexpr int kMinRow = kBuild == 1 ? 23 : 31;
  static constexpr int kBlock = 16;
  int k;
  LUM_MMX_INLINE explicit Mul8uLeftShiftOp(int shift) : k(shift) {}
  LUM_MMX_INLINE Lum8u scalar(int a, int b) const { return mul8uLeftShift(a, b, k); }
#if LUM_BUILD >= 1
  Vec zero = vZero(), c255 = vSet16(255), shift = vCount(k);
  LUM_MMX_INLINE Vec vector(Vec a, Vec b) const {
    const Products p = products(a, b, zero);
    return vPackUS16(vShl16(vMin255U16(p.lo, c255), shift), vShl16(vMin255U16(p.hi, c255), shift));
  }
#endif
};

// 255 where both bytes are nonzero: no multiplication at all.
struct Mul8uSignOnlyOp {
  static constexpr int kMinRow = kBuild == 1 ? 23 : 47;
  static constexpr int kBlock = kBuild == 1 ? 16 : 32;
  LUM_MMX_INLINE Mul8uSignOnlyOp() {}
  LUM_MMX_INLINE Lum8u scalar(int a, int b) const { return mul8uSignOnly(a, b); }
#if LUM_BUILD >= 1
  Vec zero = vZero(), ones = vCmpEq8(vZero(), vZero());
  LUM_MMX_INLINE Vec vector(Vec a, Vec b) const {
    return vXor(vOr(vCmpEq8(a, zero), vCmpEq8(b, zero)), ones);
  }
#endif
};

}  // namespace

// ---- Row kernels (k1..k5) --------------------------------------------------------

#if LUM_BUILD >= 1
LUM_MMX_LEAF void ownsMul_8u(const Lum8u* a, const Lum8u* b, Lum8u* d, int len) {
  mulRow(a, b, d, len, Mul8uPlainOp());
}
LUM_MMX_LEAF void ownsMul_8u_1Sfs(const Lum8u* a, const Lum8u* b, Lum8u* d, int len) {
  mulRow(a, b, d, len, Mul8uHalfOp());
}
LUM_MMX_LEAF void ownsMul_8u_PosSfs(const Lum8u* a, const Lum8u* b, Lum8u* d, int len, int s) {
  mulRow(a, b, d, len, Mul8uRightShiftOp(s));
}
LUM_MMX_LEAF void ownsMul_8u_NegSfs(const Lum8u* a, const Lum8u* b, Lum8u* d, int len, int k) {
  mulRow(a, b, d, len, Mul8uLeftShiftOp(k));
}
LUM_MMX_LEAF void ownsMul_8u_Bound(const Lum8u* a, const Lum8u* b, Lum8u* d, int len) {
  mulRow(a, b, d, len, Mul8uSignOnlyOp());
}
#endif

namespace {

// The cases of 8u, for mulScaledImage (mul_rows.h).
struct Mul8uCases {
  using T = Lum8u;
  static constexpr long long kPixelsPerThread = kMul8uPixelsPerThread;
  static constexpr auto fill = LUM_ENTRY(lumiSet_8u_C1R);
  using Plain = Mul8uPlainOp;
  using SignOnly = Mul8uSignOnlyOp;
  using LeftShift = Mul8uLeftShiftOp;
  using Half = Mul8uHalfOp;
  using RightShift = Mul8uRightShiftOp;
#if LUM_BUILD >= 1
  static constexpr auto plain = ownsMul_8u, signOnly = ownsMul_8u_Bound, half = ownsMul_8u_1Sfs;
  static constexpr auto leftShift = ownsMul_8u_NegSfs, rightShift = ownsMul_8u_PosSfs;
#else  // no row kernels in the generic build (mulImageRows never calls one): their types only
  static constexpr decltype(&ownsMul_8u) plain = nullptr, signOnly = nullptr, half = nullptr;
  static constexpr decltype(&ownsMul_8u_NegSfs) leftShift = nullptr, rightShift = nullptr;
#endif
};

}  // namespace

LUM_END_BUILD

LUM_MUL_SCALED_ENTRY(lumiMul_8u_C1RSfs, Lum8u, Mul8uCases)
