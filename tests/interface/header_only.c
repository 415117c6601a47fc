/* Compiled, never run, as every C and C++ standard a user may build with:
   the public header alone must compile cleanly under the strictest warnings,
   and twice in one unit (its guard). */
#include <lum.h>
#include <lum.h>

#if !defined(LUM_VERSION_MAJOR) || !defined(LUM_VERSION_MINOR) || !defined(LUM_VERSION_PATCH)
#error "lum.h must define LUM_VERSION_MAJOR, LUM_VERSION_MINOR and LUM_VERSION_PATCH"
#endif
#if LUM_VERSION_MAJOR < 5 || LUM_VERSION_MINOR < 0 || LUM_VERSION_PATCH < 0
#error "the version macros must be plain integers usable in #if"
#endif

/* Takes the types and one function of each kind through the header's own
   declarations, so a declaration that only one language accepts fails. */
int lum_header_only_check(void);
int lum_header_only_check(void) {
  LumSize size = {1, 1};
  LumPoint anchor = {0, 0};
  Lum64u clocks = 0;
  LumStatus (*mul)(const Lum8u*, int, const Lum8u*, int, Lum8u*, int, LumSize, int) =
      lumiMul_8u_C1RSfs;
  LumStatus (*filter)(const Lum32f*, int, Lum32f*, int, LumSize, const Lum32f*, LumSize, LumPoint) =
      lumiFilter_32f_C1R;
  (void)clocks;
  return (mul != 0) + (filter != 0) + size.width + anchor.x + (lumStsNoErr == 0) +
         (int)sizeof(LumLibraryVersion) + (int)sizeof(LumCpuIdent) + (lumCpuSse41 == 68);
}
