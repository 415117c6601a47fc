// The internal routines of all six builds (lum::k0:: .. lum::k5::), and a
// helper that gathers one of them from every build into a table.
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

// Table of an internal routine in build order: LUM_PER_BUILD(ownsMul_32f)[k].
#define LUM_PER_BUILD(name)                                                           \
  {                                                                                   \
    &lum::k0::name, &lum::k1::name, &lum::k2::name, &lum::k3::name, &lum::k4::name, \
        &lum::k5::name                                                                \
  }

// The same for routines that only the vector builds k1..k5 have; entry 0 is
// null.
#define LUM_PER_VECTOR_BUILD(name)                                                      \
  {                                                                                     \
    nullptr, &lum::k1::name, &lum::k2::name, &lum::k3::name, &lum::k4::name, &lum::k5::name \
  }

#endif
