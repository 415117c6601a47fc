/*
 * lum: image-processing primitives for 32-bit x86 Linux.
 *
 * Every image function works on a rectangular region of a single-channel
 * image held in the caller's memory: a pointer to the region's first pixel
 * and a step, the distance in bytes between the starts of two consecutive
 * rows. Every function that can fail returns a LumStatus: 0 on success,
 * negative on error (nothing is written), positive for a warning.
 *
 * The image functions are built once per instruction-set level; each call
 * goes to the build selected with lumStaticInit or lumStaticInitCpu (the
 * generic build until then).
 */
#ifndef LUM_H
#define LUM_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

#if defined(LUM_BUILDING_LIBRARY)
#define LUM_API __attribute__((visibility("default")))
#else
#define LUM_API
#endif

/* ---- Basic types ------------------------------------------------------ */

typedef unsigned char Lum8u;
typedef signed short Lum16s;
typedef signed int Lum32s;
typedef unsigned int Lum32u;
typedef float Lum32f;

typedef Lum32s LumStatus;

typedef struct {
  int width;
  int height;
} LumSize;

typedef struct {
  int x;
  int y;
} LumPoint;

typedef struct {
  int major;
  int minor;
  int majorBuild;
  int build;
  char targetCpu[4];   /* the build's tag, NUL-padded: "k0" .. "k5" */
  const char* name;
  const char* version;
  const char* buildDate;
} LumLibraryVersion;

/* ---- Status codes returned by this library ----------------------------- */

enum {
  lumStsNoErr = 0,
  lumStsNoOperation = 1,
  lumStsDivByZero = 6,
  lumStsNotGenuineCpu = 20,
  lumStsCpuNotSet = 21,
  lumStsCpuNotSupported = 36,
  lumStsCacheSizeUnknown = 37,

  lumStsNoMemErr = -4,
  lumStsBadArgErr = -5,
  lumStsSizeErr = -6,
  lumStsNullPtrErr = -8,
  lumStsMemAllocErr = -9,
  lumStsDivByZeroErr = -10,
  lumStsOutOfRangeErr = -11,
  lumStsScaleRangeErr = -13,
  lumStsStepErr = -14,
  lumStsStepNotPixelMultipleErr = -108
};

/* The fixed English message of any status of the family (never NULL;
   "Unknown Status Code" for codes outside the catalogue). */
LUM_API const char* lumGetStatusString(LumStatus code);

/* ---- Build selection ---------------------------------------------------- */

/* Index (0..5) of the build that every image call goes to. Starts at 0, the
   generic build; written by the initializers, readable by the caller. */
LUM_API extern int lumJumpIndexForMergedLibs;

/* Selects the build for the processor code `cpu` and sets the thread count
   to the number of processors. Returns lumStsNoErr, or lumStsCpuNotSet for a
   code without a build (the previous selection then stays). */
LUM_API LumStatus lumStaticInitCpu(Lum32u cpu);

/* Version record of the selected build. Constant data: do not free. */
LUM_API const LumLibraryVersion* lumiGetLibVersion(void);

/* ---- Processor identification ----------------------------------------- */

typedef unsigned long long Lum64u;

/* Processor code: what lumGetCpuType reports and lumStaticInitCpu accepts. */
typedef enum {
  lumCpuUnknown = 0,    /* no CPUID, or none of the tested features */
  lumCpuFam5A = 1,
  lumCpuFam5B = 2,
  lumCpuFam6A = 3,
  lumCpuFam6B = 4,
  lumCpuFam6C = 5,
  lumCpuFam15A = 6,
  lumCpuFam15B = 7,
  lumCpuFam15C = 8,
  lumCpuFam6D = 9,
  lumCpuFam6E = 10,
  lumCpuFam6F = 11,
  lumCpuBit30Fam7 = 16,
  lumCpuBit30 = 17,
  lumCpuFam15D = 32,
  lumCpuFam6G = 33,
  lumCpuFam6H = 34,
  lumCpuFam6I = 35,
  lumCpuFam6J = 36,
  lumCpuCode37 = 37,    /* never reported; accepted by lumStaticInitCpu */
  lumCpuSse = 64,
  lumCpuSse2 = 65,
  lumCpuSse3 = 66,
  lumCpuSsse3 = 67,
  lumCpuSse41 = 68,
  lumCpuSse42 = 69,
  lumCpuX64 = 96        /* x64 flag without any SSE level */
} LumCpuType;

