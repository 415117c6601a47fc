// The vectorised evaluation of a filter band, builds k1..k5: the band
// routines try it first and run the direct loop whenever it declines.
//
// Every fast path starts from a copy of the kernel in a scratch buffer,
// mirrored (all kw x kh coefficients in reverse order, so that row r of the
// copy multiplies row r of the window from the top, its columns in source
// order) and each coefficient four times, so that it enters the inner loops
// as one aligned load for four neighbouring outputs.
//
// The sums are the direct loop's, term for term: an accumulator starts at 0
// and takes the products of the window's rows from the top and, within a
// row, from the left, each added in single precision as it comes. From SSE2
// on, where the direct loop runs the same SSE operations, a band's pixels
// are therefore the same bits on either path, and the integer conversion
// (nearest, ties to even, saturated, NaN 0) is the direct loop's rule too.
//
// 32f: the whole band at once, a row at a time: blocks of 24 outputs, six
// accumulators of four whose chains of additions run side by side (a single
// chain is as long as the kernel has cells), two blocks taking the kernel's
// rows in turn, the pixels loaded where they lie; the rest of a row as one
// more block that ends at the row's end, or in a row narrower than a block
// four and one at a time. 8u and 16s: the row-pair scheme, each source row
// read once for two destination rows, the rows' sums kept in two float rows
// of the scratch and converted when complete.
//
// k1 widens and narrows integers through MMX, whose state must end before
// any x87 instruction (image/build.h). Its row-pair scheme therefore widens
// each source row into a float row of the scratch first (widenRow, one MMX
// leaf routine), runs the row routines on that float row with SSE alone, and
// narrows 16s sums in one more leaf (narrowRow), under the caller's SSE
// rounding as k1 always has; 8u sums go through the conversion every build
// uses.
#include "image/build.h"

#if LUM_BUILD >= 1

#include "image/filter/widen.h"
#include "image/saturate.h"

LUM_BEGIN_BUILD

namespace {

constexpr int kMinKernelWidth = 3, kMinWidth = 16;
// A kernel whose magnitudes sum to more than this could take a 16s sum out
// of the range its fast paths convert through.
constexpr float kMax16sKernelMagnitude = 32767.0f;
// The allocator asks i_malloc for 4 * n + 36 bytes in 32 bits.
constexpr long long kMaxScratchFloats = (0xFFFFFFFFLL - 36) / 4;

// ---- Scratch and the mirrored, replicated kernel ------------------------------------------------

class Scratch {
 public:
  explicit Scratch(long long floats)
      : p_(floats <= kMaxScratchFloats ? LUM_ENTRY(lumsMalloc_32f)(static_cast<int>(floats))
                                       : nullptr) {}
  ~Scratch() { LUM_ENTRY(lumsFree)(p_); }
  Scratch(const Scratch&) = delete;
  Scratch& operator=(const Scratch&) = delete;
  Lum32f* get() const { return p_; }

