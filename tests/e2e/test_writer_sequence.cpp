// The writing sequence of PNGWriterKRV: rows from memory blocks to memory and to files, the
// destinations in every state, how out-of-order calls and bad input reach user code, and the
// header and ancillary chunks written, read back with libpng.
#include <algorithm>
#include <functional>
#include <set>
#include <tuple>

#include "tests/e2e/test_writer_helpers.h"

namespace e2e {
namespace {

using samples::Bytes;

// `image` written after `setUp` chose its header and chunks (by default a SetHeader with the
// image's interlacing).
Bytes Stream(const samples::Image& image, std::function<void(Writer&)> setUp = nullptr,
             const std::string& file = "") {
  Writer w;
  LoadRows(w, image);
  if (!setUp) setUp = [&](Writer& w) { EXPECT_TRUE(w.Ok("SetHeader", {image.interlaced})); };
  setUp(w);
  return WriteStream(w, file);
}

void Header(Writer& w, RBInteger width, RBInteger height, RBInteger type) {
  w.Set("Width", width);
  w.Set("Height", height);
  w.Set("Type", type);
}

class WriterSequence : public PluginTest {};

TEST_F(WriterSequence, RowsRoundTripToMemoryAndToFiles) {
  for (int type : {0, 2, 4, 6}) {
    for (bool interlaced : {false, true}) {
      SCOPED_TRACE(::testing::Message() << "type " << type << " interlaced " << interlaced);
      const samples::Image image = samples::Pattern(13, 9, 8, type, interlaced);
      const Bytes png = Stream(image);
      const ReadBack back = ReadWithLibpng(png);
      ASSERT_TRUE(back.ok);
      EXPECT_EQ(std::tie(back.width, back.height, back.bitDepth, back.colorType, back.interlace),
                std::make_tuple(13u, 9u, 8, type, interlaced ? 1 : 0));
      EXPECT_EQ(back.rows, image.rows);
      TempFile file({});
      EXPECT_EQ(Stream(image, nullptr, file.path), png) << "the same stream in both destinations";
    }
  }
}

TEST_F(WriterSequence, WriteRowOneByOne) {
  const samples::Image image = samples::Pattern(6, 4, 8, 2, false);
  Writer w;
  LoadRows(w, image);
  ASSERT_TRUE(w.Ok("SetHeader"));
  ASSERT_TRUE(w.Ok("OpenWriteDestination", {kNil}));
  ASSERT_TRUE(w.Ok("WriteInfo"));
  w.Call("WriteRow", {kNil});
  EXPECT_EQ(RaisedMessage(), "NilObjectException: memoryblock is nil");
  w.Call("WriteRow", {Host().NewMemoryBlock(17)});
  EXPECT_EQ(w.errors, std::vector<std::string>{"The memoryblock is shorter than one row."});
  for (const Bytes& row : image.rows) {
    w.Call("WriteRow", {Host().MemoryBlockFrom(std::string(row.begin(), row.end()))});
    EXPECT_FALSE(w.Ok("WriteRows")) << "rows loaded, some written";
  }
  w.Call("WriteRow", {Host().NewMemoryBlock(18)});
  EXPECT_TRUE(w.Ok("WriteEnd"));
  std::vector<std::string> expected(6, "Rows of the image are written already.");
  expected.front() = "The memoryblock is shorter than one row.";
  expected.back() = "Every row of the image is written.";
  EXPECT_EQ(w.errors, expected);
  EXPECT_EQ(w.Finish(), Stream(image)) << "the same stream as WriteRows";
}

TEST_F(WriterSequence, FinishAndCloseDestinationInEveryState) {
  const samples::Image image = samples::Pattern(5, 5, 8, 0, false);
  const auto start = [&](Writer& w, const emu::Value& destination) {
    LoadRows(w, image);
    ASSERT_TRUE(w.Ok("SetHeader"));
    ASSERT_TRUE(w.Ok("OpenWriteDestination", {destination}));
    ASSERT_TRUE(w.Ok("WriteInfo"));
  };
  {
    Writer w;
    EXPECT_TRUE(w.Call("Finish").IsNil()) << "no destination";
    w.Call("CloseDestination");
    EXPECT_TRUE(w.Ok("OpenWriteDestination", {kNil}));
    EXPECT_TRUE(w.Call("Finish").IsNil()) << "nothing written";
  }
  {
    Writer w;
    start(w, kNil);
    ASSERT_TRUE(w.Ok("WriteRows"));
    Bytes head = w.Finish();
    EXPECT_TRUE(w.Call("Finish").IsNil()) << "a second Finish";
    ASSERT_TRUE(w.Ok("WriteEnd"));
    const Bytes tail = w.Finish();  // writing goes on into a new buffer
    head.insert(head.end(), tail.begin(), tail.end());
    EXPECT_EQ(head, Stream(image));
  }
  {
    Writer w;
    start(w, kNil);
    w.Call("CloseDestination");
    EXPECT_TRUE(w.Call("Finish").IsNil()) << "CloseDestination drops the bytes";
  }
  TempFile file({});
  Writer w;
  start(w, Host().MakeFolderItem(file.path));
  EXPECT_TRUE(w.Call("Finish").IsNil()) << "a file destination";
  w.Call("CloseDestination");
  const Bytes written = samples::ReadFile(file.path);
  EXPECT_GT(written.size(), 8u);
  EXPECT_FALSE(w.Ok("WriteRows")) << "the closed file is never written again";
  EXPECT_EQ(w.errors, std::vector<std::string>{"The destination is closed."});
  EXPECT_EQ(samples::ReadFile(file.path), written);
}

TEST_F(WriterSequence, OneDestinationAtATime) {
  TempFile file({});
  Writer w;
  EXPECT_TRUE(w.Ok("OpenWriteDestination", {kNil}));
  EXPECT_FALSE(w.Ok("OpenWriteDestination", {Host().MakeFolderItem(file.path)}));
  w.Call("CloseDestination");
  EXPECT_TRUE(w.Ok("OpenWriteDestination", {Host().MakeFolderItem(file.path)}));
  EXPECT_FALSE(w.Ok("OpenWriteDestination", {kNil}));
  Writer other;
  EXPECT_FALSE(other.Ok("OpenWriteDestination", {Host().MakeFolderItem("/nonexistent/dir/x.png")}));
  EXPECT_TRUE(other.errors.empty());
  EXPECT_FALSE(Host().LastException());
}

TEST_F(WriterSequence, OutOfOrderCallsFailThroughTheErrorEvent) {
  for (bool withEvents : {true, false}) {
    Writer w(withEvents);
    ASSERT_TRUE(w.Ok("OpenWriteDestination", {kNil}));
    EXPECT_FALSE(w.Ok("WriteInfo")) << "no header";
    EXPECT_EQ(w.errors.size(), withEvents ? 1u : 0u);
    EXPECT_FALSE(w.Ok("WriteEnd"));
  }
  Writer w;
  Header(w, 4, 2, 2);
  ASSERT_TRUE(w.Ok("SetHeader"));
  ASSERT_TRUE(w.Ok("SetResolution", {1, 1, 5}));
  ASSERT_TRUE(w.Ok("OpenWriteDestination", {kNil}));
  EXPECT_FALSE(w.Ok("WriteRows")) << "no rows loaded";
  ASSERT_TRUE(w.Ok("SetRows", {RowsArray({Bytes(12), Bytes(11)})}));
  ASSERT_TRUE(w.Ok("WriteInfo"));
  EXPECT_EQ(w.warnings.size(), 1u) << "an unknown pHYs unit: a warning, and the call goes on";
  EXPECT_FALSE(w.Ok("WriteRows")) << "a block shorter than the header's rows";
  EXPECT_EQ(w.errors, std::vector<std::string>(2, "The loaded rows do not match the header."));
  ASSERT_TRUE(w.Ok("SetRows", {RowsArray({Bytes(12), Bytes(12)})}));
  EXPECT_TRUE(w.Ok("WriteRows"));
  EXPECT_FALSE(w.Ok("WriteRows")) << "the image is complete";
  EXPECT_EQ(w.errors.back(), "Rows of the image are written already.");
  EXPECT_FALSE(Host().LastException());
}

TEST_F(WriterSequence, BadArraysAndValues) {
  Writer w;
  w.Set("Width", 9);
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
  EXPECT_FALSE(w.Ok("WriteRows")) << "the failed SetRows left no rows";
  w.errors.clear();

  for (const auto& [width, type] : {std::pair{4, 1}, std::pair{0, 2}, std::pair{-1, 2}}) {
    Writer bad;
    Header(bad, width, 2, type);
    EXPECT_FALSE(bad.Ok("SetHeader")) << "TypePalette is 1: " << width << " " << type;
    EXPECT_EQ(bad.errors.size(), 1u);
  }
  Header(w, 2, 2, 3);
  ASSERT_TRUE(w.Ok("SetHeader"));
  EXPECT_FALSE(w.Ok("SetICCProfile", {Host().MakeString("bad"), 0, Str(Bytes(20, 1))}));
  EXPECT_TRUE(w.Ok("SetICCProfile", {Host().MakeString("none"), 0, kNil})) << "no profile";
  EXPECT_FALSE(w.Ok("SetGamma", {1e-9})) << "a file gamma beyond libpng's range";
  EXPECT_TRUE(w.Ok("SetPaletteData", {Host().MakeColorArray({})}));
  EXPECT_FALSE(w.Ok("SetPalette")) << "an empty palette";
  EXPECT_EQ(w.errors.size(), 3u);
  EXPECT_EQ(Host().CallShared("PNGWriterKRV", "PNGLibVersion").Text(), png_get_libpng_ver(nullptr));
}

// One row of palette `indices` with the colours and alphas stored by `store`, read back.
ReadBack PaletteRow(const Bytes& indices, const std::function<void(Writer&)>& store) {
  samples::Image image;
  image.width = static_cast<uint32_t>(indices.size());
  image.height = 1;
  image.colorType = 3;
  image.rows = {indices};
  return ReadWithLibpng(Stream(image, [&](Writer& w) {
    store(w);
    SetHeaderAndPalette(w);
  }));
}

TEST_F(WriterSequence, PaletteAndSortedTransparency) {
  const RBColor a = 0x102030, b = 0x405060;
  ReadBack back = PaletteRow({0, 1}, [&](Writer& w) {
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
  back = PaletteRow({0, 1, 2}, [&](Writer& w) {
    EXPECT_TRUE(
        w.Ok("SetAlphaData", {Host().MakeIntegerArray(alphas), Host().MakeColorArray(colours)}));
  });
  ASSERT_EQ(back.palette.size(), 768u);
  Bytes sorted(alphas.begin(), alphas.end());
  std::sort(sorted.begin(), sorted.end());
  sorted.resize(std::count_if(sorted.begin(), sorted.end(), [](uint8_t x) { return x != 255; }));
  EXPECT_EQ(back.trns, sorted);
  for (int i = 0; i < 256; ++i) {
    const uint8_t grey = back.palette[3 * i];
    const uint8_t alpha = i < static_cast<int>(back.trns.size()) ? back.trns[i] : 255;
    EXPECT_EQ(grey % 3 == 0 ? 255 : static_cast<uint8_t>(256 - grey), alpha) << i;
  }

  back = PaletteRow({1}, [&](Writer& w) {
    EXPECT_TRUE(w.Ok("SetAlphaData", {Host().MakeIntegerArray(std::vector<RBInteger>(256, 255)),
                                      Host().MakeColorArray({a, b})}));
  });
  EXPECT_TRUE(back.trns.empty()) << "all opaque: no tRNS";
  back = PaletteRow({0, 2}, [&](Writer& w) {
    EXPECT_TRUE(w.Ok("SetPaletteData", {Host().MakeColorArray(std::vector<RBColor>(300, a))}));
  });
  EXPECT_EQ(back.palette.size(), 768u) << "at most 256 colours";
}

// SetHeader's Filter with libpng 1.6: 0 and any value above the flags leave libpng its own
// choice, 1 to 4 turn filtering off, 5 to 7 are refused, and the flags 8 (none), 16 (sub), 32
// (up), 64 (average) and 128 (Paeth) choose single filters; a sum lets libpng choose among them.
TEST_F(WriterSequence, FilterValues) {
  const samples::Image image = samples::Pattern(32, 16, 8, 2, false);
  const Bytes ownChoice = FilterBytes(samples::Encode(image));
  ASSERT_EQ(ownChoice.size(), 16u);
  ASSERT_NE(ownChoice, Bytes(16, ownChoice[0])) << "libpng's choice must tell rows apart";
  enum Rows { kOwnChoice, kRefused, kFixed, kAmong };
  const struct {
    RBInteger filter;
    Rows rows;
    std::set<uint8_t> bytes;  // the one filter of every row, or those libpng chooses among
  } kCases[] = {{-1, kOwnChoice, {}},
                {0, kOwnChoice, {}},
                {256, kOwnChoice, {}},
                {1, kFixed, {0}},
                {2, kFixed, {0}},
                {3, kFixed, {0}},
                {4, kFixed, {0}},
                {5, kRefused, {}},
                {7, kRefused, {}},
                {8, kFixed, {0}},
                {16, kFixed, {1}},
                {32, kFixed, {2}},
                {64, kFixed, {3}},
                {128, kFixed, {4}},
                {8 + 16, kAmong, {0, 1}},
                {32 + 128, kAmong, {2, 4}},
                {248, kAmong, {0, 1, 2, 3, 4}}};
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.filter);
    Writer w;
    LoadRows(w, image);
    if (c.rows == kRefused) {
      EXPECT_FALSE(w.Ok("SetHeader", {false, c.filter}));
      EXPECT_EQ(w.errors.size(), 1u);
      continue;
    }
    ASSERT_TRUE(w.Ok("SetHeader", {false, c.filter}));
    const Bytes filters = FilterBytes(WriteStream(w));
    ASSERT_EQ(filters.size(), 16u);
    if (c.rows == kOwnChoice) {
      EXPECT_EQ(filters, ownChoice);
    } else if (c.rows == kFixed) {
      EXPECT_EQ(filters, Bytes(16, *c.bytes.begin()));
    } else {
      for (uint8_t f : filters) EXPECT_TRUE(c.bytes.count(f)) << int{f};
    }
  }
}

TEST_F(WriterSequence, CompressionLevelAndBpc) {
  const samples::Image image = samples::Pattern(32, 16, 8, 2, false);
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

// A second WriteInfo would write every chunk after the header again, which makes a stream that
// no decoder takes.
TEST_F(WriterSequence, WriteInfoOnce) {
  samples::Image image;
  image.width = 2;
  image.height = 1;
  image.colorType = 3;
  image.rows = {{0, 1}};
  Writer w;
  LoadRows(w, image);
  ASSERT_TRUE(w.Ok("SetPaletteData", {Host().MakeColorArray({0x102030, 0x405060})}));
  SetHeaderAndPalette(w);
  ASSERT_TRUE(w.Ok("SetResolution", {72, 72, 2}));
  ASSERT_TRUE(w.Ok("OpenWriteDestination", {kNil}));
  ASSERT_TRUE(w.Ok("WriteInfo"));
  EXPECT_FALSE(w.Ok("WriteInfo"));
  EXPECT_EQ(w.errors, std::vector<std::string>{"The header chunks are written already."});
  ASSERT_TRUE(w.Ok("WriteRows"));
  ASSERT_TRUE(w.Ok("WriteEnd"));
  const Bytes png = w.Finish();
  std::vector<std::string> types;
  for (const samples::Chunk& chunk : samples::SplitChunks(png)) types.push_back(chunk.type);
  EXPECT_EQ(types, std::vector<std::string>({"IHDR", "PLTE", "pHYs", "IDAT", "IEND"}));
  EXPECT_EQ(ReadWithLibpng(png).rows, image.rows);
}

// Adam7: the first column and row of each pass and the steps between them.
struct Pass {
  uint32_t x, y, dx, dy;
};
constexpr Pass kAdam7[] = {{0, 0, 8, 8}, {4, 0, 8, 8}, {0, 4, 4, 8}, {2, 0, 4, 4},
                           {0, 2, 2, 4}, {1, 0, 2, 2}, {0, 1, 1, 2}};

// WriteRow on an interlaced header takes the rows of each pass in turn, each as long as the
// pass's columns (in a block of at least one whole row); after the last pass the image is
// complete.
TEST_F(WriterSequence, InterlacedWriteRowTakesThePassRows) {
  const samples::Image image = samples::Pattern(5, 6, 8, 2, true);
  Writer w;
  Header(w, 5, 6, 2);
  ASSERT_TRUE(w.Ok("SetHeader", {true}));
  ASSERT_TRUE(w.Ok("OpenWriteDestination", {kNil}));
  ASSERT_TRUE(w.Ok("WriteInfo"));
  size_t rows = 0;
  for (const Pass& p : kAdam7) {
    for (uint32_t y = p.y; y < image.height; y += p.dy) {
      std::string block(15, '\0');
      size_t at = 0;
      for (uint32_t x = p.x; x < image.width; x += p.dx, at += 3) {
        block.replace(at, 3, reinterpret_cast<const char*>(&image.rows[y][3 * x]), 3);
      }
      if (at == 0) continue;  // a pass without columns has no rows
      w.Call("WriteRow", {Host().MemoryBlockFrom(block)});
      ++rows;
    }
  }
  EXPECT_EQ(rows, 12u);
  EXPECT_TRUE(w.errors.empty());
  w.Call("WriteRow", {Host().NewMemoryBlock(15)});
  EXPECT_EQ(w.errors, std::vector<std::string>{"Every row of the image is written."});
  ASSERT_TRUE(w.Ok("WriteEnd"));
  const ReadBack back = ReadWithLibpng(w.Finish());
  EXPECT_EQ(back.interlace, 1);
  EXPECT_EQ(back.rows, image.rows);
}

// An ICC profile that libpng accepts for RGB images: a header and one tag of 200 bytes that do
// not compress (libpng 1.6.39 cannot read back an iCCP chunk shorter than 92 bytes).
Bytes IccProfile() {
  using namespace std::string_literals;
  const std::pair<size_t, std::string> fields[] = {
      {0, "\0\0\1\x58"s},  // the size, 344
      {12, "mntrRGB XYZ "s},
      {36, "acsp"s},
      {68, "\0\0\xF6\xD6\0\1\0\0\0\0\xD3\x2D"s},    // the D50 illuminant
      {128, "\0\0\0\1wtpt\0\0\0\x90\0\0\0\xC8"s}};  // one tag: 200 bytes at 144
  Bytes icc(344);
  for (const auto& [at, field] : fields) std::copy(field.begin(), field.end(), icc.begin() + at);
  uint32_t seed = 1;
  for (size_t i = 144; i < icc.size(); ++i) {
    seed = seed * 1103515245 + 12345;
    icc[i] = static_cast<uint8_t>(seed >> 16);
  }
  return icc;
}

TEST_F(WriterSequence, ResolutionGammaAndColourInformation) {
  struct Case {
    std::vector<emu::Arg> resolution, gamma;
    RBInteger srgb;  // -1: no SetsRGB
    bool icc;
    std::tuple<png_uint_32, png_uint_32, int> phys;
    double fileGamma;
  };
  const Case cases[] = {{{72, 300, 2}, {}, -1, false, {2835, 11811, 1}, 1 / 1.8},
                        {{72, 72, 1}, {2.2}, 3, false, {72, 72, 1}, 1 / 2.2},
                        {{3, 2, 0}, {-1.0}, -1, true, {3, 2, 0}, 0.0}};
  for (const Case& c : cases) {
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
    EXPECT_NEAR(back.gamma, c.fileGamma, 1e-5) << "0: no gAMA";
    EXPECT_EQ(back.srgbIntent, c.srgb);
    EXPECT_EQ(back.iccName, c.icc ? "Test" : "");
    EXPECT_EQ(back.icc, c.icc ? IccProfile() : Bytes());
  }
}

}  // namespace
}  // namespace e2e
