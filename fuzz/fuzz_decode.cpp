// The one-call openers "PNGStringToPNGPictureKRV" and "PNGStringToPictureKRV" on any bytes.
// Input: a byte of choices, a gamma, then the data.
#include "fuzz/FuzzHost.h"

void fuzz::Run(Input input) {
  const uint8_t choices = input.Byte();
  const float gamma = static_cast<float>(input.Gamma());
  const emu::Value data = host->MakeString(input.Rest(), kREALTextEncodingUnknown);
  const char* opener = choices & 1 ? "PNGStringToPictureKRV" : "PNGStringToPNGPictureKRV";
  const emu::Value result = host->CallGlobal(opener, {data, gamma, (choices & 2) != 0});
  Require(!host->LastException(), "an opener raised an exception");
  if (choices & 1)
    return Require(result.IsNil() || IntProperty(result, "Width") >= 1, "an empty picture");
  // A PNGPictureKRV holds a picture of its own size, and combining never fails once it has one.
  Require(result.IsNil() || (!CheckedPict(result).IsNil() &&
                             !host->Call(result, "CombinePictureWithMask").IsNil()),
          "a PNGPictureKRV without a picture, or one that does not combine with its mask");
}
