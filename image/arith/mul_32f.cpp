// lumiMul_32f_C1R: pDst = pSrc1 * pSrc2 in single precision, per pixel.
// NaN and infinities propagate as the floating-point unit gives them; the
// caller's rounding and denormal settings apply unchanged.
#include "image/build.h"

#if LUM_BUILD >= 1
#include <xmmintrin.h>
#endif

LUM_BEGIN_BUILD

namespace {

inline void mulScalar(const Lum32f* a, const Lum32f* b, Lum32f* d, int from, int to) {
  for (int i = from; i < to; ++i) storePixel(d + i, loadPixel(a + i) * loadPixel(b + i));
}

#if LUM_BUILD >= 1
template <bool kAlignedA, bool kAlignedB, bool kAlignedD>
inline int mulBlocks8(const Lum32f* a, const Lum32f* b, Lum32f* d, int i, int len) {
  for (; i + 8 <= len; i += 8) {
    const __m128 a0 = kAlignedA ? _mm_load_ps(a + i) : _mm_loadu_ps(a + i);
    const __m128 a1 = kAlignedA ? _mm_load_ps(a + i + 4) : _mm_loadu_ps(a + i + 4);
    const __m128 b0 = kAlignedB ? _mm_load_ps(b + i) : _mm_loadu_ps(b + i);
    const __m128 b1 = kAlignedB ? _mm_load_ps(b + i + 4) : _mm_loadu_ps(b + i + 4);
    if (kAlignedD) {
      _mm_store_ps(d + i, _mm_mul_ps(a0, b0));
      _mm_store_ps(d + i + 4, _mm_mul_ps(a1, b1));
    } else {
      _mm_storeu_ps(d + i, _mm_mul_ps(a0, b0));
      _mm_storeu_ps(d + i + 4, _mm_mul_ps(a1, b1));
    }
  }
  return i;
}
#endif

// Rows shorter than this are cheaper pixel by pixel than through the
// alignment prologue.
constexpr int kMinVectorRow = 11;

}  // namespace

void ownsMul_32f(const Lum32f* a, const Lum32f* b, Lum32f* d, int len) {
#if LUM_BUILD == 0
  mulScalar(a, b, d, 0, len);
#else
  if (len < kMinVectorRow) {
    mulScalar(a, b, d, 0, len);
    return;
  }
  int i = 0;
  if (isAligned(d, 4)) {
    // At most three pixels bring the destination to a 16-byte boundary.
    while (!isAligned(d + i, 16)) {
      storePixel(d + i, loadPixel(a + i) * loadPixel(b + i));
      ++i;
    }
    const bool alignedA = isAligned(a + i, 16), alignedB = isAligned(b + i, 16);
    if (alignedA && alignedB)
      i = mulBlocks8<true, true, true>(a, b, d, i, len);
    else if (alignedA)
      i = mulBlocks8<true, false, true>(a, b, d, i, len);
    else if (alignedB)
      i = mulBlocks8<false, true, true>(a, b, d, i, len);
    else
      i = mulBlocks8<false, false, true>(a, b, d, i, len);
  } else {
    i = mulBlocks8<false, false, false>(a, b, d, i, len);
  }
  mulScalar(a, b, d, i, len);
#endif
}

LUM_END_BUILD

extern "C" LumStatus LUM_ENTRY(lumiMul_32f_C1R)(const Lum32f* pSrc1, int src1Step,
                                                const Lum32f* pSrc2, int src2Step,
                                                Lum32f* pDst, int dstStep, LumSize roiSize) {
  using namespace lum::LUM_TAG;
  if (pSrc1 == nullptr || pSrc2 == nullptr || pDst == nullptr) return lumStsNullPtrErr;
  if (roiSize.height < 1 || roiSize.width < 1) return lumStsSizeErr;

  const int width = roiSize.width;
  const auto row = [=](int y) {
    ownsMul_32f(rowAt(pSrc1, src1Step, y), rowAt(pSrc2, src2Step, y),
                rowAt(pDst, dstStep, y), width);
  };
  // The generic and SSE-only builds run serially; from SSE2 on the rows are
  // shared out among the library's threads whatever the size.
  if (kBuild >= 2)
    parallelRows(roiSize.height, row);
  else
    serialRows(roiSize.height, row);
  return lumStsNoErr;
}
