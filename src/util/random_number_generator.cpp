// Pseudo-random integers over the C library's generator.
#include <stdlib.h>
#include <time.h>

#include "quendal/random.h"
#include "util/random_draw.h"

namespace Quendal {
namespace Random {

namespace {

int LibraryDraw() {
  return rand();
}

}  // namespace

DrawFunction drawFunction = LibraryDraw;

}  // namespace Random
}  // namespace Quendal

namespace {

// Exactly 2^-15: scales a 15-bit draw into [0, 1).
const double kDrawScale = 3.0517578125e-05;
// The scale assumes draws of 15 bits, the range of the target's rand. glibc's
// rand gives 31 bits, which would scale to values of up to 65536 times max;
// keeping the low 15 bits keeps every result below max on any C library.
const int kDrawMask = 0x7FFF;

}  // namespace

RandomNumberGenerator* RandomNumberGenerator::m_pTheInstance = 0;

double RandomNumberGenerator::getRandNum_01() {
  return 0.0;
}

unsigned int RandomNumberGenerator::getRandNum_User(unsigned int max) {
  // The bound passes through single precision on purpose: above 2^24 it loses
  // its low bits. volatile makes the rounding happen even where the compiler
  // would keep the value in a wider x87 register (i386).
  const volatile float singleMax = static_cast<float>(max);
  const double bound = static_cast<double>(singleMax);
  const double draw = static_cast<double>(Quendal::Random::drawFunction() & kDrawMask);
  const double scaled = draw * kDrawScale;
  return static_cast<unsigned int>(bound * scaled);
}

void RandomNumberGenerator::SeedGenerator() {
  srand(static_cast<unsigned int>(time(NULL)));
}
