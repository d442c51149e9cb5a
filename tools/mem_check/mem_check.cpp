// quendal-mem-check FILE [EXECUTABLE]: what the library's reader does with
// every line of a ".mem" file, the pool that results, and which ".mem" file
// the library would open for an executable.
//
// The lines go through the reader's own walk and line classifier, and the
// path through its own path rules, so the tool cannot disagree with them.
//
// FILE is opened as the library opens a ".mem" file: only a regular file is
// read, and at most its first 1 MiB.
//
// Exit status: 0 when every line but comments and blank ones has an effect,
// 1 when some line is ignored, the file goes on past what the library reads
// or its CHUNKS is above the pool's limit, 2 when FILE cannot be read or is
// no regular file (or on bad usage).
#include <errno.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>

#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

#include "config/config_line.h"
#include "config/config_lines.h"
#include "config/mem_file_path.h"
#include "config/pool_values.h"
#include "heap/chunk_header.h"
#include "heap/pool_geometry.h"
#include "platform/file.h"
#include "util/max_align.h"

namespace {

namespace fs = std::filesystem;
namespace Config = Quendal::Config;

uint32_t ChunkLimit() {
  return Quendal::Heap::ChunkLimit(Config::kChunkSize);
}

const char* PlatformName() {
#if defined(__x86_64__)
  return "x86-64";
#elif defined(__i386__)
  return "i386";
#elif defined(__arm__)
  return "32-bit ARM";
#elif defined(__aarch64__)
  return "64-bit ARM";
#else
  return "this platform";
#endif
}

// Names may hold tabs and other control characters: shown escaped.
std::string Quoted(const std::string& text) {
  std::string out = "\"";
  for (unsigned char c : text) {
    if (c == '\t') {
      out += "\\t";
    } else if (c == '"' || c == '\\') {
      out += '\\';
      out += static_cast<char>(c);
    } else if (c < 0x20 || c == 0x7f) {
      char escaped[8];
      snprintf(escaped, sizeof(escaped), "\\x%02x", c);
      out += escaped;
    } else {
      out += static_cast<char>(c);
    }
  }
  return out + "\"";
}

// One read of the reader: a whole line, or a piece of a longer one.
struct Piece {
  std::string text;  // without its newline
  bool endsLine;     // the read reached the newline
  Config::ConfigLine parsed;
  std::string name;  // module lines: the name as filed
};

const char* const kPoolNumberNames[] = {"CHUNKS", "CHUNK_SIZE", "SEG_SIZE"};

std::string Ordinal(int count) {
  return count == 1 ? "1 number" : std::to_string(count) + " numbers";
}

std::string WhyIgnored(const Piece& piece) {
  const Config::ConfigLine& parsed = piece.parsed;
  bool moduleLine = parsed.kind == Config::kBadModuleLine || parsed.kind == Config::kSkippedLine;
  switch (parsed.ignoredBecause) {
    case Config::kLeadingSpace:
      return "leading space (keys and \"//\" count only in column 1)";
    case Config::kUnknownStart:
      return "starts with none of \"//\", \"MODULE_NAME\" and \"CHUNKS\"";
    case Config::kTooFewNumbers:
      return "fewer than three numbers (the pool line ends after " + Ordinal(parsed.poolNumbers) +
             ")";
    case Config::kMissingPoolKey:
      return std::string("no \"") + kPoolNumberNames[parsed.poolNumbers] + "\" after the " +
             kPoolNumberNames[parsed.poolNumbers - 1] + " number";
    case Config::kBadNumber:
      if (moduleLine) {
        return "the number after \"LIMIT\" does not parse";
      }
      return std::string("the ") + kPoolNumberNames[parsed.poolNumbers] + " number does not parse";
    case Config::kNoLimitKey:
      return "module line without \"LIMIT\"";
    case Config::kEmptyName:
      return "empty module name (nothing but spaces before the first \"LIMIT\")";
    default:
      return "no effect";
  }
}

class Checker : public Config::LineVisitor {
 public:
  void Visit(const char* line, const Config::ConfigLine& parsed) override {
    Piece piece;
    piece.text = line;
    piece.endsLine = !piece.text.empty() && piece.text.back() == '\n';
    if (piece.endsLine) {
      piece.text.pop_back();
    }
    piece.parsed = parsed;
    if (parsed.kind == Config::kModuleLimitLine) {
      piece.name.assign(parsed.name, parsed.nameLength);
    }
    // The name points into the reader's line buffer, reused by the next read.
    piece.parsed.name = nullptr;
    m_pending.push_back(piece);
    if (piece.endsLine) {
      Flush();
    }
  }

