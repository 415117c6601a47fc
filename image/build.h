// What every per-build source includes. The image code is written once and
// compiled six times, with LUM_BUILD (0..5) and LUM_TAG (k0..k5) set by the
// build; kBuild selects what differs between instruction-set levels.
//
// Everything a per-build source defines must carry its build's tag: C entry
// points through LUM_ENTRY (k2_lumiMul_32f_C1R), everything else inside
// LUM_BEGIN_BUILD / LUM_END_BUILD (namespace lum::k2). Otherwise the linker
// would merge an inline function or template compiled for one build with its
// twin from another, and a k0 caller could end up running SSE code. For the
// same reason per-build code keeps away from the standard library's inline
// templates (std::min and the like) and uses the helpers of its own build.
#ifndef LUM_IMAGE_BUILD_H
#define LUM_IMAGE_BUILD_H

#if !defined(LUM_BUILD) || !defined(LUM_TAG)
#error "per-build sources are compiled by lum_add_build with LUM_BUILD and LUM_TAG"
#endif

#include <omp.h>
#include <stdint.h>

// The build's instruction sets: MMX and SSE in k1, SSE2 (k2..k4) and
// SSE4.1 (k5) with all before them; nothing in k0.
//
// k1's MMX registers are the x87 registers: from the first MMX instruction
// until EMMS every x87 value is a NaN. k1 does its scalar math on the x87,
// and a float a function returns travels in an x87 register whatever the
// optimisation, so in k1 MMX instructions occur only in leaf routines that
// end their MMX use with EMMS before they return, and call nothing while
// MMX state is live. Such a routine is LUM_MMX_LEAF, never inlined: inlined,
// its MMX instructions could move past its EMMS into its caller (a constant
// hoisted out of a loop, say). Whatever it uses while MMX state is live is
// LUM_MMX_INLINE, always inlined in k1, which the compilers honour at every
// optimisation level. Both mean nothing special in the other builds.
//
// Non-temporal stores are weakly ordered: every routine that streams ends
// with a store fence before it returns, so that a thread that waits for the
// caller's release store never reads stale pixels. The helpers that stream
// are LUM_ALWAYS_INLINE, to keep each store in the routine that fences it.
// They stream whole 64-byte lines only (bytesToLine) and store the partial
// lines at a row's ends the ordinary way: an ordinary store into a line that
// streamed stores have begun flushes the line part-written, which costs far
// more than the line (about 0.4 us a row measured, with rows apart).
//
// tests/check_vector_state.py proves both rules on every path of every
// function of the built objects.
#define LUM_ALWAYS_INLINE inline __attribute__((always_inline))
#if LUM_BUILD == 1
#define LUM_MMX_INLINE LUM_ALWAYS_INLINE
#define LUM_MMX_LEAF __attribute__((noinline))
#else
#define LUM_MMX_INLINE inline
#define LUM_MMX_LEAF
#endif

#if LUM_BUILD == 1
#include <mmintrin.h>
#include <xmmintrin.h>
#elif LUM_BUILD >= 5
#include <smmintrin.h>
#elif LUM_BUILD >= 2
#include <emmintrin.h>
#endif

#include "core/fp_control.h"
#include "core/lum_internal.h"
#include "image/kernels.inc"

#define LUM_CAT_(a, b) a##b
#define LUM_CAT(a, b) LUM_CAT_(a, b)
#define LUM_STR_(a) #a
#define LUM_STR(a) LUM_STR_(a)

// Tagged C name of this build's function: LUM_ENTRY(lumiMul_32f_C1R) is
// k2_lumiMul_32f_C1R in build k2.
#define LUM_ENTRY(name) LUM_CAT(LUM_TAG, LUM_CAT(_, name))

#define LUM_BEGIN_BUILD \
  namespace lum {       \
  namespace LUM_TAG {
#define LUM_END_BUILD \
  }                   \
  }

LUM_BEGIN_BUILD

constexpr int kBuild = LUM_BUILD;

// Row y of an image operand. The arithmetic is done on unsigned addresses so
// that negative and zero steps wrap exactly as the caller's pointers do.
template <class T>
LUM_MMX_INLINE T* rowAt(T* base, int step, int y) {
  return reinterpret_cast<T*>(reinterpret_cast<uintptr_t>(base) +
                              static_cast<uintptr_t>(y) * static_cast<uintptr_t>(step));
}

// The bytes from p to the next 64-byte line boundary, 0 on one: where a row's
// streamed lines start.
LUM_MMX_INLINE int bytesToLine(const void* p) {
  return static_cast<int>((0u - reinterpret_cast<uintptr_t>(p)) & 63);
}

// Pixel access for scalar paths. Pixel pointers need not be aligned to the
// pixel size (callers may pass any byte address), so scalar code loads and
// stores through these rather than dereferencing: the compiler then makes no
// alignment assumption, neither here nor in loops it vectorises.
template <class T>
LUM_MMX_INLINE T loadPixel(const T* p) {
  T v;
  __builtin_memcpy(&v, p, sizeof v);
  return v;
}

template <class T>
LUM_MMX_INLINE void storePixel(T* p, T v) {
  __builtin_memcpy(p, &v, sizeof v);
}

// Whether the rows of three operands each follow one another without a gap
// (every step exactly rowBytes), so that a region can be walked as one row
// of rowBytes * height bytes, a length that still fits an int. Only for
// rules whose pixels depend neither on their neighbours nor on where a row
// starts.
LUM_MMX_INLINE bool rowsJoin(int rowBytes, int height, int aStep, int bStep, int dStep) {
  return aStep == rowBytes && bStep == rowBytes && dStep == rowBytes &&
         rowBytes <= 0x7FFFFFFF / height;
}

LUM_MMX_INLINE bool isAligned(const void* p, uintptr_t alignment) {
  return (reinterpret_cast<uintptr_t>(p) & (alignment - 1)) == 0;
}

LUM_END_BUILD

#include "image/parallel.h"
#include "image/thresholds.h"

#endif
