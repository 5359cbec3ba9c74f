#include "picture/PictureEditor.h"

#include <limits.h>
#include <string.h>

#include <type_traits>
#include <utility>

#include "picture/GdImage.h"
#include "picture/Platform.h"

namespace {

constexpr int32_t kMaxPictureSide = 32767;

constexpr char kBestRepresentation[] =
    "BestRepresentation(width As Integer, height As Integer, scale As Double) As Picture";
constexpr char kConstructor[] = "Constructor(width as integer, height as integer)";
constexpr char kMaskSetter[] = "Mask(assigns newMask As Picture)";

using BestRepresentationProc = REALpicture (*)(REALobject, RBInteger, RBInteger, double);
using ConstructorProc = void (*)(REALobject, RBInteger, RBInteger);
using MaskSetterProc = void (*)(REALobject, REALpicture);

REALobject AsObject(REALpicture picture) {
  return reinterpret_cast<REALobject>(picture);
}

// An integer property of a picture; `value` is left alone when the query fails.
bool ReadInteger(REALpicture picture, const char* name, RBInteger* value) {
  return picture && REALGetPropValueInteger(AsObject(picture), name, value);
}

bool ReadHasAlpha(REALpicture picture) {
  RBBoolean value = 0;
  return REALGetPropValueBoolean(AsObject(picture), "HasAlphaChannel", &value) && value;
}

int32_t ResolutionOf(REALpicture picture, const char* name) {
  RBInteger value = 0;
  return ReadInteger(picture, name, &value) && value >= INT32_MIN && value <= INT32_MAX
             ? static_cast<int32_t>(value)
             : 0;
}

// Locks the picture's description of `type`. Hosts that keep a picture locked after a failed
// lock need the unlock all the same.
bool LockDescription(REALpicture picture, REALpictureDescription* description, uint32_t type) {
  if (REALLockPictureDescription(picture, description, type)) return true;
  if (gHost.version < hostversion::kFailedLockHeldBefore) REALUnlockPictureDescription(picture);
  return false;
}

#if !defined(_WIN32)
// The usable pixels of a bitmap context: 32 bits a pixel, a known alpha layout, and rows that
// hold their pixels (otherwise rows would be read past their end).
bool UsableContext(const BitmapContextInfo& info) {
  const uint32_t alpha = info.alphaInfo & 7;
  return info.data != nullptr && info.bitsPerPixel == 32 && alpha >= 1 && alpha <= 6 &&
         info.width <= INT32_MAX && info.height <= INT32_MAX && info.bytesPerRow <= INT32_MAX &&
         info.bytesPerRow >= info.width * 4;
}

#endif

#if !defined(__APPLE__) && !defined(_WIN32)
// Rows that hold their pixels, as for a bitmap context.
bool UsableSurface(const CairoImageInfo& info) {
  return info.data != nullptr && info.width >= 0 && info.height >= 0 &&
         int64_t{info.stride} >= int64_t{info.width} * 4;
}
#endif

// A true-colour gd image whose rows hold the described size.
bool UsableGDImage(const REALpictureDescription& d) {
  const auto* image = static_cast<const gd::Image*>(d.pictureData);
  return d.pictureType == pictureGDPtr && image != nullptr && image->pixels == nullptr &&
         image->trueColor && image->tpixels != nullptr && d.width >= 1 && d.height >= 1 &&
         d.width <= image->sx && d.height <= image->sy;
}

}  // namespace

const char kNoAlphaPictures[] = "Pictures with an alpha channel need Xojo 2011 Release 4 or later.";

bool HostHasAlphaPictures() {
  return gHost.version >= hostversion::kAlphaPictureConstructorFrom;
}

REALpicture NewAlphaPicture(RBInteger width, RBInteger height) {
  if (!HostHasAlphaPictures()) return nullptr;
  REALobject object = REALnewInstance("Picture");
  auto construct = reinterpret_cast<ConstructorProc>(
      object ? REALLoadObjectMethod(object, kConstructor) : nullptr);
  if (construct == nullptr) {
    if (object) REALUnlockObject(object);
    return nullptr;
  }
  construct(object, width, height);
  return reinterpret_cast<REALpicture>(object);
}

