// The calling thread's floating-point control: every read and write of the
// x87 control word, status word and environment and of the SSE unit's
// control and status register (MXCSR), the integer stores of the x87 under a
// rounding of their own, and the scopes the image code builds on them.
//
// It lives in core/, the floor below image/, because both sides use it: the
// core's floating-point helpers (core/fpenv.cpp, compiled once for plain
// i686) read and write the registers for the caller, and the image builds
// run their work under controls of their own and hand the caller's to their
// worker threads (they include it through image/build.h).
//
// Everything here is inline, and each includer gets its own copy in its own
// namespace: lum::kN in a per-build source (LUM_BUILD set), lum::core in the
// core. A copy compiled for an SSE build is then never merged by the linker
// with the generic build's. The MXCSR is there where the build has an SSE
// unit (k1..k5), and in the core, whose MXCSR helpers execute those
// instructions only when the caller calls them (on SSE processors). The
// scopes are the image builds' alone: they need to know when they are
// compiled whether there is an MXCSR.
//
// The non-waiting forms (fnstcw, fnstsw, fnstenv, fnclex) are used
// throughout: reading the words, saving the environment or clearing the
// flags never raises a pending x87 exception.
#ifndef LUM_CORE_FP_CONTROL_H
#define LUM_CORE_FP_CONTROL_H

#include <stdint.h>

#ifdef LUM_BUILD
#define LUM_FP_NAMESPACE LUM_TAG
#define LUM_FP_HAS_MXCSR (LUM_BUILD >= 1)
#else
#define LUM_FP_NAMESPACE core
#define LUM_FP_HAS_MXCSR 1
#endif

