// The extra heap: the process-wide fallback heap over the C library's
// allocator. The pool takes its segment from it and passes it every request
// it does not serve.
#ifndef QUENDAL_EXTRA_HEAP_H
#define QUENDAL_EXTRA_HEAP_H

#include "quendal/export.h"

// Singleton over malloc, realloc and free. It keeps no books, takes no lock
// and enforces no limit; its thread safety is that of the C library. The
// instance lives in static storage of the library, never on a heap.
class QD_EXPORT ExtraHeap {
 public:
  // Constructs the instance in its static buffer unless one exists. Returns
  // true in every case.
  static bool CreateInstance();
  // Returns the instance, or null before CreateInstance and after
  // ReleaseInstance.
  static ExtraHeap* GetInstance();
  // Destroys the instance in place (its storage is not released) and sets
  // m_instance to null; does nothing without an instance. Blocks handed out
  // earlier stay valid: they belong to the C library.
  static void ReleaseInstance();
  // Records the two sizes in m_initialSize and m_maxSize. They are inert:
  // nothing reads them and the extra heap grows as far as malloc allows.
  static void Configure(unsigned long initialSize, unsigned long maxSize);

  // Returns malloc(size); a size of 0 is passed on unchanged.
  void* Alloc(unsigned long size);
  // Returns realloc(p, size) unchanged.
  void* ReAlloc(void* p, unsigned long size);
  // Calls free(p). The pointer is not checked: one that did not come from the
  // C library is undefined, exactly as for free().
  void Free(void* p);
  // A placeholder: always returns false and leaves *size unwritten.
  bool Size(void* p, unsigned long* size);
  // A placeholder that does nothing.
  void Compact();

  // Destroys nothing but the object's dynamic type; the object holds no
  // resources.
  virtual ~ExtraHeap();

  // The singleton: non-null only between CreateInstance and ReleaseInstance.
  static ExtraHeap* m_instance;
  // Configured initial size, 65536 unless Configure changed it. Inert.
  static unsigned long m_initialSize;
  // Configured maximum size, 33554432 unless Configure changed it. Inert.
  static unsigned long m_maxSize;

 private:
  ExtraHeap();
  ExtraHeap(const ExtraHeap&);
  ExtraHeap& operator=(const ExtraHeap&);

  // Set to zero by the constructor; nothing reads it.
  unsigned int m_reserved;
};

#endif
