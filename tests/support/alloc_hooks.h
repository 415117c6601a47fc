// Counting allocator hooks for a scope, failing every allocation when asked to; the C library's own
// functions are back in the hooks after it.
#ifndef LUM_TESTS_SUPPORT_ALLOC_HOOKS_H
#define LUM_TESTS_SUPPORT_ALLOC_HOOKS_H

#include <cstdlib>

#include "lum.h"

namespace lumtest {

struct CountingHooks {
  static inline int mallocs = 0, frees = 0;
  static inline size_t asked = 0;
  static inline void *given = nullptr, *freed = nullptr;
  static inline bool fail = false;
  static void* alloc(size_t n) {
    return ++mallocs, asked = n, given = fail ? nullptr : std::malloc(n ? n : 1);
  }
  static void release(void* p) { ++frees, freed = p, std::free(p); }
  explicit CountingHooks(bool failing) {
    mallocs = frees = 0, fail = failing, i_malloc = alloc, i_free = release;
  }
  ~CountingHooks() { i_malloc = std::malloc, i_free = std::free; }
};

}  // namespace lumtest

#endif
