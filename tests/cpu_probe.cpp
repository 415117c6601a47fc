// Prints the raw CPUID registers of the processor it runs on (read with the
// compiler's own helpers) and what the library reports about it, one
// "key value" line each, for cpu_probe_check. Run on emulated processors.
#include <cpuid.h>
#include <omp.h>
#include <stdio.h>

#include <cstring>
#include <initializer_list>

#include "lum.h"

int main() {
  // The very first cache query of the process, with a null pointer.
  printf("cache_null %d\n", lumGetMaxCacheSizeB(nullptr));
  for (unsigned leaf : {0u, 1u, 2u, 4u, 0x80000000u, 0x80000001u}) {
    unsigned a, b, c, d;
    __cpuid_count(leaf, 0, a, b, c, d);
    printf("raw %08x %08x %08x %08x %08x\n", leaf, a, b, c, d);
  }
  const struct {
    const char* key;
    int (*fn)(void);
  } queries[] = {{"has_cpuid", lum_has_cpuid},        {"max_input", lum_max_cpuid_input},
                 {"rdtsc", lum_has_rdtsc},            {"mmx", lum_is_mmx_extension},
                 {"sse", lum_is_ssx_extension},       {"sse2", lum_is_sse2_extension},
                 {"smt", lum_is_smt_extension},       {"sse3", lum_is_sse3_extension},
                 {"ssse3", lum_is_ssse3_extension},   {"sse41", lum_is_sse41_extension},
                 {"sse42", lum_is_sse42_extension},   {"cores", lum_get_cores_on_die},
                 {"cores_on_die", lumGetNumCoresOnDie}, {"x64", lum_is_x64_extension},
                 {"genuine", lum_is_GenuineTorva}};
  for (const auto& q : queries) printf("%s %d\n", q.key, q.fn());

  LumCpuIdent id;
  std::memset(&id, 0x5A, sizeof id);
  lum_get_kestrel_ident(&id);
  int words[20];
  std::memcpy(words, &id, sizeof words);
  printf("ident");
  for (int w : words) printf(" %d", w);
  printf("\n");

  printf("cpu_type %u\nindex_before %d\n", static_cast<unsigned>(lumGetCpuType()), lumJumpIndexForMergedLibs);
  const LumStatus init = lumStaticInit();
  int threads = 0;
  lumGetNumThreads(&threads);
  printf("init_status %d\nindex %d\ntarget %.4s\nname %s\nthreads %d\nprocs %d\n", init,
         lumJumpIndexForMergedLibs, lumiGetLibVersion()->targetCpu, lumiGetLibVersion()->name, threads,
         omp_get_num_procs());
  // An image call in the selected build: a build the processor cannot run
  // ends here with an illegal instruction.
  Lum8u a[64], b[64], d[64];
  for (int i = 0; i < 64; ++i) a[i] = static_cast<Lum8u>(i), b[i] = static_cast<Lum8u>(3 * i + 1);
  const LumStatus mul = lumiMul_8u_C1RSfs(a, 64, b, 64, d, 64, {64, 1}, 4);
  int wrong = 0;
  for (int i = 0; i < 64; ++i) {
    const int p = i * (3 * i + 1), q = p >> 4, r = p & 15;  // rounded half to even, saturated
    wrong += d[i] != (q + (r > 8 || (r == 8 && (q & 1))) > 255 ? 255 : q + (r > 8 || (r == 8 && (q & 1))));
  }
  printf("mul %d %d\n", mul, wrong);
  for (const char* key : {"cache", "cache_again"}) {
    int size = -1;
    const LumStatus st = lumGetMaxCacheSizeB(&size);
    printf("%s %d %d\n", key, st, size);
  }
  return 0;
}