/* Identification record filled by lum_get_kestrel_ident. family, model and
   stepping are the raw leaf-1 fields; flags are 0 or 1; `spare` is never
   written. */
typedef struct {
  int family;
  int stepping;
  int model;
  int type;
  int featureEdx;
  int leaf2Eax;
  int leaf2Edx;
  int mmx;
  int spare;
  int sse;
  int sse2;
  int smt;
  int sse3;
  int x64;
  int ssse3;
  int coresOnDie;
  int sse41;
  int sse42;
  int extFamily;
  int extModel;
} LumCpuIdent;

/* Classifies the running processor and selects its build (the generic one
   for a code without a build, and never one beyond the instruction sets the
   processor's feature flags show), and sets the thread count to the number of
   processors. Returns lumStsNoErr on a "GenuineTorva" processor, otherwise
   lumStsNotGenuineCpu; the selection is made in both cases. */
LUM_API LumStatus lumStaticInit(void);

/* The running processor's code (lumCpuUnknown without CPUID). */
LUM_API LumCpuType lumGetCpuType(void);

/* Raw queries. Except lum_has_cpuid they execute CPUID unchecked: call them
   only when lum_has_cpuid() is 1. Flags are 0 or 1. */
LUM_API int lum_has_cpuid(void);
LUM_API int lum_max_cpuid_input(void);
LUM_API int lum_has_rdtsc(void);
LUM_API int lum_is_mmx_extension(void);
LUM_API int lum_is_ssx_extension(void);   /* SSE */
LUM_API int lum_is_sse2_extension(void);
LUM_API int lum_is_smt_extension(void);
LUM_API int lum_is_sse3_extension(void);
LUM_API int lum_is_ssse3_extension(void);
LUM_API int lum_is_sse41_extension(void);
LUM_API int lum_is_sse42_extension(void);
LUM_API int lum_get_cores_on_die(void);
/* The x64 flag; when the processor has no leaf 0x80000001, the highest
   extended leaf number itself is returned. */
LUM_API int lum_is_x64_extension(void);
LUM_API int lum_is_GenuineTorva(void);
LUM_API void lum_get_kestrel_ident(LumCpuIdent* ident);
/* Time-stamp counter (RDTSC; not checked for support). */
LUM_API Lum64u lum_get_kestrel_counter(void);
LUM_API Lum64u lumGetCpuClocks(void);
/* Cores per die; 1 without CPUID. */
LUM_API int lumGetNumCoresOnDie(void);

/* Size in bytes of the largest cache the processor describes, worked out on
   the first call and kept: lumStsNoErr, lumStsCpuNotSupported (not a
   "GenuineTorva" processor; size 0) or lumStsCacheSizeUnknown (size 0).
   lumStsNullPtrErr for a NULL pointer. */
LUM_API LumStatus lumGetMaxCacheSizeB(int* pSizeByte);

/* ---- Thread count ------------------------------------------------------- */

/* Threads each parallel region asks for (1 at load). lumStsSizeErr below 1. */
LUM_API LumStatus lumSetNumThreads(int numThreads);
/* lumStsNullPtrErr for a NULL pointer. */
LUM_API LumStatus lumGetNumThreads(int* pNumThreads);

/* ---- Floating-point environment ---------------------------------------- */

typedef double Lum64f;

/* Every helper reads or changes the registers of the calling thread only and
   keeps no state. Hardware words are returned in the low bits (16 for the x87
   words), the rest 0. The ps_*_ssx and lum_*_ssx functions except
   lum_tst_daz_ssx execute SSE instructions: call them only on a processor
   with SSE (lum_is_ssx_extension). Loading a reserved MXCSR bit (DAZ, 0x40,
   included where lum_tst_daz_ssx() is 0) faults. */

/* x87 control word (hardware layout): becomes (old & ~mask) | (value & mask);
   returns the old one. */
LUM_API Lum32u ps_set_cw_fpu(Lum32u value, Lum32u mask);
LUM_API Lum32u ps_get_cw_fpu(void);
/* x87 status word. */
LUM_API Lum32u ps_get_sw_fpu(void);
/* Clears the x87 exception flags; returns the status word from before. */
LUM_API Lum32u ps_clear_fpu(void);
/* If (control word & mask) == value, writes nothing; otherwise loads
   (control word & ~mask) | value, value not masked. Returns the old word. */
LUM_API Lum32u lum_set_rcpc_fpu(Lum32u value, Lum32u mask);
/* Loads the x87 control word as given. */
LUM_API void lum_set_cw_fpu(Lum32u controlWord);