namespace lum {
namespace LUM_FP_NAMESPACE {

// ---- The registers' bits ----------------------------------------------------
// x87 exception flags (status word) and masks (control word) share bits 0..5,
// as do the MXCSR exception flags; the MXCSR masks are bits 7..12.
constexpr unsigned kFpFlags = 0x3F;
constexpr unsigned kFpInvalidFlag = 0x01;  // invalid operation, bit 0 of both
// The x87 control word's fields: rounding (0 to nearest, all set towards
// zero), precision (0 a 24-bit significand, 0x200 53 bits, all set 64) and
// the infinity control.
constexpr uint16_t kX87Rounding = 0x0C00, kX87Precision = 0x0300, kX87Infinity = 0x1000;
// Every SSE exception masked: the library's own steps (a conversion of its
// sums to pixels) never trap, whatever the caller unmasks; their flags still
// reach the caller.
constexpr uint32_t kMxcsrMasks = 0x1F80;
// The MXCSR's rounding field (0 to nearest, 0x2000 down, all set towards
// zero) and denormals-are-zero.
constexpr uint32_t kMxcsrRounding = 0x6000, kMxcsrRoundDown = 0x2000,
                   kMxcsrRoundTowardsZero = 0x6000;
constexpr uint32_t kMxcsrDenormalsAreZero = 0x40;

// ---- The x87 words and environment --------------------------------------------

// The x87 environment as fnstenv stores it in 32-bit protected mode.
struct X87Env {
  uint16_t control, unused0, status, unused1;
  uint32_t rest[5];
};

// The stores and loads take the word where it lies, as the instructions do:
// a word that has to be in memory anyway (a member, a variable the worker
// threads share) is not copied on the way.
//
// Every load of a control, and every read of the flags, is also a barrier
// for memory: no load or store of pixels moves across it, so that the work
// of a scope stays between the load of its control and the caller's coming
// back, and its flags are read after it. Reading the control word is not
// (the integer stores below read it per pixel and change nothing).
inline void storeX87Control(uint16_t& cw) { __asm__ volatile("fnstcw %0" : "=m"(cw)); }
inline void loadX87Control(const uint16_t& cw) {
  __asm__ volatile("fldcw %0" : : "m"(cw) : "memory");
}
inline void storeX87Status(uint16_t& sw) { __asm__ volatile("fnstsw %0" : "=m"(sw) : : "memory"); }
inline void clearX87Flags() { __asm__ volatile("fnclex" : : : "memory"); }
// The flags cleared, then a control word loaded: a flag raised before that
// the new word unmasks would trap at the next x87 instruction.
inline void clearX87FlagsLoadControl(const uint16_t& cw) {
  __asm__ volatile("fnclex\n\tfldcw %0" : : "m"(cw) : "memory");
}
// fnstenv masks every x87 exception after storing the environment.
inline void storeX87Env(X87Env& env) { __asm__ volatile("fnstenv %0" : "=m"(env) : : "memory"); }
inline void loadX87Env(const X87Env& env) { __asm__ volatile("fldenv %0" : : "m"(env) : "memory"); }

inline uint16_t readX87Control() {
  uint16_t cw;
  storeX87Control(cw);
  return cw;
}
inline uint16_t readX87Status() {
  uint16_t sw;
  storeX87Status(sw);
  return sw;
}

// ---- Integer stores of the x87 ------------------------------------------------
// FISTP: v stored to n as a 32-bit integer and popped, rounded by the control
// word in force.
inline void storeX87Int(int& n, long double v) {
  __asm__ volatile("fistpl %0" : "=m"(n) : "t"(v) : "st");
}

// The same under the control word `during`, with `after` loaded right behind
// the store, in one piece so that nothing else runs under `during`.
inline void storeX87IntUnder(int& n, long double v, const uint16_t& during, const uint16_t& after) {
  __asm__ volatile("fldcw %1\n\tfistpl %0\n\tfldcw %2"
                   : "=m"(n)
                   : "m"(during), "m"(after), "t"(v)
                   : "st");
}

// v truncated towards zero, whatever the caller's rounding, which the
// control word has again afterwards.
inline int x87TruncateToInt(long double v) {
  uint16_t own, chop;
  int n;
  storeX87Control(own);
  chop = static_cast<uint16_t>(own | kX87Rounding);
  storeX87IntUnder(n, v, chop, own);
  return n;
}

// v rounded to nearest, ties to even. The caller almost always rounds to
// nearest already: only under another rounding is the control word switched
// for the one store and back at once (loading the control word stalls the
// x87, twice a value where it was switched every time).
inline int x87NearestToInt(long double v) {
  uint16_t own, nearest;
  int n;
  storeX87Control(own);
  if ((own & kX87Rounding) == 0) {
    storeX87Int(n, v);
    return n;
  }
  nearest = static_cast<uint16_t>(own & ~kX87Rounding);
  storeX87IntUnder(n, v, nearest, own);
  return n;
}

// ---- The MXCSR ----------------------------------------------------------------
#if LUM_FP_HAS_MXCSR
// Barriers for memory too, as the x87 loads above.
inline void storeMxcsr(uint32_t& v) { __asm__ volatile("stmxcsr %0" : "=m"(v) : : "memory"); }
inline void loadMxcsr(const uint32_t& v) { __asm__ volatile("ldmxcsr %0" : : "m"(v) : "memory"); }

inline uint32_t readMxcsr() {
  uint32_t v;
  storeMxcsr(v);
  return v;
}
#endif

#ifdef LUM_BUILD
// ---- Scopes of the image builds -----------------------------------------------

// The floating-point control a thread works under: the x87 control word and,
// in k1..k5, the MXCSR (0 in k0).
struct FpControl {
  uint16_t x87;
  uint32_t mxcsr;
};

inline FpControl readFpControl() {
  FpControl c{0, 0};
  storeX87Control(c.x87);
#if LUM_FP_HAS_MXCSR
  storeMxcsr(c.mxcsr);
#endif
  return c;
}

// A thread under a given floating-point control (x87 control word and, in
// k1..k5, the MXCSR's control bits), from construction until finish(), which
// restores the thread's own environment and returns the exception flags
// raised meanwhile: x87 in bits 0..5, MXCSR in bits 8..13. Inactive, it
// changes and reports nothing.
class FpControlScope {
 public:
  explicit FpControlScope(const FpControl& control, bool active = true) : active_(active) {
    if (!active) return;
    // fnstenv masks every x87 exception after storing; the new control word
    // then sets the masks it has.
    storeX87Env(ownX87_);
    clearX87FlagsLoadControl(control.x87);
#if LUM_FP_HAS_MXCSR
    storeMxcsr(ownMxcsr_);
    const uint32_t controlOnly = control.mxcsr & ~kFpFlags;
    loadMxcsr(controlOnly);
#endif
  }
  unsigned finish() {
    if (!active_) return 0;
    active_ = false;
    uint16_t status;
    storeX87Status(status);
    unsigned raised = status & kFpFlags;
    loadX87Env(ownX87_);
#if LUM_FP_HAS_MXCSR
    uint32_t mxcsr;
    storeMxcsr(mxcsr);
    raised |= (mxcsr & kFpFlags) << 8;
    loadMxcsr(ownMxcsr_);
#endif
    return raised;
  }

