// lumiAbsDiff_8u_C1R / lumiAbsDiff_32f_C1R: pDst = |pSrc1 - pSrc2| per pixel,
// and their row-loop kernels ownAbsDiff_*.
//
// 8u differences are exact: (a -sat b) + (b -sat a), one of the two terms
// always 0, with no widening. A 32f difference is one single-precision
// subtraction, its sign bit then cleared: a NaN stays NaN with the sign
// clear, -0 becomes +0. The generic build subtracts on the x87, which rounds
// the exact difference of two floats once to single when it is stored, and
// takes the x87 absolute value, which also just clears the sign.
//
// The kernels walk each row with one negative byte counter from the row's
// end, so one index serves all three images: 64-byte blocks (a cache line
// of each source, prefetched once), then single registers, then (8u)
// 8-byte pieces, then single pixels. They differ on purpose in how they
// store and prefetch: a region larger than the cache is written past it,
// and a kernel that streams ends with a store fence, so that a thread that
// waits for the caller's next store never reads stale pixels.
#include "image/checks.h"
#include "image/int_vec.h"

LUM_BEGIN_BUILD

namespace {

// The checks of both functions, in order: pointers, sizes, then steps of at
// least one row (any sign compared as signed), then for floats steps that
// are whole pixels.
LumStatus absDiffChecks(const void* a, int aStep, const void* b, int bStep, const void* d,
                        int dStep, LumSize roi, int pixelBytes) {
  return firstFailing(pointers(a, b, d), sizes(roi.width, roi.height),
                      steps(bytesOfPixels(roi.width, pixelBytes), aStep, bStep, dStep),
                      wholePixelSteps(pixelBytes, aStep, bStep, dStep));
}

// ---- One pixel ------------------------------------------------------------------

LUM_MMX_INLINE Lum8u absDiff8u(Lum8u a, Lum8u b) {
  const int ab = a > b ? a - b : 0, ba = b > a ? b - a : 0;
  return static_cast<Lum8u>(ab + ba);
}

#if LUM_BUILD == 0
inline Lum32f absDiff32f(Lum32f a, Lum32f b) { return __builtin_fabsf(a - b); }
#endif

// ---- The generic build: four pixels a step, then one --------------------------------

template <class T, class Fn>
void absDiffGeneric(const T* a, int aStep, const T* b, int bStep, T* d, int dStep, LumSize roi,
                    const Fn& fn) {
  const auto one = [&](const T* ra, const T* rb, T* rd, int x) {
    storePixel(rd + x, fn(loadPixel(ra + x), loadPixel(rb + x)));
  };
  for (int y = 0; y < roi.height; ++y) {
    const T* ra = rowAt(a, aStep, y);
    const T* rb = rowAt(b, bStep, y);
    T* rd = rowAt(d, dStep, y);
    int x = 0;
    for (; x <= roi.width - 4; x += 4) {
      one(ra, rb, rd, x);
      one(ra, rb, rd, x + 1);
      one(ra, rb, rd, x + 2);
      one(ra, rb, rd, x + 3);
    }
    for (; x < roi.width; ++x) one(ra, rb, rd, x);
  }
}

#if LUM_BUILD >= 1

// ---- The vector kernels ---------------------------------------------------------------
// A pixel type's registers: R holds kBytes bytes of pixels; diff() is the
// absolute difference of two registers, pixel() of one pixel at any address,
// end() leaves the registers (MMX in k1) free again. The row loop over them
// is k1's MMX leaf routine for 8u, and fences what it streams (image/build.h).

struct Bytes {
  using R = Vec;
  static constexpr int kBytes = kVecBytes, kPixelBytes = 1;
  static constexpr bool kEightByteStage = true;
  LUM_MMX_INLINE static R load(const uint8_t* p, bool aligned) {
    return aligned ? vLoadAligned(p) : vLoad(p);
  }
  LUM_MMX_INLINE static void store(uint8_t* p, R v, bool aligned) {
    aligned ? vStoreAligned(p, v) : vStore(p, v);
  }
  LUM_ALWAYS_INLINE static void stream(uint8_t* p, R v) { vStream(p, v); }
  LUM_MMX_INLINE static R diff(R a, R b) { return vAdd8(vSubsU8(a, b), vSubsU8(b, a)); }
  LUM_MMX_INLINE static void pixel(const uint8_t* a, const uint8_t* b, uint8_t* d) {
    *d = absDiff8u(*a, *b);
  }
  LUM_MMX_INLINE static void end() { vEnd(); }
  // The 8-byte stage: one MMX register in k1, the low half of one from k2 on.
  LUM_MMX_INLINE static void eightBytes(const uint8_t* a, const uint8_t* b, uint8_t* d) {
#if LUM_BUILD == 1
    vStore(d, diff(vLoad(a), vLoad(b)));
#else
    _mm_storel_epi64(reinterpret_cast<__m128i*>(d),
                     diff(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(a)),
                          _mm_loadl_epi64(reinterpret_cast<const __m128i*>(b))));
#endif
  }
};

