// The rows to encode: loaded from a host picture (RGB or RGBA, grey or grey + alpha, palette
// indices) through a picture reader, or taken from memory blocks that user code filled.
#include <stdlib.h>
#include <string.h>

#include <algorithm>

#include "host/Exceptions.h"
#include "picture/PictureEditor.h"
#include "writer/PNGWriter.h"

namespace {

constexpr int64_t kMaxAllocation = 0x7FFFFFFF;
constexpr int kPixelBytes = 4;
constexpr int64_t kSpareBytes = 4;  // after the samples of RGB and RGBA rows, never written

struct Channels {
  int red;
  int green;
  int blue;
  bool known;
};

struct RGB {
  uint8_t red;
  uint8_t green;
  uint8_t blue;
};

// Where red, green and blue lie in a pixel of the editor's format. Colours are taken as stored:
// a premultiplied picture's colour stays premultiplied.
Channels ChannelsOf(int32_t pixelFormat) {
  const PixelFormat* f = FindPixelFormat(pixelFormat);
  if (f == nullptr) return {0, 0, 0, false};
  return {f->red, f->green, f->blue, true};
}

RGB PixelAt(const unsigned char* pixel, const Channels& c) {
  if (!c.known) return {0, 0, 0};
  return {pixel[c.red], pixel[c.green], pixel[c.blue]};
}

uint8_t Grey(const RGB& c) {
  return static_cast<uint8_t>((77 * c.red + 151 * c.green + 28 * c.blue) >> 8);
}

uint8_t PaletteIndex(const PNGWriter& w, const RGB& c) {
  const RBColor colour = RBColor{c.red} << 16 | RBColor{c.green} << 8 | c.blue;
  const RBColor* end = w.palette + w.paletteCount;
  const RBColor* found = std::find(w.palette, end, colour);
  return found == end ? 0 : static_cast<uint8_t>(found - w.palette);
}

// Opens reading editors on the picture and, when given, its mask. The mask is read at the
// picture's coordinates, so a smaller one is refused rather than read past its rows.
bool OpenEditors(REALpicture pict, REALpicture mask, PictureReader& picture,
                 PictureReader& maskReader) {
  if (!picture.GetPictureEditor(pict, true, false)) return false;
  if (mask == nullptr) return true;
  return maskReader.GetPictureEditor(mask, true, false) && maskReader.width >= picture.width &&
         maskReader.height >= picture.height;
}

void FreeRowTable(png_bytep* table, int64_t count) {
  for (int64_t i = 0; i < count; ++i) free(table[i]);
  free(table);
}

// A zeroed table of `count` rows of `rowSize` zeroed bytes each, held by the record; false, with
// nothing held, for a size of 0, a size beyond 0x7FFFFFFF bytes or a failed allocation.
bool AllocateRows(PNGWriter& w, int64_t count, int64_t rowSize) {
  const int64_t tableSize = count * static_cast<int64_t>(sizeof(png_bytep));
  if (count <= 0 || tableSize > kMaxAllocation || rowSize <= 0 || rowSize > kMaxAllocation) {
    return false;
  }
  auto* table = static_cast<png_bytep*>(calloc(static_cast<size_t>(count), sizeof(png_bytep)));
  if (table == nullptr) return false;
  for (int64_t y = 0; y < count; ++y) {
    table[y] = static_cast<png_bytep>(calloc(1, static_cast<size_t>(rowSize)));
    if (table[y] == nullptr) {
      FreeRowTable(table, y);
      return false;
    }
  }
  w.rowPointers = table;
  w.rowCount = static_cast<int32_t>(count);
  w.rowCapacity = rowSize;
  return true;
}

// Calls store(out, colour, alpha) for every pixel, top to bottom and left to right; `store`
// returns where the next pixel goes. Without a mask every alpha is 255.
template <typename Store>
void FillRows(PNGWriter& w, const PictureReader& picture, const PictureReader* mask, Store store) {
  const Channels pc = ChannelsOf(picture.pixelFormat);
  const Channels mc = ChannelsOf(mask ? mask->pixelFormat : 0);
  for (int32_t y = 0; y < picture.height; ++y) {
    const unsigned char* in = picture.RowAddress(y);
    const unsigned char* maskIn = mask ? mask->RowAddress(y) : nullptr;
    unsigned char* out = w.rowPointers[y];
    for (int32_t x = 0; x < picture.width; ++x) {
      const size_t offset = static_cast<size_t>(x) * kPixelBytes;
      const uint8_t alpha =
          maskIn ? static_cast<uint8_t>(255 - PixelAt(maskIn + offset, mc).red) : 255;
      out = store(out, PixelAt(in + offset, pc), alpha);
    }
  }
}

void StoreHeader(PNGWriter& w, const PictureReader& picture, RBInteger bpc, RBInteger type) {
  w.width = picture.width;
  w.height = picture.height;
  w.bpc = bpc;
  w.type = type;
  w.rowBytes = RBInteger{picture.width} * bpc;
}

// A memory block array's element with a reference that the caller gives back, or null. Old
// hosts let the array's storage be read directly.
REALmemoryBlock ElementAt(REALarray rows, RBInteger index) {
  const auto* legacy = reinterpret_cast<const REALarrayLegacy*>(rows);
  if (gHost.version < hostversion::kLegacyRecordsBefore && legacy->storage != nullptr) {
    REALmemoryBlock element = static_cast<REALmemoryBlock*>(legacy->storage)[index];
    if (element) LockHandle(element);
    return element;
  }
  return reinterpret_cast<REALmemoryBlock>(REALGetArrayValueObject(rows, index));
}

// The data and size (-1: unknown) of element `index`; false for a nil element or one without data.
bool FetchRow(REALarray rows, RBInteger index, png_bytep* row, int64_t* size) {
  REALmemoryBlock block = ElementAt(rows, index);
  if (block == nullptr) return false;
  *row = static_cast<png_bytep>(REALMemoryBlockGetPtr(block));
  *size = REALMemoryBlockGetSize(block);
  UnlockHandle(block);
  return *row != nullptr;
}

// The rows of every element of `rows` into `table`, and the smallest block size into `capacity`.
bool FetchRows(REALarray rows, int64_t count, png_bytep* table, int64_t* capacity) {
  *capacity = INT64_MAX;
  for (int64_t i = 0; i < count; ++i) {
    int64_t size = 0;
    if (!FetchRow(rows, static_cast<RBInteger>(i), &table[i], &size)) return false;
    *capacity = std::min(*capacity, size);
  }
  return true;
}

// The RGB and grey loaders: `colour` writes the colour samples of a pixel and returns where the
// next byte goes; with a mask, each pixel's alpha follows its colour and the type gains alpha.
template <typename Colour>
bool LoadColourPicture(PNGWriter& w, REALpicture pict, REALpicture mask, int colourChannels,
                       int64_t spareBytes, int type, Colour colour) {
  if (RaiseIfNil(pict, "Picture is nil")) return false;
  ReleaseRows(w);
  PictureReader picture;
  PictureReader maskReader;
  if (!OpenEditors(pict, mask, picture, maskReader)) return false;
  const int channels = colourChannels + (mask ? 1 : 0);
  if (!AllocateRows(w, picture.height, int64_t{picture.width} * channels + spareBytes)) {
    return false;
  }
  if (mask) {
    FillRows(w, picture, &maskReader, [&colour](unsigned char* out, const RGB& c, uint8_t a) {
      out = colour(out, c);
      *out++ = a;
      return out;
    });
  } else {
    FillRows(w, picture, nullptr,
             [&colour](unsigned char* out, const RGB& c, uint8_t) { return colour(out, c); });
  }
  StoreHeader(w, picture, channels, type | (mask ? PNG_COLOR_MASK_ALPHA : 0));
  return true;
}

}  // namespace

