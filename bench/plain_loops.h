// The plain-loop references: each library rule written as the obvious C++
// loop, compiled -O3 for SSE4.1 so the compiler vectorises what it can.
#ifndef LUM_BENCH_PLAIN_LOOPS_H
#define LUM_BENCH_PLAIN_LOOPS_H

#include "lum.h"

namespace lumbench {

void plainMul_32f(const Lum32f* a, int aStep, const Lum32f* b, int bStep, Lum32f* d, int dStep,
                  LumSize size);

}  // namespace lumbench

#endif
