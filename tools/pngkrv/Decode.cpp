// pngkrv decode: a PNG file into a host picture and mask through PNGReaderKRV, written as PAM
// with alpha = 255 − the mask sample (255 where there is no mask).
#include "tools/pngkrv/Commands.h"

namespace cli {

namespace {

constexpr char kReadPicture[] = "ReadPicture as boolean";

samples::Bytes Rgba(Session& session, const emu::Value& picture) {
  const std::string bytes = session.host().PictureRgba(picture);
  return samples::Bytes(bytes.begin(), bytes.end());
}

}  // namespace

int Decode(Session& session, const Options& options) {
  const std::string& path = options.positional[0];
  emu::Value reader = session.NewReader();
  if (options.Has("--allow-damaged")) session.host().SetProperty(reader, "AllowDamaged", true);
  session.OpenAndSetUp(reader, path, options.Number("--gamma", 0.0), -1.0);
  if (!session.CallBool(reader, kReadPicture, {})) throw Failure{path + ": no picture decoded"};
  const emu::Value pict = session.host().GetProperty(reader, "Pict");
  const emu::Value mask = session.host().GetProperty(reader, "Mask");
  samples::Bytes rgba = Rgba(session, pict);
  if (!mask.IsNil()) {
    const samples::Bytes grey = Rgba(session, mask);
    for (size_t i = 3; i < rgba.size() && i < grey.size(); i += 4) rgba[i] = 255 - grey[i - 3];
  }
  const auto width = static_cast<uint32_t>(session.Integer(reader, "Width"));
  const auto height = static_cast<uint32_t>(session.Integer(reader, "Height"));
  samples::WriteFile(options.positional[1], samples::EncodePAM(width, height, rgba));
  return 0;
}

}  // namespace cli
