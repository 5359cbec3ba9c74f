#include "tests/e2e/oom/FailingAllocator.h"

#include <errno.h>
#include <link.h>
#include <string.h>

#include <atomic>

extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* block, size_t size);
void __libc_free(void* block);
}

namespace {

// Nothing here may allocate: it runs inside every allocation of the process, on every thread
// (the parallel encoder's among them), so the counts and the set of blocks are kept under a
// spin lock.
std::atomic_flag gLock = ATOMIC_FLAG_INIT;

struct Held {
  Held() {
    while (gLock.test_and_set(std::memory_order_acquire)) {
    }
  }
  ~Held() { gLock.clear(std::memory_order_release); }
  Held(const Held&) = delete;
  Held& operator=(const Held&) = delete;
};

struct Range {
  uintptr_t begin, end;
};
constexpr int kMaxRanges = 16;
Range gRanges[kMaxRanges];
int gRangeCount = 0;

bool gArmed = false;
uint64_t gCounted = 0;
uint64_t gFailAt = 0;
size_t gFailFrom = 0;

// The blocks not yet freed: an open-addressing set of addresses (0 empty, 1 a removed entry), with
// their sizes; their total, its total at Arm and its highest since.
constexpr size_t kSlots = size_t{1} << 16;
uintptr_t gLive[kSlots];
size_t gSizes[kSlots];
size_t gLiveCount = 0;
size_t gLiveBytes = 0;
size_t gBaseBytes = 0;
size_t gPeakBytes = 0;

size_t SlotOf(uintptr_t address) {
  return (address >> 4) * 0x9E3779B97F4A7C15u >> (64 - 16);
}

void Track(void* block, size_t size) {
  const auto address = reinterpret_cast<uintptr_t>(block);
  for (size_t i = SlotOf(address);; i = (i + 1) % kSlots) {
    if (gLive[i] <= 1) {
      gLive[i] = address;
      gSizes[i] = size;
      ++gLiveCount;
      gLiveBytes += size;
      if (gLiveBytes > gPeakBytes) gPeakBytes = gLiveBytes;
      return;
    }
  }
}

void Untrack(void* block) {
  if (gLiveCount == 0 || block == nullptr) return;
  const auto address = reinterpret_cast<uintptr_t>(block);
  for (size_t i = SlotOf(address); gLive[i] != 0; i = (i + 1) % kSlots) {
    if (gLive[i] == address) {
      gLive[i] = 1;
      --gLiveCount;
      gLiveBytes -= gSizes[i];
      return;
    }
  }
}

bool FromCodeUnderTest(const void* caller) {
  const auto address = reinterpret_cast<uintptr_t>(caller);
  for (int i = 0; i < gRangeCount; ++i) {
    if (address >= gRanges[i].begin && address < gRanges[i].end) return true;
  }
  return false;
}

int AddRanges(struct dl_phdr_info* info, size_t, void*) {
  const char* name = info->dlpi_name;
  if (!strstr(name, "PNGKRV") && !strstr(name, "libpng16") && !strstr(name, "libz.so")) return 0;
  for (int i = 0; i < info->dlpi_phnum && gRangeCount < kMaxRanges; ++i) {
    const ElfW(Phdr)& segment = info->dlpi_phdr[i];
    if (segment.p_type != PT_LOAD || !(segment.p_flags & PF_X)) continue;
    const uintptr_t begin = info->dlpi_addr + segment.p_vaddr;
    gRanges[gRangeCount++] = {begin, begin + segment.p_memsz};
  }
  return 0;
}

// Whether this allocation of `size` bytes by `caller` is to fail; counts it when it is watched.
bool FailsNow(const void* caller, size_t size, bool* watched) {
  Held held;
  *watched = gArmed && FromCodeUnderTest(caller);
  if (!*watched) return false;
  ++gCounted;
  return gCounted == gFailAt || (gFailFrom != 0 && size >= gFailFrom);
}

// Forgets `old` and, when the allocation was watched, keeps track of `block` of `size` bytes.
void Record(void* old, void* block, bool watched, size_t size) {
  Held held;
  Untrack(old);
  if (block && watched) Track(block, size);
}

// `allocate()` in place of `old` (or of nothing), unless this allocation is to fail.
template <typename Allocate>
void* Allocated(const void* caller, void* old, size_t size, Allocate allocate) {
  bool watched = false;
  if (FailsNow(caller, size, &watched)) {
    errno = ENOMEM;
    return nullptr;
  }
  void* block = allocate();
  if (watched || old) Record(block || size == 0 ? old : nullptr, block, watched, size);
  return block;
}

}  // namespace

extern "C" {

void* malloc(size_t size) noexcept {
  return Allocated(__builtin_return_address(0), nullptr, size, [&] { return __libc_malloc(size); });
}

void* calloc(size_t count, size_t size) noexcept {
  return Allocated(__builtin_return_address(0), nullptr, count * size,
                   [&] { return __libc_calloc(count, size); });
}

void* realloc(void* old, size_t size) noexcept {
  return Allocated(__builtin_return_address(0), old, size,
                   [&] { return __libc_realloc(old, size); });
}

void free(void* block) noexcept {
  // Untracked before the block can be handed out again, to this thread or another.
  Record(block, nullptr, false, 0);
  __libc_free(block);
}

}  // extern "C"

namespace oom {

void Watch() {
  gRangeCount = 0;
  dl_iterate_phdr(AddRanges, nullptr);
}

void Arm(uint64_t failAt, size_t failFrom) {
  Held held;
  if (gLiveCount == 0) memset(gLive, 0, sizeof gLive);  // drops the removed entries too
  gBaseBytes = gPeakBytes = gLiveBytes;
  gCounted = 0;
  gFailAt = failAt;
  gFailFrom = failFrom;
  gArmed = true;
}

uint64_t Disarm() {
  Held held;
  gArmed = false;
  return gCounted;
}

size_t Live() {
  Held held;
  return gLiveCount;
}

size_t PeakBytes() {
  Held held;
  return gPeakBytes - gBaseBytes;
}

}  // namespace oom
