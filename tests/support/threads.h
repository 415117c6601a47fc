// Scopes for the library's two settings: the thread count and the selected
// build. Each puts the old value back when it ends.
#ifndef LUM_TESTS_SUPPORT_THREADS_H
#define LUM_TESTS_SUPPORT_THREADS_H

#include "lum.h"

namespace lumtest {

class ThreadCountScope {
 public:
  explicit ThreadCountScope(int n) {
    lumGetNumThreads(&saved_);
    lumSetNumThreads(n);
  }
  ~ThreadCountScope() { lumSetNumThreads(saved_); }
  ThreadCountScope(const ThreadCountScope&) = delete;
  ThreadCountScope& operator=(const ThreadCountScope&) = delete;

 private:
  int saved_ = 1;
};

// Restores the selected build (the variant index) when a test is done with it.
class IndexScope {
 public:
  IndexScope() : saved_(lumJumpIndexForMergedLibs) {}
  ~IndexScope() { lumJumpIndexForMergedLibs = saved_; }
  IndexScope(const IndexScope&) = delete;
  IndexScope& operator=(const IndexScope&) = delete;

 private:
  int saved_;
};

}  // namespace lumtest

#endif
