// Whether the running processor has the instruction set of build k (0..5),
// as the compiler's own processor check reports it. Shared by the tests, the
// benchmarks and the demo.
#ifndef LUM_TESTS_SUPPORT_PROCESSOR_H
#define LUM_TESTS_SUPPORT_PROCESSOR_H

#include "core/builds.h"

namespace lumtest {

// Each build needs the instruction sets of the builds below it, and its own.
inline bool processorRunsBuild(int k) {
  __builtin_cpu_init();
  const int own[] = {true,
                     __builtin_cpu_supports("mmx") && __builtin_cpu_supports("sse"),
                     __builtin_cpu_supports("sse2"),
                     __builtin_cpu_supports("sse3"),
                     __builtin_cpu_supports("ssse3"),
                     __builtin_cpu_supports("sse4.1")};
  static_assert(sizeof own / sizeof own[0] == LUM_NUM_BUILDS, "an instruction set per build");
  return k >= 0 && k < LUM_NUM_BUILDS && own[k] && (k == 0 || processorRunsBuild(k - 1));
}

}  // namespace lumtest

#endif
