// Memory running out inside an encode or a decode: each outcome is the documented failure result
// or a correct success, with nothing leaked and every host reference given back.
#include <stdlib.h>
#include <string.h>

#include <functional>
#include <optional>

#include "tests/e2e/test_writer_helpers.h"
#ifndef __SANITIZE_ADDRESS__
#include "tests/e2e/oom/FailingAllocator.h"
#endif

namespace e2e {
namespace {

using samples::Bytes;

class OutOfMemory : public PluginTest {};

std::string Text(const Bytes& bytes) {
  return std::string(bytes.begin(), bytes.end());
}

#ifndef __SANITIZE_ADDRESS__

using Delivery = std::optional<Bytes>;  // none: the call reported failure

// 4 × 3 pixels, RGBA; the alphas go into the picture's mask.
const Bytes kPixels = {255, 0,  0,  255, 0,   255, 0,   255, 0,  0,  255, 255, 255, 255, 255, 255,
                       16,  32, 48, 0,   200, 100, 50,  128, 1,  2,  3,   254, 90,  80,  70,  64,
                       0,   0,  0,  255, 128, 128, 128, 255, 10, 20, 30,  1,   255, 0,   255, 200};

Bytes FromText(const std::string& text) {
  return Bytes(text.begin(), text.end());
}

emu::Value Picture(RBInteger width, RBInteger height, const Bytes& rgba) {
  emu::PictureOptions options;
  options.mask = emu::MaskSource::Alpha;
  return Host().MakePicture(width, height, Text(rgba), options);
}

Delivery StringResult(const emu::Value& string) {
  if (string.IsNil()) return std::nullopt;
  return FromText(string.Bytes());
}

// The picture through PNGWriterKRV into memory.
Delivery WriteThroughClass(const emu::Value& picture) {
  Writer w;
  const bool written = w.Ok("SetRGBPicture", {picture, Host().PictureMask(picture)}) &&
                       w.Ok("SetHeader") && w.Ok("SetGamma", {2.2}) &&
                       w.Ok("OpenWriteDestination", {kNil}) && w.Ok("WriteInfo") &&
                       w.Ok("WriteRows") && w.Ok("WriteEnd");
  const emu::Value png = w.Call("Finish");
  return written ? StringResult(png) : std::nullopt;
}

// The rows of `image` through a PNGWriterKRV that compresses on two threads.
Delivery WriteOnThreads(const samples::Image& image) {
  Writer w;
  w.Set("Threads", 2);
  w.Set("Width", image.width);
  w.Set("Type", image.colorType);
  const bool written = w.Ok("SetRows", {RowsArray(image.rows)}) && w.Ok("SetHeader") &&
                       w.Ok("OpenWriteDestination", {kNil}) && w.Ok("WriteInfo") &&
                       w.Ok("WriteRows") && w.Ok("WriteEnd");
  const emu::Value png = w.Call("Finish");
  return written ? StringResult(png) : std::nullopt;
}

Delivery WriteInOneCall(const emu::Value& picture) {
  return StringResult(
      Host().CallGlobal("PictureToPNGStringKRV", {picture, Host().PictureMask(picture), float(0)}));
}

// The picture's colours, then its mask.
Delivery ReadThroughClass(const Bytes& png) {
  Reader r;
  if (!r.OpenData(png) || !r.Ok("ApplyOptions") || !r.Ok("ReadPicture")) return std::nullopt;
  return FromText(Host().PictureRgba(Host().GetProperty(r.object, "Pict")) +
                  Host().PictureRgba(Host().GetProperty(r.object, "Mask")));
}

Delivery ReadInOneCall(const Bytes& png) {
  const emu::Value picture = Host().CallGlobal("PNGStringToPictureKRV", {Str(png)});
  if (picture.IsNil()) return std::nullopt;
  return FromText(Host().PictureRgba(picture));
}

// The plug-in's work under test, and how to see whether what it delivered is right.
struct Work {
  const char* name;
  std::function<Delivery()> run;
  std::function<Bytes(const Bytes&)> content;  // of a delivery, once memory is back
  Bytes expected;
};

Bytes Decoded(const Bytes& png) {
  return ReadWithLibpng(png).rgba;
}

Bytes AsIs(const Bytes& bytes) {
  return bytes;
}

// Runs `work` once to count the allocations of the plug-in, libpng and zlib, then once for each
// of them with that one failing; no run may leave a thread behind.
void FailEachAllocation(const Work& work) {
  SCOPED_TRACE(work.name);
  const Delivery fresh = work.run();  // also makes whatever the plug-in keeps for good
  ASSERT_TRUE(fresh);
  ASSERT_EQ(work.content(*fresh), work.expected);
  oom::Arm(0);
  ASSERT_TRUE(work.run());
  const uint64_t count = oom::Disarm();
  ASSERT_EQ(oom::Live(), 0u);
  const int threads = ThreadsRunning();
  size_t failures = 0;
  for (uint64_t i = 1; i <= count; ++i) {
    SCOPED_TRACE(::testing::Message() << "allocation " << i << " of " << count);
    oom::Arm(i);
    const Delivery delivered = work.run();
    oom::Disarm();
    EXPECT_EQ(oom::Live(), 0u) << "blocks left unfreed";
    EXPECT_EQ(ThreadsRunning(), threads);
    if (delivered) {
      EXPECT_EQ(work.content(*delivered), work.expected);
    } else {
      ++failures;
    }
    const emu::AuditReport report = Host().Audit();
    EXPECT_TRUE(report.Clean()) << report.Format();
    Host().ClearAuditErrors();
    Host().ClearLastException();
  }
  EXPECT_GT(failures, 0u);
}

TEST_F(OutOfMemory, AtEachAllocationOfAnEncode) {
  oom::Watch();
  // The picture is made for each run, so that the host's audit after it sees no object of ours.
  FailEachAllocation(
      {"PNGWriterKRV", [] { return WriteThroughClass(Picture(4, 3, kPixels)); }, Decoded, kPixels});
  FailEachAllocation({"PictureToPNGStringKRV",
                      [] { return WriteInOneCall(Picture(4, 3, kPixels)); }, Decoded, kPixels});
}

// Memory failing in the parallel encoder, on any of its threads or in the one that waits.
TEST_F(OutOfMemory, AtEachAllocationOfAnEncodeOnThreads) {
  oom::Watch();
  const samples::Image image = samples::Pattern(1000, 1000, 8, 0, false);
  FailEachAllocation({"Threads 2", [&image] { return WriteOnThreads(image); }, Decoded,
                      ReadWithLibpng(samples::Encode(image)).rgba});
}

TEST_F(OutOfMemory, AtEachAllocationOfADecode) {
  oom::Watch();
  const Bytes png = samples::Encode(samples::Pattern(5, 4, 8, 6, false));
  const Bytes rgba = ReadWithLibpng(png).rgba;
  Bytes colorsThenMask = Colours(rgba, false);
  const Bytes mask = MaskOf(rgba);
  colorsThenMask.insert(colorsThenMask.end(), mask.begin(), mask.end());
  FailEachAllocation({"PNGReaderKRV", [&] { return ReadThroughClass(png); }, AsIs, colorsThenMask});
  // Memory running out in the rows is not damage: the one-call decoders, which keep the picture
  // of damaged data as far as it decodes, give nil there instead of a blank picture.
  FailEachAllocation({"PNGStringToPictureKRV", [&] { return ReadInOneCall(png); }, AsIs, rgba});
}

#else

TEST_F(OutOfMemory, AtEachAllocation) {
  GTEST_SKIP() << "the sanitizer runtime owns malloc, so no allocation can be failed by count; "
                  "the normal build runs these";
}

#endif

// More than the memory destination's first 8 MiB of PNG data, with no memory to grow into: the
// encode fails, never delivering a stream with bytes missing.
TEST_F(OutOfMemory, TheMemoryDestinationCannotGrow) {
#ifdef __SANITIZE_ADDRESS__
  const char* options = getenv("ASAN_OPTIONS");
  if (options == nullptr || strstr(options, "max_allocation_size_mb=12") == nullptr) {
    GTEST_SKIP() << "needs ASAN_OPTIONS max_allocation_size_mb=12 (the oom test entry sets it)";
  }
#else
  oom::Watch();
  oom::Arm(0, size_t{12} << 20);
#endif
  constexpr RBInteger kSide = 1700;  // 8.7 MB of RGB that does not compress
  Bytes noise(kSide * kSide * 4);
  uint32_t seed = 1;
  for (uint8_t& byte : noise) {
    seed = seed * 1103515245 + 12345;
    byte = static_cast<uint8_t>(seed >> 16);
  }
  const emu::Value picture = Host().MakePicture(kSide, kSide, Text(noise));
  for (RBInteger threads : {1, 2}) {  // libpng's encoder and the parallel one
    SCOPED_TRACE(threads);
    Writer w;
    w.Set("Threads", threads);
    ASSERT_TRUE(w.Ok("SetRGBPicture", {picture, kNil}));
    ASSERT_TRUE(w.Ok("SetHeader", {false, RBInteger{-1}, RBInteger{0}}));
    ASSERT_TRUE(w.Ok("OpenWriteDestination", {kNil}));
    ASSERT_TRUE(w.Ok("WriteInfo"));
    EXPECT_FALSE(w.Ok("WriteRows"));
    EXPECT_FALSE(w.Ok("WriteEnd"));
    EXPECT_EQ(w.errors,
              std::vector<std::string>({"Out of memory for the PNG data.",
                                        "Writing the image failed; a new writer is needed."}));
  }
  EXPECT_TRUE(Host().CallGlobal("PictureToPNGStringKRV", {picture, kNil, float(0)}).IsNil());
#ifndef __SANITIZE_ADDRESS__
  oom::Disarm();
#endif
}

}  // namespace
}  // namespace e2e
