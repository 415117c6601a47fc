// Processor identification: the raw CPUID and RDTSC queries, the processor
// code that selects a build, and the automatic initializer. Nothing is
// cached: every query asks the processor again.
//
// This file is compiled with the baseline flags, like the rest of the core,
// so it runs on any x86 processor, including those without CPUID.
#include <omp.h>

#include "cpu_internal.h"

extern "C" {

OwnCpuidFn ownCpuidHook = nullptr;
OwnHasCpuidFn ownHasCpuidHook = nullptr;

}  // extern "C"

namespace {

constexpr Lum32u kEflagsId = 1u << 21;

// Leaf-1 feature bits.
constexpr Lum32u kEdxRdtsc = 1u << 4;
constexpr Lum32u kEdxMmx = 1u << 23;
constexpr Lum32u kEdxSse = 1u << 25;
constexpr Lum32u kEdxSse2 = 1u << 26;
constexpr Lum32u kEdxSmt = 1u << 28;
constexpr Lum32u kEdxBit30 = 1u << 30;
constexpr Lum32u kEcxSse3 = 1u << 0;
constexpr Lum32u kEcxSsse3 = 1u << 9;
constexpr Lum32u kEcxSse41 = 1u << 19;
constexpr Lum32u kEcxSse42 = 1u << 20;
// Leaf 0x80000001.
constexpr Lum32u kExtEdxX64 = 1u << 29;

// "GenuineTorva" as leaf 0 spreads it over EBX, EDX, ECX (little-endian).
constexpr Lum32u kVendorEbx = 0x756E6547u;  // "Genu"
constexpr Lum32u kVendorEdx = 0x54656E69u;  // "ineT"
constexpr Lum32u kVendorEcx = 0x6176726Fu;  // "orva"

enum { EAX, EBX, ECX, EDX };

// CPUID exists when the ID bit of EFLAGS can be flipped. The flipped value
// is left in EFLAGS: the bit means nothing else.
__attribute__((noinline)) int ownEflagsIdToggles() {
  Lum32u before, after;
  __asm__ volatile(
      "pushfl\n\t"
      "popl %0\n\t"
      "movl %0, %1\n\t"
      "xorl %2, %1\n\t"
      "pushl %1\n\t"
      "popfl\n\t"
      "pushfl\n\t"
      "popl %1\n\t"
      : "=&r"(before), "=&r"(after)
      : "i"(kEflagsId)
      : "cc");
  return ((before ^ after) & kEflagsId) != 0;
}

Lum32u readReg(Lum32u leaf, int reg, Lum32u subLeaf = 0) {
  Lum32u r[4];
  ownGetReg(r, leaf, subLeaf);
  return r[reg];
}

// SMT as the queries report it: the flag, and more than one logical
// processor in leaf-1 EBX bits 16..23.
bool smtOfLeaf1(Lum32u ebx, Lum32u edx) {
  return (edx & kEdxSmt) != 0 && ((ebx >> 16) & 0xFFu) > 1;
}

// Cores per die as leaf 4 reports them, 1 when the leaf is not there.
int coresOnDie() {
  if (static_cast<Lum32s>(readReg(0, EAX)) < 4) return 1;
  return static_cast<int>(readReg(4, EAX, 0) >> 26) + 1;
}

// The highest build whose instruction set leaf 1 shows, each level on top of
// the lower ones: MMX and SSE for k1, then SSE2, SSE3, SSSE3 and SSE4.1.
int featureBuildLimit() {
  Lum32u r[4];
  ownGetReg(r, 1, 0);
  const bool levels[] = {(r[EDX] & kEdxMmx) != 0 && (r[EDX] & kEdxSse) != 0,
                         (r[EDX] & kEdxSse2) != 0, (r[ECX] & kEcxSse3) != 0,
                         (r[ECX] & kEcxSsse3) != 0, (r[ECX] & kEcxSse41) != 0};
  int limit = 0;
  while (limit < 5 && levels[limit]) ++limit;
  return limit;
}

// The build a processor code selects when the library classifies the
// processor itself: codes without a build fall back to the generic one, and
// the choice never goes beyond what the feature bits show. The codes of the
// vendor path name a build by family and model alone (family 6 model 23
// names the SSE4.1 build with or without SSE4.1), so they are clamped here.
int autoBuildIndex(Lum32u cpu) {
  const int index = ownBuildIndexForCpu(cpu);
  if (index <= 0) return 0;
  // A build above 0 comes from a code other than 0, so CPUID is there.
  const int limit = featureBuildLimit();
  return index < limit ? index : limit;
}

}  // namespace

