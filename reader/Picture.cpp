// Decoding a whole image into a host picture, and for an image with alpha into a separate mask.
// A plain image is read row by row through one row buffer; an interlaced image can only be
// converted after its last pass, so it is read whole.
//
// A palette image is decoded as its indices, one byte a pixel, each looked up in a table of the
// words that its palette entry (gamma corrected by libpng, alpha from the transparency chunk)
// gives in the picture and in the mask: one load a pixel instead of libpng's expansion to four
// bytes and a conversion of those. A plain image without alpha asks libpng for rows that already
// are the picture's words, where the picture's format allows, and is read straight into it.
#include <stdlib.h>

#include "host/Text.h"
#include "picture/PictureEditor.h"
#include "reader/PNGReader.h"

namespace {

constexpr int64_t kMaxBuffer = 0x7FFFFFFF;
constexpr int kPaletteEntries = 256;

// What libpng's rows hold: RGBA or RGB to be converted, palette indices to be looked up, or the
// picture's own words.
enum class Rows { kRGBA, kRGB, kIndices, kWords };

struct Conversion {
  Rows rows = Rows::kRGBA;
  bool swap = false;
  bool alpha = false;    // into a picture with an alpha channel, which takes no mask
  FilledRowOrder order;  // of kWords
  uint32_t colours[kPaletteEntries] = {};
  uint32_t masks[kPaletteEntries] = {};
};

Conversion ConversionFor(const PNGReader& r) {
  Conversion c;
  c.swap = r.swapRB;
  const bool palette = r.rowsPending && png_get_color_type(r.png, r.info) == PNG_COLOR_TYPE_PALETTE;
  c.rows = palette || r.indexRows ? Rows::kIndices : Rows::kRGBA;
  return c;
}

// The picture's own words, for RGBA rows still to be started (without alpha) when libpng can
// make them with no more than its filler: its red-blue exchange is a byte loop that costs more
// than the conversion it would save.
void ChooseWords(const PNGReader& r, Conversion& c, const PictureWriter& pict) {
  if (r.rowsPending && c.rows == Rows::kRGBA && pict.FilledRows(c.swap, &c.order) && !c.order.bgr) {
    c.rows = Rows::kWords;
  }
}

// Rows read one at a time through a row buffer, without alpha and not the picture's words: RGB,
// which the conversion fills out itself, for libpng's filler is a byte loop over every pixel too.
void ChooseRowsWithoutAlpha(const PNGReader& r, Conversion& c, const PictureWriter& pict) {
  ChooseWords(r, c, pict);
  if (r.rowsPending && c.rows == Rows::kRGBA && r.colorType == PNG_COLOR_TYPE_RGB) {
    c.rows = Rows::kRGB;
  }
}

// Ends a pending set-up with the rows chosen; libpng may fail, so this runs under a jump point.
void StartPendingRows(PNGReader& r, const Conversion& c) {
  if (!r.rowsPending) return;
  if (c.rows == Rows::kIndices) {
    StartIndexRows(r);
  } else if (c.rows == Rows::kWords) {
    StartFilledRows(r, c.order.bgr, c.order.filler, c.order.fillerFirst);
  } else if (c.rows == Rows::kRGB) {
    StartRGBRows(r);
  } else {
    StartRGBARows(r);
  }
}

// Colour into the picture, always opaque (with `swap` red and blue trade places), and for an
// image with alpha 255 − alpha into the mask: black shows, white hides. A picture with an alpha
// channel takes colour and alpha alike.
void ConvertRow(const Conversion& c, const unsigned char* row, RBInteger width, PictureWriter& pict,
                PictureWriter* mask) {
  if (c.rows == Rows::kIndices) {
    if (mask) {
      pict.StoreIndexedRowAndMask(row, width, c.colours, *mask, c.masks);
    } else {
      pict.StoreIndexedRow(row, width, c.colours);
    }
    return;
  }
  if (c.rows == Rows::kRGB) {
    pict.StoreRGBRow(row, width, c.swap);
  } else if (c.alpha) {
    pict.StoreRGBARow(row, width, c.swap);
  } else if (mask) {
    pict.StoreColourAndMaskRow(row, width, c.swap, *mask);
  } else {
    pict.StoreColourRow(row, width, c.swap);
  }
}

// The palette as libpng's expansion reads it, 256 RGBA pixels: entries past the palette black,
// alpha from the transparency chunk and 255 past it.
void ReadPalette(const PNGReader& r, unsigned char (&rgba)[kPaletteEntries * 4]) {
  png_colorp palette = nullptr;
  int entries = 0;
  png_bytep alphas = nullptr;
  int alphaEntries = 0;
  png_get_PLTE(r.png, r.info, &palette, &entries);
  png_get_tRNS(r.png, r.info, &alphas, &alphaEntries, nullptr);
  for (int i = 0; i < kPaletteEntries; ++i) {
    const bool listed = palette != nullptr && i < entries;
    rgba[4 * i] = listed ? palette[i].red : 0;
    rgba[4 * i + 1] = listed ? palette[i].green : 0;
    rgba[4 * i + 2] = listed ? palette[i].blue : 0;
    rgba[4 * i + 3] = alphas != nullptr && i < alphaEntries ? alphas[i] : 255;
  }
}

void BuildColourTable(const PNGReader& r, Conversion& c, const PictureWriter& pict) {
  unsigned char rgba[kPaletteEntries * 4];
  ReadPalette(r, rgba);
  if (c.alpha) {
    pict.RGBAWords(rgba, kPaletteEntries, c.swap, c.colours);
  } else {
    pict.ColourWords(rgba, kPaletteEntries, c.swap, c.colours);
  }
}

void BuildMaskTable(const PNGReader& r, Conversion& c, const PictureWriter& mask) {
  unsigned char rgba[kPaletteEntries * 4];
  ReadPalette(r, rgba);
  mask.MaskWords(rgba, kPaletteEntries, c.masks);
}

void Replace(REALpicture& field, REALpicture picture) {
  if (field) UnlockHandle(field);
  field = picture;
}

// A writer of the image's size, which the decoders may fill without bounds checks per pixel; on
// a picture with an alpha channel with `alpha`.
bool SetUpWriter(PictureWriter& writer, const PNGReader& r, bool alpha = false) {
  if (r.width > INT32_MAX || r.height > INT32_MAX) return false;
  const int w = static_cast<int>(r.width), h = static_cast<int>(r.height);
  const bool made = alpha ? writer.NewAlphaPictureWriter(w, h) : writer.NewPictureWriter(w, h);
  return made && writer.width >= r.width && writer.height >= r.height;
}

bool StartPendingRowsAt(PNGReader& r, const Conversion& c) {
  if (setjmp(*r.jump)) return false;
  StartPendingRows(r, c);
  return true;
}

// libpng's row start and, for index rows, the tables of the palette it then holds.
bool StartRowsWithTables(PNGReader& r, Conversion& c, const PictureWriter& pict,
                         const PictureWriter* mask) {
  if (!StartPendingRowsAt(r, c)) return false;
  if (c.rows == Rows::kIndices) {
    BuildColourTable(r, c, pict);
    if (mask) BuildMaskTable(r, c, *mask);
  }
  return true;
}

// Reads every row of a one-pass image and converts it; false when libpng fails midway.
bool ConvertEveryRow(PNGReader& r, unsigned char* row, const Conversion& c, PictureWriter& pict,
                     PictureWriter* mask) {
  if (setjmp(*r.jump)) return false;
  for (RBInteger y = 0; y < r.height; ++y) {
    png_read_row(r.png, row, nullptr);
    ConvertRow(c, row, r.width, pict, mask);
  }
  return true;
}

// Reads every row of a one-pass image straight into the picture; false when libpng fails midway.
bool ReadEveryRowInto(PNGReader& r, PictureWriter& pict) {
  if (setjmp(*r.jump)) return false;
  for (RBInteger y = 0; y < r.height; ++y) {
    png_read_row(r.png, reinterpret_cast<png_bytep>(pict.destination), nullptr);
    pict.NextRow();
  }
  return true;
}

bool DecodeRows(PNGReader& r, unsigned char* row, Conversion& c, PictureWriter& pict,
                PictureWriter* mask) {
  if (!StartRowsWithTables(r, c, pict, mask)) return false;
  return c.rows == Rows::kWords ? ReadEveryRowInto(r, pict)
                                : ConvertEveryRow(r, row, c, pict, mask);
}

bool DecodeImage(PNGReader& r, const Conversion& c, png_bytepp rows) {
  if (setjmp(*r.jump)) return false;
  StartPendingRows(r, c);
  png_read_image(r.png, rows);
  return true;
}

// Bytes of one decoded row: an index a pixel, three bytes or four.
int64_t RowBytes(const PNGReader& r, const Conversion& c) {
  if (c.rows == Rows::kIndices) return r.width;
  return int64_t{r.width} * (c.rows == Rows::kRGB ? 3 : 4);
}

// Where the passes of an interlaced image go: a table of rows, and the buffer they point into
// when the image is not read into the picture itself.
struct WholeImage {
  unsigned char* buffer = nullptr;
  png_bytepp rows = nullptr;

