// The fuzz targets' reading of their input as the arguments of one call. Each read takes the bytes
// it needs from the front; past the end it reads zeros, so every input, however short, is a call.
// Sizes, steps and scale factors are mostly ordinary, with the hostile values (zero, negative, the
// ends of int, rows too long for any step) drawn often enough to be tried every few thousand
// inputs.
#ifndef LUM_TESTS_SUPPORT_FUZZ_INPUT_H
#define LUM_TESTS_SUPPORT_FUZZ_INPUT_H

#include <climits>
#include <cstdint>
#include <cstring>
#include <vector>

#include "support/harness.h"
#include "support/processor.h"

namespace lumtest {

class FuzzInput {
 public:
  FuzzInput(const uint8_t* data, size_t size) : p_(data), end_(data + size) {}
  int byte() { return p_ < end_ ? *p_++ : 0; }
  uint32_t word() {
    uint32_t w = 0;
    for (int i = 0; i < 4; ++i) w |= uint32_t(byte()) << 8 * i;
    return w;
  }
  // One of n choices (n up to 256).
  int pick(int n) { return byte() % n; }

  // A build this processor runs: the one asked for, or the highest below it.
  int build() {
    int k = pick(LUM_NUM_BUILDS);
    while (k > 0 && !processorRunsBuild(k)) --k;
    return k;
  }
  int threads() { return 1 + pick(4); }
  int env() { return pick(kNumEnvs); }

  // A width, height or length: 1..most mostly; else 0, negative, INT_MIN, near INT_MAX, or one
  // whose bytes wrap in 32 bits (2^30 + a little: four bytes a pixel give a small number).
  int extent(int most) {
    switch (pick(16)) {
      case 0:
        return 0;
      case 1:
        return -1 - byte();
      case 2:
        return INT_MIN;
      case 3:
        return INT_MAX - byte();
      case 4:
        return (1 << 30) + byte();
      default:
        return 1 + int((byte() | byte() << 8) % unsigned(most));
    }
  }
  static bool hostile(int extent, int most) { return extent < 1 || extent > most; }

  // A scale factor: -45..45 mostly, else the ends of int or far beyond every shift.
  int scaleFactor() {
    switch (pick(16)) {
      case 0:
        return INT_MIN;
      case 1:
        return INT_MAX;
      case 2:
        return int(word());
      default:
        return pick(91) - 45;
    }
  }

  // A step for rows of `rowBytes` with pixels of `unit` bytes: padded by whole pixels, exact,
  // padded by a part of a pixel, short of a row, zero, bottom-up, or bottom-up and short.
  int step(int rowBytes, int unit) {
    switch (pick(8)) {
      case 0:
      case 1:
      case 2:
        return rowBytes + unit * pick(8);
      case 3:
        return rowBytes + pick(7);
      case 4:
        return rowBytes - 1 - byte() % rowBytes;
      case 5:
        return 0;
      case 6:
        return -rowBytes - unit * pick(4);
      default:
        return -(byte() % (rowBytes + 1));
    }
  }
  // Where an operand lies: its step, the pattern between it and the guard page, which end it is at.
  Place place(int rowBytes, int unit) {
    const int s = step(rowBytes, unit);
    return {s, pick(16), pick(2) == 1};
  }

  // The bytes not read yet, for the pixels; taken whole.
  std::vector<uint8_t> rest() {
    std::vector<uint8_t> r(p_, end_);
    p_ = end_;
    return r;
  }
  // `count` values of T from the rest, over and over; from a fixed sequence when there is no rest.
  template <class T>
  std::vector<T> pixels(size_t count) {
    std::vector<uint8_t> bytes = rest();
    for (uint32_t i = 0, s = 1; bytes.empty() && i < 64; ++i)
      bytes.push_back(uint8_t((s = s * 1664525u + 1013904223u) >> 24));
    std::vector<T> v(count);
    for (size_t i = 0; i < count * sizeof(T); ++i)
      reinterpret_cast<uint8_t*>(v.data())[i] = bytes[i % bytes.size()];
    return v;
  }

 private:
  const uint8_t *p_, *end_;
};

}  // namespace lumtest

#endif
