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
  volatile float rounded = static_cast<float>(static_cast<double>(a) * b);  // one rounding
  return rounded;
}

// Values spread over the whole range: ordinary numbers of every magnitude,
// denormals, zeros of both signs, the largest finite values, infinities, NaN.
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
      case 5: f = std::numeric_limits<float>::quiet_NaN(); break;
      default: {
        uint32_t bits = rng() & 0x807FFFFFu;
        bits |= static_cast<uint32_t>(64 + rng() % 128) << 23;  // exponents 2^-63 .. 2^64
        std::memcpy(&f, &bits, 4);
      }
    }
  }
  return v;
}

// Pixel x of row y (rows `stride` floats apart) against the reference, bit
// for bit (NaN as NaN, whatever its payload).
void expectProducts(const std::vector<float>& a, const std::vector<float>& b,
                    const std::vector<float>& d, int width, int height, int stride,
                    const std::string& where) {
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x) {
      const size_t i = static_cast<size_t>(y) * stride + x;
      const float want = referenceProduct(a[i], b[i]);
      ASSERT_TRUE(std::isnan(want) ? std::isnan(d[i]) : bitsOf(d[i]) == bitsOf(want))
          << where << ", pixel " << i << ": " << a[i] << " * " << b[i] << " gave " << d[i]
          << ", want " << want;
    }
}

class Mul32f : public PerBuild {
 protected:
  LumStatus (*entry() const)(const Lum32f*, int, const Lum32f*, int, Lum32f*, int, LumSize) {
    return lumiMul_32f_C1R_arraddr[build()];
  }

  // Random images laid out as `l` through guarded operands (see binary_op.h).
  void run(const BinaryLayout& l, uint32_t seed) {
    const size_t n = static_cast<size_t>(l.width) * l.height;
    const std::vector<float> a = randomFloats(n, seed), b = randomFloats(n, seed + 1);
    LumStatus st = 1;
    const std::vector<float> d = lumtest::runBinary(l, a, b, std::vector<float>(n, 7.0f), entry(), &st);
    EXPECT_EQ(st, lumStsNoErr);
    expectProducts(a, b, d, l.width, l.height, l.width,
                   std::to_string(l.width) + "x" + std::to_string(l.height));
  }
};

TEST_P(Mul32f, EveryWidthAndAlignmentAndLargeRegions) {
  // Widths around the short-row limit and the 8-pixel blocks, every start
  // alignment of each operand, both guard pages.
  uint32_t seed = 1;
  for (int width = 1; width <= 70 && !HasFailure(); ++width)
    for (int gap = 0; gap < 16 && !HasFailure(); ++gap)
      run({width, 2, {4, gap, Against::End}, {0, (gap * 7) % 16, Against::Start},
           {8, (gap * 3) % 16, gap % 2 ? Against::Start : Against::End}}, seed++);
  // width, height, dst row pad, src row pad (bytes; odd pads misalign every other row)
  const int cases[][4] = {{1000, 37, 0, 0}, {4096, 3, 12, 4}, {257, 64, 3, 1}, {1, 300, 1, 2}, {333, 129, 64, 0}};
  for (const auto& c : cases)
    if (!HasFailure())
      run({c[0], c[1], {c[3], 0, Against::End}, {c[3] * 2, 5, Against::Start}, {c[2], 0, Against::End}}, seed++);
}

TEST_P(Mul32f, EveryThreadCountGivesTheReference) {
  for (LumSize size : {LumSize{203, 97}, LumSize{5, 1}, LumSize{64, 2}, LumSize{3, 200}})
    for (int threads : {1, 2, 4}) {
      lumtest::ThreadCountScope scope(threads);
      run({size.width, size.height, {}, {}, {20, 0, Against::End}}, 11);
    }
}

TEST_P(Mul32f, InPlace) {
  for (int width : {5, 11, 64, 131}) {
    const int h = 9, stride = width + 2, step = stride * 4;
    const std::vector<float> a = randomFloats(static_cast<size_t>(stride) * h, 21),
                             b = randomFloats(a.size(), 22);
    std::vector<float> d1 = a, d2 = b;
    ASSERT_EQ(entry()(d1.data(), step, b.data(), step, d1.data(), step, {width, h}), 0);
    expectProducts(a, b, d1, width, h, stride, "dst == src1");
    ASSERT_EQ(entry()(a.data(), step, d2.data(), step, d2.data(), step, {width, h}), 0);
    expectProducts(a, b, d2, width, h, stride, "dst == src2");
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
  // Steps are not checked: zero and negative steps are taken as given.
  EXPECT_EQ(f(a, 0, b, 0, d, 0, {4, 3}), lumStsNoErr);
  EXPECT_EQ(d[3], 32.0f);
  float rows[2][4] = {{1, 1, 1, 1}, {2, 2, 2, 2}};
  float out[2][4] = {};
  EXPECT_EQ(f(rows[1], -16, rows[1], -16, out[1], -16, {4, 2}), lumStsNoErr);
  EXPECT_EQ(out[1][0], 4.0f);
  EXPECT_EQ(out[0][3], 1.0f);
}

LUM_INSTANTIATE_PER_BUILD(Mul32f);

}  // namespace
