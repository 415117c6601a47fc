// The largest cache the processor describes through the descriptor bytes of
// CPUID leaf 2. Worked out on the first call and kept for the life of the
// process. Absolute difference of large float images compares its regions
// with it to choose streaming stores; where the query fails it takes the
// largest cache the extended leaves describe instead.
#include <limits.h>
#include <pthread.h>

#include "cpu_internal.h"

extern "C" {

// Ordered by decreasing size, so the first descriptor found is the largest
// cache: keep the order when adding entries.
const OwnCacheDescriptor ownCacheDescriptors[] = {
    {0x4D, 16777216}, {0x4C, 12582912}, {0x4B, 8388608}, {0x47, 8388608}, {0x4E, 6291456},
    {0x4A, 6291456},  {0x49, 4194304},  {0x29, 4194304}, {0x46, 4194304}, {0x48, 3145728},
    {0x25, 2097152},  {0x7D, 2097152},  {0x85, 2097152}, {0x45, 2097152}, {0x23, 1048576},
    {0x87, 1048576},  {0x7C, 1048576},  {0x78, 1048576}, {0x84, 1048576}, {0x44, 1048576},
    {0x22, 524288},   {0x7B, 524288},   {0x80, 524288},  {0x86, 524288},  {0x3E, 524288},
    {0x7F, 524288},   {0x83, 524288},   {0x43, 524288},  {0x3D, 393216},  {0x7A, 262144},
    {0x82, 262144},   {0x3C, 262144},   {0x3F, 262144},  {0x42, 262144},  {0x3A, 196608},
    {0x79, 131072},   {0x39, 131072},   {0x3B, 131072},  {0x41, 131072},  {0, 0},
};

}  // extern "C"

namespace {

// The answer, worked out once: the first calls may come from several
// threads at once, so it is computed under a lock and published through
// `g_known`; later calls read it without the lock.
pthread_mutex_t g_cacheLock = PTHREAD_MUTEX_INITIALIZER;
int g_known = 0;
LumStatus g_cacheStatus = lumStsNoOperation;
int g_cacheSize = 0;
// The cache the float absolute difference compares its regions with.
int g_largestCache = 0;

constexpr Lum32u kRegisterInvalid = 1u << 31;

// Leaf 0x8000001D lists the caches one sub-leaf each, where leaf 0x80000001
// sets ECX bit 22. Its sizes are those of one cache, as the cores that share
// it see it; leaf 0x80000006's level 3 may instead count every such cache of
// the package, several times what one core can keep.
constexpr Lum32u kCacheListLeaf = 0x8000001Du;
constexpr Lum32u kExtEcxCacheList = 1u << 22;
// More sub-leaves than any processor lists caches: the walk stops there
// should a processor never answer with the end of the list.
constexpr Lum32u kCacheListMax = 16;

// Size in bytes of the largest data or unified cache of the list, at most
// INT_MAX; 0 where it names none. Instruction caches hold no pixels.
int largestListedCache() {
  constexpr unsigned long long kCap = INT_MAX;
  unsigned long long largest = 0;
  for (Lum32u sub = 0; sub < kCacheListMax; ++sub) {
    Lum32u r[4];
    ownGetReg(r, kCacheListLeaf, sub);
    const Lum32u type = r[0] & 0x1Fu;  // 0 ends the list
    if (type == 0) break;
    if (type != 1 && type != 3) continue;
    const unsigned long long ways = (r[1] >> 22) + 1;
    const unsigned long long partitions = ((r[1] >> 12) & 0x3FFu) + 1;
    const unsigned long long lineBytes = (r[1] & 0xFFFu) + 1;
    const unsigned long long sets = static_cast<unsigned long long>(r[2]) + 1;
    // The four counts may multiply to 2^64, past 64 bits: ways x
    // partitions x line bytes (2^32 at most) tells how many sets stay
    // within the cap before the sets multiply it.
    const unsigned long long lineGroup = ways * partitions * lineBytes;
    const unsigned long long size = sets > kCap / lineGroup ? kCap : lineGroup * sets;
    if (size > largest) largest = size;
  }
  return static_cast<int>(largest);
}

}  // namespace

