// Decode and encode cycles of assorted small images in one process: once warm, the allocator holds
// no more bytes than it did, no host object outlives its cycle and the audit stays clean. The
// number of cycles comes from PNGKRV_LONGRUN; without it the test skips, so that only its own
// CTest entry runs it.
#include <malloc.h>
#include <stdlib.h>

#ifdef __SANITIZE_ADDRESS__
// The sanitizer runtime's count (its header does not come with every compiler).
extern "C" size_t __sanitizer_get_current_allocated_bytes();
#endif

#include "tests/e2e/Fixture.h"

namespace e2e {
namespace {

using samples::Bytes;

// Bytes the allocator has handed out and not been given back.
size_t BytesInUse() {
#ifdef __SANITIZE_ADDRESS__
  return __sanitizer_get_current_allocated_bytes();
#else
  const struct mallinfo2 info = mallinfo2();
  return info.uordblks + info.hblkhd;
#endif
}

std::vector<Bytes> AssortedImages() {
  const struct {
    uint32_t width, height;
    int depth, type;
    bool interlaced;
  } kImages[] = {{16, 9, 8, 2, false}, {7, 13, 16, 6, true}, {12, 12, 4, 3, false},
                 {9, 5, 1, 0, true},   {5, 8, 8, 4, false},  {1, 1, 8, 6, false},
                 {31, 2, 2, 3, true},  {3, 17, 16, 0, false}};
  std::vector<Bytes> images;
  for (const auto& i : kImages) {
    samples::Image image = samples::Pattern(i.width, i.height, i.depth, i.type, i.interlaced);
    if (i.type == 3) image.transparency = {0, 128};
    images.push_back(samples::Encode(image));
  }
  return images;
}

// One cycle: the one-call decode, the picture and its mask encoded again, and the new stream
// decoded row by row. Returns the decoded rows' size, 0 when a step failed.
size_t Cycle(const Bytes& png) {
  const emu::Value decoded = Host().CallGlobal("PNGStringToPNGPictureKRV", {Str(png)});
  if (decoded.IsNil()) return 0;
  const emu::Value pict = Host().GetProperty(decoded, "Pict");
  const emu::Value mask = Host().GetProperty(decoded, "Mask");
  const emu::Value encoded = mask.IsNil()
                                 ? Host().CallGlobal("PictureToPNGStringKRV", {pict})
                                 : Host().CallGlobal("PictureToPNGStringKRV", {pict, mask});
  const std::string bytes = encoded.Bytes();
  Reader reader;
  return DecodeThroughRows(reader, Bytes(bytes.begin(), bytes.end()), -1.0).size();
}

class LongRun : public PluginTest {};

TEST_F(LongRun, MemoryStaysFlat) {
  const char* count = getenv("PNGKRV_LONGRUN");
  if (count == nullptr) GTEST_SKIP() << "run by the e2e.longrun test (PNGKRV_LONGRUN cycles)";
  const int cycles = atoi(count);
  // The emulator keeps its last 4096 dead objects to catch stale handles: about ten a cycle.
  const int warmUp = 1000;
  const std::vector<Bytes> images = AssortedImages();
  size_t warm = 0;
  for (int i = 0; i < cycles; ++i) {
    if (i == warmUp) warm = BytesInUse();
    ASSERT_GT(Cycle(images[i % images.size()]), 0u) << "cycle " << i;
    if (i % 1000 == 999) {
      const emu::AuditReport report = Host().Audit();
      ASSERT_TRUE(report.Clean()) << "cycle " << i << "\n" << report.Format();
    }
  }
  const size_t end = BytesInUse();
  EXPECT_LT(end, warm + 64 * 1024) << "grew from " << warm << " to " << end << " bytes";
}

}  // namespace
}  // namespace e2e
