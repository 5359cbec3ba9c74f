// The writing sequence of PNGWriterKRV: destinations, refusals, and the chunks written.
#include <array>
#include <functional>
#include <set>
#include <tuple>

#include "tests/e2e/test_writer_helpers.h"

namespace e2e {
namespace {

using samples::Bytes;
using Texts = std::vector<std::string>;
using Steps = std::function<void(Writer&)>;

// Rows of `image` loaded and `setUp` run (by default SetHeader with the image's interlacing).
void Prepare(Writer& w, const samples::Image& image, const Steps& setUp) {
  LoadRows(w, image);
  if (setUp) return setUp(w);
  EXPECT_TRUE(w.Ok("SetHeader", {image.interlaced}));
}

Bytes Stream(const samples::Image& image, const Steps& setUp = nullptr) {
  Writer w;
  Prepare(w, image, setUp);
  return WriteStream(w);
}

// Prepared, with `destination` open and the header chunks written.
void Begin(Writer& w, const samples::Image& image, const emu::Value& destination = kNil,
           const Steps& setUp = nullptr) {
  Prepare(w, image, setUp);
  ASSERT_TRUE(w.Ok("OpenWriteDestination", {destination}));
  ASSERT_TRUE(w.Ok("WriteInfo"));
}

void Header(Writer& w, RBInteger width, RBInteger height, RBInteger type) {
  w.Set("Width", width);
  w.Set("Height", height);
  w.Set("Type", type);
  ASSERT_TRUE(w.Ok("SetHeader"));
}

class WriterSequence : public PluginTest {};

TEST_F(WriterSequence, FinishAndCloseDestinationInEveryState) {
  const samples::Image image = samples::Pattern(5, 5, 8, 0, false);
  TempFile file({}), other({});
  Writer idle, nowhere, closed, toFile;
  EXPECT_TRUE(idle.Call("Finish").IsNil()) << "no destination";
  idle.Call("CloseDestination");
  EXPECT_TRUE(idle.Ok("OpenWriteDestination", {kNil}));
  EXPECT_FALSE(idle.Ok("OpenWriteDestination", {Host().MakeFolderItem(other.path)})) << "one open";
  idle.Call("CloseDestination");
  EXPECT_TRUE(idle.Ok("OpenWriteDestination", {Host().MakeFolderItem(other.path)}));
  EXPECT_FALSE(idle.Ok("OpenWriteDestination", {kNil}));
  EXPECT_FALSE(nowhere.Ok("OpenWriteDestination", {Host().MakeFolderItem("/nonexistent/d/x")}));
  EXPECT_TRUE(nowhere.errors.empty());

  Begin(closed, image);
  closed.Call("CloseDestination");
  EXPECT_TRUE(closed.Call("Finish").IsNil()) << "CloseDestination drops the bytes";

  Begin(toFile, image, Host().MakeFolderItem(file.path));
  EXPECT_TRUE(toFile.Call("Finish").IsNil()) << "a file destination";
  toFile.Call("CloseDestination");
  const Bytes written = samples::ReadFile(file.path);
  EXPECT_GT(written.size(), 8u);
  EXPECT_FALSE(toFile.Ok("WriteRows")) << "the closed file is never written again";
  EXPECT_EQ(toFile.errors, Texts{"The destination is closed."});
  EXPECT_EQ(samples::ReadFile(file.path), written);
  EXPECT_FALSE(Host().LastException());
}

TEST_F(WriterSequence, OutOfOrderCallsFailThroughTheErrorEvent) {
  Writer quiet(false);  // refusals without an Error event to raise
  ASSERT_TRUE(quiet.Ok("OpenWriteDestination", {kNil}));
  EXPECT_FALSE(quiet.Ok("WriteInfo")) << "no header";
  EXPECT_FALSE(quiet.Ok("WriteEnd"));
  Writer w;
  Header(w, 4, 2, 2);
  ASSERT_TRUE(w.Ok("OpenWriteDestination", {kNil}));
  EXPECT_FALSE(w.Ok("WriteRows")) << "before WriteInfo";
  ASSERT_TRUE(w.Ok("WriteInfo"));
  EXPECT_FALSE(w.Ok("WriteRows")) << "no rows loaded";
  ASSERT_TRUE(w.Ok("SetRows", {RowsArray({Bytes(12), Bytes(11)})}));
  EXPECT_FALSE(w.Ok("WriteRows")) << "a block shorter than the header's rows";
  EXPECT_EQ(w.errors, Texts({"The header chunks are not written yet; call WriteInfo first.",
                             "The loaded rows do not match the header.",
                             "The loaded rows do not match the header."}));
  ASSERT_TRUE(w.Ok("SetRows", {RowsArray({Bytes(12), Bytes(12)})}));
  EXPECT_TRUE(w.Ok("WriteRows"));
  EXPECT_FALSE(w.Ok("WriteRows")) << "the image is complete";
  EXPECT_EQ(w.errors.back(), "Rows of the image are written already.");
  EXPECT_FALSE(Host().LastException());
}

TEST_F(WriterSequence, BadArraysAndValues) {
  Writer w;
  w.Set("Width", 3);
  EXPECT_TRUE(w.Ok("SetRows", {RowsArray({Bytes(3), Bytes(3), Bytes(3)})}));
  EXPECT_EQ(w.Int("Height"), 3);
  const std::tuple<const char*, std::vector<emu::Arg>, const char*> refused[] = {
      {"SetRows", {kNil}, "NilObjectException: Rows are nil"},
      {"SetRows", {RowsArray({})}, ""},
      {"SetRows",
       {Host().MakeMemoryBlockArray({Host().NewMemoryBlock(3), kNil})},
       "NilObjectException: Row is nil"},
      {"SetPaletteData", {kNil}, "NilObjectException: Colors array is nil"},
      {"SetAlphaData", {kNil, kNil}, "NilObjectException: Colors array is nil"},
      {"SetAlphaData",
       {kNil, Host().MakeColorArray({1})},
       "NilObjectException: Alphas array is nil"}};
  for (const auto& [method, args, raised] : refused) {
    EXPECT_FALSE(w.Ok(method, args)) << method;
    EXPECT_EQ(RaisedMessage(), raised) << method;
  }
  w.Set("Type", 0);
  ASSERT_TRUE(w.Ok("SetHeader"));
  ASSERT_TRUE(w.Ok("OpenWriteDestination", {kNil}));
  ASSERT_TRUE(w.Ok("WriteInfo"));
  EXPECT_FALSE(w.Ok("WriteRows")) << "the failed SetRows left no rows";
  Writer v;
  Header(v, 2, 2, 3);
  EXPECT_FALSE(v.Ok("SetICCProfile", {Host().MakeString("bad"), 0, Str(Bytes(20, 1))}));
  EXPECT_TRUE(v.Ok("SetICCProfile", {Host().MakeString("none"), 0, kNil})) << "no profile";
  EXPECT_FALSE(v.Ok("SetGamma", {1e-9})) << "a file gamma beyond libpng's range";
  EXPECT_TRUE(v.Ok("SetPaletteData", {Host().MakeColorArray({})}));
  EXPECT_FALSE(v.Ok("SetPalette")) << "an empty palette";
  EXPECT_EQ(v.errors.size(), 3u);
}

// SetAlphaData sorts colours by alpha over all 256 slots (unused ones: alpha 0); tRNS holds those
// below 255.
TEST_F(WriterSequence, PaletteAndSortedTransparency) {
  std::vector<RBColor> greys;  // grey i in slot i
  for (RBColor i = 0; i < 256; ++i) greys.push_back(i * 0x010101);
  std::vector<RBInteger> alphas(256, 255), opaque(256, 255);
  alphas[10] = 200, alphas[20] = 256, alphas[30] = 7, alphas[40] = 128;  // 256 taken as a byte
  const std::vector<RBColor> two = {0x102030, 0x405060}, many(300, 0x102030);
  samples::Image row = samples::Pattern(1, 1, 8, 3, false);
  row.rows = {{0}};
  const struct {
    std::vector<RBInteger> alphas;
    std::vector<RBColor> colours;
    size_t paletteSize;
    Bytes paletteStart, trns;
  } kCases[] = {
      {{255, 0}, two, 6, {0x40, 0x50, 0x60, 0, 0, 0}, {0, 0}},
      {alphas, greys, 768, {20, 20, 20, 30, 30, 30, 40, 40, 40, 10, 10, 10}, {0, 7, 128, 200}},
      {opaque, two, 6, {0x10, 0x20, 0x30, 0x40, 0x50, 0x60}, {}},
      {opaque, many, 768, {0x10, 0x20, 0x30}, {}}};
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.paletteSize);
    const ReadBack back = ReadWithLibpng(Stream(row, [&](Writer& w) {
      EXPECT_TRUE(w.Ok("SetAlphaData",
                       {Host().MakeIntegerArray(c.alphas), Host().MakeColorArray(c.colours)}));
      SetHeaderAndPalette(w);
    }));
    ASSERT_EQ(back.palette.size(), c.paletteSize);
    EXPECT_EQ(Bytes(back.palette.begin(), back.palette.begin() + c.paletteStart.size()),
              c.paletteStart);
    EXPECT_EQ(back.trns, c.trns);
  }
}

