// The reader record: libpng's read state of one PNG stream with its source (a file or the bytes
// of a host string), the header values read from it, the pictures a picture decode produced and
// the hooks that carry libpng's errors and warnings to user code.
#pragma once

#include <png.h>
#include <setjmp.h>
#include <stdio.h>

#include "host/Events.h"
#include "host/HostRuntime.h"

class rbText;

// The memory source that libpng reads through ReadFunction.
struct MemorySource {
  int32_t length;
  int32_t position;
  const unsigned char* data;
};

// Where the reader stands. Every public operation checks the state first: a call out of order
// is refused with a message through the Error event and the operation's failure result (False,
// 0 or Nil), or silently where there is nothing to read from yet. ApplyOptions is the one way
// back to the start of the image: on a reader that has begun reading it makes libpng's read
// state anew and reads the source again from its first byte.
//
//   State        | Reached by                        | Accepts (moves to)
//   -------------+-----------------------------------+-------------------------------------------
//   Unusable     | Init failed, Finish, or libpng's  | nothing: False, 0 or Nil, no event
//                | state could not be made anew      |
//   NoSource     | Init, an opener that failed       | an opener (Opened); the chunk queries
//   Opened       | an opener                         | an opener; ApplyOptions (SetUp, or
//                |                                   | NotSetUp when libpng fails); the queries
//   NotSetUp     | ApplyOptions failed               | as Opened; row reads are refused
//   SetUp        | ApplyOptions                      | as Opened; RowBytes; the text queries; a row
//                |                                   | read (ReadingRows, LastRowRead, Failed); a
//                |                                   | picture decode (DecodedWhole, Decoded)
//   ReadingRows  | a row read                        | as SetUp, but a picture decode is refused
//   LastRowRead  | the row read of the image's last  | as ReadingRows; a text query reads the end
//                | row (of its last pass)            | of the stream first (EndRead)
//   Decoded      | a picture decode that failed      | as Opened; RowBytes; the text queries; row
//                | after libpng handed out rows      | reads and picture decodes are refused
//   DecodedWhole | a picture decode that read every  | as Decoded; a text query reads the end of
//                | row                               | the stream first (EndRead)
//   Failed       | libpng failed during a row read   | as Decoded
//   EndRead      | a text query after the last row   | as Decoded
//
// A picture decode that fails before libpng hands out a row (no picture of that size, no memory
// for its buffer) leaves the reader SetUp. RowBytes is Width x 4 from SetUp on, 0 before. The
// decoders never read the end of the stream themselves, so a damaged end costs them nothing: only
// the text chunks after the image data need it, and the text queries read it once, when asked.
// Until then, and in the states that did not read every row, they give the text chunks before
// the image data.
enum class ReaderState : int32_t {
  kUnusable = 0,  // the zeroed record
  kNoSource,
  kOpened,
  kNotSetUp,
  kSetUp,
  kReadingRows,
  kDecoded,
  kFailed,
  kLastRowRead,
  kDecodedWhole,
  kEndRead,
};

// The kinds of call the state table tells apart.
enum class ReaderCall : int32_t {
  kOpen,
  kApplyOptions,
  kReadRow,
  kReadPicture,  // ReadPicture, ReadAlphaPicture
  kQuery,        // ReadsRGBTag, ReadICCProfile
  kText,         // TextCount, TextKey, TextValue
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
  ReaderState state;
  // Backs PixelLimit: ReadPicture refuses an image of more pixels (Width x Height) before it
  // allocates anything for it; 0 or below sets no limit.
  RBInteger pixelLimit;
  // An allocation of libpng's failed in the call in progress: its error is then no sign of
  // damaged data, and no partial picture is kept for it.
  RBBoolean memoryFailed;
  // libpng's errors and warnings of the call in progress, raised as events once it has returned.
  EventQueue events;
};

// Instance data of PNGReaderKRV.
struct PNGReaderData {
  REALstring sourceData;      // locked
  REALfolderItem sourceFile;  // locked
  PNGReader reader;
};

