// Operands between inaccessible pages: rows at any step against a guard page, the rest of their
// block a pattern nothing may change, and where the operands of one call lie.
#ifndef LUM_TESTS_SUPPORT_GUARDED_IMAGE_H
#define LUM_TESTS_SUPPORT_GUARDED_IMAGE_H

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace lumtest {

// A Place is a step in bytes (any sign, zero included) and the gap of pattern between the region
// and the guard page it lies against. An Image holds `height` rows of `rowBytes` between two
// inaccessible pages, the rest of its block a pseudo-random pattern.
struct Place {
  int step, gap = 0;
  bool atStart = false;
};
struct Image {
  Image(int rowBytes, int height, const Place& p)
      : step(p.step), page(size_t(sysconf(_SC_PAGESIZE))) {
    const ptrdiff_t last = ptrdiff_t(height - 1) * step, lo = std::min<ptrdiff_t>(last, 0),
                    span = std::max<ptrdiff_t>(last, 0) - lo + rowBytes;
    body = (span + p.gap + page - 1) / page * page;
    map = static_cast<uint8_t*>(
        mmap(nullptr, body + 2 * page, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    protect(PROT_READ | PROT_WRITE);
    origin = (p.atStart ? begin() + p.gap : begin() + body - p.gap - span) - lo;
    for (uint32_t i = 0, s = uint32_t(reinterpret_cast<uintptr_t>(map)); i < body; ++i)
      begin()[i] = uint8_t((s = s * 1664525u + 1013904223u) >> 24);
  }
  ~Image() { munmap(map, body + 2 * page); }
  uint8_t* begin() const { return map + page; }
  uint8_t* row(int y) const { return origin + ptrdiff_t(y) * step; }
  std::vector<uint8_t> bytes() const { return {begin(), begin() + body}; }
  void protect(int prot) const { mprotect(begin(), body, prot); }
  int step;
  size_t page, body;
  uint8_t *map, *origin;
};

// Where the operands lie; inPlace 0 or 1: the destination is that source.
struct Layout {
  int width, height;
  Place src[2], dst;
  int inPlace = -1;
};

}  // namespace lumtest

#endif
