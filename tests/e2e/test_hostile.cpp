// Hostile data made here: cut streams, wrong CRCs, headers past the size limits, palette abuse,
// lying CgBI data and writer steps out of order. Each gives its own result, within bounded memory.
#include <zlib.h>

#include <fstream>

#include "tests/e2e/test_writer_helpers.h"

namespace e2e {
namespace {

using samples::Bytes;
using samples::Chunk;
using samples::MakeChunk;

// The peak of resident memory in MiB; `reset` starts the peak again from what is resident now.
long PeakMiB(bool reset = false) {
  if (reset) std::ofstream("/proc/self/clear_refs") << "5";
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line) && line.rfind("VmHWM:", 0) != 0) {
  }
  return line.empty() ? -1 : std::stol(line.substr(6)) / 1024;
}

Bytes BigEndian32(uint32_t v) {
  return {uint8_t(v >> 24), uint8_t(v >> 16), uint8_t(v >> 8), uint8_t(v)};
}

Chunk Compressed(const Bytes& raw) {
  Bytes packed(compressBound(raw.size()));
  uLongf size = packed.size();
  compress(packed.data(), &size, raw.data(), raw.size());
  packed.resize(size);
  return MakeChunk("IDAT", packed);
}

// IHDR (8-bit samples), the chunks given, IEND.
Bytes Stream(uint32_t width, uint32_t height, int type, bool interlaced,
             std::vector<Chunk> chunks) {
  Bytes header = BigEndian32(width);
  for (uint8_t b : BigEndian32(height)) header.push_back(b);
  header.insert(header.end(), {8, uint8_t(type), 0, 0, uint8_t(interlaced)});
  chunks.insert(chunks.begin(), MakeChunk("IHDR", header));
  chunks.push_back(MakeChunk("IEND", {}));
  return samples::JoinChunks(chunks);
}

// What the reader made of a stream: OpenData, ApplyOptions, then ReadPicture.
struct Outcome {
  bool opened = false, applied = false, read = false;
  size_t errors = 0, warnings = 0;
};

Outcome ReadThroughReader(const Bytes& png) {
  Outcome o;
  Reader reader;
  o.opened = reader.OpenData(png);
  o.applied = o.opened && reader.Ok("ApplyOptions");
  o.read = o.applied && reader.Ok("ReadPicture");
  o.errors = reader.errors.size();
  o.warnings = reader.warnings.size();
  EXPECT_FALSE(Host().LastException());
  return o;
}

bool DecodesInOneCall(const Bytes& png) {
  const emu::Value picture = Host().CallGlobal("PNGStringToPictureKRV", {Str(png)});
  EXPECT_FALSE(Host().LastException());
  return !picture.IsNil();
}

class Hostile : public PluginTest {};

// Cut after each byte, a stream opens from 9 bytes on, sets up once the first IDAT's chunk header
// is in, and decodes whole only with all of its image data; the one-call decode keeps what a
// plain image gave before the cut.
TEST_F(Hostile, TruncatedAtEveryOffset) {
  if (!FullServiceHost() || !Desktop()) GTEST_SKIP() << "one profile runs the every-offset loop";
  samples::Image grey = samples::Pattern(11, 3, 1, 0, true);
  grey.chunks.gamma = 0.45455;
  for (const samples::Image& image :
       {samples::Pattern(9, 7, 8, 2, false), samples::Pattern(5, 6, 16, 6, true), grey}) {
    const Bytes png = samples::Encode(image);
    size_t at = 8, dataStart = 0, dataEnd = 0;  // the first IDAT; past the last IDAT's CRC
    for (const Chunk& c : samples::SplitChunks(png)) {
      if (c.type == "IDAT" && dataStart == 0) dataStart = at;
      at += 12 + c.data.size();
      if (c.type == "IDAT") dataEnd = at;
    }
    for (size_t cut = 0; cut < png.size(); ++cut) {
      SCOPED_TRACE(testing::Message() << image.colorType << " cut at " << cut);
      const Bytes part(png.begin(), png.begin() + cut);
      const Outcome o = ReadThroughReader(part);
      EXPECT_EQ(o.opened, cut >= 9);
      EXPECT_EQ(o.applied, cut >= dataStart + 8);
      EXPECT_EQ(o.read, cut >= dataEnd);
      EXPECT_EQ(o.errors, o.opened && !o.read ? 1u : 0u);
      EXPECT_EQ(DecodesInOneCall(part), o.read || (!image.interlaced && o.applied));
    }
  }
}

