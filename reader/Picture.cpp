// Decoding a whole image into a host picture, and for an image with alpha into a separate mask
// or into the alpha channel of a picture that has one, by one decoder: what it makes (picture,
// picture and mask, or picture with alpha channel), how the image comes (row by row, or every
// row in each pass of an interlaced image) and what libpng's rows hold are data that one loop of
// row reads follows.
//
// A palette image is decoded as its indices, one byte a pixel, each looked up in a table of the
// words that its palette entry (gamma corrected by libpng, alpha from the transparency chunk)
// gives in the picture and in the mask: one load a pixel instead of libpng's expansion to four
// bytes and a conversion of those. An image without alpha asks libpng for rows that already are
// the picture's words, where the picture's format allows, and is read straight into it. An
// interlaced image can only be converted after its last pass: it is read into the picture itself
// where its rows are four bytes a pixel and the picture's layout is known, into a buffer of the
// whole image otherwise.
#include <inttypes.h>
#include <stdio.h>
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

// One decode, described by the image and the picture's format, and the writers it fills.
struct Decoder {
  bool withMask = false;  // a mask next to the picture: the rows carry alpha
  bool alpha = false;     // a picture with an alpha channel: the rows carry alpha, no mask
  bool whole = false;     // an interlaced image: converted once its last pass is read
  Rows rows = Rows::kRGBA;
  bool inPicture = false;  // libpng's rows are the picture's own rows
  bool swap = false;
  FilledRowOrder order;             // of kWords
  int64_t rowBytes = 0;             // of a row in `buffer`
  unsigned char* buffer = nullptr;  // one row, or every row of a whole image; none in the picture
  PictureWriter pict;
  PictureWriter mask;
  uint32_t colours[kPaletteEntries] = {};
  uint32_t masks[kPaletteEntries] = {};

  ~Decoder() { free(buffer); }
};

// The rows libpng is to deliver, and where they go. Words only without alpha, and only when
// libpng makes them with no more than its filler: its red-blue exchange is a byte loop that
// costs more than the conversion it would save. Otherwise a one-pass image without alpha is read
// as RGB, which the conversion fills out itself, for libpng's filler is a byte loop too.
void ChooseRows(const PNGReader& r, Decoder& d) {
  const bool known = d.pict.FilledRows(d.swap, &d.order);
  const bool withAlpha = d.withMask || d.alpha;
  if (png_get_color_type(r.png, r.info) == PNG_COLOR_TYPE_PALETTE) {
    d.rows = Rows::kIndices;
  } else if (!withAlpha && known && !d.order.bgr) {
    d.rows = Rows::kWords;
  } else if (!withAlpha && !d.whole) {
    d.rows = Rows::kRGB;
  }
  d.inPicture = d.rows == Rows::kWords || (d.rows == Rows::kRGBA && d.whole && known);
  if (d.rows == Rows::kIndices) d.rowBytes = r.width;
  if (d.rows == Rows::kRGB) d.rowBytes = int64_t{r.width} * 3;
  if (d.rows == Rows::kRGBA) d.rowBytes = int64_t{r.width} * 4;
}

