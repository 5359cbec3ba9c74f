// CgBI data through "OpenSpecialData": streams built here from ordinary PNGs (raw deflate image
// data, a CgBI chunk before the header), with their limits: the 100-chunk table and the failure
// on any empty chunk, the ordinary IEND included.
#include <string.h>
#include <zlib.h>

#include <algorithm>

#include "tests/e2e/Fixture.h"

namespace e2e {
namespace {

using samples::Bytes;

struct Chunk {
  std::string type;
  Bytes data;
  uint32_t crc = 0;
};

uint32_t BigEndian(const uint8_t* p) {
  return uint32_t{p[0]} << 24 | uint32_t{p[1]} << 16 | uint32_t{p[2]} << 8 | p[3];
}

uint32_t CRC(const Chunk& c) {
  uLong crc = crc32(0, reinterpret_cast<const Bytef*>(c.type.data()), 4);
  return static_cast<uint32_t>(crc32(crc, c.data.data(), static_cast<uInt>(c.data.size())));
}

std::vector<Chunk> Split(const Bytes& png) {
  std::vector<Chunk> chunks;
  for (size_t at = 8; at + 12 <= png.size();) {
    const uint32_t length = BigEndian(&png[at]);
    Chunk c{std::string(png.begin() + at + 4, png.begin() + at + 8),
            Bytes(png.begin() + at + 8, png.begin() + at + 8 + length),
            BigEndian(&png[at + 8 + length])};
    chunks.push_back(c);
    at += 12 + length;
  }
  return chunks;
}

Bytes Join(const std::vector<Chunk>& chunks) {
  Bytes out = {0x89, 'P', 'N', 'G', 0x0D, 0x0A, 0x1A, 0x0A};
  for (const Chunk& c : chunks) {
    const uint32_t length = static_cast<uint32_t>(c.data.size());
    for (int i = 3; i >= 0; --i) out.push_back(static_cast<uint8_t>(length >> (8 * i)));
    out.insert(out.end(), c.type.begin(), c.type.end());
    out.insert(out.end(), c.data.begin(), c.data.end());
    for (int i = 3; i >= 0; --i) out.push_back(static_cast<uint8_t>(c.crc >> (8 * i)));
  }
  return out;
}

Chunk Make(const std::string& type, Bytes data) {
  Chunk c{type, std::move(data), 0};
  c.crc = CRC(c);
  return c;
}

// The zlib stream's content as raw deflate, split into `parts` chunks. The data is inflated
// chunk by chunk through a 256-byte window, so a split stream must not reach further back: it
// is coded without back-references.
std::vector<Bytes> RawDeflate(const Bytes& zlibStream, int parts) {
  Bytes inflated(1 << 20);
  uLongf size = inflated.size();
  EXPECT_EQ(uncompress(inflated.data(), &size, zlibStream.data(), zlibStream.size()), Z_OK);
  z_stream z = {};
  deflateInit2(&z, 9, Z_DEFLATED, -15, 8, parts > 1 ? Z_HUFFMAN_ONLY : Z_DEFAULT_STRATEGY);
  Bytes raw(compressBound(size) + 64);
  z.next_in = inflated.data();
  z.avail_in = static_cast<uInt>(size);
  z.next_out = raw.data();
  z.avail_out = static_cast<uInt>(raw.size());
  deflate(&z, Z_FINISH);
  raw.resize(z.total_out);
  deflateEnd(&z);
  std::vector<Bytes> split;
  const size_t step = (raw.size() + parts - 1) / parts;
  for (size_t at = 0; at < raw.size(); at += step) {
    split.emplace_back(raw.begin() + at, raw.begin() + std::min(raw.size(), at + step));
  }
  return split;
}

const samples::Image kImage = samples::Pattern(24, 16, 8, 6, false);

// CgBI, IHDR, the image data in `parts` IDAT chunks, then text chunks up to `total` chunks, and
// IEND when asked.
Bytes CgBIStream(int parts, int total, bool end) {
  const std::vector<Chunk> png = Split(samples::Encode(kImage));
  std::vector<Chunk> out = {Make("CgBI", {0x50, 0x00, 0x20, 0x06}), png[0]};
  for (Bytes& part : RawDeflate(png[1].data, parts)) out.push_back(Make("IDAT", part));
  for (int i = static_cast<int>(out.size()); i < total; ++i) {
    out.push_back(Make("tEXt", {'k', 0, static_cast<uint8_t>('a' + i % 26)}));
  }
  if (end) out.push_back(Make("IEND", {}));
  return Join(out);
}

class CgBI : public PluginTest {};

TEST_F(CgBI, HundredChunksAreRewrittenAndOpened) {
  Reader reader;
  ASSERT_TRUE(reader.Ok("OpenSpecialData", {Str(CgBIStream(1, 100, true))}));
  EXPECT_TRUE(Host().GetProperty(reader.object, "SwapRB").AsBoolean());

  // The rewritten stream is the reader's data: no CgBI chunk, the IDAT a zlib stream with a
  // fresh CRC, every other chunk as it was, and nothing after the 100th chunk.
  const std::string source = Host().GetProperty(reader.object, "SourceData").Bytes();
  const std::vector<Chunk> chunks = Split(Bytes(source.begin(), source.end()));
  ASSERT_EQ(chunks.size(), 99u);
  EXPECT_EQ(chunks[0].type, "IHDR");
  EXPECT_EQ(chunks[1].type, "IDAT");
  EXPECT_EQ(chunks[1].crc, CRC(chunks[1]));
  for (size_t i = 2; i < chunks.size(); ++i) EXPECT_EQ(chunks[i].type, "tEXt");

  ASSERT_TRUE(reader.Ok("ApplyOptions", {-1.0}));
  uint32_t w = 0, h = 0;
  const Bytes expected = samples::DecodeRGBA(samples::Encode(kImage), &w, &h);
  emu::Value row = Host().NewMemoryBlock(24 * 4);
  for (uint32_t y = 0; y < h; ++y) {
    ASSERT_TRUE(reader.Ok("ReadRow", {row}));
    const std::string bytes = Host().BlockBytes(row);
    EXPECT_EQ(Bytes(bytes.begin(), bytes.end()),
              Bytes(expected.begin() + y * w * 4, expected.begin() + (y + 1) * w * 4));
  }
}

TEST_F(CgBI, StreamsBeyondHundredChunksAreCut) {
  Reader reader;
  ASSERT_TRUE(reader.Ok("OpenSpecialData", {Str(CgBIStream(1, 130, false))}));
  const std::string source = Host().GetProperty(reader.object, "SourceData").Bytes();
  EXPECT_EQ(Split(Bytes(source.begin(), source.end())).size(), 99u);
}

TEST_F(CgBI, SeveralIDATChunksCarryRunningTotals) {
  Reader reader;
  ASSERT_TRUE(reader.Ok("OpenSpecialData", {Str(CgBIStream(3, 100, false))}));
  const std::string source = Host().GetProperty(reader.object, "SourceData").Bytes();
  const std::vector<Chunk> chunks = Split(Bytes(source.begin(), source.end()));
  ASSERT_EQ(chunks[3].type, "IDAT");
  EXPECT_LT(chunks[1].data.size(), chunks[3].data.size());
  EXPECT_EQ(chunks[3].crc, CRC(chunks[3]));
}

TEST_F(CgBI, Failures) {
  Reader reader;
  const Bytes good = CgBIStream(1, 100, false);
  EXPECT_FALSE(reader.Ok("OpenSpecialData", {emu::Value::AdoptString(nullptr)}));
  EXPECT_FALSE(reader.Ok("OpenSpecialData", {Str(Bytes(good.begin() + 1, good.end()))}))
      << "no signature";
  EXPECT_FALSE(reader.Ok("OpenSpecialData", {Str(CgBIStream(1, 5, true))}))
      << "the empty IEND chunk";
  EXPECT_FALSE(reader.Ok("OpenSpecialData", {Str(CgBIStream(1, 5, false))}))
      << "chunks run out before IEND";
  EXPECT_FALSE(reader.Ok("OpenSpecialData", {Str(Bytes(good.begin(), good.end() - 5))}))
      << "the last chunk runs past the end";
  // Ordinary zlib image data is not raw deflate.
  std::vector<Chunk> chunks = Split(samples::Encode(kImage));
  chunks.pop_back();
  while (chunks.size() < 100) chunks.push_back(Make("tEXt", {'k', 0, 'v'}));
  EXPECT_FALSE(reader.Ok("OpenSpecialData", {Str(Join(chunks))}));
  EXPECT_FALSE(Host().GetProperty(reader.object, "SwapRB").AsBoolean());
  EXPECT_TRUE(reader.errors.empty());
  EXPECT_FALSE(Host().LastException());
}

}  // namespace
}  // namespace e2e
