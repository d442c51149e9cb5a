// Every request a small script makes of the C library's allocator fails in
// turn, each time in a child process of its own: the script is run once to
// count its requests, then once for every request with that one refused.
// A child must end normally, its blocks must keep their bytes, and every
// result must be one the interfaces document for a failed allocation: null
// (with errno ENOMEM from the C entries), ENOMEM, bad_alloc, or 0 from a
// look-up of a new module name, and each only from the step whose request
// failed. A child that hangs is ended by an alarm.
//
// Over libQuendal.so the program's own malloc and its kin stand in front of
// glibc's (support/failing_allocations.h), so the library's requests and
// those glibc and libstdc++ make on its behalf are refused. Built with
// QUENDAL_OVER_THE_DROP_IN it runs over libQuendalMalloc.so, whose own
// requests of the C library are refused: the extra heap, its structures
// and what the C entries cannot serve from the pool. The drop-in's heap is
// already initialised when main starts (libstdc++ allocates while it
// loads), so there the script starts on a built pool.
//
// Prints "<n> allocations, each failed in turn: <k> problems" and exits 0
// when k is 0. "--at <n>" runs the script once in the process itself with
// request n refused, to debug one failure.
#include <errno.h>
#include <signal.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <new>

#include "quendal/accounting.h"
#include "quendal/classification.h"
#include "quendal/extra_heap.h"
#include "quendal/heap.h"
#include "quendal/heap_owns.h"
#include "quendal/heap_stats.h"
#include "quendal/module_log.h"
#include "support/failing_allocations.h"

