// A made-up processor for the identification and cache tests, installed
// through the library's test hooks while a FakeCpu lives: CPUID answers from
// `subLeaves` where it holds the leaf and sub-leaf asked, else from `leaves`
// for sub-leaf 0; anything else reads as zeros. The CPUID check finds
// `hasCpuid`, and `blindReads` counts CPUID executed while it is false.
#ifndef LUM_TESTS_SUPPORT_FAKE_CPU_H
#define LUM_TESTS_SUPPORT_FAKE_CPU_H

#include <map>
#include <utility>

#include "lum.h"
#include "support/cpu_reference.h"

namespace lumtest {

struct CpuRegs {
  Lum32u eax = 0, ebx = 0, ecx = 0, edx = 0;
};
using CpuLeaves = std::map<Lum32u, CpuRegs>;
using CpuSubLeaves = std::map<std::pair<Lum32u, Lum32u>, CpuRegs>;

// Leaf 0 with a vendor string of twelve characters and the highest basic
// leaf, and 0x80000001 as the highest extended leaf.
CpuLeaves cpuLeaves(const char* vendor = "GenuineTorva", Lum32u maxLeaf = 4);

struct FakeCpu {
  explicit FakeCpu(const CpuLeaves& l);
  // A processor of a vendor the cache query does not know, with the
  // extended leaves `x` (the cache list's sub-leaves included).
  explicit FakeCpu(const lumref::ExtendedLeaves& x);
  ~FakeCpu();
  CpuLeaves leaves;
  CpuSubLeaves subLeaves;
  bool hasCpuid = true;
  int blindReads = 0;
};

}  // namespace lumtest

#endif
