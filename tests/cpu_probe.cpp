// Prints the raw CPUID registers of the processor it runs on (read with the
// compiler's own helpers) and what the library reports about it, one
// "key value" line each, for cpu_probe_check. Run on emulated processors.
#include <cpuid.h>
#include <omp.h>
#include <stdio.h>

#include <cstring>

#include "lum.h"

int main() {
  // The very first cache query of the process, with a null pointer.
  printf("cache_null %d\n", lumGetMaxCacheSizeB(nullptr));

  const unsigned leaves[] = {0, 1, 2, 4, 0x80000000u, 0x80000001u};
  for (unsigned leaf : leaves) {
    unsigned a, b, c, d;
    __cpuid_count(leaf, 0, a, b, c, d);
    printf("raw %08x %08x %08x %08x %08x\n", leaf, a, b, c, d);
  }
  printf("has_cpuid %d\n", lum_has_cpuid());
  printf("max_input %08x\n", static_cast<unsigned>(lum_max_cpuid_input()));
  printf("rdtsc %d\n", lum_has_rdtsc());
  printf("mmx %d\n", lum_is_mmx_extension());
  printf("sse %d\n", lum_is_ssx_extension());
  printf("sse2 %d\n", lum_is_sse2_extension());
  printf("smt %d\n", lum_is_smt_extension());
  printf("sse3 %d\n", lum_is_sse3_extension());
  printf("ssse3 %d\n", lum_is_ssse3_extension());
  printf("sse41 %d\n", lum_is_sse41_extension());
  printf("sse42 %d\n", lum_is_sse42_extension());
  printf("cores %d\n", lum_get_cores_on_die());
  printf("cores_on_die %d\n", lumGetNumCoresOnDie());
  printf("x64 %08x\n", static_cast<unsigned>(lum_is_x64_extension()));
  printf("genuine %d\n", lum_is_GenuineTorva());

  LumCpuIdent id;
  std::memset(&id, 0x5A, sizeof id);
  lum_get_kestrel_ident(&id);
  printf("ident %d %d %d %d %08x %08x %08x %d %08x %d %d %d %d %d %d %d %d %d %d %d\n", id.family,
         id.stepping, id.model, id.type, static_cast<unsigned>(id.featureEdx),
         static_cast<unsigned>(id.leaf2Eax), static_cast<unsigned>(id.leaf2Edx), id.mmx,
         static_cast<unsigned>(id.spare), id.sse, id.sse2, id.smt, id.sse3, id.x64, id.ssse3,
         id.coresOnDie, id.sse41, id.sse42, id.extFamily, id.extModel);

  printf("cpu_type %u\n", static_cast<unsigned>(lumGetCpuType()));
  printf("index_before %d\n", lumJumpIndexForMergedLibs);
  printf("init_status %d\n", lumStaticInit());
  printf("index %d\n", lumJumpIndexForMergedLibs);
  printf("target %.4s\n", lumiGetLibVersion()->targetCpu);
  printf("name %s\n", lumiGetLibVersion()->name);
  int threads = 0;
  lumGetNumThreads(&threads);
  printf("threads %d\n", threads);
  printf("procs %d\n", omp_get_num_procs());
  int size = -1;
  const LumStatus st = lumGetMaxCacheSizeB(&size);
  printf("cache %d %d\n", st, size);
  size = -1;
  const LumStatus again = lumGetMaxCacheSizeB(&size);
  printf("cache_again %d %d\n", again, size);
  return 0;
}
