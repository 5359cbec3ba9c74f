// The benchmark's images: those made at start and encoded once with libpng at its default
// settings (photographic-like content: smooth gradients with noise and edges; sprite atlases:
// small shapes with soft edges on a transparent sheet), and real images read from files.
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
  bool alpha = false;  // an alpha channel or a transparency chunk: the picture has a mask
  std::string kind;    // a real image's class (see corpus.list); empty for a made one
  Bytes rgba;          // the pixels as they decode, 8-bit RGBA (alpha 255 without transparency)
  Bytes png;           // the stream
};

// Megapixels 1, 4 and 16, RGB and RGBA photos, plain and interlaced; a palette photo, an RGBA
// sprite atlas and a palette atlas of 4 MP (of the one size when `sizes` holds one).
std::vector<Recipe> CorpusRecipes(const std::vector<int>& sizes);

Image MakeImage(const Recipe& recipe);

// One line of the real images' list: "name class package path".
struct Listed {
  std::string name;
  std::string kind;
  std::string package;
  std::string path;
};

// The lines of the list at `path`, blank lines and # comments left out.
std::vector<Listed> ReadList(const std::string& path);

// The real image in the file `file`, its pixels decoded by bare libpng.
Image LoadImage(const std::string& name, const std::string& kind, const std::string& file);

}  // namespace bench
