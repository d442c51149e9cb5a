// Lazy initialisation, de-initialisation and the unload hook of the heap.
#include "heap/heap_init.h"
#include "heap/the_heap.h"

#include "platform/own_work.h"
#include "quendal/classification.h"
#include "quendal/config_file_reader.h"
#include "quendal/extra_heap.h"
#include "quendal/heap.h"

namespace Quendal {
namespace Heap {

const Platform::ForkLockCalls Mutex::forkCalls = {&Mutex::Acquire, &Mutex::Release,
                                                  &Mutex::ReleaseInChild};

}  // namespace Heap
}  // namespace Quendal

using Quendal::Heap::StartUpGate;
using Quendal::Heap::TheHeap;

extern "C" int QDHeapInit(void) QD_NOTHROW {
  // One thread at a time runs the steps; the others wait for the pool it
  // configures. A step that calls back into the heap on this thread passes.
  StartUpGate gate;
  // What the steps below allocate, the C library's fopen included, is the
  // library's own and stays off the pool it is setting up.
  Quendal::Platform::OwnWorkScope ownWork;
  // Cleared first: allocations made by the steps below must not re-enter.
  StartUpGate::Clear(Quendal::Heap::kInitNeeded);
  Quendal::Classification::Init();
  unsigned int chunks = 0;
  unsigned int chunkSize = 0;
  unsigned int segSize = 0;
  if (!ExtraHeap::CreateInstance()) {
    return 0;
  }
  ConfigFileReader::ReadConfigValues(chunks, chunkSize, segSize);
  Quendal::Heap::LockedPool* heap = TheHeap::getInstance(false);
  if (!heap->IsConfigured()) {
    heap->Configure(chunks, chunkSize, segSize);
  }
  TheHeap::getInstance(true);
  // Retries a segment request that failed just above.
  heap->Initialize();
  return 1;
}

extern "C" int QDHeapDeInit(void) QD_NOTHROW {
  // The pool, its segment and its mutex stay: blocks handed out stay valid.
  ExtraHeap::ReleaseInstance();
  return 1;
}

extern "C" size_t QDHeapTotalSize(void) QD_NOTHROW {
  return 0;
}

// The library's termination routine: runs when the library is unloaded or
// the process ends, after the exit handlers registered before it.
extern "C" __attribute__((destructor)) void my_unload(void) QD_NOTHROW {
  StartUpGate gate;
  QDHeapDeInit();
  StartUpGate::Set(Quendal::Heap::kInitNeeded);
}
