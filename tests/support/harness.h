// The harness every image function is tested through. A function is described once, as a Case: its
// entry point in one build, where its operands go among its arguments, the expected value of each
// destination pixel, and its argument checks in order. The harness calls it through the C calling
// convention with the stack misaligned in turn, on operands between inaccessible pages (sources
// read-only), and checks the status, every destination pixel, every byte around the region, the
// floating-point control state, the exception flags the caller had set and the MMX state.
#ifndef LUM_TESTS_SUPPORT_HARNESS_H
#define LUM_TESTS_SUPPORT_HARNESS_H

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "lum.h"
#include "support/threads.h"

// Calls a cdecl function with the stack pointer `offset` bytes (0, 4, 8 or 12) past a 16-byte
// boundary at the call, as older i386 code may do (misaligned_call.S).
extern "C" uint32_t lumtest_call_misaligned(const void* fn, const uint32_t* args, int nargs,
                                            int offset);

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

inline uint32_t word(const void* p) { return uint32_t(reinterpret_cast<uintptr_t>(p)); }

// ---- Guarded operands. A Place is a step in bytes (any sign, zero included)
// and the gap of pattern between the region and the guard page it lies
// against. An Image holds `height` rows of `rowBytes` between two
// inaccessible pages, the rest of its block a pseudo-random pattern.
struct Place {
  int step, gap = 0;
  bool atStart = false;
};
struct Image {
  Image(int rowBytes, int height, const Place& p)
      : step(p.step), page(size_t(sysconf(_SC_PAGESIZE))) {
    const ptrdiff_t last = ptrdiff_t(height - 1) * step, lo = std::min<ptrdiff_t>(last, 0),
                    span = std::max<ptrdiff_t>(last, 0) - lo + rowBytes;
    body = (span + p.gap + page - 1) / page * page;
    map = static_cast<uint8_t*>(
        mmap(nullptr, body + 2 * page, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    protect(PROT_READ | PROT_WRITE);
    origin = (p.atStart ? begin() + p.gap : begin() + body - p.gap - span) - lo;
    for (uint32_t i = 0, s = word(map); i < body; ++i)
      begin()[i] = uint8_t((s = s * 1664525u + 1013904223u) >> 24);
  }
  ~Image() { munmap(map, body + 2 * page); }
  uint8_t* begin() const { return map + page; }
  uint8_t* row(int y) const { return origin + ptrdiff_t(y) * step; }
  std::vector<uint8_t> bytes() const { return {begin(), begin() + body}; }
  void protect(int prot) const { mprotect(begin(), body, prot); }
  int step;
  size_t page, body;
  uint8_t *map, *origin;
};

// ---- Calls: `head` words, pointer and step of each source and of the
// destination, the size, then `tail` words.
struct Args {
  std::vector<uint32_t> head, tail;
  int sources, srcStep[2], dstStep;
  const void* src[2];
  void* dst;
  LumSize size;
};
inline LumStatus call(const void* fn, const Args& a) {
  std::vector<uint32_t> w = a.head;
  for (int i = 0; i < a.sources; ++i) w.insert(w.end(), {word(a.src[i]), uint32_t(a.srcStep[i])});
  w.insert(w.end(),
           {word(a.dst), uint32_t(a.dstStep), uint32_t(a.size.width), uint32_t(a.size.height)});
  w.insert(w.end(), a.tail.begin(), a.tail.end());
#if defined(LUM_SANITIZE)  // the sanitizer flags a hand-made call frame itself; a block of words
  struct Words {
    uint32_t w[12];
  } words{};  // by value is the same stack as the words one by one
  std::copy(w.begin(), w.end(), words.w);
  return reinterpret_cast<LumStatus (*)(Words)>(const_cast<void*>(fn))(words);
#else
  static int turn = 0;
  return LumStatus(lumtest_call_misaligned(fn, w.data(), int(w.size()), 4 * (turn++ % 4)));
#endif
}

// An argument check: how it breaks a good call, the status that must come
// back, and its condition, which holds for any call it must refuse. A call
// gets the status of the first check whose condition holds (the checks are
// listed in their documented order). The shared ones: null pointers in
// argument order, then height and width below 1.
struct Check {
  std::string what;
  std::function<void(Args&)> breaks;
  LumStatus status;
  std::function<bool(const Args&)> holds;
};
inline LumStatus verdict(const std::vector<Check>& checks, const Args& a) {
  for (const Check& c : checks)
    if (c.holds(a)) return c.status;
  return lumStsNoErr;
}
inline std::vector<Check> nullAndSizeChecks(int sources) {
  std::vector<Check> c;
  for (int i = 0; i < sources; ++i)
    c.push_back({"source " + std::to_string(i + 1) + " null", [i](Args& a) { a.src[i] = nullptr; },
                 lumStsNullPtrErr, [i](const Args& a) { return a.src[i] == nullptr; }});
  c.push_back({"destination null", [](Args& a) { a.dst = nullptr; }, lumStsNullPtrErr,
               [](const Args& a) { return a.dst == nullptr; }});
  const auto sizeBelowOne = [](const Args& a) { return a.size.width < 1 || a.size.height < 1; };
  for (int bad : {0, -1, INT_MIN})
    for (bool width : {false, true})
      c.push_back({(width ? "width " : "height ") + std::to_string(bad),
                   [=](Args& a) { (width ? a.size.width : a.size.height) = bad; }, lumStsSizeErr,
                   sizeBelowOne});
  return c;
}

// ---- A function under test in one build. Its reference gives a destination pixel from the source
// pixels at its place (pointers into row-major copies of the sources, null where there is none); it
// is told whether the caller's environment is the default one, may raise a warning to return, may
// let any NaN stand for the NaN it gives, and may name one other value (its bits) that will do too.
struct Ctx {
  bool defaultEnv;
  LumStatus status;
  bool anyNaN;
  bool hasAlso = false;
  uint32_t also = 0;
};

// The SSE arithmetic of k1..k5 under the caller's MXCSR, the first operand in the destination
// register. By address: a float passed by value goes through the x87, which would quiet a
// signalling NaN.
#define LUM_SSE_OP(name, insn)                                                             \
  __attribute__((target("sse"))) inline float name(const float* a, const float* b) {       \
    float r;                                                                               \
    __asm__ __volatile__("movss %1, %0\n\t" insn " %2, %0" : "=&x"(r) : "m"(*a), "m"(*b)); \
    return r;                                                                              \
  }
LUM_SSE_OP(sseMul, "mulss")
LUM_SSE_OP(sseSub, "subss")
LUM_SSE_OP(sseDiv, "divss")
#undef LUM_SSE_OP

// The rule of a float operation: a NaN operand quieted, else `exact` in double rounded to float
// (for a product or a difference of two floats the float nearest the exact value), computed on the
// x87 under the caller's control word, so in every environment what k0 must give (the x87 picks
// between two NaNs by payload), and k1..k5 in the default one. Elsewhere, and between two NaNs, the
// SSE operation decides for k1..k5: the first NaN on a real processor. An emulator may pick by kind
// and payload, and then a signalling NaN quieted on the way (an x87 load does that, with no effect
// on a real processor) changes the pick: any NaN will do where one of two NaNs is signalling.
template <class Exact>
float floatReference(const float* a, const float* b, int build, Ctx& ctx,
                     float (*sse)(const float*, const float*), const Exact& exact) {
  const auto signalling = [](const float* x) {
    return std::isnan(*x) && !(reinterpret_cast<const uint8_t*>(x)[2] & 0x40);  // bit 22 clear
  };
  const bool twoNaNs = std::isnan(*a) && std::isnan(*b);
  ctx.anyNaN = build == 0 || (twoNaNs && (signalling(a) || signalling(b)));
  if (build && (!ctx.defaultEnv || twoNaNs)) return sse(a, b);
  if (std::isnan(*a) || std::isnan(*b)) {
    uint32_t bits;
    float r;
    std::memcpy(&bits, std::isnan(*a) ? a : b, 4);
    bits |= 0x400000;  // quiet
    return std::memcpy(&r, &bits, 4), r;
  }
  volatile float rounded = float(exact(double(*a), double(*b)));
  return rounded;
}
template <class T>
struct Case {
  std::string name;
  const void* fn;
  int sources = 2;
  std::vector<uint32_t> head, tail;
  std::function<T(const T* a, const T* b, Ctx&)> ref;
  std::vector<Check> checks;
  bool readsSources = true;  // false: the sources lie in unreadable memory
  bool anySteps = true;      // zero, negative and overlapping steps accepted
  int stepUnit = 1;          // the steps accepted are multiples of it
  // Where the function shares rows among threads: each thread of a region gets at least perThread
  // pixels (0: it never does), of rows at least minRow pixels long.
  long long perThread = 0;
  int minRow = 1;
};

// Test inputs as a pixel's bits (a float passed through the x87 would have a signalling NaN
// quieted): extremes and small values often, any other value too; floats of every class, NaNs with
// random payloads, quiet and signalling, and magnitudes whose products fall into the denormal
// range.
template <class T>
uint32_t randomPixel(uint32_t r) {
  const uint32_t h = r * 0x9E3779B1u, k = r % 16, v = r >> 8;
  const uint32_t s8u[] = {0, 255, 1 + v % 3},
                 s16s[] = {0, 0x8000, 0x7FFF, v % 7 - 3, v % 601 - 300};
  if (sizeof(T) == 1) return r % 8 < 3 ? s8u[r % 8] : v;
  if (sizeof(T) == 2) return r % 10 < 5 ? s16s[r % 10] : v;
  const uint32_t e = k < 2 ? 0 : k == 2 ? 254 : k < 6 ? 255 : 37 + (r >> 4) % 128;
  return (h & 0x80000000u) | e << 23 | (k == 0 || k == 3 ? 0 : (h & 0x7FFFFF) | (k > 3 && k < 6));
}
template <class T>
std::string show(const T& v) {
  uint32_t bits = 0;
  char s[48];
  return std::memcpy(&bits, &v, sizeof v),
         std::snprintf(s, sizeof s, "%.9g (0x%x)", double(v), unsigned(bits)), s;
}

// Where the operands lie; inPlace 0 or 1: the destination is that source.
struct Layout {
  int width, height;
  Place src[2], dst;
  int inPlace = -1;
};

// One call in one build, with `threads` threads, under `env`, on sources from `data` (first then
// second, each width x height) or random ones. With `fault` the call is broken by it. A call the
// case's checks refuse (a fault, or steps of the layout the function does not take) must fail with
// the first check's status, writing nothing; a fault must be refused by its own check.
template <class T>
void run(int build, const Case<T>& c, const Layout& l, int threads = 1, const FpEnv& env = kEnvs[0],
         const std::vector<T>* data = nullptr, const Check* fault = nullptr) {
  static std::mt19937 rng(1);
  const int px = int(sizeof(T)), w = l.width, n = w * l.height, rb = w * px;
  ThreadCountScope scope(threads);
  std::unique_ptr<Image> img[3];
  std::vector<T> in[2];
  Args a{c.head, c.tail, c.sources, {}, 0, {}, nullptr, {w, l.height}};
  for (int i = 0; i < c.sources; ++i) {
    in[i] = data ? std::vector<T>(data->begin() + i * n, data->begin() + (i + 1) * n)
                 : std::vector<T>(n);
    uint32_t bits;
    for (int k = 0; k < n && !data; ++k)
      bits = randomPixel<T>(rng()), std::memcpy(&in[i][k], &bits, px);
    img[i] = std::make_unique<Image>(rb, l.height, l.src[i]);
    a.src[i] = img[i]->row(0), a.srcStep[i] = img[i]->step;
    for (int y = 0; y < l.height && c.readsSources; ++y)
      std::memcpy(img[i]->row(y), &in[i][y * w], rb);
    for (int y = 0; y < l.height && c.readsSources; ++y)
      std::memcpy(&in[i][y * w], img[i]->row(y), rb);
  }
  if (l.inPlace < 0) img[2] = std::make_unique<Image>(rb, l.height, l.dst);
  const Image& d = *img[l.inPlace < 0 ? 2 : l.inPlace];
  for (int i = 0; i < c.sources; ++i)
    if (i != l.inPlace) img[i]->protect(c.readsSources ? PROT_READ : PROT_NONE);
  a.dst = d.row(0), a.dstStep = d.step;
  if (fault) fault->breaks(a);
  const LumStatus refused = verdict(c.checks, a);
  if (fault && fault->holds) {
    EXPECT_EQ(refused, fault->status)
        << c.name << ", " << fault->what << ": its check does not come first";
  }
  std::vector<uint8_t> want = d.bytes();
  std::vector<ptrdiff_t> at(refused ? 0 : n);  // where each pixel lies in the block
  FpAroundCall fp(env);
  const LumStatus st = call(c.fn, a);
  fp.called();
  Ctx ctx{&env == &kEnvs[0], lumStsNoErr, false};
  // From the last pixel back, as rows in order leave them: where destination rows overlap, a byte a
  // later pixel wrote is that pixel's, and a value the reference allows besides its own (any NaN,
  // or the one it names) is recognised by the bytes the pixel kept.
  std::vector<bool> taken(want.size());
  for (int i = int(at.size()) - 1; i >= 0; --i) {
    at[i] = d.row(i / w) - d.begin() + i % w * px;
    T e = c.ref(c.sources ? &in[0][i] : nullptr, c.sources > 1 ? &in[1][i] : nullptr, ctx), someNaN;
    uint8_t kept[sizeof(T)],
        nanBits[sizeof(T)];  // a NaN has one with these kept bytes, the rest all ones
    bool isAlso = ctx.hasAlso;
    for (int b = 0; b < px; ++b) {
      const bool own = !taken[at[i] + b];
      kept[b] = d.begin()[at[i] + b], nanBits[b] = own ? kept[b] : 0xFF;
      isAlso = isAlso && (!own || kept[b] == uint8_t(ctx.also >> 8 * b));
    }
    std::memcpy(&someNaN, nanBits, px);
    if (isAlso || (ctx.anyNaN && std::isnan(double(e)) && std::isnan(double(someNaN))))
      std::memcpy(&e, kept, px);
    ctx.anyNaN = ctx.hasAlso = false;
    for (int b = 0; b < px; ++b)
      if (!taken[at[i] + b])
        want[at[i] + b] = reinterpret_cast<const uint8_t*>(&e)[b], taken[at[i] + b] = true;
  }
  fp.restore();
  std::ostringstream where;
  where << c.name << (fault ? ", " + fault->what : "") << ", " << w << "x" << l.height << " steps "
        << a.srcStep[0] << "/" << a.srcStep[1] << "/" << d.step << " in place " << l.inPlace << ", "
        << threads << " threads, " << env.name << ", k" << build << ": ";
  EXPECT_EQ(st, refused ? refused : ctx.status) << where.str();
  EXPECT_EQ(fp.fault(), "") << where.str();
  EXPECT_TRUE(fp.x87RegistersFree()) << where.str() << "MMX state not cleared";
  const std::vector<uint8_t> got = d.bytes();
  const ptrdiff_t o = std::mismatch(got.begin(), got.end(), want.begin()).first - got.begin();
  int i = int(at.size()) - 1;
  while (i >= 0 && (o < at[i] || o >= at[i] + px)) --i;  // the pixel written last there
  T g{}, e{};
  if (i >= 0) std::memcpy(&g, &got[at[i]], px), std::memcpy(&e, &want[at[i]], px);
  if (o < ptrdiff_t(got.size()) && i < 0)
    ADD_FAILURE() << where.str() << "byte " << o - (d.origin - d.begin())
                  << " from row 0, outside the region, was " << +want[o] << ", now " << +got[o];
  else if (o < ptrdiff_t(got.size()))
    ADD_FAILURE() << where.str() << "pixel (" << i % w << ", " << i / w << ") of "
                  << (c.sources ? show(in[0][i]) : "")
                  << (c.sources > 1 ? " and " + show(in[1][i]) : "") << ": got " << show(g)
                  << ", want " << show(e);
}

// ---- All the calls for a function whose cases are caseAt(0..cases-1, salt).
template <class T>
void checkAll(int build, int cases, const std::function<Case<T>(int, int)>& caseAt) {
  const int px = int(sizeof(T)), large[][2] = {{4096, 3}, {257, 64}, {1, 300}, {1000, 37}};
  // Widths 1 to 70 (every prologue, block and tail length of the row kernels) and larger regions,
  // at least eight calls a width at rotating start alignments, paddings and environments, the
  // cases' parameters moving with the width.
  for (int k = 1; k <= 74 && !testing::Test::HasFailure(); ++k) {
    const int w = k <= 70 ? k : large[k - 71][0], h = k <= 70 ? 3 : large[k - 71][1], rb = w * px;
    for (int i = 0, g = k % 16; i < 2 * std::max(cases, 4); ++i, g = (g + 5) % 16) {
      const Case<T> c = caseAt(i % cases, k);
      const int u = c.stepUnit;
      const Place dst{rb + 5 * u * (i & 1), g, i % 3 == 1};
      run(build, c, {w, h, {{rb + 3 * u, g * 7 % 16}, {rb, (g + 3) % 16, true}}, dst}, 1,
          kEnvs[(k + i) % kNumEnvs]);
    }
  }
  for (int i = 0; i < cases && !testing::Test::HasFailure(); ++i) {
    const Case<T> c = caseAt(i, 7 * i + 3);
    const int u = c.stepUnit;
    // Each argument check alone, then with every later one (the first failing check's status wins).
    for (size_t k = 0; k < c.checks.size(); ++k)
      for (size_t last : {k, c.checks.size() - 1}) {
        const Check all{c.checks[k].what + (last > k ? " and later" : ""),
                        [&](Args& a) {
                          for (size_t j = k; j <= last; ++j) c.checks[j].breaks(a);
                        },
                        c.checks[k].status, c.checks[k].holds};
        run<T>(build, c, {8, 3, {{8 * px + 3 * u}, {8 * px}}, {8 * px + 5 * u, 3}}, 1,
               kEnvs[k % kNumEnvs], nullptr, &all);
      }
    // In place with either source; where accepted, every operand on one row, bottom-up rows, and
    // destination rows that overlap, which must come out as if the rows ran in order.
    for (int w : {5, 40, 131}) {
      const int rb = w * px, pad = rb + 9 * px;
      std::vector<Layout> ls = {{w, 5, {{pad}, {pad}}, {}, 0}, {w, 5, {{pad}, {pad}}, {}, 1}};
      if (c.anySteps)
        ls.insert(ls.end(), {{w, 4, {{0}, {0}}, {0}},
                             {w, 4, {{-rb - 3}, {-rb}}, {-rb}},
                             {w, 4, {{0}, {0}}, {-rb - 1, 1}},
                             {w, 4, {{rb}, {rb + 1}}, {rb / 3 + 1, 2}}});
      for (const Layout& l : ls)
        if (l.inPlace < c.sources) run(build, c, l);
    }
    // Rows that follow one another in every operand (steps of exactly one row, which kernels may
    // walk as one long row), in place with either source, and each operand alone padded: short rows
    // whose total length crosses the block sizes, at rotating starts.
    for (int w : {1, 3, 5, 7, 13, 33})
      for (int h : {2, 5, 9}) {
        const int rb = w * px, g = (w + 3 * h) % 16;
        const Place row{rb, g}, pad{rb + u, (g + 5) % 16};
        const Layout ls[] = {{w, h, {row, {rb, (g + 9) % 16, true}}, {rb, (g + 2) % 16}},
                             {w, h, {row, {rb, g / 2}}, {}, 0},
                             {w, h, {{rb, g / 2}, row}, {}, 1},
                             {w, h, {pad, row}, row},
                             {w, h, {row, pad}, row},
                             {w, h, {row, row}, pad}};
        for (const Layout& l : ls)
          if (l.inPlace < c.sources) run(build, c, l, 1, kEnvs[(w + h) % kNumEnvs]);
      }
    // Both sides of the parallel threshold, where the case has one: two threads' worth of pixels in
    // 4 rows (rows of at least minRow pixels), and one column fewer, each with 1, 2 and 4 threads,
    // the environment rotating; then destination rows that overlap, with several threads.
    for (int s = 0; s < 6 && c.perThread > 0; ++s) {
      const int w = int(std::max<long long>(c.minRow + 1, (2 * c.perThread + 3) / 4)) - s / 3,
                rb = w * px;
      run(build, c, {w, 4, {{rb + u}, {rb, 8, true}}, {rb + 4 * u * (s & 1), 5 * s % 16}},
          1 << s % 3, kEnvs[(s / 3 + s) % kNumEnvs]);
    }
    for (int s = 0; s < 4 && c.anySteps; ++s)
      run(build, c, {200, 64, {{200 * px}, {202 * px}}, {s / 2 * 67 * px}}, 2 + s % 2 * 2);
  }
}

}  // namespace lumtest

#endif
