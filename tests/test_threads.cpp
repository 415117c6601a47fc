// The thread count, and what a parallel region owes its caller whatever the
// count: the caller's floating-point environment in every row, the flags its
// rows raise, no more threads than the process can afford, the same pixels
// and statuses on either side of where a region starts to pay, and a
// working library in the child of a fork().
#include <dirent.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cfenv>
#include <cfloat>
#include <cstring>
#include <functional>
#include <random>
#include <vector>

#include "image/thresholds.h"
#include "lum.h"
#include "support/builds.h"
#include "support/threads.h"

namespace {

TEST(ThreadCount, SetGetAndCountsBelowOneRefused) {
  lumtest::ThreadCountScope restore(1);
  for (int n : {1, 2, 3, 1000, 7, 0, -1, INT32_MIN}) {
    int before = -1, got = -1;
    ASSERT_EQ(lumGetNumThreads(&before), lumStsNoErr);
    EXPECT_EQ(lumSetNumThreads(n), n >= 1 ? lumStsNoErr : lumStsSizeErr) << n;
    ASSERT_EQ(lumGetNumThreads(&got), lumStsNoErr);
    EXPECT_EQ(got, n >= 1 ? n : before) << n;
  }
  EXPECT_EQ(lumGetNumThreads(nullptr), lumStsNullPtrErr);
}

// A float product through the selected build large enough for four threads
// to share: 1024-pixel rows, four threads' worth; the last quarter of the
// rows overflows, so that only the last thread raises the overflow flag.
struct Product {
  static constexpr int kW = 1024, kH = int((4 * lum::kMul32fPixelsPerThread + kW - 1) / kW),
                       kN = kW * kH;
  std::vector<float> a, b, d;
  Product() : a(kN), b(kN), d(kN, 0.0f) {
    for (int i = 0; i < kN; ++i) {
      a[i] = i >= kN / 4 * 3 ? FLT_MAX : 1.0f + static_cast<float>(i % 4099) / 3.0f;
      b[i] = i >= kN / 4 * 3 ? 2.0f : 0.1f + static_cast<float>(i % 7);
    }
  }
  LumStatus run() {
    return lumiMul_32f_C1R(a.data(), 4 * kW, b.data(), 4 * kW, d.data(), 4 * kW, LumSize{kW, kH});
  }
  bool operator==(const Product& o) const { return std::memcmp(d.data(), o.d.data(), 4 * kN) == 0; }
};

// Runs fn in a child process; its exit status, or -1 when it had to be
// stopped after 20 seconds.
int inChild(const std::function<bool()>& fn) {
  const pid_t pid = fork();
  if (pid == 0) {
    alarm(20);
    _exit(fn() ? 0 : 1);
  }
  int status = 0;
  waitpid(pid, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

int tasks() {
  int n = 0;
  if (DIR* d = opendir("/proc/self/task")) {
    while (const dirent* e = readdir(d)) n += e->d_name[0] != '.';
    closedir(d);
  }
  return n;
}

// The threads of this process before main() (an emulator has some of its own).
const int kTasksBeforeAnyRegion = tasks();

// Runs a region of two threads in this process, then waits (up to 5 seconds) until the threads a
// larger team had have gone: the OpenMP runtime lets the ones a smaller team leaves idle end on
// their own, and a fork() while one is ending may hand the child a lock it holds (the sanitizers'
// allocator takes some). The child of the fork that follows inherits a team that had started. The
// generic build's float filter shares its bands on every processor, so the team starts whichever
// build is under test (multiplication runs on the calling thread in the generic build).
void teamOfTwoThenSettle() {
  {
    lumtest::ThreadCountScope threads(2);
    static const float kOnes[9] = {1, 1, 1, 1, 1, 1, 1, 1, 1};
    constexpr int kW = 256, kH = int(2 * lum::kFilterCellsPerThread / 9 / kW) + 1;
    std::vector<float> src((kW + 2) * (kH + 2), 1.0f), dst(kW * kH);
    (void)lumiFilter_32f_C1R_arraddr[0](src.data() + kW + 3, 4 * (kW + 2), dst.data(), 4 * kW,
                                        {kW, kH}, kOnes, {3, 3}, {1, 1});
  }
  for (int waited = 0; waited < 5000; ++waited) {
    if (tasks() <= kTasksBeforeAnyRegion + 1) return;
    usleep(1000);
  }
  ADD_FAILURE() << "the threads of a larger team are still there after 5 seconds";
}

class Region : public PerBuild {
 protected:
  void SetUp() override {
    PerBuild::SetUp();
    lumJumpIndexForMergedLibs = build();
  }
  lumtest::IndexScope restoreIndex;
};

// Workers take the caller's rounding and hand back the flags they raise.
TEST_P(Region, WorkersRoundAsTheCallerAndRaiseItsFlags) {
  std::fenv_t saved;
  std::fegetenv(&saved);
  for (int mode : {FE_UPWARD, FE_TOWARDZERO, FE_DOWNWARD}) {
    Product one, four;
    std::fesetround(mode);
    {
      lumtest::ThreadCountScope threads(1);
      ASSERT_EQ(one.run(), lumStsNoErr);
    }
    std::feclearexcept(FE_ALL_EXCEPT);
    {
      lumtest::ThreadCountScope threads(4);
      ASSERT_EQ(four.run(), lumStsNoErr);
    }
    const int raised = std::fetestexcept(FE_OVERFLOW | FE_INEXACT);
    std::fesetenv(&saved);
    EXPECT_TRUE(one == four) << "rounding mode " << mode;
    EXPECT_EQ(raised, FE_OVERFLOW | FE_INEXACT) << "rounding mode " << mode;
  }
}

// A count far beyond what a 32-bit process can start is accepted, and the
// regions still run (with fewer threads).
TEST_P(Region, ThousandThreadsAsked) {
  teamOfTwoThenSettle();
  EXPECT_EQ(inChild([] {
              Product one, many;
              lumSetNumThreads(1);
              const bool ran = one.run() == lumStsNoErr;
              lumSetNumThreads(1000);
              return ran && many.run() == lumStsNoErr && one == many;
            }),
            0);
}

// The child of a process whose regions had started threads runs the same
// regions on its calling thread.
TEST_P(Region, ChildOfAForkAfterParallelRegions) {
  lumtest::ThreadCountScope threads(2);
  Product parent;
  ASSERT_EQ(parent.run(), lumStsNoErr);
  teamOfTwoThenSettle();
  EXPECT_EQ(inChild([&] {
              Product child;
              return child.run() == lumStsNoErr && child == parent;
            }),
            0);
}

// ---- Where regions start to pay (image/thresholds.h): every function that
// opens one, on regions of n threads' worth of work (n = 2, 4) and of one
// column fewer, must give the same pixels and status on 1, 2 and 4 threads,
// and in the child of a fork().

// One function: bytes per pixel, the work a thread must have, the rows it
// shares (at least minRow pixels long), the kernel's side (filters: work is
// pixels times kernel cells), and a call on operands of w x h pixels with
// rows w pixels apart (for filters the source has a border of side - 1).
struct Shared {
  const char* name;
  int pixel;
  long long perThread;
  int minRow, side;
  std::function<LumStatus(int build, const uint8_t* s1, const uint8_t* s2, uint8_t* d, int w,
                          int h)>
      call;
};

template <class T>
T* as(const uint8_t* p) {
  return reinterpret_cast<T*>(const_cast<uint8_t*>(p));
}

const float kKernel[9] = {0.0625f, -0.125f, 0.25f, 0.5f, 1.0f, -0.5f, 0.125f, 0.25f, -0.0625f};

std::vector<Shared> sharedFunctions() {
#define LUM_ELEMENTWISE(fn, T, perThread, minRow, ...)                                                                 \
  Shared {                                                                                                             \
#fn, int(sizeof(T)), perThread, minRow, 1, [](int k, const uint8_t* a, const uint8_t* b, uint8_t* d, int w, int h) { \
      const int s = w * int(sizeof(T));                                                                   \
      return fn##_arraddr[k](as<T>(a), s, as<T>(b), s, as<T>(d), s, {w, h}, ##__VA_ARGS__);               \
    } \
  }
#define LUM_FILTER(fn, T)                                                                                                        \
  Shared {                                                                                                                       \
#fn, int(sizeof(T)), lum::kFilterCellsPerThread, 1, 3, [](int k, const uint8_t* a, const uint8_t*, uint8_t* d, int w, int h) { \
      const int s = (w + 2) * int(sizeof(T));                                                             \
      return fn##_arraddr[k](as<T>(a + s + sizeof(T)), s, as<T>(d), w * int(sizeof(T)), {w, h}, kKernel, {3, 3}, {1, 1}); \
    } \
  }
  return {LUM_ELEMENTWISE(lumiMul_8u_C1RSfs, Lum8u, lum::kMul8uPixelsPerThread, 1, 1),
          LUM_ELEMENTWISE(lumiMul_16s_C1RSfs, Lum16s, lum::kMul16sPixelsPerThread, 1, 3),
          LUM_ELEMENTWISE(lumiMul_32f_C1R, Lum32f, lum::kMul32fPixelsPerThread, 1),
          LUM_ELEMENTWISE(lumiDiv_8u_C1RSfs, Lum8u, lum::kDiv8uPixelsPerThread, 1024, -2),
          LUM_ELEMENTWISE(lumiDiv_16s_C1RSfs, Lum16s, lum::kDiv16sPixelsPerThread, 1024, 1),
          LUM_ELEMENTWISE(lumiDiv_32f_C1R, Lum32f, lum::kDiv32fPixelsPerThread, 4096),
          LUM_FILTER(lumiFilter32f_8u_C1R, Lum8u),
          LUM_FILTER(lumiFilter32f_16s_C1R, Lum16s),
          LUM_FILTER(lumiFilter_32f_C1R, Lum32f)};
#undef LUM_ELEMENTWISE
#undef LUM_FILTER
}

// Operands for one shape: random bytes, floats finite and divisors now and
// then 0 (the warning must come back from whichever thread met it).
struct Operands {
  std::vector<uint8_t> src[2];
  Operands(const Shared& f, int w, int h, std::mt19937& rng) {
    for (auto& s : src) {
      s.resize(size_t(w + f.side - 1) * (h + f.side - 1) * f.pixel);
      for (size_t i = 0; i < s.size(); ++i) s[i] = uint8_t(rng() % 97 == 0 ? 0 : rng());
      for (size_t i = 0; f.pixel == 4 && i < s.size(); i += 4)
        if (rng() % 1000 == 0)
          std::memset(&s[i], 0, 4);
        else
          s[i + 3] &= 0xBF;  // exponents below 128: finite
    }
  }
  struct Result {
    LumStatus status;
    std::vector<uint8_t> dst;
    bool operator==(const Result& o) const { return status == o.status && dst == o.dst; }
  };
  Result run(const Shared& f, int build, int w, int h) const {
    Result r{lumStsNoErr, std::vector<uint8_t>(size_t(w) * h * f.pixel, 0xA5)};
    r.status = f.call(build, src[0].data(), src[1].data(), r.dst.data(), w, h);
    return r;
  }
};

TEST_P(Region, EachThresholdAndOneColumnBelowAlikeOnAnyThreadCount) {
  std::mt19937 rng(build() + 40);
  for (const Shared& f : sharedFunctions())
    for (int n : {2, 4}) {
      // Rows of at least minRow pixels, h of them (4 for the long division rows, 16 for filters,
      // 8 otherwise), wide enough for n threads' worth of work, then one column narrower.
      const int h = f.minRow > 1 ? 4 : f.side > 1 ? 16 : 8;
      const long long cellsPerPixel = f.side * f.side, rowWork = h * cellsPerPixel;
      const int at =
          int(std::max<long long>(f.minRow + 1, (n * f.perThread + rowWork - 1) / rowWork));
      ASSERT_GE(at * rowWork, n * f.perThread);
      ASSERT_LT((at - 1) * rowWork, n * f.perThread);
      for (int w : {at, at - 1}) {
        const Operands ops(f, w, h, rng);
        Operands::Result one;
        {
          lumtest::ThreadCountScope threads(1);
          one = ops.run(f, build(), w, h);
        }
        for (int t : {2, 4}) {
          lumtest::ThreadCountScope threads(t);
          EXPECT_TRUE(ops.run(f, build(), w, h) == one)
              << f.name << " " << w << "x" << h << " on " << t << " threads";
        }
        teamOfTwoThenSettle();
        EXPECT_EQ(inChild([&] { return ops.run(f, build(), w, h) == one; }), 0)
            << f.name << " " << w << "x" << h << " in a forked child";
      }
    }
}

LUM_INSTANTIATE_PER_BUILD(Region);

}  // namespace