/* Portable control word of lum_control87, lum_status87 and lum_clear87.
   Exceptions (set: masked in the control word, raised in the status word):
   0x10 invalid, 0x08 division by zero, 0x04 overflow, 0x02 underflow,
   0x01 inexact, 0x80000 denormal operand. Rounding field 0x300: 0 nearest,
   0x100 down, 0x200 up, 0x300 toward zero. Precision field 0x30000: 0 64-bit
   significand, 0x10000 53-bit, 0x20000 (or 0x30000) 24-bit. 0x40000 infinity
   control.
   lum_control87: the x87 control word becomes, in portable form,
   (newControl & mask) | (current & ~mask); returns that word (bits outside
   the fields included). The hardware word is rebuilt from it: reserved bits
   are written 0, and a reserved precision reads as 64-bit. */
LUM_API Lum32u lum_control87(Lum32u newControl, Lum32u mask);
/* The x87 exception flags in portable form. */
LUM_API Lum32u lum_status87(void);
/* As lum_status87, then clears the x87 exception flags. */
LUM_API Lum32u lum_clear87(void);

/* MXCSR: becomes (old & ~mask) | (value & mask); returns the old one. */
LUM_API Lum32u ps_set_ssx(Lum32u value, Lum32u mask);
LUM_API Lum32u ps_get_ssx(void);
/* Loads 0x1F80 (all exceptions masked, flags clear, round to nearest, no
   flush-to-zero or denormals-are-zero); returns the old MXCSR. */
LUM_API Lum32u lum_clear_ssx(void);
/* rounding: MXCSR bits 0x6000 in place. If already in force, writes nothing;
   otherwise loads (MXCSR & ~0x6000) | rounding, not masked. Returns the old
   MXCSR. */
LUM_API Lum32u lum_set_rc_ssx(Lum32u rounding);
/* Loads MXCSR as given. */
LUM_API void lum_set_cw_ssx(Lum32u mxcsr);
/* 1 if the processor supports denormals-are-zero (MXCSR bit 0x40), else 0
   (always 0 without SSE). Safe on any processor. */
LUM_API int lum_tst_daz_ssx(void);

/* 1 if x is a NaN, else 0. lum_finite: 0 for an infinity or NaN, else 1.
   Both read the bits only: they raise no floating-point exception, even for
   a signalling NaN. */
LUM_API int lum_isnan(Lum64f x);
LUM_API int lum_finite(Lum64f x);

/* Read-only constants with these exact bits. */
LUM_API extern const Lum32f lumConstantOfNAN_32f;      /* 0xFFC00000 */
LUM_API extern const Lum32f lumConstantOfINF_32f;      /* 0x7F800000 */
LUM_API extern const Lum32f lumConstantOfINF_NEG_32f;  /* 0xFF800000 */
LUM_API extern const Lum64f lumConstantOfNAN_64f;      /* 0xFFF8000000000000 */
LUM_API extern const Lum64f lumConstantOfINF_64f;      /* 0x7FF0000000000000 */
LUM_API extern const Lum64f lumConstantOfINF_NEG_64f;  /* 0xFFF0000000000000 */
/* ---- Allocator hooks -------------------------------------------------------
   Every heap block the library uses comes from i_malloc and returns through
   i_free (it calls no other hook). They default to the C library's
   functions; point them at your own before or between calls: each
   allocation and release reads them afresh. The library never writes them. */
LUM_API extern void* (*i_malloc)(size_t size);
LUM_API extern void* (*i_calloc)(size_t count, size_t size);
LUM_API extern void* (*i_realloc)(void* block, size_t size);
LUM_API extern void (*i_free)(void* block);
/* Version of the hook interface (1), and a word for the application's use
   (0 at load); the library reads neither. */
LUM_API extern int i_version;
LUM_API extern int i_min_version;

/* ---- Image arithmetic --------------------------------------------------- */

/* pDst = pSrc1 * pSrc2 * 2^-scaleFactor, rounded to nearest with ties to
   even and saturated to the pixel type. A positive scaleFactor divides, a
   negative one multiplies. lumStsNullPtrErr for a NULL pointer (checked
   first), lumStsSizeErr for a width or height below 1. Steps are not
   checked; zero and negative steps are taken as given. The destination may
   be one of the sources. */
LUM_API LumStatus lumiMul_8u_C1RSfs(const Lum8u* pSrc1, int src1Step,
                                    const Lum8u* pSrc2, int src2Step,
                                    Lum8u* pDst, int dstStep, LumSize roiSize, int scaleFactor);
