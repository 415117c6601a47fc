#include "builds.h"

namespace lumtest {

std::string buildTag(int k) { return "k" + std::to_string(k); }

bool buildSupported(int k) {
  __builtin_cpu_init();
  switch (k) {
    case 0: return true;
    case 1: return __builtin_cpu_supports("mmx") && __builtin_cpu_supports("sse");
    case 2: return buildSupported(1) && __builtin_cpu_supports("sse2");
    case 3: return buildSupported(2) && __builtin_cpu_supports("sse3");
    case 4: return buildSupported(3) && __builtin_cpu_supports("ssse3");
    case 5: return buildSupported(4) && __builtin_cpu_supports("sse4.1");
    default: return false;
  }
}

std::vector<int> allBuilds() { return {0, 1, 2, 3, 4, 5}; }

}  // namespace lumtest
