// The one-call conversions: PNG data and files into PNGPictureKRV objects and pictures, and
// pictures into PNG data and files, with masks, palettes and their failures.
#include <math.h>
#include <png.h>
#include <spng.h>

#include <functional>
#include <iterator>

#include "tests/e2e/test_writer_helpers.h"

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
class Combined : public PluginTest {};

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

// The openers hand their gamma to the decode: 0 (the default) corrects by the file's gAMA
// chunk against screen gamma 1.8, a positive value stands for a file gamma of its reciprocal, a
// negative one turns correction off.
TEST_F(Convert, EveryOpenerTakesItsGamma) {
  samples::Image ramp = samples::Pattern(256, 1, 8, 0, false);
  for (int x = 0; x < 256; ++x) ramp.rows[0][x] = static_cast<uint8_t>(x);
  ramp.chunks.gamma = 1.0;
  const Bytes png = samples::Encode(ramp);
  TempFile file(png);
  const emu::Value item = Host().MakeFolderItem(file.path);
  const std::function<emu::Value(std::vector<emu::Arg>)> openers[] = {
      [&](std::vector<emu::Arg> gamma) {
        gamma.insert(gamma.begin(), Str(png));
        return Host().GetProperty(Host().CallGlobal("PNGStringToPNGPictureKRV", gamma), "Pict");
      },
      [&](std::vector<emu::Arg> gamma) {
        gamma.insert(gamma.begin(), Str(png));
        return Host().CallGlobal("PNGStringToPictureKRV", gamma);
      },
      [&](std::vector<emu::Arg> gamma) {
        return Host().GetProperty(Host().Call(item, "OpenAsPNGKRV", gamma), "Pict");
      }};
  const struct {
    std::vector<emu::Arg> gamma;
    double exponent;  // of the correction expected
  } kCases[] = {{{}, 0.5556}, {{0.0f}, 0.5556}, {{2.2f}, 1.2222}, {{-1.0f}, 1.0}};
  for (size_t o = 0; o < std::size(openers); ++o) {
    for (const auto& c : kCases) {
      SCOPED_TRACE(::testing::Message() << "opener " << o << " exponent " << c.exponent);
      const Bytes rgba = Rgba(openers[o](c.gamma));
      ASSERT_EQ(rgba.size(), 1024u);
      for (int x = 0; x < 256; ++x) {
        EXPECT_NEAR(rgba[4 * x], 255.0 * pow(x / 255.0, c.exponent), 1.0) << "sample " << x;
      }
    }
  }
}