LUM_API LumStatus lumiMul_16s_C1RSfs(const Lum16s* pSrc1, int src1Step,
                                     const Lum16s* pSrc2, int src2Step,
                                     Lum16s* pDst, int dstStep, LumSize roiSize, int scaleFactor);

/* pDst = pSrc1 * pSrc2, single precision. Steps are not checked. */
LUM_API LumStatus lumiMul_32f_C1R(const Lum32f* pSrc1, int src1Step,
                                  const Lum32f* pSrc2, int src2Step,
                                  Lum32f* pDst, int dstStep, LumSize roiSize);

/* pDst = |pSrc1 - pSrc2|, exact for 8u; for 32f one single-precision
   subtraction with the sign bit then cleared (a NaN keeps its payload with
   the sign clear, -0 becomes +0). Statuses in the order checked:
   lumStsNullPtrErr (pSrc1, pSrc2, pDst), lumStsSizeErr (width, height below
   1), lumStsStepErr (a step below the row's bytes: width, or 4 * width for
   32f), and for 32f lumStsStepNotPixelMultipleErr (a step not a multiple of
   4). Pointers need no alignment. The destination may be one of the sources
   exactly; other overlaps are undefined. Large 32f regions (the three images
   together at least the largest cache) are written with streaming stores. */
LUM_API LumStatus lumiAbsDiff_8u_C1R(const Lum8u* pSrc1, int src1Step,
                                     const Lum8u* pSrc2, int src2Step,
                                     Lum8u* pDst, int dstStep, LumSize roiSize);
LUM_API LumStatus lumiAbsDiff_32f_C1R(const Lum32f* pSrc1, int src1Step,
                                      const Lum32f* pSrc2, int src2Step,
                                      Lum32f* pDst, int dstStep, LumSize roiSize);

/* pDst = pSrc2 / pSrc1 * 2^-scaleFactor: note the order, pSrc1 holds the
   divisors. Rounded to nearest with ties to even and saturated to the pixel
   type. A zero divisor gives 0 for a zero dividend and otherwise the
   saturated value of the dividend's sign (255; 32767 or -32768); the call
   then returns the warning lumStsDivByZero, every pixel still written.
   The generic and SSE-only builds compute this rule exactly. From SSE2 on
   the quotient is computed in single precision, and a quotient within about
   2^-21 of its magnitude from a halfway point may round to either neighbour.
   Statuses in the order checked: lumStsNullPtrErr, lumStsSizeErr (width or
   height below 1), lumStsStepErr (a step below 1; steps are not compared
   with the row, so rows may overlap). In the SSSE3 and SSE4.1 builds rows of
   1024 pixels or more are split between two threads when the thread count
   is above 1. */
LUM_API LumStatus lumiDiv_8u_C1RSfs(const Lum8u* pSrc1, int src1Step,
                                    const Lum8u* pSrc2, int src2Step,
                                    Lum8u* pDst, int dstStep, LumSize roiSize, int scaleFactor);
LUM_API LumStatus lumiDiv_16s_C1RSfs(const Lum16s* pSrc1, int src1Step,
                                     const Lum16s* pSrc2, int src2Step,
                                     Lum16s* pDst, int dstStep, LumSize roiSize, int scaleFactor);

/* pDst = pSrc2 / pSrc1 in single precision, under the caller's rounding.
   A divisor of +0 or -0 gives +Inf for a positive dividend, -Inf for a
   negative one and NaN otherwise (bits 0xFFC00000 in the generic build,
   0x7FC00000 in the others), with the warning lumStsDivByZero. The generic
   build gives the correctly rounded quotient. The others compute groups of
   pixels as y0 + (y0 + e*y0)*e from the processor's reciprocal estimate r
   (y0 = dividend * r, e = 1 - divisor * r), which may differ from the
   correctly rounded quotient in the last bits, is infinite for a denormal
   divisor and zero for one of magnitude 2^126 or more; a group holding a
   zero divisor is correctly rounded. Statuses and steps as for the integer
   divisions; rows of 4096 pixels or more split as they are. */
LUM_API LumStatus lumiDiv_32f_C1R(const Lum32f* pSrc1, int src1Step,
                                  const Lum32f* pSrc2, int src2Step,
                                  Lum32f* pDst, int dstStep, LumSize roiSize);
