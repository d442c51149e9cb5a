// A stream whose bytes the test reads back: open_memstream, flushed on read.
#ifndef QUENDAL_TESTS_ACCOUNTING_CAPTURED_STREAM_H
#define QUENDAL_TESTS_ACCOUNTING_CAPTURED_STREAM_H

#include <stdio.h>
#include <stdlib.h>

#include <string>

namespace quendal_test {

class CapturedStream {
 public:
  CapturedStream() : m_stream(open_memstream(&m_buffer, &m_size)) {}
  ~CapturedStream() {
    if (!m_closed) {
      fclose(m_stream);
    }
    free(m_buffer);
  }
  CapturedStream(const CapturedStream&) = delete;
  CapturedStream& operator=(const CapturedStream&) = delete;

  FILE* get() const { return m_stream; }

  // For code that closes the stream itself: the text stays readable.
  void MarkClosedByCallee() { m_closed = true; }

  std::string Text() {
    if (!m_closed) {
      fflush(m_stream);
    }
    return std::string(m_buffer, m_size);
  }

 private:
  char* m_buffer = nullptr;
  size_t m_size = 0;
  FILE* m_stream;
  bool m_closed = false;
};

}  // namespace quendal_test

#endif
