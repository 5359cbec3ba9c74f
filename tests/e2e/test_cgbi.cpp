// CgBI data through "OpenSpecialData": streams built here from ordinary PNGs (raw deflate image
// data, a CgBI chunk before the header), with their limits: the 100-chunk table and the failure
// on any empty chunk, the ordinary IEND included.
#include "tests/e2e/Fixture.h"

namespace e2e {
namespace {

using samples::Bytes;
using samples::Chunk;

const samples::Image kImage = samples::Pattern(24, 16, 8, 6, false);

Bytes CgBIStream(int parts, int total, bool end) {
  return samples::CgBIStream(kImage, parts, total, end);
}

class CgBI : public PluginTest {};

TEST_F(CgBI, HundredChunksAreRewrittenAndOpened) {
  Reader reader;
  ASSERT_TRUE(reader.Ok("OpenSpecialData", {Str(CgBIStream(1, 100, true))}));
  EXPECT_TRUE(Host().GetProperty(reader.object, "SwapRB").AsBoolean());

  // The rewritten stream is the reader's data: no CgBI chunk, the IDAT a zlib stream with a
  // fresh CRC, every other chunk as it was, and nothing after the 100th chunk.
  const std::string source = Host().GetProperty(reader.object, "SourceData").Bytes();
  const std::vector<Chunk> chunks = samples::SplitChunks(Bytes(source.begin(), source.end()));
  ASSERT_EQ(chunks.size(), 99u);
  EXPECT_EQ(chunks[0].type, "IHDR");
  EXPECT_EQ(chunks[1].type, "IDAT");
  EXPECT_EQ(chunks[1].crc, samples::ChunkCRC(chunks[1]));
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
  EXPECT_EQ(samples::SplitChunks(Bytes(source.begin(), source.end())).size(), 99u);
}

TEST_F(CgBI, SeveralIDATChunksCarryRunningTotals) {
  Reader reader;
  ASSERT_TRUE(reader.Ok("OpenSpecialData", {Str(CgBIStream(3, 100, false))}));
  const std::string source = Host().GetProperty(reader.object, "SourceData").Bytes();
  const std::vector<Chunk> chunks = samples::SplitChunks(Bytes(source.begin(), source.end()));
  ASSERT_EQ(chunks[3].type, "IDAT");
  EXPECT_LT(chunks[1].data.size(), chunks[3].data.size());
  EXPECT_EQ(chunks[3].crc, samples::ChunkCRC(chunks[3]));
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
  std::vector<Chunk> chunks = samples::SplitChunks(samples::Encode(kImage));
  chunks.pop_back();
  while (chunks.size() < 100) chunks.push_back(samples::MakeChunk("tEXt", {'k', 0, 'v'}));
  EXPECT_FALSE(reader.Ok("OpenSpecialData", {Str(samples::JoinChunks(chunks))}));
  EXPECT_FALSE(Host().GetProperty(reader.object, "SwapRB").AsBoolean());
  EXPECT_TRUE(reader.errors.empty());
  EXPECT_FALSE(Host().LastException());
}

}  // namespace
}  // namespace e2e
