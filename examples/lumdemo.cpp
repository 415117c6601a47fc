// lumdemo: runs every image function of lum on one image, in every build
// this processor can run, checks that the builds agree, writes each result
// as a PGM file beside a contact sheet of them all, and prints each build's
// time.
//
//   lumdemo [-o OUTPUT_DIRECTORY] [IMAGE.pgm]
//
// IMAGE.pgm is a binary PGM (P5) with 8 or 16 bits per pixel; without one
// the demo generates a scene of 1024 x 768. A malformed or truncated file is
// refused with a message that says what is wrong, and exit status 2.
// Results go to OUTPUT_DIRECTORY (default: the current directory).
//
// LUM_EMULATED in the environment (set by build/<preset>/run-i386 when the
// machine runs i386 programs only under an emulator) names the emulator; the
// times are then printed with a warning that they say nothing about speed.
#include <lum.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <iterator>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace {

// The size of every image of the run: the user's image or the generated
// scene. Set once in main, before any image is made.
int gWidth = 1024;
int gHeight = 768;

size_t pixelCount() { return static_cast<size_t>(gWidth) * gHeight; }

// The emulator the demo runs under, or null when it runs natively.
const char* const kEmulator = std::getenv("LUM_EMULATED");

// Processor codes that select each build through the public initializer, one per build.
constexpr Lum32u kCpuCodeForBuild[] = {0, 64, 65, 66, 67, 68};

