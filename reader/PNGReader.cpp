// The reader record's life: creation, sources, libpng's callbacks and teardown.
#include "reader/PNGReader.h"

#include <stdlib.h>
#include <string.h>

#include "host/Files.h"
#include "host/Text.h"

namespace {

void ReleaseSourceText(PNGReader& r) {
  delete r.sourceText;
  r.sourceText = nullptr;
}

template <typename Handle>
void UnlockAndClear(Handle& handle) {
  if (handle) UnlockHandle(handle);
  handle = nullptr;
}

void UnlockStringAndClear(REALstring& str) {
  if (str) REALUnlockString(str);
  str = nullptr;
}

bool CreateInfo(PNGReader& r) {
  if (setjmp(*r.jump)) return false;
  r.info = png_create_info_struct(r.png);
  return r.info != nullptr;
}

bool InstallFile(PNGReader& r, FILE* file) {
  if (setjmp(*r.jump)) return false;
  png_init_io(r.png, file);
  return true;
}

bool InstallMemorySource(PNGReader& r) {
  if (setjmp(*r.jump)) return false;
  png_set_read_fn(r.png, &r.memory, ReadFunction);
  return true;
}

}  // namespace

bool Init(PNGReader& r, REALobject owner, StringEventProc errorHook, StringEventProc warningHook) {
  memset(&r, 0, sizeof r);
  r.jump = static_cast<jmp_buf*>(calloc(1, sizeof(jmp_buf)));
  if (r.jump == nullptr) return false;
  r.owner = owner;
  r.errorHook = errorHook;
  r.warningHook = warningHook;
  r.png = png_create_read_struct("1.6.30", &r, user_error_fn_reader, user_warning_fn_reader);
  if (r.png == nullptr) return false;
  return CreateInfo(r);
}

bool OpenReadFile(PNGReader& r, REALfolderItem file) {
  if (r.png == nullptr || r.jump == nullptr || file == nullptr) return false;
  FILE* stream = OpenCFILE(file, 0, "rb", L"rb");
  if (stream == nullptr) return false;
  // A second opening replaces the stream; the earlier file would otherwise stay open until the
  // record is finished.
  if (r.file) fclose(r.file);
  r.file = stream;
  return InstallFile(r, stream);
}

bool OpenReadString(PNGReader& r, REALstring data) {
  if (r.png == nullptr || r.jump == nullptr) return false;
  ReleaseSourceText(r);
  if (data == nullptr) return false;
  rbText* holder = rbText::MakeRaw(data);
  if (holder == nullptr) return false;
  // Eight bytes of signature and at least one more are needed.
  if (holder->Length() < 9) {
    delete holder;
    return false;
  }
  UnlockStringAndClear(r.sourceString);
  REALLockString(data);
  r.sourceString = data;
  r.sourceText = holder;
  r.memory.position = 0;
  r.memory.data = holder->Bytes();
  r.memory.length = static_cast<int32_t>(holder->Length());
  return InstallMemorySource(r);
}

void Finish(PNGReader& r) {
  if (r.png) png_destroy_read_struct(&r.png, &r.info, nullptr);
  r.png = nullptr;
  r.info = nullptr;
  if (r.file) fclose(r.file);
  r.file = nullptr;
  free(r.jump);
  r.jump = nullptr;
  UnlockStringAndClear(r.sourceString);
  UnlockAndClear(r.pict);
  UnlockAndClear(r.mask);
  r.errorHook = nullptr;
  r.warningHook = nullptr;
  r.owner = nullptr;
  ReleaseSourceText(r);
}

void ReadFunction(png_structp png, png_bytep buffer, png_size_t length) {
  auto* source = static_cast<MemorySource*>(png_get_io_ptr(png));
  if (source == nullptr) return;
  const int64_t remaining = int64_t{source->length} - source->position;
  if (source->data != nullptr && remaining > 0) {
    const size_t count =
        remaining < static_cast<int64_t>(length) ? static_cast<size_t>(remaining) : length;
    memcpy(buffer, source->data + source->position, count);
    source->position += static_cast<int32_t>(count);
  } else {
    // Past the end the source hands out zeros; libpng then fails on what it reads.
    memset(buffer, 0, length);
  }
}

void user_error_fn_reader(png_structp png, png_const_charp message) {
  auto* r = static_cast<PNGReader*>(png_get_error_ptr(png));
  if (r == nullptr) return;
  RaiseMessageEvent(r->errorHook, r->owner, message);
  longjmp(*r->jump, 1);
}

void user_warning_fn_reader(png_structp png, png_const_charp message) {
  auto* r = static_cast<PNGReader*>(png_get_error_ptr(png));
  if (r == nullptr) return;
  RaiseMessageEvent(r->warningHook, r->owner, message);
}
