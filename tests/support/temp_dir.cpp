#include "support/temp_dir.h"

#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <fstream>
#include <system_error>
#include <vector>

namespace QuendalTest {

namespace fs = std::filesystem;

TempDir::TempDir() {
  std::string pattern = (fs::temp_directory_path() /
                         ("quendal-" + std::to_string(static_cast<long>(getpid())) + "-XXXXXX"))
                            .string();
  std::vector<char> buffer(pattern.begin(), pattern.end());
  buffer.push_back('\0');
  if (mkdtemp(buffer.data()) == nullptr) {
    perror("mkdtemp");
    abort();
  }
  m_path = buffer.data();
}

TempDir::~TempDir() {
  std::error_code ignored;
  fs::remove_all(m_path, ignored);
}

void WriteFile(const fs::path& path, const std::string& contents) {
  fs::create_directories(path.parent_path());
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << contents;
}

void CopyExecutable(const fs::path& source, const fs::path& destination) {
  fs::create_directories(destination.parent_path());
  fs::copy_file(source, destination, fs::copy_options::overwrite_existing);
  fs::permissions(destination, fs::perms::owner_all, fs::perm_options::add);
}

}  // namespace QuendalTest
