// The thread count: how many threads each parallel region of the image
// functions asks for. 1 at load, so nothing runs in parallel until the caller
// or an initializer says so.
#include "lum_internal.h"

namespace {
int g_numThreads = 1;
}

extern "C" {

LUM_API LumStatus lumSetNumThreads(int numThreads) {
  if (numThreads < 1) return lumStsSizeErr;
  g_numThreads = numThreads;
  return lumStsNoErr;
}

LUM_API LumStatus lumGetNumThreads(int* pNumThreads) {
  if (pNumThreads == nullptr) return lumStsNullPtrErr;
  *pNumThreads = g_numThreads;
  return lumStsNoErr;
}

int ownGetNumThreads(void) { return g_numThreads; }

}  // extern "C"
