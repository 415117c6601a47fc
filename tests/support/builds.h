// The six image builds as a test parameter, and which of them this processor
// can run. A build the processor lacks is skipped, never passed silently.
#ifndef LUM_TESTS_SUPPORT_BUILDS_H
#define LUM_TESTS_SUPPORT_BUILDS_H

#include <gtest/gtest.h>

#include <string>

#include "lum.h"
#include "processor.h"

namespace lumtest {

constexpr int kNumBuilds = 6;

inline std::string buildTag(int k) { return "k" + std::to_string(k); }
inline bool buildSupported(int k) { return processorRunsBuild(k); }

// Names parametrized tests after the build tag.
struct BuildName {
  std::string operator()(const testing::TestParamInfo<int>& info) const { return buildTag(info.param); }
};

}  // namespace lumtest

// A test fixture parametrized over the six builds; skips a build this
// processor cannot run.
class PerBuild : public testing::TestWithParam<int> {
 protected:
  void SetUp() override {
    if (!lumtest::buildSupported(build()))
      GTEST_SKIP() << "this processor cannot run build " << lumtest::buildTag(build());
  }
  int build() const { return GetParam(); }
};

#define LUM_INSTANTIATE_PER_BUILD(Fixture) \
  INSTANTIATE_TEST_SUITE_P(Builds, Fixture, testing::Range(0, ::lumtest::kNumBuilds), ::lumtest::BuildName())

#endif