// Asks libpng for the rows chosen; libpng may fail, so this runs under a jump point.
bool StartRows(PNGReader& r, const Decoder& d) {
  if (setjmp(*r.jump)) return false;
  if (d.rows == Rows::kIndices) {
    StartIndexRows(r);
  } else if (d.rows == Rows::kWords) {
    StartFilledRows(r, d.order.bgr, d.order.filler, d.order.fillerFirst);
  } else if (d.rows == Rows::kRGB) {
    StartRGBRows(r);
  } else {
    StartRGBARows(r);
  }
  return true;
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

// The words of the palette that libpng holds once the rows have started.
void BuildTables(const PNGReader& r, Decoder& d) {
  if (d.rows != Rows::kIndices) return;
  unsigned char rgba[kPaletteEntries * 4];
  ReadPalette(r, rgba);
  if (d.alpha) {
    d.pict.RGBAWords(rgba, kPaletteEntries, d.swap, d.colours);
  } else {
    d.pict.ColourWords(rgba, kPaletteEntries, d.swap, d.colours);
  }
  if (d.withMask) d.mask.MaskWords(rgba, kPaletteEntries, d.masks);
}

// Where libpng puts row `y`.
unsigned char* Target(const Decoder& d, RBInteger y) {
  if (d.inPicture) return d.pict.RowAddress(y);
  return d.whole ? d.buffer + y * d.rowBytes : d.buffer;
}

// Colour into the picture, always opaque (with `swap` red and blue trade places), and for an
// image with alpha 255 − alpha into the mask: black shows, white hides; or colour and alpha into
// a picture with an alpha channel. Words are in place, and so may RGBA rows be.
void ConvertRow(Decoder& d, const unsigned char* row, RBInteger width) {
  PictureWriter& pict = d.pict;
  if (d.rows == Rows::kIndices) {
    if (d.withMask) {
      pict.StoreIndexedRowAndMask(row, width, d.colours, d.mask, d.masks);
    } else {
      pict.StoreIndexedRow(row, width, d.colours);
    }
  } else if (d.rows == Rows::kRGB) {
    pict.StoreRGBRow(row, width, d.swap);
  } else if (d.rows == Rows::kRGBA && d.alpha) {
    pict.StoreRGBARow(row, width, d.swap);
  } else if (d.rows == Rows::kRGBA && d.withMask) {
    pict.StoreColourAndMaskRow(row, width, d.swap, d.mask);
  } else if (d.rows == Rows::kRGBA) {
    pict.StoreColourRow(row, width, d.swap);
  }
}

// Every row of every pass, each row of a one-pass image converted as it comes; false when libpng
// fails midway.
bool ReadEveryRow(PNGReader& r, Decoder& d) {
  if (setjmp(*r.jump)) return false;
  for (RBInteger pass = 0; pass < r.passes; ++pass) {
    for (RBInteger y = 0; y < r.height; ++y) {
      unsigned char* row = Target(d, y);
      png_read_row(r.png, row, nullptr);
      if (!d.whole) ConvertRow(d, row, r.width);
    }
  }
  return true;
}

// The rows of a whole image, once all of its passes are read: a failure in any pass leaves the
// picture and the mask as they were set up.
void ConvertWholeImage(const PNGReader& r, Decoder& d) {
  if (!d.whole) return;
  for (RBInteger y = 0; y < r.height; ++y) ConvertRow(d, Target(d, y), r.width);
}

// A writer of the image's size, which the decoder may fill without bounds checks per pixel; on
// a picture with an alpha channel with `alpha`.
bool SetUpWriter(PictureWriter& writer, const PNGReader& r, bool alpha = false) {
  if (r.width > INT32_MAX || r.height > INT32_MAX) return false;
  const int w = static_cast<int>(r.width), h = static_cast<int>(r.height);
  const bool made = alpha ? writer.NewAlphaPictureWriter(w, h) : writer.NewPictureWriter(w, h);
  return made && writer.width >= r.width && writer.height >= r.height;
}

// The row buffer, or the whole image's; the size is taken in 64 bits so that one that would wrap
// is refused instead of allocated short. It is not cleared: libpng writes every pixel of a row
// before the row is converted (a failed read converts none), and clearing would cost a pass over
// the image whenever the allocator hands out reused memory.
bool AllocateBuffer(const PNGReader& r, Decoder& d) {
  if (d.inPicture) return true;
  const int64_t size = d.rowBytes * (d.whole ? r.height : 1);
  if (size >= 1 && size <= kMaxBuffer) d.buffer = static_cast<unsigned char*>(malloc(size));
  return d.buffer != nullptr;
}

void Replace(REALpicture& field, PictureWriter& writer) {
  if (field) UnlockHandle(field);
  field = writer.RenderPictureWriter();
}

// The pictures the record keeps: both when every row was read; after a libpng error with
// AllowDamaged, the picture of a one-pass image as far as it was decoded and the mask as it
// stands (an interlaced image gives no picture, since nothing of it is converted). Memory running
// out is no damage of the data: it keeps nothing.
void KeepPictures(PNGReader& r, Decoder& d, bool read) {
  if (!read && (!r.allowDamaged || r.memoryFailed)) return;
  if (read || !d.whole) Replace(r.pict, d.pict);
  if (d.withMask) Replace(r.mask, d.mask);
}

// An image beyond the reader's PixelLimit is refused before its picture is made, with the reason
// queued. The product of two 32-bit dimensions fits 64 bits.
bool OverPixelLimit(PNGReader& r) {
  const uint64_t pixels = static_cast<uint64_t>(r.width) * static_cast<uint64_t>(r.height);
  if (r.pixelLimit <= 0 || pixels <= static_cast<uint64_t>(r.pixelLimit)) return false;
  char message[EventQueue::kTextBytes];
  snprintf(message, sizeof message,
           "The image has %" PRId64 " x %" PRId64 " pixels, more than the PixelLimit of %" PRId64
           " allows.",
           int64_t{r.width}, int64_t{r.height}, int64_t{r.pixelLimit});
  QueueError(r.events, message);
  return true;
}

// Into a picture and, for an image with alpha, a mask; or into one picture with an alpha channel.
bool Decode(PNGReader& r, bool alpha) {
  Decoder d;
  d.alpha = alpha;
  d.withMask = !alpha && r.colorType == PNG_COLOR_TYPE_RGB_ALPHA;
  d.whole = r.passes != 1;
  d.swap = r.swapRB;
  if (d.withMask && !SetUpWriter(d.mask, r)) return false;
  if (!SetUpWriter(d.pict, r, alpha)) return false;
  ChooseRows(r, d);
  if (!AllocateBuffer(r, d)) return false;
  // From here libpng hands out the rows chosen: the set-up is spent, whatever the outcome.
  r.state = ReaderState::kDecoded;
  r.memoryFailed = false;
  bool read = StartRows(r, d);
  if (read) {
    BuildTables(r, d);
    read = ReadEveryRow(r, d);
  }
  if (read) {
    ConvertWholeImage(r, d);
    r.state = ReaderState::kDecodedWhole;
  }
  KeepPictures(r, d, read);
  return r.pict != nullptr;
}

// Whether the host makes new pictures whose pixels no route of this platform can reach (a Windows
// desktop host that hands out neither its pixels nor a GDI+ bitmap, for one).
bool HostRefusesPictures() {
  PictureWriter probe;
  return !probe.NewPictureWriter(1, 1) && probe.refused;
}

}  // namespace

// A decode that failed for want of a picture to write into says so.
bool ReadPicture(PNGReader& r) {
  if (!Admit(r, ReaderCall::kReadPicture)) return Report(r, false);
  if (OverPixelLimit(r)) return Report(r, false);
  const bool decoded = Decode(r, false);
  if (!decoded && HostRefusesPictures()) {
    QueueError(r.events, "The host's pictures cannot be written to.");
  }
  return Report(r, decoded);
}

bool ReadAlphaPicture(PNGReader& r) {
  if (!Admit(r, ReaderCall::kReadPicture)) return Report(r, false);
  if (!HostHasAlphaPictures()) {
    QueueError(r.events, kNoAlphaPictures);
    return Report(r, false);
  }
  if (OverPixelLimit(r)) return Report(r, false);
  return Report(r, Decode(r, true));
}
