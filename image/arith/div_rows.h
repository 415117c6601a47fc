// What the three divisions share in one build: the argument checks of the
// image functions, the row loop, and the long rows of k4 and k5, cut in two
// pieces that the threads of one region share.
//
// A division works in three layers. The image function checks its arguments
// and hands the region to a row loop; the loop calls the row function once
// per row; the row function checks its own arguments, settles what needs no
// quotient and gives the rest to a row kernel, or on a long row to its two
// pieces. In k4 and k5 the row loop hands long rows of the ordinary case to
// the kernel's pieces itself, all rows in one region.
#ifndef LUM_IMAGE_ARITH_DIV_ROWS_H
#define LUM_IMAGE_ARITH_DIV_ROWS_H

#include "image/arith/div_rule.h"
#include "image/build.h"
#include "image/checks.h"

LUM_BEGIN_BUILD

// The image functions' checks, in order: a null pointer, a size below 1
// (height first), a step below 1. Steps are not compared with the row: a
// step shorter than the row is accepted and the rows then overlap.
inline LumStatus divArguments(const void* pSrc1, int src1Step, const void* pSrc2, int src2Step,
                              const void* pDst, int dstStep, LumSize roiSize) {
  return firstFailing(pointers(pSrc1, pSrc2, pDst), sizes(roiSize.height, roiSize.width),
                      steps(1, src1Step, src2Step, dstStep));
}

// The row functions' checks: a null pointer, then a length below 1.
inline LumStatus divRowArguments(const void* pSrc1, const void* pSrc2, const void* pDst, int len) {
  return firstFailing(pointers(pSrc1, pSrc2, pDst), sizes(len));
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

// The long rows of k4 and k5: every row in two pieces, cut at the same
// place whatever the thread count, half = width / 2 moved by cut(y, half)
// to where the kernel lets a piece start without changing a pixel (the
// middle itself for 8u and 16s), so that two pieces compute exactly what
// the whole row would. piece(y, from, count) computes the elements from ..
// from + count - 1 of row y, nonzero where a divisor was 0.
//
// One parallel region serves all the rows of a call: its threads take runs
// of the pieces in row order (runOf), so each thread sees a new region only
// once. With a team of one every row is done whole on the calling thread,
// in order. Returns nonzero when any piece met a zero divisor.
template <class Piece, class Cut>
inline int divLongRows(int height, int width, int team, const Piece& piece, const Cut& cut) {
  if (team == 1) {
    int zero = 0;
    for (int y = 0; y < height; ++y) zero |= piece(y, 0, width);
    return zero;
  }
  return teamRegion(team, [&](int t, int n) {
    const Run run = runOf(t, n, 2LL * height);
    int zero = 0;
    for (long long p = run.from; p < run.to; ++p) {
      const int y = static_cast<int>(p / 2), at = cut(y, width / 2);
      const int from = p % 2 == 0 ? 0 : at, count = p % 2 == 0 ? at : width - at;
      if (count > 0) zero |= piece(y, from, count);
    }
    return zero != 0 ? 1 : 0;
  });
}

// The team for the long rows of a call: two pieces a row, each thread to
// get at least minPixelsPerThread pixels, and the calling thread alone
// where the destination rows overlap (they then come out in row order, the
// later row winning).
template <class T>
inline int divTeam(int dstStep, LumSize roiSize, long long minPixelsPerThread) {
  return teamForRows(2LL * roiSize.height, dstStep, roiSize, static_cast<int>(sizeof(T)),
                     minPixelsPerThread);
}

// A division's status: the warning where a divisor was 0.
inline LumStatus divStatus(bool zeroDivisor) { return zeroDivisor ? lumStsDivByZero : lumStsNoErr; }

// The long rows of a call through a row kernel, kernel(a, b, d, len)
// nonzero where a divisor was 0, by divLongRows on `team`; cut(a, b, d,
// half) moves the middle of the row a, b, d. Returns nonzero when any row
// met a zero divisor.
template <class T, class Kernel, class Cut>
inline int divKernelRows(const T* pSrc1, int src1Step, const T* pSrc2, int src2Step, T* pDst,
                         int dstStep, LumSize roiSize, int team, const Kernel& kernel,
                         const Cut& cut) {
  return divLongRows(
      roiSize.height, roiSize.width, team,
      [&](int y, int from, int count) {
        return kernel(rowAt(pSrc1, src1Step, y) + from, rowAt(pSrc2, src2Step, y) + from,
                      rowAt(pDst, dstStep, y) + from, count);
      },
      [&](int y, int half) {
        return cut(rowAt(pSrc1, src1Step, y), rowAt(pSrc2, src2Step, y), rowAt(pDst, dstStep, y),
                   half);
      });
}

// The middle of a row, for kernels whose pixels do not depend on their
// neighbours.
template <class T>
inline int divMiddle(const T*, const T*, const T*, int half) {
  return half;
}

LUM_END_BUILD

#endif
