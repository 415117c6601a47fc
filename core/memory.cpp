// The allocator hooks: every block the library takes from the heap comes
// from i_malloc and goes back through i_free. An application may point them
// at its own allocator; the library never writes them and reads them afresh
// at every allocation and release, so a replacement made between two calls
// is what the next call uses.
#include <stdlib.h>

#include "lum_internal.h"

extern "C" {

LUM_API void* (*i_malloc)(size_t size) = malloc;
LUM_API void* (*i_calloc)(size_t count, size_t size) = calloc;
LUM_API void* (*i_realloc)(void* block, size_t size) = realloc;
LUM_API void (*i_free)(void* block) = free;

// The version of the hook interface, for applications that check it; the
// library reads neither word.
LUM_API int i_version = 1;
LUM_API int i_min_version = 0;

}  // extern "C"
