// lumiSet_8u_C1R / lumiSet_16s_C1R: every pixel of a region set to one
// value. Not dispatched: the multiplications of the same build call them to
// write their all-zero results.
//
// The row writers work on bytes and a pattern of the value repeated. An 8u
// pattern has one byte per period, a 16s pattern two; whenever a writer moves
// its pointer by an odd number of bytes it turns the pattern by one byte, so
// that a 16s row starting at an odd address is still filled byte-exactly.
#include <stddef.h>

#include "image/build.h"
#include "image/checks.h"

LUM_BEGIN_BUILD

namespace {

// A region this large is written past the caches: nobody reads a freshly
// zeroed destination of that size soon enough for it to be worth caching.
// The writers stream whole lines only (image/build.h).
constexpr unsigned long long kStreamAbove = 2097152;

// The two bytes of the value in memory order (equal for 8u).
struct PatternBytes {
  uint8_t b[2];
  uint8_t at(size_t offset) const { return b[offset & 1]; }
};

inline void setBytes(PatternBytes pat, uint8_t* p, size_t n) {
  for (size_t i = 0; i < n; ++i) p[i] = pat.at(i);
}

// LUM_MMX_INLINE: k1's row writer turns the pattern while its MMX pattern is live.
LUM_MMX_INLINE PatternBytes turned(PatternBytes pat) { return PatternBytes{{pat.b[1], pat.b[0]}}; }

#if LUM_BUILD >= 2

inline __m128i turnedByOne(__m128i v) {
  return _mm_or_si128(_mm_srli_si128(v, 1), _mm_slli_si128(v, 15));
}

// Row writer: n bytes from p. Short rows with up to three unaligned 16-byte
// stores; longer ones with one unaligned store that covers the way to the
// next 16-byte boundary, then aligned 64-byte blocks, then up to three
// 16-byte stores and single bytes. When `stream`, the blocks are the row's
// whole 64-byte lines, streamed and fenced right after them, and the aligned
// stores before the first line boundary are ordinary ones.
void setRow(__m128i pattern, PatternBytes pat, uint8_t* p, size_t n, bool stream) {
  if (n >= 64) {
    const size_t misaligned = reinterpret_cast<uintptr_t>(p) & 15;
    if (misaligned != 0) {
      _mm_storeu_si128(reinterpret_cast<__m128i*>(p), pattern);
      const size_t advance = 16 - misaligned;
      p += advance;
      n -= advance;
      if (advance & 1) {
        pattern = turnedByOne(pattern);
        pat = turned(pat);
      }
    }
    __m128i* q = reinterpret_cast<__m128i*>(p);
    if (stream) {
      for (; n >= 16 && bytesToLine(q) != 0; n -= 16, ++q) _mm_store_si128(q, pattern);
      for (; n >= 64; n -= 64, q += 4) {
        _mm_stream_si128(q, pattern);
        _mm_stream_si128(q + 1, pattern);
        _mm_stream_si128(q + 2, pattern);
        _mm_stream_si128(q + 3, pattern);
      }
      // Streamed stores are weakly ordered: make them visible before returning.
      _mm_sfence();
    } else {
      for (; n >= 64; n -= 64, q += 4) {
        _mm_store_si128(q, pattern);
        _mm_store_si128(q + 1, pattern);
        _mm_store_si128(q + 2, pattern);
        _mm_store_si128(q + 3, pattern);
      }
    }
    p = reinterpret_cast<uint8_t*>(q);
  }
  for (int k = 0; k < 3 && n >= 16; ++k, p += 16, n -= 16)
    _mm_storeu_si128(reinterpret_cast<__m128i*>(p), pattern);
  setBytes(pat, p, n);
}

#elif LUM_BUILD == 1

typedef __m64 Unaligned64 __attribute__((aligned(1), may_alias));

// Row writer of the MMX build, which always streams: bytewise below 8 bytes;
// otherwise one unaligned 8-byte store that covers the way to the next
// 8-byte boundary, 8-byte stores to the first 64-byte line boundary, the
// row's whole lines in blocks of eight streamed stores, 8-byte stores,
// single bytes. Each row ends with a store fence and
// leaves the MMX registers free for the x87 unit.
LUM_MMX_LEAF void setRow(PatternBytes pat, uint8_t* p, size_t n) {
  if (n >= 8) {
    const short value = static_cast<short>(pat.b[0] | (pat.b[1] << 8));
    __m64 pattern = _mm_set1_pi16(value);
    *reinterpret_cast<Unaligned64*>(p) = pattern;
    const size_t advance = (8 - (reinterpret_cast<uintptr_t>(p) & 7)) & 7;
    p += advance;
    n -= advance;
    if (advance & 1) {
      pat = turned(pat);
      pattern = _mm_set1_pi16(static_cast<short>(pat.b[0] | (pat.b[1] << 8)));
    }
    __m64* q = reinterpret_cast<__m64*>(p);
    for (; n >= 8 && bytesToLine(q) != 0; n -= 8, ++q) *q = pattern;
    for (; n >= 64; n -= 64, q += 8) {
      _mm_stream_pi(q, pattern);
      _mm_stream_pi(q + 1, pattern);
      _mm_stream_pi(q + 2, pattern);
      _mm_stream_pi(q + 3, pattern);
      _mm_stream_pi(q + 4, pattern);
      _mm_stream_pi(q + 5, pattern);
      _mm_stream_pi(q + 6, pattern);
      _mm_stream_pi(q + 7, pattern);
    }
    for (; n >= 8; n -= 8, ++q) *q = pattern;
    p = reinterpret_cast<uint8_t*>(q);
    _mm_sfence();
    _mm_empty();
  }
  setBytes(pat, p, n);
}

#endif

// The checks of both fills: the pointer, then width and height below 1.
inline LumStatus setChecks(const void* pDst, LumSize roiSize) {
  return firstFailing(pointers(pDst), sizes(roiSize.width, roiSize.height));
}

// Fills `height` rows of `rowBytes` bytes, `step` bytes apart, with the
// pattern; `totalBytes` decides streaming in k2..k5.
void setRegion(PatternBytes pat, uint8_t* pDst, int step, size_t rowBytes, int height,
               unsigned long long totalBytes) {
#if LUM_BUILD >= 2
  const __m128i pattern = _mm_set1_epi16(static_cast<short>(pat.b[0] | (pat.b[1] << 8)));
  const bool stream = totalBytes > kStreamAbove;
  for (int y = 0; y < height; ++y) setRow(pattern, pat, rowAt(pDst, step, y), rowBytes, stream);
#elif LUM_BUILD == 1
  (void)totalBytes;
  for (int y = 0; y < height; ++y) setRow(pat, rowAt(pDst, step, y), rowBytes);
#else
  (void)totalBytes;
  for (int y = 0; y < height; ++y) setBytes(pat, rowAt(pDst, step, y), rowBytes);
#endif
}

}  // namespace

