// The float-kernel filters of every build against the formula of support/filter_check.h, on windows
// between inaccessible pages; their checks, bands and fast paths.
#include <omp.h>
#include <sys/mman.h>
#include <unistd.h>
#include <xmmintrin.h>

#include <cfenv>
#include <algorithm>
#include <climits>
#include <mutex>
#include <set>
#include <tuple>

#include "image/thresholds.h"
#include "support/builds.h"
#include "support/filter_check.h"

#define LUM_FILTER_BANDS(tag, ...)                                         \
  namespace lum::tag {                                                     \
  void ownFilterBands(LumSize, LumSize, void (*)(int, int, void*), void*); \
  }
LUM_FOR_EACH_BUILD(LUM_FILTER_BANDS)
#undef LUM_FILTER_BANDS

namespace {

using namespace lumtest;

class Filter : public PerBuild {};

// Widths 1..70, every kernel shape up to 7x7 and non-square ones, anchors inside, on the edge and
// outside (negative and beyond), every window layout and environment.
TEST_P(Filter, FormulaAndWindow) {
  for (int i = 0; i < 70; ++i) {
    const int kw = 1 + i % 7, kh = 1 + i / 7 % 7, ax[] = {kw / 2, 0, kw - 1, -2, kw + 1},
              ay[] = {kh / 2, kh - 1, -1, 0, kh + 2};
    Call c{i + 1, 1 + i % 4, kw, kh, ax[i % 5], ay[(i / 5) % 5], i % 5, 1, i % kNumEnvs};
    checkFilter<Lum8u>(build(), c), checkFilter<Lum16s>(build(), c),
        checkFilter<Lum32f>(build(), c);
  }
  for (int w : {127, 300})
    checkFilter<Lum16s>(build(), {w, 5, 5, 5, 2, 2}),
        checkFilter<Lum32f>(build(), {w, 3, 3, 4, 1, 1, 1});
  // Mirrored: with anchor (1, 1), 1 at K[0][0] copies S(x + 1, y + 1), at K[2][2] S(x - 1, y - 1);
  // a 1x1 kernel of 1 with anchor (-1, 0) copies S(x - 1, y).
  for (int one : {0, 2, 8})
    checkFilter<Lum32f>(build(), {6, 4, 3, 3, 1, 1, one % 5, 1, 0, [&] {
                                    std::vector<float> k(9);
                                    return k[one] = 1, k;
                                  }()});
  checkFilter<Lum32f>(build(), {6, 4, 1, 1, -1, 0, 2, 1, 0, {1}});
}

// Checks in order, the first failing one returned, nothing written, whatever the anchor: steps at
// the limit pass, a byte short fails, and a window row longer than any step fails too.
TEST_P(Filter, ArgumentChecks) {
  float k[9] = {}, s[64] = {}, d[8];
  const auto call = [&](const float* src, int ss, float* dst, int ds, LumSize roi, const float* ker,
                        LumSize ks, LumPoint a) {
    std::fill(d, d + 8, 7.0f);
    const LumStatus st = entry<Lum32f>(build())(src, ss, dst, ds, roi, ker, ks, a);
    for (float v : d) EXPECT_TRUE(st == lumStsNoErr || v == 7.0f);
    return st;
  };
  for (auto [src, ss, dst, ds, w, h, ker, kw, kh, want] :
       {std::tuple{s, 16, d, 8, 2, 2, k, 3, 3, lumStsNoErr},
        {nullptr, 16, d, 8, 0, 2, k, 3, 3, lumStsNullPtrErr},
        {s, 16, nullptr, 8, 2, 2, nullptr, 3, 3, lumStsNullPtrErr},
        {s, 16, d, 8, 0, 2, nullptr, 3, 3, lumStsNullPtrErr},
        {s, 0, d, 8, 0, 2, k, 3, 3, lumStsSizeErr},
        {s, 0, d, 8, 2, INT_MIN, k, 0, 3, lumStsSizeErr},
        {s, 0, d, 8, 2, 2, k, 0, 0, lumStsSizeErr},
        {s, 0, d, 8, 2, 2, k, 3, -1, lumStsSizeErr},
        {s, 15, d, 8, 2, 2, k, 3, 3, lumStsStepErr},
        {s, -16, d, 8, 2, 2, k, 3, 3, lumStsStepErr},
        {s, 16, d, 7, 2, 2, k, 3, 3, lumStsStepErr},
        {s, 16, d, -8, 2, 2, k, 3, 3, lumStsStepErr},
        {s, INT_MAX, d, 8, 2, 2, k, INT_MAX, 1, lumStsStepErr},
        {s, INT_MAX, d, INT_MAX, INT_MAX / 4 + 1, 1, k, 1, 1, lumStsStepErr}}) {
    EXPECT_EQ(call(src, ss, dst, ds, {w, h}, ker, {kw, kh},
                   want ? LumPoint{INT_MIN, INT_MAX} : LumPoint{2, 2}),
              want)
        << ss << " " << ds << " " << w << "x" << h << " " << kw << "x" << kh;
    EXPECT_EQ(filterVerdict(src, ss, dst, ds, {w, h}, ker, {kw, kh}, 4), want)
        << "the fuzz target's verdict";
  }
}

// The integer rule at its edges, sums made by a 1x1 kernel on pixels of 1, exact under every
// rounding and precision, so the same pixel in every environment (the x87 at nearest, toward zero
// and down); then by a two-cell kernel whose extended sum lies just above 254.5 while the
// single-precision one is 254.5 exactly.
TEST_P(Filter, IntegerRuleAtItsEdges) {
  const float nan = std::nanf("");
  for (int env = 0; env < kNumEnvs; ++env)
    for (auto [sum, want8u, want16s] : {std::tuple{0.5f, 0, 0},
                                        {1.5f, 2, 2},
                                        {2.5f, 2, 2},
                                        {3.5f, 4, 4},
                                        {254.5f, 254, 254},
                                        {254.7f, 255, 255},
                                        {255.0f, 255, 255},
                                        {1e30f, 255, 32767},
                                        {-1e30f, 0, -32768},
                                        {-0.2f, 0, 0},
                                        {-0.5f, 0, 0},
                                        {-1.5f, 0, -2},
                                        {-2.5f, 0, -2},
                                        {-3.5f, 0, -4},
                                        {0.7f, 1, 1},
                                        {-0.7f, 0, -1},
                                        {127.49f, 127, 127},
                                        {-127.51f, 0, -128},
                                        {32766.5f, 255, 32766},
                                        {32767.5f, 255, 32767},
                                        {-32767.5f, 0, -32768},
                                        {-32768.7f, 0, -32768},
                                        {nan, 0, 0},
                                        {INFINITY, 255, 32767},
                                        {-INFINITY, 0, -32768}}) {
      EXPECT_EQ(checkFilter<Lum8u>(build(), {5, 1, 1, 1, 0, 0, 2, 1, env, {sum}, 1})[4], want8u)
          << sum << " env " << env;
      EXPECT_EQ(checkFilter<Lum16s>(build(), {5, 1, 1, 1, 0, 0, 3, 1, env, {sum}, 1})[4], want16s)
          << sum << " env " << env;
    }
  const float tiny = std::ldexp(1.0f, -40);
  EXPECT_EQ(checkFilter<Lum8u>(build(), {6, 1, 2, 1, 1, 0, 0, 1, 0, {tiny, 254.5f}, 1})[5],
            build() < 2 ? 255 : 254);
  EXPECT_EQ(checkFilter<Lum16s>(build(), {6, 1, 1, 2, 0, 1, 1, 1, 0, {-tiny, -2.5f}, 1})[5],
            build() < 2 ? -3 : -2);
  for (float bad : {nan, INFINITY})
    checkFilter<Lum32f>(build(), {9, 2, 3, 3, 1, 1, 0, 1, 0, {1, bad, 1, 0, 2, 0, 1, 0, 1}});
}

// From SSE2 on the direct loop rounds a register of four sums at once and the row's last ones one
// at a time: every sum of the rule's edges, and sums that raise each flag the rule can (inexact,
// denormal), leave the same pixel and raise the same flags in a row of one, four and sixteen, in
// every environment.
TEST_P(Filter, FourSumsAtOnceAsOneAtATime) {
  const float nan = std::nanf(""), denormal = std::ldexp(1.0f, -140);
  for (int env = 0; env < kNumEnvs; ++env)
    for (float sum :
         {0.5f,      1.5f,     2.5f,      254.5f,    254.7f,    255.0f,    300.0f, 1e30f,
          -1e30f,    -0.5f,    -1.5f,     -2.5f,     0.7f,      -0.7f,     0.3f,   32766.5f,
          32767.5f,  40000.0f, -32767.5f, -32768.0f, -32768.7f, -40000.0f, nan,    INFINITY,
          -INFINITY, denormal, -denormal, 0.0f,      -0.0f}) {
      const auto row = [&](auto pixel, int w) {
        using T = decltype(pixel);
        const std::vector<T> src(w, T(1));
        std::vector<T> dst(w);
        const FpEnv caller = readFp();
        writeFp(kEnvs[env]);
        writeFpFlags({0, 0});
        entry<T>(build())(src.data(), w * int(sizeof(T)), dst.data(), w * int(sizeof(T)), {w, 1},
                          &sum, {1, 1}, {0, 0});
        const FpFlags raised = readFpFlags();
        writeFp(caller);
        writeFpFlags({0, 0});
        EXPECT_TRUE(std::all_of(dst.begin(), dst.end(), [&](T v) { return v == dst[0]; }))
            << sum << " env " << env << " width " << w;
        return std::tuple{dst[0], raised.mxcsr, raised.x87};
      };
      for (int w : {4, 16}) {
        EXPECT_EQ(row(Lum8u(), w), row(Lum8u(), 1)) << sum << " env " << env << " width " << w;
        EXPECT_EQ(row(Lum16s(), w), row(Lum16s(), 1)) << sum << " env " << env << " width " << w;
      }
    }
}

// Exact sums (a kernel of a single 1 on whole pixels), so
// that the call raises no flag of its own: every flag state the harness takes in turn, each flag
// alone and all six, is still set after the call, in each environment, through the direct loop, the
// fast paths and bands on two threads.
TEST_P(Filter, ExceptionFlagsSetBeforeTheCallStaySet) {
  std::vector<float> one(9);
  one[8] = 1;
  for (unsigned turn = 0; turn < kFpFlagTurns; ++turn)
    for (auto [w, h, threads] : {std::tuple{32, 1, 1}, {5, 2, 1}, {100, 70, 2}})
      for (int env = 0; env < kNumEnvs; ++env) {
        const Call c{w, h, 3, 3, 2, 2, 0, threads, env, one};
        fpFlagsTurn() = turn, checkFilter<Lum8u>(build(), c);
        fpFlagsTurn() = turn, checkFilter<Lum16s>(build(), c);
        fpFlagsTurn() = turn, checkFilter<Lum32f>(build(), c);
      }
}

// Bands: the formula's pixels on 1 to 4 threads at two threads' worth of work (pixels times kernel
// cells, image/thresholds.h) and one column fewer, each pixel type in turn, with a failing
// allocator on one of the calls. (Where the bands fall for each team is FilterBands' business.)
TEST_P(Filter, ThreadsAndBands) {
  int turn = 0;
  for (auto [kw, kh] : {std::pair{5, 5}, {3, 3}, {2, 3}}) {
    const long long rowCells = 48LL * kw * kh;  // 48 rows
    const int at = int((2 * lum::kFilterCellsPerThread + rowCells - 1) / rowCells);
    for (int w : {at, at - 1})
      for (int t = 1; t <= 4; ++t, ++turn) {
        CountingHooks failing(t == 3);
        const int layouts[] = {0, 4, 1};  // rows this wide do not fit layouts 2 and 3, a page a row
        const Call c{w,
                     48,
                     kw,
                     kh,
                     turn % 3 == 2 ? 0 : kw / 2,
                     turn % 3 == 2 ? kh - 1 : kh / 2,
                     layouts[turn / 3 % 3],
                     t,
                     turn % 3};
        if (turn % 3 == 0) checkFilter<Lum8u>(build(), c);
        if (turn % 3 == 1) checkFilter<Lum16s>(build(), c);
        if (turn % 3 == 2) checkFilter<Lum32f>(build(), c);
      }
  }
}

// ---- The fast paths against the direct loop of the same build: each call twice, as it is and with
// every allocation failing, which leaves each band to the direct loop. From SSE2 on the fast paths
// add the same products in the same order as the direct loop, so every byte must match. In k1 the
// direct loop sums n products in extended precision and the fast paths in single: a 32f output may
// then be off by the single-precision accumulation bound (n + 1) * 2^-24 * sum |products|, and an
// integer one by 1 only where the exact sum lies within that distance of a half.
struct Shape {
  int w, h, kw, kh, layout = 0, threads = 1, misalign = 0;
  std::vector<float> kernel{};
};

template <class T>
void againstDirect(int build, Shape sh, int env) {
  static std::mt19937 g(11);
  const int P = sizeof(T), W = sh.w + sh.kw - 1, H = sh.h + sh.kh - 1, dstStep = sh.w * P + 4,
            n = sh.kw * sh.kh;
  for (int i = int(sh.kernel.size()); i < n; ++i)
    sh.kernel.push_back(std::uniform_real_distribution<float>(-1, 1)(g));
  float magnitudes = 0;
  for (float k : sh.kernel) magnitudes += std::fabs(k);
  const bool tries = build > 0 && sh.kw >= 3 && sh.w >= 16 && (P != 2 || !(magnitudes > 32767));
  Window win(W * P + sh.misalign, H, sh.layout);
  std::vector<T> s(W * H);
  for (T& v : s) v = P == 4 ? T(std::uniform_real_distribution<float>(-100, 100)(g)) : T(g());
  for (int r = 0; r < H; ++r) std::memcpy(win.first + sh.misalign + r * win.step, &s[r * W], W * P);
  const T* src =
      reinterpret_cast<const T*>(win.first + sh.misalign + (sh.kh - 1 - sh.kh / 2) * win.step) +
      (sh.kw - 1 - sh.kw / 2);
  // Rows that do not start on a pixel boundary: the whole-band routine (32f) declines them once it
  // has its scratch, k1 leaves 16s ones to its direct loop before asking for any.
  const bool declines = (P == 4 || (P == 2 && build == 1)) && (uintptr_t(src) % P || win.step % P);
  const bool allocates = tries && !(P == 2 && declines);
  std::vector<uint8_t> dst[2];
  dst[0].resize(dstStep * sh.h + 8);
  for (auto& b : dst[0]) b = uint8_t(g());
  dst[1] = dst[0];
  ThreadCountScope threads(sh.threads);
  int mallocs[2], frees[2];
  size_t asked = 0;
  for (int failing = 0; failing < 2; ++failing) {
    CountingHooks hooks(failing);
    FpAroundCall fp(kEnvs[env]);
    EXPECT_EQ(
        entry<T>(build)(src, int(win.step), reinterpret_cast<T*>(dst[failing].data() + 4), dstStep,
                        {sh.w, sh.h}, sh.kernel.data(), {sh.kw, sh.kh}, {sh.kw / 2, sh.kh / 2}),
        lumStsNoErr);
    fp.called();
    fp.restore();
    EXPECT_EQ(fp.fault(), "");
    mallocs[failing] = hooks.mallocs, frees[failing] = hooks.frees,
    asked = failing ? asked : hooks.asked;
  }
  char where[128];
  std::snprintf(where, sizeof where,
                "k%d %d-bit %dx%d kernel %dx%d layout %d threads %d misalign %d env %d", build,
                8 * P, sh.w, sh.h, sh.kw, sh.kh, sh.layout, sh.threads, sh.misalign, env);
  // The scratch: the mirrored kernel, with two accumulator rows for the row-pair scheme (8u, 16s)
  // and in k1 the float row each source row is widened into; released.
  const bool rowPairs = P != 4, widened = rowPairs && build == 1;
  EXPECT_EQ(mallocs[0] > 0 && mallocs[1] > 0, allocates) << where;
  if (sh.threads == 1 && allocates) {
    EXPECT_TRUE(frees[0] == mallocs[0] &&
                asked ==
                    4 * (4u * n + rowPairs * (2u * sh.w + 7) + widened * (sh.w + sh.kw - 1u)) + 36)
        << where;
  }
  if (build > 1 || declines || !tries) {
    EXPECT_TRUE(dst[0] == dst[1]) << where << ": not the direct loop's bytes";
    return;
  }
  for (size_t o = 0; o < dst[0].size(); ++o) {
    const int y = (int(o) - 4) / dstStep, x = ((int(o) - 4) % dstStep) / P;
    if (o < 4 || y >= sh.h || x >= sh.w) {
      EXPECT_EQ(dst[0][o], dst[1][o]) << where << ": byte " << o << " outside the region";
      continue;
    }
    long double exact = 0, bound = 0;
    for (int j = 0; j < sh.kh; ++j)
      for (int i = 0; i < sh.kw; ++i) {
        const long double t =
            (long double)sh.kernel[j * sh.kw + i] * s[(y + sh.kh - 1 - j) * W + x + sh.kw - 1 - i];
        exact += t, bound += std::fabs(t);
      }
    bound *= (n + 1) * 0x1p-24L;
    T fast, direct;
    std::memcpy(&fast, &dst[0][o - (o - 4) % P], P),
        std::memcpy(&direct, &dst[1][o - (o - 4) % P], P);
    const bool nearHalf = std::fabs(exact - std::floor(exact) - 0.5L) <= bound;
    const bool ok =
        P == 4 ? std::fabs((long double)fast - direct) <= bound + std::fabs(exact) * 0x1p-23L ||
                     (std::isnan(double(fast)) && std::isnan(double(direct)))
               : fast == direct || (nearHalf && std::abs(int(fast) - int(direct)) == 1);
    if (!ok) {
      ADD_FAILURE() << where << ": pixel (" << x << ", " << y << ") exact sum " << double(exact)
                    << " fast " << double(fast) << " direct " << double(direct);
      return;
    }
  }
}

TEST_P(Filter, FastPathsAgainstTheDirectLoop) {
  const float nan = std::nanf("");
  std::vector<Shape> shapes = {{15, 4, 3, 3},
                               {16, 4, 3, 3},
                               {40, 3, 2, 3},
                               {40, 3, 3, 2},
                               {33, 6, 3, 1},
                               {34, 7, 5, 1},
                               {20, 3, 3, 1, 0, 1, 0, {32767, 0, 0}},
                               {20, 3, 3, 1, 1, 1, 0, {32767.5, 0, 0}},
                               {24, 5, 3, 3, 2, 1, 0, {1, 0, 1, 0, nan, 0, 1, 0, 1}},
                               {65, 65, 3, 3},
                               {64, 65, 4, 3, 4, 2},
                               {100, 67, 5, 5, 1, 4},
                               {300, 9, 5, 5, 3},
                               {1024, 4, 3, 3, 4}};
  for (int kw = 1; kw <= 9; ++kw) shapes.push_back({40, 5, kw, 1 + kw % 3, kw % 5});
  // Widths 16 to 100 cover every way a 32f row splits into pairs of blocks of 24 outputs, a single
  // block and a last block overlapping the one before.
  for (int w = 16; w <= 100; ++w) shapes.push_back({w, 2 + w % 3, 3 + w % 3, 3, w % 5, 1, w % 4});
  // Every kernel of 1..9 by 1..3 at widths either side of a pair of 32f blocks.
  for (int kh = 1; kh <= 3; ++kh)
    for (int kw = 1; kw <= 9; ++kw)
      shapes.push_back({44 + kw + kh, kh + kw % 2, kw, kh, (kw + kh) % 5, 1 + kh % 2, kw % 4});
  for (size_t i = 0; i < shapes.size() && !HasFailure(); ++i) {
    const int env = build() > 1 ? int(i % kNumEnvs) : 0;
    againstDirect<Lum8u>(build(), shapes[i], env), againstDirect<Lum16s>(build(), shapes[i], env);
    againstDirect<Lum32f>(build(), shapes[i], env);
  }
}

LUM_INSTANTIATE_PER_BUILD(Filter);

// The bands of a region: a team of as many threads as the count allows, but no more than rows, nor
// than kFilterCellsPerThread pixels times kernel cells each; thread t takes height / team rows from
// t * (height / team) and the last one the rest; a team of one is one band on the calling thread.
std::set<std::pair<int, int>> bandsOf(LumSize roi, LumSize kernel, int threads) {
  const long long cells = 1LL * roi.width * roi.height * kernel.width * kernel.height;
  const int team = int(std::max(
      1LL, std::min({1LL * threads, 1LL * roi.height, cells / lum::kFilterCellsPerThread})));
  std::set<std::pair<int, int>> bands;
  for (int t = 0, chunk = roi.height / team; t < team; ++t)
    bands.insert({t * chunk, t == team - 1 ? roi.height - t * chunk : chunk});
  return bands;
}

// Each side of two, three and four threads' worth of work: a column fewer, a row fewer, a kernel
// cell fewer; fewer rows than threads; one thread.
TEST(FilterBands, OneBandPerThreadTheLastTakesTheRest) {
  void (*const bands[])(LumSize, LumSize, void (*)(int, int, void*), void*) =
      LUM_PER_BUILD(ownFilterBands);
  const long long T = lum::kFilterCellsPerThread;
  const int wide = int((4 * T + 63) / 64), cell = int(T);
  ASSERT_EQ(bandsOf({wide, 64}, {1, 1}, 4),
            (std::set<std::pair<int, int>>{{0, 16}, {16, 16}, {32, 16}, {48, 16}}));
  for (int b = 0; b < kNumBuilds; ++b)
    for (auto [w, h, kw, kh, threads] : {std::tuple{wide, 64, 1, 1, 4},
                                         {wide - 1, 64, 1, 1, 4},
                                         {wide, 66, 1, 1, 4},
                                         {wide, 63, 1, 1, 4},
                                         {wide, 64, 1, 1, 1},
                                         {1, 2, cell, 1, 2},
                                         {1, 2, cell - 1, 1, 2},
                                         {1, 3, cell, 1, 4},
                                         {1, 3, 1, cell - 1, 3},
                                         {1, 4, cell, 1, 3},
                                         {int((3 * T + 9 * 40 - 1) / (9 * 40)), 40, 3, 3, 4},
                                         {int((3 * T + 9 * 40 - 1) / (9 * 40)) - 1, 40, 3, 3, 4},
                                         {100000, 3, 3, 3, 4},
                                         {100000, 1, 5, 5, 4}}) {
      if (!processorRunsBuild(b)) continue;
      ThreadCountScope scope(threads);
      struct Seen {
        std::mutex m;
        std::set<std::pair<int, int>> bands;
        std::set<int> threads;
      } seen;
      bands[b](
          {w, h}, {kw, kh},
          [](int from, int count, void* c) {
            Seen& s = *static_cast<Seen*>(c);
            std::lock_guard<std::mutex> lock(s.m);
            s.bands.insert({from, count}), s.threads.insert(omp_get_thread_num());
          },
          &seen);
      const auto want = bandsOf({w, h}, {kw, kh}, threads);
      EXPECT_EQ(seen.bands, want) << "k" << b << " " << w << "x" << h << ", kernel " << kw << "x"
                                  << kh << " on " << threads;
      EXPECT_EQ(seen.threads.size(), want.size())
          << "k" << b << " " << w << "x" << h << ": one band a thread";
    }
}

}  // namespace
