// Internal interface of processor identification and the cache query. Not
// installed.
#ifndef LUM_CORE_CPU_INTERNAL_H
#define LUM_CORE_CPU_INTERNAL_H

#include "lum_internal.h"

extern "C" {

// Runs CPUID with EAX = leaf, ECX = subLeaf (EBX = EDX = 0) and stores EAX,
// EBX, ECX, EDX in regs[0..3]. Every CPUID read of the library goes through
// here.
LUM_HIDDEN void ownGetReg(Lum32u regs[4], Lum32u leaf, Lum32u subLeaf);

// Substitutes for the processor, for the tests only: when set, ownGetReg
// returns what ownCpuidHook reports and lum_has_cpuid what ownHasCpuidHook
// reports. Both are null in a normal process; nothing in the library sets
// them.
typedef void (*OwnCpuidFn)(Lum32u regs[4], Lum32u leaf, Lum32u subLeaf);
typedef int (*OwnHasCpuidFn)(void);
LUM_HIDDEN extern OwnCpuidFn ownCpuidHook;
LUM_HIDDEN extern OwnHasCpuidFn ownHasCpuidHook;

// One entry of the leaf-2 descriptor table: only the low byte of the
// descriptor word is compared; a descriptor word of 0 ends the table.
typedef struct {
  Lum32u descriptor;
  Lum32u size;
} OwnCacheDescriptor;

// The library's table, largest caches first, ended by {0, 0}.
LUM_HIDDEN extern const OwnCacheDescriptor ownCacheDescriptors[];

// Size in bytes of the first cache of `table` that leaf 2 describes, or -1
// when leaf 2 needs more than one round or describes none of them.
LUM_HIDDEN int ownGetCacheSize(const OwnCacheDescriptor* table);

// Size in bytes of the largest cache the extended leaves describe, at most
// INT_MAX: the largest data or unified cache of leaf 0x8000001D's list
// (ways x partitions x line bytes x sets) where leaf 0x80000001 says the list
// is there and it names one; else the larger of leaf 0x80000006's level 2
// (ECX bits 31..16 in KiB) and level 3 (EDX bits 31..18 in units of
// 512 KiB). 0 without CPUID, without the leaf, or where it describes
// neither.
LUM_HIDDEN int ownGetExtendedCacheSize(void);

// Puts the cache query back into its load-time state (answer not yet known),
// for the tests only.
LUM_HIDDEN void ownResetCacheState(void);

}  // extern "C"

#endif
