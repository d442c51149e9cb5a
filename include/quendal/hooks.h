/* Hooks of the framework's exception-handling and tracing interfaces. The
 * library exports them so that the framework links, but every one has an
 * empty body: it ignores its arguments, does nothing and returns 0 where it
 * returns a value. A program or a framework library that defines a hook
 * itself replaces that body, also for the calls the library makes. Arguments
 * the hooks ignore are taken as an opaque const void*, which may be null. The
 * C entries compile as C and as C++. (MT_dump_allocted_memory, the memory
 * report's hook, is declared in quendal/config_file_reader.h.) */
#ifndef QUENDAL_HOOKS_H
#define QUENDAL_HOOKS_H

#include <stddef.h>
#include <stdint.h>

#include "quendal/export.h"

/* Describes one allocation for QDAllocTrace. The library never fills or reads
 * these records; the layout is offered to callers that produce them. */
typedef struct TraceInfoAllocate {
  void* m_pointer;        /* the block handed out */
  size_t m_size;          /* its requested size in bytes */
  uint16_t m_moduleId;    /* current module id, 0 when none is set */
  uint16_t m_subModuleId; /* current sub-module id */
  const char* m_file;     /* source file of the request, may be null */
  int m_line;             /* source line of the request */
} TraceInfoAllocate;

/* Describes one reallocation for QDReAllocTrace; never touched by the
 * library. */
typedef struct TraceInfoReallocate {
  void* m_oldPointer; /* the block before the call */
  void* m_pointer;    /* the block after the call */
  size_t m_size;      /* the new requested size in bytes */
  uint16_t m_moduleId;
  uint16_t m_subModuleId;
  const char* m_file;
  int m_line;
} TraceInfoReallocate;

/* Describes one release for QDFreeTrace; never touched by the library. */
typedef struct TraceInfoDeallocate {
  void* m_pointer; /* the block released */
  size_t m_size;   /* its size in bytes when known, else 0 */
  uint16_t m_moduleId;
  uint16_t m_subModuleId;
  const char* m_file;
  int m_line;
} TraceInfoDeallocate;

#ifdef __cplusplus
extern "C" {
#endif

/* Called by the framework when an exception occurs. Ignores context, which
 * may be null, and returns 0. */
QD_EXPORT int QDExcHdlOnExceptionOccurred(const void* context) QD_NOTHROW;
/* Called by the framework to handle an exception. Ignores context, which may
 * be null, and does nothing. */
QD_EXPORT void QDExcHdlHandleException(const void* context) QD_NOTHROW;
/* Asked by the framework to gather module information for an exception
 * report. Ignores context, which may be null, and returns 0. */
QD_EXPORT int QDExcHdlCollectModuleInfos(const void* context) QD_NOTHROW;
/* Sets the exception handler's configuration flags. Ignores context, which
 * may be null, and returns 0. */
QD_EXPORT int QDExcHdlSetConfigurationFlags(const void* context) QD_NOTHROW;
/* Receives the messages of QDValidation::check_pointer (NUL-terminated, no
 * line break) and discards them; message may be null. Nothing is written
 * anywhere, so act on check_pointer's result, or define this function in the
 * program to receive the messages. */
QD_EXPORT void QDExcHdlWriteMessageToExceptionFile(const char* message) QD_NOTHROW;

/* Tracing hook for an allocation. Ignores the record, which may be null and
 * is not read, and does nothing. */
QD_EXPORT void QDAllocTrace(const TraceInfoAllocate* info) QD_NOTHROW;
/* Tracing hook for a reallocation. Ignores the record, which may be null and
 * is not read, and does nothing. */
QD_EXPORT void QDReAllocTrace(const TraceInfoReallocate* info) QD_NOTHROW;
/* Tracing hook for a release. Ignores the record, which may be null and is
 * not read, and does nothing. */
QD_EXPORT void QDFreeTrace(const TraceInfoDeallocate* info) QD_NOTHROW;

#ifdef __cplusplus
}

/* Opens the trace log file. There is no log file in this build: does nothing
 * and may be called any number of times. */
QD_EXPORT void OpenQDLogFile() QD_NOTHROW;
/* Closes the trace log file. Does nothing, whether or not OpenQDLogFile was
 * called. */
QD_EXPORT void CloseQDLogFile() QD_NOTHROW;

/* Writes an allocation trace. Ignores context, which may be null, and does
 * nothing. */
QD_EXPORT void PIWriteAllocTrace(const void* context) QD_NOTHROW;
/* Writes a reallocation trace. Ignores context, which may be null, and does
 * nothing. */
QD_EXPORT void PIWriteReallocTrace(const void* context) QD_NOTHROW;
/* Writes a release trace. Ignores context, which may be null, and does
 * nothing. */
QD_EXPORT void PIWriteDeallocTrace(const void* context) QD_NOTHROW;
#endif

#endif
