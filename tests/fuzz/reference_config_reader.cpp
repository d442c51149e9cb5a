#include "fuzz/reference_config_reader.h"

#include <stdint.h>

#include <limits>

namespace QuendalFuzz {

namespace {

// fgets with a 128-byte buffer: at most 127 bytes, up to and including a
// newline.
const size_t kPieceLength = 127;

// Only the file's first MiB is read: a piece that ends beyond it is read but
// not used, and nothing after it is read.
const size_t kReadBound = 1 << 20;

bool IsSpace(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
}

bool IsDigit(char c) {
  return c >= '0' && c <= '9';
}

// "%d": white space, an optional sign, at least one digit. The C library
// converts with strtol, saturating at the range of long, and stores the
// result cut to int.
bool ScanInt(const std::string& text, size_t& position, int& value) {
  while (position < text.size() && IsSpace(text[position])) {
    ++position;
  }
  bool negative = false;
  if (position < text.size() && (text[position] == '+' || text[position] == '-')) {
    negative = text[position] == '-';
    ++position;
  }
  if (position >= text.size() || !IsDigit(text[position])) {
    return false;
  }
  const unsigned long long longMax =
      static_cast<unsigned long long>(std::numeric_limits<long>::max());
  const unsigned long long limit = negative ? longMax + 1 : longMax;
  unsigned long long magnitude = 0;
  bool saturated = false;
  while (position < text.size() && IsDigit(text[position])) {
    unsigned digit = static_cast<unsigned>(text[position] - '0');
    if (!saturated && magnitude <= (limit - digit) / 10) {
      magnitude = magnitude * 10 + digit;
    } else {
      saturated = true;
    }
    ++position;
  }
  if (saturated) {
    magnitude = limit;
  }
  unsigned long long bits = negative ? 0 - magnitude : magnitude;
  value = static_cast<int>(static_cast<uint32_t>(bits));
  return true;
}

// The scanf rules for a format of literal characters, white space (any run
// of input white space, none included) and "%d". Returns the values read.
int Scan(const std::string& text, const char* format, int* values) {
  size_t position = 0;
  int count = 0;
  for (const char* f = format; *f != '\0'; ++f) {
    if (IsSpace(*f)) {
      while (position < text.size() && IsSpace(text[position])) {
        ++position;
      }
    } else if (f[0] == '%' && f[1] == 'd') {
      if (!ScanInt(text, position, values[count])) {
        return count;
      }
      ++count;
      ++f;
    } else {
      if (position >= text.size() || text[position] != *f) {
        return count;
      }
      ++position;
    }
  }
  return count;
}

bool StartsWith(const std::string& text, const char* prefix) {
  return text.compare(0, std::char_traits<char>::length(prefix), prefix) == 0;
}

// A module line files a limit when "LIMIT" follows the key, a name of at
// least one character stands between them (outer spaces trimmed) and a
// number follows "LIMIT".
bool ReadModuleLine(const std::string& line, ReferenceLimit& entry) {
  const size_t key = 11;
  size_t found = line.find("LIMIT", key);
  if (found == std::string::npos) {
    return false;
  }
  size_t start = key;
  while (start < found && line[start] == ' ') {
    ++start;
  }
  size_t end = found;
  while (end > start && line[end - 1] == ' ') {
    --end;
  }
  if (end == start) {
    return false;
  }
  int limit = 0;
  if (Scan(line.substr(found), "LIMIT %d", &limit) != 1) {
    return false;
  }
  entry.name = line.substr(start, end - start);
  entry.limit = static_cast<uint32_t>(limit);
  return true;
}

}  // namespace

ReferenceConfig ReadReferenceConfig(const std::string& file) {
  ReferenceConfig config;
  config.chunks = 650;
  size_t position = 0;
  while (position < file.size()) {
    size_t length = 0;
    while (length < kPieceLength && position + length < file.size()) {
      ++length;
      if (file[position + length - 1] == '\n') {
        break;
      }
    }
    std::string piece = file.substr(position, length);
    position += length;
    config.pieces.push_back(piece);
    config.filesLimit.push_back(false);
    if (position > kReadBound) {
      break;
    }

    std::string line = piece.substr(0, piece.find('\0'));
    if (StartsWith(line, "//")) {
      continue;
    }
    if (StartsWith(line, "MODULE_NAME")) {
      ReferenceLimit entry;
      if (ReadModuleLine(line, entry)) {
        config.filesLimit.back() = true;
        config.limits.push_back(entry);
      }
      continue;
    }
    int values[3] = {0, 0, 0};
    if (Scan(line, "CHUNKS %d  CHUNK_SIZE %d SEG_SIZE %d", values) == 3) {
      config.chunks = static_cast<unsigned int>(values[0]);
    }
  }
  return config;
}

}  // namespace QuendalFuzz
