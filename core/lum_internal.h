// Internal interface between the core (compiled once) and the six image
// builds k0..k5 (compiled once per instruction-set level). Not installed.
#ifndef LUM_CORE_INTERNAL_H
#define LUM_CORE_INTERNAL_H

#include "core/builds.h"
#include "lum.h"

#define LUM_HIDDEN __attribute__((visibility("hidden")))

extern "C" {

// The thread count, as set by the caller or an initializer.
LUM_HIDDEN int ownGetNumThreads(void);

// The team a parallel region over `pieces` independent pieces (rows, bands,
// parts of a row) asks for: the thread count, but never more threads than
// pieces, nor more than four per processor or 64 in all; 1 in the child of
// a fork(). 1 means: run on the calling thread.
LUM_HIDDEN int ownGetTeamSize(int pieces);

// The largest cache in bytes, for choosing streaming stores: that of
// lumGetMaxCacheSizeB where the query succeeds, otherwise the largest one
// the extended leaves describe, 0 where none can be read. Worked out once,
// with the query's answer.
LUM_HIDDEN int ownGetLargestCacheSize(void);

// Build index for a processor code, or -1 when no build is listed for it.
LUM_HIDDEN int ownBuildIndexForCpu(Lum32u cpu);

// Shared by the six version records.
LUM_HIDDEN extern const char ownVersionString[];
LUM_HIDDEN extern const char ownBuildDate[];

// The constant fill of each build (value, destination, step, size). Not
// dispatched: only the multiplications of the same build call it.
#define LUM_TAGGED_SET(tag, ...)                                                      \
  LUM_HIDDEN LumStatus tag##_lumiSet_8u_C1R(Lum8u value, Lum8u* pDst, int dstStep,    \
                                            LumSize roiSize);                         \
  LUM_HIDDEN LumStatus tag##_lumiSet_16s_C1R(Lum16s value, Lum16s* pDst, int dstStep, \
                                             LumSize roiSize);
LUM_FOR_EACH_BUILD(LUM_TAGGED_SET)
#undef LUM_TAGGED_SET

// Float buffers aligned to 32 bytes from i_malloc, of builds k1..k5, and
// their release through i_free. Not dispatched: each build's filter calls
// its own pair; any pair releases a buffer of any other.
#define LUM_TAGGED_MEMORY(tag, ...)               \
  LUM_HIDDEN Lum32f* tag##_lumsMalloc_32f(int n); \
  LUM_HIDDEN void tag##_lumsFree(Lum32f* p);
LUM_FOR_EACH_BUILD_FROM_K1(LUM_TAGGED_MEMORY)
#undef LUM_TAGGED_MEMORY

// The tagged builds of every dispatched function: k0_name .. k5_name.
#define LUM_TAGGED_BUILD(tag, index, ret, name, params) LUM_HIDDEN ret tag##_##name params;
#define LUM_DISPATCHED(ret, name, params, args) \
  LUM_FOR_EACH_BUILD(LUM_TAGGED_BUILD, ret, name, params)
#include "dispatched.def"
#undef LUM_DISPATCHED
#undef LUM_TAGGED_BUILD

}  // extern "C"

#endif
