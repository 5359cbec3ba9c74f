// The benchmark's images, made at start: photographic-like content (smooth gradients with noise
// and edges) encoded once with libpng at its default settings.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

namespace bench {

using Bytes = std::vector<uint8_t>;

struct Image {
  std::string name;  // e.g. "rgba-4mp-adam7"
  uint32_t width = 0;
  uint32_t height = 0;
  int colorType = 2;  // 2 RGB, 6 RGBA, 3 palette
  bool interlaced = false;
  Bytes rgba;  // the pixels, 8-bit RGBA (alpha 255 without an alpha channel)
  Bytes png;   // the stream
};

// Megapixels 1, 4 and 16, RGB and RGBA, plain and interlaced, and a palette image; `sizes`
// limits the megapixel counts.
std::vector<Image> MakeCorpus(const std::vector<int>& sizes);

// The same image, made alone.
Image MakeImage(int megapixels, int colorType, bool interlaced);

}  // namespace bench
