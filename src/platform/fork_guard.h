// Keeps the library's locks usable in a child of fork: every lock the guard
// knows is taken before fork, in rank order, and released after it in the
// parent and in the child. Otherwise a child forked while another thread held
// a lock would find it held forever, by a thread that does not exist there.
#ifndef QUENDAL_PLATFORM_FORK_GUARD_H
#define QUENDAL_PLATFORM_FORK_GUARD_H

namespace Quendal {
namespace Platform {

// The order in which fork takes the locks. The module registry comes first:
// its new-id callback runs under the registry's lock and may allocate from
// the heap, so a thread can hold the registry's lock and wait for the heap's,
// never the reverse.
// The drop-in's thread cache list comes last: nothing is taken while it is
// held.
enum ForkLockRank { kRegistryLockRank, kHeapLockRank, kThreadCacheLockRank, kForkLockRankCount };

// How to take and release one lock; the functions receive the lock given to
// GuardAcrossFork. Objects of this type must outlive their registration.
struct ForkLockCalls {
  void (*acquire)(void* lock);
  void (*releaseInParent)(void* lock);
  void (*releaseInChild)(void* lock);
};

// Makes lock the one lock of rank that fork takes. The first call of the
// process installs the fork handlers; none is installed before a lock exists.
// Does not block, so a lock may be registered while another one is held.
void GuardAcrossFork(ForkLockRank rank, void* lock, const ForkLockCalls* calls);

// Forgets the lock of rank, before it is destroyed; waits for a fork under
// way to release it. Must not be called with a guarded lock held.
void StopGuardingAcrossFork(ForkLockRank rank);

}  // namespace Platform
}  // namespace Quendal

#endif
