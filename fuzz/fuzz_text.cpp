// Host text on any bytes, with the plug-in's text code linked in and the emulator as its host:
// REALBuildUnicodeString in every encoding, and rbText reading strings of every encoding as UTF-8
// or as raw bytes. Input: a byte choosing the host version, then the text.
#include <string.h>

#include <string>

#include "fuzz/FuzzHost.h"
#include "host/Text.h"

namespace {

emu::Host* host = nullptr;

const uint32_t kEncodings[] = {kREALTextEncodingMacRoman,  kREALTextEncodingUTF16,
                               kREALTextEncodingISOLatin1, kREALTextEncodingWindowsLatin1,
                               kREALTextEncodingASCII,     kREALTextEncodingUTF8,
                               kREALTextEncodingUTF32,     kREALTextEncodingUnknown};

// The host versions where the text routes differ: direct record reads, string data records,
// conversions, UTF-32 through UTF-16.
void UseVersion(uint8_t choice) {
  static const double kVersions[] = {2019.1, 2016.0, 2012.0, 2011.0};
  const double version = kVersions[choice % 4];
  if (rbversion == version) return;
  emu::Profile profile;
  profile.name = "text";
  profile.version = version;
  host->Shutdown();
  host->Start(profile);
  rbversion = version;
}

bool AllASCII(std::string_view bytes) {
  for (const char c : bytes) {
    if (static_cast<unsigned char>(c) >= 0x80) return false;
  }
  return true;
}

// The encoding a built string must carry.
uint32_t ExpectedEncoding(uint32_t encoding, std::string_view bytes) {
  switch (encoding) {
    case kREALTextEncodingUTF16:
    case kREALTextEncodingUTF32:
      return kREALTextEncodingUTF8;
    case kREALTextEncodingMacRoman:
    case kREALTextEncodingISOLatin1:
    case kREALTextEncodingWindowsLatin1:
    case kREALTextEncodingUnknown:
      return AllASCII(bytes) ? kREALTextEncodingASCII : encoding;
    default:
      return encoding;
  }
}

void CheckBuild(std::string_view bytes, uint32_t encoding) {
  const emu::Value built = emu::Value::AdoptString(
      REALBuildUnicodeString(bytes.data(), static_cast<int64_t>(bytes.size()), encoding));
  fuzz::Require(!host->LastException(), "REALBuildUnicodeString raised an exception");
  fuzz::Require(!bytes.empty() || built.IsNil(), "an empty text gave a string");
  if (built.IsNil()) return;
  fuzz::Require(built.Encoding() == ExpectedEncoding(encoding, bytes),
                "a built string carries the wrong encoding");
  const bool converted = encoding == kREALTextEncodingUTF16 || encoding == kREALTextEncodingUTF32;
  fuzz::Require(converted || built.Bytes() == bytes, "a built string lost its bytes");
}

// GetUTF8 gives the host's own conversion, zero-terminated; MakeRaw the bytes as they are.
void CheckRead(std::string_view bytes, uint32_t encoding) {
  const emu::Value string = host->MakeString(bytes, encoding);
  {
    rbText text(string.AsString());
    const char* utf8 = text.GetUTF8();
    fuzz::Require(utf8 != nullptr && utf8[text.Length()] == '\0', "GetUTF8 is not terminated");
    const auto expected = emu::Host::ConvertBytes(bytes, encoding, kREALTextEncodingUTF8);
    if (!text.Failed() && expected && !bytes.empty()) {
      fuzz::Require(std::string_view(utf8, static_cast<size_t>(text.Length())) == *expected,
                    "GetUTF8 differs from the host's conversion");
    }
  }
  rbText* raw = rbText::MakeRaw(string.AsString());
  if (raw == nullptr) return;
  fuzz::Require(std::string_view(reinterpret_cast<const char*>(raw->Bytes()),
                                 static_cast<size_t>(raw->Length())) == bytes,
                "MakeRaw does not hold the string's bytes");
  delete raw;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  host = &fuzz::StartHost(false);
  gResolver = emu::Host::Resolver();
  rbversion = host->CurrentProfile().version;
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
  fuzz::Input input(bytes, size);
  UseVersion(input.Byte());
  const std::string_view text = input.Rest();
  for (const uint32_t encoding : kEncodings) {
    CheckBuild(text, encoding);
    CheckRead(text, encoding);
  }
  fuzz::CheckAudit();
  return 0;
}