struct Floats {
  using R = __m128;
  static constexpr int kBytes = 16, kPixelBytes = 4;
  static constexpr bool kEightByteStage = false;
  LUM_MMX_INLINE static R load(const uint8_t* p, bool aligned) {
    const float* f = reinterpret_cast<const float*>(p);
    return aligned ? _mm_load_ps(f) : _mm_loadu_ps(f);
  }
  LUM_MMX_INLINE static void store(uint8_t* p, R v, bool aligned) {
    float* f = reinterpret_cast<float*>(p);
    aligned ? _mm_store_ps(f, v) : _mm_storeu_ps(f, v);
  }
  LUM_ALWAYS_INLINE static void stream(uint8_t* p, R v) {
    _mm_stream_ps(reinterpret_cast<float*>(p), v);
  }
  LUM_MMX_INLINE static R diff(R a, R b) {
    return _mm_and_ps(_mm_sub_ps(a, b), _mm_set1_ps(__builtin_bit_cast(float, 0x7FFFFFFFu)));
  }
  // A single pixel in lane 0 of the blocks' own operation, so that
  // flush-to-zero and denormals-are-zero apply alike at every position.
  LUM_MMX_INLINE static void pixel(const uint8_t* a, const uint8_t* b, uint8_t* d) {
    const R v = diff(_mm_set_ss(loadPixel(reinterpret_cast<const float*>(a))),
                     _mm_set_ss(loadPixel(reinterpret_cast<const float*>(b))));
    storePixel(reinterpret_cast<float*>(d), _mm_cvtss_f32(v));
  }
  LUM_MMX_INLINE static void eightBytes(const uint8_t*, const uint8_t*, uint8_t*) {}
  LUM_MMX_INLINE static void end() {}
};

// One register of pixels at byte `at`, stored or streamed; kept in the
// routine that fences what it streams.
template <class L, bool kAligned, bool kStream>
LUM_ALWAYS_INLINE void absDiffRegister(const uint8_t* a, const uint8_t* b, uint8_t* d, int at) {
  const typename L::R v = L::diff(L::load(a + at, kAligned), L::load(b + at, kAligned));
  if (kStream)
    L::stream(d + at, v);
  else
    L::store(d + at, v, kAligned);
}

// Bytes `i` to `end` of a row (offsets from the row's end): 64-byte blocks,
// both sources prefetched 64 bytes beyond the start of each or not, then
// single registers, then (8u) 8-byte pieces, then single pixels; stored or
// streamed.
template <class L, bool kAligned, bool kStream, bool kPrefetch>
LUM_ALWAYS_INLINE void absDiffSpan(const uint8_t* ra, const uint8_t* rb, uint8_t* rd, int i,
                                   int end) {
  for (; i <= end - 64; i += 64) {
    if (kPrefetch) {
      _mm_prefetch(reinterpret_cast<const char*>(ra + i + 64), _MM_HINT_T0);
      _mm_prefetch(reinterpret_cast<const char*>(rb + i + 64), _MM_HINT_T0);
    }
#pragma GCC unroll 8
    for (int r = 0; r < 64; r += L::kBytes)
      absDiffRegister<L, kAligned, kStream>(ra, rb, rd, i + r);
  }
  for (; i <= end - L::kBytes; i += L::kBytes) absDiffRegister<L, kAligned, kStream>(ra, rb, rd, i);
  if (L::kEightByteStage)
    for (; i <= end - 8; i += 8) L::eightBytes(ra + i, rb + i, rd + i);
  for (; i < end; i += L::kPixelBytes) L::pixel(ra + i, rb + i, rd + i);
}

