#include "tests/e2e/test_writer_helpers.h"

#include <string.h>

namespace e2e {

namespace {

struct Source {
  const samples::Bytes* bytes;
  size_t position;
};

void ReadFromSource(png_structp png, png_bytep out, png_size_t length) {
  auto* source = static_cast<Source*>(png_get_io_ptr(png));
  if (source->bytes->size() - source->position < length) png_error(png, "truncated");
  memcpy(out, source->bytes->data() + source->position, length);
  source->position += length;
}

bool ReadAll(png_structp png, png_infop info) {
  if (setjmp(png_jmpbuf(png))) return false;
  png_read_png(png, info, PNG_TRANSFORM_IDENTITY, nullptr);
  return true;
}

void CollectChunks(png_structp png, png_infop info, ReadBack& out) {
  png_get_IHDR(png, info, &out.width, &out.height, &out.bitDepth, &out.colorType, &out.interlace,
               nullptr, nullptr);
  png_colorp palette = nullptr;
  int count = 0;
  if (png_get_PLTE(png, info, &palette, &count)) {
    for (int i = 0; i < count; ++i) {
      out.palette.insert(out.palette.end(), {palette[i].red, palette[i].green, palette[i].blue});
    }
  }
  png_bytep alphas = nullptr;
  if (png_get_tRNS(png, info, &alphas, &count, nullptr) && alphas) {
    out.trns.assign(alphas, alphas + count);
  }
  png_get_gAMA(png, info, &out.gamma);
  png_get_sRGB(png, info, &out.srgbIntent);
  png_charp name = nullptr;
  int compression = 0;
  png_bytep profile = nullptr;
  png_uint_32 length = 0;
  if (png_get_iCCP(png, info, &name, &compression, &profile, &length)) {
    out.iccName = name;
    out.icc.assign(profile, profile + length);
  }
  png_get_pHYs(png, info, &out.physX, &out.physY, &out.physUnit);
  const size_t rowBytes = png_get_rowbytes(png, info);
  png_bytepp rows = png_get_rows(png, info);
  for (png_uint_32 y = 0; y < out.height; ++y) out.rows.emplace_back(rows[y], rows[y] + rowBytes);
}

}  // namespace

Writer::Writer(bool withEvents) {
  emu::EventHandlers events;
  if (withEvents) {
    events = {{"Error", [this](const emu::EventArgs& a) { errors.push_back(a.String(0)); }},
              {"Warning", [this](const emu::EventArgs& a) { warnings.push_back(a.String(0)); }}};
  }
  object = Host().New("PNGWriterKRV", events);
}

emu::Value Writer::Call(const char* name, std::vector<emu::Arg> args) {
  return Host().Call(object, name, std::move(args));
}

RBInteger Writer::Int(const char* property) {
  return Host().GetProperty(object, property).AsInteger();
}

void Writer::Set(const char* property, RBInteger value) {
  Host().SetProperty(object, property, emu::Value(value));
}

samples::Bytes Writer::Finish() {
  const std::string bytes = Call("Finish").Bytes();
  return samples::Bytes(bytes.begin(), bytes.end());
}

std::string RaisedMessage() {
  const auto& raised = Host().LastException();
  return raised ? raised->className + ": " + raised->message : std::string();
}

ReadBack ReadWithLibpng(const samples::Bytes& png) {
  ReadBack out;
  png_structp reader = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_infop info = png_create_info_struct(reader);
  Source source = {&png, 0};
  png_set_read_fn(reader, &source, ReadFromSource);
  out.ok = ReadAll(reader, info);
  if (out.ok) CollectChunks(reader, info, out);
  png_destroy_read_struct(&reader, &info, nullptr);
  return out;
}

samples::Bytes ReadBack::Rgba() const {
  samples::Bytes rgba;
  const int channels = samples::Channels(colorType);
  for (const samples::Bytes& row : rows) {
    for (png_uint_32 x = 0; x < width; ++x) {
      const uint8_t* p = &row[x * channels];
      switch (colorType) {
        case PNG_COLOR_TYPE_GRAY:
          rgba.insert(rgba.end(), {p[0], p[0], p[0], 255});
          break;
        case PNG_COLOR_TYPE_GRAY_ALPHA:
          rgba.insert(rgba.end(), {p[0], p[0], p[0], p[1]});
          break;
        case PNG_COLOR_TYPE_RGB:
          rgba.insert(rgba.end(), {p[0], p[1], p[2], 255});
          break;
        case PNG_COLOR_TYPE_PALETTE:
          rgba.insert(rgba.end(), {palette[3 * p[0]], palette[3 * p[0] + 1], palette[3 * p[0] + 2],
                                   p[0] < trns.size() ? trns[p[0]] : uint8_t{255}});
          break;
        default:
          rgba.insert(rgba.end(), p, p + 4);
      }
    }
  }
  return rgba;
}

emu::Value RowsArray(const std::vector<samples::Bytes>& rows) {
  std::vector<emu::Value> blocks;
  for (const samples::Bytes& row : rows) {
    blocks.push_back(Host().MemoryBlockFrom(
        std::string_view(reinterpret_cast<const char*>(row.data()), row.size())));
  }
  return Host().MakeMemoryBlockArray(blocks);
}

}  // namespace e2e