// True when `call` may run in the reader's state; otherwise queues the refusal's message, if it
// has one, and returns false.
bool Admit(PNGReader& r, ReaderCall call);

// Raises the events queued during an operation, once the record is settled, and returns
// `result`. Handlers may call back into the reader, so the caller must not touch the record
// afterwards.
template <typename Result>
Result Report(PNGReader& r, Result result) {
  RaiseQueued(r.events, {r.errorHook, r.warningHook, r.owner});
  return result;
}

// Makes libpng's read state anew (the old one may have read any part of the stream) and hands
// it the source from its first byte. False, with the reader Unusable or without a source, when
// that can't be done.
bool StartOver(PNGReader& r);

// Core operations.
bool Init(PNGReader& r, REALobject owner, StringEventProc errorHook, StringEventProc warningHook);
bool OpenReadFile(PNGReader& r, REALfolderItem file);
bool OpenReadString(PNGReader& r, REALstring data);
void Finish(PNGReader& r);
bool ApplyOptions(PNGReader& r, double gamma, double screenGamma);
RBInteger GetRowBytes(PNGReader& r);
// Ends a set-up (state SetUp) with the rows libpng is to deliver: the RGBA rows RowBytes reports;
// for an image without alpha, its red, green and blue alone, or with the byte `filler` before or
// after them (blue first with `bgr`); for a palette image, its indices (libpng's palette then gamma
// corrected). Each calls libpng and needs a jump point.
void StartRGBARows(PNGReader& r);
void StartRGBRows(PNGReader& r);
void StartIndexRows(PNGReader& r);
void StartFilledRows(PNGReader& r, bool bgr, unsigned char filler, bool fillerFirst);
bool ReadsRGBTag(PNGReader& r, RBInteger& intent);
bool ReadICCProfile(PNGReader& r, REALstring& name, RBInteger& compression, REALstring& profile);
// The text chunks (tEXt, zTXt, iTXt) read so far, counted, and the key and text of one of them as
// host strings; an index outside 0 .. count − 1 raises OutOfBoundsException.
RBInteger TextCount(PNGReader& r);
REALstring TextKey(PNGReader& r, RBInteger index);
REALstring TextValue(PNGReader& r, RBInteger index);
REALmemoryBlock ReadRow(PNGReader& r);
bool ReadRow(PNGReader& r, REALmemoryBlock block);
bool ReadRowMaskOnly(PNGReader& r, REALmemoryBlock block);
bool ReadRowAlphaOnly(PNGReader& r, REALmemoryBlock block);

// Decodes the whole image into the record's Pict (and Mask for an image with alpha); returns
// whether Pict is set.
bool ReadPicture(PNGReader& r);
// The whole image into one picture with an alpha channel (Pict; Mask nil): colour and alpha as
// the host keeps them in such a picture. Hosts without such pictures get an Error event.
bool ReadAlphaPicture(PNGReader& r);

// libpng callbacks.
png_voidp AllocateForLibpng(png_structp png, png_alloc_size_t size);
void FreeForLibpng(png_structp png, png_voidp block);
void ReadFunction(png_structp png, png_bytep buffer, png_size_t length);
void user_error_fn_reader(png_structp png, png_const_charp message);
void user_warning_fn_reader(png_structp png, png_const_charp message);

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
RBInteger rbTextCount(REALobject instance);
REALstring rbTextKey(REALobject instance, RBInteger index);
REALstring rbTextValue(REALobject instance, RBInteger index);
RBBoolean rbReadPicture(REALobject instance);
RBBoolean rbReadAlphaPicture(REALobject instance);
RBBoolean rbOpenSpecialData(REALobject instance, REALstring data);
REALpicture rbCombinePictureWithMask(REALobject instance);
RBBoolean GetAllowDamaged(REALobject instance, RBInteger param);
void SetAllowDamaged(REALobject instance, RBInteger param, RBBoolean value);

// Shared method "PNGLibVersion as string" of every class.
REALstring GetPNGVersion();
