#include "plain_loops.h"

namespace lumbench {

namespace {
template <class T>
T* row(T* p, int step, int y) {
  return reinterpret_cast<T*>(reinterpret_cast<char*>(const_cast<void*>(
                                  static_cast<const void*>(p))) + static_cast<long>(y) * step);
}
}  // namespace

void plainMul_32f(const Lum32f* a, int aStep, const Lum32f* b, int bStep, Lum32f* d, int dStep,
                  LumSize size) {
  for (int y = 0; y < size.height; ++y) {
    const Lum32f* __restrict ra = row(a, aStep, y);
    const Lum32f* __restrict rb = row(b, bStep, y);
    Lum32f* __restrict rd = row(d, dStep, y);
    for (int x = 0; x < size.width; ++x) rd[x] = ra[x] * rb[x];
  }
}

namespace {

inline int clampTo(int v, int lo, int hi) { return v < lo ? lo : (v > hi ? hi : v); }

// The rule for one product, the case picked by the scale factor; the
// callers pick the case once per image so that each inner loop is simple.
template <class T, class Rule>
void plainRows(const T* a, int aStep, const T* b, int bStep, T* d, int dStep, LumSize size,
               const Rule& rule) {
  for (int y = 0; y < size.height; ++y) {
    const T* __restrict ra = row(a, aStep, y);
    const T* __restrict rb = row(b, bStep, y);
    T* __restrict rd = row(d, dStep, y);
    for (int x = 0; x < size.width; ++x) rd[x] = static_cast<T>(rule(ra[x] * rb[x]));
  }
}

template <class T>
void plainMulSfs(const T* a, int aStep, const T* b, int bStep, T* d, int dStep, LumSize size,
                 int sf, int lo, int hi) {
  if (sf == 0) {
    plainRows(a, aStep, b, bStep, d, dStep, size, [=](int p) { return clampTo(p, lo, hi); });
  } else if (sf > 30) {  // every product rounds to 0
    plainRows(a, aStep, b, bStep, d, dStep, size, [](int) { return 0; });
  } else if (sf > 0) {
    const int half = (1 << (sf - 1)) - 1;
    plainRows(a, aStep, b, bStep, d, dStep, size, [=](int p) {
      return clampTo((p + half + ((p >> sf) & 1)) >> sf, lo, hi);
    });
  } else {
    const int k = -sf > 16 ? 16 : -sf;
    plainRows(a, aStep, b, bStep, d, dStep, size,
              [=](int p) { return clampTo(clampTo(p, lo, hi) * (1 << k), lo, hi); });
  }
}

}  // namespace

void plainMul_8u_Sfs(const Lum8u* a, int aStep, const Lum8u* b, int bStep, Lum8u* d, int dStep,
                     LumSize size, int scaleFactor) {
  plainMulSfs(a, aStep, b, bStep, d, dStep, size, scaleFactor, 0, 255);
}

void plainMul_16s_Sfs(const Lum16s* a, int aStep, const Lum16s* b, int bStep, Lum16s* d,
                      int dStep, LumSize size, int scaleFactor) {
  plainMulSfs(a, aStep, b, bStep, d, dStep, size, scaleFactor, -32768, 32767);
}

}  // namespace lumbench
