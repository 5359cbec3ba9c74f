// PNGReaderKRV on any bytes: open, ApplyOptions, then row reads, the picture decodes and the chunk
// and text queries.
// Input: a byte of choices, two gammas, a count and that many operation bytes, then the data.
#include <iterator>

#include "fuzz/FuzzHost.h"

using namespace fuzz;

namespace {

struct Session {
  emu::Value reader;
  double gamma = 0.0, screenGamma = 0.0;
  uint8_t op = 0;
  int rowsLeft = 4096;  // row reads of one input, beyond which a loop over every row stops

  // The reader raises no exception on any data: failures are results and events.
  emu::Value Call(const char* name, std::vector<emu::Arg> args = {}) {
    emu::Value result = host->Call(reader, name, std::move(args));
    Require(!host->LastException(), "the reader raised an exception");
    return result;
  }
  void ApplyOptions() { Call("ApplyOptions", {gamma, screenGamma}); }
  emu::Value RowBlock(RBInteger shorter = 0) {
    const RBInteger size = Call("RowBytes").AsInteger() - shorter;
    return host->NewMemoryBlock(size > 0 && size <= (RBInteger{1} << 24) ? size : 1);
  }
  void ReadAllRows(const char* operation) {
    const emu::Value block = RowBlock();
    const RBInteger rows = IntProperty(reader, "Interlacing") * IntProperty(reader, "Height");
    for (RBInteger y = 0; y < rows && rowsLeft > 0; ++y, --rowsLeft)
      if (!Call(operation, {block}).AsBoolean()) return;
  }
};

void (*const kOperations[])(Session&) = {
    [](Session& s) {
      s.Call("ReadPicture");
      CheckedPict(s.reader);
    },
    [](Session& s) { s.Call("ReadRow"); },
    [](Session& s) { s.Call("ReadRow", {s.RowBlock()}); },
    [](Session& s) { s.Call("ReadRowMaskOnly", {s.RowBlock()}); },
    [](Session& s) { s.Call("ReadRowAlphaOnly", {s.RowBlock()}); },
    [](Session& s) {
      emu::Value intent(RBInteger{-5});
      Require(s.Call("ReadsRGBTag", {emu::ByRef(intent)}).AsBoolean() || intent.AsInteger() == 0,
              "ReadsRGBTag failed without clearing intent");
    },
    [](Session& s) {
      emu::Value name, compression(RBInteger{7}), profile;
      const bool found =
          s.Call("ReadICCProfile", {emu::ByRef(name), emu::ByRef(compression), emu::ByRef(profile)})
              .AsBoolean();
      Require(found || (name.IsNil() && profile.IsNil() && compression.AsInteger() == 0),
              "ReadICCProfile failed without clearing its arguments");
    },
    [](Session& s) { s.Call("CombinePictureWithMask"); },
    [](Session& s) { s.ApplyOptions(); },
    [](Session& s) { s.Call("ReadRow", {s.RowBlock(1 + s.op / 14)}); },
    [](Session& s) { s.ReadAllRows("ReadRow"); },
    [](Session& s) { s.ReadAllRows("ReadRowMaskOnly"); },
    [](Session& s) { host->SetProperty(s.reader, "AllowDamaged", (s.op & 0x80) != 0); },
    [](Session& s) { s.Call("OpenData", {host->GetProperty(s.reader, "SourceData")}); },
    [](Session& s) {
      s.Call("ReadAlphaPicture");
      CheckedPict(s.reader);
    },
    [](Session& s) {
      const RBInteger count = s.Call("TextCount").AsInteger();
      for (RBInteger i = 0; i < count; ++i) {
        s.Call("TextKey", {i});
        s.Call("TextValue", {i});
      }
    },
};

}  // namespace

void fuzz::Run(Input input) {
  const uint8_t choices = input.Byte();
  Session s{host->New("PNGReaderKRV", choices & 4 ? emu::EventHandlers{} : IgnoredEvents()),
            input.Gamma(), input.Gamma()};
  const std::string_view ops = input.Bytes(input.Byte() % 16);
  host->SetProperty(s.reader, "AllowDamaged", (choices & 1) != 0);
  host->SetProperty(s.reader, "SwapRB", (choices & 2) != 0);
  const emu::Value data = host->MakeString(input.Rest(), kREALTextEncodingUnknown);
  if (s.Call("OpenData", {data}).AsBoolean() && !(choices & 8)) s.ApplyOptions();
  for (const char op : ops) {
    s.op = static_cast<uint8_t>(op);
    kOperations[s.op % std::size(kOperations)](s);
  }
  if (choices & 16) s.Call("ReadPicture");
}
