/* Whether a block came from the pool: an extension of the heap interface.
 * Compiles as C and as C++. */
#ifndef QUENDAL_HEAP_OWNS_H
#define QUENDAL_HEAP_OWNS_H

#include "quendal/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Returns non-zero when pointer lies in the chunks of the pool's segment, so
 * the pool handed it out (or will); 0 for null, for blocks of the extra heap
 * or of any other allocator, and before the heap has built its pool. Takes
 * no lock and never initialises the heap: the segment never moves once
 * built. */
QD_EXPORT int QDHeapOwns(const void* pointer) QD_NOTHROW;

#ifdef __cplusplus
}
#endif

#endif
