// Runs a fuzzer's checks without libFuzzer: every file of the directories
// given, then seeded random inputs, so the checks also run under CTest on
// every configuration (cross builds under their emulator included). A failed
// check aborts with the input's steps printed.
//
//   quendal_pool_replay [--random N] [--seed S] DIRECTORY...
#include <dirent.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

size_t ReplayDirectory(const std::string& directory) {
  DIR* listing = opendir(directory.c_str());
  if (listing == nullptr) {
    fprintf(stderr, "cannot read %s\n", directory.c_str());
    exit(2);
  }
  std::vector<std::string> names;
  while (dirent* entry = readdir(listing)) {
    if (entry->d_name[0] != '.') {
      names.push_back(entry->d_name);
    }
  }
  closedir(listing);
  std::sort(names.begin(), names.end());
  for (const std::string& name : names) {
    std::ifstream file(directory + "/" + name, std::ios::binary);
    std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(file)),
                               std::istreambuf_iterator<char>());
    LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
  }
  return names.size();
}

}  // namespace

int main(int argc, char** argv) {
  unsigned long randomInputs = 0;
  unsigned long seed = 1;
  size_t files = 0;
  for (int k = 1; k < argc; ++k) {
    if (strcmp(argv[k], "--random") == 0 && k + 1 < argc) {
      randomInputs = strtoul(argv[++k], nullptr, 10);
    } else if (strcmp(argv[k], "--seed") == 0 && k + 1 < argc) {
      seed = strtoul(argv[++k], nullptr, 10);
    } else {
      files += ReplayDirectory(argv[k]);
    }
  }
  std::mt19937 random(static_cast<uint32_t>(seed));
  std::vector<uint8_t> bytes;
  for (unsigned long k = 0; k < randomInputs; ++k) {
    bytes.resize(random() % 1024);
    for (uint8_t& byte : bytes) {
      byte = static_cast<uint8_t>(random());
    }
    LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
  }
  printf("replayed %zu inputs from files and %lu random inputs\n", files, randomInputs);
  return files + randomInputs > 0 ? 0 : 1;
}