LUM_END_BUILD

extern "C" LumStatus LUM_ENTRY(lumiSet_8u_C1R)(Lum8u value, Lum8u* pDst, int dstStep,
                                               LumSize roiSize) {
  using namespace lum::LUM_TAG;
  if (const LumStatus st = setChecks(pDst, roiSize)) return st;
  const PatternBytes pat{{value, value}};
  const size_t width = static_cast<size_t>(roiSize.width);
  const unsigned long long total = static_cast<unsigned long long>(width) * roiSize.height;
  if (kBuild == 0) {
    for (int y = 0; y < roiSize.height; ++y) {
      Lum8u* row = rowAt(pDst, dstStep, y);
      for (size_t x = 0; x < width; ++x) row[x] = value;
    }
  } else if (dstStep == roiSize.width) {
    // Contiguous rows: one long row.
    setRegion(pat, pDst, 0, static_cast<size_t>(total), 1, total);
  } else {
    setRegion(pat, pDst, dstStep, width, roiSize.height, total);
  }
  return lumStsNoErr;
}

extern "C" LumStatus LUM_ENTRY(lumiSet_16s_C1R)(Lum16s value, Lum16s* pDst, int dstStep,
                                                LumSize roiSize) {
  using namespace lum::LUM_TAG;
  if (const LumStatus st = setChecks(pDst, roiSize)) return st;
  const uint16_t bits = static_cast<uint16_t>(value);
  const PatternBytes pat{{static_cast<uint8_t>(bits & 0xFF), static_cast<uint8_t>(bits >> 8)}};
  const size_t rowBytes = 2 * static_cast<size_t>(roiSize.width);
  if (kBuild == 0) {
    for (int y = 0; y < roiSize.height; ++y) {
      // A pixel at a time, also when the row starts at an odd address.
      uint8_t* row = reinterpret_cast<uint8_t*>(rowAt(pDst, dstStep, y));
      for (size_t x = 0; x < rowBytes; x += 2) {
        row[x] = pat.b[0];
        row[x + 1] = pat.b[1];
      }
    }
  } else {
    setRegion(pat, reinterpret_cast<uint8_t*>(pDst), dstStep, rowBytes, roiSize.height,
              static_cast<unsigned long long>(rowBytes) * roiSize.height);
  }
  return lumStsNoErr;
}
