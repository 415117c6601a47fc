// Build selection: the variant index, one address table per dispatched
// function (an entry per build, in index order), the stubs that jump through
// them, and the explicit initializer.
#include <omp.h>

#include "lum_internal.h"

extern "C" {

LUM_API int lumJumpIndexForMergedLibs = 0;

// A stub forwards its caller's arguments unchanged through the table entry of
// the selected build; at -O2 the call becomes a tail jump, so the build
// returns straight to the caller.
#define LUM_TABLE_ENTRY(tag, index, name) tag##_##name,
#define LUM_DISPATCHED(ret, name, params, args)             \
  LUM_API ret(*name##_arraddr[LUM_NUM_BUILDS])              \
      params = {LUM_FOR_EACH_BUILD(LUM_TABLE_ENTRY, name)}; \
  LUM_API ret name params { return name##_arraddr[lumJumpIndexForMergedLibs] args; }
#include "dispatched.def"
#undef LUM_DISPATCHED
#undef LUM_TABLE_ENTRY

const char ownVersionString[] = "5.3 Update 1 build 85.18";
const char ownBuildDate[] = "Nov 18 2007";

int ownBuildIndexForCpu(Lum32u cpu) {
  switch (cpu) {
    case 0:
    case 1:
    case 2:
    case 3:
    case 4:
    case 0xFFFFFFFFu:
      return 0;
    case 5:
    case 16:
    case 17:
    case 64:
      return 1;
    case 6:
    case 7:
    case 9:
    case 65:
      return 2;
    case 8:
    case 10:
    case 11:
    case 32:
    case 66:
      return 3;
    case 33:
    case 34:
    case 36:
    case 67:
      return 4;
    case 35:
    case 37:
    case 68:
    case 69:
      return 5;
    default:
      return -1;
  }
}

LUM_API LumStatus lumStaticInitCpu(Lum32u cpu) {
  // The thread count follows the processor count even when the code is
  // refused; a count below 1 from the runtime is rejected by the setter.
  (void)lumSetNumThreads(omp_get_num_procs());
  const int index = ownBuildIndexForCpu(cpu);
  if (index < 0) return lumStsCpuNotSet;
  lumJumpIndexForMergedLibs = index;
  return lumStsNoErr;
}

}  // extern "C"
