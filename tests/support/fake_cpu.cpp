#include "fake_cpu.h"

#include <cstring>
#include <stdexcept>

#include "core/cpu_internal.h"

namespace lumtest {

namespace {
FakeCpu* g_current = nullptr;
}

FakeCpu::FakeCpu(const CpuDesc& desc) {
  if (g_current != nullptr) throw std::logic_error("one FakeCpu at a time");
  g_current = this;
  ownCpuidHook = &FakeCpu::cpuid;
  ownHasCpuidHook = &FakeCpu::hasCpuid;
  load(desc);
}

FakeCpu::~FakeCpu() {
  ownCpuidHook = nullptr;
  ownHasCpuidHook = nullptr;
  g_current = nullptr;
}

void FakeCpu::load(const CpuDesc& d) {
  if (d.vendor.size() != 12) throw std::invalid_argument("vendor strings have 12 characters");
  CpuRegs leaf0;  // the vendor string spread over EBX, EDX, ECX
  leaf0.eax = d.maxLeaf;
  std::memcpy(&leaf0.ebx, d.vendor.data(), 4);
  std::memcpy(&leaf0.edx, d.vendor.data() + 4, 4);
  std::memcpy(&leaf0.ecx, d.vendor.data() + 8, 4);
  const Lum32u eax1 = (d.stepping & 0xF) | (d.model & 0xF) << 4 | (d.family & 0xF) << 8 |
                      (d.typeBits & 3) << 12 | (d.extModel & 0xF) << 16 | (d.extFamily & 0xFF) << 20;
  leaves_ = {{0, leaf0},
             {1, {eax1, d.ebx1, d.ecx1, d.edx1}},
             {2, d.leaf2},
             {4, {d.leaf4Eax, 0, 0, 0}},
             {0x80000000u, {d.maxExtLeaf, 0, 0, 0}},
             {0x80000001u, {0, 0, 0, d.extEdx}}};
}

void FakeCpu::cpuid(Lum32u regs[4], Lum32u leaf, Lum32u subLeaf) {
  FakeCpu* self = g_current;
  self->reads_[leaf].push_back(subLeaf);
  CpuRegs r;
  const auto it = self->leaves_.find(leaf);
  if (it != self->leaves_.end() && subLeaf == 0) r = it->second;
  regs[0] = r.eax;
  regs[1] = r.ebx;
  regs[2] = r.ecx;
  regs[3] = r.edx;
}

int FakeCpu::hasCpuid() { return g_current->hasCpuid_ ? 1 : 0; }

}  // namespace lumtest