void ReleaseRows(PNGWriter& w) {
  if (w.rowPointers) {
    if (w.rowsArray == nullptr) {
      FreeRowTable(w.rowPointers, w.rowCount);
    } else {
      free(w.rowPointers);
    }
    w.rowPointers = nullptr;
    w.rowCount = 0;
  }
  if (w.rowsArray) UnlockHandle(w.rowsArray);
  w.rowsArray = nullptr;
  w.rowCapacity = 0;
}

bool LoadRGBPictureToRowPointers(PNGWriter& w, REALpicture pict, REALpicture mask) {
  return LoadColourPicture(w, pict, mask, 3, kSpareBytes, PNG_COLOR_TYPE_RGB,
                           [](unsigned char* out, const RGB& c) {
                             *out++ = c.red;
                             *out++ = c.green;
                             *out++ = c.blue;
                             return out;
                           });
}

bool LoadGrayPictureToRowPointers(PNGWriter& w, REALpicture pict, REALpicture mask) {
  return LoadColourPicture(w, pict, mask, 1, 0, PNG_COLOR_TYPE_GRAY,
                           [](unsigned char* out, const RGB& c) {
                             *out++ = Grey(c);
                             return out;
                           });
}

bool LoadPalettePictureToRowPointers(PNGWriter& w, REALpicture pict) {
  if (RaiseIfNil(pict, "Picture is nil")) return false;
  ReleaseRows(w);
  PictureReader picture;
  if (!picture.GetPictureEditor(pict, true, false)) return false;
  if (!AllocateRows(w, picture.height, picture.width)) return false;
  FillRows(w, picture, nullptr, [&w](unsigned char* out, const RGB& c, uint8_t) {
    *out++ = PaletteIndex(w, c);
    return out;
  });
  StoreHeader(w, picture, 1, PNG_COLOR_TYPE_PALETTE);
  return true;
}

