// Fuzzes the memory configuration reader: the input is the whole ".mem"
// file. ConfigFileReader::ReadConfigValues must read it without a sanitizer
// report, and its chunk count and the module limits it files, piece by
// piece in file order, must equal those of the reference reader.
#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include <map>
#include <set>
#include <string>
#include <vector>

#include "fuzz/fuzz_failure.h"
#include "fuzz/reference_config_reader.h"
#include "quendal/config_file_reader.h"
#include "support/scripted_platform.h"

namespace {

using QuendalFuzz::Fail;
using QuendalFuzz::Format;

namespace ScriptedPlatform = QuendalTest::ScriptedPlatform;

typedef std::map<char*, unsigned long> LimitMap;

std::string Printable(const std::string& text) {
  std::string shown;
  for (unsigned char c : text) {
    if (c >= 0x20 && c < 0x7f && c != '\\') {
      shown += static_cast<char>(c);
    } else {
      shown += Format("\\x%02x", c);
    }
  }
  return shown;
}

// The map is ordered by address, so the order of filing is taken from the
// reads: whatever is new in the map when piece n has been read was filed
// by piece n - 1.
class FilingOrder {
 public:
  void PieceRead(int piece) { Collect(piece - 1); }
  void Finish(int lastPiece) { Collect(lastPiece); }

  // Keys filed by each piece (1-based), in the order of the pieces.
  const std::map<int, std::vector<char*> >& ByPiece() const { return m_byPiece; }

 private:
  void Collect(int piece) {
    if (getModuleLimits().size() == m_seen.size()) {
      return;
    }
    for (const LimitMap::value_type& entry : getModuleLimits()) {
      if (m_seen.insert(entry.first).second) {
        m_byPiece[piece].push_back(entry.first);
      }
    }
  }

  std::set<char*> m_seen;
  std::map<int, std::vector<char*> > m_byPiece;
};

void Compare(const std::string& file, unsigned int chunks, unsigned int chunkSize,
             unsigned int segSize, int result, int piecesRead, const FilingOrder& order) {
  QuendalFuzz::ReferenceConfig expected = QuendalFuzz::ReadReferenceConfig(file);
  if (result != 0 || chunkSize != 2048 || segSize != 1024) {
    Fail(Format("ReadConfigValues returned %d with chunkSize %u and segSize %u", result, chunkSize,
                segSize));
  }
  if (chunks != expected.chunks) {
    Fail(Format("chunks is %u, the reference reads %u", chunks, expected.chunks));
  }
  if (piecesRead != static_cast<int>(expected.pieces.size())) {
    Fail(Format("%d pieces read, the reference reads %zu", piecesRead, expected.pieces.size()));
  }
  size_t filed = 0;
  for (const std::pair<const int, std::vector<char*> >& entry : order.ByPiece()) {
    filed += entry.second.size();
  }
  if (filed != getModuleLimits().size() || filed != expected.limits.size()) {
    Fail(Format("%zu limits filed (map of %zu), the reference files %zu", filed,
                getModuleLimits().size(), expected.limits.size()));
  }
  size_t next = 0;
  for (size_t piece = 0; piece < expected.pieces.size(); ++piece) {
    std::map<int, std::vector<char*> >::const_iterator filedHere =
        order.ByPiece().find(static_cast<int>(piece) + 1);
    size_t count = filedHere == order.ByPiece().end() ? 0 : filedHere->second.size();
    size_t expectedCount = expected.filesLimit[piece] ? 1 : 0;
    if (count != expectedCount) {
      Fail(Format("piece %zu \"%s\" filed %zu limits, the reference %zu", piece + 1,
                  Printable(expected.pieces[piece]).c_str(), count, expectedCount));
    }
    if (count == 0) {
      continue;
    }
    char* key = filedHere->second[0];
    const QuendalFuzz::ReferenceLimit& limit = expected.limits[next++];
    // The name buffer is 128 bytes with its last byte zeroed.
    if (key[127] != '\0' || strlen(key) > 127) {
      Fail(Format("piece %zu: the name buffer is not terminated", piece + 1));
    }
    unsigned long stored = getModuleLimits()[key];
    if (key != limit.name || stored != limit.limit) {
      Fail(Format("piece %zu \"%s\" filed \"%s\" -> %lu, the reference \"%s\" -> %lu", piece + 1,
                  Printable(expected.pieces[piece]).c_str(), Printable(key).c_str(), stored,
                  Printable(limit.name).c_str(), limit.limit));
    }
    unsigned long found = 0;
    if (!ConfigFileReader::GetConfigModuleLimit(key, found) || found != stored) {
      Fail(Format("piece %zu: the stored key does not find its limit", piece + 1));
    }
    // Keys compare by address: the same text elsewhere finds nothing.
    std::string copy(key);
    found = 12345;
    if (ConfigFileReader::GetConfigModuleLimit(copy.c_str(), found) || found != 12345) {
      Fail(Format("piece %zu: a copy of the name found a limit", piece + 1));
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  QuendalFuzz::BeginTrace();
  std::string file(reinterpret_cast<const char*>(data), size);
  QuendalFuzz::Trace(Format("a file of %zu bytes (the saved input)", size));

  ScriptedPlatform::Reset();
  ScriptedPlatform::SetExecutablePath("/opt/fuzz.d/reader.bin");
  ScriptedPlatform::SetFileContents(file);
  FilingOrder order;
  int piecesRead = 0;
  ScriptedPlatform::SetLineCallback([&](int piece) {
    piecesRead = piece;
    order.PieceRead(piece);
  });

  unsigned int chunks = 1;
  unsigned int chunkSize = 2;
  unsigned int segSize = 3;
  int result = ConfigFileReader::ReadConfigValues(chunks, chunkSize, segSize);
  order.Finish(piecesRead);

  if (ScriptedPlatform::OpenedPaths().size() != 1 ||
      ScriptedPlatform::OpenedPaths()[0] != "/opt/fuzz.d/reader.mem") {
    Fail("the reader did not open /opt/fuzz.d/reader.mem once");
  }
  Compare(file, chunks, chunkSize, segSize, result, piecesRead, order);

  // The next input starts from an empty map: the names are freed and the
  // entries with their dangling keys dropped.
  ConfigFileReader::DeInit();
  getModuleLimits().clear();
  ScriptedPlatform::Reset();
  return 0;
}
