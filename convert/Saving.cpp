// One-call saving: a picture into PNG data or a file through a private writer record, which has
// no owner and no event hooks, so libpng's errors only turn into a false result.
#include "convert/PNGPicture.h"
#include "host/Exceptions.h"
#include "host/HostFacts.h"
#include "writer/PNGWriter.h"

namespace {

// A private writer record without owner or event hooks, compressing as the application chose.
bool InitSaver(PNGWriter& w) {
  if (!Init(w, nullptr, nullptr, nullptr)) return false;
  w.threads = gHost.saveThreads;
  return true;
}

// The rows are loaded: header, gamma, and the image to the destination.
bool WriteImage(PNGWriter& w, REALfolderItem file, float gamma, bool interlace, RBInteger filter) {
  return OpenWriteDestination(w, file) && SetHeader(w, interlace, filter, -1) &&
         SetGamma(w, gamma) && WriteInfo(w) && WriteRows(w) && WriteEnd(w);
}

// Encodes the rows that `load` gives a private writer: into `out` when it is given, else into
// `file`.
template <typename Load>
bool SaveRows(Load load, REALstring* out, REALfolderItem file, float gamma, bool interlace,
              RBInteger filter) {
  PNGWriter w;
  const bool saved = InitSaver(w) && load(w) && WriteImage(w, file, gamma, interlace, filter);
  if (saved && out) *out = Finish(w);
  Close(w);
  return saved;
}

bool WritePaletteImage(PNGWriter& w, REALfolderItem file, float gamma, bool interlace,
                       RBInteger filter, bool withAlphas) {
  return OpenWriteDestination(w, file) && SetHeader(w, interlace, filter, -1) &&
         (!withAlphas || SetAlphas(w)) && SetPalette(w) && SetGamma(w, gamma) && WriteInfo(w) &&
         WriteRows(w) && WriteEnd(w);
}

// Overloads without a mask argument save the picture's own mask, without creating one.
REALstring SaveWithOwnMaskToString(REALpicture pic, float gamma, bool interlace, RBInteger filter) {
  if (pic == nullptr) return nullptr;
  REALpicture mask = REALGetPictureMask(pic, false);
  REALstring out = nullptr;
  SavePNG7(pic, mask, &out, nullptr, gamma, interlace, filter);
  if (mask) UnlockHandle(mask);
  return out;
}

bool SaveWithOwnMaskToFile(REALfolderItem file, REALpicture pic, float gamma, bool interlace,
                           RBInteger filter) {
  if (pic == nullptr) return false;
  REALpicture mask = REALGetPictureMask(pic, false);
  const bool saved = SavePNG7(pic, mask, nullptr, file, gamma, interlace, filter);
  if (mask) UnlockHandle(mask);
  return saved;
}

REALstring SaveToString(REALpicture pic, REALpicture mask, float gamma, bool interlace,
                        RBInteger filter) {
  REALstring out = nullptr;
  SavePNG7(pic, mask, &out, nullptr, gamma, interlace, filter);
  return out;
}

}  // namespace

bool SavePNG7(REALpicture picture, REALpicture mask, REALstring* out, REALfolderItem file,
              float gamma, signed char interlace, RBInteger filter) {
  // A nil picture is a plain failure here, not the loader's exception; so is a nil folder item
  // where a file was asked for, which would otherwise encode into nowhere and report success.
  if (picture == nullptr || (out == nullptr && file == nullptr)) return false;
  return SaveRows([&](PNGWriter& w) { return LoadRGBPictureToRowPointers(w, picture, mask); }, out,
                  file, gamma, interlace, filter);
}

bool Save8BitPNG7(REALpicture picture, REALarray colors, REALstring*, REALfolderItem file,
                  float gamma, signed char interlace, RBInteger filter) {
  PNGWriter w;
  const bool saved = InitSaver(w) && SetPaletteData(w, colors) && picture && file &&
                     LoadPalettePictureToRowPointers(w, picture) &&
                     WritePaletteImage(w, file, gamma, interlace, filter, false);
  Close(w);
  return saved;
}