void CopyPictureResolutions(REALpicture from, REALpicture to) {
  RBInteger vertical = 0;
  RBInteger horizontal = 0;
  if (ReadInteger(from, "VerticalResolution", &vertical) &&
      ReadInteger(from, "HorizontalResolution", &horizontal) && vertical >= 1 && horizontal >= 1) {
    REALSetPropValueInteger(AsObject(to), "VerticalResolution", vertical);
    REALSetPropValueInteger(AsObject(to), "HorizontalResolution", horizontal);
  }
}

PictureEditor::~PictureEditor() {
  Release();
}

void PictureEditor::Release() {
  state = 0;
  if (descriptionLocked) {
    MarkWritten();
#if defined(_WIN32)
    if (gdiplus.bitmap) UnlockGdiplusBitmap(&gdiplus);
#endif
    if (picture) REALUnlockPictureDescription(picture);
    descriptionLocked = false;
  }
  baseAddress = nullptr;
  pixels = nullptr;
  rowTable = nullptr;
  if (forWriting) {
    if (picture == nullptr) return;
    REALPictureClearCache(picture);
  }
  if (picture) UnlockHandle(picture);
  picture = nullptr;
}

// cairo learns of the pixels written behind its back while the context is still locked, before
// the host draws the surface again.
void PictureEditor::MarkWritten() {
#if !defined(__APPLE__) && !defined(_WIN32)
  if (descriptionLocked && forWriting && description.pictureType == pictureCairoContext) {
    MarkCairoContextDirty(description.pictureData);
  }
#endif
}

void PictureEditor::Attach(REALpicture pic) {
  LockHandle(pic);
  if (picture) UnlockHandle(picture);
  picture = pic;
  descriptionLocked = true;
  bytesPerPixel = 4;
  spare[0] = 0;
  spare[1] = 0;
  verticalResolution = ResolutionOf(pic, "VerticalResolution");
  horizontalResolution = ResolutionOf(pic, "HorizontalResolution");
}

bool PictureEditor::GetPictureEditor(REALpicture pic, bool reading, bool writing) {
  Release();
  if (pic == nullptr) return false;
  forReading = reading;
  forWriting = writing;
  state = 0;
  // A host that named no application class when it loaded the plug-in is asked again.
  if (gHost.kind == HostKind::kNone) gHost.kind = AskHostKind();
  bool typeKnown = false;
  const int32_t type = REALGetPictureType(pic, &typeKnown);
  if (typeKnown && (type == 0 || type == 3)) {
    // A multi-representation picture: only its best representation can be read.
    if (writing) return false;
    auto best = reinterpret_cast<BestRepresentationProc>(
        gHost.version >= hostversion::kBestRepresentationFrom
            ? REALLoadObjectMethod(AsObject(pic), kBestRepresentation)
            : nullptr);
    if (best) {
      RBInteger w = 0;
      RBInteger h = 0;
      ReadInteger(pic, "Width", &w);
      ReadInteger(pic, "Height", &h);
      REALpicture representation = best(AsObject(pic), w, h, 4.0);
      if (representation) {
        const bool ok = GetPictureEditorInternal(representation, reading, false, 1);
        UnlockHandle(representation);
        return ok;
      }
    }
  } else if (typeKnown && type == 1 && writing) {
    return false;  // an immutable picture
  }
  return GetPictureEditorInternal(pic, reading, writing, 1);
}

bool PictureEditor::GetPictureEditorInternal(REALpicture pic, bool reading, bool writing,
                                             int depth) {
  hasAlpha = ReadHasAlpha(pic);
  if (gHost.ServesDesktopPictures() && GetPictureEditorDesktop(pic, hasAlpha)) return true;
  if (gHost.ServesGDPictures() && GetPictureEditorGDImagePtr(pic)) return true;
  if (depth != 1 || !gHost.ServesDesktopPictures() || !reading || writing) return false;
  return EditDrawnCopy(pic, reading);
}

