// CgBI data into a standard PNG stream. Apple's iOS tool writes a "CgBI" chunk before the header,
// stores the pixels as blue, green, red (and alpha) with the colour premultiplied by alpha,
// compresses the image data as one raw deflate stream (no zlib wrapper) spread over its IDAT
// chunks, and ends the stream with an empty IEND chunk. The conversion inflates that stream
// across the chunk boundaries, undoes the row filters, puts the channels back in order, divides
// the premultiplication out, and writes a new stream: the header, the ancillary chunks that still
// describe the pixels, the rows with filter None as one zlib stream, and IEND.
#define ZLIB_CONST
#include "reader/CgBIConvert.h"

#include <stdint.h>
#include <string.h>
#include <zlib.h>

#include <utility>

#include "reader/BigEndian.h"

namespace {

const unsigned char kSignature[8] = {0x89, 0x50, 0x4E, 0x47, 0x0D, 0x0A, 0x1A, 0x0A};

// Image data that inflates to more than OpenSpecialData's 10 MiB buffers is refused.
constexpr uint64_t kMaxImageData = 10485760;
// The largest input and output: what a host string and a chunk length can hold.
constexpr uint64_t kMaxStream = 0x7FFFFFFF;

// Ancillary chunks that still describe the converted pixels. The others go: Apple's private
// chunks point into the old image data, and tRNS, bKGD or sBIT would need their channels swapped.
const char* const kKeptTypes[] = {"gAMA", "sRGB", "iCCP", "pHYs", "tEXt", "zTXt", "iTXt"};

struct Chunk {
  uint32_t length = 0;
  const unsigned char* type = nullptr;
  const unsigned char* data = nullptr;
  uint32_t crc = 0;  // as stored
};

bool IsType(const Chunk& chunk, const char* type) {
  return memcmp(chunk.type, type, 4) == 0;
}

bool CrcMatches(const Chunk& chunk) {
  const uLong crc = crc32(crc32(0, chunk.type, 4), chunk.data, chunk.length);
  return crc == chunk.crc;
}

bool Kept(const Chunk& chunk) {
  for (const char* type : kKeptTypes) {
    if (IsType(chunk, type)) return CrcMatches(chunk);
  }
  return false;
}

// The chunks after the signature, one at a time, up to IEND or the end of the data. IEND ends
// the walk as soon as its type is read, so an empty IEND, one with content and data after it
// all end the stream alike.
class ChunkWalk {
 public:
  ChunkWalk(const unsigned char* data, size_t size) : data_(data), size_(size) {}

  // The next chunk; false at the end, and when a chunk runs past the end of the data (Failed).
  bool Next(Chunk& chunk);
  bool Failed() const { return failed_; }

