#include "picture/Platform.h"

// Windows hosts' pictures: picture/windows/Gdiplus.cpp.
#if !defined(_WIN32)
#include <dlfcn.h>

namespace {

// Core Graphics' own signatures: a CGContextRef is a pointer, the sizes are size_t and
// CGImageAlphaInfo is a uint32_t enumeration.
using DataFn = void* (*)(void*);
using SizeFn = size_t (*)(void*);
using AlphaFn = uint32_t (*)(void*);

struct ContextFunctions {
  DataFn data = nullptr;
  SizeFn bitsPerPixel = nullptr;
  SizeFn width = nullptr;
  SizeFn height = nullptr;
  SizeFn bytesPerRow = nullptr;
  AlphaFn alphaInfo = nullptr;

  bool Complete() const {
    return data && bitsPerPixel && width && height && bytesPerRow && alphaInfo;
  }
};

template <typename Fn>
Fn Lookup(const char* name) {
  return reinterpret_cast<Fn>(dlsym(RTLD_DEFAULT, name));
}

// Looked up once for the process, like the host's own entry points.
const ContextFunctions& Functions() {
  static const ContextFunctions functions = {
      Lookup<DataFn>("CGBitmapContextGetData"),
      Lookup<SizeFn>("CGBitmapContextGetBitsPerPixel"),
      Lookup<SizeFn>("CGBitmapContextGetWidth"),
      Lookup<SizeFn>("CGBitmapContextGetHeight"),
      Lookup<SizeFn>("CGBitmapContextGetBytesPerRow"),
      Lookup<AlphaFn>("CGBitmapContextGetAlphaInfo"),
  };
  return functions;
}

}  // namespace

bool QueryBitmapContext(void* context, BitmapContextInfo* info) {
  const ContextFunctions& f = Functions();
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
#include <cairo.h>

namespace {

// The cairo functions of the surface route, declared by cairo's own header and looked up in the
// running process: a console host has no cairo, and the plug-in must still load there.
struct CairoFunctions {
  decltype(&cairo_get_target) getTarget = nullptr;
  decltype(&cairo_surface_status) status = nullptr;
  decltype(&cairo_surface_get_type) type = nullptr;
  decltype(&cairo_surface_flush) flush = nullptr;
  decltype(&cairo_surface_mark_dirty) markDirty = nullptr;
  decltype(&cairo_image_surface_get_format) format = nullptr;
  decltype(&cairo_image_surface_get_data) data = nullptr;
  decltype(&cairo_image_surface_get_width) width = nullptr;
  decltype(&cairo_image_surface_get_height) height = nullptr;
  decltype(&cairo_image_surface_get_stride) stride = nullptr;

  bool Complete() const {
    return getTarget && status && type && flush && markDirty && format && data && width && height &&
           stride;
  }
};

// Looked up once for the process, like the bitmap context functions.
const CairoFunctions& Cairo() {
  static const CairoFunctions functions = {
      Lookup<decltype(&cairo_get_target)>("cairo_get_target"),
      Lookup<decltype(&cairo_surface_status)>("cairo_surface_status"),
      Lookup<decltype(&cairo_surface_get_type)>("cairo_surface_get_type"),
      Lookup<decltype(&cairo_surface_flush)>("cairo_surface_flush"),
      Lookup<decltype(&cairo_surface_mark_dirty)>("cairo_surface_mark_dirty"),
      Lookup<decltype(&cairo_image_surface_get_format)>("cairo_image_surface_get_format"),
      Lookup<decltype(&cairo_image_surface_get_data)>("cairo_image_surface_get_data"),
      Lookup<decltype(&cairo_image_surface_get_width)>("cairo_image_surface_get_width"),
      Lookup<decltype(&cairo_image_surface_get_height)>("cairo_image_surface_get_height"),
      Lookup<decltype(&cairo_image_surface_get_stride)>("cairo_image_surface_get_stride"),
  };
  return functions;
}

// The context's target when it is a sound image surface.
cairo_surface_t* ImageTarget(void* context) {
  const CairoFunctions& f = Cairo();
  cairo_surface_t* surface = f.getTarget(static_cast<cairo_t*>(context));
  return surface != nullptr && f.status(surface) == CAIRO_STATUS_SUCCESS &&
                 f.type(surface) == CAIRO_SURFACE_TYPE_IMAGE
             ? surface
             : nullptr;
}

}  // namespace

bool CairoAvailable() {
  return Cairo().Complete();
}

bool QueryCairoContext(void* context, CairoImageInfo* info) {
  const CairoFunctions& f = Cairo();
  cairo_surface_t* surface = f.Complete() ? ImageTarget(context) : nullptr;
  if (surface == nullptr) return false;
  const cairo_format_t format = f.format(surface);
  if (format != CAIRO_FORMAT_ARGB32 && format != CAIRO_FORMAT_RGB24) return false;
  // Drawing that cairo still holds back reaches the pixels before they are read.
  f.flush(surface);
  info->data = f.data(surface);
  info->width = f.width(surface);
  info->height = f.height(surface);
  info->stride = f.stride(surface);
  info->premultiplied = format == CAIRO_FORMAT_ARGB32;
  return true;
}

void MarkCairoContextDirty(void* context) {
  const CairoFunctions& f = Cairo();
  cairo_surface_t* surface = f.Complete() ? ImageTarget(context) : nullptr;
  if (surface) f.markDirty(surface);
}

#endif

#endif
