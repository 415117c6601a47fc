// The floating-point environment helpers: the x87 control and status words,
// the SSE control and status register (MXCSR), the portable control word of
// lum_control87 and its kin, the raw-bit NaN and finiteness tests, and the
// exported NaN and infinity constants.
//
// The core is compiled for plain i686 without SSE, so every access to the
// registers is inline assembly (core/fp_control.h's); the MXCSR helpers
// execute SSE instructions only when called. Every helper acts on the
// calling thread's registers and keeps no state.
#include <stdint.h>
#include <string.h>

#include "cpu_internal.h"
#include "fp_control.h"
#include "lum_internal.h"

using namespace lum::core;

namespace {

// ---- The portable control word ----------------------------------------------
// Exception bits: the same pairs serve the control word (set = masked) and
// the status word (set = raised).
struct BitPair {
  Lum32u portable, hardware;
};
constexpr BitPair kExceptionBits[] = {
    {0x00000010u, 0x0001u},  // invalid operation
    {0x00000008u, 0x0004u},  // division by zero
    {0x00000004u, 0x0008u},  // overflow
    {0x00000002u, 0x0010u},  // underflow
    {0x00000001u, 0x0020u},  // inexact
    {0x00080000u, 0x0002u},  // denormal operand
};
// The portable word's fields; the x87 control word's are kX87Rounding,
// kX87Precision and kX87Infinity.
constexpr Lum32u kPortableRounding = 0x00000300u, kPortablePrecision = 0x00030000u;
constexpr Lum32u kPortableInfinity = 0x00040000u;

Lum32u exceptionsToPortable(Lum32u hardware) {
  Lum32u portable = 0;
  for (const BitPair& b : kExceptionBits)
    if (hardware & b.hardware) portable |= b.portable;
  return portable;
}

Lum32u exceptionsToHardware(Lum32u portable) {
  Lum32u hardware = 0;
  for (const BitPair& b : kExceptionBits)
    if (portable & b.portable) hardware |= b.hardware;
  return hardware;
}

Lum32u controlToPortable(Lum32u cw) {
  Lum32u portable = exceptionsToPortable(cw);
  // Rounding: the field moves down two bits (0x400 -> 0x100 and so on).
  portable |= (cw & kX87Rounding) >> 2;
  // Precision: 0x300 (64-bit significand) and the reserved 0x100 read as 0.
  switch (cw & kX87Precision) {
    case 0x0200u:  // 53-bit
      portable |= 0x00010000u;
      break;
    case 0x0000u:  // 24-bit
      portable |= 0x00020000u;
      break;
    default:
      break;
  }
  if (cw & kX87Infinity) portable |= kPortableInfinity;
  return portable;
}

// Built from zero: reserved control-word bits come out 0.
Lum32u controlToHardware(Lum32u portable) {
  Lum32u cw = exceptionsToHardware(portable);
  cw |= (portable & kPortableRounding) << 2;
  switch (portable & kPortablePrecision) {
    case 0x00000000u:  // 64-bit
      cw |= 0x0300u;
      break;
    case 0x00010000u:  // 53-bit
      cw |= 0x0200u;
      break;
    default:  // 0x20000 and 0x30000: 24-bit, field 0
      break;
  }
  if (portable & kPortableInfinity) cw |= kX87Infinity;
  return cw;
}

constexpr Lum32u kFxsaveBytes = 512, kFxsaveAlign = 16, kMxcsrMaskOffset = 28;
constexpr Lum32u kEdxFxsr = 1u << 24;

}  // namespace

