#include "host/mac/Paths.h"

#include <dlfcn.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

namespace {

// Core Foundation's types as its headers declare them: references are pointers, CFIndex is a
// pointer-sized signed integer, Boolean a byte.
using CFIndex = intptr_t;
using CFStringRef = const void*;
using CFMutableStringRef = void*;
using CFStringEncoding = uint32_t;
using Boolean = unsigned char;

constexpr CFStringEncoding kUTF8 = 0x08000100;
constexpr CFIndex kNormalizationFormD = 0;
// The UTF-8 of one UTF-16 unit takes at most 6 bytes in Core Foundation's reckoning.
constexpr int64_t kBytesPerUnit = 6;
constexpr int64_t kMaxPathBytes = int64_t{1} << 31;

struct CoreFoundation {
  CFStringRef (*createWithBytes)(const void* allocator, const uint8_t* bytes, CFIndex length,
                                 CFStringEncoding encoding, Boolean external) = nullptr;
  CFMutableStringRef (*createMutableCopy)(const void* allocator, CFIndex maxLength,
                                          CFStringRef string) = nullptr;
  void (*normalize)(CFMutableStringRef string, CFIndex form) = nullptr;
  CFIndex (*length)(CFStringRef string) = nullptr;
  Boolean (*cString)(CFStringRef string, char* buffer, CFIndex size,
                     CFStringEncoding encoding) = nullptr;
  void (*release)(const void* object) = nullptr;

  bool Complete() const {
    return createWithBytes && createMutableCopy && normalize && length && cString && release;
  }
};

template <typename Fn>
void Lookup(Fn& function, const char* name) {
  function = reinterpret_cast<Fn>(dlsym(RTLD_DEFAULT, name));
}

// Looked up once for the process, like the host's own entry points.
const CoreFoundation& Functions() {
  static const CoreFoundation functions = [] {
    CoreFoundation f;
    Lookup(f.createWithBytes, "CFStringCreateWithBytes");
    Lookup(f.createMutableCopy, "CFStringCreateMutableCopy");
    Lookup(f.normalize, "CFStringNormalize");
    Lookup(f.length, "CFStringGetLength");
    Lookup(f.cString, "CFStringGetCString");
    Lookup(f.release, "CFRelease");
    return f;
  }();
  return functions;
}

// The UTF-8 of `string` in a new zero-filled buffer (freed by the caller), or null.
char* UTF8Of(const CoreFoundation& cf, CFStringRef string) {
  const int64_t size = kBytesPerUnit * cf.length(string) + 16;
  if (size <= 16 || size >= kMaxPathBytes) return nullptr;
  char* buffer = static_cast<char*>(calloc(1, static_cast<size_t>(size)));
  if (buffer && !cf.cString(string, buffer, static_cast<CFIndex>(size), kUTF8)) {
    free(buffer);
    return nullptr;
  }
  return buffer;
}

// `path` in form D in a new buffer (freed by the caller), or null.
char* Decomposed(const char* path) {
  const CoreFoundation& cf = Functions();
  if (!cf.Complete()) return nullptr;
  CFStringRef string = cf.createWithBytes(nullptr, reinterpret_cast<const uint8_t*>(path),
                                          static_cast<CFIndex>(strlen(path)), kUTF8, false);
  if (string == nullptr) return nullptr;
  // Without a mutable copy the path is converted as it is.
  CFMutableStringRef copy = cf.createMutableCopy(nullptr, 0, string);
  if (copy) cf.normalize(copy, kNormalizationFormD);
  char* result = UTF8Of(cf, copy ? copy : string);
  if (copy) cf.release(copy);
  cf.release(string);
  return result;
}

}  // namespace

FILE* OpenDecomposedPath(const char* path, const char* mode) {
  char* decomposed = Decomposed(path);
  FILE* stream = fopen(decomposed ? decomposed : path, mode);
  free(decomposed);
  return stream;
}
