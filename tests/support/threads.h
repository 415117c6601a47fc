// Sets the library's thread count for a scope and puts the old one back.
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

}  // namespace lumtest

#endif
