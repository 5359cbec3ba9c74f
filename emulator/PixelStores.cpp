// The storage behind pictures: the cairo image surfaces of Linux desktop hosts, the bitmap
// contexts of macOS desktop hosts, which the plug-in reaches through the six bitmap context
// queries exported below, and the gd images of console and web hosts. Windows hosts' pictures:
// WindowsStores.cpp.
#include <gd.h>

#include <algorithm>
#include <cstring>
#include <set>

#include "emulator/Internal.h"
#include "emulator/Stores.h"
#if !defined(_WIN32)
#include "emulator/Cairo.h"
#endif

namespace emu {

namespace {

// What the bitmap context queries answer for one context.
struct BitmapContext {
  unsigned char* data;
  size_t width;
  size_t height;
  size_t bytesPerRow;
  size_t bitsPerPixel;
  uint32_t alphaInfo;
};

std::set<const void*>& LiveContexts() {
  static std::set<const void*> live;
  return live;
}

// gd keeps 7 bits of transparency; these round to the nearest step both ways.
uint8_t AlphaFromGd(int gdAlpha) {
  return static_cast<uint8_t>(255 - (gdAlpha * 510 + 127) / 254);
}

int GdFromAlpha(uint8_t alpha) {
  return ((255 - alpha) * 254 + 255) / 510;
}

#if !defined(_WIN32)
// A cairo image surface over rows of our own, so that rows can be longer than the pixels: ARGB32
// for pictures with alpha channel, RGB24 for the others. Pixels the host writes directly are told
// to cairo before cairo next uses the surface. The host shows the pixels as cairo paints the
// surface onto a surface of its own, a band of rows at a time (a large picture is not held twice),
// and while the plug-in holds the picture locked, as they were at the first lock.
//
// The locks hold the plug-in to cairo's rule for direct access: pixels written behind cairo's
// back are marked dirty while the context is locked. At the first lock cairo is made to take the
// surface for a clear one, as it takes a new surface, with its pixels kept; only a mark (or
// cairo's own drawing) ends that. At the unlock that leaves no lock open, pixels that changed
// while cairo still takes the surface for clear were written without the mark; cairo then paints
// such a surface with alpha channel as blank, as a host shows a new picture written that way.
// Without that audit the locks do what a host's do: the surface is shown as cairo paints it,
// locked or not.
class CairoStore : public PixelStore {
 public:
  static constexpr size_t kShownBytes = size_t{1} << 20;

  CairoStore(size_t width, size_t height, size_t padding, bool alpha, bool audit)
      : alpha_(alpha), audit_(audit) {
    CheckSize(width, height, 4);
    // cairo wants rows of whole 32-bit words.
    const uint64_t wideStride = uint64_t{width} * 4 + (uint64_t{padding} + 3) / 4 * 4;
    if (wideStride * height > kMaxPictureBytes) throw std::bad_alloc();
    stride_ = static_cast<size_t>(wideStride);
    // The pixels are left for Fill or Put, as a host paints a new surface once; the padding gets
    // the marker now.
    pixels_.reset(new unsigned char[stride_ * height]);
    for (size_t y = 0; y < height && stride_ > width * 4; ++y) {
      std::memset(pixels_.get() + y * stride_ + width * 4, kPaddingByte, stride_ - width * 4);
    }
    const CairoApi& c = Cairo();
    surface_ = c.createForData(pixels_.get(), Format(), static_cast<int>(width),
                               static_cast<int>(height), static_cast<int>(stride_));
    if (c.surfaceStatus(surface_) != CAIRO_STATUS_SUCCESS) {
      c.surfaceDestroy(surface_);
      throw std::bad_alloc();
    }
    width_ = width;
    height_ = height;
    shownRows_ = std::min(height, std::max<size_t>(1, kShownBytes / (width * 4 + 1)));
  }
  ~CairoStore() override {
    const CairoApi& c = Cairo();
    for (cairo_t* context : contexts_) c.destroy(context);
    if (shown_ != nullptr) c.surfaceDestroy(shown_);
    c.surfaceDestroy(surface_);
  }
  CairoStore(const CairoStore&) = delete;
  CairoStore& operator=(const CairoStore&) = delete;

