// The CgBI converter as a function over bytes: how the premultiplication is divided out, how a
// stream may end, which chunks it keeps, the bound on image data, and row filters that do not
// exist.
#include <gtest/gtest.h>
#include <zlib.h>

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
  return samples::DecodeRGBA(png, &w, &h);
}

std::vector<std::string> ChunkTypes(const Bytes& png) {
  std::vector<std::string> types;
  for (const Chunk& c : samples::SplitChunks(png)) types.push_back(c.type);
  return types;
}

// One row of 8-bit RGBA pixels stored as given.
samples::Image StoredRow(const Bytes& pixels) {
  samples::Image image;
  image.width = static_cast<uint32_t>(pixels.size() / 4);
  image.height = 1;
  image.colorType = 6;
  image.rows = {pixels};
  return image;
}

TEST(CgbiConvert, PremultiplicationDividedOutRounded) {
  struct Case {
    Bytes stored;  // blue, green, red, alpha
    Bytes expected;
  };
  const Case cases[] = {
      {{7, 8, 9, 255}, {9, 8, 7, 255}},
      {{10, 64, 1, 128}, {2, 128, 20, 128}},
      {{1, 1, 1, 3}, {85, 85, 85, 3}},
      {{2, 1, 0, 254}, {0, 1, 2, 254}},
      {{9, 200, 30, 0}, {0, 0, 0, 0}},
      {{1, 2, 3, 2}, {255, 255, 128, 2}},  // colour above alpha: at most 255
      {{200, 100, 50, 100}, {128, 255, 255, 100}},
  };
  Bytes stored, expected;
  for (const Case& c : cases) {
    stored.insert(stored.end(), c.stored.begin(), c.stored.end());
    expected.insert(expected.end(), c.expected.begin(), c.expected.end());
  }
  EXPECT_EQ(Decoded(Convert(samples::CgBIFile(StoredRow(stored), 1, {}))), expected);
}

TEST(CgbiConvert, StreamEndsWithOrWithoutIEND) {
  const Bytes stored = {1, 2, 3, 200, 4, 5, 6, 255, 0, 0, 0, 0};
  const Bytes good = samples::CgBIFile(StoredRow(stored), 2, {});
  const Bytes withoutEnd(good.begin(), good.end() - 12);
  Bytes fullEnd = samples::JoinChunks({samples::MakeChunk("IEND", {'x', 'y'})});
  fullEnd.insert(fullEnd.end(), {'j', 'u', 'n', 'k'});
  Bytes afterEnd = withoutEnd;
  afterEnd.insert(afterEnd.end(), fullEnd.begin() + 8, fullEnd.end());
  const struct {
    const char* what;
    Bytes data;
  } endings[] = {
      {"an empty IEND", good},
      {"no IEND", withoutEnd},
      {"an IEND without its CRC", Bytes(good.begin(), good.end() - 4)},
      {"an IEND with data, then bytes that are no chunk", afterEnd},
  };
  const Bytes expected = {4, 3, 1, 200, 6, 5, 4, 255, 0, 0, 0, 0};
  for (const auto& e : endings) {
    const Bytes png = Convert(e.data);
    EXPECT_EQ(ChunkTypes(png), (std::vector<std::string>{"IHDR", "IDAT", "IEND"})) << e.what;
    EXPECT_EQ(Decoded(png), expected) << e.what;
  }
}

Bytes Text(const std::string& text) {
  return Bytes(text.begin(), text.end());
}

Bytes Compressed(const Bytes& data) {
  Bytes out(compressBound(data.size()));
  uLongf size = out.size();
  compress(out.data(), &size, data.data(), data.size());
  out.resize(size);
  return out;
}

