// The six image builds as a test parameter, and which of them this processor
// can run. A build the processor lacks is skipped, never passed silently.
#ifndef LUM_TESTS_SUPPORT_BUILDS_H
#define LUM_TESTS_SUPPORT_BUILDS_H

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "lum.h"

namespace lumtest {

constexpr int kNumBuilds = 6;

// Tag of build k: "k0" .. "k5".
std::string buildTag(int k);

// Whether the running processor has the instruction set build k needs.
bool buildSupported(int k);

std::vector<int> allBuilds();

// Names parametrized tests after the build tag.
struct BuildName {
  std::string operator()(const testing::TestParamInfo<int>& info) const {
    return buildTag(info.param);
  }
};

}  // namespace lumtest

// Skips the current test when the processor cannot run build k.
#define LUM_REQUIRE_BUILD(k)                                                     \
  do {                                                                           \
    if (!::lumtest::buildSupported(k))                                           \
      GTEST_SKIP() << "this processor cannot run build " << ::lumtest::buildTag(k); \
  } while (0)

// A test fixture parametrized over the six builds.
class PerBuild : public testing::TestWithParam<int> {
 protected:
  void SetUp() override { LUM_REQUIRE_BUILD(GetParam()); }
  int build() const { return GetParam(); }
};

#define LUM_INSTANTIATE_PER_BUILD(Fixture)                                        \
  INSTANTIATE_TEST_SUITE_P(Builds, Fixture, testing::ValuesIn(::lumtest::allBuilds()), \
                           ::lumtest::BuildName())

#endif
