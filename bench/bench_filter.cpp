// The three float-kernel filters per build, 3x3 and 5x5 kernels (anchor in
// the middle), 64x64, 256x256, 1024x1024 and 1920x1080, and a column of five
// (1x5, the direct loop's: no fast path takes a kernel that narrow) at
// 256x256 and 1920x1080, on one thread and on the processor count, beside
// the formula as a plain loop and memcpy of the destination's bytes.
// Throughput counts the source window read and the destination written;
// ns/px is per destination pixel.
#include "bench_common.h"
#include "plain_loops.h"

namespace {

using lumbench::Buffer;

template <class T>
using Filter = LumStatus (*)(const T*, int, T*, int, LumSize, const Lum32f*, LumSize, LumPoint);

template <class T>
void runFilter(benchmark::State& st, Filter<T> fn, int w, int h, LumSize ks) {
  const int srcStep = (w + ks.width - 1) * static_cast<int>(sizeof(T));
  const size_t srcBytes = static_cast<size_t>(srcStep) * (h + ks.height - 1),
               dstBytes = static_cast<size_t>(w) * h * sizeof(T);
  Buffer src(srcBytes), dst(dstBytes);
  if (sizeof(T) == 4)  // finite pixels: pattern bytes as floats may be NaN or denormal
    for (size_t i = 0; i < srcBytes / 4; ++i)
      src.as<float>()[i] = static_cast<float>(i % 251) / 4.0f;
  const int cells = ks.width * ks.height;
  std::vector<float> kernel(cells);
  for (int i = 0; i < cells; ++i) kernel[i] = static_cast<float>(1 + i % 3) / (2.0f * cells);
  const LumPoint c{ks.width / 2, ks.height / 2};
  const T* first = reinterpret_cast<const T*>(src.as<unsigned char>() + c.y * srcStep) + c.x;
  for (auto _ : st) {
    fn(first, srcStep, dst.as<T>(), w * static_cast<int>(sizeof(T)), {w, h}, kernel.data(), ks, c);
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
  const auto add = [&](int w, int h, LumSize ks) {
    const std::string kernel =
        std::string(family) + "_" + std::to_string(ks.width) + "x" + std::to_string(ks.height);
    lumbench::registerBuilds(kernel, w, h, opensRegions, [=](int k) {
      return [=](benchmark::State& st) { runFilter<T>(st, table[k], w, h, ks); };
    });
    lumbench::registerReferences(
        kernel, w, h, [=](benchmark::State& st) { runFilter<T>(st, plain, w, h, ks); },
        static_cast<size_t>(w) * h * sizeof(T));
  };
  for (const auto& [w, h] : {std::pair{64, 64}, {256, 256}, {1024, 1024}, {1920, 1080}})
    for (const int kSize : {3, 5}) add(w, h, {kSize, kSize});
  for (const auto& [w, h] : {std::pair{256, 256}, {1920, 1080}}) add(w, h, {1, 5});
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
