// The harness every image function is tested through. A function is described once, as a Case: its
// entry point in one build, where its operands go among its arguments, the expected value of each
// destination pixel, and its argument checks in order. The harness calls it through the C calling
// convention with the stack misaligned in turn, on operands between inaccessible pages (sources
// read-only), and checks the status, every destination pixel, every byte around the region, the
// floating-point control state, the exception flags the caller had set and the MMX state. What it
// stands on has a header each: the floating-point state (fp_environment.h), the guarded operands
// (guarded_image.h) and the call with its argument checks (call.h).
#ifndef LUM_TESTS_SUPPORT_HARNESS_H
#define LUM_TESTS_SUPPORT_HARNESS_H

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <functional>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "lum.h"
#include "support/call.h"
#include "support/fp_environment.h"
#include "support/guarded_image.h"
#include "support/threads.h"

namespace lumtest {

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
LUM_SSE_OP(sseAdd, "addss")
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
