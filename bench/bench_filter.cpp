// The three float-kernel filters per build, 3x3 and 5x5 kernels (anchor in
// the middle), 64x64, 256x256, 1024x1024 and 1920x1080, on one thread and on
// the processor count, beside the formula as a plain loop and memcpy of the
// destination's bytes. Throughput counts the source window read and the
// destination written; ns/px is per destination pixel.
#include "bench_common.h"
#include "plain_loops.h"

namespace {

using lumbench::Buffer;

template <class T>
using Filter = LumStatus (*)(const T*, int, T*, int, LumSize, const Lum32f*, LumSize, LumPoint);

template <class T>
void runFilter(benchmark::State& st, Filter<T> fn, int w, int h, int kSize) {
  const int border = kSize - 1, srcStep = (w + border) * static_cast<int>(sizeof(T));
  const size_t srcBytes = static_cast<size_t>(srcStep) * (h + border),
               dstBytes = static_cast<size_t>(w) * h * sizeof(T);
  Buffer src(srcBytes), dst(dstBytes);
  if (sizeof(T) == 4)  // finite pixels: pattern bytes as floats may be NaN or denormal
    for (size_t i = 0; i < srcBytes / 4; ++i)
      src.as<float>()[i] = static_cast<float>(i % 251) / 4.0f;
  std::vector<float> kernel(kSize * kSize);
  for (int i = 0; i < kSize * kSize; ++i)
    kernel[i] = static_cast<float>(1 + i % 3) / (2.0f * kSize * kSize);
  const int c = kSize / 2;
  const T* first = reinterpret_cast<const T*>(src.as<unsigned char>() + c * srcStep) + c;
  for (auto _ : st) {
    fn(first, srcStep, dst.as<T>(), w * static_cast<int>(sizeof(T)), {w, h}, kernel.data(),
       {kSize, kSize}, {c, c});
    benchmark::ClobberMemory();
  }
  st.SetBytesProcessed(static_cast<int64_t>(st.iterations()) *
                       static_cast<int64_t>(srcBytes + dstBytes));
}

template <class T, void (*plain)(const T*, int, T*, int, LumSize, const Lum32f*, LumSize, LumPoint)>
LumStatus plainFilter(const T* s, int ss, T* d, int ds, LumSize size, const Lum32f* k, LumSize ks,
                      LumPoint a) {
  plain(s, ss, d, ds, size, k, ks, a);
  return lumStsNoErr;
}

// Every build cuts large regions into bands over the threads.
bool opensRegions(int) { return true; }

template <class T>
void registerFilter(const char* family, Filter<T> const* table, Filter<T> plain) {
  for (const auto& [w, h] : {std::pair{64, 64}, {256, 256}, {1024, 1024}, {1920, 1080}})
    for (const int kSize : {3, 5}) {
      const std::string kernel =
          std::string(family) + "_" + std::to_string(kSize) + "x" + std::to_string(kSize);
      lumbench::registerBuilds(kernel, w, h, opensRegions, [=, w = w, h = h](int k) {
        return [=](benchmark::State& st) { runFilter<T>(st, table[k], w, h, kSize); };
      });
      lumbench::registerReferences(
          kernel, w, h,
          [=, w = w, h = h](benchmark::State& st) { runFilter<T>(st, plain, w, h, kSize); },
          static_cast<size_t>(w) * h * sizeof(T));
    }
}

const int registered = [] {
  registerFilter<Lum8u>("Filter32f_8u", lumiFilter32f_8u_C1R_arraddr,
                        plainFilter<Lum8u, lumbench::plainFilter_8u>);
  registerFilter<Lum16s>("Filter32f_16s", lumiFilter32f_16s_C1R_arraddr,
                         plainFilter<Lum16s, lumbench::plainFilter_16s>);
  registerFilter<Lum32f>("Filter_32f", lumiFilter_32f_C1R_arraddr,
                         plainFilter<Lum32f, lumbench::plainFilter_32f>);
  return 0;
}();

}  // namespace
