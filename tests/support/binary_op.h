// Runs a two-source image function (pSrc1, src1Step, pSrc2, src2Step, pDst,
// dstStep, roiSize[, ...]) on guarded operands and checks what every such
// call must keep: no byte outside the destination region written, sources
// unchanged, the floating-point control state as it was.
#ifndef LUM_TESTS_SUPPORT_BINARY_OP_H
#define LUM_TESTS_SUPPORT_BINARY_OP_H

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#include "fp_env.h"
#include "guarded.h"
#include "lum.h"

namespace lumtest {

// Marks an operand whose step follows from the width and rowPad.
constexpr int kStepFromWidth = INT32_MIN;

// Where the three operands lie: extra bytes per row beyond the region, the
// gap to the guard page (which sets the start's alignment) and the guard the
// operand is placed against. `step`, when given, replaces width plus rowPad
// (zero and negative steps included).
struct OperandLayout {
  int rowPad = 0;
  int gap = 0;
  Against against = Against::End;
  int step = kStepFromWidth;
};

struct BinaryLayout {
  int width = 1;
  int height = 1;
  OperandLayout src1, src2, dst;
};

template <class T>
int stepOf(const BinaryLayout& l, const OperandLayout& o) {
  if (o.step != kStepFromWidth) return o.step;
  return l.width * static_cast<int>(sizeof(T)) + o.rowPad;
}

template <class T>
std::vector<uint8_t> toBytes(const std::vector<T>& v) {
  std::vector<uint8_t> out(v.size() * sizeof(T));
  std::memcpy(out.data(), v.data(), out.size());
  return out;
}

template <class T>
std::vector<T> fromBytes(const std::vector<uint8_t>& v) {
  std::vector<T> out(v.size() / sizeof(T));
  std::memcpy(out.data(), v.data(), v.size());
  return out;
}

// Calls fn(src1, step1, src2, step2, dst, stepD, size) with the sources
// loaded from a and b and the destination preset to `dstInit`. Returns the
// destination region's pixels; *status receives fn's result.
template <class T, class Fn>
std::vector<T> runBinary(const BinaryLayout& l, const std::vector<T>& a, const std::vector<T>& b,
                         const std::vector<T>& dstInit, Fn fn, LumStatus* status) {
  const int px = static_cast<int>(sizeof(T));
  GuardedImage s1({l.width, l.height, px, stepOf<T>(l, l.src1)}, l.src1.against, l.src1.gap);
  GuardedImage s2({l.width, l.height, px, stepOf<T>(l, l.src2)}, l.src2.against, l.src2.gap);
  GuardedImage d({l.width, l.height, px, stepOf<T>(l, l.dst)}, l.dst.against, l.dst.gap);
  s1.load(toBytes(a));
  s2.load(toBytes(b));
  d.load(toBytes(dstInit));
  s1.protect(true);
  s2.protect(true);

  const FpControl before = readFpControl();
  *status = fn(s1.origin<T>(), s1.step(), s2.origin<T>(), s2.step(), d.origin<T>(), d.step(),
               LumSize{l.width, l.height});
  EXPECT_EQ(readFpControl(), before) << "the call changed the floating-point control state";
  EXPECT_TRUE(x87RegistersFree()) << "the call left the MMX state uncleared";
  EXPECT_EQ(d.paddingDamage(), "") << "bytes outside the destination region were written";
  EXPECT_EQ(s1.paddingDamage(), "");
  EXPECT_EQ(s2.paddingDamage(), "");
  EXPECT_EQ(s1.store(), toBytes(a)) << "first source changed";
  EXPECT_EQ(s2.store(), toBytes(b)) << "second source changed";
  return fromBytes<T>(d.store());
}

}  // namespace lumtest

#endif