// Whether this processor can run build k, from the library's own queries.
bool processorRunsBuild(int k) {
  if (k == 0) return true;
  if (!lum_has_cpuid()) return false;
  const int has[] = {1,
                     lum_is_mmx_extension() && lum_is_ssx_extension(),
                     lum_is_sse2_extension(),
                     lum_is_sse3_extension(),
                     lum_is_ssse3_extension(),
                     lum_is_sse41_extension()};
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

// ---- Reading the user's image --------------------------------------------------
// A binary PGM: "P5", width, height and the largest sample value (maxval) as
// decimal numbers separated by whitespace, where '#' starts a comment up to
// the end of its line; one whitespace character; then width * height
// samples, one byte each when maxval is below 256, otherwise two, most
// significant first. Samples are read as fractions of maxval.
struct Image {
  int width = 0, height = 0, maxval = 0;
  std::vector<float> level;  // sample / maxval, row by row
};

// Largest side and pixel count accepted: every image of the run is kept
// several times over in a 32-bit address space.
constexpr long kMaxSide = 16384;
constexpr long kMaxPixels = 16L * 1024 * 1024;

class PgmReader {
 public:
  explicit PgmReader(const std::vector<unsigned char>& bytes) : bytes_(bytes) {}

  // Reads the whole file into `image`; on failure returns false and says why.
  bool read(Image& image, std::string& why) {
    if (bytes_.size() < 2 || bytes_[0] != 'P' || bytes_[1] != '5')
      return fail(why, bytes_.size() >= 2 && bytes_[0] == 'P'
                           ? "not a binary PGM: the magic number is P" + std::string(1, bytes_[1]) +
                                 ", this demo reads P5 only"
                           : std::string("not a PGM file: it does not start with P5"));
    pos_ = 2;
    long width = 0, height = 0, maxval = 0;
    if (!number("width", width, why) || !number("height", height, why) ||
        !number("maxval", maxval, why))
      return false;
    if (width < 1 || height < 1) return fail(why, "the width and height must be at least 1");
    if (width > kMaxSide || height > kMaxSide || width * height > kMaxPixels)
      return fail(why, "the image is too large for this demo (at most " + std::to_string(kMaxSide) +
                           " pixels a side and " + std::to_string(kMaxPixels) + " in all)");
    if (maxval < 1 || maxval > 65535) return fail(why, "maxval must be 1..65535");
    if (pos_ >= bytes_.size() || !std::isspace(bytes_[pos_]))
      return fail(why, "truncated: no whitespace after maxval, and no pixels");
    ++pos_;
    const size_t sampleBytes = maxval < 256 ? 1 : 2;
    const size_t need = static_cast<size_t>(width) * height * sampleBytes;
    if (bytes_.size() - pos_ < need)
      return fail(why, "truncated: " + std::to_string(width) + " x " + std::to_string(height) +
                           " pixels of " + std::to_string(sampleBytes) + " byte(s) need " +
                           std::to_string(need) + " bytes, the file has " +
                           std::to_string(bytes_.size() - pos_));
    image.width = static_cast<int>(width);
    image.height = static_cast<int>(height);
    image.maxval = static_cast<int>(maxval);
    image.level.resize(static_cast<size_t>(width) * height);
    for (size_t i = 0; i < image.level.size(); ++i) {
      const unsigned char* p = &bytes_[pos_ + i * sampleBytes];
      const long sample = sampleBytes == 1 ? p[0] : p[0] << 8 | p[1];
      if (sample > maxval)
        return fail(why, "pixel " + std::to_string(i) + " is " + std::to_string(sample) +
                             ", above maxval " + std::to_string(maxval));
      image.level[i] = static_cast<float>(sample) / static_cast<float>(maxval);
    }
    return true;
  }

 private:
  static bool fail(std::string& why, const std::string& what) {
    why = what;
    return false;
  }

  // Skips whitespace and comments, then reads one decimal number.
  bool number(const char* name, long& value, std::string& why) {
    for (;;) {
      while (pos_ < bytes_.size() && std::isspace(bytes_[pos_])) ++pos_;
      if (pos_ >= bytes_.size() || bytes_[pos_] != '#') break;
      while (pos_ < bytes_.size() && bytes_[pos_] != '\n') ++pos_;
    }
    if (pos_ >= bytes_.size())
      return fail(why, std::string("truncated: the header ends before the ") + name);
    if (!std::isdigit(bytes_[pos_]))
      return fail(why, std::string("the ") + name + " is not a decimal number");
    value = 0;
    // Checked before each step: long has 32 bits here.
    for (; pos_ < bytes_.size() && std::isdigit(bytes_[pos_]); ++pos_) {
      if (value > 100000000L) return fail(why, std::string("the ") + name + " is far too large");
      value = value * 10 + (bytes_[pos_] - '0');
    }
    return true;
  }

  const std::vector<unsigned char>& bytes_;
  size_t pos_ = 0;
};

bool readFile(const std::string& path, std::vector<unsigned char>& bytes, std::string& why) {
  FILE* f = std::fopen(path.c_str(), "rb");
  if (!f) {
    why = std::string("cannot open it: ") + std::strerror(errno);
    return false;
  }
  unsigned char chunk[65536];
  size_t n;
  while ((n = std::fread(chunk, 1, sizeof chunk, f)) > 0) {
    bytes.insert(bytes.end(), chunk, chunk + n);
    if (bytes.size() > static_cast<size_t>(kMaxPixels) * 2 + 4096) {
      std::fclose(f);
      why = "the file is too large for this demo";
      return false;
    }
  }
  const bool ok = !std::ferror(f);
  std::fclose(f);
  if (!ok) why = "cannot read it";
  return ok;
}

// ---- Writing the results ---------------------------------------------------------
bool writePgm(const std::string& path, const std::vector<unsigned char>& pixels, int w, int h) {
  FILE* f = std::fopen(path.c_str(), "wb");
  if (!f) return false;
  std::fprintf(f, "P5\n%d %d\n255\n", w, h);
  const bool ok = std::fwrite(pixels.data(), 1, pixels.size(), f) == pixels.size();
  return std::fclose(f) == 0 && ok;
}

// Every result written, in order, for the contact sheet.
struct Shown {
  std::string name;
  std::vector<unsigned char> pixels;
};
std::vector<Shown> gShown;

// Writes each named image into dir, keeps it for the contact sheet and says
// so; false when one fails.
bool writeImages(const std::string& dir,
                 std::initializer_list<std::pair<const char*, const std::vector<Lum8u>*>> images) {
  bool ok = true;
  for (const auto& [name, pixels] : images) {
    const std::string path = dir + "/" + name;
    if (writePgm(path, *pixels, gWidth, gHeight))
      std::printf("  wrote %s\n", path.c_str());
    else
      ok = false, std::printf("  cannot write %s\n", path.c_str());
    gShown.push_back({name, *pixels});
  }
  return ok;
}

// All results side by side, in rows of up to `columns` tiles, each shrunk by
// a whole factor (the mean of each block) to at most 256 pixels a side,
// on a mid-grey ground with a 4-pixel gap.
bool writeContactSheet(const std::string& dir) {
  const int factor = std::max(1, (std::max(gWidth, gHeight) + 255) / 256);
  const int tw = (gWidth + factor - 1) / factor, th = (gHeight + factor - 1) / factor;
  const int gap = 4, count = static_cast<int>(gShown.size());
  const int columns = std::min(count, 6), rows = (count + columns - 1) / columns;
  const int sw = columns * (tw + gap) + gap, sh = rows * (th + gap) + gap;
  std::vector<unsigned char> sheet(static_cast<size_t>(sw) * sh, 128);
  for (int t = 0; t < count; ++t) {
    const int ox = gap + (t % columns) * (tw + gap), oy = gap + (t / columns) * (th + gap);
    for (int y = 0; y < th; ++y)
      for (int x = 0; x < tw; ++x) {
        int sum = 0, n = 0;
        for (int sy = y * factor; sy < std::min(gHeight, (y + 1) * factor); ++sy)
          for (int sx = x * factor; sx < std::min(gWidth, (x + 1) * factor); ++sx, ++n)
            sum += gShown[t].pixels[static_cast<size_t>(sy) * gWidth + sx];
        sheet[static_cast<size_t>(oy + y) * sw + ox + x] =
            static_cast<unsigned char>((sum + n / 2) / n);
      }
  }
  const std::string path = dir + "/lumdemo_contact_sheet.pgm";
  const bool ok = writePgm(path, sheet, sw, sh);
  std::printf("\ncontact sheet %s: %d x %d, %d tiles of %d x %d in rows of %d:\n", path.c_str(), sw,
              sh, count, tw, th, columns);
  for (int t = 0; t < count; ++t) std::printf("  %2d %s\n", t + 1, gShown[t].name.c_str());
  if (!ok) std::printf("  cannot write %s\n", path.c_str());
  return ok;
}

// ---- The images the demo works on ---------------------------------------------------
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

// A ring pattern, 0..1, centred on the image.
std::vector<float> makeRings() {
  std::vector<float> rings(pixelCount());
  for (int y = 0; y < gHeight; ++y)
    for (int x = 0; x < gWidth; ++x) {
      const float dx = x - gWidth / 2.0f, dy = y - gHeight / 2.0f;
      rings[static_cast<size_t>(y) * gWidth + x] =
          0.5f + 0.5f * std::cos(std::sqrt(dx * dx + dy * dy) / 9.0f);
    }
  return rings;
}

// The generated scene, as levels 0..1: soft rings over a gradient.
Image makeScene() {
  Image scene;
  scene.width = gWidth, scene.height = gHeight, scene.maxval = 255;
  scene.level.resize(pixelCount());
  for (int y = 0; y < gHeight; ++y)
    for (int x = 0; x < gWidth; ++x) {
      const float dx = (x - gWidth / 2.0f) / gWidth, dy = (y - gHeight / 2.0f) / gHeight;
      const float base = 40.0f + 120.0f * (x + y) / static_cast<float>(gWidth + gHeight);
      const float value =
          static_cast<Lum8u>(base + 40.0f * std::sin(std::sqrt(dx * dx + dy * dy) * 60.0f));
      scene.level[static_cast<size_t>(y) * gWidth + x] = value / 255.0f;
    }
  return scene;
}

// A gain map brighter in the middle, like a vignetting correction: gain /
// 128 runs from 0.75 to 2.
std::vector<Lum8u> makeGain() {
  std::vector<Lum8u> gain(pixelCount());
  for (int y = 0; y < gHeight; ++y)
    for (int x = 0; x < gWidth; ++x) {
      const float dx = (x - gWidth / 2.0f) / gWidth, dy = (y - gHeight / 2.0f) / gHeight;
      const float r2 = dx * dx + dy * dy;
      gain[static_cast<size_t>(y) * gWidth + x] =
          static_cast<Lum8u>(96.0f + 160.0f * std::max(0.0f, 1.0f - 2.0f * r2) - 0.5f);
    }
  return gain;
}

// Frame t of a moving scene: a textured disc drifting right and down over
// the still scene, as a camera over a static background would see it.
std::vector<Lum8u> makeFrame(const std::vector<Lum8u>& scene, int t) {
  std::vector<Lum8u> frame = scene;
  const float unit = std::min(gWidth, gHeight) / 768.0f;
  const float cx = gWidth * 0.3f + 14.0f * unit * t, cy = gHeight * 0.4f + 6.0f * unit * t;
  const float radius = 120.0f * unit, cell = std::max(1.0f, 8.0f * unit);
  for (int y = 0; y < gHeight; ++y)
    for (int x = 0; x < gWidth; ++x) {
      const float dx = x - cx, dy = y - cy;
      if (dx * dx + dy * dy < radius * radius)
        frame[static_cast<size_t>(y) * gWidth + x] =
            static_cast<Lum8u>(200 + 40 * ((static_cast<int>(std::floor(dx / cell)) ^
                                            static_cast<int>(std::floor(dy / cell))) &
                                           1));
    }
  return frame;
}

// Pixels of any type shown as bytes: value * scale + offset, rounded and
// clamped to 0..255.
template <class T>
std::vector<unsigned char> shown(const std::vector<T>& img, float scale, float offset = 0) {
  std::vector<unsigned char> out(img.size());
  for (size_t i = 0; i < img.size(); ++i)
    out[i] = static_cast<unsigned char>(
        std::min(255.0f, std::max(0.0f, static_cast<float>(img[i]) * scale + offset + 0.5f)));
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
                     const std::function<LumStatus()>& op, bool twoThreads = false, int runs = 15,
                     bool (*close)(Pixel first, Pixel other) = nullptr) {
  std::printf("\n%s\n  %-6s %12s %10s", title, "build", "time (us)", "vs k0");
  std::printf(twoThreads ? " %14s %8s\n" : "\n", "2 threads (us)", "speed-up");
  std::vector<Pixel> first;
  std::vector<Timing> timings;
  bool ok = true, exact = true;
  for (int k = 0; k < int(std::size(kCpuCodeForBuild)); ++k) {
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
      const std::vector<Pixel> oneThread = result;
      lumSetNumThreads(2);
      const double us2 = medianMicroseconds([&] { op(); }, runs);
      if (std::memcmp(oneThread.data(), result.data(), result.size() * sizeof(Pixel)) != 0) {
        std::printf(" two threads disagree with one");
        ok = false;
      }
      std::printf(" %14.1f %7.2fx", us2, us / us2);
      lumSetNumThreads(1);
    }
    std::printf("\n");
  }
  if (ok)
    std::printf("  all builds agree%s\n", exact ? " bit for bit" : " within the documented margin");
  if (kEmulator != nullptr)
    std::printf("  (times measured under an emulator, %s: they say nothing about speed)\n",
                kEmulator);
  return ok;
}

