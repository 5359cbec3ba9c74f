// The CgBI converter as a function over bytes: row filters and passes, premultiplication
// rounding, how a stream may end, which chunks it keeps, the bound on image data, refusals.
#include <gtest/gtest.h>
#include <png.h>

#include <string>
#include <tuple>
#include <vector>

#include "reader/CgBIConvert.h"
#include "tools/samples/Samples.h"

namespace {

using samples::Bytes;
using samples::Chunk;

Bytes Convert(const Bytes& data) {
  const PNGBytes png = ConvertCgBIToPNG(data.data(), data.size());
  return png.bytes ? Bytes(png.bytes.get(), png.bytes.get() + png.size) : Bytes{};
}

Bytes Decoded(const Bytes& png) {
  uint32_t w = 0, h = 0;
  return png.empty() ? Bytes{} : samples::DecodeRGBA(png, &w, &h);
}

// A width × height RGBA image whose rows are stored as given, in `parts` IDAT chunks.
Bytes Stored(uint32_t width, uint32_t height, const Bytes& row, int parts,
             const std::vector<Chunk>& extra = {}) {
  samples::Image image = samples::Pattern(width, height, 8, PNG_COLOR_TYPE_RGB_ALPHA, false);
  image.rows.assign(height, row);
  return samples::CgBIFile(image, parts, extra);
}

Chunk Text(const char* type, const std::string& text) {
  return samples::MakeChunk(type, Bytes(text.begin(), text.end()));
}

// Rows stored with each filter, in one pass or Adam7's (3 × 2 leaves passes empty). Translucent
// pixels get colours of 0 or 255, which premultiplication keeps exactly; transparent ones 0.
TEST(CgbiConvert, RowFiltersAndPasses) {
  const std::tuple<uint32_t, uint32_t, int, bool, int, int> kCases[] = {
      // width, height, colour type, interlaced, libpng's filters, IDAT chunks
      {17, 11, PNG_COLOR_TYPE_RGB_ALPHA, false, PNG_FILTER_NONE, 1},
      {17, 11, PNG_COLOR_TYPE_RGB_ALPHA, false, PNG_FILTER_SUB, 3},
      {17, 11, PNG_COLOR_TYPE_RGB_ALPHA, false, PNG_FILTER_UP, 4},
      {17, 11, PNG_COLOR_TYPE_RGB_ALPHA, false, PNG_FILTER_AVG, 5},
      {17, 11, PNG_COLOR_TYPE_RGB_ALPHA, false, PNG_FILTER_PAETH, 7},
      {40, 37, PNG_COLOR_TYPE_RGB_ALPHA, true, PNG_ALL_FILTERS, 6},
      {3, 2, PNG_COLOR_TYPE_RGB_ALPHA, true, PNG_ALL_FILTERS, 2},
      {20, 9, PNG_COLOR_TYPE_RGB, true, PNG_ALL_FILTERS, 3},
  };
  const uint8_t alphas[] = {255, 0, 128, 200, 254, 77, 1, 255, 160, 129, 33};
  for (const auto& [width, height, colorType, interlaced, filters, parts] : kCases) {
    SCOPED_TRACE(testing::Message() << width << "x" << height << " filters " << filters);
    samples::Image image = samples::Pattern(width, height, 8, colorType, interlaced);
    for (uint32_t y = 0; y < height && colorType == PNG_COLOR_TYPE_RGB_ALPHA; ++y) {
      for (uint32_t x = 0; x < width; ++x) {
        uint8_t* p = &image.rows[y][4 * x];
        p[3] = alphas[(x + 3 * y) % std::size(alphas)];
        for (int i = 0; i < 3 && p[3] != 255; ++i) p[i] = p[3] && p[i] >= 128 ? 255 : 0;
      }
    }
    image.filters = filters;
    EXPECT_EQ(Decoded(Convert(samples::CgBIFile(samples::CgBIPixels(image), parts, {}))),
              Decoded(samples::Encode(image)));
  }
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
  };
  for (const auto& [in, out] : cases) EXPECT_EQ(Decoded(Convert(Stored(1, 1, in, 1))), out);
}

