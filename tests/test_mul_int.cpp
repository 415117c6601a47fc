// Scaled integer multiplication, 8u and 16s, in every build, against the
// exact reference of support/scaled_reference.h.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <climits>
#include <cstring>
#include <random>
#include <string>
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

// ---- What differs between the two pixel types -------------------------------------

template <class T>
struct Pixel;

template <>
struct Pixel<Lum8u> {
  using Fn = LumStatus (*)(const Lum8u*, int, const Lum8u*, int, Lum8u*, int, LumSize, int);
  static Fn entry(int build) { return lumiMul_8u_C1RSfs_arraddr[build]; }
  static int reference(int a, int b, int sf) { return lumtest::referenceMul8u(a, b, sf); }
  // One factor of every case: plain, one, shifts right, shifts left, sign
  // only, and the fill; each case's first and last factor included.
  static std::vector<int> caseFactors() { return {0, 1, 2, 5, 16, -1, -4, -7, -8, -13, 17}; }
  static Lum8u random(std::mt19937& rng) {
    const uint32_t r = rng();
    switch (r % 8) {
      case 0: return 0;
      case 1: return 255;
      case 2: return static_cast<Lum8u>(1 + (r >> 8) % 3);
      default: return static_cast<Lum8u>(r >> 8);
    }
  }
};

template <>
struct Pixel<Lum16s> {
  using Fn = LumStatus (*)(const Lum16s*, int, const Lum16s*, int, Lum16s*, int, LumSize, int);
  static Fn entry(int build) { return lumiMul_16s_C1RSfs_arraddr[build]; }
  static int reference(int a, int b, int sf) { return lumtest::referenceMul16s(a, b, sf); }
  static std::vector<int> caseFactors() { return {0, 1, 2, 13, 30, -1, -8, -14, -15, -22, 31}; }
  static Lum16s random(std::mt19937& rng) {
    const uint32_t r = rng();
    switch (r % 10) {
      case 0: return 0;
      case 1: return -32768;
      case 2: return 32767;
      case 3: return static_cast<Lum16s>(static_cast<int>((r >> 8) % 7) - 3);
      case 4: return static_cast<Lum16s>(static_cast<int>((r >> 8) % 601) - 300);
      default: return static_cast<Lum16s>(r >> 8);
    }
  }
};

template <class T>
std::vector<T> randomPixels(size_t n, uint32_t seed) {
  std::mt19937 rng(seed);
  std::vector<T> v(n);
  for (auto& x : v) x = Pixel<T>::random(rng);
  return v;
}

// Runs the build's function on guarded operands (see binary_op.h).
template <class T>
std::vector<T> runMul(int build, const BinaryLayout& l, const std::vector<T>& a,
                      const std::vector<T>& b, int sf, LumStatus* status, T dstInit = T(77)) {
  const auto fn = Pixel<T>::entry(build);
  const auto call = [fn, sf](const T* s1, int st1, const T* s2, int st2, T* d, int std,
                             LumSize size) { return fn(s1, st1, s2, st2, d, std, size, sf); };
  const size_t n = static_cast<size_t>(l.width) * l.height;
  return lumtest::runBinary(l, a, b, std::vector<T>(n, dstInit), call, status);
}

// Every pixel against the reference; reports the first difference.
template <class T>
void expectReference(const std::vector<T>& a, const std::vector<T>& b, const std::vector<T>& d,
                     int sf, const std::string& where) {
  for (size_t i = 0; i < d.size(); ++i) {
    const int want = Pixel<T>::reference(a[i], b[i], sf);
    if (d[i] != want) {
      ADD_FAILURE() << where << ", scale factor " << sf << ", pixel " << i << ": " << +a[i]
                    << " * " << +b[i] << " gave " << +d[i] << ", want " << want;
      return;
    }
  }
}