// Each row is loaded as RGBA, four bytes a pixel, into rows of that size; without an alpha
// channel its colours are then moved together into RGB in place, front to back.
bool LoadAlphaPictureToRowPointers(PNGWriter& w, REALpicture pict) {
  if (RaiseIfNil(pict, "Picture is nil")) return false;
  ReleaseRows(w);
  PictureReader picture;
  if (!picture.GetPictureEditor(pict, true, false)) return false;
  const int channels = picture.hasAlpha ? 4 : 3;
  if (!AllocateRows(w, picture.height, int64_t{picture.width} * kPixelBytes)) return false;
  for (int32_t y = 0; y < picture.height; ++y) {
    unsigned char* row = w.rowPointers[y];
    picture.LoadRGBARow(y, row);
    for (int32_t x = 0; channels == 3 && x < picture.width; ++x) {
      memmove(row + 3 * x, row + 4 * x, 3);
    }
  }
  StoreHeader(w, picture, channels, channels == 4 ? PNG_COLOR_TYPE_RGB_ALPHA : PNG_COLOR_TYPE_RGB);
  return true;
}

bool LoadRows(PNGWriter& w, REALarray rows) {
  if (RaiseIfNil(rows, "Rows are nil")) return false;
  ReleaseRows(w);
  const int64_t count = int64_t{REALGetArrayUBound(rows)} + 1;
  if (count <= 0 || count * static_cast<int64_t>(sizeof(png_bytep)) > kMaxAllocation) return false;
  auto* table = static_cast<png_bytep*>(calloc(static_cast<size_t>(count), sizeof(png_bytep)));
  if (table == nullptr) return false;
  int64_t capacity = 0;
  if (!FetchRows(rows, count, table, &capacity)) {
    free(table);
    RaiseException("NilObjectException", "Row is nil", kREALTextEncodingUTF8, 0);
    return false;
  }
  LockHandle(rows);
  w.rowsArray = rows;
  w.rowPointers = table;
  w.rowCount = static_cast<int32_t>(count);
  w.height = count;
  w.rowCapacity = capacity;
  return true;
}