 private:
  Lum32f* p_;
};

long long kernelFloats(LumSize ks) { return 4LL * ks.width * ks.height; }

void mirrorKernel(const Lum32f* kLast, int count, Lum32f* out) {
  for (int i = 0; i < count; ++i) _mm_store_ps(out + 4 * i, _mm_set1_ps(loadPixel(kLast - i)));
}

inline const Lum32f* kernelRow(const Lum32f* mirrored, int r, int kw) {
  return mirrored + 4 * static_cast<ptrdiff_t>(r) * kw;
}

// acc + pixels * coefficient, the operands in the direct loop's order.
inline __m128 addProduct(__m128 acc, __m128 pixels, const Lum32f* k) {
  return _mm_add_ps(acc, _mm_mul_ps(pixels, _mm_load_ps(k)));
}
inline __m128 addProductOne(__m128 acc, __m128 pixel, const Lum32f* k) {
  return _mm_add_ss(acc, _mm_mul_ss(pixel, _mm_load_ss(k)));
}

// ---- Whole-band routines (32f)
// ---------------------------------------------------------------------

template <int N>
struct Int {
  static constexpr int value = N;
};

// kBlock * 4 neighbouring outputs of a row, s the window's top-left pixel
// for the first: one accumulator a vector of four, all of them taking the
// same product of the window in turn, so that kBlock chains of additions are
// in flight at once (each output's own chain is the direct loop's order).
// Every coefficient is loaded once for the block; the window's pixels are
// loaded where they lie. KW fixes the kernel width at compile time (0: kw).
// Eight vector registers hold the block, a coefficient and a pixel vector.
// (A block of seven, its seventh chain kept on the stack, ran 2 to 7% faster
// on large images and 5 to 10% slower at 64x64; seven with the coefficients
// read from memory, to keep all chains in registers, doubled the loads and
// ran 1.7 times slower.)
constexpr int kBlock = 6;
using Block = __m128[kBlock];

// One row of the window, s its first pixel, times one row of the mirrored
// kernel, k its first coefficient, added to a block's accumulators.
template <int KW, class T>
inline void addKernelRow(Block& acc, const T* s, const Lum32f* k, int kw) {
  const int w = KW ? KW : kw;
#pragma GCC unroll 8
  for (int c = 0; c < w; ++c, k += 4) {
    const __m128 coefficient = _mm_load_ps(k);
#pragma GCC unroll 8
    for (int i = 0; i < kBlock; ++i)
      acc[i] = _mm_add_ps(acc[i], _mm_mul_ps(fourPixels(s + 4 * i + c), coefficient));
  }
}

template <int KW, class T>
inline void blockOutputs(const T* s, int srcStep, const Lum32f* mirrored, int kw, int kh, T* d) {
  Block acc;
#pragma GCC unroll 8
  for (int i = 0; i < kBlock; ++i) acc[i] = _mm_setzero_ps();
  for (int r = 0; r < kh; ++r, s = rowAt(s, srcStep, 1))
    addKernelRow<KW>(acc, s, kernelRow(mirrored, r, kw), kw);
#pragma GCC unroll 8
  for (int i = 0; i < kBlock; ++i) _mm_storeu_ps(d + 4 * i, acc[i]);
}

// Two blocks side by side: the kernel's rows taken by the first block and
// the second in turn, each block's sums kept in memory between its rows, so
// that the second block's chains run while the first's wait on their
// additions (twelve chains in flight where the registers hold six): 5 to
// 15% faster than one block after the other. Three blocks gained nothing
// more.
template <int KW, class T>
inline void twoBlockOutputs(const T* s, int srcStep, const Lum32f* mirrored, int kw, int kh, T* d) {
  alignas(16) Lum32f sums[2][4 * kBlock] = {};
  for (int r = 0; r < kh; ++r, s = rowAt(s, srcStep, 1)) {
#pragma GCC unroll 2
    for (int b = 0; b < 2; ++b) {
      Block acc;
#pragma GCC unroll 8
      for (int i = 0; i < kBlock; ++i) acc[i] = _mm_load_ps(sums[b] + 4 * i);
      addKernelRow<KW>(acc, s + 4 * kBlock * b, kernelRow(mirrored, r, kw), kw);
#pragma GCC unroll 8
      for (int i = 0; i < kBlock; ++i) _mm_store_ps(sums[b] + 4 * i, acc[i]);
    }
  }
#pragma GCC unroll 2
  for (int b = 0; b < 2; ++b)
#pragma GCC unroll 8
    for (int i = 0; i < kBlock; ++i)
      _mm_storeu_ps(d + 4 * (kBlock * b + i), _mm_load_ps(sums[b] + 4 * i));
}

template <class T>
inline __m128 fourOutputs(const T* s, int srcStep, const Lum32f* mirrored, int kw, int kh) {
  __m128 acc = _mm_setzero_ps();
  const Lum32f* k = mirrored;
  for (int r = 0; r < kh; ++r, s = rowAt(s, srcStep, 1))
    for (int c = 0; c < kw; ++c, k += 4) acc = addProduct(acc, fourPixels(s + c), k);
  return acc;
}

template <class T>
inline __m128 oneOutput(const T* s, int srcStep, const Lum32f* mirrored, int kw, int kh) {
  __m128 acc = _mm_setzero_ps();
  const Lum32f* k = mirrored;
  for (int r = 0; r < kh; ++r, s = rowAt(s, srcStep, 1))
    for (int c = 0; c < kw; ++c, k += 4) acc = addProductOne(acc, onePixel(s + c), k);
  return acc;
}

// Sums written out.
inline void storeFour(Lum32f* d, __m128 sums) { _mm_storeu_ps(d, sums); }
inline void storeOne(Lum32f* d, __m128 sum) {
  float v;
  _mm_store_ss(&v, sum);
  storePixel(d, v);
}

template <class T>
void onePoint(const T* s, int srcStep, const Lum32f* mirrored, int kw, int kh, T* d) {
  storeOne(d, oneOutput(s, srcStep, mirrored, kw, kh));
}

template <int KW, class T>
void wholeBandRows(const T* win, int srcStep, T* dst, int dstStep, int width, int height,
                   const Lum32f* mirrored, int kw, int kh) {
  for (int y = 0; y < height; ++y) {
    const T* const s = rowAt(win, srcStep, y);
    T* const d = rowAt(dst, dstStep, y);
    int x = 0;
    for (; x + 8 * kBlock <= width; x += 8 * kBlock)
      twoBlockOutputs<KW>(s + x, srcStep, mirrored, kw, kh, d + x);
    if (x + 4 * kBlock <= width)
      blockOutputs<KW>(s + x, srcStep, mirrored, kw, kh, d + x), x += 4 * kBlock;
    // The rest of a row at least a block wide as one more block ending at
    // the row's end: the outputs it shares with the block before come out
    // the same bits again, and its chains run side by side where four or
    // one at a time would each wait on a chain as long as the kernel.
    if (x > 0 && x < width) {
      blockOutputs<KW>(s + width - 4 * kBlock, srcStep, mirrored, kw, kh, d + width - 4 * kBlock);
      continue;
    }
    for (; x + 4 <= width; x += 4) storeFour(d + x, fourOutputs(s + x, srcStep, mirrored, kw, kh));
    for (; x < width; ++x) onePoint(s + x, srcStep, mirrored, kw, kh, d + x);
  }
}

// Fills the scratch with the mirrored kernel, then computes the band, or
// declines (0) for a kernel narrower than 3 or a window whose rows do not
// all start on a whole pixel's boundary.
template <class T>
int wholeBand(const T* win, int srcStep, T* dst, int dstStep, int width, int height,
              const Lum32f* kLast, int kw, int kh, Lum32f* scratch) {
  mirrorKernel(kLast, kw * kh, scratch);
  if (kw < kMinKernelWidth || !isAligned(win, sizeof(T)) ||
      srcStep % static_cast<int>(sizeof(T)) != 0)
    return 0;
  const auto rows = [&](auto kw_) {
    wholeBandRows<decltype(kw_)::value>(win, srcStep, dst, dstStep, width, height, scratch, kw, kh);
  };
  switch (kw) {
    case 3:
      rows(Int<3>());
      break;
    case 4:
      rows(Int<4>());
      break;
    case 5:
      rows(Int<5>());
      break;
    default:
      rows(Int<0>());
      break;
  }
  return 1;
}

// ---- Row routines of the row-pair scheme (8u and 16s; in k1 their float rows)
// --------------------- A source row times one or two kernel rows into accumulator rows (16-byte
// aligned, whole vectors): eight outputs a step, then four, then one. An
// accumulator either starts at 0 (kStore) or goes on from what it holds.

template <bool kStore>
inline __m128 startFour(const Lum32f* acc) {
  return kStore ? _mm_setzero_ps() : _mm_load_ps(acc);
}
template <bool kStore>
inline __m128 startOne(const Lum32f* acc) {
  return kStore ? _mm_setzero_ps() : _mm_load_ss(acc);
}

template <int KW, bool kStore, class T>
void aRow(const T* src, Lum32f* acc, int width, const Lum32f* kRow, int kw) {
  const int w = KW ? KW : kw;
  int x = 0;
  for (; x + 8 <= width; x += 8) {
    __m128 a0 = startFour<kStore>(acc + x), a1 = startFour<kStore>(acc + x + 4), lo, hi;
    for (int c = 0; c < w; ++c) {
      eightPixels(src + x + c, lo, hi);
      a0 = addProduct(a0, lo, kRow + 4 * c), a1 = addProduct(a1, hi, kRow + 4 * c);
    }
    _mm_store_ps(acc + x, a0), _mm_store_ps(acc + x + 4, a1);
  }
  for (; x + 4 <= width; x += 4) {
    __m128 a = startFour<kStore>(acc + x);
    for (int c = 0; c < w; ++c) a = addProduct(a, fourPixels(src + x + c), kRow + 4 * c);
    _mm_store_ps(acc + x, a);
  }
  for (; x < width; ++x) {
    __m128 a = startOne<kStore>(acc + x);
    for (int c = 0; c < w; ++c) a = addProductOne(a, onePixel(src + x + c), kRow + 4 * c);
    _mm_store_ss(acc + x, a);
  }
}

template <int KW, bool kStoreB, class T>
void bRow(const T* src, Lum32f* accA, Lum32f* accB, int width, const Lum32f* kRowA,
          const Lum32f* kRowB, int kw) {
  const int w = KW ? KW : kw;
  int x = 0;
  for (; x + 8 <= width; x += 8) {
    __m128 a0 = _mm_load_ps(accA + x), a1 = _mm_load_ps(accA + x + 4);
    __m128 b0 = startFour<kStoreB>(accB + x), b1 = startFour<kStoreB>(accB + x + 4), lo, hi;
    for (int c = 0; c < w; ++c) {
      eightPixels(src + x + c, lo, hi);
      a0 = addProduct(a0, lo, kRowA + 4 * c), a1 = addProduct(a1, hi, kRowA + 4 * c);
      b0 = addProduct(b0, lo, kRowB + 4 * c), b1 = addProduct(b1, hi, kRowB + 4 * c);
    }
    _mm_store_ps(accA + x, a0), _mm_store_ps(accA + x + 4, a1);
    _mm_store_ps(accB + x, b0), _mm_store_ps(accB + x + 4, b1);
  }
  for (; x + 4 <= width; x += 4) {
    __m128 a = _mm_load_ps(accA + x), b = startFour<kStoreB>(accB + x);
    for (int c = 0; c < w; ++c) {
      const __m128 p = fourPixels(src + x + c);
      a = addProduct(a, p, kRowA + 4 * c), b = addProduct(b, p, kRowB + 4 * c);
    }
    _mm_store_ps(accA + x, a), _mm_store_ps(accB + x, b);
  }
  for (; x < width; ++x) {
    __m128 a = _mm_load_ss(accA + x), b = startOne<kStoreB>(accB + x);
    for (int c = 0; c < w; ++c) {
      const __m128 p = onePixel(src + x + c);
      a = addProductOne(a, p, kRowA + 4 * c), b = addProductOne(b, p, kRowB + 4 * c);
    }
    _mm_store_ss(accA + x, a), _mm_store_ss(accB + x, b);
  }
}

template <int KW, class T>
void aRowAt(const T* src, Lum32f* acc, int width, const Lum32f* kRow, int kw, int rowIndex) {
  if (rowIndex == 0)
    aRow<KW, true>(src, acc, width, kRow, kw);
  else
    aRow<KW, false>(src, acc, width, kRow, kw);
}
template <int KW, class T>
void bRowAt(const T* src, Lum32f* accA, Lum32f* accB, int width, const Lum32f* kRowA,
            const Lum32f* kRowB, int kw, int k) {
  if (k == 1)
    bRow<KW, true>(src, accA, accB, width, kRowA, kRowB, kw);
  else
    bRow<KW, false>(src, accA, accB, width, kRowA, kRowB, kw);
}

// The row routines of one kernel width, specialised for 3, 4 and 5.
template <class T>
struct RowRoutines {
  void (*a)(const T*, Lum32f*, int, const Lum32f*, int, int);
  void (*b)(const T*, Lum32f*, Lum32f*, int, const Lum32f*, const Lum32f*, int, int);
};
template <class T>
RowRoutines<T> rowRoutines(int kw) {
  switch (kw) {
    case 3:
      return {aRowAt<3, T>, bRowAt<3, T>};
    case 4:
      return {aRowAt<4, T>, bRowAt<4, T>};
    case 5:
      return {aRowAt<5, T>, bRowAt<5, T>};
    default:
      return {aRowAt<0, T>, bRowAt<0, T>};
  }
}

// ---- The row-pair scheme
// ---------------------------------------------------------------------------- The rows the row
// routines read: the source rows themselves from k2 on; in k1 each widened first into a float row
// of the scratch, as long as the outputs' windows span (width + kw - 1 pixels).
#if LUM_BUILD == 1
template <class T>
using RowOf = Lum32f;
#else
template <class T>
using RowOf = T;
#endif

long long wideRowFloats(int width, int kw) {
  return kBuild == 1 ? static_cast<long long>(width) + kw - 1 : 0;
}

struct SourceRows {
  Lum32f* wide;
  int span;
  template <class T>
  const RowOf<T>* operator()(const T* row) const {
#if LUM_BUILD == 1
    widenRow(row, wide, span);
    return wide;
#else
    return row;
#endif
  }
};

inline void convertRow(const Lum32f* sums, Lum8u* d, int width) {
  lumsConvert_32f8u_Sfs(sums, d, width, 1, 0);
}
#if LUM_BUILD == 1
// NaN to 0, then to 32-bit integers under the caller's SSE rounding (the
// kernel bound keeps every sum in range) and to 16 bits with saturation:
// four a step through MMX, in one leaf routine, the rest after its EMMS.
LUM_MMX_INLINE __m128 nanToZero(__m128 v) { return _mm_and_ps(v, _mm_cmpord_ps(v, v)); }
LUM_MMX_LEAF void narrowRow(const Lum32f* sums, Lum16s* d, int width) {
  int x = 0;
  for (; x + 4 <= width; x += 4) {
    const __m128 v = nanToZero(_mm_load_ps(sums + x));
    vStore(d + x, _mm_packs_pi32(_mm_cvtps_pi32(v), _mm_cvtps_pi32(_mm_movehl_ps(v, v))));
  }
  _mm_empty();
  for (; x < width; ++x) {
    const int n = _mm_cvtss_si32(nanToZero(_mm_load_ss(sums + x)));
    storePixel(d + x, saturate<Lum16s>(n));
  }
}
inline void convertRow(const Lum32f* sums, Lum16s* d, int width) { narrowRow(sums, d, width); }
#else
inline void convertRow(const Lum32f* sums, Lum16s* d, int width) {
  lumsConvert_32f16s_Sfs(sums, d, width, 1, 0);
}
#endif

// Pairs of destination rows: row y's sums in A, row y + 1's in B, the kh + 1
// source rows below the pair's window start read once each; then an odd last
// row alone in A. False, with nothing written, when there is no scratch.
template <class T>
bool rowPairs(const T* win, int srcStep, T* dst, int dstStep, LumSize band, const Lum32f* kLast,
              LumSize ks) {
  const int width = band.width, kw = ks.width, kh = ks.height;
  const Scratch scratch(kernelFloats(ks) + 2LL * width + 7 + wideRowFloats(width, kw));
  Lum32f* const mirrored = scratch.get();
  if (mirrored == nullptr) return false;
  mirrorKernel(kLast, kw * kh, mirrored);
  Lum32f* const a = mirrored + kernelFloats(ks);
  Lum32f* const b = a + ((width + 3) & ~3);
  const SourceRows source{b + ((width + 3) & ~3), width + kw - 1};
  const RowRoutines<RowOf<T>> rows = rowRoutines<RowOf<T>>(kw);
  int y = 0;
  for (; y + 2 <= band.height; y += 2) {
    const T* const s = rowAt(win, srcStep, y);
    rows.a(source(s), a, width, kernelRow(mirrored, 0, kw), kw, 0);
    for (int k = 1; k < kh; ++k)
      rows.b(source(rowAt(s, srcStep, k)), a, b, width, kernelRow(mirrored, k, kw),
             kernelRow(mirrored, k - 1, kw), kw, k);
    rows.a(source(rowAt(s, srcStep, kh)), b, width, kernelRow(mirrored, kh - 1, kw), kw, kh - 1);
    convertRow(a, rowAt(dst, dstStep, y), width);
    convertRow(b, rowAt(dst, dstStep, y + 1), width);
  }
  if (y < band.height) {
    const T* const s = rowAt(win, srcStep, y);
    for (int k = 0; k < kh; ++k)
      rows.a(source(rowAt(s, srcStep, k)), a, width, kernelRow(mirrored, k, kw), kw, k);
    convertRow(a, rowAt(dst, dstStep, y), width);
  }
  return true;
}

bool wideEnough(LumSize band, LumSize ks) {
  return ks.width >= kMinKernelWidth && band.width >= kMinWidth;
}

// The magnitudes summed in kernel order; a NaN among them passes (compared
// quietly: an ordered comparison would trap where the caller unmasks invalid).
bool within16sBound(const Lum32f* kLast, LumSize ks) {
  const long long n = static_cast<long long>(ks.width) * ks.height;
  const Lum32f* const k = kLast - (n - 1);
  float sum = 0;
  for (long long i = 0; i < n; ++i) sum += __builtin_fabsf(loadPixel(k + i));
  return !__builtin_isgreater(sum, kMax16sKernelMagnitude);
}

template <class T, int (*band)(const T*, int, T*, int, int, int, const Lum32f*, int, int, Lum32f*)>
bool wholeBandWithScratch(const T* win, int srcStep, T* dst, int dstStep, LumSize size,
                          const Lum32f* kLast, LumSize ks) {
  const Scratch scratch(kernelFloats(ks));
  return scratch.get() != nullptr && band(win, srcStep, dst, dstStep, size.width, size.height,
                                          kLast, ks.width, ks.height, scratch.get()) != 0;
}

}  // namespace

