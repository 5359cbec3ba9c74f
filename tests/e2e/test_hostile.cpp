// Hostile data, made here: streams cut at every byte, single bit flips, wrong CRCs, headers at
// and beyond every size limit, palette and transparency abuse, empty image data and CgBI data
// that lies about its lengths or inflates too far. Each case gives its documented result, leaves
// the audit clean and stays within a bounded peak of memory: nothing is allocated from a header
// before its bound check.
#include <zlib.h>

#include <fstream>

#include "tests/e2e/test_writer_helpers.h"

namespace e2e {
namespace {

using samples::Bytes;
using samples::Chunk;
using samples::MakeChunk;

// The heavy loops run on one host; the other profiles take the light cases.
bool HeavyProfile() {
  return FullServiceHost() && Desktop();
}

// How far the peak of resident memory rose above what was resident when the meter was made.
class PeakMeter {
 public:
  PeakMeter() {
    std::ofstream("/proc/self/clear_refs") << "5";  // the peak starts again from here
    base_ = PeakMiB();
  }
  long RiseMiB() const { return PeakMiB() - base_; }

 private:
  static long PeakMiB() {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line)) {
      if (line.rfind("VmHWM:", 0) == 0) return std::stol(line.substr(6)) / 1024;
    }
    return -1;
  }
  long base_;
};

Bytes BigEndian32(uint32_t v) {
  return {static_cast<uint8_t>(v >> 24), static_cast<uint8_t>(v >> 16),
          static_cast<uint8_t>(v >> 8), static_cast<uint8_t>(v)};
}

Chunk Header(uint32_t width, uint32_t height, int depth, int type, bool interlaced) {
  Bytes data = BigEndian32(width);
  const Bytes h = BigEndian32(height);
  data.insert(data.end(), h.begin(), h.end());
  data.insert(data.end(), {static_cast<uint8_t>(depth), static_cast<uint8_t>(type), 0, 0,
                           static_cast<uint8_t>(interlaced ? 1 : 0)});
  return MakeChunk("IHDR", data);
}

Chunk Compressed(const Bytes& raw) {
  Bytes packed(compressBound(raw.size()));
  uLongf size = packed.size();
  compress(packed.data(), &size, raw.data(), raw.size());
  packed.resize(size);
  return MakeChunk("IDAT", packed);
}

// IHDR, the chunks given, IEND.
Bytes Stream(const Chunk& header, std::vector<Chunk> chunks) {
  chunks.insert(chunks.begin(), header);
  chunks.push_back(MakeChunk("IEND", {}));
  return samples::JoinChunks(chunks);
}

// Where the image data starts (the first IDAT chunk) and ends (after the last one's CRC).
std::pair<size_t, size_t> ImageData(const Bytes& png) {
  size_t at = 8;
  size_t start = 0;
  size_t end = 0;
  for (const Chunk& c : samples::SplitChunks(png)) {
    if (c.type == "IDAT" && start == 0) start = at;
    at += 12 + c.data.size();
    if (c.type == "IDAT") end = at;
  }
  return {start, end};
}

// What the reader made of a stream: ApplyOptions, then ReadPicture.
struct Outcome {
  bool opened = false;
  bool applied = false;
  bool read = false;
  size_t errors = 0;
  size_t warnings = 0;
};

Outcome ReadThroughReader(const Bytes& png) {
  Outcome o;
  Reader reader;
  o.opened = reader.OpenData(png);
  o.applied = o.opened && reader.Ok("ApplyOptions");
  o.read = o.applied && reader.Ok("ReadPicture");
  if (o.read) {
    const emu::Value pict = Host().GetProperty(reader.object, "Pict");
    EXPECT_EQ(Host().GetProperty(pict, "Width").AsInteger(), reader.Int("Width"));
  }
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
  if (!HeavyProfile()) GTEST_SKIP() << "one profile runs the every-offset loops";
  const samples::Image images[] = {samples::Pattern(9, 7, 8, 2, false),
                                   samples::Pattern(5, 6, 16, 6, true),
                                   samples::Pattern(11, 3, 1, 0, true)};
  for (samples::Image image : images) {
    if (image.colorType == 0) image.chunks.gamma = 0.45455;
    const Bytes png = samples::Encode(image);
    const auto [dataStart, dataEnd] = ImageData(png);
    for (size_t cut = 0; cut < png.size(); ++cut) {
      SCOPED_TRACE(testing::Message() << image.colorType << " cut at " << cut);
      const Bytes part(png.begin(), png.begin() + cut);
      const Outcome o = ReadThroughReader(part);
      EXPECT_EQ(o.opened, cut >= 9);
      EXPECT_EQ(o.applied, cut >= dataStart + 8);
      EXPECT_EQ(o.read, cut >= dataEnd);
      EXPECT_EQ(o.errors, o.opened && !o.read ? 1u : 0u);
      const bool partial = !image.interlaced && o.applied;
      EXPECT_EQ(DecodesInOneCall(part), o.read || partial);
    }
  }
}