  Rgba Get(size_t x, size_t y) const override {
    const uint32_t word = ShownWord(x, y);
    Rgba p{static_cast<uint8_t>(word >> 16), static_cast<uint8_t>(word >> 8),
           static_cast<uint8_t>(word), 255};
    if (!alpha_) return p;
    p.a = static_cast<uint8_t>(word >> 24);
    p.r = Unpremultiply(p.r, p.a);
    p.g = Unpremultiply(p.g, p.a);
    p.b = Unpremultiply(p.b, p.a);
    return p;
  }

  // The host's own writes go to the surface and, in step, to what it shows.
  void Put(size_t x, size_t y, Rgba p) override {
    const uint32_t word = Word(p);
    std::memcpy(At(pixels_.get(), stride_, x, y), &word, 4);
    if (shown_ != nullptr && y >= shownFirst_ && y < shownFirst_ + shownRows_) {
      std::memcpy(At(shownData_, shownStride_, x, y - shownFirst_), &word, 4);
    }
    Written();
  }

  // The first row pixel by pixel, the others copied from it: a block fill, as a host's painting of
  // a new surface is.
  void Fill(Rgba p) override {
    FillRows(pixels_.get(), stride_, height_, Word(p));
    if (shown_ != nullptr) FillRows(shownData_, shownStride_, shownRows_, Word(p));
    Written();
  }

  PictureRaw Raw() const override {
    PictureRaw raw;
    raw.format = alpha_ ? 9 : 10;
    raw.rowBytes = static_cast<RBInteger>(stride_);
    raw.bytes.assign(reinterpret_cast<const char*>(pixels_.get()), Bytes());
    return raw;
  }

  bool Describe(uint32_t type, REALpictureDescription& desc) override {
    if (type != pictureCairoContext) return false;
    const CairoApi& c = Cairo();
    cairo_t* context = c.create(Surface());
    if (c.status(context) != CAIRO_STATUS_SUCCESS) {
      c.destroy(context);
      return false;
    }
    if (contexts_.empty() && audit_) BeginLocks();
    contexts_.push_back(context);
    desc.pictureType = type;
    desc.pictureData = context;
    desc.width = static_cast<int32_t>(width_);
    desc.height = static_cast<int32_t>(height_);
    desc.depth = 32;
    desc.transparent = alpha_ ? 1 : 0;
    return true;
  }

  LocksEnded EndDescription(long openLocks) override {
    if (contexts_.empty()) return {};
    while (!contexts_.empty() && static_cast<long>(contexts_.size()) > openLocks) {
      Cairo().destroy(contexts_.back());
      contexts_.pop_back();
    }
    return contexts_.empty() ? EndLocks() : LocksEnded{};
  }

  // cairo may draw into the surface: what the host shows is painted again.
  cairo_surface_t* CairoSurface() override {
    shownStale_ = true;
    return Surface();
  }

 private:
  cairo_format_t Format() const { return alpha_ ? CAIRO_FORMAT_ARGB32 : CAIRO_FORMAT_RGB24; }
  size_t Bytes() const { return stride_ * height_; }

  static unsigned char* At(unsigned char* rows, size_t stride, size_t x, size_t y) {
    return rows + y * stride + x * 4;
  }

  void FillRows(unsigned char* rows, size_t stride, size_t count, uint32_t word) {
    unsigned char* first = At(rows, stride, 0, 0);
    for (size_t x = 0; x < width_; ++x) std::memcpy(first + 4 * x, &word, 4);
    for (size_t y = 1; y < count; ++y) std::memcpy(At(rows, stride, 0, y), first, width_ * 4);
  }

  void Written() {
    dirty_ = true;
    shownDirty_ = shown_ != nullptr;
  }

