#include "guarded.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <stdexcept>

namespace lumtest {

GuardedImage::GuardedImage(const Geometry& g, Against against, int gap) : g_(g) {
  // Offsets of the region's first byte and one past its last, relative to
  // row 0, over all rows (steps may be negative or zero).
  const ptrdiff_t last = static_cast<ptrdiff_t>(g.height - 1) * g.step;
  const ptrdiff_t lo = last < 0 ? last : 0, hi = (last > 0 ? last : 0) + ptrdiff_t(g.width) * g.pixelBytes;
  const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
  const size_t body = (static_cast<size_t>(hi - lo + gap) + page - 1 + (hi - lo + gap == 0)) / page * page;
  mapBytes_ = body + 2 * page;
  void* p = mmap(nullptr, mapBytes_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (p == MAP_FAILED) throw std::runtime_error("mmap failed");
  map_ = static_cast<uint8_t*>(p);
  begin_ = map_ + page;
  if (mprotect(begin_, body, PROT_READ | PROT_WRITE) != 0) throw std::runtime_error("mprotect failed");
  origin_ = (against == Against::Start ? begin_ + gap : begin_ + body - gap - (hi - lo)) - lo;

  // A pseudo-random pattern, so that a stray store of any one value shows.
  pattern_.resize(body);
  uint32_t s = 0x9E3779B9u ^ static_cast<uint32_t>(body);
  for (uint8_t& b : pattern_) {
    s = s * 1664525u + 1013904223u;
    b = static_cast<uint8_t>(s >> 24);
  }
  std::memcpy(begin_, pattern_.data(), body);
}

GuardedImage::~GuardedImage() { munmap(map_, mapBytes_); }

bool GuardedImage::inRegion(size_t offset) const {
  const ptrdiff_t rel = static_cast<ptrdiff_t>(offset) - (origin_ - begin_);
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
  for (int y = 0; y < g_.height; ++y) std::memcpy(row(y), pixels.data() + rowBytes * y, rowBytes);
}

std::vector<uint8_t> GuardedImage::store() const {
  const size_t rowBytes = static_cast<size_t>(g_.width) * g_.pixelBytes;
  std::vector<uint8_t> out(rowBytes * g_.height);
  for (int y = 0; y < g_.height; ++y) std::memcpy(out.data() + rowBytes * y, row(y), rowBytes);
  return out;
}

std::string GuardedImage::paddingDamage() const {
  std::string report;
  int shown = 0;
  for (size_t i = 0; i < pattern_.size(); ++i) {
    if (begin_[i] == pattern_[i] || inRegion(i)) continue;
    if (shown++ < 8) {
      char line[96];
      std::snprintf(line, sizeof line, "byte %td from row 0: was 0x%02x, now 0x%02x\n",
                    static_cast<ptrdiff_t>(i) - (origin_ - begin_), pattern_[i], begin_[i]);
      report += line;
    }
  }
  if (shown > 8) report += "... " + std::to_string(shown - 8) + " more\n";
  return report;
}

void GuardedImage::protect(bool readOnly) {
  mprotect(begin_, pattern_.size(), readOnly ? PROT_READ : PROT_READ | PROT_WRITE);
}

}  // namespace lumtest