// Filter 0: libpng's own choice; 1 to 4: no filtering; 5 to 7 refused; flags 8 to 128 (none to
// Paeth) choose the filters libpng may use.
TEST_F(WriterSequence, FilterAndCompressionValues) {
  const samples::Image image = samples::Pattern(32, 16, 8, 2, false);
  const Bytes ownChoice = FilterBytes(samples::Encode(image));
  ASSERT_EQ(ownChoice.size(), 16u);
  ASSERT_NE(ownChoice, Bytes(16, ownChoice[0])) << "libpng's choice must tell rows apart";
  Writer refused;
  LoadRows(refused, image);
  EXPECT_FALSE(refused.Ok("SetHeader", {false, RBInteger{5}}));
  EXPECT_EQ(refused.errors.size(), 1u);
  // Filter -> the filter bytes rows may have; none: exactly libpng's own choice.
  const std::pair<RBInteger, std::set<uint8_t>> kCases[] = {
      {0, {}}, {1, {0}}, {4, {0}}, {64, {3}}, {32 + 128, {2, 4}}};
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.first);
    const Bytes filters = FilterBytes(Stream(image, [&](Writer& w) {
      EXPECT_TRUE(w.Ok("SetHeader", {false, c.first}));
    }));
    ASSERT_EQ(filters.size(), 16u);
    EXPECT_TRUE(!c.second.empty() || filters == ownChoice);
    for (uint8_t f : filters) EXPECT_TRUE(c.second.empty() || c.second.count(f)) << +f;
  }
  const auto write = [&](RBInteger level) {
    return Stream(image, [&](Writer& w) {
      w.Set("bpc", 3);
      EXPECT_TRUE(w.Ok("SetHeader", {false, -1, level}));
    });
  };
  const Bytes best = write(9), stored = write(0);
  EXPECT_EQ(ReadWithLibpng(best).bitDepth, 8) << "bpc plays no part";
  EXPECT_GT(stored.size(), 16u * 97) << "level 0 stores the rows";
  EXPECT_LT(best.size(), stored.size());
  EXPECT_EQ(ReadWithLibpng(stored).rows, image.rows);
}

