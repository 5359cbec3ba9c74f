// Palette images into pictures: every bit depth, plain and interlaced, with and without
// transparency, SwapRB, gamma, damaged data, in every pixel format of the host, against libspng's
// decode (or, for gamma, against the rows the reader itself delivers); and the header values
// ApplyOptions reports for them.
#include <algorithm>

#include "tests/e2e/Fixture.h"

namespace e2e {
namespace {

using samples::Bytes;

enum class Transparency { kNone, kOneClear, kGraded };

struct Case {
  int bitDepth;
  bool interlaced;
  Transparency transparency;
};

std::vector<Case> Cases() {
  std::vector<Case> cases;
  for (int depth : {1, 2, 4, 8}) {
    for (bool interlaced : {false, true}) {
      for (Transparency t : {Transparency::kNone, Transparency::kOneClear, Transparency::kGraded}) {
        cases.push_back({depth, interlaced, t});
      }
    }
  }
  return cases;
}

std::string Describe(const Case& c) {
  const char* names[] = {"no tRNS", "entry 0 clear", "graded tRNS"};
  return std::to_string(c.bitDepth) + " bits" + (c.interlaced ? " interlaced " : " plain ") +
         names[static_cast<int>(c.transparency)];
}

// A palette image of 21 × 11 pixels whose pattern uses every index of the depth. The graded
// transparency chunk lists fewer entries than the palette, so the last entries stay opaque.
samples::Image PaletteImage(const Case& c) {
  samples::Image image = samples::Pattern(21, 11, c.bitDepth, 3, c.interlaced);
  const size_t entries = image.palette.size() / 3;
  if (c.transparency == Transparency::kOneClear) image.transparency = {0};
  if (c.transparency == Transparency::kGraded) {
    const Bytes alphas = {0, 255, 128, 7, 250, 64, 1, 200, 99, 33, 180};
    image.transparency.assign(alphas.begin(),
                              alphas.begin() + std::min(entries - 1, alphas.size()));
  }
  return image;
}

Bytes Rgba(const emu::Value& picture) {
  const std::string bytes = Host().PictureRgba(picture);
  return Bytes(bytes.begin(), bytes.end());
}

class ReaderPalette : public PluginTest {
 protected:
  void TearDown() override {
    if (Desktop()) Host().SetPictureFormat(2, 0);
    PluginTest::TearDown();
  }
  static emu::Value Pict(Reader& reader) { return Host().GetProperty(reader.object, "Pict"); }
  static emu::Value Mask(Reader& reader) { return Host().GetProperty(reader.object, "Mask"); }
  static bool ReadPicture(Reader& reader, const Bytes& png, double gamma, bool swap = false,
                          bool allowDamaged = false) {
    Host().SetProperty(reader.object, "SwapRB", swap);
    Host().SetProperty(reader.object, "AllowDamaged", allowDamaged);
    return reader.OpenData(png) && reader.Ok("ApplyOptions", {gamma}) && reader.Ok("ReadPicture");
  }
};

TEST_F(ReaderPalette, EveryDepthInEveryFormat) {
  for (const PictureStorage& storage : PictureStorages()) {
    if (Desktop()) Host().SetPictureFormat(storage.alphaInfo, storage.padding);
    for (const Case& c : Cases()) {
      const Bytes png = samples::Encode(PaletteImage(c));
      uint32_t w = 0, h = 0;
      const Bytes expected = samples::DecodeRGBA(png, &w, &h);
      for (bool swap : {false, true}) {
        SCOPED_TRACE("format " + std::to_string(storage.format) + " padding " +
                     std::to_string(storage.padding) + ", " + Describe(c) +
                     (swap ? ", SwapRB" : ""));
        Reader reader;
        ASSERT_TRUE(ReadPicture(reader, png, -1.0, swap));
        EXPECT_EQ(Host().RawPicture(Pict(reader)).format, storage.format);
        EXPECT_EQ(Rgba(Pict(reader)), Colours(expected, swap));
        if (c.transparency == Transparency::kNone) {
          EXPECT_TRUE(Mask(reader).IsNil());
        } else {
          ASSERT_FALSE(Mask(reader).IsNil());
          EXPECT_EQ(Rgba(Mask(reader)), MaskOf(expected));
        }
        EXPECT_TRUE(reader.errors.empty());
      }
    }
  }
}

TEST_F(ReaderPalette, ApplyOptionsReportsTheExpandedRows) {
  for (const Case& c : Cases()) {
    SCOPED_TRACE(Describe(c));
    Reader reader;
    ASSERT_TRUE(reader.OpenData(samples::Encode(PaletteImage(c))));
    ASSERT_TRUE(reader.Ok("ApplyOptions", {-1.0}));
    EXPECT_EQ(reader.Int("ColorType"), c.transparency == Transparency::kNone ? 2 : 6);
    EXPECT_EQ(reader.Int("BitDepth"), c.bitDepth);
    EXPECT_EQ(reader.Int("Interlacing"), c.interlaced ? 7 : 1);
    EXPECT_EQ(reader.Int("InterlaceType"), c.interlaced ? 1 : 0);
    EXPECT_EQ(reader.Call("RowBytes").AsInteger(), 84);
  }
}

// libpng corrects the palette's colours and leaves alpha alone; the picture takes the same
// corrected colours as the rows.
TEST_F(ReaderPalette, GammaAsInTheRows) {
  for (bool interlaced : {false, true}) {
    for (double gamma : {0.0, 2.2, 0.45}) {
      SCOPED_TRACE(std::string(interlaced ? "interlaced" : "plain") + " gamma " +
                   std::to_string(gamma));
      samples::Image image = PaletteImage({8, interlaced, Transparency::kGraded});
      image.chunks.gamma = 1 / 2.2;
      const Bytes png = samples::Encode(image);
      Reader rows;
      const Bytes expected = DecodeThroughRows(rows, png, gamma);
      ASSERT_FALSE(expected.empty());
      uint32_t w = 0, h = 0;
      ASSERT_NE(expected, samples::DecodeRGBA(png, &w, &h)) << "no correction to compare";
      Reader reader;
      ASSERT_TRUE(ReadPicture(reader, png, gamma));
      EXPECT_EQ(Rgba(Pict(reader)), Colours(expected, false));
      EXPECT_EQ(Rgba(Mask(reader)), MaskOf(expected));
    }
  }
}

// The stream cut in the middle of its image data.
Bytes CutInImageData(const Bytes& png) {
  const std::string idat = "IDAT";
  const auto type = std::search(png.begin(), png.end(), idat.begin(), idat.end());
  const size_t length =
      size_t{type[-4]} << 24 | size_t{type[-3]} << 16 | size_t{type[-2]} << 8 | size_t{type[-1]};
  return Bytes(png.begin(), type + 4 + length / 2);
}

// The rows a row reader gets before the cut (the last of them decoded from what the source
// hands out past its end) are the rows the picture holds; the rest stays as the host made it
// (white).
TEST_F(ReaderPalette, DamagedPlainImages) {
  for (int depth : {1, 8}) {
    SCOPED_TRACE(std::to_string(depth) + " bits");
    const Bytes cut = CutInImageData(samples::Encode(samples::Pattern(1200, 96, depth, 3, false)));
    Reader rows;
    ASSERT_TRUE(rows.OpenData(cut) && rows.Ok("ApplyOptions", {-1.0}));
    emu::Value block = Host().NewMemoryBlock(1200 * 4);
    Bytes expected;
    while (rows.Ok("ReadRow", {block})) {
      const std::string row = Host().BlockBytes(block);
      expected.insert(expected.end(), row.begin(), row.end());
    }
    ASSERT_GT(expected.size(), 0u);
    ASSERT_LT(expected.size(), 1200u * 96 * 4);
    expected.resize(1200 * 96 * 4, 255);

    Reader reader;
    ASSERT_TRUE(ReadPicture(reader, cut, -1.0, false, true));
    EXPECT_EQ(Rgba(Pict(reader)), expected);
    EXPECT_EQ(reader.errors.size(), 1u);

    Reader strict;
    EXPECT_FALSE(ReadPicture(strict, cut, -1.0));
    EXPECT_TRUE(Pict(strict).IsNil());
  }
}

}  // namespace
}  // namespace e2e
