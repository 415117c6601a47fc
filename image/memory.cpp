// Float buffers aligned to 32 bytes, for the work buffers of the vector
// builds (k1..k5 each carry their own pair; the generic build has none).
//
// The block from i_malloc is 4 * n + 36 bytes: up to 35 bytes of lead-in
// reach the next 32-byte boundary past the word that keeps the raw pointer,
// which sits just below the aligned area. Every copy uses this layout, so
// any copy releases what another handed out. The size is 32-bit arithmetic
// as it stands: a count so large that it wraps asks for the wrapped size.
#include "image/build.h"

#if LUM_BUILD >= 1

extern "C" Lum32f* LUM_ENTRY(lumsMalloc_32f)(int n) {
  if (n < 1) return nullptr;
  const uint32_t bytes = 4u * static_cast<uint32_t>(n) + 36u;
  void* const raw = i_malloc(bytes);
  if (raw == nullptr) return nullptr;
  const uintptr_t aligned = (reinterpret_cast<uintptr_t>(raw) + 35u) & ~uintptr_t{31};
  __builtin_memcpy(reinterpret_cast<void*>(aligned - sizeof raw), &raw, sizeof raw);
  return reinterpret_cast<Lum32f*>(aligned);
}

extern "C" void LUM_ENTRY(lumsFree)(Lum32f* p) {
  if (p == nullptr) return;
  void* raw;
  __builtin_memcpy(&raw, reinterpret_cast<const unsigned char*>(p) - sizeof raw, sizeof raw);
  i_free(raw);
}

#endif
