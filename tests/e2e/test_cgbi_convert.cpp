// "CgBIToPNGStringKRV" on CgBI files as Apple's iOS tool makes them: the PNG stream it returns
// decodes, with libspng and with the plug-in's own reader, to the original pixels; else "".
#include <png.h>

#include <algorithm>

#include "tests/e2e/Fixture.h"

namespace e2e {
namespace {

using samples::Bytes;
using samples::Chunk;

// Pixels that survive premultiplication exactly: alpha 0 or 255 over any colour, other alphas
// over black and white (rounding is for the unit tests of the converter).
samples::Image Translucent(uint32_t width, uint32_t height, int colorType, bool interlaced) {
  samples::Image image = samples::Pattern(width, height, 8, colorType, interlaced);
  if (colorType != PNG_COLOR_TYPE_RGB_ALPHA) return image;
  const uint8_t alphas[] = {255, 0, 128, 200, 254, 77, 1, 255, 160, 129, 33};
  for (uint32_t y = 0; y < height; ++y) {
    for (uint32_t x = 0; x < width; ++x) {
      uint8_t* p = &image.rows[y][4 * x];
      p[3] = alphas[(x + 3 * y) % std::size(alphas)];
      if (p[3] == 0 || p[3] == 255) continue;
      for (int c = 0; c < 3; ++c) p[c] = p[c] < 128 ? 0 : 255;
    }
  }
  return image;
}

// The converted stream: a string with no encoding, or nil ("").
Bytes Convert(const Bytes& data) {
  const emu::Value png = Host().CallGlobal("CgBIToPNGStringKRV", {Str(data)});
  EXPECT_FALSE(Host().LastException());
  EXPECT_TRUE(png.IsNil() || png.Encoding() == kREALTextEncodingUnknown);
  const std::string bytes = png.Bytes();
  return Bytes(bytes.begin(), bytes.end());
}

std::vector<std::string> ChunkTypes(const Bytes& png) {
  std::vector<std::string> types;
  for (const Chunk& c : samples::SplitChunks(png)) types.push_back(c.type);
  return types;
}

struct Case {
  const char* what;
  uint32_t width, height;
  int colorType;
  bool interlaced;
  int filters, parts;  // the filters the rows were stored with, and IDAT chunks
};

const Case kCases[] = {
    {"filter None, one IDAT", 17, 11, PNG_COLOR_TYPE_RGB_ALPHA, false, PNG_FILTER_NONE, 1},
    {"filter Sub", 17, 11, PNG_COLOR_TYPE_RGB_ALPHA, false, PNG_FILTER_SUB, 3},
    {"filter Up", 17, 11, PNG_COLOR_TYPE_RGB_ALPHA, false, PNG_FILTER_UP, 4},
    {"filter Average", 17, 11, PNG_COLOR_TYPE_RGB_ALPHA, false, PNG_FILTER_AVG, 5},
    {"filter Paeth", 17, 11, PNG_COLOR_TYPE_RGB_ALPHA, false, PNG_FILTER_PAETH, 7},
    {"every filter", 64, 48, PNG_COLOR_TYPE_RGB_ALPHA, false, PNG_ALL_FILTERS, 9},
    {"interlaced, Paeth", 33, 21, PNG_COLOR_TYPE_RGB_ALPHA, true, PNG_FILTER_PAETH, 4},
    {"interlaced, every filter", 40, 37, PNG_COLOR_TYPE_RGB_ALPHA, true, PNG_ALL_FILTERS, 6},
    {"interlaced, passes left empty", 3, 2, PNG_COLOR_TYPE_RGB_ALPHA, true, PNG_ALL_FILTERS, 2},
    {"RGB: channels swapped only", 20, 9, PNG_COLOR_TYPE_RGB, false, PNG_ALL_FILTERS, 3},
    {"RGB interlaced", 20, 9, PNG_COLOR_TYPE_RGB, true, PNG_FILTER_AVG, 3},
};

class CgbiToPNG : public PluginTest {};

TEST_F(CgbiToPNG, DecodesToTheOriginalPixels) {
  for (const Case& c : kCases) {
    SCOPED_TRACE(c.what);
    samples::Image image = Translucent(c.width, c.height, c.colorType, c.interlaced);
    image.chunks.gamma = 1 / 2.2;
    uint32_t w = 0, h = 0;
    Bytes original = samples::DecodeRGBA(samples::Encode(image), &w, &h);
    for (size_t i = 0; i < original.size(); i += 4) {
      if (original[i + 3] == 0) std::fill_n(&original[i], 3, 0);  // premultiplied away
    }
    samples::Image stored = samples::CgBIPixels(image);
    stored.filters = c.filters;
    const Bytes cgbi = samples::CgBIFile(stored, c.parts, {samples::MakeChunk("tEXt", {'k', 0})});

    const Bytes png = Convert(cgbi);
    const std::vector<std::string> chunks = {"IHDR", "gAMA", "tEXt", "IDAT", "IEND"};
    EXPECT_EQ(ChunkTypes(png), chunks);
    EXPECT_EQ(samples::DecodeRGBA(png, &w, &h), original) << "libspng";
    Reader reader;
    EXPECT_EQ(DecodeThroughRows(reader, png, -1.0), original) << "the plug-in's reader";
    EXPECT_EQ(reader.Int("InterlaceType"), c.interlaced ? 1 : 0);
    EXPECT_TRUE(reader.errors.empty() && reader.warnings.empty());
  }
}

// `good` with its chunk `index` replaced.
Bytes WithChunk(const Bytes& good, size_t index, const Chunk& chunk) {
  std::vector<Chunk> chunks = samples::SplitChunks(good);
  chunks[index] = chunk;
  return samples::JoinChunks(chunks);
}

// The header of `good` (chunk 1) with another height and its right CRC.
Chunk HeaderOfHeight(const Bytes& good, uint32_t height) {
  Bytes data = samples::SplitChunks(good)[1].data;
  for (int i = 0; i < 4; ++i) data[4 + i] = static_cast<uint8_t>(height >> (24 - 8 * i));
  return samples::MakeChunk("IHDR", data);
}

TEST_F(CgbiToPNG, DataThatDoesNotConvertGivesEmpty) {
  const samples::Image image = Translucent(16, 12, PNG_COLOR_TYPE_RGB_ALPHA, false);
  const Bytes good = samples::CgBIFile(samples::CgBIPixels(image), 3, {});
  ASSERT_FALSE(Convert(good).empty());
  const std::vector<Chunk> chunks = samples::SplitChunks(good);  // CgBI, IHDR, 3 × IDAT, IEND
  const auto badCRC = [&](size_t index) {
    Chunk chunk = chunks[index];
    chunk.crc ^= 1;
    return WithChunk(good, index, chunk);
  };
  std::vector<Chunk> zlibData = samples::SplitChunks(samples::Encode(image));
  zlibData.insert(zlibData.begin(), chunks[0]);
  const struct {
    const char* what;
    Bytes data;
  } refused[] = {
      {"empty", {}},
      {"no signature", Bytes(good.begin() + 1, good.end())},
      {"a standard PNG: no CgBI chunk", samples::Encode(image)},
      {"a CgBI chunk before zlib image data", samples::JoinChunks(zlibData)},
      {"no CgBI chunk before the header", WithChunk(good, 0, samples::MakeChunk("tEXt", {'k', 0}))},
      {"a wrong CRC of the header", badCRC(1)},
      {"a wrong CRC of image data", badCRC(3)},
      {"cut inside an IDAT chunk", Bytes(good.begin(), good.end() - 20)},
      {"a tail too short for a chunk", Bytes(good.begin(), good.end() - 6)},
      {"a header one row taller: the image data ends early",
       WithChunk(good, 1, HeaderOfHeight(good, 13))},
      {"a header one row shorter: image data left over",
       WithChunk(good, 1, HeaderOfHeight(good, 11))},
      {"grey", samples::CgBIFile(samples::Pattern(8, 8, 8, PNG_COLOR_TYPE_GRAY, false), 1, {})},
      {"grey with alpha",
       samples::CgBIFile(samples::Pattern(8, 8, 8, PNG_COLOR_TYPE_GRAY_ALPHA, false), 1, {})},
      {"palette",
       samples::CgBIFile(samples::Pattern(8, 8, 8, PNG_COLOR_TYPE_PALETTE, false), 1, {})},
      {"16-bit RGBA",
       samples::CgBIFile(samples::Pattern(8, 8, 16, PNG_COLOR_TYPE_RGB_ALPHA, false), 1, {})},
  };
  for (const auto& r : refused) EXPECT_TRUE(Convert(r.data).empty()) << r.what;
  EXPECT_TRUE(Host().CallGlobal("CgBIToPNGStringKRV", {emu::Value::AdoptString(nullptr)}).IsNil());
}

}  // namespace
}  // namespace e2e
