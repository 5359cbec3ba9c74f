#include "fuzz/FuzzHost.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <zlib.h>

#include <cmath>
#include <limits>

namespace fuzz {

namespace {

// Enough for every picture a small input can sensibly describe; larger ones are refused by the
// host as if memory had run out, which the plug-in must survive.
constexpr uint64_t kPicturePixels = uint64_t{1} << 16;

const uint8_t kSignature[8] = {0x89, 'P', 'N', 'G', 0x0D, 0x0A, 0x1A, 0x0A};

uint32_t BigEndian(const uint8_t* p) {
  return uint32_t{p[0]} << 24 | uint32_t{p[1]} << 16 | uint32_t{p[2]} << 8 | p[3];
}

}  // namespace

emu::Host& StartHost(bool loadPlugin) {
  const char* name = getenv("PNGKRV_HOST");
  const emu::Profile* profile = emu::FindProfile(name ? name : "linux-desktop-2019.1");
  if (profile == nullptr) {
    fprintf(stderr, "unknown host profile %s\n", name);
    exit(2);
  }
  emu::Host& host = emu::Host::Instance();
  host.Start(*profile);
  host.SetPicturePixelLimit(kPicturePixels);
  if (loadPlugin) host.LoadPlugin(PNGKRV_PLUGIN_PATH);
  return host;
}

void CheckAudit() {
  emu::Host& host = emu::Host::Instance();
  const emu::AuditReport report = host.Audit();
  if (!report.Clean()) {
    fprintf(stderr, "audit failed:\n%s\n", report.Format().c_str());
    abort();
  }
  host.ClearLastException();
}

void Require(bool condition, const char* what) {
  if (condition) return;
  fprintf(stderr, "broken promise: %s\n", what);
  abort();
}

uint8_t Input::Byte() {
  return at_ < size_ ? data_[at_++] : 0;
}

uint32_t Input::Uint(int bytes) {
  uint32_t v = 0;
  for (int i = 0; i < bytes; ++i) v = v << 8 | Byte();
  return v;
}

int64_t Input::Signed(int bytes) {
  const uint32_t v = Uint(bytes);
  const int shift = 64 - 8 * bytes;
  return static_cast<int64_t>(uint64_t{v} << shift) >> shift;
}

double Input::Gamma() {
  static const double kValues[] = {0.0,
                                   -1.0,
                                   1.0,
                                   2.2,
                                   1.0 / 2.2,
                                   1.8,
                                   0.01,
                                   100.0,
                                   1e-300,
                                   1e300,
                                   -1e300,
                                   0.0001,
                                   3.5,
                                   std::numeric_limits<double>::quiet_NaN(),
                                   std::numeric_limits<double>::infinity()};
  const uint8_t choice = Byte();
  if (choice < 0xF0) return kValues[choice % (sizeof kValues / sizeof kValues[0])];
  double raw = 0.0;
  const std::string_view bytes = Bytes(sizeof raw);
  memcpy(&raw, bytes.data(), bytes.size());
  return raw;
}

std::string_view Input::Bytes(size_t count) {
  const size_t n = count < size_ - at_ ? count : size_ - at_;
  const std::string_view bytes(reinterpret_cast<const char*>(data_ + at_), n);
  at_ += n;
  return bytes;
}

std::string_view Input::Rest() {
  return Bytes(size_ - at_);
}

void FixChunkCRCs(uint8_t* data, size_t size) {
  const void* found = memmem(data, size, kSignature, sizeof kSignature);
  if (found == nullptr) return;
  size_t at = static_cast<size_t>(static_cast<const uint8_t*>(found) - data) + 8;
  while (at + 12 <= size) {
    const uint32_t length = BigEndian(data + at);
    if (length > size - at - 12) return;
    uint32_t crc = static_cast<uint32_t>(crc32(0, data + at + 4, length + 4));
    uint8_t* out = data + at + 8 + length;
    for (int i = 3; i >= 0; --i, crc >>= 8) out[i] = static_cast<uint8_t>(crc);
    at += 12 + length;
  }
}

}  // namespace fuzz
