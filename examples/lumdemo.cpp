// lumdemo: runs lum's image functions on images generated in code, in every
// build this processor can run, checks that the builds agree bit for bit,
// writes the results as PGM files and prints each build's time.
//
//   lumdemo [OUTPUT_DIRECTORY]
//
// LUM_EMULATED in the environment (set by build/<preset>/run-i386 when the
// machine runs i386 programs only under an emulator) names the emulator; the
// times are then printed with a warning that they say nothing about speed.
#include <lum.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

namespace {

constexpr int kWidth = 1024;
constexpr int kHeight = 768;

// The emulator the demo runs under, or null when it runs natively.
const char* const kEmulator = std::getenv("LUM_EMULATED");

// Processor codes that select each build through the public initializer.
constexpr Lum32u kCpuCodeForBuild[] = {0, 64, 65, 66, 67, 68};

// Whether this processor can run build k, from the library's own queries.
bool processorRunsBuild(int k) {
  if (k == 0) return true;
  if (!lum_has_cpuid()) return false;
  const int has[] = {1, lum_is_mmx_extension() && lum_is_ssx_extension(), lum_is_sse2_extension(),
                     lum_is_sse3_extension(), lum_is_ssse3_extension(), lum_is_sse41_extension()};
  for (int i = 1; i <= k; ++i)
    if (!has[i]) return false;
  return true;
}

void printProcessor() {
  const LumStatus init = lumStaticInit();
  const LumLibraryVersion* v = lumiGetLibVersion();
  std::printf("processor: code %u, cores on die %d\n", static_cast<unsigned>(lumGetCpuType()),
              lumGetNumCoresOnDie());
  std::printf("lumStaticInit: %d \"%s\"\n", init, lumGetStatusString(init));
  std::printf("selected build: %s (%s), index %d\n", v->targetCpu, v->name,
              lumJumpIndexForMergedLibs);
  int cache = 0;
  const LumStatus cst = lumGetMaxCacheSizeB(&cache);
  std::printf("largest cache: %d bytes (status %d \"%s\")\n", cache, cst, lumGetStatusString(cst));
  int threads = 0;
  lumGetNumThreads(&threads);
  std::printf("threads: %d\n", threads);
}

struct Timing {
  int build;
  double microseconds;
};

// Median wall time of `runs` calls of fn, in microseconds.
double medianMicroseconds(const std::function<void()>& fn, int runs) {
  std::vector<double> t;
  for (int i = 0; i < runs; ++i) {
    const auto t0 = std::chrono::steady_clock::now();
    fn();
    const auto t1 = std::chrono::steady_clock::now();
    t.push_back(std::chrono::duration<double, std::micro>(t1 - t0).count());
  }
  std::sort(t.begin(), t.end());
  return t[t.size() / 2];
}

bool writePgm(const std::string& path, const std::vector<unsigned char>& pixels, int w, int h) {
  FILE* f = std::fopen(path.c_str(), "wb");
  if (!f) return false;
  std::fprintf(f, "P5\n%d %d\n255\n", w, h);
  const bool ok = std::fwrite(pixels.data(), 1, pixels.size(), f) == pixels.size();
  return std::fclose(f) == 0 && ok;
}

// Writes each named image into dir and says so; false when one fails.
bool writeImages(const std::string& dir,
                 std::initializer_list<std::pair<const char*, const std::vector<Lum8u>*>> images) {
  bool ok = true;
  for (const auto& [name, pixels] : images) {
    const std::string path = dir + "/" + name;
    if (writePgm(path, *pixels, kWidth, kHeight))
      std::printf("  wrote %s\n", path.c_str());
    else
      ok = false, std::printf("  cannot write %s\n", path.c_str());
  }
  return ok;
}

// A test card: a diagonal gradient times a ring pattern.
void makeFloatImages(std::vector<float>& gradient, std::vector<float>& rings) {
  gradient.resize(kWidth * kHeight);
  rings.resize(kWidth * kHeight);
  for (int y = 0; y < kHeight; ++y)
    for (int x = 0; x < kWidth; ++x) {
      const float dx = x - kWidth / 2.0f, dy = y - kHeight / 2.0f;
      gradient[y * kWidth + x] = (x + y) / static_cast<float>(kWidth + kHeight);
      rings[y * kWidth + x] = 0.5f + 0.5f * std::cos(std::sqrt(dx * dx + dy * dy) / 9.0f);
    }
}

// An 8-bit scene (soft rings over a gradient) and a gain map that is
// brighter in the middle, like a vignetting correction: gain / 128 runs
// from 0.75 to 2.
void makeByteImages(std::vector<Lum8u>& scene, std::vector<Lum8u>& gain) {
  scene.resize(kWidth * kHeight);
  gain.resize(kWidth * kHeight);
  for (int y = 0; y < kHeight; ++y)
    for (int x = 0; x < kWidth; ++x) {
      const float dx = (x - kWidth / 2.0f) / kWidth, dy = (y - kHeight / 2.0f) / kHeight;
      const float r2 = dx * dx + dy * dy;
      const float base = 40.0f + 120.0f * (x + y) / static_cast<float>(kWidth + kHeight);
      scene[y * kWidth + x] =
          static_cast<Lum8u>(base + 40.0f * std::sin(std::sqrt(r2) * 60.0f));
      gain[y * kWidth + x] = static_cast<Lum8u>(96.0f + 160.0f * std::max(0.0f, 1.0f - 2.0f * r2) - 0.5f);
    }
}

// Frame t of a moving scene: a textured disc drifting right and down over
// the still 8-bit scene, as a camera over a static background would see it.
void makeFrame(const std::vector<Lum8u>& scene, int t, std::vector<Lum8u>& frame) {
  frame = scene;
  const float cx = 300.0f + 14.0f * t, cy = 300.0f + 6.0f * t, radius = 120.0f;
  for (int y = 0; y < kHeight; ++y)
    for (int x = 0; x < kWidth; ++x) {
      const float dx = x - cx, dy = y - cy;
      if (dx * dx + dy * dy < radius * radius)
        frame[y * kWidth + x] = static_cast<Lum8u>(200 + 40 * ((((x - int(cx)) >> 3) ^ ((y - int(cy)) >> 3)) & 1));
    }
}

std::vector<unsigned char> toGray(const std::vector<float>& img) {
  std::vector<unsigned char> out(img.size());
  for (size_t i = 0; i < img.size(); ++i)
    out[i] = static_cast<unsigned char>(std::min(255.0f, std::max(0.0f, img[i] * 255.0f + 0.5f)));
  return out;
}

// Runs `op` (which writes `result`) in every build the processor can run,
// checks the builds agree with the first, prints the table. A build's
// result may differ from the first build's only where `close` (if given)
// says the pixels are near enough. With `twoThreads` each build also runs
// on two threads, which must give the same pixels, and the table shows both
// times. Returns false on a failure or a disagreement.
template <class Pixel>
bool runInEveryBuild(const char* title, std::vector<Pixel>& result,
                     const std::function<LumStatus()>& op, bool twoThreads = false,
                     int runs = 15, bool (*close)(Pixel first, Pixel other) = nullptr) {
  std::printf("\n%s\n  %-6s %12s %10s", title, "build", "time (us)", "vs k0");
  std::printf(twoThreads ? " %14s %8s\n" : "\n", "2 threads (us)", "speed-up");
  std::vector<Pixel> first;
  std::vector<Timing> timings;
  bool ok = true, exact = true;
  for (int k = 0; k < 6; ++k) {
    if (!processorRunsBuild(k)) {
      std::printf("  k%-5d %12s\n", k, "(not on this processor)");
      continue;
    }
    lumStaticInitCpu(kCpuCodeForBuild[k]);
    lumSetNumThreads(1);
    const LumStatus st = op();
    if (st != lumStsNoErr) {
      std::printf("  k%d: %s\n", k, lumGetStatusString(st));
      ok = false;
      continue;
    }
    if (first.empty()) {
      first = result;
    } else if (std::memcmp(first.data(), result.data(), result.size() * sizeof(Pixel)) != 0) {
      size_t differ = 0, far = 0;
      for (size_t i = 0; i < result.size(); ++i)
        if (std::memcmp(&first[i], &result[i], sizeof(Pixel)) != 0)
          ++differ, far += close == nullptr || !close(first[i], result[i]);
      std::printf("  k%d differs from the first build in %zu pixel(s)%s\n", k, differ,
                  far ? "" : ", each by the documented margin");
      ok &= far == 0;
      exact = false;
    }
    const double us = medianMicroseconds([&] { op(); }, runs);
    timings.push_back({k, us});
    std::printf("  %-6s %12.1f %9.2fx", lumiGetLibVersion()->targetCpu, us,
                timings.front().microseconds / us);
    if (twoThreads) {
      lumSetNumThreads(2);
      const double us2 = medianMicroseconds([&] { op(); }, runs);
      if (std::memcmp(first.data(), result.data(), result.size() * sizeof(Pixel)) != 0) {
        std::printf(" two threads disagree with one");
        ok = false;
      }
      std::printf(" %14.1f %7.2fx", us2, us / us2);
      lumSetNumThreads(1);
    }
    std::printf("\n");
  }
  if (ok) std::printf("  all builds agree%s\n", exact ? " bit for bit" : " within the documented margin");
  if (kEmulator != nullptr)
    std::printf("  (times measured under an emulator, %s: they say nothing about speed)\n", kEmulator);
  return ok;
}

// ---- Filters ----------------------------------------------------------------------
// The filters read every source pixel their kernel reaches, so the image is
// copied once into a larger image with a border of `kBorder` pixels repeated
// from its edge, and each call is given the pixel of that copy under the
// destination's (0, 0): the first interior pixel.
constexpr int kBorder = 2;
constexpr int kPaddedWidth = kWidth + 2 * kBorder;

template <class T>
std::vector<T> borderedCopy(const std::vector<Lum8u>& image) {
  std::vector<T> out(kPaddedWidth * (kHeight + 2 * kBorder));
  for (int y = 0; y < kHeight + 2 * kBorder; ++y)
    for (int x = 0; x < kPaddedWidth; ++x) {
      const int sx = std::min(kWidth - 1, std::max(0, x - kBorder));
      const int sy = std::min(kHeight - 1, std::max(0, y - kBorder));
      out[y * kPaddedWidth + x] = static_cast<T>(image[sy * kWidth + sx]);
    }
  return out;
}

struct Kernel {
  const char* name;
  int size;  // square, anchor in the middle
  std::vector<float> k;
  float offset;  // added before a result is shown as a byte, so negative edges show
};

const Kernel kKernels[] = {
    {"blur", 5,
     {1, 4, 6, 4, 1, 4, 16, 24, 16, 4, 6, 24, 36, 24, 6, 4, 16, 24, 16, 4, 1, 4, 6, 4, 1},
     0},
    {"sharpen", 3, {0, -1, 0, -1, 5, -1, 0, -1, 0}, 0},
    {"laplacian", 3, {0, 1, 0, 1, -4, 1, 0, 1, 0}, 128},
};

template <class T>
std::vector<unsigned char> shown(const std::vector<T>& img, float offset) {
  std::vector<unsigned char> out(img.size());
  for (size_t i = 0; i < img.size(); ++i)
    out[i] = static_cast<unsigned char>(
        std::min(255.0f, std::max(0.0f, static_cast<float>(img[i]) + offset + 0.5f)));
  return out;
}

// One kernel on an image in one pixel type, every build at one and two
// threads; writes lumdemo_<kernel>_<type>.pgm.
template <class T, class Fn>
bool filterDemo(const std::string& dir, const std::vector<Lum8u>& image, const Kernel& kernel,
                const char* type, Fn filterFn) {
  std::vector<float> k = kernel.k;
  float total = 0;
  for (float v : k) total += v;
  if (kernel.offset == 0)
    for (float& v : k) v /= total;  // blur and sharpen keep the brightness
  const std::vector<T> src = borderedCopy<T>(image);
  const int step = kPaddedWidth * static_cast<int>(sizeof(T));
  const T* interior = &src[kBorder * kPaddedWidth + kBorder];
  const int c = kernel.size / 2;
  std::vector<T> dst(kWidth * kHeight);
  const std::string title = std::string(type) + " " + kernel.name + " " +
                            std::to_string(kernel.size) + "x" + std::to_string(kernel.size);
  const bool ok = runInEveryBuild(title.c_str(), dst, [&] {
    return filterFn(interior, step, dst.data(), kWidth * static_cast<int>(sizeof(T)),
                    LumSize{kWidth, kHeight}, k.data(), LumSize{kernel.size, kernel.size},
                    LumPoint{c, c});
  }, true, kEmulator != nullptr ? 1 : 9);
  const std::vector<unsigned char> gray = shown(dst, kernel.offset);
  const std::string name = std::string("lumdemo_") + kernel.name + "_" + type + ".pgm";
  return writeImages(dir, {{name.c_str(), &gray}}) && ok;
}

}  // namespace

