// The one-call openers "PNGStringToPNGPictureKRV" and "PNGStringToPictureKRV" on any bytes.
// Input: a byte of choices, a gamma, then the data.
#include "fuzz/FuzzHost.h"

void fuzz::Run(Input& input) {
  const uint8_t choices = input.Byte();
  const float gamma = static_cast<float>(input.Gamma());
  const bool allowDamaged = (choices & 2) != 0;
  const emu::Value data = host->MakeString(input.Rest(), kREALTextEncodingUnknown);
  if (choices & 1) {
    const emu::Value picture =
        host->CallGlobal("PNGStringToPictureKRV", {data, gamma, allowDamaged});
    Require(picture.IsNil() || IntProperty(picture, "Width") >= 1, "an empty decoded picture");
  } else {
    const emu::Value result =
        host->CallGlobal("PNGStringToPNGPictureKRV", {data, gamma, allowDamaged});
    // A PNGPictureKRV holds a picture of its own size, and combining never fails once it has one.
    Require(result.IsNil() || (!CheckedPict(result).IsNil() &&
                               !host->Call(result, "CombinePictureWithMask").IsNil()),
            "a PNGPictureKRV without a picture, or one that does not combine with its mask");
  }
  Require(!host->LastException(), "an opener raised an exception");
}
