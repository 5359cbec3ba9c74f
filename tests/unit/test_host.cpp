// Host text in every encoding and host version, and exceptions with their messages.
#include <gtest/gtest.h>

#include <functional>
#include <new>
#include <stdexcept>
#include <string>
#include <typeinfo>

#include "host/Exceptions.h"
#include "host/Text.h"
#include "tests/unit/HostResolver.h"

namespace {

class HostText : public unittest::HostTest {
 protected:
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

// Pure ASCII is tagged ASCII; UTF-16 and UTF-32 become UTF-8, on hosts before 2013 through
// UTF-16, where surrogates are dropped and code points past U+10FFFF replaced.
TEST_F(HostText, BuiltStringsAndTheirEncoding) {
  const char16_t text[] = u"gr\u00FC\u00DFe \U0001F600";
  const std::string utf16(reinterpret_cast<const char*>(text), sizeof text - 2);
  std::string long32, longUTF8;  // 800 bytes and more are converted on the heap
  for (int i = 0; i < 300; ++i) {
    long32 += UTF32({0x10348});
    longUTF8 += "\U00010348";
  }
  const struct {
    double version;
    std::string bytes;
    uint32_t encoding;
    std::string built;
    uint32_t builtEncoding;
  } kCases[] = {
      {2019.1, "plain", 0, "plain", kREALTextEncodingASCII},
      {2019.1, "plain", 0x201, "plain", kREALTextEncodingASCII},
      {2019.1, "plain", 0x500, "plain", kREALTextEncodingASCII},
      {2019.1, "plain", 0xFFFF, "plain", kREALTextEncodingASCII},
      {2019.1, "caf\xE9", 0, "caf\xE9", 0},
      {2019.1, "caf\xE9", 0x201, "caf\xE9", 0x201},
      {2019.1, "caf\xE9", 0x500, "caf\xE9", 0x500},
      {2019.1, "caf\xE9", 0xFFFF, "caf\xE9", 0xFFFF},
      {2019.1, "plain", kREALTextEncodingUTF8, "plain", kREALTextEncodingUTF8},
      {2019.1, utf16, kREALTextEncodingUTF16, "gr\u00FC\u00DFe \U0001F600", kREALTextEncodingUTF8},
      {2011.0, utf16, kREALTextEncodingUTF16, "gr\u00FC\u00DFe \U0001F600", kREALTextEncodingUTF8},
      {2012.0, UTF32({'a', 0x1F600, 0xD800, 0xDFFF, 0x10FFFF, 0x110000, 'z'}),
       kREALTextEncodingUTF32, "a\U0001F600\U0010FFFF\uFFFDz", kREALTextEncodingUTF8},
      {2012.0, long32, kREALTextEncodingUTF32, longUTF8, kREALTextEncodingUTF8},
      {2013.0, UTF32({'o', 'k', 0xE9}), kREALTextEncodingUTF32, "ok\u00E9", kREALTextEncodingUTF8},
  };
  for (const auto& c : kCases) {
    Use(c.version);
    emu::Value s = emu::Value::AdoptString(
        REALBuildUnicodeString(c.bytes.data(), static_cast<int64_t>(c.bytes.size()), c.encoding));
    EXPECT_EQ(s.Bytes(), c.built) << c.version << " " << c.encoding;
    EXPECT_EQ(s.Encoding(), c.builtEncoding) << c.version << " " << c.encoding << " " << c.built;
  }
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

// UTF-8 to Latin-1: what fits in one byte, and where a character lies beyond or the bytes are not
// UTF-8, nothing.
TEST(UTF8ToLatin1, OneByteACharacterOrNothing) {
  const std::pair<const char*, const char*> kCases[] = {
      {"", ""},
      {"plain ~", "plain ~"},
      {"\u00a0\u00e9\u00ff\u0080", "\xa0\xe9\xff\x80"},
      {"\u0100", nullptr},
      {"a\u20ac", nullptr},
      {"\xc1\xbf", nullptr},      // an overlong form of '?'
      {"\xc3", nullptr},          // cut short
      {"\xc3\xc3\xa9", nullptr},  // a lead byte where a continuation belongs
      {"\xe9", nullptr}};         // Latin-1 itself is no UTF-8
  for (const auto& [utf8, latin1] : kCases) {
    std::string out = "old";
    EXPECT_EQ(UTF8ToLatin1(utf8, &out), latin1 != nullptr) << utf8;
    if (latin1) {
      EXPECT_EQ(out, latin1) << utf8;
    }
  }
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
    unittest::BuildFault() = c.fault;
    EXPECT_EQ(REALBuildUnicodeString("text", 4, kREALTextEncodingUTF8), nullptr);
    ASSERT_TRUE(host().LastException());
    EXPECT_EQ(host().LastException()->className, c.className);
    EXPECT_EQ(host().LastException()->message, c.message);
    host().ClearLastException();
  }
}

}  // namespace
