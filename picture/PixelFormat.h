// How each host storage keeps one pixel: four bytes, whose meaning the storage's format code
// tells. The table below is the one place that knows it; the picture writer stores decoded rows
// by it and the encoder reads pictures by it, so a new host storage is one new row.
//
// Codes 1 to 6 are a bitmap context's alpha info (1 premultiplied last, 2 premultiplied first,
// 3 last, 4 first, 5 none-skip-last, 6 none-skip-first), whose bytes lie in memory as named:
// "last" formats keep red, green, blue in bytes 0, 1, 2, "first" formats in bytes 1, 2, 3.
// The other storages keep one 32-bit word a pixel in host byte order, 0xAARRGGBB: a true-colour
// gd image (gd's 7-bit alpha, 0 opaque), the cairo image surfaces of Linux desktop hosts, ARGB32
// (colour premultiplied by alpha) and RGB24 (the top byte ignored), and the pictures of Windows
// desktop hosts, B, G, R, A in memory: a modern host's pixels and the GDI+ bitmaps of an older
// one that keep premultiplied colour are the words of ARGB32; other GDI+ bitmaps are locked as
// straight colour.
#pragma once

#include <stddef.h>
#include <stdint.h>

constexpr int32_t kPixelFormatGD = 8;
constexpr int32_t kPixelFormatCairoARGB32 = 9;
constexpr int32_t kPixelFormatCairoRGB24 = 10;
constexpr int32_t kPixelFormatStraightWords = 11;
// Premultiplied words, cairo's or Windows'.
constexpr int32_t kPixelFormatPremultipliedWords = kPixelFormatCairoARGB32;

// What the alpha byte of a pixel holds.
enum class AlphaKind : uint8_t {
  kNone,           // nothing: the byte is ignored
  kStraight,       // 255 is opaque; the colour is as it shows
  kPremultiplied,  // 255 is opaque; the colour is multiplied by alpha
  kGd7Bit,         // gd's alpha: 0 is opaque, 127 transparent; the colour is as it shows
};

struct PixelFormat {
  int32_t code;
  // Byte offsets in memory within the pixel's four bytes; `alpha` is the ignored byte's offset
  // for a format without alpha.
  uint8_t red;
  uint8_t green;
  uint8_t blue;
  uint8_t alpha;
  AlphaKind alphaKind;
};

// The byte offset in memory of the bits at `shift` of a 32-bit word in host byte order.
constexpr uint8_t WordByte(int shift) {
#if __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
  return static_cast<uint8_t>(3 - shift / 8);
#else
  return static_cast<uint8_t>(shift / 8);
#endif
}

inline constexpr PixelFormat kPixelFormats[] = {
    {1, 0, 1, 2, 3, AlphaKind::kPremultiplied},
    {2, 1, 2, 3, 0, AlphaKind::kPremultiplied},
    {3, 0, 1, 2, 3, AlphaKind::kStraight},
    {4, 1, 2, 3, 0, AlphaKind::kStraight},
    {5, 0, 1, 2, 3, AlphaKind::kNone},
    {6, 1, 2, 3, 0, AlphaKind::kNone},
    {kPixelFormatGD, WordByte(16), WordByte(8), WordByte(0), WordByte(24), AlphaKind::kGd7Bit},
    {kPixelFormatCairoARGB32, WordByte(16), WordByte(8), WordByte(0), WordByte(24),
     AlphaKind::kPremultiplied},
    {kPixelFormatCairoRGB24, WordByte(16), WordByte(8), WordByte(0), WordByte(24),
     AlphaKind::kNone},
    {kPixelFormatStraightWords, WordByte(16), WordByte(8), WordByte(0), WordByte(24),
     AlphaKind::kStraight},
};

constexpr size_t kPixelFormatCount = sizeof kPixelFormats / sizeof kPixelFormats[0];

