// Images without alpha into pictures: grey of every depth, RGB of 8 and 16 bits, plain and
// interlaced, with and without SwapRB, in every pixel format of the host, against libspng.
#include "tests/e2e/Fixture.h"

namespace e2e {
namespace {

using samples::Bytes;

// Colour type and bit depth of every source without alpha.
const std::vector<std::pair<int, int>> kSources = {{0, 1},  {0, 2}, {0, 4}, {0, 8},
                                                   {0, 16}, {2, 8}, {2, 16}};

class ReaderOpaque : public PluginTest {
 protected:
  void TearDown() override {
    if (Desktop()) Host().SetPictureFormat(2, 0);
    PluginTest::TearDown();
  }
};

TEST_F(ReaderOpaque, EverySourceInEveryFormat) {
  for (const PictureStorage& storage : PictureStorages()) {
    if (Desktop()) Host().SetPictureFormat(storage.alphaInfo, storage.padding);
    for (const auto& [colorType, depth] : kSources) {
      for (bool interlaced : {false, true}) {
        const Bytes png = samples::Encode(samples::Pattern(23, 9, depth, colorType, interlaced));
        uint32_t w = 0, h = 0;
        const Bytes expected = samples::DecodeRGBA(png, &w, &h);
        for (bool swap : {false, true}) {
          SCOPED_TRACE("format " + std::to_string(storage.format) + " padding " +
                       std::to_string(storage.padding) + ", colour type " +
                       std::to_string(colorType) + " depth " + std::to_string(depth) +
                       (interlaced ? " interlaced" : "") + (swap ? ", SwapRB" : ""));
          Reader reader;
          Host().SetProperty(reader.object, "SwapRB", swap);
          ASSERT_TRUE(reader.OpenData(png) && reader.Ok("ApplyOptions", {-1.0}) &&
                      reader.Ok("ReadPicture"));
          emu::Value picture = Host().GetProperty(reader.object, "Pict");
          EXPECT_EQ(Host().RawPicture(picture).format, storage.format);
          const std::string pict = Host().PictureRgba(picture);
          EXPECT_EQ(Bytes(pict.begin(), pict.end()), Colours(expected, swap));
          EXPECT_TRUE(Host().GetProperty(reader.object, "Mask").IsNil());
        }
      }
    }
  }
}

}  // namespace
}  // namespace e2e
