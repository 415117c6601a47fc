// What the library must report about a processor, worked out from its raw
// CPUID leaves by the documented bit positions and descriptor sizes; for the
// probe (real and emulated processors) and the tests (made-up ones).
#ifndef LUM_TESTS_SUPPORT_CPU_REFERENCE_H
#define LUM_TESTS_SUPPORT_CPU_REFERENCE_H

#include <stdint.h>

#include <array>
#include <string>
#include <vector>

namespace lumref {

// Leaves 0, 1, 2, 4, 0x80000000 and 0x80000001 (sub-leaf 0): EAX, EBX, ECX, EDX.
struct Leaves {
  uint32_t l0[4], l1[4], l2[4], l4[4], x0[4], x1[4];
};
Leaves readLeaves(void (*cpuid)(uint32_t regs[4], uint32_t leaf));
bool isGenuineTorva(const Leaves& s);
// The highest build whose instruction set leaf 1 shows, each level on top of
// the lower ones: MMX and SSE, SSE2, SSE3, SSSE3, SSE4.1.
int featureLevel(const Leaves& s);
// The raw queries and the record against the leaves: mismatches, one a line.
std::string queryMismatches(const Leaves& s);
// The cache a descriptor byte describes, the largest leaf 2 describes (-1:
// none, or more than one round), and the cache query's status and size.
int descriptorSize(uint8_t byte);
int leaf2CacheSize(const uint32_t leaf2[4]);
int cacheStatus(const Leaves& s, int* size);
// The extended leaves the largest-cache reading looks at: the highest
// extended leaf (EAX of 0x80000000), ECX of 0x80000001, leaf 0x80000006,
// and the sub-leaves of 0x8000001D from 0 on (those not given read as zeros).
struct ExtendedLeaves {
  uint32_t highest, x1Ecx, x6[4];
  std::vector<std::array<uint32_t, 4>> cacheList;
};
// The largest cache the extended leaves describe, in bytes, at most
// INT32_MAX: where 0x80000001 ECX bit 22 is set and the highest leaf reaches
// 0x8000001D, the largest data or unified cache of the list up to its first
// entry of type 0 (ways x partitions x line bytes x sets, each field one
// less than its count); where that names none, the larger of 0x80000006's
// level-2 cache in KiB (ECX bits 31..16) and level-3 cache in units of
// 512 KiB (EDX bits 31..18); 0 where the highest extended leaf is not
// 0x80000006..0x8000FFFF.
int extendedCacheSize(const ExtendedLeaves& x);

}  // namespace lumref

#endif
