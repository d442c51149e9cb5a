// Resident anonymous memory of the running process (RssAnon of
// /proc/self/status): what allocators take from the system. Pages of code
// and files that a first call faults in are left out.
#ifndef QUENDAL_BENCH_RSS_H
#define QUENDAL_BENCH_RSS_H

#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

namespace QuendalBench {

// Resident anonymous bytes, or 0 when /proc cannot be read. Reads with
// plain system calls: stdio would allocate through the heap being measured.
inline long ResidentBytes() {
  int file = open("/proc/self/status", O_RDONLY);
  if (file < 0) {
    return 0;
  }
  char text[8192];
  ssize_t length = read(file, text, sizeof text - 1);
  close(file);
  if (length <= 0) {
    return 0;
  }
  text[length] = '\0';
  const char* field = strstr(text, "RssAnon:");
  if (field == nullptr) {
    return 0;
  }
  return strtol(field + strlen("RssAnon:"), nullptr, 10) * 1024;
}

}  // namespace QuendalBench

#endif
