// The writer record's life: creation, destinations, the memory sink, libpng's error callbacks and
// teardown.
#include "writer/PNGWriter.h"

#include <stdlib.h>
#include <string.h>

#include "host/Exceptions.h"
#include "host/Files.h"
#include "host/Text.h"

namespace {

constexpr size_t kMemoryReservation = 0x800000;

constexpr const char* kFinishedMessage =
    "Finish has ended this writer; use a new PNGWriterKRV for the next image.";
constexpr const char* kFailedMessage = "Writing the image failed; a new writer is needed.";
constexpr const char* kClosedMessage = "The destination is closed.";
constexpr const char* kNoDestinationMessage = "No destination is open.";
constexpr const char* kOutOfMemoryMessage = "Out of memory for the PNG data.";

// An empty buffer with room for `reservation` bytes, or null when the memory can't be had.
ByteBuffer* NewBuffer(size_t reservation) {
  auto* buffer = static_cast<ByteBuffer*>(calloc(1, sizeof(ByteBuffer)));
  if (buffer == nullptr) return nullptr;
  buffer->bytes = static_cast<unsigned char*>(malloc(reservation));
  if (buffer->bytes == nullptr) {
    free(buffer);
    return nullptr;
  }
  buffer->capacity = reservation;
  return buffer;
}

void FreeBuffer(ByteBuffer* buffer) {
  if (buffer) free(buffer->bytes);
  free(buffer);
}

// Appends `length` bytes, doubling the room as needed; false, with the buffer as it was, when
// the memory for the larger room can't be had.
bool Append(ByteBuffer& buffer, const unsigned char* data, size_t length) {
  if (length > SIZE_MAX - buffer.size) return false;
  const size_t needed = buffer.size + length;
  if (needed > buffer.capacity) {
    const size_t doubled = buffer.capacity > SIZE_MAX / 2 ? SIZE_MAX : buffer.capacity * 2;
    const size_t capacity = doubled > needed ? doubled : needed;
    auto* grown = static_cast<unsigned char*>(realloc(buffer.bytes, capacity));
    if (grown == nullptr) return false;
    buffer.bytes = grown;
    buffer.capacity = capacity;
  }
  memcpy(buffer.bytes + buffer.size, data, length);
  buffer.size = needed;
  return true;
}

bool InstallWriteFunctions(PNGWriter& w, png_voidp stream, png_rw_ptr write, png_flush_ptr flush) {
  if (setjmp(*w.jumpBuffer)) return false;
  png_set_write_fn(w.pngPtr, stream, write, flush);
  return true;
}

// libpng's own sink on the stream: its default write and flush functions.
bool OpenFileDestination(PNGWriter& w, REALfolderItem file) {
  FILE* stream = OpenCFILE(file, 0, "wb", L"wb");
  if (stream == nullptr) return false;
  w.file = stream;
  return InstallWriteFunctions(w, stream, nullptr, nullptr);
}

bool OpenMemoryDestination(PNGWriter& w) {
  w.dataBuffer = NewBuffer(kMemoryReservation);
  if (w.dataBuffer == nullptr) {
    RaiseException("OutOfMemoryException", "Failed to allocate data buffer.", kREALTextEncodingUTF8,
                   0);
    return false;
  }
  return InstallWriteFunctions(w, nullptr, WriteFunction, FlushFunction);
}

void ReleaseDestination(PNGWriter& w) {
  if (w.file) fclose(w.file);
  w.file = nullptr;
  FreeBuffer(w.dataBuffer);
  w.dataBuffer = nullptr;
}

// libpng's state, the rows and the destination: all the record holds but its header values and
// event hooks.
void ReleaseResources(PNGWriter& w) {
  if (w.pngPtr) png_destroy_write_struct(&w.pngPtr, &w.infoPtr);
  free(w.jumpBuffer);
  w.jumpBuffer = nullptr;
  w.pngPtr = nullptr;
  w.infoPtr = nullptr;
  ReleaseRows(w);
  ReleaseDestination(w);
}

bool HasDestination(const PNGWriter& w) {
  return w.file || w.dataBuffer;
}

// Before WriteInfo: the image is still being described, and only the writing calls wait.
const char* RefusalBeforeInfo(const PNGWriter& w, WriterCall call) {
  switch (call) {
    case WriterCall::kStore:
    case WriterCall::kSetHeader:
    case WriterCall::kSetChunk:
    case WriterCall::kOpenDestination:
      return nullptr;
    case WriterCall::kWriteInfo:
      if (!HasDestination(w)) return kNoDestinationMessage;
      return w.state == WriterState::kHeaderRefused ? "The header was refused." : nullptr;
    case WriterCall::kWriteRows:
    case WriterCall::kWriteRow:
    case WriterCall::kWriteEnd:
      break;
  }
  return HasDestination(w) ? "The header chunks are not written yet; call WriteInfo first."
                           : kNoDestinationMessage;
}

// From WriteInfo to WriteEnd: libpng has written the chunks before the image and moves through
// the rows to the end.
const char* RefusalWhileWriting(const PNGWriter& w, WriterCall call) {
  const WriterState s = w.state;
  switch (call) {
    case WriterCall::kStore:
      return nullptr;
    case WriterCall::kSetHeader:
      return "The header is written already.";
    case WriterCall::kSetChunk:
      return "The header chunks are written already; set chunks before WriteInfo.";
    case WriterCall::kOpenDestination:
      return "";  // one is open
    case WriterCall::kWriteInfo:
      return "The header chunks are written already.";
    case WriterCall::kWriteRows:
      return s == WriterState::kInfoWritten ? nullptr : "Rows of the image are written already.";
    case WriterCall::kWriteRow:
      return s == WriterState::kInfoWritten || s == WriterState::kRowsStarted
                 ? nullptr
                 : "Every row of the image is written.";
    case WriterCall::kWriteEnd:
      if (s == WriterState::kRowsWritten) return nullptr;
      return s == WriterState::kEnded ? "The end of the stream is written already."
                                      : "Rows of the image are missing; write them all first.";
  }
  return nullptr;
}

// Why `call` can't run in the writer's state: null when it can, "" for a refusal without event.
const char* Refusal(const PNGWriter& w, WriterCall call) {
  if (w.state == WriterState::kFinished) return kFinishedMessage;
  if (call == WriterCall::kStore) return nullptr;
  // One destination at a time: a second one would leave the first open and out of reach.
  if (call == WriterCall::kOpenDestination && HasDestination(w)) return "";
  switch (w.state) {
    case WriterState::kUnusable:
      return "";
    case WriterState::kDescribing:
    case WriterState::kHeaderRefused:
      return RefusalBeforeInfo(w, call);
    case WriterState::kFailed:
      return kFailedMessage;
    case WriterState::kDestinationClosed:
      return kClosedMessage;
    default:
      return RefusalWhileWriting(w, call);
  }
}

}  // namespace

