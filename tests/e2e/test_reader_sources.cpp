// Opening a reader from data and files, and how failures reach user code: the Error event, false
// or nil results, and no exception.
#include <png.h>

#include <tuple>

#include "tests/e2e/Fixture.h"

namespace e2e {
namespace {

using samples::Bytes;

Bytes SmallPng(uint32_t width = 5, uint32_t height = 3) {
  return samples::Encode(samples::Pattern(width, height, 8, 2, false));
}

class ReaderSources : public PluginTest {};

// Nine bytes open; what is wrong shows in ApplyOptions (silently without an Error handler).
TEST_F(ReaderSources, OpenData) {
  Reader reader;
  const Bytes png = SmallPng(7, 4);
  EXPECT_FALSE(reader.Ok("OpenData", {emu::Value::AdoptString(nullptr)}));
  EXPECT_FALSE(reader.OpenData(Bytes(png.begin(), png.begin() + 8)));
  EXPECT_FALSE(Host().LastException());
  EXPECT_TRUE(reader.OpenData(Bytes(png.begin(), png.begin() + 9)));
  EXPECT_FALSE(reader.Ok("ApplyOptions"));
  EXPECT_EQ(reader.errors.size(), 1u);
  EXPECT_TRUE(reader.OpenData(png));
  EXPECT_EQ(Host().GetProperty(reader.object, "SourceData").Bytes(),
            std::string(png.begin(), png.end()));
  EXPECT_TRUE(Host().GetProperty(reader.object, "SourceFile").IsNil());
  EXPECT_EQ(reader.Int("Width"), 0) << "header properties are 0 before ApplyOptions";
  EXPECT_TRUE(reader.Ok("ApplyOptions"));
  EXPECT_EQ(reader.Int("Width"), 7);
  EXPECT_EQ(reader.Int("Height"), 4);
  EXPECT_EQ(reader.errors.size(), 1u);

  emu::Value silent = Host().New("PNGReaderKRV");
  EXPECT_TRUE(Host().Call(silent, "OpenData", {Str(Bytes(100, 'x'))}).AsBoolean());
  EXPECT_FALSE(Host().Call(silent, "ApplyOptions").AsBoolean());
  EXPECT_FALSE(Host().LastException());
}

// Opening again replaces the stream and data replaces the file; Open prefers the data and keeps
// both, falling back to the file.
TEST_F(ReaderSources, OpenFileAndOpen) {
  TempFile file(SmallPng(6, 2));
  emu::Value item = Host().MakeFolderItem(file.path);
  Reader reader;
  EXPECT_FALSE(reader.Ok("OpenFile", {Host().MakeFolderItem("/nonexistent/dir/x.png")}));
  EXPECT_FALSE(reader.Ok("OpenFile", {emu::Value::AdoptObject(nullptr)}));
  EXPECT_FALSE(Host().LastException());
  EXPECT_TRUE(reader.Ok("OpenFile", {item}));
  EXPECT_TRUE(reader.Ok("OpenFile", {item}));
  EXPECT_EQ(Host().GetProperty(reader.object, "SourceFile").Handle(), item.Handle());
  EXPECT_TRUE(reader.Ok("ApplyOptions"));
  EXPECT_EQ(reader.Int("Width"), 6);
  EXPECT_TRUE(reader.errors.empty());
  Reader again;
  EXPECT_TRUE(again.Ok("OpenFile", {item}));
  EXPECT_TRUE(again.OpenData(SmallPng(3, 3)));
  EXPECT_TRUE(Host().GetProperty(again.object, "SourceFile").IsNil());
  EXPECT_TRUE(again.Ok("ApplyOptions"));
  EXPECT_EQ(again.Int("Width"), 3);
  Reader both;
  const Bytes nine = SmallPng(9, 9);
  EXPECT_TRUE(both.Ok("Open", {item, Str(nine)}));
  EXPECT_TRUE(both.Ok("ApplyOptions"));
  EXPECT_EQ(both.Int("Width"), 9) << "the data wins over the file";
  EXPECT_EQ(Host().GetProperty(both.object, "SourceFile").Handle(), item.Handle());
  EXPECT_EQ(Host().GetProperty(both.object, "SourceData").Bytes(),
            std::string(nine.begin(), nine.end()));
  const Bytes png = SmallPng();
  for (const Bytes& data : {Bytes(png.begin(), png.begin() + 8), Bytes()}) {
    Reader fallback;
    emu::Value str = data.empty() ? emu::Value::AdoptString(nullptr) : Str(data);
    EXPECT_TRUE(fallback.Ok("Open", {item, str}));
    EXPECT_TRUE(fallback.Ok("ApplyOptions"));
    EXPECT_EQ(fallback.Int("Width"), 6) << "the file is the fallback";
  }
  Reader none;
  EXPECT_FALSE(none.Ok("Open", {emu::Value::AdoptObject(nullptr), Str(Bytes(4, 0))}));
  EXPECT_FALSE(
      none.Ok("Open", {emu::Value::AdoptObject(nullptr), emu::Value::AdoptString(nullptr)}));
}

// A failed set-up keeps no header values when a chunk fails, the header's own when gamma fails.
TEST_F(ReaderSources, HeaderPropertiesAfterAFailedSetUp) {
  std::vector<samples::Chunk> chunks =
      samples::SplitChunks(samples::Encode(samples::Pattern(4, 4, 8, 3, false)));
  chunks[1].crc ^= 1;  // the palette
  const struct {
    const char* what;
    Bytes png;
    double gamma;
    RBInteger width, height, bitDepth, colorType, interlaceType, interlacing;
  } kCases[] = {
      {"a bad palette CRC", samples::JoinChunks(chunks), 0.0, 0, 0, 0, 0, 0, 0},
      {"a gamma libpng refuses", samples::Encode(samples::Pattern(64, 2, 1, 0, true)), 1e-300, 64,
       2, 1, 0, 1, 0},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.what);
    Reader reader;
    ASSERT_TRUE(reader.OpenData(c.png));
    EXPECT_FALSE(reader.Ok("ApplyOptions", {c.gamma}));
    EXPECT_EQ(reader.errors.size(), 1u);
    EXPECT_EQ(std::make_tuple(reader.Int("Width"), reader.Int("Height"), reader.Int("BitDepth"),
                              reader.Int("ColorType"), reader.Int("InterlaceType"),
                              reader.Int("Interlacing")),
              std::make_tuple(c.width, c.height, c.bitDepth, c.colorType, c.interlaceType,
                              c.interlacing));
    EXPECT_FALSE(Host().LastException());
  }
}

// Past its end the memory source hands out zeros and reports nothing itself: libpng refuses them.
TEST_F(ReaderSources, MemorySourceGivesZerosPastTheEnd) {
  const Bytes png = SmallPng();
  Reader reader;
  ASSERT_TRUE(reader.OpenData(Bytes(png.begin(), png.begin() + 8 + 25)));
  EXPECT_FALSE(reader.Ok("ApplyOptions"));
  EXPECT_EQ(reader.errors, std::vector<std::string>{"[00][00][00][00]: invalid chunk type"});
}

// The decoders stop after the last row: a broken end of the stream costs nothing.
TEST_F(ReaderSources, DecodesNeverReadTheEnd) {
  std::vector<samples::Chunk> chunks = samples::SplitChunks(SmallPng());
  chunks.back().crc ^= 1;  // IEND
  const Bytes png = samples::JoinChunks(chunks);
  Reader reader;
  ASSERT_TRUE(reader.OpenData(png));
  EXPECT_TRUE(reader.Ok("ApplyOptions") && reader.Ok("ReadPicture"));
  EXPECT_TRUE(reader.errors.empty() && reader.warnings.empty());
  EXPECT_FALSE(Host().CallGlobal("PNGStringToPictureKRV", {Str(png)}).IsNil());
}

// Every class reports the libpng it runs with.
TEST_F(ReaderSources, LibraryVersion) {
  for (const char* name : {"PNGPictureKRV", "PNGReaderKRV", "PNGWriterKRV"}) {
    EXPECT_EQ(Host().CallShared(name, "PNGLibVersion").Text(), png_get_libpng_ver(nullptr)) << name;
  }
}

}  // namespace
}  // namespace e2e
