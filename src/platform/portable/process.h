// QNX's <process.h>, as far as the platform layer uses it: the portable
// build defines _cmdname on the host (portable/command_name.cpp), and the
// host build compiles the QNX sources against this declaration alone.
#ifndef QUENDAL_PLATFORM_PORTABLE_PROCESS_H
#define QUENDAL_PLATFORM_PORTABLE_PROCESS_H

#ifdef __cplusplus
extern "C" {
#endif

// Writes the full path of the running executable into name, a buffer of
// PATH_MAX bytes, and returns name; null on failure.
char* _cmdname(char* name);

#ifdef __cplusplus
}
#endif

#endif