 private:
  bool active_;
  X87Env ownX87_;
  uint32_t ownMxcsr_ = 0;
};

// Raises in the calling thread the flags its workers raised (as finish()
// returns them). Only x87 flags whose exception the caller masks are set: an
// unmasked one would already have trapped in the worker, and setting it here
// would trap at the caller's next x87 instruction instead.
inline void raiseFpFlags(unsigned raised) {
  const unsigned x87 = raised & kFpFlags;
  if (x87 != 0) {
    X87Env env;
    storeX87Env(env);
    env.status = static_cast<uint16_t>(env.status | (x87 & env.control));
    loadX87Env(env);
  }
#if LUM_FP_HAS_MXCSR
  const unsigned sse = (raised >> 8) & kFpFlags;
  if (sse != 0) {
    uint32_t mxcsr;
    storeMxcsr(mxcsr);
    mxcsr |= sse;
    loadMxcsr(mxcsr);
  }
#endif
}

// The calling thread's x87 unit under a control word of the library's own
// choosing for as long as this lives: computations whose results must not
// depend on the caller's rounding or precision run under it. The caller's
// control word comes back afterwards. Flags raised meanwhile stay raised
// where the caller masks their exception; the others are cleared, as they
// would trap at the caller's next x87 instruction.
class OwnX87Control {
 public:
  explicit OwnX87Control(uint16_t control) {
    storeX87Control(caller_);
    loadX87Control(control);
  }
  ~OwnX87Control() {
    const uint16_t status = readX87Status();
    const unsigned unmasked = kFpFlags & ~unsigned(caller_);
    if ((status & unmasked) == 0) {
      loadX87Control(caller_);
      return;
    }
    X87Env env;
    storeX87Env(env);
    env.control = caller_;
    env.status = static_cast<uint16_t>(env.status & ~unmasked);
    loadX87Env(env);
  }
  OwnX87Control(const OwnX87Control&) = delete;
  OwnX87Control& operator=(const OwnX87Control&) = delete;

 private:
  uint16_t caller_;
};

#if LUM_FP_HAS_MXCSR
// The same for the SSE unit: MXCSR control bits of the library's own
// choosing, `control` where `callers` is clear and the caller's where it is
// set, for as long as this lives. The exception flags start clear, so that
// raised() tells what the work raised; afterwards the caller's MXCSR comes
// back with those flags added to its own (an SSE flag never traps after the
// fact), so that the caller keeps every flag, set before or raised during.
// A load that would change nothing is skipped.
class OwnMxcsr {
 public:
  explicit OwnMxcsr(uint32_t control, uint32_t callers = 0) {
    caller_ = readMxcsr();
    const uint32_t own = ((caller_ & callers) | (control & ~callers)) & ~kFpFlags;
    if (own != caller_) loadMxcsr(own);
  }
  ~OwnMxcsr() {
    const uint32_t now = readMxcsr(), back = caller_ | (now & kFpFlags);
    if (back != now) loadMxcsr(back);
  }
  OwnMxcsr(const OwnMxcsr&) = delete;
  OwnMxcsr& operator=(const OwnMxcsr&) = delete;

  uint32_t caller() const { return caller_; }
  uint32_t raised() const { return readMxcsr() & kFpFlags; }

 private:
  uint32_t caller_;
};
#endif
#endif  // LUM_BUILD

}  // namespace LUM_FP_NAMESPACE
}  // namespace lum

#undef LUM_FP_NAMESPACE

#endif
