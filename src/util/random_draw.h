// The source of RandomNumberGenerator's draws.
#ifndef QUENDAL_UTIL_RANDOM_DRAW_H
#define QUENDAL_UTIL_RANDOM_DRAW_H

namespace Quendal {
namespace Random {

typedef int (*DrawFunction)();

// Gives each raw draw of getRandNum_User; calls the C library's rand. Tests
// replace it to force particular draws.
extern DrawFunction drawFunction;

}  // namespace Random
}  // namespace Quendal

#endif
