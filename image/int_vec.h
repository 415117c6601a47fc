// The integer vector operations the integer row kernels are written in, for
// one build: 8-byte MMX registers in k1, 16-byte SSE2 registers from k2 on.
// The kernels are written once against these names; only the register width
// (kVecBytes) and the load/store flavours differ.
//
// Shifts by a count known only at run time take the count as a vector
// (vCount); the ...By forms are for fixed counts, which become immediate
// shifts (one micro-operation instead of two on many processors).
//
// The operations are LUM_MMX_INLINE, the kernels written in them being k1's
// MMX leaf routines, and the streaming store LUM_ALWAYS_INLINE, kept in the
// routine that fences it (image/build.h).
//
// Included by per-build sources after image/build.h; empty in k0.
#ifndef LUM_IMAGE_INT_VEC_H
#define LUM_IMAGE_INT_VEC_H

#include "image/build.h"

#if LUM_BUILD >= 1

LUM_BEGIN_BUILD

#if LUM_BUILD == 1

using Vec = __m64;
constexpr int kVecBytes = 8;
// An 8-byte operand at any address: MMX loads and stores need no alignment.
typedef __m64 Vec8Unaligned __attribute__((aligned(1), may_alias));

LUM_MMX_INLINE Vec vLoad(const void* p) { return *static_cast<const Vec8Unaligned*>(p); }
LUM_MMX_INLINE Vec vLoadAligned(const void* p) { return vLoad(p); }
LUM_MMX_INLINE void vStore(void* p, Vec v) { *static_cast<Vec8Unaligned*>(p) = v; }
LUM_MMX_INLINE void vStoreAligned(void* p, Vec v) { vStore(p, v); }
// A non-temporal store, past the caches; needs no alignment.
LUM_ALWAYS_INLINE void vStream(void* p, Vec v) { _mm_stream_pi(static_cast<Vec*>(p), v); }

LUM_MMX_INLINE Vec vZero() { return _mm_setzero_si64(); }
LUM_MMX_INLINE Vec vSet16(int v) { return _mm_set1_pi16(static_cast<short>(v)); }
LUM_MMX_INLINE Vec vSet32(int v) { return _mm_set1_pi32(v); }
LUM_MMX_INLINE Vec vCount(int n) { return _mm_cvtsi32_si64(n); }

LUM_MMX_INLINE Vec vAnd(Vec a, Vec b) { return _mm_and_si64(a, b); }
LUM_MMX_INLINE Vec vOr(Vec a, Vec b) { return _mm_or_si64(a, b); }
LUM_MMX_INLINE Vec vXor(Vec a, Vec b) { return _mm_xor_si64(a, b); }
LUM_MMX_INLINE Vec vAndNot(Vec a, Vec b) { return _mm_andnot_si64(a, b); }  // ~a & b

LUM_MMX_INLINE Vec vUnpackLo8(Vec a, Vec b) { return _mm_unpacklo_pi8(a, b); }
LUM_MMX_INLINE Vec vUnpackHi8(Vec a, Vec b) { return _mm_unpackhi_pi8(a, b); }
LUM_MMX_INLINE Vec vUnpackLo16(Vec a, Vec b) { return _mm_unpacklo_pi16(a, b); }
LUM_MMX_INLINE Vec vUnpackHi16(Vec a, Vec b) { return _mm_unpackhi_pi16(a, b); }
LUM_MMX_INLINE Vec vPackUS16(Vec a, Vec b) { return _mm_packs_pu16(a, b); }
LUM_MMX_INLINE Vec vPackS32(Vec a, Vec b) { return _mm_packs_pi32(a, b); }

