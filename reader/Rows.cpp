// Rows into memory blocks: one png_read_row into the block's memory, then for the alpha and mask
// forms a compaction in place to one byte a pixel.
#include "host/Exceptions.h"
#include "host/Text.h"
#include "reader/PNGReader.h"

namespace {

constexpr RBInteger kMaxRowBytes = 0x7FFFFFFE;

bool ReadRowInto(PNGReader& r, void* row) {
  if (setjmp(*r.jump)) return false;
  if (r.rowsPending) StartRGBARows(r);
  png_read_row(r.png, static_cast<png_bytep>(row), nullptr);
  return true;
}

// Rows come only from a reader that ApplyOptions set up; before, or after it failed midway,
// libpng's rows need not be the size RowBytes reports.
bool SetUp(const PNGReader& r) {
  if (r.setUp) return true;
  RaiseMessageEvent(r.errorHook, r.owner, "ApplyOptions has not set the reader up.");
  return false;
}

// The block must hold one decoded row: width × 4 bytes once set up. Hosts that cannot tell a
// block's size leave it unchecked.
bool BlockHoldsRow(const PNGReader& r, REALmemoryBlock block) {
  const RBInteger size = REALMemoryBlockGetSize(block);
  return size < 0 || size >= r.width * 4;
}

bool ReadRowIntoBlock(PNGReader& r, REALmemoryBlock block) {
  if (block == nullptr) {
    RaiseException("NilObjectException", "memoryblock is nil", kREALTextEncodingUTF8, 0);
    return false;
  }
  if (!HasHandles(r) || !HasSource(r) || !SetUp(r) || !BlockHoldsRow(r, block)) return false;
  return ReadRowInto(r, REALMemoryBlockGetPtr(block));
}

// Byte i := byte 4i + 3, or its complement for a mask; safe in place because each source byte
// lies at or after its destination.
void CompactAlpha(unsigned char* row, RBInteger width, bool complement) {
  const unsigned char flip = complement ? 0xFF : 0x00;
  for (RBInteger i = 0; i < width; ++i) row[i] = row[4 * i + 3] ^ flip;
}

bool ReadCompacted(PNGReader& r, REALmemoryBlock block, bool complement) {
  if (!ReadRowIntoBlock(r, block)) return false;
  auto* row = static_cast<unsigned char*>(REALMemoryBlockGetPtr(block));
  if (row) CompactAlpha(row, r.width, complement);
  return true;
}

}  // namespace

REALmemoryBlock ReadRow(PNGReader& r) {
  if (!HasHandles(r) || !HasSource(r) || !SetUp(r)) return nullptr;
  const RBInteger rowBytes = GetRowBytes(r);
  if (rowBytes > kMaxRowBytes) return nullptr;
  REALmemoryBlock block = REALNewMemoryBlockOriginal(rowBytes);
  if (block == nullptr) return nullptr;
  if (!ReadRowInto(r, REALMemoryBlockGetPtr(block))) {
    // The block never reaches user code, so the host gets it back here.
    UnlockHandle(block);
    return nullptr;
  }
  return block;
}

bool ReadRow(PNGReader& r, REALmemoryBlock block) {
  return ReadRowIntoBlock(r, block);
}

bool ReadRowMaskOnly(PNGReader& r, REALmemoryBlock block) {
  return ReadCompacted(r, block, true);
}

bool ReadRowAlphaOnly(PNGReader& r, REALmemoryBlock block) {
  return ReadCompacted(r, block, false);
}
