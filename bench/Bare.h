// The references the plug-in is measured against: libpng used directly with the plug-in's own
// transformations and settings, and, for context, libspng and stb_image.
#pragma once

#include "bench/Corpus.h"

namespace bench {

// The whole stream into one RGBA buffer: 16 bits cut, grey and palette expanded, tRNS to alpha,
// filler 255, all passes. Returns the buffer's size.
size_t BareDecode(const Bytes& png, Bytes& rgba);

// Every row of a plain image through png_read_row into one row buffer; the rows read.
size_t BareRows(const Bytes& png);

// RGB or RGBA rows written with the plug-in's settings (8 bits, default filters and level, a
// gAMA chunk of 1/1.8) into memory, kept in `stream` when given. Returns the stream's size.
size_t BareEncode(const Image& image, bool alpha, Bytes* stream = nullptr);

// The size of the IDAT data of a PNG stream.
size_t IdatBytes(const Bytes& png);

// The same rows as BareEncode filtered and compressed by the parallel deflate engine on
// `threads` threads (0: one a core) at libpng's default settings. Returns the zlib stream's size.
size_t EngineEncode(const Image& image, bool alpha, int threads);

size_t SpngDecode(const Bytes& png, Bytes& rgba);
size_t StbDecode(const Bytes& png);

}  // namespace bench