// ---- Filters ----------------------------------------------------------------------
// The filters read every source pixel their kernel reaches, so the image is
// copied once into a larger image with a border of `kBorder` pixels repeated
// from its edge, and each call is given the pixel of that copy under the
// destination's (0, 0): the first interior pixel.
constexpr int kBorder = 2;

template <class T>
std::vector<T> borderedCopy(const std::vector<T>& image) {
  const int pw = gWidth + 2 * kBorder;
  std::vector<T> out(static_cast<size_t>(pw) * (gHeight + 2 * kBorder));
  for (int y = 0; y < gHeight + 2 * kBorder; ++y)
    for (int x = 0; x < pw; ++x) {
      const int sx = std::min(gWidth - 1, std::max(0, x - kBorder));
      const int sy = std::min(gHeight - 1, std::max(0, y - kBorder));
      out[static_cast<size_t>(y) * pw + x] = image[static_cast<size_t>(sy) * gWidth + sx];
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
    {"blur",
     5,
     {1, 4, 6, 4, 1, 4, 16, 24, 16, 4, 6, 24, 36, 24, 6, 4, 16, 24, 16, 4, 1, 4, 6, 4, 1},
     0},
    {"sharpen", 3, {0, -1, 0, -1, 5, -1, 0, -1, 0}, 0},
    {"laplacian", 3, {0, 1, 0, 1, -4, 1, 0, 1, 0}, 128},
};

// The builds' documented margin for the filters: k0 and k1 add in the x87
// unit's extended precision, k2..k5 in single precision, so a float result
// may differ in its last bits and an integer one by 1 near a halfway point.
template <class T>
bool filterMargin(T first, T other) {
  if constexpr (std::is_floating_point_v<T>)
    return std::fabs(first - other) <= 1e-5f * std::max(1.0f, std::fabs(first));
  else
    return first - other == 1 || other - first == 1;
}

// One kernel on an image in one pixel type, every build at one and two
// threads; writes lumdemo_<kernel>_<type>.pgm, the pixels times `scale`.
template <class T, class Fn>
bool filterDemo(const std::string& dir, const std::vector<T>& image, float scale,
                const Kernel& kernel, const char* type, Fn filterFn) {
  std::vector<float> k = kernel.k;
  float total = 0;
  for (float v : k) total += v;
  if (kernel.offset == 0)
    for (float& v : k) v /= total;  // blur and sharpen keep the brightness
  const std::vector<T> src = borderedCopy(image);
  const int pw = gWidth + 2 * kBorder;
  const int step = pw * static_cast<int>(sizeof(T));
  const T* interior = &src[static_cast<size_t>(kBorder) * pw + kBorder];
  const int c = kernel.size / 2;
  std::vector<T> dst(pixelCount());
  const std::string title = std::string(type) + " " + kernel.name + " " +
                            std::to_string(kernel.size) + "x" + std::to_string(kernel.size);
  const bool ok = runInEveryBuild(
      title.c_str(), dst,
      [&] {
        return filterFn(interior, step, dst.data(), gWidth * static_cast<int>(sizeof(T)),
                        LumSize{gWidth, gHeight}, k.data(), LumSize{kernel.size, kernel.size},
                        LumPoint{c, c});
      },
      true, kEmulator != nullptr ? 1 : 9, filterMargin<T>);
  const std::vector<unsigned char> gray = shown(dst, scale, kernel.offset);
  const std::string name = std::string("lumdemo_") + kernel.name + "_" + type + ".pgm";
  return writeImages(dir, {{name.c_str(), &gray}}) && ok;
}

// Within 1 of each other: the documented margin of the integer divisions.
template <class T>
bool withinOne(T first, T other) {
  return first - other == 1 || other - first == 1;
}

int usage(const char* why) {
  std::fprintf(stderr, "lumdemo: %s\nusage: lumdemo [-o OUTPUT_DIRECTORY] [IMAGE.pgm]\n", why);
  return 2;
}

// ---- The steps of a run -----------------------------------------------------------
// What the command line asks for: where the results go, and the user's image (none: the scene).
struct Options {
  std::string dir = ".", input;
};

// Reads the command line into `options`. Returns -1 to go on, otherwise the exit status, the usage
// printed (for help too).
int readCommandLine(int argc, char** argv, Options& options) {
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    if (arg == "-o" && i + 1 < argc)
      options.dir = argv[++i];
    else if (arg == "-h" || arg == "--help")
      return usage("runs every image function on an image"), 0;
    else if (!arg.empty() && arg[0] == '-')
      return usage(("unknown option " + arg).c_str());
    else if (options.input.empty())
      options.input = arg;
    else
      return usage("give at most one image");
  }
  return -1;
}

