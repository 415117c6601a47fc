// lumiMul_32f_C1R: pDst = pSrc1 * pSrc2 in single precision, per pixel.
// NaN and infinities propagate as the floating-point unit gives them; the
// caller's rounding and denormal settings apply unchanged.
#include "image/arith/mul_rows.h"

LUM_BEGIN_BUILD

namespace {

// Rows shorter than 11 pixels are cheaper pixel by pixel than through the
// alignment prologue; longer ones go 8 pixels (two registers) a block.
//
// In k1..k5 every pixel is computed by the SSE multiply with a as its
// destination operand: single pixels of the prologue and tail as well as the
// blocks, so that a row gives the same bits at every position. That includes
// flush-to-zero and denormals-are-zero, which k1's x87 would ignore, and
// NaN payloads: where both pixels are NaN the result is a's, quieted. The
// multiply is written out because the compiler may swap the operands of a
// product it considers commutative.
struct Mul32fOp {
  static constexpr int kMinRow = 11;
  static constexpr int kBlock = 8;
#if LUM_BUILD == 0
  Lum32f scalar(Lum32f a, Lum32f b) const { return a * b; }
#else
  __m128 vector(__m128 a, __m128 b) const {
    __asm__("mulps %1, %0" : "+x"(a) : "x"(b));
    return a;
  }
  Lum32f scalar(Lum32f a, Lum32f b) const {
    return _mm_cvtss_f32(vector(_mm_set_ss(a), _mm_set_ss(b)));
  }
#endif
};

}  // namespace

void ownsMul_32f(const Lum32f* a, const Lum32f* b, Lum32f* d, int len) {
#if LUM_BUILD == 0
  mulScalarRow(a, b, d, 0, len, Mul32fOp());
#else
  mulRow(a, b, d, len, Mul32fOp());
#endif
}

LUM_END_BUILD

extern "C" LumStatus LUM_ENTRY(lumiMul_32f_C1R)(const Lum32f* pSrc1, int src1Step,
                                                const Lum32f* pSrc2, int src2Step, Lum32f* pDst,
                                                int dstStep, LumSize roiSize) {
  using namespace lum::LUM_TAG;
  if (const LumStatus st = mulChecks(pSrc1, pSrc2, pDst, roiSize)) return st;
  mulImageRows(
      pSrc1, src1Step, pSrc2, src2Step, pDst, dstStep, roiSize, [] { return Mul32fOp(); },
      [](auto a, auto b, auto d, int n) { ownsMul_32f(a, b, d, n); }, lum::kMul32fPixelsPerThread);
  return lumStsNoErr;
}
