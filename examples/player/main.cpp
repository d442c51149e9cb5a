// A process that gets its memory from libQuendal: player.bin reads player.mem
// from its own directory on the first heap call, then allocates inside module
// scopes and prints what it did.
#include <quendal/quendal.h>

#include <cstdio>
#include <cstring>
#include <map>

using Quendal::Classification::ModuleId;
using Quendal::Classification::ScopedId;

namespace {

void PrintConfiguration() {
  unsigned int chunks = 0;
  unsigned int chunkSize = 0;
  unsigned int segSize = 0;
  ConfigFileReader::ReadConfigValues(chunks, chunkSize, segSize);
  std::printf("player.mem: CHUNKS %u, CHUNK_SIZE %u, SEG_SIZE %u\n", chunks, chunkSize, segSize);
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

}  // namespace

int main() {
  void* first = QDHeapAlloc(8);
  std::printf("first heap call initialised the library; 8 bytes at %p\n", first);
  PrintConfiguration();
  DecodeAudio();
  ReceivePacket();
  std::printf("module 1 is \"%s\", module 2 is \"%s\"\n", ScopedId::LookUpName(1),
              ScopedId::LookUpName(2));
  QDHeapFree(first);
  return 0;
}
