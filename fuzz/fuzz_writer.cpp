// PNGWriterKRV driven by the input: header values, filters, levels, palettes and alphas, rows from
// blocks and pictures, the chunk setters and the writing sequence, in the order the input gives.
// Input: operations, each a byte followed by its arguments.
#include <string>
#include <vector>

#include "fuzz/FuzzHost.h"

namespace {

emu::Host* host = nullptr;

constexpr int kMaxOperations = 64;

// Header values worth trying; others come raw from the input.
RBInteger Dimension(fuzz::Input& in) {
  static const RBInteger kValues[] = {0, 1, 2, 3, 7, 8, 16, 33, -1, 32767, 32768, 1000000, 1000001};
  const uint8_t choice = in.Byte();
  if (choice < 0xC0) return choice % 40;
  if (choice < 0xF0) return kValues[choice % (sizeof kValues / sizeof kValues[0])];
  return static_cast<RBInteger>(in.Signed(4));
}

std::vector<RBColor> Colors(fuzz::Input& in) {
  const uint8_t count = in.Byte();
  std::vector<RBColor> colors(count == 0xFF ? 300 : count);
  for (RBColor& c : colors) c = in.Uint(4);
  return colors;
}

std::vector<RBInteger> Alphas(fuzz::Input& in) {
  std::vector<RBInteger> alphas(in.Byte());
  for (RBInteger& a : alphas) a = static_cast<RBInteger>(in.Signed(2));
  return alphas;
}

// A block of a size the input chooses (up to 64 KiB), filled with a pattern from the input.
emu::Value Block(fuzz::Input& in) {
  const RBInteger size = static_cast<RBInteger>(in.Uint(2));
  const std::string_view fill = in.Bytes(in.Byte() % 17);
  std::string bytes(static_cast<size_t>(size), '\0');
  for (size_t i = 0; i < bytes.size() && !fill.empty(); ++i) bytes[i] = fill[i % fill.size()];
  return host->MemoryBlockFrom(bytes);
}

// A small picture of input pixels, with an alpha channel or a grey mask as the input says.
emu::Value Picture(fuzz::Input& in) {
  const RBInteger width = 1 + in.Byte() % 24;
  const RBInteger height = 1 + in.Byte() % 24;
  const uint8_t kind = in.Byte();
  const std::string_view fill = in.Bytes(in.Byte() % 33);
  std::string rgba(static_cast<size_t>(width * height * 4), '\x7F');
  for (size_t i = 0; i < rgba.size() && !fill.empty(); ++i) rgba[i] = fill[i % fill.size()];
  emu::PictureOptions options;
  options.alphaChannel = (kind & 1) != 0;
  if (kind == 2) options.mask = emu::MaskSource::Alpha;
  return host->MakePicture(width, height, rgba, options);
}

struct Session {
  emu::Value writer;

  // Whatever the values, the only exceptions are those of nil arguments and rows.
  emu::Value Call(const char* name, std::vector<emu::Arg> args = {}) {
    emu::Value result = host->Call(writer, name, std::move(args));
    const auto& raised = host->LastException();
    fuzz::Require(!raised || raised->className == "NilObjectException",
                  "the writer raised an unexpected exception");
    return result;
  }

  // A finished stream decodes without harm; what it holds is the writer's business.
  void FinishAndDecode() {
    const emu::Value stream = Call("Finish");
    if (!stream.IsNil()) host->CallGlobal("PNGStringToPictureKRV", {stream});
  }

  void Run(uint8_t op, fuzz::Input& in) {
    switch (op % 24) {
      case 0:
        host->SetProperty(writer, "Width", Dimension(in));
        break;
      case 1:
        host->SetProperty(writer, "Height", Dimension(in));
        break;
      case 2:
        host->SetProperty(writer, "Type", RBInteger{in.Byte() % 9});
        break;
      case 3:
        Call("SetHeader", {(in.Byte() & 1) != 0, in.Signed(1), in.Signed(1) % 12});
        break;
      case 4:
        Call("SetResolution", {in.Signed(4), in.Signed(4), RBInteger{in.Byte() % 4}});
        break;
      case 5:
        Call("SetsRGB", {in.Signed(1)});
        break;
      case 6: {
        const emu::Value name = host->MakeString(in.Bytes(in.Byte() % 90));
        const emu::Value profile = host->MakeString(in.Bytes(in.Uint(2) % 2048), 0xFFFF);
        Call("SetICCProfile", {name, in.Signed(1), profile});
        break;
      }
      case 7:
        Call("SetGamma", {in.Gamma()});
        break;
      case 8:
        Call("SetPaletteData", {host->MakeColorArray(Colors(in))});
        break;
      case 9: {
        const emu::Value alphas = host->MakeIntegerArray(Alphas(in));
        Call("SetAlphaData", {alphas, host->MakeColorArray(Colors(in))});
        break;
      }
      case 10:
        Call("SetPalette");
        break;
      case 11:
        Call("SetAlphas");
        break;
      case 12:
        Call("OpenWriteDestination", {emu::Value()});
        break;
      case 13:
        Call("WriteInfo");
        break;
      case 14:
        Call("WriteRows");
        break;
      case 15:
        Call("WriteRow", {Block(in)});
        break;
      case 16:
        Call("WriteEnd");
        break;
      case 17:
        FinishAndDecode();
        break;
      case 18:
        Call("CloseDestination");
        break;
      case 19: {
        const emu::Value pict = Picture(in);
        if (in.Byte() & 1) {
          Call(op & 0x80 ? "SetGrayPicture" : "SetRGBPicture", {pict, Picture(in)});
        } else {
          Call(op & 0x80 ? "SetGrayPicture" : "SetRGBPicture", {pict});
        }
        break;
      }
      case 20:
        Call("SetPalettePicture", {Picture(in)});
        break;
      case 21: {
        std::vector<emu::Value> rows(in.Byte() % 40);
        for (emu::Value& row : rows) row = Block(in);
        Call("SetRows", {host->MakeMemoryBlockArray(rows)});
        break;
      }
      case 22:
        host->SetProperty(writer, op & 0x80 ? "Rowbytes" : "bpc", RBInteger{in.Signed(2)});
        break;
      default:
        writer = host->New("PNGWriterKRV", Events());
        break;
    }
  }

  emu::EventHandlers Events() {
    const auto ignore = [](const emu::EventArgs&) {};
    return {{"Error", ignore}, {"Warning", ignore}};
  }
};

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  host = &fuzz::StartHost();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
  fuzz::Input input(bytes, size);
  {
    Session s;
    s.writer = host->New("PNGWriterKRV", s.Events());
    for (int i = 0; i < kMaxOperations && !input.Empty(); ++i) s.Run(input.Byte(), input);
  }
  fuzz::CheckAudit();
  return 0;
}
