// PNG streams made with libpng directly, and an independent decoder (libspng), for the tests, the
// demo's examples and the command-line tool. Nothing here goes through the plug-in.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

namespace samples {

using Bytes = std::vector<uint8_t>;

struct Chunks {
  double gamma = 0.0;   // file gamma of a gAMA chunk; 0: none
  int srgbIntent = -1;  // -1: no sRGB chunk
  std::string iccName;  // empty: no iCCP chunk
  Bytes iccProfile;
};

struct Image {
  uint32_t width = 0;
  uint32_t height = 0;
  int bitDepth = 8;
  int colorType = 2;  // a PNG colour type
  bool interlaced = false;
  // Rows as PNG stores them: packed samples, 16-bit samples big-endian.
  std::vector<Bytes> rows;
  std::vector<uint8_t> palette;  // RGB triples, colour type 3
  Bytes transparency;            // tRNS: alphas (palette) or one 16-bit value per channel
  Chunks chunks;
  int filters = 0;  // libpng's filter mask (PNG_FILTER_NONE ... PNG_ALL_FILTERS); 0: its choice
  int level = -1;   // zlib's compression level; -1: libpng's choice
};

// Samples per pixel of a PNG colour type.
int Channels(int colorType);

// A deterministic test picture: gradients with a pattern, every sample of the depth used.
Image Pattern(uint32_t width, uint32_t height, int bitDepth, int colorType, bool interlaced);

// The PNG stream of the image; throws std::runtime_error when libpng rejects it.
Bytes Encode(const Image& image);

// The stream decoded by libspng to 8-bit RGBA: 16-bit samples cut to their high byte, grey and
// palette expanded, tRNS applied, no gamma. Throws std::runtime_error on a decode error.
Bytes DecodeRGBA(const Bytes& png, uint32_t* width, uint32_t* height);

// One chunk of a PNG stream: its type, its data and the CRC it carries.
struct Chunk {
  std::string type;
  Bytes data;
  uint32_t crc = 0;
};

// The CRC that belongs to the chunk's type and data.
uint32_t ChunkCRC(const Chunk& chunk);
// A chunk with its right CRC.
Chunk MakeChunk(const std::string& type, Bytes data);
// The chunks after the signature, as far as whole chunks go.
std::vector<Chunk> SplitChunks(const Bytes& png);
// The signature and the chunks, each with the CRC it carries.
Bytes JoinChunks(const std::vector<Chunk>& chunks);

// CgBI data: a "CgBI" chunk, the image's IHDR, its image data as raw deflate in `parts` IDAT
// chunks, then text chunks up to `total` chunks, and IEND when asked. Split data is coded
// without back-references, since it is inflated chunk by chunk through a 256-byte window.
Bytes CgBIStream(const Image& image, int parts, int total, bool end);

// An 8-bit RGBA or RGB image with its pixels as Apple's iOS tool stores them: blue, green, red
// (alpha), colour premultiplied by alpha (rounded).
Image CgBIPixels(const Image& image);
// CgBI data as Apple's iOS tool writes it, of an image whose rows are stored as they are: a
// "CgBI" chunk, the chunks libpng writes before the image data, `extra`, the image data as one
// raw deflate stream (32 KiB window, back-references across the pieces) split over `parts` IDAT
// chunks, and an empty IEND.
Bytes CgBIFile(const Image& stored, int parts, const std::vector<Chunk>& extra);
// Raw deflate (no zlib wrapper, 32 KiB window) of `data`, split into `parts` pieces.
std::vector<Bytes> RawDeflate(const Bytes& data, int parts);

Bytes ReadFile(const std::string& path);
void WriteFile(const std::string& path, const Bytes& bytes);

// A PAM file (P7) of 8-bit RGBA pixels.
Bytes EncodePAM(uint32_t width, uint32_t height, const Bytes& rgba);
// Reads a PAM file of DEPTH 4 (RGB_ALPHA) or 3 (RGB, alpha 255), MAXVAL 255.
bool DecodePAM(const Bytes& pam, uint32_t* width, uint32_t* height, Bytes* rgba);

}  // namespace samples
