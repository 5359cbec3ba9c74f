// The one-call conversions between PNG data or files and pictures, with masks and palettes.
#include <math.h>

#include <filesystem>

#include "tests/e2e/test_writer_helpers.h"

namespace e2e {
namespace {

using samples::Bytes;

std::string Text(const Bytes& bytes) {
  return std::string(bytes.begin(), bytes.end());
}

// What a saver wrote: the string, or the file `path` after a call that must succeed.
Bytes Saved(const char* method, const std::vector<emu::Arg>& args, const std::string& path) {
  if (method == std::string("PictureToPNGStringKRV")) {
    const std::string png = Host().CallGlobal(method, args).Bytes();
    return Bytes(png.begin(), png.end());
  }
  EXPECT_TRUE(Host().Call(Host().MakeFolderItem(path), method, args).AsBoolean()) << method;
  return samples::ReadFile(path);
}

emu::Value Prop(const emu::Value& object, const char* name) {
  return Host().GetProperty(object, name);
}

const emu::Value kNone = emu::Value::AdoptObject(nullptr);

class Convert : public PluginTest {};
class Combined : public PluginTest {};

// An opaque image opens into a PNGPictureKRV without a mask, whose combined picture is its own.
TEST_F(Convert, StringsAndFilesToPNGPictures) {
  for (const samples::Image& image :
       {samples::Pattern(21, 9, 16, 6, true), samples::Pattern(6, 6, 8, 2, false)}) {
    SCOPED_TRACE(::testing::Message() << image.colorType << " " << image.interlaced);
    const bool alpha = image.colorType == 6;
    const Bytes png = samples::Encode(image), expected = ReadWithLibpng(png).rgba;
    const emu::Value result = Host().CallGlobal("PNGStringToPNGPictureKRV", {Str(png), float(-1)});
    ASSERT_FALSE(result.IsNil());
    EXPECT_EQ(Host().ClassName(result), "PNGPictureKRV");
    EXPECT_EQ(Prop(result, "Width").AsInteger(), static_cast<RBInteger>(image.width));
    EXPECT_EQ(Prop(result, "Height").AsInteger(), static_cast<RBInteger>(image.height));
    EXPECT_EQ(Rgba(Prop(result, "Pict")), Colours(expected, false));
    EXPECT_EQ(Prop(result, "Mask").IsNil(), !alpha);
    const emu::Value combined = Host().Call(result, "CombinePictureWithMask");
    EXPECT_EQ(Rgba(combined), expected);
    EXPECT_TRUE(alpha || combined.Handle() == Prop(result, "Pict").Handle())
        << "the picture itself";

    const emu::Value picture = Host().CallGlobal("PNGStringToPictureKRV", {Str(png), float(-1)});
    EXPECT_EQ(Host().References(picture.Handle()), 1) << "the caller holds the only reference";
    EXPECT_TRUE(alpha || Host().PictureMask(picture).IsNil());
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
  EXPECT_EQ(Rgba(Prop(strict, "Pict")), Rgba(Prop(lenient, "Pict")));
  // Image data invalid from its first byte: no row decodes, and the picture of the header's size
  // is returned as a new picture comes, white.
  std::vector<samples::Chunk> chunks =
      samples::SplitChunks(samples::Encode(samples::Pattern(5, 3, 8, 2, false)));
  for (samples::Chunk& chunk : chunks) {
    if (chunk.type == "IDAT") chunk = samples::MakeChunk("IDAT", Bytes(chunk.data.size(), 0xFF));
  }
  const Bytes blank(5 * 3 * 4, 255);
  const emu::Value picture =
      Host().CallGlobal("PNGStringToPictureKRV", {Str(samples::JoinChunks(chunks))});
  ASSERT_FALSE(picture.IsNil());
  EXPECT_EQ(Rgba(picture), blank);
  const emu::Value pp =
      Host().CallGlobal("PNGStringToPNGPictureKRV", {Str(samples::JoinChunks(chunks))});
  ASSERT_FALSE(pp.IsNil());
  EXPECT_EQ(Rgba(Prop(pp, "Pict")), blank);
  EXPECT_FALSE(Host().LastException());
}

// The alpha saver writes the alphas with their colours.
TEST_F(Convert, PalettePictures) {
  std::vector<RBColor> colors(256);
  std::vector<RBInteger> alphas(256, 255);
  for (size_t i = 0; i < 256; ++i) colors[i] = static_cast<RBColor>(i);
  alphas[2] = 0, alphas[3] = 128;
  const emu::Value blues =
      Host().MakePicture(2, 2, Text({0, 0, 1, 255, 0, 0, 2, 255, 0, 0, 3, 255, 0, 0, 4, 255}));
  TempFile file({});
  EXPECT_EQ(
      ReadWithLibpng(Saved("SaveAs8BitAlphaPNGKRV",
                           {blues, Host().MakeColorArray(colors), Host().MakeIntegerArray(alphas)},
                           file.path))
          .rgba,
      Bytes({0, 0, 1, 255, 0, 0, 2, 0, 0, 0, 3, 128, 0, 0, 4, 255}));
}

// Opener gamma: 0 (the default) corrects by gAMA against screen gamma 1.8, a positive value stands
// for a file gamma of its reciprocal, a negative one turns correction off.
TEST_F(Convert, EveryOpenerTakesItsGamma) {
  samples::Image ramp = samples::Pattern(256, 1, 8, 0, false);
  for (int x = 0; x < 256; ++x) ramp.rows[0][x] = static_cast<uint8_t>(x);
  ramp.chunks.gamma = 1.0;
  const Bytes png = samples::Encode(ramp);
  TempFile file(png);
  const struct {
    std::vector<emu::Arg> gamma;
    double exponent;  // of the correction expected
  } kCases[] = {{{}, 0.5556}, {{0.0f}, 0.5556}, {{2.2f}, 1.2222}, {{-1.0f}, 1.0}};
  for (const char* opener : {"PNGStringToPNGPictureKRV", "PNGStringToPictureKRV", "OpenAsPNGKRV"}) {
    for (const auto& c : kCases) {
      SCOPED_TRACE(::testing::Message() << opener << " exponent " << c.exponent);
      std::vector<emu::Arg> args = c.gamma;
      const bool fromFile = opener == std::string("OpenAsPNGKRV");
      if (!fromFile) args.insert(args.begin(), Str(png));
      emu::Value got = fromFile ? Host().Call(Host().MakeFolderItem(file.path), opener, args)
                                : Host().CallGlobal(opener, args);
      if (Host().ClassName(got) == "PNGPictureKRV") got = Prop(got, "Pict");
      const Bytes rgba = Rgba(got);
      ASSERT_EQ(rgba.size(), 1024u);
      for (int x = 0; x < 256; ++x) {
        EXPECT_NEAR(rgba[4 * x], 255.0 * pow(x / 255.0, c.exponent), 1.0) << "sample " << x;
      }
    }
  }
}

// A file named beyond ASCII (a, umlaut; a CJK character; an emoji) is saved and opened under that
// very name: the host gives paths as UTF-8 text (old hosts as file URLs), which reach the file
// system whole, on Windows through the wide-character functions.
TEST_F(Convert, FileNamesBeyondAscii) {
  const TempFile marker({});
  const std::string path = marker.path + "-\xC3\xA4\xE6\x97\xA5\xF0\x9F\x98\x80.png";
  const Bytes rgba = {200, 100, 50, 255, 1, 2, 3, 255};
  const emu::Value item = Host().MakeFolderItem(path);
  ASSERT_TRUE(
      Host().Call(item, "SaveAsPNGKRV", {Host().MakePicture(2, 1, Text(rgba))}).AsBoolean());
  EXPECT_TRUE(std::filesystem::exists(std::filesystem::u8path(path)));
  emu::Value opened = Host().Call(item, "OpenAsPNGKRV");
  if (Host().ClassName(opened) == "PNGPictureKRV") opened = Prop(opened, "Pict");
  EXPECT_EQ(Rgba(opened), rgba);
  std::filesystem::remove(std::filesystem::u8path(path));
}

// Overloads without a mask save the picture's own; those without Interlace and FilterType write no
// interlacing and leave libpng its choice of filter (none for palette images).
TEST_F(Convert, EverySaverWritesItsGammaInterlaceAndFilter) {
  const samples::Image image = samples::Pattern(32, 16, 8, 6, false);
  const Bytes rgba = ReadWithLibpng(samples::Encode(image)).rgba;
  emu::PictureOptions options;
  options.mask = emu::MaskSource::Alpha;
  const emu::Value masked = Host().MakePicture(32, 16, Text(rgba), options);
  const emu::Value plain = Host().MakePicture(32, 16, Text(Colours(rgba, false)));
  const emu::Value mask = Host().PictureMask(masked), colors = Host().MakeColorArray({0x000000});
  TempFile file({});
  const struct {
    const char* method;
    std::vector<emu::Arg> head;  // the arguments before gamma
    int colorType;
  } kSavers[] = {{"PictureToPNGStringKRV", {masked}, 6},
                 {"PictureToPNGStringKRV", {plain, mask}, 6},
                 {"PictureToPNGStringKRV", {plain}, 2},
                 {"SaveAsPNGKRV", {masked}, 6},
                 {"SaveAsPNGKRV", {plain, mask}, 6},
                 {"SaveAsPNGKRV", {plain, kNil}, 2},
                 {"SaveAs8BitPNGKRV", {plain, colors}, 3},
                 {"SaveAs8BitAlphaPNGKRV", {plain, colors, Host().MakeIntegerArray({255})}, 3}};
  const struct {
    std::vector<emu::Arg> tail;  // with three arguments: the overload with Interlace and FilterType
    double fileGamma;            // 0: no gAMA chunk
    int interlace, filter;       // filter of every row; -1: libpng's own choice
  } kCases[] = {{{}, 1 / 1.8, 0, -1},
                {{2.2f}, 1 / 2.2, 0, -1},
                {{-1.0f}, 0.0, 0, -1},
                {{0.0f, true, -1}, 1 / 1.8, 1, -1},
                {{2.2f, false, 64}, 1 / 2.2, 0, 3},
                {{-1.0f, false, 128}, 0.0, 0, 4}};
  const Bytes ownChoice = FilterBytes(samples::Encode(image));
  for (const auto& saver : kSavers) {
    for (const auto& c : kCases) {
      SCOPED_TRACE(::testing::Message() << saver.method << " " << saver.head.size() << "+"
                                        << c.tail.size() << " filter " << c.filter);
      std::vector<emu::Arg> args = saver.head;
      args.insert(args.end(), c.tail.begin(), c.tail.end());
      const Bytes png = Saved(saver.method, args, file.path);
      const ReadBack back = ReadWithLibpng(png);
      EXPECT_EQ(std::make_tuple(back.colorType, back.interlace),
                std::make_tuple(saver.colorType, c.interlace));
      EXPECT_NEAR(back.gamma, c.fileGamma, 1e-5);
      EXPECT_TRUE(saver.colorType == 3 ||
                  back.rgba == (saver.colorType == 6 ? rgba : Colours(rgba, false)));
      if (c.interlace == 1 || saver.colorType == 2) continue;  // the filters: by the others
      const Bytes own = saver.colorType == 3 ? Bytes(16, 0) : ownChoice;
      EXPECT_EQ(FilterBytes(png), c.filter < 0 ? own : Bytes(16, uint8_t(c.filter)));
    }
  }
  EXPECT_FALSE(Host().LastException());
}

// Savers give False (or nil) quietly for a nil picture, an empty palette or an unmakeable file.
TEST_F(Convert, SaversFailQuietly) {
  const emu::Value picture = Host().MakePicture(2, 1, std::string(8, '\xFF'));
  TempFile file({});
  const emu::Value item = Host().MakeFolderItem(file.path);
  const emu::Value nowhere = Host().MakeFolderItem("/nonexistent/dir/x.png");
  const emu::Value colors = Host().MakeColorArray({0xFFFFFF}), noColors = Host().MakeColorArray({});
  const emu::Value alphas = Host().MakeIntegerArray({255}), noAlphas = Host().MakeIntegerArray({});
  // Target (nil for the global saver), saver, arguments -> the exception raised.
  const std::tuple<emu::Value, const char*, std::vector<emu::Arg>, const char*> kCases[] = {
      {kNil, "PictureToPNGStringKRV", {kNone}, ""},
      {kNil, "PictureToPNGStringKRV", {kNone, picture, float(0)}, ""},
      {item, "SaveAsPNGKRV", {kNone}, ""},
      {nowhere, "SaveAsPNGKRV", {picture}, ""},
      {item, "SaveAs8BitPNGKRV", {kNone, colors}, ""},
      {item, "SaveAs8BitAlphaPNGKRV", {kNone, colors, alphas}, ""},
      {item, "SaveAs8BitPNGKRV", {picture, noColors}, ""},
      {item, "SaveAs8BitAlphaPNGKRV", {picture, noColors, noAlphas}, ""},
      {nowhere, "SaveAs8BitPNGKRV", {picture, colors}, ""},
      {item, "SaveAs8BitPNGKRV", {picture, kNone}, "NilObjectException: Colors array is nil"},
      {item,
       "SaveAs8BitAlphaPNGKRV",
       {picture, colors, kNone, float(0), false, RBInteger{-1}},
       "NilObjectException: Alphas array is nil"}};
  for (const auto& [target, method, args, raised] : kCases) {
    const emu::Value result =
        target.IsNil() ? Host().CallGlobal(method, args) : Host().Call(target, method, args);
    EXPECT_TRUE(target.IsNil() ? result.IsNil() : !result.AsBoolean()) << method << args.size();
    EXPECT_EQ(RaisedMessage(), raised) << method << " " << args.size();
  }
}

// A desktop host without REALLoadObjectMethod (no DrawPicture) leaves the joined picture undrawn
// (white); a console host copies gd rows, and an image without alpha needs no joining.
TEST_F(Combined, DrawingNeedsTheHostsMethodLookup) {
  const bool draws = Profile().app != emu::AppKind::Desktop ||
                     Profile().withheld.count("REALLoadObjectMethod") == 0;
  for (int colorType : {2, 6}) {
    SCOPED_TRACE(colorType);
    const Bytes png = samples::Encode(samples::Pattern(7, 5, 8, colorType, false));
    const Bytes decoded = ReadWithLibpng(png).rgba;
    const Bytes expected = draws || colorType == 2 ? decoded : Bytes(decoded.size(), 255);
    EXPECT_EQ(Rgba(Host().CallGlobal("PNGStringToPictureKRV", {Str(png)})), expected);
  }
}

// A joined picture whose colours the host can't lock (an immutable picture put in Pict): hosts that
// draw draw them; the others copy gd rows, whose failed lock is undone, and leave them white.
TEST_F(Combined, ColoursTheHostCannotLock) {
  const bool draws = Desktop() && Profile().withheld.count("REALLoadObjectMethod") == 0;
  const Bytes png = samples::Encode(samples::Pattern(7, 5, 8, 6, false));
  const Bytes opaque = Colours(ReadWithLibpng(png).rgba, false);
  const emu::Value opened = Host().CallGlobal("PNGStringToPNGPictureKRV", {Str(png)});
  ASSERT_FALSE(opened.IsNil());
  emu::PictureOptions immutable;
  immutable.type = 1;
  const emu::Value colours = Host().MakePicture(7, 5, Text(opaque), immutable);
  Host().SetProperty(opened, "Pict", colours);
  const Bytes combined = Rgba(Host().Call(opened, "CombinePictureWithMask"));
  const emu::PictureCounts counts = Host().PictureStats(colours);
  EXPECT_EQ(counts.lockCalls, draws ? 0 : 1);
  EXPECT_EQ(counts.openLocks, 0);
  ASSERT_EQ(combined.size(), opaque.size());
  for (size_t i = 0; i < combined.size(); i += 4) {
    const Bytes rgb(combined.begin() + i, combined.begin() + i + 3);
    EXPECT_EQ(rgb, draws ? Bytes(opaque.begin() + i, opaque.begin() + i + 3) : Bytes(3, 255)) << i;
  }
}

}  // namespace
}  // namespace e2e
