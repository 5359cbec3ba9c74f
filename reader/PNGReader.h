// The reader record: libpng's read state of one PNG stream with its source (a file or the bytes
// of a host string), the header values read from it, the pictures a picture decode produced and
// the hooks that carry libpng's errors and warnings to user code.
#pragma once

#include <png.h>
#include <setjmp.h>
#include <stdio.h>

#include "host/HostRuntime.h"

class rbText;

// The memory source that libpng reads through ReadFunction.
struct MemorySource {
  int32_t length;
  int32_t position;
  const unsigned char* data;
};

struct PNGReader {
  // Header values; the first six back the class's Integer properties.
  RBInteger interlaceType;
  RBInteger colorType;
  RBInteger bitDepth;
  RBInteger passes;
  RBInteger height;
  RBInteger width;
  png_structp png;
  png_infop info;
  jmp_buf* jump;
  FILE* file;
  rbText* sourceText;
  REALstring sourceString;  // locked
  REALpicture mask;         // locked
  REALpicture pict;         // locked
  RBBoolean swapRB;
  RBBoolean allowDamaged;
  StringEventProc errorHook;
  StringEventProc warningHook;
  REALobject owner;  // not locked: the record lives inside it
  MemorySource memory;
  // ApplyOptions succeeded: libpng's rows are the ones RowBytes reports. Before, or after it
  // failed midway, libpng may deliver rows of another size.
  RBBoolean setUp;
  // ApplyOptions left its last requests and libpng's row start to the first read: a row read
  // asks libpng for the RGBA rows RowBytes reports, a picture decode for rows it can use best.
  RBBoolean rowsPending;
  // libpng delivers one palette index a pixel (a picture decode chose them).
  RBBoolean indexRows;
};

// Instance data of PNGReaderKRV.
struct PNGReaderData {
  REALstring sourceData;      // locked
  REALfolderItem sourceFile;  // locked
  PNGReader reader;
};

// The libpng states and the jump buffer exist (Init succeeded and Finish has not run).
inline bool HasHandles(const PNGReader& r) {
  return r.png && r.info && r.jump;
}

// A file or memory source is installed. Without one, libpng would read through a null stream.
inline bool HasSource(const PNGReader& r) {
  return r.file || r.sourceText;
}

// Core operations.
bool Init(PNGReader& r, REALobject owner, StringEventProc errorHook, StringEventProc warningHook);
bool OpenReadFile(PNGReader& r, REALfolderItem file);
bool OpenReadString(PNGReader& r, REALstring data);
void Finish(PNGReader& r);
bool ApplyOptions(PNGReader& r, double gamma, double screenGamma);
RBInteger GetRowBytes(PNGReader& r);
// Ends a pending set-up (see rowsPending) with the rows libpng is to deliver: the RGBA rows
// RowBytes reports; for an image without alpha, its red, green and blue alone, or with the byte
// `filler` before or after them (blue first with `bgr`); for a palette image, its indices
// (libpng's palette then gamma corrected). Each calls libpng and needs a jump point.
void StartRGBARows(PNGReader& r);
void StartRGBRows(PNGReader& r);
void StartIndexRows(PNGReader& r);
void StartFilledRows(PNGReader& r, bool bgr, unsigned char filler, bool fillerFirst);
bool ReadsRGBTag(PNGReader& r, RBInteger& intent);
bool ReadICCProfile(PNGReader& r, REALstring& name, RBInteger& compression, REALstring& profile);
REALmemoryBlock ReadRow(PNGReader& r);
bool ReadRow(PNGReader& r, REALmemoryBlock block);
bool ReadRowMaskOnly(PNGReader& r, REALmemoryBlock block);
bool ReadRowAlphaOnly(PNGReader& r, REALmemoryBlock block);

// Whole-image decoders into the record's Pict (and Mask for an image with alpha); each returns
// whether Pict is set. ReadPicture chooses by the colour type and passes that set-up left.
bool ReadRGBbyRow(PNGReader& r);
bool ReadRGBbyBlock(PNGReader& r);
bool ReadRGBAbyRow(PNGReader& r);
bool ReadRGBAbyBlock(PNGReader& r);
bool ReadPicture(PNGReader& r);
// The whole image into one picture with an alpha channel (Pict; Mask nil): colour and alpha as
// the host keeps them in such a picture. Hosts without such pictures get an Error event.
bool ReadAlphaPicture(PNGReader& r);

// libpng callbacks.
void ReadFunction(png_structp png, png_bytep buffer, png_size_t length);
void user_error_fn_reader(png_structp png, png_const_charp message);
void user_warning_fn_reader(png_structp png, png_const_charp message);

// A folder item to an open C file; `unused` and `wideMode` are accepted and not used.
FILE* OpenCFILE(REALfolderItem file, int unused, const char* mode, const wchar_t* wideMode);

// Class handlers of PNGReaderKRV.
void PNGReaderConstructor(REALobject instance);
void PNGReaderDestructor(REALobject instance);
RBBoolean rbOpenReadFile(REALobject instance, REALfolderItem file);
RBBoolean rbOpenReadString(REALobject instance, REALstring data);
RBBoolean rbOpenRead(REALobject instance, REALfolderItem file, REALstring data);
RBBoolean rbApplyOptions(REALobject instance, double gamma, double screenGamma);
RBInteger rbGetRowBytes(REALobject instance);
REALmemoryBlock rbReadRow(REALobject instance);
RBBoolean rbReadRowMem(REALobject instance, REALmemoryBlock mem);
RBBoolean rbReadRowMaskOnly(REALobject instance, REALmemoryBlock mem);
RBBoolean rbReadRowAlphaOnly(REALobject instance, REALmemoryBlock mem);
RBBoolean rbReadICCProfile(REALobject instance, REALstring* name, RBInteger* compression,
                           REALstring* profile);
RBBoolean rbReadsRGBTag(REALobject instance, RBInteger* intent);
RBBoolean rbReadPicture(REALobject instance);
RBBoolean rbReadAlphaPicture(REALobject instance);
RBBoolean rbOpenSpecialData(REALobject instance, REALstring data);
REALpicture rbCombinePictureWithMask(REALobject instance);
RBBoolean GetAllowDamaged(REALobject instance, RBInteger param);
void SetAllowDamaged(REALobject instance, RBInteger param, RBBoolean value);

// Shared method "PNGLibVersion as string" of every class.
REALstring GetPNGVersion();
