// The per-build entry points called with a stack aligned to 4 bytes only,
// as older i386 code calls them.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "lum.h"
#include "support/builds.h"
#include "support/misaligned_call.h"
#include "support/threads.h"

namespace {

uint32_t word(const void* p) { return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(p)); }

class MisalignedStack : public PerBuild {};

TEST_P(MisalignedStack, Mul32fAndGetLibVersion) {
#if defined(LUM_SANITIZE)
  // The sanitizer keeps its own shadow of the stack and flags the hand-made
  // call frame itself.
  GTEST_SKIP() << "hand-made call frames are not checkable under the address sanitizer";
#endif
  const int w = 67, h = 9;
  std::vector<float> a(w * h), b(w * h), want(w * h);
  for (int i = 0; i < w * h; ++i) {
    a[i] = 0.25f * static_cast<float>(i % 97) - 3.0f;
    b[i] = 1.5f - 0.125f * static_cast<float>(i % 13);
    want[i] = a[i] * b[i];  // exact in float
  }
  const auto mul = reinterpret_cast<const void*>(lumiMul_32f_C1R_arraddr[build()]);
  const auto version = reinterpret_cast<const void*>(lumiGetLibVersion_arraddr[build()]);
  for (int threads : {1, 2})
    for (int offset : {0, 4, 8, 12}) {
      lumtest::ThreadCountScope scope(threads);
      std::vector<float> d(w * h, 0.0f);
      const uint32_t args[] = {word(a.data()), w * 4, word(b.data()), w * 4, word(d.data()), w * 4, w, h};
      EXPECT_EQ(lumtest_call_misaligned(mul, args, 8, offset), uint32_t(lumStsNoErr)) << offset;
      EXPECT_EQ(std::memcmp(d.data(), want.data(), d.size() * 4), 0) << "stack offset " << offset;
      EXPECT_EQ(lumtest_call_misaligned(version, nullptr, 0, offset), word(lumiGetLibVersion_arraddr[build()]()));
    }
}

LUM_INSTANTIATE_PER_BUILD(MisalignedStack);

}  // namespace
