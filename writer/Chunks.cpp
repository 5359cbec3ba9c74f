// The image header and the ancillary chunks, put into libpng's info structure before WriteInfo:
// IHDR with filter and compression choices, pHYs, sRGB, iCCP, gAMA, PLTE and tRNS.
#include <limits.h>

#include <algorithm>
#include <memory>
#include <utility>

#include "host/Text.h"
#include "picture/PictureEditor.h"
#include "writer/PNGWriter.h"

namespace {

constexpr int kResolutionMeter = 1;
constexpr int kResolutionDPI = 2;
constexpr double kInchesPerMetre = 39.37007874015748;
constexpr double kDefaultFileGamma = 0.5555555555555556;  // 1 / 1.8
constexpr int kMaxEntries = 256;

// A host Integer as a C int, saturated, so that no value wraps into a valid one.
int Clamped(RBInteger value) {
  return static_cast<int>(std::clamp<RBInteger>(value, INT_MIN, INT_MAX));
}

// A width or height beyond 32 bits becomes one that libpng rejects rather than a wrapped one.
png_uint_32 Dimension(RBInteger value) {
  const int64_t wide = value;
  return wide < 0 || wide > int64_t{UINT32_MAX} ? UINT32_MAX : static_cast<png_uint_32>(wide);
}

// Pixels per inch to pixels per metre, rounded; saturated to 32 bits, where the conversion of a
// larger value would be undefined.
png_uint_32 PerMetre(RBInteger perInch) {
  const double perMetre = static_cast<double>(perInch) * kInchesPerMetre + 0.5;
  const double bounded = std::clamp(perMetre, double{INT32_MIN}, double{INT32_MAX});
  return static_cast<png_uint_32>(static_cast<int32_t>(bounded));
}

bool SetHeaderArmed(PNGWriter& w, int interlace, int filter, int level) {
  if (setjmp(*w.jumpBuffer)) return false;
  png_set_IHDR(w.pngPtr, w.infoPtr, Dimension(w.width), Dimension(w.height), 8, Clamped(w.type),
               interlace, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
  if (filter >= 0) png_set_filter(w.pngPtr, PNG_FILTER_TYPE_DEFAULT, filter);
  if (level >= 0) png_set_compression_level(w.pngPtr, level);
  return true;
}

bool SetpHYsArmed(PNGWriter& w, png_uint_32 horizontal, png_uint_32 vertical, int unit) {
  if (setjmp(*w.jumpBuffer)) return false;
  png_set_pHYs(w.pngPtr, w.infoPtr, horizontal, vertical, unit);
  return true;
}

bool SetsRGBArmed(PNGWriter& w, int intent) {
  if (setjmp(*w.jumpBuffer)) return false;
  png_set_sRGB(w.pngPtr, w.infoPtr, intent);
  return true;
}

bool SetiCCPArmed(PNGWriter& w, const char* name, int compressionType, const unsigned char* profile,
                  png_uint_32 length) {
  if (setjmp(*w.jumpBuffer)) return false;
  png_set_iCCP(w.pngPtr, w.infoPtr, name, compressionType, profile, length);
  return true;
}

bool SetgAMAArmed(PNGWriter& w, double fileGamma) {
  if (setjmp(*w.jumpBuffer)) return false;
  png_set_gAMA(w.pngPtr, w.infoPtr, fileGamma);
  return true;
}

bool SetPLTEArmed(PNGWriter& w, const png_color* entries, int count) {
  if (setjmp(*w.jumpBuffer)) return false;
  png_set_PLTE(w.pngPtr, w.infoPtr, entries, count);
  return true;
}

bool SettRNSArmed(PNGWriter& w, int count) {
  if (setjmp(*w.jumpBuffer)) return false;
  png_set_tRNS(w.pngPtr, w.infoPtr, w.alphas, count, nullptr);
  return true;
}

// The name as UTF-8 and the profile's own bytes, held for the armed call and given back before
// any event is raised.
bool SetiCCPFromHost(PNGWriter& w, REALstring name, int compressionType, REALstring profile) {
  rbText nameText(name);
  const std::unique_ptr<rbText> bytes(rbText::MakeRaw(profile));
  // Host strings stay far below 4 GiB, so the length fits libpng's 32 bits.
  return SetiCCPArmed(w, nameText.GetUTF8(), compressionType, bytes ? bytes->Bytes() : nullptr,
                      bytes ? static_cast<png_uint_32>(bytes->Length()) : 0);
}

int StoredCount(REALarray array) {
  return static_cast<int>(std::clamp<RBInteger>(REALGetArrayUBound(array) + 1, 0, kMaxEntries));
}

void StoreColors(PNGWriter& w, REALarray colors) {
  w.paletteCount = StoredCount(colors);
  w.paletteSet = 1;
  for (int i = 0; i < w.paletteCount; ++i) REALGetArrayValue(colors, i, &w.palette[i]);
}

void StoreAlphas(PNGWriter& w, REALarray alphas) {
  w.alphaCount = StoredCount(alphas);
  for (int i = 0; i < w.alphaCount; ++i) {
    bool found = false;
    const RBInteger alpha = REALGetArrayValueInteger(alphas, i, &found);
    if (found) w.alphas[i] = static_cast<uint8_t>(alpha & 0xFF);
  }
  w.alphasSet = 1;
}

// Ascending by alpha over all 256 slots, used or not, so that translucent entries come first
// and tRNS can stop after the last of them.
void SortByAlpha(PNGWriter& w) {
  for (int i = 0; i < kMaxEntries - 1; ++i) {
    for (int j = i + 1; j < kMaxEntries; ++j) {
      if (w.alphas[j] < w.alphas[i]) {
        std::swap(w.palette[i], w.palette[j]);
        std::swap(w.alphas[i], w.alphas[j]);
      }
    }
  }
}

}  // namespace

bool SetHeader(PNGWriter& w, bool interlace, RBInteger filter, RBInteger compression) {
  if (!Admit(w, WriterCall::kSetHeader)) return false;
  const int filterBits = Clamped(filter), level = Clamped(compression);
  const bool set =
      SetHeaderArmed(w, interlace ? PNG_INTERLACE_ADAM7 : PNG_INTERLACE_NONE, filterBits, level);
  // libpng keeps the values of a header it refuses; WriteInfo must not write them.
  w.state = set ? WriterState::kDescribing : WriterState::kHeaderRefused;
  // libpng took the filter and level only when the whole call went through.
  if (set && filterBits >= 0) w.filter = filterBits;
  if (set && level >= 0) w.level = level;
  return Report(w, set);
}

bool SetResolution(PNGWriter& w, RBInteger horizontal, RBInteger vertical, RBInteger unit) {
  if (!Admit(w, WriterCall::kSetChunk)) return false;
  if (unit == kResolutionDPI) {
    return Report(w, SetpHYsArmed(w, PerMetre(horizontal), PerMetre(vertical), kResolutionMeter));
  }
  return Report(w, SetpHYsArmed(w, static_cast<png_uint_32>(horizontal),
                                static_cast<png_uint_32>(vertical), Clamped(unit)));
}

bool SetsRGB(PNGWriter& w, RBInteger intent) {
  return Admit(w, WriterCall::kSetChunk) && Report(w, SetsRGBArmed(w, Clamped(intent)));
}

bool SetICCProfile(PNGWriter& w, REALstring name, RBInteger compressionType, REALstring profile) {
  return Admit(w, WriterCall::kSetChunk) &&
         Report(w, SetiCCPFromHost(w, name, Clamped(compressionType), profile));
}

bool SetGamma(PNGWriter& w, double gamma) {
  if (!Admit(w, WriterCall::kSetChunk)) return false;
  if (!(gamma >= 0.0)) return true;  // negative or NaN: no gAMA chunk
  return Report(w, SetgAMAArmed(w, gamma > 0.0 ? 1.0 / gamma : kDefaultFileGamma));
}

bool SetPaletteData(PNGWriter& w, REALarray colors) {
  if (!Admit(w, WriterCall::kStore) || RaiseIfNil(colors, "Colors array is nil")) return false;
  StoreColors(w, colors);
  return true;
}

bool SetAlphaData(PNGWriter& w, REALarray alphas, REALarray colors) {
  if (!Admit(w, WriterCall::kStore) || RaiseIfNil(colors, "Colors array is nil") ||
      RaiseIfNil(alphas, "Alphas array is nil")) {
    return false;
  }
  StoreColors(w, colors);
  StoreAlphas(w, alphas);
  SortByAlpha(w);
  return true;
}

bool SetPalette(PNGWriter& w) {
  if (!Admit(w, WriterCall::kSetChunk)) return false;
  png_color entries[kMaxEntries];
  for (int i = 0; i < w.paletteCount; ++i) {
    const RBColor c = w.palette[i];
    entries[i] = {static_cast<png_byte>(c >> 16), static_cast<png_byte>(c >> 8),
                  static_cast<png_byte>(c)};
  }
  return Report(w, SetPLTEArmed(w, entries, w.paletteCount));
}

bool SetAlphas(PNGWriter& w) {
  if (!Admit(w, WriterCall::kSetChunk)) return false;
  const int translucent = static_cast<int>(
      std::count_if(w.alphas, w.alphas + w.alphaCount, [](uint8_t alpha) { return alpha != 255; }));
  if (translucent < 1) return true;
  return Report(w, SettRNSArmed(w, translucent));
}
