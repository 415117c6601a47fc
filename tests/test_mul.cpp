// The multiplications of every build, and the fill they use for all-zero results, through the
// harness against exact references: the scaled 8u and 16s one of support/scaled_reference.h, and
// for floats the product in double (exact) rounded once to float.
#include <type_traits>

#include "core/lum_internal.h"
#include "support/builds.h"
#include "support/cases.h"

namespace {

using namespace lumtest;

// One scale factor of every case, the shifts moving with salt: plain, 1, right shift, left shift,
// sign only, all zero.
template <class T>
Case<T> mulCaseAt(int build, int i, int salt) {
  const int right = sizeof(T) == 1 ? 15 : 29, left = sizeof(T) == 1 ? 7 : 14;
  const int f[] = {
      0, 1, 2 + salt % right, -1 - salt % left, -left - 1 - salt % 5, right + 2 + salt % 5};
  return mulCase<T>(build, f[i]);
}

// The reference against answers worked out by hand (round half to even, then saturate); 8u or 16s.
TEST(ScaledReference, WorkedExamples) {
  const int examples[][5] = {{1, 1, 1, 0, 8},
                             {1, 3, 1, 2, 8},
                             {5, 1, 1, 2, 8},
                             {7, 1, 1, 4, 8},
                             {255, 255, 1, 255, 8},
                             {255, 255, 16, 1, 8},
                             {255, 255, 17, 0, 8},
                             {255, 128, 16, 0, 8},
                             {15, 17, 0, 255, 8},
                             {1, 1, -7, 128, 8},
                             {1, 2, -7, 255, 8},
                             {31, 1, -3, 248, 8},
                             {200, 0, -30, 0, 8},
                             {-1, 1, 1, 0, 16},
                             {-3, 1, 1, -2, 16},
                             {1, -5, 1, -2, 16},
                             {-7, 1, 1, -4, 16},
                             {-32768, -32768, 30, 1, 16},
                             {-32768, -32768, 31, 0, 16},
                             {-32768, 32767, 30, -1, 16},
                             {-32768, -1, 0, 32767, 16},
                             {1, -1, -15, -32768, 16},
                             {300, 300, -1, 32767, 16},
                             {-1, 1, -14, -16384, 16},
                             {-10, 1, 2, -2, 16},
                             {-6, 1, 2, -2, 16},
                             {-32767, 32767, 15, -32766, 16},
                             {-32768, -32768, -35, 32767, 16},
                             {-32768, 32767, -33, -32768, 16},
                             {1, 1, -33, 32767, 16}};
  for (const auto& e : examples)
    EXPECT_EQ(scaledReference(e[0], e[1], e[2], e[4] == 8 ? 0 : -32768, e[4] == 8 ? 255 : 32767),
              e[3])
        << e[0] << "*" << e[1] << " sf " << e[2];
}

class Mul : public PerBuild {};

TEST_P(Mul, Harness8u) {
  checkAll<Lum8u>(build(), 6, [&](int i, int salt) { return mulCaseAt<Lum8u>(build(), i, salt); });
}
TEST_P(Mul, Harness16s) {
  checkAll<Lum16s>(build(), 6,
                   [&](int i, int salt) { return mulCaseAt<Lum16s>(build(), i, salt); });
}
TEST_P(Mul, Harness32f) {
  checkAll<Lum32f>(build(), 1, [&](int, int) { return mulCase<Lum32f>(build(), 0); });
}
TEST_P(Mul, HarnessFill) {
  checkAll<Lum8u>(build(), 2,
                  [&](int i, int salt) { return fillCase<Lum8u>(build(), i * (0xA5 + salt)); });
  checkAll<Lum16s>(build(), 2, [&](int i, int salt) {
    return fillCase<Lum16s>(build(), i * (0x1234 + 0x101 * salt));
  });
}

// Every pair of byte values (a 256 x 256 image pair holds each once), and 128 16s values, the
// extremes first, crossed with each other in both orders at odd destination starts; at every scale
// factor from -20 to 40 and the extremes.
TEST_P(Mul, EveryScaleFactorOnEvery8uPairAndExtreme16sCrossed) {
  std::vector<Lum8u> ab(2 * 65536);
  std::vector<Lum16s> values = {-32768, -32767, -1, 0, 1, 32767}, xy(2 * 128 * 128);
  std::mt19937 rng(5);
  while (values.size() < 128) values.push_back(Lum16s(rng()));
  for (int i = 0; i < 65536; ++i) ab[i] = Lum8u(i >> 8), ab[65536 + i] = Lum8u(i);
  for (int i = 0; i < 128 * 128; ++i) xy[i] = values[i / 128], xy[128 * 128 + i] = values[i % 128];
  for (int k = -22; k <= 40 && !HasFailure(); ++k) {
    const int sf = k == -22 ? INT_MIN : k == -21 ? INT_MAX : k;
    const Layout l8u{
        256, 256, {{256, k & 15}, {259, k * 5 & 15, true}}, {256 + (k & 1) * 16, k * 3 & 15}},
        l16s{128, 128, {{258, (k & 7) * 2}, {256, k & 15, true}}, {262, k * 3 & 15}};
    run(build(), mulCase<Lum8u>(build(), sf), l8u, 1, kEnvs[0], &ab);
    run(build(), mulCase<Lum16s>(build(), sf), l16s, 1, kEnvs[0], &xy);
  }
}

// 2 MiB exactly (ordinary stores) and more (streaming stores in k2..k5): contiguous 8u rows (one
// long row), rows apart, 16s rows at odd starts.
TEST_P(Mul, FillAroundTheStreamingSize) {
  const int sizes[][4] = {
      {1024, 2048, 1024, 0}, {1025, 2047, 1025, 7}, {1024, 2048, 1030, 5}, {4097, 512, 4100, 9}};
  for (const auto& s : sizes)
    run(build(), fillCase<Lum8u>(build(), 0x5E), {s[0], s[1], {}, {s[2], s[3]}});
  run(build(), fillCase<Lum16s>(build(), -300), {1024, 1024, {}, {2048, 1}});
  run(build(), fillCase<Lum16s>(build(), -300), {1025, 1024, {}, {2051, 1, true}});
}

LUM_INSTANTIATE_PER_BUILD(Mul);

}  // namespace
