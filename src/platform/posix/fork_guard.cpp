#include "platform/fork_guard.h"

#include <pthread.h>

#include "platform/own_work.h"

namespace Quendal {
namespace Platform {

namespace {

struct Slot {
  void* lock;
  const ForkLockCalls* calls;
};

// What GuardAcrossFork published; read by the fork handlers.
Slot registered[kForkLockRankCount];

// What the prepare handler took, for the handlers after fork: a lock
// registered while a fork is under way must not be released by it.
Slot taken[kForkLockRankCount];

// Serialises forks of several threads over taken. Registration never takes
// it: a thread may register the heap's lock while it holds the registry's,
// which a fork waits for with this mutex held.
pthread_mutex_t forkInProgress = PTHREAD_MUTEX_INITIALIZER;

pthread_once_t handlersInstalled = PTHREAD_ONCE_INIT;

void Prepare() {
  pthread_mutex_lock(&forkInProgress);
  for (int rank = 0; rank < kForkLockRankCount; ++rank) {
    const ForkLockCalls* calls = __atomic_load_n(&registered[rank].calls, __ATOMIC_ACQUIRE);
    taken[rank].calls = calls;
    taken[rank].lock = 0;
    if (calls != 0) {
      taken[rank].lock = __atomic_load_n(&registered[rank].lock, __ATOMIC_RELAXED);
      calls->acquire(taken[rank].lock);
    }
  }
}

void AfterForkInParent() {
  for (int rank = kForkLockRankCount - 1; rank >= 0; --rank) {
    if (taken[rank].calls != 0) {
      taken[rank].calls->releaseInParent(taken[rank].lock);
    }
  }
  pthread_mutex_unlock(&forkInProgress);
}

void AfterForkInChild() {
  for (int rank = kForkLockRankCount - 1; rank >= 0; --rank) {
    if (taken[rank].calls != 0) {
      taken[rank].calls->releaseInChild(taken[rank].lock);
    }
  }
  // The child's only thread is the one that locked it.
  pthread_mutex_unlock(&forkInProgress);
}

void InstallHandlers() {
  // The C library allocates the handlers' entry.
  OwnWorkScope ownWork;
  pthread_atfork(Prepare, AfterForkInParent, AfterForkInChild);
}

}  // namespace

void GuardAcrossFork(ForkLockRank rank, void* lock, const ForkLockCalls* calls) {
  pthread_once(&handlersInstalled, InstallHandlers);
  __atomic_store_n(&registered[rank].lock, lock, __ATOMIC_RELAXED);
  __atomic_store_n(&registered[rank].calls, calls, __ATOMIC_RELEASE);
}

// Waits for a fork under way: it may hold the lock that is about to go.
void StopGuardingAcrossFork(ForkLockRank rank) {
  pthread_mutex_lock(&forkInProgress);
  __atomic_store_n(&registered[rank].calls, static_cast<const ForkLockCalls*>(0), __ATOMIC_RELEASE);
  pthread_mutex_unlock(&forkInProgress);
}

}  // namespace Platform
}  // namespace Quendal
