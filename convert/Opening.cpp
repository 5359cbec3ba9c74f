// PNGPictureKRV and the one-call openers.
#include "convert/PNGPicture.h"
#include "host/Exceptions.h"
#include "host/HostFacts.h"
#include "picture/PictureEditor.h"
#include "plugin/Tables.h"
#include "reader/PNGReader.h"

namespace {

void Drop(REALpicture& picture) {
  if (picture) UnlockHandle(picture);
  picture = nullptr;
}

// A private reader with the application's limit, open on the string or, failing that, the file.
bool OpenSource(PNGReader& reader, REALfolderItem file, REALstring data) {
  if (!Init(reader, nullptr, nullptr, nullptr)) return false;
  reader.pixelLimit = gHost.openPixelLimit;
  if (data && OpenReadString(reader, data)) return true;
  return file && OpenReadFile(reader, file);
}

// The decoded pictures pass from the reader to the record, with their references.
void TakePictures(PNGReader& reader, PNGPictureData& record) {
  Drop(record.mask);
  Drop(record.pict);
  record.mask = reader.mask;
  record.pict = reader.pict;
  reader.mask = nullptr;
  reader.pict = nullptr;
  record.width = reader.width;
  record.height = reader.height;
}

// A new PNGPictureKRV holding the decode of the file or string, or nil.
REALobject NewPNGPicture(REALfolderItem file, REALstring data, float gamma) {
  REALobject object = REALnewInstance("PNGPictureKRV");
  PNGPictureData* record = InstanceData<PNGPictureData>(object, PNGPictureKRVClass);
  if (record && OpenPNG(*record, file, data, gamma, true)) return object;
  if (object) REALUnlockObject(object);
  return nullptr;
}

}  // namespace

bool OpenPNG(PNGPictureData& record, REALfolderItem file, REALstring data, float gamma,
             signed char) {
  PNGReader reader;
  const bool open = OpenSource(reader, file, data);
  reader.allowDamaged = true;
  if (open && ApplyOptions(reader, gamma, -1.0) && ReadPicture(reader)) {
    TakePictures(reader, record);
  }
  Finish(reader);
  return record.pict != nullptr;
}

RBInteger GetOpenPixelLimit() {
  return gHost.openPixelLimit;
}

void SetOpenPixelLimit(RBInteger pixels) {
  gHost.openPixelLimit = pixels;
}

void PNGPictureDestructor(REALobject instance) {
  PNGPictureData* record = InstanceData<PNGPictureData>(instance, PNGPictureKRVClass);
  if (record == nullptr) return;
  Drop(record->mask);
  Drop(record->pict);
}

REALpicture CombinePictureWithMask(REALobject instance) {
  PNGPictureData* record = InstanceData<PNGPictureData>(instance, PNGPictureKRVClass);
  if (record == nullptr) return nullptr;
  return CreatePictureWithMask(record->pict, record->mask, false, record->width, record->height);
}

REALobject PNGStringToPNGPictureKRV(REALstring data, float gamma, RBBoolean) {
  return NewPNGPicture(nullptr, data, gamma);
}

REALobject OpenAsPNGKRV(REALfolderItem file, float gamma, RBBoolean) {
  return NewPNGPicture(file, nullptr, gamma);
}

REALpicture OpenAlphaPNG(REALfolderItem file, REALstring data) {
  if (!HostHasAlphaPictures()) {
    RaiseException("RuntimeException", kNoAlphaPictures, kREALTextEncodingUTF8, 0);
    return nullptr;
  }
  PNGReader reader;
  REALpicture result = nullptr;
  // A negative gamma turns gamma correction off: the picture holds the file's own samples.
  if (OpenSource(reader, file, data) && ApplyOptions(reader, -1.0, -1.0) &&
      ReadAlphaPicture(reader)) {
    result = reader.pict;
    reader.pict = nullptr;
  }
  Finish(reader);
  return result;
}

REALpicture PNGStringToAlphaPictureKRV(REALstring data) {
  return OpenAlphaPNG(nullptr, data);
}

REALpicture OpenAsAlphaPNGKRV(REALfolderItem file) {
  return OpenAlphaPNG(file, nullptr);
}

REALpicture PNGStringToPictureKRV(REALstring data, float gamma, RBBoolean) {
  PNGPictureData record = {};
  REALpicture result = nullptr;
  if (OpenPNG(record, nullptr, data, gamma, true)) {
    result = CreatePictureWithMask(record.pict, record.mask, false, record.width, record.height);
  }
  Drop(record.mask);
  Drop(record.pict);
  return result;
}