 private:
  const unsigned char* data_;
  uint64_t size_;
  uint64_t at_ = 8;
  bool failed_ = false;
};

bool ChunkWalk::Next(Chunk& chunk) {
  if (at_ == size_ || failed_) return false;
  if (size_ - at_ < 8) {
    failed_ = true;
    return false;
  }
  chunk.length = ReadBigEndian(data_ + at_);
  chunk.type = data_ + at_ + 4;
  if (IsType(chunk, "IEND")) return false;
  if (size_ - at_ - 8 < uint64_t{chunk.length} + 4) {
    failed_ = true;
    return false;
  }
  chunk.data = data_ + at_ + 8;
  chunk.crc = ReadBigEndian(chunk.data + chunk.length);
  at_ += 12 + uint64_t{chunk.length};
  return true;
}

struct Header {
  uint32_t width = 0;
  uint32_t height = 0;
  int channels = 0;  // 3: RGB, 4: RGBA
  bool interlaced = false;
};

// The header of an 8-bit RGB or RGBA image, the kinds CgBI data comes in. Other colour types and
// depths are refused: a guess at how Apple's tool stores them would give wrong colours silently.
bool ReadHeader(const Chunk& ihdr, Header& header) {
  if (!IsType(ihdr, "IHDR") || ihdr.length != 13 || !CrcMatches(ihdr)) return false;
  const unsigned char* d = ihdr.data;
  header.width = ReadBigEndian(d);
  header.height = ReadBigEndian(d + 4);
  header.channels = d[9] == 6 ? 4 : d[9] == 2 ? 3 : 0;
  header.interlaced = d[12] == 1;
  return header.width >= 1 && header.width <= kMaxStream && header.height >= 1 &&
         header.height <= kMaxStream && d[8] == 8 && header.channels != 0 && d[10] == 0 &&
         d[11] == 0 && d[12] <= 1;
}

// What the walk over the whole stream found.
struct Scan {
  Chunk ihdr;
  Header header;
  uint64_t keptBytes = 0;  // the kept chunks with their length, type and CRC
};

// A CgBI chunk first, a sound header next, and at least one IDAT chunk, each with its right CRC.
bool ScanStream(const unsigned char* data, size_t size, Scan& scan) {
  ChunkWalk walk(data, size);
  Chunk chunk;
  if (!walk.Next(chunk) || !IsType(chunk, "CgBI")) return false;
  if (!walk.Next(scan.ihdr) || !ReadHeader(scan.ihdr, scan.header)) return false;
  bool imageData = false;
  while (walk.Next(chunk)) {
    if (IsType(chunk, "IDAT")) {
      if (!CrcMatches(chunk)) return false;
      imageData = true;
    } else if (Kept(chunk)) {
      scan.keptBytes += 12 + uint64_t{chunk.length};
    }
  }
  return !walk.Failed() && imageData;
}

// The rows of the image data: one pass, or the non-empty ones of Adam7's seven.
struct Pass {
  uint64_t rowBytes;  // without the filter byte
  uint64_t rows;
};

struct Layout {
  Pass passes[7];
  int count = 0;
  uint64_t size = 0;  // every row with its filter byte
};

uint64_t PassExtent(uint32_t extent, uint32_t start, uint32_t step) {
  return extent > start ? (uint64_t{extent} - start + step - 1) / step : 0;
}

// False when the image data grows beyond kMaxImageData. The row is bounded first, so that the
// product with the rows stays far inside 64 bits.
bool AddPass(Layout& layout, uint64_t width, uint64_t rows, int channels) {
  if (width == 0 || rows == 0) return true;
  const uint64_t rowBytes = width * static_cast<uint64_t>(channels);
  if (rowBytes + 1 > kMaxImageData) return false;
  layout.size += rows * (rowBytes + 1);
  if (layout.size > kMaxImageData) return false;
  layout.passes[layout.count++] = {rowBytes, rows};
  return true;
}

bool ImageLayout(const Header& h, Layout& layout) {
  if (!h.interlaced) return AddPass(layout, h.width, h.height, h.channels);
  static const uint32_t kStartX[7] = {0, 4, 0, 2, 0, 1, 0};
  static const uint32_t kStepX[7] = {8, 8, 4, 4, 2, 2, 1};
  static const uint32_t kStartY[7] = {0, 0, 4, 0, 2, 0, 1};
  static const uint32_t kStepY[7] = {8, 8, 8, 4, 4, 2, 2};
  for (int p = 0; p < 7; ++p) {
    if (!AddPass(layout, PassExtent(h.width, kStartX[p], kStepX[p]),
                 PassExtent(h.height, kStartY[p], kStepY[p]), h.channels)) {
      return false;
    }
  }
  return true;
}

// Feeds the IDAT chunks' data in turn to one inflate stream, so that back-references reach
// across chunk boundaries. Stops at the end of the stream, at an error or with the output full.
int FeedImageData(z_stream& z, const unsigned char* data, size_t size) {
  ChunkWalk walk(data, size);
  Chunk chunk;
  int status = Z_OK;
  while (z.avail_out > 0 && walk.Next(chunk)) {
    if (!IsType(chunk, "IDAT")) continue;
    z.next_in = chunk.data;
    z.avail_in = chunk.length;
    status = inflate(&z, Z_NO_FLUSH);
    // An empty chunk makes no progress (Z_BUF_ERROR) and is passed over.
    if (status != Z_OK && status != Z_BUF_ERROR) break;
  }
  return status;
}

// The raw deflate stream must end and give exactly `expected` bytes. `out` has room for one
// byte more, so that a stream holding more shows as such.
bool InflateImageData(const unsigned char* data, size_t size, unsigned char* out,
                      uint64_t expected) {
  z_stream z = {};
  if (inflateInit2(&z, -15) != Z_OK) return false;
  z.next_out = out;
  z.avail_out = static_cast<uInt>(expected + 1);
  const int status = FeedImageData(z, data, size);
  const bool exact = status == Z_STREAM_END && z.total_out == expected;
  inflateEnd(&z);
  return exact;
}

// Calls visit(row, above, rowBytes) for every row of every pass, top to bottom; `row` points at
// the filter byte, `above` at the row before it in the same pass (null for a pass's first row).
template <typename Visit>
bool ForEachRow(unsigned char* data, const Layout& layout, Visit visit) {
  unsigned char* row = data;
  for (int p = 0; p < layout.count; ++p) {
    const unsigned char* above = nullptr;
    for (uint64_t r = 0; r < layout.passes[p].rows; ++r) {
      if (!visit(row, above, layout.passes[p].rowBytes)) return false;
      above = row;
      row += layout.passes[p].rowBytes + 1;
    }
  }
  return true;
}

unsigned Paeth(unsigned left, unsigned up, unsigned upperLeft) {
  const int estimate = static_cast<int>(left + up) - static_cast<int>(upperLeft);
  const int toLeft = abs(estimate - static_cast<int>(left));
  const int toUp = abs(estimate - static_cast<int>(up));
  const int toUpperLeft = abs(estimate - static_cast<int>(upperLeft));
  if (toLeft <= toUp && toLeft <= toUpperLeft) return left;
  return toUp <= toUpperLeft ? up : upperLeft;
}

// The predictor of byte i of a row (after its filter byte) by the row's filter type 1 to 4.
unsigned Predictor(unsigned filter, const unsigned char* x, const unsigned char* above, uint64_t i,
                   uint64_t bpp) {
  const unsigned left = i >= bpp ? x[i - bpp] : 0;
  const unsigned up = above ? above[i] : 0;
  const unsigned upperLeft = above && i >= bpp ? above[i - bpp] : 0;
  switch (filter) {
    case 1:
      return left;
    case 2:
      return up;
    case 3:
      return (left + up) / 2;
    default:
      return Paeth(left, up, upperLeft);
  }
}

// Undoes a row's filter in place; false for a filter type that does not exist.
bool Unfilter(unsigned char* row, const unsigned char* above, uint64_t rowBytes, uint64_t bpp) {
  const unsigned filter = row[0];
  if (filter > 4) return false;
  if (filter == 0) return true;
  unsigned char* x = row + 1;
  const unsigned char* up = above ? above + 1 : nullptr;
  for (uint64_t i = 0; i < rowBytes; ++i) {
    x[i] = static_cast<unsigned char>(x[i] + Predictor(filter, x, up, i, bpp));
  }
  return true;
}

// Colour × 255 / alpha, rounded; at most 255, since damaged data may hold colour above alpha.
// A transparent pixel has no colour left to recover and gets 0.
unsigned char Unpremultiplied(unsigned colour, unsigned alpha) {
  if (alpha == 0) return 0;
  const unsigned value = (colour * 255 + alpha / 2) / alpha;
  return static_cast<unsigned char>(value > 255 ? 255 : value);
}

// Blue, green, red (alpha) into red, green, blue (alpha), the premultiplication divided out.
void RestoreRow(unsigned char* x, uint64_t rowBytes, int channels) {
  for (uint64_t i = 0; i + 2 < rowBytes; i += static_cast<uint64_t>(channels)) {
    std::swap(x[i], x[i + 2]);
    if (channels == 4 && x[i + 3] != 255) {
      for (int c = 0; c < 3; ++c) x[i + c] = Unpremultiplied(x[i + c], x[i + 3]);
    }
  }
}

// Every row unfiltered first, since the filters predict from the stored samples; then every row
// restored and marked filter None.
bool RestoreImage(unsigned char* data, const Layout& layout, int channels) {
  const uint64_t bpp = static_cast<uint64_t>(channels);
  const bool unfiltered = ForEachRow(
      data, layout, [bpp](unsigned char* row, const unsigned char* above, uint64_t rowBytes) {
        return Unfilter(row, above, rowBytes, bpp);
      });
  if (!unfiltered) return false;
  return ForEachRow(data, layout,
                    [channels](unsigned char* row, const unsigned char*, uint64_t rowBytes) {
                      row[0] = 0;
                      RestoreRow(row + 1, rowBytes, channels);
                      return true;
                    });
}

// Frames the `length` bytes of data already at p + 8 as a chunk of `type`; returns the end.
unsigned char* FrameChunk(unsigned char* p, const char* type, uint32_t length) {
  WriteBigEndian(p, length);
  memcpy(p + 4, type, 4);
  WriteBigEndian(p + 8 + length, static_cast<uint32_t>(crc32(0, p + 4, length + 4)));
  return p + 12 + length;
}

unsigned char* CopyChunk(unsigned char* p, const Chunk& chunk) {
  const uint64_t bytes = 12 + uint64_t{chunk.length};
  memcpy(p, chunk.type - 4, bytes);
  return p + bytes;
}

// Signature, header, the kept chunks in their order, the rows as one IDAT chunk, IEND.
PNGBytes WriteStream(const unsigned char* data, size_t size, const Scan& scan,
                     const unsigned char* rows, uint64_t rowsSize) {
  const uLong bound = compressBound(static_cast<uLong>(rowsSize));
  const uint64_t capacity = 8 + 25 + scan.keptBytes + 12 + uint64_t{bound} + 12;
  if (capacity > kMaxStream) return {};
  PNGBytes out;
  out.bytes.reset(static_cast<unsigned char*>(malloc(static_cast<size_t>(capacity))));
  if (out.bytes == nullptr) return {};
  unsigned char* p = out.bytes.get();
  memcpy(p, kSignature, 8);
  p = CopyChunk(p + 8, scan.ihdr);
  ChunkWalk walk(data, size);
  Chunk chunk;
  while (walk.Next(chunk)) {
    if (Kept(chunk)) p = CopyChunk(p, chunk);
  }
  uLongf packed = bound;
  if (compress(p + 8, &packed, rows, static_cast<uLong>(rowsSize)) != Z_OK) return {};
  p = FrameChunk(p, "IDAT", static_cast<uint32_t>(packed));
  p = FrameChunk(p, "IEND", 0);
  out.size = static_cast<size_t>(p - out.bytes.get());
  return out;
}

}  // namespace

PNGBytes ConvertCgBIToPNG(const unsigned char* data, size_t size) {
  Scan scan;
  Layout layout;
  if (data == nullptr || size < 8 || uint64_t{size} > kMaxStream ||
      memcmp(data, kSignature, 8) != 0 || !ScanStream(data, size, scan) ||
      !ImageLayout(scan.header, layout)) {
    return {};
  }
  PNGBytes rows;
  rows.bytes.reset(static_cast<unsigned char*>(malloc(static_cast<size_t>(layout.size + 1))));
  if (rows.bytes == nullptr || !InflateImageData(data, size, rows.bytes.get(), layout.size) ||
      !RestoreImage(rows.bytes.get(), layout, scan.header.channels)) {
    return {};
  }
  return WriteStream(data, size, scan, rows.bytes.get(), layout.size);
}
