// A made-up processor for the identification and cache tests: CPUID answers
// come from register tables per leaf, and the "has CPUID" answer is set by
// the test. Installed through the library's test hooks for the lifetime of a
// FakeCpu; the real processor is back afterwards.
#ifndef LUM_TESTS_SUPPORT_FAKE_CPU_H
#define LUM_TESTS_SUPPORT_FAKE_CPU_H

#include <map>
#include <string>
#include <vector>

#include "lum.h"

namespace lumtest {

struct CpuRegs {
  Lum32u eax = 0, ebx = 0, ecx = 0, edx = 0;
};

// Leaf-1 feature bits, and the x64 bit of leaf 0x80000001 EDX.
namespace bits {
constexpr Lum32u kRdtsc = 1u << 4, kMmx = 1u << 23, kSse = 1u << 25, kSse2 = 1u << 26,
                 kSmt = 1u << 28, kEdx30 = 1u << 30;
constexpr Lum32u kSse3 = 1u << 0, kSsse3 = 1u << 9, kSse41 = 1u << 19, kSse42 = 1u << 20;
constexpr Lum32u kX64 = 1u << 29;
}  // namespace bits

// A processor in the terms the tests think in; FakeCpu::load turns it into leaves.
struct CpuDesc {
  std::string vendor = "GenuineTorva";  // twelve characters
  Lum32u maxLeaf = 4;                   // leaf 0 EAX
  Lum32u family = 6, model = 0, stepping = 0, extFamily = 0, extModel = 0;
  Lum32u typeBits = 0;                  // leaf 1 EAX bits 12..13
  Lum32u ebx1 = 0, ecx1 = 0, edx1 = 0;  // leaf 1 (EBX: logical count in 16..23)
  Lum32u leaf4Eax = 0;                  // cores - 1 in bits 26..31
  Lum32u maxExtLeaf = 0x80000001u;      // leaf 0x80000000 EAX
  Lum32u extEdx = 0;                    // leaf 0x80000001 EDX
  CpuRegs leaf2{1, 0, 0, 0};

  // n logical processors per package in leaf 1 EBX, and the SMT bit.
  CpuDesc& logical(Lum32u n) {
    ebx1 = (ebx1 & ~0x00FF0000u) | (n & 0xFF) << 16;
    edx1 |= bits::kSmt;
    return *this;
  }
  CpuDesc& cores(Lum32u n) {  // leaf 4 reports n cores
    leaf4Eax = (leaf4Eax & 0x03FFFFFFu) | (n - 1) << 26;
    return *this;
  }
};

class FakeCpu {
 public:
  explicit FakeCpu(const CpuDesc& desc);
  ~FakeCpu();
  FakeCpu(const FakeCpu&) = delete;
  FakeCpu& operator=(const FakeCpu&) = delete;

  void load(const CpuDesc& desc);  // replaces every leaf
  void setHasCpuid(bool has) { hasCpuid_ = has; }
  // The sub-leaves each leaf was asked for with since construction or
  // resetReads, in order.
  std::vector<Lum32u> subLeaves(Lum32u leaf) const {
    const auto it = reads_.find(leaf);
    return it == reads_.end() ? std::vector<Lum32u>() : it->second;
  }
  int reads(Lum32u leaf) const { return static_cast<int>(subLeaves(leaf).size()); }
  int totalReads() const {
    int n = 0;
    for (const auto& r : reads_) n += static_cast<int>(r.second.size());
    return n;
  }
  void resetReads() { reads_.clear(); }

 private:
  static void cpuid(Lum32u regs[4], Lum32u leaf, Lum32u subLeaf);
  static int hasCpuid();

  std::map<Lum32u, CpuRegs> leaves_;  // sub-leaf 0 only; others read as zeros
  std::map<Lum32u, std::vector<Lum32u>> reads_;
  bool hasCpuid_ = true;
};

}  // namespace lumtest

#endif
