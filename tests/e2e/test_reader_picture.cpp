// ReadPicture: every kind of image into pictures and masks of every host storage, and its failures.
#if !defined(_WIN32)
#include <dlfcn.h>
#endif
#include <string.h>

#include <algorithm>
#include <map>

#include "tests/e2e/Fixture.h"

namespace e2e {
namespace {

using samples::Bytes;

enum Trns { kNone, kOneClear, kGraded };

struct Kind {
  int colorType, depth;
  Trns trns;
  bool mask;
};

// Every source: grey, RGB, alpha (RGBA rows), and palettes (index rows) of each depth.
const Kind kKinds[] = {
    {0, 1, kNone, false},  {0, 2, kNone, false},  {0, 4, kNone, false},
    {0, 8, kNone, false},  {0, 16, kNone, false}, {2, 8, kNone, false},
    {2, 16, kNone, false}, {4, 8, kNone, true},   {6, 8, kNone, true},
    {6, 16, kNone, true},  {3, 1, kNone, false},  {3, 1, kOneClear, true},
    {3, 1, kGraded, true}, {3, 2, kNone, false},  {3, 2, kOneClear, true},
    {3, 2, kGraded, true}, {3, 4, kNone, false},  {3, 4, kOneClear, true},
    {3, 4, kGraded, true}, {3, 8, kNone, false},  {3, 8, kOneClear, true},
    {3, 8, kGraded, true},
};

// The graded tRNS lists fewer alphas than the palette has entries: the last entry stays opaque.
samples::Image Make(const Kind& k, bool interlaced) {
  samples::Image image = samples::Pattern(21, 11, k.depth, k.colorType, interlaced);
  const Bytes graded = {0, 255, 128, 7, 250, 64, 1, 200, 99, 33, 180};
  if (k.trns == kOneClear) image.transparency = {0};
  if (k.trns == kGraded) {
    image.transparency.assign(
        graded.begin(), graded.begin() + std::min(image.palette.size() / 3 - 1, graded.size()));
  }
  return image;
}

class ReaderPicture : public PluginTest {
 protected:
  static bool ReadPicture(Reader& reader, const Bytes& png, double gamma = -1.0, bool swap = false,
                          bool allowDamaged = false) {
    Host().SetProperty(reader.object, "SwapRB", swap);
    Host().SetProperty(reader.object, "AllowDamaged", allowDamaged);
    return reader.OpenData(png) && reader.Ok("ApplyOptions", {gamma}) && reader.Ok("ReadPicture");
  }
  static emu::Value Pict(Reader& reader) { return Host().GetProperty(reader.object, "Pict"); }
  static emu::Value Mask(Reader& reader) { return Host().GetProperty(reader.object, "Mask"); }
};

// Against an independent decode. cairo is in the process of Linux desktop hosts only.
TEST_F(ReaderPicture, EveryKindInEveryStorage) {
#if !defined(_WIN32)
  const bool linuxDesktop = Desktop() && Profile().platform == emu::Platform::Linux;
  EXPECT_EQ(dlsym(RTLD_DEFAULT, "cairo_get_target") != nullptr, linuxDesktop);
#endif
  for (const PictureStorage& storage : PictureStorages()) {
    if (Desktop()) Host().SetPictureFormat(storage.alphaInfo, storage.padding);
    for (const Kind& k : kKinds) {
      for (bool interlaced : {false, true}) {
        const Bytes png = samples::Encode(Make(k, interlaced));
        const Bytes expected = Decoded(png);
        for (bool swap : {false, true}) {
          SCOPED_TRACE(::testing::Message()
                       << "format " << storage.format << " padding " << storage.padding << " type "
                       << k.colorType << " depth " << k.depth << " tRNS " << k.trns
                       << " interlaced " << interlaced << " swap " << swap);
          Reader reader;
          ASSERT_TRUE(ReadPicture(reader, png, -1.0, swap));
          const emu::Value pict = Pict(reader);
          EXPECT_EQ(Host().RawPicture(pict).format, storage.format);
          EXPECT_EQ(Rgba(pict), Colours(expected, swap));
          EXPECT_GE(Host().PictureStats(pict).clearCaches, 1);
          EXPECT_EQ(reader.Call("RowBytes").AsInteger(), 21 * 4) << "rows are still RGBA";
          ASSERT_EQ(Mask(reader).IsNil(), !k.mask);
          if (k.mask) {
            EXPECT_EQ(Rgba(Mask(reader)), MaskOf(expected));
          }
          EXPECT_TRUE(reader.errors.empty());
        }
      }
    }
  }
}

// The words stored for red and blue in host byte order: gd's alpha 0 and the alpha 255 of cairo
// and of Windows hosts are opaque, the bitmap context of alpha info 1 keeps R, G, B, A in memory.
TEST_F(ReaderPicture, SwapRBAndMaskInEveryDecoder) {
  const Bytes mask = {0, 0, 0, 255, 255, 255, 255, 255, 191, 191, 191, 255};
  const std::map<int, std::pair<uint32_t, uint32_t>> kWords = {
      {1, {0xFF0000FFu, 0xFFFF0000u}},
      {8, {0x00FF0000u, 0x000000FFu}},
      {9, {0xFFFF0000u, 0xFF0000FFu}},
      {10, {0xFFFF0000u, 0xFF0000FFu}},
  };
  if (Desktop()) Host().SetPictureFormat(1, 0);
  for (int colorType : {2, 6}) {
    for (bool interlaced : {false, true}) {
      samples::Image image = samples::Pattern(3, 1, 8, colorType, interlaced);
      image.rows[0] = colorType == 2 ? Bytes{255, 0, 0, 0, 0, 255, 0, 255, 0}
                                     : Bytes{255, 0, 0, 255, 0, 0, 255, 0, 0, 255, 0, 64};
      for (bool swap : {false, true}) {
        SCOPED_TRACE(::testing::Message() << "colour type " << colorType << " interlaced "
                                          << interlaced << " SwapRB " << swap);
        Reader reader;
        ASSERT_TRUE(ReadPicture(reader, samples::Encode(image), -1.0, swap));
        if (colorType == 6) {
          EXPECT_EQ(Rgba(Mask(reader)), mask);
        }
        const emu::PictureRaw raw = Host().RawPicture(Pict(reader));
        ASSERT_EQ(kWords.count(raw.format), 1u) << raw.format;
        const auto [red, blue] = kWords.at(raw.format);
        uint32_t words[2];
        memcpy(words, raw.bytes.data(), 8);
        EXPECT_EQ(std::make_pair(words[0], words[1]),
                  swap ? std::pair(blue, red) : std::pair(red, blue));
      }
    }
  }
}

// The index tables take the palette as libpng corrects it: the picture holds the rows' colours.
TEST_F(ReaderPicture, PaletteGammaAsInTheRows) {
  for (bool interlaced : {false, true}) {
    for (double gamma : {0.0, 2.2, 0.45}) {
      SCOPED_TRACE(::testing::Message() << "interlaced " << interlaced << " gamma " << gamma);
      samples::Image image = Make({3, 8, kGraded, true}, interlaced);
      image.chunks.gamma = 1 / 2.2;
      const Bytes png = samples::Encode(image);
      Reader rows;
      const Bytes expected = DecodeThroughRows(rows, png, gamma);
      ASSERT_NE(expected, Decoded(png)) << "no correction to compare";
      Reader reader;
      ASSERT_TRUE(ReadPicture(reader, png, gamma));
      EXPECT_EQ(Rgba(Pict(reader)), Colours(expected, false));
      EXPECT_EQ(Rgba(Mask(reader)), MaskOf(expected));
    }
  }
}

// Resolutions go through the integer property entry points served: current, older, none (72).
TEST_F(ReaderPicture, CombinePictureWithMask) {
  const std::map<int, RBInteger> kResolution = {{2, 150}, {1, 150}, {0, 72}};
  const int served = 2 - static_cast<int>(Profile().withheld.count("REALGetPropValueInteger") +
                                          Profile().withheld.count("REALGetPropValueInt"));
  const Bytes png = samples::Encode(samples::Pattern(11, 5, 8, 6, false));
  const Bytes expected = Decoded(png);
  Reader reader;
  ASSERT_TRUE(ReadPicture(reader, png));
  Host().SetProperty(Pict(reader), "HorizontalResolution", RBInteger{150});
  Host().SetProperty(Pict(reader), "VerticalResolution", RBInteger{150});
  const emu::Value combined = reader.Call("CombinePictureWithMask");
  EXPECT_EQ(Rgba(combined), expected);
  EXPECT_EQ(Host().GetProperty(combined, "HorizontalResolution").AsInteger(),
            kResolution.at(served));
  EXPECT_EQ(Host().GetProperty(combined, "VerticalResolution").AsInteger(), kResolution.at(served));
  EXPECT_EQ(Rgba(reader.Call("CombinePictureWithMask")), expected) << "as often as wanted";
  Reader none;
  EXPECT_TRUE(none.Call("CombinePictureWithMask").IsNil());
}

TEST_F(ReaderPicture, NothingToDecodeOrBeyondThePictureLimit) {
  Reader fresh;
  EXPECT_FALSE(fresh.Ok("ReadPicture")) << "no stream opened";
  Reader unset;
  ASSERT_TRUE(unset.OpenData(samples::Encode(samples::Pattern(4, 4, 8, 2, false))));
  EXPECT_FALSE(unset.Ok("ReadPicture")) << "not set up";
  EXPECT_TRUE(unset.errors.empty());
  for (bool interlaced : {false, true}) {
    Reader reader;
    EXPECT_FALSE(
        ReadPicture(reader, samples::Encode(samples::Pattern(32768, 1, 8, 2, interlaced))));
    EXPECT_TRUE(Pict(reader).IsNil());
    if (!interlaced) {
      EXPECT_TRUE(reader.Ok("ReadRow", {Host().NewMemoryBlock(32768 * 4)})) << "left unread";
    }
  }
  Reader rgba;
  EXPECT_FALSE(ReadPicture(rgba, samples::Encode(samples::Pattern(1, 32768, 8, 6, true))));
  EXPECT_TRUE(rgba.errors.empty()) << "the mask writer fails before anything is read";
}

// The stream cut in the middle of its image data.
Bytes CutInImageData(const Bytes& png) {
  const std::string idat = "IDAT";
  const auto type = std::search(png.begin(), png.end(), idat.begin(), idat.end());
  const size_t length =
      size_t{type[-4]} << 24 | size_t{type[-3]} << 16 | size_t{type[-2]} << 8 | size_t{type[-1]};
  return Bytes(png.begin(), type + 4 + length / 2);
}

// With AllowDamaged a plain image gives the rows a row reader gets, the rest white; an interlaced
// one gives no picture.
TEST_F(ReaderPicture, DamagedImages) {
  const struct {
    int colorType, depth;
    bool interlaced;
  } kCases[] = {{2, 8, false}, {6, 8, false}, {3, 1, false},
                {3, 8, false}, {2, 8, true},  {6, 8, true}};
  for (const auto& c : kCases) {
    SCOPED_TRACE(::testing::Message() << "colour type " << c.colorType << " depth " << c.depth
                                      << " interlaced " << c.interlaced);
    const Bytes cut = CutInImageData(
        samples::Encode(samples::Pattern(1200, 96, c.depth, c.colorType, c.interlaced)));
    Reader strict;
    EXPECT_FALSE(ReadPicture(strict, cut));
    EXPECT_TRUE(Pict(strict).IsNil());
    EXPECT_EQ(strict.errors.size(), 1u);

    Reader lenient;
    EXPECT_EQ(ReadPicture(lenient, cut, -1.0, false, true), !c.interlaced);
    EXPECT_EQ(lenient.errors.size(), 1u);
    EXPECT_EQ(Mask(lenient).IsNil(), c.colorType != 6);
    if (c.interlaced) continue;
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
    EXPECT_EQ(Rgba(Pict(lenient)), Colours(expected, false));
  }
}

}  // namespace
}  // namespace e2e
