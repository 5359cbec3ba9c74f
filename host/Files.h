// Files named by the host: a folder item opened as a C file.
#pragma once

#include <stdio.h>
#include <wchar.h>

#include "host/HostRuntime.h"

// A folder item to an open C file, or null; `unused` and `wideMode` are accepted and not used.
FILE* OpenCFILE(REALfolderItem file, int unused, const char* mode, const wchar_t* wideMode);
