// Guard markers for client blocks: a length field, a start marker, a
// length-control byte and an end marker written into a block the caller owns,
// and checks that find overruns, writes before the block and a second release.
//
//   offset 0           4 bytes  total length (host byte order); 0 = deleted
//   offset 4           3 bytes  start marker FF 00 FF
//   offset 7           1 byte   control byte (length + length / 255) mod 256
//   offset 8           ...      the caller's payload
//   offset length - 4  4 bytes  end marker 00 FF FF 00
//
// All fields are copied bytewise, so blocks need no alignment. See
// docs/validation.md.
#ifndef QUENDAL_VALIDATION_H
#define QUENDAL_VALIDATION_H

#include "quendal/export.h"

namespace QDValidation {

// Results of check_markers; the first failed check decides.
enum CheckResult {
  eOk = 0,                 // all markers intact
  eNullPointer = 1,        // the block is null
  eFailedStartMarker = 2,  // bytes 4 to 6 differ from start_markers
  eFailedEndMarker = 3,    // the 4 bytes at length - 4 differ from end_markers
  eFailedLenControl = 4,   // byte 7 differs from the stored length's control byte
  eFailedNullLen = 5       // the stored length is 0: the block was marked deleted
};

// The start marker, FF 00 FF. Writes and checks read it at each call, so
// changing it changes the markers of every later call.
QD_EXPORT extern unsigned char start_markers[3];
// The end marker, 00 FF FF 00; read at each call like start_markers.
QD_EXPORT extern unsigned char end_markers[4];
// The control byte most recently computed by write_markers (0 at load).
// write_markers passes the byte through this global, so calls from several
// threads at once must be serialised by the caller.
QD_EXPORT extern unsigned char lenCtrlFlag;

// Writes the length, the start marker, the control byte and the end marker
// into block, which must be length bytes long (length counts the header and
// the end marker too, so at least 12 for a block with a payload). Returns
// false for a null block, otherwise true. A length from 4 to 11 is accepted
// and its end marker overlaps the header; for a length below 4 the end marker
// would lie before the block and is left out (the header is still written).
QD_EXPORT bool write_markers(void* block, unsigned int length) QD_NOTHROW;

// Marks block as deleted by writing a 32-bit zero into its length field; the
// markers and the control byte stay. Returns false for a null block, else true.
QD_EXPORT bool mark_pointer_as_deleted(void* block) QD_NOTHROW;

// Checks the markers of block and returns a CheckResult. For a null block
// returns eNullPointer and leaves length alone; otherwise the stored length is
// written to length before any marker is checked. The end marker is read at
// offset length - 4 only after the start marker and the control byte match,
// so the block must really be that long. A stored length below 4 gives
// eFailedEndMarker without reading before the block.
QD_EXPORT int check_markers(void* block, unsigned int& length) QD_NOTHROW;

// Returns true when check_markers gives eOk. Otherwise passes one message
// naming the failed check, the block's address (its low 32 bits, in hex) and,
// for the end-marker and control-byte failures, the stored length (as a signed
// 32-bit number), to QDExcHdlWriteMessageToExceptionFile, and returns false.
// Messages carry no line break; a null block gives
// "QDValidation::check_pointer: Null pointer.".
QD_EXPORT bool check_pointer(void* block) QD_NOTHROW;

}  // namespace QDValidation

extern "C" {

// Returns 1 (eNullPointer) for a null block, otherwise the result of
// QDValidation::check_markers; the stored length is not reported.
QD_EXPORT int QDCheckPointerMarkers(void* block) QD_NOTHROW;
}

#endif