  // The surface, told of the host's own writes. While the plug-in holds it locked the mark waits
  // for the last unlock, so that it cannot pass for the plug-in's.
  cairo_surface_t* Surface() const {
    if (dirty_ && contexts_.empty()) {
      Cairo().markDirty(surface_);
      dirty_ = false;
    }
    return surface_;
  }

  // A clearing paint makes cairo take the surface for clear; the pixels are put back behind its
  // back.
  void BeginLocks() {
    const CairoApi& c = Cairo();
    atFirstLock_.assign(pixels_.get(), pixels_.get() + Bytes());
    cairo_t* cr = c.create(surface_);
    c.setOperator(cr, CAIRO_OPERATOR_CLEAR);
    c.paint(cr);
    c.destroy(cr);
    c.flush(surface_);
    std::memcpy(pixels_.get(), atFirstLock_.data(), Bytes());
  }

  LocksEnded EndLocks() {
    shownStale_ = true;
    if (!audit_) {
      dirty_ = true;  // the host tells cairo itself, whatever the plug-in did
      return {};
    }
    LocksEnded ended;
    ended.ended = true;
    ended.written = std::memcmp(pixels_.get(), atFirstLock_.data(), Bytes()) != 0;
    ended.marked = !TakenForClear();
    // Unchanged pixels were never cleared for cairo: it is told they are there.
    if (!ended.written) dirty_ = true;
    std::vector<unsigned char>().swap(atFirstLock_);
    return ended;
  }

  // cairo skips clearing a surface it takes for clear. The first pixel gets a marker that such a
  // clearing would remove, and its own value back after.
  bool TakenForClear() {
    const CairoApi& c = Cairo();
    uint32_t kept;
    std::memcpy(&kept, pixels_.get(), 4);
    const uint32_t marker = 0xA5A5A5A5u;
    std::memcpy(pixels_.get(), &marker, 4);
    cairo_t* cr = c.create(surface_);
    c.rectangle(cr, 0, 0, 1, 1);
    c.clip(cr);
    c.setOperator(cr, CAIRO_OPERATOR_CLEAR);
    c.paint(cr);
    c.destroy(cr);
    c.flush(surface_);
    uint32_t after;
    std::memcpy(&after, pixels_.get(), 4);
    std::memcpy(pixels_.get(), &kept, 4);
    const bool clear = after == marker;
    if (!clear) dirty_ = true;
    return clear;
  }

  // While locked and audited, the pixel as it was at the first lock; otherwise as cairo paints it.
  uint32_t ShownWord(size_t x, size_t y) const {
    const unsigned char* at = nullptr;
    if (!contexts_.empty() && audit_) {
      at = atFirstLock_.data() + y * stride_ + x * 4;
    } else {
      if (shownStale_ || shown_ == nullptr || y < shownFirst_ || y >= shownFirst_ + shownRows_) {
        Paint(y / shownRows_ * shownRows_);
      }
      at = shownData_ + (y - shownFirst_) * shownStride_ + x * 4;
    }
    uint32_t word;
    std::memcpy(&word, at, 4);
    return word;
  }

  // Paints the band of rows from `first` of the surface onto the host's own, as a host draws a
  // picture.
  void Paint(size_t first) const {
    const CairoApi& c = Cairo();
    if (shown_ == nullptr) {
      cairo_surface_t* made =
          c.createImage(Format(), static_cast<int>(width_), static_cast<int>(shownRows_));
      if (c.surfaceStatus(made) != CAIRO_STATUS_SUCCESS) {
        c.surfaceDestroy(made);
        throw std::bad_alloc();
      }
      shown_ = made;
      shownData_ = c.imageData(shown_);
      shownStride_ = static_cast<size_t>(c.imageStride(shown_));
    } else if (shownDirty_) {
      c.markDirty(shown_);
    }
    cairo_t* cr = c.create(shown_);
    c.setOperator(cr, CAIRO_OPERATOR_SOURCE);
    c.setSourceSurface(cr, Surface(), 0, -static_cast<double>(first));
    c.paint(cr);
    c.destroy(cr);
    c.flush(shown_);
    shownFirst_ = first;
    shownStale_ = false;
    shownDirty_ = false;
  }

