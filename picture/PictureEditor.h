// Direct access to the pixels of a host picture: the editor finds out how the host stores the
// picture, locks it and exposes one plain buffer of 4-byte pixels, rows top to bottom, in the
// format of `pixelFormat` (a code of picture/PixelFormat.h). Row bytes may exceed width × 4 and
// must be honoured.
#pragma once

#include <stdint.h>

#include "host/HostRuntime.h"
#include "picture/PixelFormat.h"
#include "picture/Platform.h"

class PictureEditor {
 public:
  PictureEditor() = default;
  virtual ~PictureEditor();
  PictureEditor(const PictureEditor&) = delete;
  PictureEditor& operator=(const PictureEditor&) = delete;

  // Locks `picture` for pixel access; on success the fields below describe the buffer.
  bool GetPictureEditor(REALpicture picture, bool forReading, bool forWriting);

  // Finishes editing and hands over the picture (a new reference owned by the caller), or nil
  // for an editor that holds none. The editor is released either way.
  REALpicture RenderPictureWriter();

  // Address of row `y`; an index outside the picture gives the top row.
  unsigned char* RowAddress(RBInteger y) const;

  // Row `y` as user code sees it, four bytes a pixel, R, G, B, A, into `out` (width × 4 bytes):
  // colour divided by alpha again (rounded) where the format multiplies it, gd's 7-bit alpha
  // widened, opaque where the format keeps no alpha. A format the table lacks gives zeros.
  void LoadRGBARow(RBInteger y, unsigned char* out) const;

  int32_t rowBytes = 0;
  int32_t width = 0;
  int32_t height = 0;
  int32_t bytesPerPixel = 0;
  int32_t state = 0;
  int32_t verticalResolution = 0;
  int32_t horizontalResolution = 0;
  int32_t pixelFormat = 0;
  unsigned char* baseAddress = nullptr;
  REALpictureDescription description = {};
  unsigned char* pixels = nullptr;
  int32_t spare[2] = {0, 0};
  REALpicture picture = nullptr;
  unsigned char** rowTable = nullptr;
  bool hasAlpha = false;
  bool alphaWanted = false;
  bool forReading = false;
  bool forWriting = false;
  bool descriptionLocked = false;

 protected:
  void Release();

 private:
  bool GetPictureEditorInternal(REALpicture picture, bool forReading, bool forWriting, int depth);
  bool GetPictureEditorDesktop(REALpicture picture, bool alphaWanted);
#if defined(_WIN32)
  bool GetPictureEditorBGRA(REALpicture picture);
  bool GetPictureEditorGdiplus(REALpicture picture);
  void AttachWords(REALpicture picture, unsigned char* data, int32_t width, int32_t height,
                   int32_t stride, int32_t format);
  GdiplusLock gdiplus = {};
#else
#if !defined(__APPLE__)
  bool GetPictureEditorCairo(REALpicture picture);
#endif
  bool GetPictureEditorCGBitmapContext(REALpicture picture, bool alphaWanted);
#endif
  bool GetPictureEditorGDImagePtr(REALpicture picture);
  bool EditDrawnCopy(REALpicture picture, bool forReading);
  void Attach(REALpicture picture);
  void MarkWritten();
};

// An editor opened on a picture for reading its pixels.
class PictureReader : public PictureEditor {};

// Rows of red, green and blue (blue first with `bgr`) and a constant byte `filler`, first or
// after them: the form in which libpng can deliver a picture's colour words itself.
struct FilledRowOrder {
  bool bgr = false;
  bool fillerFirst = false;
  unsigned char filler = 0;
};

// An editor on a new picture that the decoders fill pixel by pixel, row by row.
class PictureWriter : public PictureEditor {
 public:
  // Sets the writer up on a new 32-bit picture of that size (each side 1 to 32767). When the host
  // made the picture but gives no way to write its pixels, `refused` tells so.
  bool NewPictureWriter(int width, int height);
  // The same on a new picture with an alpha channel (see NewAlphaPicture).
  bool NewAlphaPictureWriter(int width, int height);

