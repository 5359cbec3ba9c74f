#include "tools/samples/Samples.h"

#include <png.h>
#include <spng.h>
#include <string.h>
#include <zlib.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>

namespace samples {

namespace {

struct Sink {
  Bytes* out;
};

void AppendToSink(png_structp png, png_bytep data, png_size_t length) {
  auto* sink = static_cast<Sink*>(png_get_io_ptr(png));
  sink->out->insert(sink->out->end(), data, data + length);
}

void FlushNothing(png_structp) {}

void SetChunks(png_structp png, png_infop info, const Image& image) {
  const Chunks& c = image.chunks;
  if (c.gamma > 0.0) png_set_gAMA(png, info, c.gamma);
  if (c.srgbIntent >= 0) png_set_sRGB(png, info, c.srgbIntent);
  if (!c.iccName.empty()) {
    png_set_iCCP(png, info, c.iccName.c_str(), 0, c.iccProfile.data(),
                 static_cast<png_uint_32>(c.iccProfile.size()));
  }
  if (!image.palette.empty()) {
    png_set_PLTE(png, info, reinterpret_cast<png_const_colorp>(image.palette.data()),
                 static_cast<int>(image.palette.size() / 3));
  }
  if (!image.transparency.empty()) {
    if (image.colorType == PNG_COLOR_TYPE_PALETTE) {
      png_set_tRNS(png, info, image.transparency.data(),
                   static_cast<int>(image.transparency.size()), nullptr);
    } else {
      png_color_16 colour = {};
      auto sample = [&](size_t i) {
        return static_cast<png_uint_16>(image.transparency[2 * i] << 8 |
                                        image.transparency[2 * i + 1]);
      };
      if (image.colorType == PNG_COLOR_TYPE_GRAY) {
        colour.gray = sample(0);
      } else {
        colour.red = sample(0);
        colour.green = sample(1);
        colour.blue = sample(2);
      }
      png_set_tRNS(png, info, nullptr, 0, &colour);
    }
  }
}

// The libpng part of Encode: no objects with destructors between setjmp and libpng's calls.
bool EncodeInto(const Image& image, png_bytepp rows, Sink* sink) {
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_infop info = png ? png_create_info_struct(png) : nullptr;
  if (info == nullptr) {
    png_destroy_write_struct(&png, nullptr);
    return false;
  }
  if (setjmp(png_jmpbuf(png))) {
    png_destroy_write_struct(&png, &info);
    return false;
  }
  png_set_write_fn(png, sink, AppendToSink, FlushNothing);
  png_set_IHDR(png, info, image.width, image.height, image.bitDepth, image.colorType,
               image.interlaced ? PNG_INTERLACE_ADAM7 : PNG_INTERLACE_NONE,
               PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
  SetChunks(png, info, image);
  if (image.filters != 0) png_set_filter(png, PNG_FILTER_TYPE_BASE, image.filters);
  if (image.level >= 0) png_set_compression_level(png, image.level);
  png_write_info(png, info);
  png_write_image(png, rows);
  png_write_end(png, info);
  png_destroy_write_struct(&png, &info);
  return true;
}

uint8_t PatternSample(uint32_t x, uint32_t y, int channel, int bitDepth) {
  const uint32_t max = (1u << bitDepth) - 1;
  const uint32_t v = (x * 7 + y * 13 + static_cast<uint32_t>(channel) * 61 + (x ^ y) * 3);
  return static_cast<uint8_t>(bitDepth == 16 ? (v * 2654435761u) >> 24 : v % (max + 1));
}

void PutSample(Bytes& row, uint32_t index, uint32_t value, int bitDepth) {
  if (bitDepth == 8) {
    row[index] = static_cast<uint8_t>(value);
  } else if (bitDepth == 16) {
    row[2 * index] = static_cast<uint8_t>(value >> 8);
    row[2 * index + 1] = static_cast<uint8_t>(value);
  } else {
    const uint32_t perByte = 8 / bitDepth;
    const uint32_t shift = 8 - bitDepth * (index % perByte + 1);
    row[index / perByte] |= static_cast<uint8_t>(value << shift);
  }
}

}  // namespace

int Channels(int colorType) {
  switch (colorType) {
    case PNG_COLOR_TYPE_RGB:
      return 3;
    case PNG_COLOR_TYPE_GRAY_ALPHA:
      return 2;
    case PNG_COLOR_TYPE_RGB_ALPHA:
      return 4;
    default:
      return 1;
  }
}

Image Pattern(uint32_t width, uint32_t height, int bitDepth, int colorType, bool interlaced) {
  Image image;
  image.width = width;
  image.height = height;
  image.bitDepth = bitDepth;
  image.colorType = colorType;
  image.interlaced = interlaced;
  const int channels = Channels(colorType);
  const size_t rowBytes = (size_t{width} * channels * bitDepth + 7) / 8;
  for (uint32_t y = 0; y < height; ++y) {
    Bytes row(rowBytes, 0);
    for (uint32_t x = 0; x < width; ++x) {
      for (int c = 0; c < channels; ++c) {
        uint32_t v = PatternSample(x, y, c, bitDepth);
        if (bitDepth == 16) v = v << 8 | PatternSample(y, x, c, 8);
        PutSample(row, x * channels + c, v, bitDepth);
      }
    }
    image.rows.push_back(std::move(row));
  }
  if (colorType == PNG_COLOR_TYPE_PALETTE) {
    for (uint32_t i = 0; i < (1u << bitDepth); ++i) {
      image.palette.push_back(static_cast<uint8_t>(i * 37));
      image.palette.push_back(static_cast<uint8_t>(255 - i * 11));
      image.palette.push_back(static_cast<uint8_t>(i * 89 + 5));
    }
  }
  return image;
}

Bytes Encode(const Image& image) {
  std::vector<png_bytep> rows;
  for (const Bytes& row : image.rows) rows.push_back(const_cast<png_bytep>(row.data()));
  Bytes out;
  Sink sink{&out};
  if (rows.size() != image.height || !EncodeInto(image, rows.data(), &sink)) {
    throw std::runtime_error("libpng rejected the test image");
  }
  return out;
}

Bytes DecodeRGBA(const Bytes& png, uint32_t* width, uint32_t* height) {
  spng_ctx* ctx = spng_ctx_new(0);
  if (ctx == nullptr) throw std::runtime_error("spng_ctx_new failed");
  spng_set_crc_action(ctx, SPNG_CRC_ERROR, SPNG_CRC_ERROR);
  spng_set_png_buffer(ctx, png.data(), png.size());
  spng_ihdr ihdr = {};
  size_t size = 0;
  int err = spng_get_ihdr(ctx, &ihdr);
  if (err == 0) err = spng_decoded_image_size(ctx, SPNG_FMT_RGBA8, &size);
  Bytes out(err == 0 ? size : 0);
  if (err == 0) err = spng_decode_image(ctx, out.data(), size, SPNG_FMT_RGBA8, SPNG_DECODE_TRNS);
  spng_ctx_free(ctx);
  if (err != 0) throw std::runtime_error(spng_strerror(err));
  *width = ihdr.width;
  *height = ihdr.height;
  return out;
}

Bytes ReadFile(const std::string& path) {
  // Paths are UTF-8, also where the system's narrow paths are not (Windows).
  std::ifstream in(std::filesystem::u8path(path), std::ios::binary);
  if (!in) throw std::runtime_error("cannot read " + path);
  return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void WriteFile(const std::string& path, const Bytes& bytes) {
  std::ofstream out(std::filesystem::u8path(path), std::ios::binary);
  out.write(reinterpret_cast<const char*>(bytes.data()),
            static_cast<std::streamsize>(bytes.size()));
  if (!out) throw std::runtime_error("cannot write " + path);
}

Bytes EncodePAM(uint32_t width, uint32_t height, const Bytes& rgba) {
  std::ostringstream header;
  header << "P7\nWIDTH " << width << "\nHEIGHT " << height
         << "\nDEPTH 4\nMAXVAL 255\nTUPLTYPE RGB_ALPHA\nENDHDR\n";
  const std::string text = header.str();
  Bytes out(text.begin(), text.end());
  out.insert(out.end(), rgba.begin(), rgba.end());
  return out;
}

bool DecodePAM(const Bytes& pam, uint32_t* width, uint32_t* height, Bytes* rgba) {
  const std::string marker = "ENDHDR\n";
  const std::string text(pam.begin(), pam.end());
  const size_t end = text.find(marker);
  if (text.rfind("P7\n", 0) != 0 || end == std::string::npos) return false;
  std::istringstream header(text.substr(3, end - 3));
  std::string key;
  uint64_t w = 0, h = 0, depth = 0, maxval = 0;
  while (header >> key) {
    std::string value;
    header >> value;
    if (key == "WIDTH") w = std::stoull(value);
    if (key == "HEIGHT") h = std::stoull(value);
    if (key == "DEPTH") depth = std::stoull(value);
    if (key == "MAXVAL") maxval = std::stoull(value);
  }
  const size_t offset = end + marker.size();
  if ((depth != 3 && depth != 4) || maxval != 255 || w * h * depth != pam.size() - offset) {
    return false;
  }
  rgba->assign(w * h * 4, 255);
  for (uint64_t i = 0; i < w * h; ++i) {
    for (uint64_t c = 0; c < depth; ++c) (*rgba)[4 * i + c] = pam[offset + depth * i + c];
  }
  *width = static_cast<uint32_t>(w);
  *height = static_cast<uint32_t>(h);
  return true;
}

namespace {

uint32_t BigEndian(const uint8_t* p) {
  return uint32_t{p[0]} << 24 | uint32_t{p[1]} << 16 | uint32_t{p[2]} << 8 | p[3];
}

void AppendBigEndian(Bytes& out, uint32_t v) {
  for (int i = 3; i >= 0; --i) out.push_back(static_cast<uint8_t>(v >> (8 * i)));
}

Bytes Inflate(const Bytes& zlibStream) {
  Bytes inflated(1 << 24);
  uLongf size = inflated.size();
  if (uncompress(inflated.data(), &size, zlibStream.data(), zlibStream.size()) != Z_OK) {
    throw std::runtime_error("the image data does not inflate");
  }
  inflated.resize(size);
  return inflated;
}

std::vector<Bytes> RawDeflate(const Bytes& data, int parts, int strategy) {
  z_stream z = {};
  deflateInit2(&z, 9, Z_DEFLATED, -15, 8, strategy);
  Bytes raw(compressBound(data.size()) + 64);
  z.next_in = const_cast<Bytef*>(data.data());
  z.avail_in = static_cast<uInt>(data.size());
  z.next_out = raw.data();
  z.avail_out = static_cast<uInt>(raw.size());
  deflate(&z, Z_FINISH);
  raw.resize(z.total_out);
  deflateEnd(&z);
  std::vector<Bytes> split;
  const size_t step = (raw.size() + parts - 1) / parts;
  for (size_t at = 0; at < raw.size(); at += step) {
    split.emplace_back(raw.begin() + at, raw.begin() + std::min(raw.size(), at + step));
  }
  return split;
}

Bytes ImageData(const std::vector<Chunk>& chunks) {
  Bytes zlibStream;
  for (const Chunk& c : chunks) {
    if (c.type == "IDAT") zlibStream.insert(zlibStream.end(), c.data.begin(), c.data.end());
  }
  return zlibStream;
}

uint8_t Premultiplied(uint8_t colour, uint8_t alpha) {
  return static_cast<uint8_t>((colour * alpha + 127) / 255);
}

}  // namespace

uint32_t ChunkCRC(const Chunk& chunk) {
  uLong crc = crc32(0, reinterpret_cast<const Bytef*>(chunk.type.data()), 4);
  // crc32 of a null buffer is its initial value, whatever the CRC so far.
  if (chunk.data.empty()) return static_cast<uint32_t>(crc);
  return static_cast<uint32_t>(crc32(crc, chunk.data.data(), static_cast<uInt>(chunk.data.size())));
}

Chunk MakeChunk(const std::string& type, Bytes data) {
  Chunk chunk{type, std::move(data), 0};
  chunk.crc = ChunkCRC(chunk);
  return chunk;
}

std::vector<Chunk> SplitChunks(const Bytes& png) {
  std::vector<Chunk> chunks;
  for (size_t at = 8; at + 12 <= png.size();) {
    const uint32_t length = BigEndian(&png[at]);
    if (length > png.size() - at - 12) break;
    chunks.push_back({std::string(png.begin() + at + 4, png.begin() + at + 8),
                      Bytes(png.begin() + at + 8, png.begin() + at + 8 + length),
                      BigEndian(&png[at + 8 + length])});
    at += 12 + length;
  }
  return chunks;
}

Bytes JoinChunks(const std::vector<Chunk>& chunks) {
  Bytes out = {0x89, 'P', 'N', 'G', 0x0D, 0x0A, 0x1A, 0x0A};
  for (const Chunk& c : chunks) {
    AppendBigEndian(out, static_cast<uint32_t>(c.data.size()));
    out.insert(out.end(), c.type.begin(), c.type.end());
    out.insert(out.end(), c.data.begin(), c.data.end());
    AppendBigEndian(out, c.crc);
  }
  return out;
}

Bytes CgBIStream(const Image& image, int parts, int total, bool end) {
  const std::vector<Chunk> png = SplitChunks(Encode(image));
  const Bytes filtered = Inflate(ImageData(png));
  std::vector<Chunk> out = {MakeChunk("CgBI", {0x50, 0x00, 0x20, 0x06})};
  for (const Chunk& c : png) {
    if (c.type != "IDAT" && c.type != "IEND") out.push_back(c);
    if (c.type != "IDAT" || out.back().type == "IDAT") continue;
    const int strategy = parts > 1 ? Z_HUFFMAN_ONLY : Z_DEFAULT_STRATEGY;
    for (Bytes& part : RawDeflate(filtered, parts, strategy)) {
      out.push_back(MakeChunk("IDAT", part));
    }
  }
  for (int i = static_cast<int>(out.size()); i < total; ++i) {
    out.push_back(MakeChunk("tEXt", {'k', 0, static_cast<uint8_t>('a' + i % 26)}));
  }
  if (end) out.push_back(MakeChunk("IEND", {}));
  return JoinChunks(out);
}

std::vector<Bytes> RawDeflate(const Bytes& data, int parts) {
  return RawDeflate(data, parts, Z_DEFAULT_STRATEGY);
}

Image CgBIPixels(const Image& image) {
  Image stored = image;
  const size_t channels = static_cast<size_t>(Channels(image.colorType));
  for (Bytes& row : stored.rows) {
    for (size_t i = 0; i + channels <= row.size(); i += channels) {
      std::swap(row[i], row[i + 2]);
      if (channels < 4) continue;
      for (size_t c = 0; c < 3; ++c) row[i + c] = Premultiplied(row[i + c], row[i + 3]);
    }
  }
  return stored;
}

Bytes CgBIFile(const Image& stored, int parts, const std::vector<Chunk>& extra) {
  const std::vector<Chunk> png = SplitChunks(Encode(stored));
  std::vector<Chunk> out = {MakeChunk("CgBI", {0x50, 0x00, 0x20, 0x02})};
  for (const Chunk& c : png) {
    if (c.type == "IDAT") break;
    out.push_back(c);
  }
  out.insert(out.end(), extra.begin(), extra.end());
  for (Bytes& part : RawDeflate(Inflate(ImageData(png)), parts)) {
    out.push_back(MakeChunk("IDAT", part));
  }
  out.push_back(MakeChunk("IEND", {}));
  return JoinChunks(out);
}

}  // namespace samples
