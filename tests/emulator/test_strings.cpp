// Text conversions that must fail, the single-byte tables, and text without an encoding.
#include <optional>

#include "tests/emulator/HostFixture.h"

namespace {

using emutest::Entry;
using emutest::HostTest;
using namespace std::string_literals;

struct Conversion {
  const char* what;
  std::string bytes;
  uint32_t from;
  uint32_t to;
  std::optional<std::string> converted;
};

const Conversion kConversions[] = {
    {"euro sign to Windows Latin 1", "\xE2\x82\xAC", kREALTextEncodingUTF8,
     kREALTextEncodingWindowsLatin1, "\x80"},
    {"u umlaut to Mac Roman", "\xC3\xBC", kREALTextEncodingUTF8, kREALTextEncodingMacRoman, "\x9F"},
    {"u umlaut to ISO Latin 1", "\xC3\xBC", kREALTextEncodingUTF8, kREALTextEncodingISOLatin1,
     "\xFC"},
    {"Windows Latin 1 to UTF-16", "\x80", kREALTextEncodingWindowsLatin1, kREALTextEncodingUTF16,
     "\xAC\x20"},
    {"euro sign to ISO Latin 1", "\xE2\x82\xAC", kREALTextEncodingUTF8, kREALTextEncodingISOLatin1,
     std::nullopt},
    {"u umlaut to ASCII", "\xC3\xBC", kREALTextEncodingUTF8, kREALTextEncodingASCII, std::nullopt},
    {"broken UTF-8", "a\xFF", kREALTextEncodingUTF8, kREALTextEncodingUTF16, std::nullopt},
    {"cut-off UTF-8", "\xE2\x82", kREALTextEncodingUTF8, kREALTextEncodingUTF16, std::nullopt},
    {"bytes without an encoding", "\xFF\x00\x89"s, kREALTextEncodingUnknown, kREALTextEncodingUTF8,
     "\xFF\x00\x89"s},
    {"text to no encoding", "\xC3\xBC", kREALTextEncodingUTF8, kREALTextEncodingUnknown,
     "\xC3\xBC"},
};

TEST(Strings, ConvertOrFail) {
  for (const Conversion& c : kConversions) {
    EXPECT_EQ(emu::Host::ConvertBytes(c.bytes, c.from, c.to), c.converted) << c.what;
  }
}

TEST_F(HostTest, StringDataThatCannotBeConvertedOpensNoRecord) {
  auto getData = Entry<PluginGetStringDataProc>("PluginGetStringData");
  emu::Value text = host.MakeString("\xC3\xBC");
  REALstringData d;
  EXPECT_FALSE(getData(text.AsString(), kREALTextEncodingASCII, &d));
  EXPECT_EQ(d.data, nullptr);
  EXPECT_EQ(host.Audit().openStringData, 0u);
  EXPECT_EQ(
      Entry<REALConvertStringProc>("REALConvertString")(text.AsString(), kREALTextEncodingASCII),
      nullptr);

  emu::Value binary = host.MakeString("\xFF\x00\x89PNG"s, kREALTextEncodingUnknown);
  ASSERT_TRUE(getData(binary.AsString(), kREALTextEncodingUTF16, &d));
  EXPECT_EQ(std::string(static_cast<const char*>(d.data), d.length), binary.Bytes());
  Entry<PluginDisposeStringDataProc>("PluginDisposeStringData")(&d);
}

}  // namespace