// The user's image, checked before anything runs, or the generated scene; it sets the size of
// every image of the run. False, and why on the standard error, where the file is refused.
bool loadPicture(const std::string& input, Image& picture) {
  if (input.empty()) {
    picture = makeScene();
    return true;
  }
  std::vector<unsigned char> bytes;
  std::string why;
  if (!readFile(input, bytes, why) || !PgmReader(bytes).read(picture, why)) {
    std::fprintf(stderr, "lumdemo: %s: %s\n", input.c_str(), why.c_str());
    return false;
  }
  gWidth = picture.width, gHeight = picture.height;
  return true;
}

// The library's version, the processor and the build it selects, then the image.
void printIntroduction(const std::string& input, const Image& picture) {
  const LumLibraryVersion* v = lumiGetLibVersion();
  std::printf("lum %d.%d.%d.%d (%s, %s)\n", v->major, v->minor, v->majorBuild, v->build, v->version,
              v->buildDate);
  printProcessor();
  if (input.empty())
    std::printf("image: a generated scene, %dx%d\n", gWidth, gHeight);
  else
    std::printf("image: %s, %dx%d, %d bits per pixel (maxval %d)\n", input.c_str(), gWidth, gHeight,
                picture.maxval > 255 ? 16 : 8, picture.maxval);
  std::printf("every build below runs on one thread\n");
}

