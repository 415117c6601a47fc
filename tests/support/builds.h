// The image builds as a test parameter. A build this processor cannot
// run is skipped, never passed silently.
#ifndef LUM_TESTS_SUPPORT_BUILDS_H
#define LUM_TESTS_SUPPORT_BUILDS_H

#include <gtest/gtest.h>

#include <string>

#include "core/builds.h"
#include "lum.h"
#include "processor.h"

namespace lumtest {
constexpr int kNumBuilds = LUM_NUM_BUILDS;
inline bool buildSupported(int k) { return processorRunsBuild(k); }
}  // namespace lumtest

// {lum::k0::name, .., lum::k5::name}: a function of the image code in each build, by index.
#define LUM_BUILD_ENTRY(tag, index, name) lum::tag::name,
#define LUM_PER_BUILD(name) \
  { LUM_FOR_EACH_BUILD(LUM_BUILD_ENTRY, name) }

class PerBuild : public testing::TestWithParam<int> {
 protected:
  void SetUp() override {
    if (!lumtest::buildSupported(build()))
      GTEST_SKIP() << "this processor cannot run build k" << build();
  }
  int build() const { return GetParam(); }
};

#define LUM_INSTANTIATE_PER_BUILD(Fixture)                       \
  INSTANTIATE_TEST_SUITE_P(                                      \
      Builds, Fixture, testing::Range(0, ::lumtest::kNumBuilds), \
      [](const testing::TestParamInfo<int>& i) { return "k" + std::to_string(i.param); })

#endif
