// Writes the seed corpora of the fuzz targets, one folder per target under the given folder:
// PNG streams of every colour type, bit depth and interlace with and without ancillary chunks,
// CgBI data, writer programs and texts. Everything is made here; nothing is copied from elsewhere.
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>

#include <string>
#include <vector>

#include "tools/samples/Samples.h"

namespace {

using samples::Bytes;

struct Corpus {
  std::string folder;
  int count = 0;

  Corpus(const std::string& root, const char* name) : folder(root + "/" + name) {
    mkdir(folder.c_str(), 0755);
  }
  void Add(const Bytes& prefix, const Bytes& body) {
    Bytes seed = prefix;
    seed.insert(seed.end(), body.begin(), body.end());
    char name[32];
    snprintf(name, sizeof name, "/seed-%03d", count++);
    samples::WriteFile(folder + name, seed);
  }
};

// A profile libpng accepts: a header of the right colour space and no tags.
Bytes Profile(bool grey) {
  Bytes p(132, 0);
  auto put = [&p](size_t at, uint32_t v) {
    for (int i = 0; i < 4; ++i) p[at + i] = static_cast<uint8_t>(v >> (24 - 8 * i));
  };
  put(0, 132);
  put(8, 0x02100000);
  memcpy(&p[12], "mntr", 4);
  memcpy(&p[16], grey ? "GRAY" : "RGB ", 4);
  memcpy(&p[20], "XYZ ", 4);
  memcpy(&p[36], "acsp", 4);
  put(68, 0x0000F6D6);
  put(72, 0x00010000);
  put(76, 0x0000D32D);
  return p;
}

// Every colour type and depth, plain and interlaced, each once bare and once with gAMA, sRGB or
// iCCP and a transparency chunk where the type takes one.
std::vector<Bytes> Images() {
  const struct {
    int colorType;
    std::vector<int> depths;
  } kFormats[] = {
      {0, {1, 2, 4, 8, 16}}, {2, {8, 16}}, {3, {1, 2, 4, 8}}, {4, {8, 16}}, {6, {8, 16}}};
  std::vector<Bytes> images;
  int variant = 0;
  for (const auto& format : kFormats) {
    for (const int depth : format.depths) {
      for (const bool interlaced : {false, true}) {
        samples::Image image = samples::Pattern(7, 5, depth, format.colorType, interlaced);
        images.push_back(samples::Encode(image));
        switch (variant++ % 3) {
          case 0:
            image.chunks.gamma = 0.45455;
            break;
          case 1:
            image.chunks.srgbIntent = variant % 4;
            break;
          default:
            image.chunks.iccName = "seed";
            image.chunks.iccProfile = Profile(format.colorType == 0 || format.colorType == 4);
        }
        if (format.colorType == 3) image.transparency = {0, 128, 255};
        if (format.colorType == 0) image.transparency = {0, 1};
        if (format.colorType == 2) image.transparency = {0, 1, 0, 2, 0, 3};
        images.push_back(samples::Encode(image));
      }
    }
  }
  return images;
}

void DecodeSeeds(const std::string& root, const std::vector<Bytes>& images) {
  Corpus corpus(root, "decode");
  uint8_t choices = 0;
  for (const Bytes& png : images) corpus.Add({choices++, static_cast<uint8_t>(choices % 6)}, png);
}

// Each image with a few operation sequences: a picture, rows of each kind, the queries.
void ReaderSeeds(const std::string& root, const std::vector<Bytes>& images) {
  Corpus corpus(root, "reader");
  const Bytes kPrograms[] = {{1, 0}, {3, 10, 5, 6}, {3, 2, 3, 4}, {4, 11, 0, 7, 6}};
  size_t i = 0;
  for (const Bytes& png : images) {
    const Bytes& program = kPrograms[i % 4];
    Bytes prefix = {static_cast<uint8_t>(i++ * 17), 0, 1};
    prefix.insert(prefix.end(), program.begin(), program.end());
    corpus.Add(prefix, png);
  }
}

void CgBISeeds(const std::string& root) {
  Corpus corpus(root, "cgbi");
  const samples::Image rgba = samples::Pattern(12, 9, 8, 6, false);
  corpus.Add({2}, samples::CgBIStream(rgba, 1, 100, false));
  corpus.Add({3}, samples::CgBIStream(rgba, 3, 100, false));
  corpus.Add({2}, samples::CgBIStream(samples::Pattern(9, 9, 8, 2, true), 1, 100, false));
  corpus.Add({0}, samples::CgBIStream(rgba, 1, 6, true));
  // As Apple's iOS tool writes them: premultiplied, several IDAT chunks, an empty IEND.
  samples::Image filtered = rgba;
  filtered.filters = 0xF8;  // every filter type
  corpus.Add({0}, samples::CgBIFile(samples::CgBIPixels(filtered), 3, {}));
  corpus.Add({0}, samples::CgBIFile(samples::CgBIPixels(samples::Pattern(9, 9, 8, 6, true)), 4,
                                    {samples::MakeChunk("tEXt", {'k', 0, 'v'})}));
  corpus.Add({0},
             samples::CgBIFile(samples::CgBIPixels(samples::Pattern(7, 5, 8, 2, false)), 2, {}));
}

// Writer programs (operation bytes of fuzz_writer.cpp): a picture written to memory, rows
// written one by one, a palette image with alphas.
void WriterSeeds(const std::string& root) {
  Corpus corpus(root, "writer");
  const Bytes picture = {5, 4, 0, 6, 'p', 'i', 'x', 'e', 'l', 's'};
  Bytes rgb = {19};
  rgb.insert(rgb.end(), picture.begin(), picture.end());
  rgb.insert(rgb.end(), {0, 3, 0, 0xFF, 0xFF, 7, 3, 12, 13, 14, 16, 17});
  corpus.Add({}, rgb);
  Bytes rows = {0, 4, 1, 3, 2, 2, 3, 0, 0xFF, 6, 12, 13};
  for (int y = 0; y < 3; ++y) rows.insert(rows.end(), {15, 0, 12, 3, 'r', 'o', 'w'});
  rows.insert(rows.end(), {16, 17});
  corpus.Add({}, rows);
  Bytes palette = {9, 3, 0, 0, 0, 128, 0, 255, 3, 0, 1, 2, 3, 0, 4, 5, 6, 0, 7, 8, 9, 20};
  palette.insert(palette.end(), picture.begin(), picture.end());
  palette.insert(palette.end(), {3, 0, 0xFF, 0xFF, 11, 10, 12, 13, 14, 16, 17});
  corpus.Add({}, palette);
}

void TextSeeds(const std::string& root) {
  Corpus corpus(root, "text");
  const std::string kTexts[] = {"plain",
                                "caf\xC3\xA9",
                                "caf\xE9",
                                "\xF0\x9F\x98\x80 smile",
                                std::string("a\0b", 3),
                                std::string("\x00\xD8\x00\x00", 4)};
  uint8_t version = 0;
  for (const std::string& text : kTexts) corpus.Add({version++}, Bytes(text.begin(), text.end()));
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    fprintf(stderr, "usage: %s FOLDER\n", argv[0]);
    return 2;
  }
  const std::string root = argv[1];
  mkdir(root.c_str(), 0755);
  const std::vector<Bytes> images = Images();
  DecodeSeeds(root, images);
  ReaderSeeds(root, images);
  CgBISeeds(root);
  WriterSeeds(root);
  TextSeeds(root);
  return 0;
}
