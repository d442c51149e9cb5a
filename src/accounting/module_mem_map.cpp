// The accounting table, the four sums and the messages-written array.
#include <stdint.h>

#include "quendal/accounting.h"

namespace {

int32_t maxAddStorage = 0;
int32_t sumMaxVal = 0;
int32_t curAddStorage = 0;
int32_t curVal = 0;

}  // namespace

AllocMemoryTable::ModuleMemMap* getModuleMemMap() {
  static AllocMemoryTable::ModuleMemMap table;
  return &table;
}

int32_t* getMaxAddStorage() {
  return &maxAddStorage;
}

int32_t* getSumMaxVal() {
  return &sumMaxVal;
}

int32_t* getCurAddStorage() {
  return &curAddStorage;
}

int32_t* getCurVal() {
  return &curVal;
}

MessagesWrittenArray* getMessagesWritten() {
  static MessagesWrittenArray messages;
  return &messages;
}
