// The RGB, grey and palette loaders of PNGWriterKRV over every pixel storage of the host, and the
// tool's encode command, which goes through them.
#include <tuple>
#include <utility>

#include "tests/e2e/test_writer_helpers.h"

namespace e2e {
namespace {

using samples::Bytes;

class WriterPictures : public PluginTest {};

// An opaque picture of the RGB of `rgba`, with an alpha channel or not, and a mask of its alphas.
struct Source {
  Source(uint32_t width, uint32_t height, const Bytes& rgba, bool alphaChannel = false) {
    emu::PictureOptions options;
    options.alphaChannel = alphaChannel;
    const Bytes opaque = Colours(rgba, false), greys = MaskOf(rgba);
    picture = Host().MakePicture(width, height, std::string(opaque.begin(), opaque.end()), options);
    mask = Host().MakePicture(width, height, std::string(greys.begin(), greys.end()));
  }
  emu::Value picture, mask;
};

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

// What a loader keeps of kPixels: the alphas only with a mask, grey levels for the grey loaders.
Bytes Expected(bool grey, bool alpha) {
  Bytes out;
  for (size_t i = 0; i < kPixels.size(); i += 4) {
    for (size_t c = 0; c < 3; ++c) out.push_back(grey ? kGreys[i / 4] : kPixels[i + c]);
    out.push_back(alpha ? kPixels[i + 3] : 255);
  }
  return out;
}

// Desktop hosts that keep the colour of pictures with an alpha channel premultiplied.
bool PremultipliedAlphaPictures() {
  return Desktop() && Profile().platform != emu::Platform::Mac;
}

// The host's storages of new pictures, and on Linux and Windows desktop hosts each again for
// pictures with an alpha channel: cairo ARGB32 (9) where the others are RGB24, the same words on
// modern Windows hosts, 32bppPARGB (9) where the other GDI+ bitmaps are 32bppRGB.
std::vector<std::pair<PictureStorage, bool>> Storages() {
  std::vector<std::pair<PictureStorage, bool>> storages;
  for (const PictureStorage& s : PictureStorages()) {
    storages.push_back({s, false});
    if (PremultipliedAlphaPictures()) {
      storages.push_back({{s.alphaInfo, s.padding, 9}, true});
    }
  }
  return storages;
}

TEST_F(WriterPictures, LoadersOverEveryPixelStorage) {
  for (const auto& [storage, alphaChannel] : Storages()) {
    if (Desktop()) Host().SetPictureFormat(storage.alphaInfo, storage.padding);
    SCOPED_TRACE(::testing::Message() << "alpha info " << storage.alphaInfo << " padding "
                                      << storage.padding << " alpha " << alphaChannel);
    const Source source(3, 2, kPixels, alphaChannel);
    ASSERT_EQ(Host().RawPicture(source.picture).format, storage.format);
    for (const Loader& l : kLoaders) {
      Writer w;
      ASSERT_TRUE(w.Ok(l.method, {source.picture, l.mask ? source.mask : kNil}));
      EXPECT_EQ(std::make_tuple(w.Int("Type"), w.Int("bpc"), w.Int("Rowbytes"), w.Int("Width"),
                                w.Int("Height")),
                std::make_tuple(l.type, l.bpc, 3 * l.bpc, RBInteger{3}, RBInteger{2}));
      SetHeaderAndPalette(w);
      EXPECT_EQ(ReadWithLibpng(WriteStream(w)).rgba, Expected(l.grey, l.mask)) << l.method;
    }
    Writer w;
    // Red twice: the lower index wins. 1, 2, 3 is missing and takes index 0.
    ASSERT_TRUE(
        w.Ok("SetPaletteData", {Host().MakeColorArray({0x0000FF, 0xFF0000, 0xFF0000, 0x808080,
                                                       0x00FF00, 0xFFFFFF, 0x01FF00FF})}));
    ASSERT_TRUE(w.Ok("SetPalettePicture", {source.picture}));
    EXPECT_EQ(w.Int("Type"), 3);
    SetHeaderAndPalette(w);
    EXPECT_EQ(ReadWithLibpng(WriteStream(w)).rows, std::vector<Bytes>({{5, 1, 4}, {0, 3, 0}}));
  }
}

// The colour of a translucent pixel is saved as its host keeps it, premultiplied by alpha.
TEST_F(WriterPictures, TranslucentColoursAsStored) {
  if (!PremultipliedAlphaPictures()) GTEST_SKIP() << "pictures of this host keep no such colour";
  emu::PictureOptions alpha;
  alpha.alphaChannel = true;
  const emu::Value picture = Host().MakePicture(2, 1, "\xC8\x64\x32\x80\x01\x02\x03\xFF", alpha);
  Writer w;
  ASSERT_TRUE(w.Ok("SetRGBPicture", {picture, kNil}));
  SetHeaderAndPalette(w);
  EXPECT_EQ(ReadWithLibpng(WriteStream(w)).rgba, (Bytes{100, 50, 25, 255, 1, 2, 3, 255}));
}

TEST_F(WriterPictures, BadPicturesAndMasks) {
  const Source source(3, 2, kPixels), small(2, 2, Bytes(16, 9));
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

// pngkrv encode: PAM and PNG input through host pictures and PNGWriterKRV.
Bytes Decoded(const std::string& path) {
  return ReadWithLibpng(samples::ReadFile(path)).rgba;
}

class WriterTool : public PluginTest {
 protected:
  void SetUp() override {
    // The tool runs a process of its own; one profile of each application kind covers it.
    if (!FullServiceHost() || Profile().app == emu::AppKind::Web) GTEST_SKIP();
    if (PngSuiteDir().empty()) GTEST_SKIP() << "no PNG suite";
  }
  ToolRun Encode(const std::string& arguments) {
    return RunTool("--host " + Profile().name + " encode " + arguments);
  }
  std::string Suite(const char* name) { return PngSuiteDir() + "/" + name; }
  TempFile out{{}};
};

TEST_F(WriterTool, TypesDestinationsChunksAndFailures) {
  // Input, options -> the colour type written; grey levels are pinned by the loader test.
  const std::tuple<const char*, const char*, int> kCases[] = {
      {"basn6a08.png", "", 6},
      {"basi4a08.png", "--type graya --interlace", 4},
      {"basn2c08.png", "--type gray --to-string", 0},
      {"basn3p08.png", "--type palette --to-string", 3},
      {"tbbn3p08.png", "--type palette --alphas", 3},
      {"basn6a08.png", "--type rgb", 2}};
  for (const auto& [file, options, colorType] : kCases) {
    const ToolRun run = Encode(std::string(options) + " " + Suite(file) + " " + out.path);
    ASSERT_EQ(run.status, 0) << file << " " << run.output;
    Bytes in = Decoded(Suite(file));
    const Bytes got = Decoded(out.path);
    ASSERT_EQ(got.size(), in.size());
    for (size_t i = 0; i < in.size(); i += 4) {
      if (colorType == 0 || colorType == 4) in[i] = in[i + 1] = in[i + 2] = got[i];
      if (colorType == 2) in[i + 3] = 255;
    }
    EXPECT_EQ(got, in) << file << " " << options;
    EXPECT_EQ(ReadWithLibpng(samples::ReadFile(out.path)).colorType, colorType) << options;
  }

  const Bytes rgba = Decoded(Suite("basn6a08.png"));
  const TempFile pam(samples::EncodePAM(32, 32, rgba));
  ASSERT_EQ(Encode(pam.path + " " + out.path).status, 0);
  EXPECT_EQ(Decoded(out.path), rgba) << "PAM input with its alpha as the mask";

  const ToolRun run = Encode("--dpi 300 --gamma 2.2 --srgb 2 --filter 0x20 --level 9 " +
                             Suite("basn2c08.png") + " " + out.path);
  ASSERT_EQ(run.status, 0) << run.output;
  const ReadBack back = ReadWithLibpng(samples::ReadFile(out.path));
  EXPECT_EQ(std::make_tuple(back.physX, back.physUnit, back.srgbIntent),
            std::make_tuple(11811u, 1, 2));
  EXPECT_NEAR(back.gamma, 1 / 2.2, 1e-5);

  const TempFile profile(samples::ReadFile(Suite("basn2c08.png")));  // libpng refuses the bytes
  const std::string in = Suite("basn2c08.png"), to = " " + out.path;
  const std::tuple<std::string, int, const char*> kFailures[] = {
      {"--icc Name " + profile.path + " " + in + to, 1, "error: "},
      {"--type cmyk " + in + to, 1, ""},
      {"--filter x " + in + to, 1, ""},
      {"--icc Name " + in + to, 2, ""},
      {"/nonexistent.pam" + to, 1, ""},
      {in + " /nonexistent/dir/out.png", 1, ""}};
  for (const auto& [arguments, status, message] : kFailures) {
    const ToolRun run = Encode(arguments);
    EXPECT_EQ(run.status, status) << arguments;
    EXPECT_NE(run.output.find(message), std::string::npos) << run.output;
  }
}

}  // namespace
}  // namespace e2e
