// The benchmark's images, made at start and encoded once with libpng at its default settings:
// photographic-like content (smooth gradients with noise and edges) and sprite atlases (small
// shapes with soft edges on a transparent sheet).
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

namespace bench {

using Bytes = std::vector<uint8_t>;

enum class Content { kPhoto, kSprites };

// What to make: size, colour type (2 RGB, 6 RGBA, 3 palette), interlace and content. A palette
// photo uses a 6×6×6 colour cube; a palette atlas adds one fully transparent entry.
struct Recipe {
  int megapixels = 1;
  int colorType = 2;
  bool interlaced = false;
  Content content = Content::kPhoto;

  // e.g. "rgba-4mp-adam7", "sprites-rgba-4mp"
  std::string Name() const;
};

struct Image {
  std::string name;
  uint32_t width = 0;
  uint32_t height = 0;
  int colorType = 2;
  bool interlaced = false;
  Bytes rgba;  // the pixels as they decode, 8-bit RGBA (alpha 255 without transparency)
  Bytes png;   // the stream
};

// Megapixels 1, 4 and 16, RGB and RGBA photos, plain and interlaced; a palette photo, an RGBA
// sprite atlas and a palette atlas of 4 MP (of the one size when `sizes` holds one).
std::vector<Recipe> CorpusRecipes(const std::vector<int>& sizes);

Image MakeImage(const Recipe& recipe);

}  // namespace bench
