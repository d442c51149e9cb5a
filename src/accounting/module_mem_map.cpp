// The accounting table, the four sums and the messages-written array.
#include <stdint.h>

#include "accounting/lasting_table.h"
#include "quendal/accounting.h"

namespace {

// Outside the statics that end at exit, so that all outlive them.
Quendal::Accounting::TableStorage<AllocMemoryTable::ModuleMemMap> moduleMemStorage;
bool moduleMemMapEnded = false;
Quendal::Accounting::TableStorage<MessagesWrittenArray> messagesStorage;

int32_t maxAddStorage = 0;
int32_t sumMaxVal = 0;
int32_t curAddStorage = 0;
int32_t curVal = 0;

}  // namespace

AllocMemoryTable::ModuleMemMap* getModuleMemMap() {
  static Quendal::Accounting::MapLifetime<AllocMemoryTable::ModuleMemMap> table(moduleMemStorage,
                                                                                moduleMemMapEnded);
  return &table.GetMap();
}

namespace Quendal {
namespace Accounting {

bool ModuleMemMapEnded() {
  return moduleMemMapEnded;
}

}  // namespace Accounting
}  // namespace Quendal

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
  // Never destroyed: the array never holds elements, so there is nothing to
  // free at exit, and late callers find it as it always was.
  static MessagesWrittenArray* const messages = new (messagesStorage.bytes) MessagesWrittenArray;
  return messages;
}
