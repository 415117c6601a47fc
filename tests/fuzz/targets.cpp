// The fuzz targets, one per family of image functions: each program's entry calls fuzzOne with its
// family (CMakeLists.txt writes the six entries). Each family reads one call from its input
// (support/fuzz_input.h) and checks it with the tests' own checkers: the harness for the
// element-wise functions, the filter and conversion checks for theirs. A call the checks refuse
// must return their status without touching memory; any other call must give every pixel of the
// reference and nothing outside the region. A failed expectation stops the run, and libFuzzer keeps
// the input.
#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "support/cases.h"
#include "support/convert_check.h"
#include "support/filter_check.h"
#include "support/fuzz_input.h"

namespace lumtest {
namespace {

// Any failed expectation aborts, after saying what it was.
struct AbortOnFailure : testing::EmptyTestEventListener {
  void OnTestPartResult(const testing::TestPartResult& r) override {
    if (!r.failed()) return;
    std::fprintf(stderr, "%s:%d: %s\n", r.file_name() ? r.file_name() : "", r.line_number(),
                 r.message());
    std::abort();
  }
};
bool stopAtTheFirstFailure() {
  testing::TestEventListeners& listeners = testing::UnitTest::GetInstance()->listeners();
  delete listeners.Release(listeners.default_result_printer());
  listeners.Append(new AbortOnFailure);
  return true;
}

// A page nothing may read or write: where a refused call's pointers go.
void* forbiddenPage() {
  static void* page =
      mmap(nullptr, size_t(sysconf(_SC_PAGESIZE)), PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  return page;
}

}  // namespace

namespace fuzz {

// Every block the checks allocate stays below 128 KiB: the sanitizer's runtime maps larger ones on
// their own, and under the emulator (qemu 7.2) their release now and then fails the runtime's own
// address check, ending the run with no finding.
constexpr int kMostPixels = 8192;

// ---- The element-wise functions through the harness. Sizes up to 4200 x 70, at most kMostPixels.
// A hostile size or a null pointer breaks a good layout; such a call must be refused (one the
// checks accept would address memory the layout does not have, and is not made).
namespace {
template <class T>
void elementwise(FuzzInput& in, int build, const Case<T>& c) {
  const int px = int(sizeof(T)), threads = in.threads(), env = in.env(),
            nulls = in.pick(16) == 0 ? in.byte() : 0;
  int w = in.extent(in.pick(4) == 0 ? 4200 : 80), h = in.extent(70);
  const LumSize asked{w, h};
  const bool hostile = FuzzInput::hostile(w, 4200) || FuzzInput::hostile(h, 70);
  if (hostile) w = 8, h = 3;
  h = std::min(h, std::max(1, kMostPixels / w));
  const int rb = w * px;
  Layout l{w, h, {in.place(rb, px), in.place(rb, px)}, in.place(rb, px), in.pick(5) - 3};
  // In place only on rows apart: a source row overwritten before it is read is no case of the
  // reference.
  if (l.inPlace >= c.sources || (l.inPlace >= 0 && std::abs(l.src[l.inPlace].step) < rb))
    l.inPlace = -1;
  const Check broken{"null pointers " + std::to_string(nulls & 7) + ", size " +
                         std::to_string(asked.width) + "x" + std::to_string(asked.height),
                     [=](Args& a) {
                       for (int i = 0; i < c.sources; ++i)
                         a.src[i] = nulls >> i & 1 ? nullptr : a.src[i];
                       a.dst = nulls & 4 ? nullptr : a.dst;
                       if (hostile) a.size = asked;
                     },
                     lumStsNoErr,
                     {}};
  Args probe{{},     {},    c.sources, {l.src[0].step, l.src[1].step}, l.dst.step, {&probe, &probe},
             &probe, {w, h}};
  if (l.inPlace >= 0) probe.dstStep = probe.srcStep[l.inPlace];
  broken.breaks(probe);
  if (hostile && verdict(c.checks, probe) == lumStsNoErr) return;
  const std::vector<T> data = in.pixels<T>(size_t(2) * w * h);
  run(build, c, l, threads, kEnvs[env], &data, (hostile || nulls) ? &broken : nullptr);
}
}  // namespace

void mul(FuzzInput& in) {
  const int build = in.build(), type = in.pick(3), sf = in.scaleFactor();
  if (type == 0) elementwise(in, build, mulCase<Lum8u>(build, sf));
  if (type == 1) elementwise(in, build, mulCase<Lum16s>(build, sf));
  if (type == 2) elementwise(in, build, mulCase<Lum32f>(build, 0));
}
void fill(FuzzInput& in) {
  const int build = in.build(), type = in.pick(2), value = int(in.word());
  if (type == 0) elementwise(in, build, fillCase<Lum8u>(build, value));
  if (type == 1) elementwise(in, build, fillCase<Lum16s>(build, value));
}
void div(FuzzInput& in) {
  const int build = in.build(), type = in.pick(3), sf = in.scaleFactor();
  if (type == 0) elementwise(in, build, divIntCase<Lum8u>(build, sf));
  if (type == 1) elementwise(in, build, divIntCase<Lum16s>(build, sf));
  if (type == 2) elementwise(in, build, div32fCase(build));
}
void absDiff(FuzzInput& in) {
  const int build = in.build(), type = in.pick(2);
  if (type == 0) elementwise(in, build, absDiffCase<Lum8u>(build));
  if (type == 1) elementwise(in, build, absDiffCase<Lum32f>(build));
}

// ---- The filters: regions up to 300 x 80 and kernels up to 12 x 12 (now and then one row or
// column of up to 40) through the filter check, anchors inside the kernel, on its edge and beyond;
// a hostile call (null pointers, sizes, short steps, windows wider than any step) with every
// pointer on a page nothing may touch.
namespace {
float kernelValue(FuzzInput& in) {
  const uint32_t w = in.word();
  float f;
  switch (w % 4) {
    case 0:
      return float(int(w >> 8) % 9 - 4) / 4;  // quarters: exact sums, many ties
    case 1:
      return float(int(w >> 8) % 20001 - 10000) / 4096;
    case 2:
      return std::memcpy(&f, &w, 4), f;  // any bits
    default:
      return 0;
  }
}
template <class T>
void filterOf(FuzzInput& in, int build) {
  const int px = int(sizeof(T)), longKernel = in.pick(8) == 0;
  Call c{in.extent(300),
         in.extent(80),
         in.extent(longKernel ? 40 : 12),
         in.extent(longKernel ? 3 : 12),
         0,
         0};
  if (longKernel && in.pick(2)) std::swap(c.kw, c.kh);
  const bool hostile = FuzzInput::hostile(c.w, 300) || FuzzInput::hostile(c.h, 80) ||
                       FuzzInput::hostile(c.kw, 40) || FuzzInput::hostile(c.kh, 40) ||
                       in.pick(16) == 0;
  if (hostile) {
    const int nulls = in.pick(4) == 0 ? in.byte() : 0;
    // Any step, or one a little short of the window's row (which may have wrapped in 32 bits).
    const int srcStep =
        int(in.pick(2) ? in.word() : uint32_t((int64_t(c.w) + c.kw - 1) * px - in.pick(3)));
    const int dstStep = int(in.pick(2) ? in.word() : uint32_t(int64_t(c.w) * px - in.pick(2)));
    void* page = forbiddenPage();
    const void* src = nulls & 1 ? nullptr : page;
    void* dst = nulls & 2 ? nullptr : page;
    const float* kernel = nulls & 4 ? nullptr : static_cast<const float*>(page);
    const LumSize roi{c.w, c.h}, ks{c.kw, c.kh};
    const LumStatus want = filterVerdict(src, srcStep, dst, dstStep, roi, kernel, ks, px);
    if (want == lumStsNoErr) return;  // would read and write the page
    const LumPoint anchor{int(in.word()), int(in.word())};
    const LumStatus got = entry<T>(build)(static_cast<const T*>(src), srcStep, static_cast<T*>(dst),
                                          dstStep, roi, kernel, ks, anchor);
    EXPECT_EQ(got, want) << "k" << build << " " << 8 * px << "-bit " << c.w << "x" << c.h
                         << " kernel " << c.kw << "x" << c.kh << " steps " << srcStep << "/"
                         << dstStep << " nulls " << nulls;
    return;
  }
  const int ax[] = {c.kw / 2, 0, c.kw - 1, -1 - in.pick(3), c.kw + in.pick(3)},
            ay[] = {c.kh / 2, 0, c.kh - 1, -1 - in.pick(3), c.kh + in.pick(3)};
  c.ax = ax[in.pick(5)], c.ay = ay[in.pick(5)], c.layout = in.pick(5), c.threads = in.threads(),
  c.env = in.env();
  if (int64_t(c.w) * c.h * c.kw * c.kh > 200000) c.h = std::max(1, 200000 / (c.w * c.kw * c.kh));
  c.h = std::min(c.h, std::max(1, kMostPixels / c.w));
  for (int i = 0; i < c.kw * c.kh; ++i) c.kernel.push_back(kernelValue(in));
  c.seed = in.word() | 1;
  const std::vector<uint8_t> pixels = in.rest();
  c.pixels = &pixels;
  checkFilter<T>(build, c);
}
}  // namespace
void filter(FuzzInput& in) {
  const int build = in.build(), type = in.pick(3);
  if (type == 0) filterOf<Lum8u>(in, build);
  if (type == 1) filterOf<Lum16s>(in, build);
  if (type == 2) filterOf<Lum32f>(in, build);
}

// ---- The row conversions of the builds that have them: rows up to 3000 floats of any bits, any
// mode and scale factor; a null pointer or a length below 1 refused without touching the page.
namespace {
template <class T>
void convertTo(FuzzInput& in, int build, Convert<T> fn) {
  const int len = in.extent(3000), mode = in.pick(4) == 0 ? int(in.word()) : in.pick(3),
            sf = in.scaleFactor();
  const int nulls = in.pick(8) == 0 ? 1 + in.pick(3) : 0;
  if (FuzzInput::hostile(len, 3000) || nulls) {
    const float* src = nulls & 1 ? nullptr : static_cast<const float*>(forbiddenPage());
    T* dst = nulls & 2 ? nullptr : static_cast<T*>(forbiddenPage());
    if (!nulls && len >= 1) return;  // a long row: would read the page
    EXPECT_EQ(fn(src, dst, len, mode, sf), nulls ? lumStsNullPtrErr : lumStsSizeErr)
        << "k" << build << " length " << len;
    return;
  }
  const int offset = in.pick(16), env = in.env();
  checkConvertRow(build, fn, in.pixels<float>(size_t(len)), mode, sf, offset, env);
}
}  // namespace
void convert(FuzzInput& in) {
  const int build = in.build();
  if (in.pick(2) == 0 && to8u[build])
    convertTo(in, build, to8u[build]);
  else if (to16s[build])
    convertTo(in, build, to16s[build]);
}

}  // namespace fuzz

int fuzzOne(void (*family)(FuzzInput&), const uint8_t* data, size_t size) {
  static const bool ready = stopAtTheFirstFailure();
  (void)ready;
  // The exception flags the call starts with: a turn of the input's own, the same at every replay.
  uint32_t h = 2166136261u;
  for (size_t i = 0; i < size; ++i) h = (h ^ data[i]) * 16777619u;
  fpFlagsTurn() = h;
  FuzzInput in(data, size);
  family(in);
  return 0;
}

}  // namespace lumtest
