// The writer record: libpng's write state of one PNG stream with its destination (a file or a
// growable byte buffer), the header values and palette of the image, the rows to encode and the
// hooks that carry libpng's errors and warnings to user code.
#pragma once

#include <png.h>
#include <setjmp.h>
#include <stdio.h>

#include "host/Events.h"
#include "host/HostRuntime.h"

// The memory destination: the bytes libpng wrote, in order, in a block that grows by doubling.
// It comes from malloc and realloc, so that a growth the memory can't hold is a null result to
// report and never an exception inside libpng.
struct ByteBuffer {
  unsigned char* bytes;
  size_t size;
  size_t capacity;
};

// Where the writer stands. Every public operation checks the state first: a call out of order is
// refused with a message through the Error event and the operation's failure result (False, Nil
// or nothing). The loaders, SetPaletteData and SetAlphaData only hold rows and colours, so they
// run in every state but Finished.
//
//   State             | Accepts (besides the above)              | Moves to
//   ------------------+------------------------------------------+------------------------------
//   Unusable          | nothing (no libpng state: its creation   |
//                     | failed, or Close ran): False, no event   |
//   Describing        | SetHeader, the chunk setters, Open- and  | HeaderRefused (SetHeader
//                     | CloseDestination, WriteInfo (once a      | fails); InfoWritten, or Failed
//                     | destination is open)                     | (libpng fails in WriteInfo)
//   HeaderRefused     | as Describing, but not WriteInfo         | Describing (SetHeader works)
//   InfoWritten       | WriteRows, WriteRow                      | RowsStarted, RowsWritten,
//                     |                                          | Failed
//   RowsStarted       | WriteRow                                 | RowsWritten, Failed
//   RowsWritten       | WriteEnd                                 | Ended, Failed
//   Ended, Failed     | CloseDestination, Finish                 |
//   DestinationClosed | nothing (the destination was closed once |
//                     | the stream had begun)                    |
//   Finished          | nothing: Finish handed the bytes over    |
//
// Finish with a memory destination returns its bytes and moves any state to Finished; without
// one it returns Nil and changes nothing. CloseDestination leaves Describing and HeaderRefused
// as they are (another destination may be opened) and moves the later states to
// DestinationClosed. OpenWriteDestination while a destination is open returns False, no event.
enum class WriterState : int32_t {
  kUnusable = 0,  // the zeroed record
  kDescribing,
  kHeaderRefused,
  kInfoWritten,
  kRowsStarted,
  kRowsWritten,
  kEnded,
  kFailed,
  kDestinationClosed,
  kFinished,
};

// The kinds of call the state table tells apart.
enum class WriterCall {
  kStore,  // loaders, SetPaletteData, SetAlphaData
  kSetHeader,
  kSetChunk,
  kOpenDestination,
  kWriteInfo,
  kWriteRows,
  kWriteRow,
  kWriteEnd,
};

// Instance data of PNGWriterKRV; the one-call savers build one of their own without an owner.
struct PNGWriter {
  // Header values; these five back the class's Integer properties.
  RBInteger height;
  RBInteger width;
  RBInteger bpc;
  RBInteger type;
  RBInteger rowBytes;
  // Backs Threads: how WriteRows compresses an image of at least a megapixel that is not
  // interlaced. 1: libpng's own encoder on the calling thread; 0 (the default) or below: the
  // parallel encoder on one thread per core; above 1: the parallel encoder on that many threads.
  RBInteger threads;
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
  WriterState state;
  // The filter and compression level of the last accepted SetHeader (-1: none given, libpng's
  // default), as libpng holds them out of reach; the parallel encoder applies them as libpng would.
  int32_t filter;
  int32_t level;
  // The image data went out through the parallel encoder, past libpng, which then refuses to end
  // the stream: WriteEnd writes IEND itself.
  RBBoolean dataWrittenAside;
  // libpng's errors and warnings of the call in progress, raised as events once it has returned.
  EventQueue events;
};

// True when `call` may run in the writer's state; otherwise refuses it (through the Error event
// where the state table gives a message) and returns false.
bool Admit(PNGWriter& w, WriterCall call);

// Raises the events queued during an operation, once the record is settled, and returns
// `result`. Handlers may call back into the writer, so the caller must not touch the record
// afterwards.
bool Report(PNGWriter& w, bool result);

// Queues `message` as an Error event and reports the failure.
bool Refuse(PNGWriter& w, const char* message);

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

// The parallel encoder's part of WriteRows (writer/ParallelWrite.cpp): whether it takes the
// loaded rows, and the image data written through it (false, with an error queued, on failure).
bool TakesParallelPath(const PNGWriter& w);
bool WriteImageInParallel(PNGWriter& w);

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
// A text chunk: its key must follow PNG's rules (refused with an Error event otherwise); Latin-1
// text goes into tEXt, or zTXt when `compressed`, any other into iTXt, compressed or not.
bool AddText(PNGWriter& w, REALstring key, REALstring value, bool compressed);

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
RBBoolean rbAddText(REALobject instance, REALstring key, REALstring value, RBBoolean compressed);
RBBoolean rbLoadRGBPicture(REALobject instance, REALpicture pict, REALpicture mask);
RBBoolean rbLoadGrayPicture(REALobject instance, REALpicture pict, REALpicture mask);
RBBoolean rbLoadPalettePicture(REALobject instance, REALpicture pict);
RBBoolean rbLoadRows(REALobject instance, REALarray rows);
RBBoolean rbLoadAlphaPicture(REALobject instance, REALpicture pict);
