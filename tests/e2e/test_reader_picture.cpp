// "ReadPicture as boolean": whole images into host pictures and masks in every storage the host
// uses, SwapRB, damaged data with and without AllowDamaged, and CombinePictureWithMask.
#include <dlfcn.h>
#include <string.h>

#include <map>

#include "tests/e2e/Fixture.h"

namespace e2e {
namespace {

using samples::Bytes;

bool LinuxDesktop() {
  return Desktop() && Profile().platform == emu::Platform::Linux;
}

// A storage new pictures of this host come in: the alpha info and row padding set on the host, and
// the format the picture is then stored in.
struct Storage {
  int alphaInfo, padding, format;
};

// Linux desktop hosts: cairo RGB24 (10), with and without row padding; macOS desktop hosts: the
// six bitmap-context layouts, each with and without padding; elsewhere gd true colour (8).
std::vector<Storage> Storages() {
  if (!Desktop()) return {{2, 0, 8}};
  if (LinuxDesktop()) return {{2, 0, 10}, {2, 12, 10}};
  std::vector<Storage> storages;
  for (int alpha = 1; alpha <= 6; ++alpha) {
    storages.push_back({alpha, 0, alpha});
    storages.push_back({alpha, 12, alpha});
  }
  return storages;
}

Bytes Rgba(const emu::Value& picture) {
  const std::string bytes = Host().PictureRgba(picture);
  return Bytes(bytes.begin(), bytes.end());
}

Bytes WithOpaqueAlpha(Bytes rgba) {
  for (size_t i = 3; i < rgba.size(); i += 4) rgba[i] = 255;
  return rgba;
}

class ReaderPicture : public PluginTest {
 protected:
  void TearDown() override {
    if (Desktop()) Host().SetPictureFormat(2, 0);
    PluginTest::TearDown();
  }
  void Use(const Storage& storage) {
    if (Desktop()) Host().SetPictureFormat(storage.alphaInfo, storage.padding);
  }
  // Opens and sets up `png`, then ReadPicture.
  static bool ReadPicture(Reader& reader, const Bytes& png, bool allowDamaged = false) {
    if (!reader.OpenData(png) || !reader.Ok("ApplyOptions", {-1.0})) return false;
    Host().SetProperty(reader.object, "AllowDamaged", allowDamaged);
    return reader.Ok("ReadPicture");
  }
  static emu::Value Pict(Reader& reader) { return Host().GetProperty(reader.object, "Pict"); }
  static emu::Value Mask(Reader& reader) { return Host().GetProperty(reader.object, "Mask"); }
};

TEST_F(ReaderPicture, EveryFormatPlainAndInterlaced) {
  for (const Storage& storage : Storages()) {
    for (int colorType : {2, 6}) {
      for (bool interlaced : {false, true}) {
        SCOPED_TRACE("alpha info " + std::to_string(storage.alphaInfo) + " padding " +
                     std::to_string(storage.padding) + " colour type " + std::to_string(colorType) +
                     (interlaced ? " interlaced" : ""));
        Use(storage);
        const Bytes png = samples::Encode(samples::Pattern(19, 7, 8, colorType, interlaced));
        uint32_t w = 0, h = 0;
        const Bytes expected = samples::DecodeRGBA(png, &w, &h);
        Reader reader;
        ASSERT_TRUE(ReadPicture(reader, png));
        emu::Value pict = Pict(reader);
        EXPECT_EQ(Host().RawPicture(pict).format, storage.format);
        EXPECT_EQ(Rgba(pict), WithOpaqueAlpha(expected));
        emu::Value mask = Mask(reader);
        if (colorType == 2) {
          EXPECT_TRUE(mask.IsNil());
        } else {
          ASSERT_FALSE(mask.IsNil());
          EXPECT_EQ(Rgba(mask), MaskOf(expected));
        }
        EXPECT_GE(Host().PictureStats(pict).clearCaches, 1);
        EXPECT_TRUE(reader.errors.empty());
      }
    }
  }
}

// cairo is in the process of Linux desktop hosts only, where decoded pictures are cairo RGB24
// surfaces (10); elsewhere the plug-in decodes into its host's pictures without it: bitmap
// contexts of the default alpha info (2) on macOS, gd images (8) on console and web hosts.
TEST_F(ReaderPicture, CairoOnlyInLinuxDesktopProcesses) {
  const std::map<std::pair<emu::AppKind, emu::Platform>, std::pair<bool, int>> kExpected = {
      {{emu::AppKind::Desktop, emu::Platform::Linux}, {true, 10}},
      {{emu::AppKind::Desktop, emu::Platform::Mac}, {false, 2}},
      {{emu::AppKind::Console, emu::Platform::Linux}, {false, 8}},
      {{emu::AppKind::Web, emu::Platform::Linux}, {false, 8}},
  };
  const auto [cairo, format] = kExpected.at({Profile().app, Profile().platform});
  EXPECT_EQ(dlsym(RTLD_DEFAULT, "cairo_get_target") != nullptr, cairo);
  const Bytes png = samples::Encode(samples::Pattern(5, 4, 8, 6, false));
  uint32_t w = 0, h = 0;
  const Bytes expected = samples::DecodeRGBA(png, &w, &h);
  Reader reader;
  ASSERT_TRUE(ReadPicture(reader, png));
  EXPECT_EQ(Host().RawPicture(Pict(reader)).format, format);
  EXPECT_EQ(Rgba(reader.Call("CombinePictureWithMask")), expected);
}

// Each of the four decoders puts red and blue back in place when SwapRB is set.
TEST_F(ReaderPicture, SwapRBExchangesRedAndBlueInEveryDecoder) {
  const Bytes red = {255, 0, 0, 255}, blue = {0, 0, 255, 255};
  const struct {
    bool swap;
    Bytes pixels;  // the decoded picture of a red and a blue pixel
  } kCases[] = {{false, {255, 0, 0, 255, 0, 0, 255, 255}},
                {true, {0, 0, 255, 255, 255, 0, 0, 255}}};
  for (int colorType : {2, 6}) {
    for (bool interlaced : {false, true}) {
      samples::Image image = samples::Pattern(2, 1, 8, colorType, interlaced);
      image.rows[0] =
          colorType == 2 ? Bytes{255, 0, 0, 0, 0, 255} : Bytes{255, 0, 0, 255, 0, 0, 255, 255};
      for (const auto& c : kCases) {
        SCOPED_TRACE(::testing::Message() << "colour type " << colorType << " interlaced "
                                          << interlaced << " SwapRB " << c.swap);
        Reader reader;
        Host().SetProperty(reader.object, "SwapRB", c.swap);
        ASSERT_TRUE(ReadPicture(reader, samples::Encode(image)));
        EXPECT_EQ(Rgba(Pict(reader)), c.pixels);
      }
    }
  }
  // The words stored for red and blue, in host byte order: gd's alpha 0 and cairo's alpha 255 are
  // opaque; on macOS the bitmap context of alpha info 1 keeps R, G, B, A in memory.
  const std::map<int, std::pair<uint32_t, uint32_t>> kWords = {
      {1, {0xFF0000FFu, 0xFFFF0000u}},
      {8, {0x00FF0000u, 0x000000FFu}},
      {10, {0xFFFF0000u, 0xFF0000FFu}},
  };
  Use({1, 0, 1});
  samples::Image image = samples::Pattern(2, 1, 8, 2, false);
  image.rows[0] = {255, 0, 0, 0, 0, 255};
  Reader reader;
  ASSERT_TRUE(ReadPicture(reader, samples::Encode(image)));
  const emu::PictureRaw raw = Host().RawPicture(Pict(reader));
  ASSERT_EQ(kWords.count(raw.format), 1u) << raw.format;
  uint32_t words[2];
  memcpy(words, raw.bytes.data(), 8);
  EXPECT_EQ(std::make_pair(words[0], words[1]), kWords.at(raw.format));
}

TEST_F(ReaderPicture, MaskIsTheComplementOfAlpha) {
  samples::Image image = samples::Pattern(3, 1, 8, 6, false);
  image.rows[0] = {9, 9, 9, 0, 9, 9, 9, 255, 9, 9, 9, 64};
  Reader reader;
  ASSERT_TRUE(ReadPicture(reader, samples::Encode(image)));
  const Bytes mask = Rgba(Mask(reader));
  EXPECT_EQ((Bytes{mask[0], mask[4], mask[8]}), (Bytes{255, 0, 191}));
}

TEST_F(ReaderPicture, CombinePictureWithMask) {
  const Bytes png = samples::Encode(samples::Pattern(11, 5, 8, 6, false));
  uint32_t w = 0, h = 0;
  const Bytes expected = samples::DecodeRGBA(png, &w, &h);
  Reader reader;
  ASSERT_TRUE(ReadPicture(reader, png));
  emu::Value combined = reader.Call("CombinePictureWithMask");
  ASSERT_FALSE(combined.IsNil());
  EXPECT_EQ(Rgba(combined), expected);
  EXPECT_EQ(Rgba(reader.Call("CombinePictureWithMask")), expected) << "as often as wanted";

  Reader plain;
  ASSERT_TRUE(ReadPicture(plain, samples::Encode(samples::Pattern(4, 4, 8, 2, false))));
  EXPECT_EQ(plain.Call("CombinePictureWithMask").Handle(), Pict(plain).Handle())
      << "without a mask the picture itself comes back";
  Reader none;
  EXPECT_TRUE(none.Call("CombinePictureWithMask").IsNil());
}

// The joined picture keeps the decoded picture's resolutions, which the plug-in reads and writes
// through whichever integer property entry points the host has: the current ones, the older
// 32-bit ones, or none (and then the host's default stays).
TEST_F(ReaderPicture, CombinedPictureKeepsTheResolutions) {
  const std::map<int, RBInteger> kExpected = {{2, 150}, {1, 150}, {0, 72}};
  int served = 0;
  for (const char* name : {"REALGetPropValueInteger", "REALGetPropValueInt"}) {
    served += Profile().withheld.count(name) == 0 ? 1 : 0;
  }
  Reader reader;
  ASSERT_TRUE(ReadPicture(reader, samples::Encode(samples::Pattern(4, 3, 8, 6, false))));
  Host().SetProperty(Pict(reader), "HorizontalResolution", RBInteger{150});
  Host().SetProperty(Pict(reader), "VerticalResolution", RBInteger{150});
  emu::Value combined = reader.Call("CombinePictureWithMask");
  ASSERT_FALSE(combined.IsNil());
  EXPECT_EQ(Host().GetProperty(combined, "HorizontalResolution").AsInteger(), kExpected.at(served));
  EXPECT_EQ(Host().GetProperty(combined, "VerticalResolution").AsInteger(), kExpected.at(served));
}

TEST_F(ReaderPicture, ImagesBeyondThePictureLimit) {
  for (bool interlaced : {false, true}) {
    const Bytes png = samples::Encode(samples::Pattern(32768, 1, 8, 2, interlaced));
    Reader reader;
    EXPECT_FALSE(ReadPicture(reader, png));
    EXPECT_TRUE(Pict(reader).IsNil());
    // A plain image is left unread.
    emu::Value row = Host().NewMemoryBlock(32768 * 4);
    if (!interlaced) {
      EXPECT_TRUE(reader.Ok("ReadRow", {row}));
    }
  }
  Reader rgba;
  EXPECT_FALSE(ReadPicture(rgba, samples::Encode(samples::Pattern(1, 32768, 8, 6, true))));
  EXPECT_TRUE(rgba.errors.empty()) << "the mask writer fails before anything is read";
}

Bytes CutInImageData(const Bytes& png) {
  // Signature and IHDR, then half of the rest.
  return Bytes(png.begin(), png.begin() + 33 + (png.size() - 33) / 2);
}

TEST_F(ReaderPicture, DamagedPlainImages) {
  for (int colorType : {2, 6}) {
    SCOPED_TRACE("colour type " + std::to_string(colorType));
    const Bytes png = samples::Encode(samples::Pattern(64, 64, 8, colorType, false));
    uint32_t w = 0, h = 0;
    const Bytes expected = samples::DecodeRGBA(png, &w, &h);
    Reader strict;
    EXPECT_FALSE(ReadPicture(strict, CutInImageData(png), false));
    EXPECT_TRUE(Pict(strict).IsNil());
    EXPECT_EQ(strict.errors.size(), 1u);

    Reader lenient;
    ASSERT_TRUE(ReadPicture(lenient, CutInImageData(png), true));
    const Bytes got = Rgba(Pict(lenient));
    ASSERT_EQ(got.size(), expected.size());
    // The first rows were decoded before the cut.
    const size_t decoded = 8 * 64 * 4;
    EXPECT_EQ(Bytes(got.begin(), got.begin() + decoded),
              WithOpaqueAlpha(Bytes(expected.begin(), expected.begin() + decoded)));
    EXPECT_NE(got, WithOpaqueAlpha(expected));
    EXPECT_EQ(Mask(lenient).IsNil(), colorType == 2);
  }
}

TEST_F(ReaderPicture, DamagedInterlacedImagesGiveNoPicture) {
  for (int colorType : {2, 6}) {
    const Bytes png = samples::Encode(samples::Pattern(64, 64, 8, colorType, true));
    Reader reader;
    EXPECT_FALSE(ReadPicture(reader, CutInImageData(png), true));
    EXPECT_TRUE(Pict(reader).IsNil());
    // The mask writer was set up before the read; it comes back undecoded.
    EXPECT_EQ(Mask(reader).IsNil(), colorType == 2);
  }
}

TEST_F(ReaderPicture, NothingToDecode) {
  Reader fresh;
  EXPECT_FALSE(fresh.Ok("ReadPicture")) << "no stream opened";
  Reader unset;
  ASSERT_TRUE(unset.OpenData(samples::Encode(samples::Pattern(4, 4, 8, 2, false))));
  EXPECT_FALSE(unset.Ok("ReadPicture")) << "not set up";
  EXPECT_TRUE(unset.errors.empty());
}

// A second ReadPicture finds no rows left: the Error event, and then what AllowDamaged and the
// decoder make of a reader that already holds the first picture. The RGB decoder gives it back
// before decoding; the RGBA decoder replaces it only with what it renders.
TEST_F(ReaderPicture, SecondReadPicture) {
  enum Kept { kNone, kFirst, kNew };
  const struct {
    int colorType;
    bool allowDamaged;
    bool result;
    Kept pict;
  } kCases[] = {{2, false, false, kNone},
                {2, true, true, kNew},
                {6, false, true, kFirst},
                {6, true, true, kNew}};
  for (const auto& c : kCases) {
    SCOPED_TRACE(::testing::Message()
                 << "colour type " << c.colorType << " AllowDamaged " << c.allowDamaged);
    Reader reader;
    ASSERT_TRUE(
        ReadPicture(reader, samples::Encode(samples::Pattern(4, 4, 8, c.colorType, false))));
    const void* first = Pict(reader).Handle();
    Host().SetProperty(reader.object, "AllowDamaged", c.allowDamaged);
    EXPECT_EQ(reader.Ok("ReadPicture"), c.result);
    EXPECT_EQ(reader.errors.size(), 1u);
    const emu::Value pict = Pict(reader);
    EXPECT_EQ(pict.IsNil(), c.pict == kNone);
    EXPECT_EQ(pict.Handle() == first, c.pict == kFirst);
    EXPECT_EQ(Host().IsAlive(first), c.pict == kFirst) << "the first picture is given back";
  }
}

}  // namespace
}  // namespace e2e
