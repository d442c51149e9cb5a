/* The library's version. */
#ifndef QUENDAL_VERSION_H
#define QUENDAL_VERSION_H

#define QUENDAL_VERSION_MAJOR 1
#define QUENDAL_VERSION_MINOR 10
#define QUENDAL_VERSION_PATCH 0

#endif
