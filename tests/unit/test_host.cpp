// The host runtime layer against the emulator's entry points: text in every encoding and host
// version, and exceptions with their messages.
#include <gtest/gtest.h>
#include <string.h>

#include <functional>
#include <new>
#include <stdexcept>
#include <string>
#include <typeinfo>

#include "emulator/Emulator.h"
#include "host/Exceptions.h"
#include "host/HostRuntime.h"
#include "host/Text.h"
#include "tests/unit/HostResolver.h"

namespace {

// ---------------------------------------------------------------------------------------------
// Text and exceptions, with the emulator as the host.
// ---------------------------------------------------------------------------------------------

class HostText : public ::testing::Test {
 protected:
  void SetUp() override { Use(2019.1); }
  void TearDown() override {
    const emu::AuditReport report = host().Audit();
    EXPECT_TRUE(report.Clean()) << report.Format();
    host().Shutdown();
    gResolver = nullptr;
    rbversion = 0.0;
  }
  // Restarts the host as one of the given version.
  void Use(double version) {
    emu::Profile profile;
    profile.name = "text-" + std::to_string(version);
    profile.version = version;
    if (host().Started()) host().Shutdown();
    host().Start(profile);
    gResolver = unittest::Resolver();
    rbversion = version;
  }
  static emu::Host& host() { return emu::Host::Instance(); }

  // The host string built from `bytes`, adopted so that it is given back.
  static emu::Value Build(const std::string& bytes, unsigned long encoding) {
    return emu::Value::AdoptString(
        REALBuildUnicodeString(bytes.data(), static_cast<int64_t>(bytes.size()), encoding));
  }
  static std::string UTF32(std::initializer_list<uint32_t> points) {
    std::string bytes;
    for (uint32_t c : points) bytes.append(reinterpret_cast<const char*>(&c), 4);
    return bytes;
  }
};

TEST_F(HostText, EmptyTextGivesNoString) {
  EXPECT_EQ(REALBuildUnicodeString("", 0, kREALTextEncodingUTF8), nullptr);
  EXPECT_EQ(REALBuildUnicodeString(nullptr, 4, kREALTextEncodingUTF8), nullptr);
  EXPECT_EQ(REALBuildUnicodeString("x", -1, kREALTextEncodingUTF8), nullptr);
  EXPECT_EQ(BuildASCIIString(nullptr), nullptr);
}

TEST_F(HostText, PureASCIIIsTaggedASCII) {
  for (uint32_t encoding : {0u, 0x201u, 0x500u, 0xFFFFu}) {
    emu::Value plain = Build("plain", encoding);
    EXPECT_EQ(plain.Encoding(), static_cast<uint32_t>(kREALTextEncodingASCII)) << encoding;
    emu::Value accented = Build("caf\xE9", encoding);
    EXPECT_EQ(accented.Encoding(), encoding);
    EXPECT_EQ(accented.Bytes(), "caf\xE9");
  }
  EXPECT_EQ(Build("plain", kREALTextEncodingUTF8).Encoding(),
            static_cast<uint32_t>(kREALTextEncodingUTF8));
}

TEST_F(HostText, UTF16BecomesUTF8OnEveryHost) {
  const char16_t text[] = u"gr\u00FC\u00DFe \U0001F600";
  const std::string bytes(reinterpret_cast<const char*>(text), sizeof text - 2);
  for (double version : {2019.1, 2011.0}) {
    Use(version);
    emu::Value s = Build(bytes, kREALTextEncodingUTF16);
    EXPECT_EQ(s.Encoding(), static_cast<uint32_t>(kREALTextEncodingUTF8)) << version;
    EXPECT_EQ(s.Bytes(), "gr\u00FC\u00DFe \U0001F600") << version;
  }
}

TEST_F(HostText, UTF32OnOldHostsGoesThroughUTF16) {
  Use(2012.0);
  EXPECT_EQ(Build(UTF32({'a', 0x1F600, 0xD800, 0x110000, 'z'}), kREALTextEncodingUTF32).Bytes(),
            "a\U0001F600\uFFFDz");
  // Texts of 800 bytes and more are converted on the heap.
  std::string long32;
  std::string expected;
  for (int i = 0; i < 300; ++i) {
    long32 += UTF32({0x10348});
    expected += "\U00010348";
  }
  EXPECT_EQ(Build(long32, kREALTextEncodingUTF32).Bytes(), expected);
  Use(2013.0);
  emu::Value modern = Build(UTF32({'o', 'k', 0xE9}), kREALTextEncodingUTF32);
  EXPECT_EQ(modern.Bytes(), "ok\u00E9");
  EXPECT_EQ(modern.Encoding(), static_cast<uint32_t>(kREALTextEncodingUTF8));
}

TEST_F(HostText, UTF32ToUTF16Units) {
  const uint32_t points[] = {0x41, 0xD800, 0xDFFF, 0x1F600, 0x10FFFF, 0x110000};
  uint16_t units[2 * 6 + 1];
  ASSERT_EQ(UTF32ToUTF16(reinterpret_cast<const unsigned char*>(points), 6, units), 6u);
  const uint16_t expected[] = {0x41, 0xD83D, 0xDE00, 0xDBFF, 0xDFFF, 0xFFFD, 0};
  EXPECT_EQ(memcmp(units, expected, sizeof expected), 0);
}

// rbText reads every encoding as UTF-8 through each host's own route: direct record reads for
// UTF-8 and ASCII before 2017.0, string data records from 2012.0, conversions before that.
TEST_F(HostText, GetUTF8OnEveryHost) {
  for (double version : {2019.1, 2016.0, 2013.0, 2011.0}) {
    Use(version);
    for (uint32_t encoding : {0x08000100u, 0x100u, 0x0C000100u, 0x201u, 0u, 0x500u}) {
      emu::Value s = host().MakeText("d\u00E9j\u00E0 vu", encoding);
      rbText text(s.AsString());
      EXPECT_STREQ(text.GetUTF8(), "d\u00E9j\u00E0 vu") << version << " " << encoding;
      EXPECT_EQ(text.Length(), 9) << version << " " << encoding;
      EXPECT_FALSE(text.Failed());
    }
    rbText none(nullptr);
    EXPECT_STREQ(none.GetUTF8(), "");
    emu::Value empty = host().MakeString("", kREALTextEncodingUTF8);
    rbText emptyText(empty.AsString());
    EXPECT_STREQ(emptyText.GetUTF8(), "");
  }
}

TEST_F(HostText, RawBytesHoldTheStringWithoutConversion) {
  for (double version : {2019.1, 2012.0}) {
    Use(version);
    const std::string binary("\x89PNG\0\xFF\x01", 7);
    emu::Value s = host().MakeString(binary, kREALTextEncodingUnknown);
    const long before = host().References(s.Handle());
    rbText* raw = rbText::MakeRaw(s.AsString());
    ASSERT_NE(raw, nullptr);
    EXPECT_GT(host().References(s.Handle()), before) << "the holder keeps its own lock";
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(raw->Bytes()), raw->Length()), binary);
    delete raw;
    EXPECT_EQ(host().References(s.Handle()), before);
  }
  EXPECT_EQ(rbText::MakeRaw(nullptr), nullptr);
}