// A flipped bit anywhere either fails with an Error event or gives a picture of the header's
// size; the CRCs catch every flip in the header and the image data.
TEST_F(Hostile, SingleBitFlips) {
  if (!HeavyProfile()) GTEST_SKIP() << "one profile runs the every-bit loops";
  samples::Image image = samples::Pattern(6, 4, 8, 3, false);
  image.transparency = {0, 90, 255};
  const Bytes png = samples::Encode(image);
  const size_t dataEnd = ImageData(png).second;
  for (size_t bit = 0; bit < png.size() * 8; ++bit) {
    SCOPED_TRACE(testing::Message() << "bit " << bit);
    Bytes flipped = png;
    flipped[bit / 8] ^= static_cast<uint8_t>(1u << (bit % 8));
    const Outcome o = ReadThroughReader(flipped);
    EXPECT_TRUE(o.read || o.errors == 1u);
    EXPECT_TRUE(bit / 8 >= dataEnd || !o.read || o.errors + o.warnings > 0) << "unnoticed";
    DecodesInOneCall(flipped);
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
    bool applied;
    bool read;
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

// Headers at and past each limit, with a few bytes of image data: libpng refuses sizes of zero
// and beyond a million; the picture writer takes 32767 a side; a whole interlaced image must
// stay below 2^31 bytes. Nothing is allocated for what is refused.
TEST_F(Hostile, HeadersBeyondTheLimits) {
  const Chunk tiny = Compressed(Bytes(64, 0));
  const struct {
    uint32_t width;
    uint32_t height;
    int type;
    bool interlaced;
    bool applied;
    size_t errors;
  } kCases[] = {{0, 5, 2, false, false, 1},           {5, 0, 6, true, false, 1},
                {1000001, 1, 2, false, false, 1},     {1000000, 1000000, 6, false, true, 0},
                {1000000, 1000000, 2, true, true, 0}, {32767, 16385, 6, true, true, 0}};
  for (const auto& c : kCases) {
    SCOPED_TRACE(testing::Message() << c.width << " x " << c.height);
    const Bytes png = Stream(Header(c.width, c.height, 8, c.type, c.interlaced), {tiny});
    const PeakMeter peak;
    const Outcome o = ReadThroughReader(png);
    EXPECT_EQ(o.applied, c.applied);
    EXPECT_FALSE(o.read);
    EXPECT_EQ(o.errors, c.errors);
    EXPECT_FALSE(DecodesInOneCall(png));
    EXPECT_LT(peak.RiseMiB(), 64) << "memory taken for a refused image";
  }
  // The widest picture there is, decoded whole.
  const Bytes widest = samples::Encode(samples::Pattern(32767, 1, 8, 2, false));
  EXPECT_TRUE(ReadThroughReader(widest).read);
  EXPECT_TRUE(DecodesInOneCall(widest));
}

// A failed ApplyOptions leaves libpng with a header, or transformations, that RowBytes does not
// describe: rows are refused through the Error event rather than read past the block.
TEST_F(Hostile, RowsAfterAFailedSetUp) {
  const Bytes tooWide = Stream(Header(1000001, 1, 8, 2, false), {Compressed(Bytes(64, 0))});
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
  const Chunk header = Header(4, 1, 8, 3, false);
  const Chunk palette = MakeChunk("PLTE", {255, 0, 0, 0, 255, 0});
  const Chunk data = Compressed({0, 0, 1, 7, 255});
  {
    Reader reader;
    const Bytes rgba = DecodeThroughRows(reader, Stream(header, {palette, data}), -1.0);
    EXPECT_EQ(rgba, Bytes({255, 0, 0, 255, 0, 255, 0, 255, 0, 0, 0, 255, 0, 0, 0, 255}));
  }
  const Outcome longTRNS =
      ReadThroughReader(Stream(header, {palette, MakeChunk("tRNS", {0, 1, 2, 3}), data}));
  EXPECT_TRUE(longTRNS.read);
  EXPECT_EQ(longTRNS.warnings, 1u);
  const Chunk empty = MakeChunk("IDAT", {});
  EXPECT_TRUE(ReadThroughReader(Stream(header, {palette, empty, data})).read);
  const Outcome alone = ReadThroughReader(Stream(header, {palette, empty}));
  EXPECT_TRUE(alone.applied);
  EXPECT_FALSE(alone.read);
  EXPECT_EQ(alone.errors, 1u);
}

// CgBI data whose chunk lengths run past the end (up to 4 GiB) or that has no IEND within its
// 100 chunks fails before anything is allocated for it; more than 100 chunks are cut; a single
// IDAT that inflates past 10 MiB is cut short and still opens, while several whose running total
// passes it fail.
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
  EXPECT_FALSE(open(samples::CgBIStream(image, 1, 40, false))) << "no IEND";
  const std::vector<Chunk> chunks = samples::SplitChunks(good);
  size_t at = 8;  // the length field of the 50th chunk
  for (size_t i = 0; i < 50; ++i) at += 12 + chunks[i].data.size();
  const PeakMeter peak;
  for (uint32_t length : {0x7FFFFFFFu, 0xFFFFFFFFu, 0x1000u}) {
    Bytes lying = good;
    const Bytes field = BigEndian32(length);
    std::copy(field.begin(), field.end(), lying.begin() + static_cast<long>(at));
    EXPECT_FALSE(open(lying)) << length;
  }
  EXPECT_LT(peak.RiseMiB(), 64);
  if (!HeavyProfile()) return;
  const samples::Image large = samples::Pattern(1800, 1600, 8, 6, false);  // 11 MiB of rows
  const Bytes whole = samples::CgBIStream(large, 1, 100, false);
  const Bytes split = samples::CgBIStream(large, 2, 100, false);
  const PeakMeter inflating;
  EXPECT_TRUE(open(whole));
  EXPECT_FALSE(open(split));
  EXPECT_LT(inflating.RiseMiB(), 160) << "two 10 MiB buffers and the streams' own";
}

// Steps out of order that libpng would take on trust: writing before a destination is open, a
// header libpng refused, a new header once one is written, rows again after libpng failed inside
// them. Each is refused through the Error event, and the writer stays sound.
TEST_F(Hostile, WriterStepsOutOfOrder) {
  const emu::Value nil;
  const auto header = [](Writer& w, RBInteger width) {
    w.Set("Width", width);
    w.Set("Height", 1);
    w.Set("Type", 2);
  };
  {
    Writer w;
    header(w, 3);
    ASSERT_TRUE(w.Ok("SetHeader"));
    EXPECT_FALSE(w.Ok("WriteInfo"));
    ASSERT_TRUE(w.Ok("OpenWriteDestination", {nil}));
    EXPECT_TRUE(w.Ok("WriteInfo"));
    header(w, 1);
    EXPECT_FALSE(w.Ok("SetHeader"));
    w.Call("WriteRow", {Host().MemoryBlockFrom("RGBRGBRGB")});
    EXPECT_TRUE(w.Ok("WriteEnd"));
    EXPECT_EQ(ReadWithLibpng(w.Finish()).width, 3u);
    EXPECT_EQ(w.errors, std::vector<std::string>(
                            {"No destination is open.", "The header is written already."}));
  }
  {
    Writer w;
    header(w, 3);
    ASSERT_TRUE(w.Ok("SetHeader"));
    header(w, -1);
    EXPECT_FALSE(w.Ok("SetHeader"));
    ASSERT_TRUE(w.Ok("OpenWriteDestination", {nil}));
    EXPECT_FALSE(w.Ok("WriteInfo"));
    EXPECT_EQ(w.errors.back(), "The header was refused.");
    header(w, 3);
    EXPECT_TRUE(w.Ok("SetHeader"));
    EXPECT_TRUE(w.Ok("WriteInfo"));
  }
  {
    Writer w;
    header(w, 7);
    w.Set("Type", 3);
    ASSERT_TRUE(w.Ok("SetHeader"));
    ASSERT_TRUE(w.Ok("OpenWriteDestination", {nil}));
    EXPECT_FALSE(w.Ok("WriteInfo")) << "no palette: libpng fails after writing the header";
    header(w, 1);
    w.Set("Type", 0);
    EXPECT_FALSE(w.Ok("SetHeader")) << "rows of 7 bytes are what libpng will read";
    ASSERT_TRUE(w.Ok("SetRows", {RowsArray({Bytes(1)})}));
    EXPECT_FALSE(w.Ok("WriteRows"));
  }
  Writer w;
  header(w, 2);
  ASSERT_TRUE(w.Ok("SetHeader", {false, -1, 10}));  // a level zlib refuses at the first row
  ASSERT_TRUE(w.Ok("OpenWriteDestination", {nil}));
  ASSERT_TRUE(w.Ok("WriteInfo"));
  const emu::Value row = Host().MemoryBlockFrom("RGBRGB");
  w.Call("WriteRow", {row});
  w.Call("WriteRow", {row});
  ASSERT_EQ(w.errors.size(), 2u);
  EXPECT_EQ(w.errors[1], "Writing the image failed; a new writer is needed.");
}

}  // namespace
}  // namespace e2e