  ~WholeImage() {
    free(rows);
    free(buffer);
  }
};

// Allocates the image of row bytes × height; the product is taken in 64 bits so that a size
// that would wrap is refused instead of allocated short. Neither block is cleared: the seven
// passes write every pixel before a row is converted (a failed read converts none), and the
// table is filled here. Clearing would cost a pass over the image whenever the allocator hands
// out reused memory, which depends on what the process allocated before.
bool AllocateImage(const PNGReader& r, const Conversion& c, WholeImage& image) {
  const int64_t rowBytes = RowBytes(r, c);
  const int64_t size = rowBytes * r.height;
  const int64_t tableSize = r.height * static_cast<int64_t>(sizeof(png_bytep));
  if (size >= 1 && size <= kMaxBuffer) image.buffer = static_cast<unsigned char*>(malloc(size));
  if (tableSize >= 1 && tableSize <= kMaxBuffer) {
    image.rows = static_cast<png_bytepp>(malloc(tableSize));
  }
  if (image.buffer == nullptr || image.rows == nullptr) return false;
  for (RBInteger y = 0; y < r.height; ++y) image.rows[y] = image.buffer + y * rowBytes;
  return true;
}

unsigned char* AllocateRow(const PNGReader& r, const Conversion& c) {
  const int64_t rowBytes = RowBytes(r, c);
  return rowBytes >= 1 && rowBytes <= kMaxBuffer ? static_cast<unsigned char*>(calloc(1, rowBytes))
                                                 : nullptr;
}

bool Decodable(const PNGReader& r) {
  return HasHandles(r) && HasSource(r) && r.setUp;
}

// An interlaced image of RGBA rows (not indices) is read into the picture itself, whose rows
// then take the passes in place of a buffer of their own: libpng's rows either are the picture's
// words already or are converted in place, row by row. That needs a writer whose words libpng
// can make (which tells that its layout is known); a writer that cannot be set up leaves the
// image to a buffer, so that it is read all the same.
bool ReadsIntoPicture(const PNGReader& r, Conversion& c, PictureWriter& pict, WholeImage& image) {
  FilledRowOrder order;
  if (c.rows != Rows::kRGBA || !SetUpWriter(pict, r) || !pict.FilledRows(c.swap, &order)) {
    return false;
  }
  const int64_t tableSize = r.height * static_cast<int64_t>(sizeof(png_bytep));
  if (tableSize < 1 || tableSize > kMaxBuffer) return false;
  image.rows = static_cast<png_bytepp>(malloc(tableSize));
  if (image.rows == nullptr) return false;
  for (RBInteger y = 0; y < r.height; ++y) image.rows[y] = pict.RowAddress(y);
  if (r.colorType == PNG_COLOR_TYPE_RGB) ChooseWords(r, c, pict);
  return true;
}

// Every row of the read image into the writers; for index rows, the tables first. Rows that are
// the picture's words are there already.
void ConvertImage(const PNGReader& r, const WholeImage& image, Conversion& c, PictureWriter& pict,
                  PictureWriter* mask) {
  if (c.rows == Rows::kWords) return;
  if (c.rows == Rows::kIndices) {
    BuildColourTable(r, c, pict);
    if (mask) BuildMaskTable(r, c, *mask);
  }
  for (RBInteger y = 0; y < r.height; ++y) ConvertRow(c, image.rows[y], r.width, pict, mask);
}

}  // namespace