// Reading a picture that no route accepts: draw it into a new 32-bit picture and read that.
bool PictureEditor::EditDrawnCopy(REALpicture pic, bool reading) {
  RBInteger w = 0;
  RBInteger h = 0;
  if (!ReadInteger(pic, "Width", &w) || !ReadInteger(pic, "Height", &h) || w < 1 || h < 1) {
    return false;
  }
  REALpicture copy = nullptr;
  if (hasAlpha) {
    copy = NewAlphaPicture(w, h);
    if (copy == nullptr) return false;
    GraphicsDrawPicture(copy, pic, w, h, w, h);
  } else {
    // The mask is detached for the copy, so the copy holds the picture's own colours.
    REALpicture mask = REALGetPictureMask(pic, false);
    auto setMask = reinterpret_cast<MaskSetterProc>(
        mask ? REALLoadObjectMethod(AsObject(pic), kMaskSetter) : nullptr);
    if (setMask) setMask(AsObject(pic), nullptr);
    copy = REALNewPicture(w, h, 32);
    if (copy) GraphicsDrawPicture(copy, pic, w, h, w, h);
    if (setMask) setMask(AsObject(pic), mask);
    if (mask) UnlockHandle(mask);
    if (copy == nullptr) return false;
  }
  CopyPictureResolutions(pic, copy);
  const bool ok = GetPictureEditorInternal(copy, reading, false, 2);
  UnlockHandle(copy);
  return ok;
}

// A desktop picture: a cairo image surface on a Linux host, a bitmap context on macOS; on Windows
// the pixels of a modern host, else a GDI+ bitmap of an older one.
#if defined(_WIN32)
bool PictureEditor::GetPictureEditorDesktop(REALpicture pic, bool) {
  return GetPictureEditorBGRA(pic) || GetPictureEditorGdiplus(pic);
}

// Both Windows storages keep 32-bit words 0xAARRGGBB in `format`.
void PictureEditor::AttachWords(REALpicture pic, unsigned char* data, int32_t w, int32_t h,
                                int32_t stride, int32_t format) {
  Attach(pic);
  rowBytes = stride;
  width = w;
  height = h;
  baseAddress = pixels = data;
  pixelFormat = format;
}

bool PictureEditor::GetPictureEditorBGRA(REALpicture pic) {
  if (!LockDescription(pic, &description, pictureBGRAPixels)) return false;
  gHost.SettleKind(HostKind::kDesktop);
  const REALpictureDescription& d = description;
  if (d.pictureType != pictureBGRAPixels || d.pictureData == nullptr || d.width < 1 ||
      d.height < 1 || d.width > INT32_MAX / 4) {
    REALUnlockPictureDescription(pic);
    return false;
  }
  AttachWords(pic, static_cast<unsigned char*>(d.pictureData), d.width, d.height, d.width * 4,
              kPixelFormatPremultipliedWords);
  return true;
}

bool PictureEditor::GetPictureEditorGdiplus(REALpicture pic) {
  if (!LockDescription(pic, &description, pictureGDIPlusBitmap)) return false;
  gHost.SettleKind(HostKind::kDesktop);
  if (description.pictureType != pictureGDIPlusBitmap ||
      !LockGdiplusBitmap(description.pictureData, forWriting, &gdiplus)) {
    REALUnlockPictureDescription(pic);
    return false;
  }
  AttachWords(pic, gdiplus.data, gdiplus.width, gdiplus.height, gdiplus.stride,
              gdiplus.premultiplied ? kPixelFormatPremultipliedWords : kPixelFormatStraightWords);
  return true;
}
#else
bool PictureEditor::GetPictureEditorDesktop(REALpicture pic, bool wantAlpha) {
#if !defined(__APPLE__)
  if (GetPictureEditorCairo(pic)) return true;
#endif
  return GetPictureEditorCGBitmapContext(pic, wantAlpha);
}
#endif

