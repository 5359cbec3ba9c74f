// The platform storage behind desktop host pictures. A macOS desktop host keeps a picture in a
// Core Graphics bitmap context; the six bitmap context functions are looked up in the running
// process, where the host has Core Graphics loaded, so that the plug-in links no framework and
// still loads in a console host. Elsewhere only a host that keeps its pictures in bitmap contexts
// provides those functions; a Linux desktop host keeps its pictures in cairo image surfaces,
// reached through cairo, which is looked up in the running process too.
#pragma once

#include <stddef.h>
#include <stdint.h>

struct BitmapContextInfo {
  void* data;
  size_t bitsPerPixel;
  size_t width;
  size_t height;
  size_t bytesPerRow;
  uint32_t alphaInfo;
};

// False when the context's functions are not available.
bool QueryBitmapContext(void* context, BitmapContextInfo* info);

#if !defined(__APPLE__)

// The image surface that a cairo context draws into: 32-bit words in native byte order, either
// premultiplied 0xAARRGGBB (`premultiplied`, cairo's ARGB32) or 0x..RRGGBB with the top byte
// ignored (RGB24).
struct CairoImageInfo {
  unsigned char* data;
  int width;
  int height;
  int stride;
  bool premultiplied;
};

// True when the running process has the cairo functions the surface route needs.
bool CairoAvailable();

// Describes the target of a cairo context, flushed so that its pixels can be accessed directly.
// False for a target that is not an image surface of format ARGB32 or RGB24.
bool QueryCairoContext(void* context, CairoImageInfo* info);

// Tells cairo that the pixels of the context's target were written directly.
void MarkCairoContextDirty(void* context);

#endif
