// What the fuzz targets share: the host with the real plug-in, the input read as choices, the
// audit.
#pragma once

#include "emulator/Emulator.h"

namespace fuzz {

// The input front to back; reads past its end give zeros and empty bytes.
struct Input {
  const uint8_t* data;
  size_t size, at = 0;

  uint8_t Byte() { return at < size ? data[at++] : 0; }
  uint32_t Uint(int bytes) {  // big-endian
    uint32_t v = 0;
    for (int i = 0; i < bytes; ++i) v = v << 8 | Byte();
    return v;
  }
  int64_t Signed(int n) {
    return static_cast<int64_t>(uint64_t{Uint(n)} << (64 - 8 * n)) >> (64 - 8 * n);
  }
  double Gamma();  // mostly one of interest (0, -1, extreme, NaN), else eight raw bytes
  std::string_view Bytes(size_t count) {
    const size_t n = count < size - at ? count : size - at;
    at += n;
    return {reinterpret_cast<const char*>(data + at - n), n};
  }
  std::string_view Rest() { return Bytes(size - at); }
  bool Empty() const { return at >= size; }
};

extern emu::Host* host;  // of the profile PNGKRV_HOST names (linux-desktop-2019.1 when unset)

// What one input does, defined by each target; what it made is released before the audit.
void Run(Input in);
// Defined only by a target linking the plug-in's code: called instead of loading the plug-in.
void UseLinkedPlugin() __attribute__((weak));

// Aborts with `what`, so that libFuzzer keeps the input, when `condition` is false.
void Require(bool condition, const char* what);
inline RBInteger IntProperty(const emu::Value& object, const char* name) {
  return host->GetProperty(object, name).AsInteger();
}
// The Pict of a reader or PNGPictureKRV, required to be nil or of its owner's size.
emu::Value CheckedPict(const emu::Value& owner);
inline emu::EventHandlers IgnoredEvents() {  // Error and Warning handlers that do nothing
  return {{"Error", [](const emu::EventArgs&) {}}, {"Warning", [](const emu::EventArgs&) {}}};
}

}  // namespace fuzz
