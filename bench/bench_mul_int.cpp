// Scaled integer multiplication per build at scale factors 0, 1, 4 and -2,
// on one thread and on the processor count, beside the plain loop of the
// same rule and memcpy of one image's bytes.
#include "bench_common.h"
#include "plain_loops.h"

namespace {

using lumbench::Buffer;

template <class T>
using MulSfs = LumStatus (*)(const T*, int, const T*, int, T*, int, LumSize, int);

template <class T>
void runMul(benchmark::State& st, MulSfs<T> fn, int w, int h, int sf) {
  const size_t bytes = static_cast<size_t>(w) * h * sizeof(T);
  Buffer a(bytes), b(bytes), d(bytes);
  const int step = w * static_cast<int>(sizeof(T));
  for (auto _ : st) {
    fn(a.as<T>(), step, b.as<T>(), step, d.as<T>(), step, {w, h}, sf);
    benchmark::ClobberMemory();
  }
  st.SetBytesProcessed(static_cast<int64_t>(st.iterations()) * 3 * static_cast<int64_t>(bytes));
}

LumStatus plain8u(const Lum8u* a, int as, const Lum8u* b, int bs, Lum8u* d, int ds, LumSize s,
                  int sf) {
  return lumbench::plainInBands(lumbench::plainMul_8u_Sfs, a, as, b, bs, d, ds, s, sf);
}

LumStatus plain16s(const Lum16s* a, int as, const Lum16s* b, int bs, Lum16s* d, int ds, LumSize s,
                   int sf) {
  return lumbench::plainInBands(lumbench::plainMul_16s_Sfs, a, as, b, bs, d, ds, s, sf);
}

std::string factorName(int sf) { return sf < 0 ? "m" + std::to_string(-sf) : std::to_string(sf); }

// The builds that share rows among threads: all but the generic one.
bool opensRegions(int k) { return k >= 1; }

template <class T>
void registerType(const std::string& type, MulSfs<T> const* table, MulSfs<T> plain) {
  for (int sf : {0, 1, 4, -2})
    for (const auto& [w, h] : lumbench::imageSizes()) {
      const std::string kernel = "Mul_" + type + "_sf" + factorName(sf);
      lumbench::registerBuilds(kernel, w, h, opensRegions, [=, w = w, h = h](int k) {
        return [=](benchmark::State& st) { runMul<T>(st, table[k], w, h, sf); };
      });
      lumbench::registerReferences(
          kernel, w, h, [=, w = w, h = h](benchmark::State& st) { runMul<T>(st, plain, w, h, sf); },
          static_cast<size_t>(w) * h * sizeof(T), true);
    }
}

const int registered = [] {
  registerType<Lum8u>("8u", lumiMul_8u_C1RSfs_arraddr, plain8u);
  registerType<Lum16s>("16s", lumiMul_16s_C1RSfs_arraddr, plain16s);
  return 0;
}();

}  // namespace
