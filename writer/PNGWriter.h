// The writer record: libpng's write state of one PNG stream with its destination (a file or a
// growable byte buffer), the header values and palette of the image, the rows to encode and the
// hooks that carry libpng's errors and warnings to user code.
#pragma once

#include <png.h>
#include <setjmp.h>
#include <stdio.h>

#include <vector>

#include "host/HostRuntime.h"

// The memory destination: the bytes libpng wrote, in order.
using ByteBuffer = std::vector<unsigned char>;

// Instance data of PNGWriterKRV; the one-call savers build one of their own without an owner.
struct PNGWriter {
  // Header values; these five back the class's Integer properties.
  RBInteger height;
  RBInteger width;
  RBInteger bpc;
  RBInteger type;
  RBInteger rowBytes;
  RBBoolean paletteSet;
  int32_t paletteCount;
  RBColor palette[256];  // 0x00RRGGBB
  RBBoolean alphasSet;
  int32_t alphaCount;
  uint8_t alphas[256];  // 255 is opaque
  png_structp pngPtr;
  png_infop infoPtr;
  jmp_buf* jumpBuffer;
  FILE* file;
  ByteBuffer* dataBuffer;
  int32_t rowCount;
  png_bytep* rowPointers;  // rows owned by the record unless rowsArray is set
  StringEventProc errorEvent;
  StringEventProc warningEvent;
  REALobject owner;     // not locked: the record lives inside it
  REALarray rowsArray;  // locked while rowPointers point into its memory blocks
  // Bytes every loaded row holds (-1: the host cannot tell), so that no header set after loading
  // makes libpng read past the end of a row.
  int64_t rowCapacity;
  // libpng failed while writing image rows: its row state is broken, and writing rows again would
  // set it up anew over the old one.
  RBBoolean rowsFailed;
  RBBoolean headerRefused;  // libpng refused the last header, yet keeps its values
  RBBoolean headerFixed;    // WriteInfo handed libpng a header: it may be in the stream
  // WriteInfo succeeded: libpng would write every chunk after the header a second time.
  RBBoolean infoWritten;
};

// The libpng states and the jump buffer exist (Init succeeded and Close has not run).
inline bool HasHandles(const PNGWriter& w) {
  return w.pngPtr && w.infoPtr && w.jumpBuffer;
}

// True, after raising NilObjectException with `message`, when `object` is nil.
bool RaiseIfNil(const void* object, const char* message);

// The record's life and destinations.
bool Init(PNGWriter& w, REALobject owner, StringEventProc errorEvent, StringEventProc warningEvent);
void Close(PNGWriter& w);
bool OpenWriteDestination(PNGWriter& w, REALfolderItem file);
REALstring Finish(PNGWriter& w);
void CloseDestination(PNGWriter& w);

// The writing sequence.
bool WriteInfo(PNGWriter& w);
bool WriteRows(PNGWriter& w);
void WriteRow(PNGWriter& w, const void* row, int64_t size);
bool WriteEnd(PNGWriter& w);

// Header and ancillary chunks.
bool SetHeader(PNGWriter& w, bool interlace, RBInteger filter, RBInteger compression);
bool SetResolution(PNGWriter& w, RBInteger horizontal, RBInteger vertical, RBInteger unit);
bool SetsRGB(PNGWriter& w, RBInteger intent);
bool SetICCProfile(PNGWriter& w, REALstring name, RBInteger compressionType, REALstring profile);
bool SetGamma(PNGWriter& w, double gamma);
bool SetPaletteData(PNGWriter& w, REALarray colors);
bool SetAlphaData(PNGWriter& w, REALarray alphas, REALarray colors);
bool SetPalette(PNGWriter& w);
bool SetAlphas(PNGWriter& w);

// Rows from pictures and memory blocks.
bool LoadRGBPictureToRowPointers(PNGWriter& w, REALpicture pict, REALpicture mask);
bool LoadGrayPictureToRowPointers(PNGWriter& w, REALpicture pict, REALpicture mask);
bool LoadPalettePictureToRowPointers(PNGWriter& w, REALpicture pict);
bool LoadRows(PNGWriter& w, REALarray rows);
// Straight RGBA rows of a picture with an alpha channel; opaque RGB rows of any other picture.
bool LoadAlphaPictureToRowPointers(PNGWriter& w, REALpicture pict);
void ReleaseRows(PNGWriter& w);

// libpng callbacks.
void WriteFunction(png_structp png, png_bytep data, png_size_t length);
void FlushFunction(png_structp png);
void user_error_fn_writer(png_structp png, png_const_charp message);
void user_warning_fn_writer(png_structp png, png_const_charp message);

// Class handlers of PNGWriterKRV.
void PNGWriterConstructor(REALobject instance);
void PNGWriterDestructor(REALobject instance);
RBBoolean rbOpenWriteDestination(REALobject instance, REALfolderItem file);
RBBoolean rbWriteInfo(REALobject instance);
RBBoolean rbWriteRows(REALobject instance);
void rbWriteRow(REALobject instance, REALmemoryBlock row);
RBBoolean rbWriteEnd(REALobject instance);
REALstring rbFinish(REALobject instance);
void rbCloseDestination(REALobject instance);
RBBoolean rbSetHeader(REALobject instance, RBBoolean interlace, RBInteger filter,
                      RBInteger compression);
RBBoolean rbSetResolution(REALobject instance, RBInteger horizontal, RBInteger vertical,
                          RBInteger unit);
RBBoolean rbSetsRGB(REALobject instance, RBInteger intent);
RBBoolean rbSetICCProfile(REALobject instance, REALstring name, RBInteger compressionType,
                          REALstring profile);
RBBoolean rbSetGamma(REALobject instance, double gamma);
RBBoolean rbSetPaletteData(REALobject instance, REALarray colors);
RBBoolean rbSetAlphaData(REALobject instance, REALarray alphas, REALarray colors);
RBBoolean rbSetPalette(REALobject instance);
RBBoolean rbSetAlphas(REALobject instance);
RBBoolean rbLoadRGBPicture(REALobject instance, REALpicture pict, REALpicture mask);
RBBoolean rbLoadGrayPicture(REALobject instance, REALpicture pict, REALpicture mask);
RBBoolean rbLoadPalettePicture(REALobject instance, REALpicture pict);
RBBoolean rbLoadRows(REALobject instance, REALarray rows);
RBBoolean rbLoadAlphaPicture(REALobject instance, REALpicture pict);
