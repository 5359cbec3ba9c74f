// What the fuzz targets share: one host per process with the real plug-in loaded, the reference
// audit after every input, and a reader that turns the input's bytes into choices.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <string_view>

#include "emulator/Emulator.h"

namespace fuzz {

// Starts the host of the profile named by PNGKRV_HOST (linux-desktop-2019.1 when unset), with
// pictures capped at a few million pixels, and loads the plug-in when `loadPlugin`.
emu::Host& StartHost(bool loadPlugin = true);

// Aborts with the report, so that libFuzzer keeps the input, unless every reference the plug-in
// took was given back. Clears the last exception for the next input.
void CheckAudit();

// Aborts with `what` when `condition` is false: a broken promise of the plug-in.
void Require(bool condition, const char* what);

// The input read front to back; reads past its end give zeros and empty bytes.
class Input {
 public:
  Input(const uint8_t* data, size_t size) : data_(data), size_(size) {}

  uint8_t Byte();
  uint32_t Uint(int bytes);  // big-endian
  int64_t Signed(int bytes);
  // A gamma: mostly a value of interest (0, the no-gamma -1, ordinary and extreme values, NaN),
  // otherwise eight raw bytes.
  double Gamma();
  std::string_view Bytes(size_t count);
  std::string_view Rest();
  bool Empty() const { return at_ >= size_; }

 private:
  const uint8_t* data_;
  size_t size_;
  size_t at_ = 0;
};

// Gives every chunk of the PNG stream inside `data` its right CRC, so that mutations reach past
// libpng's CRC checks. The stream starts at the first PNG signature.
void FixChunkCRCs(uint8_t* data, size_t size);

}  // namespace fuzz

// libFuzzer's own mutator, for custom mutators built on it.
extern "C" size_t LLVMFuzzerMutate(uint8_t* data, size_t size, size_t maxSize);

// Targets whose input holds a PNG stream define their custom mutator with this: libFuzzer's
// mutation, then the CRCs mended for three mutations out of four.
#define PNGKRV_CRC_MENDING_MUTATOR                                                      \
  extern "C" size_t LLVMFuzzerCustomMutator(uint8_t* data, size_t size, size_t maxSize, \
                                            unsigned int seed) {                        \
    size = LLVMFuzzerMutate(data, size, maxSize);                                       \
    if (seed % 4 != 0) fuzz::FixChunkCRCs(data, size);                                  \
    return size;                                                                        \
  }
