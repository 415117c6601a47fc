// The floating-point environment helpers, the raw-bit classification and the NaN and infinity
// constants. The FpEnv fixture puts back the x87 control word, x87 status flags and MXCSR after
// every test. Expectations come from the bit tables below; registers are read and written by the
// test's own instructions. MXCSR tests skip without SSE (the suite also runs on such a processor).
#include <setjmp.h>
#include <signal.h>

#include <sstream>

#include "support/harness.h"  // gtest, lum.h, <cmath>, <cstring>, <random>, <vector>

namespace {

uint16_t fnstcw() {
  uint16_t cw;
  __asm__ __volatile__("fnstcw %0" : "=m"(cw)::"memory");
  return cw;
}
void fldcw(uint32_t cw) {
  const uint16_t w = uint16_t(cw);
  __asm__ __volatile__("fldcw %0" ::"m"(w) : "memory");
}
uint32_t fnstsw() {
  uint16_t sw;
  __asm__ __volatile__("fnstsw %0" : "=m"(sw)::"memory");
  return sw;
}
void fnclex() { __asm__ __volatile__("fnclex" ::: "memory"); }
uint32_t stmxcsr() {
  uint32_t v;
  __asm__ __volatile__("stmxcsr %0" : "=m"(v)::"memory");
  return v;
}
void ldmxcsr(uint32_t v) { __asm__ __volatile__("ldmxcsr %0" ::"m"(v) : "memory"); }
// The x87 environment, 32-bit protected-mode layout.
struct X87Env {
  uint32_t cw, sw, tags, ip, cs, dp, ds;
};
void fnstenv(X87Env* e) { __asm__ __volatile__("fnstenv %0" : "=m"(*e)::"memory"); }
void fldenv(const X87Env* e) { __asm__ __volatile__("fldenv %0" ::"m"(*e) : "memory"); }
constexpr uint32_t kAllMasked = 0x037F, kSwTop = 0x3800;
// Writes the x87 status word but its stack top.
void setX87Status(uint32_t sw) {
  X87Env e;
  fnstenv(&e);
  e.sw = (e.sw & kSwTop) | (sw & ~kSwTop);
  fldenv(&e);
}
// The control word as the processor keeps `cw` (reserved bits may be fixed, as bit 6 is on many).
uint32_t readBack(uint32_t cw) {
  fldcw(cw);
  return fnstcw();
}
// Lists of register values in hex, compared in one expectation.
std::string hex(std::initializer_list<uint64_t> values) {
  std::ostringstream s;
  for (const uint64_t v : values) s << std::hex << " 0x" << v;
  return s.str();
}

// Saves the x87 control and status words and the MXCSR, and puts them back when the test ends.
class FpEnv : public ::testing::Test {
 protected:
  FpEnv() { fnclex(); }
  ~FpEnv() override {
    fldcw(kAllMasked);
    setX87Status(sw_);
    fldcw(cw_);
    if (sse_) ldmxcsr(mxcsr_);
  }
  const bool sse_ = lumtest::hasSse();
  const uint32_t cw_ = fnstcw(), sw_ = fnstsw(), mxcsr_ = sse_ ? stmxcsr() : 0;
};

// The portable control word, bit meanings as {portable, x87}.
// Exceptions (masked in the control word, raised in the status word): invalid,
// division by zero, overflow, underflow, inexact, denormal operand.
constexpr uint32_t kExc[6][2] = {{0x10, 0x01}, {0x08, 0x04}, {0x04, 0x08},
                                 {0x02, 0x10}, {0x01, 0x20}, {0x80000, 0x02}};
constexpr uint32_t kRound[4][2] = {
    {0, 0}, {0x100, 0x400}, {0x200, 0x800}, {0x300, 0xC00}};  // nearest, down, up, zero
// Precision read from x87 0 (24-bit), 0x100 (reserved), 0x200 (53), 0x300 (64);
// written from portable 0 (64-bit), 0x10000 (53), 0x20000 and 0x30000 (24).
constexpr uint32_t kPrecRead[4][2] = {{0x20000, 0}, {0, 0x100}, {0x10000, 0x200}, {0, 0x300}};
constexpr uint32_t kPrecWritten[4][2] = {{0, 0x300}, {0x10000, 0x200}, {0x20000, 0}, {0x30000, 0}};
constexpr uint32_t kInf[2] = {0x40000, 0x1000},
                   kPortableFields = 0x8001F | 0x300 | 0x30000 | 0x40000;

uint32_t exceptionsPortable(uint32_t x87) {
  uint32_t p = 0;
  for (auto& e : kExc) p |= x87 & e[1] ? e[0] : 0;
  return p;
}
// The portable word an x87 control word reads as.
uint32_t portableOf(uint32_t cw) {
  uint32_t p = exceptionsPortable(cw) | (cw & kInf[1] ? kInf[0] : 0);
  for (int k = 0; k < 4; ++k)
    p |= ((cw & 0xC00) == kRound[k][1] ? kRound[k][0] : 0) |
         ((cw & 0x300) == kPrecRead[k][1] ? kPrecRead[k][0] : 0);
  return p;
}
// The x87 control word written for a portable word: reserved bits 0.
uint32_t x87Of(uint32_t p) {
  uint32_t cw = p & kInf[0] ? kInf[1] : 0;
  for (auto& e : kExc) cw |= p & e[0] ? e[1] : 0;
  for (int k = 0; k < 4; ++k)
    cw |= ((p & 0x300) == kRound[k][0] ? kRound[k][1] : 0) |
          ((p & 0x30000) == kPrecWritten[k][0] ? kPrecWritten[k][1] : 0);
  return cw;
}

// Every x87 word, reserved bits included, reads as the tables say; mask 0
// writes it back rebuilt from the portable word.
TEST_F(FpEnv, Control87ReadsEveryX87Word) {
  for (uint32_t cw = 0; cw < 0x10000 && !HasFailure(); ++cw) {
    fldcw(cw);
    const uint32_t got = lum_control87(0, 0), after = fnstcw();
    fldcw(kAllMasked);
    EXPECT_EQ(hex({got, after}), hex({portableOf(cw), readBack(x87Of(got))}))
        << std::hex << "x87 word 0x" << cw;
  }
  fldcw(0x0F7F);  // mask 0: bit 6 comes out 0
  const uint32_t rewritten = lum_control87(~0u, 0), after = fnstcw();
  EXPECT_EQ(hex({rewritten, after}), hex({0x8001F | 0x300, readBack(0x0F3F)}));
  fldcw(kAllMasked);  // rounding up
  const uint32_t up = lum_control87(0x200, 0x300);
  EXPECT_EQ(hex({up, fnstcw() & 0x0C00u}), hex({0x8001F | 0x200, 0x0800}));
}

// Every portable combination (other bits now and then) under several masks
// from several words: (new & mask) | (current & ~mask), written as the tables say.
TEST_F(FpEnv, Control87WritesEveryPortableCombination) {
  std::mt19937 random(0xF9E7);
  for (const uint32_t start : {0x037F, 0x0000, 0xFFFF, 0x1140})
    for (const uint32_t mask :
         {~0u, 0x8001Fu, 0x300u, 0x30000u, 0x40000u, 0x10010u, uint32_t(random())})
      for (uint32_t i = 0; i < 2048 && !HasFailure();
           ++i) {  // exceptions, rounding, precision, infinity
        const uint32_t value = (i & 0x1F) | (i & 0x20 ? 0x80000 : 0) | kRound[i >> 6 & 3][0] |
                               kPrecWritten[i >> 8 & 3][0] | (i & 0x400 ? kInf[0] : 0) |
                               (i % 7 ? 0 : random() & ~kPortableFields);
        fldcw(start);
        const uint32_t got = lum_control87(value, mask), after = fnstcw();
        const uint32_t want = (value & mask) | (portableOf(start) & ~mask);
        fldcw(kAllMasked);
        EXPECT_EQ(hex({got, after}), hex({want, readBack(x87Of(want))}))
            << std::hex << "lum_control87(0x" << value << ", 0x" << mask << ") from 0x" << start;
      }
}

// lum_set_rcpc_fpu takes its value unmasked: every fourth value is the word's
// own masked bits, the others have bits outside the mask as well.
TEST_F(FpEnv, X87ControlWordHelpers) {
  std::mt19937 random(0xC0DE);
  for (int n = 0; n < 4000 && !HasFailure(); ++n) {
    const uint32_t value = random(), mask = n % 3 ? random() : 0x0F00;
    const uint32_t start = readBack(random()), read = ps_get_cw_fpu(),
                   old = ps_set_cw_fpu(value, mask), set = fnstcw();
    const uint32_t loaded = (lum_set_cw_fpu(value), fnstcw()), rcpc = n % 4 ? value : start & mask;
    fldcw(start);
    const uint32_t oldOfRcpc = lum_set_rcpc_fpu(rcpc, mask), setByRcpc = fnstcw();
    fldcw(kAllMasked);
    EXPECT_EQ(hex({read, old, set, loaded, oldOfRcpc, setByRcpc}),
              hex({start, start, readBack((start & ~mask) | (value & mask)), readBack(value), start,
                   readBack((start & ~mask) | rcpc)}))
        << std::hex << "word 0x" << start << ", value 0x" << value << ", mask 0x" << mask
        << ", rcpc 0x" << rcpc;
  }
}

// The four status helpers against the x87 flags now raised; leaves them cleared.
void expectStatusHelpers(uint32_t flags) {
  const uint32_t sw = fnstsw(), p = exceptionsPortable(flags);
  ASSERT_EQ(sw & 0x3F, flags) << "the flags raised";
  const uint32_t get = ps_get_sw_fpu(), status = lum_status87(), kept = fnstsw(),
                 clear87 = lum_clear87();
  const uint32_t left = fnstsw() & 0x80FF;
  setX87Status(sw);
  const uint32_t clearFpu = ps_clear_fpu(), leftByClearFpu = fnstsw() & 0x80FF;
  EXPECT_EQ(hex({get, status, kept, clear87, left, clearFpu, leftByClearFpu}),
            hex({sw, p, sw, p, 0, sw, 0}));
}

volatile double g_zero = 0.0, g_one = 1.0, g_three = 3.0;
void x87Divide(volatile double& a, volatile double& b) {  // a / b
  __asm__ __volatile__("fldl %0\n\tfdivl %1\n\tfstp %%st(0)" ::"m"(a), "m"(b) : "memory");
}

// Every flag set written, with the stack-fault flag and condition codes around
// it; then invalid (0/0), division by zero (1/0) and inexact (1/3) raised by
// masked x87 arithmetic, alone and together.
TEST_F(FpEnv, StatusHelpers) {
  fldcw(kAllMasked);
  for (uint32_t flags = 0; flags < 64 && !HasFailure(); ++flags)
    for (const uint32_t other : {0x0000, 0x0040, 0x4700, 0x4740}) {
      setX87Status(flags | other);
      SCOPED_TRACE(testing::Message() << std::hex << "status word 0x" << (flags | other));
      expectStatusHelpers(flags);
    }
  for (int set = 1; set < 8 && !HasFailure(); ++set) {
    fnclex();
    if (set & 1) x87Divide(g_zero, g_zero);
    if (set & 2) x87Divide(g_one, g_zero);
    if (set & 4) x87Divide(g_one, g_three);
    SCOPED_TRACE(set);
    expectStatusHelpers((set & 1 ? 0x01 : 0) | (set & 2 ? 0x04 : 0) | (set & 4 ? 0x20 : 0));
  }
}

// lum_set_rc_ssx takes its argument unmasked: every fourth one is the rounding
// already in force, the others have other bits as well.
TEST_F(FpEnv, MxcsrHelpers) {
  if (!sse_) GTEST_SKIP() << "no SSE";
  constexpr uint32_t kBits = 0xFFBF;  // every SSE processor's, denormals-are-zero left out
  std::mt19937 random(0x55E);
  for (int n = 0; n < 3000 && !HasFailure(); ++n) {
    const uint32_t start = random() & kBits, value = random() & kBits,
                   mask = n % 4 ? random() : ~0u;
    const uint32_t rounding = n % 4 == 1 ? start & 0x6000 : random() & kBits;
    ldmxcsr(start);
    const uint32_t read = ps_get_ssx(), old = ps_set_ssx(value, mask), set = stmxcsr();
    ldmxcsr(start);
    const uint32_t oldOfClear = lum_clear_ssx(), cleared = stmxcsr();
    const uint32_t loaded = (lum_set_cw_ssx(value), stmxcsr());
    ldmxcsr(start);
    const uint32_t oldOfRc = lum_set_rc_ssx(rounding), rounded = stmxcsr();
    ldmxcsr(0x1F80);
    EXPECT_EQ(hex({read, old, set, oldOfClear, cleared, loaded, oldOfRc, rounded}),
              hex({start, start, (start & ~mask) | (value & mask), start, 0x1F80, value, start,
                   (start & ~0x6000u) | rounding}))
        << std::hex << "MXCSR 0x" << start << ", value 0x" << value << ", mask 0x" << mask
        << ", rounding 0x" << rounding;
  }
}

__attribute__((target("sse"), noinline)) float sseAdd(float a, float b) {
  __asm__ __volatile__("movss %0, %%xmm0\n\taddss %1, %%xmm0\n\tmovss %%xmm0, %0"
                       : "+m"(a)
                       : "m"(b)
                       : "xmm0");
  return a;
}
sigjmp_buf g_faultJump;
void onFault(int signal) { siglongjmp(g_faultJump, signal); }

// Where it answers 1 the bit makes a denormal operand read as 0; where it
// answers 0 loading the bit faults.
TEST_F(FpEnv, DenormalsAreZeroTestAgreesWithTheProcessor) {
  const int daz = lum_tst_daz_ssx();
#if !defined(LUM_SANITIZE)  // the sanitizer rejects the hand-made frame of an instrumented function
  for (int offset = 0; offset < 16;
       offset += 4)  // the save area is aligned whatever the caller's stack
    EXPECT_EQ(
        lumtest_call_misaligned(reinterpret_cast<const void*>(lum_tst_daz_ssx), nullptr, 0, offset),
        uint32_t(daz));
#endif
  EXPECT_TRUE(daz == 0 || (daz == 1 && sse_)) << daz << ": denormals-are-zero is an SSE control";
  if (!sse_) return;
  ldmxcsr(0x1F80);
  ASSERT_NE(sseAdd(1e-40f, 0.0f), 0.0f);
  if (daz == 1) {
    ldmxcsr(0x1F80 | 0x40);
    EXPECT_EQ(sseAdd(1e-40f, 0.0f), 0.0f) << "a denormal operand reads as 0";
    return;
  }
  struct sigaction fault {
  }, previous{};
  fault.sa_handler = onFault;
  sigaction(SIGSEGV, &fault, &previous);
  const int signal = sigsetjmp(g_faultJump, 1);
  if (signal == 0) ldmxcsr(0x1F80 | 0x40);
  sigaction(SIGSEGV, &previous, nullptr);
  EXPECT_EQ(signal, SIGSEGV) << "the processor took MXCSR bit 0x40";
}

// Every sign and exponent with fractions of one bit, all bits but one, and one
// bit with the quiet bit; then random patterns, half of them with the exponent
// all ones and a sparse fraction. The double is passed as its two words, never
// through an x87 register, and no floating-point flag may be raised.
TEST_F(FpEnv, IsnanAndFiniteMatchTheStandardClassification) {
  constexpr uint64_t kFraction = 0xFFFFFFFFFFFFFull, kQuiet = 0x8000000000000ull;
  std::vector<uint64_t> all;
  for (uint64_t top = 0; top < 4096; ++top)
    for (int b = 0; b <= 52; ++b) {
      const uint64_t one = b < 52 ? 1ull << b : 0;
      for (const uint64_t f : {one, kFraction & ~one, one | kQuiet}) all.push_back(top << 52 | f);
    }
  std::mt19937_64 random(20240611);
  for (int i = 0; i < 200000; ++i) {
    const uint64_t r = random(), sparse = r & random() & random();
    all.push_back(i & 1 ? r : (r & ~kFraction) | 0x7FF0000000000000ull | (sparse & kFraction));
  }
  fldcw(kAllMasked);
  if (sse_) ldmxcsr(0x1F80);
  uint32_t raised = 0;
  for (size_t i = 0; i < all.size() && !HasFailure(); ++i) {
    const uint32_t words[2] = {uint32_t(all[i]), uint32_t(all[i] >> 32)}, offset = 4 * (i & 3);
    fnclex();
    const uint32_t nan = lumtest_call_misaligned(reinterpret_cast<const void*>(lum_isnan), words, 2,
                                                 offset),
                   finite = lumtest_call_misaligned(reinterpret_cast<const void*>(lum_finite),
                                                    words, 2, offset);
    raised |= (fnstsw() & 0x80FF) | (sse_ ? stmxcsr() & 0x3F : 0);
    double d;
    std::memcpy(&d, &all[i], sizeof d);
    EXPECT_TRUE(nan == std::isnan(d) && finite == std::isfinite(d) && !raised)
        << std::hex << "bits 0x" << all[i] << ": lum_isnan " << nan << ", lum_finite " << finite
        << ", flags 0x" << raised;
  }
}
template <class Bits, class T>
Bits bitsOf(const T& v) {
  Bits b;
  static_assert(sizeof b == sizeof v, "");
  std::memcpy(&b, &v, sizeof b);
  return b;
}

TEST_F(FpEnv, ConstantsHaveTheirBits) {
  EXPECT_EQ(
      hex({bitsOf<uint32_t>(lumConstantOfNAN_32f), bitsOf<uint32_t>(lumConstantOfINF_32f),
           bitsOf<uint32_t>(lumConstantOfINF_NEG_32f), bitsOf<uint64_t>(lumConstantOfNAN_64f),
           bitsOf<uint64_t>(lumConstantOfINF_64f), bitsOf<uint64_t>(lumConstantOfINF_NEG_64f)}),
      hex({0xFFC00000, 0x7F800000, 0xFF800000, 0xFFF8000000000000, 0x7FF0000000000000,
           0xFFF0000000000000}));
}

}  // namespace
