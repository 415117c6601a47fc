#include "bench_common.h"

#include "tests/support/processor.h"

namespace lumbench {

bool buildSupported(int k) { return lumtest::processorRunsBuild(k); }

std::string sizeName(int w, int h) { return std::to_string(w) + "x" + std::to_string(h); }

Buffer::Buffer(size_t bytes) : bytes_(bytes) {
  if (posix_memalign(&p_, 64, bytes ? bytes : 1) != 0) abort();
  unsigned char* c = static_cast<unsigned char*>(p_);
  uint32_t s = 12345;
  for (size_t i = 0; i < bytes; ++i) {
    s = s * 1103515245u + 12345u;
    c[i] = static_cast<unsigned char>(s >> 16);
  }
}

void registerMemcpy(const std::string& kernel, int w, int h, size_t bytes) {
  benchmark::RegisterBenchmark((kernel + "/memcpy/" + sizeName(w, h)).c_str(),
                               [bytes](benchmark::State& st) {
                                 Buffer src(bytes), dst(bytes);
                                 for (auto _ : st) {
                                   std::memcpy(dst.as<char>(), src.as<char>(), bytes);
                                   benchmark::ClobberMemory();
                                 }
                                 st.SetBytesProcessed(static_cast<int64_t>(st.iterations()) *
                                                      2 * static_cast<int64_t>(bytes));
                               });
}

}  // namespace lumbench
