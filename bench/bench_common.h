// Shared pieces of the benchmarks. Every kernel is measured per build beside
// three references in the same run, all named <kernel>/<variant>/<W>x<H>:
//   k0..k5       the library's builds, called through their table entries,
//                on one thread;
//   kN_Pthreads  build N on the processor count P (k5_2threads on two
//                processors): every build that opens parallel regions for
//                the kernel, and k5 always, so that each pairs with kN;
//   plain        the same rule as a plain loop compiled -O3 for SSE4.1;
//   plain_Pthreads  (element-wise kernels) that loop with its rows shared
//                by an OpenMP region among P threads: what a second thread
//                gives a simple loop on the machine;
//   memcpy       a copy of the same bytes.
// Throughput is counted as bytes read plus bytes written, for all of them,
// so the ratios compare like with like; times are wall-clock times, which
// is what a caller waits with several threads.
#ifndef LUM_BENCH_COMMON_H
#define LUM_BENCH_COMMON_H

#include <benchmark/benchmark.h>
#include <omp.h>
#include <stdlib.h>

#include <cstdint>
#include <cstring>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "lum.h"

namespace lumbench {

bool buildSupported(int k);

std::string sizeName(int w, int h);

// The sizes every element-wise kernel is measured at: 64x64, 256x256,
// 1920x1080 and 4096x4096.
const std::vector<std::pair<int, int>>& imageSizes();

// The second thread count every kernel is measured at: the processor count
// of the OpenMP runtime.
int processorCount();

// A 64-byte aligned buffer, filled with a repeatable pattern.
class Buffer {
 public:
  explicit Buffer(size_t bytes);
  ~Buffer() { free(p_); }
  Buffer(const Buffer&) = delete;
  Buffer& operator=(const Buffer&) = delete;
  template <class T>
  T* as() const {
    return static_cast<T*>(p_);
  }
  size_t bytes() const { return bytes_; }

 private:
  void* p_ = nullptr;
  size_t bytes_ = 0;
};

using Measure = std::function<void(benchmark::State&)>;

// The counter every benchmark reports (the CSV needs the same in each):
// ns/px, wall-clock nanoseconds per pixel of a region of `pixels`.
void countPixels(benchmark::State& st, double pixels);

// <kernel>/<variant>/<W>x<H>, measured with the library's thread count set
// to `threads` (and back to 1 after).
void registerVariant(const std::string& kernel, const std::string& variant, int w, int h,
                     int threads, const Measure& measure);

// The builds of a kernel at one size: kN on one thread for every build the
// processor runs, and kN_Pthreads on the processor count where
// opensRegions(N) or N is 5; measureBuild(N) measures build N.
void registerBuilds(const std::string& kernel, int w, int h, bool (*opensRegions)(int k),
                    const std::function<Measure(int k)>& measureBuild);

// The plain loop (where the processor runs SSE4.1) and memcpy of
// `copyBytes` per iteration, counted as 2 * copyBytes (read and written).
// With `plainShares`, the plain loop on the processor count too, through
// plainInBands.
void registerReferences(const std::string& kernel, int w, int h, const Measure& plain,
                        size_t copyBytes, bool plainShares = false);

// The thread count plainInBands shares rows among: 1 but while a
// plain_Pthreads benchmark runs.
extern int plainThreads;

// rows(a, aStep, b, bStep, d, dStep, size, extra...), a plain loop over the
// rows of an element-wise operation: on the calling thread, or where
// plainThreads is above 1 in an OpenMP region, thread t of n taking the
// rows from height * t / n to height * (t + 1) / n. The loop itself is
// compiled apart, so sharing leaves its code as it is.
template <class T, class... Extra>
LumStatus plainInBands(void (*rows)(const T*, int, const T*, int, T*, int, LumSize, Extra...),
                       const T* a, int aStep, const T* b, int bStep, T* d, int dStep, LumSize size,
                       Extra... extra) {
  const auto at = [](auto* p, int step, int y) {
    return reinterpret_cast<decltype(p)>(reinterpret_cast<uintptr_t>(p) +
                                         static_cast<ptrdiff_t>(step) * y);
  };
  if (plainThreads == 1) {
    rows(a, aStep, b, bStep, d, dStep, size, extra...);
    return lumStsNoErr;
  }
#pragma omp parallel num_threads(plainThreads)
  {
    const int n = omp_get_num_threads(), t = omp_get_thread_num();
    const int from = static_cast<int>(static_cast<long long>(size.height) * t / n);
    const int to = static_cast<int>(static_cast<long long>(size.height) * (t + 1) / n);
    if (to > from)
      rows(at(a, aStep, from), aStep, at(b, bStep, from), bStep, at(d, dStep, from), dStep,
           LumSize{size.width, to - from}, extra...);
  }
  return lumStsNoErr;
}

}  // namespace lumbench

#endif
