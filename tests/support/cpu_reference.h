// A second, independent reading of the processor classification and of the
// leaf-2 cache walk, written from the documented tables rather than from the
// library's code. The processor probe compares the library with it on the
// machine the tests run on and on emulated processors; the cache tests use
// its walk.
#ifndef LUM_TESTS_SUPPORT_CPU_REFERENCE_H
#define LUM_TESTS_SUPPORT_CPU_REFERENCE_H

#include <stdint.h>

namespace lumref {

struct Regs {
  uint32_t eax = 0, ebx = 0, ecx = 0, edx = 0;
};

// Everything the classification and the cache walk look at.
struct Snapshot {
  bool hasCpuid = false;
  Regs leaf0, leaf1, leaf2, leaf4, ext0, ext1;  // leaf 4 is sub-leaf 0
};

bool isGenuineTorva(const Snapshot& s);
// Processor code as documented for lumGetCpuType.
uint32_t cpuType(const Snapshot& s);
// Build index lumStaticInit selects for a code (unlisted codes: 0), and the
// one lumStaticInitCpu selects (-1: refused).
int autoIndex(uint32_t code);
int explicitIndex(uint32_t code);
// Status and size lumGetMaxCacheSizeB reports.
int cacheStatus(const Snapshot& s, int* size);
// Size of the cache a leaf-2 descriptor byte describes, -1 if none.
int descriptorSize(uint8_t byte);
// The largest cache leaf 2 describes, -1 if none or more than one round.
int leaf2CacheSize(const Regs& leaf2);

}  // namespace lumref

#endif
