// Shows the pool's blocks to a memory checker watching the process, so that
// a use after release, an overflow into a neighbouring block, a double
// release, a leak or a read of uninitialised memory in a pooled block is
// reported as it would be for a block of the C library's allocator.
//
// Two checkers are known: valgrind's memcheck (client requests, when the
// build found <valgrind/memcheck.h>) and AddressSanitizer (manual
// poisoning, when the library or the program that loads it has the
// runtime: the poisoning functions are weak references resolved when the
// library is loaded). Which one watches is found once, by Start; without
// either every hook is a test of one flag. QNX has neither, nor has the
// portable build, which makes QNX's choices.
//
// The pool reports four events: a block handed out (with the size asked
// for: the rest of its class size stays out of reach), a block released,
// memory the pool itself is about to read or write (a free block's link, a
// chunk header), and memory nobody but the pool may touch.
#ifndef QUENDAL_PLATFORM_MEMORY_CHECKER_H
#define QUENDAL_PLATFORM_MEMORY_CHECKER_H

#include <stddef.h>
#include <stdint.h>

#include "platform/target_choices.h"

#if !defined(QUENDAL_QNX_CHOICES) && defined(QUENDAL_HAVE_VALGRIND_HEADERS)
#include <valgrind/memcheck.h>
#include <valgrind/valgrind.h>
#define QUENDAL_MEMORY_CHECKER_VALGRIND 1
#endif

#if !defined(QUENDAL_QNX_CHOICES)
#define QUENDAL_MEMORY_CHECKER_ASAN 1
// The AddressSanitizer runtime's interface, declared weak: null unless the
// process has the runtime.
extern "C" {
void __asan_poison_memory_region(void const volatile* address, size_t size) __attribute__((weak));
void __asan_unpoison_memory_region(void const volatile* address, size_t size) __attribute__((weak));
int __asan_address_is_poisoned(void const volatile* address) __attribute__((weak));
void __asan_report_error(void* pc, void* bp, void* sp, void* address, int isWrite,
                         size_t accessSize) __attribute__((weak));
}
#endif

// The platform layer stands below util's compiler helpers.
#if defined(__GNUC__) || defined(__clang__)
#define QD_MEMORY_CHECKER_UNLIKELY(x) __builtin_expect(!!(x), 0)
#define QD_MEMORY_CHECKER_NOINLINE __attribute__((noinline))
#else
#define QD_MEMORY_CHECKER_UNLIKELY(x) (x)
#define QD_MEMORY_CHECKER_NOINLINE
#endif

namespace Quendal {
namespace Platform {

// Heaps whose blocks are shown to memory checkers: none unless a heap
// policy specialises this (the library's own pool does).
template <class Heap>
struct ShowsBlocksToMemoryCheckers {
  static const bool kValue = false;
};

class MemoryChecker {
 public:
  MemoryChecker() : m_tool(kNone) {}

  // Finds the checker watching the process and hands it the segment of
  // bytes bytes, all of it out of reach until the pool builds chunks and
  // hands out blocks. Called once, when the pool takes its segment.
  void Start(void* segment, size_t bytes) {
#if defined(QUENDAL_MEMORY_CHECKER_VALGRIND)
    if (RUNNING_ON_VALGRIND) {
      m_tool = kValgrind;
      // memcheck knows the segment as one malloc block and would describe
      // an address in a pooled block by it: its record shrinks to the first
      // byte, and the pool's blocks describe the rest.
      VALGRIND_RESIZEINPLACE_BLOCK(segment, bytes, 1, 0);
    }
#endif
#if defined(QUENDAL_MEMORY_CHECKER_ASAN)
    if (m_tool == kNone && __asan_poison_memory_region != 0 && __asan_unpoison_memory_region != 0 &&
        __asan_address_is_poisoned != 0 && __asan_report_error != 0) {
      m_tool = kAddressSanitizer;
    }
#endif
    MakeInaccessible(segment, bytes);
  }

  // True when a checker watches: the pool then takes its slow paths only.
  bool Active() const {
    return m_tool != kNone;
  }

  // block, of classSize bytes, goes to the program, which asked for
  // requested bytes: those are addressable and uninitialised, the rest of
  // the class size is not addressable.
  void BlockHandedOut(void* block, size_t requested, size_t classSize) {
    if (QD_MEMORY_CHECKER_UNLIKELY(m_tool != kNone)) {
      HandOut(block, requested, classSize);
    }
  }

  // block, of classSize bytes (0 when its chunk is free), comes back from
  // the program. A block the program does not hold (released twice, never
  // handed out) is reported.
  void BlockReleased(void* block, size_t classSize) {
    if (QD_MEMORY_CHECKER_UNLIKELY(m_tool != kNone)) {
      TakeBack(block, classSize);
    }
  }

  // The pool reads or writes bytes at address itself (a link, a header).
  void MakeAccessible(void* address, size_t bytes) {
    if (QD_MEMORY_CHECKER_UNLIKELY(m_tool != kNone)) {
      Open(address, bytes);
    }
  }

  // Nobody may touch bytes at address until the pool opens them again.
  void MakeInaccessible(void* address, size_t bytes) {
    if (QD_MEMORY_CHECKER_UNLIKELY(m_tool != kNone)) {
      Close(address, bytes);
    }
  }

  // The pool copies the first bytes of a block the program holds (moving
  // it on reallocation): up to a class granule at their end may lie beyond
  // the size the program asked for, which the copy reads all the same.
  void BlockCopied(void* block, size_t bytes) {
    if (QD_MEMORY_CHECKER_UNLIKELY(m_tool != kNone)) {
      Copy(block, bytes);
    }
  }

