// The bitmap context behind a desktop host picture. On Apple platforms Core Graphics answers;
// elsewhere the same six functions are looked up in the running process, where a host that keeps
// its pictures in bitmap contexts provides them.
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