// The ancillary chunks that still describe the pixels are kept, in their order and before the
// image data; those with a wrong CRC and every other chunk are dropped.
TEST(CgbiConvert, KeepsTheChunksThatStillApply) {
  Bytes ztxt = Text(std::string("Comment\0\0", 9));
  const Bytes packed = Compressed(Text("small"));
  ztxt.insert(ztxt.end(), packed.begin(), packed.end());
  Chunk badText = samples::MakeChunk("tEXt", Text(std::string("Bad\0crc", 7)));
  badText.crc ^= 1;
  const std::vector<Chunk> before = {
      samples::MakeChunk("gAMA", {0, 0, 0xB1, 0x8F}),
      samples::MakeChunk("sRGB", {0}),
      samples::MakeChunk("iDOT", Bytes(28, 1)),
      samples::MakeChunk("pHYs", {0, 0, 0x0B, 0x13, 0, 0, 0x0B, 0x13, 1}),
      samples::MakeChunk("bKGD", {0, 1, 0, 2, 0, 3}),
      badText,
      samples::MakeChunk("tEXt", Text(std::string("Software\0tool", 13))),
      samples::MakeChunk("zTXt", ztxt),
  };
  const Chunk after = samples::MakeChunk("iTXt", Text(std::string("Title\0\0\0\0\0Hi", 12)));
  std::vector<Chunk> chunks =
      samples::SplitChunks(samples::CgBIFile(StoredRow({1, 2, 3, 255}), 2, before));
  chunks.insert(chunks.end() - 1, after);

  const std::vector<Chunk> out = samples::SplitChunks(Convert(samples::JoinChunks(chunks)));
  const std::vector<Chunk> kept = {before[0], before[1], before[3], before[6], before[7], after};
  ASSERT_EQ(out.size(), kept.size() + 3);
  EXPECT_EQ(out[0].type, "IHDR");
  for (size_t i = 0; i < kept.size(); ++i) {
    EXPECT_EQ(out[i + 1].type, kept[i].type) << i;
    EXPECT_EQ(out[i + 1].data, kept[i].data) << i;
    EXPECT_EQ(out[i + 1].crc, kept[i].crc) << i;
  }
  EXPECT_EQ(out[kept.size() + 1].type, "IDAT");
  EXPECT_EQ(out[kept.size() + 2].type, "IEND");
}

// A uniform RGBA image: its image data is (4 × width + 1) × height bytes.
Bytes UniformCgBI(uint32_t width, uint32_t height) {
  samples::Image image;
  image.width = width;
  image.height = height;
  image.colorType = 6;
  image.rows.assign(height, Bytes(4 * size_t{width}, 0x60));
  return samples::CgBIFile(image, 3, {});
}

TEST(CgbiConvert, ImageDataUpToTenMebibytes) {
  uint32_t w = 0, h = 0;
  const Bytes png = Convert(UniformCgBI(1638, 1600));  // 10,484,800 bytes
  EXPECT_EQ(samples::DecodeRGBA(png, &w, &h).size(), 1638u * 1600 * 4);
  EXPECT_TRUE(Convert(UniformCgBI(1640, 1600)).empty());  // 10,497,600 bytes
}

// One RGBA pixel whose row carries the given filter type.
Bytes OnePixelWithFilter(uint8_t filter) {
  const Bytes header = {0, 0, 0, 1, 0, 0, 0, 1, 8, 6, 0, 0, 0};
  std::vector<Chunk> chunks = {samples::MakeChunk("CgBI", {0x50, 0, 0x20, 2}),
                               samples::MakeChunk("IHDR", header)};
  for (Bytes& part : samples::RawDeflate({filter, 1, 2, 3, 255}, 1)) {
    chunks.push_back(samples::MakeChunk("IDAT", part));
  }
  return samples::JoinChunks(chunks);
}

TEST(CgbiConvert, FilterTypesZeroToFour) {
  const std::pair<uint8_t, Bytes> cases[] = {
      {0, {3, 2, 1, 255}}, {4, {3, 2, 1, 255}}, {5, {}}, {255, {}}};
  for (const auto& [filter, expected] : cases) {
    const Bytes png = Convert(OnePixelWithFilter(filter));
    EXPECT_EQ(png.empty() ? Bytes{} : Decoded(png), expected) << int{filter};
  }
}

}  // namespace
