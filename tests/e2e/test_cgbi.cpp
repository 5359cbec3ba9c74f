// CgBI data through "OpenSpecialData": the 100-chunk table, the failure on any empty chunk (the
// ordinary IEND included), and pictures decoded from it.
#include "tests/e2e/Fixture.h"

namespace e2e {
namespace {

using samples::Bytes;
using samples::Chunk;

const samples::Image kImage = samples::Pattern(24, 16, 8, 6, false);

std::vector<Chunk> SourceChunks(Reader& reader) {
  const std::string source = Host().GetProperty(reader.object, "SourceData").Bytes();
  return samples::SplitChunks(Bytes(source.begin(), source.end()));
}

class CgBI : public PluginTest {};
class CgBIPicture : public PluginTest {};

// The rewritten stream is the reader's data: no CgBI chunk, the IDAT a zlib stream with a fresh
// CRC, every other chunk as it was, and nothing after the 100th chunk (the IEND after it unread).
TEST_F(CgBI, HundredChunksAreRewrittenAndOpened) {
  Reader reader;
  ASSERT_TRUE(reader.Ok("OpenSpecialData", {Str(samples::CgBIStream(kImage, 1, 100, true))}));
  EXPECT_TRUE(Host().GetProperty(reader.object, "SwapRB").AsBoolean());
  const std::vector<Chunk> chunks = SourceChunks(reader);
  ASSERT_EQ(chunks.size(), 99u);
  EXPECT_EQ(chunks[0].type, "IHDR");
  EXPECT_EQ(chunks[1].type, "IDAT");
  EXPECT_EQ(chunks[1].crc, samples::ChunkCRC(chunks[1]));
  for (size_t i = 2; i < chunks.size(); ++i) EXPECT_EQ(chunks[i].type, "tEXt");
}

TEST_F(CgBI, SeveralIDATChunksCarryRunningTotals) {
  Reader reader;
  ASSERT_TRUE(reader.Ok("OpenSpecialData", {Str(samples::CgBIStream(kImage, 3, 100, false))}));
  const std::vector<Chunk> chunks = SourceChunks(reader);
  ASSERT_EQ(chunks[3].type, "IDAT");
  EXPECT_LT(chunks[1].data.size(), chunks[3].data.size());
  EXPECT_EQ(chunks[3].crc, samples::ChunkCRC(chunks[3]));
}

// A failed conversion leaves the reader as it was: its source, and SwapRB off.
TEST_F(CgBI, FailuresLeaveTheReaderAsItWas) {
  const Bytes good = samples::CgBIStream(kImage, 1, 100, false);
  std::vector<Chunk> zlib = samples::SplitChunks(samples::Encode(kImage));
  zlib.pop_back();
  while (zlib.size() < 100) zlib.push_back(samples::MakeChunk("tEXt", {'k', 0, 'v'}));
  const struct {
    const char* what;
    emu::Value data;
  } kRefused[] = {
      {"nil", emu::Value::AdoptString(nullptr)},
      {"no signature", Str(Bytes(good.begin() + 1, good.end()))},
      {"the empty IEND chunk", Str(samples::CgBIStream(kImage, 1, 5, true))},
      {"chunks run out before IEND", Str(samples::CgBIStream(kImage, 1, 5, false))},
      {"the last chunk runs past the end", Str(Bytes(good.begin(), good.end() - 5))},
      {"zlib image data, not raw deflate", Str(samples::JoinChunks(zlib))},
  };
  const Bytes png = samples::Encode(samples::Pattern(5, 3, 8, 2, false));
  Reader reader;
  ASSERT_TRUE(reader.OpenData(png));
  for (const auto& r : kRefused) {
    EXPECT_FALSE(reader.Ok("OpenSpecialData", {r.data})) << r.what;
    EXPECT_FALSE(Host().LastException()) << r.what;
  }
  EXPECT_FALSE(Host().GetProperty(reader.object, "SwapRB").AsBoolean());
  EXPECT_EQ(Host().GetProperty(reader.object, "SourceData").Bytes(),
            std::string(png.begin(), png.end()));
  ASSERT_TRUE(reader.Ok("ApplyOptions"));
  EXPECT_EQ(reader.Int("Width"), 5);
  EXPECT_TRUE(reader.errors.empty());
}

// Red and blue exchanged in the stored pixels, as CgBI data has them, come back in place; the
// chunk walk ends at an IEND of one byte, before bytes that are no chunk.
TEST_F(CgBIPicture, DecodesWithRedAndBlueInPlace) {
  samples::Image stored = kImage;
  for (Bytes& row : stored.rows) {
    for (size_t i = 0; i < row.size(); i += 4) std::swap(row[i], row[i + 2]);
  }
  std::vector<Chunk> chunks = samples::SplitChunks(samples::CgBIStream(stored, 1, 4, false));
  chunks.push_back(samples::MakeChunk("IEND", {0}));
  Bytes data = samples::JoinChunks(chunks);
  data.insert(data.end(), {0xFF, 0xFF, 0xFF, 0xFF, 'I'});
  uint32_t w = 0, h = 0;
  const Bytes expected = samples::DecodeRGBA(samples::Encode(kImage), &w, &h);
  Reader reader;
  ASSERT_TRUE(reader.Ok("OpenSpecialData", {Str(data)}));
  ASSERT_TRUE(reader.Ok("ApplyOptions", {-1.0}));
  ASSERT_TRUE(reader.Ok("ReadPicture"));
  EXPECT_EQ(Host().PictureRgba(reader.Call("CombinePictureWithMask")),
            std::string(expected.begin(), expected.end()));
  EXPECT_TRUE(reader.errors.empty());
}

}  // namespace
}  // namespace e2e