// The picture in the three pixel types: bytes 0..255, shorts 0..32767 (keeping up to 15 bits of a
// 16-bit image), floats 0..1 (its levels).
struct Scene {
  std::vector<Lum8u> u8;
  std::vector<Lum16s> s16;
  std::vector<float> f32;
};

Scene inThreePixelTypes(std::vector<float>&& level) {
  Scene s{std::vector<Lum8u>(level.size()), std::vector<Lum16s>(level.size()), std::move(level)};
  for (size_t i = 0; i < s.f32.size(); ++i) {
    s.u8[i] = static_cast<Lum8u>(s.f32[i] * 255.0f + 0.5f);
    s.s16[i] = static_cast<Lum16s>(s.f32[i] * 32767.0f + 0.5f);
  }
  return s;
}

LumSize imageSize() { return {gWidth, gHeight}; }

// Runs timed in each build for each function (fewer under an emulator, where times mean nothing).
const int kRuns = kEmulator != nullptr ? 3 : 15;

// The picture seen through rings: a float product.
bool showRings(const std::string& dir, const Scene& scene) {
  const std::vector<float> rings = makeRings();
  std::vector<float> product(pixelCount());
  const int w = gWidth;
  bool ok = runInEveryBuild(
      "lumiMul_32f_C1R: image x rings", product,
      [&] {
        return lumiMul_32f_C1R(scene.f32.data(), w * 4, rings.data(), w * 4, product.data(), w * 4,
                               imageSize());
      },
      false, kRuns);
  const std::vector<unsigned char> productGray = shown(product, 255.0f);
  ok &= writeImages(dir, {{"lumdemo_mul_32f.pgm", &productGray}});
  return ok;
}

