// Shared pieces of the benchmarks. Every kernel is measured per build beside
// three references in the same run, all named <kernel>/<variant>/<W>x<H>:
//   k0..k5  the library's builds, called through their table entries;
//   plain   the same rule as a plain loop compiled -O3 for SSE4.1;
//   memcpy  a copy of the same bytes.
// Throughput is counted as bytes read plus bytes written, for all of them,
// so the ratios compare like with like.
#ifndef LUM_BENCH_COMMON_H
#define LUM_BENCH_COMMON_H

#include <benchmark/benchmark.h>
#include <stdlib.h>

#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "lum.h"

namespace lumbench {

bool buildSupported(int k);

std::string sizeName(int w, int h);

// A 64-byte aligned buffer, filled with a repeatable pattern.
class Buffer {
 public:
  explicit Buffer(size_t bytes);
  ~Buffer() { free(p_); }
  Buffer(const Buffer&) = delete;
  Buffer& operator=(const Buffer&) = delete;
  template <class T>
  T* as() const { return static_cast<T*>(p_); }
  size_t bytes() const { return bytes_; }

 private:
  void* p_ = nullptr;
  size_t bytes_ = 0;
};

// memcpy of `bytes` per iteration, counted as 2 * bytes (read and written).
void registerMemcpy(const std::string& kernel, int w, int h, size_t bytes);

}  // namespace lumbench

#endif
