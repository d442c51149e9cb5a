// The whole exported interface of libQuendal.
#ifndef QUENDAL_QUENDAL_H
#define QUENDAL_QUENDAL_H

#include "quendal/assertion.h"
#include "quendal/heap.h"
#include "quendal/hooks.h"
#include "quendal/version.h"

#ifdef __cplusplus
#include "quendal/accounting.h"
#include "quendal/classification.h"
#include "quendal/config_file_reader.h"
#include "quendal/containers.h"
#include "quendal/extra_heap.h"
#include "quendal/module_log.h"
#include "quendal/random.h"
#include "quendal/validation.h"
#endif

#endif