// Brightness by a gain map: image * gain / 2^7, rounded half to even and saturated at 255 (bytes)
// or 32767 (shorts).
bool brighten(const std::string& dir, const Scene& scene, const std::vector<Lum8u>& gain) {
  const LumSize roi = imageSize();
  const int w = gWidth;
  std::vector<Lum8u> brightened(pixelCount());
  bool ok = runInEveryBuild(
      "lumiMul_8u_C1RSfs: image x gain map, scale factor 7", brightened,
      [&] {
        return lumiMul_8u_C1RSfs(scene.u8.data(), w, gain.data(), w, brightened.data(), w, roi, 7);
      },
      false, kRuns);
  const std::vector<Lum16s> gain16(gain.begin(), gain.end());
  std::vector<Lum16s> brightened16(pixelCount());
  ok &= runInEveryBuild(
      "lumiMul_16s_C1RSfs: the same in 16 bits", brightened16,
      [&] {
        return lumiMul_16s_C1RSfs(scene.s16.data(), w * 2, gain16.data(), w * 2,
                                  brightened16.data(), w * 2, roi, 7);
      },
      false, kRuns);
  const std::vector<unsigned char> brightened16Gray = shown(brightened16, 255.0f / 32767.0f);
  ok &= writeImages(
      dir, {{"lumdemo_mul_8u.pgm", &brightened}, {"lumdemo_mul_16s.pgm", &brightened16Gray}});
  return ok;
}

