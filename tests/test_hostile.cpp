// Calls an application may make that the layouts of the harness do not: sizes whose row length in
// bytes does not fit 32 bits, a kernel whose scratch would not, and eight application threads
// calling every image function at once; and one that unmasks floating-point exceptions.
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

#include "image/thresholds.h"
#include "support/alloc_hooks.h"
#include "support/builds.h"
#include "support/convert_check.h"
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
    EXPECT_EQ(lumiAbsDiff_32f_C1R_arraddr[build](f(a), 16, f(b), 16, f(d), 16, {0x40000001, 1}),
              lumStsStepErr);
    // Width plus kernel width minus 1 beyond INT_MAX, and the window's bytes beyond 2^32.
    EXPECT_EQ(
        lumiFilter32f_8u_C1R_arraddr[build](a, 8, d, INT_MAX, {INT_MAX, 1}, k, {2, 1}, {0, 0}),
        lumStsStepErr);
    EXPECT_EQ(lumiFilter32f_16s_C1R_arraddr[build](reinterpret_cast<Lum16s*>(a), 16,
                                                   reinterpret_cast<Lum16s*>(d), 16,
                                                   {0x40000001, 1}, k, {3, 1}, {1, 0}),
              lumStsStepErr);
    EXPECT_EQ(
        lumiFilter_32f_C1R_arraddr[build](f(a), 16, f(d), 16, {0x40000000, 1}, k, {1, 1}, {0, 0}),
        lumStsStepErr);
    EXPECT_EQ(
        lumiFilter_32f_C1R_arraddr[build](f(a), 64, f(d), 64, {4, 1}, k, {0x3FFFFFFE, 1}, {0, 0}),
        lumStsStepErr);
  }
}

// A 16384 x 16384 kernel: its scratch copy, four floats a coefficient, is 2^32 bytes and more,
// which the allocator's 32-bit request would wrap to a few. The fast paths must send such a band to
// the direct loop without asking. The kernel is 1 GiB of zero pages; the 8u source window lies in a
// reserve nothing may touch, so the first read of it (by the direct loop, or by a fast path that
// got a block) ends the call, and the allocator must not have been asked by then.
sigjmp_buf readTheWindow;
void backToTheTest(int) { siglongjmp(readTheWindow, 1); }

