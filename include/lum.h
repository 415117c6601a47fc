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
 * goes to the build selected with lumStaticInitCpu (the generic build until
 * then).
 */
#ifndef LUM_H
#define LUM_H

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

/* ---- Thread count ------------------------------------------------------- */

/* Threads each parallel region asks for (1 at load). lumStsSizeErr below 1. */
LUM_API LumStatus lumSetNumThreads(int numThreads);
/* lumStsNullPtrErr for a NULL pointer. */
LUM_API LumStatus lumGetNumThreads(int* pNumThreads);

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

#ifdef __cplusplus
}
#endif

#endif /* LUM_H */
