// PixelLimit of PNGReaderKRV and PNGOpenPixelLimitKRV of the one-call openers: an image of more
// pixels than the limit gets no picture, before one is made; the rows stay readable.
#include "tests/e2e/Fixture.h"

namespace e2e {
namespace {

using samples::Bytes;
using Texts = std::vector<std::string>;

class PixelLimit : public PluginTest {};

// A 4 x 3 image: 12 pixels.
const Bytes& Png() {
  static const Bytes png = samples::Encode(samples::Pattern(4, 3, 8, 6, false));
  return png;
}

TEST_F(PixelLimit, ReaderRefusesLargerImagesBeforeTheirPicture) {
  const struct {
    RBInteger limit;  // none: the reader's own
    bool decoded;
    Texts errors;
  } kCases[] = {
      {-2, true, {}},
      {11, false, {"The image has 4 x 3 pixels, more than the PixelLimit of 11 allows."}},
      {12, true, {}},
      {0, true, {}},
      {-1, true, {}},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.limit);
    Reader reader;
    if (c.limit == -2) {
      EXPECT_EQ(reader.Int("PixelLimit"), 1000000000);
    } else {
      Host().SetProperty(reader.object, "PixelLimit", c.limit);
    }
    ASSERT_TRUE(reader.OpenData(Png()) && reader.Ok("ApplyOptions"));
    EXPECT_EQ(reader.Ok("ReadPicture"), c.decoded);
    EXPECT_EQ(reader.errors, c.errors);
    EXPECT_EQ(Host().GetProperty(reader.object, "Pict").IsNil(), !c.decoded);
    EXPECT_EQ(Host().GetProperty(reader.object, "Mask").IsNil(), !c.decoded);
    // Refused, the image is still set up for its rows.
    if (!c.decoded) {
      EXPECT_FALSE(reader.Call("ReadRow").IsNil());
    }
  }
}

TEST_F(PixelLimit, OneCallOpenersTakeTheModuleSetting) {
  EXPECT_EQ(Host().CallGlobal("PNGOpenPixelLimitKRV").AsInteger(), 1000000000);
  const std::pair<RBInteger, bool> kCases[] = {{11, false}, {12, true}, {0, true}};
  for (const auto& [limit, decoded] : kCases) {
    SCOPED_TRACE(limit);
    Host().CallGlobal("PNGOpenPixelLimitKRV", {limit});
    EXPECT_EQ(Host().CallGlobal("PNGOpenPixelLimitKRV").AsInteger(), limit);
    EXPECT_EQ(!Host().CallGlobal("PNGStringToPictureKRV", {Str(Png())}).IsNil(), decoded);
    EXPECT_EQ(!Host().CallGlobal("PNGStringToPNGPictureKRV", {Str(Png())}).IsNil(), decoded);
  }
  Host().CallGlobal("PNGOpenPixelLimitKRV", {RBInteger{1000000000}});
}

}  // namespace
}  // namespace e2e
