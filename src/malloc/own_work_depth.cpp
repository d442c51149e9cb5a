// The drop-in's marks of the library's own work: a depth per thread, so that
// marks nest and another thread's requests meanwhile stay on the pool.
#include "malloc/own_work_depth.h"

#include "platform/own_work.h"

namespace Quendal {
namespace DropIn {

__thread unsigned int ownWorkDepth __attribute__((tls_model("initial-exec"))) = 0;

}  // namespace DropIn

namespace Platform {

void BeginOwnWork() {
  ++DropIn::ownWorkDepth;
}

void EndOwnWork() {
  --DropIn::ownWorkDepth;
}

}  // namespace Platform
}  // namespace Quendal
