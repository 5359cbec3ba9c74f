// The plug-in's host text code, linked in, on any bytes in every encoding: REALBuildUnicodeString,
// rbText as UTF-8 and raw. Input: a byte choosing the host version, then the text.
#include "fuzz/FuzzHost.h"
#include "host/Text.h"

namespace fuzz {

void UseLinkedPlugin() {
  LearnHost(emu::Host::Resolver());
}

void Run(Input input) {
  // Versions whose text routes differ: record reads, data records, conversions, UTF-32 via UTF-16.
  static const double kVersions[] = {2019.1, 2016.0, 2012.0, 2011.0};
  emu::Profile profile;
  profile.version = kVersions[input.Byte() % 4];
  if (gHost.version != profile.version) {
    host->Shutdown();
    host->Start(profile);
    LearnHost(emu::Host::Resolver());
  }
  const std::string_view bytes = input.Rest();
  for (const uint32_t encoding :
       {kREALTextEncodingMacRoman, kREALTextEncodingUTF16, kREALTextEncodingISOLatin1,
        kREALTextEncodingWindowsLatin1, kREALTextEncodingASCII, kREALTextEncodingUTF8,
        kREALTextEncodingUTF32, kREALTextEncodingUnknown}) {
    const emu::Value built = emu::Value::AdoptString(
        REALBuildUnicodeString(bytes.data(), static_cast<int64_t>(bytes.size()), encoding));
    Require(!host->LastException(), "REALBuildUnicodeString raised an exception");
    Require(!bytes.empty() || built.IsNil(), "an empty text gave a string");
    // UTF-16 and UTF-32 come back as UTF-8; any other text keeps its bytes.
    Require(built.IsNil() || encoding == kREALTextEncodingUTF16 ||
                encoding == kREALTextEncodingUTF32 || built.Bytes() == bytes,
            "a built string lost its bytes");
    // GetUTF8 gives the host's own conversion, zero-terminated; MakeRaw the bytes as they are.
    const emu::Value string = host->MakeString(bytes, encoding);
    {
      rbText text(string.AsString());
      const char* utf8 = text.GetUTF8();
      Require(utf8 != nullptr && utf8[text.Length()] == '\0', "GetUTF8 is not terminated");
      const auto expected = emu::Host::ConvertBytes(bytes, encoding, kREALTextEncodingUTF8);
      Require(text.Failed() || !expected || bytes.empty() ||
                  std::string_view(utf8, static_cast<size_t>(text.Length())) == *expected,
              "GetUTF8 differs from the host's conversion");
    }
    const std::unique_ptr<rbText> raw(rbText::MakeRaw(string.AsString()));
    Require(!raw || std::string_view(reinterpret_cast<const char*>(raw->Bytes()),
                                     static_cast<size_t>(raw->Length())) == bytes,
            "MakeRaw does not hold the string's bytes");
  }
}

}  // namespace fuzz
