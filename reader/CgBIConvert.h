// CgBI data as iOS apps ship it, converted into a standard PNG stream: a pure function over
// bytes, used by the global method "CgBIToPNGStringKRV".
#pragma once

#include <stddef.h>
#include <stdlib.h>

#include <memory>

struct FreeBytes {
  void operator()(unsigned char* p) const { free(p); }
};

// Bytes in a block from malloc; `bytes` is null when there are none.
struct PNGBytes {
  std::unique_ptr<unsigned char, FreeBytes> bytes;
  size_t size = 0;
};

// The standard PNG stream of the CgBI data in data[0, size): the CgBI chunk dropped, the pixels
// put back into red, green, blue (alpha) order with the premultiplication divided out, the image
// data one zlib stream. No bytes when the data is not CgBI data that converts.
PNGBytes ConvertCgBIToPNG(const unsigned char* data, size_t size);
