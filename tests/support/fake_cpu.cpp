#include "fake_cpu.h"

#include <cstring>
#include <stdexcept>

#include "core/cpu_internal.h"

namespace lumtest {

namespace {
FakeCpu* g_current = nullptr;
}

Lum32u CpuDesc::leaf1Eax() const {
  return (stepping & 0xF) | (model & 0xF) << 4 | (family & 0xF) << 8 | (typeBits & 3) << 12 |
         (extModel & 0xF) << 16 | (extFamily & 0xFF) << 20;
}

CpuDesc& CpuDesc::logical(Lum32u n) {
  ebx1 = (ebx1 & ~0x00FF0000u) | (n & 0xFF) << 16;
  edx1 |= bits::kSmt;
  return *this;
}

CpuDesc& CpuDesc::cores(Lum32u n) {
  leaf4Eax = (leaf4Eax & 0x03FFFFFFu) | (n - 1) << 26;
  return *this;
}

CpuRegs vendorRegs(const std::string& vendor, Lum32u maxLeaf) {
  if (vendor.size() != 12) throw std::invalid_argument("vendor strings have 12 characters");
  CpuRegs r;
  r.eax = maxLeaf;
  std::memcpy(&r.ebx, vendor.data(), 4);
  std::memcpy(&r.edx, vendor.data() + 4, 4);
  std::memcpy(&r.ecx, vendor.data() + 8, 4);
  return r;
}

FakeCpu::FakeCpu() {
  if (g_current != nullptr) throw std::logic_error("one FakeCpu at a time");
  g_current = this;
  ownCpuidHook = &FakeCpu::cpuid;
  ownHasCpuidHook = &FakeCpu::hasCpuid;
}

FakeCpu::FakeCpu(const CpuDesc& desc) : FakeCpu() { load(desc); }

FakeCpu::~FakeCpu() {
  ownCpuidHook = nullptr;
  ownHasCpuidHook = nullptr;
  g_current = nullptr;
}

void FakeCpu::load(const CpuDesc& d) {
  leaves_.clear();
  set(0, 0, vendorRegs(d.vendor, d.maxLeaf));
  set(1, 0, {d.leaf1Eax(), d.ebx1, d.ecx1, d.edx1});
  set(2, 0, d.leaf2);
  set(4, 0, {d.leaf4Eax, 0, 0, 0});
  set(0x80000000u, 0, {d.maxExtLeaf, 0, 0, 0});
  set(0x80000001u, 0, {0, 0, 0, d.extEdx});
}

void FakeCpu::set(Lum32u leaf, Lum32u subLeaf, const CpuRegs& regs) {
  leaves_[{leaf, subLeaf}] = regs;
}

int FakeCpu::reads(Lum32u leaf) const {
  const auto it = reads_.find(leaf);
  if (it == reads_.end()) return 0;
  int n = 0;
  for (char c : it->second) n += c == ',';
  return n;
}

int FakeCpu::totalReads() const {
  int n = 0;
  for (const auto& r : reads_) n += reads(r.first);
  return n;
}

std::string FakeCpu::subLeaves(Lum32u leaf) const {
  const auto it = reads_.find(leaf);
  if (it == reads_.end()) return "";
  return it->second.substr(0, it->second.size() - 1);
}

// A leaf the table lacks reads as zeros.
void FakeCpu::cpuid(Lum32u regs[4], Lum32u leaf, Lum32u subLeaf) {
  FakeCpu* self = g_current;
  self->reads_[leaf] += std::to_string(subLeaf) + ",";
  CpuRegs r;
  const auto it = self->leaves_.find({leaf, subLeaf});
  if (it != self->leaves_.end()) r = it->second;
  regs[0] = r.eax;
  regs[1] = r.ebx;
  regs[2] = r.ecx;
  regs[3] = r.edx;
}

int FakeCpu::hasCpuid() { return g_current->hasCpuid_ ? 1 : 0; }

}  // namespace lumtest
