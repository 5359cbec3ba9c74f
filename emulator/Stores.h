// What the picture stores share: the size limit, the row padding marker and premultiplication.
#pragma once

#include <climits>
#include <cstddef>
#include <cstdint>
#include <new>

namespace emu {

// A picture larger than this is refused as if memory had run out.
constexpr uint64_t kMaxPictureBytes = uint64_t{1} << 30;

// Row padding starts with this byte, so that a write past the end of a row shows.
constexpr unsigned char kPaddingByte = 0xA5;

inline uint8_t Premultiply(uint8_t c, uint8_t a) {
  return static_cast<uint8_t>((c * a + 127) / 255);
}

inline uint8_t Unpremultiply(uint8_t c, uint8_t a) {
  if (a == 0) return 0;
  unsigned v = (c * 255u + a / 2u) / a;
  return static_cast<uint8_t>(v > 255 ? 255 : v);
}

// Throws std::bad_alloc for a picture that is empty or too large.
inline void CheckSize(size_t width, size_t height, uint64_t bytesPerPixel) {
  if (width == 0 || height == 0 || width > INT_MAX || height > INT_MAX ||
      uint64_t{width} * bytesPerPixel * height > kMaxPictureBytes) {
    throw std::bad_alloc();
  }
}

}  // namespace emu
