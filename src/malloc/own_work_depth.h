// How deep the calling thread is in the library's own work (see
// platform/own_work.h). The drop-in's entries send every request made there
// to the C library.
#ifndef QUENDAL_MALLOC_OWN_WORK_DEPTH_H
#define QUENDAL_MALLOC_OWN_WORK_DEPTH_H

#include "util/compiler.h"

namespace Quendal {
namespace DropIn {

// Initial-exec: the drop-in is loaded with the program (preloaded or
// linked), so its variable sits in the static block and every read is one
// instruction, also in the first malloc of the process.
extern __thread unsigned int ownWorkDepth __attribute__((tls_model("initial-exec")));

QD_ALWAYS_INLINE bool InOwnWork() {
  return QD_UNLIKELY(ownWorkDepth != 0);
}

}  // namespace DropIn
}  // namespace Quendal

#endif
