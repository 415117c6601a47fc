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

// Pages of accessible memory between a leading and a trailing guard page.
class GuardedBlock {
 public:
  explicit GuardedBlock(size_t bytes);
  ~GuardedBlock();
  GuardedBlock(const GuardedBlock&) = delete;
  GuardedBlock& operator=(const GuardedBlock&) = delete;

  uint8_t* begin() const { return begin_; }  // first accessible byte
  uint8_t* end() const { return end_; }      // one past the last accessible byte

 private:
  uint8_t* map_ = nullptr;
  size_t mapBytes_ = 0;
  uint8_t* begin_ = nullptr;
  uint8_t* end_ = nullptr;
};

// Geometry of an image operand: width x height pixels of `pixelBytes` each,
// rows `step` bytes apart (any sign, zero included).
struct Geometry {
  int width;
  int height;
  int pixelBytes;
  int step;
};

// An image operand in guarded memory. Row y of the region starts at
// origin() + y * step; the rest of the block is pattern.
class GuardedImage {
 public:
  GuardedImage(const Geometry& g, Against against = Against::End, int gap = 0);

  template <class T>
  T* origin() const { return reinterpret_cast<T*>(origin_); }
  template <class T>
  T* row(int y) const {
    return reinterpret_cast<T*>(origin_ + static_cast<ptrdiff_t>(y) * g_.step);
  }
  const Geometry& geometry() const { return g_; }
  int step() const { return g_.step; }

  // Sets every region pixel from raw little-endian bytes, row by row
  // (width * pixelBytes bytes a row).
  void load(const std::vector<uint8_t>& pixels);
  // The region's pixels, row by row.
  std::vector<uint8_t> store() const;
  // Empty when every byte outside the region still holds its pattern,
  // otherwise a description of the first bytes that changed.
  std::string paddingDamage() const;
  // Makes the whole block read-only (or writable again).
  void protect(bool readOnly);

 private:
  bool inRegion(size_t offset) const;

  Geometry g_;
  GuardedBlock block_;
  uint8_t* origin_;
  std::vector<uint8_t> pattern_;
};

}  // namespace lumtest

#endif
