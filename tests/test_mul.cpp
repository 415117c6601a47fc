// Multiplication in every build against exact references: the scaled 8u and
// 16s ones of support/scaled_reference.h, and for floats the product in
// double (exact) rounded once to float, the correctly rounded product.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <climits>
#include <cmath>
#include <cstring>
#include <random>
#include <set>
#include <string>
#include <type_traits>
#include <vector>

#include "support/binary_op.h"
#include "support/builds.h"
#include "support/fp_env.h"
#include "support/kernels.h"
#include "support/scaled_reference.h"
#include "support/threads.h"

namespace {

using lumtest::Against;
using lumtest::BinaryLayout;

template <class T>
struct Pixel;

template <>
struct Pixel<Lum8u> {
  using Fn = LumStatus (*)(const Lum8u*, int, const Lum8u*, int, Lum8u*, int, LumSize, int);
  static Fn entry(int build) { return lumiMul_8u_C1RSfs_arraddr[build]; }
  static int reference(int a, int b, int sf) { return lumtest::scaledReference(a, b, sf, 0, 255); }
  // One factor of every case (plain, one, shifts right, shifts left, sign
  // only, the fill), each case's first and last factor included.
  static std::vector<int> caseFactors() { return {0, 1, 2, 5, 16, -1, -4, -7, -8, -13, 17}; }
  static Lum8u random(uint32_t r) {
    const Lum8u special[] = {0, 255, static_cast<Lum8u>(1 + (r >> 8) % 3)};
    return r % 8 < 3 ? special[r % 8] : static_cast<Lum8u>(r >> 8);
  }
  // Row kernels: longest rows, highest right and left shift, the bound.
  static constexpr int kLen = 112, kShiftLen = 70, kMaxPos = 16, kMaxNeg = 7;
  static constexpr decltype(&lum::k1::ownsMul_8u) plain[] = LUM_PER_VECTOR_BUILD(ownsMul_8u),
      half[] = LUM_PER_VECTOR_BUILD(ownsMul_8u_1Sfs), bound[] = LUM_PER_VECTOR_BUILD(ownsMul_8u_Bound);
  static constexpr decltype(&lum::k1::ownsMul_8u_PosSfs) pos[] = LUM_PER_VECTOR_BUILD(ownsMul_8u_PosSfs),
      neg[] = LUM_PER_VECTOR_BUILD(ownsMul_8u_NegSfs);
};

template <>
struct Pixel<Lum16s> {
  using Fn = LumStatus (*)(const Lum16s*, int, const Lum16s*, int, Lum16s*, int, LumSize, int);
  static Fn entry(int build) { return lumiMul_16s_C1RSfs_arraddr[build]; }
  static int reference(int a, int b, int sf) { return lumtest::scaledReference(a, b, sf, -32768, 32767); }
  static std::vector<int> caseFactors() { return {0, 1, 2, 13, 30, -1, -8, -14, -15, -22, 31}; }
  static Lum16s random(uint32_t r) {
    const int v = static_cast<int>(r >> 8);
    const int special[] = {0, -32768, 32767, v % 7 - 3, v % 601 - 300};
    return static_cast<Lum16s>(r % 10 < 5 ? special[r % 10] : v);
  }
  static constexpr int kLen = 60, kShiftLen = 40, kMaxPos = 30, kMaxNeg = 14;
  static constexpr decltype(&lum::k1::ownsMul_16s) plain[] = LUM_PER_VECTOR_BUILD(ownsMul_16s),
      half[] = LUM_PER_VECTOR_BUILD(ownsMul_16s_1Sfs), bound[] = LUM_PER_VECTOR_BUILD(ownsMul_16s_Bound);
  static constexpr decltype(&lum::k1::ownsMul_16s_PosSfs) pos[] = LUM_PER_VECTOR_BUILD(ownsMul_16s_PosSfs),
      neg[] = LUM_PER_VECTOR_BUILD(ownsMul_16s_NegSfs);
};

template <>
struct Pixel<Lum32f> {
  static auto entry(int build) {
    const auto f = lumiMul_32f_C1R_arraddr[build];
    return [f](const Lum32f* a, int sa, const Lum32f* b, int sb, Lum32f* d, int sd, LumSize s,
               int) { return f(a, sa, b, sb, d, sd, s); };
  }
  static float reference(float a, float b, int) {
    volatile float rounded = static_cast<float>(static_cast<double>(a) * b);  // one rounding
    return rounded;
  }
  static std::vector<int> caseFactors() { return std::vector<int>(16, 0); }  // 16 alignments
  // Every magnitude, denormals, zeros of both signs, the largest finite
  // values, infinities, NaN.
  static float random(uint32_t r) {
    const float special[] = {0.0f, -0.0f, std::numeric_limits<float>::denorm_min() * ((r >> 4) % 1000),
                             std::numeric_limits<float>::max() / (1 + (r >> 4) % 4),
                             (r >> 4) & 1 ? INFINITY : -INFINITY, NAN};
    if (r % 16 < 6) return special[r % 16];
    const uint32_t bits = ((r * 0x9E3779B1u) & 0x807FFFFFu) | (64 + (r >> 4) % 128) << 23;  // 2^-63..2^64
    float f;
    std::memcpy(&f, &bits, 4);
    return f;
  }
};

// Equal, for floats bit for bit (NaN as NaN, whatever its payload).
template <class T, class W>
bool same(T got, W want) {
  if constexpr (std::is_floating_point_v<T>) {
    if (std::isnan(want)) return std::isnan(got);
    return std::memcmp(&got, &want, sizeof got) == 0;
  }
  return got == want;
}

template <class T>
std::vector<T> randomPixels(size_t n, uint32_t seed) {
  std::mt19937 rng(seed);
  std::vector<T> v(n);
  for (auto& x : v) x = Pixel<T>::random(rng());
  return v;
}

// Runs the build's function on guarded operands (see binary_op.h), random
// ones unless a and b are given, and compares every pixel with the
// reference; reports the first difference.
template <class T>
void checkLayout(int build, const BinaryLayout& l, int sf, uint32_t seed,
                 std::vector<T> a = {}, std::vector<T> b = {}) {
  const size_t n = static_cast<size_t>(l.width) * l.height;
  if (a.empty()) a = randomPixels<T>(n, seed), b = randomPixels<T>(n, seed + 7);
  const auto fn = Pixel<T>::entry(build);
  const auto call = [fn, sf](const T* s1, int st1, const T* s2, int st2, T* d, int std,
                             LumSize size) { return fn(s1, st1, s2, st2, d, std, size, sf); };
  LumStatus st = 1;
  const std::vector<T> d = lumtest::runBinary(l, a, b, std::vector<T>(n, T(77)), call, &st);
  ASSERT_EQ(st, lumStsNoErr);
  for (size_t i = 0; i < n; ++i) {
    const auto want = Pixel<T>::reference(a[i], b[i], sf);
    ASSERT_TRUE(same(d[i], want)) << l.width << "x" << l.height << ", scale factor " << sf << ", pixel "
                                  << i << ": " << +a[i] << " * " << +b[i] << " gave " << +d[i]
                                  << ", want " << want;
  }
}

// The reference itself against answers worked out by hand from the
// definition (round half to even, then saturate).
TEST(ScaledReference, WorkedExamples) {
  const int examples8u[][4] = {
      {1, 1, 1, 0},       {1, 3, 1, 2},     {5, 1, 1, 2},    {7, 1, 1, 4},     // 0.5 1.5 2.5 3.5
      {255, 255, 1, 255}, {255, 255, 16, 1}, {255, 255, 17, 0}, {255, 128, 16, 0},
      {15, 17, 0, 255},   {1, 1, -7, 128},  {1, 2, -7, 255}, {31, 1, -3, 248}, {200, 0, -30, 0}};
  for (const auto& e : examples8u)
    EXPECT_EQ(Pixel<Lum8u>::reference(e[0], e[1], e[2]), e[3]) << e[0] << "*" << e[1] << " sf " << e[2];
  const int examples16s[][4] = {
      {-1, 1, 1, 0},          {-3, 1, 1, -2},          {1, -5, 1, -2},         {-7, 1, 1, -4},
      {-32768, -32768, 30, 1}, {-32768, -32768, 31, 0}, {-32768, 32767, 30, -1}, {-32768, -1, 0, 32767},
      {-32768, 32767, 0, -32768}, {1, -1, -15, -32768}, {300, 300, -1, 32767},  {-1, 1, -14, -16384},
      {-10, 1, 2, -2},        {-6, 1, 2, -2},          {-32767, 32767, 15, -32766}};
  for (const auto& e : examples16s)
    EXPECT_EQ(Pixel<Lum16s>::reference(e[0], e[1], e[2]), e[3]) << e[0] << "*" << e[1] << " sf " << e[2];
}

class Mul : public PerBuild {};

TEST_P(Mul, Every8uPairAtEveryScaleFactor) {
  // A 256 x 256 image pair holds every pair of byte values once.
  std::vector<Lum8u> a(65536), b(65536);
  for (int i = 0; i < 65536; ++i) a[i] = static_cast<Lum8u>(i >> 8), b[i] = static_cast<Lum8u>(i);
  for (int sf = -20; sf <= 40 && !HasFailure(); ++sf) {
    BinaryLayout l{256, 256, {0, sf & 15, Against::End}, {3, (sf * 5) & 15, Against::Start},
                   {(sf & 1) * 16, (sf * 3) & 15, Against::End}};
    checkLayout<Lum8u>(build(), l, sf, 0, a, b);
  }
}

TEST_P(Mul, Extreme16sCrossedWithEachOtherAndRandomAtEveryScaleFactor) {
  // Rows and columns run over the same 128 values, the extremes first, so
  // that every extreme meets every value in both orders.
  std::vector<Lum16s> values = {-32768, -32767, -1, 0, 1, 32767};
  std::mt19937 rng(5);
  while (values.size() < 128) values.push_back(static_cast<Lum16s>(rng()));
  std::vector<Lum16s> a, b;
  for (Lum16s y : values)
    for (Lum16s x : values) a.push_back(y), b.push_back(x);
  for (int sf = -20; sf <= 40 && !HasFailure(); ++sf) {
    // Odd destination gaps: odd destination starts.
    BinaryLayout l{128, 128, {2, (sf & 7) * 2, Against::End}, {0, sf & 15, Against::Start},
                   {6, (sf * 3) & 15, Against::End}};
    checkLayout<Lum16s>(build(), l, sf, 0, a, b);
  }
}

template <class T>
void checkWidthsAndLayouts(int build) {
  const std::vector<int> factors = Pixel<T>::caseFactors();
  uint32_t seed = 1;
  for (int width = 1; width <= 70; ++width)
    for (size_t c = 0; c < factors.size(); ++c) {
      const int gap = static_cast<int>((width + 5 * c) % 16);
      BinaryLayout l{width, 3, {3, (gap * 7) % 16, Against::End}, {0, (gap + 3) % 16, Against::Start},
                     {5, gap, c % 2 ? Against::Start : Against::End}};
      checkLayout<T>(build, l, factors[c], seed++);
      if (testing::Test::HasFailure()) return;
    }
  // Large regions and padded steps (odd pads misalign every other row).
  const int cases[][4] = {// width, height, dst row pad, src row pad (bytes)
                          {1000, 37, 0, 0}, {4096, 3, 13, 4}, {257, 64, 3, 1}, {1, 300, 1, 2},
                          {333, 129, 64, 0}};
  for (int sf : std::set<int>(factors.begin(), factors.end()))
    for (const auto& c : cases) {
      BinaryLayout l{c[0], c[1], {c[3], 1, Against::End}, {c[3] * 2, 6, Against::Start},
                     {c[2], 0, Against::End}};
      checkLayout<T>(build, l, sf, seed++);
      if (testing::Test::HasFailure()) return;
    }
}

// Steps are not checked: a zero step reads (or writes) one row again and
// again, a negative one walks up through memory.
template <class T>
void checkZeroAndNegativeSteps(int build) {
  const int px = static_cast<int>(sizeof(T));
  for (int sf : Pixel<T>::caseFactors())
    for (int width : {5, 40, 131}) {
      // The same row in every row, so that a zero-step source is well defined.
      const std::vector<T> rowA = randomPixels<T>(width, 40 + sf), rowB = randomPixels<T>(width, 80 + sf);
      std::vector<T> a, b;
      for (int y = 0; y < 4; ++y)
        a.insert(a.end(), rowA.begin(), rowA.end()), b.insert(b.end(), rowB.begin(), rowB.end());
      const int r = width * px;
      // Every operand on one row; all bottom-up; sources on one row and
      // the destination bottom-up at an odd start.
      const int steps[][4] = {{0, 0, 0, 0}, {-r - 3, -r, -r - 2 * px, 0}, {0, 0, -r - 1, 1}};
      for (const auto& s : steps) {
        BinaryLayout l{width, 4, {}, {}, {}};
        l.src1.step = s[0], l.src2.step = s[1], l.dst.step = s[2], l.dst.gap = s[3];
        checkLayout<T>(build, l, sf, 0, a, b);
        if (testing::Test::HasFailure()) return;
      }
    }
}

template <class T>
void checkInPlace(int build) {
  for (int sf : Pixel<T>::caseFactors())
    for (int width : {3, 33, 100}) {
      const int height = 5, stride = width + 9, step = stride * static_cast<int>(sizeof(T));
      const size_t n = static_cast<size_t>(stride) * height;
      const std::vector<T> a = randomPixels<T>(n, 60 + sf), b = randomPixels<T>(n, 90 + width);
      for (int which = 1; which <= 2; ++which) {
        std::vector<T> x = a, y = b;
        T* dst = which == 1 ? x.data() : y.data();
        ASSERT_EQ(Pixel<T>::entry(build)(x.data(), step, y.data(), step, dst, step,
                                         LumSize{width, height}, sf), lumStsNoErr);
        ASSERT_EQ(lumtest::toBytes(which == 1 ? y : x), lumtest::toBytes(which == 1 ? b : a))
            << "the other source changed";
        for (size_t k = 0; k < n; ++k) {
          const auto want = static_cast<int>(k % stride) < width ? Pixel<T>::reference(a[k], b[k], sf)
                                                                  : (which == 1 ? a[k] : b[k]);
          ASSERT_TRUE(same(dst[k], want)) << "dst == src" << which << ", scale factor " << sf
                                   << ", width " << width << ", pixel " << k;
        }
      }
    }
}

// Regions on both sides of every parallel threshold (width + height 127 and
// 128, 255 and 256; (height >> 2) + (width >> 4) and (height >> 2) +
// (width >> 3) of 20 and 21), each thread count against the reference.
template <class T>
void checkThreadCounts(int build) {
  const LumSize sizes[] = {{100, 27}, {100, 28}, {200, 55}, {200, 56},
                           {160, 40}, {176, 40}, {80, 40}, {88, 40}, {80, 47}};
  uint32_t seed = 300;
  for (const LumSize& size : sizes)
    for (int sf : {0, 1, 2, 9, -3, -30}) {
      if (std::is_floating_point_v<T> && sf != 0) continue;
      ++seed;
      for (int threads : {1, 2, 4}) {
        lumtest::ThreadCountScope scope(threads);
        checkLayout<T>(build, {size.width, size.height, {1, 0, Against::End}, {}, {16, 3, Against::End}}, sf, seed);
        if (testing::Test::HasFailure()) return;
      }
    }
}

TEST_P(Mul, Widths1To70AtEveryAlignmentLargeRegionsAndPaddedSteps) {
  checkWidthsAndLayouts<Lum8u>(build());
  checkWidthsAndLayouts<Lum16s>(build());
  checkWidthsAndLayouts<Lum32f>(build());
}
TEST_P(Mul, ZeroAndNegativeSteps) {
  checkZeroAndNegativeSteps<Lum8u>(build());
  checkZeroAndNegativeSteps<Lum16s>(build());
  checkZeroAndNegativeSteps<Lum32f>(build());
}
TEST_P(Mul, ThreadCountsAroundThresholds) {
  checkThreadCounts<Lum8u>(build());
  checkThreadCounts<Lum16s>(build());
  checkThreadCounts<Lum32f>(build());
}

template <class T>
void checkArguments(int build) {
  const auto f = Pixel<T>::entry(build);
  T a[8] = {1, 2, 3, 4, 5, 6, 7, 8}, b[8] = {2, 2, 2, 2, 2, 2, 2, 2}, d[8];
  for (auto& v : d) v = T(99);
  const int step = 4 * static_cast<int>(sizeof(T));
  for (int sf : {0, 1, 3, -2, -40, 100}) {
    // A null pointer wins over a bad size, whichever pointer it is.
    EXPECT_EQ(f(nullptr, step, b, step, d, step, {0, 0}, sf), lumStsNullPtrErr);
    EXPECT_EQ(f(a, step, nullptr, step, d, step, {4, 1}, sf), lumStsNullPtrErr);
    EXPECT_EQ(f(a, step, b, step, nullptr, step, {0, 1}, sf), lumStsNullPtrErr);
    EXPECT_EQ(f(a, step, b, step, nullptr, step, {4, -1}, sf), lumStsNullPtrErr);
    for (LumSize bad : {LumSize{0, 1}, LumSize{1, 0}, LumSize{-1, 4}, LumSize{4, -1},
                        LumSize{INT_MIN, INT_MIN}, LumSize{INT_MAX, 0}})
      EXPECT_EQ(f(a, step, b, step, d, step, bad, sf), lumStsSizeErr) << bad.width << "x" << bad.height;
    for (T v : d) ASSERT_EQ(v, T(99)) << "a failed call wrote the destination";
  }
  if constexpr (std::is_integral_v<T>) {
    // Any scale factor is accepted; the extremes fall into the sign-only and
    // the fill case.
    EXPECT_EQ(f(a, step, b, step, d, step, {4, 2}, INT_MIN), lumStsNoErr);
    for (T v : d) EXPECT_EQ(+v, Pixel<T>::reference(1, 1, -100));
    EXPECT_EQ(f(a, step, b, step, d, step, {4, 2}, INT_MAX), lumStsNoErr);
    for (T v : d) EXPECT_EQ(v, T(0));
  }
}

// Above the fill bound the result is 0 whatever the sources hold, and they
// are not read at all: here they lie in memory that cannot be read.
template <class T>
void checkZeroFillReadsNoSource(int build, std::vector<int> factors) {
  const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
  void* none = mmap(nullptr, page, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  ASSERT_NE(none, MAP_FAILED);
  const T* unreadable = static_cast<const T*>(none);
  for (int sf : factors)
    for (int width : {1, 17, 200}) {
      const int rowBytes = width * static_cast<int>(sizeof(T));
      const std::vector<uint8_t> zeros(static_cast<size_t>(rowBytes) * 7, 0);
      lumtest::GuardedImage d({width, 7, static_cast<int>(sizeof(T)), rowBytes + 5}, Against::End, sf & 15);
      d.load(std::vector<uint8_t>(zeros.size(), 0x5A));
      EXPECT_EQ(Pixel<T>::entry(build)(unreadable, rowBytes, unreadable, rowBytes, d.origin<T>(),
                                       d.step(), LumSize{width, 7}, sf), lumStsNoErr);
      EXPECT_EQ(d.store(), zeros);
      EXPECT_EQ(d.paddingDamage(), "");
      EXPECT_TRUE(lumtest::x87RegistersFree());
    }
  munmap(none, page);
}

TEST_P(Mul, InPlace) {
  checkInPlace<Lum8u>(build());
  checkInPlace<Lum16s>(build());
  checkInPlace<Lum32f>(build());
}
TEST_P(Mul, ArgumentChecks) {
  checkArguments<Lum8u>(build());
  checkArguments<Lum16s>(build());
  checkArguments<Lum32f>(build());
}
TEST_P(Mul, ZeroFillReadsNoSource) {
  checkZeroFillReadsNoSource<Lum8u>(build(), {17, 18, 31, 40, INT_MAX});
  checkZeroFillReadsNoSource<Lum16s>(build(), {31, 32, 40, INT_MAX});
}

LUM_INSTANTIATE_PER_BUILD(Mul);

// ---- Row kernels --------------------------------------------------------------------
// The generic build has none; k1..k5 are called directly at every length
// around their vector thresholds, every shift count and every destination
// alignment.

// Calls kernel(a, b, d, len) at every length 1..maxLen, every destination
// offset 0..15 bytes and a few source offsets; checks every pixel, the bytes
// around the row, and the MMX state.
template <class T, class Kernel>
void checkKernel(const char* name, const Kernel& kernel, int sf, int maxLen) {
  constexpr int kPad = 32;
  const int bytes = maxLen * static_cast<int>(sizeof(T)) + 2 * kPad;
  std::vector<uint8_t> bufA(bytes + 16), bufB(bytes + 16), bufD(bytes + 16);
  const std::vector<T> a = randomPixels<T>(maxLen, 500 + sf), b = randomPixels<T>(maxLen, 900 - sf);
  const auto at = [](std::vector<uint8_t>& buf, int offset) {  // from a 16-byte boundary
    const uintptr_t base = (reinterpret_cast<uintptr_t>(buf.data()) + 15) & ~uintptr_t(15);
    return reinterpret_cast<uint8_t*>(base) + kPad + offset;
  };
  for (int len = 1; len <= maxLen; ++len)
    for (const auto& so : {std::pair{0, 0}, {1, 0}, {0, 6}, {5, 11}})
      for (int offD = 0; offD < 16; ++offD) {
        uint8_t *pa = at(bufA, so.first), *pb = at(bufB, so.second), *pd = at(bufD, offD);
        std::memcpy(pa, a.data(), len * sizeof(T));
        std::memcpy(pb, b.data(), len * sizeof(T));
        std::memset(bufD.data(), 0xA5, bufD.size());
        kernel(reinterpret_cast<const T*>(pa), reinterpret_cast<const T*>(pb), reinterpret_cast<T*>(pd), len);
        ASSERT_TRUE(lumtest::x87RegistersFree()) << name << " left the MMX state uncleared";
        for (int i = 0; i < len; ++i) {
          T got;
          std::memcpy(&got, pd + i * sizeof(T), sizeof(T));
          ASSERT_EQ(+got, Pixel<T>::reference(a[i], b[i], sf))
              << name << " scale factor " << sf << ", len " << len << ", pixel " << i
              << ", dst offset " << offD << ", src offsets " << so.first << "," << so.second;
        }
        for (size_t i = 0; i < bufD.size(); ++i)
          if (bufD.data() + i < pd || bufD.data() + i >= pd + len * sizeof(T)) {
            ASSERT_EQ(bufD[i], 0xA5) << name << " len " << len << ": wrote outside the row";
          }
      }
}

template <class T>
void checkKernels(int k) {
  using P = Pixel<T>;
  checkKernel<T>("plain", P::plain[k], 0, P::kLen);
  checkKernel<T>("1Sfs", P::half[k], 1, P::kLen);
  for (int s = 2; s <= P::kMaxPos; ++s)
    checkKernel<T>("PosSfs", [&](auto a, auto b, auto d, int n) { P::pos[k](a, b, d, n, s); }, s, P::kShiftLen);
  for (int s = 1; s <= P::kMaxNeg; ++s)
    checkKernel<T>("NegSfs", [&](auto a, auto b, auto d, int n) { P::neg[k](a, b, d, n, s); }, -s, P::kShiftLen);
  checkKernel<T>("Bound", P::bound[k], -P::kMaxNeg - 1, P::kLen);
}

class MulRowKernels : public PerBuild {};
TEST_P(MulRowKernels, Kernels8u) { checkKernels<Lum8u>(build()); }
TEST_P(MulRowKernels, Kernels16s) { checkKernels<Lum16s>(build()); }
INSTANTIATE_TEST_SUITE_P(VectorBuilds, MulRowKernels, testing::Values(1, 2, 3, 4, 5),
                         lumtest::BuildName());

}  // namespace