// One body of a kernel over all rows: aligned loads and stores (every pointer
// and step a multiple of 16) or unaligned ones, non-temporal stores or
// ordinary ones, sources prefetched or not. Rows that follow one another in
// all three images are walked as one row, so that blocks run on across their
// ends. A streaming body streams the whole lines of each destination row
// only (image/build.h) and ends with a store fence; every body leaves the
// registers free.
template <class L, bool kAligned, bool kStream, bool kPrefetch>
LUM_MMX_LEAF void absDiffRows(const uint8_t* a, int aStep, const uint8_t* b, int bStep, uint8_t* d,
                              int dStep, int rowBytes, int height) {
  if (rowsJoin(rowBytes, height, aStep, bStep, dStep)) rowBytes *= height, height = 1;
  for (int y = 0; y < height; ++y) {
    const uint8_t* ra = rowAt(a, aStep, y) + rowBytes;
    const uint8_t* rb = rowAt(b, bStep, y) + rowBytes;
    uint8_t* rd = rowAt(d, dStep, y) + rowBytes;
    int i = -rowBytes;
    if (kStream) {
      // The first and the last line boundary of the destination row (none
      // inside it where the last comes before the first).
      const int firstLine = i + bytesToLine(rd + i), lastLine = firstLine + (-firstLine & ~63);
      if (firstLine < lastLine) {
        absDiffSpan<L, kAligned, false, kPrefetch>(ra, rb, rd, i, firstLine);
        absDiffSpan<L, kAligned, true, kPrefetch>(ra, rb, rd, firstLine, lastLine);
        i = lastLine;
      }
    }
    absDiffSpan<L, kAligned, false, kPrefetch>(ra, rb, rd, i, 0);
  }
  if (kStream) _mm_sfence();
  L::end();
}

// The two bodies of a kernel: every pointer and step a multiple of 16,
// tested once per call, and every row takes the aligned body (streamed when
// kStreamAligned), otherwise every row the unaligned one.
template <class L, bool kStreamAligned, bool kPrefetch>
void absDiffRegion(const uint8_t* a, int aStep, const uint8_t* b, int bStep, uint8_t* d, int dStep,
                   int rowBytes, int height) {
  const uintptr_t bits = reinterpret_cast<uintptr_t>(a) | reinterpret_cast<uintptr_t>(b) |
                         reinterpret_cast<uintptr_t>(d) |
                         static_cast<uintptr_t>(aStep | bStep | dStep);
  if ((bits & 15) == 0)
    absDiffRows<L, true, kStreamAligned, kPrefetch>(a, aStep, b, bStep, d, dStep, rowBytes, height);
  else
    absDiffRows<L, false, false, kPrefetch>(a, aStep, b, bStep, d, dStep, rowBytes, height);
}

#endif  // LUM_BUILD >= 1

}  // namespace

#if LUM_BUILD >= 1

// ---- The named kernels, in the builds that use them ----------------------------------
// Arguments checked by the caller; the byte pointers are the images' own.

#define LUM_ABSDIFF_KERNEL(name)                                                                  \
  LumStatus name(const uint8_t* a, int aStep, const uint8_t* b, int bStep, uint8_t* d, int dStep, \
                 int rowBytes, int height)

#if LUM_BUILD == 1
// Eight MMX registers a block, streamed whatever the alignment, then fenced.
LUM_ABSDIFF_KERNEL(ownAbsDiff_8u_C1R_K1) {
  absDiffRows<Bytes, false, true, true>(a, aStep, b, bStep, d, dStep, rowBytes, height);
  return lumStsNoErr;
}
#endif

#if LUM_BUILD == 1 || LUM_BUILD == 3
// Aligned rows streamed and fenced, unaligned ones stored; both prefetched.
LUM_ABSDIFF_KERNEL(ownAbsDiff_32f_C1R_K1) {
  absDiffRegion<Floats, true, true>(a, aStep, b, bStep, d, dStep, rowBytes, height);
  return lumStsNoErr;
}
#endif

#if LUM_BUILD >= 2
LUM_ABSDIFF_KERNEL(ownAbsDiff_8u_C1R_K2) {
  absDiffRegion<Bytes, false, false>(a, aStep, b, bStep, d, dStep, rowBytes, height);
  return lumStsNoErr;
}
#endif

