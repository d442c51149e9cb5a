// A doubly linked list of chunks through their headers' prevChunk and
// nextChunk: the free chunk list and every class list are one. The list is
// its head; a list that keeps its tail keeps it itself and passes it in.
// Invariant: the head's prevChunk and the last chunk's nextChunk are null,
// and every other link names the neighbour that links back to it.
#ifndef QUENDAL_HEAP_CHUNK_LIST_H
#define QUENDAL_HEAP_CHUNK_LIST_H

#include "heap/chunk_header.h"

namespace Quendal {
namespace Heap {

struct ChunkList {
  static void PushFront(ChunkHeader*& head, ChunkHeader* chunk) {
    if (head != 0) {
      head->prevChunk = chunk;
    }
    chunk->nextChunk = head;
    chunk->prevChunk = 0;
    head = chunk;
  }

  // chunk follows tail, the list's last chunk (null for an empty list).
  static void Append(ChunkHeader*& head, ChunkHeader* tail, ChunkHeader* chunk) {
    chunk->prevChunk = tail;
    chunk->nextChunk = 0;
    if (tail != 0) {
      tail->nextChunk = chunk;
    } else {
      head = chunk;
    }
  }

  static void Unlink(ChunkHeader*& head, ChunkHeader* chunk) {
    if (chunk->prevChunk != 0) {
      chunk->prevChunk->nextChunk = chunk->nextChunk;
    } else {
      head = chunk->nextChunk;
    }
    if (chunk->nextChunk != 0) {
      chunk->nextChunk->prevChunk = chunk->prevChunk;
    }
  }

  // The first chunk, unlinked; null for an empty list. Its own links are
  // left as they were.
  static ChunkHeader* PopFront(ChunkHeader*& head) {
    ChunkHeader* chunk = head;
    if (chunk == 0) {
      return 0;
    }
    head = chunk->nextChunk;
    if (head != 0) {
      head->prevChunk = 0;
    }
    return chunk;
  }

  // The last chunk by walking from head; null for an empty list.
  static ChunkHeader* WalkToTail(ChunkHeader* head) {
    while (head != 0 && head->nextChunk != 0) {
      head = head->nextChunk;
    }
    return head;
  }
};

}  // namespace Heap
}  // namespace Quendal

#endif