bool Admit(PNGWriter& w, WriterCall call) {
  const char* refusal = Refusal(w, call);
  if (refusal == nullptr) return true;
  if (*refusal) Refuse(w, refusal);
  return false;
}

bool Report(PNGWriter& w, bool result) {
  RaiseQueued(w.events, {w.errorEvent, w.warningEvent, w.owner});
  return result;
}

bool Refuse(PNGWriter& w, const char* message) {
  QueueError(w.events, message);
  return Report(w, false);
}

bool RaiseIfNil(const void* object, const char* message) {
  if (object) return false;
  RaiseException("NilObjectException", message, kREALTextEncodingUTF8, 0);
  return true;
}

bool Init(PNGWriter& w, REALobject owner, StringEventProc errorEvent,
          StringEventProc warningEvent) {
  memset(&w, 0, sizeof w);
  w.filter = -1;
  w.level = -1;
  w.owner = owner;
  w.errorEvent = errorEvent;
  w.warningEvent = warningEvent;
  w.jumpBuffer = static_cast<jmp_buf*>(calloc(1, sizeof(jmp_buf)));
  if (w.jumpBuffer == nullptr) return false;
  w.pngPtr = png_create_write_struct("1.6.30", &w, user_error_fn_writer, user_warning_fn_writer);
  if (w.pngPtr == nullptr) return false;
  w.infoPtr = png_create_info_struct(w.pngPtr);
  if (w.infoPtr == nullptr) {
    png_destroy_write_struct(&w.pngPtr, nullptr);
    return false;
  }
  w.state = WriterState::kDescribing;
  return true;
}

void Close(PNGWriter& w) {
  ReleaseResources(w);
  w.state = WriterState::kUnusable;
  w.owner = nullptr;
  w.errorEvent = nullptr;
  w.warningEvent = nullptr;
  w.height = 0;
  w.width = 0;
  w.bpc = 0;
  w.type = 0;
  w.rowBytes = 0;
}

bool OpenWriteDestination(PNGWriter& w, REALfolderItem file) {
  if (!Admit(w, WriterCall::kOpenDestination)) return false;
  return Report(w, file ? OpenFileDestination(w, file) : OpenMemoryDestination(w));
}

REALstring Finish(PNGWriter& w) {
  if (w.dataBuffer == nullptr) return nullptr;
  REALstring result = REALBuildUnicodeString(
      w.dataBuffer->bytes, static_cast<int64_t>(w.dataBuffer->size), kREALTextEncodingUnknown);
  ReleaseResources(w);
  w.state = WriterState::kFinished;
  return result;
}

void CloseDestination(PNGWriter& w) {
  ReleaseDestination(w);
  // Once libpng has begun the stream, another destination could only take its rest.
  switch (w.state) {
    case WriterState::kInfoWritten:
    case WriterState::kRowsStarted:
    case WriterState::kRowsWritten:
    case WriterState::kEnded:
    case WriterState::kFailed:
      w.state = WriterState::kDestinationClosed;
      break;
    default:
      break;
  }
}

void WriteFunction(png_structp png, png_bytep data, png_size_t length) {
  auto* w = static_cast<PNGWriter*>(png_get_error_ptr(png));
  if (!Append(*w->dataBuffer, data, length)) png_error(png, kOutOfMemoryMessage);
}

void FlushFunction(png_structp) {}

// No user code runs inside libpng: the message waits in the queue until the call has returned.
void user_error_fn_writer(png_structp png, png_const_charp message) {
  auto* w = static_cast<PNGWriter*>(png_get_error_ptr(png));
  if (w == nullptr) return;
  QueueError(w->events, message);
  longjmp(*w->jumpBuffer, 1);
}

void user_warning_fn_writer(png_structp png, png_const_charp message) {
  auto* w = static_cast<PNGWriter*>(png_get_error_ptr(png));
  if (w) QueueWarning(w->events, message);
}