bool ReadRGBbyRow(PNGReader& r) {
  Replace(r.pict, nullptr);
  if (!Decodable(r)) return false;
  Conversion c = ConversionFor(r);
  PictureWriter pict;
  if (!SetUpWriter(pict, r)) return false;
  ChooseRowsWithoutAlpha(r, c, pict);
  unsigned char* row = c.rows == Rows::kWords ? nullptr : AllocateRow(r, c);
  if (c.rows != Rows::kWords && row == nullptr) return false;
  if (DecodeRows(r, row, c, pict, nullptr) || r.allowDamaged) {
    Replace(r.pict, pict.RenderPictureWriter());
  }
  free(row);
  return r.pict != nullptr;
}

bool ReadRGBAbyRow(PNGReader& r) {
  if (!Decodable(r)) return false;
  Conversion c = ConversionFor(r);
  unsigned char* row = AllocateRow(r, c);
  if (row == nullptr) return false;
  PictureWriter mask;
  PictureWriter pict;
  if (SetUpWriter(mask, r) && SetUpWriter(pict, r)) {
    if (DecodeRows(r, row, c, pict, &mask)) {
      Replace(r.mask, mask.RenderPictureWriter());
      Replace(r.pict, pict.RenderPictureWriter());
    } else if (r.allowDamaged) {
      Replace(r.pict, pict.RenderPictureWriter());
      Replace(r.mask, mask.RenderPictureWriter());
    }
  }
  free(row);
  return r.pict != nullptr;
}