namespace {

// Locks the picture's description of a desktop context `type` and reads the context into `info`;
// unlocks it again and gives false unless the context is usable. A lock that succeeds tells a
// desktop host either way.
template <typename Info>
bool LockDesktopContext(REALpicture pic, REALpictureDescription& description, uint32_t type,
                        bool (*query)(void*, Info*), bool (*usable)(const Info&), Info& info) {
  if (!LockDescription(pic, &description, type)) return false;
  gHost.SettleKind(HostKind::kDesktop);
  if (description.pictureType != type || description.pictureData == nullptr ||
      !query(description.pictureData, &info) || !usable(info)) {
    REALUnlockPictureDescription(pic);
    return false;
  }
  return true;
}

}  // namespace

#if !defined(__APPLE__) && !defined(_WIN32)
bool PictureEditor::GetPictureEditorCairo(REALpicture pic) {
  CairoImageInfo info = {};
  if (!CairoAvailable() || !LockDesktopContext(pic, description, pictureCairoContext,
                                               QueryCairoContext, UsableSurface, info)) {
    return false;
  }
  Attach(pic);
  rowBytes = info.stride;
  width = info.width;
  height = info.height;
  baseAddress = pixels = info.data;
  pixelFormat = info.premultiplied ? kPixelFormatCairoARGB32 : kPixelFormatCairoRGB24;
  return true;
}
#endif

#if !defined(_WIN32)
bool PictureEditor::GetPictureEditorCGBitmapContext(REALpicture pic, bool wantAlpha) {
  BitmapContextInfo info = {};
  if (!LockDesktopContext(pic, description, pictureCGBitmapContext, QueryBitmapContext,
                          UsableContext, info)) {
    return false;
  }
  Attach(pic);
  alphaWanted = wantAlpha;
  rowBytes = static_cast<int32_t>(info.bytesPerRow);
  width = static_cast<int32_t>(info.width);
  height = static_cast<int32_t>(info.height);
  baseAddress = pixels = static_cast<unsigned char*>(info.data);
  pixelFormat = static_cast<int32_t>(info.alphaInfo & 7);
  return true;
}
#endif

bool PictureEditor::GetPictureEditorGDImagePtr(REALpicture pic) {
  if (!LockDescription(pic, &description, pictureGDPtr)) return false;
  gHost.SettleKind(HostKind::kConsole);
  if (!UsableGDImage(description)) {
    REALUnlockPictureDescription(pic);
    return false;
  }
  const auto* image = static_cast<const gd::Image*>(description.pictureData);
  Attach(pic);
  pixelFormat = kPixelFormatGD;
  rowBytes = description.width * 4;
  width = description.width;
  height = description.height;
  rowTable = reinterpret_cast<unsigned char**>(image->tpixels);
  baseAddress = pixels = rowTable[0];
  return true;
}

REALpicture PictureEditor::RenderPictureWriter() {
  REALpicture result = picture;
  if (result) {
    MarkWritten();
    LockHandle(result);
    REALPictureClearCache(result);
    if (verticalResolution >= 1 && horizontalResolution >= 1) {
      REALSetPropValueInteger(AsObject(result), "VerticalResolution", verticalResolution);
      REALSetPropValueInteger(AsObject(result), "HorizontalResolution", horizontalResolution);
    }
  }
  Release();
  return result;
}

unsigned char* PictureEditor::RowAddress(RBInteger y) const {
  if (y < 0 || y >= height) return baseAddress;
  return rowTable ? rowTable[y] : baseAddress + y * static_cast<RBInteger>(rowBytes);
}

bool PictureWriter::NewPictureWriter(int w, int h) {
  return ValidSides(w, h) && EditNewPicture(REALNewPicture(w, h, 32));
}

bool PictureWriter::NewAlphaPictureWriter(int w, int h) {
  return ValidSides(w, h) && EditNewPicture(NewAlphaPicture(w, h));
}

bool PictureWriter::ValidSides(int w, int h) {
  return w >= 1 && w <= kMaxPictureSide && h >= 1 && h <= kMaxPictureSide;
}

bool PictureWriter::EditNewPicture(REALpicture fresh) {
  if (fresh == nullptr) return false;
  const bool ok = GetPictureEditor(fresh, false, true);
  UnlockHandle(fresh);
  refused = !ok;
  row = 0;
  destination = reinterpret_cast<uint32_t*>(baseAddress);
  return ok;
}

