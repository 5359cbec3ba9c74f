#include "writer/ParallelDeflate.h"

#include <stdlib.h>

#include <algorithm>
#include <atomic>
#include <new>
#include <thread>

namespace pdeflate {

namespace {

constexpr size_t kWindow = size_t{32} << 10;  // deflate's reach back, the dictionary's size
constexpr size_t kLargestChunk = size_t{1} << 30;
constexpr size_t kRowsPerJob = 16;
constexpr int kMostThreads = 64;

// Runs job(0) ... job(count - 1), each once, on up to `threads` threads, the caller's among them.
// Once a job has failed (returned false or thrown) no other starts. A thread that cannot be
// started leaves its share to the others. Every thread started is joined before the return.
// True when every job ran and succeeded.
template <typename Job>
bool RunJobs(size_t count, int threads, const Job& job) {
  std::atomic<size_t> next{0};
  std::atomic<bool> failed{false};
  auto work = [&]() noexcept {
    while (!failed.load(std::memory_order_relaxed)) {
      const size_t i = next.fetch_add(1, std::memory_order_relaxed);
      if (i >= count) return;
      bool ok = false;
      try {
        ok = job(i);
      } catch (...) {
        ok = false;
      }
      if (!ok) failed.store(true, std::memory_order_relaxed);
    }
  };
  const size_t helpers = std::min(count, static_cast<size_t>(std::max(threads, 1))) - (count > 0);
  std::vector<std::thread> pool;
  try {
    pool.reserve(helpers);
    for (size_t i = 0; i < helpers; ++i) pool.emplace_back(work);
  } catch (...) {
    // Fewer threads than asked for: those running, and this one, do all the work.
  }
  work();
  for (std::thread& t : pool) t.join();
  return !failed.load();
}

// ---------------------------------------------------------------------------------------------
// Row filters
// ---------------------------------------------------------------------------------------------

enum FilterType { kNone, kSub, kUp, kAverage, kPaeth, kFilterTypes };

// What filter `T` predicts a byte to be from the byte a pixel to the left (`a`), the one above
// (`b`) and the one above and to the left (`c`).
template <int T>
inline int Predict(int a, int b, int c) {
  if constexpr (T == kNone) {
    return 0;
  } else if constexpr (T == kSub) {
    return a;
  } else if constexpr (T == kUp) {
    return b;
  } else if constexpr (T == kAverage) {
    return (a + b) >> 1;
  } else {
    const int p = b - c, q = a - c;
    const int pa = abs(p), pb = abs(q), pc = abs(p + q);
    return pa <= pb && pa <= pc ? a : pb <= pc ? b : c;
  }
}

// The distance of a filtered byte from zero, read as a signed byte.
inline unsigned Distance(uint8_t v) {
  return v < 128 ? v : 256u - v;
}

// Filters `row` under `above` with filter `T`: into `out`, or when `out` is null only adding up
// the distances of the filtered bytes, which it returns. The first pixel has nothing to its
// left: `a` and `c` are 0 there.
template <int T>
uint64_t Filter(const uint8_t* row, const uint8_t* above, size_t bytes, size_t bpp, uint8_t* out) {
  uint64_t sum = 0;
  const size_t lead = std::min(bytes, bpp);
  for (size_t i = 0; i < lead; ++i) {
    const auto v = static_cast<uint8_t>(row[i] - Predict<T>(0, above[i], 0));
    if (out) {
      out[i] = v;
    } else {
      sum += Distance(v);
    }
  }
  if (out) {
    for (size_t i = lead; i < bytes; ++i) {
      out[i] = static_cast<uint8_t>(row[i] - Predict<T>(row[i - bpp], above[i], above[i - bpp]));
    }
  } else {
    for (size_t i = lead; i < bytes; ++i) {
      sum += Distance(
          static_cast<uint8_t>(row[i] - Predict<T>(row[i - bpp], above[i], above[i - bpp])));
    }
  }
  return sum;
}

using FilterFn = uint64_t (*)(const uint8_t*, const uint8_t*, size_t, size_t, uint8_t*);
constexpr FilterFn kFilters[kFilterTypes] = {Filter<kNone>, Filter<kSub>, Filter<kUp>,
                                             Filter<kAverage>, Filter<kPaeth>};

constexpr unsigned Bit(int type) {
  return kFilterNone << type;
}

// The filter type libpng takes for a row under the filter mask `filters`.
int ChooseFilter(const uint8_t* row, const uint8_t* above, size_t bytes, size_t bpp,
                 unsigned filters) {
  if (filters == 0) return kNone;
  if ((filters & (filters - 1)) == 0) {
    int type = kNone;
    while (Bit(type) != filters) ++type;
    return type;
  }
  int choice = kNone;
  uint64_t least = UINT64_MAX;
  if (filters & kFilterNone) least = Filter<kNone>(row, above, bytes, bpp, nullptr);
  for (int type = kSub; type < kFilterTypes; ++type) {
    if ((filters & Bit(type)) == 0) continue;
    const uint64_t sum = kFilters[type](row, above, bytes, bpp, nullptr);
    if (sum < least) {
      least = sum;
      choice = type;
    }
  }
  return choice;
}

// ---------------------------------------------------------------------------------------------
// Chunks
// ---------------------------------------------------------------------------------------------

// A raw deflate stream that is ended on every path.
class RawDeflate {
 public:
  RawDeflate(const Settings& settings) {
    stream_.zalloc = settings.zalloc;
    stream_.zfree = settings.zfree;
    stream_.opaque = settings.opaque;
    open_ = deflateInit2(&stream_, settings.level, Z_DEFLATED, -15, 8, settings.strategy) == Z_OK;
  }
  ~RawDeflate() {
    if (open_) deflateEnd(&stream_);
  }
  RawDeflate(const RawDeflate&) = delete;
  RawDeflate& operator=(const RawDeflate&) = delete;

