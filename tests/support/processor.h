// Whether the running processor has the instruction set of build k (0..5),
// as the compiler's own processor check reports it. Shared by the tests, the
// benchmarks and the demo.
#ifndef LUM_TESTS_SUPPORT_PROCESSOR_H
#define LUM_TESTS_SUPPORT_PROCESSOR_H

namespace lumtest {

inline bool processorRunsBuild(int k) {
  __builtin_cpu_init();
  switch (k) {
    case 0: return true;
    case 1: return __builtin_cpu_supports("mmx") && __builtin_cpu_supports("sse");
    case 2: return processorRunsBuild(1) && __builtin_cpu_supports("sse2");
    case 3: return processorRunsBuild(2) && __builtin_cpu_supports("sse3");
    case 4: return processorRunsBuild(3) && __builtin_cpu_supports("ssse3");
    case 5: return processorRunsBuild(4) && __builtin_cpu_supports("sse4.1");
    default: return false;
  }
}

}  // namespace lumtest

#endif
