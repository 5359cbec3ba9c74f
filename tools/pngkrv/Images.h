// Images as the tool moves them between files and host pictures: input files (PAM, or PNG
// decoded through the plug-in), pictures with and without masks, and palettes.
#pragma once

#include <string>
#include <vector>

#include "tools/pngkrv/Session.h"

namespace cli {

struct Pixels {
  uint32_t width = 0;
  uint32_t height = 0;
  samples::Bytes rgba;
};

struct Pictures {
  emu::Value picture;
  emu::Value mask;  // nil unless asked for
};

// The palette of an image: its distinct colours in order of appearance, with their alphas. With
// alphas it fills all 256 slots (opaque black) so that the writer's sort over every slot keeps
// the image's colours in the table.
struct Palette {
  std::vector<RBColor> colors;
  std::vector<RBInteger> alphas;
};

std::string Text(const samples::Bytes& bytes);
// File access that fails with a Failure.
samples::Bytes ReadInputFile(const std::string& path);
void WriteOutputFile(const std::string& path, const samples::Bytes& bytes);

// A PAM file as it stands, or a PNG file's pixels as the plug-in reads them without gamma.
Pixels LoadInput(Session& session, const std::string& path);
// The file's bytes as a string without encoding.
emu::Value FileBytes(Session& session, const std::string& path);
// A PNG file decoded by PNGStringToAlphaPictureKRV (nil when it fails).
emu::Value DecodeToAlphaPicture(Session& session, const std::string& path);
bool HasAlpha(const Pixels& pixels);

// The opaque colours as a picture and, when wanted, the alphas as a separate mask (grey 255 −
// alpha).
Pictures MakePictures(Session& session, const Pixels& pixels, bool withMask);
// One picture that carries the alphas as its own mask (none when the pixels are opaque).
emu::Value MakeMaskedPicture(Session& session, const Pixels& pixels);
// A picture with an alpha channel, made by the host, holding the pixels.
emu::Value MakeAlphaPicture(Session& session, const Pixels& pixels);
// A picture's pixels with `mask` (when not nil) applied: alpha = 255 − the mask's grey.
Pixels PicturePixels(Session& session, const emu::Value& picture, const emu::Value& mask);
// The same as a PAM file, read from the host a band of rows at a time: a large picture is never
// copied whole.
void WritePAM(Session& session, const std::string& path, const Pictures& shown);

// Fails when the image has more than 256 colours, or, with alphas, a colour with two alphas.
Palette PaletteOf(const Pixels& pixels, bool withAlphas);

}  // namespace cli
