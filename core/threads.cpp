// The thread count: how many threads each parallel region of the image
// functions asks for. 1 at load, so nothing runs in parallel until the caller
// or an initializer says so.
//
// What a region actually asks for is the team size: the count, bounded by the
// work and by what a 32-bit process can afford, and 1 in a child process
// after fork(), whose OpenMP runtime has lost the parent's threads.
#include <omp.h>
#include <pthread.h>

#include "lum_internal.h"

namespace {

int g_numThreads = 1;
// The thread count bounded by the ceiling; worked out when the count is set.
int g_teamLimit = 1;
// Set in the child of a fork(): the runtime's thread pool did not survive.
volatile int g_inForkedChild = 0;

// Four threads per processor at most, and never more than 64: each needs
// its stack in the 32-bit address space, and a runtime that cannot create a
// thread ends the process instead of returning.
constexpr int kMaxTeam = 64;
constexpr int kTeamPerProcessor = 4;

int teamCeiling() {
  const int procs = omp_get_num_procs();
  if (procs >= kMaxTeam / kTeamPerProcessor) return kMaxTeam;
  return (procs < 1 ? 1 : procs) * kTeamPerProcessor;
}

void markForkedChild() { g_inForkedChild = 1; }

__attribute__((constructor)) void watchForFork() {
  (void)pthread_atfork(nullptr, nullptr, markForkedChild);
}

}  // namespace

extern "C" {

LUM_API LumStatus lumSetNumThreads(int numThreads) {
  if (numThreads < 1) return lumStsSizeErr;
  g_numThreads = numThreads;
  const int ceiling = numThreads > 1 ? teamCeiling() : 1;
  g_teamLimit = numThreads < ceiling ? numThreads : ceiling;
  return lumStsNoErr;
}

LUM_API LumStatus lumGetNumThreads(int* pNumThreads) {
  if (pNumThreads == nullptr) return lumStsNullPtrErr;
  *pNumThreads = g_numThreads;
  return lumStsNoErr;
}

int ownGetNumThreads(void) { return g_numThreads; }

int ownGetTeamSize(int pieces) {
  if (g_inForkedChild) return 1;
  const int limit = g_teamLimit;
  return pieces < limit ? (pieces < 1 ? 1 : pieces) : limit;
}

}  // extern "C"
