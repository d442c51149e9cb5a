#include "quendal/extra_heap.h"

#include <stdlib.h>
#include <new>

#include "util/max_align.h"

namespace {

// The instance lives here, never on the heap it backs.
Quendal::AlignedStorage<ExtraHeap> instanceStorage;

}  // namespace

ExtraHeap* ExtraHeap::m_instance = 0;
unsigned long ExtraHeap::m_initialSize = 0x10000;
unsigned long ExtraHeap::m_maxSize = 0x2000000;

ExtraHeap::ExtraHeap() : m_reserved(0) {}

ExtraHeap::~ExtraHeap() {}

bool ExtraHeap::CreateInstance() {
  if (m_instance != 0) {
    return true;
  }
  m_instance = new (instanceStorage.bytes) ExtraHeap();
  return true;
}

ExtraHeap* ExtraHeap::GetInstance() {
  return m_instance;
}

void ExtraHeap::ReleaseInstance() {
  if (m_instance == 0) {
    return;
  }
  // The complete-object destructor: the storage is static and stays.
  m_instance->~ExtraHeap();
  m_instance = 0;
}

void ExtraHeap::Configure(unsigned long initialSize, unsigned long maxSize) {
  m_initialSize = initialSize;
  m_maxSize = maxSize;
}

void* ExtraHeap::Alloc(unsigned long size) {
  return malloc(size);
}

void* ExtraHeap::ReAlloc(void* p, unsigned long size) {
  return realloc(p, size);
}

void ExtraHeap::Free(void* p) {
  free(p);
}

bool ExtraHeap::Size(void*, unsigned long*) {
  return false;
}

void ExtraHeap::Compact() {}
