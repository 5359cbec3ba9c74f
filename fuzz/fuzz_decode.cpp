// The one-call openers on any bytes: "PNGStringToPNGPictureKRV" and "PNGStringToPictureKRV".
// Input: a byte of choices, a gamma, then the data.
#include "fuzz/FuzzHost.h"

namespace {

emu::Host* host = nullptr;

RBInteger PictureSide(const emu::Value& picture, const char* side) {
  return host->GetProperty(picture, side).AsInteger();
}

// A PNGPictureKRV holds a picture of its own size, and combining never fails once it has one.
void CheckPNGPicture(const emu::Value& result) {
  const emu::Value pict = host->GetProperty(result, "Pict");
  fuzz::Require(!pict.IsNil(), "a PNGPictureKRV without a picture");
  fuzz::Require(PictureSide(pict, "Width") == host->GetProperty(result, "Width").AsInteger() &&
                    PictureSide(pict, "Height") == host->GetProperty(result, "Height").AsInteger(),
                "a PNGPictureKRV whose size is not its picture's");
  fuzz::Require(!host->Call(result, "CombinePictureWithMask").IsNil(),
                "CombinePictureWithMask of a decoded picture is nil");
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  host = &fuzz::StartHost();
  return 0;
}

PNGKRV_CRC_MENDING_MUTATOR

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
  fuzz::Input input(bytes, size);
  const uint8_t choices = input.Byte();
  const float gamma = static_cast<float>(input.Gamma());
  const bool allowDamaged = (choices & 2) != 0;
  {
    const emu::Value data = host->MakeString(input.Rest(), kREALTextEncodingUnknown);
    if (choices & 1) {
      const emu::Value picture =
          host->CallGlobal("PNGStringToPictureKRV", {data, gamma, allowDamaged});
      fuzz::Require(picture.IsNil() || PictureSide(picture, "Width") >= 1,
                    "an empty decoded picture");
    } else {
      const emu::Value result =
          host->CallGlobal("PNGStringToPNGPictureKRV", {data, gamma, allowDamaged});
      if (!result.IsNil()) CheckPNGPicture(result);
    }
    fuzz::Require(!host->LastException(), "an opener raised an exception");
  }
  fuzz::CheckAudit();
  return 0;
}
