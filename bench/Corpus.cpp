#include "bench/Corpus.h"

#include <math.h>
#include <png.h>

#include <stdexcept>

namespace bench {

namespace {

struct Noise {
  uint32_t state = 2463534242u;
  int Next() {
    state ^= state << 13;
    state ^= state >> 17;
    state ^= state << 5;
    return static_cast<int>(state & 15) - 8;
  }
};

uint8_t Clamp(int v) {
  return static_cast<uint8_t>(v < 0 ? 0 : v > 255 ? 255 : v);
}

// Gradients across the picture, a soft wave, a few shapes with sharp edges and sensor noise.
void Paint(Image& image) {
  const uint32_t w = image.width, h = image.height;
  image.rgba.resize(size_t{w} * h * 4);
  Noise noise;
  for (uint32_t y = 0; y < h; ++y) {
    for (uint32_t x = 0; x < w; ++x) {
      const double fx = double(x) / w, fy = double(y) / h;
      int r = int(220 * fx + 20), g = int(200 * fy + 30);
      int b = int(128 + 100 * sin(6.0 * fx + 4.0 * fy));
      const bool disc = (fx - 0.3) * (fx - 0.3) + (fy - 0.6) * (fy - 0.6) < 0.04;
      const bool band = fx > 0.6 && fx < 0.8 && fy > 0.1 && fy < 0.5;
      if (disc) r = 240, g = 60, b = 40;
      if (band) r = 30, g = 90, b = 200;
      uint8_t* p = &image.rgba[(size_t{y} * w + x) * 4];
      p[0] = Clamp(r + noise.Next());
      p[1] = Clamp(g + noise.Next());
      p[2] = Clamp(b + noise.Next());
      const double d = sqrt((fx - 0.5) * (fx - 0.5) + (fy - 0.5) * (fy - 0.5));
      p[3] = image.colorType == 6 ? Clamp(int(255 - 300 * d) + noise.Next()) : 255;
    }
  }
}

struct Sink {
  Bytes* out;
};

void Append(png_structp png, png_bytep data, png_size_t length) {
  auto* sink = static_cast<Sink*>(png_get_io_ptr(png));
  sink->out->insert(sink->out->end(), data, data + length);
}

void NoFlush(png_structp) {}

// The rows as the colour type stores them: RGB, RGBA, or indices into a 6×6×6 colour cube.
std::vector<Bytes> StoredRows(const Image& image) {
  const int channels = image.colorType == 6 ? 4 : image.colorType == 2 ? 3 : 1;
  std::vector<Bytes> rows(image.height, Bytes(size_t{image.width} * channels));
  for (uint32_t y = 0; y < image.height; ++y) {
    for (uint32_t x = 0; x < image.width; ++x) {
      const uint8_t* p = &image.rgba[(size_t{y} * image.width + x) * 4];
      uint8_t* out = &rows[y][size_t{x} * channels];
      if (channels == 1) {
        out[0] = static_cast<uint8_t>((p[0] / 51) * 36 + (p[1] / 51) * 6 + p[2] / 51);
      } else {
        for (int c = 0; c < channels; ++c) out[c] = p[c];
      }
    }
  }
  return rows;
}

bool EncodeInto(const Image& image, png_bytepp rows, const std::vector<png_color>& palette,
                Sink* sink) {
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_infop info = png ? png_create_info_struct(png) : nullptr;
  if (info == nullptr || setjmp(png_jmpbuf(png))) {
    png_destroy_write_struct(&png, &info);
    return false;
  }
  png_set_write_fn(png, sink, Append, NoFlush);
  png_set_IHDR(png, info, image.width, image.height, 8, image.colorType,
               image.interlaced ? PNG_INTERLACE_ADAM7 : PNG_INTERLACE_NONE,
               PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
  if (!palette.empty()) png_set_PLTE(png, info, palette.data(), int(palette.size()));
  png_write_info(png, info);
  png_write_image(png, rows);
  png_write_end(png, info);
  png_destroy_write_struct(&png, &info);
  return true;
}

// The colours of the palette image's cube, and its pixels as they decode.
std::vector<png_color> Cube(Image& image) {
  std::vector<png_color> palette;
  for (int i = 0; i < 216; ++i) {
    palette.push_back({uint8_t(i / 36 * 51), uint8_t(i / 6 % 6 * 51), uint8_t(i % 6 * 51)});
  }
  for (size_t i = 0; i < image.rgba.size(); i += 4) {
    for (int c = 0; c < 3; ++c) image.rgba[i + c] = uint8_t(image.rgba[i + c] / 51 * 51);
  }
  return palette;
}

void Encode(Image& image) {
  std::vector<Bytes> rows = StoredRows(image);
  const std::vector<png_color> palette =
      image.colorType == 3 ? Cube(image) : std::vector<png_color>();
  std::vector<png_bytep> pointers;
  for (Bytes& row : rows) pointers.push_back(row.data());
  Sink sink{&image.png};
  if (!EncodeInto(image, pointers.data(), palette, &sink)) {
    throw std::runtime_error("libpng could not encode " + image.name);
  }
}

}  // namespace

Image MakeImage(int megapixels, int colorType, bool interlaced) {
  Image image;
  const uint32_t side = megapixels == 1 ? 1000 : megapixels == 4 ? 2000 : 4000;
  image.width = side;
  image.height = side;
  image.colorType = colorType;
  image.interlaced = interlaced;
  image.name = std::string(colorType == 6   ? "rgba"
                           : colorType == 2 ? "rgb"
                                            : "palette") +
               "-" + std::to_string(megapixels) + "mp" + (interlaced ? "-adam7" : "");
  Paint(image);
  Encode(image);
  return image;
}

std::vector<Image> MakeCorpus(const std::vector<int>& sizes) {
  std::vector<Image> corpus;
  for (int mp : sizes) {
    for (int colorType : {2, 6}) {
      for (bool interlaced : {false, true}) corpus.push_back(MakeImage(mp, colorType, interlaced));
    }
  }
  corpus.push_back(MakeImage(sizes.size() > 1 ? 4 : sizes[0], 3, false));
  return corpus;
}

}  // namespace bench