template <class T>
void checkLayout(int build, const BinaryLayout& l, int sf, uint32_t seed) {
  const size_t n = static_cast<size_t>(l.width) * l.height;
  const std::vector<T> a = randomPixels<T>(n, seed), b = randomPixels<T>(n, seed + 7);
  LumStatus st = 1;
  const std::vector<T> d = runMul(build, l, a, b, sf, &st);
  ASSERT_EQ(st, lumStsNoErr);
  expectReference(a, b, d, sf,
                  std::to_string(l.width) + "x" + std::to_string(l.height) + " dst gap " +
                      std::to_string(l.dst.gap));
}

class MulInt : public PerBuild {};

// ---- Exhaustive and value coverage ------------------------------------------------

TEST_P(MulInt, Every8uPairAtEveryScaleFactor) {
  // A 256 x 256 image pair holds every pair of byte values once.
  std::vector<Lum8u> a(65536), b(65536);
  for (int i = 0; i < 65536; ++i) {
    a[i] = static_cast<Lum8u>(i >> 8);
    b[i] = static_cast<Lum8u>(i & 255);
  }
  for (int sf = -20; sf <= 40; ++sf) {
    BinaryLayout l;
    l.width = 256;
    l.height = 256;
    l.src1 = {0, sf & 15, Against::End};
    l.src2 = {3, (sf * 5) & 15, Against::Start};
    l.dst = {(sf & 1) * 16, (sf * 3) & 15, Against::End};
    LumStatus st = 1;
    const std::vector<Lum8u> d = runMul(build(), l, a, b, sf, &st);
    ASSERT_EQ(st, lumStsNoErr) << "scale factor " << sf;
    expectReference(a, b, d, sf, "all pairs");
    if (HasFailure()) return;
  }
}

TEST_P(MulInt, Extreme16sValuesAgainstEachOtherAndRandomAtEveryScaleFactor) {
  // Rows and columns run over the same 64 values: the extremes first, then
  // random ones, so that every extreme meets every value in both orders.
  std::vector<Lum16s> values = {-32768, -32767, -1, 0, 1, 32767};
  std::mt19937 rng(5);
  while (values.size() < 64) values.push_back(static_cast<Lum16s>(rng()));
  std::vector<Lum16s> a, b;
  for (Lum16s y : values)
    for (Lum16s x : values) {
      a.push_back(y);
      b.push_back(x);
    }
  for (int sf = -20; sf <= 40; ++sf) {
    BinaryLayout l;
    l.width = 64;
    l.height = 64;
    l.src1 = {2, (sf & 7) * 2, Against::End};
    l.src2 = {0, sf & 15, Against::Start};
    l.dst = {6, (sf * 3) & 15, Against::End};  // odd gaps: odd destination starts
    LumStatus st = 1;
    const std::vector<Lum16s> d = runMul(build(), l, a, b, sf, &st);
    ASSERT_EQ(st, lumStsNoErr) << "scale factor " << sf;
    expectReference(a, b, d, sf, "extremes");
    if (HasFailure()) return;
  }
}

TEST_P(MulInt, Random16sAtEveryScaleFactor) {
  for (int sf = -20; sf <= 40; ++sf) {
    BinaryLayout l;
    l.width = 301;
    l.height = 5;
    l.src1 = {2, 0, Against::End};
    l.dst = {0, (sf & 7) * 2, Against::Start};
    checkLayout<Lum16s>(build(), l, sf, 1000 + sf);
    if (HasFailure()) return;
  }
}

// Small cases whose answers follow from the definition by hand, each
// repeated along a short row (scalar path) and a long one (vector path).
template <class T>
struct Example {
  int a, b, sf, want;
};

template <class T>
void checkExamples(int build, const std::vector<Example<T>>& examples) {
  for (const auto& e : examples)
    for (int width : {3, 97}) {
      BinaryLayout l;
      l.width = width;
      l.height = 2;
      l.dst.gap = 1;
      const size_t n = static_cast<size_t>(width) * 2;
      LumStatus st = 1;
      const std::vector<T> d = runMul(build, l, std::vector<T>(n, static_cast<T>(e.a)),
                                      std::vector<T>(n, static_cast<T>(e.b)), e.sf, &st);
      ASSERT_EQ(st, lumStsNoErr);
      for (size_t i = 0; i < n; ++i)
        ASSERT_EQ(+d[i], e.want) << e.a << " * " << e.b << " at scale factor " << e.sf
                                 << ", width " << width << ", pixel " << i;
    }
}