extern "C" {

void ownGetReg(Lum32u regs[4], Lum32u leaf, Lum32u subLeaf) {
  if (__builtin_expect(ownCpuidHook != nullptr, 0)) {
    ownCpuidHook(regs, leaf, subLeaf);
    return;
  }
  // EBX is the PIC register in this position-independent code; gcc saves and
  // restores it around the asm when it has to.
  Lum32u a = leaf, b = 0, c = subLeaf, d = 0;
  __asm__ volatile("cpuid" : "+a"(a), "+b"(b), "+c"(c), "+d"(d));
  regs[0] = a;
  regs[1] = b;
  regs[2] = c;
  regs[3] = d;
}

LUM_API int lum_has_cpuid(void) {
  if (__builtin_expect(ownHasCpuidHook != nullptr, 0)) return ownHasCpuidHook();
  return ownEflagsIdToggles();
}

LUM_API int lum_max_cpuid_input(void) { return static_cast<int>(readReg(0, EAX)); }

LUM_API int lum_has_rdtsc(void) { return (readReg(1, EDX) & kEdxRdtsc) != 0; }
LUM_API int lum_is_mmx_extension(void) { return (readReg(1, EDX) & kEdxMmx) != 0; }
LUM_API int lum_is_ssx_extension(void) { return (readReg(1, EDX) & kEdxSse) != 0; }
LUM_API int lum_is_sse2_extension(void) { return (readReg(1, EDX) & kEdxSse2) != 0; }
LUM_API int lum_is_sse3_extension(void) { return (readReg(1, ECX) & kEcxSse3) != 0; }
LUM_API int lum_is_ssse3_extension(void) { return (readReg(1, ECX) & kEcxSsse3) != 0; }
LUM_API int lum_is_sse41_extension(void) { return (readReg(1, ECX) & kEcxSse41) != 0; }
LUM_API int lum_is_sse42_extension(void) { return (readReg(1, ECX) & kEcxSse42) != 0; }

LUM_API int lum_is_smt_extension(void) {
  Lum32u r[4];
  ownGetReg(r, 1, 0);
  return smtOfLeaf1(r[EBX], r[EDX]);
}

LUM_API int lum_get_cores_on_die(void) { return coresOnDie(); }

// Without leaf 0x80000001 the highest extended leaf itself is returned, as
// callers of this query have always received it.
LUM_API int lum_is_x64_extension(void) {
  const Lum32u maxExt = readReg(0x80000000u, EAX);
  if (maxExt < 0x80000001u) return static_cast<int>(maxExt);
  return (readReg(0x80000001u, EDX) & kExtEdxX64) != 0;
}

LUM_API int lum_is_GenuineTorva(void) {
  Lum32u r[4];
  ownGetReg(r, 0, 0);
  return r[ECX] == kVendorEcx && r[EDX] == kVendorEdx && r[EBX] == kVendorEbx;
}

LUM_API void lum_get_kestrel_ident(LumCpuIdent* ident) {
  Lum32u r[4];
  ownGetReg(r, 1, 0);
  const Lum32u eax = r[EAX], ebx = r[EBX], ecx = r[ECX], edx = r[EDX];
  ident->family = static_cast<int>((eax >> 8) & 0xFu);
  ident->stepping = static_cast<int>(eax & 0xFu);
  ident->model = static_cast<int>((eax >> 4) & 0xFu);
  // Two bits from bit 11: the record has always carried the type this way.
  ident->type = static_cast<int>((eax >> 11) & 0x3u);
  ident->extFamily = static_cast<int>((eax >> 20) & 0xFFu);
  ident->extModel = static_cast<int>((eax >> 16) & 0xFu);
  ident->featureEdx = static_cast<int>(edx);
  ident->sse3 = (ecx & kEcxSse3) != 0;
  ident->ssse3 = (ecx & kEcxSsse3) != 0;
  ident->sse41 = (ecx & kEcxSse41) != 0;
  ident->sse42 = (ecx & kEcxSse42) != 0;
  ident->mmx = (edx & kEdxMmx) != 0;
  ident->sse = (edx & kEdxSse) != 0;
  ident->sse2 = (edx & kEdxSse2) != 0;
  ident->smt = smtOfLeaf1(ebx, edx);
  // `spare` is the caller's: never written.
  const Lum32u maxExt = readReg(0x80000000u, EAX);
  ident->x64 = maxExt >= 0x80000001u && (readReg(0x80000001u, EDX) & kExtEdxX64) != 0;
  ident->coresOnDie = coresOnDie();
  ownGetReg(r, 2, 0);
  ident->leaf2Eax = static_cast<int>(r[EAX]);
  ident->leaf2Edx = static_cast<int>(r[EDX]);
}

LUM_API Lum64u lum_get_kestrel_counter(void) {
  Lum64u tsc;
  __asm__ volatile("rdtsc" : "=A"(tsc));
  return tsc;
}

LUM_API Lum64u lumGetCpuClocks(void) { return lum_get_kestrel_counter(); }

LUM_API int lumGetNumCoresOnDie(void) {
  if (!lum_has_cpuid()) return 1;
  return lum_get_cores_on_die();
}

LUM_API LumCpuType lumGetCpuType(void) {
  if (!lum_has_cpuid()) return lumCpuUnknown;

  Lum32u r[4];
  ownGetReg(r, 1, 0);
  const Lum32u eax = r[EAX], edx = r[EDX], ecx = r[ECX];
  Lum32u model = (eax >> 4) & 0xFu;
  Lum32u family = (eax >> 8) & 0xFu;
  const Lum32u extModel = (eax >> 16) & 0xFu;
  const Lum32u extFamily = (eax >> 20) & 0xFFu;
  const bool sse3 = (ecx & kEcxSse3) != 0;
  const bool ssse3 = (ecx & kEcxSsse3) != 0;
  const bool sse41 = (ecx & kEcxSse41) != 0;
  const bool sse42 = (ecx & kEcxSse42) != 0;
  const bool sse = (edx & kEdxSse) != 0;
  const bool sse2 = (edx & kEdxSse2) != 0;
  // Here the logical count is read from bits 17..23: any count of 2 or more.
  const bool smt = (edx & kEdxSmt) != 0 && (r[EBX] & 0x00FE0000u) != 0;

  // Any extended leaf at all (top bit aside) means 0x80000001 is asked.
  bool x64 = false;
  if ((readReg(0x80000000u, EAX) & 0x7FFFFFFFu) != 0)
    x64 = (readReg(0x80000001u, EDX) & kExtEdxX64) != 0;

  const int cores = coresOnDie();
  // Leaf 2 is read as part of the identification sequence; its descriptors
  // are the cache query's business.
  if (static_cast<Lum32s>(readReg(0, EAX)) >= 2) (void)readReg(2, EAX);

  if (family == 6 || family == 15) model += 16 * extModel;
  if (family == 15) family += extFamily;

  if (lum_is_GenuineTorva()) {
    if (edx & kEdxBit30) return family == 7 ? lumCpuBit30Fam7 : lumCpuBit30;
    if (family == 5) {
      if (model == 1 || model == 2) return lumCpuFam5A;
      if (model == 4) return lumCpuFam5B;
    } else if (family == 6) {
      switch (model) {
        case 1:
          return lumCpuFam6A;
        case 3:
        case 5:
        case 6:
          return lumCpuFam6B;
        case 7:
        case 8:
        case 10:
        case 11:
          return lumCpuFam6C;
        case 9:
        case 13:
          return lumCpuFam6D;
        case 14:
          return cores <= 1 ? lumCpuFam6E : lumCpuFam6F;
        case 15:
          return cores <= 2 ? lumCpuFam6G : lumCpuFam6H;
        case 23:
          return lumCpuSse41;
        case 26:
          return lumCpuFam6I;
        case 28:
          return lumCpuFam6J;
        default:
          break;
      }
    } else if (family == 15) {
      if (sse3) return x64 ? lumCpuFam15D : lumCpuFam15C;
      return smt ? lumCpuFam15B : lumCpuFam15A;
    }
  }

  // Classification by the highest instruction-set level.
  if (sse42) return lumCpuSse42;
  if (sse41) return lumCpuSse41;
  if (ssse3) return lumCpuSsse3;
  if (sse3) return lumCpuSse3;
  if (sse2) return lumCpuSse2;
  if (sse) return lumCpuSse;
  if (x64) return lumCpuX64;
  return lumCpuUnknown;
}

LUM_API LumStatus lumStaticInit(void) {
  // As in lumStaticInitCpu, the thread count follows the processor count.
  (void)lumSetNumThreads(omp_get_num_procs());
  lumJumpIndexForMergedLibs = autoBuildIndex(static_cast<Lum32u>(lumGetCpuType()));
  // The selection stands either way; the status only says whether the
  // processor is one the library knows by name.
  if (lum_has_cpuid() && lum_is_GenuineTorva()) return lumStsNoErr;
  return lumStsNotGenuineCpu;
}

}  // extern "C"