  // RGB24 leaves the top byte to whoever writes it: ours carries the marker.
  uint32_t Word(Rgba p) const {
    if (!alpha_) {
      return uint32_t{kPaddingByte} << 24 | uint32_t{p.r} << 16 | uint32_t{p.g} << 8 | p.b;
    }
    return uint32_t{p.a} << 24 | uint32_t{Premultiply(p.r, p.a)} << 16 |
           uint32_t{Premultiply(p.g, p.a)} << 8 | Premultiply(p.b, p.a);
  }

  bool alpha_;
  bool audit_;
  size_t stride_ = 0;
  size_t width_ = 0;
  size_t height_ = 0;
  std::unique_ptr<unsigned char[]> pixels_;
  cairo_surface_t* surface_ = nullptr;
  mutable bool dirty_ = false;              // the host wrote pixels that cairo has not been told of
  std::vector<cairo_t*> contexts_;          // one for each open lock, the latest last
  std::vector<unsigned char> atFirstLock_;  // the pixels at the first of the open locks
  // What the host shows: painted by cairo when stale, the host's own writes made in step.
  mutable cairo_surface_t* shown_ = nullptr;
  mutable unsigned char* shownData_ = nullptr;
  mutable size_t shownStride_ = 0;
  size_t shownRows_ = 1;           // of the band shown, a MiB or one row
  mutable size_t shownFirst_ = 0;  // the first row of the band
  mutable bool shownStale_ = true;
  mutable bool shownDirty_ = false;  // written behind cairo's back since it last painted
};
#endif

class BitmapStore : public PixelStore {
 public:
  BitmapStore(size_t width, size_t height, int alphaInfo, size_t padding, bool alpha)
      : alpha_(alpha),
        first_(alphaInfo % 2 == 0),
        alphaByte_(alphaInfo <= 4),
        premultiplied_(alphaInfo <= 2) {
    CheckSize(width, height, 4);
    const uint64_t wideRow = uint64_t{width} * 4 + padding;
    if (wideRow * height > kMaxPictureBytes) throw std::bad_alloc();
    const size_t row = static_cast<size_t>(wideRow);
    // The pixels are left for Fill or Put; the padding, and in formats without an alpha byte the
    // ignored byte of every pixel, get the marker now.
    pixels_.reset(new unsigned char[row * height]);
    context_ = {pixels_.get(), width, height, row, 32, static_cast<uint32_t>(alphaInfo)};
    if (!alphaByte_) {
      std::memset(pixels_.get(), kPaddingByte, row * height);
    } else {
      for (size_t y = 0; y < height && padding > 0; ++y) {
        std::memset(At(width, y), kPaddingByte, padding);
      }
    }
    LiveContexts().insert(&context_);
  }
  ~BitmapStore() override { LiveContexts().erase(&context_); }
  BitmapStore(const BitmapStore&) = delete;
  BitmapStore& operator=(const BitmapStore&) = delete;

  Rgba Get(size_t x, size_t y) const override {
    const unsigned char* px = At(x, y);
    const unsigned char* c = px + (first_ ? 1 : 0);
    Rgba p{c[0], c[1], c[2], 255};
    if (!alpha_ || !alphaByte_) return p;
    p.a = px[first_ ? 0 : 3];
    if (premultiplied_) {
      p.r = Unpremultiply(p.r, p.a);
      p.g = Unpremultiply(p.g, p.a);
      p.b = Unpremultiply(p.b, p.a);
    }
    return p;
  }

  void Put(size_t x, size_t y, Rgba p) override {
    if (!alpha_) p.a = 255;
    if (premultiplied_) {
      p.r = Premultiply(p.r, p.a);
      p.g = Premultiply(p.g, p.a);
      p.b = Premultiply(p.b, p.a);
    }
    unsigned char* px = At(x, y);
    unsigned char* c = px + (first_ ? 1 : 0);
    c[0] = p.r;
    c[1] = p.g;
    c[2] = p.b;
    if (alphaByte_) px[first_ ? 0 : 3] = p.a;
  }

