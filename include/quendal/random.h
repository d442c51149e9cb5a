// A small source of pseudo-random integers over the C library's rand, srand
// and time.
//
//   RandomNumberGenerator generator;
//   generator.SeedGenerator();
//   unsigned int die = generator.getRandNum_User(6) + 1;
#ifndef QUENDAL_RANDOM_H
#define QUENDAL_RANDOM_H

#include "quendal/export.h"

// Stateless: every object draws from the C library's one process-wide
// sequence, so reseeding with srand or SeedGenerator affects all of them. No
// lock is taken.
class QD_EXPORT RandomNumberGenerator {
 public:
  // A placeholder for a number between 0 and 1: always returns 0.0 and does
  // not draw.
  double getRandNum_01();

  // Returns a number in 0 .. max - 1, and 0 for a max of 0. max is first
  // rounded to single precision, so above 2^24 it loses its low bits (16777217
  // acts as 16777216), and a draw of 15 bits scales it: results are spaced
  // max / 32768 apart when max exceeds 32768.
  unsigned int getRandNum_User(unsigned int max);

  // Seeds the sequence with the current calendar time: srand(time(NULL)).
  // Two calls within the same second seed the same sequence.
  void SeedGenerator();

  // Declared for a singleton access; null, and nothing reads or writes it.
  static RandomNumberGenerator* m_pTheInstance;
};

#endif
