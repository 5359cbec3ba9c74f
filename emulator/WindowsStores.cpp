// The pictures of Windows desktop hosts: 32-bit words 0xAARRGGBB (B, G, R, A in memory), rows of
// width × 4 bytes top to bottom. A modern host hands out a pointer to its premultiplied pixels; an
// older one keeps them in a GDI+ bitmap (Windows' own gdiplus.dll) and hands out the bitmap.
#include <windows.h>
// GDI+ after the Windows declarations it builds on.
#include <gdiplus.h>

#include <cstring>

#include "emulator/Internal.h"
#include "emulator/Stores.h"

namespace emu {

namespace {

// The words of a picture. Pictures with alpha channel keep their colour premultiplied; the others
// are opaque, their fourth byte 255 or, with `markIgnored`, the padding marker, for a format that
// ignores it.
class WordPixels : public PixelStore {
 public:
  WordPixels(size_t width, size_t height, bool alpha, bool markIgnored)
      : alpha_(alpha), markIgnored_(markIgnored), width_(width), height_(height) {
    CheckSize(width, height, 4);
    pixels_.reset(new unsigned char[width * height * 4]);
  }

  Rgba Get(size_t x, size_t y) const override {
    const unsigned char* px = At(x, y);
    Rgba p{px[2], px[1], px[0], 255};
    if (!alpha_) return p;
    p.a = px[3];
    p.r = Unpremultiply(p.r, p.a);
    p.g = Unpremultiply(p.g, p.a);
    p.b = Unpremultiply(p.b, p.a);
    return p;
  }

  void Put(size_t x, size_t y, Rgba p) override {
    unsigned char* px = At(x, y);
    if (!alpha_) {
      px[0] = p.b;
      px[1] = p.g;
      px[2] = p.r;
      px[3] = markIgnored_ ? kPaddingByte : 255;
      return;
    }
    px[0] = Premultiply(p.b, p.a);
    px[1] = Premultiply(p.g, p.a);
    px[2] = Premultiply(p.r, p.a);
    px[3] = p.a;
  }

  void Fill(Rgba p) override {
    Put(0, 0, p);
    for (size_t i = 1; i < width_ * height_; ++i) std::memcpy(pixels_.get() + 4 * i, At(0, 0), 4);
  }

  PictureRaw Raw() const override {
    PictureRaw raw;
    raw.format = alpha_ || !markIgnored_ ? 9 : 10;
    raw.rowBytes = static_cast<RBInteger>(width_ * 4);
    raw.bytes.assign(reinterpret_cast<const char*>(pixels_.get()), width_ * height_ * 4);
    return raw;
  }

 protected:
  // Fills the parts of `desc` that every type shares.
  void DescribeAs(uint32_t type, void* data, REALpictureDescription& desc) const {
    desc.pictureType = type;
    desc.pictureData = data;
    desc.width = static_cast<int32_t>(width_);
    desc.height = static_cast<int32_t>(height_);
    desc.depth = 32;
    desc.transparent = alpha_ ? 1 : 0;
  }

  unsigned char* Data() const { return pixels_.get(); }

 private:
  unsigned char* At(size_t x, size_t y) const { return pixels_.get() + (y * width_ + x) * 4; }

  bool alpha_;
  bool markIgnored_;
  size_t width_;
  size_t height_;
  std::unique_ptr<unsigned char[]> pixels_;
};

// A modern host: the pixels themselves, premultiplied, alpha 255 in opaque pictures.
class BgraStore : public WordPixels {
 public:
  BgraStore(size_t width, size_t height, bool alpha) : WordPixels(width, height, alpha, false) {}

  bool Describe(uint32_t type, REALpictureDescription& desc) override {
    if (type != pictureBGRAPixels) return false;
    DescribeAs(type, Data(), desc);
    return true;
  }
};

// GDI+ runs from the first bitmap to the end of the process.
void StartGdiplus() {
  static bool started = false;
  if (started) return;
  Gdiplus::GdiplusStartupInput input;
  ULONG_PTR token = 0;
  if (Gdiplus::GdiplusStartup(&token, &input, nullptr) != Gdiplus::Ok) {
    throw Error("GDI+ does not start");
  }
  started = true;
}

// An older host: a GDI+ bitmap over the words, 32bppPARGB with alpha channel, 32bppRGB without.
class GdiplusStore : public WordPixels {
 public:
  GdiplusStore(size_t width, size_t height, bool alpha) : WordPixels(width, height, alpha, true) {
    StartGdiplus();
    const Gdiplus::PixelFormat format = alpha ? PixelFormat32bppPARGB : PixelFormat32bppRGB;
    const INT w = static_cast<INT>(width);
    if (Gdiplus::DllExports::GdipCreateBitmapFromScan0(w, static_cast<INT>(height), w * 4, format,
                                                       Data(), &bitmap_) != Gdiplus::Ok) {
      throw std::bad_alloc();
    }
  }
  ~GdiplusStore() override { Gdiplus::DllExports::GdipDisposeImage(bitmap_); }
  GdiplusStore(const GdiplusStore&) = delete;
  GdiplusStore& operator=(const GdiplusStore&) = delete;

  bool Describe(uint32_t type, REALpictureDescription& desc) override {
    if (type != pictureGDIPlusBitmap) return false;
    DescribeAs(type, bitmap_, desc);
    return true;
  }

 private:
  Gdiplus::GpBitmap* bitmap_ = nullptr;
};

}  // namespace

std::unique_ptr<PixelStore> NewBgraStore(size_t width, size_t height, bool alpha) {
  return std::make_unique<BgraStore>(width, height, alpha);
}

std::unique_ptr<PixelStore> NewGdiplusStore(size_t width, size_t height, bool alpha) {
  return std::make_unique<GdiplusStore>(width, height, alpha);
}

}  // namespace emu
