/* Export and exception-specification macros shared by every public header. */
#ifndef QUENDAL_EXPORT_H
#define QUENDAL_EXPORT_H

/* Marks a name as part of the library's exported interface; everything else
 * is built with hidden visibility and cannot be linked against. */
#if defined(__GNUC__) || defined(__clang__)
#define QD_EXPORT __attribute__((visibility("default")))
#else
#define QD_EXPORT
#endif

/* Entries that never throw: plain C entries and the C++ functions whose
 * failures are results (null, false, a sentinel). */
#if defined(__cplusplus) && __cplusplus >= 201103L
#define QD_NOTHROW noexcept
#elif defined(__cplusplus)
#define QD_NOTHROW throw()
#else
#define QD_NOTHROW
#endif

#endif
