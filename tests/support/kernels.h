// The internal routines of all six builds (lum::k0:: .. lum::k5::), and a
// helper that gathers one of them from every vector build into a table.
#ifndef LUM_TESTS_SUPPORT_KERNELS_H
#define LUM_TESTS_SUPPORT_KERNELS_H

#include "core/lum_internal.h"

#define LUM_TAG k0
#include "image/kernels.inc"
#undef LUM_TAG
#define LUM_TAG k1
#include "image/kernels.inc"
#undef LUM_TAG
#define LUM_TAG k2
#include "image/kernels.inc"
#undef LUM_TAG
#define LUM_TAG k3
#include "image/kernels.inc"
#undef LUM_TAG
#define LUM_TAG k4
#include "image/kernels.inc"
#undef LUM_TAG
#define LUM_TAG k5
#include "image/kernels.inc"
#undef LUM_TAG

// Table of a routine that only the vector builds k1..k5 have, in build
// order; entry 0 is null.
#define LUM_PER_VECTOR_BUILD(name)                                                      \
  {                                                                                     \
    nullptr, &lum::k1::name, &lum::k2::name, &lum::k3::name, &lum::k4::name, &lum::k5::name \
  }

#endif
