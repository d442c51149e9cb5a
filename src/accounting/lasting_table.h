// The process-wide accounting tables' lifetime: each stays a live object for
// callers that reach it after its end at exit or unload.
#ifndef QUENDAL_ACCOUNTING_LASTING_TABLE_H
#define QUENDAL_ACCOUNTING_LASTING_TABLE_H

#include <stdint.h>

#include <new>

namespace Quendal {
namespace Accounting {

// Static storage for one table, aligned for any member a table has.
template <class Table>
union TableStorage {
  char bytes[sizeof(Table)];
  void* pointer;
  uint64_t wide;
  long double real;
};

// A map built in static storage by a function-local static of this type. The
// static's end at exit or unload is the map's end: ended is set, then the
// map's buckets and nodes are freed as its destructor would free them. The
// map itself is not destroyed, so a caller that comes later finds a live,
// empty map instead of a destroyed one.
template <class Map>
class MapLifetime {
 public:
  MapLifetime(TableStorage<Map>& storage, bool& ended)
      : m_map(new (storage.bytes) Map), m_ended(ended) {}
  ~MapLifetime() {
    m_ended = true;
    m_map->RemoveAll();
  }

  Map& GetMap() const { return *m_map; }

 private:
  MapLifetime(const MapLifetime&);
  MapLifetime& operator=(const MapLifetime&);

  Map* m_map;
  bool& m_ended;
};

// True once the module-name log's table has ended.
bool IdModuleMapEnded();
// True once the accounting table has ended.
bool ModuleMemMapEnded();

}  // namespace Accounting
}  // namespace Quendal

#endif
