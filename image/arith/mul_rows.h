// What the multiplications share in one build: the row driver of the vector
// kernels, and the checks and the row loop of the image functions.
//
// A case of a multiplication is an operation type Op with
//   kMinRow, kBlock      rows shorter than kMinRow are done pixel by pixel;
//                        longer ones in blocks of kBlock pixels
//   scalar(a, b)         one pixel, through the rule of scale_rule.h
//   vector(va, vb)       one register of pixels (k1..k5), of Lanes<T>
// A row kernel (ownsMul_8u and the others) constructs its operation, whose
// register constants it holds, and runs mulRow: in k1 one MMX leaf routine
// (image/build.h), so the row driver, the operation's constructor and
// methods and everything they use are LUM_MMX_INLINE.
#ifndef LUM_IMAGE_ARITH_MUL_ROWS_H
#define LUM_IMAGE_ARITH_MUL_ROWS_H

#include "image/int_vec.h"
#include "image/arith/scale_rule.h"
#include "image/build.h"
#include "image/checks.h"

LUM_BEGIN_BUILD

// One pixel of a case, read and written at any address: 16s rows may start
// at odd ones.
template <class T, class Op>
LUM_MMX_INLINE void mulPixel(const T* a, const T* b, T* d, int i, const Op& op) {
  storePixel(d + i, op.scalar(loadPixel(a + i), loadPixel(b + i)));
}

template <class T, class Op>
LUM_MMX_INLINE void mulScalarRow(const T* a, const T* b, T* d, int from, int to, const Op& op) {
  for (int i = from; i < to; ++i) mulPixel(a, b, d, i, op);
}

#if LUM_BUILD >= 1

// The registers a pixel type is computed in. Integer pixels use the
// build's integer registers (MMX in k1, SSE2 from k2 on); float pixels use
// the SSE registers in every vector build.
template <class T>
struct Lanes {
  static constexpr int kBytes = kVecBytes;
  LUM_MMX_INLINE static Vec load(const T* p) { return vLoad(p); }
  LUM_MMX_INLINE static Vec loadAligned(const T* p) { return vLoadAligned(p); }
  LUM_MMX_INLINE static void store(T* p, Vec v) { vStore(p, v); }
  LUM_MMX_INLINE static void storeAligned(T* p, Vec v) { vStoreAligned(p, v); }
  LUM_MMX_INLINE static void end() { vEnd(); }
};

template <>
struct Lanes<Lum32f> {
  static constexpr int kBytes = 16;
  LUM_MMX_INLINE static __m128 load(const Lum32f* p) { return _mm_loadu_ps(p); }
  LUM_MMX_INLINE static __m128 loadAligned(const Lum32f* p) { return _mm_load_ps(p); }
  LUM_MMX_INLINE static void store(Lum32f* p, __m128 v) { _mm_storeu_ps(p, v); }
  LUM_MMX_INLINE static void storeAligned(Lum32f* p, __m128 v) { _mm_store_ps(p, v); }
  LUM_MMX_INLINE static void end() {}
};

// Whole blocks from pixel i on; returns the first pixel not done.
template <bool kAlignedA, bool kAlignedB, bool kAlignedD, class T, class Op>
LUM_MMX_INLINE int mulBlocks(const T* a, const T* b, T* d, int i, int len, const Op& shared) {
  // A private copy: byte stores through d may alias the caller's operation,
  // which would make the compiler reload its constants on every block.
  const Op op = shared;
  using L = Lanes<T>;
  constexpr int kLanes = L::kBytes / static_cast<int>(sizeof(T));
  constexpr int kRegisters = Op::kBlock / kLanes;
  static_assert(kRegisters * kLanes == Op::kBlock, "a block is whole registers");
  const int last = len - Op::kBlock;  // the last pixel a block may start at
  for (; i <= last; i += Op::kBlock) {
    for (int r = 0; r < kRegisters; ++r) {
      const int at = i + r * kLanes;
      const auto va = kAlignedA ? L::loadAligned(a + at) : L::load(a + at);
      const auto vb = kAlignedB ? L::loadAligned(b + at) : L::load(b + at);
      const auto vd = op.vector(va, vb);
      if (kAlignedD)
        L::storeAligned(d + at, vd);
      else
        L::store(d + at, vd);
    }
  }
  return i;
}

