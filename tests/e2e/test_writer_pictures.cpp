// Pictures to rows: the RGB, grey and palette loaders of PNGWriterKRV over every pixel storage of
// the host, and the PNG suite written back through pictures and masks.
#include <filesystem>
#include <functional>
#include <map>

#include "tests/e2e/test_writer_helpers.h"

namespace e2e {
namespace {

using samples::Bytes;

class WriterPictures : public PluginTest {
 protected:
  void TearDown() override {
    if (Desktop()) Host().SetPictureFormat(2, 0);
    PluginTest::TearDown();
  }
};

// An opaque picture of the RGB of `rgba`, and a mask of grey 255 − alpha when any alpha is below
// 255 (or `forceMask`).
struct Source {
  Source(uint32_t width, uint32_t height, const Bytes& rgba, bool forceMask = false,
         bool alphaChannel = false) {
    std::string opaque(rgba.begin(), rgba.end()), mask;
    bool translucent = forceMask;
    for (size_t i = 0; i < rgba.size(); i += 4) {
      opaque[i + 3] = '\xFF';
      mask.append(3, static_cast<char>(255 - rgba[i + 3])).push_back('\xFF');
      translucent = translucent || rgba[i + 3] != 255;
    }
    emu::PictureOptions options;
    options.alphaChannel = alphaChannel;
    picture = Host().MakePicture(width, height, opaque, options);
    if (translucent) this->mask = Host().MakePicture(width, height, mask);
  }
  emu::Value picture, mask;
};

// What a loader keeps of the RGBA that went in: alpha only with a mask, and for the grey loaders
// the grey levels given (one a pixel) in place of the colours.
Bytes Expected(const Bytes& rgba, const Bytes& greys, bool alpha) {
  Bytes out;
  for (size_t i = 0; i < rgba.size(); i += 4) {
    const bool grey = !greys.empty();
    const uint8_t g = grey ? greys[i / 4] : 0;
    out.insert(out.end(), {grey ? g : rgba[i], grey ? g : rgba[i + 1], grey ? g : rgba[i + 2],
                           alpha ? rgba[i + 3] : uint8_t{255}});
  }
  return out;
}

Bytes Write(Writer& w, const std::string& file = "") {
  SetHeaderAndPalette(w);
  return WriteStream(w, file);
}

struct Loader {
  const char* method;
  bool mask, grey;
  RBInteger type, bpc;
};
const Loader kLoaders[] = {{"SetRGBPicture", false, false, 2, 3},
                           {"SetRGBPicture", true, false, 6, 4},
                           {"SetGrayPicture", false, true, 0, 1},
                           {"SetGrayPicture", true, true, 4, 2}};

// White, red, green, blue, grey 128 and a colour missing from the palette below; the mask
// alphas are 255, 0, 127, 255, 10, 200.
const Bytes kPixels = {255, 255, 255, 255, 255, 0,   0,   0,  0, 255, 0, 127,
                       0,   0,   255, 255, 128, 128, 128, 10, 1, 2,   3, 200};
// Their grey levels: (77 R + 151 G + 28 B) / 256, truncated.
const Bytes kGreys = {255, 76, 150, 27, 128, 1};

// A storage the loaders read from: the alpha info and row padding set on the host, whether the
// picture has an alpha channel, and the format it is then stored in.
struct Storage {
  int alphaInfo, padding;
  bool alphaChannel;
  int format;
};

// Linux desktop hosts: cairo RGB24 (10) and, for pictures with alpha channel, ARGB32 (9); macOS
// desktop hosts: the six bitmap-context layouts; each with and without 12 bytes of row padding.
// Elsewhere the host's one storage, gd true colour (8).
std::vector<Storage> Storages() {
  if (!Desktop()) return {{2, 0, false, 8}};
  std::vector<Storage> storages;
  for (int padding : {0, 12}) {
    if (Profile().platform == emu::Platform::Linux) {
      storages.push_back({2, padding, false, 10});
      storages.push_back({2, padding, true, 9});
      continue;
    }
    for (int alpha = 1; alpha <= 6; ++alpha) storages.push_back({alpha, padding, false, alpha});
  }
  return storages;
}

TEST_F(WriterPictures, LoadersOverEveryPixelStorage) {
  for (const Storage& storage : Storages()) {
    if (Desktop()) Host().SetPictureFormat(storage.alphaInfo, storage.padding);
    SCOPED_TRACE(::testing::Message() << "alpha info " << storage.alphaInfo << " padding "
                                      << storage.padding << " alpha " << storage.alphaChannel);
    const Source source(3, 2, kPixels, true, storage.alphaChannel);
    ASSERT_EQ(Host().RawPicture(source.picture).format, storage.format);
    for (const Loader& l : kLoaders) {
      Writer w;
      ASSERT_TRUE(w.Ok(l.method, {source.picture, l.mask ? source.mask : kNil}));
      EXPECT_EQ(std::make_tuple(w.Int("Type"), w.Int("bpc"), w.Int("Rowbytes"), w.Int("Width"),
                                w.Int("Height")),
                std::make_tuple(l.type, l.bpc, 3 * l.bpc, RBInteger{3}, RBInteger{2}));
      EXPECT_EQ(ReadWithLibpng(Write(w)).rgba, Expected(kPixels, l.grey ? kGreys : Bytes(), l.mask))
          << l.method;
    }
    Writer w;
    // Red twice: the lower index wins. 1, 2, 3 is missing and takes index 0.
    ASSERT_TRUE(
        w.Ok("SetPaletteData", {Host().MakeColorArray({0x0000FF, 0xFF0000, 0xFF0000, 0x808080,
                                                       0x00FF00, 0xFFFFFF, 0x01FF00FF})}));
    ASSERT_TRUE(w.Ok("SetPalettePicture", {source.picture}));
    EXPECT_EQ(w.Int("Type"), 3);
    EXPECT_EQ(ReadWithLibpng(Write(w)).rows, std::vector<Bytes>({{5, 1, 4}, {0, 3, 0}}));
  }
}

TEST_F(WriterPictures, BadPicturesAndMasks) {
  const Source source(3, 2, kPixels, true), small(2, 2, Bytes(16, 9), true);
  Writer w;
  for (const char* method : {"SetRGBPicture", "SetGrayPicture", "SetPalettePicture"}) {
    EXPECT_FALSE(w.Ok(method, {kNil}));
    EXPECT_EQ(RaisedMessage(), "NilObjectException: Picture is nil") << method;
  }
  ASSERT_TRUE(w.Ok("SetRGBPicture", {small.picture}));
  ASSERT_TRUE(w.Ok("SetRGBPicture", {source.picture})) << "replaces the rows before";
  EXPECT_EQ(w.Int("Rowbytes"), 9);
  if (!Desktop()) {
    emu::PictureOptions palette;
    palette.storage = emu::PictureStorage::GdPalette;
    const std::string pixels(kPixels.begin(), kPixels.end());
    EXPECT_FALSE(w.Ok("SetPalettePicture", {Host().MakePicture(3, 2, pixels, palette)}));
  }
  EXPECT_FALSE(w.Ok("SetRGBPicture", {source.picture, small.mask})) << "a mask smaller";
  ASSERT_TRUE(w.Ok("SetRGBPicture", {source.picture}));
  EXPECT_FALSE(w.Ok("SetGrayPicture", {source.picture, small.mask}));
  w.Set("Type", 2);
  ASSERT_TRUE(w.Ok("SetHeader"));
  ASSERT_TRUE(w.Ok("OpenWriteDestination", {kNil}));
  ASSERT_TRUE(w.Ok("WriteInfo"));
  EXPECT_FALSE(w.Ok("WriteRows")) << "the failed loader released the rows";
  EXPECT_FALSE(Host().LastException());
}

// The colours of `rgba` with their alphas, padded to a full table of 256 with opaque black; false
// for more than 256 colours or a colour with two alphas.
bool PaletteOf(const Bytes& rgba, std::vector<RBColor>& colours, std::vector<RBInteger>& alphas) {
  std::map<RBColor, RBInteger> table;
  for (size_t i = 0; i < rgba.size(); i += 4) {
    const RBColor c = RBColor{rgba[i]} << 16 | RBColor{rgba[i + 1]} << 8 | rgba[i + 2];
    if (table.emplace(c, rgba[i + 3]).first->second != rgba[i + 3]) return false;
  }
  for (const auto& [colour, alpha] : table) {
    colours.push_back(colour);
    alphas.push_back(alpha);
  }
  colours.resize(256, 0);
  alphas.resize(256, 255);
  return table.size() <= 256;
}

TEST_F(WriterPictures, PngSuiteRoundTrips) {
  const std::string dir = PngSuiteDir();
  if (dir.empty()) GTEST_SKIP() << "no PNG suite";
  size_t images = 0;
  for (const auto& entry : std::filesystem::directory_iterator(dir)) {
    const std::string name = entry.path().filename();
    if (entry.path().extension() != ".png" || name[0] == 'x') continue;
    ++images;
    uint32_t width = 0, height = 0;
    const Bytes rgba = samples::DecodeRGBA(samples::ReadFile(entry.path()), &width, &height);
    const Source s(width, height, rgba);
    // Each type the content allows, to memory and to a file: the same stream, the same pixels.
    const auto check = [&](const char* type, const std::function<void(Writer&)>& load,
                           const Bytes& expected) {
      Writer memory, toFile;
      load(memory);
      load(toFile);
      const Bytes png = Write(memory);
      TempFile file({});
      EXPECT_EQ(Write(toFile, file.path), png) << name << " " << type;
      EXPECT_EQ(ReadWithLibpng(png).rgba, expected) << name << " " << type;
    };
    // The grey levels are pinned by the test above; here the colour loaders and the palette.
    for (const Loader& l : kLoaders) {
      if (l.grey || (l.mask && s.mask.IsNil())) continue;
      const auto load = [&](Writer& w) { w.Ok(l.method, {s.picture, l.mask ? s.mask : kNil}); };
      check(l.method, load, Expected(rgba, Bytes(), l.mask));
    }
    std::vector<RBColor> colours;
    std::vector<RBInteger> alphas;
    if (!PaletteOf(rgba, colours, alphas)) continue;
    const auto load = [&](Writer& w) {
      w.Ok("SetAlphaData", {Host().MakeIntegerArray(alphas), Host().MakeColorArray(colours)});
      w.Ok("SetPalettePicture", {s.picture});
    };
    check("palette", load, rgba);
  }
  EXPECT_GT(images, 150u);
}

}  // namespace
}  // namespace e2e
