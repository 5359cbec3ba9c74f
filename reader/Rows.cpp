// Rows into memory blocks: one png_read_row into the block's memory, then for the alpha and mask
// forms a compaction in place to one byte a pixel.
#include "host/Exceptions.h"
#include "host/Text.h"
#include "reader/PNGReader.h"

namespace {

constexpr RBInteger kMaxRowBytes = 0x7FFFFFFE;

// The first read of a set-up asks libpng for the RGBA rows RowBytes reports.
bool ReadNextRow(PNGReader& r, void* row, bool start) {
  if (setjmp(*r.jump)) return false;
  if (start) StartRGBARows(r);
  png_read_row(r.png, static_cast<png_bytep>(row), nullptr);
  return true;
}

// libpng has handed out the image's last row: it has moved past the last pass of an interlaced
// image, or past the last row of a plain one.
bool LastRowRead(const PNGReader& r) {
  return png_get_current_pass_number(r.png) >= 7 ||
         (r.passes == 1 && png_get_current_row_number(r.png) >= r.height);
}

// Reads the next row and settles the state: after a libpng error the stream can't go on.
bool ReadRowInto(PNGReader& r, void* row) {
  const bool read = ReadNextRow(r, row, r.state == ReaderState::kSetUp);
  if (!read) {
    r.state = ReaderState::kFailed;
  } else {
    r.state = LastRowRead(r) ? ReaderState::kLastRowRead : ReaderState::kReadingRows;
  }
  return read;
}

// The block must hold one decoded row: width × 4 bytes once set up. Hosts that cannot tell a
// block's size leave it unchecked.
bool BlockHoldsRow(const PNGReader& r, REALmemoryBlock block) {
  const RBInteger size = REALMemoryBlockGetSize(block);
  return size < 0 || size >= r.width * 4;
}

// Byte i := byte 4i + 3, or its complement for a mask; safe in place because each source byte
// lies at or after its destination.
void CompactAlpha(unsigned char* row, RBInteger width, bool complement) {
  const unsigned char flip = complement ? 0xFF : 0x00;
  for (RBInteger i = 0; i < width; ++i) row[i] = row[4 * i + 3] ^ flip;
}

// One row into the block, compacted to its alphas (or their complements) when asked.
bool ReadRowIntoBlock(PNGReader& r, REALmemoryBlock block, bool compact, bool complement) {
  if (block == nullptr) {
    RaiseException("NilObjectException", "memoryblock is nil", kREALTextEncodingUTF8, 0);
    return false;
  }
  if (!Admit(r, ReaderCall::kReadRow) || !BlockHoldsRow(r, block)) return Report(r, false);
  auto* row = static_cast<unsigned char*>(REALMemoryBlockGetPtr(block));
  if (!ReadRowInto(r, row)) return Report(r, false);
  if (compact && row) CompactAlpha(row, r.width, complement);
  return Report(r, true);
}

}  // namespace

REALmemoryBlock ReadRow(PNGReader& r) {
  if (!Admit(r, ReaderCall::kReadRow)) return Report(r, REALmemoryBlock{nullptr});
  const RBInteger rowBytes = GetRowBytes(r);
  REALmemoryBlock block = rowBytes <= kMaxRowBytes ? REALNewMemoryBlockOriginal(rowBytes) : nullptr;
  if (block && !ReadRowInto(r, REALMemoryBlockGetPtr(block))) {
    // The block never reaches user code, so the host gets it back here.
    UnlockHandle(block);
    block = nullptr;
  }
  return Report(r, block);
}

bool ReadRow(PNGReader& r, REALmemoryBlock block) {
  return ReadRowIntoBlock(r, block, false, false);
}

bool ReadRowMaskOnly(PNGReader& r, REALmemoryBlock block) {
  return ReadRowIntoBlock(r, block, true, true);
}

bool ReadRowAlphaOnly(PNGReader& r, REALmemoryBlock block) {
  return ReadRowIntoBlock(r, block, true, false);
}
