// What the overflow heap holds of pooled sizes, for the statistics' sizing
// line: a pool that ran out of chunks sent those blocks there, and a larger
// pool would have given them chunks. Per class, the blocks the overflow heap
// holds now; the chunks they fill, ceil(blocks / blocks per chunk) summed
// over the classes; and the peak of the chunks in use plus that sum and an
// eighth of it (Spread).
//
// Only the overflow paths call it, under the pool's lock. A release has to
// know the class of the block it takes back, and an overflow block carries
// no header. Where the overflow heap tells a block's usable size
// (OverflowBlockSize: the drop-in's does), the class is that size
// rounded down to the fundamental alignment, the same at allocation and
// release; every block of the overflow heap of such a size that the program
// releases or moves counts, so that the figures stay consistent. Elsewhere
// the tally keeps the addresses it follows in a table of its own (open
// addressing, linear probing), untouched until the pool first runs out. A
// block it cannot follow (the table is three quarters full, or its class
// lies past the counted classes) stays counted as never released, apart:
// the statistics then give the sizing figure as a lower bound beside that
// upper one.
//
// The chunks in use at an overflow of a pooled size are all the chunks the
// pool has (no chunk was left), so the peak is taken there, where the sum
// grows, as the chunks laid out plus the sum; the pooled paths change
// neither.
#ifndef QUENDAL_HEAP_OVERFLOW_TALLY_H
#define QUENDAL_HEAP_OVERFLOW_TALLY_H

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include "heap/size_class.h"
#include "quendal/heap_stats.h"
#include "util/compiler.h"
#include "util/max_align.h"

namespace Quendal {
namespace Heap {

// The usable size of a block of the overflow heap Heap, 0 where Heap does
// not tell it (extra_heap_allocator.h tells the library's).
template <class Heap>
struct OverflowBlockSize {
  static size_t Of(const void*) { return 0; }
};

class OverflowTally {
 public:
  static const uint32_t kClasses = QD_HEAP_STATS_CLASSES;
  // A power of two; the table is 9 bytes a slot on 64 bits, 5 on 32.
  static const uint32_t kSlots = 8192;
  static const uint32_t kMostFollowed = kSlots / 4 * 3;

  OverflowTally()
      : m_following(0),
        m_sized(0),
        m_followed(0),
        m_unfollowed(0),
        m_blockBytes(0),
        m_chunksFollowed(0),
        m_chunksAtMost(0),
        m_peakFollowed(0),
        m_peakAtMost(0) {
    for (uint32_t index = 0; index < kClasses; ++index) {
      m_live[index] = 0;
      m_kept[index] = 0;
    }
  }

  // True once a block was ever followed: only then does a release outside
  // the pool look the block up. Read without the lock by the drop-in's
  // releases, which reach the C library directly.
  bool Following() const {
#if defined(__GNUC__)
    return __atomic_load_n(&m_following, __ATOMIC_RELAXED) != 0;
#else
    return m_following != 0;
#endif
  }

  // The overflow heap served block, of the class index (from 0), for want
  // of a chunk, or moved a counted block to block; a chunk holds blockBytes
  // of blocks; inUse is at least the chunks in use now. optional: a block
  // counted only because its release will be, which is left out when its
  // size puts it past the counted classes.
  void Taken(const void* block, size_t usable, size_t index, uint32_t blockBytes, uint32_t inUse,
             bool optional = false) {
    if (m_following == 0) {
      Start(usable);
    }
    if (m_sized != 0) {
      index = SizedClass(usable);
    }
    uint32_t perChunk = PerChunk(index, blockBytes);
    if (perChunk == 0 && optional) {
      return;
    }
    if (perChunk == 0) {
      // A block whose class the statistics do not show: a chunk of its own.
      ++m_unfollowed;
      ++m_chunksAtMost;
    } else if (m_sized != 0 || m_followed < kMostFollowed) {
      if (m_sized == 0) {
        Insert(block, static_cast<uint8_t>(index));
      }
      ++m_followed;
      m_chunksFollowed += Grown(m_live[index], perChunk);
      m_chunksAtMost += Grown(m_live[index] + m_kept[index], perChunk);
      ++m_live[index];
    } else {
      ++m_unfollowed;
      m_chunksAtMost += Grown(m_live[index] + m_kept[index], perChunk);
      ++m_kept[index];
    }
    m_blockBytes = blockBytes;
    Raise(m_peakFollowed, inUse + Spread(m_chunksFollowed));
    Raise(m_peakAtMost, inUse + Spread(m_chunksAtMost));
  }

  // block leaves the overflow heap. Returns its class index plus one when
  // it was counted, else 0.
  size_t Forget(const void* block, size_t usable) {
    if (!Following() || block == 0) {
      return 0;
    }
    size_t index;
    if (m_sized != 0) {
      index = SizedClass(usable);
      // Blocks of the overflow heap from before the first one was counted
      // were never counted.
      if (index >= kClasses || m_live[index] == 0) {
        return 0;
      }
    } else {
      uint32_t slot = Find(block);
      if (m_keys[slot] == 0) {
        return 0;
      }
      index = m_classes[slot];
      Remove(slot);
      if (index >= kClasses) {
        return 0;
      }
    }
    --m_followed;
    uint32_t perChunk = PerChunk(index, m_blockBytes);
    --m_live[index];
    m_chunksFollowed -= Grown(m_live[index], perChunk);
    m_chunksAtMost -= Grown(m_live[index] + m_kept[index], perChunk);
    return index + 1;
  }