// A second WriteInfo would write every chunk after the header again: a stream no decoder takes.
TEST_F(WriterSequence, WriteInfoOnce) {
  samples::Image image = samples::Pattern(2, 1, 8, 3, false);
  image.rows = {{0, 1}};
  Writer w;
  Begin(w, image, kNil, [](Writer& w) {
    ASSERT_TRUE(w.Ok("SetPaletteData", {Host().MakeColorArray({0x102030, 0x405060})}));
    SetHeaderAndPalette(w);
    ASSERT_TRUE(w.Ok("SetResolution", {72, 72, 2}));
  });
  EXPECT_FALSE(w.Ok("WriteInfo"));
  EXPECT_EQ(w.errors, Texts{"The header chunks are written already."});
  ASSERT_TRUE(w.Ok("WriteRows"));
  ASSERT_TRUE(w.Ok("WriteEnd"));
  const Bytes png = w.Finish();
  Texts types;
  for (const samples::Chunk& chunk : samples::SplitChunks(png)) types.push_back(chunk.type);
  EXPECT_EQ(types, Texts({"IHDR", "PLTE", "pHYs", "IDAT", "IEND"}));
  EXPECT_EQ(ReadWithLibpng(png).rows, image.rows);
}

// On an interlaced header WriteRow takes the rows of each Adam7 pass in turn, each as long as the
// pass's columns (in a block of one whole row at least).
TEST_F(WriterSequence, InterlacedWriteRowTakesThePassRows) {
  using Pass = std::array<uint32_t, 4>;  // first column and row, and the steps
  const std::vector<Pass> kAdam7 = {{0, 0, 8, 8}, {4, 0, 8, 8}, {0, 4, 4, 8}, {2, 0, 4, 4},
                                    {0, 2, 2, 4}, {1, 0, 2, 2}, {0, 1, 1, 2}};
  for (bool interlaced : {false, true}) {
    SCOPED_TRACE(interlaced);
    const samples::Image image = samples::Pattern(5, 6, 8, 2, interlaced);
    Writer w;
    Begin(w, image);
    w.Call("WriteRow", {kNil});
    EXPECT_EQ(RaisedMessage(), "NilObjectException: memoryblock is nil");
    w.Call("WriteRow", {Host().NewMemoryBlock(14)});
    size_t rows = 0;
    for (const auto& [x0, y0, dx, dy] : interlaced ? kAdam7 : std::vector<Pass>{{0, 0, 1, 1}}) {
      for (uint32_t y = y0; y < image.height; y += dy) {
        std::string block(15, '\0');
        size_t at = 0;
        for (uint32_t x = x0; x < image.width; x += dx, at += 3) {
          block.replace(at, 3, reinterpret_cast<const char*>(&image.rows[y][3 * x]), 3);
        }
        if (at == 0) continue;  // a pass without columns has no rows
        w.Call("WriteRow", {Host().MemoryBlockFrom(block)});
        ++rows;
        EXPECT_FALSE(w.Ok("WriteRows")) << "rows loaded, some written";
      }
    }
    EXPECT_EQ(rows, interlaced ? 12u : 6u);
    w.Call("WriteRow", {Host().NewMemoryBlock(15)});
    ASSERT_TRUE(w.Ok("WriteEnd"));
    Texts expected(rows + 2, "Rows of the image are written already.");
    expected.front() = "The memoryblock is shorter than one row.";
    expected.back() = "Every row of the image is written.";
    EXPECT_EQ(w.errors, expected);
    const Bytes png = w.Finish();
    EXPECT_EQ(png, Stream(image)) << "the same stream as WriteRows";
    EXPECT_EQ(ReadWithLibpng(png).interlace, interlaced ? 1 : 0);
  }
}