// The gAMA chunk, the interlace method and the filters of every saver: overloads without
// Interlace and FilterType write no interlacing and leave libpng its choice of filter (none
// for palette images).
TEST_F(Convert, EverySaverWritesItsGammaInterlaceAndFilter) {
  const samples::Image image = samples::Pattern(32, 16, 8, 2, false);
  std::string rgba;
  for (const Bytes& row : image.rows) {
    for (size_t i = 0; i < row.size(); i += 3)
      rgba += {char(row[i]), char(row[i + 1]), char(row[i + 2]), '\xFF'};
  }
  const emu::Value picture = Host().MakePicture(32, 16, rgba);
  const emu::Value colors = Host().MakeColorArray({0x000000});
  const emu::Value alphas = Host().MakeIntegerArray({255});
  TempFile file(Bytes{});
  const emu::Value item = Host().MakeFolderItem(file.path);
  const auto toString = [&](std::vector<emu::Arg> args) {
    const std::string png = Host().CallGlobal("PictureToPNGStringKRV", args).Bytes();
    return Bytes(png.begin(), png.end());
  };
  const auto toFile = [&](const char* method) {
    return [&, method](std::vector<emu::Arg> args) {
      EXPECT_TRUE(Host().Call(item, method, args).AsBoolean()) << method;
      return samples::ReadFile(file.path);
    };
  };
  const struct {
    const char* what;
    std::vector<emu::Arg> head;  // the arguments before gamma
    bool palette, full;          // full: with Interlace and FilterType
    std::function<Bytes(std::vector<emu::Arg>)> save;
  } kSavers[] = {
      {"PictureToPNGStringKRV(pic)", {picture}, false, false, toString},
      {"PictureToPNGStringKRV(pic, mask)", {picture, kNil}, false, false, toString},
      {"PictureToPNGStringKRV(pic, ..., FilterType)", {picture}, false, true, toString},
      {"PictureToPNGStringKRV(pic, mask, ..., FilterType)", {picture, kNil}, false, true, toString},
      {"SaveAsPNGKRV(pic)", {picture}, false, false, toFile("SaveAsPNGKRV")},
      {"SaveAsPNGKRV(pic, mask)", {picture, kNil}, false, false, toFile("SaveAsPNGKRV")},
      {"SaveAsPNGKRV(pic, ..., FilterType)", {picture}, false, true, toFile("SaveAsPNGKRV")},
      {"SaveAsPNGKRV(pic, mask, ..., FilterType)",
       {picture, kNil},
       false,
       true,
       toFile("SaveAsPNGKRV")},
      {"SaveAs8BitPNGKRV", {picture, colors}, true, false, toFile("SaveAs8BitPNGKRV")},
      {"SaveAs8BitPNGKRV(..., FilterType)",
       {picture, colors},
       true,
       true,
       toFile("SaveAs8BitPNGKRV")},
      {"SaveAs8BitAlphaPNGKRV",
       {picture, colors, alphas},
       true,
       false,
       toFile("SaveAs8BitAlphaPNGKRV")},
      {"SaveAs8BitAlphaPNGKRV(..., FilterType)",
       {picture, colors, alphas},
       true,
       true,
       toFile("SaveAs8BitAlphaPNGKRV")},
  };
  constexpr int kOwnChoice = -1;
  const struct {
    bool full;
    std::vector<emu::Arg> tail;
    double fileGamma;  // 0: no gAMA chunk
    int interlace;
    int filter;  // of every row; kOwnChoice: libpng's own
  } kCases[] = {
      {false, {}, 1 / 1.8, 0, kOwnChoice},      {false, {2.2f}, 1 / 2.2, 0, kOwnChoice},
      {false, {-1.0f}, 0.0, 0, kOwnChoice},     {true, {0.0f, true, -1}, 1 / 1.8, 1, kOwnChoice},
      {true, {2.2f, false, 64}, 1 / 2.2, 0, 3}, {true, {-1.0f, false, 128}, 0.0, 0, 4}};
  const Bytes ownChoice = FilterBytes(samples::Encode(image));
  for (const auto& saver : kSavers) {
    for (const auto& c : kCases) {
      if (c.full != saver.full) continue;
      SCOPED_TRACE(::testing::Message()
                   << saver.what << " gamma " << c.fileGamma << " filter " << c.filter);
      std::vector<emu::Arg> args = saver.head;
      args.insert(args.end(), c.tail.begin(), c.tail.end());
      const ReadBack back = ReadWithLibpng(saver.save(args));
      ASSERT_TRUE(back.ok);
      EXPECT_EQ(back.colorType, saver.palette ? 3 : 2);
      EXPECT_NEAR(back.gamma, c.fileGamma, 1e-5);
      EXPECT_EQ(back.interlace, c.interlace);
      if (c.interlace == 1) continue;
      const Bytes filters = FilterBytes(saver.save(args));
      if (c.filter != kOwnChoice) {
        EXPECT_EQ(filters, Bytes(16, static_cast<uint8_t>(c.filter)));
      } else {
        EXPECT_EQ(filters, saver.palette ? Bytes(16, 0) : ownChoice);
      }
    }
  }
  EXPECT_FALSE(Host().LastException());
}

