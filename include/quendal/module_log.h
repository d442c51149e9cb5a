// The module-name log: a table from module id to a 64-character copy of the
// module's name, filled through the module registry's new-id callback, for
// reports. Switch it on by creating one QDLog::SetClassIdCb object before the
// first module name is looked up; names looked up earlier never appear.
//
//   static QDLog::SetClassIdCb moduleLog;  // before any ModuleId("...")
//   ...
//   QDLog::dump_map_to_file(fopen("modules.txt", "w"));  // "2;net;\n1;audio;\n"
#ifndef QUENDAL_MODULE_LOG_H
#define QUENDAL_MODULE_LOG_H

#include <stdio.h>

#include "quendal/containers.h"
#include "quendal/export.h"

// The log's table: module id to the log's name buffer (64 bytes, new[]) or
// null. The map neither copies nor frees the buffers.
typedef PIMap<unsigned short, unsigned short, const char*, const char*, NullLocking,
              PIMapDefaultAlloc>
    IDModuleMap;

// The log's table, built empty on first call. Written only by
// QDLog::OnNewModule; not locked, so readers must run at quiet moments.
//
// The table ends when the library is unloaded or the process ends, before
// the exit handlers registered, and the destructors of globals built, ahead
// of its creation (the module registry may still live then). Its entries and
// buckets are freed (the names are not), but the object stays: the same
// table, empty, is returned from then on. After its end the log files
// nothing and reads nothing: OnNewModule ignores new names,
// SetClassIdCb's constructor and destructor leave the table alone, and the
// copies (dump_map_to_file, AllocMemoryTable::getModuleIdMapping,
// QDgetModuleIdMapping, the memory report) answer as for an empty log.
// Whatever a caller writes into the table after its end is never freed.
QD_EXPORT IDModuleMap& getIDModuleMap();

namespace QDLog {

// Switches the module-name log on while it lives. Create exactly one, before
// any module name is looked up (typically as a static object): a second one
// discards the table's buckets, so earlier entries vanish from every copy
// while the entry count keeps counting them.
class QD_EXPORT SetClassIdCb {
 public:
  // Makes OnNewModule the registry's new-id callback and gives the table 41
  // empty buckets (none once the table has ended, see getIDModuleMap).
  SetClassIdCb();
  // Frees every name buffer and sets its entry to null; the entries and the
  // count stay, and copies then show such a module as "M_<id>". The callback
  // stays in place: names looked up later are still logged. Does nothing
  // once the table has ended.
  virtual ~SetClassIdCb();

 private:
  SetClassIdCb(const SetClassIdCb&);
  SetClassIdCb& operator=(const SetClassIdCb&);
};

// The new-id callback: files a copy of name under id. A name of up to 63
// characters is copied; a longer or null name is filed as "_<id>". A repeated
// id (after the registry's wrap-around) gets the new text; the old buffer is
// not freed. When no buffer can be obtained the entry holds null. Once the
// table has ended (see getIDModuleMap) nothing is filed and no buffer is
// taken. Runs under the registry's lock; does not call back into the
// registry.
QD_EXPORT void OnNewModule(const char* name, unsigned short id) QD_NOTHROW;

// Sets moduleId and subModuleId to those of the calling thread's current
// scope, or both to 0 when the thread has no scope.
QD_EXPORT void ReadScopeId(unsigned short& moduleId, unsigned short& subModuleId) QD_NOTHROW;

// Writes one line "<id>;<name>;\n" per logged module, in the table's walk
// order (by bucket, newest first within a bucket), at most 257 lines, then
// flushes and closes stream: do not use or close it afterwards. A null
// stream is ignored. After the table's end no line is written; the stream is
// still flushed and closed.
QD_EXPORT void dump_map_to_file(FILE* stream) QD_NOTHROW;

}  // namespace QDLog

#endif
