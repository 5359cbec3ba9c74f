#include "picture/Platform.h"

#if defined(__APPLE__)
#include <CoreGraphics/CoreGraphics.h>

bool QueryBitmapContext(void* context, BitmapContextInfo* info) {
  CGContextRef ctx = static_cast<CGContextRef>(context);
  info->data = CGBitmapContextGetData(ctx);
  info->bitsPerPixel = CGBitmapContextGetBitsPerPixel(ctx);
  info->width = CGBitmapContextGetWidth(ctx);
  info->height = CGBitmapContextGetHeight(ctx);
  info->bytesPerRow = CGBitmapContextGetBytesPerRow(ctx);
  info->alphaInfo = CGBitmapContextGetAlphaInfo(ctx);
  return true;
}

#else
#include <dlfcn.h>

namespace {

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

#endif
