#include "fuzz/FuzzHost.h"

#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

namespace fuzz {

emu::Host* host = nullptr;

double Input::Gamma() {
  static const double kValues[] = {0.0,    -1.0,  1.0,    2.2,    1.0 / 2.2, 1.8, 0.01,    100.0,
                                   1e-300, 1e300, -1e300, 0.0001, 3.5,       NAN, INFINITY};
  const uint8_t choice = Byte();
  if (choice < 0xF0) return kValues[choice % (sizeof kValues / sizeof kValues[0])];
  double raw = 0.0;
  const std::string_view bytes = Bytes(sizeof raw);
  memcpy(&raw, bytes.data(), bytes.size());
  return raw;
}

void Require(bool condition, const char* what) {
  if (!condition) fprintf(stderr, "%s\n", what), abort();
}

emu::Value CheckedPict(const emu::Value& owner) {
  const emu::Value pict = host->GetProperty(owner, "Pict");
  Require(pict.IsNil() || (IntProperty(pict, "Width") == IntProperty(owner, "Width") &&
                           IntProperty(pict, "Height") == IntProperty(owner, "Height")),
          "a decoded picture whose size is not its owner's");
  return pict;
}

}  // namespace fuzz

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  const char* name = getenv("PNGKRV_HOST");
  const emu::Profile* profile = emu::FindProfile(name ? name : "linux-desktop-2019.1");
  fuzz::Require(profile != nullptr, "PNGKRV_HOST names no host profile");
  fuzz::host = &emu::Host::Instance();
  fuzz::host->Start(*profile);
  // Larger pictures are refused as if memory had run out, which the plug-in must survive.
  fuzz::host->SetPicturePixelLimit(uint64_t{1} << 16);
  fuzz::UseLinkedPlugin ? fuzz::UseLinkedPlugin() : fuzz::host->LoadPlugin(PNGKRV_PLUGIN_PATH);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::Run({data, size});
  const emu::AuditReport report = fuzz::host->Audit();
  if (!report.Clean()) fuzz::Require(false, ("audit failed:\n" + report.Format()).c_str());
  fuzz::host->ClearLastException();
  return 0;
}
