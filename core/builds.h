// The builds of the image code, each named once, in index order: its tag kN and its index N, the
// entry of the address tables and the value of lumJumpIndexForMergedLibs that selects it. The
// core's tables and declarations, the tests' and the benchmarks' tables of each build's functions
// and the CMake targets (cmake/LumBuilds.cmake reads the lines below) all come from this list.
#ifndef LUM_CORE_BUILDS_H
#define LUM_CORE_BUILDS_H

// X(tag, index, ...) for each build, k0 first; the arguments after X, if any, are passed on to
// every X.
#define LUM_FOR_EACH_BUILD(X, ...) X(k0, 0, __VA_ARGS__) LUM_FOR_EACH_BUILD_FROM_K1(X, __VA_ARGS__)
// The builds from k1 on, those with SSE: aligned float buffers, the float-to-8u conversion.
#define LUM_FOR_EACH_BUILD_FROM_K1(X, ...) \
  X(k1, 1, __VA_ARGS__) LUM_FOR_EACH_BUILD_FROM_K2(X, __VA_ARGS__)
// The builds from k2 on, those with SSE2: the float-to-16s conversion.
#define LUM_FOR_EACH_BUILD_FROM_K2(X, ...) \
  X(k2, 2, __VA_ARGS__) X(k3, 3, __VA_ARGS__) X(k4, 4, __VA_ARGS__) X(k5, 5, __VA_ARGS__)

#define LUM_COUNT_BUILD_(...) +1
#define LUM_NUM_BUILDS (0 LUM_FOR_EACH_BUILD(LUM_COUNT_BUILD_))

#endif
