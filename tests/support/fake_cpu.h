// A made-up processor for the identification and cache tests: CPUID answers
// come from a register table per leaf and sub-leaf, and the "has CPUID"
// answer is set by the test. Installed for the lifetime of a FakeCpu through
// the library's test hooks; the real processor is back afterwards.
#ifndef LUM_TESTS_SUPPORT_FAKE_CPU_H
#define LUM_TESTS_SUPPORT_FAKE_CPU_H

#include <map>
#include <string>
#include <utility>

#include "lum.h"

namespace lumtest {

struct CpuRegs {
  Lum32u eax = 0, ebx = 0, ecx = 0, edx = 0;
};

// Leaf-1 feature bits and the extended x64 bit, as the processor reports
// them.
namespace bits {
constexpr Lum32u kRdtsc = 1u << 4, kMmx = 1u << 23, kSse = 1u << 25, kSse2 = 1u << 26,
                 kSmt = 1u << 28, kEdx30 = 1u << 30;
constexpr Lum32u kSse3 = 1u << 0, kSsse3 = 1u << 9, kSse41 = 1u << 19, kSse42 = 1u << 20;
constexpr Lum32u kX64 = 1u << 29;  // leaf 0x80000001 EDX
}  // namespace bits

// A processor in the terms the tests think in; load() turns it into leaves.
struct CpuDesc {
  std::string vendor = "GenuineTorva";  // twelve characters
  Lum32u maxLeaf = 4;                   // leaf 0 EAX
  Lum32u family = 6, model = 0, stepping = 0, extFamily = 0, extModel = 0;
  Lum32u typeBits = 0;                  // EAX bits 12..13
  Lum32u ebx1 = 0;                      // leaf 1 EBX (logical count in 16..23)
  Lum32u ecx1 = 0, edx1 = 0;            // leaf 1 features
  Lum32u leaf4Eax = 0;                  // cores - 1 in bits 26..31
  Lum32u maxExtLeaf = 0x80000001u;      // leaf 0x80000000 EAX
  Lum32u extEdx = 0;                    // leaf 0x80000001 EDX
  CpuRegs leaf2{1, 0, 0, 0};

  Lum32u leaf1Eax() const;
  // With n logical processors per package in leaf 1 EBX and the SMT bit (EDX bit 28).
  CpuDesc& logical(Lum32u n);
  CpuDesc& cores(Lum32u n);  // leaf 4 reports n cores
};

class FakeCpu {
 public:
  FakeCpu();
  explicit FakeCpu(const CpuDesc& desc);
  ~FakeCpu();
  FakeCpu(const FakeCpu&) = delete;
  FakeCpu& operator=(const FakeCpu&) = delete;

  // Replaces every leaf by those of `desc`.
  void load(const CpuDesc& desc);
  void set(Lum32u leaf, Lum32u subLeaf, const CpuRegs& regs);
  void setHasCpuid(bool has) { hasCpuid_ = has; }

  // CPUID executions of a leaf (any sub-leaf) since construction or reset.
  int reads(Lum32u leaf) const;
  int totalReads() const;
  void resetReads() { reads_.clear(); }
  // Sub-leaves asked for with `leaf`, in order, as a string "0,0,1".
  std::string subLeaves(Lum32u leaf) const;

 private:
  static void cpuid(Lum32u regs[4], Lum32u leaf, Lum32u subLeaf);
  static int hasCpuid();

  std::map<std::pair<Lum32u, Lum32u>, CpuRegs> leaves_;
  std::map<Lum32u, std::string> reads_;
  bool hasCpuid_ = true;
};

// The vendor string as leaf 0 spreads it over EBX, EDX, ECX.
CpuRegs vendorRegs(const std::string& vendor, Lum32u maxLeaf);

}  // namespace lumtest

#endif
