#include "support/failing_allocations.h"

#include <dlfcn.h>
#include <errno.h>
#include <malloc.h>
#include <stddef.h>
#include <stdlib.h>
#include <unistd.h>

namespace {

bool g_armed = false;
unsigned long g_counted = 0;
unsigned long g_failAt = 0;
const char* g_step = "";
const char* g_failedStep = nullptr;

// Counts one request; true when it is the one to refuse.
bool Refuse() {
  if (!g_armed) {
    return false;
  }
  ++g_counted;
  if (g_counted != g_failAt) {
    return false;
  }
  g_failedStep = g_step;
  errno = ENOMEM;
  return true;
}

}  // namespace

namespace QuendalTest {

void ArmAllocationFailure(unsigned long failAt) {
  g_counted = 0;
  g_failAt = failAt;
  g_failedStep = nullptr;
  g_armed = true;
}

unsigned long DisarmAllocationFailure() {
  g_armed = false;
  return g_counted;
}

void SetAllocationStep(const char* step) {
  g_step = step;
}

const char* FailedAllocationStep() {
  return g_failedStep;
}

}  // namespace QuendalTest

extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* pointer, size_t size);
void __libc_free(void* pointer);
void* __libc_memalign(size_t alignment, size_t size);
}

#if defined(QUENDAL_FAIL_SECOND_NAMES)

// The drop-in reaches glibc's allocator by these names; the front takes
// them, and glibc's own definitions come next in the process's symbol order.
namespace {

template <class Function>
Function Next(Function& cached, const char* name) {
  static bool resolving = false;
  if (cached == nullptr) {
    // dlsym allocating through the drop-in would come back here.
    if (resolving) {
      static const char kMessage[] = "failing allocations: dlsym allocated while resolving\n";
      (void)!write(STDERR_FILENO, kMessage, sizeof kMessage - 1);
      abort();
    }
    resolving = true;
    cached = reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
    resolving = false;
  }
  return cached;
}

decltype(&__libc_malloc) g_malloc = nullptr;
decltype(&__libc_calloc) g_calloc = nullptr;
decltype(&__libc_realloc) g_realloc = nullptr;
decltype(&__libc_free) g_free = nullptr;
decltype(&__libc_memalign) g_memalign = nullptr;

}  // namespace

extern "C" {

void* __libc_malloc(size_t size) {
  return Refuse() ? nullptr : Next(g_malloc, "__libc_malloc")(size);
}

void* __libc_calloc(size_t count, size_t size) {
  return Refuse() ? nullptr : Next(g_calloc, "__libc_calloc")(count, size);
}

void* __libc_realloc(void* pointer, size_t size) {
  if ((pointer == nullptr || size != 0) && Refuse()) {
    return nullptr;
  }
  return Next(g_realloc, "__libc_realloc")(pointer, size);
}

void __libc_free(void* pointer) {
  Next(g_free, "__libc_free")(pointer);
}

void* __libc_memalign(size_t alignment, size_t size) {
  return Refuse() ? nullptr : Next(g_memalign, "__libc_memalign")(alignment, size);
}

}  // extern "C"

#else

// The process's allocator: every caller in the process, glibc's own
// functions included, comes here and is served by glibc's allocator under
// its second names.
extern "C" {

void* malloc(size_t size) noexcept {
  return Refuse() ? nullptr : __libc_malloc(size);
}

void* calloc(size_t count, size_t size) noexcept {
  return Refuse() ? nullptr : __libc_calloc(count, size);
}

void* realloc(void* pointer, size_t size) noexcept {
  // A size of 0 releases a block: no request.
  if ((pointer == nullptr || size != 0) && Refuse()) {
    return nullptr;
  }
  return __libc_realloc(pointer, size);
}

void free(void* pointer) noexcept {
  __libc_free(pointer);
}

void* memalign(size_t alignment, size_t size) noexcept {
  return Refuse() ? nullptr : __libc_memalign(alignment, size);
}

void* aligned_alloc(size_t alignment, size_t size) noexcept {
  return Refuse() ? nullptr : __libc_memalign(alignment, size);
}

int posix_memalign(void** result, size_t alignment, size_t size) noexcept {
  if (alignment % sizeof(void*) != 0 || (alignment & (alignment - 1)) != 0 || alignment == 0) {
    return EINVAL;
  }
  int saved = errno;
  if (Refuse()) {
    errno = saved;
    return ENOMEM;
  }
  void* block = __libc_memalign(alignment, size);
  if (block == nullptr) {
    errno = saved;
    return ENOMEM;
  }
  *result = block;
  return 0;
}

void* valloc(size_t size) noexcept {
  return Refuse() ? nullptr : __libc_memalign(static_cast<size_t>(getpagesize()), size);
}

void* pvalloc(size_t size) noexcept {
  size_t page = static_cast<size_t>(getpagesize());
  return Refuse() ? nullptr : __libc_memalign(page, (size + page - 1) / page * page);
}

}  // extern "C"

#endif