TEST(CgbiConvert, StreamEndsWithOrWithoutIEND) {
  const Bytes good = Stored(3, 1, {1, 2, 3, 200, 4, 5, 6, 255, 0, 0, 0, 0}, 2);
  Bytes tail(good.begin(), good.end() - 12);  // IEND with "xy" and a CRC, then "junk"
  tail.insert(tail.end(),
              {0, 0, 0, 2, 'I', 'E', 'N', 'D', 'x', 'y', 1, 2, 3, 4, 'j', 'u', 'n', 'k'});
  const std::pair<const char*, Bytes> endings[] = {
      {"an empty IEND", good},
      {"no IEND", Bytes(good.begin(), good.end() - 12)},
      {"an IEND without its CRC", Bytes(good.begin(), good.end() - 4)},
      {"an IEND with data, then bytes that are no chunk", tail},
  };
  for (const auto& [what, data] : endings) {
    EXPECT_EQ(Decoded(Convert(data)), Bytes({4, 3, 1, 200, 6, 5, 4, 255, 0, 0, 0, 0})) << what;
  }
}

// The ancillary chunks that still describe the pixels are kept byte for byte, in their order and
// between the header and the image data; those with a wrong CRC and every other chunk are dropped.
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
  const std::vector<Chunk> out = samples::SplitChunks(Convert(samples::JoinChunks(chunks)));
  ASSERT_EQ(out.size(), 9u);
  EXPECT_EQ(out[0].type + out[7].type + out[8].type, "IHDRIDATIEND");
  EXPECT_EQ(samples::JoinChunks({out.begin() + 1, out.end() - 2}),
            samples::JoinChunks({before[0], before[1], before[3], before[6], before[7], after}));
}

// Image data of (4 × width + 1) × height bytes: up to 10 MiB.
TEST(CgbiConvert, ImageDataUpToTenMebibytes) {
  const Bytes png = Convert(Stored(1638, 1600, Bytes(4 * 1638, 0x60), 3));  // 10,484,800 bytes
  EXPECT_EQ(Decoded(png).size(), 1638u * 1600 * 4);
  EXPECT_TRUE(Convert(Stored(1640, 1600, Bytes(4 * 1640, 0x60), 3)).empty());  // 10,497,600
}

TEST(CgbiConvert, RefusesWhatDoesNotConvert) {
  const Bytes good = Stored(2, 2, {1, 2, 3, 255, 4, 5, 6, 128}, 2);
  ASSERT_FALSE(Convert(good).empty());
  const std::vector<Chunk> chunks = samples::SplitChunks(good);  // CgBI, IHDR, 2 × IDAT, IEND
  const auto with = [&](size_t index, Chunk chunk, uint32_t crcFlip = 0) {
    std::vector<Chunk> changed = chunks;
    (changed[index] = chunk).crc ^= crcFlip;
    return samples::JoinChunks(changed);
  };
  // Headers whose image data is the 2 × 8 bytes of rows that `good` has.
  const auto header = [&](uint8_t width, uint8_t height, uint8_t depth, uint8_t colorType) {
    return with(1, samples::MakeChunk(
                       "IHDR", {0, 0, 0, width, 0, 0, 0, height, depth, colorType, 0, 0, 0}));
  };
  Bytes badSignature = good, cut = with(4, samples::MakeChunk("tEXt", {'k', 0, 'v'}));
  badSignature[7] ^= 1;
  cut.resize(cut.size() - 2);
  const std::pair<const char*, Bytes> refused[] = {
      {"a wrong signature", badSignature},
      {"a tEXt chunk in place of the CgBI chunk", with(0, samples::MakeChunk("tEXt", {'k', 0}))},
      {"a wrong CRC of the header", with(1, chunks[1], 1)},
      {"a wrong CRC of image data", with(2, chunks[2], 1)},
      {"a chunk after the image data cut short", cut},
      {"a tail too short for a chunk", Bytes(good.begin(), good.end() - 6)},
      {"a header one row taller: the image data ends early", header(2, 3, 8, 6)},
      {"a header one row shorter: image data left over", header(2, 1, 8, 6)},
      {"grey", header(8, 2, 8, PNG_COLOR_TYPE_GRAY)},
      {"palette", header(8, 2, 8, PNG_COLOR_TYPE_PALETTE)},
      {"16-bit RGBA", header(2, 2, 16, PNG_COLOR_TYPE_RGB_ALPHA)},
      {"row filter type 5",
       with(2, samples::MakeChunk("IDAT", samples::RawDeflate(Bytes(18, 5), 1)[0]))},
  };
  for (const auto& [what, data] : refused) EXPECT_TRUE(Convert(data).empty()) << what;
}

}  // namespace
