#include "bench/Corpus.h"

#include <math.h>
#include <png.h>
#include <string.h>

#include <algorithm>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "bench/Bare.h"

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

// Sprites on a transparent sheet: cells of 48 pixels, three in four holding a disc or a square
// shaded from one colour, whose edge fades out over two pixels. About a fifth of the sheet is
// covered.
void PaintSprites(Image& image) {
  const uint32_t w = image.width, h = image.height, cell = 48;
  image.rgba.assign(size_t{w} * h * 4, 0);
  Noise noise;
  auto random = [&noise](int n) { return (noise.Next() + 8) * n / 16; };
  for (uint32_t top = 0; top + cell <= h; top += cell) {
    for (uint32_t left = 0; left + cell <= w; left += cell) {
      if (random(4) == 0) continue;
      const double radius = 8 + random(14);
      const double cx = left + cell / 2.0 + random(5) - 2, cy = top + cell / 2.0 + random(5) - 2;
      const bool square = random(2) == 1;
      const int r = 40 + random(216), g = 40 + random(216), b = 40 + random(216);
      for (uint32_t y = top; y < top + cell; ++y) {
        for (uint32_t x = left; x < left + cell; ++x) {
          const double dx = x - cx, dy = y - cy;
          const double d = square ? std::max(fabs(dx), fabs(dy)) : sqrt(dx * dx + dy * dy);
          const int alpha = int(255 * (radius - d) / 2);
          if (alpha <= 0) continue;
          const double shade = 1.0 - 0.4 * (dy + radius) / (2 * radius);
          uint8_t* p = &image.rgba[(size_t{y} * w + x) * 4];
          p[0] = Clamp(int(r * shade));
          p[1] = Clamp(int(g * shade));
          p[2] = Clamp(int(b * shade));
          p[3] = Clamp(alpha);
        }
      }
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

// A palette: the 6×6×6 colour cube, after one fully transparent entry for an atlas.
struct Palette {
  std::vector<png_color> colours;
  std::vector<png_byte> alphas;  // the tRNS entries
};

Palette MakePalette(bool transparentEntry) {
  Palette palette;
  if (transparentEntry) {
    palette.colours.push_back({0, 0, 0});
    palette.alphas.push_back(0);
  }
  for (int i = 0; i < 216; ++i) {
    palette.colours.push_back({uint8_t(i / 36 * 51), uint8_t(i / 6 % 6 * 51), uint8_t(i % 6 * 51)});
  }
  return palette;
}

// The palette index of a pixel: the transparent entry below half alpha, else the nearest cube
// colour at or below the pixel's.
uint8_t IndexOf(const uint8_t* p, bool transparentEntry) {
  if (transparentEntry && p[3] < 128) return 0;
  return static_cast<uint8_t>((transparentEntry ? 1 : 0) + (p[0] / 51) * 36 + (p[1] / 51) * 6 +
                              p[2] / 51);
}

// The rows as the colour type stores them: RGB, RGBA or palette indices.
std::vector<Bytes> StoredRows(const Image& image, bool transparentEntry) {
  const int channels = image.colorType == 6 ? 4 : image.colorType == 2 ? 3 : 1;
  std::vector<Bytes> rows(image.height, Bytes(size_t{image.width} * channels));
  for (uint32_t y = 0; y < image.height; ++y) {
    for (uint32_t x = 0; x < image.width; ++x) {
      const uint8_t* p = &image.rgba[(size_t{y} * image.width + x) * 4];
      uint8_t* out = &rows[y][size_t{x} * channels];
      if (channels == 1) {
        out[0] = IndexOf(p, transparentEntry);
      } else {
        for (int c = 0; c < channels; ++c) out[c] = p[c];
      }
    }
  }
  return rows;
}

// The pixels as a palette image decodes: each colour of the palette entry, and its alpha.
void Quantise(Image& image, const Palette& palette, bool transparentEntry) {
  for (size_t i = 0; i < image.rgba.size(); i += 4) {
    const uint8_t index = IndexOf(&image.rgba[i], transparentEntry);
    const png_color& c = palette.colours[index];
    const bool clear = index < palette.alphas.size();
    image.rgba[i] = c.red;
    image.rgba[i + 1] = c.green;
    image.rgba[i + 2] = c.blue;
    image.rgba[i + 3] = clear ? palette.alphas[index] : 255;
  }
}

bool EncodeInto(const Image& image, png_bytepp rows, const Palette& palette, Sink* sink) {
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
  if (!palette.colours.empty()) {
    png_set_PLTE(png, info, palette.colours.data(), int(palette.colours.size()));
  }
  if (!palette.alphas.empty()) {
    png_set_tRNS(png, info, palette.alphas.data(), int(palette.alphas.size()), nullptr);
  }
  png_write_info(png, info);
  png_write_image(png, rows);
  png_write_end(png, info);
  png_destroy_write_struct(&png, &info);
  return true;
}

void Encode(Image& image, bool transparentEntry) {
  std::vector<Bytes> rows = StoredRows(image, transparentEntry);
  Palette palette;
  if (image.colorType == 3) {
    palette = MakePalette(transparentEntry);
    Quantise(image, palette, transparentEntry);
  }
  std::vector<png_bytep> pointers;
  for (Bytes& row : rows) pointers.push_back(row.data());
  Sink sink{&image.png};
  if (!EncodeInto(image, pointers.data(), palette, &sink)) {
    throw std::runtime_error("libpng could not encode " + image.name);
  }
}

}  // namespace

std::string Recipe::Name() const {
  const std::string type = colorType == 6 ? "rgba" : colorType == 2 ? "rgb" : "palette";
  return (content == Content::kSprites ? "sprites-" : "") + type + "-" +
         std::to_string(megapixels) + "mp" + (interlaced ? "-adam7" : "");
}

Image MakeImage(const Recipe& recipe) {
  Image image;
  const uint32_t side = recipe.megapixels == 1 ? 1000 : recipe.megapixels == 4 ? 2000 : 4000;
  image.width = side;
  image.height = side;
  image.colorType = recipe.colorType;
  image.interlaced = recipe.interlaced;
  image.name = recipe.Name();
  image.alpha = recipe.colorType == 6 || recipe.content == Content::kSprites;
  const bool sprites = recipe.content == Content::kSprites;
  if (sprites) {
    PaintSprites(image);
  } else {
    Paint(image);
  }
  Encode(image, sprites);
  return image;
}

std::vector<Recipe> CorpusRecipes(const std::vector<int>& sizes) {
  std::vector<Recipe> recipes;
  for (int mp : sizes) {
    for (int colorType : {2, 6}) {
      for (bool interlaced : {false, true}) recipes.push_back({mp, colorType, interlaced});
    }
  }
  const int mp = sizes.size() > 1 ? 4 : sizes[0];
  recipes.push_back({mp, 3, false});
  recipes.push_back({mp, 6, false, Content::kSprites});
  recipes.push_back({mp, 3, false, Content::kSprites});
  return recipes;
}

std::vector<Listed> ReadList(const std::string& path) {
  std::ifstream file(path);
  if (!file) throw std::runtime_error("cannot read " + path);
  std::vector<Listed> listed;
  std::string line;
  while (std::getline(file, line)) {
    std::istringstream fields(line);
    Listed item;
    if (!(fields >> item.name) || item.name[0] == '#') continue;
    if (!(fields >> item.kind >> item.package >> item.path)) {
      throw std::runtime_error("incomplete line in " + path + ": " + line);
    }
    listed.push_back(item);
  }
  return listed;
}

Image LoadImage(const std::string& name, const std::string& kind, const std::string& file) {
  std::ifstream in(file, std::ios::binary);
  Image image;
  image.name = name;
  image.kind = kind;
  image.png.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  const Bytes& p = image.png;
  if (p.size() < 33 || memcmp(p.data() + 12, "IHDR", 4) != 0) {
    throw std::runtime_error("not a PNG file: " + file);
  }
  auto word = [&p](size_t at) {
    return uint32_t{p[at]} << 24 | uint32_t{p[at + 1]} << 16 | uint32_t{p[at + 2]} << 8 | p[at + 3];
  };
  image.width = word(16);
  image.height = word(20);
  image.colorType = p[25];
  image.interlaced = p[28] != 0;
  image.alpha = (image.colorType & PNG_COLOR_MASK_ALPHA) != 0;
  // A transparency chunk comes before the first IDAT.
  for (size_t at = 8; at + 8 <= p.size() && memcmp(&p[at + 4], "IDAT", 4) != 0;
       at += size_t{word(at)} + 12) {
    if (memcmp(&p[at + 4], "tRNS", 4) == 0) image.alpha = true;
  }
  BareDecode(image.png, image.rgba);
  return image;
}

}  // namespace bench
