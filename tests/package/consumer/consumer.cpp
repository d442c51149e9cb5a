// Uses the installed headers and library: the C entries and a module scope.
#include <quendal/quendal.h>

#include <cstdio>
#include <cstring>

int main() {
  Quendal::Classification::ScopedId scope(Quendal::Classification::ModuleId("consumer"), 1,
                                          __FILE__, __LINE__);
  char* text = static_cast<char*>(QDHeapAlloc(32));
  if (text == 0) {
    return 1;
  }
  std::strcpy(text, "installed libQuendal works");
  std::printf("%s (module %u)\n", text, scope.GetModuleId());
  QDHeapFree(text);
  return 0;
}
