// "CgBIToPNGStringKRV": CgBI data from an iOS app into a standard PNG stream in one call.
#include <memory>

#include "convert/PNGPicture.h"
#include "host/Text.h"
#include "reader/CgBIConvert.h"

REALstring CgBIToPNGStringKRV(REALstring data) {
  const std::unique_ptr<rbText> input(rbText::MakeRaw(data));
  if (input == nullptr) return nullptr;
  const PNGBytes png = ConvertCgBIToPNG(input->Bytes(), static_cast<size_t>(input->Length()));
  if (png.bytes == nullptr) return nullptr;
  return REALBuildUnicodeString(png.bytes.get(), static_cast<int64_t>(png.size),
                                kREALTextEncodingUnknown);
}
