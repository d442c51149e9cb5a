// Hooks of the framework's other interfaces, exported with empty bodies.
#include "quendal/hooks.h"
#include "quendal/config_file_reader.h"

extern "C" {

int QDExcHdlOnExceptionOccurred(const void* /*context*/) QD_NOTHROW {
  return 0;
}

void QDExcHdlHandleException(const void* /*context*/) QD_NOTHROW {}

int QDExcHdlCollectModuleInfos(const void* /*context*/) QD_NOTHROW {
  return 0;
}

int QDExcHdlSetConfigurationFlags(const void* /*context*/) QD_NOTHROW {
  return 0;
}

void QDExcHdlWriteMessageToExceptionFile(const char* /*message*/) QD_NOTHROW {}

void QDAllocTrace(const TraceInfoAllocate* /*info*/) QD_NOTHROW {}

void QDReAllocTrace(const TraceInfoReallocate* /*info*/) QD_NOTHROW {}

void QDFreeTrace(const TraceInfoDeallocate* /*info*/) QD_NOTHROW {}

}  // extern "C"

void OpenQDLogFile() QD_NOTHROW {}

void CloseQDLogFile() QD_NOTHROW {}

void PIWriteAllocTrace(const void* /*context*/) QD_NOTHROW {}

void PIWriteReallocTrace(const void* /*context*/) QD_NOTHROW {}

void PIWriteDeallocTrace(const void* /*context*/) QD_NOTHROW {}

void MT_dump_allocted_memory() {}