// The 8-bit savers fail quietly: False, no exception, for a nil picture, an empty palette or a
// file that can't be made.
TEST_F(Convert, EightBitSaversFailQuietly) {
  const emu::Value picture = Host().MakePicture(2, 1, std::string(8, '\xFF'));
  const emu::Value none = emu::Value::AdoptObject(nullptr);
  TempFile file(Bytes{});
  const emu::Value item = Host().MakeFolderItem(file.path);
  const emu::Value nowhere = Host().MakeFolderItem("/nonexistent/dir/x.png");
  const emu::Value colors = Host().MakeColorArray({0xFFFFFF});
  const emu::Value alphas = Host().MakeIntegerArray({255});
  const emu::Value noColors = Host().MakeColorArray({});
  const emu::Value noAlphas = Host().MakeIntegerArray({});
  const struct {
    const char* what;
    emu::Value target;
    const char* method;
    std::vector<emu::Arg> args;
  } kCases[] = {
      {"nil picture", item, "SaveAs8BitPNGKRV", {none, colors}},
      {"nil picture", item, "SaveAs8BitAlphaPNGKRV", {none, colors, alphas}},
      {"empty palette", item, "SaveAs8BitPNGKRV", {picture, noColors}},
      {"empty palette", item, "SaveAs8BitAlphaPNGKRV", {picture, noColors, noAlphas}},
      {"no such folder", nowhere, "SaveAs8BitPNGKRV", {picture, colors}},
      {"no such folder", nowhere, "SaveAs8BitAlphaPNGKRV", {picture, colors, alphas}},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(std::string(c.method) + ": " + c.what);
    EXPECT_FALSE(Host().Call(c.target, c.method, c.args).AsBoolean());
    EXPECT_FALSE(Host().LastException());
  }
}

// An image without alpha decodes into a PNGPictureKRV without a mask, whose combined picture is
// the picture itself, and into that picture alone, with a new reference for the caller.
TEST_F(Convert, OpaqueImagesHaveNoMask) {
  const Bytes png = samples::Encode(samples::Pattern(6, 6, 8, 2, false));
  const emu::Value picture = Host().CallGlobal("PNGStringToPictureKRV", {Str(png)});
  ASSERT_FALSE(picture.IsNil());
  EXPECT_EQ(Host().References(picture.Handle()), 1) << "the caller holds the only reference";
  EXPECT_TRUE(Host().PictureMask(picture).IsNil());
  const emu::Value result = Host().CallGlobal("PNGStringToPNGPictureKRV", {Str(png)});
  ASSERT_FALSE(result.IsNil());
  EXPECT_TRUE(Host().GetProperty(result, "Mask").IsNil());
  EXPECT_EQ(Host().Call(result, "CombinePictureWithMask").Handle(),
            Host().GetProperty(result, "Pict").Handle());
}

// Joining picture and mask draws them into a new picture through the host's DrawPicture, found
// with REALLoadObjectMethod. A desktop host that withholds that service leaves the new picture
// undrawn: what the host's new pictures hold (white, opaque here), not the image. A console
// host copies gd rows instead, and an image without alpha needs no joining at all.
TEST_F(Combined, DrawingNeedsTheHostsMethodLookup) {
  const bool draws = Profile().app != emu::AppKind::Desktop ||
                     Profile().withheld.count("REALLoadObjectMethod") == 0;
  for (int colorType : {2, 6}) {
    SCOPED_TRACE(colorType);
    const Bytes png = samples::Encode(samples::Pattern(7, 5, 8, colorType, false));
    uint32_t w = 0, h = 0;
    const Bytes decoded = samples::DecodeRGBA(png, &w, &h);
    const Bytes expected = draws || colorType == 2 ? decoded : Bytes(decoded.size(), 255);
    EXPECT_EQ(Rgba(Host().CallGlobal("PNGStringToPictureKRV", {Str(png)})), expected);
  }
}

}  // namespace
}  // namespace e2e
