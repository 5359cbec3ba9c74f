// The platform storage behind desktop host pictures. A macOS desktop host keeps a picture in a
// Core Graphics bitmap context; the six bitmap context functions are looked up in the running
// process, where the host has Core Graphics loaded, so that the plug-in links no framework and
// still loads in a console host. Elsewhere only a host that keeps its pictures in bitmap contexts
// provides those functions; a Linux desktop host keeps its pictures in cairo image surfaces,
// reached through cairo, which is looked up in the running process too. Windows hosts keep their
// pictures as premultiplied BGRA pixels (modern hosts) or as GDI+ bitmaps (older hosts); GDI+ is
// looked up in the running process as well.
#pragma once

#include <stddef.h>
#include <stdint.h>

#if defined(_WIN32)

// The pixels of a GDI+ bitmap, locked as 32-bit words in native byte order, 0xAARRGGBB, rows
// `stride` bytes apart from the top one. A bitmap that keeps its colour premultiplied by alpha is
// locked as it is (`premultiplied`); any other as straight colour, its alpha 255 where it has none.
struct GdiplusLock {
  void* bitmap;
  unsigned char* data;
  int32_t width;
  int32_t height;
  int32_t stride;
  bool premultiplied;
  // GDI+'s record of the lock (its BitmapData), handed back at the unlock.
  alignas(void*) unsigned char record[32];
};

// Locks the whole of `bitmap` (a GpBitmap*), for writing too with `forWriting`. False when the
// process has no GDI+ or the bitmap cannot be locked.
bool LockGdiplusBitmap(void* bitmap, bool forWriting, GdiplusLock* lock);

// Ends a lock; pixels written meanwhile reach the bitmap.
void UnlockGdiplusBitmap(GdiplusLock* lock);

#else

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

#endif

#if !defined(__APPLE__) && !defined(_WIN32)

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
