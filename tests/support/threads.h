// Scopes for the library's two settings, the thread count and the selected
// build (the variant index): each puts the old value back when it ends.
#ifndef LUM_TESTS_SUPPORT_THREADS_H
#define LUM_TESTS_SUPPORT_THREADS_H

#include "lum.h"

namespace lumtest {

struct ThreadCountScope {
  explicit ThreadCountScope(int n) { lumGetNumThreads(&saved), lumSetNumThreads(n); }
  ~ThreadCountScope() { lumSetNumThreads(saved); }
  int saved = 1;
};

struct IndexScope {
  ~IndexScope() { lumJumpIndexForMergedLibs = saved; }
  int saved = lumJumpIndexForMergedLibs;
};

}  // namespace lumtest

#endif
