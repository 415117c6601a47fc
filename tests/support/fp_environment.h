// The floating-point state around a call: the x87 control word and the MXCSR's control fields
// (the environments the harness runs under), the exception flags of both, and what a call must
// leave of them.
#ifndef LUM_TESTS_SUPPORT_FP_ENVIRONMENT_H
#define LUM_TESTS_SUPPORT_FP_ENVIRONMENT_H

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace lumtest {

// ---- Floating-point environments: the MXCSR's control fields (0 without
// SSE; its flags record what the arithmetic raised) and the x87 control word.
struct FpEnv {
  const char* name;
  uint32_t mxcsr;
  uint16_t x87;
};
// The last one holds the x87 to single precision (24-bit significands), rounding down: the generic
// build's products and differences, and k0's and k1's extended sums, are then rounded to that
// precision first (a product in the denormal range twice), as on a processor; an emulator need not
// model it.
inline const FpEnv kEnvs[] = {
    {"default", 0x1F80, 0x037F},
    {"SSE rounding up", 0x5F80, 0x037F},
    {"SSE flush-to-zero, denormals-are-zero; x87 toward zero", 0x9FC0, 0x0F7F},
    {"SSE toward zero; x87 24-bit precision, rounding down", 0x7F80, 0x047F}};
constexpr int kNumEnvs = int(sizeof kEnvs / sizeof kEnvs[0]);
inline bool hasSse() { return __builtin_cpu_init(), __builtin_cpu_supports("sse"); }
// Under valgrind's memcheck (scripts/test.sh sets LUM_MEMCHECK), which models no x87 tag word.
inline bool underMemcheck() {
  static const bool set = std::getenv("LUM_MEMCHECK") != nullptr;
  return set;
}
// Also tells whether every x87 register is tagged empty, as the calling convention requires: MMX
// instructions tag them all valid until the state is cleared.
inline FpEnv readFp(bool* x87RegistersFree = nullptr) {
  uint16_t env[14];
  __asm__ __volatile__("fnstenv %0\n\tfldcw %0" : "=m"(env)::"memory");  // fnstenv masks exceptions
  FpEnv e{"", 0, env[0]};
  if (x87RegistersFree) *x87RegistersFree = env[4] == 0xFFFF || underMemcheck();
  if (hasSse()) __asm__ __volatile__("stmxcsr %0" : "=m"(e.mxcsr)::"memory");
  return e.mxcsr &= ~0x3Fu, e;
}
inline FpEnv writeFp(const FpEnv& e) {
  __asm__ __volatile__("fldcw %0" ::"m"(e.x87) : "memory");
  if (hasSse()) __asm__ __volatile__("ldmxcsr %0" ::"m"(e.mxcsr) : "memory");
  return readFp();
}

// ---- Exception flags: bits 0..5 of the MXCSR (0 without SSE) and of the x87 status word, in the
// same order (invalid, denormal, division by zero, overflow, underflow, inexact).
constexpr unsigned kFpFlags = 0x3F;
struct FpFlags {
  uint32_t mxcsr;
  uint16_t x87;
};
inline FpFlags readFpFlags() {
  FpFlags f{0, 0};
  __asm__ __volatile__("fnstsw %0" : "=m"(f.x87)::"memory");
  if (hasSse()) __asm__ __volatile__("stmxcsr %0" : "=m"(f.mxcsr)::"memory");
  return f.mxcsr &= kFpFlags, f.x87 &= kFpFlags, f;
}
// Replaces the flags, the control state unchanged. An x87 flag whose exception is unmasked would
// trap at the next x87 instruction: the caller sets only masked ones.
inline void writeFpFlags(const FpFlags& f) {
  uint16_t env[14];
  __asm__ __volatile__("fnstenv %0"
                       : "=m"(env)::"memory");  // masks exceptions; fldenv brings the word back
  env[2] = uint16_t((env[2] & ~0x80FFu) |
                    (f.x87 & kFpFlags));  // also the stack fault, summary and busy bits
  __asm__ __volatile__("fldenv %0" ::"m"(env) : "memory");
  if (!hasSse()) return;
  uint32_t mxcsr;
  __asm__ __volatile__("stmxcsr %0" : "=m"(mxcsr)::"memory");
  mxcsr = (mxcsr & ~kFpFlags) | (f.mxcsr & kFpFlags);
  __asm__ __volatile__("ldmxcsr %0" ::"m"(mxcsr) : "memory");
}

// Which exception flags the next call starts with, in turn: none, each alone, all six. A run
// replays the same turns; the fuzz targets start each input at a turn of its own.
inline unsigned& fpFlagsTurn() {
  static unsigned turn = 0;
  return turn;
}
constexpr unsigned kFpFlagTurns = 8;
inline unsigned nextFpFlags() {
  const unsigned k = fpFlagsTurn()++ % kFpFlagTurns;
  return k == 0 ? 0 : k == 7 ? kFpFlags : 1u << (k - 1);
}

// One call's floating-point surroundings. From construction `env` is in force with the turn's flags
// raised in the MXCSR and, where `env` masks their exception, in the x87 status word; called()
// reads what the call left, fault() says what it must not have done: change the control state, or
// clear a flag that was set before it. The caller's environment comes back at restore(), at the
// latest at destruction (references worked out after the call still run under `env`).
class FpAroundCall {
 public:
  explicit FpAroundCall(const FpEnv& env)
      : caller_(readFp()), callerFlags_(readFpFlags()), set_(writeFp(env)) {
    const unsigned f = nextFpFlags();
    writeFpFlags({f, uint16_t(f & env.x87)});
    before_ =
        readFpFlags();  // as held: none without SSE, nor where a tool models no flags (memcheck)
  }
  ~FpAroundCall() { restore(); }
  void restore() {
    if (restored_) return;
    restored_ = true;
    writeFp(caller_);
    writeFpFlags(callerFlags_);
  }
  FpAroundCall(const FpAroundCall&) = delete;
  FpAroundCall& operator=(const FpAroundCall&) = delete;

  void called() { after_ = readFp(&x87RegistersFree_), afterFlags_ = readFpFlags(); }
  bool x87RegistersFree() const { return x87RegistersFree_; }
  std::string fault() const {
    char control[96] = "", flags[96] = "";
    const unsigned lostSse = before_.mxcsr & ~afterFlags_.mxcsr,
                   lostX87 = before_.x87 & ~afterFlags_.x87;
    if (after_.mxcsr != set_.mxcsr || after_.x87 != set_.x87)
      std::snprintf(
          control, sizeof control, "control state changed: MXCSR 0x%x to 0x%x, x87 0x%x to 0x%x; ",
          unsigned(set_.mxcsr), unsigned(after_.mxcsr), unsigned(set_.x87), unsigned(after_.x87));
    if (lostSse || lostX87)
      std::snprintf(
          flags, sizeof flags,
          "exception flags set before the call cleared: MXCSR 0x%x of 0x%x, x87 0x%x of 0x%x",
          lostSse, unsigned(before_.mxcsr), lostX87, unsigned(before_.x87));
    return std::string(control) + flags;
  }

 private:
  FpEnv caller_;
  FpFlags callerFlags_;
  FpEnv set_, after_{};
  FpFlags before_{}, afterFlags_{};
  bool x87RegistersFree_ = false, restored_ = false;
};

}  // namespace lumtest

#endif
