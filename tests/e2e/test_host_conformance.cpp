// The plug-in as a real host meets it: class data found at the offset the host wrote into the class
// definition, events named by the host's words; the fixture checks no unreal entry point is asked.
#include "tests/e2e/Fixture.h"
#include "tests/e2e/test_writer_helpers.h"

namespace e2e {
namespace {

class HostConformance : public PluginTest {};

// Two readers and a writer alive at once: each handler finds its own instance's data.
TEST_F(HostConformance, EveryClassFindsItsOwnInstanceData) {
  Reader wide, tall;
  Writer writer;
  ASSERT_TRUE(wide.OpenData(samples::Encode(samples::Pattern(30, 2, 8, 2, false))));
  ASSERT_TRUE(tall.OpenData(samples::Encode(samples::Pattern(2, 30, 8, 2, false))));
  writer.Set("Width", 7);
  ASSERT_TRUE(wide.Ok("ApplyOptions"));
  ASSERT_TRUE(tall.Ok("ApplyOptions"));
  EXPECT_EQ(wide.Call("RowBytes").AsInteger(), 120);
  EXPECT_EQ(tall.Call("RowBytes").AsInteger(), 8);
  EXPECT_EQ(writer.Int("Width"), 7);
  emu::Value picture = Host().CallGlobal(
      "PNGStringToPNGPictureKRV", {Str(samples::Encode(samples::Pattern(3, 4, 8, 6, false)))});
  ASSERT_FALSE(picture.IsNil());
  EXPECT_FALSE(Host().GetProperty(picture, "Mask").IsNil());
}

// libpng's own messages reach the Error and Warning events of both classes as ASCII strings.
TEST_F(HostConformance, EventsCarryLibpngsMessagesInASCII) {
  std::vector<std::string> events;
  const auto record = [&](const emu::EventArgs& a) {
    const bool ascii = a[0].Encoding() == kREALTextEncodingASCII;
    events.push_back(a.Event() + ": " + a.String(0) + (ascii ? "" : " (not ASCII)"));
  };
  const emu::EventHandlers handlers = {{"Error", record}, {"Warning", record}};
  samples::Image image = samples::Pattern(4, 4, 8, 2, false);
  image.chunks.gamma = 0.5;
  std::vector<samples::Chunk> chunks = samples::SplitChunks(samples::Encode(image));
  chunks[1].crc ^= 1;  // the gAMA chunk
  emu::Value reader = Host().New("PNGReaderKRV", handlers);
  ASSERT_TRUE(Host().Call(reader, "OpenData", {Str(samples::JoinChunks(chunks))}).AsBoolean());
  ASSERT_TRUE(Host().Call(reader, "ApplyOptions").AsBoolean());
  ASSERT_TRUE(Host().Call(reader, "OpenData", {Str(samples::Bytes(20, 'x'))}).AsBoolean());
  EXPECT_FALSE(Host().Call(reader, "ApplyOptions").AsBoolean());
  emu::Value writer = Host().New("PNGWriterKRV", handlers);
  ASSERT_TRUE(Host().Call(writer, "OpenWriteDestination", {kNil}).AsBoolean());
  EXPECT_FALSE(Host().Call(writer, "WriteInfo").AsBoolean()) << "no header";
  emu::Value second = Host().New("PNGWriterKRV", handlers);
  for (const char* property : {"Width", "Height", "Type"}) {
    Host().SetProperty(second, property, RBInteger{2});
  }
  ASSERT_TRUE(Host().Call(second, "SetHeader").AsBoolean());
  ASSERT_TRUE(Host().Call(second, "SetResolution", {1, 1, 5}).AsBoolean());
  ASSERT_TRUE(Host().Call(second, "OpenWriteDestination", {kNil}).AsBoolean());
  ASSERT_TRUE(Host().Call(second, "WriteInfo").AsBoolean()) << "an unknown unit: a warning";
  const std::vector<std::string> expected = {"Warning: gAMA: CRC error", "Error: Not a PNG file",
                                             "Error: Invalid bit depth for grayscale image",
                                             "Warning: Unrecognized unit type for pHYs chunk"};
  EXPECT_EQ(events,
            !Profile().withheld.count("GetEventInstance") ? expected : std::vector<std::string>{});
}

}  // namespace
}  // namespace e2e