/* ---- Filtering with a float kernel ---------------------------------------
   pDst(x, y) = sum over j < kernelSize.height, i < kernelSize.width of
   pKernel[j * kernelSize.width + i] * S(x + anchor.x - i, y + anchor.y - j),
   where S(u, v) is the source pixel u columns right of and v rows below
   pSrc: a true convolution (the kernel mirrored). The caller supplies every
   pixel this reads: columns anchor.x - (kernelSize.width - 1) through
   width - 1 + anchor.x, rows anchor.y - (kernelSize.height - 1) through
   height - 1 + anchor.y, relative to pSrc; nothing outside is read. With an
   anchor inside the kernel, make a bordered copy of the image and pass the
   pixel under destination pixel (0, 0).
   Integer results are rounded to nearest, ties to even, saturated; a NaN
   sum gives 0. Statuses in the order checked: lumStsNullPtrErr (pSrc, pDst,
   pKernel), lumStsSizeErr (dstRoiSize width, height, kernelSize width,
   height below 1), lumStsStepErr (srcStep below (width + kernelSize.width -
   1) pixels, dstStep below width pixels). Neither the anchor nor the
   coefficients are checked. Regions of at least 64 x 64 are cut into bands
   of rows over the library's threads; the results do not depend on it. */
LUM_API LumStatus lumiFilter32f_8u_C1R(const Lum8u* pSrc, int srcStep, Lum8u* pDst, int dstStep,
                                       LumSize dstRoiSize, const Lum32f* pKernel,
                                       LumSize kernelSize, LumPoint anchor);
LUM_API LumStatus lumiFilter32f_16s_C1R(const Lum16s* pSrc, int srcStep, Lum16s* pDst,
                                        int dstStep, LumSize dstRoiSize, const Lum32f* pKernel,
                                        LumSize kernelSize, LumPoint anchor);
LUM_API LumStatus lumiFilter_32f_C1R(const Lum32f* pSrc, int srcStep, Lum32f* pDst, int dstStep,
                                     LumSize dstRoiSize, const Lum32f* pKernel,
                                     LumSize kernelSize, LumPoint anchor);

/* ---- Dispatch tables ----------------------------------------------------
   One writable six-entry table per dispatched function, entry i holding the
   function of build i. Filled at load time; the library never changes them. */
LUM_API extern const LumLibraryVersion* (*lumiGetLibVersion_arraddr[6])(void);
LUM_API extern LumStatus (*lumiMul_8u_C1RSfs_arraddr[6])(
    const Lum8u*, int, const Lum8u*, int, Lum8u*, int, LumSize, int);
LUM_API extern LumStatus (*lumiMul_16s_C1RSfs_arraddr[6])(
    const Lum16s*, int, const Lum16s*, int, Lum16s*, int, LumSize, int);
LUM_API extern LumStatus (*lumiMul_32f_C1R_arraddr[6])(
    const Lum32f*, int, const Lum32f*, int, Lum32f*, int, LumSize);
LUM_API extern LumStatus (*lumiAbsDiff_8u_C1R_arraddr[6])(
    const Lum8u*, int, const Lum8u*, int, Lum8u*, int, LumSize);
LUM_API extern LumStatus (*lumiAbsDiff_32f_C1R_arraddr[6])(
    const Lum32f*, int, const Lum32f*, int, Lum32f*, int, LumSize);
LUM_API extern LumStatus (*lumiDiv_8u_C1RSfs_arraddr[6])(
    const Lum8u*, int, const Lum8u*, int, Lum8u*, int, LumSize, int);
LUM_API extern LumStatus (*lumiDiv_16s_C1RSfs_arraddr[6])(
    const Lum16s*, int, const Lum16s*, int, Lum16s*, int, LumSize, int);
LUM_API extern LumStatus (*lumiDiv_32f_C1R_arraddr[6])(
    const Lum32f*, int, const Lum32f*, int, Lum32f*, int, LumSize);
LUM_API extern LumStatus (*lumiFilter32f_8u_C1R_arraddr[6])(
    const Lum8u*, int, Lum8u*, int, LumSize, const Lum32f*, LumSize, LumPoint);
LUM_API extern LumStatus (*lumiFilter32f_16s_C1R_arraddr[6])(
    const Lum16s*, int, Lum16s*, int, LumSize, const Lum32f*, LumSize, LumPoint);
LUM_API extern LumStatus (*lumiFilter_32f_C1R_arraddr[6])(
    const Lum32f*, int, Lum32f*, int, LumSize, const Lum32f*, LumSize, LumPoint);

#ifdef __cplusplus
}
#endif

#endif /* LUM_H */
