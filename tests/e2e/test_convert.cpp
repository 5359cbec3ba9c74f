// The one-call conversions: PNG data and files into PNGPictureKRV objects and pictures, and
// pictures into PNG data and files, with masks, palettes and their failures.
#include <png.h>
#include <spng.h>

#include "tests/e2e/Fixture.h"

namespace e2e {
namespace {

using samples::Bytes;

Bytes Rgba(const emu::Value& picture) {
  const std::string bytes = Host().PictureRgba(picture);
  return Bytes(bytes.begin(), bytes.end());
}

Bytes Opaque(Bytes rgba) {
  for (size_t i = 3; i < rgba.size(); i += 4) rgba[i] = 255;
  return rgba;
}

std::string Text(const Bytes& bytes) {
  return std::string(bytes.begin(), bytes.end());
}

Bytes Decoded(const std::string& png) {
  uint32_t w = 0, h = 0;
  return samples::DecodeRGBA(Bytes(png.begin(), png.end()), &w, &h);
}

// A picture of the RGBA pixels' colours with a mask from their alphas.
emu::Value MaskedPicture(uint32_t w, uint32_t h, const Bytes& rgba) {
  emu::PictureOptions options;
  options.mask = emu::MaskSource::Alpha;
  return Host().MakePicture(w, h, Text(rgba), options);
}

class Convert : public PluginTest {};

TEST_F(Convert, StringsAndFilesToPNGPictures) {
  for (bool interlaced : {false, true}) {
    SCOPED_TRACE(interlaced ? "interlaced" : "plain");
    const Bytes png = samples::Encode(samples::Pattern(21, 9, 16, 6, interlaced));
    uint32_t w = 0, h = 0;
    const Bytes expected = samples::DecodeRGBA(png, &w, &h);
    emu::Value result = Host().CallGlobal("PNGStringToPNGPictureKRV", {Str(png), float(-1)});
    ASSERT_FALSE(result.IsNil());
    EXPECT_EQ(Host().ClassName(result), "PNGPictureKRV");
    EXPECT_EQ(Host().GetProperty(result, "Width").AsInteger(), 21);
    EXPECT_EQ(Host().GetProperty(result, "Height").AsInteger(), 9);
    EXPECT_EQ(Rgba(Host().GetProperty(result, "Pict")), Opaque(expected));
    EXPECT_FALSE(Host().GetProperty(result, "Mask").IsNil());
    EXPECT_EQ(Rgba(Host().Call(result, "CombinePictureWithMask")), expected);
    // Saved again from the host's own pictures, the samples come back.
    const emu::Value saved = Host().CallGlobal(
        "PictureToPNGStringKRV",
        {Host().GetProperty(result, "Pict"), Host().GetProperty(result, "Mask"), float(0)});
    EXPECT_EQ(Decoded(saved.Bytes()), expected);

    emu::Value combined = Host().CallGlobal("PNGStringToPictureKRV", {Str(png), float(-1)});
    EXPECT_EQ(Rgba(combined), expected);

    TempFile file(png);
    emu::Value opened =
        Host().Call(Host().MakeFolderItem(file.path), "OpenAsPNGKRV", {float(-1), false});
    ASSERT_FALSE(opened.IsNil());
    EXPECT_EQ(Rgba(Host().Call(opened, "CombinePictureWithMask")), expected);
  }
}

TEST_F(Convert, OpeningFailuresAndDamage) {
  EXPECT_TRUE(
      Host().CallGlobal("PNGStringToPNGPictureKRV", {emu::Value::AdoptString(nullptr)}).IsNil());
  EXPECT_TRUE(Host().CallGlobal("PNGStringToPictureKRV", {Str(Bytes(50, 'x'))}).IsNil());
  EXPECT_TRUE(Host().Call(Host().MakeFolderItem("/nonexistent/x.png"), "OpenAsPNGKRV").IsNil());

  // A truncated stream gives the picture as far as it was decoded, whatever AllowDamaged says.
  const Bytes png = samples::Encode(samples::Pattern(40, 40, 8, 2, false));
  const Bytes cut(png.begin(), png.begin() + png.size() / 2);
  emu::Value lenient = Host().CallGlobal("PNGStringToPNGPictureKRV", {Str(cut), float(0), true});
  emu::Value strict = Host().CallGlobal("PNGStringToPNGPictureKRV", {Str(cut), float(0), false});
  ASSERT_FALSE(strict.IsNil());
  EXPECT_EQ(Rgba(Host().GetProperty(strict, "Pict")), Rgba(Host().GetProperty(lenient, "Pict")));
  EXPECT_FALSE(Host().LastException());
}

TEST_F(Convert, PictureWithoutMaskComesBackItself) {
  const Bytes png = samples::Encode(samples::Pattern(6, 6, 8, 2, false));
  emu::Value picture = Host().CallGlobal("PNGStringToPictureKRV", {Str(png)});
  ASSERT_FALSE(picture.IsNil());
  EXPECT_EQ(Host().References(picture.Handle()), 1) << "the caller holds the only reference";
  EXPECT_TRUE(Host().PictureMask(picture).IsNil());
}

TEST_F(Convert, PicturesToStringsWithMasks) {
  const samples::Image image = samples::Pattern(17, 6, 8, 6, false);
  uint32_t w = 0, h = 0;
  const Bytes rgba = samples::DecodeRGBA(samples::Encode(image), &w, &h);
  emu::Value masked = MaskedPicture(w, h, rgba);
  emu::Value plain = Host().MakePicture(w, h, Text(Opaque(rgba)));
  emu::Value mask = Host().PictureMask(masked);

  EXPECT_EQ(Decoded(Host().CallGlobal("PictureToPNGStringKRV", {masked}).Bytes()), rgba)
      << "the picture's own mask becomes the alpha channel";
  EXPECT_EQ(Decoded(Host().CallGlobal("PictureToPNGStringKRV", {plain, mask, float(0)}).Bytes()),
            rgba);
  EXPECT_EQ(Decoded(Host().CallGlobal("PictureToPNGStringKRV", {plain}).Bytes()), Opaque(rgba));
  const std::string interlaced =
      Host().CallGlobal("PictureToPNGStringKRV", {masked, float(2.2), true, RBInteger{0}}).Bytes();
  EXPECT_EQ(Decoded(interlaced), rgba);
  EXPECT_EQ(static_cast<uint8_t>(interlaced[28]), 1) << "IHDR interlace method";
  EXPECT_EQ(
      Decoded(Host()
                  .CallGlobal("PictureToPNGStringKRV", {plain, mask, float(0), false, RBInteger{8}})
                  .Bytes()),
      rgba);
  EXPECT_TRUE(
      Host().CallGlobal("PictureToPNGStringKRV", {emu::Value::AdoptObject(nullptr)}).IsNil());
  EXPECT_TRUE(
      Host()
          .CallGlobal("PictureToPNGStringKRV", {emu::Value::AdoptObject(nullptr), mask, float(0)})
          .IsNil());
  EXPECT_FALSE(Host().LastException());
}

TEST_F(Convert, PicturesToFiles) {
  const samples::Image image = samples::Pattern(9, 5, 8, 6, true);
  uint32_t w = 0, h = 0;
  const Bytes rgba = samples::DecodeRGBA(samples::Encode(image), &w, &h);
  emu::Value masked = MaskedPicture(w, h, rgba);
  TempFile file(Bytes{});
  emu::Value item = Host().MakeFolderItem(file.path);
  ASSERT_TRUE(Host().Call(item, "SaveAsPNGKRV", {masked}).AsBoolean());
  EXPECT_EQ(Decoded(Text(samples::ReadFile(file.path))), rgba);
  ASSERT_TRUE(
      Host().Call(item, "SaveAsPNGKRV", {masked, float(0), true, RBInteger{-1}}).AsBoolean());
  EXPECT_EQ(Decoded(Text(samples::ReadFile(file.path))), rgba);
  emu::Value mask = Host().PictureMask(masked);
  emu::Value plain = Host().MakePicture(w, h, Text(Opaque(rgba)));
  ASSERT_TRUE(Host().Call(item, "SaveAsPNGKRV", {plain, mask, float(0)}).AsBoolean());
  EXPECT_EQ(Decoded(Text(samples::ReadFile(file.path))), rgba);
  EXPECT_FALSE(Host()
                   .Call(Host().MakeFolderItem("/nonexistent/dir/x.png"), "SaveAsPNGKRV", {plain})
                   .AsBoolean());
  EXPECT_FALSE(Host().Call(item, "SaveAsPNGKRV", {emu::Value::AdoptObject(nullptr)}).AsBoolean());
}

// The palette of a written file, read back with libspng.
std::vector<RBColor> PaletteOf(const Bytes& png) {
  spng_ctx* ctx = spng_ctx_new(0);
  spng_set_png_buffer(ctx, png.data(), png.size());
  spng_plte plte = {};
  std::vector<RBColor> colors;
  if (spng_get_plte(ctx, &plte) == 0) {
    for (uint32_t i = 0; i < plte.n_entries; ++i) {
      const spng_plte_entry& e = plte.entries[i];
      colors.push_back(RBColor{e.red} << 16 | RBColor{e.green} << 8 | e.blue);
    }
  }
  spng_ctx_free(ctx);
  return colors;
}

TEST_F(Convert, PalettePictures) {
  // Four colours, the last one missing from the palette.
  const Bytes rgba = {10, 20, 30, 255, 40, 50, 60, 255, 10, 20, 30, 255, 1, 2, 3, 255};
  emu::Value picture = Host().MakePicture(2, 2, Text(rgba));
  TempFile file(Bytes{});
  emu::Value item = Host().MakeFolderItem(file.path);
  emu::Value colors = Host().MakeColorArray({0x0A141E, 0x28323C});
  ASSERT_TRUE(Host().Call(item, "SaveAs8BitPNGKRV", {picture, colors}).AsBoolean());
  const Bytes png = samples::ReadFile(file.path);
  EXPECT_EQ(png[25], 3) << "colour type palette";
  EXPECT_EQ(PaletteOf(png), (std::vector<RBColor>{0x0A141E, 0x28323C}));
  const Bytes expected = {10, 20, 30, 255, 40, 50, 60, 255, 10, 20, 30, 255, 10, 20, 30, 255};
  EXPECT_EQ(Decoded(Text(png)), expected) << "a colour not in the palette gets index 0";

  std::vector<RBColor> many(300);
  for (size_t i = 0; i < many.size(); ++i) many[i] = static_cast<RBColor>(i * 0x010203);
  ASSERT_TRUE(Host()
                  .Call(item, "SaveAs8BitPNGKRV",
                        {picture, Host().MakeColorArray(many), float(0), true, RBInteger{-1}})
                  .AsBoolean());
  EXPECT_EQ(PaletteOf(samples::ReadFile(file.path)).size(), 256u);

  Host().Call(item, "SaveAs8BitPNGKRV", {picture, emu::Value::AdoptObject(nullptr)});
  ASSERT_TRUE(Host().LastException());
  EXPECT_EQ(Host().LastException()->className, "NilObjectException");
  EXPECT_EQ(Host().LastException()->message, "Colors array is nil");
}

TEST_F(Convert, PalettePicturesWithAlphas) {
  std::vector<RBColor> colors(256);
  std::vector<RBInteger> alphas(256, 255);
  for (size_t i = 0; i < 256; ++i) colors[i] = static_cast<RBColor>(i);
  alphas[2] = 0;
  alphas[3] = 128;
  const Bytes rgba = {0, 0, 1, 255, 0, 0, 2, 255, 0, 0, 3, 255, 0, 0, 4, 255};
  emu::Value picture = Host().MakePicture(2, 2, Text(rgba));
  TempFile file(Bytes{});
  emu::Value item = Host().MakeFolderItem(file.path);
  ASSERT_TRUE(Host()
                  .Call(item, "SaveAs8BitAlphaPNGKRV",
                        {picture, Host().MakeColorArray(colors), Host().MakeIntegerArray(alphas)})
                  .AsBoolean());
  const Bytes expected = {0, 0, 1, 255, 0, 0, 2, 0, 0, 0, 3, 128, 0, 0, 4, 255};
  EXPECT_EQ(Decoded(Text(samples::ReadFile(file.path))), expected);
  EXPECT_FALSE(Host()
                   .Call(item, "SaveAs8BitAlphaPNGKRV",
                         {picture, Host().MakeColorArray(colors), emu::Value::AdoptObject(nullptr),
                          float(0), false, RBInteger{-1}})
                   .AsBoolean());
  EXPECT_EQ(Host().LastException()->message, "Alphas array is nil");
}

TEST_F(Convert, PNGPictureClass) {
  EXPECT_EQ(Host().CallShared("PNGPictureKRV", "PNGLibVersion").Text(),
            png_get_libpng_ver(nullptr));
  const emu::ClassInfo* info = Host().GetRegistry().FindClass("PNGPictureKRV");
  ASSERT_NE(info, nullptr);
  EXPECT_EQ(info->constructor, nullptr);
  ASSERT_EQ(info->constants.size(), 1u);
  EXPECT_EQ(info->constants[0].declaration, "kDefaultGamma = 0");
}

}  // namespace
}  // namespace e2e
