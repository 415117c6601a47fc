// Absolute difference per build on one thread (and k5 on the processor
// count, which it runs on the calling thread all the same), beside the plain
// loop and memcpy; a region of 250 x 256 pixels in images 256 pixels wide
// (rows apart, a streaming kernel's partial lines at every row's ends); for
// floats also just below and at the cache switch of k2, k4 and k5, and the
// cached kernel against the streaming one directly.
#include "bench_common.h"
#include "core/lum_internal.h"
#include "plain_loops.h"

#define LUM_TAG k5
#include "image/kernels.inc"
#undef LUM_TAG

namespace {

using lumbench::Buffer;

template <class T>
using AbsDiff = LumStatus (*)(const T*, int, const T*, int, T*, int, LumSize);

// Finite float operands: the pattern bytes as floats may be NaN or denormal.
template <class T>
void fill(Buffer& a, Buffer& b) {
  if (sizeof(T) == 1) return;
  for (size_t i = 0; i < a.bytes() / 4; ++i) {
    a.as<float>()[i] = 1.0f + static_cast<float>(i % 251) / 256.0f;
    b.as<float>()[i] = 0.5f + static_cast<float>(i % 241) / 512.0f;
  }
}

template <class T, class Fn>
void runAbsDiff(benchmark::State& st, Fn fn, int w, int h, int imageWidth = 0) {
  const int step = (imageWidth > 0 ? imageWidth : w) * static_cast<int>(sizeof(T));
  const size_t bytes = static_cast<size_t>(step) * h;
  Buffer a(bytes), b(bytes), d(bytes);
  fill<T>(a, b);
  for (auto _ : st) {
    fn(a.as<T>(), step, b.as<T>(), step, d.as<T>(), step, LumSize{w, h});
    benchmark::ClobberMemory();
  }
  st.SetBytesProcessed(static_cast<int64_t>(st.iterations()) * 3 *
                       static_cast<int64_t>(static_cast<size_t>(w) * h * sizeof(T)));
}

// No build shares the rows among threads.
bool opensRegions(int) { return false; }

template <class T>
void registerFamily(const char* family, AbsDiff<T> const* table, AbsDiff<T> plain, int w, int h,
                    int imageWidth = 0) {
  lumbench::registerBuilds(family, w, h, opensRegions, [=](int k) {
    return [=](benchmark::State& st) { runAbsDiff<T, AbsDiff<T>>(st, table[k], w, h, imageWidth); };
  });
  lumbench::registerReferences(
      family, w, h,
      [=](benchmark::State& st) { runAbsDiff<T, AbsDiff<T>>(st, plain, w, h, imageWidth); },
      static_cast<size_t>(w) * h * sizeof(T), true);
}

LumStatus plain8u(const Lum8u* a, int as, const Lum8u* b, int bs, Lum8u* d, int ds, LumSize s) {
  return lumbench::plainInBands(lumbench::plainAbsDiff_8u, a, as, b, bs, d, ds, s);
}
LumStatus plain32f(const Lum32f* a, int as, const Lum32f* b, int bs, Lum32f* d, int ds, LumSize s) {
  return lumbench::plainInBands(lumbench::plainAbsDiff_32f, a, as, b, bs, d, ds, s);
}

// The two float kernels of k5 on the same region, whatever the switch says.
template <bool kStreaming>
LumStatus k5Kernel(const Lum32f* a, int as, const Lum32f* b, int bs, Lum32f* d, int ds, LumSize s) {
  const auto* pa = reinterpret_cast<const unsigned char*>(a);
  const auto* pb = reinterpret_cast<const unsigned char*>(b);
  auto* pd = reinterpret_cast<unsigned char*>(d);
  return kStreaming
             ? lum::k5::ownAbsDiff_32f_C1R_K2_B(pa, as, pb, bs, pd, ds, 4 * s.width, s.height)
             : lum::k5::ownAbsDiff_32f_C1R_K2(pa, as, pb, bs, pd, ds, 4 * s.width, s.height);
}

const int registered = [] {
  for (const auto& [w, h] : lumbench::imageSizes()) {
    registerFamily<Lum8u>("AbsDiff_8u", lumiAbsDiff_8u_C1R_arraddr, plain8u, w, h);
    registerFamily<Lum32f>("AbsDiff_32f", lumiAbsDiff_32f_C1R_arraddr, plain32f, w, h);
  }
  registerFamily<Lum8u>("AbsDiff_8u_in256", lumiAbsDiff_8u_C1R_arraddr, plain8u, 250, 256, 256);
  registerFamily<Lum32f>("AbsDiff_32f_in256", lumiAbsDiff_32f_C1R_arraddr, plain32f, 250, 256, 256);
  // The switch: 1024-pixel rows, one row below it and one above, where the
  // largest cache the switch compares with is known and small enough to
  // measure (up to 32 MiB).
  const int cache = ownGetLargestCacheSize();
  if (cache >= 12 * 1024 * 2 && cache <= 32 << 20) {
    const int rows = cache / (12 * 1024);
    registerFamily<Lum32f>("AbsDiff_32f_below_cache", lumiAbsDiff_32f_C1R_arraddr, plain32f, 1024,
                           rows - 1);
    registerFamily<Lum32f>("AbsDiff_32f_above_cache", lumiAbsDiff_32f_C1R_arraddr, plain32f, 1024,
                           rows + 1);
  }
  if (lumbench::buildSupported(5))
    for (const int n : {1024, 4096}) {
      lumbench::registerVariant("AbsDiff_32f_kernels", "cached", n, n, 1,
                                [n](benchmark::State& st) {
                                  runAbsDiff<Lum32f, AbsDiff<Lum32f>>(st, k5Kernel<false>, n, n);
                                });
      lumbench::registerVariant("AbsDiff_32f_kernels", "streaming", n, n, 1,
                                [n](benchmark::State& st) {
                                  runAbsDiff<Lum32f, AbsDiff<Lum32f>>(st, k5Kernel<true>, n, n);
                                });
    }
  return 0;
}();

}  // namespace