namespace {

// The words of one pixel format, chosen once a row so that the pixel loops below are straight
// lines the compiler can vectorise. Each loop is made once for every layout of the table:
// formats that store alike (the same byte offsets and the same opaque alpha) share the loops of
// the first of them.
static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "pixels are built as little-endian words");

constexpr bool SameLayout(const PixelFormat& a, const PixelFormat& b) {
  return a.red == b.red && a.green == b.green && a.blue == b.blue && a.alpha == b.alpha &&
         OpaqueAlpha(a) == OpaqueAlpha(b);
}

// The first row of the table that stores like row `row`.
constexpr size_t LayoutRow(size_t row) {
  size_t first = 0;
  while (!SameLayout(kPixelFormats[first], kPixelFormats[row])) ++first;
  return first;
}

// The opaque word of a pixel of the format in row F of the table.
template <size_t F>
constexpr uint32_t Word(uint32_t red, uint32_t green, uint32_t blue) {
  constexpr PixelFormat f = kPixelFormats[F];
  return red << 8 * f.red | green << 8 * f.green | blue << 8 * f.blue |
         uint32_t{OpaqueAlpha(f)} << 8 * f.alpha;
}

// Calls `f` with the layout row of `code` as a compile-time constant (std::integral_constant);
// false, calling nothing, for a code no storage has.
template <size_t I, typename Fn>
bool CallForLayout(size_t layout, Fn& f) {
  if constexpr (LayoutRow(I) == I) {
    if (layout == I) {
      f(std::integral_constant<size_t, I>());
      return true;
    }
  }
  return false;
}

template <typename Fn, size_t... I>
bool CallForLayout(size_t layout, Fn& f, std::index_sequence<I...>) {
  return (CallForLayout<I>(layout, f) || ...);
}

template <typename Fn>
bool WithLayout(int32_t code, Fn&& f) {
  const size_t row = PixelFormatRow(code);
  if (row == kPixelFormatCount) return false;
  return CallForLayout(LayoutRow(row), f, std::make_index_sequence<kPixelFormatCount>());
}

// A decoded pixel, bytes R, G, B, x, as one word: R in the low byte on these little-endian hosts.
// Taking the components out of the word lets the compiler work on whole pixels, four or eight in
// a vector register, instead of gathering bytes.
inline uint32_t PixelAt(const unsigned char* row, RBInteger x) {
  uint32_t word;
  memcpy(&word, row + 4 * x, 4);
  return word;
}

// In place (`row` is `to`), each word is read before it is replaced, and the loop works on it as
// a word so that the compiler need not guard against the overlap.
template <size_t F, bool Swap, bool InPlace>
void ColourRow(uint32_t* to, const unsigned char* row, RBInteger width) {
  for (RBInteger x = 0; x < width; ++x) {
    const uint32_t p = InPlace ? to[x] : PixelAt(row, x);
    const uint32_t r = p & 0xFF, g = p >> 8 & 0xFF, b = p >> 16 & 0xFF;
    to[x] = Swap ? Word<F>(b, g, r) : Word<F>(r, g, b);
  }
}

// Rows of three bytes a pixel, R, G, B, as libpng gives an image without alpha when it adds no
// filler. Every pixel but the last is read as the word that starts at it, one load instead of
// three, whose fourth byte (the next pixel's red) is dropped. Where the format keeps the three
// components side by side, in the order of that word or reversed, the word is placed with one
// shift or one byte swap: the compiler does not find the swap in Word's shifts when the
// components arrive packed.
template <size_t F, bool Swap>
constexpr uint32_t WordOfThree(uint32_t p) {
  constexpr PixelFormat f = kPixelFormats[F];
  constexpr int first = Swap ? f.blue : f.red;  // where the word's low byte goes
  constexpr int last = Swap ? f.red : f.blue;   // and its third byte
  constexpr uint32_t opaque = uint32_t{OpaqueAlpha(f)} << 8 * f.alpha;
  if constexpr (f.green == 1 && first == 0 && last == 2) return (p & 0xFFFFFF) | opaque;
  if constexpr (f.green == 2 && first == 1 && last == 3) return p << 8 | opaque;
  if constexpr (f.green == 1 && first == 2 && last == 0) return __builtin_bswap32(p << 8) | opaque;
  if constexpr (f.green == 2 && first == 3 && last == 1) {
    return __builtin_bswap32(p & 0xFFFFFF) | opaque;
  }
  return Swap ? Word<F>(p >> 16 & 0xFF, p >> 8 & 0xFF, p & 0xFF)
              : Word<F>(p & 0xFF, p >> 8 & 0xFF, p >> 16 & 0xFF);
}

