// Module classification: module names mapped to 16-bit module ids, and a
// per-thread current module scope set by stack objects.
//
//   using namespace Quendal::Classification;
//   ScopedId scope(ModuleId("audio"), 3, __FILE__, __LINE__);
#ifndef QUENDAL_CLASSIFICATION_H
#define QUENDAL_CLASSIFICATION_H

#include <pthread.h>

#include <map>
#include <string>

#include "quendal/export.h"

namespace Quendal {
namespace Classification {

// The registry's lock: a plain, non-recursive mutex with default attributes.
// Not to be used once destroyed; the process's registry leaves its lock
// alone after its end (see getmoduleRegistry).
class QD_EXPORT Mutex {
 public:
  Mutex();
  ~Mutex();
  void Lock();
  void Unlock();

 private:
  Mutex(const Mutex&);
  Mutex& operator=(const Mutex&);

  pthread_mutex_t m_mutex;
};

// The registry of module names and ids; the library has exactly one, reached
// through getmoduleRegistry(). Instantiated for Mutex only.
template <class MutexType>
class QD_EXPORT ModuleRegistry {
 public:
  ModuleRegistry();
  // Runs when the library is unloaded or the process ends; afterwards the
  // pointers returned by LookUpModuleName dangle.
  ~ModuleRegistry();

  // Returns the id of name, assigning the next id to a new name:
  // ids are handed out from 1 in order of first look-up and wrap at 65536 (the
  // 65536th name gets 0, the next 1 again). For a new name the new-id
  // callback is called with the caller's own pointer and the id, while the
  // registry's lock is held, before LookUp returns; an exception thrown by
  // the callback reaches the caller with the lock released and the name
  // registered. Returns 0 without registering the name, and without calling
  // the callback, if name is null or memory for a new name cannot be
  // obtained; a known name keeps its id even when no memory is left.
  unsigned short LookUp(const char* name);
  // Returns the stored name of the first entry, in bytewise name order, whose
  // id is id; null when no entry has it.
  const char* LookUpName(unsigned short id);

 private:
  // The library's own access to the lock: held across fork, and taken once
  // more to mark the process's registry ended.
  friend class ProcessRegistry;

  ModuleRegistry(const ModuleRegistry&);
  ModuleRegistry& operator=(const ModuleRegistry&);

  MutexType m_mutex;
  std::map<std::string, unsigned short> m_map;
};

// Returns the process-wide registry, creating it on first call.
//
// The registry ends when the library is unloaded or the process ends, before
// the exit handlers registered, and the destructors of globals built, ahead of
// its creation. Calls made after its end are safe and answer as for a
// registry that holds no names and takes none: LookUp, LookUpModuleId and
// ModuleId give 0 ("no module") to every name, known or new, without calling
// the new-id callback, and LookUpName and LookUpModuleName give null. They
// touch neither the freed names nor the destroyed lock. A look-up running on
// another thread when the end comes finishes first; threads must not start
// look-ups while the process ends.
QD_EXPORT ModuleRegistry<Mutex>& getmoduleRegistry();

// Returns the module id of name; 0 for a null name, which is not registered.
// See ModuleRegistry::LookUp.
QD_EXPORT unsigned short LookUpModuleId(const char* name);

// Returns the name registered for id, or null. The pointer stays valid and
// identical for the same id until the library is unloaded or the process
// ends. Linear in the number of names: meant for reports, not hot paths.
QD_EXPORT const char* LookUpModuleName(unsigned short id);

// Makes callback (or null) the one new-id callback of the process, replacing
// the previous one. It runs under the registry's non-recursive lock and must
// not call back into the registry (that deadlocks). Call it at start-up,
// before look-ups run on several threads.
QD_EXPORT void SetNewIdCallback(void (*callback)(const char*, unsigned short));

// A module id built from a module name. A value type: copy it freely.
class QD_EXPORT ModuleId {
 public:
  // Looks up name in the registry (assigning an id to a new name).
  ModuleId(const char* name);

  unsigned short m_id;
};

class ScopedId;

// Creates the thread key of the current module scope once per process; later
// calls change nothing. The heap's initialisation calls it, and so do GetId,
// SetId and ScopedId, so scopes work before any heap call.
//
// The key is deleted when the library is unloaded or the process ends, before
// the exit handlers registered, and the destructors of globals built, ahead of
// its creation. From then on no scope is current in any thread: GetId,
// ScopedId::GetCurrent and QDLog::ReadScopeId read null (module 0,
// sub-module 0), SetId does nothing, and a ScopedId built then keeps its
// fields but never becomes current. The deleted key's number, which may
// already name another component's key, is not used again.
QD_EXPORT void Init();

// Returns the calling thread's innermost live scope, or null. Despite its
// name it returns the scope object; read the ids from it.
QD_EXPORT const ScopedId* GetId();

// Makes scope (or null) the calling thread's current scope.
QD_EXPORT void SetId(const ScopedId* scope);

// Makes a module and sub-module current for its thread while it lives; scopes
// nest by their lifetimes on the stack. Build it on the stack and do not copy
// it. Costs one thread-slot read and write to enter, one write to leave; no
// lock and no allocation.
class QD_EXPORT ScopedId {
 public:
  // Remembers the thread's current scope and becomes the current scope. file
  // is stored as a pointer, not copied.
  ScopedId(ModuleId module, unsigned short subModuleId, const char* file, long line);
  // Restores the scope that was current at construction, whatever is current
  // now.
  ~ScopedId();

  // The calling thread's innermost scope, or null: GetId().
  static const ScopedId* GetCurrent();
  // LookUpModuleName(id).
  static const char* LookUpName(unsigned short id);
  // SetNewIdCallback(callback).
  static void SetOnNewIdCallback(void (*callback)(const char*, unsigned short));

  const ScopedId* GetPrevious() const { return m_previous; }
  unsigned short GetModuleId() const { return m_moduleId.m_id; }
  unsigned short GetSubModuleId() const { return m_subModuleId; }
  const char* GetFile() const { return m_file; }
  long GetLine() const { return m_line; }

 private:
  ScopedId(const ScopedId&);
  ScopedId& operator=(const ScopedId&);

  const ScopedId* m_previous;
  ModuleId m_moduleId;
  unsigned short m_subModuleId;
  const char* m_file;
  long m_line;
};

}  // namespace Classification
}  // namespace Quendal

#endif