// A 344-byte RGB profile libpng accepts: header, D50 illuminant, one tag of 200 bytes that do not
// compress (libpng reads back no iCCP chunk shorter than 92 bytes).
Bytes IccProfile() {
  using namespace std::string_literals;
  const std::string head = "\0\0\1\x58"s + std::string(8, 0) + "mntrRGB XYZ " + std::string(12, 0) +
                           "acsp" + std::string(28, 0) + "\0\0\xF6\xD6\0\1\0\0\0\0\xD3\x2D"s +
                           std::string(48, 0) + "\0\0\0\1wtpt\0\0\0\x90\0\0\0\xC8"s;
  Bytes icc(head.begin(), head.end());
  for (uint32_t seed = 1; icc.size() < 344;) {
    seed = seed * 1103515245 + 12345;
    icc.push_back(static_cast<uint8_t>(seed >> 16));
  }
  return icc;
}

TEST_F(WriterSequence, ResolutionGammaAndColourInformation) {
  const struct {
    std::vector<emu::Arg> resolution, gamma;
    RBInteger srgb;  // -1: no SetsRGB
    bool icc;
    std::tuple<png_uint_32, png_uint_32, int> phys;
    double fileGamma;  // 0: no gAMA
  } kCases[] = {{{72, 300, 2}, {}, -1, false, {2835, 11811, 1}, 1 / 1.8},
                {{72, 72, 1}, {2.2}, 3, false, {72, 72, 1}, 1 / 2.2},
                {{3, 2, 0}, {-1.0}, -1, true, {3, 2, 0}, 0.0}};
  for (const auto& c : kCases) {
    const ReadBack back =
        ReadWithLibpng(Stream(samples::Pattern(4, 3, 8, 2, false), [&](Writer& w) {
          EXPECT_TRUE(w.Ok("SetHeader"));
          EXPECT_TRUE(w.Ok("SetResolution", c.resolution));
          EXPECT_TRUE(w.Ok("SetGamma", c.gamma));
          EXPECT_TRUE(c.srgb < 0 || w.Ok("SetsRGB", {c.srgb}));
          EXPECT_TRUE(!c.icc ||
                      w.Ok("SetICCProfile", {Host().MakeString("Test"), 0, Str(IccProfile())}));
        }));
    EXPECT_EQ(std::make_tuple(back.physX, back.physY, back.physUnit), c.phys);
    EXPECT_NEAR(back.gamma, c.fileGamma, 1e-5);
    EXPECT_EQ(back.srgbIntent, c.srgb);
    EXPECT_EQ(back.iccName, c.icc ? "Test" : "");
    EXPECT_EQ(back.icc, c.icc ? IccProfile() : Bytes());
  }
}

}  // namespace
}  // namespace e2e
