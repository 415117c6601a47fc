#include "bench_common.h"

#include <omp.h>

#include "core/builds.h"
#include "tests/support/processor.h"

namespace lumbench {

bool buildSupported(int k) { return lumtest::processorRunsBuild(k); }

std::string sizeName(int w, int h) { return std::to_string(w) + "x" + std::to_string(h); }

const std::vector<std::pair<int, int>>& imageSizes() {
  static const std::vector<std::pair<int, int>> sizes = {
      {64, 64}, {256, 256}, {1920, 1080}, {4096, 4096}};
  return sizes;
}

int processorCount() {
  const int n = omp_get_num_procs();
  return n < 1 ? 1 : n;
}

Buffer::Buffer(size_t bytes) : bytes_(bytes) {
  if (posix_memalign(&p_, 64, bytes ? bytes : 1) != 0) abort();
  unsigned char* c = static_cast<unsigned char*>(p_);
  uint32_t s = 12345;
  for (size_t i = 0; i < bytes; i += 4) {
    s = s * 1103515245u + 12345u;
    const uint32_t word = (s >> 16) | (s * 2654435761u & 0xFFFF0000u);
    std::memcpy(c + i, &word, bytes - i < 4 ? bytes - i : 4);
  }
}

void countPixels(benchmark::State& st, double pixels) {
  st.counters["ns/px"] = benchmark::Counter(
      pixels * 1e-9, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void registerVariant(const std::string& kernel, const std::string& variant, int w, int h,
                     int threads, const Measure& measure) {
  benchmark::RegisterBenchmark((kernel + "/" + variant + "/" + sizeName(w, h)).c_str(),
                               [=](benchmark::State& st) {
                                 lumSetNumThreads(threads);
                                 measure(st);
                                 lumSetNumThreads(1);
                                 countPixels(st, static_cast<double>(w) * h);
                               })
      ->UseRealTime();
}

void registerBuilds(const std::string& kernel, int w, int h, bool (*opensRegions)(int k),
                    const std::function<Measure(int k)>& measureBuild) {
  const int procs = processorCount();
  for (int k = 0; k < LUM_NUM_BUILDS; ++k) {
    if (!buildSupported(k)) continue;
    const std::string tag = "k" + std::to_string(k);
    registerVariant(kernel, tag, w, h, 1, measureBuild(k));
    if (procs > 1 && (k == 5 || opensRegions(k)))
      registerVariant(kernel, tag + "_" + std::to_string(procs) + "threads", w, h, procs,
                      measureBuild(k));
  }
}

int plainThreads = 1;

void registerReferences(const std::string& kernel, int w, int h, const Measure& plain,
                        size_t copyBytes, bool plainShares) {
  if (buildSupported(5)) {
    registerVariant(kernel, "plain", w, h, 1, plain);
    const int procs = processorCount();
    if (plainShares && procs > 1)
      registerVariant(kernel, "plain_" + std::to_string(procs) + "threads", w, h, 1,
                      [plain, procs](benchmark::State& st) {
                        plainThreads = procs;
                        plain(st);
                        plainThreads = 1;
                      });
  }
  registerVariant(kernel, "memcpy", w, h, 1, [copyBytes](benchmark::State& st) {
    Buffer src(copyBytes), dst(copyBytes);
    for (auto _ : st) {
      std::memcpy(dst.as<char>(), src.as<char>(), copyBytes);
      benchmark::ClobberMemory();
    }
    st.SetBytesProcessed(static_cast<int64_t>(st.iterations()) * 2 *
                         static_cast<int64_t>(copyBytes));
  });
}

}  // namespace lumbench
