#include "fake_cpu.h"

#include <cstring>

#include "core/cpu_internal.h"

namespace lumtest {

namespace {
FakeCpu* g_cpu = nullptr;
}  // namespace

CpuLeaves cpuLeaves(const char* vendor, Lum32u maxLeaf) {
  CpuRegs l0;  // the vendor string spread over EBX, EDX, ECX
  l0.eax = maxLeaf;
  std::memcpy(&l0.ebx, vendor, 4), std::memcpy(&l0.edx, vendor + 4, 4),
      std::memcpy(&l0.ecx, vendor + 8, 4);
  return {{0, l0}, {0x80000000u, {0x80000001u}}};
}

FakeCpu::FakeCpu(const CpuLeaves& l) : leaves(l) {
  g_cpu = this;  // one at a time
  ownCpuidHook = [](Lum32u regs[4], Lum32u leaf, Lum32u subLeaf) {
    g_cpu->blindReads += !g_cpu->hasCpuid;
    const auto sub = g_cpu->subLeaves.find({leaf, subLeaf});
    const auto it = g_cpu->leaves.find(leaf);
    const CpuRegs r = sub != g_cpu->subLeaves.end()               ? sub->second
                      : it != g_cpu->leaves.end() && subLeaf == 0 ? it->second
                                                                  : CpuRegs();
    regs[0] = r.eax, regs[1] = r.ebx, regs[2] = r.ecx, regs[3] = r.edx;
  };
  ownHasCpuidHook = [] { return g_cpu->hasCpuid ? 1 : 0; };
}

FakeCpu::FakeCpu(const lumref::ExtendedLeaves& x) : FakeCpu(cpuLeaves("OtherVendorX")) {
  leaves[0x80000000u] = {x.highest, 0, 0, 0};
  leaves[0x80000001u] = {0, 0, x.x1Ecx, 0};
  leaves[0x80000006u] = {x.x6[0], x.x6[1], x.x6[2], x.x6[3]};
  for (Lum32u i = 0; i < x.cacheList.size(); ++i) {
    const auto& e = x.cacheList[i];
    subLeaves[{0x8000001Du, i}] = {e[0], e[1], e[2], e[3]};
  }
}

FakeCpu::~FakeCpu() { ownCpuidHook = nullptr, ownHasCpuidHook = nullptr, g_cpu = nullptr; }

}  // namespace lumtest