// A wrong CRC is an error in a critical chunk and a warning in an ancillary one; IEND is never
// read by a decode.
TEST_F(Hostile, WrongCRCs) {
  samples::Image image = samples::Pattern(4, 4, 8, 3, false);
  image.chunks.gamma = 0.5;
  const std::vector<Chunk> chunks = samples::SplitChunks(samples::Encode(image));
  const struct {
    const char* type;
    bool applied, read;
    size_t warnings;
  } kCases[] = {{"IHDR", false, false, 0},
                {"gAMA", true, true, 1},
                {"PLTE", false, false, 0},
                {"IDAT", true, false, 0},
                {"IEND", true, true, 0}};
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.type);
    std::vector<Chunk> bad = chunks;
    for (Chunk& chunk : bad) chunk.crc ^= chunk.type == c.type ? 0x10000u : 0u;
    const Outcome o = ReadThroughReader(samples::JoinChunks(bad));
    EXPECT_EQ(o.applied, c.applied);
    EXPECT_EQ(o.read, c.read);
    EXPECT_EQ(o.errors, c.read ? 0u : 1u);
    EXPECT_EQ(o.warnings, c.warnings);
  }
}

// libpng refuses sides of zero and past a million; the picture writer takes 32767 a side; a
// whole interlaced image must stay below 2^31 bytes. Nothing is allocated for what is refused.
TEST_F(Hostile, HeadersBeyondTheLimits) {
  const Chunk tiny = Compressed(Bytes(64, 0));
  const struct {
    uint32_t width, height;
    int type;
    bool interlaced, applied;
  } kCases[] = {{0, 5, 2, false, false},           {5, 0, 6, true, false},
                {1000001, 1, 2, false, false},     {1000000, 1000000, 6, false, true},
                {1000000, 1000000, 2, true, true}, {32767, 16385, 6, true, true}};
  for (const auto& c : kCases) {
    SCOPED_TRACE(testing::Message() << c.width << " x " << c.height);
    const Bytes png = Stream(c.width, c.height, c.type, c.interlaced, {tiny});
    const long base = PeakMiB(true);
    const Outcome o = ReadThroughReader(png);
    EXPECT_EQ(o.applied, c.applied);
    EXPECT_FALSE(o.read);
    EXPECT_EQ(o.errors, c.applied ? 0u : 1u);
    EXPECT_FALSE(DecodesInOneCall(png));
    EXPECT_LT(PeakMiB() - base, 64) << "memory taken for a refused image";
  }
  const Bytes widest = samples::Encode(samples::Pattern(32767, 1, 8, 2, false));
  EXPECT_TRUE(ReadThroughReader(widest).read);
  EXPECT_TRUE(DecodesInOneCall(widest));
}

// After a failed ApplyOptions, RowBytes does not describe what libpng would write: rows are
// refused through the Error event rather than read past the block.
TEST_F(Hostile, RowsAfterAFailedSetUp) {
  const Bytes tooWide = Stream(1000001, 1, 2, false, {Compressed(Bytes(64, 0))});
  const Bytes grey = samples::Encode(samples::Pattern(64, 2, 1, 0, false));
  for (const auto& [png, gamma] : {std::pair{tooWide, 0.0}, std::pair{grey, 1e-300}}) {
    Reader reader;
    ASSERT_TRUE(reader.OpenData(png));
    EXPECT_FALSE(reader.Ok("ApplyOptions", {gamma}));
    const emu::Value block = Host().NewMemoryBlock(8);
    EXPECT_FALSE(reader.Ok("ReadRow", {block}));
    EXPECT_FALSE(reader.Ok("ReadRowMaskOnly", {block}));
    EXPECT_TRUE(reader.Call("ReadRow").IsNil());
    EXPECT_FALSE(reader.Ok("ReadPicture"));
    ASSERT_EQ(reader.errors.size(), 4u) << "ApplyOptions, then each row read";
    EXPECT_EQ(reader.errors[3], "ApplyOptions has not set the reader up.");
  }
}

// Indices past the palette decode as black; a tRNS longer than the palette is dropped with a
// warning; an empty IDAT is skipped, and alone it is not enough image data.
TEST_F(Hostile, PaletteTransparencyAndEmptyImageData) {
  const Chunk palette = MakeChunk("PLTE", {255, 0, 0, 0, 255, 0});
  const Chunk data = Compressed({0, 0, 1, 7, 255});
  const Chunk empty = MakeChunk("IDAT", {});
  Reader reader;
  EXPECT_EQ(DecodeThroughRows(reader, Stream(4, 1, 3, false, {palette, data}), -1.0),
            Bytes({255, 0, 0, 255, 0, 255, 0, 255, 0, 0, 0, 255, 0, 0, 0, 255}));
  const Outcome longTRNS =
      ReadThroughReader(Stream(4, 1, 3, false, {palette, MakeChunk("tRNS", {0, 1, 2, 3}), data}));
  EXPECT_TRUE(longTRNS.read);
  EXPECT_EQ(longTRNS.warnings, 1u);
  EXPECT_TRUE(ReadThroughReader(Stream(4, 1, 3, false, {palette, empty, data})).read);
  const Outcome alone = ReadThroughReader(Stream(4, 1, 3, false, {palette, empty}));
  EXPECT_TRUE(alone.applied && !alone.read);
  EXPECT_EQ(alone.errors, 1u);
}