// Vignetting and its correction: a lens that lets through flat / 128 of the light (about 3/4 in the
// middle, 3/8 in the corners) darkens the image; dividing by the same flat field, scale factor -7
// (times 2^7), brings it back. From SSE2 on the integer quotient is computed in single precision,
// and one that lies within rounding error of a halfway point may round the other way: those pixels
// differ by 1.
bool correctVignetting(const std::string& dir, const Scene& scene, const std::vector<Lum8u>& gain) {
  const size_t n = pixelCount();
  const LumSize roi = imageSize();
  const int w = gWidth;
  std::vector<Lum8u> flat(n), vignetted(n), corrected(n);
  for (size_t i = 0; i < n; ++i) flat[i] = static_cast<Lum8u>(gain[i] / 2 + 1);
  const std::vector<Lum16s> flat16(flat.begin(), flat.end());
  std::vector<Lum16s> vignetted16(n), corrected16(n);
  std::vector<float> flat32f(n), vignetted32f(n), corrected32f(n);
  for (size_t i = 0; i < n; ++i) flat32f[i] = flat[i] / 128.0f;
  lumStaticInitCpu(kCpuCodeForBuild[0]);
  bool ok = lumiMul_8u_C1RSfs(scene.u8.data(), w, flat.data(), w, vignetted.data(), w, roi, 7) ==
            lumStsNoErr;
  ok &= lumiMul_16s_C1RSfs(scene.s16.data(), w * 2, flat16.data(), w * 2, vignetted16.data(), w * 2,
                           roi, 7) == lumStsNoErr;
  ok &= lumiMul_32f_C1R(scene.f32.data(), w * 4, flat32f.data(), w * 4, vignetted32f.data(), w * 4,
                        roi) == lumStsNoErr;
  ok &= runInEveryBuild(
      "lumiDiv_8u_C1RSfs: vignetted image / flat field, scale factor -7", corrected,
      [&] {
        return lumiDiv_8u_C1RSfs(flat.data(), w, vignetted.data(), w, corrected.data(), w, roi, -7);
      },
      false, kRuns, withinOne<Lum8u>);
  ok &= runInEveryBuild(
      "lumiDiv_16s_C1RSfs: the same in 16 bits", corrected16,
      [&] {
        return lumiDiv_16s_C1RSfs(flat16.data(), w * 2, vignetted16.data(), w * 2,
                                  corrected16.data(), w * 2, roi, -7);
      },
      false, kRuns, withinOne<Lum16s>);
  // The float quotient of k1..k5 comes from the reciprocal estimate and may
  // differ from k0's correctly rounded one in its last bits.
  ok &= runInEveryBuild(
      "lumiDiv_32f_C1R: the same in floats", corrected32f,
      [&] {
        return lumiDiv_32f_C1R(flat32f.data(), w * 4, vignetted32f.data(), w * 4,
                               corrected32f.data(), w * 4, roi);
      },
      false, kRuns,
      +[](float first, float other) {
        return std::fabs(first - other) <= 1e-6f * std::fabs(first);
      });
  int worst = 0;
  for (size_t i = 0; i < n; ++i) worst = std::max(worst, std::abs(corrected[i] - scene.u8[i]));
  std::printf("  corrected image within %d of the original (what the darkening rounded away)\n",
              worst);
  const std::vector<unsigned char> corrected16Gray = shown(corrected16, 255.0f / 32767.0f);
  const std::vector<unsigned char> corrected32fGray = shown(corrected32f, 255.0f);
  ok &= writeImages(dir, {{"lumdemo_vignetted_8u.pgm", &vignetted},
                          {"lumdemo_corrected_8u.pgm", &corrected},
                          {"lumdemo_corrected_16s.pgm", &corrected16Gray},
                          {"lumdemo_corrected_32f.pgm", &corrected32fGray}});
  return ok;
}

