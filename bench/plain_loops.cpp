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

}  // namespace lumbench
