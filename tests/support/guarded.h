// Guarded memory for image tests: the region a call may touch sits between
// two inaccessible pages, so a read or write one byte outside it faults, and
// every byte of the block that is not in the region is filled with a
// pattern that is checked afterwards.
#ifndef LUM_TESTS_SUPPORT_GUARDED_H
#define LUM_TESTS_SUPPORT_GUARDED_H

#include <stddef.h>
#include <stdint.h>

#include <string>
#include <vector>

namespace lumtest {

// Which guard page the region is placed against; `gap` bytes of pattern are
// left between that guard and the region (0 = flush against it).
enum class Against { End, Start };

// width x height pixels of `pixelBytes` each, rows `step` bytes apart (any
// sign, zero included).
struct Geometry {
  int width, height, pixelBytes, step;
};

// An image operand in guarded memory. Row y of the region starts at
// origin() + y * step; the rest of the block is pattern.
class GuardedImage {
 public:
  GuardedImage(const Geometry& g, Against against = Against::End, int gap = 0);
  ~GuardedImage();
  GuardedImage(const GuardedImage&) = delete;
  GuardedImage& operator=(const GuardedImage&) = delete;

  template <class T>
  T* origin() const { return reinterpret_cast<T*>(origin_); }
  int step() const { return g_.step; }

  void load(const std::vector<uint8_t>& pixels);  // the region's pixels, row by row
  std::vector<uint8_t> store() const;
  // Empty when every byte outside the region still holds its pattern,
  // otherwise a description of the first bytes that changed.
  std::string paddingDamage() const;
  void protect(bool readOnly);  // the whole block

 private:
  uint8_t* row(int y) const { return origin_ + static_cast<ptrdiff_t>(y) * g_.step; }
  bool inRegion(size_t offset) const;

  Geometry g_;
  uint8_t *map_, *begin_, *origin_;  // the mapping, its first accessible byte, row 0
  size_t mapBytes_;
  std::vector<uint8_t> pattern_;    // the accessible bytes as they were set
};

}  // namespace lumtest

#endif
