// GDI+ bitmaps, the pictures of older Windows hosts, locked through GDI+'s flat functions, which
// the process record finds in the gdiplus.dll the host has loaded: the plug-in imports only
// Windows' own system DLLs and still loads in a host without GDI+.
#include <windows.h>
// GDI+ after the Windows declarations it builds on; only its types and constants are used.
#include <gdiplus.h>

#include <new>

#include "host/HostFacts.h"
#include "picture/Platform.h"

namespace {

static_assert(sizeof(Gdiplus::BitmapData) <= sizeof(GdiplusLock::record),
              "the lock keeps GDI+'s record");

Gdiplus::BitmapData* Record(GdiplusLock* lock) {
  return reinterpret_cast<Gdiplus::BitmapData*>(lock->record);
}

}  // namespace

bool LockGdiplusBitmap(void* bitmap, bool forWriting, GdiplusLock* lock) {
  const GdiplusFunctions& f = gHost.Process().gdiplus;
  if (bitmap == nullptr || !f.Complete()) return false;
  uint32_t width = 0;
  uint32_t height = 0;
  int32_t own = 0;
  if (f.width(bitmap, &width) != Gdiplus::Ok || f.height(bitmap, &height) != Gdiplus::Ok ||
      f.pixelFormat(bitmap, &own) != Gdiplus::Ok || width < 1 || height < 1 ||
      width > INT32_MAX / 4 || height > INT32_MAX) {
    return false;
  }
  // In its own format where it is one of the two, so that GDI+ converts nothing.
  const bool premultiplied = own == PixelFormat32bppPARGB;
  const int32_t format = premultiplied ? PixelFormat32bppPARGB : PixelFormat32bppARGB;
  const int32_t all[4] = {0, 0, static_cast<int32_t>(width), static_cast<int32_t>(height)};
  const uint32_t mode = Gdiplus::ImageLockModeRead | (forWriting ? Gdiplus::ImageLockModeWrite : 0);
  Gdiplus::BitmapData* record = new (lock->record) Gdiplus::BitmapData();
  if (f.lockBits(bitmap, all, mode, format, record) != Gdiplus::Ok) return false;
  // Rows that hold their pixels, top row first.
  if (record->Scan0 == nullptr || record->Stride < static_cast<INT>(width) * 4) {
    f.unlockBits(bitmap, record);
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
  gHost.Process().gdiplus.unlockBits(lock->bitmap, Record(lock));
  lock->bitmap = nullptr;
  lock->data = nullptr;
}
