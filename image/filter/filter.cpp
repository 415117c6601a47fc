// lumiFilter32f_8u_C1R, lumiFilter32f_16s_C1R, lumiFilter_32f_C1R: a region
// convolved with a float kernel, the caller supplying every source pixel the
// kernel reaches (no border is made up here).
//
// The arguments are checked in a fixed order and the first failure is
// returned with nothing written. The anchor and the coefficients are not
// checked: any anchor just moves the source window, and NaN or infinite
// coefficients flow into the sums. After the checks every call succeeds.
#include "image/build.h"
#include "image/checks.h"

LUM_BEGIN_BUILD

namespace {

// Pointers, then sizes (destination width and height, kernel width and
// height), then steps: a source row must hold the window's width, a
// destination row the region's.
template <class T>
LumStatus filterChecks(const T* src, int srcStep, const T* dst, int dstStep, LumSize roi,
                       const Lum32f* kernel, LumSize ks) {
  constexpr int px = sizeof(T);
  return firstFailing(
      pointers(src, dst, kernel), sizes(roi.width, roi.height, ks.width, ks.height),
      steps(bytesOfPixels(static_cast<long long>(roi.width) + ks.width - 1, px), srcStep),
      steps(bytesOfPixels(roi.width, px), dstStep));
}

template <class T>
using BandRoutine = void (*)(const T*, int, T*, int, LumSize, const Lum32f*, LumSize, LumPoint);

template <class T>
struct FilterCall {
  const T* src;
  int srcStep;
  T* dst;
  int dstStep;
  LumSize roi;
  const Lum32f* kernel;
  LumSize ks;
  LumPoint anchor;
  BandRoutine<T> routine;

  // Rows from .. from + count - 1: both pointers moved by `from` rows of
  // their own steps, so the anchor's geometry holds in every band.
  static void band(int from, int count, void* context) {
    const FilterCall& c = *static_cast<const FilterCall*>(context);
    c.routine(rowAt(c.src, c.srcStep, from), c.srcStep, rowAt(c.dst, c.dstStep, from), c.dstStep,
              LumSize{c.roi.width, count}, c.kernel, c.ks, c.anchor);
  }
};

template <class T>
LumStatus filter(const FilterCall<T>& call) {
  const LumStatus st =
      filterChecks(call.src, call.srcStep, call.dst, call.dstStep, call.roi, call.kernel, call.ks);
  if (st != lumStsNoErr) return st;
  ownFilterBands(call.roi, call.ks, &FilterCall<T>::band, const_cast<FilterCall<T>*>(&call));
  return lumStsNoErr;
}

}  // namespace

// The work of a call: every destination pixel a sum over the kernel's
// cells, as many as a 64-bit count holds.
inline long long filterCells(LumSize roi, LumSize kernelSize) {
  const long long pixels = static_cast<long long>(roi.width) * roi.height;
  const long long area = static_cast<long long>(kernelSize.width) * kernelSize.height;
  long long cells;
  return __builtin_mul_overflow(pixels, area, &cells) ? __LONG_LONG_MAX__ : cells;
}

void ownFilterBands(LumSize roi, LumSize kernelSize, FilterBandFn band, void* context) {
  const int team = teamFor(roi.height, filterCells(roi, kernelSize), kFilterCellsPerThread);
  if (team == 1) return band(0, roi.height, context);
  chunksLastTakesRest(team, roi.height, [&](int from, int count) { band(from, count, context); });
}

LUM_END_BUILD

#define LUM_FILTER_ENTRY(name, T, bandRoutine)                                                 \
  extern "C" LumStatus LUM_ENTRY(name)(const T* pSrc, int srcStep, T* pDst, int dstStep,       \
                                       LumSize dstRoiSize, const Lum32f* pKernel,              \
                                       LumSize kernelSize, LumPoint anchor) {                  \
    using namespace lum::LUM_TAG;                                                              \
    return filter<T>(                                                                          \
        {pSrc, srcStep, pDst, dstStep, dstRoiSize, pKernel, kernelSize, anchor, bandRoutine}); \
  }
LUM_FILTER_ENTRY(lumiFilter32f_8u_C1R, Lum8u, ownFilterDirect32f_8u_C1R)
LUM_FILTER_ENTRY(lumiFilter32f_16s_C1R, Lum16s, ownFilterDirect32f_16s_C1R)
LUM_FILTER_ENTRY(lumiFilter_32f_C1R, Lum32f, ownFilterDirect_32f_C1R)
#undef LUM_FILTER_ENTRY
