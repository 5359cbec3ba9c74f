// PixelLimit of PNGReaderKRV and PNGOpenPixelLimitKRV of the one-call openers: an image of more
// pixels than the limit gets no picture, before one is made; the rows stay readable.
#include "tests/e2e/Fixture.h"

namespace e2e {
namespace {

using samples::Bytes;
using Texts = std::vector<std::string>;

class PixelLimit : public PluginTest {
 protected:
  void TearDown() override {
    Host().CallGlobal("PNGOpenPixelLimitKRV", {RBInteger{1000000000}});
    PluginTest::TearDown();
  }
};

// Hosts before 2011r4 have no pictures with an alpha channel.
bool AlphaPictures() {
  return Profile().version >= 2011.04;
}

// A 4 x 3 image: 12 pixels.
const Bytes& Png() {
  static const Bytes png = samples::Encode(samples::Pattern(4, 3, 8, 6, false));
  return png;
}

TEST_F(PixelLimit, ReaderRefusesLargerImagesBeforeTheirPicture) {
  const struct {
    RBInteger limit;  // -2: the reader's own
    bool decoded;
    Texts errors;
  } kCases[] = {
      {-2, true, {}},
      {11, false, {"The image has 4 x 3 pixels, more than the PixelLimit of 11 allows."}},
      {12, true, {}},
      {0, true, {}},
      {-1, true, {}},
  };
  for (const char* method : {"ReadPicture", "ReadAlphaPicture"}) {
    if (method == std::string("ReadAlphaPicture") && !AlphaPictures()) continue;
    for (const auto& c : kCases) {
      SCOPED_TRACE(std::string(method) + " " + std::to_string(c.limit));
      Reader reader;
      if (c.limit == -2) {
        EXPECT_EQ(reader.Int("PixelLimit"), 1000000000);
      } else {
        Host().SetProperty(reader.object, "PixelLimit", c.limit);
      }
      ASSERT_TRUE(reader.OpenData(Png()) && reader.Ok("ApplyOptions"));
      EXPECT_EQ(reader.Ok(method), c.decoded);
      EXPECT_EQ(reader.errors, c.errors);
      EXPECT_EQ(Host().GetProperty(reader.object, "Pict").IsNil(), !c.decoded);
      // Refused, the image is still set up for its rows.
      if (!c.decoded) {
        EXPECT_TRUE(Host().GetProperty(reader.object, "Mask").IsNil());
        EXPECT_FALSE(reader.Call("ReadRow").IsNil());
      }
    }
  }
}

TEST_F(PixelLimit, EveryOneCallOpenerTakesTheModuleSetting) {
  EXPECT_EQ(Host().CallGlobal("PNGOpenPixelLimitKRV").AsInteger(), 1000000000);
  TempFile file(Png());
  const auto fromString = [](const char* opener) {
    return Host().CallGlobal(opener, {Str(Png())});
  };
  const auto fromFile = [&file](const char* opener) {
    return Host().Call(Host().MakeFolderItem(file.path), opener);
  };
  const std::pair<RBInteger, bool> kCases[] = {{11, false}, {12, true}, {0, true}, {-5, true}};
  for (const auto& [limit, decoded] : kCases) {
    SCOPED_TRACE(limit);
    Host().CallGlobal("PNGOpenPixelLimitKRV", {limit});
    EXPECT_EQ(Host().CallGlobal("PNGOpenPixelLimitKRV").AsInteger(), limit);
    for (const char* opener : {"PNGStringToPictureKRV", "PNGStringToPNGPictureKRV"}) {
      EXPECT_EQ(!fromString(opener).IsNil(), decoded) << opener;
    }
    EXPECT_EQ(!fromFile("OpenAsPNGKRV").IsNil(), decoded);
    if (!AlphaPictures()) continue;
    EXPECT_EQ(!fromString("PNGStringToAlphaPictureKRV").IsNil(), decoded);
    EXPECT_EQ(!fromFile("OpenAsAlphaPNGKRV").IsNil(), decoded);
  }
}

}  // namespace
}  // namespace e2e
