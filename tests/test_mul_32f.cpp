// Float multiplication in every build against an exact reference: the
// product of two floats is exact in double, so rounding it once to float is
// the correctly rounded single-precision product every build must give.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

#include "support/binary_op.h"
#include "support/builds.h"
#include "support/kernels.h"
#include "support/threads.h"

namespace {

using lumtest::Against;
using lumtest::BinaryLayout;

uint32_t bitsOf(float f) {
  uint32_t u;
  std::memcpy(&u, &f, 4);
  return u;
}

float referenceProduct(float a, float b) {
  const double exact = static_cast<double>(a) * static_cast<double>(b);
  volatile float rounded = static_cast<float>(exact);  // one rounding, in memory
  return rounded;
}

// Values spread over the whole range: ordinary numbers of every magnitude,
// denormals, zeros of both signs, the largest finite values, infinities.
std::vector<float> randomFloats(size_t n, uint32_t seed) {
  std::mt19937 rng(seed);
  std::vector<float> v(n);
  for (auto& f : v) {
    const uint32_t r = rng();
    switch (r % 16) {
      case 0: f = 0.0f; break;
      case 1: f = -0.0f; break;
      case 2: f = std::numeric_limits<float>::denorm_min() * static_cast<float>(rng() % 1000); break;
      case 3: f = std::numeric_limits<float>::max() / static_cast<float>(1 + rng() % 4); break;
      case 4: f = (rng() & 1) ? INFINITY : -INFINITY; break;
      default: {
        uint32_t bits = rng() & 0x807FFFFFu;
        bits |= static_cast<uint32_t>(64 + rng() % 128) << 23;  // exponents 2^-63 .. 2^64
        std::memcpy(&f, &bits, 4);
      }
    }
  }
  return v;
}

class Mul32f : public PerBuild {
 protected:
  LumStatus (*entry() const)(const Lum32f*, int, const Lum32f*, int, Lum32f*, int, LumSize) {
    return lumiMul_32f_C1R_arraddr[build()];
  }