template <size_t... I>
constexpr bool WordsOfThreeAreWords(std::index_sequence<I...>) {
  return ((WordOfThree<I, false>(0x77030201) == Word<I>(1, 2, 3) &&
           WordOfThree<I, true>(0x77030201) == Word<I>(3, 2, 1)) &&
          ...);
}
static_assert(WordsOfThreeAreWords(std::make_index_sequence<kPixelFormatCount>()),
              "the words of three-byte rows are those of four-byte rows");

template <size_t F, bool Swap>
void ColourRowOfThree(uint32_t* to, const unsigned char* row, RBInteger width) {
  const RBInteger last = width - 1;
  for (RBInteger x = 0; x < last; ++x) {
    uint32_t p;
    memcpy(&p, row + 3 * x, 4);
    to[x] = WordOfThree<F, Swap>(p);
  }
  const unsigned char* end = row + 3 * last;
  to[last] = WordOfThree<F, Swap>(end[0] | end[1] << 8 | end[2] << 16);
}

template <size_t F>
void MaskRow(uint32_t* to, const unsigned char* row, RBInteger width) {
  for (RBInteger x = 0; x < width; ++x) {
    const uint32_t m = 255u - (PixelAt(row, x) >> 24);
    to[x] = Word<F>(m, m, m);
  }
}

// Colour and mask of each pixel in one pass over the row, for two writers of one layout; in
// place as ColourRow.
template <size_t F, bool Swap, bool InPlace>
void ColourAndMaskRow(uint32_t* colours, uint32_t* masks, const unsigned char* row,
                      RBInteger width) {
  for (RBInteger x = 0; x < width; ++x) {
    const uint32_t p = InPlace ? colours[x] : PixelAt(row, x);
    const uint32_t r = p & 0xFF, g = p >> 8 & 0xFF, b = p >> 16 & 0xFF, m = 255u - (p >> 24);
    colours[x] = Swap ? Word<F>(b, g, r) : Word<F>(r, g, b);
    masks[x] = Word<F>(m, m, m);
  }
}

template <size_t F>
void ColourAndMaskRow(uint32_t* colours, uint32_t* masks, const unsigned char* row, RBInteger width,
                      bool swap) {
  const bool inPlace = row == reinterpret_cast<const unsigned char*>(colours);
  if (inPlace) {
    swap ? ColourAndMaskRow<F, true, true>(colours, masks, row, width)
         : ColourAndMaskRow<F, false, true>(colours, masks, row, width);
  } else {
    swap ? ColourAndMaskRow<F, true, false>(colours, masks, row, width)
         : ColourAndMaskRow<F, false, false>(colours, masks, row, width);
  }
}

// The words of a decoded row in the format's layout, into `to`; false for a format that stores
// nothing.
bool ColourWordsOf(int32_t format, uint32_t* to, const unsigned char* row, RBInteger width,
                   bool swap) {
  return WithLayout(format, [&](auto layout) {
    constexpr size_t F = decltype(layout)::value;
    if (row == reinterpret_cast<const unsigned char*>(to)) {
      swap ? ColourRow<F, true, true>(to, row, width) : ColourRow<F, false, true>(to, row, width);
    } else {
      swap ? ColourRow<F, true, false>(to, row, width) : ColourRow<F, false, false>(to, row, width);
    }
  });
}

bool MaskWordsOf(int32_t format, uint32_t* to, const unsigned char* row, RBInteger width) {
  return WithLayout(format, [&](auto layout) { MaskRow<decltype(layout)::value>(to, row, width); });
}

}  // namespace

