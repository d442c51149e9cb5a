// A library a test loads and unloads while the drop-in serves the process:
// its statics allocate when it is loaded and release when it is unloaded,
// and it hands out blocks that outlive it.
#include <map>
#include <string>
#include <vector>

namespace {

std::map<std::string, std::vector<std::string> > table;

struct Filler {
  Filler() {
    for (int i = 0; i < 200; ++i) {
      table[std::string(30, static_cast<char>('a' + i % 26)) + std::to_string(i)].assign(
          5, std::string(40, 'x'));
    }
  }
};

Filler filler;

}  // namespace

extern "C" __attribute__((visibility("default"))) std::string* MakeText(int length) {
  return new std::string(static_cast<size_t>(length), 'u');
}

extern "C" __attribute__((visibility("default"))) size_t TableSize() {
  return table.size();
}
