// A process that gets its memory from libQuendal: player.bin reads player.mem
// from its own directory on the first heap call, then allocates inside module
// scopes and prints what it did, the names the module-name log kept, the
// memory report and the heap's statistics.
#include <quendal/heap_stats.h>
#include <quendal/quendal.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <map>

using Quendal::Classification::ModuleId;
using Quendal::Classification::ScopedId;

namespace {

// Switches the module-name log on before any module name is looked up: names
// looked up earlier would never reach it.
QDLog::SetClassIdCb moduleNameLog;

// The first heap call has read player.mem already; reading it again would
// file its limits a second time.
void PrintConfiguration() {
  std::printf("player.mem module limits:\n");
  std::map<char*, unsigned long>& limits = getModuleLimits();
  for (std::map<char*, unsigned long>::iterator it = limits.begin(); it != limits.end(); ++it) {
    std::printf("  module limit: \"%s\" -> %lu\n", it->first, it->second);
  }
}

void DecodeAudio() {
  ScopedId scope(ModuleId("audio"), 1, __FILE__, __LINE__);
  void* frame = QDHeapAlloc(40);
  std::memset(frame, 0, 40);
  void* grown = QDHeapReAlloc(frame, 200);
  std::printf("audio (module %u, sub-module %u): 40-byte frame %p grown to 200 bytes at %p\n",
              ScopedId::GetCurrent()->GetModuleId(), ScopedId::GetCurrent()->GetSubModuleId(),
              frame, grown);
  QDHeapFree(grown);
}

void ReceivePacket() {
  ScopedId scope(ModuleId("net stack"), 7, __FILE__, __LINE__);
  void* small = QDHeapAlloc(16);
  void* large = QDHeapAlloc(4096);
  std::printf("net stack (module %u): 16 bytes at %p from the pool, 4096 bytes at %p from malloc\n",
              ScopedId::GetCurrent()->GetModuleId(), small, large);
  QDHeapFree(large);
  QDHeapFree(small);
}

void PrintModuleNames() {
  std::printf("modules known to the module-name log (id;name;):\n");
  std::fflush(stdout);
  // dump_map_to_file closes the stream it is given: hand it a copy of stdout.
  QDLog::dump_map_to_file(fdopen(dup(fileno(stdout)), "w"));

  unsigned short ids[256];
  char names[256][64];
  const unsigned long count = QDgetModuleIdMapping(ids, names);
  if (count != QDgetModuleIdMappingEmptyTable) {
    std::printf("the same as a flat copy: %lu modules, the first is %u \"%s\"\n", count, ids[0],
                names[0]);
  }
}

}  // namespace

int main() {
  void* first = QDHeapAlloc(8);
  std::printf("first heap call initialised the library; 8 bytes at %p\n", first);
  PrintConfiguration();
  DecodeAudio();
  ReceivePacket();
  std::printf("module 1 is \"%s\", module 2 is \"%s\"\n", ScopedId::LookUpName(1),
              ScopedId::LookUpName(2));
  std::printf("module \"video\" gets id %u\n", Quendal::Classification::LookUpModuleId("video"));
  PrintModuleNames();
  // This build records no allocations: the report shows the facility flags,
  // no rows and four zero sums.
  AllocMemoryTable::dumpModules(stdout, 0);
  // What the pool holds with the first block still out, its peak, and the
  // CHUNKS that would have been enough for this run (docs/statistics.md).
  std::fflush(stdout);
  QDHeapWriteStats(stdout);
  QDHeapFree(first);
  return 0;
}
