// pngkrv decode and cgbi: a PNG file into a host picture and mask, written as PAM with alpha =
// 255 − the mask sample (255 where there is no mask), or into one picture with an alpha channel,
// written as the straight RGBA that user code reads back from it. decode goes through a
// PNGReaderKRV or one of the one-call openers; cgbi opens CgBI data with OpenSpecialData, or with
// --to-png converts it into a standard PNG file with CgBIToPNGStringKRV.
#include <map>

#include "tools/pngkrv/Commands.h"
#include "tools/pngkrv/Images.h"

namespace cli {

namespace {

constexpr char kReadPicture[] = "ReadPicture as boolean";
constexpr char kReadAlphaPicture[] = "ReadAlphaPicture() As Boolean";
constexpr char kOpenSpecialData[] = "OpenSpecialData(data as string) as boolean";

struct DecodeSettings {
  std::string path;
  double gamma = 0.0;
  bool allowDamaged = false;
  bool gammaGiven = false;
};

// ReadPicture on a reader that is set up, and its Pict and Mask.
Pictures ReaderPicture(Session& session, const emu::Value& reader, const std::string& what) {
  if (!session.CallBool(reader, kReadPicture, {})) throw Failure{what + ": no picture decoded"};
  return {session.host().GetProperty(reader, "Pict"), session.host().GetProperty(reader, "Mask")};
}

Pictures ViaReader(Session& session, const DecodeSettings& settings) {
  emu::Value reader = session.NewReader();
  if (settings.allowDamaged) session.host().SetProperty(reader, "AllowDamaged", true);
  session.OpenAndSetUp(reader, settings.path, settings.gamma, -1.0);
  return ReaderPicture(session, reader, settings.path);
}

// The picture and mask of a PNGPictureKRV, or a Failure for nil.
Pictures PNGPicturePictures(Session& session, const emu::Value& result, const std::string& what) {
  if (result.IsNil()) throw Failure{what + ": no picture decoded"};
  return {session.host().GetProperty(result, "Pict"), session.host().GetProperty(result, "Mask")};
}

Pictures ViaString(Session& session, const DecodeSettings& settings) {
  const emu::Value result = session.CallGlobal(
      "PNGStringToPNGPictureKRV", {FileBytes(session, settings.path),
                                   static_cast<float>(settings.gamma), settings.allowDamaged});
  return PNGPicturePictures(session, result, settings.path);
}

Pictures ViaFile(Session& session, const DecodeSettings& settings) {
  const emu::Value result =
      session.CallNamed(session.host().MakeFolderItem(settings.path), "OpenAsPNGKRV",
                        {static_cast<float>(settings.gamma), settings.allowDamaged});
  return PNGPicturePictures(session, result, settings.path);
}

Pictures ViaCombined(Session& session, const DecodeSettings& settings) {
  const emu::Value picture = session.CallGlobal(
      "PNGStringToPictureKRV", {FileBytes(session, settings.path),
                                static_cast<float>(settings.gamma), settings.allowDamaged});
  if (picture.IsNil()) throw Failure{settings.path + ": no picture decoded"};
  return {picture, emu::Value()};
}

// A picture with an alpha channel, or a Failure for nil.
Pictures AlphaPicture(const emu::Value& picture, const std::string& what) {
  if (picture.IsNil()) throw Failure{what + ": no picture decoded"};
  return {picture, emu::Value()};
}

// The one-call alpha openers take no gamma and always give up on damaged data.
void CheckNoSettings(const DecodeSettings& settings) {
  if (settings.gammaGiven || settings.allowDamaged) {
    throw UsageError{"--via alpha-string and alpha-file take no --gamma or --allow-damaged"};
  }
}

Pictures ViaAlphaReader(Session& session, const DecodeSettings& settings) {
  emu::Value reader = session.NewReader();
  if (settings.allowDamaged) session.host().SetProperty(reader, "AllowDamaged", true);
  session.OpenAndSetUp(reader, settings.path, settings.gamma, -1.0);
  if (!session.CallBool(reader, kReadAlphaPicture, {})) {
    throw Failure{settings.path + ": no picture decoded"};
  }
  return AlphaPicture(session.host().GetProperty(reader, "Pict"), settings.path);
}

Pictures ViaAlphaString(Session& session, const DecodeSettings& settings) {
  CheckNoSettings(settings);
  return AlphaPicture(DecodeToAlphaPicture(session, settings.path), settings.path);
}

Pictures ViaAlphaFile(Session& session, const DecodeSettings& settings) {
  CheckNoSettings(settings);
  const emu::Value picture =
      session.CallNamed(session.host().MakeFolderItem(settings.path), "OpenAsAlphaPNGKRV", {});
  return AlphaPicture(picture, settings.path);
}

using Decoder = Pictures (*)(Session&, const DecodeSettings&);

Decoder DecoderFor(const std::string& via) {
  static const std::map<std::string, Decoder> decoders = {{"reader", ViaReader},
                                                          {"string", ViaString},
                                                          {"file", ViaFile},
                                                          {"combined", ViaCombined},
                                                          {"alpha-reader", ViaAlphaReader},
                                                          {"alpha-string", ViaAlphaString},
                                                          {"alpha-file", ViaAlphaFile}};
  const auto it = decoders.find(via);
  if (it == decoders.end()) {
    throw UsageError{
        "--via takes reader, string, file, combined, alpha-reader, alpha-string or alpha-file"};
  }
  return it->second;
}

// The CgBI file converted into a standard PNG file.
void CgBIToPNG(Session& session, const std::string& path, const std::string& out) {
  const std::string png =
      session.CallGlobal("CgBIToPNGStringKRV", {FileBytes(session, path)}).Bytes();
  if (png.empty()) throw Failure{path + ": not CgBI data that converts"};
  WriteOutputFile(out, samples::Bytes(png.begin(), png.end()));
}

}  // namespace

int Decode(Session& session, const Options& options) {
  const DecodeSettings settings{options.positional[0], options.Number("--gamma", 0.0),
                                options.Has("--allow-damaged"), options.Has("--gamma")};
  const Decoder decode = DecoderFor(options.Text("--via", "string"));
  WritePAM(session, options.positional[1], decode(session, settings));
  return 0;
}

int CgBI(Session& session, const Options& options) {
  const std::string& path = options.positional[0];
  if (options.Has("--to-png")) {
    if (options.Has("--gamma")) throw UsageError{"--to-png takes no --gamma"};
    CgBIToPNG(session, path, options.positional[1]);
    return 0;
  }
  emu::Value reader = session.NewReader();
  if (!session.CallBool(reader, kOpenSpecialData, {FileBytes(session, path)})) {
    throw Failure{path + ": not CgBI data that converts"};
  }
  session.SetUp(reader, path, options.Number("--gamma", 0.0), -1.0);
  WritePAM(session, options.positional[1], ReaderPicture(session, reader, path));
  return 0;
}

}  // namespace cli
