// The three float-kernel filters per build, 3x3 and 5x5 kernels (anchor in
// the middle), 256x256 and 1024x1024, on one and two threads, beside the
// formula as a plain loop. Groups are named <filter>_<kernel>_<threads>t so
// that the two thread counts of a build sit in tables of their own;
// throughput counts the source window read and the destination written;
// counters give time-stamp ticks (cyc/px) and nanoseconds (ns/px) per
// destination pixel.
#include <x86intrin.h>

#include <chrono>

#include "bench_common.h"
#include "plain_loops.h"

namespace {

using lumbench::Buffer;

template <class T>
using Filter = LumStatus (*)(const T*, int, T*, int, LumSize, const Lum32f*, LumSize, LumPoint);

template <class T>
void runFilter(benchmark::State& st, Filter<T> fn, int w, int h, int kSize, int threads) {
  const int border = kSize - 1, srcStep = (w + border) * static_cast<int>(sizeof(T));
  const size_t srcBytes = static_cast<size_t>(srcStep) * (h + border), dstBytes = static_cast<size_t>(w) * h * sizeof(T);
  Buffer src(srcBytes), dst(dstBytes);
  if (sizeof(T) == 4)  // finite pixels: pattern bytes as floats may be NaN or denormal
    for (size_t i = 0; i < srcBytes / 4; ++i) src.as<float>()[i] = static_cast<float>(i % 251) / 4.0f;
  std::vector<float> kernel(kSize * kSize);
  for (int i = 0; i < kSize * kSize; ++i) kernel[i] = static_cast<float>(1 + i % 3) / (2.0f * kSize * kSize);
  const int c = kSize / 2;
  const T* first = reinterpret_cast<const T*>(src.as<unsigned char>() + c * srcStep) + c;
  lumSetNumThreads(threads);
  const auto wallStart = std::chrono::steady_clock::now();
  const uint64_t start = __rdtsc();
  for (auto _ : st) {
    fn(first, srcStep, dst.as<T>(), w * static_cast<int>(sizeof(T)), {w, h}, kernel.data(), {kSize, kSize}, {c, c});
    benchmark::ClobberMemory();
  }
  const double pixels = static_cast<double>(st.iterations()) * w * h;
  lumSetNumThreads(1);
  // Time-stamp counter ticks per destination pixel (the nominal clock's cycles), and wall time per pixel.
  st.counters["cyc/px"] = static_cast<double>(__rdtsc() - start) / pixels;
  st.counters["ns/px"] = std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now() - wallStart).count() / pixels;
  st.SetBytesProcessed(static_cast<int64_t>(st.iterations()) * static_cast<int64_t>(srcBytes + dstBytes));
}

template <class T, void (*plain)(const T*, int, T*, int, LumSize, const Lum32f*, LumSize, LumPoint)>
LumStatus plainFilter(const T* s, int ss, T* d, int ds, LumSize size, const Lum32f* k, LumSize ks, LumPoint a) {
  plain(s, ss, d, ds, size, k, ks, a);
  return lumStsNoErr;
}

template <class T>
void registerFilter(const char* family, Filter<T> const* table, Filter<T> plain) {
  for (const int n : {256, 1024})
    for (const int kSize : {3, 5})
      for (const int threads : {1, 2}) {
        const std::string group = std::string(family) + "_" + std::to_string(kSize) + "x" + std::to_string(kSize) + "_" +
                                  std::to_string(threads) + "t/", size = "/" + lumbench::sizeName(n, n);
        for (int k = 0; k < 6; ++k)
          if (lumbench::buildSupported(k))
            benchmark::RegisterBenchmark((group + "k" + std::to_string(k) + size).c_str(), runFilter<T>, table[k], n, n, kSize, threads)
                ->UseRealTime();
        if (lumbench::buildSupported(5))
          benchmark::RegisterBenchmark((group + "plain" + size).c_str(), runFilter<T>, plain, n, n, kSize, 1)->UseRealTime();
      }
}

const int registered = [] {
  registerFilter<Lum8u>("Filter32f_8u", lumiFilter32f_8u_C1R_arraddr, plainFilter<Lum8u, lumbench::plainFilter_8u>);
  registerFilter<Lum16s>("Filter32f_16s", lumiFilter32f_16s_C1R_arraddr, plainFilter<Lum16s, lumbench::plainFilter_16s>);
  registerFilter<Lum32f>("Filter_32f", lumiFilter_32f_C1R_arraddr, plainFilter<Lum32f, lumbench::plainFilter_32f>);
  return 0;
}();

}  // namespace
