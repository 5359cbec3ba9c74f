// Decoding set-up: the header, libpng's input transformations and the header queries. After
// set-up every row comes out as width × 4 bytes: red, green, blue, then alpha or the filler 255.
#include "host/Text.h"
#include "reader/PNGReader.h"

namespace {

constexpr png_uint_32 kValidTRNS = 0x10;  // PNG_INFO_tRNS

void StoreHeader(PNGReader& r) {
  png_uint_32 width = 0;
  png_uint_32 height = 0;
  int bitDepth = 0;
  int colorType = 0;
  int interlaceType = 0;
  png_get_IHDR(r.png, r.info, &width, &height, &bitDepth, &colorType, &interlaceType, nullptr,
               nullptr);
  r.height = height;
  r.width = width;
  r.colorType = colorType;
  r.bitDepth = bitDepth;
  r.interlaceType = interlaceType;
}

// Samples of 16 bits cut to 8, of 1, 2 and 4 bits widened to a byte each.
void RequestUnpacking(png_structp png) {
  png_set_strip_16(png);
  png_set_packing(png);
  png_set_packswap(png);
}

// Grey and palette to RGB, transparency to alpha. A request is a flag for libpng to act on when
// it starts the rows, so the order of requests does not matter.
void RequestExpansion(png_structp png, png_infop info, int colorType) {
  const bool grey = colorType == PNG_COLOR_TYPE_GRAY || colorType == PNG_COLOR_TYPE_GRAY_ALPHA;
  const bool palette = (colorType & 1) != 0;
  const bool transparency = png_get_valid(png, info, kValidTRNS) != 0;
  if (grey) {
    png_set_expand(png);
    png_set_gray_to_rgb(png);
  }
  if (colorType == PNG_COLOR_TYPE_PALETTE) png_set_palette_to_rgb(png);
  if (transparency) png_set_tRNS_to_alpha(png);
  // These repeat requests already made; a repeated request has no further effect.
  if (palette) png_set_expand(png);
  if (grey) png_set_expand(png);
  if (palette) png_set_expand(png);
  if (transparency) png_set_expand(png);
}

// The colour type of the expanded rows: RGBA from an alpha channel or a transparency chunk.
int ExpandedColorType(png_structp png, png_infop info, int colorType) {
  const bool alpha =
      (colorType & PNG_COLOR_MASK_ALPHA) != 0 || png_get_valid(png, info, kValidTRNS);
  return alpha ? PNG_COLOR_TYPE_RGB_ALPHA : PNG_COLOR_TYPE_RGB;
}

// A palette image's expansion, requested only at the row start (the header's colour type is
// still in the info until then).
void RequestPaletteExpansion(png_structp png, png_infop info) {
  if (png_get_color_type(png, info) == PNG_COLOR_TYPE_PALETTE) {
    RequestExpansion(png, info, PNG_COLOR_TYPE_PALETTE);
  }
}

void StartRows(PNGReader& r) {
  png_read_update_info(r.png, r.info);
}

// `gamma` > 0 is the exponent the caller wants, the reciprocal of a file gamma; 0 uses the
// file's own gamma chunk; negative or NaN turns gamma handling off.
void RequestGamma(png_structp png, png_infop info, double gamma, double screenGamma) {
  const double screen = screenGamma > 0.0 ? screenGamma : 1.8;
  if (gamma > 0.0) {
    png_set_gamma(png, screen, 1.0 / gamma);
  } else if (gamma == 0.0) {
    double fileGamma = 0.0;
    if (png_get_gAMA(png, info, &fileGamma)) {
      png_set_gamma(png, screen, fileGamma);
    } else {
      png_set_gamma(png, screen, 1.0 / screen);
    }
  }
}

bool GetICCP(PNGReader& r, png_charp* name, int* compression, png_bytep* profile,
             png_uint_32* length) {
  if (setjmp(*r.jump)) return false;
  return png_get_iCCP(r.png, r.info, name, compression, profile, length) != 0;
}

bool GetsRGB(PNGReader& r, int* intent) {
  if (setjmp(*r.jump)) return false;
  return png_get_sRGB(r.png, r.info, intent) != 0;
}

// What ApplyOptions asks of libpng: the header and the chunks before the image data, and the
// transformations that make every row RGB with the filler, or RGBA.
bool ReadHeader(PNGReader& r, double gamma, double screenGamma) {
  if (setjmp(*r.jump)) return false;
  png_set_sig_bytes(r.png, 0);
  png_read_info(r.png, r.info);
  StoreHeader(r);
  const int colorType = static_cast<int>(r.colorType);
  RequestUnpacking(r.png);
  if (colorType != PNG_COLOR_TYPE_PALETTE) RequestExpansion(r.png, r.info, colorType);
  RequestGamma(r.png, r.info, gamma, screenGamma);
  r.passes = png_set_interlace_handling(r.png);
  r.colorType = ExpandedColorType(r.png, r.info, colorType);
  return true;
}

// A new decode: no header values and no pictures until it has made them.
void ClearResults(PNGReader& r) {
  r.interlaceType = 0;
  r.colorType = 0;
  r.bitDepth = 0;
  r.passes = 0;
  r.height = 0;
  r.width = 0;
  if (r.pict) UnlockHandle(r.pict);
  r.pict = nullptr;
  if (r.mask) UnlockHandle(r.mask);
  r.mask = nullptr;
}

}  // namespace

