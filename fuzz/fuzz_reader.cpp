// PNGReaderKRV step by step on any bytes: open, ApplyOptions with gammas from the input, then row
// operations, ReadPicture and the chunk queries in an order the input chooses.
// Input: a byte of choices, two gammas, a count and that many operation bytes, then the data.
#include <string>
#include <vector>

#include "fuzz/FuzzHost.h"

namespace {

emu::Host* host = nullptr;

// Row reads of one input, beyond which a loop over every row stops.
constexpr int kRowBudget = 4096;

struct Session {
  emu::Value reader;
  int events = 0;
  int rowsLeft = kRowBudget;

  // The reader raises no exception on any data: failures are results and events.
  emu::Value Call(const char* name, std::vector<emu::Arg> args = {}) {
    emu::Value result = host->Call(reader, name, std::move(args));
    fuzz::Require(!host->LastException(), "the reader raised an exception");
    return result;
  }
  bool Ok(const char* name, std::vector<emu::Arg> args = {}) {
    return Call(name, std::move(args)).AsBoolean();
  }
  RBInteger Int(const char* property) { return host->GetProperty(reader, property).AsInteger(); }

  // A block of the reader's row size, shortened by `shorter` bytes.
  emu::Value RowBlock(RBInteger shorter) {
    const RBInteger size = Call("RowBytes").AsInteger() - shorter;
    return host->NewMemoryBlock(size > 0 && size <= (RBInteger{1} << 24) ? size : 1);
  }

  // Every row of every pass into one block, as user code reads a whole image.
  void ReadAllRows(const char* operation) {
    const emu::Value block = RowBlock(0);
    const RBInteger rows = Int("Interlacing") * Int("Height");
    for (RBInteger y = 0; y < rows && rowsLeft > 0; ++y, --rowsLeft) {
      if (!Ok(operation, {block})) return;
    }
  }

  void CheckPicture() {
    const emu::Value pict = host->GetProperty(reader, "Pict");
    if (pict.IsNil()) return;
    fuzz::Require(host->GetProperty(pict, "Width").AsInteger() == Int("Width") &&
                      host->GetProperty(pict, "Height").AsInteger() == Int("Height"),
                  "a decoded picture whose size is not the header's");
  }

  void ReadICCProfile() {
    emu::Value name, compression(RBInteger{7}), profile;
    const bool found =
        Ok("ReadICCProfile", {emu::ByRef(name), emu::ByRef(compression), emu::ByRef(profile)});
    fuzz::Require(found || (name.IsNil() && profile.IsNil() && compression.AsInteger() == 0),
                  "ReadICCProfile failed without clearing its arguments");
  }

  void ReadsRGBTag() {
    emu::Value intent(RBInteger{-5});
    const bool found = Ok("ReadsRGBTag", {emu::ByRef(intent)});
    fuzz::Require(found || intent.AsInteger() == 0, "ReadsRGBTag failed without clearing intent");
  }

  void Run(uint8_t op, double gamma, double screenGamma) {
    switch (op % 14) {
      case 0:
        Ok("ReadPicture");
        CheckPicture();
        break;
      case 1:
        Call("ReadRow");
        break;
      case 2:
        Ok("ReadRow", {RowBlock(0)});
        break;
      case 3:
        Ok("ReadRowMaskOnly", {RowBlock(0)});
        break;
      case 4:
        Ok("ReadRowAlphaOnly", {RowBlock(0)});
        break;
      case 5:
        ReadsRGBTag();
        break;
      case 6:
        ReadICCProfile();
        break;
      case 7:
        Call("CombinePictureWithMask");
        break;
      case 8:
        Ok("ApplyOptions", {gamma, screenGamma});
        break;
      case 9:
        Ok("ReadRow", {RowBlock(1 + op / 14)});
        break;
      case 10:
        ReadAllRows("ReadRow");
        break;
      case 11:
        ReadAllRows("ReadRowMaskOnly");
        break;
      case 12:
        host->SetProperty(reader, "AllowDamaged", (op & 0x80) != 0);
        break;
      default:
        Ok("OpenData", {host->GetProperty(reader, "SourceData")});
        break;
    }
  }
};

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  host = &fuzz::StartHost();
  return 0;
}

PNGKRV_CRC_MENDING_MUTATOR

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
  fuzz::Input input(bytes, size);
  const uint8_t choices = input.Byte();
  const double gamma = input.Gamma();
  const double screenGamma = input.Gamma();
  const std::string_view ops = input.Bytes(input.Byte() % 16);
  {
    Session s;
    const auto count = [&s](const emu::EventArgs&) { ++s.events; };
    s.reader = (choices & 4) ? host->New("PNGReaderKRV")
                             : host->New("PNGReaderKRV", {{"Error", count}, {"Warning", count}});
    host->SetProperty(s.reader, "AllowDamaged", (choices & 1) != 0);
    host->SetProperty(s.reader, "SwapRB", (choices & 2) != 0);
    const bool opened =
        s.Ok("OpenData", {host->MakeString(input.Rest(), kREALTextEncodingUnknown)});
    if (opened && !(choices & 8)) s.Ok("ApplyOptions", {gamma, screenGamma});
    for (const char op : ops) s.Run(static_cast<uint8_t>(op), gamma, screenGamma);
    if (choices & 16) s.Ok("ReadPicture");
  }
  fuzz::CheckAudit();
  return 0;
}
