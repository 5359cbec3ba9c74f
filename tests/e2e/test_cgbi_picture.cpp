// CgBI data decoded into pictures: red and blue back in place, the chunk walk ending at a
// non-empty IEND, and a failed conversion that leaves the reader as it was.
#include "tests/e2e/Fixture.h"

namespace e2e {
namespace {

using samples::Bytes;

class CgBIPicture : public PluginTest {};

Bytes Rgba(const emu::Value& picture) {
  const std::string bytes = Host().PictureRgba(picture);
  return Bytes(bytes.begin(), bytes.end());
}

// CgBI data of `image` with red and blue exchanged in its pixels, as such data stores them,
// ending with an IEND chunk of one byte and bytes that are no chunk.
Bytes StoredAsCgBI(samples::Image image) {
  for (Bytes& row : image.rows) {
    for (size_t i = 0; i < row.size(); i += 4) std::swap(row[i], row[i + 2]);
  }
  std::vector<samples::Chunk> chunks =
      samples::SplitChunks(samples::CgBIStream(image, 1, 4, false));
  chunks.push_back(samples::MakeChunk("IEND", {0}));
  Bytes data = samples::JoinChunks(chunks);
  data.insert(data.end(), {0xFF, 0xFF, 0xFF, 0xFF, 'I'});
  return data;
}

TEST_F(CgBIPicture, DecodesWithRedAndBlueInPlace) {
  const samples::Image image = samples::Pattern(24, 16, 8, 6, false);
  uint32_t w = 0, h = 0;
  const Bytes expected = samples::DecodeRGBA(samples::Encode(image), &w, &h);
  Reader reader;
  ASSERT_TRUE(reader.Ok("OpenSpecialData", {Str(StoredAsCgBI(image))}));
  ASSERT_TRUE(reader.Ok("ApplyOptions", {-1.0}));
  ASSERT_TRUE(reader.Ok("ReadPicture"));
  EXPECT_EQ(Rgba(reader.Call("CombinePictureWithMask")), expected);
  EXPECT_TRUE(reader.errors.empty());
}

TEST_F(CgBIPicture, FailedConversionLeavesTheReaderAsItWas) {
  const Bytes png = samples::Encode(samples::Pattern(5, 3, 8, 2, false));
  const Bytes endsEmpty = samples::CgBIStream(samples::Pattern(4, 4, 8, 6, false), 1, 5, true);
  Reader reader;
  ASSERT_TRUE(reader.OpenData(png));
  EXPECT_FALSE(reader.Ok("OpenSpecialData", {Str(endsEmpty)}));
  EXPECT_FALSE(Host().GetProperty(reader.object, "SwapRB").AsBoolean());
  EXPECT_EQ(Host().GetProperty(reader.object, "SourceData").Bytes(),
            std::string(png.begin(), png.end()));
  ASSERT_TRUE(reader.Ok("ApplyOptions"));
  EXPECT_EQ(reader.Int("Width"), 5) << "the stream opened before is still the source";
}

}  // namespace
}  // namespace e2e