int ownFilter_32f_C1R(const Lum32f* pSrc, int srcStep, Lum32f* pDst, int dstStep, int width,
                      int height, const Lum32f* pKernelLast, int kw, int kh, Lum32f* pScratch) {
  return wholeBand(pSrc, srcStep, pDst, dstStep, width, height, pKernelLast, kw, kh, pScratch);
}
void ownOnePoint_32f_C1R(const Lum32f* pSrc, int srcStep, const Lum32f* pMirrored, int kw, int kh,
                         Lum32f* pDst) {
  onePoint(pSrc, srcStep, pMirrored, kw, kh, pDst);
}

#if LUM_BUILD == 1
void ownAFilterRow_32f_C1R(const Lum32f* pSrc, Lum32f* pAcc, int width, const Lum32f* pKernelRow,
                           int kw, int rowIndex) {
  rowRoutines<Lum32f>(kw).a(pSrc, pAcc, width, pKernelRow, kw, rowIndex);
}
void ownBFilterRow_32f_C1R(const Lum32f* pSrc, Lum32f* pA, Lum32f* pB, int width,
                           const Lum32f* pKernelRowK, const Lum32f* pKernelRowKm1, int kw, int k) {
  rowRoutines<Lum32f>(kw).b(pSrc, pA, pB, width, pKernelRowK, pKernelRowKm1, kw, k);
}
#else
void ownAFilterRow32f_8u_C1R(const Lum8u* pSrc, Lum32f* pAcc, int width, const Lum32f* pKernelRow,
                             int kw, int rowIndex) {
  rowRoutines<Lum8u>(kw).a(pSrc, pAcc, width, pKernelRow, kw, rowIndex);
}
void ownBFilterRow32f_8u_C1R(const Lum8u* pSrc, Lum32f* pA, Lum32f* pB, int width,
                             const Lum32f* pKernelRowK, const Lum32f* pKernelRowKm1, int kw,
                             int k) {
  rowRoutines<Lum8u>(kw).b(pSrc, pA, pB, width, pKernelRowK, pKernelRowKm1, kw, k);
}
void ownAFilterRow32f_16s_C1R(const Lum16s* pSrc, Lum32f* pAcc, int width, const Lum32f* pKernelRow,
                              int kw, int rowIndex) {
  rowRoutines<Lum16s>(kw).a(pSrc, pAcc, width, pKernelRow, kw, rowIndex);
}
void ownBFilterRow32f_16s_C1R(const Lum16s* pSrc, Lum32f* pA, Lum32f* pB, int width,
                              const Lum32f* pKernelRowK, const Lum32f* pKernelRowKm1, int kw,
                              int k) {
  rowRoutines<Lum16s>(kw).b(pSrc, pA, pB, width, pKernelRowK, pKernelRowKm1, kw, k);
}
#endif

