// Set-up and rows of every colour type and depth against an independent decoder; gamma; sRGB, ICC.
#include <math.h>
#include <string.h>

#include <algorithm>

#include "tests/e2e/Fixture.h"

namespace e2e {
namespace {

using samples::Bytes;

struct Format {
  int colorType;
  int bitDepth;
  bool transparency;
};

// Every colour type at every depth PNG allows, with and without a tRNS chunk where it may stand.
std::vector<Format> AllFormats() {
  const std::pair<int, std::vector<int>> kDepths[] = {
      {0, {1, 2, 4, 8, 16}}, {2, {8, 16}}, {3, {1, 2, 4, 8}}, {4, {8, 16}}, {6, {8, 16}}};
  std::vector<Format> formats;
  for (const auto& [colorType, depths] : kDepths) {
    for (int depth : depths) {
      formats.push_back({colorType, depth, false});
      if (colorType < 4) formats.push_back({colorType, depth, true});
    }
  }
  return formats;
}

// The grey and RGB tRNS chunks make black transparent, and pixel (0, 0) is black.
samples::Image MakeImage(const Format& f, bool interlaced) {
  samples::Image image = samples::Pattern(13, 11, f.bitDepth, f.colorType, interlaced);
  if (f.transparency && f.colorType == 3) {
    image.transparency = {0, 90, 180};
    image.transparency.resize(std::min<size_t>(3, size_t{1} << f.bitDepth));
  } else if (f.transparency) {
    std::fill_n(image.rows[0].begin(), f.bitDepth / 8 * 3, 0);
    image.transparency.assign(f.colorType == 2 ? 6 : 2, 0);
  }
  return image;
}

class ReaderDecode : public PluginTest {};

TEST_F(ReaderDecode, EveryFormatMatchesAnIndependentDecoder) {
  for (const Format& f : AllFormats()) {
    for (bool interlaced : {false, true}) {
      SCOPED_TRACE(::testing::Message()
                   << "colour type " << f.colorType << " depth " << f.bitDepth << " tRNS "
                   << f.transparency << " interlaced " << interlaced);
      const Bytes png = samples::Encode(MakeImage(f, interlaced));
      const Bytes expected = Decoded(png);
      Reader reader;
      const Bytes rows = DecodeThroughRows(reader, png, -1.0);
      EXPECT_EQ(rows, expected);
      const bool alpha = f.colorType == 4 || f.colorType == 6 || f.transparency;
      EXPECT_EQ(reader.Int("ColorType"), alpha ? 6 : 2);
      EXPECT_EQ(reader.Int("BitDepth"), f.bitDepth);
      EXPECT_EQ(reader.Int("Width"), 13);  // height, passes and row bytes shape the rows above
      EXPECT_EQ(reader.Int("InterlaceType"), interlaced ? 1 : 0);
      EXPECT_TRUE(reader.errors.empty());
    }
  }
}

// The red samples of a grey ramp with a gAMA chunk of `fileGamma` (none for 0), decoded with
// ApplyOptions(gamma, screen gamma).
Bytes DecodedRamp(double fileGamma, double gamma, double screenGamma) {
  samples::Image image = samples::Pattern(256, 1, 8, 0, false);
  for (int x = 0; x < 256; ++x) image.rows[0][x] = static_cast<uint8_t>(x);
  image.chunks.gamma = fileGamma;
  Reader reader;
  if (!reader.OpenData(samples::Encode(image)) || !reader.Ok("ApplyOptions", {gamma, screenGamma}))
    return {};
  const std::string row = Host().BlockBytes(reader.Call("ReadRow"));
  Bytes red;
  for (size_t i = 0; i < row.size(); i += 4) red.push_back(static_cast<uint8_t>(row[i]));
  return red;
}

TEST_F(ReaderDecode, GammaRules) {
  const double kNaN = NAN;
  struct Case {
    const char* what;
    double fileGamma, gamma, screenGamma;
    double exponent;  // of the correction expected; 1 leaves the samples unchanged
  };
  const Case cases[] = {
      {"no gAMA chunk, whatever the screen gamma", 0.0, 0.0, 2.5, 1.0},
      {"gamma -1 ignores the gAMA chunk", 0.45455, -1.0, -1.0, 1.0},
      {"gamma NaN ignores the gAMA chunk", 0.45455, kNaN, -1.0, 1.0},
      {"the file gamma against the screen gamma given", 0.45455, 0.0, 1.0, 2.2},
      {"a NaN screen gamma stands for 1.8", 0.45455, 0.0, kNaN, 1.2222},
      {"gamma 2.2 overrides the gAMA chunk", 1.0, 2.2, -1.0, 1.2222},
      {"an explicit screen gamma", 0.0, 2.2, 2.2, 1.0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    const Bytes red = DecodedRamp(c.fileGamma, c.gamma, c.screenGamma);
    ASSERT_EQ(red.size(), 256u);
    for (int x = 0; x < 256; ++x) {
      EXPECT_NEAR(red[x], 255.0 * pow(x / 255.0, c.exponent), c.exponent == 1.0 ? 0.0 : 1.0)
          << "sample " << x;
    }
  }
}

// A small ICC profile that libpng accepts for an RGB image: a header, one white-point tag and
// filler that does not compress (libpng ignores iCCP chunks of fewer than 92 bytes).
Bytes MinimalProfile() {
  Bytes p(400, 0);
  for (size_t i = 164; i < p.size(); ++i) p[i] = static_cast<uint8_t>(i * 2654435761u >> 13);
  const std::pair<size_t, const char*> kCodes[] = {{12, "mntr"}, {16, "RGB "},  {20, "XYZ "},
                                                   {36, "acsp"}, {132, "wtpt"}, {144, "XYZ "}};
  for (const auto& [at, code] : kCodes) memcpy(&p[at], code, 4);
  // Size, version, the illuminant, one tag (at 144, 20 bytes) and its XYZ value.
  const std::pair<size_t, uint32_t> kWords[] = {
      {0, 400},   {8, 0x02100000}, {68, 0xF6D6},  {72, 0x10000},  {76, 0xD32D}, {128, 1},
      {136, 144}, {140, 20},       {152, 0xF6D6}, {156, 0x10000}, {160, 0xD32D}};
  for (const auto& [at, v] : kWords) {
    for (int i = 0; i < 4; ++i) p[at + i] = static_cast<uint8_t>(v >> (24 - 8 * i));
  }
  return p;
}

// Without the chunk asked for, the byref arguments are cleared.
TEST_F(ReaderDecode, SRGBAndICCQueries) {
  samples::Image image = samples::Pattern(4, 4, 8, 2, false);
  emu::Value intent(RBInteger{7}), compression(RBInteger{9});
  emu::Value name = Host().MakeString("stale"), profile = Host().MakeString("stale");
  const auto query = [&](Reader& reader) {
    const bool set = reader.OpenData(samples::Encode(image)) && reader.Ok("ApplyOptions");
    return std::pair(set && reader.Ok("ReadsRGBTag", {emu::ByRef(intent)}),
                     set && reader.Ok("ReadICCProfile", {emu::ByRef(name), emu::ByRef(compression),
                                                         emu::ByRef(profile)}));
  };
  Reader fresh;
  EXPECT_FALSE(fresh.Ok("ReadsRGBTag", {emu::ByRef(intent)})) << "no stream opened";
  intent = emu::Value(RBInteger{7});
  Reader none;
  EXPECT_EQ(query(none), std::pair(false, false));
  EXPECT_EQ(intent.AsInteger(), 0);
  EXPECT_TRUE(name.IsNil());
  EXPECT_TRUE(profile.IsNil());
  EXPECT_EQ(compression.AsInteger(), 0);
  image.chunks.srgbIntent = 2;
  Reader srgb;
  EXPECT_EQ(query(srgb), std::pair(true, false));
  EXPECT_EQ(intent.AsInteger(), 2);
  image.chunks.srgbIntent = -1;
  image.chunks.iccName = "Test RGB";
  image.chunks.iccProfile = MinimalProfile();
  Reader reader;
  EXPECT_EQ(query(reader), std::pair(false, true));
  EXPECT_EQ(name.Text(), "Test RGB");
  EXPECT_EQ(name.Encoding(), static_cast<uint32_t>(kREALTextEncodingASCII));
  const Bytes& expected = image.chunks.iccProfile;
  EXPECT_EQ(profile.Bytes(), std::string(expected.begin(), expected.end()));
  EXPECT_EQ(profile.Encoding(), static_cast<uint32_t>(kREALTextEncodingUnknown));
}

}  // namespace
}  // namespace e2e
