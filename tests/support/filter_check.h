// The float-kernel filters checked against the formula worked out here: each destination pixel the
// sum of K[j][i] * S(x + ax - i, y + ay - j), j and i from the last down (rows of the window from
// the top, pixels left to right), in long double for k0/k1 and in SSE single precision for k2..k5,
// then the integer rule as plain rounding to nearest even with saturation (NaN 0); and within a
// tolerance of a double-precision sum. Sources lie in windows with inaccessible pages on all four
// sides. Shared by the filters' tests and their fuzz target.
#ifndef LUM_TESTS_SUPPORT_FILTER_CHECK_H
#define LUM_TESTS_SUPPORT_FILTER_CHECK_H

#include <sys/mman.h>
#include <unistd.h>
#include <xmmintrin.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <random>
#include <vector>

#include "support/alloc_hooks.h"
#include "support/harness.h"

namespace lumtest {

template <class T>
auto entry(int b) {
  if constexpr (sizeof(T) == 1)
    return lumiFilter32f_8u_C1R_arraddr[b];
  else if constexpr (sizeof(T) == 2)
    return lumiFilter32f_16s_C1R_arraddr[b];
  else
    return lumiFilter_32f_C1R_arraddr[b];
}

// Window rows of `bytes`: 0/1 one block, step = bytes, against its end/start guard page; 2/3 each
// row alone in a page between inaccessible ones, against its end/start; 4 one block of padded rows.
struct Window {
  Window(size_t bytes, int rows, int layout)
      : page(sysconf(_SC_PAGESIZE)), step(layout / 2 == 1 ? 2 * page : bytes + 12 * (layout == 4)) {
    const bool alone = layout / 2 == 1;
    const size_t span = (rows - 1) * step + bytes,
                 body = alone ? (2 * rows - 1) * page : (span + page - 1) / page * page;
    map = static_cast<uint8_t*>(
        mmap(nullptr, size = body + 2 * page, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    for (int r = 0; r < (alone ? rows : 1); ++r)
      mprotect(map + (2 * r + 1) * page, alone ? page : body, PROT_READ | PROT_WRITE);
    first = map + page + (layout % 2 || layout == 4 ? 0 : alone ? page - bytes : body - span);
  }
  ~Window() { munmap(map, size); }
  size_t page, step, size;
  uint8_t *map, *first;
};

// A call: region, kernel size and anchor, window layout, threads, environment (kEnvs), the kernel
// (random where not given), source pixels all `fill` or, with `pixels`, their bytes over and over,
// else random; a nonzero seed restarts the random values.
struct Call {
  int w, h, kw, kh, ax, ay, layout = 0, threads = 1, env = 0;
  std::vector<float> kernel{};
  int fill = -1;
  uint32_t seed = 0;
  const std::vector<uint8_t>* pixels = nullptr;
};

// The sum of the terms in their order: x87 extended (k0, k1) or SSE single precision (k2..k5) under
// the environment in force; and the double sum with the sum of magnitudes, for the tolerance.
__attribute__((target("sse"))) inline float sseSum(const float* k, const float* s, size_t n) {
  __m128 a = _mm_setzero_ps();
  for (size_t i = 0; i < n; ++i)
    a = _mm_add_ss(a, _mm_mul_ss(_mm_load_ss(s + i), _mm_load_ss(k + i)));
  return _mm_cvtss_f32(a);
}
__attribute__((target("sse"))) inline int sseRound(float s) {
  return _mm_cvtss_si32(_mm_set_ss(s));
}  // under the SSE rounding
inline long double x87Sum(const float* k, const float* s, size_t n) {
  long double a = 0;
  for (size_t i = 0; i < n; ++i) a += (long double)k[i] * s[i];
  return a;
}
template <class T>
T toPixel(long double s) {  // nearest, ties to even (the default mode), saturated; NaN 0
  if (sizeof(T) == 4) return T(s);
  const long double lo = sizeof(T) == 1 ? 0 : -32768, hi = sizeof(T) == 1 ? 255 : 32767;
  return std::isnan(s) ? T(0) : T(std::fmin(hi, std::fmax(lo, std::nearbyintl(s))));
}

// One call in `build`, checked whole: status 0, the caller's control state and exception flags
// kept, every pixel, the destination's padding untouched. Source pixels random (or all `fill`),
// kernel random when not given.
template <class T>
std::vector<T> checkFilter(int build, Call c) {
  static std::mt19937 g(7);
  if (c.seed) g.seed(c.seed);
  const int P = sizeof(T), W = c.w + c.kw - 1, H = c.h + c.kh - 1,
            dstStep = c.w * P + 3 * P * (c.layout % 2);
  const bool quarters = g() % 2;  // coefficients in quarters: sums exact, ties frequent
  for (size_t i = c.kernel.size(); i < size_t(c.kw * c.kh); ++i)
    c.kernel.push_back(quarters ? float(int(g() % 9) - 4) / 4
                                : std::uniform_real_distribution<float>(-1, 1)(g));
  Window win(W * P, H, c.layout);
  std::vector<T> s(W * H);
  for (T& v : s)
    v = c.fill >= 0 ? T(c.fill)
        : P == 4    ? T(std::uniform_real_distribution<float>(-100, 100)(g))
                    : T(g());
  for (size_t i = 0; c.pixels && !c.pixels->empty() && i < s.size() * P; ++i)
    reinterpret_cast<uint8_t*>(s.data())[i] = (*c.pixels)[i % c.pixels->size()];
  for (int r = 0; r < H; ++r) std::memcpy(win.first + r * win.step, &s[r * W], W * P);
  std::vector<uint8_t> dst(dstStep * c.h + 16);
  for (auto& b : dst) b = uint8_t(g());
  std::vector<uint8_t> before = dst;
  const T* src = reinterpret_cast<const T*>(win.first + (c.kh - 1 - c.ay) * ptrdiff_t(win.step)) +
                 (c.kw - 1 - c.ax);
  T* d = reinterpret_cast<T*>(dst.data() + 8);
  ThreadCountScope threads(c.threads);
  FpAroundCall fp(kEnvs[c.env]);
  const LumStatus st = entry<T>(build)(src, int(win.step), d, dstStep, {c.w, c.h}, c.kernel.data(),
                                       {c.kw, c.kh}, {c.ax, c.ay});
  fp.called();
  // k1's fast paths (kernel 3 or more wide, region 16 or more, for 16s magnitudes summing to at
  // most 32767, scratch to be had) sum in single precision as k2..k5 do; its 16s one rounds under
  // the SSE rounding mode.
  float magnitudes = 0;
  for (float k : c.kernel) magnitudes += std::fabs(k);
  const bool k1Fast = build == 1 && c.kw >= 3 && c.w >= 16 && (P != 2 || !(magnitudes > 32767)) &&
                      !(i_malloc == CountingHooks::alloc && CountingHooks::fail);
  const auto S = [&](int u, int v) {
    return float(s[(v + c.kh - 1 - c.ay) * W + u + c.kw - 1 - c.ax]);
  };
  std::vector<T> got(c.w * c.h), want(got.size());
  std::vector<long double> sums(got.size());
  std::vector<double> exact(got.size()), magnitude(got.size());
  for (int y = 0, i = 0; y < c.h; ++y)
    for (int x = 0; x < c.w; ++x, ++i) {
      std::vector<float> k, p;
      for (int j = c.kh - 1; j >= 0; --j)
        for (int ii = c.kw - 1; ii >= 0; --ii)
          k.push_back(c.kernel[j * c.kw + ii]), p.push_back(S(x + c.ax - ii, y + c.ay - j));
      for (size_t t = 0; t < k.size(); ++t)
        exact[i] += double(k[t]) * p[t], magnitude[i] += std::fabs(double(k[t]) * p[t]);
      sums[i] = build < 2 && !k1Fast ? x87Sum(k.data(), p.data(), k.size())
                                     : sseSum(k.data(), p.data(), k.size());
      if (P == 4) want[i] = T(sums[i]);  // rounded under the caller's mode
      if (P == 2 && k1Fast)
        want[i] = T(std::isnan(sums[i]) ? 0 : std::clamp(sseRound(float(sums[i])), -32768, 32767));
      std::memcpy(&got[i], dst.data() + 8 + y * dstStep + x * P, P);
      std::memset(dst.data() + 8 + y * dstStep + x * P, 0, P),
          std::memset(&before[8 + y * dstStep + x * P], 0, P);
    }
  fp.restore();
  char where[160];
  std::snprintf(where, sizeof where,
                "k%d %d-bit %dx%d kernel %dx%d anchor %d,%d layout %d threads %d env %d", build,
                8 * P, c.w, c.h, c.kw, c.kh, c.ax, c.ay, c.layout, c.threads, c.env);
  EXPECT_EQ(st, lumStsNoErr) << where;
  EXPECT_EQ(fp.fault(), "") << where;
  EXPECT_TRUE(dst == before) << where << ": bytes outside the region written";
  for (size_t i = 0; i < got.size(); ++i) {
    if (P == 1 || (P == 2 && !k1Fast)) want[i] = toPixel<T>(sums[i]);
    const bool same = std::memcmp(&got[i], &want[i], P) == 0 ||
                      (std::isnan(double(got[i])) && std::isnan(double(want[i])));
    // Around the double sum, in the default environment: n products added in single precision are
    // off by at most (n + 1) 2^-24 times the sum of their magnitudes; an integer one more by its
    // rounding.
    const double tolerance = (c.kw * c.kh + 1) * 0x1p-24 * magnitude[i] + (P == 4 ? 1e-30 : 1.0);
    const bool near = c.env ||
                      std::fabs(double(got[i]) - double(toPixel<T>(exact[i]))) <= tolerance ||
                      !std::isfinite(float(exact[i])) || !std::isfinite(float(magnitude[i]));
    if (!same || !near) {
      ADD_FAILURE() << where << ": pixel (" << i % c.w << ", " << i / c.w << ") sum "
                    << double(sums[i]) << " got " << double(got[i]) << " want " << double(want[i])
                    << " double sum " << exact[i];
      break;
    }
  }
  return got;
}

// The filters' checks in their documented order: a null pointer (source, destination, kernel), a
// region or kernel size below 1, then a source step below the window's row (width + kernel width -
// 1 pixels) or a destination step below the region's row, in 64 bits; the status of the first that
// holds, or none.
inline LumStatus filterVerdict(const void* src, int srcStep, const void* dst, int dstStep,
                               LumSize roi, const float* kernel, LumSize ks, int pixelBytes) {
  if (!src || !dst || !kernel) return lumStsNullPtrErr;
  if (roi.width < 1 || roi.height < 1 || ks.width < 1 || ks.height < 1) return lumStsSizeErr;
  if (srcStep < (1LL * roi.width + ks.width - 1) * pixelBytes ||
      dstStep < 1LL * roi.width * pixelBytes)
    return lumStsStepErr;
  return lumStsNoErr;
}

}  // namespace lumtest

#endif
