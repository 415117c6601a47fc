// Where a parallel region pays: the work each thread of a region must have,
// for every image function that opens one. Below it the region runs on the
// calling thread, since opening it (waking the team and its closing
// barrier, with a system call or two on 32-bit x86) costs more than a
// second thread saves. Work is counted in pixels, for the filters in pixels
// times kernel cells. A region of n threads is opened only where each of
// them gets the amount; the pixels and statuses do not depend on it.
//
// The amounts are fixed; nothing is measured at run time. They come from
// the SSE4.1 build (the fastest per pixel, so the amount that pays for it
// pays for every build) on a 2-processor virtual machine, where an empty
// region of two threads cost 9 to 18 us: one thread against two, forced
// into a region at every size, fastest of 31 runs each (the machine was
// shared), sizes growing until two threads won. Each amount lies where two
// threads came out about 1.1 to 1.3 times as fast as one; with the amounts
// in place, a region of just that much work gave 1.02 to 1.31 (medians) and
// one a column smaller, run on the calling thread, 0.99 to 1.01. bench/
// (scripts/bench.sh) pairs every function and size on one thread and on the
// processor count, to check them again.
//
// Most of a region's cost there is the runtime's two futex wake-ups (the
// team's start and the end of its closing barrier), which it makes through
// int $0x80: that machine's kernel took 4.3 us for one, against 0.2 us
// through the vDSO's entry. Where int $0x80 is about as quick, a region
// costs far less and these amounts are larger than they need be; the pixels
// are the same either way.
//
// Shared by every build and by the tests, which check both sides of each.
#ifndef LUM_IMAGE_THRESHOLDS_H
#define LUM_IMAGE_THRESHOLDS_H

namespace lum {

// Multiplication (k1..k5), pixels per thread: the plain case (scale factor
// 0), the cheapest per pixel, at 0.052 (8u), 0.073 (16s) and 0.14 (32f) ns a
// pixel on one thread. Two threads gave 0.75 to 1.2 at 393216 (8u, 1024 x
// 768) and 0.90 at 131072 (16s, 512 x 512) pixels a thread, 1.18 to 1.27 and
// 1.0 to 1.26 at the amounts; 32f 1.08 to 1.12 at its amount.
constexpr long long kMul8uPixelsPerThread = 524288;
constexpr long long kMul16sPixelsPerThread = 393216;
constexpr long long kMul32fPixelsPerThread = 98304;

// Division's long rows (k4, k5), pixels per thread, at 0.22 (8u, 16s) and
// 0.24 (32f) ns a pixel on one thread. Two threads gave 0.65 to 0.97 at
// 32768 (8u, 16s) and 1.01 to 1.29 at 65536 (32f) pixels a thread; 1.29 to
// 1.53 and 1.19 to 1.43 at the amounts.
constexpr long long kDiv8uPixelsPerThread = 98304;
constexpr long long kDiv16sPixelsPerThread = 98304;
constexpr long long kDiv32fPixelsPerThread = 98304;

// Filters, pixels times kernel cells per thread: about 0.08 to 0.11 ns a
// cell on one thread for every pixel type and kernel size (3x3 and 5x5).
// Two threads gave 0.92 (8u, 3x3) and 0.83 (32f, 3x3) at 73728 cells a
// thread, 0.98 (32f, 5x5) at 115200; 1.12 and 1.04 at 115200, 1.25 at
// 204800.
constexpr long long kFilterCellsPerThread = 147456;

}  // namespace lum

#endif