  // True when the class of a block comes from its size, so that every block
  // the overflow heap moves into a pooled size counts, as its release will.
  bool CountsBySize() const {
    return m_sized != 0;
  }

  // Blocks followed now, and blocks never followed since the start.
  uint32_t Followed() const {
    return m_followed;
  }
  uint32_t Unfollowed() const {
    return m_unfollowed;
  }
  // The peaks of the chunks in use plus the chunks of the followed blocks,
  // and plus those of every block never followed as well.
  uint32_t PeakFollowed() const {
    return m_peakFollowed;
  }
  uint32_t PeakAtMost() const {
    return m_peakAtMost;
  }

 private:
  // The first block: the mode is chosen by whether its size can be known.
  void Start(size_t usable) {
    m_sized = usable != 0 ? 1 : 0;
    if (m_sized == 0) {
      memset(m_keys, 0, sizeof m_keys);
    }
#if defined(__GNUC__)
    __atomic_store_n(&m_following, 1, __ATOMIC_RELAXED);
#else
    m_following = 1;
#endif
  }

  // The class of a block of the overflow heap by its usable size: the
  // largest multiple of the fundamental alignment it holds, which is the
  // size asked for when that was such a multiple (the drop-in's requests
  // above 8 bytes are); kClasses when that is past the counted classes.
  static size_t SizedClass(size_t usable) {
    size_t size = usable / kMaxAlign * kMaxAlign;
    if (size < kClassGranule) {
      size = kClassGranule;
    }
    return size <= kClasses * kClassGranule ? ClassIndex(ClassSize(size)) : kClasses;
  }

  static uint32_t PerChunk(size_t index, uint32_t blockBytes) {
    return index < kClasses ? blockBytes / static_cast<uint32_t>((index + 1) * kClassGranule) : 0;
  }

  // The chunks blocks of a class fill; a chunk each where none would fit.
  static uint32_t ChunksFor(uint32_t blocks, uint32_t perChunk) {
    return perChunk != 0 ? (blocks + perChunk - 1) / perChunk : blocks;
  }
  // What one block more than blocks adds to ChunksFor.
  static uint32_t Grown(uint32_t blocks, uint32_t perChunk) {
    return ChunksFor(blocks + 1, perChunk) - ChunksFor(blocks, perChunk);
  }
  // A larger pool spreads the blocks over partly filled chunks as they come
  // and go, and more so the longer they live: an eighth more than they fill,
  // which covered the programs the drop-in is tested with (docs).
  static uint32_t Spread(uint32_t chunks) {
    return chunks + chunks / 8;
  }

  static void Raise(uint32_t& peak, uint32_t value) {
    if (value > peak) {
      peak = value;
    }
  }

  static uint32_t Hash(const void* block) {
    uintptr_t address = reinterpret_cast<uintptr_t>(block) >> 3;
    return static_cast<uint32_t>(address * 2654435761u) & (kSlots - 1);
  }

  // The slot of block, or the empty slot where it would go.
  uint32_t Find(const void* block) const {
    uint32_t slot = Hash(block);
    while (m_keys[slot] != 0 && m_keys[slot] != block) {
      slot = (slot + 1) & (kSlots - 1);
    }
    return slot;
  }

  // An entry for block already there is stale: the overflow heap took the
  // block back unseen (a release that bypassed the pool) and has handed out
  // its address again. It is forgotten first.
  void Insert(const void* block, uint8_t index) {
    uint32_t slot = Find(block);
    if (m_keys[slot] != 0) {
      Forget(block, 0);
      slot = Find(block);
    }
    m_keys[slot] = block;
    m_classes[slot] = index;
  }

  // Backward-shift deletion: later entries of the probe run move up so that
  // no lookup stops early at the emptied slot.
  void Remove(uint32_t slot) {
    uint32_t hole = slot;
    uint32_t next = (hole + 1) & (kSlots - 1);
    while (m_keys[next] != 0) {
      uint32_t home = Hash(m_keys[next]);
      // Moves when its home does not lie cyclically in (hole, next].
      if (((next - home) & (kSlots - 1)) >= ((next - hole) & (kSlots - 1))) {
        m_keys[hole] = m_keys[next];
        m_classes[hole] = m_classes[next];
        hole = next;
      }
      next = (next + 1) & (kSlots - 1);
    }
    m_keys[hole] = 0;
  }

  QD_STATIC_ASSERT((kSlots & (kSlots - 1)) == 0);
  QD_STATIC_ASSERT(kClasses <= 256);

  uint8_t m_following;
  // The class comes from the block's size, not from the table.
  uint8_t m_sized;
  uint32_t m_followed;
  uint32_t m_unfollowed;
  uint32_t m_blockBytes;
  uint32_t m_chunksFollowed;
  uint32_t m_chunksAtMost;
  uint32_t m_peakFollowed;
  uint32_t m_peakAtMost;
  // Per class: blocks followed now, and blocks never followed.
  uint32_t m_live[kClasses];
  uint32_t m_kept[kClasses];
  // Left as they are until the first block is followed, and for good when
  // the class comes from the size; cleared then.
  const void* m_keys[kSlots];
  uint8_t m_classes[kSlots];
};

}  // namespace Heap
}  // namespace Quendal

#endif
