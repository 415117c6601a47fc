/*
 * lum: image-processing primitives for 32-bit x86 Linux.
 *
 * Conventions that hold for every function below unless its own comment
 * says otherwise:
 *
 * Images. Every image function works on a rectangular region of a
 * single-channel image held in the caller's memory, given as a pointer to
 * the region's first (top-left) pixel and a step: the signed distance in
 * BYTES from the start of one row to the start of the next. Row i starts at
 * the pointer plus i steps, so a step may be padded, and the functions that
 * do not check steps also take zero or negative ones as given. Pointers need
 * no particular alignment. The region's size (LumSize) is in pixels, width
 * then height. Pixel types: Lum8u (unsigned 8-bit), Lum16s (signed 16-bit),
 * Lum32f (IEEE single precision); the suffix of a function's name names them.
 *
 * Statuses. Every function that can fail returns a LumStatus: 0 on
 * success, negative on error, positive for a warning. Arguments are checked
 * before any pixel is touched, in a fixed order (null pointers in argument
 * order, then sizes, then steps; each function lists its own); the first
 * failure is returned and nothing is written. A warning never stops an
 * operation.
 *
 * Builds. Each image function is built once per instruction-set level:
 * k0 (plain x86 and x87), k1 (SSE, MMX for integers), k2 (SSE2), k3 (SSE3),
 * k4 (SSSE3), k5 (SSE4.1). Each call goes to the build whose index is in
 * lumJumpIndexForMergedLibs: 0, the generic build, until lumStaticInit or
 * lumStaticInitCpu selects another. All builds make the same checks and
 * return the same statuses; they compute the same pixels except where a
 * function's comment says "Builds:".
 *
 * Threads. The image functions keep no state between calls and may be
 * called from several threads at once on distinct destinations. The
 * library's settings (the selected build, the thread count, the allocator
 * hooks) are plain words without locks: set them before image functions run
 * on other threads. Some image functions split their rows over the threads
 * of the OpenMP runtime (see lumSetNumThreads); each worker runs under the
 * caller's floating-point environment, and the pixels never depend on the
 * thread count except where a comment says so.
 *
 * Floating-point state. An image function gives back the caller's x87
 * control word and MXCSR control bits as it found them, and leaves every
 * exception flag the caller had set still set, beside those the call raised.
 * Where the caller unmasks exceptions, the arithmetic on the caller's pixels
 * may trap as any arithmetic would; the library's own steps (making a pixel
 * of a NaN or out-of-range sum, choosing a zero divisor's value) never do.
 */
#ifndef LUM_H
#define LUM_H

#include <stddef.h>

/* Version of this interface: the library's major.minor.patch. The major
   number is the shared object's version (liblum.so.5); a program built
   against one minor version runs with any later one of the same major. */
#define LUM_VERSION_MAJOR 5
#define LUM_VERSION_MINOR 3
#define LUM_VERSION_PATCH 85