int main(int argc, char** argv) {
  const std::string dir = argc > 1 ? argv[1] : ".";
  const LumLibraryVersion* v = lumiGetLibVersion();
  std::printf("lum %d.%d.%d.%d (%s, %s)\n", v->major, v->minor, v->majorBuild, v->build,
              v->version, v->buildDate);
  printProcessor();
  std::printf("image %dx%d; every build below runs on one thread\n", kWidth, kHeight);

  bool ok = true;
  std::vector<float> gradient, rings, product(kWidth * kHeight);
  makeFloatImages(gradient, rings);
  ok &= runInEveryBuild("lumiMul_32f_C1R: gradient x rings", product, [&] {
    return lumiMul_32f_C1R(gradient.data(), kWidth * 4, rings.data(), kWidth * 4, product.data(),
                           kWidth * 4, {kWidth, kHeight});
  });
  const std::vector<unsigned char> productGray = toGray(product);
  ok &= writeImages(dir, {{"lumdemo_mul_32f.pgm", &productGray}});

  // Brightness by a gain map: scene * gain / 2^7, rounded half to even and
  // saturated at 255.
  std::vector<Lum8u> scene, gain, brightened(kWidth * kHeight);
  makeByteImages(scene, gain);
  ok &= runInEveryBuild("lumiMul_8u_C1RSfs: scene x gain map, scale factor 7", brightened, [&] {
    return lumiMul_8u_C1RSfs(scene.data(), kWidth, gain.data(), kWidth, brightened.data(), kWidth,
                             {kWidth, kHeight}, 7);
  });
  ok &= writeImages(dir, {{"lumdemo_scene_8u.pgm", &scene}, {"lumdemo_mul_8u.pgm", &brightened}});

  // Vignetting and its correction: a lens that lets through flat / 128 of
  // the light (about 3/4 in the middle, 3/8 in the corners) darkens the
  // scene; dividing by the same flat field, scale factor -7 (times 2^7),
  // brings it back. From SSE2 on the quotient is computed in single
  // precision, and one that lies within rounding error of a halfway point
  // may round the other way: those pixels differ by 1.
  std::vector<Lum8u> flat(gain.size()), vignetted(gain.size()), corrected(gain.size());
  for (size_t i = 0; i < gain.size(); ++i) flat[i] = static_cast<Lum8u>(gain[i] / 2 + 1);
  lumStaticInitCpu(kCpuCodeForBuild[0]);
  ok &= lumiMul_8u_C1RSfs(scene.data(), kWidth, flat.data(), kWidth, vignetted.data(), kWidth,
                          {kWidth, kHeight}, 7) == lumStsNoErr;
  ok &= runInEveryBuild(
      "lumiDiv_8u_C1RSfs: vignetted scene / flat field, scale factor -7", corrected,
      [&] {
        return lumiDiv_8u_C1RSfs(flat.data(), kWidth, vignetted.data(), kWidth, corrected.data(),
                                 kWidth, {kWidth, kHeight}, -7);
      },
      false, 15, +[](Lum8u first, Lum8u other) { return first - other == 1 || other - first == 1; });
  int worst = 0;
  for (size_t i = 0; i < scene.size(); ++i) worst = std::max(worst, std::abs(corrected[i] - scene[i]));
  std::printf("  corrected scene within %d of the original (what the darkening rounded away)\n", worst);
  ok &= writeImages(dir, {{"lumdemo_vignetted_8u.pgm", &vignetted}, {"lumdemo_corrected_8u.pgm", &corrected}});

  // A motion map: the absolute difference of two frames of the moving
  // scene, bright where something moved, black where nothing did; in bytes,
  // and in floats on the same frames.
  std::vector<Lum8u> frame0, frame1, motion(kWidth * kHeight);
  makeFrame(scene, 0, frame0);
  makeFrame(scene, 1, frame1);
  ok &= runInEveryBuild("lumiAbsDiff_8u_C1R: motion between two frames", motion, [&] {
    return lumiAbsDiff_8u_C1R(frame0.data(), kWidth, frame1.data(), kWidth, motion.data(), kWidth,
                              {kWidth, kHeight});
  });
  std::vector<float> float0(frame0.begin(), frame0.end()), float1(frame1.begin(), frame1.end());
  std::vector<float> motion32f(kWidth * kHeight);
  ok &= runInEveryBuild("lumiAbsDiff_32f_C1R: the same frames as floats", motion32f, [&] {
    return lumiAbsDiff_32f_C1R(float0.data(), kWidth * 4, float1.data(), kWidth * 4,
                               motion32f.data(), kWidth * 4, {kWidth, kHeight});
  });
  for (size_t i = 0; i < motion.size(); ++i)
    if (motion32f[i] != static_cast<float>(motion[i])) {
      std::printf("  the float motion map differs from the byte one at pixel %zu\n", i);
      ok = false;
      break;
    }
  ok &= writeImages(dir, {{"lumdemo_frame0_8u.pgm", &frame0},
                          {"lumdemo_frame1_8u.pgm", &frame1},
                          {"lumdemo_motion_8u.pgm", &motion}});

  // Filters: blur, sharpen and edges on the first frame (the scene with
  // its textured disc), as bytes, shorts and floats, from a bordered copy.
  std::printf("\nfilters on frame 0 from a copy with a %d-pixel border\n", kBorder);
  for (const Kernel& kernel : kKernels) {
    ok &= filterDemo<Lum8u>(dir, frame0, kernel, "8u", lumiFilter32f_8u_C1R);
    ok &= filterDemo<Lum16s>(dir, frame0, kernel, "16s", lumiFilter32f_16s_C1R);
    ok &= filterDemo<Lum32f>(dir, frame0, kernel, "32f", lumiFilter_32f_C1R);
  }

  std::printf("\n%s\n", ok ? "demo ok" : "demo FAILED");
  return ok ? 0 : 1;
}
