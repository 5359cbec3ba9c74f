// The reader record's life: creation, sources, the order of calls it accepts, libpng's callbacks
// and teardown.
#include "reader/PNGReader.h"

#include <stdlib.h>
#include <string.h>

#include "host/Files.h"
#include "host/Text.h"

namespace {

constexpr int kStates = static_cast<int>(ReaderState::kEndRead) + 1;
constexpr int kCalls = static_cast<int>(ReaderCall::kText) + 1;

// libpng keeps text and sPLT chunks up to two fewer than this count together, each of at most
// this many bytes, also once decompressed: a file can make the reader hold no more than about
// their product, whatever its compressed text inflates to. libpng warns once when it leaves
// further chunks out, and drops a text that inflates beyond the limit with a warning. The byte
// limit is libpng's own default, which also bounds every chunk's length, so no file that the
// reader took before is refused now.
constexpr png_uint_32 kChunkCacheMax = 32;
constexpr png_alloc_size_t kChunkMallocMax = 8000000;

constexpr char kNotSetUp[] = "ApplyOptions has not set the reader up; call it first.";
constexpr char kRowsRead[] = "Rows have been read already; call ApplyOptions to start over.";
constexpr char kDecoded[] =
    "The picture has been decoded already; call ApplyOptions to read the image again.";
constexpr char kFailed[] = "The stream failed at an earlier row; call ApplyOptions to start over.";
constexpr char kImageRead[] =
    "The whole image has been read already; call ApplyOptions to read it again.";

// Why a call can't run in a state: null when it can, "" for a refusal without an event (nothing
// has been opened or set up, or the reader can't be used at all).
const char* const kRefusals[kStates][kCalls] = {
    // kOpen, kApplyOptions, kReadRow, kReadPicture, kQuery, kText
    /* Unusable     */ {"", "", "", "", "", ""},
    /* NoSource     */ {nullptr, "", "", "", nullptr, ""},
    /* Opened       */ {nullptr, nullptr, kNotSetUp, "", nullptr, kNotSetUp},
    /* NotSetUp     */ {nullptr, nullptr, kNotSetUp, "", nullptr, kNotSetUp},
    /* SetUp        */ {nullptr, nullptr, nullptr, nullptr, nullptr, nullptr},
    /* ReadingRows  */ {nullptr, nullptr, nullptr, kRowsRead, nullptr, nullptr},
    /* Decoded      */ {nullptr, nullptr, kDecoded, kDecoded, nullptr, nullptr},
    /* Failed       */ {nullptr, nullptr, kFailed, kFailed, nullptr, nullptr},
    /* LastRowRead  */ {nullptr, nullptr, nullptr, kRowsRead, nullptr, nullptr},
    /* DecodedWhole */ {nullptr, nullptr, kDecoded, kDecoded, nullptr, nullptr},
    /* EndRead      */ {nullptr, nullptr, kImageRead, kImageRead, nullptr, nullptr},
};

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

bool CreateReadState(PNGReader& r) {
  r.png = png_create_read_struct("1.6.30", &r, user_error_fn_reader, user_warning_fn_reader);
  if (r.png == nullptr) return false;
  png_set_mem_fn(r.png, &r, AllocateForLibpng, FreeForLibpng);
  png_set_chunk_cache_max(r.png, kChunkCacheMax);
  png_set_chunk_malloc_max(r.png, kChunkMallocMax);
  return CreateInfo(r);
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

// Whether libpng's read state may have read from the source since it was made.
bool ReadStateUsed(const PNGReader& r) {
  return r.state != ReaderState::kNoSource && r.state != ReaderState::kOpened;
}

// Closes the file and lets go of the string; with a read state that has read from the source,
// makes it anew for the next source.
bool DropSource(PNGReader& r) {
  if (r.file) fclose(r.file);
  r.file = nullptr;
  ReleaseSourceText(r);
  UnlockStringAndClear(r.sourceString);
  r.memory = {};
  const bool renew = ReadStateUsed(r);
  r.state = ReaderState::kNoSource;
  return !renew || StartOver(r);
}

// The source is libpng's once it has been installed.
void SettleOpening(PNGReader& r, bool installed) {
  r.state = installed ? ReaderState::kOpened : ReaderState::kNoSource;
}

}  // namespace

bool Admit(PNGReader& r, ReaderCall call) {
  const char* refusal = kRefusals[static_cast<int>(r.state)][static_cast<int>(call)];
  if (refusal == nullptr) return true;
  if (*refusal) QueueError(r.events, refusal);
  return false;
}

bool StartOver(PNGReader& r) {
  png_destroy_read_struct(&r.png, &r.info, nullptr);
  if (!CreateReadState(r)) {
    png_destroy_read_struct(&r.png, &r.info, nullptr);
    r.state = ReaderState::kUnusable;
    QueueError(r.events, "Out of memory: the reader can't start over.");
    return false;
  }
  if (r.file) {
    if (fseek(r.file, 0, SEEK_SET) != 0) {
      r.state = ReaderState::kNoSource;
      QueueError(r.events, "The file can't be read again from its start; open it again.");
      return false;
    }
    SettleOpening(r, InstallFile(r, r.file));
  } else if (r.sourceText) {
    r.memory.position = 0;
    SettleOpening(r, InstallMemorySource(r));
  }
  return true;
}

bool Init(PNGReader& r, REALobject owner, StringEventProc errorHook, StringEventProc warningHook) {
  memset(&r, 0, sizeof r);
  r.pixelLimit = kDefaultPixelLimit;
  r.jump = static_cast<jmp_buf*>(calloc(1, sizeof(jmp_buf)));
  if (r.jump == nullptr) return false;
  r.owner = owner;
  r.errorHook = errorHook;
  r.warningHook = warningHook;
  if (!CreateReadState(r)) return false;
  r.state = ReaderState::kNoSource;
  return true;
}

bool OpenReadFile(PNGReader& r, REALfolderItem file) {
  if (!Admit(r, ReaderCall::kOpen) || !DropSource(r) || file == nullptr) return Report(r, false);
  r.file = OpenCFILE(file, 0, "rb", L"rb");
  if (r.file == nullptr) return Report(r, false);
  SettleOpening(r, InstallFile(r, r.file));
  return Report(r, r.state == ReaderState::kOpened);
}

bool OpenReadString(PNGReader& r, REALstring data) {
  if (!Admit(r, ReaderCall::kOpen) || !DropSource(r) || data == nullptr) return Report(r, false);
  rbText* holder = rbText::MakeRaw(data);
  if (holder == nullptr) return Report(r, false);
  // Eight bytes of signature and at least one more are needed.
  if (holder->Length() < 9) {
    delete holder;
    return Report(r, false);
  }
  REALLockString(data);
  r.sourceString = data;
  r.sourceText = holder;
  r.memory.position = 0;
  r.memory.data = holder->Bytes();
  r.memory.length = static_cast<int32_t>(holder->Length());
  SettleOpening(r, InstallMemorySource(r));
  return Report(r, r.state == ReaderState::kOpened);
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
  r.state = ReaderState::kUnusable;
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

// No user code runs inside libpng: the message waits in the queue until the call has returned.
png_voidp AllocateForLibpng(png_structp png, png_alloc_size_t size) {
  void* block = malloc(size);
  auto* r = static_cast<PNGReader*>(png_get_mem_ptr(png));
  if (block == nullptr && r != nullptr) r->memoryFailed = true;
  return block;
}

void FreeForLibpng(png_structp, png_voidp block) {
  free(block);
}

void user_error_fn_reader(png_structp png, png_const_charp message) {
  auto* r = static_cast<PNGReader*>(png_get_error_ptr(png));
  if (r == nullptr) return;
  QueueError(r->events, message);
  longjmp(*r->jump, 1);
}

void user_warning_fn_reader(png_structp png, png_const_charp message) {
  auto* r = static_cast<PNGReader*>(png_get_error_ptr(png));
  if (r == nullptr) return;
  QueueWarning(r->events, message);
}
