// Pixels with their alpha between straight RGBA rows and the host's storages: each pixel stored
// and loaded through the format's row of the pixel format table, so that premultiplied,
// straight and gd storages all follow from the same table.
#include <string.h>

#include "picture/PictureEditor.h"

namespace {

// Stores `count` pixels of R, G, B, A bytes at `from` as the format keeps them, at `to`. Each
// pixel is read whole before its bytes are replaced, so `to` may be `from`.
void StorePixels(const PixelFormat& f, unsigned char* to, const unsigned char* from,
                 RBInteger count, bool swap) {
  for (RBInteger x = 0; x < count; ++x) {
    unsigned char p[4];
    memcpy(p, from + 4 * x, 4);
    StoreStraight(f, {p[swap ? 2 : 0], p[1], p[swap ? 0 : 2], p[3]}, to + 4 * x);
  }
}

}  // namespace

void PictureEditor::LoadRGBARow(RBInteger y, unsigned char* out) const {
  const PixelFormat* f = FindPixelFormat(pixelFormat);
  if (f == nullptr) {
    memset(out, 0, static_cast<size_t>(width) * 4);
    return;
  }
  const unsigned char* in = RowAddress(y);
  for (RBInteger x = 0; x < width; ++x) {
    const StraightPixel p = LoadStraight(*f, in + 4 * x);
    unsigned char* o = out + 4 * x;
    o[0] = p.red;
    o[1] = p.green;
    o[2] = p.blue;
    o[3] = p.alpha;
  }
}

void PictureWriter::StoreRGBARow(const unsigned char* row, RBInteger width, bool swap) {
  RGBAWords(row, width, swap, destination);
  NextRow();
}

bool PictureWriter::RGBAWords(const unsigned char* row, RBInteger count, bool swap,
                              uint32_t* words) const {
  const PixelFormat* f = FindPixelFormat(pixelFormat);
  if (f == nullptr) return false;
  StorePixels(*f, reinterpret_cast<unsigned char*>(words), row, count, swap);
  return true;
}
