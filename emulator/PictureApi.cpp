// Pictures for test code: making them from RGBA bytes in every storage and shape the host knows,
// and reading any picture back.
#include <algorithm>

#include "emulator/Internal.h"

namespace emu {

namespace {

constexpr int kMaxRowPadding = 4096;
const size_t kRepresentationScales[] = {1, 2, 4};

PictureObject& RequirePicture(Host::State& s, const Value& value, const char* what) {
  Object& o = s.Require(value, what);
  if (o.kind != ObjectKind::Picture) {
    throw Error(std::string(what) + ": expected a picture, got " + value.Describe());
  }
  return static_cast<PictureObject&>(o);
}

void CheckOptions(size_t width, size_t height, std::string_view rgba,
                  const PictureOptions& options) {
  if (rgba.size() != width * height * 4) throw Error("MakePicture: wrong number of RGBA bytes");
  if (options.type < 0 || options.type > 3) throw Error("MakePicture: picture types are 0 to 3");
  if (options.mask == MaskSource::Grey && options.maskGrey.size() != width * height) {
    throw Error("MakePicture: wrong number of mask grey bytes");
  }
  if (options.mask != MaskSource::None && options.alphaChannel) {
    throw Error("MakePicture: a picture with alpha channel takes no mask");
  }
}

// The source byte offset (in pixels) for pixel (x, y) of a copy `scale` times as large.
size_t SourcePixel(size_t width, size_t scale, size_t x, size_t y) {
  return (y / scale) * width + x / scale;
}

uint8_t MaskGrey(std::string_view rgba, const PictureOptions& options, size_t pixel) {
  if (options.mask == MaskSource::Grey) return static_cast<uint8_t>(options.maskGrey[pixel]);
  return static_cast<uint8_t>(255 - static_cast<uint8_t>(rgba[pixel * 4 + 3]));
}

// A width × height picture from the bytes, `scale` times as large, with its mask.
Value Build(Host::State& s, size_t width, size_t height, size_t scale, std::string_view rgba,
            const PictureOptions& options) {
  const size_t w = width * scale;
  const size_t h = height * scale;
  auto made = std::make_unique<PictureObject>("MakePicture");
  if (options.storage == PictureStorage::GdPalette) {
    made->store = NewGdStore(w, h, true, options.alphaChannel);
    made->width = w;
    made->height = h;
    made->alpha = options.alphaChannel;
  } else {
    s.ConstructPicture(*made, w, h, options.alphaChannel);
  }
  PictureObject& p = *s.Add(std::move(made));
  Value picture = Value::AdoptObject(p.Handle());
  p.horizontalResolution = options.horizontalResolution;
  p.verticalResolution = options.verticalResolution;
  for (size_t y = 0; y < h; ++y) {
    for (size_t x = 0; x < w; ++x) {
      const auto* px =
          reinterpret_cast<const uint8_t*>(rgba.data()) + SourcePixel(width, scale, x, y) * 4;
      p.store->Put(x, y, {px[0], px[1], px[2], px[3]});
    }
  }
  if (options.mask == MaskSource::None) return picture;
  PictureObject* mask = s.NewPicture(w, h, false, "MakePicture");
  p.mask = mask->Handle();
  for (size_t y = 0; y < h; ++y) {
    for (size_t x = 0; x < w; ++x) {
      const uint8_t grey = MaskGrey(rgba, options, SourcePixel(width, scale, x, y));
      mask->store->Put(x, y, {grey, grey, grey, 255});
    }
  }
  return picture;
}

}  // namespace

void Host::SetPictureFormat(int alphaInfo, int rowPaddingBytes) {
  if (alphaInfo < 1 || alphaInfo > 6 || rowPaddingBytes < 0 || rowPaddingBytes > kMaxRowPadding) {
    throw Error("SetPictureFormat: alpha info 1 to 6 and a padding of 0 to 4096 bytes");
  }
  state_->pictureFormat = alphaInfo;
  state_->picturePadding = static_cast<size_t>(rowPaddingBytes);
}

Value Host::MakePicture(RBInteger width, RBInteger height, std::string_view rgba,
                        const PictureOptions& options) {
  if (!ValidPictureSize(width, height)) throw Error("MakePicture: size out of range");
  const auto w = static_cast<size_t>(width);
  const auto h = static_cast<size_t>(height);
  CheckOptions(w, h, rgba, options);
  Value picture = Build(*state_, w, h, 1, rgba, options);
  auto& p = static_cast<PictureObject&>(state_->Require(picture, "MakePicture"));
  p.type = options.type;
  if (options.type != 0 && options.type != 3) return picture;
  PictureOptions plain = options;
  plain.type = 2;
  for (size_t scale : kRepresentationScales) {
    Value representation = Build(*state_, w, h, scale, rgba, plain);
    state_->Retain(&state_->Require(representation, "MakePicture"));
    p.representations.emplace_back(static_cast<double>(scale),
                                   const_cast<void*>(representation.Handle()));
  }
  return picture;
}

std::string Host::PictureRgba(const Value& picture, size_t firstRow, size_t rowCount) const {
  PictureObject& p = RequirePicture(*state_, picture, "PictureRgba");
  std::string rgba;
  if (p.store == nullptr || firstRow >= p.height) return rgba;
  const size_t end = firstRow + std::min(rowCount, p.height - firstRow);
  rgba.reserve(p.width * (end - firstRow) * 4);
  for (size_t y = firstRow; y < end; ++y) {
    for (size_t x = 0; x < p.width; ++x) {
      Rgba px = ShownPixel(*state_, p, x, y);
      rgba += static_cast<char>(px.r);
      rgba += static_cast<char>(px.g);
      rgba += static_cast<char>(px.b);
      rgba += static_cast<char>(px.a);
    }
  }
  return rgba;
}

PictureRaw Host::RawPicture(const Value& picture) const {
  PictureObject& p = RequirePicture(*state_, picture, "RawPicture");
  return p.store != nullptr ? p.store->Raw() : PictureRaw{};
}

Value Host::PictureMask(const Value& picture) const {
  PictureObject& p = RequirePicture(*state_, picture, "PictureMask");
  return state_->LivePicture(p.mask) != nullptr ? Value::RetainObject(p.mask) : Value();
}

PictureCounts Host::PictureStats(const Value& picture) const {
  return RequirePicture(*state_, picture, "PictureStats").counts;
}

}  // namespace emu