extern "C" {

// ---- Constants: exact bit patterns ----------------------------------------------
// Exported through their declarations in lum.h.
const Lum32f lumConstantOfNAN_32f = __builtin_bit_cast(Lum32f, 0xFFC00000u);
const Lum32f lumConstantOfINF_32f = __builtin_bit_cast(Lum32f, 0x7F800000u);
const Lum32f lumConstantOfINF_NEG_32f = __builtin_bit_cast(Lum32f, 0xFF800000u);
const Lum64f lumConstantOfNAN_64f = __builtin_bit_cast(Lum64f, 0xFFF8000000000000ull);
const Lum64f lumConstantOfINF_64f = __builtin_bit_cast(Lum64f, 0x7FF0000000000000ull);
const Lum64f lumConstantOfINF_NEG_64f = __builtin_bit_cast(Lum64f, 0xFFF0000000000000ull);

// ---- x87, hardware words ------------------------------------------------------
LUM_API Lum32u ps_set_cw_fpu(Lum32u value, Lum32u mask) {
  const Lum32u old = readX87Control();
  loadX87Control((old & ~mask) | (value & mask));
  return old;
}

LUM_API Lum32u ps_get_cw_fpu(void) { return readX87Control(); }

LUM_API Lum32u ps_get_sw_fpu(void) { return readX87Status(); }

LUM_API Lum32u ps_clear_fpu(void) {
  const Lum32u sw = readX87Status();
  clearX87Flags();
  return sw;
}

LUM_API Lum32u lum_set_rcpc_fpu(Lum32u value, Lum32u mask) {
  const Lum32u old = readX87Control();
  // The value is taken unmasked, on purpose.
  if ((old & mask) != value) loadX87Control((old & ~mask) | value);
  return old;
}

LUM_API void lum_set_cw_fpu(Lum32u controlWord) { loadX87Control(controlWord); }

// ---- x87, portable words --------------------------------------------------------
LUM_API Lum32u lum_control87(Lum32u newControl, Lum32u mask) {
  const Lum32u current = controlToPortable(readX87Control());
  const Lum32u result = (newControl & mask) | (current & ~mask);
  loadX87Control(controlToHardware(result));
  return result;
}

LUM_API Lum32u lum_status87(void) { return exceptionsToPortable(readX87Status()); }

LUM_API Lum32u lum_clear87(void) {
  const Lum32u status = exceptionsToPortable(readX87Status());
  clearX87Flags();
  return status;
}

// ---- SSE: MXCSR -------------------------------------------------------------------
LUM_API Lum32u ps_set_ssx(Lum32u value, Lum32u mask) {
  const Lum32u old = readMxcsr();
  loadMxcsr((old & ~mask) | (value & mask));
  return old;
}

LUM_API Lum32u ps_get_ssx(void) { return readMxcsr(); }

LUM_API Lum32u lum_clear_ssx(void) {
  const Lum32u old = readMxcsr();
  // The state at power-up: every exception masked, to nearest, no flags.
  const Lum32u powerUp = kMxcsrMasks;
  loadMxcsr(powerUp);
  return old;
}

LUM_API Lum32u lum_set_rc_ssx(Lum32u rounding) {
  const Lum32u old = readMxcsr();
  // The argument is taken unmasked, on purpose.
  if ((old & kMxcsrRounding) != rounding) loadMxcsr((old & ~kMxcsrRounding) | rounding);
  return old;
}

LUM_API void lum_set_cw_ssx(Lum32u mxcsr) { loadMxcsr(mxcsr); }

LUM_API int lum_tst_daz_ssx(void) {
  // FXSAVE is an invalid instruction without FXSR (processors before SSE,
  // which have no denormals-are-zero either): answer 0 there.
  if (!lum_has_cpuid()) return 0;
  Lum32u regs[4];
  ownGetReg(regs, 0, 0);
  if (regs[0] < 1) return 0;
  ownGetReg(regs, 1, 0);
  if (!(regs[3] & kEdxFxsr)) return 0;
  // The area is aligned by hand: a caller's stack may be only 4-aligned.
  unsigned char raw[kFxsaveBytes + kFxsaveAlign];
  unsigned char* area = reinterpret_cast<unsigned char*>(
      (reinterpret_cast<uintptr_t>(raw) + kFxsaveAlign - 1) & ~uintptr_t(kFxsaveAlign - 1));
  memset(area, 0, kFxsaveBytes);
  typedef unsigned char FxsaveArea[kFxsaveBytes];
  __asm__ __volatile__("fxsave %0" : "=m"(*reinterpret_cast<FxsaveArea*>(area))::"memory");
  Lum32u mxcsrMask;
  memcpy(&mxcsrMask, area + kMxcsrMaskOffset, sizeof mxcsrMask);
  return mxcsrMask != 0 && (mxcsrMask & kMxcsrDenormalsAreZero) != 0;
}

}  // extern "C"

// ---- Classification on raw bits ------------------------------------------------------
// int lum_isnan(Lum64f x), int lum_finite(Lum64f x). Written in assembly so
// that the argument is read only as two integer words from the caller's
// stack (low word at 4(%esp), high word at 8(%esp)): a compiler may copy an
// address-taken double through the x87 registers, which would raise
// "invalid" for a signalling NaN and "denormal" for a denormal.
//   lum_isnan: top = high word >> 16; (top & 0x7FF8) == 0x7FF8: NaN;
//   == 0x7FF0: NaN when the rest of the fraction (high word & 0x7FFFF, low
//   word) is non-zero; otherwise not.
//   lum_finite: 0 when (top & 0x7FF0) == 0x7FF0, else 1.
__asm__(R"(
        .pushsection .text
        .p2align 4
        .globl  lum_isnan
        .type   lum_isnan, @function
lum_isnan:
        movl    8(%esp), %edx
        movl    %edx, %eax
        shrl    $16, %eax
        andl    $0x7FF8, %eax
        cmpl    $0x7FF8, %eax
        je      1f
        cmpl    $0x7FF0, %eax
        jne     2f
        andl    $0x7FFFF, %edx
        orl     4(%esp), %edx
        setne   %al
        movzbl  %al, %eax
        ret
1:      movl    $1, %eax
        ret
2:      xorl    %eax, %eax
        ret
        .size   lum_isnan, .-lum_isnan

        .p2align 4
        .globl  lum_finite
        .type   lum_finite, @function
lum_finite:
        movzwl  10(%esp), %eax
        andl    $0x7FF0, %eax
        cmpl    $0x7FF0, %eax
        setne   %al
        movzbl  %al, %eax
        ret
        .size   lum_finite, .-lum_finite
        .popsection
)");
