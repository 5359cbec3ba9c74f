#include "host/windows/Files.h"

#include <stdlib.h>
#include <string.h>
#include <windows.h>

namespace {

// `text` as a new zero-terminated wide string (free it), or null when it is not UTF-8.
wchar_t* Widen(const char* text) {
  const int count = MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text, -1, nullptr, 0);
  if (count <= 0) return nullptr;
  auto* wide = static_cast<wchar_t*>(calloc(static_cast<size_t>(count), sizeof(wchar_t)));
  if (wide && MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text, -1, wide, count) != count) {
    free(wide);
    return nullptr;
  }
  return wide;
}

bool IsDriveLetter(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

}  // namespace

FILE* OpenUTF8Path(const char* path, const char* mode) {
  if (path[0] == '/' && IsDriveLetter(path[1]) && path[2] == ':') ++path;
  wchar_t* widePath = Widen(path);
  wchar_t* wideMode = widePath ? Widen(mode) : nullptr;
  FILE* stream = wideMode ? _wfopen(widePath, wideMode) : nullptr;
  free(wideMode);
  free(widePath);
  return stream;
}
