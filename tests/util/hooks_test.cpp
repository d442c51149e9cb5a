// The empty hooks of the exception-handling and tracing interfaces, called
// through the shared library under their exported names.
#include <gtest/gtest.h>

#include <string>

#include "quendal/quendal.h"

namespace {

int g_context = 0;

// Runs hook with standard output and standard error captured, and returns
// what it wrote to either.
template <class Hook>
std::string Output(Hook hook) {
  ::testing::internal::CaptureStdout();
  ::testing::internal::CaptureStderr();
  hook();
  std::string written = ::testing::internal::GetCapturedStderr();
  written += ::testing::internal::GetCapturedStdout();
  return written;
}

TEST(ExceptionHooks, OnExceptionOccurredReturnsZero) {
  EXPECT_EQ(0, QDExcHdlOnExceptionOccurred(nullptr));
  EXPECT_EQ(0, QDExcHdlOnExceptionOccurred(&g_context));
}

TEST(ExceptionHooks, CollectModuleInfosReturnsZero) {
  EXPECT_EQ(0, QDExcHdlCollectModuleInfos(nullptr));
  EXPECT_EQ(0, QDExcHdlCollectModuleInfos(&g_context));
}

TEST(ExceptionHooks, SetConfigurationFlagsReturnsZero) {
  EXPECT_EQ(0, QDExcHdlSetConfigurationFlags(nullptr));
  EXPECT_EQ(0, QDExcHdlSetConfigurationFlags(&g_context));
}

TEST(ExceptionHooks, HandleExceptionDoesNothing) {
  EXPECT_EQ("", Output([] {
              QDExcHdlHandleException(nullptr);
              QDExcHdlHandleException(&g_context);
            }));
}

TEST(ExceptionHooks, WriteMessageToExceptionFileDiscardsTheMessage) {
  EXPECT_EQ("", Output([] {
              QDExcHdlWriteMessageToExceptionFile("QDValidation::check_pointer: Null pointer.");
              QDExcHdlWriteMessageToExceptionFile("");
              QDExcHdlWriteMessageToExceptionFile(nullptr);
            }));
}

TEST(ExceptionHooks, CheckPointerMessagesGoNowhere) {
  unsigned char block[16] = {};
  EXPECT_EQ("", Output([&block] {
              EXPECT_FALSE(QDValidation::check_pointer(nullptr));
              EXPECT_FALSE(QDValidation::check_pointer(block));
            }));
}

TEST(LogFileHooks, OpenAndCloseDoNothing) {
  EXPECT_EQ("", Output([] {
              OpenQDLogFile();
              CloseQDLogFile();
              CloseQDLogFile();
            }));
}

TEST(TraceHooks, TraceRecordsAreIgnored) {
  TraceInfoAllocate allocate = {};
  TraceInfoReallocate reallocate = {};
  TraceInfoDeallocate deallocate = {};
  allocate.m_size = 40;
  reallocate.m_size = 80;
  const TraceInfoAllocate allocateBefore = allocate;
  EXPECT_EQ("", Output([&] {
              QDAllocTrace(&allocate);
              QDReAllocTrace(&reallocate);
              QDFreeTrace(&deallocate);
              QDAllocTrace(nullptr);
              QDReAllocTrace(nullptr);
              QDFreeTrace(nullptr);
            }));
  EXPECT_EQ(allocateBefore.m_size, allocate.m_size);
  EXPECT_EQ(80u, reallocate.m_size);
}

TEST(TraceHooks, WriteTraceHooksDoNothing) {
  EXPECT_EQ("", Output([] {
              PIWriteAllocTrace(nullptr);
              PIWriteReallocTrace(&g_context);
              PIWriteDeallocTrace(nullptr);
            }));
}

TEST(ReportHooks, DumpAllocatedMemoryDoesNothing) {
  EXPECT_EQ("", Output([] { MT_dump_allocted_memory(); }));
}

}  // namespace
