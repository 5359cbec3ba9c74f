// The writer record's life: creation, destinations, the memory sink, libpng's error callbacks and
// teardown.
#include "writer/PNGWriter.h"

#include <stdlib.h>
#include <string.h>

#include <memory>
#include <new>

#include "host/Exceptions.h"
#include "host/Files.h"
#include "host/Text.h"

namespace {

constexpr size_t kMemoryReservation = 0x800000;
constexpr size_t kLateReservation = 0x100000;

// An empty buffer with room for `reservation` bytes; throws std::bad_alloc.
ByteBuffer* NewBuffer(size_t reservation) {
  auto buffer = std::make_unique<ByteBuffer>();
  buffer->reserve(reservation);
  return buffer.release();
}

// libpng's own sink on the stream (png_init_io with the default write function back in place of
// the one that refuses writes without a destination).
bool InstallFile(PNGWriter& w, FILE* stream) {
  if (setjmp(*w.jumpBuffer)) return false;
  png_set_write_fn(w.pngPtr, stream, nullptr, nullptr);
  return true;
}

bool InstallWriteFunctions(PNGWriter& w, png_rw_ptr write) {
  if (setjmp(*w.jumpBuffer)) return false;
  png_set_write_fn(w.pngPtr, nullptr, write, FlushFunction);
  return true;
}

bool OpenFileDestination(PNGWriter& w, REALfolderItem file) {
  FILE* stream = OpenCFILE(file, 0, "wb", L"wb");
  if (stream == nullptr) return false;
  w.file = stream;
  return InstallFile(w, stream);
}

bool OpenMemoryDestination(PNGWriter& w) {
  try {
    w.dataBuffer = NewBuffer(kMemoryReservation);
  } catch (const std::bad_alloc&) {
    RaiseException("OutOfMemoryException", "Failed to allocate data buffer.", kREALTextEncodingUTF8,
                   0);
    return false;
  }
  return InstallWriteFunctions(w, WriteFunction);
}

// Where libpng writes once its file has been closed: every write fails through the Error event.
void ClosedWriteFunction(png_structp png, png_bytep, png_size_t) {
  png_error(png, "The destination is closed.");
}

// Where libpng writes before a destination is opened; its own sink would write to a null stream.
void NoDestinationWriteFunction(png_structp png, png_bytep, png_size_t) {
  png_error(png, "No destination is open.");
}

void ReleaseDestination(PNGWriter& w) {
  if (w.file) fclose(w.file);
  w.file = nullptr;
  delete w.dataBuffer;
  w.dataBuffer = nullptr;
}

}  // namespace

bool RaiseIfNil(const void* object, const char* message) {
  if (object) return false;
  RaiseException("NilObjectException", message, kREALTextEncodingUTF8, 0);
  return true;
}

bool Init(PNGWriter& w, REALobject owner, StringEventProc errorEvent,
          StringEventProc warningEvent) {
  memset(&w, 0, sizeof w);
  w.owner = owner;
  w.errorEvent = errorEvent;
  w.warningEvent = warningEvent;
  w.jumpBuffer = static_cast<jmp_buf*>(calloc(1, sizeof(jmp_buf)));
  if (w.jumpBuffer == nullptr) return false;
  w.pngPtr = png_create_write_struct("1.6.30", &w, user_error_fn_writer, user_warning_fn_writer);
  if (w.pngPtr == nullptr) return false;
  w.infoPtr = png_create_info_struct(w.pngPtr);
  if (w.infoPtr == nullptr) png_destroy_write_struct(&w.pngPtr, nullptr);
  return w.infoPtr != nullptr && InstallWriteFunctions(w, NoDestinationWriteFunction);
}

void Close(PNGWriter& w) {
  if (w.pngPtr) png_destroy_write_struct(&w.pngPtr, &w.infoPtr);
  free(w.jumpBuffer);
  w.jumpBuffer = nullptr;
  w.pngPtr = nullptr;
  w.infoPtr = nullptr;
  ReleaseRows(w);
  ReleaseDestination(w);
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
  if (w.pngPtr == nullptr || w.jumpBuffer == nullptr) return false;
  // One destination at a time: a second one would leave the first open and out of reach.
  if (w.file || w.dataBuffer) return false;
  return file ? OpenFileDestination(w, file) : OpenMemoryDestination(w);
}

REALstring Finish(PNGWriter& w) {
  if (w.dataBuffer == nullptr) return nullptr;
  REALstring result = REALBuildUnicodeString(
      w.dataBuffer->data(), static_cast<int64_t>(w.dataBuffer->size()), kREALTextEncodingUnknown);
  delete w.dataBuffer;
  w.dataBuffer = nullptr;
  return result;
}

void CloseDestination(PNGWriter& w) {
  const bool closesFile = w.file != nullptr;
  ReleaseDestination(w);
  // libpng still holds the closed stream; it must never write to it again.
  if (closesFile && HasHandles(w)) InstallWriteFunctions(w, ClosedWriteFunction);
}

void WriteFunction(png_structp png, png_bytep data, png_size_t length) {
  auto* w = static_cast<PNGWriter*>(png_get_error_ptr(png));
  if (w == nullptr) return;
  // Nothing may unwind through libpng: bytes that find no memory are dropped.
  try {
    if (w->dataBuffer == nullptr) w->dataBuffer = NewBuffer(kLateReservation);
    w->dataBuffer->insert(w->dataBuffer->end(), data, data + length);
  } catch (const std::exception&) {
  }
}

void FlushFunction(png_structp) {}

void user_error_fn_writer(png_structp png, png_const_charp message) {
  auto* w = static_cast<PNGWriter*>(png_get_error_ptr(png));
  if (w == nullptr) return;
  RaiseMessageEvent(w->errorEvent, w->owner, message);
  longjmp(*w->jumpBuffer, 1);
}

void user_warning_fn_writer(png_structp png, png_const_charp message) {
  auto* w = static_cast<PNGWriter*>(png_get_error_ptr(png));
  if (w == nullptr) return;
  RaiseMessageEvent(w->warningEvent, w->owner, message);
}
