// The thread count, and what a parallel region owes its caller whatever the
// count: the caller's floating-point environment in every row, the flags its
// rows raise, no more threads than the process can afford, and a working
// library in the child of a fork().
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cfenv>
#include <cfloat>
#include <cstring>
#include <functional>
#include <vector>

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

// A 64 x 64 float product through the selected build: the pixels, and the
// status. Rows from 48 on overflow.
struct Product {
  std::vector<float> a, b, d;
  Product() : a(64 * 64), b(64 * 64), d(64 * 64, 0.0f) {
    for (int i = 0; i < 64 * 64; ++i) {
      a[i] = i >= 48 * 64 ? FLT_MAX : 1.0f + static_cast<float>(i) / 3.0f;
      b[i] = i >= 48 * 64 ? 2.0f : 0.1f + static_cast<float>(i % 7);
    }
  }
  LumStatus run() {
    return lumiMul_32f_C1R(a.data(), 256, b.data(), 256, d.data(), 256, LumSize{64, 64});
  }
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
    EXPECT_EQ(std::memcmp(one.d.data(), four.d.data(), 64 * 64 * 4), 0) << "rounding mode " << mode;
    EXPECT_EQ(raised, FE_OVERFLOW | FE_INEXACT) << "rounding mode " << mode;
  }
}

// A count far beyond what a 32-bit process can start is accepted, and the
// regions still run (with fewer threads).
TEST_P(Region, ThousandThreadsAsked) {
  EXPECT_EQ(inChild([] {
              Product one, many;
              lumSetNumThreads(1);
              const bool ran = one.run() == lumStsNoErr;
              lumSetNumThreads(1000);
              return ran && many.run() == lumStsNoErr &&
                     std::memcmp(one.d.data(), many.d.data(), 64 * 64 * 4) == 0;
            }),
            0);
}

// The child of a process whose regions had started threads runs the same
// regions on its calling thread.
TEST_P(Region, ChildOfAForkAfterParallelRegions) {
  lumtest::ThreadCountScope threads(2);
  Product parent;
  ASSERT_EQ(parent.run(), lumStsNoErr);
  EXPECT_EQ(inChild([&] {
              Product child;
              return child.run() == lumStsNoErr &&
                     std::memcmp(child.d.data(), parent.d.data(), 64 * 64 * 4) == 0;
            }),
            0);
}

LUM_INSTANTIATE_PER_BUILD(Region);

}  // namespace
