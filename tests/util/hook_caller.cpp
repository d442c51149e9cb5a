// Calls of every hook from inside a library linked as libQuendal.so is, for
// the hooks that nothing in the library calls yet.
#include "util/hook_caller.h"

#include "quendal/config_file_reader.h"
#include "quendal/hooks.h"

extern "C" int QuendalTestCallEveryHook() {
  int results = QDExcHdlOnExceptionOccurred(0);
  QDExcHdlHandleException(0);
  results += QDExcHdlCollectModuleInfos(0);
  results += QDExcHdlSetConfigurationFlags(0);
  QDExcHdlWriteMessageToExceptionFile("message");
  QDAllocTrace(0);
  QDReAllocTrace(0);
  QDFreeTrace(0);
  OpenQDLogFile();
  CloseQDLogFile();
  PIWriteAllocTrace(0);
  PIWriteReallocTrace(0);
  PIWriteDeallocTrace(0);
  MT_dump_allocted_memory();
  return results;
}
