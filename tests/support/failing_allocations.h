// Makes one allocation of the C library fail on cue: the program that
// compiles failing_allocations.cpp in puts its own malloc, calloc, realloc
// and the aligned forms in front of glibc's (or, built with
// QUENDAL_FAIL_SECOND_NAMES, glibc's second names __libc_malloc and friends,
// which only the drop-in calls). Each counts the requests made while armed
// and refuses the one it was armed for, as glibc does when memory runs out:
// null with errno ENOMEM, or ENOMEM from posix_memalign. For one thread;
// glibc only.
#ifndef QUENDAL_TESTS_SUPPORT_FAILING_ALLOCATIONS_H
#define QUENDAL_TESTS_SUPPORT_FAILING_ALLOCATIONS_H

namespace QuendalTest {

// Starts counting from 0; the failAt-th request fails, none when failAt is 0.
void ArmAllocationFailure(unsigned long failAt);

// Stops counting and returns how many requests were counted.
unsigned long DisarmAllocationFailure();

// Names what the program does now; a failure remembers it. The text is not
// copied.
void SetAllocationStep(const char* step);

// The step during which the armed request failed, or null while none has.
const char* FailedAllocationStep();

}  // namespace QuendalTest

#endif