// One row: short rows pixel by pixel; otherwise pixels until the destination
// is register-aligned, whole blocks, then the remaining pixels. A 16s or 32f
// destination that is not even pixel-aligned can never be brought to a
// register boundary and is stored unaligned throughout.
template <class T, class Op>
LUM_MMX_INLINE void mulRow(const T* a, const T* b, T* d, int len, const Op& op) {
  using L = Lanes<T>;
  if (len < Op::kMinRow) {
    mulScalarRow(a, b, d, 0, len, op);
    L::end();  // the operation's constants may have touched the registers
    return;
  }
  int i = 0;
  if (sizeof(T) == 1 || isAligned(d, sizeof(T))) {
    while (!isAligned(d + i, L::kBytes)) {
      mulPixel(a, b, d, i, op);
      ++i;
    }
    if (L::kBytes == 16) {
      // Separate bodies for aligned and unaligned source loads (the 8-byte
      // MMX loads need no alignment).
      const bool alignedA = isAligned(a + i, 16), alignedB = isAligned(b + i, 16);
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
  L::end();
}

#endif  // LUM_BUILD >= 1

// The image functions' checks: a null pointer, then a size below 1 (height
// first). Steps are not checked: zero and negative ones are taken as given.
inline LumStatus mulChecks(const void* pSrc1, const void* pSrc2, const void* pDst,
                           LumSize roiSize) {
  return firstFailing(pointers(pSrc1, pSrc2, pDst), sizes(roiSize.height, roiSize.width));
}

// The image loop of one case. The generic build has no row kernels and runs
// the case as a plain loop over the operation made by makeOp(), on the
// calling thread; the others call `kernel` once per row, in a parallel region
// where every thread gets at least minPixelsPerThread pixels and the
// destination rows do not overlap. On the calling thread alone, rows that
// follow one another in all three images are one row: a pixel's product
// does not depend on where its row starts, and the per-row work (a kernel
// call, its alignment prologue and tail) is then paid once.
// Both are generic lambdas, so that the generic build never names a kernel
// it does not have, and the vector builds never build an operation's
// register constants outside a kernel (k1's kernels are the MMX leaf
// routines that end the MMX state).
template <class T, class MakeOp, class Kernel>
inline void mulImageRows(const T* pSrc1, int src1Step, const T* pSrc2, int src2Step, T* pDst,
                         int dstStep, LumSize roiSize, const MakeOp& makeOp, const Kernel& kernel,
                         long long minPixelsPerThread) {
  const int width = roiSize.width, pixelBytes = static_cast<int>(sizeof(T));
  const bool join = rowsJoin(width * pixelBytes, roiSize.height, src1Step, src2Step, dstStep);
  if constexpr (kBuild == 0) {
    (void)kernel;
    (void)minPixelsPerThread;
    const auto op = makeOp();
    if (join) return mulScalarRow(pSrc1, pSrc2, pDst, 0, width * roiSize.height, op);
    serialRows(roiSize.height, [&](int y) {
      mulScalarRow(rowAt(pSrc1, src1Step, y), rowAt(pSrc2, src2Step, y), rowAt(pDst, dstStep, y), 0,
                   width, op);
    });
  } else {
    (void)makeOp;
    const int team = teamForRows(roiSize.height, dstStep, roiSize, pixelBytes, minPixelsPerThread);
    if (team == 1 && join) return kernel(pSrc1, pSrc2, pDst, width * roiSize.height);
    parallelRows(roiSize.height, team, [&](int y) {
      kernel(rowAt(pSrc1, src1Step, y), rowAt(pSrc2, src2Step, y), rowAt(pDst, dstStep, y), width);
    });
  }
}

// The image function of a scaled integer multiplication (8u, 16s): the
// checks, then the case of the scale factor: the region filled with 0, or
// the rows of that case's operation. Cases describes a pixel type: T,
// kPixelsPerThread and fill(value, pDst, dstStep, roiSize); for each case its operation (Plain,
// SignOnly, LeftShift(k), Half, RightShift(s)) and row kernel (plain, signOnly, leftShift, half,
// rightShift: in k1..k5; the generic build's Cases name only their types, as it never calls one).
template <class Cases, class T = typename Cases::T>
LUM_ALWAYS_INLINE LumStatus mulScaledImage(const T* pSrc1, int src1Step, const T* pSrc2,
                                           int src2Step, T* pDst, int dstStep, LumSize roiSize,
                                           int scaleFactor) {
  if (const LumStatus st = mulChecks(pSrc1, pSrc2, pDst, roiSize)) return st;
  const MulCase c = mulCase<T>(scaleFactor);
  if (c == MulCase::Zero) return Cases::fill(0, pDst, dstStep, roiSize);
  const auto rows = [&](const auto& makeOp, const auto& kernel) {
    mulImageRows(pSrc1, src1Step, pSrc2, src2Step, pDst, dstStep, roiSize, makeOp, kernel,
                 Cases::kPixelsPerThread);
  };
  switch (c) {
    case MulCase::Plain:
      rows([] { return typename Cases::Plain(); },
           [](auto a, auto b, auto d, int n) { Cases::plain(a, b, d, n); });
      break;
    case MulCase::SignOnly:
      rows([] { return typename Cases::SignOnly(); },
           [](auto a, auto b, auto d, int n) { Cases::signOnly(a, b, d, n); });
      break;
    case MulCase::LeftShift: {
      const int k = -scaleFactor;
      rows([k] { return typename Cases::LeftShift(k); },
           [k](auto a, auto b, auto d, int n) { Cases::leftShift(a, b, d, n, k); });
      break;
    }
    case MulCase::Half:
      rows([] { return typename Cases::Half(); },
           [](auto a, auto b, auto d, int n) { Cases::half(a, b, d, n); });
      break;
    case MulCase::RightShift: {
      const int s = scaleFactor;
      rows([s] { return typename Cases::RightShift(s); },
           [s](auto a, auto b, auto d, int n) { Cases::rightShift(a, b, d, n, s); });
      break;
    }
    case MulCase::Zero:
      break;
  }
  return lumStsNoErr;
}

// The C entry of a scaled integer multiplication through mulScaledImage.
#define LUM_MUL_SCALED_ENTRY(name, T, Cases)                                                       \
  extern "C" LumStatus LUM_ENTRY(name)(const T* pSrc1, int src1Step, const T* pSrc2, int src2Step, \
                                       T* pDst, int dstStep, LumSize roiSize, int scaleFactor) {   \
    return lum::LUM_TAG::mulScaledImage<lum::LUM_TAG::Cases>(pSrc1, src1Step, pSrc2, src2Step,     \
                                                             pDst, dstStep, roiSize, scaleFactor); \
  }

LUM_END_BUILD

#endif
