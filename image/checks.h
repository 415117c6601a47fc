// The argument checks of the image functions and their row functions, for
// one build. Every family checks in the same order: null pointers in
// argument order, then sizes below 1, then steps, then the operation's own
// parameters; the first check that fails gives the call's status, and
// nothing is read or written before all have passed. A family states its
// checks as one call, in the order its statuses are documented:
//
//   firstFailing(pointers(pSrc1, pSrc2, pDst), sizes(roi.height, roi.width), steps(1, ...))
//
// A check is asked only when every check before it has passed, and the
// pieces are always inlined, so the call comes down to the same comparisons,
// in the same order, as early returns written out by hand: the checks run
// on every call.
//
// Included by per-build sources after image/build.h.
#ifndef LUM_IMAGE_CHECKS_H
#define LUM_IMAGE_CHECKS_H

#include "image/build.h"

LUM_BEGIN_BUILD

// The bytes of `pixels` pixels of `pixelBytes` bytes each, in 64 bits: a row
// longer than any step then fails the step check instead of wrapping into a
// small number.
LUM_ALWAYS_INLINE long long bytesOfPixels(long long pixels, int pixelBytes) {
  return pixels * pixelBytes;
}

// One check: whether it fails, asked only when every check before it has
// passed, and the status it then gives (a constant, so that the compiler
// takes its failure for the unlikely way, as that of an early return).
template <LumStatus kStatus, class Failed>
struct Check {
  Failed failed;
};
template <LumStatus kStatus, class Failed>
LUM_ALWAYS_INLINE Check<kStatus, Failed> failsWith(Failed failed) {
  return {failed};
}

// lumStsNullPtrErr where any pointer is null.
template <class... P>
LUM_ALWAYS_INLINE auto pointers(const P*... p) {
  return failsWith<lumStsNullPtrErr>([=] { return ((p == nullptr) || ...); });
}

// lumStsSizeErr where any width, height or length is below 1.
template <class... N>
LUM_ALWAYS_INLINE auto sizes(N... n) {
  return failsWith<lumStsSizeErr>([=] { return ((n < 1) || ...); });
}

// lumStsStepErr where any step is below `least` bytes, compared as signed
// 64-bit numbers.
template <class... S>
LUM_ALWAYS_INLINE auto steps(long long least, S... step) {
  return failsWith<lumStsStepErr>([=] { return ((step < least) || ...); });
}

// lumStsStepNotPixelMultipleErr where any step is not a whole number of
// pixels of `pixelBytes` (a power of two) bytes.
template <class... S>
LUM_ALWAYS_INLINE auto wholePixelSteps(int pixelBytes, S... step) {
  return failsWith<lumStsStepNotPixelMultipleErr>(
      [=] { return ((step | ...) & (pixelBytes - 1)) != 0; });
}

// The status of the first check that fails, in the order given, or
// lumStsNoErr.
LUM_ALWAYS_INLINE LumStatus firstFailing() { return lumStsNoErr; }
template <LumStatus kStatus, class Failed, class... Rest>
LUM_ALWAYS_INLINE LumStatus firstFailing(const Check<kStatus, Failed>& first, const Rest&... rest) {
  if (first.failed()) return kStatus;
  return firstFailing(rest...);
}

LUM_END_BUILD

#endif
