// Runs a two-source image function (pSrc1, src1Step, pSrc2, src2Step, pDst,
// dstStep, roiSize[, ...]) on guarded operands and checks what every such
// call must keep: no byte outside the destination region written, sources
// unchanged, the floating-point control and MMX state as they were.
#ifndef LUM_TESTS_SUPPORT_BINARY_OP_H
#define LUM_TESTS_SUPPORT_BINARY_OP_H

#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

#include "fp_env.h"
#include "guarded.h"
#include "lum.h"

namespace lumtest {

// Where an operand lies: extra bytes per row beyond the region, the gap to
// the guard page (which sets the start's alignment) and the guard it is
// placed against. `step`, when given, replaces width plus rowPad (zero and
// negative steps included).
struct OperandLayout {
  int rowPad = 0;
  int gap = 0;
  Against against = Against::End;
  int step = INT_MIN;
};

struct BinaryLayout {
  int width = 1;
  int height = 1;
  OperandLayout src1, src2, dst;
};

template <class T>
std::vector<uint8_t> toBytes(const std::vector<T>& v) {
  std::vector<uint8_t> out(v.size() * sizeof(T));
  std::memcpy(out.data(), v.data(), out.size());
  return out;
}

// Calls fn(src1, step1, src2, step2, dst, stepD, size) with the sources
// loaded from a and b and the destination preset to `dstInit`. Returns the
// destination region's pixels; *status receives fn's result.
template <class T, class Fn>
std::vector<T> runBinary(const BinaryLayout& l, const std::vector<T>& a, const std::vector<T>& b,
                         const std::vector<T>& dstInit, Fn fn, LumStatus* status) {
  const int px = static_cast<int>(sizeof(T));
  const auto image = [&](const OperandLayout& o, const std::vector<T>& pixels) {
    const int step = o.step != INT_MIN ? o.step : l.width * px + o.rowPad;
    auto* g = new GuardedImage({l.width, l.height, px, step}, o.against, o.gap);
    g->load(toBytes(pixels));
    return std::unique_ptr<GuardedImage>(g);
  };
  const std::unique_ptr<GuardedImage> s1 = image(l.src1, a), s2 = image(l.src2, b), d = image(l.dst, dstInit);
  s1->protect(true);
  s2->protect(true);
  const FpControl before = readFpControl();
  *status = fn(s1->origin<T>(), s1->step(), s2->origin<T>(), s2->step(), d->origin<T>(), d->step(),
               LumSize{l.width, l.height});
  EXPECT_EQ(readFpControl(), before) << "the call changed the floating-point control state";
  EXPECT_TRUE(x87RegistersFree()) << "the call left the MMX state uncleared";
  EXPECT_EQ(d->paddingDamage(), "") << "bytes outside the destination region were written";
  EXPECT_EQ(s1->paddingDamage() + s2->paddingDamage(), "");
  EXPECT_EQ(s1->store(), toBytes(a)) << "first source changed";
  EXPECT_EQ(s2->store(), toBytes(b)) << "second source changed";
  const std::vector<uint8_t> bytes = d->store();
  std::vector<T> out(bytes.size() / sizeof(T));
  std::memcpy(out.data(), bytes.data(), bytes.size());
  return out;
}

}  // namespace lumtest

#endif
