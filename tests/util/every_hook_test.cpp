// A program that defines every hook of the framework's interfaces gets each
// call the library makes of them, including those of hooks that nothing in
// the library calls yet: the calls come from a caller linked into the
// library's objects as libQuendal.so and the drop-in are linked.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "quendal/quendal.h"
#include "util/hook_caller.h"

namespace {

std::vector<std::string>& Calls() {
  static std::vector<std::string> calls;
  return calls;
}

int Called(const char* hook) {
  Calls().push_back(hook);
  return 1;
}

}  // namespace

extern "C" {

int QDExcHdlOnExceptionOccurred(const void*) QD_NOTHROW {
  return Called("QDExcHdlOnExceptionOccurred");
}

void QDExcHdlHandleException(const void*) QD_NOTHROW {
  Called("QDExcHdlHandleException");
}

int QDExcHdlCollectModuleInfos(const void*) QD_NOTHROW {
  return Called("QDExcHdlCollectModuleInfos");
}

int QDExcHdlSetConfigurationFlags(const void*) QD_NOTHROW {
  return Called("QDExcHdlSetConfigurationFlags");
}

void QDExcHdlWriteMessageToExceptionFile(const char*) QD_NOTHROW {
  Called("QDExcHdlWriteMessageToExceptionFile");
}

void QDAllocTrace(const TraceInfoAllocate*) QD_NOTHROW {
  Called("QDAllocTrace");
}

void QDReAllocTrace(const TraceInfoReallocate*) QD_NOTHROW {
  Called("QDReAllocTrace");
}

void QDFreeTrace(const TraceInfoDeallocate*) QD_NOTHROW {
  Called("QDFreeTrace");
}

}  // extern "C"

void OpenQDLogFile() QD_NOTHROW {
  Called("OpenQDLogFile");
}

void CloseQDLogFile() QD_NOTHROW {
  Called("CloseQDLogFile");
}

void PIWriteAllocTrace(const void*) QD_NOTHROW {
  Called("PIWriteAllocTrace");
}

void PIWriteReallocTrace(const void*) QD_NOTHROW {
  Called("PIWriteReallocTrace");
}

void PIWriteDeallocTrace(const void*) QD_NOTHROW {
  Called("PIWriteDeallocTrace");
}

void MT_dump_allocted_memory() {
  Called("MT_dump_allocted_memory");
}

namespace {

TEST(ProgramHooks, EveryHookTheLibraryCallsIsTheProgramsDefinition) {
  const std::vector<std::string> expected = {"QDExcHdlOnExceptionOccurred",
                                             "QDExcHdlHandleException",
                                             "QDExcHdlCollectModuleInfos",
                                             "QDExcHdlSetConfigurationFlags",
                                             "QDExcHdlWriteMessageToExceptionFile",
                                             "QDAllocTrace",
                                             "QDReAllocTrace",
                                             "QDFreeTrace",
                                             "OpenQDLogFile",
                                             "CloseQDLogFile",
                                             "PIWriteAllocTrace",
                                             "PIWriteReallocTrace",
                                             "PIWriteDeallocTrace",
                                             "MT_dump_allocted_memory"};
  EXPECT_EQ(3, QuendalTestCallEveryHook());
  EXPECT_EQ(expected, Calls());
}

}  // namespace
