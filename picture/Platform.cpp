#include "picture/Platform.h"

// Windows hosts' pictures: picture/windows/Gdiplus.cpp.
#if !defined(_WIN32)
#include "host/HostFacts.h"

bool QueryBitmapContext(void* context, BitmapContextInfo* info) {
  const BitmapContextFunctions& f = gHost.Process().bitmapContext;
  if (!f.Complete()) return false;
  info->data = f.data(context);
  info->bitsPerPixel = f.bitsPerPixel(context);
  info->width = f.width(context);
  info->height = f.height(context);
  info->bytesPerRow = f.bytesPerRow(context);
  info->alphaInfo = f.alphaInfo(context);
  return true;
}

#if !defined(__APPLE__)

namespace {

// The context's target when it is a sound image surface.
cairo::Surface* ImageTarget(const CairoFunctions& f, void* context) {
  cairo::Surface* surface = f.getTarget(static_cast<cairo::Context*>(context));
  return surface != nullptr && f.status(surface) == cairo::kStatusSuccess &&
                 f.type(surface) == cairo::kSurfaceTypeImage
             ? surface
             : nullptr;
}

}  // namespace

bool CairoAvailable() {
  return gHost.Process().cairo.Complete();
}

bool QueryCairoContext(void* context, CairoImageInfo* info) {
  const CairoFunctions& f = gHost.Process().cairo;
  cairo::Surface* surface = f.Complete() ? ImageTarget(f, context) : nullptr;
  if (surface == nullptr) return false;
  const int format = f.format(surface);
  if (format != cairo::kFormatARGB32 && format != cairo::kFormatRGB24) return false;
  // Drawing that cairo still holds back reaches the pixels before they are read.
  f.flush(surface);
  info->data = f.data(surface);
  info->width = f.width(surface);
  info->height = f.height(surface);
  info->stride = f.stride(surface);
  info->premultiplied = format == cairo::kFormatARGB32;
  return true;
}

void MarkCairoContextDirty(void* context) {
  const CairoFunctions& f = gHost.Process().cairo;
  cairo::Surface* surface = f.Complete() ? ImageTarget(f, context) : nullptr;
  if (surface) f.markDirty(surface);
}

#endif

#endif