TEST(HostileSizes, AKernelWhoseScratchWouldWrapIsNeverAskedFor) {
  constexpr int kSide = 16384, kW = 16, kStep = kW + kSide - 1;
  const size_t kernelBytes = size_t(kSide) * kSide * 4, windowBytes = size_t(kStep) * kSide;
  void* kernel =
      mmap(nullptr, kernelBytes, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  void* window =
      mmap(nullptr, windowBytes, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (kernel == MAP_FAILED || window == MAP_FAILED)
    GTEST_SKIP() << "no room for a 1 GiB kernel and its window";
  struct sigaction onFault {
  }, saved{};
  onFault.sa_handler = backToTheTest;
  sigaction(SIGSEGV, &onFault, &saved);
  Lum8u dst[kW];
  const FpEnv caller = readFp();
  for (int build = 0; build < kNumBuilds; ++build) {
    if (!buildSupported(build)) continue;
    CountingHooks hooks(false);
    if (sigsetjmp(readTheWindow, 1) == 0)
      lumiFilter32f_8u_C1R_arraddr[build](static_cast<Lum8u*>(window) + windowBytes / 2, kStep, dst,
                                          kW, {kW, 1}, static_cast<const float*>(kernel),
                                          {kSide, kSide}, {kSide / 2, kSide / 2});
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
  int w = 160, h = 64;
};

// Rows of `width` pixels, enough of them for two threads' worth of work.
int rowsForTwo(long long perThread, int width) { return int((2 * perThread + width - 1) / width); }

template <class T>
T* at(std::vector<uint8_t>& v, size_t offset = 0) {
  return reinterpret_cast<T*>(v.data() + offset);
}

std::vector<Family> families() {
  static const float kernel[9] = {0.0625f, -0.125f, 0.25f, 0.5f,    1.0f,
                                  -0.5f,   0.125f,  0.25f, -0.0625f};
  // The element-wise functions: two sources and a destination, rows w pixels apart.
#define LUM_BINARY(name, T, ...)                                                                           \
  Family {                                                                                                 \
#name, int(sizeof(T)), 0, [](Job& j, int w, int h) {                                                     \
      const int s = w * int(sizeof(T));                                                                      \
      return name(at<T>(j.src[0]), s, at<T>(j.src[1]), s, at<T>(j.dst), s, {w, h}, ##__VA_ARGS__);          \
    } \
  }
  // Regions with two threads' worth of work (image/thresholds.h), of rows long enough to be shared.
#define LUM_SHARED(name, T, width, perThread, ...)             \
  [] {                                                         \
    Family f = LUM_BINARY(name, T, ##__VA_ARGS__);             \
    return f.w = width, f.h = rowsForTwo(perThread, width), f; \
  }()
  // The filters: a 3x3 kernel, anchor (1, 1), from the first interior pixel of a bordered source,
  // with two threads' worth of work.
#define LUM_FILTER(name, T)                                                                                \
  Family {                                                                                                 \
#name, int(sizeof(T)), 1, [](Job& j, int w, int h) {                                                     \
      const int s = (w + 2) * int(sizeof(T));                                                                \
      return name(at<T>(j.src[0], s + sizeof(T)), s, at<T>(j.dst), w * int(sizeof(T)), {w, h}, kernel, {3, 3}, \
                  {1, 1});                                                                                   \
    }, 256, rowsForTwo(lum::kFilterCellsPerThread / 9 + 1, 256) \
  }
  return {LUM_SHARED(lumiMul_8u_C1RSfs, Lum8u, 512, lum::kMul8uPixelsPerThread, 3),
          LUM_SHARED(lumiMul_16s_C1RSfs, Lum16s, 512, lum::kMul16sPixelsPerThread, -2),
          LUM_SHARED(lumiMul_32f_C1R, Lum32f, 512, lum::kMul32fPixelsPerThread),
          LUM_BINARY(lumiAbsDiff_8u_C1R, Lum8u),
          LUM_BINARY(lumiAbsDiff_32f_C1R, Lum32f),
          LUM_SHARED(lumiDiv_8u_C1RSfs, Lum8u, 1030, lum::kDiv8uPixelsPerThread, -2),
          LUM_SHARED(lumiDiv_16s_C1RSfs, Lum16s, 1030, lum::kDiv16sPixelsPerThread, 1),
          LUM_SHARED(lumiDiv_32f_C1R, Lum32f, 4100, lum::kDiv32fPixelsPerThread),
          LUM_FILTER(lumiFilter32f_8u_C1R, Lum8u),
          LUM_FILTER(lumiFilter32f_16s_C1R, Lum16s),
          LUM_FILTER(lumiFilter_32f_C1R, Lum32f)};
#undef LUM_BINARY
#undef LUM_FILTER
#undef LUM_SHARED
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
        for (size_t i = 3; f.pixel == 4 && i < s.size(); i += 4)
          s[i] &= 0xC7;  // finite floats, often 0
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

// ---- A caller that unmasks the invalid, divide-by-zero and overflow exceptions, on the x87 and in
// MXCSR. The library's own steps (a NaN sum or an out-of-range one made a pixel, the value a zero
// divisor gives, the 16s kernel bound, the row conversions) raise what they raise without trapping
// and leave no unmasked x87 exception pending (it would trap at the caller's next x87 instruction);
// the pixels are those of the same calls under the default settings.
sigjmp_buf g_trapped;
void onFpe(int) { siglongjmp(g_trapped, 1); }

class UnmaskedExceptions : public PerBuild {
 protected:
  // Runs `call` under the unmasked environment (or the default one); false if it trapped or left an
  // unmasked x87 exception pending. The caller's environment comes back either way.
  bool quietly(const std::function<void()>& call, bool unmasked) {
    const FpEnv caller = readFp();
    const FpFlags callerFlags = readFpFlags();
    // A flag an earlier step left raised would trap as soon as its exception is unmasked.
    __asm__ __volatile__("fnclex");
    const FpEnv env{"", unmasked ? 0x1900u : 0x1F80u, uint16_t(unmasked ? 0x0372 : 0x037F)};
    struct sigaction onTrap {
    }, before{};
    onTrap.sa_handler = onFpe;
    sigaction(SIGFPE, &onTrap, &before);
    bool clean = false;
    if (sigsetjmp(g_trapped, 1) == 0) {
      writeFp(env);
      call();
      uint16_t status;
      __asm__ __volatile__("fnstsw %0" : "=m"(status));
      clean = (status & ~env.x87 & 0x3F) == 0;
    }
    __asm__ __volatile__("fnclex");
    writeFp(caller);
    writeFpFlags(callerFlags);
    sigaction(SIGFPE, &before, nullptr);
    return clean;
  }
  // The bytes `fill` writes under the unmasked environment, which must be those of the default one.
  void same(const char* what, const std::function<void(std::vector<uint8_t>&)>& fill,
            size_t bytes) {
    std::vector<uint8_t> got(bytes), want(bytes);
    ASSERT_TRUE(quietly([&] { fill(got); }, true)) << "k" << build() << " " << what << ": trapped";
    ASSERT_TRUE(quietly([&] { fill(want); }, false));
    EXPECT_EQ(got, want) << "k" << build() << " " << what;
  }
};

TEST_P(UnmaskedExceptions, TheLibrarysOwnStepsNeverTrap) {
  const int b = build(), w = 37, h = 3, k = 3;
  const float nan = NAN, huge = 1e30f;
  const std::vector<std::vector<float>> kernels = {{1, 2, 1, 0, nan, 0, 1, 2, 1},
                                                   std::vector<float>(9, -huge),
                                                   std::vector<float>(9, huge),
                                                   {0, 0, 0, 0, 1, 0, 0, 0, 0}};
  std::vector<uint8_t> src8((w + k) * (h + k));
  std::vector<Lum16s> src16(src8.size());
  std::vector<float> src32(src8.size());
  for (size_t i = 0; i < src8.size(); ++i)
    src8[i] = uint8_t(i * 37), src16[i] = Lum16s(i * 997), src32[i] = float(i % 41) - 20;
  const int sw = w + k;
  for (const auto& kernel : kernels) {
    const float* kp = kernel.data();
    SCOPED_TRACE("kernel " + std::to_string(&kernel - kernels.data()));
    same(
        "filter 8u",
        [&](std::vector<uint8_t>& d) {
          lumiFilter32f_8u_C1R_arraddr[b](src8.data() + sw + 1, sw, d.data(), w, {w, h}, kp, {k, k},
                                          {1, 1});
        },
        size_t(w * h));
    same(
        "filter 16s",
        [&](std::vector<uint8_t>& d) {
          lumiFilter32f_16s_C1R_arraddr[b](src16.data() + sw + 1, 2 * sw,
                                           reinterpret_cast<Lum16s*>(d.data()), 2 * w, {w, h}, kp,
                                           {k, k}, {1, 1});
        },
        size_t(2 * w * h));
    same(
        "filter 32f",
        [&](std::vector<uint8_t>& d) {
          lumiFilter_32f_C1R_arraddr[b](src32.data() + sw + 1, 4 * sw,
                                        reinterpret_cast<float*>(d.data()), 4 * w, {w, h}, kp,
                                        {k, k}, {1, 1});
        },
        size_t(4 * w * h));
  }
  // Zero divisors beside every kind of dividend, in groups of every layout.
  const std::vector<float> divisors = {0, -0.0f, 0, 0, 2, 0, 3, nan, 0, 5,
                                       0, 0,     1, 0, 0, 7, 0, 0,   0};
  const std::vector<float> dividends = {1,    1,     -1, 0,        0,         nan, 6, 1, -nan, 4,
                                        huge, -huge, 1,  INFINITY, -INFINITY, 3,   2, 0, nan};
  const int n = int(divisors.size());
  same(
      "division 32f",
      [&](std::vector<uint8_t>& d) {
        lumiDiv_32f_C1R_arraddr[b](divisors.data(), 4 * n, dividends.data(), 4 * n,
                                   reinterpret_cast<float*>(d.data()), 4 * n, {n, 1});
      },
      size_t(4 * n));
  if (b == 0) return;  // the generic build has no row conversions
  const std::vector<float> values = {nan,   -nan, INFINITY, -INFINITY, huge,  -huge, 3e9f,
                                     -3e9f, 0.5f, 1.5f,     -2.5f,     70000, 12};
  const int m = int(values.size());
  for (int mode : {0, 1, 2})
    for (int sf : {0, -3, 200, -200}) {
      same(
          "conversion to 8u",
          [&](std::vector<uint8_t>& d) { to8u[b](values.data(), d.data(), m, mode, sf); },
          size_t(m));
      if (to16s[b])
        same(
            "conversion to 16s",
            [&](std::vector<uint8_t>& d) {
              to16s[b](values.data(), reinterpret_cast<Lum16s*>(d.data()), m, mode, sf);
            },
            size_t(2 * m));
    }
}
LUM_INSTANTIATE_PER_BUILD(UnmaskedExceptions);

}  // namespace