  void Fill(Rgba p) override {
    if (context_.width == 0) return;
    Put(0, 0, p);
    uint32_t word;
    std::memcpy(&word, At(0, 0), 4);
    // Rows may start at any byte when the padding is odd.
    for (size_t y = 0; y < context_.height; ++y) {
      unsigned char* px = At(0, y);
      for (size_t x = 0; x < context_.width; ++x, px += 4) std::memcpy(px, &word, 4);
    }
  }

  PictureRaw Raw() const override {
    PictureRaw raw;
    raw.format = static_cast<int>(context_.alphaInfo);
    raw.rowBytes = static_cast<RBInteger>(context_.bytesPerRow);
    raw.bytes.assign(reinterpret_cast<const char*>(pixels_.get()),
                     context_.bytesPerRow * context_.height);
    return raw;
  }

  bool Describe(uint32_t type, REALpictureDescription& desc) override {
    if (type != pictureCGBitmapContext) return false;
    desc.pictureType = type;
    desc.pictureData = &context_;
    desc.width = static_cast<int32_t>(context_.width);
    desc.height = static_cast<int32_t>(context_.height);
    desc.depth = 32;
    desc.transparent = alpha_ ? 1 : 0;
    return true;
  }

 private:
  unsigned char* At(size_t x, size_t y) const {
    return pixels_.get() + y * context_.bytesPerRow + x * 4;
  }

  bool alpha_;
  bool first_;          // the alpha or ignored byte comes before the colour
  bool alphaByte_;      // the fourth byte is alpha rather than ignored
  bool premultiplied_;  // colour kept multiplied by alpha
  std::unique_ptr<unsigned char[]> pixels_;
  BitmapContext context_{};
};

class GdStore : public PixelStore {
 public:
  GdStore(size_t width, size_t height, bool palette, bool alpha) : alpha_(alpha) {
    CheckSize(width, height, 4);
    const int w = static_cast<int>(width);
    const int h = static_cast<int>(height);
    image_ = palette ? gdImageCreate(w, h) : gdImageCreateTrueColor(w, h);
    if (image_ == nullptr) throw std::bad_alloc();
  }
  ~GdStore() override { gdImageDestroy(image_); }
  GdStore(const GdStore&) = delete;
  GdStore& operator=(const GdStore&) = delete;

  Rgba Get(size_t x, size_t y) const override {
    int c = gdImageGetTrueColorPixel(image_, static_cast<int>(x), static_cast<int>(y));
    return {static_cast<uint8_t>(gdTrueColorGetRed(c)),
            static_cast<uint8_t>(gdTrueColorGetGreen(c)),
            static_cast<uint8_t>(gdTrueColorGetBlue(c)),
            alpha_ ? AlphaFromGd(gdTrueColorGetAlpha(c)) : uint8_t{255}};
  }

  void Put(size_t x, size_t y, Rgba p) override {
    const int a = alpha_ ? GdFromAlpha(p.a) : 0;
    if (gdImageTrueColor(image_)) {
      image_->tpixels[y][x] = gdTrueColorAlpha(p.r, p.g, p.b, a);
      return;
    }
    int index = gdImageColorExactAlpha(image_, p.r, p.g, p.b, a);
    if (index < 0) index = gdImageColorAllocateAlpha(image_, p.r, p.g, p.b, a);
    if (index < 0) throw Error("the palette of a gd palette image is full");
    image_->pixels[y][x] = static_cast<unsigned char>(index);
  }

  void Fill(Rgba p) override {
    if (!gdImageTrueColor(image_)) {
      for (int y = 0; y < image_->sy; ++y) {
        for (int x = 0; x < image_->sx; ++x) Put(size_t(x), size_t(y), p);
      }
      return;
    }
    const int word = gdTrueColorAlpha(p.r, p.g, p.b, alpha_ ? GdFromAlpha(p.a) : 0);
    for (int y = 0; y < image_->sy; ++y)
      std::fill(image_->tpixels[y], image_->tpixels[y] + image_->sx, word);
  }

