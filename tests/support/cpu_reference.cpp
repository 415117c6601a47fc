#include "cpu_reference.h"

#include <cstring>

namespace lumref {

namespace {

bool bit(uint32_t v, int n) { return (v >> n) & 1u; }

// Vendor-path table: family, effective model, code; for models whose code
// depends on the core count, the code for more than `coreLimit` cores.
constexpr struct { uint32_t family, model, code, codeAbove, coreLimit; } kVendorRows[] = {
    {5, 1, 1, 1, 0},   {5, 2, 1, 1, 0},    {5, 4, 2, 2, 0},
    {6, 1, 3, 3, 0},   {6, 3, 4, 4, 0},    {6, 5, 4, 4, 0},   {6, 6, 4, 4, 0},
    {6, 7, 5, 5, 0},   {6, 8, 5, 5, 0},    {6, 10, 5, 5, 0},  {6, 11, 5, 5, 0},
    {6, 9, 9, 9, 0},   {6, 13, 9, 9, 0},   {6, 14, 10, 11, 1}, {6, 15, 33, 34, 2},
    {6, 23, 68, 68, 0}, {6, 26, 35, 35, 0}, {6, 28, 36, 36, 0},
};

// Codes by build, as listed for the initializers.
constexpr struct { uint32_t code; int index; } kListed[] = {
    {0, 0}, {1, 0}, {2, 0}, {3, 0}, {4, 0}, {0xFFFFFFFFu, 0},
    {5, 1}, {16, 1}, {17, 1}, {64, 1},
    {6, 2}, {7, 2}, {9, 2}, {65, 2},
    {8, 3}, {10, 3}, {11, 3}, {32, 3}, {66, 3},
    {33, 4}, {34, 4}, {36, 4}, {67, 4},
    {35, 5}, {37, 5}, {68, 5}, {69, 5},
};

// Descriptor byte -> cache size in bytes.
constexpr int KiB = 1024, MiB = 1024 * 1024;
constexpr struct { uint8_t byte; int size; } kDescriptors[] = {
    {0x39, 128 * KiB}, {0x3A, 192 * KiB}, {0x3B, 128 * KiB}, {0x3C, 256 * KiB},
    {0x3D, 384 * KiB}, {0x3E, 512 * KiB}, {0x3F, 256 * KiB}, {0x41, 128 * KiB},
    {0x42, 256 * KiB}, {0x43, 512 * KiB}, {0x44, 1 * MiB},   {0x45, 2 * MiB},
    {0x46, 4 * MiB},   {0x47, 8 * MiB},   {0x48, 3 * MiB},   {0x49, 4 * MiB},
    {0x4A, 6 * MiB},   {0x4B, 8 * MiB},   {0x4C, 12 * MiB},  {0x4D, 16 * MiB},
    {0x4E, 6 * MiB},   {0x22, 512 * KiB}, {0x23, 1 * MiB},   {0x25, 2 * MiB},
    {0x29, 4 * MiB},   {0x78, 1 * MiB},   {0x79, 128 * KiB}, {0x7A, 256 * KiB},
    {0x7B, 512 * KiB}, {0x7C, 1 * MiB},   {0x7D, 2 * MiB},   {0x7F, 512 * KiB},
    {0x80, 512 * KiB}, {0x82, 256 * KiB}, {0x83, 512 * KiB}, {0x84, 1 * MiB},
    {0x85, 2 * MiB},   {0x86, 512 * KiB}, {0x87, 1 * MiB},
};

}  // namespace

int descriptorSize(uint8_t byte) {
  for (const auto& d : kDescriptors)
    if (d.byte == byte) return d.size;
  return -1;
}

bool isGenuineTorva(const Snapshot& s) {
  if (!s.hasCpuid) return false;
  char v[12];
  std::memcpy(v, &s.leaf0.ebx, 4);
  std::memcpy(v + 4, &s.leaf0.edx, 4);
  std::memcpy(v + 8, &s.leaf0.ecx, 4);
  return std::memcmp(v, "GenuineTorva", 12) == 0;
}

uint32_t cpuType(const Snapshot& s) {
  if (!s.hasCpuid) return 0;
  const Regs& l1 = s.leaf1;
  uint32_t family = (l1.eax >> 8) & 15, model = (l1.eax >> 4) & 15;
  if (family == 6 || family == 15) model |= ((l1.eax >> 16) & 15) << 4;
  if (family == 15) family += (l1.eax >> 20) & 255;
  const uint32_t logicalCount = (l1.ebx >> 16) & 255;
  const bool smt = bit(l1.edx, 28) && logicalCount >= 2;
  const bool x64 = (s.ext0.eax << 1) != 0 && bit(s.ext1.edx, 29);
  const uint32_t cores = static_cast<int32_t>(s.leaf0.eax) >= 4 ? (s.leaf4.eax >> 26) + 1 : 1;

  if (isGenuineTorva(s)) {
    if (bit(l1.edx, 30)) return family == 7 ? 16 : 17;
    for (const auto& r : kVendorRows)
      if (r.family == family && r.model == model)
        return r.coreLimit != 0 && cores > r.coreLimit ? r.codeAbove : r.code;
    if (family == 15) {
      if (bit(l1.ecx, 0)) return x64 ? 32 : 8;
      return smt ? 7 : 6;
    }
  }
  // Highest level first.
  const struct { bool present; uint32_t code; } levels[] = {{bit(l1.ecx, 20), 69}, {bit(l1.ecx, 19), 68}, {bit(l1.ecx, 9), 67},
                {bit(l1.ecx, 0), 66},  {bit(l1.edx, 26), 65}, {bit(l1.edx, 25), 64},
                {x64, 96}};
  for (const auto& l : levels)
    if (l.present) return l.code;
  return 0;
}

int explicitIndex(uint32_t code) {
  for (const auto& l : kListed)
    if (l.code == code) return l.index;
  return -1;
}

int autoIndex(uint32_t code) {
  const int i = explicitIndex(code);
  return i < 0 ? 0 : i;
}

int leaf2CacheSize(const Regs& leaf2) {
  if ((leaf2.eax & 255) != 1) return -1;
  // Lay the usable registers out as the library packs them, then look at
  // positions 1..count of that layout (one zero byte past the end).
  const uint32_t regs[4] = {leaf2.eax, leaf2.ebx, leaf2.ecx, leaf2.edx};
  uint8_t layout[17] = {};
  int bytes = 0, count = 0;
  for (int i = 0; i < 4; ++i) {
    if (regs[i] == 0 || bit(regs[i], 31)) continue;
    std::memcpy(layout + bytes, &regs[i], 4);
    bytes += 4;
    count += i == 0 ? 3 : 4;
  }
  int best = -1;
  for (int pos = 1; pos <= count; ++pos) {
    const int size = descriptorSize(layout[pos]);
    if (size > best) best = size;
  }
  return best;
}

int cacheStatus(const Snapshot& s, int* size) {
  *size = 0;
  if (!s.hasCpuid || static_cast<int32_t>(s.leaf0.eax) < 2 || !isGenuineTorva(s)) return 36;
  const int found = leaf2CacheSize(s.leaf2);
  if (found < 0) return 37;
  *size = found;
  return 0;
}

}  // namespace lumref