LUM_MMX_INLINE Vec vCmpEq8(Vec a, Vec b) { return _mm_cmpeq_pi8(a, b); }
LUM_MMX_INLINE Vec vAdd8(Vec a, Vec b) { return _mm_add_pi8(a, b); }
LUM_MMX_INLINE Vec vSubsU8(Vec a, Vec b) { return _mm_subs_pu8(a, b); }
LUM_MMX_INLINE Vec vCmpEq16(Vec a, Vec b) { return _mm_cmpeq_pi16(a, b); }
LUM_MMX_INLINE Vec vAdd16(Vec a, Vec b) { return _mm_add_pi16(a, b); }
LUM_MMX_INLINE Vec vSub16(Vec a, Vec b) { return _mm_sub_pi16(a, b); }
LUM_MMX_INLINE Vec vSubsU16(Vec a, Vec b) { return _mm_subs_pu16(a, b); }
LUM_MMX_INLINE Vec vMulLo16(Vec a, Vec b) { return _mm_mullo_pi16(a, b); }
LUM_MMX_INLINE Vec vMulHiU16(Vec a, Vec b) { return _mm_mulhi_pu16(a, b); }
LUM_MMX_INLINE Vec vMulHiS16(Vec a, Vec b) { return _mm_mulhi_pi16(a, b); }
LUM_MMX_INLINE Vec vAdd32(Vec a, Vec b) { return _mm_add_pi32(a, b); }
LUM_MMX_INLINE Vec vSub32(Vec a, Vec b) { return _mm_sub_pi32(a, b); }
LUM_MMX_INLINE Vec vCmpEq32(Vec a, Vec b) { return _mm_cmpeq_pi32(a, b); }

LUM_MMX_INLINE Vec vShl16(Vec a, Vec n) { return _mm_sll_pi16(a, n); }
LUM_MMX_INLINE Vec vShrU16(Vec a, Vec n) { return _mm_srl_pi16(a, n); }
LUM_MMX_INLINE Vec vShrS16(Vec a, Vec n) { return _mm_sra_pi16(a, n); }
LUM_MMX_INLINE Vec vShrU32(Vec a, Vec n) { return _mm_srl_pi32(a, n); }
LUM_MMX_INLINE Vec vShrS32(Vec a, Vec n) { return _mm_sra_pi32(a, n); }
LUM_MMX_INLINE Vec vShrU16By(Vec a, int n) { return _mm_srli_pi16(a, n); }
LUM_MMX_INLINE Vec vShrS16By(Vec a, int n) { return _mm_srai_pi16(a, n); }
LUM_MMX_INLINE Vec vShrU32By(Vec a, int n) { return _mm_srli_pi32(a, n); }
LUM_MMX_INLINE Vec vShrS32By(Vec a, int n) { return _mm_srai_pi32(a, n); }

// Leaves the MMX registers free for the x87 unit again.
LUM_MMX_INLINE void vEnd() { _mm_empty(); }

#else

using Vec = __m128i;
constexpr int kVecBytes = 16;

LUM_MMX_INLINE Vec vLoad(const void* p) { return _mm_loadu_si128(static_cast<const Vec*>(p)); }
LUM_MMX_INLINE Vec vLoadAligned(const void* p) {
  return _mm_load_si128(static_cast<const Vec*>(p));
}
LUM_MMX_INLINE void vStore(void* p, Vec v) { _mm_storeu_si128(static_cast<Vec*>(p), v); }
LUM_MMX_INLINE void vStoreAligned(void* p, Vec v) { _mm_store_si128(static_cast<Vec*>(p), v); }
// A non-temporal store, past the caches; p 16-byte aligned.
LUM_ALWAYS_INLINE void vStream(void* p, Vec v) { _mm_stream_si128(static_cast<Vec*>(p), v); }

LUM_MMX_INLINE Vec vZero() { return _mm_setzero_si128(); }
LUM_MMX_INLINE Vec vSet16(int v) { return _mm_set1_epi16(static_cast<short>(v)); }
LUM_MMX_INLINE Vec vSet32(int v) { return _mm_set1_epi32(v); }
LUM_MMX_INLINE Vec vCount(int n) { return _mm_cvtsi32_si128(n); }

LUM_MMX_INLINE Vec vAnd(Vec a, Vec b) { return _mm_and_si128(a, b); }
LUM_MMX_INLINE Vec vOr(Vec a, Vec b) { return _mm_or_si128(a, b); }
LUM_MMX_INLINE Vec vXor(Vec a, Vec b) { return _mm_xor_si128(a, b); }
LUM_MMX_INLINE Vec vAndNot(Vec a, Vec b) { return _mm_andnot_si128(a, b); }  // ~a & b

