// For inputs holding a PNG stream: libFuzzer's mutation, then for three mutations out of four
// every chunk after the first signature given its right CRC, to get past libpng's CRC checks.
#include <string.h>
#include <zlib.h>

#include "fuzz/FuzzHost.h"

extern "C" size_t LLVMFuzzerMutate(uint8_t* data, size_t size, size_t maxSize);

extern "C" size_t LLVMFuzzerCustomMutator(uint8_t* data, size_t size, size_t maxSize,
                                          unsigned int seed) {
  size = LLVMFuzzerMutate(data, size, maxSize);
  const auto* found = static_cast<const uint8_t*>(memmem(data, size, "\x89PNG\r\n\x1A\n", 8));
  if (seed % 4 == 0 || found == nullptr) return size;
  for (size_t at = static_cast<size_t>(found - data) + 8; at + 12 <= size;) {
    const uint32_t length = fuzz::Input{data + at, 4}.Uint(4);
    if (length > size - at - 12) break;
    uint32_t crc = static_cast<uint32_t>(crc32(0, data + at + 4, length + 4));
    for (int i = 3; i >= 0; --i, crc >>= 8) data[at + 8 + length + i] = static_cast<uint8_t>(crc);
    at += 12 + length;
  }
  return size;
}
