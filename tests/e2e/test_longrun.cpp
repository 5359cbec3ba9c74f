// Decode and encode cycles in one process: once warm, the allocator holds no more bytes and the
// audit stays clean. Runs only with PNGKRV_LONGRUN (the cycle count), as its own CTest entry.
#include <malloc.h>
#include <stdlib.h>

#include <tuple>

#ifdef __SANITIZE_ADDRESS__
extern "C" size_t __sanitizer_get_current_allocated_bytes();  // not in every compiler's headers
#endif

#include "tests/e2e/Fixture.h"

namespace e2e {
namespace {

using samples::Bytes;

// Bytes the allocator has handed out and not been given back.
size_t BytesInUse() {
#if defined(__SANITIZE_ADDRESS__)
  return __sanitizer_get_current_allocated_bytes();
#elif defined(_WIN32)
  _HEAPINFO entry{};
  size_t used = 0;
  while (_heapwalk(&entry) == _HEAPOK) {
    if (entry._useflag == _USEDENTRY) used += entry._size;
  }
  return used;
#else
  const struct mallinfo2 info = mallinfo2();
  return info.uordblks + info.hblkhd;
#endif
}

class LongRun : public PluginTest {};

TEST_F(LongRun, MemoryStaysFlat) {
  const char* count = getenv("PNGKRV_LONGRUN");
  if (count == nullptr) GTEST_SKIP() << "run by the e2e.longrun test (PNGKRV_LONGRUN cycles)";
  const std::tuple<uint32_t, uint32_t, int, int, bool> kImages[] = {
      {16, 9, 8, 2, false}, {7, 13, 16, 6, true}, {12, 12, 4, 3, false}, {9, 5, 1, 0, true},
      {5, 8, 8, 4, false},  {1, 1, 8, 6, false},  {31, 2, 2, 3, true},   {3, 17, 16, 0, false}};
  std::vector<Bytes> images;
  for (const auto& [width, height, depth, type, interlaced] : kImages) {
    samples::Image image = samples::Pattern(width, height, depth, type, interlaced);
    if (type == 3) image.transparency = {0, 128};
    images.push_back(samples::Encode(image));
  }
  size_t warm = 0;
  for (int i = 0; i < atoi(count); ++i) {
    // The emulator keeps its last 4096 dead objects to catch stale handles: about ten a cycle.
    if (i == 1000) warm = BytesInUse();
    if (i % 1000 == 0) {  // the last cycle's objects are gone
      const emu::AuditReport report = Host().Audit();
      ASSERT_TRUE(report.Clean()) << "cycle " << i << "\n" << report.Format();
    }
    // A cycle: the one-call decode, the picture and its mask encoded again, decoded as rows.
    const emu::Value decoded =
        Host().CallGlobal("PNGStringToPNGPictureKRV", {Str(images[i % images.size()])});
    ASSERT_FALSE(decoded.IsNil()) << "cycle " << i;
    std::vector<emu::Arg> args = {Host().GetProperty(decoded, "Pict")};
    const emu::Value mask = Host().GetProperty(decoded, "Mask");
    if (!mask.IsNil()) args.push_back(mask);
    const std::string encoded = Host().CallGlobal("PictureToPNGStringKRV", args).Bytes();
    Reader reader;
    ASSERT_FALSE(DecodeThroughRows(reader, Bytes(encoded.begin(), encoded.end()), -1.0).empty())
        << "cycle " << i;
  }
  EXPECT_LT(BytesInUse(), warm + 64 * 1024) << "grew from " << warm << " bytes";
}

}  // namespace
}  // namespace e2e
