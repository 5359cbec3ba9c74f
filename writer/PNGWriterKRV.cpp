// The class handlers of PNGWriterKRV: each finds the instance's record and calls the core
// operation.
#include "plugin/Tables.h"
#include "writer/PNGWriter.h"

namespace {

PNGWriter* Data(REALobject instance) {
  return InstanceData<PNGWriter>(instance, PNGWriterKRVClass);
}

StringEventProc EventHook(REALobject instance, int index) {
  return reinterpret_cast<StringEventProc>(EventHandlerFor(instance, &PNGWriterKRVEvents[index]));
}

}  // namespace

void PNGWriterConstructor(REALobject instance) {
  PNGWriter* w = Data(instance);
  if (w == nullptr) return;
  StringEventProc errorEvent = EventHook(instance, 0);
  StringEventProc warningEvent = EventHook(instance, 1);
  // A record whose Init failed keeps null handles, and every later libpng call on it fails.
  Init(*w, instance, errorEvent, warningEvent);
}

void PNGWriterDestructor(REALobject instance) {
  PNGWriter* w = Data(instance);
  if (w) Close(*w);
}

RBBoolean rbOpenWriteDestination(REALobject instance, REALfolderItem file) {
  PNGWriter* w = Data(instance);
  return w ? OpenWriteDestination(*w, file) : false;
}

RBBoolean rbWriteInfo(REALobject instance) {
  PNGWriter* w = Data(instance);
  return w ? WriteInfo(*w) : false;
}

RBBoolean rbWriteRows(REALobject instance) {
  PNGWriter* w = Data(instance);
  return w ? WriteRows(*w) : false;
}

void rbWriteRow(REALobject instance, REALmemoryBlock row) {
  PNGWriter* w = Data(instance);
  if (w == nullptr || RaiseIfNil(row, "memoryblock is nil")) return;
  WriteRow(*w, REALMemoryBlockGetPtr(row), REALMemoryBlockGetSize(row));
}

RBBoolean rbWriteEnd(REALobject instance) {
  PNGWriter* w = Data(instance);
  return w ? WriteEnd(*w) : false;
}

REALstring rbFinish(REALobject instance) {
  PNGWriter* w = Data(instance);
  return w ? Finish(*w) : nullptr;
}

void rbCloseDestination(REALobject instance) {
  PNGWriter* w = Data(instance);
  if (w) CloseDestination(*w);
}

RBBoolean rbSetHeader(REALobject instance, RBBoolean interlace, RBInteger filter,
                      RBInteger compression) {
  PNGWriter* w = Data(instance);
  return w ? SetHeader(*w, interlace != 0, filter, compression) : false;
}

RBBoolean rbSetResolution(REALobject instance, RBInteger horizontal, RBInteger vertical,
                          RBInteger unit) {
  PNGWriter* w = Data(instance);
  return w ? SetResolution(*w, horizontal, vertical, unit) : false;
}

RBBoolean rbSetsRGB(REALobject instance, RBInteger intent) {
  PNGWriter* w = Data(instance);
  return w ? SetsRGB(*w, intent) : false;
}

RBBoolean rbSetICCProfile(REALobject instance, REALstring name, RBInteger compressionType,
                          REALstring profile) {
  PNGWriter* w = Data(instance);
  return w ? SetICCProfile(*w, name, compressionType, profile) : false;
}

RBBoolean rbSetGamma(REALobject instance, double gamma) {
  PNGWriter* w = Data(instance);
  return w ? SetGamma(*w, gamma) : false;
}

RBBoolean rbSetPaletteData(REALobject instance, REALarray colors) {
  PNGWriter* w = Data(instance);
  return w ? SetPaletteData(*w, colors) : false;
}

RBBoolean rbSetAlphaData(REALobject instance, REALarray alphas, REALarray colors) {
  PNGWriter* w = Data(instance);
  return w ? SetAlphaData(*w, alphas, colors) : false;
}

RBBoolean rbSetPalette(REALobject instance) {
  PNGWriter* w = Data(instance);
  return w ? SetPalette(*w) : false;
}

RBBoolean rbSetAlphas(REALobject instance) {
  PNGWriter* w = Data(instance);
  return w ? SetAlphas(*w) : false;
}

RBBoolean rbAddText(REALobject instance, REALstring key, REALstring value, RBBoolean compressed) {
  PNGWriter* w = Data(instance);
  return w ? AddText(*w, key, value, compressed != 0) : false;
}

// The loaders live with the rows; the state's one word on them (none after Finish) is said here.
RBBoolean rbLoadRGBPicture(REALobject instance, REALpicture pict, REALpicture mask) {
  PNGWriter* w = Data(instance);
  return w && Admit(*w, WriterCall::kStore) && LoadRGBPictureToRowPointers(*w, pict, mask);
}

RBBoolean rbLoadGrayPicture(REALobject instance, REALpicture pict, REALpicture mask) {
  PNGWriter* w = Data(instance);
  return w && Admit(*w, WriterCall::kStore) && LoadGrayPictureToRowPointers(*w, pict, mask);
}

RBBoolean rbLoadPalettePicture(REALobject instance, REALpicture pict) {
  PNGWriter* w = Data(instance);
  return w && Admit(*w, WriterCall::kStore) && LoadPalettePictureToRowPointers(*w, pict);
}

RBBoolean rbLoadAlphaPicture(REALobject instance, REALpicture pict) {
  PNGWriter* w = Data(instance);
  return w && Admit(*w, WriterCall::kStore) && LoadAlphaPictureToRowPointers(*w, pict);
}

RBBoolean rbLoadRows(REALobject instance, REALarray rows) {
  PNGWriter* w = Data(instance);
  return w && Admit(*w, WriterCall::kStore) && LoadRows(*w, rows);
}
