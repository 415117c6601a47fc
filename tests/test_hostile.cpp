// Calls an application may make that the layouts of the harness do not: sizes whose row length in
// bytes does not fit 32 bits, a kernel whose scratch would not, and eight application threads
// calling every image function at once.
#include <setjmp.h>
#include <signal.h>
#include <sys/mman.h>

#include <atomic>
#include <climits>
#include <cstring>
#include <functional>
#include <random>
#include <thread>
#include <vector>

#include "support/alloc_hooks.h"
#include "support/builds.h"
#include "support/harness.h"
#include "support/threads.h"

namespace {

using namespace lumtest;

// Sizes whose bytes per row wrap in 32 bits (a small number after the wrap), with steps that would
// pass a wrapped check: the step error, and no access to the 64-byte buffers behind the pointers.
TEST(HostileSizes, RowsLongerThanAnyStepGetTheStepError) {
  alignas(16) static unsigned char a[64], b[64], d[64];
  const float k[4] = {1, 1, 1, 1};
  const auto f = [](auto* p) { return reinterpret_cast<Lum32f*>(p); };
  for (int build = 0; build < kNumBuilds; ++build) {
    if (!buildSupported(build)) continue;
    // 4 * (2^30 + 1) is 4 after a wrap.
    EXPECT_EQ(lumiAbsDiff_32f_C1R_arraddr[build](f(a), 16, f(b), 16, f(d), 16, {0x40000001, 1}), lumStsStepErr);
    // Width plus kernel width minus 1 beyond INT_MAX, and the window's bytes beyond 2^32.
    EXPECT_EQ(lumiFilter32f_8u_C1R_arraddr[build](a, 8, d, INT_MAX, {INT_MAX, 1}, k, {2, 1}, {0, 0}), lumStsStepErr);
    EXPECT_EQ(lumiFilter32f_16s_C1R_arraddr[build](reinterpret_cast<Lum16s*>(a), 16, reinterpret_cast<Lum16s*>(d), 16,
                                                   {0x40000001, 1}, k, {3, 1}, {1, 0}),
              lumStsStepErr);
    EXPECT_EQ(lumiFilter_32f_C1R_arraddr[build](f(a), 16, f(d), 16, {0x40000000, 1}, k, {1, 1}, {0, 0}), lumStsStepErr);
    EXPECT_EQ(lumiFilter_32f_C1R_arraddr[build](f(a), 64, f(d), 64, {4, 1}, k, {0x3FFFFFFE, 1}, {0, 0}), lumStsStepErr);
  }
}

// A 16384 x 16384 kernel: its scratch copy, four floats a coefficient, is 2^32 bytes and more, which
// the allocator's 32-bit request would wrap to a few. The fast paths must send such a band to the direct
// loop without asking. The kernel is 1 GiB of zero pages; the 8u source window lies in a reserve
// nothing may touch, so the first read of it (by the direct loop, or by a fast path that got a block)
// ends the call, and the allocator must not have been asked by then.
sigjmp_buf readTheWindow;
void backToTheTest(int) { siglongjmp(readTheWindow, 1); }

TEST(HostileSizes, AKernelWhoseScratchWouldWrapIsNeverAskedFor) {
  constexpr int kSide = 16384, kW = 16, kStep = kW + kSide - 1;
  const size_t kernelBytes = size_t(kSide) * kSide * 4, windowBytes = size_t(kStep) * kSide;
  void* kernel = mmap(nullptr, kernelBytes, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  void* window = mmap(nullptr, windowBytes, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (kernel == MAP_FAILED || window == MAP_FAILED) GTEST_SKIP() << "no room for a 1 GiB kernel and its window";
  struct sigaction onFault{}, saved{};
  onFault.sa_handler = backToTheTest;
  sigaction(SIGSEGV, &onFault, &saved);
  Lum8u dst[kW];
  const FpEnv caller = readFp();
  for (int build = 0; build < kNumBuilds; ++build) {
    if (!buildSupported(build)) continue;
    CountingHooks hooks(false);
    if (sigsetjmp(readTheWindow, 1) == 0)
      lumiFilter32f_8u_C1R_arraddr[build](static_cast<Lum8u*>(window) + windowBytes / 2, kStep, dst, kW, {kW, 1},
                                          static_cast<const float*>(kernel), {kSide, kSide}, {kSide / 2, kSide / 2});
    writeFp(caller);  // left where the read stopped the call
    EXPECT_EQ(hooks.mallocs, 0) << "k" << build << " asked for " << hooks.asked << " bytes";
  }
  sigaction(SIGSEGV, &saved, nullptr);
  munmap(kernel, kernelBytes), munmap(window, windowBytes);
}

// One call of an image function with its own operands: the sources' bytes, the destination's, and
// how to call it on them (width and height of the region given).
struct Job {
  std::vector<uint8_t> src[2], dst;
  LumStatus status = lumStsNoErr;
};
struct Family {
  const char* name;
  int pixel, border;  // bytes per pixel; source pixels around the region (filters)
  std::function<LumStatus(Job&, int w, int h)> call;
  int w = 160, h = 64;  // above the parallel thresholds of the element-wise functions and the filters
};

template <class T>
T* at(std::vector<uint8_t>& v, size_t offset = 0) { return reinterpret_cast<T*>(v.data() + offset); }

std::vector<Family> families() {
  static const float kernel[9] = {0.0625f, -0.125f, 0.25f, 0.5f, 1.0f, -0.5f, 0.125f, 0.25f, -0.0625f};
  // The element-wise functions: two sources and a destination, rows w pixels apart.
#define LUM_BINARY(name, T, ...)                                                                             \
  Family {                                                                                                   \
    #name, int(sizeof(T)), 0, [](Job& j, int w, int h) {                                                     \
      const int s = w * int(sizeof(T));                                                                      \
      return name(at<T>(j.src[0]), s, at<T>(j.src[1]), s, at<T>(j.dst), s, {w, h}, ##__VA_ARGS__);          \
    }                                                                                                        \
  }
  // Divisions on rows long enough to be split between two threads.
#define LUM_DIV(name, T, width, rows, ...) \
  [] { Family f = LUM_BINARY(name, T, ##__VA_ARGS__); return f.w = width, f.h = rows, f; }()
  // The filters: a 3x3 kernel, anchor (1, 1), from the first interior pixel of a bordered source.
#define LUM_FILTER(name, T)                                                                                  \
  Family {                                                                                                   \
    #name, int(sizeof(T)), 1, [](Job& j, int w, int h) {                                                     \
      const int s = (w + 2) * int(sizeof(T));                                                                \
      return name(at<T>(j.src[0], s + sizeof(T)), s, at<T>(j.dst), w * int(sizeof(T)), {w, h}, kernel, {3, 3}, \
                  {1, 1});                                                                                   \
    }                                                                                                        \
  }
  return {LUM_BINARY(lumiMul_8u_C1RSfs, Lum8u, 3),   LUM_BINARY(lumiMul_16s_C1RSfs, Lum16s, -2),
          LUM_BINARY(lumiMul_32f_C1R, Lum32f),       LUM_BINARY(lumiAbsDiff_8u_C1R, Lum8u),
          LUM_BINARY(lumiAbsDiff_32f_C1R, Lum32f),   LUM_DIV(lumiDiv_8u_C1RSfs, Lum8u, 1030, 3, -2),
          LUM_DIV(lumiDiv_16s_C1RSfs, Lum16s, 1030, 3, 1), LUM_DIV(lumiDiv_32f_C1R, Lum32f, 4100, 2),
          LUM_FILTER(lumiFilter32f_8u_C1R, Lum8u),   LUM_FILTER(lumiFilter32f_16s_C1R, Lum16s),
          LUM_FILTER(lumiFilter_32f_C1R, Lum32f)};
#undef LUM_BINARY
#undef LUM_FILTER
#undef LUM_DIV
}

class Concurrency : public PerBuild {};

// Eight application threads call each exported image function at once, each on images of its own,
// three times over, with the library's thread count 1 and then 2 (set before they start): every
// result and status equals that of the same call made alone.
TEST_P(Concurrency, EightCallersAtOnceGetWhatEachGetsAlone) {
  constexpr int kCallers = 8, kRepeats = 3;
  IndexScope index;
  lumJumpIndexForMergedLibs = build();
  std::mt19937 rng(build());
  for (const Family& f : families()) {
    const int w = f.w, h = f.h;
    std::vector<Job> jobs(kCallers), alone;
    for (Job& j : jobs) {
      for (auto& s : j.src) {
        s.resize(size_t(w + 2 * f.border) * (h + 2 * f.border) * f.pixel);
        for (size_t i = 0; i < s.size(); ++i) s[i] = uint8_t(rng() % 7 == 0 ? 0 : rng());
        for (size_t i = 3; f.pixel == 4 && i < s.size(); i += 4) s[i] &= 0xC7;  // finite floats, often 0
      }
      j.dst.assign(size_t(w) * h * f.pixel, 0);
    }
    {
      ThreadCountScope one(1);
      alone = jobs;
      for (Job& j : alone) j.status = f.call(j, w, h);
    }
    for (int threads : {1, 2}) {
      ThreadCountScope scope(threads);
      std::atomic<int> wrong{0};
      std::vector<std::thread> callers;
      for (int c = 0; c < kCallers; ++c)
        callers.emplace_back([&, c] {
          Job& j = jobs[c];
          for (int r = 0; r < kRepeats; ++r) {
            std::fill(j.dst.begin(), j.dst.end(), uint8_t(0xA5 + r));
            j.status = f.call(j, w, h);
            wrong += j.status != alone[c].status || j.dst != alone[c].dst;
          }
        });
      for (std::thread& t : callers) t.join();
      EXPECT_EQ(wrong.load(), 0) << f.name << ", library threads " << threads;
    }
  }
}

LUM_INSTANTIATE_PER_BUILD(Concurrency);

}  // namespace