  // The physical line in progress when the reads end.
  void Flush() {
    if (m_pending.empty()) {
      return;
    }
    ++m_lineNumber;
    std::string label = "line " + std::to_string(m_lineNumber);
    if (m_pending.size() == 1) {
      Report(label, label, m_pending[0]);
    } else {
      size_t characters = 0;
      for (const Piece& piece : m_pending) {
        characters += piece.text.size();
      }
      printf("%s: cut at %d characters: the reader takes its %zu characters as %zu lines\n",
             label.c_str(), Config::kLineBufferSize - 1, characters, m_pending.size());
      size_t first = 1;
      for (size_t k = 0; k < m_pending.size(); ++k) {
        const Piece& piece = m_pending[k];
        std::string pieceName = label + ", piece " + std::to_string(k + 1);
        std::string pieceLabel = pieceName;
        if (piece.text.empty()) {
          pieceLabel += " (the line end alone)";
        } else {
          pieceLabel += " (characters " + std::to_string(first) + "-" +
                        std::to_string(first + piece.text.size() - 1) + ")";
        }
        first += piece.text.size();
        Report(pieceLabel, pieceName, piece);
      }
    }
    m_pending.clear();
  }

  int LinesRead() const { return m_lineNumber; }
  int IgnoredLines() const { return m_ignored; }
  int ModuleLimits() const { return m_modules; }
  bool HasPoolLine() const { return !m_poolLabel.empty(); }
  const std::string& PoolLabel() const { return m_poolLabel; }
  unsigned int Chunks() const { return m_chunks; }

 private:
  // label heads the report; name is how later lines refer to this one.
  void Report(const std::string& label, const std::string& name, const Piece& piece) {
    const Config::ConfigLine& parsed = piece.parsed;
    std::string verdict;
    switch (parsed.kind) {
      case Config::kModuleLimitLine: {
        ++m_modules;
        verdict =
            "module limit: name " + Quoted(piece.name) + ", limit " + std::to_string(parsed.limit);
        if (static_cast<int32_t>(parsed.limit) < 0) {
          verdict += " (the file's " + std::to_string(static_cast<int32_t>(parsed.limit)) +
                     " as a 32-bit unsigned value)";
        }
        break;
      }
      case Config::kPoolLine: {
        verdict = "pool line: CHUNKS " + std::to_string(parsed.chunks);
        if (static_cast<int32_t>(parsed.chunks) < 0) {
          verdict += " (the file's " + std::to_string(static_cast<int32_t>(parsed.chunks)) +
                     " as a 32-bit unsigned value)";
        }
        if (parsed.chunks == 0) {
          verdict += ", which the pool takes as 1 chunk";
        }
        if (parsed.chunks > ChunkLimit()) {
          verdict += ", above the pool's limit of " + std::to_string(ChunkLimit()) + " chunks";
        }
        verdict += "; CHUNK_SIZE and SEG_SIZE are parsed but not used";
        if (!m_poolLabel.empty()) {
          verdict += "; overrides " + m_poolLabel;
        }
        m_poolLabel = name;
        m_chunks = parsed.chunks;
        break;
      }
      default:
        if (parsed.ignoredBecause == Config::kComment) {
          verdict = "comment";
        } else if (parsed.ignoredBecause == Config::kBlank) {
          verdict = "blank";
        } else {
          ++m_ignored;
          verdict = "ignored: " + WhyIgnored(piece);
        }
        break;
    }
    printf("%s: %s\n", label.c_str(), verdict.c_str());
  }