// CgBI data whose chunk lengths run past the end (up to 4 GiB) fails before anything is allocated
// for it; a single IDAT that inflates past 10 MiB is cut short and still opens, while several
// whose running total passes it fail.
TEST_F(Hostile, CgBIThatLies) {
  const samples::Image image = samples::Pattern(8, 8, 8, 6, false);
  const Bytes good = samples::CgBIStream(image, 1, 101, false);
  const auto open = [](const Bytes& data) {
    Reader reader;
    const bool opened = reader.Ok("OpenSpecialData", {Str(data)});
    EXPECT_TRUE(reader.errors.empty());
    EXPECT_FALSE(Host().LastException());
    return opened;
  };
  EXPECT_TRUE(open(good));
  const std::vector<Chunk> chunks = samples::SplitChunks(good);
  size_t at = 8;  // the length field of the 50th chunk
  for (size_t i = 0; i < 50; ++i) at += 12 + chunks[i].data.size();
  const long base = PeakMiB(true);
  for (uint32_t length : {0x7FFFFFFFu, 0xFFFFFFFFu, 0x1000u}) {
    Bytes lying = good;
    const Bytes field = BigEndian32(length);
    std::copy(field.begin(), field.end(), lying.begin() + static_cast<long>(at));
    EXPECT_FALSE(open(lying)) << length;
  }
  EXPECT_LT(PeakMiB() - base, 64);
  if (!FullServiceHost() || !Desktop()) return;
  const samples::Image large = samples::Pattern(1800, 1600, 8, 6, false);  // 11 MiB of rows
  const long before = PeakMiB(true);
  EXPECT_TRUE(open(samples::CgBIStream(large, 1, 100, false)));
  EXPECT_FALSE(open(samples::CgBIStream(large, 2, 100, false)));
  EXPECT_LT(PeakMiB() - before, 160) << "two 10 MiB buffers and the streams' own";
}

// Steps out of order that libpng would take on trust are refused through the Error event, and
// the writer stays sound.
TEST_F(Hostile, WriterStepsOutOfOrder) {
  const auto header = [](Writer& w, RBInteger width, RBInteger type = 2, RBInteger level = -1) {
    w.Set("Width", width);
    w.Set("Height", 1);
    w.Set("Type", type);
    return w.Ok("SetHeader", {false, -1, level});
  };
  {
    Writer w;
    ASSERT_TRUE(header(w, 3));
    EXPECT_FALSE(w.Ok("WriteInfo"));
    ASSERT_TRUE(w.Ok("OpenWriteDestination", {kNil}));
    EXPECT_TRUE(w.Ok("WriteInfo"));
    EXPECT_FALSE(header(w, 1));
    w.Call("WriteRow", {Host().MemoryBlockFrom("RGBRGBRGB")});
    EXPECT_TRUE(w.Ok("WriteEnd"));
    EXPECT_EQ(ReadWithLibpng(w.Finish()).width, 3u);
    EXPECT_EQ(w.errors, std::vector<std::string>(
                            {"No destination is open.", "The header is written already."}));
  }
  {
    Writer w;
    ASSERT_TRUE(header(w, 3));
    EXPECT_FALSE(header(w, -1));
    ASSERT_TRUE(w.Ok("OpenWriteDestination", {kNil}));
    EXPECT_FALSE(w.Ok("WriteInfo"));
    EXPECT_EQ(w.errors.back(), "The header was refused.");
    EXPECT_TRUE(header(w, 3));
    EXPECT_TRUE(w.Ok("WriteInfo"));
  }
  {
    Writer w;
    ASSERT_TRUE(header(w, 7, 3));
    ASSERT_TRUE(w.Ok("OpenWriteDestination", {kNil}));
    EXPECT_FALSE(w.Ok("WriteInfo")) << "no palette: libpng fails after writing the header";
    EXPECT_FALSE(header(w, 1, 0)) << "rows of 7 bytes are what libpng will read";
    ASSERT_TRUE(w.Ok("SetRows", {RowsArray({Bytes(1)})}));
    EXPECT_FALSE(w.Ok("WriteRows"));
  }
  Writer w;
  ASSERT_TRUE(header(w, 2, 2, 10));  // a level zlib refuses at the first row
  ASSERT_TRUE(w.Ok("OpenWriteDestination", {kNil}));
  ASSERT_TRUE(w.Ok("WriteInfo"));
  const emu::Value row = Host().MemoryBlockFrom("RGBRGB");
  w.Call("WriteRow", {row});
  w.Call("WriteRow", {row});
  ASSERT_EQ(w.errors.size(), 2u);
  EXPECT_EQ(w.errors[1], "Writing the image failed; a new writer is needed.");
}

}  // namespace
}  // namespace e2e
