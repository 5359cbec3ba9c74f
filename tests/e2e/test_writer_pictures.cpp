// Pictures to rows: the RGB, grey and palette loaders of PNGWriterKRV over every pixel storage of
// the host, and the PNG suite written back through pictures and masks.
#include <dirent.h>

#include <functional>
#include <map>

#include "tests/e2e/test_writer_helpers.h"

namespace e2e {
namespace {

using samples::Bytes;

const emu::Value kNil;

std::string Text(const Bytes& bytes) {
  return std::string(bytes.begin(), bytes.end());
}

bool Desktop() {
  return Profile().app == emu::AppKind::Desktop;
}

// Desktop pixel formats (alpha info, row padding) to try; the host's own storage elsewhere.
std::vector<std::pair<int, int>> Formats() {
  if (!Desktop()) return {{0, 0}};
  std::vector<std::pair<int, int>> formats;
  for (int info = 1; info <= 6; ++info) {
    for (int padding : {0, 12}) formats.emplace_back(info, padding);
  }
  return formats;
}

class WriterPictures : public PluginTest {
 protected:
  void Use(const std::pair<int, int>& format) {
    if (Desktop()) Host().SetPictureFormat(format.first, format.second);
  }
  void TearDown() override {
    if (Desktop()) Host().SetPictureFormat(2, 0);
    PluginTest::TearDown();
  }
};

// An opaque picture of the RGB of `rgba`, and a mask of grey 255 − alpha when any alpha is below
// 255 (or `forceMask`).
struct Source {
  emu::Value picture;
  emu::Value mask;
};

Source MakeSource(uint32_t width, uint32_t height, const Bytes& rgba, bool forceMask = false) {
  Bytes opaque = rgba;
  Bytes maskRgba;
  bool translucent = forceMask;
  for (size_t i = 0; i < rgba.size(); i += 4) {
    opaque[i + 3] = 255;
    const uint8_t grey = 255 - rgba[i + 3];
    maskRgba.insert(maskRgba.end(), {grey, grey, grey, 255});
    translucent = translucent || rgba[i + 3] != 255;
  }
  Source s;
  s.picture = Host().MakePicture(width, height, Text(opaque));
  if (translucent) s.mask = Host().MakePicture(width, height, Text(maskRgba));
  return s;
}

uint8_t Grey(const uint8_t* p) {
  return static_cast<uint8_t>((77 * p[0] + 151 * p[1] + 28 * p[2]) >> 8);
}

// What a type keeps of the RGBA that went in: alpha only with a mask, grey by its weights.
Bytes Expected(const Bytes& rgba, bool grey, bool alpha) {
  Bytes out;
  for (size_t i = 0; i < rgba.size(); i += 4) {
    const uint8_t g = Grey(&rgba[i]);
    out.insert(out.end(), {grey ? g : rgba[i], grey ? g : rgba[i + 1], grey ? g : rgba[i + 2],
                           alpha ? rgba[i + 3] : uint8_t{255}});
  }
  return out;
}

// Header, palette (for palette rows) and the whole stream, to the file or else to memory.
Bytes WriteStream(Writer& w, const std::string& file = "") {
  EXPECT_TRUE(w.Ok("SetHeader"));
  if (w.Int("Type") == 3) {
    EXPECT_TRUE(w.Ok("SetPalette"));
    EXPECT_TRUE(w.Ok("SetAlphas"));
  }
  EXPECT_TRUE(w.Ok("OpenWriteDestination", {file.empty() ? kNil : Host().MakeFolderItem(file)}));
  EXPECT_TRUE(w.Ok("WriteInfo"));
  EXPECT_TRUE(w.Ok("WriteRows"));
  EXPECT_TRUE(w.Ok("WriteEnd"));
  EXPECT_TRUE(w.errors.empty()) << w.errors[0];
  if (file.empty()) return w.Finish();
  w.Call("CloseDestination");
  return samples::ReadFile(file);
}

ReadBack WriteLoaded(Writer& w) {
  return ReadWithLibpng(WriteStream(w));
}

// White, red, green, blue, grey 128 and a colour missing from the palette below; the mask
// alphas are 255, 0, 127, 255, 10, 200.
const Bytes kPixels = {255, 255, 255, 255, 255, 0,   0,   0,  0, 255, 0, 127,
                       0,   0,   255, 255, 128, 128, 128, 10, 1, 2,   3, 200};

TEST_F(WriterPictures, LoadersOverEveryPixelStorage) {
  for (const auto& format : Formats()) {
    Use(format);
    const Source source = MakeSource(3, 2, kPixels, true);
    const std::string where = std::to_string(format.first) + "/" + std::to_string(format.second);
    struct Case {
      const char* method;
      bool mask;
      RBInteger type;
      RBInteger bpc;
    };
    for (const Case& c :
         {Case{"SetRGBPicture", false, 2, 3}, Case{"SetRGBPicture", true, 6, 4},
          Case{"SetGrayPicture", false, 0, 1}, Case{"SetGrayPicture", true, 4, 2}}) {
      Writer w;
      ASSERT_TRUE(w.Ok(c.method, {source.picture, c.mask ? source.mask : kNil})) << where;
      EXPECT_EQ(w.Int("Type"), c.type);
      EXPECT_EQ(w.Int("bpc"), c.bpc);
      EXPECT_EQ(w.Int("Rowbytes"), 3 * c.bpc);
      EXPECT_EQ(w.Int("Width"), 3);
      EXPECT_EQ(w.Int("Height"), 2);
      const bool grey = c.type == 0 || c.type == 4;
      EXPECT_EQ(WriteLoaded(w).Rgba(), Expected(kPixels, grey, c.mask)) << c.method << " " << where;
    }
    Writer w;
    // Red twice: the lower index wins. 1, 2, 3 is missing and takes index 0.
    ASSERT_TRUE(
        w.Ok("SetPaletteData", {Host().MakeColorArray({0x0000FF, 0xFF0000, 0xFF0000, 0x808080,
                                                       0x00FF00, 0xFFFFFF, 0x01FF00FF})}));
    ASSERT_TRUE(w.Ok("SetPalettePicture", {source.picture}));
    EXPECT_EQ(w.Int("Type"), 3);
    const ReadBack back = WriteLoaded(w);
    ASSERT_EQ(back.rows.size(), 2u);
    EXPECT_EQ(back.rows[0], Bytes({5, 1, 4})) << where;
    EXPECT_EQ(back.rows[1], Bytes({0, 3, 0})) << "exact matches only " << where;
  }
}

TEST_F(WriterPictures, BadPicturesAndMasks) {
  const Source source = MakeSource(3, 2, kPixels, true);
  const Source small = MakeSource(2, 2, Bytes(16, 9), true);
  Writer w;
  for (const char* method : {"SetRGBPicture", "SetGrayPicture", "SetPalettePicture"}) {
    EXPECT_FALSE(w.Ok(method, {kNil}));
    EXPECT_EQ(RaisedMessage(), "NilObjectException: Picture is nil") << method;
  }
  ASSERT_TRUE(w.Ok("SetRGBPicture", {small.picture}));
  ASSERT_TRUE(w.Ok("SetRGBPicture", {source.picture})) << "replaces the rows before";
  EXPECT_EQ(w.Int("Width"), 3);
  EXPECT_EQ(w.Int("Rowbytes"), 9);
  if (!Desktop()) {
    emu::PictureOptions palette;
    palette.storage = emu::PictureStorage::GdPalette;
    const emu::Value paletteImage = Host().MakePicture(3, 2, Text(kPixels), palette);
    EXPECT_FALSE(w.Ok("SetPalettePicture", {paletteImage})) << "a gd palette image";
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

// The colours of `rgba` padded to a full table of 256 with opaque black, with their alphas; empty
// when the image has more than 256 colours or one colour with two alphas.
std::pair<std::vector<RBColor>, std::vector<RBInteger>> PaletteOf(const Bytes& rgba) {
  std::map<RBColor, RBInteger> alphas;
  for (size_t i = 0; i < rgba.size(); i += 4) {
    const RBColor c = RBColor{rgba[i]} << 16 | RBColor{rgba[i + 1]} << 8 | rgba[i + 2];
    const auto [it, added] = alphas.emplace(c, rgba[i + 3]);
    if ((!added && it->second != rgba[i + 3]) || alphas.size() > 256) return {};
  }
  std::pair<std::vector<RBColor>, std::vector<RBInteger>> table;
  for (const auto& [colour, alpha] : alphas) {
    table.first.push_back(colour);
    table.second.push_back(alpha);
  }
  table.first.resize(256, 0);
  table.second.resize(256, 255);
  return table;
}

// Writes with one loader to memory and to a file; the two streams must agree. The pixels read
// back as RGBA.
Bytes WriteBoth(const std::function<void(Writer&)>& load) {
  Writer memory;
  load(memory);
  const Bytes png = WriteStream(memory);
  TempFile file({});
  Writer toFile;
  load(toFile);
  EXPECT_EQ(WriteStream(toFile, file.path), png);
  return ReadWithLibpng(png).Rgba();
}

TEST_F(WriterPictures, PngSuiteRoundTrips) {
  const std::string dir = PngSuiteDir();
  if (dir.empty()) GTEST_SKIP() << "no PNG suite";
  DIR* listing = opendir(dir.c_str());
  ASSERT_NE(listing, nullptr);
  std::vector<std::string> names;
  while (dirent* entry = readdir(listing)) {
    const std::string name = entry->d_name;
    if (name.size() > 4 && name.substr(name.size() - 4) == ".png" && name[0] != 'x') {
      names.push_back(name);
    }
  }
  closedir(listing);
  ASSERT_GT(names.size(), 150u);
  for (const std::string& name : names) {
    uint32_t width = 0, height = 0;
    const Bytes rgba = samples::DecodeRGBA(samples::ReadFile(dir + "/" + name), &width, &height);
    const Source s = MakeSource(width, height, rgba);
    const emu::Value mask = s.mask;
    EXPECT_EQ(WriteBoth([&](Writer& w) { w.Ok("SetRGBPicture", {s.picture}); }),
              Expected(rgba, false, false))
        << name << " rgb";
    EXPECT_EQ(WriteBoth([&](Writer& w) { w.Ok("SetGrayPicture", {s.picture}); }),
              Expected(rgba, true, false))
        << name << " gray";
    if (!mask.IsNil()) {
      EXPECT_EQ(WriteBoth([&](Writer& w) {
                  w.Ok("SetRGBPicture", {s.picture, mask});
                }),
                Expected(rgba, false, true))
          << name << " rgba";
      EXPECT_EQ(WriteBoth([&](Writer& w) {
                  w.Ok("SetGrayPicture", {s.picture, mask});
                }),
                Expected(rgba, true, true))
          << name << " graya";
    }
    const auto palette = PaletteOf(rgba);
    if (palette.first.empty()) continue;
    EXPECT_EQ(WriteBoth([&](Writer& w) {
                w.Ok("SetAlphaData", {Host().MakeIntegerArray(palette.second),
                                      Host().MakeColorArray(palette.first)});
                w.Ok("SetPalettePicture", {s.picture});
              }),
              rgba)
        << name << " palette";
  }
}

}  // namespace
}  // namespace e2e
