// The memory a decode holds beyond the host's picture and mask, as the allocations of the plug-in,
// libpng and zlib count it: a row route holds rows, not the image; an interlaced image may take
// one buffer of the image's size.
#include <functional>

#include "tests/e2e/Fixture.h"
#include "tests/e2e/oom/FailingAllocator.h"

namespace e2e {
namespace {

using samples::Bytes;

class DecodeMemory : public PluginTest {};

constexpr uint32_t kSide = 2048;
constexpr size_t kPictureBytes = size_t{kSide} * kSide * 4;
constexpr size_t kMiB = size_t{1} << 20;

void ReadPicture(const Bytes& png) {
  Reader r;
  ASSERT_TRUE(r.OpenData(png) && r.Ok("ApplyOptions") && r.Ok("ReadPicture"));
}

void ReadEveryRow(const Bytes& png) {
  Reader r;
  ASSERT_TRUE(r.OpenData(png) && r.Ok("ApplyOptions"));
  const emu::Value block = Host().NewMemoryBlock(r.Call("RowBytes").AsInteger());
  for (uint32_t y = 0; y < kSide; ++y) {
    ASSERT_TRUE(r.Ok("ReadRow", {block}));
  }
}

void OpenInOneCall(const Bytes& png) {
  ASSERT_FALSE(Host().CallGlobal("PNGStringToPNGPictureKRV", {Str(png)}).IsNil());
}

TEST_F(DecodeMemory, RowsNotTheImageBeyondThePictures) {
  oom::Watch();
  const struct {
    int depth, colorType;
    bool interlaced;
  } kImages[] = {{8, 3, false}, {8, 6, false}, {1, 0, false}, {8, 3, true}, {8, 6, true}};
  const struct {
    const char* name;
    void (*run)(const Bytes&);
    bool interlaced;  // runs on interlaced images too
  } kRoutes[] = {{"PNGStringToPNGPictureKRV", OpenInOneCall, true},
                 {"ReadPicture", ReadPicture, true},
                 {"ReadRow", ReadEveryRow, false}};
  for (const auto& image : kImages) {
    const Bytes png = samples::Encode(
        samples::Pattern(kSide, kSide, image.depth, image.colorType, image.interlaced));
    // A tenth of the picture and a MiB; an interlaced image may add one image-sized buffer.
    const size_t bound = kPictureBytes / 10 + kMiB + (image.interlaced ? kPictureBytes : 0);
    for (const auto& route : kRoutes) {
      if (image.interlaced && !route.interlaced) continue;
      SCOPED_TRACE(::testing::Message()
                   << route.name << ", colour type " << image.colorType << " depth " << image.depth
                   << (image.interlaced ? " interlaced" : ""));
      oom::Arm(0);
      route.run(png);
      oom::Disarm();
      EXPECT_LE(oom::PeakBytes(), bound);
    }
  }
}

}  // namespace
}  // namespace e2e
