// Lets the Linux plug-in load on distributions older than the one it is built on.
//
// The C++ runtime is linked in statically and hidden behind the export list, so no libstdc++ is
// needed at run time. What remains are the few glibc symbols that got a new version after the
// oldest glibc the plug-in supports (2.28): references to them are routed here with the linker's
// --wrap and bound to the first version each architecture had. libdl and libpthread, where those
// versions live on an older glibc, are linked in so that the bindings always resolve.
#include <dlfcn.h>
#include <link.h>
#include <pthread.h>

#include <cstdint>

#if defined(__x86_64__)
#define PNGKRV_GLIBC_BASE "GLIBC_2.2.5"
#elif defined(__i386__)
#define PNGKRV_GLIBC_BASE "GLIBC_2.0"
#elif defined(__aarch64__)
#define PNGKRV_GLIBC_BASE "GLIBC_2.17"
#elif defined(__arm__)
#define PNGKRV_GLIBC_BASE "GLIBC_2.4"
#else
#error "No glibc baseline versions for this architecture"
#endif

extern "C" {

// glibc 2.34 moved these into libc under a new version; the old versions are still exported.
void* BaselineDlsym(void* handle, const char* name);
int BaselinePthreadOnce(pthread_once_t* once, void (*init)(void));
int BaselinePthreadKeyCreate(pthread_key_t* key, void (*destructor)(void*));
__asm__(".symver BaselineDlsym, dlsym@" PNGKRV_GLIBC_BASE);
__asm__(".symver BaselinePthreadOnce, pthread_once@" PNGKRV_GLIBC_BASE);
__asm__(".symver BaselinePthreadKeyCreate, __pthread_key_create@" PNGKRV_GLIBC_BASE);

void* __wrap_dlsym(void* handle, const char* name) {
  return BaselineDlsym(handle, name);
}

int __wrap_pthread_once(pthread_once_t* once, void (*init)(void)) {
  return BaselinePthreadOnce(once, init);
}

int __wrap___pthread_key_create(pthread_key_t* key, void (*destructor)(void*)) {
  return BaselinePthreadKeyCreate(key, destructor);
}

// The C++ runtime's headers read this glibc 2.32 flag to skip atomic operations while the process
// has a single thread. The plug-in's own copy says "not known to be single-threaded", so reference
// counts are always updated atomically.
__attribute__((visibility("hidden"))) char __libc_single_threaded = 0;

#if !defined(__arm__)
// The unwinder asks glibc 2.35's _dl_find_object for the object that holds a code address and its
// unwind table (ARM's unwinder looks its index tables up by other means). The same answer, from
// the loaded objects' program headers.
namespace {

struct FindRequest {
  uintptr_t pc;
  dl_find_object* result;
  bool found;
};

int FindObject(dl_phdr_info* info, size_t, void* data) {
  auto* request = static_cast<FindRequest*>(data);
  uintptr_t start = UINTPTR_MAX;
  uintptr_t end = 0;
  bool holds = false;
  const ElfW(Phdr)* ehFrame = nullptr;
#if DLFO_STRUCT_HAS_EH_DBASE
  const ElfW(Phdr)* dynamic = nullptr;
#endif
  for (ElfW(Half) i = 0; i < info->dlpi_phnum; ++i) {
    const ElfW(Phdr)& ph = info->dlpi_phdr[i];
    if (ph.p_type == PT_LOAD) {
      uintptr_t from = info->dlpi_addr + ph.p_vaddr;
      uintptr_t to = from + ph.p_memsz;
      if (from < start) start = from;
      if (to > end) end = to;
      if (request->pc >= from && request->pc < to) holds = true;
    } else if (ph.p_type == PT_GNU_EH_FRAME) {
      ehFrame = &ph;
#if DLFO_STRUCT_HAS_EH_DBASE
    } else if (ph.p_type == PT_DYNAMIC) {
      dynamic = &ph;
#endif
    }
  }
  if (!holds) return 0;
  dl_find_object* result = request->result;
  *result = dl_find_object{};
  result->dlfo_map_start = reinterpret_cast<void*>(start);
  result->dlfo_map_end = reinterpret_cast<void*>(end);
  if (ehFrame != nullptr) {
    result->dlfo_eh_frame = reinterpret_cast<void*>(info->dlpi_addr + ehFrame->p_vaddr);
  }
#if DLFO_STRUCT_HAS_EH_DBASE
  // Data-relative unwind entries count from the global offset table; glibc has already relocated
  // the dynamic section's addresses.
  if (dynamic != nullptr) {
    auto* entry = reinterpret_cast<const ElfW(Dyn)*>(info->dlpi_addr + dynamic->p_vaddr);
    for (; entry->d_tag != DT_NULL; ++entry) {
      if (entry->d_tag == DT_PLTGOT) {
        result->dlfo_eh_dbase = reinterpret_cast<void*>(entry->d_un.d_ptr);
        break;
      }
    }
  }
#endif
  request->found = true;
  return 1;
}

}  // namespace

int __wrap__dl_find_object(void* pc, dl_find_object* result) {
  FindRequest request{reinterpret_cast<uintptr_t>(pc), result, false};
  dl_iterate_phdr(FindObject, &request);
  return request.found ? 0 : -1;
}
#endif

}  // extern "C"
