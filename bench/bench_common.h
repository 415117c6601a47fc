// Shared pieces of the benchmarks. Every kernel is measured per build beside
// three references in the same run, all named <kernel>/<variant>/<W>x<H>:
//   k0..k5       the library's builds, called through their table entries,
//                on one thread;
//   kN_Pthreads  build N on the processor count P (k5_2threads on two
//                processors): every build that opens parallel regions for
//                the kernel, and k5 always, so that each pairs with kN;
//   plain        the same rule as a plain loop compiled -O3 for SSE4.1;
//   memcpy       a copy of the same bytes.
// Throughput is counted as bytes read plus bytes written, for all of them,
// so the ratios compare like with like; times are wall-clock times, which
// is what a caller waits with several threads.
#ifndef LUM_BENCH_COMMON_H
#define LUM_BENCH_COMMON_H

#include <benchmark/benchmark.h>
#include <stdlib.h>

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
void registerReferences(const std::string& kernel, int w, int h, const Measure& plain,
                        size_t copyBytes);

}  // namespace lumbench

#endif