// The filler, a palette image's expansion and libpng's row start are left to the first read,
// which alone knows which rows it wants. Once png_read_info accepted the header, nothing in them
// raises an error or a warning but a failing allocation, so the set-up's events still come here;
// the header values are what the expansion gives: RGB with the filler, or RGBA (see
// ExpandedColorType). Called again, it starts over from the first byte of the source.
bool ApplyOptions(PNGReader& r, double gamma, double screenGamma) {
  if (!Admit(r, ReaderCall::kApplyOptions)) return Report(r, false);
  ClearResults(r);
  if (r.state != ReaderState::kOpened && !StartOver(r)) return Report(r, false);
  const bool set = ReadHeader(r, gamma, screenGamma);
  r.state = set ? ReaderState::kSetUp : ReaderState::kNotSetUp;
  return Report(r, set);
}

void StartRGBARows(PNGReader& r) {
  RequestPaletteExpansion(r.png, r.info);
  png_set_filler(r.png, 255, PNG_FILLER_AFTER);
  StartRows(r);
}

void StartRGBRows(PNGReader& r) {
  StartRows(r);
}

void StartIndexRows(PNGReader& r) {
  // libpng would scan every row for indices past the palette, for a report that only the end of
  // the stream, which the decoders never read, can give.
  png_set_check_for_invalid_index(r.png, 0);
  StartRows(r);
}

void StartFilledRows(PNGReader& r, bool bgr, unsigned char filler, bool fillerFirst) {
  RequestPaletteExpansion(r.png, r.info);
  if (bgr) png_set_bgr(r.png);
  png_set_filler(r.png, filler, fillerFirst ? PNG_FILLER_BEFORE : PNG_FILLER_AFTER);
  StartRows(r);
}

// From a successful ApplyOptions on, rows are four bytes a pixel, RGB with the filler or RGBA:
// what the next row read delivers, or, once a picture decode has asked libpng for rows of its
// own, what it delivers after ApplyOptions has started over.
RBInteger GetRowBytes(PNGReader& r) {
  return r.state >= ReaderState::kSetUp ? static_cast<RBInteger>(int64_t{r.width} * 4) : 0;
}

bool ReadsRGBTag(PNGReader& r, RBInteger& intent) {
  intent = 0;
  int value = 0;
  if (!Admit(r, ReaderCall::kQuery) || !GetsRGB(r, &value)) return Report(r, false);
  intent = value;
  return Report(r, true);
}

bool ReadICCProfile(PNGReader& r, REALstring& name, RBInteger& compression, REALstring& profile) {
  if (name) REALUnlockString(name);
  name = nullptr;
  if (profile) REALUnlockString(profile);
  profile = nullptr;
  compression = 0;
  png_charp iccName = nullptr;
  int iccCompression = 0;
  png_bytep iccProfile = nullptr;
  png_uint_32 iccLength = 0;
  if (!Admit(r, ReaderCall::kQuery) ||
      !GetICCP(r, &iccName, &iccCompression, &iccProfile, &iccLength)) {
    return Report(r, false);
  }
  profile = REALBuildUnicodeString(iccProfile, iccLength, kREALTextEncodingUnknown);
  name = BuildASCIIString(iccName);
  compression = iccCompression;
  return Report(r, true);
}
