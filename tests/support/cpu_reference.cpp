#include "cpu_reference.h"

#include <algorithm>
#include <cstring>

#include "lum.h"

namespace lumref {

namespace {
uint32_t bit(uint32_t v, int n) { return (v >> n) & 1u; }
// Bits hi..lo of v.
uint32_t field(uint32_t v, int hi, int lo) {
  return uint32_t((uint64_t(v) >> lo) & ((uint64_t(1) << (hi - lo + 1)) - 1));
}
// One cache of the 0x8000001D list, 0 for an entry that is no data or
// unified cache, UINT64_MAX from 2^63 on.
uint64_t listedCacheSize(const std::array<uint32_t, 4>& entry) {
  const uint32_t type = field(entry[0], 4, 0);
  if (type != 1 && type != 3) return 0;
  // Up to 64 significant bits, all of which the x87 extended format holds.
  const long double size = (field(entry[1], 31, 22) + 1.0L) * (field(entry[1], 21, 12) + 1.0L) *
                           (field(entry[1], 11, 0) + 1.0L) * (entry[2] + 1.0L);
  return size >= 0x1p63L ? UINT64_MAX : uint64_t(size);
}
}  // namespace

Leaves readLeaves(void (*cpuid)(uint32_t regs[4], uint32_t leaf)) {
  Leaves s;
  cpuid(s.l0, 0), cpuid(s.l1, 1), cpuid(s.l2, 2), cpuid(s.l4, 4), cpuid(s.x0, 0x80000000u),
      cpuid(s.x1, 0x80000001u);
  return s;
}

bool isGenuineTorva(const Leaves& s) {
  return !std::memcmp(&s.l0[1], "Genu", 4) && !std::memcmp(&s.l0[3], "ineT", 4) &&
         !std::memcmp(&s.l0[2], "orva", 4);
}

int featureLevel(const Leaves& s) {
  const uint32_t ecx = s.l1[2], edx = s.l1[3];
  const uint32_t has[5] = {bit(edx, 23) & bit(edx, 25), bit(edx, 26), bit(ecx, 0), bit(ecx, 9),
                           bit(ecx, 19)};
  int level = 0;
  while (level < 5 && has[level]) ++level;
  return level;
}

std::string queryMismatches(const Leaves& s) {
  const uint32_t eax = s.l1[0], ecx = s.l1[2], edx = s.l1[3];
  const uint32_t smt = bit(edx, 28) && ((s.l1[1] >> 16) & 255) > 1;
  const uint32_t cores = static_cast<int32_t>(s.l0[0]) >= 4 ? (s.l4[0] >> 26) + 1 : 1;
  const uint32_t x64 = s.x0[0] >= 0x80000001u && bit(s.x1[3], 29);
  LumCpuIdent id;
  std::memset(&id, 0x5A, sizeof id);
  lum_get_kestrel_ident(&id);
  // The queries from lum_max_cpuid_input to lum_is_GenuineTorva, then the
  // twenty words of the record: family, stepping, model, type (EAX bits
  // 11..12), featureEdx, leaf-2 EAX and EDX, mmx, spare (the caller's), sse,
  // sse2, smt, sse3, x64, ssse3, coresOnDie, sse41, sse42, extFamily, extModel.
  int got[35] = {lum_max_cpuid_input(),    lum_has_rdtsc(),          lum_is_mmx_extension(),
                 lum_is_ssx_extension(),   lum_is_sse2_extension(),  lum_is_smt_extension(),
                 lum_is_sse3_extension(),  lum_is_ssse3_extension(), lum_is_sse41_extension(),
                 lum_is_sse42_extension(), lum_get_cores_on_die(),   lumGetNumCoresOnDie(),
                 lum_is_x64_extension(),   lum_is_GenuineTorva()};
  std::memcpy(got + 14, &id, 80);
  const uint32_t want[35] = {s.l0[0],
                             bit(edx, 4),
                             bit(edx, 23),
                             bit(edx, 25),
                             bit(edx, 26),
                             smt,
                             bit(ecx, 0),
                             bit(ecx, 9),
                             bit(ecx, 19),
                             bit(ecx, 20),
                             cores,
                             cores,
                             s.x0[0] >= 0x80000001u ? x64 : s.x0[0],
                             isGenuineTorva(s),
                             (eax >> 8) & 15,
                             eax & 15,
                             (eax >> 4) & 15,
                             (eax >> 11) & 3,
                             edx,
                             s.l2[0],
                             s.l2[3],
                             bit(edx, 23),
                             0x5A5A5A5Au,
                             bit(edx, 25),
                             bit(edx, 26),
                             smt,
                             bit(ecx, 0),
                             x64,
                             bit(ecx, 9),
                             cores,
                             bit(ecx, 19),
                             bit(ecx, 20),
                             (eax >> 20) & 255,
                             (eax >> 16) & 15};
  std::string out;
  for (int i = 0; i < 35; ++i)
    if (static_cast<uint32_t>(got[i]) != want[i])
      out += (i < 14 ? "query " + std::to_string(i) : "record word " + std::to_string(i - 14)) +
             ": got " + std::to_string(static_cast<uint32_t>(got[i])) + ", expected " +
             std::to_string(want[i]) + "\n";
  return out;
}

int descriptorSize(uint8_t byte) {
  // Cache size in KiB, and the descriptor bytes that describe a cache of that size.
  static const struct {
    int kib;
    const char* bytes;
  } kSizes[] = {{128, "\x39\x3B\x41\x79"},
                {192, "\x3A"},
                {256, "\x3C\x3F\x42\x7A\x82"},
                {384, "\x3D"},
                {512, "\x22\x3E\x43\x7B\x7F\x80\x83\x86"},
                {1024, "\x23\x44\x78\x7C\x84\x87"},
                {2048, "\x25\x45\x7D\x85"},
                {3072, "\x48"},
                {4096, "\x29\x46\x49"},
                {6144, "\x4A\x4E"},
                {8192, "\x47\x4B"},
                {12288, "\x4C"},
                {16384, "\x4D"}};
  for (const auto& s : kSizes)
    if (byte != 0 && std::strchr(s.bytes, byte) != nullptr) return s.kib * 1024;
  return -1;
}

int leaf2CacheSize(const uint32_t leaf2[4]) {
  if ((leaf2[0] & 255) != 1) return -1;
  // Registers that are not zero and have bit 31 clear, packed without gaps,
  // EAX first; the walk reads bytes 1..count, where EAX counts 3 (its low
  // byte is the round count) and every other kept register 4.
  uint8_t packed[17] = {};
  int bytes = 0, count = 0;
  for (int i = 0; i < 4; ++i)
    if (leaf2[i] != 0 && (leaf2[i] >> 31) == 0)
      std::memcpy(packed + bytes, &leaf2[i], 4), bytes += 4, count += i ? 4 : 3;
  int largest = -1;
  for (int pos = 1; pos <= count; ++pos) largest = std::max(largest, descriptorSize(packed[pos]));
  return largest;
}

int cacheStatus(const Leaves& s, int* size) {
  *size = 0;
  if (static_cast<int32_t>(s.l0[0]) < 2 || !isGenuineTorva(s)) return 36;
  const int found = leaf2CacheSize(s.l2);
  if (found < 0) return 37;
  return *size = found, 0;
}

int extendedCacheSize(const ExtendedLeaves& x) {
  if (x.highest < 0x80000006u || x.highest > 0x8000FFFFu) return 0;
  uint64_t largest = 0;
  if (x.highest >= 0x8000001Du && bit(x.x1Ecx, 22))
    for (const auto& entry : x.cacheList) {
      if (field(entry[0], 4, 0) == 0) break;
      largest = std::max(largest, listedCacheSize(entry));
    }
  if (largest == 0)
    largest = std::max(uint64_t(field(x.x6[2], 31, 16)) * 1024,
                       uint64_t(field(x.x6[3], 31, 18)) * 512 * 1024);
  return int(std::min<uint64_t>(largest, INT32_MAX));
}

}  // namespace lumref
