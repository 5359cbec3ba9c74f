// CgBI data: a PNG variant whose image data is raw deflate without the zlib wrapper, marked by a
// private "CgBI" chunk before the header, with red and blue exchanged in its pixels. The stream
// is rewritten into an ordinary PNG stream (the CgBI chunk dropped, the image data re-wrapped as
// zlib streams with fresh CRCs) and opened as data, with SwapRB set so that decoded pictures get
// their colours back in place.
#include <stdlib.h>
#include <string.h>
#include <zlib.h>

#include "host/Text.h"
#include "plugin/Tables.h"
#include "reader/BigEndian.h"
#include "reader/PNGReader.h"

namespace {

const unsigned char pngheader[8] = {0x89, 0x50, 0x4E, 0x47, 0x0D, 0x0A, 0x1A, 0x0A};
const unsigned char datachunk[4] = {'I', 'D', 'A', 'T'};
const unsigned char endchunk[4] = {'I', 'E', 'N', 'D'};
const unsigned char cgbichunk[4] = {'C', 'g', 'B', 'I'};

constexpr int kMaxChunks = 100;
constexpr uInt kBufferSize = 10485760;
constexpr int64_t kMaxBlock = 0x7FFFFFFF;

struct Chunk {
  uint32_t length;
  unsigned char* type;
  unsigned char* data;
  uint32_t crc;
};

struct ChunkTable {
  Chunk entries[kMaxChunks] = {};
  int32_t count = 0;
  bool failed = false;

  ~ChunkTable() {
    for (int32_t i = 0; i < count; ++i) {
      free(entries[i].type);
      free(entries[i].data);
    }
  }
};

bool IsType(const Chunk& chunk, const unsigned char* type) {
  return memcmp(chunk.type, type, 4) == 0;
}

// Takes one chunk at `at` into the table. A chunk without data (length 0, the ordinary IEND
// included) fails the conversion. A chunk that runs past the end of the input fails it too,
// before anything is allocated for it.
bool TakeChunk(const unsigned char* bytes, int64_t size, int64_t at, ChunkTable& table) {
  if (at + 8 > size) return false;
  const uint32_t length = ReadBigEndian(bytes + at);
  if (at + 12 + int64_t{length} > size) return false;
  Chunk& chunk = table.entries[table.count];
  chunk.type = static_cast<unsigned char*>(calloc(1, 4));
  if (chunk.type == nullptr) return false;
  ++table.count;
  memcpy(chunk.type, bytes + at + 4, 4);
  chunk.length = length;
  if (length >= 1 && length <= kMaxBlock)
    chunk.data = static_cast<unsigned char*>(calloc(1, length));
  if (chunk.data == nullptr) {
    table.failed = true;
  } else {
    memcpy(chunk.data, bytes + at + 8, length);
  }
  chunk.crc = ReadBigEndian(bytes + at + 8 + length);
  return true;
}

// The chunks from byte 8 on: up to IEND, and at most 100 of them.
void WalkChunks(const unsigned char* bytes, int64_t size, ChunkTable& table) {
  int64_t at = 8;
  while (table.count < kMaxChunks) {
    if (!TakeChunk(bytes, size, at, table)) {
      table.failed = true;
      return;
    }
    const Chunk& chunk = table.entries[table.count - 1];
    if (IsType(chunk, endchunk)) return;
    at += 12 + int64_t{chunk.length};
  }
}

struct Streams {
  z_stream inflater = {};
  z_stream deflater = {};
  unsigned char* buffer = nullptr;

  bool Open() {
    buffer = static_cast<unsigned char*>(calloc(1, kBufferSize));
    if (buffer == nullptr) return false;
    if (inflateInit2(&inflater, -8) != Z_OK) {
      free(buffer);
      buffer = nullptr;
      return false;
    }
    deflateInit(&deflater, 8);
    return true;
  }

