// What the 8u and 16s scaled multiplications share in one build: the row
// driver of the vector kernels and the row loop of the image functions.
//
// A case of the multiplication is an operation type Op with
//   kMinRow, kBlock      rows shorter than kMinRow are done pixel by pixel;
//                        longer ones in blocks of kBlock pixels
//   scalar(a, b)         one pixel, through the rule of scale_rule.h
//   vector(va, vb)       one register of pixels (k1..k5)
#ifndef LUM_IMAGE_ARITH_MUL_INT_H
#define LUM_IMAGE_ARITH_MUL_INT_H

#include "image/arith/int_vec.h"
#include "image/arith/scale_rule.h"
#include "image/build.h"

LUM_BEGIN_BUILD

// One pixel of a case, read and written at any address: 16s rows may start
// at odd ones.
template <class T, class Op>
inline void mulPixel(const T* a, const T* b, T* d, int i, const Op& op) {
  storePixel(d + i, op.scalar(loadPixel(a + i), loadPixel(b + i)));
}

template <class T, class Op>
inline void mulScalarRow(const T* a, const T* b, T* d, int from, int to, const Op& op) {
  for (int i = from; i < to; ++i) mulPixel(a, b, d, i, op);
}

#if LUM_BUILD >= 1

// Whole blocks from pixel i on; returns the first pixel not done.
template <bool kAlignedA, bool kAlignedB, bool kAlignedD, class T, class Op>
inline int mulBlocks(const T* a, const T* b, T* d, int i, int len, const Op& shared) {
  // A private copy: byte stores through d may alias the caller's operation,
  // which would make the compiler reload its constants on every block.
  const Op op = shared;
  constexpr int kLanes = kVecBytes / static_cast<int>(sizeof(T));
  constexpr int kRegisters = Op::kBlock / kLanes;
  static_assert(kRegisters * kLanes == Op::kBlock, "a block is whole registers");
  for (; i + Op::kBlock <= len; i += Op::kBlock) {
    for (int r = 0; r < kRegisters; ++r) {
      const int at = i + r * kLanes;
      const Vec va = kAlignedA ? vLoadAligned(a + at) : vLoad(a + at);
      const Vec vb = kAlignedB ? vLoadAligned(b + at) : vLoad(b + at);
      const Vec vd = op.vector(va, vb);
      if (kAlignedD)
        vStoreAligned(d + at, vd);
      else
        vStore(d + at, vd);
    }
  }
  return i;
}

// One row: short rows pixel by pixel; otherwise pixels until the destination
// is register-aligned, whole blocks, then the remaining pixels. A 16s
// destination that is not even pixel-aligned can never be brought to a
// register boundary and is stored unaligned throughout.
template <class T, class Op>
inline void mulRow(const T* a, const T* b, T* d, int len, const Op& op) {
  if (len < Op::kMinRow) {
    mulScalarRow(a, b, d, 0, len, op);
    vEnd();  // the operation's constants may have touched the registers
    return;
  }
  int i = 0;
  if (sizeof(T) == 1 || isAligned(d, sizeof(T))) {
    while (!isAligned(d + i, kVecBytes)) {
      mulPixel(a, b, d, i, op);
      ++i;
    }
    if (kBuild >= 2) {
      // Separate bodies for aligned and unaligned source loads.
      const bool alignedA = isAligned(a + i, kVecBytes), alignedB = isAligned(b + i, kVecBytes);
      if (alignedA && alignedB)
        i = mulBlocks<true, true, true>(a, b, d, i, len, op);
      else if (alignedA)
        i = mulBlocks<true, false, true>(a, b, d, i, len, op);
      else if (alignedB)
        i = mulBlocks<false, true, true>(a, b, d, i, len, op);
      else
        i = mulBlocks<false, false, true>(a, b, d, i, len, op);
    } else {
      i = mulBlocks<false, false, true>(a, b, d, i, len, op);
    }
  } else {
    i = mulBlocks<false, false, false>(a, b, d, i, len, op);
  }
  mulScalarRow(a, b, d, i, len, op);
  vEnd();
}

#endif  // LUM_BUILD >= 1

// The image loop of one case. The generic build has no row kernels and runs
// the case as a plain loop over the operation made by makeOp(); the others
// call `kernel` once per row, in a parallel region when `parallel` says so.
// Both are generic lambdas, so that the generic build never names a kernel
// it does not have, and the vector builds never build an operation's
// register constants outside a kernel (which clears the MMX state in k1).
template <class T, class MakeOp, class Kernel>
inline void mulImageRows(const T* pSrc1, int src1Step, const T* pSrc2, int src2Step, T* pDst,
                         int dstStep, LumSize roiSize, const MakeOp& makeOp, const Kernel& kernel,
                         bool parallel) {
  const int width = roiSize.width;
  if constexpr (kBuild == 0) {
    (void)kernel;
    (void)parallel;
    const auto op = makeOp();
    serialRows(roiSize.height, [&](int y) {
      mulScalarRow(rowAt(pSrc1, src1Step, y), rowAt(pSrc2, src2Step, y), rowAt(pDst, dstStep, y),
                   0, width, op);
    });
  } else {
    (void)makeOp;
    const auto body = [&](int y) {
      kernel(rowAt(pSrc1, src1Step, y), rowAt(pSrc2, src2Step, y), rowAt(pDst, dstStep, y), width);
    };
    if (parallel)
      parallelRows(roiSize.height, body);
    else
      serialRows(roiSize.height, body);
  }
}

// Width plus height without overflow, for the parallel thresholds.
inline long long sizeSum(LumSize roiSize) {
  return static_cast<long long>(roiSize.width) + roiSize.height;
}

LUM_END_BUILD

#endif
