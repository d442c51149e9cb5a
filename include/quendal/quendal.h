// The whole exported interface of libQuendal.
#ifndef QUENDAL_QUENDAL_H
#define QUENDAL_QUENDAL_H

#include "quendal/version.h"
#include "quendal/heap.h"

#ifdef __cplusplus
#include "quendal/classification.h"
#include "quendal/config_file_reader.h"
#include "quendal/extra_heap.h"
#endif

#endif
