// The direct evaluation of the float-kernel filter, and the band routines
// every filter call hands its bands to.
//
// Destination pixel (x, y) is the sum over the kernel of K[j][i] times the
// source pixel x + ax - i columns right of and y + ay - j rows below the
// band's source pointer: a true convolution, the kernel mirrored. Its
// window is read rows from the top, pixels left to right, which walks the
// kernel backwards from its last coefficient to its first in one pass; each
// product is added in that order to an accumulator that starts at 0.
//
// Four neighbouring outputs are computed together, each coefficient loaded
// once for the four (from SSE2 on, four such groups at once where the row
// has them); the row's last width % 4 outputs one at a time, in the same
// order. The generic and SSE-only builds accumulate on the x87 in the
// precision its control word selects (extended as usual); from SSE2 on in
// single precision, four outputs to a register, single pixels in lane 0 of
// the same operations, so the caller's MXCSR applies alike at every
// position.
#include "image/filter/to_pixel.h"
#include "image/filter/widen.h"

LUM_BEGIN_BUILD

namespace {

// p moved by n pixels of its type, wrapping as the address does: an anchor
// far outside the kernel puts the window anywhere.
template <class T>
const T* pixelsAway(const T* p, int n) {
  return reinterpret_cast<const T*>(reinterpret_cast<uintptr_t>(p) +
                                    static_cast<uintptr_t>(n) * sizeof(T));
}

// The top-left pixel of the window of destination pixel (0, 0).
template <class T>
const T* windowStart(const T* src, int srcStep, LumSize ks, LumPoint anchor) {
  const int up =
      static_cast<int>(static_cast<uint32_t>(anchor.y) - static_cast<uint32_t>(ks.height - 1));
  const int left =
      static_cast<int>(static_cast<uint32_t>(anchor.x) - static_cast<uint32_t>(ks.width - 1));
  return pixelsAway(rowAt(src, srcStep, up), left);
}

#if LUM_BUILD <= 1

// ---- x87: extended-precision sums --------------------------------------------------

// The stack holds the four sums of one group and its operands.
constexpr int kGroupsAtOnce = 1;

template <int kGroups, class T>
void outputGroups(const T* win, int srcStep, const Lum32f* kLast, LumSize ks, T* d) {
  static_assert(kGroups == 1, "the x87 stack holds one group's sums");
  long double a0 = 0, a1 = 0, a2 = 0, a3 = 0;
  const Lum32f* k = kLast;
  for (int r = 0; r < ks.height; ++r) {
    const T* s = rowAt(win, srcStep, r);
    for (int c = 0; c < ks.width; ++c, --k) {
      const long double kv = loadPixel(k);
      a0 += kv * loadPixel(s + c);
      a1 += kv * loadPixel(s + c + 1);
      a2 += kv * loadPixel(s + c + 2);
      a3 += kv * loadPixel(s + c + 3);
    }
  }
  storePixel(d, FromSum<T>::pixel(a0));
  storePixel(d + 1, FromSum<T>::pixel(a1));
  storePixel(d + 2, FromSum<T>::pixel(a2));
  storePixel(d + 3, FromSum<T>::pixel(a3));
}

template <class T>
void oneOutput(const T* win, int srcStep, const Lum32f* kLast, LumSize ks, T* d) {
  long double a = 0;
  const Lum32f* k = kLast;
  for (int r = 0; r < ks.height; ++r) {
    const T* s = rowAt(win, srcStep, r);
    for (int c = 0; c < ks.width; ++c, --k)
      a += static_cast<long double>(loadPixel(k)) * loadPixel(s + c);
  }
  storePixel(d, FromSum<T>::pixel(a));
}

#else

// ---- SSE: single-precision sums, four outputs a register -------------------------------
// Four groups hold four registers of sums, beside a coefficient and a
// product, in the eight registers there are.
constexpr int kGroupsAtOnce = 4;

// kGroups groups of four neighbouring outputs, each coefficient loaded once
// for all of them. The groups' sums are separate chains of additions, so
// the processor overlaps them; each output's own sum keeps its order.
template <int kGroups, class T>
void outputGroups(const T* win, int srcStep, const Lum32f* kLast, LumSize ks, T* d) {
  __m128 a[kGroups];
#pragma GCC unroll 4
  for (int g = 0; g < kGroups; ++g) a[g] = _mm_setzero_ps();
  const Lum32f* k = kLast;
  for (int r = 0; r < ks.height; ++r) {
    const T* s = rowAt(win, srcStep, r);
    for (int c = 0; c < ks.width; ++c, --k) {
      const __m128 kv = _mm_set1_ps(loadPixel(k));
#pragma GCC unroll 4
      for (int g = 0; g < kGroups; ++g)
        a[g] = _mm_add_ps(a[g], _mm_mul_ps(fourPixels(s + c + 4 * g), kv));
    }
  }
#pragma GCC unroll 4
  for (int g = 0; g < kGroups; ++g) FromSum<T>::storeFour(d + 4 * g, a[g]);
}

template <class T>
void oneOutput(const T* win, int srcStep, const Lum32f* kLast, LumSize ks, T* d) {
  __m128 a = _mm_setzero_ps();
  const Lum32f* k = kLast;
  for (int r = 0; r < ks.height; ++r) {
    const T* s = rowAt(win, srcStep, r);
    for (int c = 0; c < ks.width; ++c, --k)
      a = _mm_add_ss(a, _mm_mul_ss(onePixel(s + c), _mm_set_ss(loadPixel(k))));
  }
  storePixel(d, pixelOfSum<T>(_mm_cvtss_f32(a)));
}

#endif

// The direct loop over a band of destination rows.
template <class T>
void directRows(const T* src, int srcStep, T* dst, int dstStep, LumSize band, const Lum32f* kernel,
                LumSize ks, LumPoint anchor) {
  const T* const win = windowStart(src, srcStep, ks, anchor);
  const Lum32f* const kLast = kernel + (static_cast<size_t>(ks.width) * ks.height - 1);
  const int blocks = band.width & ~3;
  for (int y = 0; y < band.height; ++y) {
    const T* s = rowAt(win, srcStep, y);
    T* d = rowAt(dst, dstStep, y);
    int x = 0;
    for (; x + 4 * kGroupsAtOnce <= blocks; x += 4 * kGroupsAtOnce)
      outputGroups<kGroupsAtOnce>(s + x, srcStep, kLast, ks, d + x);
    for (; x < blocks; x += 4) outputGroups<1>(s + x, srcStep, kLast, ks, d + x);
    for (; x < band.width; ++x) oneOutput(s + x, srcStep, kLast, ks, d + x);
  }
}

// ---- The band routines --------------------------------------------------------------------
// One band of a filter call, its source pointer the pixel under the band's
// first destination pixel. The vector builds try their fast path first;
// whenever it cannot finish a band (unsuitable kernel or region, no scratch
// memory), the direct loop computes the whole band.
template <class T>
void filterBand(const T* src, int srcStep, T* dst, int dstStep, LumSize band, const Lum32f* kernel,
                LumSize ks, LumPoint anchor) {
#if LUM_BUILD >= 1
  const Lum32f* const kLast = kernel + (static_cast<size_t>(ks.width) * ks.height - 1);
  if (ownFilterFastBand(windowStart(src, srcStep, ks, anchor), srcStep, dst, dstStep, band, kLast,
                        ks))
    return;
#endif
  directRows(src, srcStep, dst, dstStep, band, kernel, ks, anchor);
}

}  // namespace

#define LUM_FILTER_BAND(name, T)                                                                   \
  void name(const T* pSrc, int srcStep, T* pDst, int dstStep, LumSize band, const Lum32f* pKernel, \
            LumSize kernelSize, LumPoint anchor) {                                                 \
    filterBand(pSrc, srcStep, pDst, dstStep, band, pKernel, kernelSize, anchor);                   \
  }
LUM_FILTER_BAND(ownFilterDirect32f_8u_C1R, Lum8u)
LUM_FILTER_BAND(ownFilterDirect32f_16s_C1R, Lum16s)
LUM_FILTER_BAND(ownFilterDirect_32f_C1R, Lum32f)
#undef LUM_FILTER_BAND

LUM_END_BUILD
