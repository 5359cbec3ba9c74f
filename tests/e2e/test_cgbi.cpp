// CgBI data through the host: "OpenSpecialData" (the 100-chunk walk, the failure on any empty
// chunk, the ordinary IEND included, and pictures decoded from it) and "CgBIToPNGStringKRV".
#include "tests/e2e/Fixture.h"

namespace e2e {
namespace {

using samples::Bytes;
using samples::Chunk;

const samples::Image kImage = samples::Pattern(24, 16, 8, 6, false);

class CgBI : public PluginTest {};
class CgBIPicture : public PluginTest {};
class CgbiToPNG : public PluginTest {};

// The reader's data is the rewritten stream: no CgBI chunk, each IDAT a zlib block as long as
// the running total with a fresh CRC, the rest as it was, nothing after the 100th chunk.
TEST_F(CgBI, HundredChunksAreRewrittenAndOpened) {
  Reader reader;
  ASSERT_TRUE(reader.Ok("OpenSpecialData", {Str(samples::CgBIStream(kImage, 3, 100, true))}));
  const std::string source = Host().GetProperty(reader.object, "SourceData").Bytes();
  const std::vector<Chunk> chunks = samples::SplitChunks(Bytes(source.begin(), source.end()));
  ASSERT_EQ(chunks.size(), 99u);
  for (size_t i = 0; i < chunks.size(); ++i) {
    EXPECT_EQ(chunks[i].type, i == 0 ? "IHDR" : i < 4 ? "IDAT" : "tEXt");
    EXPECT_EQ(chunks[i].crc, samples::ChunkCRC(chunks[i]));
  }
  EXPECT_LT(chunks[1].data.size(), chunks[3].data.size());
}

// A failed conversion leaves the reader as it was: its source, and SwapRB off.
TEST_F(CgBI, FailuresLeaveTheReaderAsItWas) {
  const Bytes noEnd = samples::CgBIStream(kImage, 1, 5, false);
  const std::pair<const char*, emu::Value> kRefused[] = {
      {"nil", emu::Value::AdoptString(nullptr)},
      {"no signature", Str(Bytes(noEnd.begin() + 1, noEnd.end()))},
      {"the empty IEND chunk", Str(samples::CgBIStream(kImage, 1, 5, true))},
      {"chunks run out before IEND", Str(noEnd)},
  };
  const Bytes png = samples::Encode(samples::Pattern(5, 3, 8, 2, false));
  Reader reader;
  ASSERT_TRUE(reader.OpenData(png));
  for (const auto& [what, data] : kRefused) {
    EXPECT_FALSE(reader.Ok("OpenSpecialData", {data})) << what;
    EXPECT_FALSE(Host().LastException()) << what;
  }
  EXPECT_FALSE(Host().GetProperty(reader.object, "SwapRB").AsBoolean());
  EXPECT_EQ(Host().GetProperty(reader.object, "SourceData").Bytes(),
            std::string(png.begin(), png.end()));
  ASSERT_TRUE(reader.Ok("ApplyOptions"));
  EXPECT_EQ(reader.Int("Width"), 5);
  EXPECT_TRUE(reader.errors.empty());
}

// Red and blue are exchanged in CgBI pixels: the picture has them back in place. The chunk walk
// ends at an IEND of one byte (its CRC unread), before bytes that are no chunk.
TEST_F(CgBIPicture, DecodesWithRedAndBlueInPlace) {
  Bytes data = samples::CgBIStream(kImage, 1, 4, false);
  data.insert(data.end(), {0, 0, 0, 1, 'I', 'E', 'N', 'D', 0, 1, 2, 3, 4, 0xFF, 0xFF, 'I'});
  Bytes expected = Decoded(samples::Encode(kImage));
  for (size_t i = 0; i < expected.size(); i += 4) std::swap(expected[i], expected[i + 2]);
  Reader reader;
  ASSERT_TRUE(reader.Ok("OpenSpecialData", {Str(data)}));
  ASSERT_TRUE(reader.Ok("ApplyOptions", {-1.0}));
  ASSERT_TRUE(reader.Ok("ReadPicture"));
  EXPECT_EQ(Host().PictureRgba(reader.Call("CombinePictureWithMask")),
            std::string(expected.begin(), expected.end()));
  EXPECT_TRUE(reader.errors.empty());
}

// The standard PNG stream as a string of no encoding, or nil (what converts: unit CgbiConvert).
TEST_F(CgbiToPNG, StandardPNGStringOrNil) {
  const samples::Image opaque = samples::Pattern(9, 5, 8, 2, false);
  const Bytes cgbi = samples::CgBIFile(samples::CgBIPixels(opaque), 2, {});
  const emu::Value png = Host().CallGlobal("CgBIToPNGStringKRV", {Str(cgbi)});
  EXPECT_EQ(png.Encoding(), kREALTextEncodingUnknown);
  const std::string bytes = png.Bytes();
  EXPECT_EQ(bytes.substr(bytes.size() - 8), "IEND\xAE\x42\x60\x82");  // whole, to the last byte
  EXPECT_EQ(Decoded(Bytes(bytes.begin(), bytes.end())), Decoded(samples::Encode(opaque)));
  for (const emu::Value& data :
       {emu::Value::AdoptString(nullptr), Str({}), Str(samples::Encode(opaque))}) {
    EXPECT_TRUE(Host().CallGlobal("CgBIToPNGStringKRV", {data}).IsNil());
  }
  EXPECT_FALSE(Host().LastException());
}

}  // namespace
}  // namespace e2e