#if LUM_BUILD == 2 || LUM_BUILD >= 4
// For regions that fit in the cache: ordinary stores, sources prefetched.
LUM_ABSDIFF_KERNEL(ownAbsDiff_32f_C1R_K2) {
  absDiffRegion<Floats, false, true>(a, aStep, b, bStep, d, dStep, rowBytes, height);
  return lumStsNoErr;
}

// For larger ones: aligned rows streamed past the cache and fenced after the
// last row, no prefetch.
LUM_ABSDIFF_KERNEL(ownAbsDiff_32f_C1R_K2_B) {
  absDiffRegion<Floats, true, false>(a, aStep, b, bStep, d, dStep, rowBytes, height);
  return lumStsNoErr;
}

// Whether a float region streams: its three images, width x height x 12
// bytes as a wrapping signed 32-bit product, reach the largest cache (the
// cache query's, or where it fails the extended leaves'; 0 bytes where
// nothing can be read, and every region streams).
bool ownAbsDiffStreams_32f(int width, int height) {
  const int cache = ownGetLargestCacheSize();
  const uint32_t h = static_cast<uint32_t>(height);
  const int bytes = static_cast<int>((h * 8u + h * 4u) * static_cast<uint32_t>(width));
  return !(bytes < cache);
}
#endif

#undef LUM_ABSDIFF_KERNEL

#endif  // LUM_BUILD >= 1

LUM_END_BUILD

// ---- The image functions --------------------------------------------------------------

namespace {

template <class T>
const uint8_t* bytesOf(const T* p) {
  return reinterpret_cast<const uint8_t*>(p);
}
template <class T>
uint8_t* bytesOf(T* p) {
  return reinterpret_cast<uint8_t*>(p);
}

}  // namespace

extern "C" LumStatus LUM_ENTRY(lumiAbsDiff_8u_C1R)(const Lum8u* pSrc1, int src1Step,
                                                   const Lum8u* pSrc2, int src2Step, Lum8u* pDst,
                                                   int dstStep, LumSize roiSize) {
  using namespace lum::LUM_TAG;
  const LumStatus st = absDiffChecks(pSrc1, src1Step, pSrc2, src2Step, pDst, dstStep, roiSize, 1);
  if (st != lumStsNoErr) return st;
#if LUM_BUILD == 0
  absDiffGeneric(pSrc1, src1Step, pSrc2, src2Step, pDst, dstStep, roiSize, absDiff8u);
#elif LUM_BUILD == 1
  ownAbsDiff_8u_C1R_K1(pSrc1, src1Step, pSrc2, src2Step, pDst, dstStep, roiSize.width,
                       roiSize.height);
#else
  ownAbsDiff_8u_C1R_K2(pSrc1, src1Step, pSrc2, src2Step, pDst, dstStep, roiSize.width,
                       roiSize.height);
#endif
  return lumStsNoErr;
}

extern "C" LumStatus LUM_ENTRY(lumiAbsDiff_32f_C1R)(const Lum32f* pSrc1, int src1Step,
                                                    const Lum32f* pSrc2, int src2Step, Lum32f* pDst,
                                                    int dstStep, LumSize roiSize) {
  using namespace lum::LUM_TAG;
  const LumStatus st = absDiffChecks(pSrc1, src1Step, pSrc2, src2Step, pDst, dstStep, roiSize, 4);
  if (st != lumStsNoErr) return st;
#if LUM_BUILD == 0
  absDiffGeneric(pSrc1, src1Step, pSrc2, src2Step, pDst, dstStep, roiSize, absDiff32f);
#else
  const uint8_t *a = bytesOf(pSrc1), *b = bytesOf(pSrc2);
  uint8_t* d = bytesOf(pDst);
  const int rowBytes = 4 * roiSize.width;
#if LUM_BUILD == 1 || LUM_BUILD == 3
  ownAbsDiff_32f_C1R_K1(a, src1Step, b, src2Step, d, dstStep, rowBytes, roiSize.height);
#else
  if (ownAbsDiffStreams_32f(roiSize.width, roiSize.height))
    ownAbsDiff_32f_C1R_K2_B(a, src1Step, b, src2Step, d, dstStep, rowBytes, roiSize.height);
  else
    ownAbsDiff_32f_C1R_K2(a, src1Step, b, src2Step, d, dstStep, rowBytes, roiSize.height);
#endif
#endif
  return lumStsNoErr;
}