// The row of `code` in kPixelFormats, or kPixelFormatCount for a code no storage has.
constexpr size_t PixelFormatRow(int32_t code) {
  size_t row = 0;
  while (row < kPixelFormatCount && kPixelFormats[row].code != code) ++row;
  return row;
}

// The format of `code`, or null.
constexpr const PixelFormat* FindPixelFormat(int32_t code) {
  const size_t row = PixelFormatRow(code);
  return row < kPixelFormatCount ? &kPixelFormats[row] : nullptr;
}

// The alpha byte of an opaque pixel; an ignored byte is written as opaque too.
constexpr uint8_t OpaqueAlpha(const PixelFormat& f) {
  return f.alphaKind == AlphaKind::kGd7Bit ? 0 : 255;
}

// A pixel as user code sees it: colour not multiplied by alpha, alpha 255 opaque.
struct StraightPixel {
  uint8_t red;
  uint8_t green;
  uint8_t blue;
  uint8_t alpha;
};

// A colour multiplied by alpha, rounded to the nearest, as premultiplied storages keep it.
constexpr uint8_t Premultiply(uint32_t colour, uint32_t alpha) {
  return static_cast<uint8_t>((colour * alpha + 127) / 255);
}

// A premultiplied colour divided by alpha again, rounded to the nearest: Premultiply of the
// result gives the stored value back. Nothing is left of a colour where alpha is 0.
constexpr uint8_t Unpremultiply(uint32_t colour, uint32_t alpha) {
  if (alpha == 0) return 0;
  const uint32_t value = (colour * 255 + alpha / 2) / alpha;
  return static_cast<uint8_t>(value > 255 ? 255 : value);
}

// gd's 7-bit alpha (0 opaque, 127 transparent) of an 8-bit alpha, and back, each rounded to
// the nearest step. Only the low 7 bits of gd's alpha byte count.
constexpr uint8_t GdAlpha(uint32_t alpha) {
  return static_cast<uint8_t>(((255 - alpha) * 127 + 127) / 255);
}
constexpr uint8_t AlphaOfGd(uint32_t gd) {
  return static_cast<uint8_t>(255 - ((gd & 0x7F) * 255 + 63) / 127);
}

// The alpha byte that format `f` keeps for `alpha`, and the alpha a kept byte stands for.
constexpr uint8_t StoredAlpha(const PixelFormat& f, uint8_t alpha) {
  if (f.alphaKind == AlphaKind::kGd7Bit) return GdAlpha(alpha);
  return f.alphaKind == AlphaKind::kNone ? 255 : alpha;
}
constexpr uint8_t AlphaOfStored(const PixelFormat& f, uint8_t stored) {
  if (f.alphaKind == AlphaKind::kGd7Bit) return AlphaOfGd(stored);
  return f.alphaKind == AlphaKind::kNone ? 255 : stored;
}

// Stores `p` into the four bytes at `pixel` as format `f` keeps it; a format without alpha keeps
// the colour alone.
inline void StoreStraight(const PixelFormat& f, StraightPixel p, unsigned char* pixel) {
  const bool multiply = f.alphaKind == AlphaKind::kPremultiplied;
  pixel[f.red] = multiply ? Premultiply(p.red, p.alpha) : p.red;
  pixel[f.green] = multiply ? Premultiply(p.green, p.alpha) : p.green;
  pixel[f.blue] = multiply ? Premultiply(p.blue, p.alpha) : p.blue;
  pixel[f.alpha] = StoredAlpha(f, p.alpha);
}

// The pixel kept at `pixel` in format `f`, as user code sees it.
inline StraightPixel LoadStraight(const PixelFormat& f, const unsigned char* pixel) {
  const uint8_t alpha = AlphaOfStored(f, pixel[f.alpha]);
  if (f.alphaKind != AlphaKind::kPremultiplied) {
    return {pixel[f.red], pixel[f.green], pixel[f.blue], alpha};
  }
  return {Unpremultiply(pixel[f.red], alpha), Unpremultiply(pixel[f.green], alpha),
          Unpremultiply(pixel[f.blue], alpha), alpha};
}
