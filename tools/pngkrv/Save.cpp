// pngkrv save: a PAM file, or a PNG decoded through the plug-in, becomes a host picture that the
// one-call savers write: "PictureToPNGStringKRV" (its string written to OUT), "SaveAsPNGKRV" on a
// folder item for OUT, or the 8-bit palette savers with the image's colours (and alphas). With
// --alpha the picture has an alpha channel (a PNG decoded by PNGStringToAlphaPictureKRV, a PAM
// file's pixels in a picture the host makes) and "AlphaPictureToPNGStringKRV" or
// "SaveAsAlphaPNGKRV" writes it.
#include <iostream>

#include "tools/pngkrv/Commands.h"
#include "tools/pngkrv/Images.h"

namespace cli {

namespace {

// The trailing arguments of every saver: the gamma and, for the overloads that take them, the
// interlacing and the filter.
void AddSettings(std::vector<emu::Arg>& args, const Options& options) {
  args.push_back(static_cast<float>(options.Number("--gamma", 0.0)));
  if (options.Has("--interlace") || options.Has("--filter")) {
    args.push_back(options.Has("--interlace"));
    args.push_back(options.Integer("--filter", -1));
  }
}

// The picture carrying its own mask, or (--mask) the picture and the mask as an argument of its
// own, nil for opaque pixels.
std::vector<emu::Arg> PictureArguments(Session& session, const Pixels& pixels,
                                       const Options& options) {
  std::vector<emu::Arg> args;
  if (options.Has("--mask")) {
    const Pictures pictures = MakePictures(session, pixels, HasAlpha(pixels));
    args = {pictures.picture, pictures.mask};
  } else {
    args = {MakeMaskedPicture(session, pixels)};
  }
  AddSettings(args, options);
  return args;
}

std::vector<emu::Arg> PaletteArguments(Session& session, const Pixels& pixels,
                                       const Options& options) {
  const bool withAlphas = options.Has("--alphas");
  const Palette palette = PaletteOf(pixels, withAlphas);
  std::vector<emu::Arg> args = {MakePictures(session, pixels, false).picture,
                                session.host().MakeColorArray(palette.colors)};
  if (withAlphas) args.push_back(session.host().MakeIntegerArray(palette.alphas));
  AddSettings(args, options);
  return args;
}

void SaveToString(Session& session, const char* saver, std::vector<emu::Arg> args,
                  const std::string& path) {
  const emu::Value png = session.CallGlobal(saver, std::move(args));
  if (png.IsNil()) throw Failure{std::string(saver) + " gave no PNG data"};
  const std::string bytes = png.Bytes();
  WriteOutputFile(path, samples::Bytes(bytes.begin(), bytes.end()));
}

void SaveToFile(Session& session, const char* saver, std::vector<emu::Arg> args,
                const std::string& path) {
  const emu::Value item = session.host().MakeFolderItem(path);
  if (!session.CallNamed(item, saver, std::move(args)).AsBoolean()) {
    throw Failure{std::string(saver) + " could not write " + path};
  }
}

// The picture with an alpha channel, and the gamma.
std::vector<emu::Arg> AlphaArguments(Session& session, const std::string& path,
                                     const Options& options) {
  const samples::Bytes head = ReadInputFile(path);
  emu::Value picture;
  if (head.size() >= 2 && head[0] == 'P' && head[1] == '7') {
    picture = MakeAlphaPicture(session, LoadInput(session, path));
  } else {
    picture = DecodeToAlphaPicture(session, path);
    if (picture.IsNil()) throw Failure{path + ": no picture decoded"};
  }
  return {picture, static_cast<float>(options.Number("--gamma", 0.0))};
}

const char* SaverOf(const Options& options) {
  if (options.Has("--alpha")) {
    return options.Has("--file") ? "SaveAsAlphaPNGKRV" : "AlphaPictureToPNGStringKRV";
  }
  if (options.Has("--8bit")) {
    return options.Has("--alphas") ? "SaveAs8BitAlphaPNGKRV" : "SaveAs8BitPNGKRV";
  }
  return options.Has("--file") ? "SaveAsPNGKRV" : "PictureToPNGStringKRV";
}

void CheckCombination(const Options& options) {
  if (options.Has("--8bit") && options.Has("--mask")) {
    throw UsageError{"--mask does not go with --8bit"};
  }
  if (options.Has("--alphas") && !options.Has("--8bit")) {
    throw UsageError{"--alphas needs --8bit"};
  }
  if (options.Has("--alpha") && (options.Has("--8bit") || options.Has("--mask") ||
                                 options.Has("--interlace") || options.Has("--filter"))) {
    throw UsageError{"--alpha takes only --gamma and --file"};
  }
}

}  // namespace

int Save(Session& session, const Options& options) {
  CheckCombination(options);
  const std::string& in = options.positional[0];
  const std::string& out = options.positional[1];
  const bool palette = options.Has("--8bit");
  const char* saver = SaverOf(options);
  std::vector<emu::Arg> args;
  if (options.Has("--alpha")) {
    args = AlphaArguments(session, in, options);
  } else {
    const Pixels pixels = LoadInput(session, in);
    args = palette ? PaletteArguments(session, pixels, options)
                   : PictureArguments(session, pixels, options);
  }
  const emu::Value picture = args[0].value;
  if (palette || options.Has("--file")) {
    SaveToFile(session, saver, std::move(args), out);
  } else {
    SaveToString(session, saver, std::move(args), out);
  }
  std::cout << out << ": " << session.Integer(picture, "Width") << "x"
            << session.Integer(picture, "Height") << " through " << saver << ", "
            << ReadInputFile(out).size() << " bytes\n";
  return 0;
}

}  // namespace cli