 private:
  enum { kNone = 0, kValgrind = 1, kAddressSanitizer = 2 };
  // AddressSanitizer's shadow granule, and the pool's smallest block.
  static const size_t kGranule = 8;

  QD_MEMORY_CHECKER_NOINLINE void HandOut(void* block, size_t requested, size_t classSize) {
    Close(block, classSize);
#if defined(QUENDAL_MEMORY_CHECKER_VALGRIND)
    if (m_tool == kValgrind) {
      VALGRIND_MALLOCLIKE_BLOCK(block, requested, 0, 0);
    }
#endif
#if defined(QUENDAL_MEMORY_CHECKER_ASAN)
    if (m_tool == kAddressSanitizer) {
      AsanUnpoison(block, requested);
    }
#endif
    (void)requested;
  }

#if defined(QUENDAL_MEMORY_CHECKER_ASAN)
  // The runtime's functions are weak references: only a watching runtime
  // makes them non-null, and only then is m_tool kAddressSanitizer. Tested
  // again here so that no path can call through a null reference.
  static void AsanPoison(void* address, size_t bytes) {
    if (__asan_poison_memory_region != 0) {
      __asan_poison_memory_region(address, bytes);
    }
  }
  static void AsanUnpoison(void* address, size_t bytes) {
    if (__asan_unpoison_memory_region != 0) {
      __asan_unpoison_memory_region(address, bytes);
    }
  }
  static bool AsanIsPoisoned(void* address) {
    return __asan_address_is_poisoned != 0 && __asan_address_is_poisoned(address) != 0;
  }
#endif

  QD_MEMORY_CHECKER_NOINLINE void TakeBack(void* block, size_t classSize) {
#if defined(QUENDAL_MEMORY_CHECKER_VALGRIND)
    if (m_tool == kValgrind) {
      VALGRIND_FREELIKE_BLOCK(block, 0);
      // memcheck closes the size asked for; a copy may have opened more.
      VALGRIND_MAKE_MEM_NOACCESS(block, classSize);
    }
#endif
#if defined(QUENDAL_MEMORY_CHECKER_ASAN)
    if (m_tool == kAddressSanitizer) {
      // A held block's first byte is always addressable.
      if (AsanIsPoisoned(block)) {
        ReportAsanError(block);
      }
      AsanPoison(block, classSize);
    }
#endif
    (void)block;
    (void)classSize;
  }

  QD_MEMORY_CHECKER_NOINLINE void Open(void* address, size_t bytes) {
#if defined(QUENDAL_MEMORY_CHECKER_VALGRIND)
    if (m_tool == kValgrind) {
      VALGRIND_MAKE_MEM_DEFINED(address, bytes);
    }
#endif
#if defined(QUENDAL_MEMORY_CHECKER_ASAN)
    if (m_tool == kAddressSanitizer) {
      AsanUnpoison(address, bytes);
    }
#endif
    (void)address;
    (void)bytes;
  }

  QD_MEMORY_CHECKER_NOINLINE void Close(void* address, size_t bytes) {
#if defined(QUENDAL_MEMORY_CHECKER_VALGRIND)
    if (m_tool == kValgrind) {
      VALGRIND_MAKE_MEM_NOACCESS(address, bytes);
    }
#endif
#if defined(QUENDAL_MEMORY_CHECKER_ASAN)
    if (m_tool == kAddressSanitizer) {
      AsanPoison(address, bytes);
    }
#endif
    (void)address;
    (void)bytes;
  }

  QD_MEMORY_CHECKER_NOINLINE void Copy(void* block, size_t bytes) {
#if defined(QUENDAL_MEMORY_CHECKER_VALGRIND)
    if (m_tool == kValgrind) {
      // Only the bytes past the size asked for, a tail of less than a
      // granule, are out of reach: they become readable, still
      // uninitialised, while the rest keeps what memcheck knows of it.
      unsigned char* bytesOfBlock = static_cast<unsigned char*>(block);
      for (size_t k = bytes; k > 0 && bytes - k < kGranule - 1; --k) {
        char vbits = 0;
        if (VALGRIND_GET_VBITS(bytesOfBlock + k - 1, &vbits, 1) != 3) {
          break;
        }
        VALGRIND_MAKE_MEM_UNDEFINED(bytesOfBlock + k - 1, 1);
      }
    }
#endif
#if defined(QUENDAL_MEMORY_CHECKER_ASAN)
    if (m_tool == kAddressSanitizer) {
      if (bytes != 0 && AsanIsPoisoned(block)) {
        ReportAsanError(block);
      }
      AsanUnpoison(block, bytes);
    }
#endif
    (void)block;
    (void)bytes;
  }

#if defined(QUENDAL_MEMORY_CHECKER_ASAN)
  // A block the program does not hold is released or moved: reported as
  // the poisoned access it is.
  QD_MEMORY_CHECKER_NOINLINE static void ReportAsanError(void* block) {
    if (__asan_report_error != 0) {
      __asan_report_error(__builtin_return_address(0), __builtin_frame_address(0),
                          __builtin_frame_address(0), block, 1, 1);
    }
  }
#endif

  uint8_t m_tool;
};

}  // namespace Platform
}  // namespace Quendal

#undef QD_MEMORY_CHECKER_UNLIKELY
#undef QD_MEMORY_CHECKER_NOINLINE

#endif
