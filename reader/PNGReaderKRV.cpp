// The class handlers of PNGReaderKRV: each finds the instance's record and calls the core
// operation.
#include "host/Text.h"
#include "picture/PictureEditor.h"
#include "plugin/Tables.h"
#include "reader/PNGReader.h"

namespace {

PNGReaderData* Data(REALobject instance) {
  return InstanceData<PNGReaderData>(instance, PNGReaderKRVClass);
}

void ClearSources(PNGReaderData& d) {
  if (d.sourceData) REALUnlockString(d.sourceData);
  d.sourceData = nullptr;
  if (d.sourceFile) UnlockHandle(d.sourceFile);
  d.sourceFile = nullptr;
}

void KeepFile(PNGReaderData& d, REALfolderItem file) {
  if (file == nullptr) return;
  LockHandle(file);
  d.sourceFile = file;
}

void KeepData(PNGReaderData& d, REALstring data) {
  if (data == nullptr) return;
  REALLockString(data);
  d.sourceData = data;
}

StringEventProc EventHook(REALobject instance, int index) {
  return reinterpret_cast<StringEventProc>(EventHandlerFor(instance, &PNGReaderKRVEvents[index]));
}

}  // namespace

void PNGReaderConstructor(REALobject instance) {
  PNGReaderData* d = Data(instance);
  if (d == nullptr) return;
  StringEventProc errorHook = EventHook(instance, 0);
  StringEventProc warningHook = EventHook(instance, 1);
  // A record whose Init failed keeps null handles, and every later operation on it fails.
  Init(d->reader, instance, errorHook, warningHook);
}

void PNGReaderDestructor(REALobject instance) {
  PNGReaderData* d = Data(instance);
  if (d == nullptr) return;
  Finish(d->reader);
  ClearSources(*d);
}

RBBoolean rbOpenReadFile(REALobject instance, REALfolderItem file) {
  PNGReaderData* d = Data(instance);
  if (d == nullptr) return false;
  ClearSources(*d);
  KeepFile(*d, file);
  return OpenReadFile(d->reader, file);
}

RBBoolean rbOpenReadString(REALobject instance, REALstring data) {
  PNGReaderData* d = Data(instance);
  if (d == nullptr) return false;
  ClearSources(*d);
  KeepData(*d, data);
  return OpenReadString(d->reader, data);
}

// The data wins over the file; the file is the fallback when the data is nil, too short or fails.
RBBoolean rbOpenRead(REALobject instance, REALfolderItem file, REALstring data) {
  PNGReaderData* d = Data(instance);
  if (d == nullptr) return false;
  ClearSources(*d);
  KeepFile(*d, file);
  KeepData(*d, data);
  if (data && OpenReadString(d->reader, data)) return true;
  return file ? OpenReadFile(d->reader, file) : false;
}

RBBoolean rbApplyOptions(REALobject instance, double gamma, double screenGamma) {
  PNGReaderData* d = Data(instance);
  return d ? ApplyOptions(d->reader, gamma, screenGamma) : false;
}

RBInteger rbGetRowBytes(REALobject instance) {
  PNGReaderData* d = Data(instance);
  return d ? GetRowBytes(d->reader) : 0;
}

REALmemoryBlock rbReadRow(REALobject instance) {
  PNGReaderData* d = Data(instance);
  return d ? ReadRow(d->reader) : nullptr;
}

RBBoolean rbReadRowMem(REALobject instance, REALmemoryBlock mem) {
  PNGReaderData* d = Data(instance);
  return d && mem ? ReadRow(d->reader, mem) : false;
}

RBBoolean rbReadRowMaskOnly(REALobject instance, REALmemoryBlock mem) {
  PNGReaderData* d = Data(instance);
  return d && mem ? ReadRowMaskOnly(d->reader, mem) : false;
}

RBBoolean rbReadRowAlphaOnly(REALobject instance, REALmemoryBlock mem) {
  PNGReaderData* d = Data(instance);
  return d && mem ? ReadRowAlphaOnly(d->reader, mem) : false;
}

RBBoolean rbReadICCProfile(REALobject instance, REALstring* name, RBInteger* compression,
                           REALstring* profile) {
  PNGReaderData* d = Data(instance);
  if (d == nullptr || name == nullptr || compression == nullptr || profile == nullptr) {
    return false;
  }
  return ReadICCProfile(d->reader, *name, *compression, *profile);
}

RBBoolean rbReadsRGBTag(REALobject instance, RBInteger* intent) {
  PNGReaderData* d = Data(instance);
  if (d == nullptr || intent == nullptr) return false;
  return ReadsRGBTag(d->reader, *intent);
}

RBInteger rbTextCount(REALobject instance) {
  PNGReaderData* d = Data(instance);
  return d ? TextCount(d->reader) : 0;
}

REALstring rbTextKey(REALobject instance, RBInteger index) {
  PNGReaderData* d = Data(instance);
  return d ? TextKey(d->reader, index) : nullptr;
}

REALstring rbTextValue(REALobject instance, RBInteger index) {
  PNGReaderData* d = Data(instance);
  return d ? TextValue(d->reader, index) : nullptr;
}

RBBoolean rbReadPicture(REALobject instance) {
  PNGReaderData* d = Data(instance);
  return d ? ReadPicture(d->reader) : false;
}

RBBoolean rbReadAlphaPicture(REALobject instance) {
  PNGReaderData* d = Data(instance);
  return d ? ReadAlphaPicture(d->reader) : false;
}

REALpicture rbCombinePictureWithMask(REALobject instance) {
  PNGReaderData* d = Data(instance);
  if (d == nullptr) return nullptr;
  const PNGReader& r = d->reader;
  return CreatePictureWithMask(r.pict, r.mask, false, r.width, r.height);
}

RBBoolean GetAllowDamaged(REALobject instance, RBInteger) {
  PNGReaderData* d = Data(instance);
  return d ? d->reader.allowDamaged : false;
}

void SetAllowDamaged(REALobject instance, RBInteger, RBBoolean value) {
  PNGReaderData* d = Data(instance);
  if (d) d->reader.allowDamaged = value;
}

REALstring GetPNGVersion() {
  return BuildASCIIString(png_get_libpng_ver(nullptr));
}
