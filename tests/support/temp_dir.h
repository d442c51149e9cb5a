// A directory of its own for one test process, removed with everything in it
// when the object goes. Unique per process, so tests may run in parallel.
#ifndef QUENDAL_TESTS_SUPPORT_TEMP_DIR_H
#define QUENDAL_TESTS_SUPPORT_TEMP_DIR_H

#include <filesystem>
#include <string>

namespace QuendalTest {

class TempDir {
 public:
  // Creates "<system temp dir>/quendal-<pid>-XXXXXX"; fails the test run
  // (abort) if that is impossible, since nothing after it could be trusted.
  TempDir();
  ~TempDir();

  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::filesystem::path& path() const { return m_path; }

 private:
  std::filesystem::path m_path;
};

// Writes contents to path, replacing the file; creates missing directories.
void WriteFile(const std::filesystem::path& path, const std::string& contents);

// Copies an executable to destination (directories created) and keeps it
// executable.
void CopyExecutable(const std::filesystem::path& source, const std::filesystem::path& destination);

}  // namespace QuendalTest

#endif
