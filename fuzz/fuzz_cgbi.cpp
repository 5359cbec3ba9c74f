// "OpenSpecialData" on any bytes: the CgBI rewrite, then the rewritten stream decoded.
// Input: a byte of choices, then the data.
#include <string.h>

#include "fuzz/FuzzHost.h"

namespace {

emu::Host* host = nullptr;

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  host = &fuzz::StartHost();
  return 0;
}

PNGKRV_CRC_MENDING_MUTATOR

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
  fuzz::Input input(bytes, size);
  const uint8_t choices = input.Byte();
  {
    const emu::Value reader = host->New("PNGReaderKRV");
    const bool swapped = (choices & 1) != 0;
    host->SetProperty(reader, "SwapRB", swapped);
    const emu::Value data = host->MakeString(input.Rest(), kREALTextEncodingUnknown);
    const bool opened = host->Call(reader, "OpenSpecialData", {data}).AsBoolean();
    fuzz::Require(!host->LastException(), "OpenSpecialData raised an exception");
    // A failed conversion leaves the reader as it was; a rewritten stream is a PNG stream.
    fuzz::Require(host->GetProperty(reader, "SwapRB").AsBoolean() == (opened || swapped),
                  "SwapRB does not follow the result of OpenSpecialData");
    if (opened) {
      const std::string source = host->GetProperty(reader, "SourceData").Bytes();
      fuzz::Require(source.size() >= 8 && memcmp(source.data(), "\x89PNG\r\n\x1A\n", 8) == 0,
                    "the rewritten stream does not start with the signature");
      if (host->Call(reader, "ApplyOptions", {-1.0}).AsBoolean() && (choices & 2)) {
        host->Call(reader, "ReadPicture");
      }
    }
  }
  fuzz::CheckAudit();
  return 0;
}
