// Pictures with an alpha channel: decoded into every storage a host keeps them in, saved from
// them, and the PNG suite's images with alpha or transparency through both ways.
#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <tuple>

#include "tests/e2e/test_writer_helpers.h"

namespace e2e {
namespace {

using samples::Bytes;

Bytes Saved(const emu::Value& picture) {
  const std::string png = Host().CallGlobal("AlphaPictureToPNGStringKRV", {picture}).Bytes();
  return Bytes(png.begin(), png.end());
}

emu::Value AlphaPicture(const Bytes& png) {
  return Host().CallGlobal("PNGStringToAlphaPictureKRV", {Str(png)});
}

// How a storage keeps alpha, which decides what survives in it.
enum class Kind { kStraight, kPremultiplied, kGd };

// The storages of pictures with an alpha channel on this host: the alpha info and padding set on
// the host, the pixel format they come in, and how it keeps alpha. macOS hosts keep such
// pictures in the premultiplied counterpart of a format without alpha; Windows hosts have one
// storage, whose rows carry no padding.
struct AlphaStorage {
  int alphaInfo, padding, format;
  Kind kind;
};
std::vector<AlphaStorage> AlphaStorages() {
  if (!Desktop()) return {{2, 0, 8, Kind::kGd}};
  if (Profile().platform == emu::Platform::Linux) {
    return {{2, 0, 9, Kind::kPremultiplied}, {2, 12, 9, Kind::kPremultiplied}};
  }
  // Windows hosts: premultiplied pixels, or GDI+ bitmaps of 32bppPARGB.
  if (Profile().platform != emu::Platform::Mac) return {{2, 0, 9, Kind::kPremultiplied}};
  return {{1, 0, 1, Kind::kPremultiplied}, {2, 12, 2, Kind::kPremultiplied},
          {3, 0, 3, Kind::kStraight},      {4, 12, 4, Kind::kStraight},
          {5, 0, 1, Kind::kPremultiplied}, {6, 0, 2, Kind::kPremultiplied}};
}

class AlphaPictures : public PluginTest {
 protected:
  void SetUp() override {
    if (Profile().version < 2011.04) GTEST_SKIP() << "no pictures with an alpha channel";
  }
  void Use(const AlphaStorage& s) {
    if (Desktop()) Host().SetPictureFormat(s.alphaInfo, s.padding);
  }
};

// Half-transparent, transparent, opaque, a pixel whose colours and gd alpha round up on the
// way in and out, and an alpha that rounds up to gd's transparent 127.
const Bytes kPixels = {200, 100, 50,  128, 10, 20,  30, 0,  255, 128,
                       1,   255, 101, 77,  5,  100, 40, 50, 60,  1};

// Each storage's bytes of kPixels in memory: straight or premultiplied, alpha last or first, the
// words of cairo and gd (0xAARRGGBB, little-endian), gd's alpha 0 opaque to 127 transparent.
const std::map<int, Bytes> kStored = {
    {1, {100, 50, 25, 128, 0, 0, 0, 0, 255, 128, 1, 255, 40, 30, 2, 100, 0, 0, 0, 1}},
    {2, {128, 100, 50, 25, 0, 0, 0, 0, 255, 255, 128, 1, 100, 40, 30, 2, 1, 0, 0, 0}},
    {3, {200, 100, 50, 128, 10, 20, 30, 0, 255, 128, 1, 255, 101, 77, 5, 100, 40, 50, 60, 1}},
    {4, {128, 200, 100, 50, 0, 10, 20, 30, 255, 255, 128, 1, 100, 101, 77, 5, 1, 40, 50, 60}},
    {8, {50, 100, 200, 63, 30, 20, 10, 127, 1, 128, 255, 0, 5, 77, 101, 77, 60, 50, 40, 127}},
    {9, {25, 50, 100, 128, 0, 0, 0, 0, 1, 128, 255, 255, 2, 30, 40, 100, 0, 0, 0, 1}},
};

// What saving the decoded picture writes: colours divided by alpha again (rounded) and gd's
// alphas widened.
const std::map<Kind, Bytes> kSaved = {
    {Kind::kStraight, kPixels},
    {Kind::kPremultiplied,
     {199, 100, 50, 128, 0, 0, 0, 0, 255, 128, 1, 255, 102, 77, 5, 100, 0, 0, 0, 1}},
    {Kind::kGd,
     {200, 100, 50, 129, 10, 20, 30, 0, 255, 128, 1, 255, 101, 77, 5, 100, 40, 50, 60, 0}},
};

samples::Image PixelImage() {
  samples::Image image;
  image.width = 5;
  image.height = 1;
  image.colorType = 6;
  image.rows = {kPixels};
  return image;
}

TEST_F(AlphaPictures, StoredAndSavedOnEveryStorage) {
  const Bytes png = samples::Encode(PixelImage());
  for (const AlphaStorage& s : AlphaStorages()) {
    SCOPED_TRACE(::testing::Message() << "alpha info " << s.alphaInfo << " padding " << s.padding);
    Use(s);
    const emu::Value picture = AlphaPicture(png);
    ASSERT_FALSE(picture.IsNil());
    EXPECT_TRUE(Host().GetProperty(picture, "HasAlphaChannel").AsBoolean());
    const emu::PictureRaw raw = Host().RawPicture(picture);
    ASSERT_EQ(raw.format, s.format);
    EXPECT_EQ(Bytes(raw.bytes.begin(), raw.bytes.begin() + 20), kStored.at(s.format));

    const ReadBack back = ReadWithLibpng(Saved(picture));
    EXPECT_EQ(back.colorType, 6);
    EXPECT_EQ(back.rgba, kSaved.at(s.kind));
    Writer w;
    ASSERT_TRUE(w.Ok("SetAlphaPicture", {picture}));
    EXPECT_EQ(std::make_tuple(w.Int("Type"), w.Int("bpc"), w.Int("Rowbytes")),
              std::make_tuple(RBInteger{6}, RBInteger{4}, RBInteger{20}));
    SetHeaderAndPalette(w);
    EXPECT_EQ(ReadWithLibpng(WriteStream(w)).rgba, kSaved.at(s.kind));
  }
}

// The reader and the folder item opener decode as the string does, the reader with red and blue
// exchanged by SwapRB; the folder item saver writes what the string saver gives, with its gamma.
TEST_F(AlphaPictures, ReaderAndFiles) {
  const samples::Image interlaced = samples::Pattern(9, 7, 16, 4, true);
  for (const Bytes& png : {samples::Encode(PixelImage()), samples::Encode(interlaced)}) {
    const Bytes expected = Rgba(AlphaPicture(png));
    const TempFile file(png);
    EXPECT_EQ(Rgba(Host().Call(Host().MakeFolderItem(file.path), "OpenAsAlphaPNGKRV")), expected);
    Reader swapped;
    ASSERT_TRUE(swapped.OpenData(png) && swapped.Ok("ApplyOptions", {-1.0}));
    Host().SetProperty(swapped.object, "SwapRB", true);
    ASSERT_TRUE(swapped.Ok("ReadAlphaPicture"));
    Bytes swappedBack = Rgba(Host().GetProperty(swapped.object, "Pict"));
    for (size_t i = 0; i < swappedBack.size(); i += 4)
      std::swap(swappedBack[i], swappedBack[i + 2]);
    EXPECT_EQ(swappedBack, expected);
    EXPECT_TRUE(Host().GetProperty(swapped.object, "Mask").IsNil());
  }
  const TempFile saved({});
  const emu::Value picture = AlphaPicture(samples::Encode(PixelImage()));
  ASSERT_TRUE(Host()
                  .Call(Host().MakeFolderItem(saved.path), "SaveAsAlphaPNGKRV", {picture, 0.5f})
                  .AsBoolean());
  // The gamma given is the exponent that decoding applies: the file's gamma is its reciprocal.
  const ReadBack back = ReadWithLibpng(samples::ReadFile(saved.path));
  EXPECT_EQ(back.rgba, kSaved.at(AlphaStorages()[0].kind));
  EXPECT_NEAR(back.gamma, 2.0, 1e-5);
}

// A picture without alpha channel is saved opaque, its mask left out; damaged data gives no
// picture unless the reader allows it.
TEST_F(AlphaPictures, OpaquePicturesAndDamage) {
  emu::PictureOptions masked;
  masked.mask = emu::MaskSource::Alpha;
  const emu::Value opaque =
      Host().MakePicture(5, 1, std::string(kPixels.begin(), kPixels.end()), masked);
  Writer w;
  ASSERT_TRUE(w.Ok("SetAlphaPicture", {opaque}));
  EXPECT_EQ(std::make_tuple(w.Int("Type"), w.Int("bpc")),
            std::make_tuple(RBInteger{2}, RBInteger{3}));
  const ReadBack back = ReadWithLibpng(Saved(opaque));
  EXPECT_EQ(back.colorType, 2);
  EXPECT_EQ(back.rgba, Colours(kPixels, false));
  EXPECT_FALSE(w.Ok("SetAlphaPicture", {kNil}));
  EXPECT_EQ(RaisedMessage(), "NilObjectException: Picture is nil");

  const Bytes png = samples::Encode(samples::Pattern(40, 40, 8, 6, false));
  const Bytes cut(png.begin(), png.begin() + png.size() / 2);
  EXPECT_TRUE(AlphaPicture(cut).IsNil());
  for (const bool allow : {false, true}) {
    Reader reader;
    Host().SetProperty(reader.object, "AllowDamaged", allow);
    ASSERT_TRUE(reader.OpenData(cut) && reader.Ok("ApplyOptions"));
    EXPECT_EQ(reader.Ok("ReadAlphaPicture"), allow);
    EXPECT_EQ(Host().GetProperty(reader.object, "Pict").IsNil(), !allow);
    EXPECT_FALSE(reader.errors.empty());
  }
}

// Hosts before 2011.04 have no such pictures, and say so.
class AlphaPicturesOldHost : public PluginTest {};

TEST_F(AlphaPicturesOldHost, Refused) {
  if (Profile().version >= 2011.04) GTEST_SKIP();
  const Bytes png = samples::Encode(PixelImage());
  EXPECT_TRUE(AlphaPicture(png).IsNil());
  EXPECT_EQ(RaisedMessage(),
            "RuntimeException: Pictures with an alpha channel need Xojo 2011 Release 4 or later.");
  Reader reader;
  ASSERT_TRUE(reader.OpenData(png) && reader.Ok("ApplyOptions"));
  EXPECT_FALSE(reader.Ok("ReadAlphaPicture"));
  EXPECT_EQ(reader.errors,
            std::vector<std::string>{
                "Pictures with an alpha channel need Xojo 2011 Release 4 or later."});
}

// How far a decoded or saved pixel may be from the file's own: alpha exact, within 2 in gd's
// 7 bits; colour exact in straight storage and where alpha is 255, within what premultiplied
// storage keeps of it elsewhere, and nothing where alpha is 0.
::testing::AssertionResult Matches(const Bytes& expected, const Bytes& got, Kind kind) {
  if (expected.size() != got.size()) return ::testing::AssertionFailure() << "size";
  for (size_t i = 0; i < expected.size(); i += 4) {
    const int a = expected[i + 3];
    const int alphaSlack = kind == Kind::kGd ? 2 : 0;
    int colourSlack = 0;
    if (kind == Kind::kPremultiplied && a < 255) colourSlack = a == 0 ? 255 : (255 + a) / (2 * a);
    bool ok = std::abs(got[i + 3] - a) <= alphaSlack;
    for (size_t c = 0; c < 3; ++c) ok = ok && std::abs(got[i + c] - expected[i + c]) <= colourSlack;
    if (!ok) {
      return ::testing::AssertionFailure()
             << "pixel " << i / 4 << ": " << int(got[i]) << "," << int(got[i + 1]) << ","
             << int(got[i + 2]) << "," << int(got[i + 3]) << " for " << int(expected[i]) << ","
             << int(expected[i + 1]) << "," << int(expected[i + 2]) << "," << a;
    }
  }
  return ::testing::AssertionSuccess();
}

// Images with an alpha channel or a transparency chunk.
bool HasAlpha(const Bytes& png) {
  for (const samples::Chunk& chunk : samples::SplitChunks(png)) {
    if (chunk.type == "IHDR" && (chunk.data[9] & 4) != 0) return true;
    if (chunk.type == "tRNS") return true;
  }
  return false;
}

TEST_F(AlphaPictures, PngSuiteBothWays) {
  if (PngSuiteDir().empty()) GTEST_SKIP() << "PNG suite not found";
  std::vector<std::filesystem::path> files;
  for (const auto& entry : std::filesystem::directory_iterator(PngSuiteDir())) {
    const std::string name = entry.path().filename().u8string();
    if (entry.path().extension() == ".png" && name[0] != 'x') files.push_back(entry.path());
  }
  std::sort(files.begin(), files.end());
  size_t tested = 0;
  for (const std::filesystem::path& path : files) {
    const Bytes png = samples::ReadFile(path.u8string());
    if (!HasAlpha(png)) continue;
    ++tested;
    const Bytes own = Decoded(png);
    for (const AlphaStorage& s : AlphaStorages()) {
      SCOPED_TRACE(::testing::Message() << path.filename() << " alpha info " << s.alphaInfo);
      Use(s);
      const emu::Value picture = AlphaPicture(png);
      ASSERT_FALSE(picture.IsNil());
      EXPECT_TRUE(Matches(own, Rgba(picture), s.kind));
      EXPECT_TRUE(Matches(own, Decoded(Saved(picture)), s.kind));
    }
  }
  EXPECT_EQ(tested, 28u);
}

// The tool's alpha routes write what user code reads back from the picture, and save what the
// one-call saver writes; PAM input is saved from a picture the host makes.
TEST_F(AlphaPictures, Tool) {
  if (!FullServiceHost()) GTEST_SKIP() << "one profile of each application kind";
  const TempFile out({});
  const std::string host = "--host " + Profile().name + " ";
  for (const Bytes& png :
       {samples::Encode(PixelImage()), samples::Encode(samples::Pattern(9, 7, 16, 4, true))}) {
    const TempFile in(png);
    const emu::Value picture = AlphaPicture(png);
    for (const char* route : {"alpha-string", "alpha-file", "alpha-reader --gamma -1"}) {
      const ToolRun run = RunTool(host + "decode --via " + route + " " + in.path + " " + out.path);
      ASSERT_EQ(run.status, 0) << route << ": " << run.output;
      uint32_t w = 0, h = 0;
      Bytes pam;
      ASSERT_TRUE(samples::DecodePAM(samples::ReadFile(out.path), &w, &h, &pam));
      EXPECT_EQ(pam, Rgba(picture)) << route;
    }
    for (const char* form : {"", "--file --gamma 0.5"}) {
      const ToolRun run = RunTool(host + "save --alpha " + form + " " + in.path + " " + out.path);
      ASSERT_EQ(run.status, 0) << form << ": " << run.output;
      EXPECT_EQ(Decoded(samples::ReadFile(out.path)), Decoded(Saved(picture))) << form;
    }
  }
  const TempFile pam(samples::EncodePAM(5, 1, kPixels));
  ASSERT_EQ(RunTool(host + "save --alpha " + pam.path + " " + out.path).status, 0);
  const Bytes saved = Decoded(samples::ReadFile(out.path));
  EXPECT_TRUE(Matches(kPixels, saved, AlphaStorages()[0].kind));
}

}  // namespace
}  // namespace e2e
