// Whether the process's malloc is the drop-in's own. A sanitizer's or a
// memory checker's allocator, or another one loaded ahead of the drop-in,
// takes the program's calls instead; the blocks a program then hands the
// library (QDHeapFree of a malloc block) are that allocator's, so the
// library's own requests and releases must go to it as well, never to the
// C library's allocator behind it.
//
// The answer is found by calling the malloc the process resolves once,
// with a probe armed: the address dlsym gives may be the program's own
// stub of the drop-in's malloc, so only a call tells. The C library heap
// reports every request it gets while it chooses (NoteRequest); the probe's
// request arrives among them exactly when it went through the drop-in.
#ifndef QUENDAL_PLATFORM_PROCESS_ALLOCATOR_H
#define QUENDAL_PLATFORM_PROCESS_ALLOCATOR_H

#include <stddef.h>

#include "platform/posix/allocator_entries.h"

namespace Quendal {
namespace Platform {

class ProcessMallocProbe {
 public:
  ProcessMallocProbe() : m_probing(false), m_arrived(false) {}

  // True when process's malloc reaches the drop-in. Its probe block goes
  // back to whichever allocator made it: process's, or through
  // releaseArrived when it came back through the drop-in. Called once, on
  // the thread that chooses, before any other thread can allocate.
  bool ReachesDropIn(const AllocatorEntries& process, void (*releaseArrived)(void*)) {
    if (process.malloc == 0 || process.free == 0) {
      return true;
    }
    m_arrived = false;
    m_probing = true;
    void* block = process.malloc(1);
    m_probing = false;
    if (m_arrived) {
      releaseArrived(block);
    } else {
      process.free(block);
    }
    return m_arrived;
  }

  void NoteRequest() {
    if (m_probing) {
      m_arrived = true;
    }
  }

 private:
  bool m_probing;
  bool m_arrived;
};

}  // namespace Platform
}  // namespace Quendal

#endif
