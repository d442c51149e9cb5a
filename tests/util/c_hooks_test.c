/* The C entries of hooks.h and assertion.h, called from C through the shared
 * library. Exits with 0 when every result is the documented one. */
#include <stdio.h>

#include "quendal/assertion.h"
#include "quendal/hooks.h"

int main(void) {
  TraceInfoAllocate allocate;
  TraceInfoReallocate reallocate;
  TraceInfoDeallocate deallocate;
  int failures = 0;

  allocate.m_pointer = 0;
  reallocate.m_pointer = 0;
  deallocate.m_pointer = 0;

  if (QDExcHdlOnExceptionOccurred(0) != 0)
    ++failures;
  if (QDExcHdlCollectModuleInfos(0) != 0)
    ++failures;
  if (QDExcHdlSetConfigurationFlags(0) != 0)
    ++failures;
  QDExcHdlHandleException(0);
  QDExcHdlWriteMessageToExceptionFile("message");
  QDAllocTrace(&allocate);
  QDReAllocTrace(&reallocate);
  QDFreeTrace(&deallocate);
  if (PIAssertReportFailure("1 == 1", "c_hooks_test.c", __LINE__, "main", 0) != 1)
    ++failures;

  if (failures != 0) {
    fprintf(stderr, "%d hook results differ\n", failures);
    return 1;
  }
  return 0;
}