extern "C" {

int ownGetCacheSize(const OwnCacheDescriptor* table) {
  Lum32u r[4];
  ownGetReg(r, 2, 0);
  // The low byte of EAX is the number of rounds leaf 2 needs; only the
  // single-round form is read.
  if ((r[0] & 0xFFu) != 1) return -1;

  // Pack the registers that hold descriptors, EAX first. The buffer starts
  // cleared: when EAX is dropped the walk below looks at one byte past the
  // packed data, and a zero there matches no descriptor.
  Lum8u packed[16] = {};
  int bytes = 0;
  int count = 0;
  for (int i = 0; i < 4; ++i) {
    const Lum32u reg = (r[i] & kRegisterInvalid) ? 0 : r[i];
    if (reg == 0) continue;
    for (int b = 0; b < 4; ++b) packed[bytes++] = static_cast<Lum8u>(reg >> (8 * b));
    count += i == 0 ? 3 : 4;  // EAX's low byte is the round count
  }
  if (count == 0) return -1;

  // Positions count down to 1; position 0 is never a descriptor when EAX is
  // kept. With EAX dropped the range stays the same, shifted by one byte.
  for (const OwnCacheDescriptor* e = table; e->descriptor != 0; ++e) {
    const Lum8u wanted = static_cast<Lum8u>(e->descriptor & 0xFFu);
    for (int pos = count; pos >= 1; --pos)
      if (packed[pos] == wanted) return static_cast<int>(e->size);
  }
  return -1;
}

int ownGetExtendedCacheSize(void) {
  if (!lum_has_cpuid()) return 0;
  Lum32u r[4];
  ownGetReg(r, 0x80000000u, 0);
  // A processor without extended leaves may answer with anything below
  // 0x80000000, or with its basic leaves' contents.
  const Lum32u highest = r[0];
  if ((highest & 0xFFFF0000u) != 0x80000000u || highest < 0x80000006u) return 0;
  if (highest >= kCacheListLeaf) {
    ownGetReg(r, 0x80000001u, 0);
    const int listed = (r[2] & kExtEcxCacheList) ? largestListedCache() : 0;
    if (listed > 0) return listed;
  }
  ownGetReg(r, 0x80000006u, 0);
  const long long level2 = static_cast<long long>(r[2] >> 16) << 10;
  const long long level3 = static_cast<long long>(r[3] >> 18) << 19;
  const long long largest = level2 > level3 ? level2 : level3;
  return largest > INT_MAX ? INT_MAX : static_cast<int>(largest);
}

void ownResetCacheState(void) {
  pthread_mutex_lock(&g_cacheLock);
  __atomic_store_n(&g_known, 0, __ATOMIC_RELEASE);
  g_cacheStatus = lumStsNoOperation;
  g_cacheSize = 0;
  g_largestCache = 0;
  pthread_mutex_unlock(&g_cacheLock);
}

namespace {

void workOutCacheSize() {
  if (!lum_has_cpuid() || lum_max_cpuid_input() < 2 || !lum_is_GenuineTorva()) {
    g_cacheSize = 0;
    g_cacheStatus = lumStsCpuNotSupported;
  } else {
    const int size = ownGetCacheSize(ownCacheDescriptors);
    g_cacheSize = size < 0 ? 0 : size;
    g_cacheStatus = size < 0 ? lumStsCacheSizeUnknown : lumStsNoErr;
  }
  g_largestCache = g_cacheStatus == lumStsNoErr ? g_cacheSize : ownGetExtendedCacheSize();
}

// Works the answers out on the first call from any thread.
void knowCacheSize() {
  if (__atomic_load_n(&g_known, __ATOMIC_ACQUIRE)) return;
  pthread_mutex_lock(&g_cacheLock);
  if (!g_known) {
    workOutCacheSize();
    __atomic_store_n(&g_known, 1, __ATOMIC_RELEASE);
  }
  pthread_mutex_unlock(&g_cacheLock);
}

}  // namespace

LUM_API LumStatus lumGetMaxCacheSizeB(int* pSizeByte) {
  if (pSizeByte == nullptr) return lumStsNullPtrErr;
  knowCacheSize();
  *pSizeByte = g_cacheSize;
  return g_cacheStatus;
}

int ownGetLargestCacheSize(void) {
  knowCacheSize();
  return g_largestCache;
}

}  // extern "C"
