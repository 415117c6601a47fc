// What the three divisions share in one build: the argument checks of the
// image functions, the row loop, and the split of a long row between two
// threads (k4, k5).
//
// A division works in three layers. The image function checks its arguments
// and hands the region to a row loop; the loop calls the row function once
// per row; the row function checks its own arguments, settles what needs no
// quotient and gives the rest to a row kernel, or to two of them at once on
// a long row.
#ifndef LUM_IMAGE_ARITH_DIV_ROWS_H
#define LUM_IMAGE_ARITH_DIV_ROWS_H

#include "image/arith/div_rule.h"
#include "image/build.h"

LUM_BEGIN_BUILD

// The image functions' checks, in order: a null pointer, a size below 1
// (height first), a step below 1. Steps are not compared with the row: a
// step shorter than the row is accepted and the rows then overlap.
inline LumStatus divArguments(const void* pSrc1, int src1Step, const void* pSrc2, int src2Step,
                              const void* pDst, int dstStep, LumSize roiSize) {
  if (pSrc1 == nullptr || pSrc2 == nullptr || pDst == nullptr) return lumStsNullPtrErr;
  if (roiSize.height < 1 || roiSize.width < 1) return lumStsSizeErr;
  if (src1Step < 1 || src2Step < 1 || dstStep < 1) return lumStsStepErr;
  return lumStsNoErr;
}

// The row functions' checks: a null pointer, then a length below 1.
inline LumStatus divRowArguments(const void* pSrc1, const void* pSrc2, const void* pDst, int len) {
  if (pSrc1 == nullptr || pSrc2 == nullptr || pDst == nullptr) return lumStsNullPtrErr;
  if (len < 1) return lumStsSizeErr;
  return lumStsNoErr;
}

// The row loop: row(a, b, d) for every row in order, each pointer advanced by
// its step. Every row is done; the first status a row returned comes back.
template <class T, class Row>
inline LumStatus divRows(const T* pSrc1, int src1Step, const T* pSrc2, int src2Step, T* pDst,
                         int dstStep, LumSize roiSize, const Row& row) {
  LumStatus first = lumStsNoErr;
  for (int y = 0; y < roiSize.height; ++y) {
    const LumStatus st =
        row(rowAt(pSrc1, src1Step, y), rowAt(pSrc2, src2Step, y), rowAt(pDst, dstStep, y));
    if (first == lumStsNoErr) first = st;
  }
  return first;
}

// A long row between two threads: kernel(from, count) on each part, the
// second thread taking the odd element, or from where cut(len / 2) says;
// nonzero when a part met a zero divisor. The thread count decides only
// whether to split: with one thread, or fewer elements than threads, or
// where no team can be had (the child of a fork), the kernel takes the
// whole row.
template <class Kernel, class Cut = int (*)(int)>
inline int divRowInTwo(int len, const Kernel& kernel, const Cut& cut = wholeChunk) {
  const int threads = ownGetNumThreads();
  if (threads <= 1 || len < threads || ownGetTeamSize(2) < 2) return kernel(0, len);
  return chunksLastTakesRest(2, len, kernel, cut);
}

LUM_END_BUILD

#endif
