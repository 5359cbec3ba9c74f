// The header and ancillary chunks that PNGWriterKRV writes, read back with libpng, and the class
// as the host sees it.
#include <zlib.h>

#include <algorithm>
#include <functional>

#include "tests/e2e/test_writer_helpers.h"

namespace e2e {
namespace {

using samples::Bytes;

const emu::Value kNil;

Bytes Encode(Writer& w, const samples::Image& image, const std::function<void()>& chunks) {
  w.Set("Width", image.width);
  w.Set("Type", image.colorType);
  EXPECT_TRUE(w.Ok("SetRows", {RowsArray(image.rows)}));
  chunks();
  EXPECT_TRUE(w.Ok("OpenWriteDestination", {kNil}));
  EXPECT_TRUE(w.Ok("WriteInfo"));
  EXPECT_TRUE(w.Ok("WriteRows"));
  EXPECT_TRUE(w.Ok("WriteEnd"));
  return w.Finish();
}

ReadBack EncodeRGB(const std::function<void(Writer&)>& chunks) {
  Writer w;
  const Bytes png = Encode(w, samples::Pattern(4, 3, 8, 2, false), [&] {
    EXPECT_TRUE(w.Ok("SetHeader"));
    chunks(w);
  });
  EXPECT_TRUE(w.errors.empty()) << w.errors[0];
  return ReadWithLibpng(png);
}

// A palette image of `indices` written with the colours and alphas stored by `store`.
ReadBack EncodePalette(const Bytes& indices, const std::function<void(Writer&)>& store) {
  Writer w;
  samples::Image image;
  image.width = static_cast<uint32_t>(indices.size());
  image.height = 1;
  image.colorType = 3;
  image.rows = {indices};
  const Bytes png = Encode(w, image, [&] {
    store(w);
    EXPECT_TRUE(w.Ok("SetHeader"));
    EXPECT_TRUE(w.Ok("SetPalette"));
    EXPECT_TRUE(w.Ok("SetAlphas"));
  });
  return ReadWithLibpng(png);
}

// The filter byte of each row of a non-interlaced stream.
Bytes FilterBytes(const Bytes& png, size_t rowBytes, size_t height) {
  Bytes idat;
  for (size_t at = 8; at + 12 <= png.size();) {
    size_t length = 0;
    for (size_t i = 0; i < 4; ++i) length = length << 8 | png[at + i];
    if (std::string(png.begin() + at + 4, png.begin() + at + 8) == "IDAT") {
      idat.insert(idat.end(), png.begin() + at + 8, png.begin() + at + 8 + length);
    }
    at += length + 12;
  }
  Bytes raw(height * (rowBytes + 1));
  uLongf size = raw.size();
  EXPECT_EQ(uncompress(raw.data(), &size, idat.data(), idat.size()), Z_OK);
  Bytes filters;
  for (size_t y = 0; y < height; ++y) filters.push_back(raw[y * (rowBytes + 1)]);
  return filters;
}

// An ICC profile that libpng accepts for RGB images: a header and one tag of 200 bytes that do
// not compress (libpng 1.6.39 cannot read back an iCCP chunk shorter than 92 bytes).
Bytes IccProfile() {
  Bytes icc(344);
  icc[2] = 1;
  icc[3] = 0x58;
  const auto put = [&](size_t at, const char* text) { std::copy(text, text + 4, &icc[at]); };
  put(12, "mntr");
  put(16, "RGB ");
  put(20, "XYZ ");
  put(36, "acsp");
  const uint8_t d50[] = {0, 0, 0xF6, 0xD6, 0, 1, 0, 0, 0, 0, 0xD3, 0x2D};
  std::copy(std::begin(d50), std::end(d50), &icc[68]);
  icc[131] = 1;
  put(132, "wtpt");
  icc[139] = 144;
  icc[143] = 200;
  uint32_t seed = 1;
  for (size_t i = 144; i < icc.size(); ++i) {
    seed = seed * 1103515245 + 12345;
    icc[i] = static_cast<uint8_t>(seed >> 16);
  }
  return icc;
}

class WriterChunks : public PluginTest {};

TEST_F(WriterChunks, HeaderFilterAndCompression) {
  const samples::Image image = samples::Pattern(32, 16, 8, 2, false);
  Writer w;
  w.Set("bpc", 3);
  const Bytes up = Encode(w, image, [&] { EXPECT_TRUE(w.Ok("SetHeader", {false, 0x20, 9})); });
  EXPECT_EQ(ReadWithLibpng(up).bitDepth, 8);
  EXPECT_EQ(FilterBytes(up, 96, 16), Bytes(16, 2));

  Writer stored;
  const Bytes level0 = Encode(stored, image, [&] {
    EXPECT_TRUE(stored.Ok("SetHeader", {false, 2, 0}));
  });
  EXPECT_GT(level0.size(), 16u * 97) << "level 0 stores the rows";
  EXPECT_LT(up.size(), level0.size());
  EXPECT_EQ(ReadWithLibpng(level0).rows, image.rows);
}

TEST_F(WriterChunks, ResolutionGammaAndColourInformation) {
  ReadBack back = EncodeRGB([](Writer& w) {
    EXPECT_TRUE(w.Ok("SetResolution", {72, 300, 2}));
    EXPECT_TRUE(w.Ok("SetGamma"));
  });
  EXPECT_EQ(back.physX, 2835u);
  EXPECT_EQ(back.physY, 11811u);
  EXPECT_EQ(back.physUnit, 1);
  EXPECT_NEAR(back.gamma, 1 / 1.8, 1e-5);
  EXPECT_EQ(back.srgbIntent, -1);

  back = EncodeRGB([](Writer& w) {
    EXPECT_TRUE(w.Ok("SetResolution", {72, 72, 1}));
    EXPECT_TRUE(w.Ok("SetGamma", {2.2}));
    EXPECT_TRUE(w.Ok("SetsRGB", {3}));
  });
  EXPECT_EQ(back.physX, 72u);
  EXPECT_EQ(back.physUnit, 1);
  EXPECT_EQ(back.srgbIntent, 3);

  back = EncodeRGB([](Writer& w) {
    EXPECT_TRUE(w.Ok("SetResolution", {3, 2, 0}));
    EXPECT_TRUE(w.Ok("SetGamma", {-1.0}));
    EXPECT_TRUE(w.Ok("SetICCProfile", {Host().MakeString("Test profile"), 0, Str(IccProfile())}));
  });
  EXPECT_EQ(back.physX, 3u);
  EXPECT_EQ(back.physUnit, 0);
  EXPECT_EQ(back.gamma, 0.0);
  EXPECT_EQ(back.iccName, "Test profile");
  EXPECT_EQ(back.icc, IccProfile());
}

TEST_F(WriterChunks, PaletteAndSortedTransparency) {
  const RBColor a = 0x102030, b = 0x405060;
  ReadBack back = EncodePalette({0, 1}, [&](Writer& w) {
    EXPECT_TRUE(
        w.Ok("SetAlphaData", {Host().MakeIntegerArray({255, 0}), Host().MakeColorArray({a, b})}));
  });
  EXPECT_EQ(back.palette, Bytes({0x40, 0x50, 0x60, 0, 0, 0})) << "B, then an unused black slot";
  EXPECT_EQ(back.trns, Bytes({0, 0}));

  std::vector<RBColor> colours;
  std::vector<RBInteger> alphas;
  for (int i = 0; i < 256; ++i) {
    colours.push_back(static_cast<RBColor>(i * 0x010101));
    alphas.push_back(i % 3 == 0 ? 255 : 256 - i);  // 256 - i as a byte: 256 becomes 0
  }
  back = EncodePalette({0, 1, 2}, [&](Writer& w) {
    EXPECT_TRUE(
        w.Ok("SetAlphaData", {Host().MakeIntegerArray(alphas), Host().MakeColorArray(colours)}));
  });
  ASSERT_EQ(back.palette.size(), 768u);
  Bytes sorted;
  for (int i = 0; i < 256; ++i) sorted.push_back(static_cast<uint8_t>(alphas[i]));
  std::sort(sorted.begin(), sorted.end());
  sorted.resize(std::count_if(sorted.begin(), sorted.end(), [](uint8_t x) { return x != 255; }));
  EXPECT_EQ(back.trns, sorted);
  for (int i = 0; i < 256; ++i) {
    const uint8_t grey = back.palette[3 * i];
    const uint8_t alpha = i < static_cast<int>(back.trns.size()) ? back.trns[i] : 255;
    EXPECT_EQ(grey % 3 == 0 ? 255 : static_cast<uint8_t>(256 - grey), alpha) << i;
  }

  back = EncodePalette({1}, [&](Writer& w) {
    EXPECT_TRUE(w.Ok("SetAlphaData", {Host().MakeIntegerArray(std::vector<RBInteger>(256, 255)),
                                      Host().MakeColorArray({a, b})}));
  });
  EXPECT_TRUE(back.trns.empty()) << "all opaque: no tRNS";

  back = EncodePalette({0, 2}, [&](Writer& w) {
    EXPECT_TRUE(w.Ok("SetPaletteData", {Host().MakeColorArray(std::vector<RBColor>(300, a))}));
  });
  EXPECT_EQ(back.palette.size(), 768u) << "at most 256 colours";
}

TEST_F(WriterChunks, RefusedValues) {
  for (const auto& [width, type] : {std::pair{4, 1}, std::pair{0, 2}, std::pair{-1, 2}}) {
    Writer w;
    w.Set("Width", width);
    w.Set("Height", 2);
    w.Set("Type", type);
    EXPECT_FALSE(w.Ok("SetHeader")) << "TypePalette is 1: " << width << " " << type;
    EXPECT_EQ(w.errors.size(), 1u);
  }
  Writer w;
  w.Set("Width", 2);
  w.Set("Height", 2);
  w.Set("Type", 3);
  ASSERT_TRUE(w.Ok("SetHeader"));
  EXPECT_FALSE(w.Ok("SetICCProfile", {Host().MakeString("bad"), 0, Str(Bytes(20, 1))}));
  EXPECT_TRUE(w.Ok("SetICCProfile", {Host().MakeString("none"), 0, kNil})) << "no profile";
  EXPECT_FALSE(w.Ok("SetGamma", {1e-9})) << "a file gamma beyond libpng's range";
  EXPECT_TRUE(w.Ok("SetPaletteData", {Host().MakeColorArray({})}));
  EXPECT_FALSE(w.Ok("SetPalette")) << "an empty palette";
  EXPECT_EQ(w.errors.size(), 3u);

  EXPECT_FALSE(w.Ok("SetPaletteData", {kNil}));
  EXPECT_EQ(RaisedMessage(), "NilObjectException: Colors array is nil");
  EXPECT_FALSE(w.Ok("SetAlphaData", {kNil, kNil}));
  EXPECT_EQ(RaisedMessage(), "NilObjectException: Colors array is nil");
  EXPECT_FALSE(w.Ok("SetAlphaData", {kNil, Host().MakeColorArray({1})}));
  EXPECT_EQ(RaisedMessage(), "NilObjectException: Alphas array is nil");
}

TEST_F(WriterChunks, TheClassAsRegistered) {
  const emu::ClassInfo* info = Host().GetRegistry().FindClass("PNGWriterKRV");
  ASSERT_NE(info, nullptr);
  ASSERT_EQ(info->constants.size(), 8u);
  EXPECT_EQ(info->constants[4].declaration, "TypePalette = 1");
  EXPECT_EQ(Host().CallShared("PNGWriterKRV", "PNGLibVersion").Text(), png_get_libpng_ver(nullptr));
  Writer w;
  w.Set("Rowbytes", 77);
  EXPECT_EQ(w.Int("Rowbytes"), 77);
  EXPECT_EQ(w.Int("Type"), 0);
}

}  // namespace
}  // namespace e2e