TEST_F(HostText, ExceptionsCarryTheirMessage) {
  RaiseException("NilObjectException", "memoryblock is nil", kREALTextEncodingUTF8, 42);
  ASSERT_TRUE(host().LastException());
  EXPECT_EQ(host().LastException()->className, "NilObjectException");
  EXPECT_EQ(host().LastException()->message, "memoryblock is nil");
  EXPECT_EQ(host().LastException()->errorNumber, 0);

  RaiseException("NoSuchException", "gr\u00FC\u00DF", kREALTextEncodingASCII, 0);
  EXPECT_EQ(host().LastException()->className, "RuntimeException");
  EXPECT_EQ(host().LastException()->message, "gr\u00FC\u00DF") << "messages are taken as UTF-8";

  RaiseOutOfBoundsException(-1, 10);
  EXPECT_EQ(host().LastException()->className, "OutOfBoundsException");
  EXPECT_EQ(host().LastException()->message,
            "Parameter index  is too small. Range is 0 to 9, but value is -1.");
  RaiseOutOfBoundsException(12, 10);
  EXPECT_EQ(host().LastException()->message,
            "Parameter index  is too big. Range is 0 to 9, but value is 12.");
  host().ClearLastException();
}

// Exceptions thrown while a string is built come to user code as host exceptions, and no string
// comes back.
TEST_F(HostText, ExceptionsInsideTheBuilderBecomeHostExceptions) {
  const struct {
    std::function<void()> fault;
    const char* className;
    const char* message;
  } kCases[] = {
      {[] { throw std::bad_alloc(); }, "OutOfMemoryException", "Failed to allocate memory."},
      {[] { throw std::range_error("range"); }, "OutOfBoundsException", "range"},
      {[] { throw std::out_of_range("index"); }, "OutOfBoundsException", "index"},
      {[] { throw std::overflow_error("over"); }, "OutOfBoundsException", "over"},
      {[] { throw std::underflow_error("under"); }, "OutOfBoundsException", "under"},
      {[] { throw std::invalid_argument("argument"); }, "RuntimeException", "argument"},
      {[] { throw std::runtime_error("runtime"); }, "RuntimeException", "runtime"},
      {[] { throw std::bad_cast(); }, "IllegalCastException", "std::bad_cast"},
      {[] { throw std::bad_typeid(); }, "RuntimeException", "std::bad_typeid"},
      {[] { throw 42; }, "RuntimeException", "Sorry, but there was an unnamed C++ Exception."},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.message);
    unittest::ArmBuildFault(c.fault);
    EXPECT_EQ(REALBuildUnicodeString("text", 4, kREALTextEncodingUTF8), nullptr);
    ASSERT_TRUE(host().LastException());
    EXPECT_EQ(host().LastException()->className, c.className);
    EXPECT_EQ(host().LastException()->message, c.message);
    host().ClearLastException();
  }
}

}  // namespace
