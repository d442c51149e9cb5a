// The process-wide registry of module names and their 16-bit ids.
#include <string.h>

#include <algorithm>
#include <map>
#include <new>
#include <string>

#include "classification/new_id_callback.h"
#include "platform/fork_guard.h"
#include "platform/own_work.h"
#include "quendal/classification.h"

namespace Quendal {
namespace Classification {

NewIdCallback pNewIdCB = 0;

namespace {

// The process's registry once it has ended at exit or unload, null before.
// Its function-local static is not built again in the same load of the
// library, so the mark stays.
const void* endedRegistry = 0;

// Releases the lock on every way out of a look-up, exceptions from the
// new-id callback included.
template <class MutexType>
class LockGuard {
 public:
  explicit LockGuard(MutexType& mutex) : m_mutex(mutex) { m_mutex.Lock(); }
  ~LockGuard() { m_mutex.Unlock(); }

 private:
  LockGuard(const LockGuard&);
  LockGuard& operator=(const LockGuard&);

  MutexType& m_mutex;
};

// Orders an entry before a caller's name as the map orders its names,
// bytewise, comparing in place instead of on a copy.
struct EntryBeforeName {
  bool operator()(const std::pair<const std::string, unsigned short>& entry,
                  const char* name) const {
    return entry.first.compare(name) < 0;
  }
};

}  // namespace

template <class MutexType>
ModuleRegistry<MutexType>::ModuleRegistry() {}

// Members go in reverse order: every entry first, then the mutex.
template <class MutexType>
ModuleRegistry<MutexType>::~ModuleRegistry() {}

template <class MutexType>
unsigned short ModuleRegistry<MutexType>::LookUp(const char* name) {
  // A null name has no characters to register; 0 is the id that means "no
  // module", so it is the natural answer. So it is once the registry has
  // ended: it holds no names and takes none, and its lock is gone.
  if (name == 0 || this == endedRegistry) {
    return 0;
  }
  // The key, the map's nodes and the new-id callback's copy of the name are
  // the registry's own memory, never the process's heap.
  Platform::OwnWorkScope ownWork;
  // The copy is made before the lock so the critical section stays short.
  std::string key;
  bool copied = true;
  try {
    key.assign(name, strlen(name));
  } catch (const std::bad_alloc&) {
    copied = false;
  }

  LockGuard<MutexType> guard(m_mutex);
  if (!copied) {
    // A known name still has its id without the copy; a new name cannot be
    // registered without memory and gets 0.
    typename std::map<std::string, unsigned short>::const_iterator known =
        std::lower_bound(m_map.begin(), m_map.end(), name, EntryBeforeName());
    return known != m_map.end() && known->first.compare(name) == 0 ? known->second : 0;
  }
  typename std::map<std::string, unsigned short>::iterator position = m_map.lower_bound(key);
  if (position != m_map.end() && position->first == key) {
    return position->second;
  }
  // Truncation to 16 bits is deliberate: after 65535 names the ids wrap to 0,
  // then 1, and are shared with earlier names.
  const unsigned short id = static_cast<unsigned short>(m_map.size() + 1);
  try {
    m_map.insert(position, typename std::map<std::string, unsigned short>::value_type(key, id));
  } catch (const std::bad_alloc&) {
    // The map's insertion leaves it unchanged when it throws.
    return 0;
  }
  // Called under the lock: this serialises the callback with every look-up,
  // which is what lets the module-name log keep an unlocked table.
  if (pNewIdCB != 0) {
    pNewIdCB(name, id);
  }
  return id;
}

template <class MutexType>
const char* ModuleRegistry<MutexType>::LookUpName(unsigned short id) {
  if (this == endedRegistry) {
    return 0;
  }
  LockGuard<MutexType> guard(m_mutex);
  // Walking in name order makes the first name in that order win when several
  // names share an id after the wrap-around.
  for (typename std::map<std::string, unsigned short>::const_iterator entry = m_map.begin();
       entry != m_map.end(); ++entry) {
    if (entry->second == id) {
      // The key's characters never move while the registry lives: entries are
      // never changed or removed.
      return entry->first.c_str();
    }
  }
  return 0;
}

template class ModuleRegistry<Mutex>;

// The process's registry, held across fork from its construction until its
// end at exit or unload, so that a child can always look up names.
class ProcessRegistry {
 public:
  ProcessRegistry();
  // Marks the registry ended under its lock, so that a look-up already under
  // way finishes before the names are freed; later look-ups leave the
  // registry and its lock, destroyed next, alone.
  ~ProcessRegistry();

  // The fork guard's calls: take and release the registry's lock.
  static void Acquire(void* registry);
  // In the child too: its only thread is the one that locked it.
  static void Release(void* registry);

  ModuleRegistry<Mutex> m_registry;

 private:
  ProcessRegistry(const ProcessRegistry&);
  ProcessRegistry& operator=(const ProcessRegistry&);
};

namespace {

const Platform::ForkLockCalls registryForkCalls = {
    &ProcessRegistry::Acquire, &ProcessRegistry::Release, &ProcessRegistry::Release};

}  // namespace

ProcessRegistry::ProcessRegistry() {
  Platform::GuardAcrossFork(Platform::kRegistryLockRank, &m_registry, &registryForkCalls);
}

ProcessRegistry::~ProcessRegistry() {
  Platform::StopGuardingAcrossFork(Platform::kRegistryLockRank);
  m_registry.m_mutex.Lock();
  endedRegistry = &m_registry;
  m_registry.m_mutex.Unlock();
}

void ProcessRegistry::Acquire(void* registry) {
  static_cast<ModuleRegistry<Mutex>*>(registry)->m_mutex.Lock();
}

void ProcessRegistry::Release(void* registry) {
  static_cast<ModuleRegistry<Mutex>*>(registry)->m_mutex.Unlock();
}

ModuleRegistry<Mutex>& getmoduleRegistry() {
  static ProcessRegistry registry;
  return registry.m_registry;
}

unsigned short LookUpModuleId(const char* name) {
  return getmoduleRegistry().LookUp(name);
}

const char* LookUpModuleName(unsigned short id) {
  return getmoduleRegistry().LookUpName(id);
}

void SetNewIdCallback(void (*callback)(const char*, unsigned short)) {
  pNewIdCB = callback;
}

}  // namespace Classification
}  // namespace Quendal
