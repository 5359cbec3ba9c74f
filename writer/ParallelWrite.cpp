// WriteRows on several threads: the loaded rows filtered and compressed by the parallel deflate
// engine (writer/ParallelDeflate.h) with the filters and level libpng would use, and the stream
// written as IDAT chunks through libpng's chunk writer.
#include <algorithm>
#include <vector>

#include "writer/PNGWriter.h"
#include "writer/ParallelDeflate.h"

namespace {

// Below a megapixel the threads have too little to share; interlaced images stay with libpng,
// whose passes the engine does not make.
constexpr uint64_t kLeastPixels = 1000000;

constexpr png_byte kIDAT[] = "IDAT";

// The filters libpng applies for the filter value SetHeader gave it. png_set_filter keeps the
// value's low byte as the mask of filter bits (its table of the values 0 to 4 is overwritten
// after the fact, so those carry no filter bit); none given, or 0, is libpng's own choice: no
// filter for palette images, all of them otherwise. A one-pixel-wide or -high image can't use
// the filters that look beyond it, and an empty mask means no filter.
unsigned LibpngFilters(const PNGWriter& w, png_uint_32 width, png_uint_32 height) {
  unsigned filters = w.filter < 0 ? 0 : static_cast<unsigned>(w.filter) & 0xFF;
  if (filters == 0) {
    filters = png_get_color_type(w.pngPtr, w.infoPtr) == PNG_COLOR_TYPE_PALETTE
                  ? pdeflate::kFilterNone
                  : pdeflate::kAllFilters;
  }
  if (height == 1) {
    filters &= ~(pdeflate::kFilterUp | pdeflate::kFilterAverage | pdeflate::kFilterPaeth);
  }
  if (width == 1) {
    filters &= ~(pdeflate::kFilterSub | pdeflate::kFilterAverage | pdeflate::kFilterPaeth);
  }
  return filters == 0 ? pdeflate::kFilterNone : filters;
}

// The rows filtered and compressed into one zlib stream; false when memory ran out.
bool Compress(const PNGWriter& w, std::vector<uint8_t>& stream) {
  const png_uint_32 height = png_get_image_height(w.pngPtr, w.infoPtr);
  const size_t rowBytes = png_get_rowbytes(w.pngPtr, w.infoPtr);
  const unsigned bitsPerPixel =
      png_get_channels(w.pngPtr, w.infoPtr) * png_get_bit_depth(w.pngPtr, w.infoPtr);
  const unsigned filters = LibpngFilters(w, png_get_image_width(w.pngPtr, w.infoPtr), height);
  const int threads = static_cast<int>(std::clamp<RBInteger>(w.threads, 0, INT32_MAX));
  std::vector<uint8_t> filtered;
  if (!pdeflate::FilterRows(w.rowPointers, height, rowBytes, (bitsPerPixel + 7) / 8,
                            filters & pdeflate::kAllFilters, threads, filtered)) {
    return false;
  }
  pdeflate::Settings settings;
  settings.level = w.level < 0 ? Z_DEFAULT_COMPRESSION : w.level;
  // libpng's strategy: the default for a mask of None alone, Z_FILTERED for any other.
  settings.strategy = filters == pdeflate::kFilterNone ? Z_DEFAULT_STRATEGY : Z_FILTERED;
  settings.threads = threads;
  return pdeflate::Compress(filtered.data(), filtered.size(), settings, stream);
}

// The stream as IDAT chunks of libpng's own size.
bool WriteIDATArmed(PNGWriter& w, const uint8_t* stream, size_t size) {
  if (setjmp(*w.jumpBuffer)) return false;
  const size_t chunk = std::max<size_t>(png_get_compression_buffer_size(w.pngPtr), 1);
  for (size_t at = 0; at < size; at += chunk) {
    png_write_chunk(w.pngPtr, kIDAT, stream + at, std::min(chunk, size - at));
  }
  return true;
}

}  // namespace

bool TakesParallelPath(const PNGWriter& w) {
  const uint64_t pixels = uint64_t{png_get_image_width(w.pngPtr, w.infoPtr)} *
                          png_get_image_height(w.pngPtr, w.infoPtr);
  // A level zlib refuses goes to libpng, which reports it as it always has.
  return w.threads != 1 && pixels >= kLeastPixels && w.level <= Z_BEST_COMPRESSION &&
         png_get_interlace_type(w.pngPtr, w.infoPtr) == PNG_INTERLACE_NONE;
}

bool WriteImageInParallel(PNGWriter& w) {
  std::vector<uint8_t> stream;
  if (!Compress(w, stream)) {
    QueueError(w.events, "Out of memory for compressing the image.");
    return false;
  }
  w.dataWrittenAside = 1;
  return WriteIDATArmed(w, stream.data(), stream.size());
}
