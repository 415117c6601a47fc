// lumiMul_32f_C1R: pDst = pSrc1 * pSrc2 in single precision, per pixel.
// NaN and infinities propagate as the floating-point unit gives them; the
// caller's rounding and denormal settings apply unchanged.
#include "image/arith/mul_rows.h"

LUM_BEGIN_BUILD

namespace {

// Rows shorter than 11 pixels are cheaper pixel by pixel than through the
// alignment prologue; longer ones go 8 pixels (two registers) a block.
struct Mul32fOp {
  static constexpr int kMinRow = 11;
  static constexpr int kBlock = 8;
  Lum32f scalar(Lum32f a, Lum32f b) const { return a * b; }
#if LUM_BUILD >= 1
  __m128 vector(__m128 a, __m128 b) const { return _mm_mul_ps(a, b); }
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
                                                const Lum32f* pSrc2, int src2Step,
                                                Lum32f* pDst, int dstStep, LumSize roiSize) {
  using namespace lum::LUM_TAG;
  if (pSrc1 == nullptr || pSrc2 == nullptr || pDst == nullptr) return lumStsNullPtrErr;
  if (roiSize.height < 1 || roiSize.width < 1) return lumStsSizeErr;
  // The generic and SSE-only builds run serially; from SSE2 on the rows are
  // shared out among the library's threads whatever the size.
  mulImageRows(pSrc1, src1Step, pSrc2, src2Step, pDst, dstStep, roiSize,
               [] { return Mul32fOp(); },
               [](auto a, auto b, auto d, int n) { ownsMul_32f(a, b, d, n); }, kBuild >= 2);
  return lumStsNoErr;
}
