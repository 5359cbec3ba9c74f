// Decoding a whole image into a host picture, and for an image with alpha into a separate mask.
// A plain image is read row by row through one row buffer; an interlaced image can only be
// converted after its last pass, so it is read whole.
#include <stdlib.h>

#include "picture/PictureEditor.h"
#include "reader/PNGReader.h"

namespace {

constexpr int64_t kMaxBuffer = 0x7FFFFFFF;

// Colour of each pixel into the picture, always opaque; with `swap` red and blue trade places.
void ConvertRGBRow(const unsigned char* row, RBInteger width, bool swap, PictureWriter& pict) {
  pict.StoreColourRow(row, width, swap);
}

// Colour into the picture and 255 − alpha into the mask: black shows, white hides.
void ConvertRGBARow(const unsigned char* row, RBInteger width, bool swap, PictureWriter& pict,
                    PictureWriter& mask) {
  pict.StoreColourRow(row, width, swap);
  mask.StoreMaskRow(row, width);
}

void Replace(REALpicture& field, REALpicture picture) {
  if (field) UnlockHandle(field);
  field = picture;
}

// A writer of the image's size, which the decoders may fill without bounds checks per pixel.
bool SetUpWriter(PictureWriter& writer, const PNGReader& r) {
  return r.width <= INT32_MAX && r.height <= INT32_MAX &&
         writer.NewPictureWriter(static_cast<int>(r.width), static_cast<int>(r.height)) &&
         writer.width >= r.width && writer.height >= r.height;
}

// Reads every row of a one-pass image and converts it; false when libpng fails midway.
bool DecodeRows(PNGReader& r, unsigned char* row, PictureWriter& pict, PictureWriter* mask) {
  if (setjmp(*r.jump)) return false;
  for (RBInteger y = 0; y < r.height; ++y) {
    png_read_row(r.png, row, nullptr);
    if (mask) {
      ConvertRGBARow(row, r.width, r.swapRB, pict, *mask);
    } else {
      ConvertRGBRow(row, r.width, r.swapRB, pict);
    }
  }
  return true;
}

bool DecodeImage(PNGReader& r, png_bytepp rows) {
  if (setjmp(*r.jump)) return false;
  png_read_image(r.png, rows);
  return true;
}

// The decoded image of all passes: one buffer and a table of its rows.
struct WholeImage {
  unsigned char* buffer = nullptr;
  png_bytepp rows = nullptr;

  ~WholeImage() {
    free(rows);
    free(buffer);
  }
};

// Allocates the image of row bytes × height; the product is taken in 64 bits so that a size
// that would wrap is refused instead of allocated short.
bool AllocateImage(const PNGReader& r, WholeImage& image) {
  const int64_t rowBytes = static_cast<int64_t>(png_get_rowbytes(r.png, r.info));
  const int64_t size = rowBytes * r.height;
  const int64_t tableSize = r.height * static_cast<int64_t>(sizeof(png_bytep));
  if (size >= 1 && size <= kMaxBuffer) image.buffer = static_cast<unsigned char*>(calloc(1, size));
  if (tableSize >= 1 && tableSize <= kMaxBuffer) {
    image.rows = static_cast<png_bytepp>(calloc(1, tableSize));
  }
  if (image.buffer == nullptr || image.rows == nullptr) return false;
  for (RBInteger y = 0; y < r.height; ++y) image.rows[y] = image.buffer + y * rowBytes;
  return true;
}

unsigned char* AllocateRow(const PNGReader& r) {
  const int64_t rowBytes = static_cast<int64_t>(png_get_rowbytes(r.png, r.info));
  return rowBytes >= 1 && rowBytes <= kMaxBuffer ? static_cast<unsigned char*>(calloc(1, rowBytes))
                                                 : nullptr;
}

bool Decodable(const PNGReader& r) {
  return HasHandles(r) && HasSource(r) && r.setUp;
}

}  // namespace

bool ReadRGBbyRow(PNGReader& r) {
  Replace(r.pict, nullptr);
  if (!Decodable(r)) return false;
  unsigned char* row = AllocateRow(r);
  if (row == nullptr) return false;
  PictureWriter pict;
  if (SetUpWriter(pict, r) && (DecodeRows(r, row, pict, nullptr) || r.allowDamaged)) {
    Replace(r.pict, pict.RenderPictureWriter());
  }
  free(row);
  return r.pict != nullptr;
}

bool ReadRGBAbyRow(PNGReader& r) {
  if (!Decodable(r)) return false;
  unsigned char* row = AllocateRow(r);
  if (row == nullptr) return false;
  PictureWriter mask;
  PictureWriter pict;
  if (SetUpWriter(mask, r) && SetUpWriter(pict, r)) {
    if (DecodeRows(r, row, pict, &mask)) {
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
  WholeImage image;
  if (!AllocateImage(r, image)) return false;
  PictureWriter pict;
  if (DecodeImage(r, image.rows)) {
    if (SetUpWriter(pict, r)) {
      for (RBInteger y = 0; y < r.height; ++y)
        ConvertRGBRow(image.rows[y], r.width, r.swapRB, pict);
      Replace(r.pict, pict.RenderPictureWriter());
    }
  } else if (r.allowDamaged) {
    // The writer is set up only after the whole image was read, so nothing is rendered.
    Replace(r.pict, pict.RenderPictureWriter());
  }
  return r.pict != nullptr;
}

bool ReadRGBAbyBlock(PNGReader& r) {
  if (!Decodable(r)) return false;
  WholeImage image;
  if (!AllocateImage(r, image)) return false;
  PictureWriter mask;
  if (!SetUpWriter(mask, r)) return false;
  PictureWriter pict;
  if (DecodeImage(r, image.rows)) {
    if (SetUpWriter(pict, r)) {
      for (RBInteger y = 0; y < r.height; ++y) {
        ConvertRGBARow(image.rows[y], r.width, r.swapRB, pict, mask);
      }
      Replace(r.mask, mask.RenderPictureWriter());
      Replace(r.pict, pict.RenderPictureWriter());
    }
  } else if (r.allowDamaged) {
    // The picture writer was never set up; the mask holds nothing that was decoded.
    Replace(r.pict, pict.RenderPictureWriter());
    Replace(r.mask, mask.RenderPictureWriter());
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
