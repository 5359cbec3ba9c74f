// PNGWriterKRV driven by the input: header, palette, rows, chunk setters and the writing sequence.
// Input: up to 64 operations, each a byte followed by its arguments.
#include "fuzz/FuzzHost.h"

using namespace fuzz;

namespace {

struct Session : Input {
  emu::Value writer = host->New("PNGWriterKRV", IgnoredEvents());
  uint8_t op = 0;

  // Whatever the values, the only exceptions are those of nil arguments and rows.
  emu::Value Call(const char* name, std::vector<emu::Arg> args = {}) {
    emu::Value result = host->Call(writer, name, std::move(args));
    const auto& raised = host->LastException();
    Require(!raised || raised->className == "NilObjectException", "an unexpected exception");
    return result;
  }

  RBInteger Dimension() {  // small, of interest, or raw
    const RBInteger kValues[] = {0, 1, 2, 3, 7, 8, 16, 33, -1, 32767, 32768, 1000000, 1000001};
    const uint8_t choice = Byte();
    if (choice < 0xC0) return choice % 40;
    if (choice < 0xF0) return kValues[choice % (sizeof kValues / sizeof kValues[0])];
    return Signed(4);
  }
  emu::Value Colors() {
    const uint8_t count = Byte();
    std::vector<RBColor> colors(count == 0xFF ? 300 : count);
    for (RBColor& c : colors) c = Uint(4);
    return host->MakeColorArray(colors);
  }
  // `size` bytes repeating a pattern of up to `longest` input bytes; `blank` without one.
  std::string Fill(size_t size, char blank, int longest) {
    std::string bytes(size, blank);
    const std::string_view pattern = Bytes(Byte() % (longest + 1));
    for (size_t i = 0; i < size && !pattern.empty(); ++i) bytes[i] = pattern[i % pattern.size()];
    return bytes;
  }
  emu::Value Block() { return host->MemoryBlockFrom(Fill(Uint(2), '\0', 16)); }  // up to 64 KiB
  emu::Value Picture() {
    const RBInteger width = 1 + Byte() % 24, height = 1 + Byte() % 24;
    const uint8_t kind = Byte();
    emu::PictureOptions options;
    options.alphaChannel = (kind & 1) != 0;
    if (kind == 2) options.mask = emu::MaskSource::Alpha;
    return host->MakePicture(width, height, Fill(width * height * 4, '\x7F', 32), options);
  }
};

void (*const kOperations[])(Session&) = {
    [](Session& s) { host->SetProperty(s.writer, "Width", s.Dimension()); },
    [](Session& s) { host->SetProperty(s.writer, "Height", s.Dimension()); },
    [](Session& s) { host->SetProperty(s.writer, "Type", s.Byte() % 9); },
    [](Session& s) {
      s.Call("SetHeader", {(s.Byte() & 1) != 0, s.Signed(1), s.Signed(1) % 12});
    },
    [](Session& s) {
      s.Call("SetResolution", {s.Signed(4), s.Signed(4), RBInteger{s.Byte() % 4}});
    },
    [](Session& s) { s.Call("SetsRGB", {s.Signed(1)}); },
    [](Session& s) {
      const emu::Value name = host->MakeString(s.Bytes(s.Byte() % 90));
      const emu::Value profile = host->MakeString(s.Bytes(s.Uint(2) % 2048), 0xFFFF);
      s.Call("SetICCProfile", {name, s.Signed(1), profile});
    },
    [](Session& s) { s.Call("SetGamma", {s.Gamma()}); },
    [](Session& s) { s.Call("SetPaletteData", {s.Colors()}); },
    [](Session& s) {
      std::vector<RBInteger> alphas(s.Byte());
      for (RBInteger& a : alphas) a = s.Signed(2);
      s.Call("SetAlphaData", {host->MakeIntegerArray(alphas), s.Colors()});
    },
    [](Session& s) { s.Call("SetPalette"); },
    [](Session& s) { s.Call("SetAlphas"); },
    [](Session& s) { s.Call("OpenWriteDestination", {emu::Value()}); },
    [](Session& s) { s.Call("WriteInfo"); },
    [](Session& s) { s.Call("WriteRows"); },
    [](Session& s) { s.Call("WriteRow", {s.Block()}); },
    [](Session& s) { s.Call("WriteEnd"); },
    [](Session& s) {  // a finished stream decodes without harm
      const emu::Value stream = s.Call("Finish");
      if (!stream.IsNil()) host->CallGlobal("PNGStringToPictureKRV", {stream});
    },
    [](Session& s) { s.Call("CloseDestination"); },
    [](Session& s) {
      std::vector<emu::Arg> args = {s.Picture()};
      if (s.Byte() & 1) args.push_back(s.Picture());  // a mask
      s.Call(s.op & 0x80 ? "SetGrayPicture" : "SetRGBPicture", std::move(args));
    },
    [](Session& s) { s.Call("SetPalettePicture", {s.Picture()}); },
    [](Session& s) {
      std::vector<emu::Value> rows(s.Byte() % 40);
      for (emu::Value& row : rows) row = s.Block();
      s.Call("SetRows", {host->MakeMemoryBlockArray(rows)});
    },
    [](Session& s) { host->SetProperty(s.writer, s.op & 0x80 ? "Rowbytes" : "bpc", s.Signed(2)); },
    [](Session& s) { s.writer = host->New("PNGWriterKRV", IgnoredEvents()); },
};

}  // namespace

void fuzz::Run(Input input) {
  Session s{input};
  for (int i = 0; i < 64 && !s.Empty(); ++i) {
    s.op = s.Byte();
    kOperations[s.op % 24](s);
  }
}
