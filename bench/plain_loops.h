// The plain-loop references: each library rule written as the obvious C++
// loop, compiled -O3 for SSE4.1 so the compiler vectorises what it can.
#ifndef LUM_BENCH_PLAIN_LOOPS_H
#define LUM_BENCH_PLAIN_LOOPS_H

#include "lum.h"

namespace lumbench {

void plainMul_32f(const Lum32f* a, int aStep, const Lum32f* b, int bStep, Lum32f* d, int dStep,
                  LumSize size);

// Scaled integer multiplication: product times 2^-scaleFactor, rounded half
// to even, saturated.
void plainMul_8u_Sfs(const Lum8u* a, int aStep, const Lum8u* b, int bStep, Lum8u* d, int dStep,
                     LumSize size, int scaleFactor);
void plainMul_16s_Sfs(const Lum16s* a, int aStep, const Lum16s* b, int bStep, Lum16s* d, int dStep,
                      LumSize size, int scaleFactor);

// Absolute difference: exact for bytes; for floats the sign of the
// single-precision difference cleared.
void plainAbsDiff_8u(const Lum8u* a, int aStep, const Lum8u* b, int bStep, Lum8u* d, int dStep,
                     LumSize size);
void plainAbsDiff_32f(const Lum32f* a, int aStep, const Lum32f* b, int bStep, Lum32f* d, int dStep,
                      LumSize size);

// Division, pSrc2 / pSrc1: for integers the quotient times 2^-scaleFactor
// rounded half to even and saturated, a zero divisor giving the saturated
// sign of the dividend; for floats the single-precision quotient, a zero
// divisor giving the dividend's infinity or NaN.
void plainDiv_8u_Sfs(const Lum8u* a, int aStep, const Lum8u* b, int bStep, Lum8u* d, int dStep,
                     LumSize size, int scaleFactor);
void plainDiv_16s_Sfs(const Lum16s* a, int aStep, const Lum16s* b, int bStep, Lum16s* d, int dStep,
                      LumSize size, int scaleFactor);
void plainDiv_32f(const Lum32f* a, int aStep, const Lum32f* b, int bStep, Lum32f* d, int dStep,
                  LumSize size);

// Float-kernel filter: the sum of kernel[j][i] * S(x + ax - i, y + ay - j)
// in single precision; integers rounded to nearest and saturated.
void plainFilter_8u(const Lum8u* src, int srcStep, Lum8u* dst, int dstStep, LumSize size,
                    const Lum32f* kernel, LumSize kernelSize, LumPoint anchor);
void plainFilter_16s(const Lum16s* src, int srcStep, Lum16s* dst, int dstStep, LumSize size,
                     const Lum32f* kernel, LumSize kernelSize, LumPoint anchor);
void plainFilter_32f(const Lum32f* src, int srcStep, Lum32f* dst, int dstStep, LumSize size,
                     const Lum32f* kernel, LumSize kernelSize, LumPoint anchor);

}  // namespace lumbench

#endif
