// QUENDAL_MALLOC_STATS: the drop-in writes the heap statistics when the
// process ends, to standard error ("stderr") or to the file the variable
// names, "%p" in it replaced by the process id so that every process of a
// program that starts others writes its own. Read when the drop-in is
// loaded; written by its destructor, after the program's exit handlers and
// static destructors of the libraries loaded after it.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "platform/own_work.h"
#include "quendal/heap_stats.h"

namespace {

const char kVariable[] = "QUENDAL_MALLOC_STATS";

// The variable's value as it was at load time; empty when unset or too long.
char statsTarget[4096];

// Expands "%p" of pattern into path; false when the result does not fit.
bool ExpandPath(const char* pattern, char* path, size_t capacity) {
  size_t length = 0;
  for (const char* c = pattern; *c != '\0'; ++c) {
    char piece[32];
    if (c[0] == '%' && c[1] == 'p') {
      snprintf(piece, sizeof(piece), "%ld", static_cast<long>(getpid()));
      ++c;
    } else {
      piece[0] = *c;
      piece[1] = '\0';
    }
    size_t pieceLength = strlen(piece);
    if (length + pieceLength >= capacity) {
      return false;
    }
    memcpy(path + length, piece, pieceLength + 1);
    length += pieceLength;
  }
  path[length] = '\0';
  return true;
}

__attribute__((constructor)) void ReadStatsRequest() {
  const char* value = getenv(kVariable);
  if (value != 0 && strlen(value) < sizeof(statsTarget)) {
    strcpy(statsTarget, value);
  }
}

__attribute__((destructor)) void WriteStatsAtExit() {
  if (statsTarget[0] == '\0') {
    return;
  }
  // The stream is the drop-in's own, not the program's.
  Quendal::Platform::OwnWorkScope ownWork;
  if (strcmp(statsTarget, "stderr") == 0) {
    QDHeapWriteStats(stderr);
    return;
  }
  char path[sizeof(statsTarget) + 32];
  if (!ExpandPath(statsTarget, path, sizeof(path))) {
    return;
  }
  FILE* stream = fopen(path, "w");
  if (stream == 0) {
    return;
  }
  QDHeapWriteStats(stream);
  fclose(stream);
}

}  // namespace
