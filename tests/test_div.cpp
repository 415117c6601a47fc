// The divisions of every build through the harness, against the quotients worked out here: for 8u
// and 16s the exact rational rule of support/scaled_reference.h in every build, for floats one
// rounding of the exact quotient (the generic build) or the estimate formula computed here with the
// processor's own reciprocal estimate (the others); the zero-divisor tables exactly in every build.
#include <xmmintrin.h>

#include <algorithm>
#include <cmath>
#include <random>

#include "core/lum_internal.h"
#include "image/thresholds.h"
#include "support/builds.h"
#include "support/cases.h"

// The row functions of each build, with their own checks.
#define LUM_DIV_ROWS(k, ...)                                                  \
  namespace lum::k {                                                          \
  LumStatus lumsDiv_8u_Sfs(const Lum8u*, const Lum8u*, Lum8u*, int, int);     \
  LumStatus lumsDiv_16s_Sfs(const Lum16s*, const Lum16s*, Lum16s*, int, int); \
  LumStatus lumsDiv_32f(const Lum32f*, const Lum32f*, Lum32f*, int);          \
  }
LUM_FOR_EACH_BUILD(LUM_DIV_ROWS)
#undef LUM_DIV_ROWS

namespace {

using namespace lumtest;

// Every case of the scale factor, the factors moving with salt: 0, 1, the other positive ones, the
// negative ones, beyond each extreme, and the ends of the range; four of them at each width in
// turn.
template <class T>
Case<T> divIntCaseAt(int build, int i, int salt) {
  const int zeroAbove = sizeof(T) == 1 ? 8 : 15, signOnlyBelow = sizeof(T) == 1 ? -15 : -30;
  const int f[] = {0,
                   1,
                   2 + salt % (zeroAbove - 1),
                   -1 - salt % -signOnlyBelow,
                   zeroAbove + 1 + salt % 3,
                   signOnlyBelow - 1 - salt % 3,
                   salt % 2 ? INT_MIN : INT_MAX};
  return divIntCase<T>(build, f[(i + 4 * salt) % 7]);
}

TEST(ScaledQuotientReference, WorkedExamples) {
  const int examples[][5] = {
      // dividend, divisor, scale factor, result, bits
      {7, 2, 0, 4, 8},          {5, 2, 0, 2, 8},          {255, 1, 0, 255, 8},
      {5, 1, 1, 2, 8},          {7, 1, 1, 4, 8},          {200, 1, -1, 255, 8},
      {255, 1, 9, 0, 8},        {1, 255, -16, 255, 8},    {255, 1, 8, 1, 8},
      {-5, 2, 0, -2, 16},       {-7, 2, 0, -4, 16},       {-32768, -1, 0, 32767, 16},
      {-3, 7, -31, -32768, 16}, {-3, -7, -31, 32767, 16}, {0, 7, -31, 0, 16},
      {-32768, 1, 16, 0, 16},   {-32768, 1, 15, -1, 16},  {3, -2, 0, -2, 16},
      {-1, 3, -1, -1, 16}};
  for (const auto& e : examples)
    EXPECT_EQ(
        scaledQuotientReference(e[0], e[1], e[2], e[4] == 8 ? 0 : -32768, e[4] == 8 ? 255 : 32767),
        e[3])
        << e[0] << "/" << e[1] << " sf " << e[2];
}

class Div : public PerBuild {};

TEST_P(Div, Harness8u) {
  checkAll<Lum8u>(build(), 4,
                  [&](int i, int salt) { return divIntCaseAt<Lum8u>(build(), i, salt); });
}
TEST_P(Div, Harness16s) {
  checkAll<Lum16s>(build(), 4,
                   [&](int i, int salt) { return divIntCaseAt<Lum16s>(build(), i, salt); });
}
TEST_P(Div, Harness32f) {
  checkAll<Lum32f>(build(), 1, [&](int, int) { return div32fCase(build()); });
}

// Steps of one byte: the rows overlap, and come out as if written in order.
TEST_P(Div, StepsShorterThanTheRow) {
  run(build(), divIntCase<Lum8u>(build(), 0), {100, 4, {{1}, {2}}, {1}});
  run(build(), divIntCase<Lum16s>(build(), -3), {60, 5, {{1}, {3}}, {2}});
  run(build(), div32fCase(build()), {30, 5, {{1}, {4}}, {3}});
}

// Destination rows two bytes apart from overlapping, with the operands of the fuzz finding that
// taught it: the last pixel of each row shares its group with zero divisors, so it is the correctly
// rounded quotient, not the estimate's NaN (its divisor is denormal); the next row takes its upper
// two bytes, and its lower two still tell which of the two it was. Every row takes the path of
// operands not at whole floats.
TEST_P(Div, OverlappingRowsKeepTheLowerBytesOfAQuotient) {
  const int w = 8, h = 3;
  std::vector<Lum32f> data(2 * w * h);
  for (int i = 0; i < w * h; ++i)
    data[i] = i % w == w - 1 ? fromBits(3) : 0.0f, data[w * h + i] = fromBits(1);
  for (const FpEnv& env : kEnvs)
    run(build(), div32fCase(build()), {w, h, {{4 * w}, {4 * w}}, {4 * w - 2, 1, true}}, 1, env,
        &data);
}

// Every pair of byte values (a 256 x 256 image pair holds each once), and 128 16s values, the
// extremes first, crossed with each other in both orders; at every scale factor from -20 to 20 (8u)
// or -33 to 18 (16s) and the ends of the range.
TEST_P(Div, EveryScaleFactorOnEvery8uPairAndExtreme16sCrossed) {
  std::vector<Lum8u> ab(2 * 65536);
  std::vector<Lum16s> values = {-32768, -32767, -2, -1, 0, 1, 2, 3, 5, 7, 32766, 32767},
                      xy(2 * 128 * 128);
  std::mt19937 rng(9);
  while (values.size() < 128) values.push_back(Lum16s(rng() >> (rng() % 16)));
  for (int i = 0; i < 65536; ++i) ab[i] = Lum8u(i >> 8), ab[65536 + i] = Lum8u(i);
  for (int i = 0; i < 128 * 128; ++i) xy[i] = values[i / 128], xy[128 * 128 + i] = values[i % 128];
  for (int k = -35; k <= 20 && !HasFailure(); ++k) {
    const int sf = k == -35 ? INT_MIN : k == -34 ? INT_MAX : k;
    const Layout l8u{
        256, 256, {{256, k & 15}, {259, k * 5 & 15, true}}, {256 + (k & 1) * 16, k * 3 & 15}},
        l16s{128, 128, {{258, (k & 7) * 2}, {256, k & 15, true}}, {262, k * 3 & 15}};
    if (sf >= -20 || sf == INT_MIN || sf == INT_MAX)
      run(build(), divIntCase<Lum8u>(build(), sf), l8u, 1, kEnvs[0], &ab);
    if ((sf > -34 && sf <= 18) || sf == INT_MIN || sf == INT_MAX)
      run(build(), divIntCase<Lum16s>(build(), sf), l16s, 1, kEnvs[0], &xy);
  }
}

// The dividends whose exact quotient b 2^-sf / a is a halfway point n + 1/2 or lies next to one, as
// (divisor, dividend) pairs: for divisors across the range and quotients near 0, in the middle and
// at the ends of the range (32766.5, 32767.5, -32767.5, -32768.5), the dividends nearest (n + 1/2)
// a 2^sf, two on either side (the middle one is the halfway point itself where that is a whole
// dividend, a tie). A quotient rounded to single precision may land on such a point exactly while
// the exact one lies beside it, wherever the shifted dividend exceeds 24 bits.
std::vector<std::pair<int, int>> halfwayPairs16s(int sf) {
  // Besides the smallest and largest magnitudes, multiples of 2^9 .. 2^15: below scale factor -7
  // only a divisor that is a multiple of 2^(1 - scale factor) can meet a tie.
  const int divisors[] = {1,     -1,     2,      -2,    3,     -3,     5,     -7,
                          255,   256,    257,    -255,  512,   -1024,  -2048, 4095,
                          -4096, 4097,   6144,   8192,  12345, -23456, 16384, -16384,
                          21845, -21846, -24576, 32766, 32767, -32767, -32768};
  const long long halves[] = {0,     1,     -1,     2,     -2,    7,      -8,
                              100,   -101,  255,    256,   -256,  1023,   4095,
                              -4096, 16383, -16384, 32766, 32767, -32768, -32769};  // n of n + 1/2
  std::vector<std::pair<int, int>> pairs;
  for (int a : divisors)
    for (long long n : halves) {
      // (n + 1/2) a 2^sf = num / den exactly, den > 0.
      long long num = (2 * n + 1) * a, den = 2;
      if (sf >= 0)
        num *= 1LL << (sf < 17 ? sf : 17);
      else
        den <<= (-sf < 40 ? -sf : 40);
      const long long low = num / den - (num % den != 0 && num < 0);
      for (long long b = low - 1; b <= low + 2; ++b)
        if (b >= -32768 && b <= 32767) pairs.push_back({a, int(b)});
    }
  return pairs;
}

TEST(HalfwayPairs16s, LandOnAndBesideTheHalfwayPoints) {  // worked examples of the construction
  const auto has = [](int sf, int a, int b) {
    const auto p = halfwayPairs16s(sf);
    return std::find(p.begin(), p.end(), std::make_pair(a, b)) != p.end();
  };
  EXPECT_TRUE(has(0, 2, 4) && has(0, 2, 5) && has(0, 2, 6));  // 5 / 2 = 2.5, 2 and 3 beside it
  EXPECT_TRUE(has(-8, 256, 255) && has(-8, 256, 256));        // 255 and 256 around 255.5
  EXPECT_TRUE(has(-15, -32768, -32767) &&
              has(-15, -32768, -32766));          // 32767 and 32766 around 32766.5
  EXPECT_TRUE(has(3, 3, -12) && has(3, 3, -11));  // -12 / 24 = -0.5, -11 / 24 beside it
  EXPECT_FALSE(has(0, 2, 20));                    // 10 is near no halfway point chosen
  // Ties go to the even neighbour, in the reference too.
  EXPECT_EQ(scaledQuotientReference(-32767, 2, 0, -32768, 32767), -16384);
  EXPECT_EQ(scaledQuotientReference(-32767, -2, 0, -32768, 32767), 16384);
  EXPECT_EQ(scaledQuotientReference(255, 256, -8, -32768, 32767), 255);  // 255 * 2^8 / 256 exactly
  EXPECT_EQ(scaledQuotientReference(32767, 32767, -15, -32768, 32767), 32767);  // 32768 saturates
}

// 16s at every scale factor from -32 to 17: the halfway pairs, zero divisors, the extremes crossed,
// and fixed-seed random pairs, half of them with quotients inside the range at every magnitude, on
// one image of rows long enough to be split between threads, through the harness.
TEST_P(Div, Quotients16sAtHalfwayPointsAndRangeEnds) {
  const int w = 2048, h = 32, n = w * h;
  for (int sf = -32; sf <= 17 && !HasFailure(); ++sf) {
    std::vector<std::pair<int, int>> pairs = halfwayPairs16s(sf);
    for (int a : {0, 1, -1, 32767, -32768})
      for (int b : {0, 1, -1, 2, 32767, -32768, -32767}) pairs.push_back({a, b});
    std::mt19937 rng(100 + sf);
    while (int(pairs.size()) < n) {
      const int a = Lum16s(rng());
      if (rng() & 1) {
        pairs.push_back({a, Lum16s(rng())});
      } else {  // a quotient of magnitude up to 2^(15 - j): b = x a 2^sf
        const double x = (double(rng()) / 4294967296.0 * 2 - 1) * 33000.0 / double(1 << rng() % 16);
        const double b = std::nearbyint(x * a * std::ldexp(1.0, sf));
        pairs.push_back({a, int(std::min(32767.0, std::max(-32768.0, b)))});
      }
    }
    std::shuffle(pairs.begin(), pairs.end(), rng);
    std::vector<Lum16s> data(2 * n);
    for (int i = 0; i < n; ++i)
      data[i] = Lum16s(pairs[i].first), data[n + i] = Lum16s(pairs[i].second);
    const Layout l{w,
                   h,
                   {{2 * w + 2 * (sf & 3), sf & 15}, {2 * w, (sf * 3) & 15, true}},
                   {2 * w + 6, (sf * 5) & 15}};
    run(build(), divIntCase<Lum16s>(build(), sf), l, 1 << (sf & 1) << (sf & 2) / 2,
        kEnvs[(sf + 33) % 3], &data);
  }
}

// Groups of a float row: a zero divisor makes its whole group correctly rounded, the others keep
// the estimate. Groups are the main loop's eight from a 16-byte aligned destination, the one and
// two elements before it, and fours where an operand does not start at a whole float.
TEST_P(Div, FloatGroupsWithAZeroDivisor) {
  if (build() == 0) GTEST_SKIP() << "the generic build has no groups";
  struct Row {
    int offset, len, zeroAt, groupFrom, groupTo;
  };  // destination offset in bytes
  for (const Row& r : {Row{0, 22, 0, 0, 8},
                       {0, 22, 13, 8, 16},
                       {0, 22, 19, 16, 20},
                       {0, 22, 21, 20, 22},
                       {0, 23, 22, 22, 23},
                       {4, 22, 0, 0, 1},
                       {4, 22, 2, 1, 3},
                       {4, 22, 9, 3, 11},
                       {4, 22, 21, 21, 22},
                       {8, 22, 1, 0, 2},
                       {2, 18, 5, 4, 8},
                       {2, 18, 17, 16, 18},
                       {1, 19, 18, 18, 19}}) {
    const int len = r.len;
    std::vector<float> a(len), b(len);
    std::mt19937 rng(r.zeroAt);
    for (int i = 0; i < len; ++i)
      a[i] = float(rng() % 10000 + 1) / 997.0f, b[i] = float(rng() % 100000 + 1) / 7.0f;
    a[r.zeroAt] = 0;
    alignas(16) unsigned char buffer[4 * 32];
    float* d = reinterpret_cast<float*>(buffer + r.offset);
    EXPECT_EQ(lumiDiv_32f_C1R_arraddr[build()](a.data(), 4 * len, b.data(), 4 * len, d, 4 * len,
                                               {len, 1}),
              lumStsDivByZero);
    for (int i = 0; i < len; ++i) {
      float want;
      if (i == r.zeroAt)
        want = INFINITY;
      else if (i >= r.groupFrom && i < r.groupTo)
        want = sseDiv(&b[i], &a[i]);
      else
        estimated(&a[i], &b[i], &want);
      float got;
      std::memcpy(&got, buffer + r.offset + 4 * i, 4);
      EXPECT_EQ(bitsOf(got), bitsOf(want))
          << "offset " << r.offset << ", zero at " << r.zeroAt << ", element " << i;
    }
  }
}

// The groups of one row of len elements as [from, to) pairs, whose destination starts `offset`
// bytes past a 16-byte boundary: fours, then a pair and one, where an operand does not start at a
// whole float; otherwise one element and a pair until the destination is aligned, eights, a four, a
// pair and one.
std::vector<std::pair<int, int>> rowGroups(int len, int offset, bool wholeFloats) {
  std::vector<std::pair<int, int>> g;
  int at = 0;
  const auto take = [&](int n) { g.push_back({at, at + n}), at += n; };
  if (wholeFloats) {
    if (offset % 8 != 0) take(1);
    if (at + 2 <= len && (offset + 4 * at) % 16 != 0) take(2);
    while (at + 8 <= len) take(8);
  }
  while (at + 4 <= len) take(4);
  if (at + 2 <= len) take(2);
  if (at < len) take(1);
  return g;
}

// Regions whose rows follow one another in all three images, one zero divisor at a time at a row's
// start, end or middle: the groups stay those of each row by itself (its destination's own
// alignment), whether or not the rows fit a whole number of groups.
TEST_P(Div, FloatGroupsOfRowsThatFollowOneAnother) {
  if (build() == 0) GTEST_SKIP() << "the generic build has no groups";
  struct Region {
    int width, height, offset;
  };  // destination offset in bytes from a 16-byte boundary
  for (const Region& r : {Region{8, 4, 0},
                          {16, 3, 0},
                          {24, 3, 0},
                          {12, 4, 0},
                          {20, 3, 0},
                          {4, 5, 0},
                          {8, 3, 4},
                          {16, 3, 8},
                          {12, 3, 2},
                          {8, 4, 1},
                          {6, 4, 2},
                          {10, 3, 0}}) {
    const int w = r.width, n = w * r.height;
    const bool wholeFloats = r.offset % 4 == 0;
    std::vector<float> a(n), b(n);
    std::mt19937 rng(w * 31 + r.offset);
    for (int i = 0; i < n; ++i)
      a[i] = float(rng() % 10000 + 1) / 997.0f, b[i] = float(rng() % 100000 + 1) / 7.0f;
    for (const int zeroAt : {0, w - 1, w, w + w / 2, n - 1}) {
      std::vector<float> divisor = a;
      divisor[zeroAt] = 0;
      alignas(16) unsigned char buffer[4 * 128 + 16];
      float* d = reinterpret_cast<float*>(buffer + r.offset);
      EXPECT_EQ(lumiDiv_32f_C1R_arraddr[build()](divisor.data(), 4 * w, b.data(), 4 * w, d, 4 * w,
                                                 {w, r.height}),
                lumStsDivByZero);
      const int zeroRow = zeroAt / w, zeroX = zeroAt % w;
      for (int i = 0; i < n; ++i) {
        const int x = i % w;
        bool exact = false;
        for (const auto& [from, to] : rowGroups(w, (r.offset + 4 * w * zeroRow) % 16, wholeFloats))
          exact = exact || (i / w == zeroRow && x >= from && x < to && zeroX >= from && zeroX < to);
        float want;
        if (i == zeroAt)
          want = INFINITY;
        else if (exact)
          want = sseDiv(&b[i], &divisor[i]);
        else
          estimated(&divisor[i], &b[i], &want);
        float got;
        std::memcpy(&got, buffer + r.offset + 4 * i, 4);
        EXPECT_EQ(bitsOf(got), bitsOf(want)) << w << "x" << r.height << ", offset " << r.offset
                                             << ", zero at " << zeroAt << ", element " << i;
      }
    }
  }
}

// Long rows are cut in two pieces in k4 and k5, which the threads of one region share: the same
// pixels with 1, 2 and 8 threads, on one row and on enough rows for four threads, and the warning
// from a zero divisor in either half of the last row or at its middle, or none.
TEST_P(Div, LongRowsAlikeOnAnyThreadCount) {
  std::mt19937 rng(3);
  const long long most = std::max(
      {lum::kDiv8uPixelsPerThread, lum::kDiv16sPixelsPerThread, lum::kDiv32fPixelsPerThread});
  for (int len : {1023, 1024, 1025, 4095, 4096, 4097})
    for (int h : {1, int((4 * most + len - 1) / len)})
      for (int zeroAt : {-1, 5, len / 2 - 1, len - 5}) {
        const int n = len * h, last = (h - 1) * len;
        std::vector<Lum8u> a8(n), b8(n), d8[3];
        std::vector<Lum16s> a16(n), b16(n), d16[3];
        std::vector<float> a32(n), b32(n), d32[3];
        for (int i = 0; i < n; ++i) {
          a8[i] = Lum8u(1 + rng() % 255), b8[i] = Lum8u(rng()), a16[i] = Lum16s(rng() | 1),
          b16[i] = Lum16s(rng());
          a32[i] = float(int(rng() % 20001) - 10000) / 8.0f + 0.0625f,
          b32[i] = float(int(rng() % 20001) - 10000);
        }
        // Denormal divisors around the middle of every row: the estimate makes them NaN, a group
        // with a zero divisor correctly rounded, so the groups must not change with the cut.
        for (int y = 0; y < h; ++y)
          for (int i = len / 2 - 8; i < len / 2 + 8; ++i) a32[y * len + i] = 1e-40f;
        if (zeroAt >= 0) a8[last + zeroAt] = 0, a16[last + zeroAt] = 0, a32[last + zeroAt] = 0;
        const LumStatus want = zeroAt >= 0 ? lumStsDivByZero : lumStsNoErr;
        for (int t = 0; t < 3; ++t) {
          ThreadCountScope threads(t == 0 ? 1 : t == 1 ? 2 : 8);
          d8[t].resize(n), d16[t].resize(n),
              d32[t].resize(n + 1);  // floats from the second: rows start anywhere
          EXPECT_EQ(lumiDiv_8u_C1RSfs_arraddr[build()](a8.data(), len, b8.data(), len, d8[t].data(),
                                                       len, {len, h}, -3),
                    want);
          EXPECT_EQ(lumiDiv_16s_C1RSfs_arraddr[build()](a16.data(), 2 * len, b16.data(), 2 * len,
                                                        d16[t].data(), 2 * len, {len, h}, 2),
                    want);
          EXPECT_EQ(lumiDiv_32f_C1R_arraddr[build()](a32.data(), 4 * len, b32.data(), 4 * len,
                                                     d32[t].data() + 1, 4 * len, {len, h}),
                    want);
        }
        for (int t = 1; t < 3; ++t) {
          EXPECT_TRUE(d8[t] == d8[0] && d16[t] == d16[0])
              << len << "x" << h << " pixels, " << t << ", zero at " << zeroAt;
          EXPECT_EQ(std::memcmp(d32[t].data() + 1, d32[0].data() + 1, 4 * size_t(n)), 0)
              << len << "x" << h << " floats, zero at " << zeroAt;
        }
      }
}

// Long rows whose destination rows overlap, on several threads, with work enough for four: they run
// on the calling thread, in row order, the later row winning.
TEST_P(Div, LongRowsOverlappingOnSeveralThreads) {
  for (int threads : {2, 4}) {
    const int w8 = 2048, h8 = int(4 * lum::kDiv8uPixelsPerThread / w8), w16 = 1500,
              h16 = int(4 * lum::kDiv16sPixelsPerThread / w16 + 1);
    const int w32 = 4100, h32 = int(4 * lum::kDiv32fPixelsPerThread / w32 + 1);
    run(build(), divIntCase<Lum8u>(build(), 0), {w8, h8, {{w8}, {w8 + 3}}, {1}}, threads);
    run(build(), divIntCase<Lum8u>(build(), -2), {w8, h8, {{w8 + 1}, {w8}}, {w8 / 3}}, threads,
        kEnvs[2]);
    run(build(), divIntCase<Lum16s>(build(), 1),
        {w16, h16, {{2 * w16}, {2 * w16 + 2}}, {2 * w16 - 1}}, threads);
    run(build(), div32fCase(build()), {w32, h32, {{4 * w32}, {4 * w32 + 4}}, {4 * w32 / 2}},
        threads, kEnvs[1]);
  }
}

// The row functions' own checks: a null pointer before a length below 1.
TEST_P(Div, RowFunctionChecks) {
  const decltype(&lum::k0::lumsDiv_8u_Sfs) r8u[] = LUM_PER_BUILD(lumsDiv_8u_Sfs);
  const decltype(&lum::k0::lumsDiv_16s_Sfs) r16s[] = LUM_PER_BUILD(lumsDiv_16s_Sfs);
  const decltype(&lum::k0::lumsDiv_32f) r32f[] = LUM_PER_BUILD(lumsDiv_32f);
  alignas(4) unsigned char a[8] = {2, 0, 2, 0}, b[8] = {4, 0, 4, 0}, d[8] = {};
  const auto all = [&](unsigned char* x, unsigned char* y, unsigned char* z, int len) {
    return std::vector<LumStatus>{
        r8u[build()](x, y, z, len, 0),
        r16s[build()](reinterpret_cast<Lum16s*>(x), reinterpret_cast<Lum16s*>(y),
                      reinterpret_cast<Lum16s*>(z), len, 0),
        r32f[build()](reinterpret_cast<float*>(x), reinterpret_cast<float*>(y),
                      reinterpret_cast<float*>(z), len)};
  };
  const std::vector<LumStatus> null(3, lumStsNullPtrErr), size(3, lumStsSizeErr);
  EXPECT_EQ(all(nullptr, b, d, 1), null);
  EXPECT_EQ(all(a, nullptr, d, 0), null);
  EXPECT_EQ(all(a, b, nullptr, -1), null);
  EXPECT_EQ(all(a, b, d, 0), size);
  EXPECT_EQ(all(a, b, d, INT_MIN), size);
  EXPECT_EQ(std::vector<unsigned char>(d, d + 8), std::vector<unsigned char>(8, 0));
}

LUM_INSTANTIATE_PER_BUILD(Div);

}  // namespace
