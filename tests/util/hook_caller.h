// A library of the library's objects that calls every hook from inside.
#ifndef QUENDAL_TESTS_UTIL_HOOK_CALLER_H
#define QUENDAL_TESTS_UTIL_HOOK_CALLER_H

#include "quendal/export.h"

// Calls each hook of the exception-handling and tracing interfaces once, in
// the order of quendal/hooks.h with MT_dump_allocted_memory last, and returns
// the sum of the results of those that return one.
extern "C" QD_EXPORT int QuendalTestCallEveryHook();

#endif
