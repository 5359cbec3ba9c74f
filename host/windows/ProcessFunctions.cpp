// The functions of the running process on Windows: GDI+'s, in the gdiplus.dll that the host has
// loaded. The record is looked up when a picture first needs it, and a host that hands out GDI+
// bitmaps has GDI+ loaded by then.
#include "host/ProcessFunctions.h"

#include <windows.h>

namespace {

template <typename Fn>
void LookUp(HMODULE module, Fn* fn, const char* name) {
  *fn = module ? reinterpret_cast<Fn>(reinterpret_cast<void*>(GetProcAddress(module, name)))
               : nullptr;
}

}  // namespace

ProcessFunctions LookUpProcessFunctions() {
  ProcessFunctions f;
  const HMODULE gdiplus = GetModuleHandleW(L"gdiplus.dll");
  GdiplusFunctions& g = f.gdiplus;
  LookUp(gdiplus, &g.width, "GdipGetImageWidth");
  LookUp(gdiplus, &g.height, "GdipGetImageHeight");
  LookUp(gdiplus, &g.pixelFormat, "GdipGetImagePixelFormat");
  LookUp(gdiplus, &g.lockBits, "GdipBitmapLockBits");
  LookUp(gdiplus, &g.unlockBits, "GdipBitmapUnlockBits");
  return f;
}