  PictureRaw Raw() const override {
    const bool trueColor = gdImageTrueColor(image_);
    const size_t rowBytes = static_cast<size_t>(image_->sx) * (trueColor ? 4 : 1);
    PictureRaw raw;
    raw.format = trueColor ? 8 : 0;
    raw.rowBytes = static_cast<RBInteger>(rowBytes);
    for (int y = 0; y < image_->sy; ++y) {
      const void* row = trueColor ? static_cast<const void*>(image_->tpixels[y])
                                  : static_cast<const void*>(image_->pixels[y]);
      raw.bytes.append(static_cast<const char*>(row), rowBytes);
    }
    return raw;
  }

  bool Describe(uint32_t type, REALpictureDescription& desc) override {
    if (type != pictureGDPtr) return false;
    desc.pictureType = type;
    desc.pictureData = image_;
    desc.width = image_->sx;
    desc.height = image_->sy;
    desc.depth = gdImageTrueColor(image_) ? 32 : 8;
    desc.transparent = alpha_ ? 1 : 0;
    return true;
  }

 private:
  bool alpha_;
  gdImagePtr image_ = nullptr;
};

const BitmapContext* FindContext(const void* context) noexcept {
  const std::set<const void*>& live = LiveContexts();
  return live.find(context) != live.end() ? static_cast<const BitmapContext*>(context) : nullptr;
}

}  // namespace

#if !defined(_WIN32)
std::unique_ptr<PixelStore> NewCairoStore(size_t width, size_t height, size_t padding, bool alpha,
                                          bool audit) {
  return std::make_unique<CairoStore>(width, height, padding, alpha, audit);
}
#endif

std::unique_ptr<PixelStore> NewBitmapStore(size_t width, size_t height, int alphaInfo,
                                           size_t padding, bool alpha) {
  return std::make_unique<BitmapStore>(width, height, alphaInfo, padding, alpha);
}

std::unique_ptr<PixelStore> NewGdStore(size_t width, size_t height, bool palette, bool alpha) {
  return std::make_unique<GdStore>(width, height, palette, alpha);
}

}  // namespace emu

// The bitmap context queries the plug-in looks up in the running process. A pointer that is not
// a live context of this emulator gets 0. A Windows program exports them as its own functions.
#if defined(_WIN32)
#define EMU_EXPORT extern "C" __declspec(dllexport)
#else
#define EMU_EXPORT extern "C" __attribute__((visibility("default")))
#endif

namespace {

// One field of a live context, or 0 for a pointer that is not one.
template <typename T>
T ContextField(void* context, T emu::BitmapContext::*field) {
  const emu::BitmapContext* c = emu::FindContext(context);
  return c != nullptr ? c->*field : T{};
}

}  // namespace

EMU_EXPORT void* CGBitmapContextGetData(void* context) noexcept {
  return ContextField(context, &emu::BitmapContext::data);
}

EMU_EXPORT size_t CGBitmapContextGetBitsPerPixel(void* context) noexcept {
  return ContextField(context, &emu::BitmapContext::bitsPerPixel);
}

EMU_EXPORT size_t CGBitmapContextGetWidth(void* context) noexcept {
  return ContextField(context, &emu::BitmapContext::width);
}

EMU_EXPORT size_t CGBitmapContextGetHeight(void* context) noexcept {
  return ContextField(context, &emu::BitmapContext::height);
}

EMU_EXPORT size_t CGBitmapContextGetBytesPerRow(void* context) noexcept {
  return ContextField(context, &emu::BitmapContext::bytesPerRow);
}

EMU_EXPORT uint32_t CGBitmapContextGetAlphaInfo(void* context) noexcept {
  return ContextField(context, &emu::BitmapContext::alphaInfo);
}
