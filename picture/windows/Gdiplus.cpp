// GDI+ bitmaps, the pictures of older Windows hosts. GDI+'s flat functions are looked up in the
// gdiplus.dll that the host has loaded, so that the plug-in imports only Windows' own system DLLs
// and still loads in a host without GDI+.
#include <windows.h>
// GDI+ after the Windows declarations it builds on.
#include <gdiplus.h>

#include <new>

#include "picture/Platform.h"

namespace {

namespace gp = Gdiplus::DllExports;

struct GdiplusFunctions {
  decltype(&gp::GdipGetImageWidth) width = nullptr;
  decltype(&gp::GdipGetImageHeight) height = nullptr;
  decltype(&gp::GdipGetImagePixelFormat) format = nullptr;
  decltype(&gp::GdipBitmapLockBits) lockBits = nullptr;
  decltype(&gp::GdipBitmapUnlockBits) unlockBits = nullptr;

  bool Complete() const { return width && height && format && lockBits && unlockBits; }
};

template <typename Fn>
Fn Lookup(HMODULE module, const char* name) {
  return module ? reinterpret_cast<Fn>(reinterpret_cast<void*>(GetProcAddress(module, name)))
                : nullptr;
}

// Looked up once, when the first bitmap is locked: a host that hands out GDI+ bitmaps has GDI+
// loaded by then.
const GdiplusFunctions& Functions() {
  static const GdiplusFunctions functions = [] {
    const HMODULE module = GetModuleHandleW(L"gdiplus.dll");
    return GdiplusFunctions{
        Lookup<decltype(&gp::GdipGetImageWidth)>(module, "GdipGetImageWidth"),
        Lookup<decltype(&gp::GdipGetImageHeight)>(module, "GdipGetImageHeight"),
        Lookup<decltype(&gp::GdipGetImagePixelFormat)>(module, "GdipGetImagePixelFormat"),
        Lookup<decltype(&gp::GdipBitmapLockBits)>(module, "GdipBitmapLockBits"),
        Lookup<decltype(&gp::GdipBitmapUnlockBits)>(module, "GdipBitmapUnlockBits"),
    };
  }();
  return functions;
}

static_assert(sizeof(Gdiplus::BitmapData) <= sizeof(GdiplusLock::record),
              "the lock keeps GDI+'s record");

Gdiplus::BitmapData* Record(GdiplusLock* lock) {
  return reinterpret_cast<Gdiplus::BitmapData*>(lock->record);
}

}  // namespace

bool LockGdiplusBitmap(void* bitmap, bool forWriting, GdiplusLock* lock) {
  const GdiplusFunctions& f = Functions();
  if (bitmap == nullptr || !f.Complete()) return false;
  auto* image = static_cast<Gdiplus::GpBitmap*>(bitmap);
  UINT width = 0;
  UINT height = 0;
  Gdiplus::PixelFormat own = 0;
  if (f.width(image, &width) != Gdiplus::Ok || f.height(image, &height) != Gdiplus::Ok ||
      f.format(image, &own) != Gdiplus::Ok || width < 1 || height < 1 || width > INT32_MAX / 4 ||
      height > INT32_MAX) {
    return false;
  }
  // In its own format where it is one of the two, so that GDI+ converts nothing.
  const bool premultiplied = own == PixelFormat32bppPARGB;
  const Gdiplus::PixelFormat format = premultiplied ? PixelFormat32bppPARGB : PixelFormat32bppARGB;
  const Gdiplus::GpRect all(0, 0, static_cast<INT>(width), static_cast<INT>(height));
  const UINT mode = Gdiplus::ImageLockModeRead | (forWriting ? Gdiplus::ImageLockModeWrite : 0);
  Gdiplus::BitmapData* record = new (lock->record) Gdiplus::BitmapData();
  if (f.lockBits(image, &all, mode, format, record) != Gdiplus::Ok) return false;
  // Rows that hold their pixels, top row first.
  if (record->Scan0 == nullptr || record->Stride < static_cast<INT>(width) * 4) {
    f.unlockBits(image, record);
    return false;
  }
  lock->bitmap = bitmap;
  lock->data = static_cast<unsigned char*>(record->Scan0);
  lock->width = static_cast<int32_t>(width);
  lock->height = static_cast<int32_t>(height);
  lock->stride = record->Stride;
  lock->premultiplied = premultiplied;
  return true;
}

void UnlockGdiplusBitmap(GdiplusLock* lock) {
  Functions().unlockBits(static_cast<Gdiplus::GpBitmap*>(lock->bitmap), Record(lock));
  lock->bitmap = nullptr;
  lock->data = nullptr;
}
