// The QNX-only declarations the platform layer's QNX sources use, so that
// they compile on the build machine. Only the compiler sees them: nothing
// built against this header is linked.
#ifndef QUENDAL_TEST_QNX_STUB_PROCESS_H
#define QUENDAL_TEST_QNX_STUB_PROCESS_H

#ifdef __cplusplus
extern "C" {
#endif

// Writes the full path of the running executable into name and returns it.
char* _cmdname(char* name);

#ifdef __cplusplus
}
#endif

#endif