void PictureWriter::StoreColourRow(const unsigned char* row, RBInteger width, bool swap) {
  if (width > 0) ColourWordsOf(pixelFormat, destination, row, width, swap);
  NextRow();
}

void PictureWriter::StoreRGBRow(const unsigned char* row, RBInteger width, bool swap) {
  if (width > 0) {
    WithLayout(pixelFormat, [&](auto layout) {
      constexpr size_t F = decltype(layout)::value;
      swap ? ColourRowOfThree<F, true>(destination, row, width)
           : ColourRowOfThree<F, false>(destination, row, width);
    });
  }
  NextRow();
}

void PictureWriter::StoreMaskRow(const unsigned char* row, RBInteger width) {
  if (width > 0) MaskWordsOf(pixelFormat, destination, row, width);
  NextRow();
}

void PictureWriter::StoreColourAndMaskRow(const unsigned char* row, RBInteger width, bool swap,
                                          PictureWriter& mask) {
  const size_t layout = PixelFormatRow(pixelFormat);
  if (width <= 0 || layout == kPixelFormatCount ||
      PixelFormatRow(mask.pixelFormat) == kPixelFormatCount ||
      LayoutRow(layout) != LayoutRow(PixelFormatRow(mask.pixelFormat))) {
    // The mask first: `row` may be this writer's own row, which the colours overwrite.
    mask.StoreMaskRow(row, width);
    StoreColourRow(row, width, swap);
    return;
  }
  WithLayout(pixelFormat, [&](auto l) {
    ColourAndMaskRow<decltype(l)::value>(destination, mask.destination, row, width, swap);
  });
  NextRow();
  mask.NextRow();
}

bool PictureWriter::ColourWords(const unsigned char* row, RBInteger count, bool swap,
                                uint32_t* words) const {
  return ColourWordsOf(pixelFormat, words, row, count, swap);
}

bool PictureWriter::MaskWords(const unsigned char* row, RBInteger count, uint32_t* words) const {
  return MaskWordsOf(pixelFormat, words, row, count);
}

// Rows of some FilledRowOrder are red, green and blue side by side (blue first with `bgr`) and
// the filler before or after them: the format's offsets must be those, and the filler is the
// opaque alpha that every colour word carries.
bool PictureWriter::FilledRows(bool swap, FilledRowOrder* order) const {
  const PixelFormat* f = FindPixelFormat(pixelFormat);
  if (f == nullptr || (f->alpha != 0 && f->alpha != 3)) return false;
  const bool fillerFirst = f->alpha == 0;
  const int start = fillerFirst ? 1 : 0;
  const int red = swap ? f->blue : f->red;
  const int blue = swap ? f->red : f->blue;
  if (f->green != start + 1) return false;
  if (red == start && blue == start + 2) {
    *order = {false, fillerFirst, OpaqueAlpha(*f)};
  } else if (red == start + 2 && blue == start) {
    *order = {true, fillerFirst, OpaqueAlpha(*f)};
  } else {
    return false;
  }
  return true;
}

void PictureWriter::StoreIndexedRow(const unsigned char* indices, RBInteger width,
                                    const uint32_t* table) {
  if (FindPixelFormat(pixelFormat)) {
    for (RBInteger x = 0; x < width; ++x) destination[x] = table[indices[x]];
  }
  NextRow();
}

void PictureWriter::StoreIndexedRowAndMask(const unsigned char* indices, RBInteger width,
                                           const uint32_t* table, PictureWriter& mask,
                                           const uint32_t* maskTable) {
  if (!FindPixelFormat(pixelFormat) || !FindPixelFormat(mask.pixelFormat)) {
    StoreIndexedRow(indices, width, table);
    mask.StoreIndexedRow(indices, width, maskTable);
    return;
  }
  for (RBInteger x = 0; x < width; ++x) {
    const unsigned char i = indices[x];
    destination[x] = table[i];
    mask.destination[x] = maskTable[i];
  }
  NextRow();
  mask.NextRow();
}

void PictureWriter::NextRow() {
  ++row;
  destination = reinterpret_cast<uint32_t*>(row < height ? RowAddress(row) : baseAddress);
}
