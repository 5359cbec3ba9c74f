// pngkrv save: a PAM file, or a PNG decoded through the plug-in, becomes a host picture that the
// one-call savers write: "PictureToPNGStringKRV" (its string written to OUT), "SaveAsPNGKRV" on a
// folder item for OUT, or the 8-bit palette savers with the image's colours (and alphas).
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

void SaveToString(Session& session, std::vector<emu::Arg> args, const std::string& path) {
  const emu::Value png = session.CallGlobal("PictureToPNGStringKRV", std::move(args));
  if (png.IsNil()) throw Failure{"PictureToPNGStringKRV gave no PNG data"};
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

const char* SaverOf(const Options& options) {
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
}

}  // namespace

int Save(Session& session, const Options& options) {
  CheckCombination(options);
  const Pixels pixels = LoadInput(session, options.positional[0]);
  const std::string& out = options.positional[1];
  const bool palette = options.Has("--8bit");
  std::vector<emu::Arg> args = palette ? PaletteArguments(session, pixels, options)
                                       : PictureArguments(session, pixels, options);
  const char* saver = SaverOf(options);
  if (palette || options.Has("--file")) {
    SaveToFile(session, saver, std::move(args), out);
  } else {
    SaveToString(session, std::move(args), out);
  }
  std::cout << out << ": " << pixels.width << "x" << pixels.height << " through " << saver << ", "
            << ReadInputFile(out).size() << " bytes\n";
  return 0;
}

}  // namespace cli
