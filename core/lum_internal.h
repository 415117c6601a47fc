// Internal interface between the core (compiled once) and the six image
// builds k0..k5 (compiled once per instruction-set level). Not installed.
#ifndef LUM_CORE_INTERNAL_H
#define LUM_CORE_INTERNAL_H

#include "lum.h"

#define LUM_HIDDEN __attribute__((visibility("hidden")))

#define LUM_NUM_BUILDS 6

extern "C" {

// The thread count every parallel region asks for.
LUM_HIDDEN int ownGetNumThreads(void);

// Build index for a processor code, or -1 when no build is listed for it.
LUM_HIDDEN int ownBuildIndexForCpu(Lum32u cpu);

// Shared by the six version records.
LUM_HIDDEN extern const char ownVersionString[];
LUM_HIDDEN extern const char ownBuildDate[];

// The six tagged builds of every dispatched function: k0_name .. k5_name.
#define LUM_DISPATCHED(ret, name, params, args) \
  LUM_HIDDEN ret k0_##name params;              \
  LUM_HIDDEN ret k1_##name params;              \
  LUM_HIDDEN ret k2_##name params;              \
  LUM_HIDDEN ret k3_##name params;              \
  LUM_HIDDEN ret k4_##name params;              \
  LUM_HIDDEN ret k5_##name params;
#include "dispatched.def"
#undef LUM_DISPATCHED

}  // extern "C"

#endif
