// CgBI data on any bytes: "OpenSpecialData" (the rewrite, then the rewritten stream decoded) and
// "CgBIToPNGStringKRV", whose every result must decode in full. Input: a byte of choices, the data.
#include "fuzz/FuzzHost.h"

void fuzz::Run(Input input) {
  const uint8_t choices = input.Byte();
  const emu::Value data = host->MakeString(input.Rest(), kREALTextEncodingUnknown);
  const emu::Value special = host->New("PNGReaderKRV");
  host->SetProperty(special, "SwapRB", (choices & 1) != 0);
  const bool opened = host->Call(special, "OpenSpecialData", {data}).AsBoolean();
  Require(!host->LastException(), "OpenSpecialData raised an exception");
  // A failed conversion leaves the reader as it was; a rewritten stream is a PNG stream.
  Require(host->GetProperty(special, "SwapRB").AsBoolean() == (opened || (choices & 1)),
          "SwapRB does not follow the result of OpenSpecialData");
  const std::string source = host->GetProperty(special, "SourceData").Bytes();
  Require(!opened || source.compare(0, 8, "\x89PNG\r\n\x1A\n") == 0,
          "the rewritten stream does not start with the signature");
  if (opened && host->Call(special, "ApplyOptions", {-1.0}).AsBoolean() && (choices & 2))
    host->Call(special, "ReadPicture");
  const emu::Value png = host->CallGlobal("CgBIToPNGStringKRV", {data});
  Require(!host->LastException(), "CgBIToPNGStringKRV raised an exception");
  if (png.Bytes().empty()) return;
  const emu::Value reader = host->New("PNGReaderKRV");
  Require(host->Call(reader, "OpenData", {png}).AsBoolean() &&
              host->Call(reader, "ApplyOptions", {-1.0}).AsBoolean(),
          "a converted stream does not open");
  const RBInteger rowBytes = host->Call(reader, "RowBytes").AsInteger();
  const RBInteger rows = IntProperty(reader, "Height") * IntProperty(reader, "Interlacing");
  if (rowBytes * rows > (1 << 20)) return;  // the header has proved the conversion already
  const emu::Value row = host->NewMemoryBlock(rowBytes);
  for (RBInteger y = 0; y < rows; ++y)
    Require(host->Call(reader, "ReadRow", {row}).AsBoolean(), "a converted row does not decode");
}
