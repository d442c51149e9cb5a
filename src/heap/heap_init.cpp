#include "heap/heap_init.h"

#include "platform/thread_identity.h"
#include "quendal/heap.h"

namespace Quendal {
namespace Heap {

uint8_t heapState = kInitNeeded | kNotConstructed | kPoolNotStarted;

namespace {

// The gate's holder, 0 when free, and the process it was taken in.
uintptr_t gateHolder = 0;
long gateProcess = 0;

void StoreState(unsigned state) {
  __atomic_store_n(&heapState, static_cast<uint8_t>(state), __ATOMIC_RELEASE);
}

unsigned LoadState() {
  return __atomic_load_n(&heapState, __ATOMIC_RELAXED);
}

// A holder recorded by another process is a thread of the parent of this
// forked child: it will never release the gate here.
bool TakeOverFromParent(uintptr_t holder, uintptr_t self) {
  long process = __atomic_load_n(&gateProcess, __ATOMIC_RELAXED);
  if (process == 0 || process == Platform::CurrentProcessId()) {
    return false;
  }
  return __atomic_compare_exchange_n(&gateHolder, &holder, self, false, __ATOMIC_ACQUIRE,
                                     __ATOMIC_RELAXED);
}

}  // namespace

StartUpGate::StartUpGate() : m_entered(false) {
  uintptr_t self = Platform::CurrentThreadIdentity();
  if (__atomic_load_n(&gateHolder, __ATOMIC_RELAXED) == self) {
    return;
  }
  bool inherited = false;
  for (unsigned round = 0;; ++round) {
    uintptr_t holder = 0;
    if (__atomic_compare_exchange_n(&gateHolder, &holder, self, false, __ATOMIC_ACQUIRE,
                                    __ATOMIC_RELAXED)) {
      break;
    }
    if (TakeOverFromParent(holder, self)) {
      inherited = true;
      break;
    }
    Platform::WaitAWhile(round);
  }
  __atomic_store_n(&gateProcess, Platform::CurrentProcessId(), __ATOMIC_RELAXED);
  m_entered = true;
  unsigned state = LoadState() | kGateHeld;
  // Whatever the parent's thread was doing is unfinished: start over.
  if (inherited) {
    state |= kInitNeeded;
  }
  StoreState(state);
}

StartUpGate::~StartUpGate() {
  if (!m_entered) {
    return;
  }
  StoreState(LoadState() & ~static_cast<unsigned>(kGateHeld));
  __atomic_store_n(&gateProcess, 0L, __ATOMIC_RELAXED);
  __atomic_store_n(&gateHolder, static_cast<uintptr_t>(0), __ATOMIC_RELEASE);
}

bool StartUpGate::HeldByThisThread() {
  return __atomic_load_n(&gateHolder, __ATOMIC_RELAXED) == Platform::CurrentThreadIdentity();
}

void StartUpGate::Set(unsigned bits) {
  StoreState(LoadState() | bits);
}

void StartUpGate::Clear(unsigned bits) {
  StoreState(LoadState() & ~bits);
}

void EnsureHeapInitializedOutOfLine() {
  // Called back from inside the start-up on its own thread: initNeeded was
  // cleared first, so there is nothing to run, and nothing to wait for.
  if (StartUpGate::HeldByThisThread()) {
    return;
  }
  StartUpGate gate;
  if (HeapStateHas(kInitNeeded)) {
    QDHeapInit();
  }
}

}  // namespace Heap
}  // namespace Quendal