#ifdef __cplusplus
extern "C" {
#endif

#if defined(LUM_BUILDING_LIBRARY)
#define LUM_API __attribute__((visibility("default")))
#else
#define LUM_API
#endif

/* A 64-bit integer type in a header that also compiles as C89. */
#if defined(__GNUC__)
#define LUM_EXTENSION __extension__
#else
#define LUM_EXTENSION
#endif

/* ---- Basic types ------------------------------------------------------ */

typedef unsigned char Lum8u;
typedef signed short Lum16s;
typedef signed int Lum32s;
typedef unsigned int Lum32u;
typedef float Lum32f;

/* 0 success, below 0 an error (nothing written), above 0 a warning. */
typedef Lum32s LumStatus;

/* Size of a region or a kernel in pixels. */
typedef struct {
  int width;
  int height;
} LumSize;

/* A pixel position: column x, row y (the filters' anchor). */
typedef struct {
  int x;
  int y;
} LumPoint;

/* What lumiGetLibVersion returns: 5, 3, 85, 499 in every build. */
typedef struct {
  int major;
  int minor;
  int majorBuild;
  int build;
  char targetCpu[4]; /* the build's tag, NUL-padded: "k0" .. "k5" */
  const char* name;  /* "lumik0t.a" .. "lumik5t.a" */
  const char* version;
  const char* buildDate;
} LumLibraryVersion;

/* ---- Status codes returned by this library ----------------------------- */

enum {
  lumStsNoErr = 0,
  lumStsNoOperation = 1,       /* never returned by this library's functions */
  lumStsDivByZero = 6,         /* divisions: a zero divisor, result written */
  lumStsNotGenuineCpu = 20,    /* lumStaticInit: a notice, the build is selected */
  lumStsCpuNotSet = 21,        /* lumStaticInitCpu: a code without a build */
  lumStsCpuNotSupported = 36,  /* lumGetMaxCacheSizeB */
  lumStsCacheSizeUnknown = 37, /* lumGetMaxCacheSizeB */

  lumStsNoMemErr = -4,
  lumStsBadArgErr = -5,
  lumStsSizeErr = -6, /* a width, height or count below 1 */
  lumStsNullPtrErr = -8,
  lumStsMemAllocErr = -9,
  lumStsDivByZeroErr = -10,
  lumStsOutOfRangeErr = -11,
  lumStsScaleRangeErr = -13,
  lumStsStepErr = -14, /* a step too small for the function */
  lumStsStepNotPixelMultipleErr = -108
};

/* The fixed English message of any status of the family.
   code: any value; codes outside the catalogue, this library's own and
   those of its sister libraries, give "Unknown Status Code".
   Returns constant data, never NULL: do not free or write it.
   Threads: safe from any thread at any time, before any initialization. */
LUM_API const char* lumGetStatusString(LumStatus code);

/* ---- Build selection ---------------------------------------------------- */

/* Index (0..5) of the build that every image call goes to. Starts at 0, the
   generic build; written by the initializers, readable by the caller. A
   caller may also write it (0..5; anything else is undefined) to force a
   build, which is then its own responsibility like lumStaticInitCpu's.
   Threads: a plain word read by every call; a change affects only calls
   that start after it. */
LUM_API extern int lumJumpIndexForMergedLibs;

/* Selects the build for a processor code and sets the thread count to the
   number of processors (first, so even on failure).
   cpu: a LumCpuType, compared as an unsigned number. 0..4 and 0xFFFFFFFF
   select k0; 5, 16, 17, 64 k1; 6, 7, 9, 65 k2; 8, 10, 11, 32, 66 k3;
   33, 34, 36, 67 k4; 35, 37, 68, 69 k5. Nothing checks that the processor
   can run the build: that is the caller's responsibility.
   Statuses: lumStsNoErr, or lumStsCpuNotSet for any other code (the
   previous selection then stays).
   Threads: call once, before image functions run on other threads. */
LUM_API LumStatus lumStaticInitCpu(Lum32u cpu);

/* Version record of the selected build (dispatched like an image function,
   so targetCpu and name tell which build runs). Constant data, never NULL:
   do not free it. Threads: safe from any thread. */
LUM_API const LumLibraryVersion* lumiGetLibVersion(void);

/* ---- Processor identification ----------------------------------------- */

LUM_EXTENSION typedef unsigned long long Lum64u;

/* Processor code: what lumGetCpuType reports and lumStaticInitCpu accepts. */
typedef enum {
  lumCpuUnknown = 0, /* no CPUID, or none of the tested features */
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
  lumCpuCode37 = 37, /* never reported; accepted by lumStaticInitCpu */
  lumCpuSse = 64,
  lumCpuSse2 = 65,
  lumCpuSse3 = 66,
  lumCpuSsse3 = 67,
  lumCpuSse41 = 68,
  lumCpuSse42 = 69,
  lumCpuX64 = 96 /* x64 flag without any SSE level */
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

/* Classifies the running processor (lumGetCpuType) and selects its build:
   the generic one for a code without a build, and never one beyond the
   instruction sets the processor's feature flags show. Sets the thread
   count to the number of processors first.
   Statuses: lumStsNoErr on a "GenuineTorva" processor, otherwise
   lumStsNotGenuineCpu; the selection is made in both cases.
   Threads: call once, before image functions run on other threads. */
LUM_API LumStatus lumStaticInit(void);

/* The running processor's code (lumCpuUnknown without CPUID). Safe from any
   thread. */
LUM_API LumCpuType lumGetCpuType(void);

/* Raw queries of the running processor. Except lum_has_cpuid they execute
   CPUID unchecked: call them only when lum_has_cpuid() is 1. Flags are 0 or
   1. None keeps state; all are safe from any thread.
   lum_has_cpuid: whether the EFLAGS identification bit can be toggled.
   lum_max_cpuid_input: the highest standard leaf.
   lum_has_rdtsc, lum_is_mmx_extension, lum_is_ssx_extension (SSE),
   lum_is_sse2_extension .. lum_is_sse42_extension, lum_is_smt_extension:
   the feature flags of the same names.
   lum_get_cores_on_die: cores per die from the processor's own leaves. */
LUM_API int lum_has_cpuid(void);
LUM_API int lum_max_cpuid_input(void);
LUM_API int lum_has_rdtsc(void);
LUM_API int lum_is_mmx_extension(void);
LUM_API int lum_is_ssx_extension(void); /* SSE */
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
/* 1 if the vendor string is "GenuineTorva", else 0. */
LUM_API int lum_is_GenuineTorva(void);
/* Fills *ident (not NULL) from the processor's leaves; `spare` untouched. */
LUM_API void lum_get_kestrel_ident(LumCpuIdent* ident);
/* Time-stamp counter (RDTSC; not checked for support). The two are the same
   query under two names. */
LUM_API Lum64u lum_get_kestrel_counter(void);
LUM_API Lum64u lumGetCpuClocks(void);
/* Cores per die; 1 without CPUID. */
LUM_API int lumGetNumCoresOnDie(void);

/* Size in bytes of the largest cache the processor describes.
   pSizeByte: receives the size (0 unless lumStsNoErr).
   Statuses: lumStsNullPtrErr for a NULL pointer; then lumStsNoErr,
   lumStsCpuNotSupported (not a "GenuineTorva" processor) or
   lumStsCacheSizeUnknown (no descriptor the library knows).
   Worked out on the first call and kept for the life of the process.
   Threads: make the first call before several threads may call it. */
LUM_API LumStatus lumGetMaxCacheSizeB(int* pSizeByte);

/* ---- Thread count ------------------------------------------------------- */

/* Threads each parallel region of an image function asks for: 1 at load,
   the processor count after an initializer. A region never asks for more
   threads than it has rows, nor more than four per processor or 64 in
   all, nor more than its work pays for: each function's comment says how
   much work a thread must get before the function shares it, and below
   that it runs on the calling thread. Where destination rows overlap, and
   in the child of a fork(), rows run on the calling thread.
   numThreads: 1 or more, no upper bound.
   Statuses: lumStsSizeErr below 1 (the count unchanged), else lumStsNoErr.
   Threads: a plain word; set it before image functions run on other
   threads. Regions that start after the store use the new count. */
LUM_API LumStatus lumSetNumThreads(int numThreads);
/* pNumThreads: receives the count as set (not as capped).
   Statuses: lumStsNullPtrErr for a NULL pointer, else lumStsNoErr. */
LUM_API LumStatus lumGetNumThreads(int* pNumThreads);

/* ---- Floating-point environment ---------------------------------------- */

typedef double Lum64f;

/* Every helper reads or changes the registers of the calling thread only and
   keeps no state, so all are safe from any thread. Hardware words are
   returned in the low bits (16 for the x87 words), the rest 0. The ps_*_ssx
   and lum_*_ssx functions except lum_tst_daz_ssx execute SSE instructions:
   call them only on a processor with SSE (lum_is_ssx_extension). Loading a
   reserved MXCSR bit (DAZ, 0x40, included where lum_tst_daz_ssx() is 0)
   faults. */

/* x87 control word (hardware layout): becomes (old & ~mask) | (value & mask);
   returns the old one. */
LUM_API Lum32u ps_set_cw_fpu(Lum32u value, Lum32u mask);
/* The x87 control word. */
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
/* The MXCSR. */
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
   (always 0 without SSE or FXSR). Safe on any processor. */
LUM_API int lum_tst_daz_ssx(void);

/* 1 if x is a NaN, else 0. lum_finite: 0 for an infinity or NaN, else 1.
   Both read the bits only: they raise no floating-point exception, even for
   a signalling NaN. */
LUM_API int lum_isnan(Lum64f x);
LUM_API int lum_finite(Lum64f x);

/* Read-only constants with these exact bits. */
LUM_API extern const Lum32f lumConstantOfNAN_32f;     /* 0xFFC00000 */
LUM_API extern const Lum32f lumConstantOfINF_32f;     /* 0x7F800000 */
LUM_API extern const Lum32f lumConstantOfINF_NEG_32f; /* 0xFF800000 */
LUM_API extern const Lum64f lumConstantOfNAN_64f;     /* 0xFFF8000000000000 */
LUM_API extern const Lum64f lumConstantOfINF_64f;     /* 0x7FF0000000000000 */
LUM_API extern const Lum64f lumConstantOfINF_NEG_64f; /* 0xFFF0000000000000 */
/* ---- Allocator hooks -------------------------------------------------------
   Every heap block the library uses comes from i_malloc and returns through
   i_free (it calls no other hook); today only the filters' scratch buffers
   do, freed before the call returns. The hooks default to the C library's
   functions; point them at your own before or between calls: each
   allocation and release reads them afresh, so a block is always released
   through the i_free in force at its release. The library never writes
   them. Threads: plain words; change them only while no image function
   runs, and make the functions you install safe from several threads. */
LUM_API extern void* (*i_malloc)(size_t size);
LUM_API extern void* (*i_calloc)(size_t count, size_t size);
LUM_API extern void* (*i_realloc)(void* block, size_t size);
LUM_API extern void (*i_free)(void* block);
/* Version of the hook interface (1), and a word for the application's use
   (0 at load); the library reads neither. */
LUM_API extern int i_version;
LUM_API extern int i_min_version;

/* ---- Image arithmetic ---------------------------------------------------
   The two-operand functions below share their arguments:
     pSrc1, src1Step  first source region and its step in bytes
     pSrc2, src2Step  second source region and its step in bytes
     pDst, dstStep    destination region and its step in bytes
     roiSize          width and height of the region in pixels, the same
                      for all three images
   and, for names ending in Sfs, scaleFactor: the exact result is multiplied
   by 2^-scaleFactor before it is rounded and saturated (a positive factor
   divides, a negative one multiplies). */

/* pDst = saturate(round(pSrc1 * pSrc2 * 2^-scaleFactor)), rounded to
   nearest with ties to even, saturated to the pixel type. Every scale
   factor is valid: above 16 (8u) or 30 (16s) every result is 0 and the
   sources are not read; far enough below 0 a result is decided by the
   product's sign alone (8u: 255 unless a pixel is 0; 16s: 0, 32767 or
   -32768).
   Statuses, in the order checked: lumStsNullPtrErr (pSrc1, pSrc2, pDst),
   lumStsSizeErr (height, then width below 1). Steps are not checked: zero and
   negative steps are taken as given. The destination may be one of the
   sources (in place).
   Builds: the same pixels in every build.
   Threads: k1..k5 share the rows among the library's threads where each
   thread gets at least 524288 pixels (8u) or 393216 (16s), from 1024 x 1024
   (8u) or 1024 x 768 (16s) on two threads, and the destination rows do not
   overlap; otherwise, and in k0, the calling thread does every row.
   The pixels do not depend on it. */
LUM_API LumStatus lumiMul_8u_C1RSfs(const Lum8u* pSrc1, int src1Step, const Lum8u* pSrc2,
                                    int src2Step, Lum8u* pDst, int dstStep, LumSize roiSize,
                                    int scaleFactor);
LUM_API LumStatus lumiMul_16s_C1RSfs(const Lum16s* pSrc1, int src1Step, const Lum16s* pSrc2,
                                     int src2Step, Lum16s* pDst, int dstStep, LumSize roiSize,
                                     int scaleFactor);

/* pDst = pSrc1 * pSrc2 in single precision under the caller's rounding;
   NaNs and infinities propagate as the processor gives them.
   Statuses, in the order checked: lumStsNullPtrErr (pSrc1, pSrc2, pDst),
   lumStsSizeErr (height or width below 1). Steps are not checked. In place
   allowed.
   Builds: the same pixels under the default floating-point settings, with
   these exceptions. Where both pixels are NaN, k1..k5 keep the first one's
   payload, quieted, and k0 one of the two: the x87 unit picks by payload
   (0x7FC00001 * 0x7FC00002 is 0x7FC00001 in k1..k5, 0x7FC00002 in k0, and
   so is 0x7FC00002 * 0x7FC00001 in every build). k1..k5 multiply on the SSE unit under MXCSR
   (its rounding, flush-to-zero and denormals-are-zero); k0 multiplies on the
   x87 unit under the x87 control word's rounding and precision and ignores
   MXCSR, so under a caller's 24-bit x87 precision a product in the denormal
   range is rounded twice (to 24 bits, then to the denormal).
   Threads: k1..k5 share the rows among the library's threads where each
   thread gets at least 98304 pixels (from 444 x 443 on two threads) and the
   destination rows do not overlap; otherwise, and in k0, the calling
   thread does every row. */
LUM_API LumStatus lumiMul_32f_C1R(const Lum32f* pSrc1, int src1Step, const Lum32f* pSrc2,
                                  int src2Step, Lum32f* pDst, int dstStep, LumSize roiSize);

/* pDst = |pSrc1 - pSrc2|, exact for 8u; for 32f one single-precision
   subtraction with the sign bit then cleared (a NaN keeps its payload with
   the sign clear, -0 becomes +0).
   Statuses, in the order checked: lumStsNullPtrErr (pSrc1, pSrc2, pDst),
   lumStsSizeErr (width, then height below 1), lumStsStepErr (src1Step,
   src2Step, then dstStep below the row's bytes: width, or 4 * width for
   32f), and for 32f lumStsStepNotPixelMultipleErr (a step not a multiple of
   4). Never a warning. The destination may be one of the sources exactly;
   other overlaps are undefined.
   Builds: the same pixels under the default floating-point settings. For
   32f, k1..k5 round the difference on the SSE unit under MXCSR and then
   clear its sign; k0 forms the difference on the x87 unit, takes its
   absolute value there and rounds that once to single under the x87 control
   word, ignoring MXCSR. So under a directed rounding mode k0 may differ in
   the last bit (|3e-8 - 1| rounded up: 0x3F800000 in k0, 0x3F7FFFFF in
   k1..k5), k0 ignores flush-to-zero and denormals-are-zero, and where both
   pixels are NaN k1..k5 keep the first one's payload and k0 one of the two
   (the x87 unit picks by payload).
   Streaming stores, which keep the destination out of the cache: k1 writes
   8u regions so, k1 and k3 the rows of 32f regions whose pointers and steps
   are multiples of 16, and k2, k4 and k5 32f regions whose three images
   together reach the largest cache: that of lumGetMaxCacheSizeB, or where
   that fails the largest the processor's extended leaves describe: the
   largest data or unified cache of leaf 0x8000001D's list where leaf
   0x80000001 shows the list, else the larger of leaf 0x80000006's level-2
   and level-3 caches (which on some processors counts every level-3 cache
   of the package, not the one a core shares); where neither can be read,
   every region. A call that
   streams ends with a store fence, so its pixels are in memory, in order,
   before anything the caller stores next (another thread that sees the
   caller's later release store sees the pixels).
   Threads: runs on the calling thread. */
LUM_API LumStatus lumiAbsDiff_8u_C1R(const Lum8u* pSrc1, int src1Step, const Lum8u* pSrc2,
                                     int src2Step, Lum8u* pDst, int dstStep, LumSize roiSize);
LUM_API LumStatus lumiAbsDiff_32f_C1R(const Lum32f* pSrc1, int src1Step, const Lum32f* pSrc2,
                                      int src2Step, Lum32f* pDst, int dstStep, LumSize roiSize);

/* pDst = pSrc2 / pSrc1 * 2^-scaleFactor: note the order, pSrc1 holds the
   divisors. Rounded to nearest with ties to even and saturated to the pixel
   type. A zero divisor gives 0 for a zero dividend and otherwise the
   saturated value of the dividend's sign (255; 32767 or -32768); the call
   then returns the warning lumStsDivByZero, every pixel still written.
   Statuses, in the order checked: lumStsNullPtrErr (pSrc1, pSrc2, pDst),
   lumStsSizeErr (height, then width below 1), lumStsStepErr (a step below 1;
   steps are not compared with the row, so rows may overlap); on success
   lumStsNoErr or lumStsDivByZero.
   Builds: the same pixels in every build, the rule exactly: the generic and
   SSE-only builds divide on the x87 unit in extended precision; from SSE2 on
   one correctly rounded single-precision division of operands exact in
   single precision decides every rounding, and in 16s below scale factor -7,
   where the shifted dividend exceeds 24 bits, that division rounds down and
   ties are settled in integer arithmetic.
   Threads: in the SSSE3 and SSE4.1 builds rows of 1024 pixels or more (of
   a scale factor whose results need a quotient) are cut in two pieces at
   their middle, and the pieces of all rows are shared among the library's
   threads in one parallel region where each thread gets at least 98304
   pixels (1024 x 192 on two threads) and the destination rows do not
   overlap; otherwise the calling thread does every row. The pixels do not
   depend on it. */
LUM_API LumStatus lumiDiv_8u_C1RSfs(const Lum8u* pSrc1, int src1Step, const Lum8u* pSrc2,
                                    int src2Step, Lum8u* pDst, int dstStep, LumSize roiSize,
                                    int scaleFactor);
LUM_API LumStatus lumiDiv_16s_C1RSfs(const Lum16s* pSrc1, int src1Step, const Lum16s* pSrc2,
                                     int src2Step, Lum16s* pDst, int dstStep, LumSize roiSize,
                                     int scaleFactor);

/* pDst = pSrc2 / pSrc1 in single precision, under the caller's rounding.
   A divisor of +0 or -0 gives +Inf for a positive dividend, -Inf for a
   negative one and NaN otherwise, with the warning lumStsDivByZero.
   Statuses and steps as for the integer divisions.
   Builds: the generic build gives the correctly rounded quotient (an
   infinity where it overflows, 0 or a denormal where it underflows), and
   NaN bits 0xFFC00000 for a zero divisor (0x7FC00000 in the others). The
   others compute groups of pixels as y0 + (y0 + e*y0)*e from the
   processor's reciprocal estimate r (y0 = dividend * r, e = 1 - divisor *
   r), every step in single precision under the caller's MXCSR. That may
   differ from the correctly rounded quotient in the last bits, and at the
   ends of the range it gives what the formula gives, not the quotient:
   where dividend * r overflows (a quotient beyond the float maximum, or
   within the estimate's error of it; 1e10 / 1e-30) the result is the NaN
   0xFFC00000, or an infinity where e is positive; a denormal divisor
   (1 / 0x00000001) or an infinite one (1 / +Inf) gives the NaN 0xFFC00000
   for any dividend, and a divisor of magnitude 2^126 or more gives 0 for a
   finite dividend, where k0 gives the quotient, an infinity or 0. An
   infinite dividend gives NaN or an infinity. With denormals-are-zero set
   they take a denormal divisor for zero (its zero-divisor value and
   lumStsDivByZero). A group holding a zero divisor is correctly rounded.
   Threads: in the SSSE3 and SSE4.1 builds rows of 4096 pixels or more are
   cut in two pieces where a group of pixels starts near their middle, and
   the pieces of all rows are shared among the library's threads in one
   parallel region where each thread gets at least 98304 pixels (4096 x 48
   on two threads) and the destination rows do not overlap; otherwise the
   calling thread does every row. The pixels do not depend on it. */
LUM_API LumStatus lumiDiv_32f_C1R(const Lum32f* pSrc1, int src1Step, const Lum32f* pSrc2,
                                  int src2Step, Lum32f* pDst, int dstStep, LumSize roiSize);
/* ---- Filtering with a float kernel ---------------------------------------
   pDst(x, y) = sum over j < kernelSize.height, i < kernelSize.width of
   pKernel[j * kernelSize.width + i] * S(x + anchor.x - i, y + anchor.y - j),
   where S(u, v) is the source pixel u columns right of and v rows below
   pSrc: a true convolution (the kernel mirrored).
   Arguments:
     pSrc, srcStep    the source pixel under destination pixel (0, 0), and
                      the source step in bytes. The caller supplies every
                      pixel this reads: columns anchor.x -
                      (kernelSize.width - 1) through width - 1 + anchor.x,
                      rows anchor.y - (kernelSize.height - 1) through
                      height - 1 + anchor.y, relative to pSrc; nothing
                      outside is read. With an anchor inside the kernel,
                      make a bordered copy of the image and pass the pixel
                      under destination pixel (0, 0).
     pDst, dstStep    the destination region and its step in bytes
     dstRoiSize       the destination region's width and height in pixels
     pKernel          kernelSize.width * kernelSize.height coefficients, row
                      by row, no padding between rows
     kernelSize       the kernel's width and height
     anchor           the kernel cell (column x, row y) aligned with each
                      destination pixel; any value, outside the kernel too,
                      as long as the source window above is readable
   Integer results are rounded to nearest, ties to even, saturated; a NaN
   sum gives 0.
   Statuses, in the order checked: lumStsNullPtrErr (pSrc, pDst, pKernel),
   lumStsSizeErr (dstRoiSize width, height, kernelSize width, height below
   1), lumStsStepErr (srcStep below (width + kernelSize.width - 1) pixels,
   dstStep below width pixels). Neither the anchor nor the coefficients are
   checked. A scratch buffer that cannot be allocated is not an error: the
   call then takes the direct loop.
   Builds: k0 adds the products on the x87 unit, in the precision of its
   control word (extended under the usual setting). k1 does the same where
   its vector path does not run (a kernel narrower than 3, a region narrower
   than 16 pixels, no scratch memory) and otherwise adds in single
   precision; its 16s vector path (coefficient magnitudes summing to at
   most 32767) rounds under the caller's SSE rounding mode. k2..k5 add in
   single precision, in the same order on every path. So a 32f result may
   differ between builds in its last bits and an integer one by 1 where the
   sum lies within rounding distance of a half.
   Threads: the region is cut into bands of rows, one per thread, where
   each thread gets at least 147456 pixels times kernel cells (from 182 x
   182 with a 3x3 kernel, 109 x 109 with a 5x5, on two threads); otherwise
   the calling thread does every row. The results do not depend on it. */
LUM_API LumStatus lumiFilter32f_8u_C1R(const Lum8u* pSrc, int srcStep, Lum8u* pDst, int dstStep,
                                       LumSize dstRoiSize, const Lum32f* pKernel,
                                       LumSize kernelSize, LumPoint anchor);
LUM_API LumStatus lumiFilter32f_16s_C1R(const Lum16s* pSrc, int srcStep, Lum16s* pDst, int dstStep,
                                        LumSize dstRoiSize, const Lum32f* pKernel,
                                        LumSize kernelSize, LumPoint anchor);
LUM_API LumStatus lumiFilter_32f_C1R(const Lum32f* pSrc, int srcStep, Lum32f* pDst, int dstStep,
                                     LumSize dstRoiSize, const Lum32f* pKernel, LumSize kernelSize,
                                     LumPoint anchor);

/* ---- Dispatch tables ----------------------------------------------------
   One writable six-entry table per dispatched function, entry i holding the
   function of build ki, so that a caller can reach one build directly
   (lumiMul_32f_C1R_arraddr[2](...) runs k2 whatever is selected). Filled at
   load time; the library never changes them. A caller that writes an entry
   redirects every later call of that function through it. */
LUM_API extern const LumLibraryVersion* (*lumiGetLibVersion_arraddr[6])(void);
LUM_API extern LumStatus (*lumiMul_8u_C1RSfs_arraddr[6])(const Lum8u*, int, const Lum8u*, int,
                                                         Lum8u*, int, LumSize, int);
LUM_API extern LumStatus (*lumiMul_16s_C1RSfs_arraddr[6])(const Lum16s*, int, const Lum16s*, int,
                                                          Lum16s*, int, LumSize, int);
LUM_API extern LumStatus (*lumiMul_32f_C1R_arraddr[6])(const Lum32f*, int, const Lum32f*, int,
                                                       Lum32f*, int, LumSize);
LUM_API extern LumStatus (*lumiAbsDiff_8u_C1R_arraddr[6])(const Lum8u*, int, const Lum8u*, int,
                                                          Lum8u*, int, LumSize);
LUM_API extern LumStatus (*lumiAbsDiff_32f_C1R_arraddr[6])(const Lum32f*, int, const Lum32f*, int,
                                                           Lum32f*, int, LumSize);
LUM_API extern LumStatus (*lumiDiv_8u_C1RSfs_arraddr[6])(const Lum8u*, int, const Lum8u*, int,
                                                         Lum8u*, int, LumSize, int);
LUM_API extern LumStatus (*lumiDiv_16s_C1RSfs_arraddr[6])(const Lum16s*, int, const Lum16s*, int,
                                                          Lum16s*, int, LumSize, int);
LUM_API extern LumStatus (*lumiDiv_32f_C1R_arraddr[6])(const Lum32f*, int, const Lum32f*, int,
                                                       Lum32f*, int, LumSize);
LUM_API extern LumStatus (*lumiFilter32f_8u_C1R_arraddr[6])(const Lum8u*, int, Lum8u*, int, LumSize,
                                                            const Lum32f*, LumSize, LumPoint);
LUM_API extern LumStatus (*lumiFilter32f_16s_C1R_arraddr[6])(const Lum16s*, int, Lum16s*, int,
                                                             LumSize, const Lum32f*, LumSize,
                                                             LumPoint);
LUM_API extern LumStatus (*lumiFilter_32f_C1R_arraddr[6])(const Lum32f*, int, Lum32f*, int, LumSize,
                                                          const Lum32f*, LumSize, LumPoint);

#ifdef __cplusplus
}
#endif

#endif /* LUM_H */
