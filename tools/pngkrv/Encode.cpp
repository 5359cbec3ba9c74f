// pngkrv encode: a PAM file, or a PNG decoded through the plug-in's reader, becomes a host picture
// (with a mask when it has alpha) that a PNGWriterKRV writes as PNG, to a file or through Finish.
#include <iostream>

#include "tools/pngkrv/Commands.h"
#include "tools/pngkrv/Images.h"

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
constexpr char kAddText[] =
    "AddText(key As String, value As String, compressed As Boolean = False) As Boolean";
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

// The Error and Warning messages of the writer, printed when the command ends either way.
struct WriterMessages {
  std::vector<std::string> lines;
  ~WriterMessages() {
    for (const std::string& line : lines) std::cerr << line << "\n";
  }
};

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

// One "--text KEY=VALUE" (the key ends at the first "="), as UTF-8 host strings.
void AddText(Session& session, const emu::Value& writer, const std::string& pair, bool compressed) {
  const size_t split = pair.find('=');
  if (split == std::string::npos) throw UsageError{"--text and --compressed-text take KEY=VALUE"};
  Require(session, writer, kAddText,
          {session.host().MakeString(pair.substr(0, split)),
           session.host().MakeString(pair.substr(split + 1)), compressed});
}

// The two values of "--icc NAME FILE", kept apart by a NUL in the option's value.
std::pair<std::string, std::string> IccOption(const Options& options) {
  const std::string& value = options.values.at("--icc");
  const size_t split = value.find('\0');
  return {value.substr(0, split), value.substr(split + 1)};
}

void SetChunks(Session& session, const emu::Value& writer, const Options& options, bool palette) {
  Require(session, writer, kSetHeader,
          {options.Has("--interlace"), options.Integer("--filter", -1),
           options.Integer("--level", -1)});
  if (palette) {
    Require(session, writer, kSetPalette, {});
    if (options.Has("--alphas")) Require(session, writer, kSetAlphas, {});
  }
  if (options.Has("--gamma")) Require(session, writer, kSetGamma, {options.Number("--gamma", 0)});
  if (options.Has("--srgb")) {
    Require(session, writer, kSetsRGB, {options.Integer("--srgb", 0)});
  }
  if (options.Has("--icc")) {
    const auto [name, file] = IccOption(options);
    const emu::Value profile =
        session.host().MakeString(Text(ReadInputFile(file)), kREALTextEncodingUnknown);
    Require(session, writer, kSetICCProfile, {session.host().MakeString(name), 0, profile});
  }
  if (options.Has("--dpi")) {
    const RBInteger dpi = options.Integer("--dpi", 0);
    Require(session, writer, kSetResolution, {dpi, dpi, kResolutionDPI});
  }
  for (const char* option : {"--text", "--compressed-text"}) {
    for (const std::string& pair : options.All(option))
      AddText(session, writer, pair, option[2] == 'c');
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
  WriteOutputFile(path, samples::Bytes(bytes.begin(), bytes.end()));
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
  if (options.Has("--threads")) {
    session.host().SetProperty(writer, "Threads", options.Integer("--threads", 0));
  }
  const bool withAlphas = options.Has("--alphas");
  LoadRows(session, writer, type, pixels, pictures, withAlphas);
  SetChunks(session, writer, options, type == "palette");
  const size_t size = WriteOut(session, writer, options.positional[1], options.Has("--to-string"));
  std::cout << options.positional[1] << ": " << pixels.width << "x" << pixels.height << ", " << type
            << ", " << size << " bytes\n";
  return 0;
}

}  // namespace cli