TEST_P(MulInt, WorkedExamples8u) {
  checkExamples<Lum8u>(build(), {
                                    {1, 1, 1, 0},      // 0.5 -> 0
                                    {1, 3, 1, 2},      // 1.5 -> 2
                                    {5, 1, 1, 2},      // 2.5 -> 2
                                    {7, 1, 1, 4},      // 3.5 -> 4
                                    {255, 255, 1, 255},  // 32512 saturates
                                    {255, 255, 16, 1},   // 65025 / 65536
                                    {255, 255, 17, 0},   // fill
                                    {128, 1, 8, 0},      // 0.5 -> 0
                                    {128, 3, 8, 2},      // 1.5 -> 2
                                    {64, 10, 8, 2},      // 2.5 -> 2
                                    {255, 128, 16, 0},   // 32640 / 65536 just under a half
                                    {255, 255, 0, 255},
                                    {15, 17, 0, 255},    // 255 exactly
                                    {3, 5, 0, 15},
                                    {1, 1, -8, 255},
                                    {0, 200, -8, 0},
                                    {200, 0, -30, 0},
                                    {1, 1, -7, 128},
                                    {1, 2, -7, 255},
                                    {31, 1, -3, 248},
                                    {32, 1, -3, 255},
                                });
}

TEST_P(MulInt, WorkedExamples16s) {
  checkExamples<Lum16s>(build(), {
                                     {-1, 1, 1, 0},       // -0.5 -> 0
                                     {-3, 1, 1, -2},      // -1.5 -> -2
                                     {1, -5, 1, -2},      // -2.5 -> -2
                                     {-7, 1, 1, -4},      // -3.5 -> -4
                                     {3, 1, 1, 2},
                                     {-32768, -32768, 30, 1},   // 2^30 / 2^30
                                     {-32768, -32768, 31, 0},   // fill
                                     {-32768, 32767, 30, -1},   // -0.99997
                                     {-32768, -32768, 0, 32767},
                                     {-32768, 32767, 0, -32768},
                                     {-32768, -1, 0, 32767},
                                     {1, -1, -15, -32768},
                                     {-1, -1, -15, 32767},
                                     {0, -7, -15, 0},
                                     {300, 300, -1, 32767},  // 90000 clamped first
                                     {1, 1, -14, 16384},
                                     {-1, 2, -14, -32768},
                                     {-1, 1, -14, -16384},
                                     {-12, 1, 2, -3},        // -3 exactly
                                     {-10, 1, 2, -2},        // -2.5 -> -2
                                     {-6, 1, 2, -2},         // -1.5 -> -2
                                     {-2, 1, 2, 0},          // -0.5 -> 0
                                     {-32767, 32767, 15, -32766},  // -32766.00003
                                     {-32768, -32768, 1, 32767},
                                 });
}

// ---- Layouts ------------------------------------------------------------------------

template <class T>
void checkWidthsAndAlignments(int build) {
  const std::vector<int> factors = Pixel<T>::caseFactors();
  uint32_t seed = 1;
  for (int width = 1; width <= 70; ++width)
    for (size_t c = 0; c < factors.size(); ++c) {
      const int gap = static_cast<int>((width + 5 * c) % 16);
      BinaryLayout l;
      l.width = width;
      l.height = 3;
      l.src1 = {3, (gap * 7) % 16, Against::End};
      l.src2 = {0, (gap + 3) % 16, Against::Start};
      l.dst = {5, gap, c % 2 ? Against::Start : Against::End};
      checkLayout<T>(build, l, factors[c], seed++);
      if (testing::Test::HasFailure()) return;
    }
}

