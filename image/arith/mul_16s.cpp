// lumiMul_16s_C1RSfs: pDst = saturate(round(pSrc1 * pSrc2 * 2^-scaleFactor)),
// rounded half to even, per pixel; and its row kernels ownsMul_16s*.
//
// The kernels form exact 32-bit products from the low and high halves of the
// 16-bit products (vMul16s), work in 32-bit lanes and pack back with signed
// saturation.
#include "image/arith/mul_rows.h"

LUM_BEGIN_BUILD

namespace {

// ---- The five cases -----------------------------------------------------------

// saturate(p): the pack saturates.
struct Mul16sPlainOp {
  static constexpr int kMinRow = kBuild == 1 ? 11 : 23;
  static constexpr int kBlock = kBuild == 1 ? 8 : 16;
  LUM_MMX_INLINE Mul16sPlainOp() {}
  LUM_MMX_INLINE Lum16s scalar(int a, int b) const { return mulPlain<Lum16s>(a, b); }
#if LUM_BUILD >= 1
  LUM_MMX_INLINE Vec vector(Vec a, Vec b) const {
    const Products16s p = vMul16s(a, b);
    return vPackS32(p.lo, p.hi);
  }
#endif
};

// Rounding shift by s (1..30): p + 2^(s-1) - 1 + ((p >> s) & 1), shifted
// arithmetically. The bit is isolated with a logical shift and a mask; for
// s = 1 the constant is 0.
struct Mul16sRightShiftOp {
  static constexpr int kMinRow = kBuild == 1 ? 7 : 15;
  static constexpr int kBlock = kBuild == 1 ? 4 : 8;
  int s;
  LUM_MMX_INLINE explicit Mul16sRightShiftOp(int shift) : s(shift) {}
  LUM_MMX_INLINE Lum16s scalar(int a, int b) const { return mulRightShift<Lum16s>(a, b, s); }
#if LUM_BUILD >= 1
  // The bit (p >> s) & 1 is taken as a mask: all ones where bit s of p is
  // set, subtracted to add 1 (one operation less than a shift by a count).
  Vec bitS = vSet32(1 << s), bias = vSet32((1 << (s - 1)) - 1), shift = vCount(s);
  LUM_MMX_INLINE Vec round(Vec p) const {
    const Vec odd = vCmpEq32(vAnd(p, bitS), bitS);
    return vShrS32(vSub32(vAdd32(p, bias), odd), shift);
  }
  LUM_MMX_INLINE Vec vector(Vec a, Vec b) const {
    const Products16s p = vMul16s(a, b);
    return vPackS32(round(p.lo), round(p.hi));
  }
#endif
};

// Scale factor 1: the s = 1 form, (p + ((p >> 1) & 1)) >> 1.
struct Mul16sHalfOp {
  static constexpr int kMinRow = Mul16sRightShiftOp::kMinRow;
  static constexpr int kBlock = Mul16sRightShiftOp::kBlock;
  LUM_MMX_INLINE Mul16sHalfOp() {}
  LUM_MMX_INLINE Lum16s scalar(int a, int b) const { return mulHalf<Lum16s>(a, b); }
#if LUM_BUILD >= 1
  Vec one = vSet32(1);
  LUM_MMX_INLINE Vec round(Vec p) const {
    return vShrS32By(vAdd32(p, vAnd(vShrU32By(p, 1), one)), 1);
  }
  LUM_MMX_INLINE Vec vector(Vec a, Vec b) const {
    const Products16s p = vMul16s(a, b);
    return vPackS32(round(p.lo), round(p.hi));
  }
#endif
};

// saturate(saturate(p) << k), k = 1..14: the first pack clamps; each 16-bit
// value is then put in the upper half of a 32-bit lane and shifted right
// arithmetically by 16 - k, an exact multiplication by 2^k; the second pack
// clamps again.
struct Mul16sLeftShiftOp {
  static constexpr int kMinRow = kBuild == 1 ? 11 : 15;
  static constexpr int kBlock = 8;
  int k;
  LUM_MMX_INLINE explicit Mul16sLeftShiftOp(int shift) : k(shift) {}
  LUM_MMX_INLINE Lum16s scalar(int a, int b) const { return mul16sLeftShift(a, b, k); }
#if LUM_BUILD >= 1
  Vec zero = vZero(), shift = vCount(16 - k);
  LUM_MMX_INLINE Vec vector(Vec a, Vec b) const {
    const Products16s p = vMul16s(a, b);
    const Vec q = vPackS32(p.lo, p.hi);
    return vPackS32(vShrS32(vUnpackLo16(zero, q), shift), vShrS32(vUnpackHi16(zero, q), shift));
  }
#endif
};

// By sign only: 0 where either pixel is 0; else 32767 when the signs agree
// and -32768 when they differ (0x7FFF with every bit flipped).
struct Mul16sSignOnlyOp {
  static constexpr int kMinRow = kBuild == 1 ? 11 : 23;
  static constexpr int kBlock = kBuild == 1 ? 8 : 16;
  LUM_MMX_INLINE Mul16sSignOnlyOp() {}
  LUM_MMX_INLINE Lum16s scalar(int a, int b) const { return mul16sSignOnly(a, b); }
#if LUM_BUILD >= 1
  Vec zero = vZero(), cMax = vSet16(32767);
  LUM_MMX_INLINE Vec vector(Vec a, Vec b) const {
    const Vec anyZero = vOr(vCmpEq16(a, zero), vCmpEq16(b, zero));
    const Vec differ = vShrS16By(vXor(a, b), 15);
    return vAndNot(anyZero, vXor(cMax, differ));
  }
#endif
};

}  // namespace

