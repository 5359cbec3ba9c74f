// The CgBI converter as a function over bytes: premultiplication rounding, how a stream may end,
// which chunks it keeps, the bound on image data, and row filters that do not exist.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "reader/CgBIConvert.h"
#include "tools/samples/Samples.h"

namespace {

using samples::Bytes;
using samples::Chunk;

Bytes Convert(const Bytes& data) {
  const PNGBytes png = ConvertCgBIToPNG(data.data(), data.size());
  if (png.bytes == nullptr) return {};
  return Bytes(png.bytes.get(), png.bytes.get() + png.size);
}

Bytes Decoded(const Bytes& png) {
  uint32_t w = 0, h = 0;
  return png.empty() ? Bytes{} : samples::DecodeRGBA(png, &w, &h);
}

// The chunk types of a PNG stream, joined.
std::string Types(const Bytes& png) {
  std::string types;
  for (const Chunk& c : samples::SplitChunks(png)) types += c.type;
  return types;
}

// A width × height RGBA image whose rows are stored as given, in `parts` IDAT chunks.
Bytes Stored(uint32_t width, uint32_t height, const Bytes& row, int parts,
             const std::vector<Chunk>& extra = {}) {
  samples::Image image;
  image.width = width;
  image.height = height;
  image.colorType = 6;
  image.rows.assign(height, row);
  return samples::CgBIFile(image, parts, extra);
}

Chunk Text(const char* type, const std::string& text) {
  return samples::MakeChunk(type, Bytes(text.begin(), text.end()));
}

TEST(CgbiConvert, PremultiplicationDividedOutRounded) {
  const std::pair<Bytes, Bytes> cases[] = {
      // stored blue, green, red, alpha -> red, green, blue, alpha
      {{7, 8, 9, 255}, {9, 8, 7, 255}},
      {{10, 64, 1, 128}, {2, 128, 20, 128}},
      {{1, 1, 1, 3}, {85, 85, 85, 3}},
      {{2, 1, 0, 254}, {0, 1, 2, 254}},
      {{9, 200, 30, 0}, {0, 0, 0, 0}},
      {{1, 2, 3, 2}, {255, 255, 128, 2}},  // colour above alpha: at most 255
      {{200, 100, 50, 100}, {128, 255, 255, 100}},
  };
  Bytes stored, expected;
  for (const auto& [in, out] : cases) {
    stored.insert(stored.end(), in.begin(), in.end());
    expected.insert(expected.end(), out.begin(), out.end());
  }
  EXPECT_EQ(Decoded(Convert(Stored(std::size(cases), 1, stored, 1))), expected);
}

TEST(CgbiConvert, StreamEndsWithOrWithoutIEND) {
  const Bytes good = Stored(3, 1, {1, 2, 3, 200, 4, 5, 6, 255, 0, 0, 0, 0}, 2);
  const Bytes withoutEnd(good.begin(), good.end() - 12);
  const Bytes iend = samples::JoinChunks({Text("IEND", "xy")});
  Bytes afterEnd = withoutEnd;
  afterEnd.insert(afterEnd.end(), iend.begin() + 8, iend.end());
  afterEnd.insert(afterEnd.end(), {'j', 'u', 'n', 'k'});
  const std::pair<const char*, Bytes> endings[] = {
      {"an empty IEND", good},
      {"no IEND", withoutEnd},
      {"an IEND without its CRC", Bytes(good.begin(), good.end() - 4)},
      {"an IEND with data, then bytes that are no chunk", afterEnd},
  };
  for (const auto& [what, data] : endings) {
    const Bytes png = Convert(data);
    EXPECT_EQ(Types(png), "IHDRIDATIEND") << what;
    EXPECT_EQ(Decoded(png), Bytes({4, 3, 1, 200, 6, 5, 4, 255, 0, 0, 0, 0})) << what;
  }
}

// The ancillary chunks that still describe the pixels are kept, in their order and before the
// image data; those with a wrong CRC and every other chunk are dropped.
TEST(CgbiConvert, KeepsTheChunksThatStillApply) {
  Chunk badText = Text("tEXt", std::string("Bad\0crc", 7));
  badText.crc ^= 1;
  const std::vector<Chunk> before = {
      samples::MakeChunk("gAMA", {0, 0, 0xB1, 0x8F}),
      samples::MakeChunk("sRGB", {0}),
      samples::MakeChunk("iDOT", Bytes(28, 1)),
      samples::MakeChunk("pHYs", {0, 0, 0x0B, 0x13, 0, 0, 0x0B, 0x13, 1}),
      samples::MakeChunk("bKGD", {0, 1, 0, 2, 0, 3}),
      badText,
      Text("tEXt", std::string("Software\0tool", 13)),
      Text("zTXt", std::string("Comment\0\0x\x9C", 11)),
  };
  const Chunk after = Text("iTXt", std::string("Title\0\0\0\0\0Hi", 12));
  std::vector<Chunk> chunks = samples::SplitChunks(Stored(1, 1, {1, 2, 3, 255}, 2, before));
  chunks.insert(chunks.end() - 1, after);

  const Bytes png = Convert(samples::JoinChunks(chunks));
  ASSERT_EQ(Types(png), "IHDRgAMAsRGBpHYstEXtzTXtiTXtIDATIEND");
  const std::vector<Chunk> out = samples::SplitChunks(png);
  // Byte for byte: type, data and CRC.
  EXPECT_EQ(samples::JoinChunks({out.begin() + 1, out.end() - 2}),
            samples::JoinChunks({before[0], before[1], before[3], before[6], before[7], after}));
}

// Image data of (4 × width + 1) × height bytes: up to 10 MiB.
TEST(CgbiConvert, ImageDataUpToTenMebibytes) {
  const Bytes png = Convert(Stored(1638, 1600, Bytes(4 * 1638, 0x60), 3));  // 10,484,800 bytes
  EXPECT_EQ(Decoded(png).size(), 1638u * 1600 * 4);
  EXPECT_TRUE(Convert(Stored(1640, 1600, Bytes(4 * 1640, 0x60), 3)).empty());  // 10,497,600
}

TEST(CgbiConvert, FilterTypesZeroToFour) {
  const std::pair<uint8_t, Bytes> cases[] = {
      {0, {3, 2, 1, 255}}, {4, {3, 2, 1, 255}}, {5, {}}, {255, {}}};
  for (const auto& [filter, expected] : cases) {
    std::vector<Chunk> chunks = {
        samples::MakeChunk("CgBI", {0x50, 0, 0x20, 2}),
        samples::MakeChunk("IHDR", {0, 0, 0, 1, 0, 0, 0, 1, 8, 6, 0, 0, 0})};
    for (Bytes& part : samples::RawDeflate({filter, 1, 2, 3, 255}, 1)) {
      chunks.push_back(samples::MakeChunk("IDAT", part));
    }
    EXPECT_EQ(Decoded(Convert(samples::JoinChunks(chunks))), expected) << int{filter};
  }
}

}  // namespace
