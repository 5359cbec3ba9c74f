#include "tools/pngkrv/Images.h"

#include <fstream>
#include <map>

namespace cli {

namespace {

constexpr size_t kPaletteSlots = 256;

samples::Bytes PictureBytes(Session& session, const emu::Value& picture) {
  const std::string bytes = session.host().PictureRgba(picture);
  return samples::Bytes(bytes.begin(), bytes.end());
}

}  // namespace

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

void WriteOutputFile(const std::string& path, const samples::Bytes& bytes) {
  try {
    samples::WriteFile(path, bytes);
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
  DecodedRows rows = ReadRows(session, path, -1.0, -1.0);
  pixels.width = rows.width;
  pixels.height = rows.height;
  pixels.rgba = std::move(rows.rgba);
  return pixels;
}

emu::Value FileBytes(Session& session, const std::string& path) {
  return session.host().MakeString(Text(ReadInputFile(path)), kREALTextEncodingUnknown);
}

emu::Value DecodeToAlphaPicture(Session& session, const std::string& path) {
  return session.CallGlobal("PNGStringToAlphaPictureKRV", {FileBytes(session, path)});
}

bool HasAlpha(const Pixels& pixels) {
  for (size_t i = 3; i < pixels.rgba.size(); i += 4) {
    if (pixels.rgba[i] != 255) return true;
  }
  return false;
}

Pictures MakePictures(Session& session, const Pixels& pixels, bool withMask) {
  samples::Bytes mask;
  for (size_t i = 3; i < pixels.rgba.size(); i += 4) {
    const uint8_t grey = static_cast<uint8_t>(255 - pixels.rgba[i]);
    mask.insert(mask.end(), {grey, grey, grey, 255});
  }
  Pictures pictures;
  pictures.picture = session.host().MakePicture(pixels.width, pixels.height, Text(pixels.rgba));
  if (withMask) {
    pictures.mask = session.host().MakePicture(pixels.width, pixels.height, Text(mask));
  }
  return pictures;
}

emu::Value MakeMaskedPicture(Session& session, const Pixels& pixels) {
  emu::PictureOptions options;
  if (HasAlpha(pixels)) options.mask = emu::MaskSource::Alpha;
  return session.host().MakePicture(pixels.width, pixels.height, Text(pixels.rgba), options);
}

emu::Value MakeAlphaPicture(Session& session, const Pixels& pixels) {
  emu::PictureOptions options;
  options.alphaChannel = true;
  return session.host().MakePicture(pixels.width, pixels.height, Text(pixels.rgba), options);
}

Pixels PicturePixels(Session& session, const emu::Value& picture, const emu::Value& mask) {
  Pixels pixels;
  pixels.width = static_cast<uint32_t>(session.Integer(picture, "Width"));
  pixels.height = static_cast<uint32_t>(session.Integer(picture, "Height"));
  pixels.rgba = PictureBytes(session, picture);
  if (!mask.IsNil()) {
    const samples::Bytes grey = PictureBytes(session, mask);
    for (size_t i = 3; i < pixels.rgba.size() && i < grey.size(); i += 4) {
      pixels.rgba[i] = 255 - grey[i - 3];
    }
  }
  return pixels;
}

void WritePAM(Session& session, const std::string& path, const Pictures& shown) {
  constexpr size_t kBandRows = 64;
  const auto width = static_cast<uint32_t>(session.Integer(shown.picture, "Width"));
  const auto height = static_cast<uint32_t>(session.Integer(shown.picture, "Height"));
  std::ofstream out(path, std::ios::binary);
  const samples::Bytes header = samples::EncodePAM(width, height, {});
  out.write(reinterpret_cast<const char*>(header.data()), std::streamsize(header.size()));
  for (size_t y = 0; y < height && out; y += kBandRows) {
    std::string rgba = session.host().PictureRgba(shown.picture, y, kBandRows);
    if (!shown.mask.IsNil()) {
      const std::string grey = session.host().PictureRgba(shown.mask, y, kBandRows);
      for (size_t i = 3; i < rgba.size() && i < grey.size(); i += 4) {
        rgba[i] = static_cast<char>(255 - static_cast<uint8_t>(grey[i - 3]));
      }
    }
    out.write(rgba.data(), std::streamsize(rgba.size()));
  }
  if (!out) throw Failure{"cannot write " + path};
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

}  // namespace cli