bool Save8BitPNGwithAlpha8(REALpicture picture, REALarray colors, REALarray alphas, REALstring*,
                           REALfolderItem file, float gamma, signed char interlace,
                           RBInteger filter) {
  PNGWriter w;
  const bool saved = InitSaver(w) && SetAlphaData(w, alphas, colors) && picture && file &&
                     LoadPalettePictureToRowPointers(w, picture) &&
                     WritePaletteImage(w, file, gamma, interlace, filter, true);
  Close(w);
  return saved;
}

bool SaveAlphaPNG(REALpicture picture, REALstring* out, REALfolderItem file, float gamma) {
  if (picture == nullptr || (out == nullptr && file == nullptr)) return false;
  return SaveRows([&](PNGWriter& w) { return LoadAlphaPictureToRowPointers(w, picture); }, out,
                  file, gamma, false, -1);
}

REALstring AlphaPictureToPNGStringKRV(REALpicture pic, float gamma) {
  REALstring out = nullptr;
  SaveAlphaPNG(pic, &out, nullptr, gamma);
  return out;
}

RBBoolean SaveAsAlphaPNGKRV(REALfolderItem file, REALpicture pic, float gamma) {
  return SaveAlphaPNG(pic, nullptr, file, gamma);
}

RBInteger GetSaveThreads() {
  return gHost.saveThreads;
}

void SetSaveThreads(RBInteger threads) {
  gHost.saveThreads = threads;
}

REALstring PictureToPNGStringKRV2(REALpicture pic, float gamma) {
  return SaveWithOwnMaskToString(pic, gamma, false, -1);
}

REALstring PictureToPNGStringKRV3(REALpicture pic, REALpicture mask, float gamma) {
  return SaveToString(pic, mask, gamma, false, -1);
}

REALstring PictureToPNGStringKRV4(REALpicture pic, float gamma, RBBoolean interlace,
                                  RBInteger filter) {
  return SaveWithOwnMaskToString(pic, gamma, interlace, filter);
}

REALstring PictureToPNGStringKRV5(REALpicture pic, REALpicture mask, float gamma,
                                  RBBoolean interlace, RBInteger filter) {
  return SaveToString(pic, mask, gamma, interlace, filter);
}

RBBoolean SaveAsPNGKRV3(REALfolderItem file, REALpicture pic, float gamma) {
  return SaveWithOwnMaskToFile(file, pic, gamma, false, -1);
}

RBBoolean SaveAsPNGKRV4(REALfolderItem file, REALpicture pic, REALpicture mask, float gamma) {
  return SavePNG7(pic, mask, nullptr, file, gamma, false, -1);
}

RBBoolean SaveAsPNGKRV5(REALfolderItem file, REALpicture pic, float gamma, RBBoolean interlace,
                        RBInteger filter) {
  return SaveWithOwnMaskToFile(file, pic, gamma, interlace, filter);
}

RBBoolean SaveAsPNGKRV6(REALfolderItem file, REALpicture pic, REALpicture mask, float gamma,
                        RBBoolean interlace, RBInteger filter) {
  return SavePNG7(pic, mask, nullptr, file, gamma, interlace, filter);
}

RBBoolean SaveAs8BitPNGKRV4(REALfolderItem file, REALpicture pic, REALarray colors, float gamma) {
  return Save8BitPNG7(pic, colors, nullptr, file, gamma, false, -1);
}

RBBoolean SaveAs8BitPNGKRV6(REALfolderItem file, REALpicture pic, REALarray colors, float gamma,
                            RBBoolean interlace, RBInteger filter) {
  return Save8BitPNG7(pic, colors, nullptr, file, gamma, interlace, filter);
}

RBBoolean SaveAs8BitPNGwithAlphaKRV5(REALfolderItem file, REALpicture pic, REALarray colors,
                                     REALarray alphas, float gamma) {
  return Save8BitPNGwithAlpha8(pic, colors, alphas, nullptr, file, gamma, false, -1);
}

RBBoolean SaveAs8BitPNGwithAlphaKRV7(REALfolderItem file, REALpicture pic, REALarray colors,
                                     REALarray alphas, float gamma, RBBoolean interlace,
                                     RBInteger filter) {
  return Save8BitPNGwithAlpha8(pic, colors, alphas, nullptr, file, gamma, interlace, filter);
}
