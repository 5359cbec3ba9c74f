// Compression of a PNG image's data on several threads, with no libpng and no host involved.
//
// The rows are filtered as libpng filters them (each row's filter byte, then its filtered bytes)
// and the filtered image is cut into chunks of a fixed size, each compressed on its own with
// zlib, primed with the 32 KiB before it as its dictionary and ended on a byte boundary with a
// sync flush (the last with the end of the stream). One zlib header before them and the Adler-32
// of the whole, combined from the chunks' own, after them make one zlib stream. The chunking
// alone fixes the bytes, so the stream is the same whatever the number of threads.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <zlib.h>

#include <vector>

namespace pdeflate {

// libpng's filter bits (PNG_FILTER_NONE ... PNG_FILTER_PAETH).
constexpr unsigned kFilterNone = 0x08;
constexpr unsigned kFilterSub = 0x10;
constexpr unsigned kFilterUp = 0x20;
constexpr unsigned kFilterAverage = 0x40;
constexpr unsigned kFilterPaeth = 0x80;
constexpr unsigned kAllFilters = 0xf8;

// Each chunk costs a few dozen bytes (its end marker, new code tables, matches it cannot reach):
// at 512 KiB that stays under 1 % of the stream even for atlases that compress 50 to 1, and a
// 1 MP RGB image still makes six chunks to share out.
constexpr size_t kDefaultChunkSize = size_t{512} << 10;

struct Settings {
  int level = Z_DEFAULT_COMPRESSION;
  int strategy = Z_DEFAULT_STRATEGY;
  int threads = 0;  // 0: one for each core
  size_t chunkSize = kDefaultChunkSize;
  // The allocator of every zlib stream made (null: zlib's own).
  alloc_func zalloc = nullptr;
  free_func zfree = nullptr;
  voidpf opaque = nullptr;
};

// The threads that `requested` stands for: itself when positive, else one for each core.
int ThreadCount(int requested);

// Filters `height` rows of `rowBytes` bytes into `out`, each as its filter byte and the filtered
// bytes, with libpng's choice for the filter mask `filters`: a single filter is applied as it
// is; among several, each row takes the one whose bytes, read as signed, have the least sum of
// absolute values (the first of equals in the order None, Sub, Up, Average, Paeth). No filter in
// the mask means None. `bytesPerPixel` is the distance a filter looks back (at least 1). False,
// with `out` emptied, when the memory cannot be had.
bool FilterRows(const uint8_t* const* rows, size_t height, size_t rowBytes, unsigned bytesPerPixel,
                unsigned filters, int threads, std::vector<uint8_t>& out);

// Compresses `size` bytes into one zlib stream in `out`. False, with `out` emptied, when zlib
// refuses the settings or fails, or memory cannot be had; no thread is left running either way.
bool Compress(const uint8_t* data, size_t size, const Settings& settings,
              std::vector<uint8_t>& out);

}  // namespace pdeflate
