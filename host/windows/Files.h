// Files on Windows: the host gives paths as UTF-8 text, and only the wide-character functions open
// every name (the narrow ones see the ANSI code page).
#pragma once

#include <stdio.h>

// Opens the file at the UTF-8 `path` with fopen's `mode`; null when it cannot be opened or the
// path is not UTF-8. A path taken from a file URL ("/C:/...") is opened without its first slash.
FILE* OpenUTF8Path(const char* path, const char* mode);