bool ownFilterFastBand(const Lum8u* win, int srcStep, Lum8u* dst, int dstStep, LumSize band,
                       const Lum32f* kLast, LumSize ks) {
  return wideEnough(band, ks) && rowPairs(win, srcStep, dst, dstStep, band, kLast, ks);
}

bool ownFilterFastBand(const Lum16s* win, int srcStep, Lum16s* dst, int dstStep, LumSize band,
                       const Lum32f* kLast, LumSize ks) {
  if (!wideEnough(band, ks) || !within16sBound(kLast, ks)) return false;
  // k1's 16s vector path takes windows on the pixel grid only: one whose
  // rows do not all start on a whole pixel's boundary goes to its direct
  // loop, whose extended-precision sums it then gets, as before the rows
  // were widened.
  if (kBuild == 1 && (!isAligned(win, 2) || srcStep % 2 != 0)) return false;
  return rowPairs(win, srcStep, dst, dstStep, band, kLast, ks);
}

bool ownFilterFastBand(const Lum32f* win, int srcStep, Lum32f* dst, int dstStep, LumSize band,
                       const Lum32f* kLast, LumSize ks) {
  return wideEnough(band, ks) && wholeBandWithScratch<Lum32f, ownFilter_32f_C1R>(
                                     win, srcStep, dst, dstStep, band, kLast, ks);
}

LUM_END_BUILD

#endif