TEST_P(MulInt, Widths1To70AtEveryAlignment8u) { checkWidthsAndAlignments<Lum8u>(build()); }
TEST_P(MulInt, Widths1To70AtEveryAlignment16s) { checkWidthsAndAlignments<Lum16s>(build()); }

template <class T>
void checkLargeAndOddSteps(int build) {
  const int cases[][4] = {// width, height, dst row pad, src row pad (bytes)
                          {1000, 37, 0, 0}, {4096, 3, 13, 4}, {257, 64, 3, 1}, {1, 300, 1, 2},
                          {333, 129, 64, 0}};
  uint32_t seed = 100;
  for (int sf : Pixel<T>::caseFactors())
    for (const auto& c : cases) {
      BinaryLayout l;
      l.width = c[0];
      l.height = c[1];
      l.src1 = {c[3], 1, Against::End};
      l.src2 = {c[3] * 2, 6, Against::Start};
      l.dst = {c[2], 0, Against::End};
      checkLayout<T>(build, l, sf, seed++);
      if (testing::Test::HasFailure()) return;
    }
}

TEST_P(MulInt, LargeRegionsAndPaddedSteps8u) { checkLargeAndOddSteps<Lum8u>(build()); }
TEST_P(MulInt, LargeRegionsAndPaddedSteps16s) { checkLargeAndOddSteps<Lum16s>(build()); }

// Steps are not checked: a zero step reads (or writes) one row again and
// again, a negative one walks up through memory.
template <class T>
void checkZeroAndNegativeSteps(int build) {
  for (int sf : Pixel<T>::caseFactors())
    for (int width : {5, 40, 131}) {
      const int rowBytes = width * static_cast<int>(sizeof(T));
      const int height = 4;
      // The same row in every row, so that a zero-step source is well defined.
      const std::vector<T> rowA = randomPixels<T>(width, 40 + sf), rowB = randomPixels<T>(width, 80 + sf);
      std::vector<T> a, b;
      for (int y = 0; y < height; ++y) {
        a.insert(a.end(), rowA.begin(), rowA.end());
        b.insert(b.end(), rowB.begin(), rowB.end());
      }
      for (int variant = 0; variant < 3; ++variant) {
        BinaryLayout l;
        l.width = width;
        l.height = height;
        if (variant == 0) {  // every operand on one row
          l.src1.step = l.src2.step = l.dst.step = 0;
        } else if (variant == 1) {  // all bottom-up
          l.src1.step = -rowBytes - 3;
          l.src2.step = -rowBytes;
          l.dst.step = -rowBytes - 2 * static_cast<int>(sizeof(T));
        } else {  // sources on one row, destination bottom-up
          l.src1.step = 0;
          l.src2.step = 0;
          l.dst.step = -rowBytes - 1;
          l.dst.gap = 1;
        }
        LumStatus st = 1;
        const std::vector<T> d = runMul(build, l, a, b, sf, &st);
        ASSERT_EQ(st, lumStsNoErr);
        expectReference(a, b, d, sf, "steps variant " + std::to_string(variant));
        if (testing::Test::HasFailure()) return;
      }
    }
}

TEST_P(MulInt, ZeroAndNegativeSteps8u) { checkZeroAndNegativeSteps<Lum8u>(build()); }
TEST_P(MulInt, ZeroAndNegativeSteps16s) { checkZeroAndNegativeSteps<Lum16s>(build()); }

