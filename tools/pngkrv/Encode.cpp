// pngkrv encode: a PAM file, or a PNG decoded through the plug-in's reader, becomes a host picture
// (with a mask when it has alpha) that a PNGWriterKRV writes as PNG, to a file or through Finish.
#include <iostream>
#include <map>

#include "tools/pngkrv/Commands.h"

namespace cli {

namespace {

constexpr char kSetRGBPicture[] =
    "SetRGBPicture(pict as picture, mask as picture = nil) as boolean";
constexpr char kSetGrayPicture[] =
    "SetGrayPicture(pict as picture, mask as picture = nil) as boolean";
constexpr char kSetPalettePicture[] = "SetPalettePicture(pict as picture) as boolean";
constexpr char kSetPaletteData[] = "SetPaletteData(colors() as color) as boolean";
constexpr char kSetAlphaData[] = "SetAlphaData(alphas() as integer, colors() as color) as boolean";
constexpr char kSetHeader[] =
    "SetHeader(Interlace as boolean = false, Filter as integer = -1, Compression as Integer = -1) "
    "as boolean";
constexpr char kSetPalette[] = "SetPalette as boolean";
constexpr char kSetAlphas[] = "SetAlphas as boolean";
constexpr char kSetGamma[] = "SetGamma(gamma as double = 0.0) as boolean";
constexpr char kSetsRGB[] = "SetsRGB(intent as integer) as boolean";
constexpr char kSetICCProfile[] =
    "SetICCProfile(name as string, CompressionType as integer, Profile as string) as boolean";
constexpr char kSetResolution[] =
    "SetResolution(ResolutionHorizontal as integer, ResolutionVertical as integer, Unit as "
    "integer) as boolean";
constexpr char kOpenWriteDestination[] = "OpenWriteDestination(file as folderitem) as boolean";
constexpr char kWriteInfo[] = "WriteInfo as boolean";
constexpr char kWriteRows[] = "WriteRows as boolean";
constexpr char kWriteEnd[] = "WriteEnd as boolean";
constexpr char kFinish[] = "Finish as string";
constexpr char kCloseDestination[] = "CloseDestination";

constexpr RBInteger kResolutionDPI = 2;
constexpr size_t kPaletteSlots = 256;

struct Pixels {
  uint32_t width = 0;
  uint32_t height = 0;
  samples::Bytes rgba;
};

struct Pictures {
  emu::Value picture;
  emu::Value mask;  // nil when the input is opaque and the type needs none
};

// The palette of an image: its distinct colours in order of appearance, with their alphas. With
// alphas it fills all 256 slots (opaque black) so that the writer's sort over every slot keeps
// the image's colours in the table.
struct Palette {
  std::vector<RBColor> colors;
  std::vector<RBInteger> alphas;
};

// The Error and Warning messages of the writer, printed when the command ends either way.
struct WriterMessages {
  std::vector<std::string> lines;
  ~WriterMessages() {
    for (const std::string& line : lines) std::cerr << line << "\n";
  }
};

std::string Text(const samples::Bytes& bytes) {
  return std::string(bytes.begin(), bytes.end());
}

samples::Bytes ReadInputFile(const std::string& path) {
  try {
    return samples::ReadFile(path);
  } catch (const std::exception& e) {
    throw Failure{e.what()};
  }
}

Pixels LoadInput(Session& session, const std::string& path) {
  const samples::Bytes bytes = ReadInputFile(path);
  Pixels pixels;
  if (bytes.size() >= 2 && bytes[0] == 'P' && bytes[1] == '7') {
    if (!samples::DecodePAM(bytes, &pixels.width, &pixels.height, &pixels.rgba)) {
      throw Failure{path + ": not a PAM file of 8-bit RGB or RGBA"};
    }
    return pixels;
  }
  // No gamma handling: the pixels as the file stores them.
  DecodedRows rows = ReadRows(session, path, -1.0, -1.0);
  pixels.width = rows.width;
  pixels.height = rows.height;
  pixels.rgba = std::move(rows.rgba);
  return pixels;
}

bool HasAlpha(const Pixels& pixels) {
  for (size_t i = 3; i < pixels.rgba.size(); i += 4) {
    if (pixels.rgba[i] != 255) return true;
  }
  return false;
}

// The opaque colours as a picture and, when wanted, the alphas as a mask: grey 255 - alpha.
Pictures MakePictures(Session& session, const Pixels& pixels, bool withMask) {
  samples::Bytes colors = pixels.rgba;
  samples::Bytes mask;
  for (size_t i = 0; i < colors.size(); i += 4) {
    const uint8_t grey = static_cast<uint8_t>(255 - colors[i + 3]);
    mask.insert(mask.end(), {grey, grey, grey, 255});
    colors[i + 3] = 255;
  }
  Pictures pictures;
  pictures.picture = session.host().MakePicture(pixels.width, pixels.height, Text(colors));
  if (withMask) {
    pictures.mask = session.host().MakePicture(pixels.width, pixels.height, Text(mask));
  }
  return pictures;
}

Palette PaletteOf(const Pixels& pixels, bool withAlphas) {
  Palette palette;
  std::map<RBColor, uint8_t> alphas;
  for (size_t i = 0; i < pixels.rgba.size(); i += 4) {
    const uint8_t* p = &pixels.rgba[i];
    const RBColor color = RBColor{p[0]} << 16 | RBColor{p[1]} << 8 | p[2];
    const auto [known, added] = alphas.emplace(color, p[3]);
    if (added) {
      if (alphas.size() > kPaletteSlots) throw Failure{"the image has more than 256 colours"};
      palette.colors.push_back(color);
      palette.alphas.push_back(p[3]);
    } else if (withAlphas && known->second != p[3]) {
      throw Failure{"a colour of the image comes with two alphas: no palette holds it"};
    }
  }
  if (withAlphas) {
    palette.colors.resize(kPaletteSlots, 0);
    palette.alphas.resize(kPaletteSlots, 255);
  }
  return palette;
}

RBInteger IntegerOption(const Options& options, const std::string& name, RBInteger fallback) {
  const auto it = options.values.find(name);
  if (it == options.values.end()) return fallback;
  try {
    size_t used = 0;
    const long long value = std::stoll(it->second, &used, 0);
    if (used == it->second.size()) return static_cast<RBInteger>(value);
  } catch (const std::exception&) {
  }
  throw Failure{name + " needs an integer"};
}

void Require(Session& session, const emu::Value& writer, const char* declaration,
             std::vector<emu::Arg> args) {
  if (!session.CallBool(writer, declaration, std::move(args))) {
    throw Failure{std::string(declaration) + ": failed"};
  }
}

emu::Value NewWriter(Session& session, WriterMessages& messages) {
  auto collect = [&messages](const char* prefix) {
    return [&messages, prefix](const emu::EventArgs& a) {
      messages.lines.push_back(prefix + (a.IsNil(0) ? std::string("(no message)") : a.String(0)));
    };
  };
  return session.host().New("PNGWriterKRV",
                            {{"Error", collect("error: ")}, {"Warning", collect("warning: ")}});
}

void LoadPalette(Session& session, const emu::Value& writer, const Pixels& pixels,
                 const Pictures& pictures, bool withAlphas) {
  const Palette palette = PaletteOf(pixels, withAlphas);
  emu::Value colors = session.host().MakeColorArray(palette.colors);
  if (withAlphas) {
    Require(session, writer, kSetAlphaData,
            {session.host().MakeIntegerArray(palette.alphas), colors});
  } else {
    Require(session, writer, kSetPaletteData, {colors});
  }
  Require(session, writer, kSetPalettePicture, {pictures.picture});
}

void LoadRows(Session& session, const emu::Value& writer, const std::string& type,
              const Pixels& pixels, const Pictures& pictures, bool withAlphas) {
  if (type == "rgb") {
    Require(session, writer, kSetRGBPicture, {pictures.picture, emu::Value()});
  } else if (type == "rgba") {
    Require(session, writer, kSetRGBPicture, {pictures.picture, pictures.mask});
  } else if (type == "gray") {
    Require(session, writer, kSetGrayPicture, {pictures.picture, emu::Value()});
  } else if (type == "graya") {
    Require(session, writer, kSetGrayPicture, {pictures.picture, pictures.mask});
  } else {
    LoadPalette(session, writer, pixels, pictures, withAlphas);
  }
}

// The two values of "--icc NAME FILE", kept apart by a NUL in the option's value.
std::pair<std::string, std::string> IccOption(const Options& options) {
  const std::string& value = options.values.at("--icc");
  const size_t split = value.find('\0');
  return {value.substr(0, split), value.substr(split + 1)};
}

void SetChunks(Session& session, const emu::Value& writer, const Options& options, bool palette) {
  Require(session, writer, kSetHeader,
          {options.Has("--interlace"), IntegerOption(options, "--filter", -1),
           IntegerOption(options, "--level", -1)});
  if (palette) {
    Require(session, writer, kSetPalette, {});
    if (options.Has("--alphas")) Require(session, writer, kSetAlphas, {});
  }
  if (options.Has("--gamma")) Require(session, writer, kSetGamma, {options.Number("--gamma", 0)});
  if (options.Has("--srgb")) {
    Require(session, writer, kSetsRGB, {IntegerOption(options, "--srgb", 0)});
  }
  if (options.Has("--icc")) {
    const auto [name, file] = IccOption(options);
    const emu::Value profile =
        session.host().MakeString(Text(ReadInputFile(file)), kREALTextEncodingUnknown);
    Require(session, writer, kSetICCProfile, {session.host().MakeString(name), 0, profile});
  }
  if (options.Has("--dpi")) {
    const RBInteger dpi = IntegerOption(options, "--dpi", 0);
    Require(session, writer, kSetResolution, {dpi, dpi, kResolutionDPI});
  }
}

void WriteImage(Session& session, const emu::Value& writer) {
  Require(session, writer, kWriteInfo, {});
  Require(session, writer, kWriteRows, {});
  Require(session, writer, kWriteEnd, {});
}

// The whole stream into memory and out through Finish, or straight into the file.
size_t WriteOut(Session& session, const emu::Value& writer, const std::string& path,
                bool toString) {
  if (!toString) {
    Require(session, writer, kOpenWriteDestination, {session.host().MakeFolderItem(path)});
    WriteImage(session, writer);
    session.Call(writer, kCloseDestination, {});
    return ReadInputFile(path).size();
  }
  Require(session, writer, kOpenWriteDestination, {emu::Value()});
  WriteImage(session, writer);
  const std::string bytes = session.Call(writer, kFinish, {}).Bytes();
  try {
    samples::WriteFile(path, samples::Bytes(bytes.begin(), bytes.end()));
  } catch (const std::exception& e) {
    throw Failure{e.what()};
  }
  return bytes.size();
}

}  // namespace

int Encode(Session& session, const Options& options) {
  const Pixels pixels = LoadInput(session, options.positional[0]);
  const bool alpha = HasAlpha(pixels);
  const std::string type = options.Text("--type", alpha ? "rgba" : "rgb");
  if (type != "rgb" && type != "rgba" && type != "gray" && type != "graya" && type != "palette") {
    throw Failure{"unknown --type " + type};
  }
  const Pictures pictures =
      MakePictures(session, pixels, alpha || type == "rgba" || type == "graya");
  WriterMessages messages;
  const emu::Value writer = NewWriter(session, messages);
  const bool withAlphas = options.Has("--alphas");
  LoadRows(session, writer, type, pixels, pictures, withAlphas);
  SetChunks(session, writer, options, type == "palette");
  const size_t size = WriteOut(session, writer, options.positional[1], options.Has("--to-string"));
  std::cout << options.positional[1] << ": " << pixels.width << "x" << pixels.height << ", " << type
            << ", " << size << " bytes\n";
  return 0;
}

}  // namespace cli
