// The memory configuration file: a plain-text ".mem" file beside the
// executable (its path up to the last "." plus ".mem") that sets the pool's
// chunk count and gives per-module memory limits.
//
//   // pool setup for the player
//   CHUNKS 800  CHUNK_SIZE 2048 SEG_SIZE 1024
//   MODULE_NAME audio LIMIT 4096
//
// Lines of 128 characters or more are read as several lines. See README.md
// for the full line rules.
#ifndef QUENDAL_CONFIG_FILE_READER_H
#define QUENDAL_CONFIG_FILE_READER_H

#include <map>

#include "quendal/export.h"

namespace ConfigFileReader {

// Sets chunks, chunkSize and segSize to 650, 2048 and 1024, then reads the
// executable's ".mem" file: the CHUNKS number of the last pool line whose
// three numbers parse replaces chunks (chunkSize and segSize always stay
// 2048 and 1024), and every valid MODULE_NAME line adds an entry to
// getModuleLimits(). A missing file, an executable path that cannot be
// obtained and a ".mem" path of 256 bytes or more all leave the defaults and
// the map as they were. Returns 0 in every
// case. Runs once per heap initialisation; takes no lock.
QD_EXPORT int ReadConfigValues(unsigned int& chunks, unsigned int& chunkSize,
                               unsigned int& segSize) QD_NOTHROW;

// Writes the full path of the running executable into buffer, cut at the last
// "." of the whole path (directories included), and returns its length.
// Returns -1 and leaves buffer as it was when the path cannot be obtained,
// and also when the path with its terminator does not fit in length bytes
// (a cut path would name another file).
QD_EXPORT int GetExecutablePathWithoutExtension(char* buffer, int length) QD_NOTHROW;

// Looks up the limit filed under the key pointer name. Keys are compared by
// address, so only the very pointer the reader stored (a key of
// getModuleLimits()) is found; any other string, even with the same text,
// gives false. Returns true and sets limit when found; otherwise false with
// limit untouched. A null name gives false.
QD_EXPORT bool GetConfigModuleLimit(const char* name, unsigned long& limit) QD_NOTHROW;

// Calls MT_dump_allocted_memory(), then frees every name buffer of
// getModuleLimits(). The entries stay in the map with dangling keys, which
// lookups (by address) never dereference. Nothing in the library calls it.
QD_EXPORT void DeInit() QD_NOTHROW;

}  // namespace ConfigFileReader

// The module-limit map: module name buffer (malloc'ed, 128 bytes, owned by
// the reader and freed only by ConfigFileReader::DeInit) to its limit. Keys
// are ordered by address, not by text, so a repeated name makes a second
// entry. Limits keep their 32-bit meaning: "LIMIT -1" is 4294967295 on every
// target. Built on first use, destroyed when the library is unloaded.
QD_EXPORT std::map<char*, unsigned long>& getModuleLimits();

// The end-of-run dump hook of the memory report; does nothing in this build.
QD_EXPORT void MT_dump_allocted_memory();

#endif