template <class T>
void checkInPlace(int build) {
  for (int sf : Pixel<T>::caseFactors())
    for (int width : {3, 33, 100}) {
      const int height = 5, stride = width + 9;  // pixels per row of the buffers
      const int step = stride * static_cast<int>(sizeof(T));
      const size_t n = static_cast<size_t>(stride) * height;
      const std::vector<T> a = randomPixels<T>(n, 60 + sf), b = randomPixels<T>(n, 90 + width);
      for (int which = 1; which <= 2; ++which) {
        std::vector<T> x = a, y = b;
        T* dst = which == 1 ? x.data() : y.data();
        ASSERT_EQ(Pixel<T>::entry(build)(x.data(), step, y.data(), step, dst, step,
                                         LumSize{width, height}, sf),
                  lumStsNoErr);
        const std::vector<T>& other = which == 1 ? y : x;
        const std::vector<T>& other0 = which == 1 ? b : a;
        ASSERT_EQ(other, other0) << "the source that is not the destination changed";
        for (int r = 0; r < height; ++r)
          for (int i = 0; i < stride; ++i) {
            const size_t k = static_cast<size_t>(r) * stride + i;
            const int want = i < width ? Pixel<T>::reference(a[k], b[k], sf)
                                       : (which == 1 ? a[k] : b[k]);
            ASSERT_EQ(+dst[k], want) << "dst == src" << which << ", scale factor " << sf
                                     << ", width " << width << ", row " << r << ", x " << i;
          }
      }
    }
}

TEST_P(MulInt, InPlace8u) { checkInPlace<Lum8u>(build()); }
TEST_P(MulInt, InPlace16s) { checkInPlace<Lum16s>(build()); }

// ---- Threads ------------------------------------------------------------------------

// Regions on both sides of every parallel threshold: width + height 127 and
// 128, 255 and 256; (height >> 2) + (width >> 4) and (height >> 2) +
// (width >> 3) of 20 and 21.
template <class T>
void checkThreadCounts(int build) {
  const LumSize sizes[] = {{100, 27}, {100, 28}, {200, 55}, {200, 56},
                           {160, 40}, {176, 40}, {80, 40}, {88, 40}, {80, 47}};
  const int factors[] = {0, 1, 2, 9, -3, -30};
  uint32_t seed = 300;
  for (const LumSize& size : sizes)
    for (int sf : factors) {
      BinaryLayout l;
      l.width = size.width;
      l.height = size.height;
      l.src1 = {1, 0, Against::End};
      l.dst = {16, 3, Against::End};
      const size_t n = static_cast<size_t>(l.width) * l.height;
      const std::vector<T> a = randomPixels<T>(n, seed), b = randomPixels<T>(n, seed + 1);
      ++seed;
      std::vector<std::vector<T>> results;
      for (int threads : {1, 2, 4}) {
        lumtest::ThreadCountScope scope(threads);
        LumStatus st = 1;
        results.push_back(runMul(build, l, a, b, sf, &st));
        ASSERT_EQ(st, lumStsNoErr);
      }
      expectReference(a, b, results[0], sf, "one thread");
      ASSERT_EQ(results[0], results[1]) << size.width << "x" << size.height << " sf " << sf;
      ASSERT_EQ(results[0], results[2]) << size.width << "x" << size.height << " sf " << sf;
    }
}

TEST_P(MulInt, ThreadCountsAroundThresholds8u) { checkThreadCounts<Lum8u>(build()); }
TEST_P(MulInt, ThreadCountsAroundThresholds16s) { checkThreadCounts<Lum16s>(build()); }

// ---- Arguments and the all-zero case ------------------------------------------------

template <class T>
void checkArguments(int build) {
  const auto f = Pixel<T>::entry(build);
  T a[8] = {1, 2, 3, 4, 5, 6, 7, 8}, b[8] = {2, 2, 2, 2, 2, 2, 2, 2};
  T d[8];
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
      EXPECT_EQ(f(a, step, b, step, d, step, bad, sf), lumStsSizeErr)
          << bad.width << "x" << bad.height;
    for (T v : d) ASSERT_EQ(v, T(99)) << "a failed call wrote the destination";
  }
  // Any scale factor is accepted; the extremes fall into the sign-only and
  // the fill case.
  EXPECT_EQ(f(a, step, b, step, d, step, {4, 2}, INT_MIN), lumStsNoErr);
  for (T v : d) EXPECT_EQ(+v, Pixel<T>::reference(1, 1, -100));
  EXPECT_EQ(f(a, step, b, step, d, step, {4, 2}, INT_MAX), lumStsNoErr);
  for (T v : d) EXPECT_EQ(v, T(0));
}

