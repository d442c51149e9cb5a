/* The exported heap interface: plain C entries that replace malloc, free and
 * realloc for the processes of the framework. Compiles as C and as C++.
 *
 * No entry may be called from the handler of an asynchronous signal: a
 * handler that interrupts a heap call on its own thread finds the heap's
 * lock taken, or the pool's lists half changed, and malloc behind the pool
 * is no safer. */
#ifndef QUENDAL_HEAP_H
#define QUENDAL_HEAP_H

#include <stddef.h>

#include "quendal/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Initialises the heap: creates the current-module thread key, the extra heap,
 * reads the executable's ".mem" file and builds the pool. Every heap entry
 * calls it on its own on first use, so clients rarely need to. Returns 1 on
 * success and 0 when the extra heap could not be created; a second call
 * returns 1 and keeps the pool exactly as the first call configured it.
 * Safe from any number of threads at once: one of them initialises, and the
 * others' heap calls wait for it and then use the pool it configured. */
QD_EXPORT int QDHeapInit(void) QD_NOTHROW;

/* Releases the extra heap instance and returns 1. The pool, its segment and
 * every block handed out stay valid; the next entry call does not initialise
 * again unless my_unload re-armed it. */
QD_EXPORT int QDHeapDeInit(void) QD_NOTHROW;

/* A placeholder of the interface: always returns 0 and consults nothing. */
QD_EXPORT size_t QDHeapTotalSize(void) QD_NOTHROW;

/* Returns a block of at least size bytes, or null. A size of 0 returns null.
 * Sizes up to 1024 bytes come from the pool's 8-byte classes (no per-block
 * header); larger sizes, or any size once the pool is exhausted, come from the
 * C library's malloc. Blocks are aligned for any type that fits in them.
 * Release with QDHeapFree or resize with QDHeapReAlloc, never with free(). */
QD_EXPORT void* QDHeapAlloc(size_t size) QD_NOTHROW;

/* Releases a block obtained from QDHeapAlloc or QDHeapReAlloc; null is
 * ignored. A pointer outside the pool's segment is passed to free(). Blocks
 * are not validated: releasing a pool block twice corrupts its chunk, unless
 * the chunk has meanwhile returned to the free chunk list.
 * While the pool has no segment (malloc refused it or its class table;
 * every QDHeapAlloc asks again) every pointer is dropped, not passed to
 * free(): the blocks malloc served in that time are never freed. */
QD_EXPORT void QDHeapFree(void* pointer) QD_NOTHROW;

/* Resizes a block. A pool block always moves: a new block is taken (pool
 * first, then malloc), min(old class size, size) bytes are copied and the old
 * block is released, even when the new block could not be obtained; then null
 * is returned and the old contents are lost (unlike realloc). A block that
 * did not come from the pool, and null, are passed to realloc() and never
 * move into the pool. A size of 0 releases the block and returns null; with
 * a null pointer too, realloc(NULL, 0) still runs and whatever block the C
 * library hands out for it is dropped: each such call loses that block. */
QD_EXPORT void* QDHeapReAlloc(void* pointer, size_t size) QD_NOTHROW;

/* Returns malloc(size) directly, bypassing the pool and its lock; a size of 0
 * returns null without calling malloc. Release with QDExtraHeapFree. */
QD_EXPORT void* QDExtraHeapAlloc(size_t size) QD_NOTHROW;

/* Returns realloc(pointer, size) directly. A null pointer allocates. With a
 * size of 0 realloc is still called (and releases the block) but the result
 * is always null: for a null pointer the block realloc(NULL, 0) hands out is
 * dropped, and each such call loses it. */
QD_EXPORT void* QDExtraHeapReAlloc(void* pointer, size_t size) QD_NOTHROW;

/* Passes a non-null pointer to free(); null is ignored. */
QD_EXPORT void QDExtraHeapFree(void* pointer) QD_NOTHROW;

/* The library's termination routine, run when the library is unloaded or the
 * process ends: releases the extra heap (QDHeapDeInit) and re-arms lazy
 * initialisation, so a later heap call initialises again and keeps using the
 * same pool. Clients do not need to call it. */
QD_EXPORT void my_unload(void) QD_NOTHROW;

#ifdef __cplusplus
}
#endif

#endif
