// The pool values the reader hands to the heap: the defaults, and the two
// that the file cannot change.
#ifndef QUENDAL_CONFIG_POOL_VALUES_H
#define QUENDAL_CONFIG_POOL_VALUES_H

namespace Quendal {
namespace Config {

// Chunks when no complete pool line is read.
const unsigned int kDefaultChunks = 650;
// Bytes per chunk, header included. The file's CHUNK_SIZE is not used.
const unsigned int kChunkSize = 2048;
// The largest request the pool serves. The file's SEG_SIZE is not used.
const unsigned int kLargestPooledSize = 1024;

}  // namespace Config
}  // namespace Quendal

#endif
