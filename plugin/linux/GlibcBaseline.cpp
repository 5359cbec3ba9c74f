// Lets the Linux plug-in load on distributions older than the one it is built on.
//
// The C++ runtime is linked in statically and hidden behind the export list, so no libstdc++ is
// needed at run time. What remains are the few glibc symbols that got a new version after the
// oldest glibc the plug-in supports (2.28): references to them are routed here with the linker's
// --wrap and bound to the first version each architecture had. libdl and libpthread, where those
// versions live on an older glibc, are linked in so that the bindings always resolve.
#include <dlfcn.h>
#include <pthread.h>

#if defined(__x86_64__)
#define PNGKRV_GLIBC_BASE "GLIBC_2.2.5"
#elif defined(__i386__)
#define PNGKRV_GLIBC_BASE "GLIBC_2.0"
// pthread_create's 2.0 version is the one before thread attributes took their present form.
#define PNGKRV_GLIBC_PTHREAD_CREATE "GLIBC_2.1"
#elif defined(__aarch64__)
#define PNGKRV_GLIBC_BASE "GLIBC_2.17"
#elif defined(__arm__)
#define PNGKRV_GLIBC_BASE "GLIBC_2.4"
#else
#error "No glibc baseline versions for this architecture"
#endif
#ifndef PNGKRV_GLIBC_PTHREAD_CREATE
#define PNGKRV_GLIBC_PTHREAD_CREATE PNGKRV_GLIBC_BASE
#endif

extern "C" {

// glibc 2.34 moved these into libc under a new version; the old versions are still exported.
void* BaselineDlsym(void* handle, const char* name);
int BaselinePthreadOnce(pthread_once_t* once, void (*init)(void));
int BaselinePthreadKeyCreate(pthread_key_t* key, void (*destructor)(void*));
// The threads of the parallel encoder (std::thread).
int BaselinePthreadCreate(pthread_t* thread, const pthread_attr_t* attr, void* (*start)(void*),
                          void* arg);
int BaselinePthreadJoin(pthread_t thread, void** result);
__asm__(".symver BaselineDlsym, dlsym@" PNGKRV_GLIBC_BASE);
__asm__(".symver BaselinePthreadOnce, pthread_once@" PNGKRV_GLIBC_BASE);
__asm__(".symver BaselinePthreadKeyCreate, __pthread_key_create@" PNGKRV_GLIBC_BASE);
__asm__(".symver BaselinePthreadCreate, pthread_create@" PNGKRV_GLIBC_PTHREAD_CREATE);
__asm__(".symver BaselinePthreadJoin, pthread_join@" PNGKRV_GLIBC_BASE);

void* __wrap_dlsym(void* handle, const char* name) {
  return BaselineDlsym(handle, name);
}

int __wrap_pthread_once(pthread_once_t* once, void (*init)(void)) {
  return BaselinePthreadOnce(once, init);
}

int __wrap___pthread_key_create(pthread_key_t* key, void (*destructor)(void*)) {
  return BaselinePthreadKeyCreate(key, destructor);
}

int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attr, void* (*start)(void*),
                          void* arg) {
  return BaselinePthreadCreate(thread, attr, start, arg);
}

int __wrap_pthread_join(pthread_t thread, void** result) {
  return BaselinePthreadJoin(thread, result);
}

// The C++ runtime's headers read this glibc 2.32 flag to skip atomic operations while the process
// has a single thread. The plug-in's own copy says "not known to be single-threaded", so reference
// counts are always updated atomically.
__attribute__((visibility("hidden"))) char __libc_single_threaded = 0;

}  // extern "C"
