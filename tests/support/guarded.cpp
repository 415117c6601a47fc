#include "guarded.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

namespace lumtest {

namespace {

size_t pageSize() { return static_cast<size_t>(sysconf(_SC_PAGESIZE)); }

size_t roundUp(size_t n, size_t m) { return (n + m - 1) / m * m; }

}  // namespace

GuardedBlock::GuardedBlock(size_t bytes) {
  const size_t page = pageSize();
  const size_t body = roundUp(bytes == 0 ? 1 : bytes, page);
  mapBytes_ = body + 2 * page;
  void* p = mmap(nullptr, mapBytes_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (p == MAP_FAILED) throw std::runtime_error("mmap failed");
  map_ = static_cast<uint8_t*>(p);
  if (mprotect(map_ + page, body, PROT_READ | PROT_WRITE) != 0)
    throw std::runtime_error("mprotect failed");
  begin_ = map_ + page;
  end_ = begin_ + body;
}

GuardedBlock::~GuardedBlock() { munmap(map_, mapBytes_); }

namespace {

// Offsets of the region's first byte and one past its last byte, relative to
// row 0, over all rows (steps may be negative or zero).
void regionExtent(const Geometry& g, ptrdiff_t* lo, ptrdiff_t* hi) {
  const ptrdiff_t last = static_cast<ptrdiff_t>(g.height - 1) * g.step;
  const ptrdiff_t rowBytes = static_cast<ptrdiff_t>(g.width) * g.pixelBytes;
  *lo = last < 0 ? last : 0;
  *hi = (last > 0 ? last : 0) + rowBytes;
}

size_t blockBytes(const Geometry& g, int gap) {
  ptrdiff_t lo, hi;
  regionExtent(g, &lo, &hi);
  return static_cast<size_t>(hi - lo) + static_cast<size_t>(gap);
}

}  // namespace

GuardedImage::GuardedImage(const Geometry& g, Against against, int gap)
    : g_(g), block_(blockBytes(g, gap)) {
  ptrdiff_t lo, hi;
  regionExtent(g, &lo, &hi);
  uint8_t* first = against == Against::Start ? block_.begin() + gap
                                             : block_.end() - gap - (hi - lo);
  origin_ = first - lo;

  // A pseudo-random pattern, so that a stray store of any one value shows.
  const size_t n = static_cast<size_t>(block_.end() - block_.begin());
  pattern_.resize(n);
  uint32_t s = 0x9E3779B9u ^ static_cast<uint32_t>(n);
  for (size_t i = 0; i < n; ++i) {
    s = s * 1664525u + 1013904223u;
    pattern_[i] = static_cast<uint8_t>(s >> 24);
  }
  std::memcpy(block_.begin(), pattern_.data(), n);
}

bool GuardedImage::inRegion(size_t offset) const {
  const ptrdiff_t rel = static_cast<ptrdiff_t>(offset) - (origin_ - block_.begin());
  const ptrdiff_t rowBytes = static_cast<ptrdiff_t>(g_.width) * g_.pixelBytes;
  if (g_.step >= rowBytes) {  // rows apart and in address order: one division
    if (rel < 0) return false;
    const ptrdiff_t y = rel / g_.step;
    return y < g_.height && rel - y * g_.step < rowBytes;
  }
  for (int y = 0; y < g_.height; ++y) {
    const ptrdiff_t start = static_cast<ptrdiff_t>(y) * g_.step;
    if (rel >= start && rel < start + rowBytes) return true;
  }
  return false;
}

void GuardedImage::load(const std::vector<uint8_t>& pixels) {
  const size_t rowBytes = static_cast<size_t>(g_.width) * g_.pixelBytes;
  if (pixels.size() != rowBytes * g_.height) throw std::logic_error("load: wrong size");
  for (int y = 0; y < g_.height; ++y)
    std::memcpy(row<uint8_t>(y), pixels.data() + rowBytes * y, rowBytes);
}

std::vector<uint8_t> GuardedImage::store() const {
  const size_t rowBytes = static_cast<size_t>(g_.width) * g_.pixelBytes;
  std::vector<uint8_t> out(rowBytes * g_.height);
  for (int y = 0; y < g_.height; ++y)
    std::memcpy(out.data() + rowBytes * y, row<uint8_t>(y), rowBytes);
  return out;
}

std::string GuardedImage::paddingDamage() const {
  std::string report;
  int shown = 0;
  const size_t n = pattern_.size();
  const uint8_t* b = block_.begin();
  for (size_t i = 0; i < n; ++i) {
    if (b[i] == pattern_[i] || inRegion(i)) continue;
    if (shown++ < 8) {
      char line[96];
      std::snprintf(line, sizeof line, "byte %td from row 0: was 0x%02x, now 0x%02x\n",
                    static_cast<ptrdiff_t>(i) - (origin_ - b), pattern_[i], b[i]);
      report += line;
    }
  }
  if (shown > 8) report += "... " + std::to_string(shown - 8) + " more\n";
  return report;
}

void GuardedImage::protect(bool readOnly) {
  mprotect(block_.begin(), static_cast<size_t>(block_.end() - block_.begin()),
           readOnly ? PROT_READ : PROT_READ | PROT_WRITE);
}

}  // namespace lumtest
