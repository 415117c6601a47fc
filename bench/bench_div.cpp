// Division per build (8u at scale factors 0 and -7, 16s at 0 and 3, 32f) on
// one thread and on the processor count, beside the plain loop of the same
// rule and memcpy. Then, at 256x256 and 4096x4096, each class of scale
// factor the integer divisions treat apart: 8u at 4 and 12 (every quotient
// rounds to 0), 16s at -4, -12 (dividends shifted beyond 24 bits) and 20
// (every quotient rounds to 0), and both at 0 with zero divisors among the
// others.
#include "bench_common.h"
#include "plain_loops.h"

namespace {

using lumbench::Buffer;

template <class T>
using DivSfs = LumStatus (*)(const T*, int, const T*, int, T*, int, LumSize, int);
using Div32f = LumStatus (*)(const Lum32f*, int, const Lum32f*, int, Lum32f*, int, LumSize);

// Divisors without zeros (the table is the exception, not the work), or with
// one in `zeroEvery` zero; the integer dividends anything, the float ones
// the values of an image (-1000 to 1000, no denormals, whose operations take
// a slow microcoded path on many processors, more often in a formula of
// several steps than in one division).
template <class T>
void fillDividends(Buffer& b) {
  if constexpr (sizeof(T) == 4) {
    T* p = b.as<T>();
    for (size_t i = 0; i < b.bytes() / 4; ++i)
      p[i] = static_cast<T>((i * 7919u) % 200003u) / 100.0f - 1000.0f;
  }
}
template <class T>
void fillDivisors(Buffer& a, int zeroEvery) {
  T* p = a.as<T>();
  for (size_t i = 0; i < a.bytes() / sizeof(T); ++i)
    p[i] = sizeof(T) == 4 ? static_cast<T>(1.0f + static_cast<float>(i % 251) / 64.0f)
                          : static_cast<T>(1 + (i * 37) % (sizeof(T) == 1 ? 255 : 4000));
  for (size_t i = 0; zeroEvery > 0 && i < a.bytes() / sizeof(T); i += zeroEvery) p[i] = 0;
}

template <class T, class Call>
void runDiv(benchmark::State& st, const Call& call, int w, int h, int zeroEvery) {
  const size_t bytes = static_cast<size_t>(w) * h * sizeof(T);
  Buffer a(bytes), b(bytes), d(bytes);
  fillDivisors<T>(a, zeroEvery);
  fillDividends<T>(b);
  const int step = w * static_cast<int>(sizeof(T));
  for (auto _ : st) {
    call(a.as<T>(), step, b.as<T>(), step, d.as<T>(), step, LumSize{w, h});
    benchmark::ClobberMemory();
  }
  st.SetBytesProcessed(static_cast<int64_t>(st.iterations()) * 3 * static_cast<int64_t>(bytes));
}

// The builds that share long rows among threads: SSSE3 and SSE4.1.
bool opensRegions(int k) { return k >= 4; }

// One kernel: the builds, the plain loop, memcpy.
template <class T, class Fn>
void registerKernel(
    const std::string& kernel, Fn const* table, Fn plain, int w, int h,
    const std::function<void(Fn, const T*, int, const T*, int, T*, int, LumSize)>& call,
    int zeroEvery = 0) {
  const auto measure = [=](Fn fn) {
    return [=](benchmark::State& st) {
      runDiv<T>(
          st,
          [&](const T* a, int as, const T* b, int bs, T* d, int ds, LumSize s) {
            call(fn, a, as, b, bs, d, ds, s);
          },
          w, h, zeroEvery);
    };
  };
  lumbench::registerBuilds(kernel, w, h, opensRegions, [=](int k) { return measure(table[k]); });
  lumbench::registerReferences(kernel, w, h, measure(plain), static_cast<size_t>(w) * h * sizeof(T),
                               true);
}

template <class T>
LumStatus plainSfs(const T* a, int as, const T* b, int bs, T* d, int ds, LumSize s, int sf) {
  if constexpr (sizeof(T) == 1)
    return lumbench::plainInBands(lumbench::plainDiv_8u_Sfs, a, as, b, bs, d, ds, s, sf);
  else
    return lumbench::plainInBands(lumbench::plainDiv_16s_Sfs, a, as, b, bs, d, ds, s, sf);
}
LumStatus plain32f(const Lum32f* a, int as, const Lum32f* b, int bs, Lum32f* d, int ds, LumSize s) {
  return lumbench::plainInBands(lumbench::plainDiv_32f, a, as, b, bs, d, ds, s);
}

template <class T>
void registerSfs(const std::string& type, DivSfs<T> const* table, int sf, int w, int h,
                 int zeroEvery = 0) {
  registerKernel<T, DivSfs<T>>(
      "Div_" + type + "_sf" + (sf < 0 ? "m" + std::to_string(-sf) : std::to_string(sf)) +
          (zeroEvery ? "_zeros" : ""),
      table, plainSfs<T>, w, h,
      [sf](DivSfs<T> fn, const T* a, int as, const T* b, int bs, T* d, int ds, LumSize s) {
        fn(a, as, b, bs, d, ds, s, sf);
      },
      zeroEvery);
}

const int registered = [] {
  for (const auto& [w, h] : lumbench::imageSizes()) {
    for (int sf : {0, -7}) registerSfs<Lum8u>("8u", lumiDiv_8u_C1RSfs_arraddr, sf, w, h);
    for (int sf : {0, 3}) registerSfs<Lum16s>("16s", lumiDiv_16s_C1RSfs_arraddr, sf, w, h);
    registerKernel<Lum32f, Div32f>(
        "Div_32f", lumiDiv_32f_C1R_arraddr, plain32f, w, h,
        [](Div32f fn, const Lum32f* a, int as, const Lum32f* b, int bs, Lum32f* d, int ds,
           LumSize s) { fn(a, as, b, bs, d, ds, s); });
  }
  // The other classes of scale factor, and zero divisors (one in 61) among the others.
  for (const int n : {256, 4096}) {
    for (int sf : {4, 12}) registerSfs<Lum8u>("8u", lumiDiv_8u_C1RSfs_arraddr, sf, n, n);
    for (int sf : {-4, -12, 20}) registerSfs<Lum16s>("16s", lumiDiv_16s_C1RSfs_arraddr, sf, n, n);
    registerSfs<Lum8u>("8u", lumiDiv_8u_C1RSfs_arraddr, 0, n, n, 61);
    registerSfs<Lum16s>("16s", lumiDiv_16s_C1RSfs_arraddr, 0, n, n, 61);
  }
  return 0;
}();

}  // namespace
