#include "bench/Bare.h"

#include <png.h>
#include <spng.h>
#include <stb/stb_image.h>
#include <string.h>

#include <stdexcept>

#include "writer/ParallelDeflate.h"

namespace bench {

namespace {

struct Source {
  const Bytes* data;
  size_t position;
};

void ReadFromMemory(png_structp png, png_bytep out, png_size_t length) {
  auto* source = static_cast<Source*>(png_get_io_ptr(png));
  const size_t left = source->data->size() - source->position;
  if (length > left) png_error(png, "read past the end");
  memcpy(out, source->data->data() + source->position, length);
  source->position += length;
}

// The reader's set-up: every row width × 4 bytes of RGB and alpha or filler.
int SetUp(png_structp png, png_infop info) {
  png_read_info(png, info);
  const int colorType = png_get_color_type(png, info);
  png_set_strip_16(png);
  png_set_packing(png);
  if (colorType == PNG_COLOR_TYPE_GRAY || colorType == PNG_COLOR_TYPE_GRAY_ALPHA) {
    png_set_expand(png);
    png_set_gray_to_rgb(png);
  }
  if (colorType == PNG_COLOR_TYPE_PALETTE) png_set_palette_to_rgb(png);
  if (png_get_valid(png, info, PNG_INFO_tRNS)) png_set_tRNS_to_alpha(png);
  png_set_filler(png, 255, PNG_FILLER_AFTER);
  const int passes = png_set_interlace_handling(png);
  png_read_update_info(png, info);
  return passes;
}

struct ReadState {
  png_structp png = nullptr;
  png_infop info = nullptr;
  Source source;
  explicit ReadState(const Bytes& data) : source{&data, 0} {
    png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    info = png_create_info_struct(png);
    png_set_read_fn(png, &source, ReadFromMemory);
  }
  ~ReadState() { png_destroy_read_struct(&png, &info, nullptr); }
};

bool DecodeInto(ReadState& s, Bytes& rgba, std::vector<png_bytep>& rows) {
  if (setjmp(png_jmpbuf(s.png))) return false;
  SetUp(s.png, s.info);
  const size_t width = png_get_image_width(s.png, s.info);
  const size_t height = png_get_image_height(s.png, s.info);
  rgba.resize(width * height * 4);
  rows.resize(height);
  for (size_t y = 0; y < height; ++y) rows[y] = rgba.data() + y * width * 4;
  png_read_image(s.png, rows.data());
  return true;
}

bool ReadRows(ReadState& s, Bytes& row, size_t& count) {
  if (setjmp(png_jmpbuf(s.png))) return false;
  SetUp(s.png, s.info);
  row.resize(png_get_rowbytes(s.png, s.info));
  const size_t height = png_get_image_height(s.png, s.info);
  for (count = 0; count < height; ++count) png_read_row(s.png, row.data(), nullptr);
  return true;
}

void Append(png_structp png, png_bytep data, png_size_t length) {
  auto* out = static_cast<Bytes*>(png_get_io_ptr(png));
  out->insert(out->end(), data, data + length);
}

void NoFlush(png_structp) {}

bool EncodeInto(const Image& image, int channels, png_bytepp rows, Bytes& out) {
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_infop info = png_create_info_struct(png);
  if (setjmp(png_jmpbuf(png))) {
    png_destroy_write_struct(&png, &info);
    return false;
  }
  png_set_write_fn(png, &out, Append, NoFlush);
  png_set_IHDR(png, info, image.width, image.height, 8,
               channels == 4 ? PNG_COLOR_TYPE_RGB_ALPHA : PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE,
               PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
  png_set_gAMA(png, info, 1.0 / 1.8);
  png_write_info(png, info);
  png_write_image(png, rows);
  png_write_end(png, info);
  png_destroy_write_struct(&png, &info);
  return true;
}

// The rows the plug-in's picture loader makes: RGB, or RGBA with the alpha of the mask.
void LoaderRows(const Image& image, int channels, Bytes& pixels, std::vector<png_bytep>& rows) {
  pixels.resize(size_t{image.width} * image.height * channels);
  rows.resize(image.height);
  for (size_t i = 0, o = 0; i < image.rgba.size(); i += 4, o += channels) {
    memcpy(&pixels[o], &image.rgba[i], channels);
  }
  for (uint32_t y = 0; y < image.height; ++y) {
    rows[y] = &pixels[size_t{y} * image.width * channels];
  }
}

}  // namespace

size_t BareDecode(const Bytes& png, Bytes& rgba) {
  ReadState state(png);
  std::vector<png_bytep> rows;
  if (!DecodeInto(state, rgba, rows)) throw std::runtime_error("libpng failed to decode");
  return rgba.size();
}

size_t BareRows(const Bytes& png) {
  ReadState state(png);
  Bytes row;
  size_t count = 0;
  if (!ReadRows(state, row, count)) throw std::runtime_error("libpng failed to read rows");
  return count;
}

size_t BareEncode(const Image& image, bool alpha, Bytes* stream) {
  const int channels = alpha ? 4 : 3;
  Bytes pixels;
  std::vector<png_bytep> rows;
  LoaderRows(image, channels, pixels, rows);
  Bytes out;
  out.reserve(8 << 20);
  if (!EncodeInto(image, channels, rows.data(), out)) {
    throw std::runtime_error("libpng failed to encode");
  }
  if (stream) *stream = out;
  return out.size();
}

size_t IdatBytes(const Bytes& png) {
  size_t total = 0;
  for (size_t at = 8; at + 12 <= png.size();) {
    const size_t length =
        size_t{png[at]} << 24 | png[at + 1] << 16 | png[at + 2] << 8 | png[at + 3];
    if (memcmp(&png[at + 4], "IDAT", 4) == 0) total += length;
    at += length + 12;
  }
  return total;
}

size_t EngineEncode(const Image& image, bool alpha, int threads) {
  const int channels = alpha ? 4 : 3;
  Bytes pixels;
  std::vector<png_bytep> rows;
  LoaderRows(image, channels, pixels, rows);
  Bytes filtered, out;
  pdeflate::Settings settings;
  settings.strategy = Z_FILTERED;  // libpng's choice when the rows are filtered
  settings.threads = threads;
  if (!pdeflate::FilterRows(rows.data(), rows.size(), size_t{image.width} * channels,
                            static_cast<unsigned>(channels), pdeflate::kAllFilters, threads,
                            filtered) ||
      !pdeflate::Compress(filtered.data(), filtered.size(), settings, out)) {
    throw std::runtime_error("the engine failed to encode");
  }
  return out.size();
}

size_t SpngDecode(const Bytes& png, Bytes& rgba) {
  spng_ctx* ctx = spng_ctx_new(0);
  spng_set_png_buffer(ctx, png.data(), png.size());
  size_t size = 0;
  spng_decoded_image_size(ctx, SPNG_FMT_RGBA8, &size);
  rgba.resize(size);
  const int err = spng_decode_image(ctx, rgba.data(), size, SPNG_FMT_RGBA8, SPNG_DECODE_TRNS);
  spng_ctx_free(ctx);
  if (err) throw std::runtime_error(spng_strerror(err));
  return size;
}

size_t StbDecode(const Bytes& png) {
  int w = 0, h = 0, n = 0;
  stbi_uc* pixels = stbi_load_from_memory(png.data(), int(png.size()), &w, &h, &n, 4);
  if (pixels == nullptr) throw std::runtime_error("stb_image failed to decode");
  stbi_image_free(pixels);
  return size_t(w) * h * 4;
}

}  // namespace bench
