// Calls a cdecl function with the stack pointer `offset` bytes (0, 4, 8 or
// 12) past a 16-byte boundary at the call, as older i386 code may do.
#ifndef LUM_TESTS_SUPPORT_MISALIGNED_CALL_H
#define LUM_TESTS_SUPPORT_MISALIGNED_CALL_H

#include <stdint.h>

extern "C" uint32_t lumtest_call_misaligned(const void* fn, const uint32_t* args, int nargs,
                                            int offset);

#endif