TEST_P(MulInt, ArgumentChecks8u) { checkArguments<Lum8u>(build()); }
TEST_P(MulInt, ArgumentChecks16s) { checkArguments<Lum16s>(build()); }

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
      lumtest::GuardedImage d({width, 7, static_cast<int>(sizeof(T)), rowBytes + 5}, Against::End,
                              sf & 15);
      d.load(std::vector<uint8_t>(static_cast<size_t>(rowBytes) * 7, 0x5A));
      EXPECT_EQ(Pixel<T>::entry(build)(unreadable, rowBytes, unreadable, rowBytes, d.origin<T>(),
                                       d.step(), LumSize{width, 7}, sf),
                lumStsNoErr);
      EXPECT_EQ(d.store(), std::vector<uint8_t>(static_cast<size_t>(rowBytes) * 7, 0));
      EXPECT_EQ(d.paddingDamage(), "");
      EXPECT_TRUE(lumtest::x87RegistersFree());
    }
  munmap(none, page);
}

TEST_P(MulInt, ZeroFillReadsNoSource8u) {
  checkZeroFillReadsNoSource<Lum8u>(build(), {17, 18, 31, 40, INT_MAX});
}
TEST_P(MulInt, ZeroFillReadsNoSource16s) {
  checkZeroFillReadsNoSource<Lum16s>(build(), {31, 32, 40, INT_MAX});
}

LUM_INSTANTIATE_PER_BUILD(MulInt);

// ---- Row kernels --------------------------------------------------------------------
// The generic build has none; k1..k5 are called directly at every length
// around their vector thresholds and every destination alignment.

class MulRowKernels : public PerBuild {};

// Calls kernel(a, b, d, len) at every length 1..maxLen, every destination
// offset 0..15 bytes and a few source offsets; checks every pixel against
// want(a, b), the bytes around the row, and the MMX state.
template <class T, class Kernel>
void checkKernel(const char* name, const Kernel& kernel, int sf, int maxLen) {
  constexpr int kPad = 32;
  const int bytes = maxLen * static_cast<int>(sizeof(T)) + 2 * kPad;
  std::vector<uint8_t> bufA(bytes + 16), bufB(bytes + 16), bufD(bytes + 16);
  const std::vector<T> a = randomPixels<T>(maxLen, 500 + sf), b = randomPixels<T>(maxLen, 900 - sf);
  const int srcOffsets[][2] = {{0, 0}, {1, 0}, {0, 6}, {5, 11}};
  // Data addresses relative to a 16-byte boundary.
  const auto at = [](std::vector<uint8_t>& buf, int offset) {
    const uintptr_t base = (reinterpret_cast<uintptr_t>(buf.data()) + 15) & ~uintptr_t(15);
    return reinterpret_cast<uint8_t*>(base) + kPad + offset;
  };
  for (int len = 1; len <= maxLen; ++len)
    for (const auto& so : srcOffsets)
      for (int offD = 0; offD < 16; ++offD) {
        uint8_t* pa = at(bufA, so[0]);
        uint8_t* pb = at(bufB, so[1]);
        uint8_t* pd = at(bufD, offD);
        std::memcpy(pa, a.data(), len * sizeof(T));
        std::memcpy(pb, b.data(), len * sizeof(T));
        std::memset(bufD.data(), 0xA5, bufD.size());
        kernel(reinterpret_cast<const T*>(pa), reinterpret_cast<const T*>(pb),
               reinterpret_cast<T*>(pd), len);
        ASSERT_TRUE(lumtest::x87RegistersFree()) << name << " left the MMX state uncleared";
        for (int i = 0; i < len; ++i) {
          T got;
          std::memcpy(&got, pd + i * sizeof(T), sizeof(T));
          ASSERT_EQ(+got, Pixel<T>::reference(a[i], b[i], sf))
              << name << " scale factor " << sf << ", len " << len << ", pixel " << i
              << ", dst offset " << offD << ", src offsets " << so[0] << "," << so[1];
        }
        for (uint8_t* p = bufD.data(); p < pd; ++p)
          ASSERT_EQ(*p, 0xA5) << name << " len " << len << ": wrote before the row";
        for (uint8_t* p = pd + len * sizeof(T); p < bufD.data() + bufD.size(); ++p)
          ASSERT_EQ(*p, 0xA5) << name << " len " << len << ": wrote past the row";
      }
}

