#include "host/ProcessFunctions.h"

// The Windows build looks up GDI+ instead (host/windows/ProcessFunctions.cpp).
#include <dlfcn.h>

namespace {

template <typename Fn>
void LookUp(Fn* fn, const char* name) {
  *fn = reinterpret_cast<Fn>(dlsym(RTLD_DEFAULT, name));
}

}  // namespace

ProcessFunctions LookUpProcessFunctions() {
  ProcessFunctions f;
  BitmapContextFunctions& b = f.bitmapContext;
  LookUp(&b.data, "CGBitmapContextGetData");
  LookUp(&b.bitsPerPixel, "CGBitmapContextGetBitsPerPixel");
  LookUp(&b.width, "CGBitmapContextGetWidth");
  LookUp(&b.height, "CGBitmapContextGetHeight");
  LookUp(&b.bytesPerRow, "CGBitmapContextGetBytesPerRow");
  LookUp(&b.alphaInfo, "CGBitmapContextGetAlphaInfo");
  CairoFunctions& c = f.cairo;
  LookUp(&c.getTarget, "cairo_get_target");
  LookUp(&c.status, "cairo_surface_status");
  LookUp(&c.type, "cairo_surface_get_type");
  LookUp(&c.flush, "cairo_surface_flush");
  LookUp(&c.markDirty, "cairo_surface_mark_dirty");
  LookUp(&c.format, "cairo_image_surface_get_format");
  LookUp(&c.data, "cairo_image_surface_get_data");
  LookUp(&c.width, "cairo_image_surface_get_width");
  LookUp(&c.height, "cairo_image_surface_get_height");
  LookUp(&c.stride, "cairo_image_surface_get_stride");
  return f;
}
