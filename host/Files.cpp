// A host folder item to an open C file. Hosts from hostversion::kNativePathFrom on give the native
// path (POSIX, or a Windows path) as "NativePath"; older hosts only give a file URL as "URLPath".
#include "host/Files.h"

#include <stdlib.h>
#include <string.h>

#include "host/Text.h"
#if defined(__APPLE__)
#include "host/mac/Paths.h"
#elif defined(_WIN32)
#include "host/windows/Files.h"
#endif

namespace {

constexpr size_t kFileBuffer = 1048576;

int HexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// The path of a file URL, percent-decoded into `out`, which holds at least strlen(url) + 1 bytes.
// Returns false for anything but a file URL.
bool PathFromFileURL(const char* url, char* out) {
  static const char kScheme[] = "file://";
  if (strncmp(url, kScheme, sizeof kScheme - 1) != 0) return false;
  const char* in = url + sizeof kScheme - 1;
  if (strncmp(in, "localhost/", 10) == 0) in += 9;
  size_t n = 0;
  for (; *in; ++in) {
    if (in[0] == '%' && HexValue(in[1]) >= 0 && HexValue(in[2]) >= 0) {
      out[n++] = static_cast<char>(HexValue(in[1]) * 16 + HexValue(in[2]));
      in += 2;
    } else {
      out[n++] = *in;
    }
  }
  out[n] = 0;
  return n > 0;
}

FILE* OpenPath(const char* path, const char* mode) {
#if defined(__APPLE__)
  FILE* stream = OpenDecomposedPath(path, mode);
#elif defined(_WIN32)
  FILE* stream = OpenUTF8Path(path, mode);
#else
  FILE* stream = fopen(path, mode);
#endif
  if (stream) setvbuf(stream, nullptr, _IOFBF, kFileBuffer);
  return stream;
}

FILE* OpenNativePath(REALstring pathString, const char* mode) {
  rbText text(pathString);
  const char* path = text.GetUTF8();
  return path[0] ? OpenPath(path, mode) : nullptr;
}

FILE* OpenURLPath(REALstring urlString, const char* mode) {
  rbText text(urlString);
  const char* url = text.GetUTF8();
  char* path = static_cast<char*>(calloc(1, strlen(url) + 1));
  if (path == nullptr) return nullptr;
  FILE* stream = PathFromFileURL(url, path) ? OpenPath(path, mode) : nullptr;
  free(path);
  return stream;
}

}  // namespace

FILE* OpenCFILE(REALfolderItem file, int, const char* mode, const wchar_t*) {
  if (file == nullptr) return nullptr;
  LockHandle(file);
  const bool native = gHost.version >= hostversion::kNativePathFrom;
  REALstring path = nullptr;
  FILE* stream = nullptr;
  if (REALGetPropValueString(reinterpret_cast<REALobject>(file), native ? "NativePath" : "URLPath",
                             &path) &&
      path != nullptr) {
    stream = native ? OpenNativePath(path, mode) : OpenURLPath(path, mode);
  }
  if (path) REALUnlockString(path);
  UnlockHandle(file);
  return stream;
}