  std::vector<Piece> m_pending;
  int m_lineNumber = 0;
  int m_ignored = 0;
  int m_modules = 0;
  std::string m_poolLabel;
  unsigned int m_chunks = Config::kDefaultChunks;
};

void PrintPool(const Checker& checker) {
  printf("\npool, as built for %s:\n", PlatformName());
  unsigned int chunks = checker.Chunks();
  if (checker.HasPoolLine()) {
    printf("  chunks: %u, from %s, the last complete pool line\n", chunks,
           checker.PoolLabel().c_str());
  } else {
    printf("  chunks: %u, the default (no complete pool line)\n", chunks);
  }
  // The pool takes a chunk count of 0 as 1.
  if (chunks == 0) {
    chunks = 1;
    printf("  chunks in the pool: 1 (0 becomes 1)\n");
  }
  uint32_t segmentBytes = static_cast<uint32_t>(chunks) * Config::kChunkSize;
  printf("  segment bytes requested: %u (%u x %u as a 32-bit product)\n", segmentBytes, chunks,
         Config::kChunkSize);
  if (chunks > ChunkLimit()) {
    printf("  finding: CHUNKS is above the pool's limit of %u chunks: ", ChunkLimit());
    if (segmentBytes >= 0x80000000u + Config::kChunkSize) {
      printf(
          "a segment of 2 GiB or more holds its first chunk only, or none when the C library "
          "refuses it\n");
    } else if (segmentBytes >= 0x80000000u) {
      printf(
          "a segment of 2 GiB holds its first chunk only, or %u chunks when it is not "
          "chunk-aligned\n",
          ChunkLimit() - 1);
    } else {
      printf("the product wrapped, and the pool has %u chunks at most\n",
             segmentBytes / Config::kChunkSize);
    }
  }
  size_t header = Quendal::Heap::kChunkHeaderSize;
  printf("  chunk: %u bytes, header %zu bytes (padded to the %zu-byte fundamental alignment)\n",
         Config::kChunkSize, header, Quendal::kMaxAlign);
  printf("  blocks per chunk:");
  const unsigned int kClasses[] = {8, 16, 64, 256, 1024};
  for (size_t k = 0; k < sizeof(kClasses) / sizeof(kClasses[0]); ++k) {
    printf("%s %u bytes: %zu", k == 0 ? "" : ",", kClasses[k],
           (Config::kChunkSize - header) / kClasses[k]);
  }
  printf("\n  largest pooled size: %u bytes (larger requests go to the C library's allocator)\n",
         Config::kLargestPooledSize);
}

// The executable's full path, as the running program sees its own: absolute,
// and with symbolic links resolved when it exists.
fs::path FullPath(const std::string& given) {
  std::error_code error;
  fs::path full = fs::absolute(given, error);
  if (error) {
    full = given;
  }
  fs::path resolved = fs::canonical(full, error);
  return error ? full : resolved;
}

void PrintExecutable(const std::string& file, const std::string& executable) {
  std::string full = FullPath(executable).string();
  printf("\nexecutable: %s\n", executable.c_str());
  if (full != executable) {
    printf("  full path: %s\n", full.c_str());
  }
  char path[Config::kPathBufferSize];
  path[0] = '\0';
  int cut = Config::CopyPathWithoutExtension(full.c_str(), path, Config::kPathBufferSize);
  if (cut < 0) {
    printf(
        "  .mem path: none: the executable's path (%zu characters) does not fit the %d-byte "
        "buffer, so the library reads no file\n",
        full.size(), Config::kPathBufferSize);
    printf("  FILE is that path: no\n");
    return;
  }
  std::string memPath = std::string(path) + ".mem";
  if (!Config::AppendMemExtension(path, cut)) {
    printf(
        "  .mem path: none: %s (%zu characters) does not fit the %d-byte buffer, so the "
        "library reads no file\n",
        memPath.c_str(), memPath.size(), Config::kPathBufferSize);
    printf("  FILE is that path: no\n");
    return;
  }
  printf("  .mem path: %s (%zu characters, fits the %d-byte buffer)\n", path, strlen(path),
         Config::kPathBufferSize);
  size_t dot = full.rfind('.');
  if (dot != std::string::npos && full.find('/', dot) != std::string::npos) {
    printf("  note: the last \".\" of the whole path is in a directory name\n");
  }
  std::error_code error;
  bool same = fs::equivalent(file, path, error);
  if (error) {
    same = FullPath(file).string() == path;
  }
  printf("  FILE is that path: %s\n", same ? "yes" : "no");
}

// What stands at path when it exists and is no regular file, as "a
// directory"; empty otherwise.
std::string FileKind(const fs::path& path) {
  std::error_code error;
  switch (fs::status(path, error).type()) {
    case fs::file_type::directory:
      return "a directory";
    case fs::file_type::fifo:
      return "a FIFO";
    case fs::file_type::character:
      return "a character device";
    case fs::file_type::block:
      return "a block device";
    case fs::file_type::socket:
      return "a socket";
    default:
      return "";
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2 || argc > 3) {
    fprintf(stderr, "usage: quendal-mem-check FILE [EXECUTABLE]\n");
    return 2;
  }
  const char* file = argv[1];
  FILE* stream = Quendal::Platform::OpenRegularFile(file);
  if (stream == nullptr) {
    int openError = errno;
    std::string kind = FileKind(file);
    if (kind.empty()) {
      fprintf(stderr, "quendal-mem-check: cannot open %s: %s\n", file, strerror(openError));
    } else {
      printf("%s: %s, not a regular file: the library reads no file and keeps the defaults\n", file,
             kind.c_str());
    }
    return 2;
  }
  printf("%s:\n", file);
  Checker checker;
  Config::WalkEnd end = Config::WalkConfigLines(stream, checker);
  bool readError = Quendal::Platform::FileError(stream) != 0;
  Quendal::Platform::CloseFile(stream);
  checker.Flush();
  if (readError) {
    printf("read error after line %d: the reader stops and keeps what it read\n",
           checker.LinesRead());
  } else if (end == Config::kStoppedAtBound) {
    printf("the reader takes only the first %ld bytes: it stops after line %d\n",
           Config::kMaxFileBytes, checker.LinesRead());
  } else if (end == Config::kStoppedAtEnd || end == Config::kNoMoreLines) {
    printf("end of the file after line %d\n", checker.LinesRead());
  }
  printf("%d module limit%s filed, %d line%s ignored\n", checker.ModuleLimits(),
         checker.ModuleLimits() == 1 ? "" : "s", checker.IgnoredLines(),
         checker.IgnoredLines() == 1 ? "" : "s");
  PrintPool(checker);
  if (argc == 3) {
    PrintExecutable(file, argv[2]);
  }
  if (readError) {
    return 2;
  }
  unsigned int chunks = checker.Chunks();
  return checker.IgnoredLines() == 0 && end != Config::kStoppedAtBound && chunks <= ChunkLimit()
             ? 0
             : 1;
}