  ~Streams() {
    if (buffer == nullptr) return;
    free(buffer);
    inflateEnd(&inflater);
    deflateEnd(&deflater);
  }
};

// Inflates one IDAT chunk into the shared buffer and deflates the buffer into a new block. The
// input and output lengths are the streams' running totals over the whole conversion, which
// makes the rewrite exact for a stream with a single IDAT chunk; a total beyond the buffers
// fails the conversion rather than reading past them.
bool RewrapChunk(Chunk& chunk, Streams& z, bool last) {
  const int flush = last ? Z_FINISH : Z_SYNC_FLUSH;
  z.inflater.next_in = chunk.data;
  z.inflater.avail_in = chunk.length;
  z.inflater.next_out = z.buffer;
  z.inflater.avail_out = kBufferSize;
  const int inflated = inflate(&z.inflater, flush);
  if (inflated == Z_MEM_ERROR || inflated == Z_NEED_DICT || inflated == Z_DATA_ERROR) return false;
  if (z.inflater.total_out > kBufferSize) return false;
  auto* block = static_cast<unsigned char*>(calloc(1, kBufferSize));
  if (block == nullptr) return false;
  z.deflater.next_in = z.buffer;
  z.deflater.avail_in = static_cast<uInt>(z.inflater.total_out);
  z.deflater.next_out = block;
  z.deflater.avail_out = kBufferSize;
  deflate(&z.deflater, flush);
  free(chunk.data);
  chunk.data = block;
  if (z.deflater.total_out > kBufferSize) return false;
  chunk.length = static_cast<uint32_t>(z.deflater.total_out);
  chunk.crc = static_cast<uint32_t>(crc32(crc32(0, chunk.type, 4), chunk.data, chunk.length));
  return true;
}

bool RewrapImageData(ChunkTable& table) {
  Streams z;
  if (!z.Open()) return false;
  int32_t total = 0;
  for (int32_t i = 0; i < table.count; ++i) total += IsType(table.entries[i], datachunk) ? 1 : 0;
  int32_t k = 0;
  for (int32_t i = 0; i < table.count; ++i) {
    if (!IsType(table.entries[i], datachunk)) continue;
    if (!RewrapChunk(table.entries[i], z, ++k == total)) return false;
  }
  return true;
}

// The rewritten stream as a host string of bytes, or null.
REALstring BuildStream(const ChunkTable& table) {
  int64_t size = 8;
  for (int32_t i = 0; i < table.count; ++i) {
    if (!IsType(table.entries[i], cgbichunk)) size += 12 + int64_t{table.entries[i].length};
  }
  if (size + 20 < 1 || size + 20 > kMaxBlock) return nullptr;
  auto* out = static_cast<unsigned char*>(calloc(1, static_cast<size_t>(size + 20)));
  if (out == nullptr) return nullptr;
  memcpy(out, pngheader, 8);
  unsigned char* p = out + 8;
  for (int32_t i = 0; i < table.count; ++i) {
    const Chunk& chunk = table.entries[i];
    if (IsType(chunk, cgbichunk)) continue;
    WriteBigEndian(p, chunk.length);
    memcpy(p + 4, chunk.type, 4);
    if (chunk.length) memcpy(p + 8, chunk.data, chunk.length);
    WriteBigEndian(p + 8 + chunk.length, chunk.crc);
    p += 12 + chunk.length;
  }
  REALstring stream = REALBuildUnicodeString(out, size, kREALTextEncodingUnknown);
  free(out);
  return stream;
}

// The rewritten stream of CgBI data, or null when the data can't be converted.
REALstring ConvertCgBI(REALstring data) {
  rbText* input = rbText::MakeRaw(data);
  if (input == nullptr) return nullptr;
  ChunkTable table;
  const bool signature = input->Length() >= 8 && memcmp(input->Bytes(), pngheader, 8) == 0;
  if (signature) WalkChunks(input->Bytes(), input->Length(), table);
  delete input;
  if (!signature || table.failed || !RewrapImageData(table)) return nullptr;
  return BuildStream(table);
}

}  // namespace

RBBoolean rbOpenSpecialData(REALobject instance, REALstring data) {
  if (data == nullptr) return false;
  REALstring stream = ConvertCgBI(data);
  if (stream == nullptr) return false;
  PNGReaderData* d = InstanceData<PNGReaderData>(instance, PNGReaderKRVClass);
  if (d) d->reader.swapRB = true;
  const RBBoolean opened = rbOpenReadString(instance, stream);
  REALUnlockString(stream);
  return opened;
}
