// Writing and checking the guard markers of a client block.
#include <stdint.h>
#include <string.h>

#include "quendal/validation.h"
#include "util/compiler.h"

namespace QDValidation {

unsigned char start_markers[3] = {0xFF, 0x00, 0xFF};
unsigned char end_markers[4] = {0x00, 0xFF, 0xFF, 0x00};
unsigned char lenCtrlFlag = 0;

namespace {

// The length field is 32 bits wide and is copied from an unsigned int.
QD_STATIC_ASSERT(sizeof(unsigned int) == sizeof(uint32_t));

const unsigned int kLengthOffset = 0;
const unsigned int kStartMarkerOffset = 4;
const unsigned int kControlByteOffset = 7;
const unsigned int kEndMarkerSize = sizeof(end_markers);

unsigned char ControlByte(unsigned int length) {
  return static_cast<unsigned char>(length + length / 255);
}

unsigned char* Bytes(void* block) {
  return static_cast<unsigned char*>(block);
}

}  // namespace

bool write_markers(void* block, unsigned int length) QD_NOTHROW {
  if (block == 0) {
    return false;
  }
  unsigned char* bytes = Bytes(block);
  memcpy(bytes + kLengthOffset, &length, sizeof(length));
  lenCtrlFlag = ControlByte(length);
  memcpy(bytes + kStartMarkerOffset, start_markers, sizeof(start_markers));
  memcpy(bytes + kControlByteOffset, &lenCtrlFlag, sizeof(lenCtrlFlag));
  // Below 4 the end marker's offset length - 4 lies before the block (or, once
  // wrapped, far beyond it); that is no memory of the caller's, so it is left
  // out.
  if (length >= kEndMarkerSize) {
    memcpy(bytes + (length - kEndMarkerSize), end_markers, sizeof(end_markers));
  }
  return true;
}

bool mark_pointer_as_deleted(void* block) QD_NOTHROW {
  if (block == 0) {
    return false;
  }
  const uint32_t deleted = 0;
  memcpy(Bytes(block) + kLengthOffset, &deleted, sizeof(deleted));
  return true;
}

int check_markers(void* block, unsigned int& length) QD_NOTHROW {
  if (block == 0) {
    return eNullPointer;
  }
  const unsigned char* bytes = Bytes(block);
  memcpy(&length, bytes + kLengthOffset, sizeof(length));
  if (length == 0) {
    return eFailedNullLen;
  }
  if (memcmp(bytes + kStartMarkerOffset, start_markers, sizeof(start_markers)) != 0) {
    return eFailedStartMarker;
  }
  if (bytes[kControlByteOffset] != ControlByte(length)) {
    return eFailedLenControl;
  }
  // A length below 4 cannot have had its end marker written (see
  // write_markers), and reading it would leave the block.
  if (length < kEndMarkerSize) {
    return eFailedEndMarker;
  }
  if (memcmp(bytes + (length - kEndMarkerSize), end_markers, sizeof(end_markers)) != 0) {
    return eFailedEndMarker;
  }
  return eOk;
}

}  // namespace QDValidation
