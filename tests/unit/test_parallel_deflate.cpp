// The parallel deflate engine: streams that zlib (and Python's zlib) inflate back to the input,
// the same bytes whatever the number of threads, rows filtered as libpng filters them, and
// failures that return cleanly.
#include <gtest/gtest.h>
#include <png.h>
#include <stdio.h>
#include <unistd.h>

#include <atomic>
#include <string>

#include "tools/samples/Samples.h"
#include "writer/ParallelDeflate.h"

namespace {

using samples::Bytes;

// Bytes with structure at every distance a chunk boundary can cut: a random block of 20000
// bytes repeated with every 997th byte changed, and runs of zeros.
Bytes Sample(size_t size) {
  Bytes block(20000);
  uint32_t state = 2463534242u;
  for (uint8_t& b : block) {
    state ^= state << 13;
    state ^= state >> 17;
    state ^= state << 5;
    b = static_cast<uint8_t>(state);
  }
  Bytes data(size);
  for (size_t i = 0; i < size; ++i) {
    data[i] = (i / 5000) % 7 == 0 ? 0 : block[i % block.size()] ^ (i % 997 == 0);
  }
  return data;
}

// The zlib stream inflated, expected to hold `size` bytes and to end where the stream ends.
Bytes Inflate(const Bytes& stream, size_t size) {
  Bytes out(size);
  uLongf outLength = size;
  uLong inLength = stream.size();
  EXPECT_EQ(uncompress2(out.data(), &outLength, stream.data(), &inLength), Z_OK);
  EXPECT_EQ(inLength, stream.size()) << "bytes after the end of the stream";
  out.resize(outLength);
  return out;
}

Bytes Compressed(const Bytes& data, pdeflate::Settings settings, int threads) {
  settings.threads = threads;
  Bytes out;
  EXPECT_TRUE(pdeflate::Compress(data.data(), data.size(), settings, out));
  return out;
}

// Every size around the chunk boundaries, at one and several threads.
TEST(ParallelDeflate, InflatesToTheInputWhateverTheThreads) {
  constexpr size_t kChunk = pdeflate::kDefaultChunkSize;
  const struct {
    size_t chunk;
    std::vector<size_t> sizes;
  } kCases[] = {{40000, {0, 1, 39999, 40000, 40001, 80000, 123457}},
                {pdeflate::kDefaultChunkSize, {kChunk - 1, kChunk, kChunk + 1, 3 * kChunk + 7}}};
  for (const auto& c : kCases) {
    for (size_t size : c.sizes) {
      SCOPED_TRACE("chunk " + std::to_string(c.chunk) + ", size " + std::to_string(size));
      const Bytes data = Sample(size);
      pdeflate::Settings settings;
      settings.chunkSize = c.chunk;
      const Bytes one = Compressed(data, settings, 1);
      EXPECT_EQ(Inflate(one, data.size()), data);
      for (int threads : {2, 3, 8}) EXPECT_EQ(Compressed(data, settings, threads), one) << threads;
    }
  }
}

// zlib's own header for each level and strategy, and a stream no larger than 1 % over zlib's
// single stream at the same settings.
TEST(ParallelDeflate, HeaderAndSizeMatchZlib) {
  const struct {
    int level;
    int strategy;
    uint8_t header[2];
  } kCases[] = {{0, Z_DEFAULT_STRATEGY, {0x78, 0x01}}, {1, Z_FILTERED, {0x78, 0x01}},
                {5, Z_DEFAULT_STRATEGY, {0x78, 0x5e}}, {-1, Z_FILTERED, {0x78, 0x9c}},
                {9, Z_DEFAULT_STRATEGY, {0x78, 0xda}}, {6, Z_HUFFMAN_ONLY, {0x78, 0x01}}};
  const Bytes data = Sample(5 * 40000 + 77);
  for (const auto& c : kCases) {
    SCOPED_TRACE("level " + std::to_string(c.level) + ", strategy " + std::to_string(c.strategy));
    pdeflate::Settings settings;
    settings.level = c.level;
    settings.strategy = c.strategy;
    settings.chunkSize = 40000;
    const Bytes stream = Compressed(data, settings, 3);
    ASSERT_GT(stream.size(), 2u);
    EXPECT_EQ(stream[0], c.header[0]);
    EXPECT_EQ(stream[1], c.header[1]);
    EXPECT_EQ(Inflate(stream, data.size()), data);
    z_stream z{};
    ASSERT_EQ(deflateInit2(&z, c.level, Z_DEFLATED, 15, 8, c.strategy), Z_OK);
    Bytes single(deflateBound(&z, data.size()));
    z.next_in = const_cast<Bytef*>(data.data());
    z.avail_in = static_cast<uInt>(data.size());
    z.next_out = single.data();
    z.avail_out = static_cast<uInt>(single.size());
    EXPECT_EQ(deflate(&z, Z_FINISH), Z_STREAM_END);
    EXPECT_LE(stream.size(), (single.size() - z.avail_out) * 1.01);
    deflateEnd(&z);
  }
}

TEST(ParallelDeflate, PythonInflatesIt) {
  if (system("python3 -c pass >/dev/null 2>&1") != 0) GTEST_SKIP() << "no python3";
  const Bytes data = Sample(700000);
  const Bytes stream = Compressed(data, pdeflate::Settings{}, 2);
  char path[] = "/tmp/pdeflate-XXXXXX";
  const int fd = mkstemp(path);
  ASSERT_GE(fd, 0);
  ASSERT_EQ(write(fd, stream.data(), stream.size()), ssize_t(stream.size()));
  close(fd);
  const std::string command = std::string("python3 -c \"import sys, zlib; d = zlib.decompress(") +
                              "open(sys.argv[1], 'rb').read()); print(len(d), zlib.adler32(d))\" " +
                              path;
  FILE* pipe = popen(command.c_str(), "r");
  ASSERT_NE(pipe, nullptr);
  char line[64] = {};
  const bool read = fgets(line, sizeof line, pipe) != nullptr;
  pclose(pipe);
  unlink(path);
  ASSERT_TRUE(read);
  EXPECT_EQ(std::string(line),
            std::to_string(data.size()) + " " +
                std::to_string(adler32(1, data.data(), static_cast<uInt>(data.size()))) + "\n");
}

// An allocator that refuses its `failAt`-th request and counts what is still held.
struct Allocations {
  std::atomic<int> requests{0};
  std::atomic<int> held{0};
  int failAt = 0;
};

voidpf Allocate(voidpf opaque, uInt items, uInt size) {
  auto* a = static_cast<Allocations*>(opaque);
  if (a->requests.fetch_add(1) == a->failAt) return Z_NULL;
  a->held.fetch_add(1);
  return calloc(items, size);
}

void Release(voidpf opaque, voidpf address) {
  static_cast<Allocations*>(opaque)->held.fetch_sub(1);
  free(address);
}

// zlib refusing the settings or running out of memory at any of its allocations, on several
// threads: no stream, and every allocation given back.
TEST(ParallelDeflate, FailuresReturnEmptyAndReleaseEverything) {
  const Bytes data = Sample(10 * 40000);
  Bytes out = {1, 2, 3};
  pdeflate::Settings refused;
  refused.level = 10;
  EXPECT_FALSE(pdeflate::Compress(data.data(), data.size(), refused, out));
  EXPECT_TRUE(out.empty());
  int failures = 0;
  for (int failAt = 0; failAt < 60; failAt += 3) {
    Allocations allocations;
    allocations.failAt = failAt;
    pdeflate::Settings settings;
    settings.chunkSize = 40000;
    settings.threads = 3;
    settings.zalloc = Allocate;
    settings.zfree = Release;
    settings.opaque = &allocations;
    out = {1};
    if (!pdeflate::Compress(data.data(), data.size(), settings, out)) {
      ++failures;
      EXPECT_TRUE(out.empty()) << failAt;
    }
    EXPECT_EQ(allocations.held.load(), 0) << failAt;
  }
  EXPECT_GT(failures, 0);
}

// The filtered rows libpng writes for `rows` with the filter mask `filters`: its IDAT inflated.
Bytes LibpngFiltered(const std::vector<Bytes>& rows, uint32_t width, int depth, int colorType,
                     int filters) {
  samples::Image image;
  image.width = width;
  image.height = static_cast<uint32_t>(rows.size());
  image.bitDepth = depth;
  image.colorType = colorType;
  image.rows = rows;
  image.filters = filters;
  Bytes idat;
  for (const samples::Chunk& chunk : samples::SplitChunks(samples::Encode(image))) {
    if (chunk.type == "IDAT") idat.insert(idat.end(), chunk.data.begin(), chunk.data.end());
  }
  return Inflate(idat, rows.size() * (rows[0].size() + 1));
}

// Rows whose best filter changes from row to row: flat, gradients across and down, noise.
std::vector<Bytes> Rows(size_t height, size_t rowBytes) {
  std::vector<Bytes> rows(height, Bytes(rowBytes));
  uint32_t state = 12345;
  for (size_t y = 0; y < height; ++y) {
    for (size_t x = 0; x < rowBytes; ++x) {
      state = state * 1103515245 + 12345;
      const uint8_t noise = static_cast<uint8_t>(state >> 16);
      const uint8_t kinds[] = {static_cast<uint8_t>(7), static_cast<uint8_t>(x * 3),
                               static_cast<uint8_t>(y * 5 + x / 9), noise,
                               static_cast<uint8_t>(x * y / 7 + (noise & 3))};
      rows[y][x] = kinds[(y / 2 + x / 50) % 5];
    }
  }
  return rows;
}

TEST(ParallelDeflate, FiltersRowsAsLibpngDoes) {
  const struct {
    int depth, colorType;
    unsigned bytesPerPixel, bitsPerPixel;
  } kLayouts[] = {{1, PNG_COLOR_TYPE_GRAY, 1, 1},
                  {8, PNG_COLOR_TYPE_GRAY, 1, 8},
                  {8, PNG_COLOR_TYPE_RGB, 3, 24},
                  {8, PNG_COLOR_TYPE_RGB_ALPHA, 4, 32},
                  {16, PNG_COLOR_TYPE_RGB_ALPHA, 8, 64}};
  const int kMasks[] = {PNG_ALL_FILTERS,
                        PNG_FILTER_NONE,
                        PNG_FILTER_SUB,
                        PNG_FILTER_UP,
                        PNG_FILTER_AVG,
                        PNG_FILTER_PAETH,
                        PNG_FILTER_SUB | PNG_FILTER_PAETH,
                        PNG_FILTER_NONE | PNG_FILTER_UP};
  const uint32_t width = 301, height = 41;
  for (const auto& layout : kLayouts) {
    const size_t rowBytes = (size_t{width} * layout.bitsPerPixel + 7) / 8;
    const std::vector<Bytes> rows = Rows(height, rowBytes);
    std::vector<const uint8_t*> pointers;
    for (const Bytes& row : rows) pointers.push_back(row.data());
    for (int mask : kMasks) {
      SCOPED_TRACE("bits " + std::to_string(layout.bitsPerPixel) + ", mask " +
                   std::to_string(mask));
      const Bytes expected = LibpngFiltered(rows, width, layout.depth, layout.colorType, mask);
      for (int threads : {1, 3}) {
        Bytes filtered;
        ASSERT_TRUE(pdeflate::FilterRows(pointers.data(), height, rowBytes, layout.bytesPerPixel,
                                         static_cast<unsigned>(mask), threads, filtered));
        EXPECT_EQ(filtered, expected) << threads;
      }
    }
  }
}

}  // namespace