  // Stores one decoded row, bytes R, G, B, x a pixel, and moves to the next row. Each pixel is
  // stored opaque, its colour where the format keeps red, green and blue (red and blue exchanged
  // with `swap`); a code that the pixel format table lacks stores nothing.
  void StoreColourRow(const unsigned char* row, RBInteger width, bool swap);
  // The same for a row of three bytes a pixel, R, G, B.
  void StoreRGBRow(const unsigned char* row, RBInteger width, bool swap);
  // Stores one decoded row of R, G, B, A bytes (red and blue exchanged with `swap`) with its
  // alpha, as the format keeps a pixel: premultiplied, gd's 7-bit alpha or straight. The row may
  // be this writer's current row, converted in place.
  void StoreRGBARow(const unsigned char* row, RBInteger width, bool swap);
  // Stores the grey 255 − x of each pixel of a decoded row, and moves to the next row.
  void StoreMaskRow(const unsigned char* row, RBInteger width);
  // Both of the above in one pass over the row: the colour here, the grey into `mask`. The row
  // may be this writer's current row (`destination`), decoded there and converted in place.
  void StoreColourAndMaskRow(const unsigned char* row, RBInteger width, bool swap,
                             PictureWriter& mask);

  // The words StoreColourRow and StoreMaskRow would store for the `count` pixels of `row`, into
  // `words` instead of the picture: a palette turned into a table of this writer's words. False
  // for a format that stores nothing.
  bool ColourWords(const unsigned char* row, RBInteger count, bool swap, uint32_t* words) const;
  bool MaskWords(const unsigned char* row, RBInteger count, uint32_t* words) const;
  // The words StoreRGBARow would store, likewise.
  bool RGBAWords(const unsigned char* row, RBInteger count, bool swap, uint32_t* words) const;
  // Whether this writer's colour words, as StoreColourRow stores them, lie in memory as rows of
  // some FilledRowOrder, and which.
  bool FilledRows(bool swap, FilledRowOrder* order) const;
  // Stores table[i] for each index i of a row (one byte a pixel), and moves to the next row.
  void StoreIndexedRow(const unsigned char* indices, RBInteger width, const uint32_t* table);
  // The same for this writer and `mask` in one pass, maskTable[i] into the mask.
  void StoreIndexedRowAndMask(const unsigned char* indices, RBInteger width, const uint32_t* table,
                              PictureWriter& mask, const uint32_t* maskTable);

  // Moves the destination to the start of the next row (back to the top after the last).
  void NextRow();

  uint32_t* destination = nullptr;
  bool refused = false;
  RBInteger row = 0;

 private:
  static bool ValidSides(int width, int height);
  // Sets the writer up on `fresh`, whose reference it takes over; false for nil.
  bool EditNewPicture(REALpicture fresh);
};

// Pictures with an alpha channel exist on hosts from 2011.04 on; older hosts are told so in
// this message.
bool HostHasAlphaPictures();
extern const char kNoAlphaPictures[];

// A new transparent picture with an alpha channel, made as user code makes one: an instance of
// the host's class "Picture" and its constructor. Nil where the host cannot make one.
REALpicture NewAlphaPicture(RBInteger width, RBInteger height);

// Both resolutions of `from` onto `to`, when both can be read and are at least 1.
void CopyPictureResolutions(REALpicture from, REALpicture to);

// Draws `source` into `destination` at 0, 0 with size width × height from a source area of
// sourceWidth × sourceHeight; the remaining arguments are accepted and not used.
void GraphicsDrawPicture(REALpicture destination, REALpicture source, RBInteger width,
                         RBInteger height, RBInteger sourceWidth, RBInteger sourceHeight,
                         RBInteger = 0, RBInteger = 0, RBInteger = 0, RBInteger = 0);

// One new picture that carries `mask` as its mask, or nil; the picture itself (with a new
// reference) when there is no mask. `flag` is accepted and not used.
REALpicture CreatePictureWithMask(REALpicture picture, REALpicture mask, bool flag, RBInteger width,
                                  RBInteger height);

// Element `index` of a colour array into `out`; raises OutOfBoundsException for an index
// outside the array and leaves `out` unchanged.
void REALGetArrayValue(REALarray array, RBInteger index, RBColor* out);
