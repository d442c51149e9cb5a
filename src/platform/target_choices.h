// Whether this build makes the QNX build's platform choices: on QNX itself,
// and in the portable build of a POSIX host (QUENDAL_PLATFORM=portable),
// which runs those choices where the host can, so that the target's code
// paths are exercised without a QNX toolchain.
#ifndef QUENDAL_PLATFORM_TARGET_CHOICES_H
#define QUENDAL_PLATFORM_TARGET_CHOICES_H

#if defined(__QNX__) || defined(QUENDAL_PORTABLE_PLATFORM)
#define QUENDAL_QNX_CHOICES 1
#endif

#endif