namespace {

using Quendal::Classification::LookUpModuleName;
using Quendal::Classification::ModuleId;
using Quendal::Classification::ScopedId;
using QuendalTest::ArmAllocationFailure;
using QuendalTest::DisarmAllocationFailure;
using QuendalTest::FailedAllocationStep;
using QuendalTest::SetAllocationStep;

// The CHUNKS of the program's .mem file (CMakeLists.txt).
const uint32_t kMemChunks = 40;
const uint32_t kDefaultChunks = 650;

// What a child tells the parent, in memory they share.
struct ChildReport {
  unsigned long counted;
  char failedStep[96];
};
ChildReport* g_report = nullptr;

unsigned long g_failAt = 0;
const char* g_step = "";

void WriteText(int descriptor, const char* text) {
  size_t length = strlen(text);
  while (length > 0) {
    ssize_t written = write(descriptor, text, length);
    if (written <= 0) {
      return;
    }
    text += written;
    length -= static_cast<size_t>(written);
  }
}

// The script writes no stdio and allocates nothing of its own while armed.
[[noreturn]] void Violation(const char* what) {
  char line[512];
  const char* failed = FailedAllocationStep();
  if (g_report != nullptr && failed != nullptr) {
    strncpy(g_report->failedStep, failed, sizeof g_report->failedStep - 1);
  }
  snprintf(line, sizeof line, "allocation %lu failed in \"%s\"; in \"%s\": %s\n", g_failAt,
           failed != nullptr ? failed : "(none)", g_step, what);
  WriteText(STDERR_FILENO, line);
  _exit(1);
}

void Check(bool condition, const char* what) {
  if (!condition) {
    Violation(what);
  }
}

void Step(const char* step) {
  g_step = step;
  SetAllocationStep(step);
}

// True when the refused request was made in the current step.
bool FailedHere() {
  return FailedAllocationStep() == g_step;
}

bool FailedIn(const char* step) {
  return FailedAllocationStep() == step;
}

// The blocks the script holds, each filled with its own pattern; a slot
// whose block is gone holds null.
enum BlockKind { kHeap, kExtraHeap, kMalloc, kNewArray };
struct Block {
  void* pointer;
  size_t size;
  unsigned char seed;
  BlockKind kind;
};
const size_t kMaxBlocks = 32;
Block g_blocks[kMaxBlocks];
size_t g_blockCount = 0;

void Fill(void* pointer, size_t size, unsigned char seed) {
  unsigned char* bytes = static_cast<unsigned char*>(pointer);
  for (size_t k = 0; k < size; ++k) {
    bytes[k] = static_cast<unsigned char>(seed + k * 7);
  }
}

bool Holds(const void* pointer, size_t size, unsigned char seed) {
  const unsigned char* bytes = static_cast<const unsigned char*>(pointer);
  for (size_t k = 0; k < size; ++k) {
    if (bytes[k] != static_cast<unsigned char>(seed + k * 7)) {
      return false;
    }
  }
  return true;
}

Block* Keep(void* pointer, size_t size, BlockKind kind) {
  Check(g_blockCount < kMaxBlocks, "too many blocks for the script's table");
  Block& block = g_blocks[g_blockCount];
  block.pointer = pointer;
  block.size = size;
  block.seed = static_cast<unsigned char>(g_blockCount * 31 + 5);
  block.kind = kind;
  ++g_blockCount;
  Fill(pointer, size, block.seed);
  return &block;
}

void Forget(Block* block) {
  block->pointer = nullptr;
}

// The block's contents moved to pointer, which now holds size bytes.
void Moved(Block* block, void* pointer, size_t size) {
  block->pointer = pointer;
  block->size = size;
  Fill(pointer, size, block->seed);
}

Block* HeapAlloc(const char* step, size_t size) {
  Step(step);
  void* pointer = QDHeapAlloc(size);
  if (pointer == nullptr) {
    Check(FailedHere(), "QDHeapAlloc gave null without a failed request");
    return nullptr;
  }
  return Keep(pointer, size, kHeap);
}

// QDHeapReAlloc of a block the heap owns: it moves, and the old block is
// released even when no new one could be had.
void HeapReAllocPooled(const char* step, Block* block, size_t size) {
  Step(step);
  Check(QDHeapOwns(block->pointer) != 0, "the block to move is not pooled");
  size_t kept = block->size < size ? block->size : size;
  void* pointer = QDHeapReAlloc(block->pointer, size);
  if (pointer == nullptr) {
    Check(FailedHere(), "QDHeapReAlloc gave null without a failed request");
    Forget(block);
    return;
  }
  Check(pointer != block->pointer, "a pooled block did not move");
  Check(Holds(pointer, kept, block->seed), "QDHeapReAlloc lost the contents");
  Moved(block, pointer, size);
}

// A block outside the pool goes to realloc: on failure it stays as it was.
void HeapReAllocForeign(const char* step, Block* block, size_t size) {
  Step(step);
  Check(QDHeapOwns(block->pointer) == 0, "the block to resize is pooled");
  void* pointer = QDHeapReAlloc(block->pointer, size);
  if (pointer == nullptr) {
    Check(FailedHere(), "QDHeapReAlloc gave null without a failed request");
    Check(Holds(block->pointer, block->size, block->seed), "a failed realloc changed the block");
    return;
  }
  Check(Holds(pointer, block->size < size ? block->size : size, block->seed),
        "QDHeapReAlloc lost the contents");
  Moved(block, pointer, size);
}

void HeapCalls() {
  Block* first = HeapAlloc("first heap call", 24);
  HeapAlloc("QDHeapAlloc(1)", 1);
  Block* eight = HeapAlloc("QDHeapAlloc(8)", 8);
  HeapAlloc("QDHeapAlloc(1024)", 1024);
  HeapAlloc("QDHeapAlloc(1025)", 1025);
  Block* large = HeapAlloc("QDHeapAlloc(5000)", 5000);
  HeapAlloc("QDHeapAlloc(70000)", 70000);
  Step("QDHeapAlloc(0)");
  Check(QDHeapAlloc(0) == nullptr, "QDHeapAlloc(0) is not null");

  if (eight != nullptr) {
    HeapReAllocPooled("QDHeapReAlloc of 8 pooled bytes to 40", eight, 40);
  }
  if (eight != nullptr && eight->pointer != nullptr) {
    HeapReAllocPooled("QDHeapReAlloc of 40 pooled bytes to 3000", eight, 3000);
  }
  if (large != nullptr) {
    HeapReAllocForeign("QDHeapReAlloc of 5000 bytes to 9000", large, 9000);
  }
  Step("QDHeapReAlloc(null, 16)");
  void* fresh = QDHeapReAlloc(nullptr, 16);
  if (fresh == nullptr) {
    Check(FailedHere(), "QDHeapReAlloc(null, 16) gave null without a failed request");
  } else {
    Keep(fresh, 16, kHeap);
  }
  if (first != nullptr) {
    Step("QDHeapReAlloc of a pooled block to 0");
    Check(QDHeapReAlloc(first->pointer, 0) == nullptr, "QDHeapReAlloc to 0 is not null");
    Forget(first);
  }

  Step("QDExtraHeapAlloc(64)");
  void* extra = QDExtraHeapAlloc(64);
  if (extra == nullptr) {
    Check(FailedHere(), "QDExtraHeapAlloc gave null without a failed request");
    return;
  }
  Block* block = Keep(extra, 64, kExtraHeap);
  Step("QDExtraHeapReAlloc of 64 bytes to 128");
  void* grown = QDExtraHeapReAlloc(extra, 128);
  if (grown == nullptr) {
    Check(FailedHere(), "QDExtraHeapReAlloc gave null without a failed request");
    Check(Holds(extra, 64, block->seed), "a failed realloc changed the block");
  } else {
    Check(Holds(grown, 64, block->seed), "QDExtraHeapReAlloc lost the contents");
    Moved(block, grown, 128);
  }
}

// Module names, their ids and the log of their names.
struct Module {
  const char* name;
  const char* firstStep;
  const char* againStep;
  unsigned short id;
  // Where the name got its id, and with it its entry in the log.
  const char* registeredIn;
};
Module g_modules[] = {
    {"audio", "ModuleId of a short name", "ModuleId of the short name again", 0, nullptr},
    {"a module name long enough that its copy needs memory of its own", "ModuleId of a long name",
     "ModuleId of the long name again", 0, nullptr},
};
const size_t kModules = sizeof g_modules / sizeof g_modules[0];
unsigned short g_registered = 0;

union LogStorage {
  unsigned char bytes[sizeof(QDLog::SetClassIdCb)];
  void* alignment;
};
LogStorage g_logStorage;

void LookUp(Module& module, const char* step) {
  Step(step);
  unsigned short id = ModuleId(module.name).m_id;
  if (module.id != 0) {
    Check(id == module.id, "a registered name lost its id");
    return;
  }
  if (id == 0) {
    Check(FailedHere(), "a new name got 0 without a failed request");
    return;
  }
  Check(id == g_registered + 1, "a new name did not get the next id");
  g_registered = id;
  module.id = id;
  module.registeredIn = step;
}

void ModuleCalls() {
  Step("module log");
  new (g_logStorage.bytes) QDLog::SetClassIdCb();
  for (Module& module : g_modules) {
    LookUp(module, module.firstStep);
  }
  for (Module& module : g_modules) {
    LookUp(module, module.againStep);
  }
  Step("LookUpModuleName");
  for (const Module& module : g_modules) {
    if (module.id != 0) {
      const char* name = LookUpModuleName(module.id);
      Check(name != nullptr && strcmp(name, module.name) == 0, "LookUpModuleName");
    }
  }

  // Names whose registration failed are looked up again here, and may fail
  // no more: only one request is refused.
  Step("ScopedId");
  ModuleId outer = ModuleId(g_modules[0].name);
  ModuleId inner = ModuleId(g_modules[1].name);
  Check((g_modules[0].id == 0 || outer.m_id == g_modules[0].id) &&
            (g_modules[1].id == 0 || inner.m_id == g_modules[1].id),
        "a registered name lost its id");
  Check(outer.m_id != 0 && inner.m_id != 0, "a name got 0 without a failed request");
  unsigned short moduleId = 1;
  unsigned short subModuleId = 1;
  {
    ScopedId outerScope(outer, 7, __FILE__, __LINE__);
    {
      ScopedId innerScope(inner, 9, __FILE__, __LINE__);
      QDLog::ReadScopeId(moduleId, subModuleId);
      Check(moduleId == inner.m_id && subModuleId == 9, "the inner scope is not current");
    }
    QDLog::ReadScopeId(moduleId, subModuleId);
    Check(moduleId == outer.m_id && subModuleId == 7, "the outer scope is not current again");
  }
  QDLog::ReadScopeId(moduleId, subModuleId);
  Check(moduleId == 0 && subModuleId == 0, "a scope outlived its object");
}

// Streams over the program's own memory, set up before the script is armed
// so that writing to them needs no request.
struct TextStream {
  char text[8192];
  char buffer[1024];
  FILE* stream;
};
TextStream g_statsText;
TextStream g_logText;
TextStream g_reportText;

void Open(TextStream& text) {
  memset(text.text, 0, sizeof text.text);
  text.stream = fmemopen(text.text, sizeof text.text - 1, "w");
  if (text.stream == nullptr || setvbuf(text.stream, text.buffer, _IOFBF, sizeof text.buffer)) {
    Violation("cannot open a text stream");
  }
}

uint32_t g_pooledBefore = 0;

// The pooled blocks the program holds: the drop-in's thread caches hold
// some of those the pool counts in use.
uint32_t PooledBlocks(const QDHeapStats& stats) {
  uint32_t blocks = 0;
  for (uint32_t index = 0; index < stats.classCount; ++index) {
    blocks += stats.classes[index].usedBlocks;
  }
  return blocks - stats.threadCachedBlocks;
}

QDHeapStats Snapshot() {
  QDHeapStats stats;
  stats.size = sizeof stats;
  Check(QDHeapGetStats(&stats) == QD_HEAP_STATS_OK, "QDHeapGetStats");
  return stats;
}

bool StartsWith(const char* text, const char* start) {
  return strncmp(text, start, strlen(start)) == 0;
}

bool EndsWith(const char* text, const char* end) {
  size_t length = strlen(text);
  size_t endLength = strlen(end);
  return length >= endLength && strcmp(text + length - endLength, end) == 0;
}

void ReportCalls() {
  Step("QDHeapGetStats");
  QDHeapStats stats = Snapshot();
  // A refused request of the .mem file's reader leaves the defaults.
  Check(stats.chunkCount == kMemChunks ||
            (stats.chunkCount == kDefaultChunks && FailedIn("first heap call")),
        "the pool's chunk count is neither the .mem file's nor the default");
  uint32_t classChunks = 0;
  for (uint32_t index = 0; index < stats.classCount; ++index) {
    classChunks += stats.classes[index].chunks;
  }
  Check(stats.lostChunks + stats.freeChunks + classChunks == stats.chunkCount,
        "lost, free and class chunks do not add up to the chunk count");
  uint32_t pooled = 0;
  for (size_t k = 0; k < g_blockCount; ++k) {
    pooled += g_blocks[k].pointer != nullptr && QDHeapOwns(g_blocks[k].pointer) != 0 ? 1 : 0;
  }
  Check(PooledBlocks(stats) == g_pooledBefore + pooled,
        "the statistics count other pooled blocks than the script holds");

  Step("QDHeapWriteStats");
  QDHeapWriteStats(g_statsText.stream);
  fflush(g_statsText.stream);
  Check(StartsWith(g_statsText.text, "libQuendal heap statistics\n") &&
            EndsWith(g_statsText.text, " would have held the peak of this run\n"),
        "QDHeapWriteStats");

  Step("dump_map_to_file");
  // Closing the stream releases its own blocks, pooled ones over the drop-in.
  uint32_t pooledBeforeDump = PooledBlocks(Snapshot());
  QDLog::dump_map_to_file(g_logText.stream);
  g_pooledBefore -= pooledBeforeDump - PooledBlocks(Snapshot());
  const char* text = g_logText.text;
  size_t lines = 0;
  for (const char* end = strchr(text, '\n'); end != nullptr; end = strchr(end + 1, '\n')) {
    ++lines;
  }
  size_t expected = 0;
  for (const Module& module : g_modules) {
    if (module.id == 0) {
      continue;
    }
    char named[160];
    char unnamed[32];
    snprintf(named, sizeof named, "%u;%s;\n", module.id, module.name);
    snprintf(unnamed, sizeof unnamed, "%u;M_%u;\n", module.id, module.id);
    bool logged = strstr(text, named) != nullptr;
    bool copyFailed = strstr(text, unnamed) != nullptr;
    // The log's copy of the name or its entry needed the refused request.
    Check(logged || FailedIn(module.registeredIn), "the module log lost a name");
    Check(!copyFailed || FailedIn(module.registeredIn), "the module log has no copy of a name");
    expected += logged || copyFailed ? 1 : 0;
  }
  Check(lines == expected, "the module log has other lines than the registered names");

  Step("dumpModules");
  AllocMemoryTable::dumpModules(g_reportText.stream, 0);
  fflush(g_reportText.stream);
  Check(StartsWith(g_reportText.text, "\nQUENDAL_HEAP_DEBUGGER; not defined\n") &&
            EndsWith(g_reportText.text,
                     "\nCurrentSum;MaxSum;AdditionalStore;MaxAddStore;\n"
                     "0;0;0;0;\n"),
        "the memory report");
}

#if defined(QUENDAL_OVER_THE_DROP_IN)

// Volatile sizes, so that the compiler keeps every call as written.
volatile size_t g_size3000 = 3000;

void CEntryCalls() {
  Step("malloc(3000)");
  errno = 0;
  void* large = malloc(g_size3000);
  Block* block = nullptr;
  if (large == nullptr) {
    Check(FailedHere() && errno == ENOMEM, "malloc failed without ENOMEM or a failed request");
  } else {
    block = Keep(large, 3000, kMalloc);
  }

  Step("calloc(1, 5000)");
  errno = 0;
  unsigned char* cleared = static_cast<unsigned char*>(calloc(1, g_size3000 + 2000));
  if (cleared == nullptr) {
    Check(FailedHere() && errno == ENOMEM, "calloc failed without ENOMEM or a failed request");
  } else {
    for (size_t k = 0; k < 5000; ++k) {
      Check(cleared[k] == 0, "calloc's block is not zeroed");
    }
    Keep(cleared, 5000, kMalloc);
  }

  if (block != nullptr) {
    Step("realloc of 3000 bytes to 6000");
    errno = 0;
    void* grown = realloc(block->pointer, 6000);
    if (grown == nullptr) {
      Check(FailedHere() && errno == ENOMEM, "realloc failed without ENOMEM or a failed request");
      Check(Holds(block->pointer, block->size, block->seed), "a failed realloc changed the block");
    } else {
      Check(Holds(grown, 3000, block->seed), "realloc lost the contents");
      Moved(block, grown, 6000);
    }
  }

  Step("malloc(16)");
  void* small = malloc(16);
  Check(small != nullptr || FailedHere(), "malloc(16) gave null without a failed request");
  if (small != nullptr) {
    Block* pooled = Keep(small, 16, kMalloc);
    Step("realloc of 16 pooled bytes to 2000");
    errno = 0;
    void* moved = realloc(small, 2000);
    if (moved == nullptr) {
      Check(FailedHere() && errno == ENOMEM, "realloc failed without ENOMEM or a failed request");
      Check(Holds(small, 16, pooled->seed), "a failed realloc changed the block");
    } else {
      Check(Holds(moved, 16, pooled->seed), "realloc lost the contents");
      Moved(pooled, moved, 2000);
    }
  }

  Step("posix_memalign(4096, 100)");
  void* aligned = &g_blocks;
  int result = posix_memalign(&aligned, 4096, 100);
  if (result != 0) {
    Check(FailedHere() && result == ENOMEM, "posix_memalign failed without ENOMEM or a request");
    Check(aligned == &g_blocks, "a failed posix_memalign wrote its result");
  } else {
    Check(reinterpret_cast<uintptr_t>(aligned) % 4096 == 0, "posix_memalign's alignment");
    Keep(aligned, 100, kMalloc);
  }

  Step("aligned_alloc(256, 512)");
  errno = 0;
  void* over = aligned_alloc(256, 512);
  if (over == nullptr) {
    Check(FailedHere() && errno == ENOMEM, "aligned_alloc failed without ENOMEM or a request");
  } else {
    Check(reinterpret_cast<uintptr_t>(over) % 256 == 0, "aligned_alloc's alignment");
    Keep(over, 512, kMalloc);
  }

  Step("new char[4000]");
  try {
    char* array = new char[g_size3000 + 1000];
    Keep(array, 4000, kNewArray);
  } catch (const std::bad_alloc&) {
    Check(FailedHere(), "new threw bad_alloc without a failed request");
  }

  Step("new (nothrow) char[5000]");
  char* array = new (std::nothrow) char[g_size3000 + 2000];
  if (array == nullptr) {
    Check(FailedHere(), "new (nothrow) gave null without a failed request");
  } else {
    Keep(array, 5000, kNewArray);
  }
}

#endif

void Release() {
  Step("checking the blocks");
  for (size_t k = 0; k < g_blockCount; ++k) {
    const Block& block = g_blocks[k];
    Check(block.pointer == nullptr || Holds(block.pointer, block.size, block.seed),
          "a block was damaged");
  }
  Step("releasing the blocks");
  while (g_blockCount > 0) {
    Block& block = g_blocks[--g_blockCount];
    if (block.pointer == nullptr) {
      continue;
    }
    switch (block.kind) {
      case kHeap:
        QDHeapFree(block.pointer);
        break;
      case kExtraHeap:
        QDExtraHeapFree(block.pointer);
        break;
      case kMalloc:
        free(block.pointer);
        break;
      case kNewArray:
        delete[] static_cast<char*>(block.pointer);
        break;
    }
  }
  Step("final statistics");
  Check(PooledBlocks(Snapshot()) == g_pooledBefore, "pooled blocks are left over");
}

// The whole script with request failAt refused (none for 0). Returns how
// many requests it made.
unsigned long RunScript(unsigned long failAt) {
  g_failAt = failAt;
  Open(g_statsText);
  Open(g_logText);
  Open(g_reportText);
#if defined(QUENDAL_OVER_THE_DROP_IN)
  g_pooledBefore = PooledBlocks(Snapshot());
#endif
  ArmAllocationFailure(failAt);
  HeapCalls();
  ModuleCalls();
  ReportCalls();
#if defined(QUENDAL_OVER_THE_DROP_IN)
  CEntryCalls();
#endif
  Release();
  return DisarmAllocationFailure();
}

void RunChild(unsigned long failAt) {
  // Slow emulators included, the script takes well under a second.
  alarm(60);
  unsigned long counted = RunScript(failAt);
  g_report->counted = counted;
  const char* failed = FailedAllocationStep();
  if (failed != nullptr) {
    strncpy(g_report->failedStep, failed, sizeof g_report->failedStep - 1);
  }
  exit(0);
}

// Runs the script in a child with request failAt refused; null when the
// child ended as it must, else what went wrong.
const char* RunInChild(unsigned long failAt, bool mustFail) {
  memset(g_report, 0, sizeof *g_report);
  pid_t child = fork();
  if (child < 0) {
    return "fork failed";
  }
  if (child == 0) {
    RunChild(failAt);
  }
  int status = 0;
  while (waitpid(child, &status, 0) < 0) {
    if (errno != EINTR) {
      return "waitpid failed";
    }
  }
  if (WIFSIGNALED(status)) {
    return WTERMSIG(status) == SIGALRM ? "the child hung" : "the child crashed";
  }
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
    return "the child exited with a failure";
  }
  if (mustFail && g_report->failedStep[0] == '\0') {
    return "no request failed";
  }
  if (!mustFail && g_report->failedStep[0] != '\0') {
    return "a request failed beyond the last one counted";
  }
  return nullptr;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 3 && strcmp(argv[1], "--at") == 0) {
    unsigned long counted = RunScript(strtoul(argv[2], nullptr, 10));
    const char* failed = FailedAllocationStep();
    printf("%lu allocations, request %s failed in \"%s\"\n", counted, argv[2],
           failed != nullptr ? failed : "(none)");
    return 0;
  }
  g_report = static_cast<ChildReport*>(mmap(nullptr, sizeof(ChildReport), PROT_READ | PROT_WRITE,
                                            MAP_SHARED | MAP_ANONYMOUS, -1, 0));
  if (g_report == MAP_FAILED) {
    WriteText(STDERR_FILENO, "mmap failed\n");
    return 2;
  }
  char line[256];
  const char* problem = RunInChild(0, false);
  if (problem != nullptr) {
    snprintf(line, sizeof line, "the script without a failure: %s\n", problem);
    WriteText(STDOUT_FILENO, line);
    return 1;
  }
  const unsigned long total = g_report->counted;
  unsigned long problems = 0;
  // One more than counted: the count must be exact.
  for (unsigned long failAt = 1; failAt <= total + 1; ++failAt) {
    problem = RunInChild(failAt, failAt <= total);
    if (problem != nullptr) {
      ++problems;
      snprintf(line, sizeof line, "request %lu (in \"%s\"): %s\n", failAt, g_report->failedStep,
               problem);
      WriteText(STDOUT_FILENO, line);
    }
  }
  snprintf(line, sizeof line, "%lu allocations, each failed in turn: %lu problems\n", total,
           problems);
  WriteText(STDOUT_FILENO, line);
  return problems == 0 ? 0 : 1;
}