  // Multiplies random images laid out as `l` and compares every pixel with
  // the reference, bit for bit (NaN as NaN, whatever its payload).
  void checkAgainstReference(const BinaryLayout& l, uint32_t seed) {
    const size_t n = static_cast<size_t>(l.width) * l.height;
    const std::vector<float> a = randomFloats(n, seed), b = randomFloats(n, seed + 1);
    LumStatus st = 1;
    const std::vector<float> d =
        lumtest::runBinary(l, a, b, std::vector<float>(n, 7.0f), entry(), &st);
    ASSERT_EQ(st, lumStsNoErr);
    for (size_t i = 0; i < n; ++i) {
      const float want = referenceProduct(a[i], b[i]);
      if (std::isnan(want)) {
        ASSERT_TRUE(std::isnan(d[i])) << "pixel " << i << ": " << a[i] << " * " << b[i];
      } else {
        ASSERT_EQ(bitsOf(d[i]), bitsOf(want))
            << "pixel " << i << " of " << l.width << "x" << l.height << ": " << a[i] << " * "
            << b[i] << " gave " << d[i] << ", want " << want;
      }
    }
  }
};

TEST_P(Mul32f, EveryWidthAndAlignment) {
  // Widths around the short-row limit and the 8-pixel blocks, every start
  // alignment of each operand, both guard pages.
  uint32_t seed = 1;
  for (int width = 1; width <= 70; ++width) {
    for (int gap = 0; gap < 16; ++gap) {
      BinaryLayout l;
      l.width = width;
      l.height = 2;
      l.src1 = {4, gap, Against::End};
      l.src2 = {0, (gap * 7) % 16, Against::Start};
      l.dst = {8, (gap * 3) % 16, gap % 2 ? Against::Start : Against::End};
      checkAgainstReference(l, seed++);
      if (HasFatalFailure()) return;
    }
  }
}

TEST_P(Mul32f, LargeAndOddSteps) {
  const int cases[][4] = {
      // width, height, dst row pad, src row pad (bytes; odd pads misalign every other row)
      {1000, 37, 0, 0}, {4096, 3, 12, 4}, {257, 64, 3, 1}, {1, 300, 1, 2}, {333, 129, 64, 0}};
  uint32_t seed = 100;
  for (const auto& c : cases) {
    BinaryLayout l;
    l.width = c[0];
    l.height = c[1];
    l.src1 = {c[3], 0, Against::End};
    l.src2 = {c[3] * 2, 5, Against::Start};
    l.dst = {c[2], 0, Against::End};
    checkAgainstReference(l, seed++);
    if (HasFatalFailure()) return;
  }
}

TEST_P(Mul32f, ThreadCountDoesNotChangeResults) {
  BinaryLayout l;
  l.width = 203;
  l.height = 97;
  l.dst.rowPad = 20;
  const size_t n = static_cast<size_t>(l.width) * l.height;
  const std::vector<float> a = randomFloats(n, 11), b = randomFloats(n, 12);
  std::vector<std::vector<float>> results;
  for (int threads : {1, 2, 4}) {
    lumtest::ThreadCountScope scope(threads);
    LumStatus st = 1;
    results.push_back(lumtest::runBinary(l, a, b, std::vector<float>(n, 0.0f), entry(), &st));
    ASSERT_EQ(st, lumStsNoErr);
  }
  EXPECT_EQ(0, std::memcmp(results[0].data(), results[1].data(), n * 4));
  EXPECT_EQ(0, std::memcmp(results[0].data(), results[2].data(), n * 4));
}

TEST_P(Mul32f, InPlace) {
  for (int width : {5, 11, 64, 131}) {
    const int h = 9, step = width * 4 + 8;
    std::vector<float> a = randomFloats(static_cast<size_t>(step / 4) * h, 21);
    std::vector<float> b = randomFloats(a.size(), 22);
    std::vector<float> want(a.size());
    for (size_t i = 0; i < a.size(); ++i) want[i] = referenceProduct(a[i], b[i]);
    auto checkRegion = [&](const std::vector<float>& got, const char* what) {
      for (int y = 0; y < h; ++y)
        for (int x = 0; x < width; ++x) {
          const size_t i = static_cast<size_t>(y) * (step / 4) + x;
          if (std::isnan(want[i]))
            ASSERT_TRUE(std::isnan(got[i])) << what;
          else
            ASSERT_EQ(bitsOf(got[i]), bitsOf(want[i])) << what << " width " << width;
        }
    };
    std::vector<float> d1 = a;  // dst == src1
    ASSERT_EQ(entry()(d1.data(), step, b.data(), step, d1.data(), step, {width, h}), 0);
    checkRegion(d1, "dst == src1");
    std::vector<float> d2 = b;  // dst == src2
    ASSERT_EQ(entry()(a.data(), step, d2.data(), step, d2.data(), step, {width, h}), 0);
    checkRegion(d2, "dst == src2");
  }
}

TEST_P(Mul32f, SpecialValuesPropagate) {
  const float inf = INFINITY, nan = std::numeric_limits<float>::quiet_NaN();
  const std::vector<float> a = {inf, inf, -inf, 0.0f, nan, 3.0f, -0.0f, 1e30f, 1e-30f, -2.0f, 5.0f, nan, inf};
  const std::vector<float> b = {2.0f, 0.0f, -1.0f, -inf, 1.0f, nan, 4.0f, 1e30f, 1e-30f, 0.0f, -0.0f, nan, inf};
  // Repeated so that both the short-row and the vector path see them.
  for (int reps : {1, 4}) {
    std::vector<float> x, y;
    for (int r = 0; r < reps; ++r) {
      x.insert(x.end(), a.begin(), a.end());
      y.insert(y.end(), b.begin(), b.end());
    }
    std::vector<float> d(x.size(), 1.0f);
    const int w = static_cast<int>(x.size());
    ASSERT_EQ(entry()(x.data(), w * 4, y.data(), w * 4, d.data(), w * 4, {w, 1}), 0);
    for (int i = 0; i < w; ++i) {
      const int k = i % static_cast<int>(a.size());
      switch (k) {
        case 0: EXPECT_EQ(d[i], inf); break;
        case 1: case 3: case 4: case 5: case 11: EXPECT_TRUE(std::isnan(d[i])) << k; break;
        case 2: EXPECT_EQ(d[i], inf); break;
        case 6: EXPECT_EQ(bitsOf(d[i]), 0x80000000u); break;
        case 7: EXPECT_EQ(d[i], inf); break;
        case 8: EXPECT_EQ(bitsOf(d[i]), 0u); break;  // underflows to +0
        case 9: EXPECT_EQ(bitsOf(d[i]), 0x80000000u); break;
        case 10: EXPECT_EQ(bitsOf(d[i]), 0x80000000u); break;
        case 12: EXPECT_EQ(d[i], inf); break;
      }
    }
  }
}

TEST_P(Mul32f, ArgumentChecksInOrderAndNothingWritten) {
  float a[4] = {1, 2, 3, 4}, b[4] = {5, 6, 7, 8}, d[4] = {-1, -1, -1, -1};
  const auto f = entry();
  // A null pointer wins over a bad size, whichever pointer it is.
  EXPECT_EQ(f(nullptr, 16, b, 16, d, 16, {0, 0}), lumStsNullPtrErr);
  EXPECT_EQ(f(a, 16, nullptr, 16, d, 16, {4, 1}), lumStsNullPtrErr);
  EXPECT_EQ(f(a, 16, b, 16, nullptr, 16, {-3, 1}), lumStsNullPtrErr);
  for (LumSize bad : {LumSize{0, 1}, LumSize{1, 0}, LumSize{-1, 4}, LumSize{4, -1},
                      LumSize{INT32_MIN, INT32_MIN}})
    EXPECT_EQ(f(a, 16, b, 16, d, 16, bad), lumStsSizeErr) << bad.width << "x" << bad.height;
  for (float v : d) EXPECT_EQ(v, -1.0f) << "a failed call wrote the destination";
  // Steps are not checked: zero, negative and odd steps are taken as given.
  EXPECT_EQ(f(a, 0, b, 0, d, 0, {4, 3}), lumStsNoErr);
  EXPECT_EQ(d[3], 32.0f);
  float rows[2][4] = {{1, 1, 1, 1}, {2, 2, 2, 2}};
  float out[2][4] = {};
  EXPECT_EQ(f(rows[1], -16, rows[1], -16, out[1], -16, {4, 2}), lumStsNoErr);
  EXPECT_EQ(out[1][0], 4.0f);
  EXPECT_EQ(out[0][3], 1.0f);
}

LUM_INSTANTIATE_PER_BUILD(Mul32f);

// The row kernel itself, on its own: every length up to a few blocks at every
// combination of operand alignments (in floats and in bytes).
class Mul32fRowKernel : public PerBuild {};

TEST_P(Mul32fRowKernel, LengthsAndAlignments) {
  void (*const kernels[])(const Lum32f*, const Lum32f*, Lum32f*, int) = LUM_PER_BUILD(ownsMul_32f);
  const auto kernel = kernels[build()];
  alignas(64) uint8_t bufA[512], bufB[512], bufD[512 + 16];
  const std::vector<float> a = randomFloats(100, 31), b = randomFloats(100, 32);
  for (int len = 1; len <= 40; ++len)
    for (int offA : {0, 4, 8, 1}) for (int offB : {0, 12, 2}) for (int offD = 0; offD < 16; ++offD) {
      float* pa = reinterpret_cast<float*>(bufA + offA);
      float* pb = reinterpret_cast<float*>(bufB + offB);
      float* pd = reinterpret_cast<float*>(bufD + offD);
      std::memcpy(pa, a.data(), len * 4);
      std::memcpy(pb, b.data(), len * 4);
      std::memset(bufD, 0xA5, sizeof bufD);
      kernel(pa, pb, pd, len);
      for (int i = 0; i < len; ++i) {
        const float want = referenceProduct(a[i], b[i]);
        float got;
        std::memcpy(&got, bufD + offD + 4 * i, 4);
        if (std::isnan(want))
          ASSERT_TRUE(std::isnan(got));
        else
          ASSERT_EQ(bitsOf(got), bitsOf(want)) << "len " << len << " pixel " << i;
      }
      for (int i = offD + 4 * len; i < static_cast<int>(sizeof bufD); ++i)
        ASSERT_EQ(bufD[i], 0xA5) << "len " << len << ": wrote past the row";
      for (int i = 0; i < offD; ++i) ASSERT_EQ(bufD[i], 0xA5) << "wrote before the row";
    }
}

LUM_INSTANTIATE_PER_BUILD(Mul32fRowKernel);

}  // namespace