  bool open() const { return open_; }
  z_stream& stream() { return stream_; }

 private:
  z_stream stream_{};
  bool open_ = false;
};

// One chunk compressed, and the Adler-32 of its input.
struct Piece {
  std::vector<uint8_t> bytes;
  uLong adler = 1;
};

// Compresses `size` bytes at `input` into `out`, ending them with `flush`, growing `out` until
// deflate has written all of it.
bool Drain(z_stream& z, const uint8_t* input, size_t size, int flush, std::vector<uint8_t>& out) {
  out.resize(deflateBound(&z, static_cast<uLong>(size)) + 16);
  z.next_in = const_cast<Bytef*>(input);
  z.avail_in = static_cast<uInt>(size);
  size_t used = 0;
  for (;;) {
    z.next_out = out.data() + used;
    z.avail_out = static_cast<uInt>(out.size() - used);
    const int result = deflate(&z, flush);
    used = out.size() - z.avail_out;
    if (result == Z_STREAM_ERROR) return false;
    const bool done = flush == Z_FINISH ? result == Z_STREAM_END : z.avail_out != 0;
    if (done) break;
    out.resize(out.size() * 2);
  }
  out.resize(used);
  return true;
}

// Compresses bytes [begin, end) of `data` as one piece of the stream, primed with the window of
// bytes before `begin`.
bool DeflatePiece(const uint8_t* data, size_t begin, size_t end, bool last,
                  const Settings& settings, Piece& piece) {
  RawDeflate deflater(settings);
  if (!deflater.open()) return false;
  z_stream& z = deflater.stream();
  const size_t primer = std::min(begin, kWindow);
  if (primer > 0 &&
      deflateSetDictionary(&z, data + begin - primer, static_cast<uInt>(primer)) != Z_OK) {
    return false;
  }
  if (!Drain(z, data + begin, end - begin, last ? Z_FINISH : Z_SYNC_FLUSH, piece.bytes)) {
    return false;
  }
  piece.adler = adler32(1, data + begin, static_cast<uInt>(end - begin));
  return true;
}

// zlib's own two header bytes for a stream of these settings with a 32 KiB window.
void AppendHeader(const Settings& settings, std::vector<uint8_t>& out) {
  const int level = settings.level == Z_DEFAULT_COMPRESSION ? 6 : settings.level;
  const unsigned levelFlags = settings.strategy >= Z_HUFFMAN_ONLY || level < 2 ? 0
                              : level < 6                                      ? 1
                              : level == 6                                     ? 2
                                                                               : 3;
  unsigned header = (Z_DEFLATED + (7 << 4)) << 8 | levelFlags << 6;
  header += 31 - header % 31;
  out.push_back(static_cast<uint8_t>(header >> 8));
  out.push_back(static_cast<uint8_t>(header));
}

// The header, every piece of the `size` bytes cut every `chunk` (each released once copied) and
// the combined Adler-32.
void Assemble(const Settings& settings, std::vector<Piece>& pieces, size_t size, size_t chunk,
              std::vector<uint8_t>& out) {
  size_t total = 6;
  for (const Piece& piece : pieces) total += piece.bytes.size();
  out.reserve(total);
  AppendHeader(settings, out);
  uLong adler = pieces.front().adler;
  for (size_t i = 0; i < pieces.size(); ++i) {
    if (i > 0) {
      const size_t length = std::min(size - i * chunk, chunk);
      adler = adler32_combine(adler, pieces[i].adler, static_cast<z_off_t>(length));
    }
    out.insert(out.end(), pieces[i].bytes.begin(), pieces[i].bytes.end());
    std::vector<uint8_t>().swap(pieces[i].bytes);
  }
  for (int shift = 24; shift >= 0; shift -= 8) out.push_back(static_cast<uint8_t>(adler >> shift));
}

}  // namespace

int ThreadCount(int requested) {
  if (requested > 0) return std::min(requested, kMostThreads);
  const unsigned cores = std::thread::hardware_concurrency();
  return cores == 0 ? 1 : std::min(static_cast<int>(cores), kMostThreads);
}

bool FilterRows(const uint8_t* const* rows, size_t height, size_t rowBytes, unsigned bytesPerPixel,
                unsigned filters, int threads, std::vector<uint8_t>& out) {
  std::vector<uint8_t>().swap(out);
  const size_t bpp = std::max(bytesPerPixel, 1u);
  filters &= kAllFilters;
  // The filtered image's size, checked before it is allocated.
  if (rowBytes == SIZE_MAX || (height > 0 && rowBytes + 1 > SIZE_MAX / height)) return false;
  const size_t stride = rowBytes + 1;
  std::vector<uint8_t> zeros;
  try {
    out.resize(stride * height);
    zeros.resize(rowBytes);
  } catch (const std::bad_alloc&) {
    std::vector<uint8_t>().swap(out);
    return false;
  }
  const size_t jobs = (height + kRowsPerJob - 1) / kRowsPerJob;
  RunJobs(jobs, ThreadCount(threads), [&](size_t job) {
    const size_t last = std::min(height, (job + 1) * kRowsPerJob);
    for (size_t y = job * kRowsPerJob; y < last; ++y) {
      const uint8_t* above = y > 0 ? rows[y - 1] : zeros.data();
      const int type = ChooseFilter(rows[y], above, rowBytes, bpp, filters);
      uint8_t* target = out.data() + y * stride;
      target[0] = static_cast<uint8_t>(type);
      kFilters[type](rows[y], above, rowBytes, bpp, target + 1);
    }
    return true;
  });
  return true;
}

bool Compress(const uint8_t* data, size_t size, const Settings& settings,
              std::vector<uint8_t>& out) {
  std::vector<uint8_t>().swap(out);
  const size_t chunk =
      settings.chunkSize == 0 ? kDefaultChunkSize : std::min(settings.chunkSize, kLargestChunk);
  const size_t count = size == 0 ? 1 : (size - 1) / chunk + 1;
  bool ok = false;
  try {
    std::vector<Piece> pieces(count);
    ok = RunJobs(count, ThreadCount(settings.threads), [&](size_t i) {
      const size_t begin = i * chunk, end = std::min(size, begin + chunk);
      return DeflatePiece(data, begin, end, i + 1 == count, settings, pieces[i]);
    });
    if (ok) Assemble(settings, pieces, size, chunk, out);
  } catch (const std::bad_alloc&) {
    ok = false;
  }
  if (!ok) std::vector<uint8_t>().swap(out);
  return ok;
}

}  // namespace pdeflate