// A motion map: the absolute difference of two frames of the moving scene, bright where something
// moved, black where nothing did; in bytes, and in floats on the same frames.
bool mapMotion(const std::string& dir, const Scene& scene) {
  const LumSize roi = imageSize();
  const int w = gWidth;
  const std::vector<Lum8u> frame0 = makeFrame(scene.u8, 0), frame1 = makeFrame(scene.u8, 1);
  std::vector<Lum8u> motion(pixelCount());
  bool ok = runInEveryBuild(
      "lumiAbsDiff_8u_C1R: motion between two frames", motion,
      [&] { return lumiAbsDiff_8u_C1R(frame0.data(), w, frame1.data(), w, motion.data(), w, roi); },
      false, kRuns);
  const std::vector<float> float0(frame0.begin(), frame0.end()),
      float1(frame1.begin(), frame1.end());
  std::vector<float> motion32f(pixelCount());
  ok &= runInEveryBuild(
      "lumiAbsDiff_32f_C1R: the same frames as floats", motion32f,
      [&] {
        return lumiAbsDiff_32f_C1R(float0.data(), w * 4, float1.data(), w * 4, motion32f.data(),
                                   w * 4, roi);
      },
      false, kRuns);
  for (size_t i = 0; i < motion.size(); ++i)
    if (motion32f[i] != static_cast<float>(motion[i])) {
      std::printf("  the float motion map differs from the byte one at pixel %zu\n", i);
      ok = false;
      break;
    }
  ok &= writeImages(dir, {{"lumdemo_frame0_8u.pgm", &frame0},
                          {"lumdemo_frame1_8u.pgm", &frame1},
                          {"lumdemo_motion_8u.pgm", &motion}});
  return ok;
}

// Blur, sharpen and edges of the image, as bytes, shorts and floats, from a bordered copy.
bool filterAll(const std::string& dir, const Scene& scene) {
  std::printf("\nfilters on the image from a copy with a %d-pixel border\n", kBorder);
  bool ok = true;
  for (const Kernel& kernel : kKernels) {
    ok &= filterDemo<Lum8u>(dir, scene.u8, 1.0f, kernel, "8u", lumiFilter32f_8u_C1R);
    ok &=
        filterDemo<Lum16s>(dir, scene.s16, 255.0f / 32767.0f, kernel, "16s", lumiFilter32f_16s_C1R);
    ok &= filterDemo<Lum32f>(dir, scene.f32, 255.0f, kernel, "32f", lumiFilter_32f_C1R);
  }
  return ok;
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  if (const int status = readCommandLine(argc, argv, options); status >= 0) return status;
  Image picture;
  if (!loadPicture(options.input, picture)) return 2;
  printIntroduction(options.input, picture);

  const std::string& dir = options.dir;
  const Scene scene = inThreePixelTypes(std::move(picture.level));
  bool ok = writeImages(dir, {{"lumdemo_scene_8u.pgm", &scene.u8}});
  ok &= showRings(dir, scene);
  const std::vector<Lum8u> gain = makeGain();
  ok &= brighten(dir, scene, gain);
  ok &= correctVignetting(dir, scene, gain);
  ok &= mapMotion(dir, scene);
  ok &= filterAll(dir, scene);
  ok &= writeContactSheet(dir);
  std::printf("\n%s\n", ok ? "demo ok" : "demo FAILED");
  return ok ? 0 : 1;
}