bool ReadRGBbyBlock(PNGReader& r) {
  if (!Decodable(r)) return false;
  Conversion c = ConversionFor(r);
  PictureWriter pict;
  WholeImage image;
  const bool inPicture = ReadsIntoPicture(r, c, pict, image);
  if (!inPicture && !AllocateImage(r, c, image)) return false;
  if (DecodeImage(r, c, image.rows)) {
    if (inPicture || SetUpWriter(pict, r)) {
      ConvertImage(r, image, c, pict, nullptr);
      Replace(r.pict, pict.RenderPictureWriter());
    }
  } else if (r.allowDamaged) {
    // No picture holds a whole image, so nothing is rendered.
    Replace(r.pict, nullptr);
  }
  return r.pict != nullptr;
}

bool ReadRGBAbyBlock(PNGReader& r) {
  if (!Decodable(r)) return false;
  Conversion c = ConversionFor(r);
  PictureWriter pict;
  WholeImage image;
  const bool inPicture = ReadsIntoPicture(r, c, pict, image);
  if (!inPicture && !AllocateImage(r, c, image)) return false;
  PictureWriter mask;
  if (!SetUpWriter(mask, r)) return false;
  if (DecodeImage(r, c, image.rows)) {
    if (inPicture || SetUpWriter(pict, r)) {
      ConvertImage(r, image, c, pict, &mask);
      Replace(r.mask, mask.RenderPictureWriter());
      Replace(r.pict, pict.RenderPictureWriter());
    }
  } else if (r.allowDamaged) {
    // No picture holds a whole image; the mask holds nothing that was decoded.
    Replace(r.pict, nullptr);
    Replace(r.mask, mask.RenderPictureWriter());
  }
  return r.pict != nullptr;
}

bool ReadAlphaPicture(PNGReader& r) {
  Replace(r.mask, nullptr);
  Replace(r.pict, nullptr);
  if (!Decodable(r)) return false;
  if (!HostHasAlphaPictures()) {
    RaiseMessageEvent(r.errorHook, r.owner, kNoAlphaPictures);
    return false;
  }
  Conversion c = ConversionFor(r);
  c.alpha = true;
  PictureWriter pict;
  if (!SetUpWriter(pict, r, true)) return false;
  if (r.passes == 1) {
    unsigned char* row = AllocateRow(r, c);
    if (row == nullptr) return false;
    if (DecodeRows(r, row, c, pict, nullptr) || r.allowDamaged) {
      Replace(r.pict, pict.RenderPictureWriter());
    }
    free(row);
    return r.pict != nullptr;
  }
  WholeImage image;
  if (AllocateImage(r, c, image) && DecodeImage(r, c, image.rows)) {
    ConvertImage(r, image, c, pict, nullptr);
    Replace(r.pict, pict.RenderPictureWriter());
  }
  return r.pict != nullptr;
}

bool ReadPicture(PNGReader& r) {
  if (r.colorType == PNG_COLOR_TYPE_RGB_ALPHA) {
    return r.passes == 1 ? ReadRGBAbyRow(r) : ReadRGBAbyBlock(r);
  }
  if (r.colorType == PNG_COLOR_TYPE_RGB) {
    return r.passes == 1 ? ReadRGBbyRow(r) : ReadRGBbyBlock(r);
  }
  return false;
}
