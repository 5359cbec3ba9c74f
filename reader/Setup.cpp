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

// Every sample to 8 bits, grey and palette to RGB, transparency to alpha.
void RequestExpansion(png_structp png, png_infop info, int colorType) {
  png_set_strip_16(png);
  png_set_packing(png);
  png_set_packswap(png);
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

}  // namespace

bool ApplyOptions(PNGReader& r, double gamma, double screenGamma) {
  if (!HasHandles(r) || !HasSource(r)) return false;
  if (setjmp(*r.jump)) return false;
  r.setUp = false;
  png_set_sig_bytes(r.png, 0);
  png_read_info(r.png, r.info);
  StoreHeader(r);
  RequestExpansion(r.png, r.info, static_cast<int>(r.colorType));
  RequestGamma(r.png, r.info, gamma, screenGamma);
  png_set_filler(r.png, 255, PNG_FILLER_AFTER);
  r.passes = png_set_interlace_handling(r.png);
  png_read_update_info(r.png, r.info);
  r.colorType = png_get_color_type(r.png, r.info);
  r.setUp = true;
  return true;
}

RBInteger GetRowBytes(PNGReader& r) {
  if (!HasHandles(r)) return 0;
  if (setjmp(*r.jump)) return 0;
  return static_cast<RBInteger>(png_get_rowbytes(r.png, r.info));
}

bool ReadsRGBTag(PNGReader& r, RBInteger& intent) {
  intent = 0;
  int value = 0;
  if (!HasHandles(r) || !GetsRGB(r, &value)) return false;
  intent = value;
  return true;
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
  if (!HasHandles(r) || !GetICCP(r, &iccName, &iccCompression, &iccProfile, &iccLength)) {
    return false;
  }
  profile = REALBuildUnicodeString(iccProfile, iccLength, kREALTextEncodingUnknown);
  name = BuildASCIIString(iccName);
  compression = iccCompression;
  return true;
}
