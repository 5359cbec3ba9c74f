// Functions of the running process that picture routes need besides the host's entry points,
// looked up by name so that the plug-in loads in any host and imports only system libraries:
// the six queries of a Core Graphics bitmap context (provided off Apple platforms only by a host
// that keeps its pictures in bitmap contexts) and the cairo functions that reach the image
// surface behind a Linux desktop host's cairo context (which no macOS host has: the functions
// stay null there). On macOS the host process has Core Graphics loaded, and the plug-in links no
// framework. On Windows the process has GDI+ where the host keeps its pictures in GDI+ bitmaps
// (host/windows/ProcessFunctions.cpp looks it up).
#pragma once

#include <stddef.h>
#include <stdint.h>

// cairo's types and constants that the plug-in uses, with the values of cairo's public header;
// the plug-in never includes that header. cairo_t and cairo_surface_t stay opaque, and
// cairo_status_t, cairo_surface_type_t and cairo_format_t are C enumerations, passed as int.
namespace cairo {
struct Context;
struct Surface;
constexpr int kStatusSuccess = 0;     // CAIRO_STATUS_SUCCESS
constexpr int kSurfaceTypeImage = 0;  // CAIRO_SURFACE_TYPE_IMAGE
constexpr int kFormatARGB32 = 0;      // CAIRO_FORMAT_ARGB32
constexpr int kFormatRGB24 = 1;       // CAIRO_FORMAT_RGB24
}  // namespace cairo

struct BitmapContextFunctions {
  void* (*data)(void*) = nullptr;
  size_t (*bitsPerPixel)(void*) = nullptr;
  size_t (*width)(void*) = nullptr;
  size_t (*height)(void*) = nullptr;
  size_t (*bytesPerRow)(void*) = nullptr;
  uint32_t (*alphaInfo)(void*) = nullptr;

  bool Complete() const {
    return data && bitsPerPixel && width && height && bytesPerRow && alphaInfo;
  }
};

struct CairoFunctions {
  cairo::Surface* (*getTarget)(cairo::Context*) = nullptr;
  int (*status)(cairo::Surface*) = nullptr;
  int (*type)(cairo::Surface*) = nullptr;
  void (*flush)(cairo::Surface*) = nullptr;
  void (*markDirty)(cairo::Surface*) = nullptr;
  int (*format)(cairo::Surface*) = nullptr;
  unsigned char* (*data)(cairo::Surface*) = nullptr;
  int (*width)(cairo::Surface*) = nullptr;
  int (*height)(cairo::Surface*) = nullptr;
  int (*stride)(cairo::Surface*) = nullptr;

  bool Complete() const {
    return getTarget && status && type && flush && markDirty && format && data && width && height &&
           stride;
  }
};

#if defined(_WIN32)
// GDI+'s flat functions (WINGDIPAPI: __stdcall) for the GDI+ bitmaps of older Windows hosts,
// found in the gdiplus.dll the host has loaded: `image` and `bitmap` are a GpBitmap*, `rect` a
// GpRect (x, y, width, height), `data` a BitmapData, and a status of 0 is GDI+'s Ok.
struct GdiplusFunctions {
  int(__stdcall* width)(void* image, uint32_t* width) = nullptr;
  int(__stdcall* height)(void* image, uint32_t* height) = nullptr;
  int(__stdcall* pixelFormat)(void* image, int32_t* format) = nullptr;
  int(__stdcall* lockBits)(void* bitmap, const int32_t* rect, uint32_t flags, int32_t format,
                           void* data) = nullptr;
  int(__stdcall* unlockBits)(void* bitmap, void* data) = nullptr;

  bool Complete() const { return width && height && pixelFormat && lockBits && unlockBits; }
};
#endif

struct ProcessFunctions {
#if defined(_WIN32)
  GdiplusFunctions gdiplus;
#else
  BitmapContextFunctions bitmapContext;
  CairoFunctions cairo;
#endif
};

// Every function above that the running process has; the others stay null.
ProcessFunctions LookUpProcessFunctions();
