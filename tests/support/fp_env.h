// The floating-point control state a call must leave as it found it: the
// x87 control word and, where the processor has SSE, the MXCSR.
#ifndef LUM_TESTS_SUPPORT_FP_ENV_H
#define LUM_TESTS_SUPPORT_FP_ENV_H

#include <stdint.h>

namespace lumtest {

// The control fields only: the exception flags (MXCSR bits 0..5) record what
// the arithmetic raised and are expected to change.
struct FpControl {
  uint16_t x87;
  uint32_t mxcsr;  // 0 where the processor has no SSE
  bool operator==(const FpControl& o) const { return x87 == o.x87 && mxcsr == o.mxcsr; }
};

inline FpControl readFpControl() {
  FpControl c{0, 0};
  __asm__ __volatile__("fnstcw %0" : "=m"(c.x87));
  __builtin_cpu_init();
  if (__builtin_cpu_supports("sse")) {
    __asm__ __volatile__("stmxcsr %0" : "=m"(c.mxcsr));
    c.mxcsr &= ~0x3Fu;
  }
  return c;
}

// Whether every x87 register is tagged empty, as the calling convention
// requires between functions. MMX instructions tag them all valid until
// the MMX state is cleared.
inline bool x87RegistersFree() {
  struct {
    uint16_t cw, unused0, sw, unused1, tw, unused2;
    uint32_t rest[4];
  } env;
  __asm__ __volatile__("fnstenv %0" : "=m"(env));
  __asm__ __volatile__("fldcw %0" : : "m"(env.cw));  // fnstenv masked the exceptions
  return env.tw == 0xFFFF;
}

}  // namespace lumtest

#endif