LUM_MMX_INLINE Vec vUnpackLo8(Vec a, Vec b) { return _mm_unpacklo_epi8(a, b); }
LUM_MMX_INLINE Vec vUnpackHi8(Vec a, Vec b) { return _mm_unpackhi_epi8(a, b); }
LUM_MMX_INLINE Vec vUnpackLo16(Vec a, Vec b) { return _mm_unpacklo_epi16(a, b); }
LUM_MMX_INLINE Vec vUnpackHi16(Vec a, Vec b) { return _mm_unpackhi_epi16(a, b); }
LUM_MMX_INLINE Vec vPackUS16(Vec a, Vec b) { return _mm_packus_epi16(a, b); }
LUM_MMX_INLINE Vec vPackS32(Vec a, Vec b) { return _mm_packs_epi32(a, b); }

LUM_MMX_INLINE Vec vCmpEq8(Vec a, Vec b) { return _mm_cmpeq_epi8(a, b); }
LUM_MMX_INLINE Vec vAdd8(Vec a, Vec b) { return _mm_add_epi8(a, b); }
LUM_MMX_INLINE Vec vSubsU8(Vec a, Vec b) { return _mm_subs_epu8(a, b); }
LUM_MMX_INLINE Vec vCmpEq16(Vec a, Vec b) { return _mm_cmpeq_epi16(a, b); }
LUM_MMX_INLINE Vec vAdd16(Vec a, Vec b) { return _mm_add_epi16(a, b); }
LUM_MMX_INLINE Vec vSub16(Vec a, Vec b) { return _mm_sub_epi16(a, b); }
LUM_MMX_INLINE Vec vSubsU16(Vec a, Vec b) { return _mm_subs_epu16(a, b); }
LUM_MMX_INLINE Vec vMulLo16(Vec a, Vec b) { return _mm_mullo_epi16(a, b); }
LUM_MMX_INLINE Vec vMulHiU16(Vec a, Vec b) { return _mm_mulhi_epu16(a, b); }
LUM_MMX_INLINE Vec vMulHiS16(Vec a, Vec b) { return _mm_mulhi_epi16(a, b); }
LUM_MMX_INLINE Vec vAdd32(Vec a, Vec b) { return _mm_add_epi32(a, b); }
LUM_MMX_INLINE Vec vSub32(Vec a, Vec b) { return _mm_sub_epi32(a, b); }
LUM_MMX_INLINE Vec vCmpEq32(Vec a, Vec b) { return _mm_cmpeq_epi32(a, b); }

LUM_MMX_INLINE Vec vShl16(Vec a, Vec n) { return _mm_sll_epi16(a, n); }
LUM_MMX_INLINE Vec vShrU16(Vec a, Vec n) { return _mm_srl_epi16(a, n); }
LUM_MMX_INLINE Vec vShrS16(Vec a, Vec n) { return _mm_sra_epi16(a, n); }
LUM_MMX_INLINE Vec vShrU32(Vec a, Vec n) { return _mm_srl_epi32(a, n); }
LUM_MMX_INLINE Vec vShrS32(Vec a, Vec n) { return _mm_sra_epi32(a, n); }
LUM_MMX_INLINE Vec vShrU16By(Vec a, int n) { return _mm_srli_epi16(a, n); }
LUM_MMX_INLINE Vec vShrS16By(Vec a, int n) { return _mm_srai_epi16(a, n); }
LUM_MMX_INLINE Vec vShrU32By(Vec a, int n) { return _mm_srli_epi32(a, n); }
LUM_MMX_INLINE Vec vShrS32By(Vec a, int n) { return _mm_srai_epi32(a, n); }

LUM_MMX_INLINE void vEnd() {}

#endif

// ---- Building blocks shared by the kernels -------------------------------------

// min(p, 255) of unsigned 16-bit lanes: one instruction from SSE4.1 on,
// before it p minus its excess over 255.
LUM_MMX_INLINE Vec vMin255U16(Vec p, Vec c255) {
#if LUM_BUILD >= 5
  return _mm_min_epu16(p, c255);
#else
  return vSub16(p, vSubsU16(p, c255));
#endif
}

// Exact 32-bit products of the 16-bit lanes of a and b, low lanes in lo and
// high lanes in hi: the low and the signed high halves of each product,
// interleaved back into 32-bit lanes.
struct Products16s {
  Vec lo, hi;
};
LUM_MMX_INLINE Products16s vMul16s(Vec a, Vec b) {
  const Vec low = vMulLo16(a, b), high = vMulHiS16(a, b);
  return Products16s{vUnpackLo16(low, high), vUnpackHi16(low, high)};
}

LUM_END_BUILD

#endif  // LUM_BUILD >= 1

#endif
