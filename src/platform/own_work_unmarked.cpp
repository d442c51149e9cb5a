// The library on its own: its allocations and the C library's on its behalf
// all go to the C library by name, so there is nothing to mark.
#include "platform/own_work.h"

namespace Quendal {
namespace Platform {

void BeginOwnWork() {}
void EndOwnWork() {}

}  // namespace Platform
}  // namespace Quendal
