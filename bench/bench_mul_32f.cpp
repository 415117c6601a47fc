// Float multiplication per build on one thread and on the processor count,
// the plain loop, memcpy; and the cost of the exported stub against calling
// the selected build directly.
#include "bench_common.h"
#include "core/lum_internal.h"
#include "plain_loops.h"

namespace {

using lumbench::Buffer;

using Mul32f = LumStatus (*)(const Lum32f*, int, const Lum32f*, int, Lum32f*, int, LumSize);

void runMul(benchmark::State& st, Mul32f fn, int w, int h) {
  const size_t bytes = static_cast<size_t>(w) * h * 4;
  Buffer a(bytes), b(bytes), d(bytes);
  // Finite operands: the pattern bytes reinterpreted as floats may be NaN or
  // denormal, which would measure the slow paths of the floating-point unit.
  for (size_t i = 0; i < bytes / 4; ++i) {
    a.as<float>()[i] = 1.0f + static_cast<float>(i % 251) / 256.0f;
    b.as<float>()[i] = 0.5f + static_cast<float>(i % 241) / 512.0f;
  }
  for (auto _ : st) {
    fn(a.as<Lum32f>(), w * 4, b.as<Lum32f>(), w * 4, d.as<Lum32f>(), w * 4, {w, h});
    benchmark::ClobberMemory();
  }
  st.SetBytesProcessed(static_cast<int64_t>(st.iterations()) * 3 * static_cast<int64_t>(bytes));
}

LumStatus plainMul(const Lum32f* a, int as, const Lum32f* b, int bs, Lum32f* d, int ds, LumSize s) {
  return lumbench::plainInBands(lumbench::plainMul_32f, a, as, b, bs, d, ds, s);
}

// 1x1 through the exported stub (index set to k) and straight into build k
// by name, as a caller linked with the build's function would call it.
template <int k>
void stubCall(benchmark::State& st) {
  const int saved = lumJumpIndexForMergedLibs;
  lumJumpIndexForMergedLibs = k;
  float a = 1.5f, b = 2.0f, d = 0.0f;
  for (auto _ : st) {
    benchmark::DoNotOptimize(lumiMul_32f_C1R(&a, 4, &b, 4, &d, 4, {1, 1}));
    benchmark::ClobberMemory();
  }
  lumJumpIndexForMergedLibs = saved;
  lumbench::countPixels(st, 1);
}

// Each build's multiplication by name.
#define LUM_MUL_32F_OF(tag, ...) tag##_lumiMul_32f_C1R,
constexpr Mul32f kMulOfBuild[] = {LUM_FOR_EACH_BUILD(LUM_MUL_32F_OF)};
#undef LUM_MUL_32F_OF

template <int k>
void directCall(benchmark::State& st) {
  float a = 1.5f, b = 2.0f, d = 0.0f;
  for (auto _ : st) {
    benchmark::DoNotOptimize(kMulOfBuild[k](&a, 4, &b, 4, &d, 4, {1, 1}));
    benchmark::ClobberMemory();
  }
  lumbench::countPixels(st, 1);
}

template <int k>
void registerStub() {
  if (!lumbench::buildSupported(k)) return;
  const std::string tag = "k" + std::to_string(k);
  benchmark::RegisterBenchmark(("Stub/" + tag + "/stub").c_str(), stubCall<k>);
  benchmark::RegisterBenchmark(("Stub/" + tag + "/direct").c_str(), directCall<k>);
}

template <int... k>
void registerStubs(std::integer_sequence<int, k...>) {
  (registerStub<k>(), ...);
}

void registerStubOverhead() { registerStubs(std::make_integer_sequence<int, LUM_NUM_BUILDS>()); }

// The builds that share rows among threads: all but the generic one.
bool opensRegions(int k) { return k >= 1; }

const int registered = [] {
  std::vector<std::pair<int, int>> sizes = lumbench::imageSizes();
  sizes.insert(sizes.begin() + 2, {1024, 1024});
  for (const auto& [w, h] : sizes) {
    lumbench::registerBuilds("Mul_32f", w, h, opensRegions, [w = w, h = h](int k) {
      return [=](benchmark::State& st) { runMul(st, lumiMul_32f_C1R_arraddr[k], w, h); };
    });
    lumbench::registerReferences(
        "Mul_32f", w, h, [w = w, h = h](benchmark::State& st) { runMul(st, plainMul, w, h); },
        static_cast<size_t>(w) * h * 4, true);
  }
  registerStubOverhead();
  return 0;
}();

}  // namespace
