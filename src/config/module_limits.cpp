#include "config/module_limits.h"

#include <stdlib.h>

#include <map>
#include <new>
#include <set>

#include "quendal/config_file_reader.h"

namespace {

typedef std::map<char*, unsigned long> LimitMap;
typedef std::set<char*> NameSet;

// Set when the table's exit-time destructor has run. A late heap call during
// exit re-initialises the heap and reads the file again; it must not reach
// the destroyed containers.
bool g_tableDestroyed = false;

struct ModuleLimitTable {
  LimitMap limits;
  // The name buffers owned and not yet freed. The map keeps its keys after
  // DeInit, so this set is what makes a second DeInit free nothing twice.
  NameSet liveNames;

  ~ModuleLimitTable() { g_tableDestroyed = true; }
};

ModuleLimitTable& Table() {
  static ModuleLimitTable table;
  return table;
}

}  // namespace

std::map<char*, unsigned long>& getModuleLimits() {
  return Table().limits;
}

namespace Quendal {
namespace Config {

bool FileModuleLimit(char* name, unsigned long limit) {
  if (g_tableDestroyed) {
    return false;
  }
  ModuleLimitTable& table = Table();
  try {
    table.liveNames.insert(name);
  } catch (const std::bad_alloc&) {
    return false;
  }
  try {
    // Keys are addresses, so a fresh buffer always makes a new entry. It can
    // only meet a key whose buffer DeInit has freed; that entry keeps its
    // limit and names this buffer again, which stays owned.
    table.limits.insert(LimitMap::value_type(name, limit));
  } catch (const std::bad_alloc&) {
    table.liveNames.erase(name);
    return false;
  }
  return true;
}

}  // namespace Config
}  // namespace Quendal

namespace ConfigFileReader {

bool GetConfigModuleLimit(const char* name, unsigned long& limit) QD_NOTHROW {
  if (name == 0 || g_tableDestroyed) {
    return false;
  }
  const LimitMap& limits = getModuleLimits();
  char* key = const_cast<char*>(name);
  LimitMap::const_iterator entry = limits.lower_bound(key);
  if (entry == limits.end() || entry->first != key) {
    return false;
  }
  limit = entry->second;
  return true;
}

void DeInit() QD_NOTHROW {
  MT_dump_allocted_memory();
  if (g_tableDestroyed) {
    return;
  }
  NameSet& liveNames = Table().liveNames;
  for (NameSet::iterator name = liveNames.begin(); name != liveNames.end(); ++name) {
    free(*name);
  }
  liveNames.clear();
}

}  // namespace ConfigFileReader