// Longest row tried: past the largest minimum row (47) by two blocks of 32.
constexpr int kMaxKernelLen = 112;

TEST_P(MulRowKernels, Kernels8u) {
  const int k = build();
  using K = void (*)(const Lum8u*, const Lum8u*, Lum8u*, int);
  using KS = void (*)(const Lum8u*, const Lum8u*, Lum8u*, int, int);
  const K plain[] = LUM_PER_VECTOR_BUILD(ownsMul_8u);
  const K half[] = LUM_PER_VECTOR_BUILD(ownsMul_8u_1Sfs);
  const KS pos[] = LUM_PER_VECTOR_BUILD(ownsMul_8u_PosSfs);
  const KS neg[] = LUM_PER_VECTOR_BUILD(ownsMul_8u_NegSfs);
  const K bound[] = LUM_PER_VECTOR_BUILD(ownsMul_8u_Bound);
  checkKernel<Lum8u>("ownsMul_8u", plain[k], 0, kMaxKernelLen);
  checkKernel<Lum8u>("ownsMul_8u_1Sfs", half[k], 1, kMaxKernelLen);
  for (int s = 2; s <= 16; ++s)
    checkKernel<Lum8u>("ownsMul_8u_PosSfs",
                       [&](auto a, auto b, auto d, int n) { pos[k](a, b, d, n, s); }, s, 70);
  for (int sh = 1; sh <= 7; ++sh)
    checkKernel<Lum8u>("ownsMul_8u_NegSfs",
                       [&](auto a, auto b, auto d, int n) { neg[k](a, b, d, n, sh); }, -sh, 70);
  checkKernel<Lum8u>("ownsMul_8u_Bound", bound[k], -8, kMaxKernelLen);
}

TEST_P(MulRowKernels, Kernels16s) {
  const int k = build();
  using K = void (*)(const Lum16s*, const Lum16s*, Lum16s*, int);
  using KS = void (*)(const Lum16s*, const Lum16s*, Lum16s*, int, int);
  const K plain[] = LUM_PER_VECTOR_BUILD(ownsMul_16s);
  const K half[] = LUM_PER_VECTOR_BUILD(ownsMul_16s_1Sfs);
  const KS pos[] = LUM_PER_VECTOR_BUILD(ownsMul_16s_PosSfs);
  const KS neg[] = LUM_PER_VECTOR_BUILD(ownsMul_16s_NegSfs);
  const K bound[] = LUM_PER_VECTOR_BUILD(ownsMul_16s_Bound);
  checkKernel<Lum16s>("ownsMul_16s", plain[k], 0, 60);
  checkKernel<Lum16s>("ownsMul_16s_1Sfs", half[k], 1, 60);
  for (int s = 2; s <= 30; ++s)
    checkKernel<Lum16s>("ownsMul_16s_PosSfs",
                        [&](auto a, auto b, auto d, int n) { pos[k](a, b, d, n, s); }, s, 40);
  for (int sh = 1; sh <= 14; ++sh)
    checkKernel<Lum16s>("ownsMul_16s_NegSfs",
                        [&](auto a, auto b, auto d, int n) { neg[k](a, b, d, n, sh); }, -sh, 40);
  checkKernel<Lum16s>("ownsMul_16s_Bound", bound[k], -15, 60);
}

INSTANTIATE_TEST_SUITE_P(VectorBuilds, MulRowKernels, testing::Values(1, 2, 3, 4, 5),
                         lumtest::BuildName());

}  // namespace
