// CgBI data on any bytes: "OpenSpecialData" (the rewrite, then the rewritten stream decoded) and
// "CgBIToPNGStringKRV" (the conversion, whose every result must decode in full).
// Input: a byte of choices, then the data.
#include <string.h>

#include "fuzz/FuzzHost.h"

namespace {

emu::Host* host = nullptr;

// Rows beyond this many bytes are not read back: the conversion has proved itself on the header.
constexpr RBInteger kMaxRowsRead = 1 << 20;

void OpenSpecialData(const emu::Value& data, bool swapped, bool readPicture) {
  const emu::Value reader = host->New("PNGReaderKRV");
  host->SetProperty(reader, "SwapRB", swapped);
  const bool opened = host->Call(reader, "OpenSpecialData", {data}).AsBoolean();
  fuzz::Require(!host->LastException(), "OpenSpecialData raised an exception");
  // A failed conversion leaves the reader as it was; a rewritten stream is a PNG stream.
  fuzz::Require(host->GetProperty(reader, "SwapRB").AsBoolean() == (opened || swapped),
                "SwapRB does not follow the result of OpenSpecialData");
  if (!opened) return;
  const std::string source = host->GetProperty(reader, "SourceData").Bytes();
  fuzz::Require(source.size() >= 8 && memcmp(source.data(), "\x89PNG\r\n\x1A\n", 8) == 0,
                "the rewritten stream does not start with the signature");
  if (host->Call(reader, "ApplyOptions", {-1.0}).AsBoolean() && readPicture) {
    host->Call(reader, "ReadPicture");
  }
}

// A converted stream is a complete standard PNG: it opens, sets up and gives every row.
void ConvertToPNG(const emu::Value& data) {
  const emu::Value png = host->CallGlobal("CgBIToPNGStringKRV", {data});
  fuzz::Require(!host->LastException(), "CgBIToPNGStringKRV raised an exception");
  if (png.Bytes().empty()) return;
  const emu::Value reader = host->New("PNGReaderKRV");
  fuzz::Require(host->Call(reader, "OpenData", {png}).AsBoolean() &&
                    host->Call(reader, "ApplyOptions", {-1.0}).AsBoolean(),
                "a converted stream does not open");
  const RBInteger rowBytes = host->Call(reader, "RowBytes").AsInteger();
  const RBInteger rows = host->GetProperty(reader, "Height").AsInteger() *
                         host->GetProperty(reader, "Interlacing").AsInteger();
  if (rowBytes * rows > kMaxRowsRead) return;
  const emu::Value row = host->NewMemoryBlock(rowBytes);
  for (RBInteger y = 0; y < rows; ++y) {
    fuzz::Require(host->Call(reader, "ReadRow", {row}).AsBoolean(),
                  "a row of a converted stream does not decode");
  }
}

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
    const emu::Value data = host->MakeString(input.Rest(), kREALTextEncodingUnknown);
    OpenSpecialData(data, (choices & 1) != 0, (choices & 2) != 0);
    ConvertToPNG(data);
  }
  fuzz::CheckAudit();
  return 0;
}
