// Hostile data made here: headers past the size limits, lying CgBI data, steps out of order.
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

// A 1x1 image of 8-bit samples whose header claims another size.
Bytes Claiming(uint32_t width, uint32_t height, int type, bool interlaced) {
  std::vector<Chunk> chunks =
      samples::SplitChunks(samples::Encode(samples::Pattern(1, 1, 8, type, interlaced)));
  Bytes header = BigEndian32(width);
  for (uint8_t b : BigEndian32(height)) header.push_back(b);
  header.insert(header.end(), chunks[0].data.begin() + 8, chunks[0].data.end());
  chunks[0] = MakeChunk("IHDR", header);
  return samples::JoinChunks(chunks);
}

// What the reader made of a stream: OpenData and ApplyOptions, then ReadPicture.
struct Outcome {
  bool applied = false, read = false;
  size_t errors = 0;
};

// With no PixelLimit, so that the host's own limits are what refuses.
Outcome ReadThroughReader(const Bytes& png) {
  Outcome o;
  Reader reader;
  Host().SetProperty(reader.object, "PixelLimit", RBInteger{0});
  o.applied = reader.OpenData(png) && reader.Ok("ApplyOptions");
  o.read = o.applied && reader.Ok("ReadPicture");
  o.errors = reader.errors.size();
  EXPECT_FALSE(Host().LastException());
  return o;
}

bool DecodesInOneCall(const Bytes& png) {
  const emu::Value picture = Host().CallGlobal("PNGStringToPictureKRV", {Str(png)});
  EXPECT_FALSE(Host().LastException());
  return !picture.IsNil();
}

class Hostile : public PluginTest {};

// A whole interlaced image must stay below 2^31 bytes and the picture writer takes 32767 a side:
// past that the set-up holds but nothing is decoded, and nothing is allocated for it, even with
// no PixelLimit.
TEST_F(Hostile, HeadersBeyondTheLimits) {
  Host().CallGlobal("PNGOpenPixelLimitKRV", {RBInteger{0}});
  const struct {
    uint32_t width, height;
    int type;
    bool interlaced;
  } kCases[] = {{1000000, 1000000, 6, false}, {1000000, 1000000, 2, true}, {32767, 16385, 6, true}};
  for (const auto& c : kCases) {
    SCOPED_TRACE(testing::Message() << c.width << " x " << c.height);
    const Bytes png = Claiming(c.width, c.height, c.type, c.interlaced);
    const long base = PeakMiB(true);
    const Outcome o = ReadThroughReader(png);
    EXPECT_TRUE(o.applied);
    EXPECT_FALSE(o.read);
    EXPECT_EQ(o.errors, 0u);
    EXPECT_FALSE(DecodesInOneCall(png));
    EXPECT_LT(PeakMiB() - base, 64) << "memory taken for a refused image";
  }
  const Bytes widest = samples::Encode(samples::Pattern(32767, 1, 8, 2, false));
  EXPECT_TRUE(ReadThroughReader(widest).read);
  EXPECT_TRUE(DecodesInOneCall(widest));
  Host().CallGlobal("PNGOpenPixelLimitKRV", {RBInteger{1000000000}});
}

// After a failed ApplyOptions, RowBytes does not describe what libpng would write: rows are
// refused through the Error event rather than read past the block.
TEST_F(Hostile, RowsAfterAFailedSetUp) {
  const Bytes tooWide = Claiming(1000001, 1, 2, false);
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
    EXPECT_EQ(reader.errors[3], "ApplyOptions has not set the reader up; call it first.");
  }
}

// Chunk lengths past the end fail before any allocation; one IDAT inflating past 10 MiB is cut
// short and opens, several whose running total passes it fail.
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

// Steps out of order that libpng would take on trust are refused through the Error event.
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
