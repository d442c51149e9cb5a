// Module look-ups, scopes and heap calls after the library's statics have
// ended: from an exit handler registered before the library's first use and
// from the destructor of a global built before it. Both run after the
// registry and the scope key are gone. Prints each answer; a failed check
// ends the program with status 1.
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "quendal/classification.h"
#include "quendal/heap.h"
#include "quendal/module_log.h"

namespace {

using namespace Quendal::Classification;

int g_newIdCalls = 0;

void CountNewId(const char*, unsigned short) {
  ++g_newIdCalls;
}

void Check(bool condition, const char* what) {
  if (!condition) {
    fprintf(stderr, "failed: %s\n", what);
    fflush(stderr);
    _exit(1);
  }
}

const char* Described(const void* pointer) {
  return pointer == nullptr ? "null" : "set";
}

bool HeapWorks() {
  char* small = static_cast<char*>(QDHeapAlloc(40));
  void* large = QDHeapAlloc(5000);
  const bool allocated = small != nullptr && large != nullptr;
  if (small != nullptr) {
    strcpy(small, "late");
  }
  QDHeapFree(large);
  QDHeapFree(small);
  return allocated;
}

void LateCalls(const char* who) {
  const int newIdCallsBefore = g_newIdCalls;
  const unsigned short known = LookUpModuleId("audio");
  const unsigned short fresh = LookUpModuleId(who);
  const unsigned short built = ModuleId("video").m_id;
  const char* nameOfOne = LookUpModuleName(1);
  const char* nameOfTwo = ScopedId::LookUpName(2);
  // Another component's key made now takes the lowest free key number,
  // which is the number the library's deleted key had.
  pthread_key_t foreignKey;
  int foreignValue = 0;
  Check(pthread_key_create(&foreignKey, nullptr) == 0, "foreign key");
  Check(pthread_setspecific(foreignKey, &foreignValue) == 0, "foreign value");
  const ScopedId* inside = nullptr;
  unsigned short readModule = 99;
  unsigned short readSubModule = 99;
  bool foreignKept = false;
  {
    ScopedId scope(ModuleId("audio"), 7, __FILE__, __LINE__);
    inside = ScopedId::GetCurrent();
    QDLog::ReadScopeId(readModule, readSubModule);
    foreignKept = pthread_getspecific(foreignKey) == &foreignValue;
  }
  const ScopedId* after = GetId();
  foreignKept = foreignKept && pthread_getspecific(foreignKey) == &foreignValue;
  pthread_key_delete(foreignKey);
  printf(
      "%s: ids %u %u %u, names %s %s, scope %s, read %u/%u, after %s, foreign key %s, "
      "new ids %d, heap %s\n",
      who, known, fresh, built, Described(nameOfOne), Described(nameOfTwo), Described(inside),
      readModule, readSubModule, Described(after), foreignKept ? "kept" : "overwritten",
      g_newIdCalls - newIdCallsBefore, HeapWorks() ? "ok" : "failed");
  fflush(stdout);
}

void ExitHandler() {
  LateCalls("exit handler");
}

class LateUser {
 public:
  LateUser() {}
  ~LateUser() { LateCalls("global destructor"); }
};

// Built before main, so before the library's first use: its destructor runs
// after everything the library registers for the process's end.
LateUser lateUser;

}  // namespace

int main() {
  atexit(ExitHandler);

  SetNewIdCallback(&CountNewId);
  Check(LookUpModuleId("audio") == 1, "first name");
  Check(ModuleId("video").m_id == 2, "second name");
  Check(strcmp(LookUpModuleName(1), "audio") == 0, "name of id 1");
  {
    ScopedId scope(ModuleId("audio"), 3, __FILE__, __LINE__);
    Check(ScopedId::GetCurrent() == &scope, "current scope");
  }
  Check(ScopedId::GetCurrent() == nullptr, "scope ended");
  Check(g_newIdCalls == 2, "new-id calls");
  Check(HeapWorks(), "heap");
  printf("before exit ok\n");
  fflush(stdout);
  return 0;
}