// ---- Row kernels (k1..k5) --------------------------------------------------------

#if LUM_BUILD >= 1
LUM_MMX_LEAF void ownsMul_16s(const Lum16s* a, const Lum16s* b, Lum16s* d, int len) {
  mulRow(a, b, d, len, Mul16sPlainOp());
}
LUM_MMX_LEAF void ownsMul_16s_1Sfs(const Lum16s* a, const Lum16s* b, Lum16s* d, int len) {
  mulRow(a, b, d, len, Mul16sHalfOp());
}
LUM_MMX_LEAF void ownsMul_16s_PosSfs(const Lum16s* a, const Lum16s* b, Lum16s* d, int len, int s) {
  mulRow(a, b, d, len, Mul16sRightShiftOp(s));
}
LUM_MMX_LEAF void ownsMul_16s_NegSfs(const Lum16s* a, const Lum16s* b, Lum16s* d, int len, int k) {
  mulRow(a, b, d, len, Mul16sLeftShiftOp(k));
}
LUM_MMX_LEAF void ownsMul_16s_Bound(const Lum16s* a, const Lum16s* b, Lum16s* d, int len) {
  mulRow(a, b, d, len, Mul16sSignOnlyOp());
}
#endif

namespace {

// The cases of 16s, for mulScaledImage (mul_rows.h).
struct Mul16sCases {
  using T = Lum16s;
  static constexpr long long kPixelsPerThread = kMul16sPixelsPerThread;
  static constexpr auto fill = LUM_ENTRY(lumiSet_16s_C1R);
  using Plain = Mul16sPlainOp;
  using SignOnly = Mul16sSignOnlyOp;
  using LeftShift = Mul16sLeftShiftOp;
  using Half = Mul16sHalfOp;
  using RightShift = Mul16sRightShiftOp;
#if LUM_BUILD >= 1
  static constexpr auto plain = ownsMul_16s, signOnly = ownsMul_16s_Bound, half = ownsMul_16s_1Sfs;
  static constexpr auto leftShift = ownsMul_16s_NegSfs, rightShift = ownsMul_16s_PosSfs;
#else  // no row kernels in the generic build (mulImageRows never calls one): their types only
  static constexpr decltype(&ownsMul_16s) plain = nullptr, signOnly = nullptr, half = nullptr;
  static constexpr decltype(&ownsMul_16s_NegSfs) leftShift = nullptr, rightShift = nullptr;
#endif
};

}  // namespace

LUM_END_BUILD

LUM_MUL_SCALED_ENTRY(lumiMul_16s_C1RSfs, Lum16s, Mul16sCases)
