#include "fuzz/fuzz_failure.h"

#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>

#include <vector>

namespace QuendalFuzz {

namespace {

std::vector<std::string>& Steps() {
  static std::vector<std::string> steps;
  return steps;
}

}  // namespace

void BeginTrace() {
  Steps().clear();
}

void Trace(const std::string& step) {
  Steps().push_back(step);
}

void Fail(const std::string& message) {
  fprintf(stderr, "\n==== reference mismatch after %zu steps:\n", Steps().size());
  for (size_t i = 0; i < Steps().size(); ++i) {
    fprintf(stderr, "  %4zu: %s\n", i + 1, Steps()[i].c_str());
  }
  fprintf(stderr, "==== %s\n", message.c_str());
  fflush(stderr);
  abort();
}

std::string Format(const char* format, ...) {
  char text[512];
  va_list arguments;
  va_start(arguments, format);
  vsnprintf(text, sizeof(text), format, arguments);
  va_end(arguments);
  return text;
}

}  // namespace QuendalFuzz
