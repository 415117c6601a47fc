#include "plain_loops.h"

namespace lumbench {

namespace {

template <class T>
T* row(T* p, int step, int y) {
  return reinterpret_cast<T*>(
      reinterpret_cast<char*>(const_cast<void*>(static_cast<const void*>(p))) +
      static_cast<long>(y) * step);
}

// d = op(a, b) pixel by pixel, row by row: the loop every plain reference is.
template <class T, class Op>
void plainRows(const T* a, int aStep, const T* b, int bStep, T* d, int dStep, LumSize size,
               const Op& op) {
  for (int y = 0; y < size.height; ++y) {
    const T* __restrict ra = row(a, aStep, y);
    const T* __restrict rb = row(b, bStep, y);
    T* __restrict rd = row(d, dStep, y);
    for (int x = 0; x < size.width; ++x) rd[x] = static_cast<T>(op(ra[x], rb[x]));
  }
}

inline int clampTo(int v, int lo, int hi) { return v < lo ? lo : (v > hi ? hi : v); }

// The rule for one product, the case picked by the scale factor; the
// callers pick the case once per image so that each inner loop is simple.
template <class T>
void plainMulSfs(const T* a, int aStep, const T* b, int bStep, T* d, int dStep, LumSize size,
                 int sf, int lo, int hi) {
  const auto byProduct = [&](const auto& rule) {
    plainRows(a, aStep, b, bStep, d, dStep, size, [&](int x, int y) { return rule(x * y); });
  };
  if (sf == 0) {
    byProduct([=](int p) { return clampTo(p, lo, hi); });
  } else if (sf > 30) {  // every product rounds to 0
    byProduct([](int) { return 0; });
  } else if (sf > 0) {
    const int half = (1 << (sf - 1)) - 1;
    byProduct([=](int p) { return clampTo((p + half + ((p >> sf) & 1)) >> sf, lo, hi); });
  } else {
    const int k = -sf > 16 ? 16 : -sf;
    byProduct([=](int p) { return clampTo(clampTo(p, lo, hi) * (1 << k), lo, hi); });
  }
}

// The quotient in double (exact enough: both operands have 16 bits or
// fewer) rounded by the current mode, nearest with ties to even.
template <class T>
void plainDivSfs(const T* a, int aStep, const T* b, int bStep, T* d, int dStep, LumSize size,
                 int sf, int lo, int hi) {
  const double f = __builtin_ldexp(1.0, sf < -60 ? 60 : (sf > 60 ? -60 : -sf));
  plainRows(a, aStep, b, bStep, d, dStep, size, [=](int x, int y) {
    if (x == 0) return y > 0 ? hi : (y < 0 ? lo : 0);
    const double q = __builtin_nearbyint(y * f / x);
    return q < lo ? lo : (q > hi ? hi : static_cast<int>(q));
  });
}

template <class T>
void plainFilter(const T* src, int srcStep, T* dst, int dstStep, LumSize size, const float* k,
                 LumSize ks, LumPoint a, float lo, float hi) {
  for (int y = 0; y < size.height; ++y) {
    T* __restrict rd = row(dst, dstStep, y);
    for (int x = 0; x < size.width; ++x) {
      float sum = 0.0f;
      for (int j = ks.height - 1; j >= 0; --j) {
        const T* rs = row(src, srcStep, y + a.y - j);
        for (int i = ks.width - 1; i >= 0; --i) sum += k[j * ks.width + i] * rs[x + a.x - i];
      }
      if (lo < hi) sum = __builtin_nearbyintf(sum < lo ? lo : (sum > hi ? hi : sum));
      rd[x] = static_cast<T>(sum);
    }
  }
}

}  // namespace

void plainFilter_8u(const Lum8u* src, int srcStep, Lum8u* dst, int dstStep, LumSize size,
                    const Lum32f* kernel, LumSize kernelSize, LumPoint anchor) {
  plainFilter(src, srcStep, dst, dstStep, size, kernel, kernelSize, anchor, 0.0f, 255.0f);
}

void plainFilter_16s(const Lum16s* src, int srcStep, Lum16s* dst, int dstStep, LumSize size,
                     const Lum32f* kernel, LumSize kernelSize, LumPoint anchor) {
  plainFilter(src, srcStep, dst, dstStep, size, kernel, kernelSize, anchor, -32768.0f, 32767.0f);
}

void plainFilter_32f(const Lum32f* src, int srcStep, Lum32f* dst, int dstStep, LumSize size,
                     const Lum32f* kernel, LumSize kernelSize, LumPoint anchor) {
  plainFilter(src, srcStep, dst, dstStep, size, kernel, kernelSize, anchor, 0.0f, 0.0f);
}

void plainMul_32f(const Lum32f* a, int aStep, const Lum32f* b, int bStep, Lum32f* d, int dStep,
                  LumSize size) {
  plainRows(a, aStep, b, bStep, d, dStep, size, [](float x, float y) { return x * y; });
}

void plainMul_8u_Sfs(const Lum8u* a, int aStep, const Lum8u* b, int bStep, Lum8u* d, int dStep,
                     LumSize size, int scaleFactor) {
  plainMulSfs(a, aStep, b, bStep, d, dStep, size, scaleFactor, 0, 255);
}

void plainMul_16s_Sfs(const Lum16s* a, int aStep, const Lum16s* b, int bStep, Lum16s* d, int dStep,
                      LumSize size, int scaleFactor) {
  plainMulSfs(a, aStep, b, bStep, d, dStep, size, scaleFactor, -32768, 32767);
}

void plainAbsDiff_8u(const Lum8u* a, int aStep, const Lum8u* b, int bStep, Lum8u* d, int dStep,
                     LumSize size) {
  plainRows(a, aStep, b, bStep, d, dStep, size, [](int x, int y) { return x > y ? x - y : y - x; });
}

void plainAbsDiff_32f(const Lum32f* a, int aStep, const Lum32f* b, int bStep, Lum32f* d, int dStep,
                      LumSize size) {
  plainRows(a, aStep, b, bStep, d, dStep, size,
            [](float x, float y) { return __builtin_fabsf(x - y); });
}

void plainDiv_8u_Sfs(const Lum8u* a, int aStep, const Lum8u* b, int bStep, Lum8u* d, int dStep,
                     LumSize size, int scaleFactor) {
  plainDivSfs(a, aStep, b, bStep, d, dStep, size, scaleFactor, 0, 255);
}

void plainDiv_16s_Sfs(const Lum16s* a, int aStep, const Lum16s* b, int bStep, Lum16s* d, int dStep,
                      LumSize size, int scaleFactor) {
  plainDivSfs(a, aStep, b, bStep, d, dStep, size, scaleFactor, -32768, 32767);
}

void plainDiv_32f(const Lum32f* a, int aStep, const Lum32f* b, int bStep, Lum32f* d, int dStep,
                  LumSize size) {
  // The quotient as the division instruction gives it, which the compiler
  // vectorises: the same as the rule but for a negative zero divisor (the
  // rule takes the sign of the dividend alone), which the benchmarks'
  // divisors never hold.
  plainRows(a, aStep, b, bStep, d, dStep, size, [](float x, float y) { return y / x; });
}

}  // namespace lumbench
