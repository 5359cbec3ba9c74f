// Writes the seed corpora of the fuzz targets, one folder per target under the given folder.
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>

#include <string_view>

#include "tools/samples/Samples.h"

using namespace samples;

namespace {

struct Corpus {
  std::string folder;
  int count = 0;

  void Add(std::initializer_list<Bytes> parts) {
    Bytes seed;
    for (const Bytes& part : parts) seed.insert(seed.end(), part.begin(), part.end());
    mkdir(folder.c_str(), 0755);
    WriteFile(folder + "/seed-" + std::to_string(1000 + count++).substr(1), seed);
  }
};

// A profile libpng accepts: a header of the right colour space and no tags.
Bytes Profile(bool grey) {
  Bytes p(132, 0);
  const auto put = [&p](size_t at, std::string_view b) { memcpy(&p[at], b.data(), b.size()); };
  put(0, {"\0\0\0\x84\0\0\0\0\x02\x10\0\0mntr", 16});
  put(16, grey ? "GRAYXYZ " : "RGB XYZ ");
  put(36, "acsp");
  put(68, {"\0\0\xF6\xD6\0\x01\0\0\0\0\xD3\x2D", 12});
  return p;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) return fprintf(stderr, "usage: %s FOLDER\n", argv[0]), 2;
  using namespace std::literals;
  const std::string root = argv[1];
  mkdir(root.c_str(), 0755);

  // Every colour type, depth and interlace, bare and with gAMA, sRGB or iCCP (and tRNS if taken),
  // for the openers, and for the reader each with a few operation sequences.
  Corpus decode{root + "/decode"}, reader{root + "/reader"};
  const Bytes kPrograms[] = {{1, 0}, {3, 10, 5, 6}, {3, 2, 3, 4}, {4, 11, 0, 7, 6}};
  const auto add = [&](const Image& image) {
    const size_t i = static_cast<size_t>(decode.count);
    decode.Add({{static_cast<uint8_t>(i), static_cast<uint8_t>((i + 1) % 6)}, Encode(image)});
    reader.Add({{static_cast<uint8_t>(i * 17), 0, 1}, kPrograms[i % 4], Encode(image)});
  };
  const Bytes kTransparency[] = {{0, 1}, {}, {0, 1, 0, 2, 0, 3}, {0, 128, 255}, {}, {}, {}};
  int variant = 0;
  for (const int colorType : {0, 2, 3, 4, 6}) {
    for (const int depth : {1, 2, 4, 8, 16}) {
      const bool indexOrGrey = colorType == 0 || colorType == 3;
      if ((depth < 8 && !indexOrGrey) || (depth == 16 && colorType == 3)) continue;
      for (const bool interlaced : {false, true}) {
        Image image = Pattern(7, 5, depth, colorType, interlaced);
        add(image);
        const int kind = variant++ % 3;
        if (kind == 0) image.chunks.gamma = 0.45455;
        if (kind == 1) image.chunks.srgbIntent = variant % 4;
        if (kind == 2) image.chunks.iccName = "seed";
        if (kind == 2) image.chunks.iccProfile = Profile(colorType == 0 || colorType == 4);
        image.transparency = kTransparency[colorType];
        add(image);
      }
    }
  }

  Corpus cgbi{root + "/cgbi"};
  const Image rgba = Pattern(12, 9, 8, 6, false);
  cgbi.Add({{2}, CgBIStream(rgba, 1, 100, false)});
  cgbi.Add({{3}, CgBIStream(rgba, 3, 100, false)});
  cgbi.Add({{2}, CgBIStream(Pattern(9, 9, 8, 2, true), 1, 100, false)});
  cgbi.Add({{0}, CgBIStream(rgba, 1, 6, true)});
  // As iOS tools write them: premultiplied, several IDAT chunks, an empty IEND.
  Image filtered = rgba;
  filtered.filters = 0xF8;  // every filter type
  cgbi.Add({{0}, CgBIFile(CgBIPixels(filtered), 3, {})});
  const Chunk note = MakeChunk("tEXt", {'k', 0, 'v'});
  cgbi.Add({{0}, CgBIFile(CgBIPixels(Pattern(9, 9, 8, 6, true)), 4, {note})});
  cgbi.Add({{0}, CgBIFile(CgBIPixels(Pattern(7, 5, 8, 2, false)), 2, {})});

  // Programs of fuzz_writer.cpp: a picture to memory, rows one by one, a palette image with alphas.
  Corpus writer{root + "/writer"};
  const Bytes picture = {5, 4, 0, 6, 'p', 'i', 'x', 'e', 'l', 's'};
  const Bytes row = {15, 0, 12, 3, 'r', 'o', 'w'};
  writer.Add({{19}, picture, {0, 3, 0, 0xFF, 0xFF, 7, 3, 12, 13, 14, 16, 17}});
  writer.Add({{0, 4, 1, 3, 2, 2, 3, 0, 0xFF, 6, 12, 13}, row, row, row, {16, 17}});
  const Bytes palette = {9, 3, 0, 0, 0, 128, 0, 255, 3, 0, 1, 2, 3, 0, 4, 5, 6, 0, 7, 8, 9, 20};
  writer.Add({palette, picture, {3, 0, 0xFF, 0xFF, 11, 10, 12, 13, 14, 16, 17}});

  Corpus text{root + "/text"};  // each after a byte choosing the host version
  for (const std::string_view t : {"\0plain"sv, "\1caf\xC3\xA9"sv, "\2caf\xE9"sv,
                                   "\3\xF0\x9F\x98\x80 smile"sv, "\4a\0b"sv, "\5\0\xD8\0\0"sv})
    text.Add({Bytes(t.begin(), t.end())});
  return 0;
}
