// File paths on macOS. Names on macOS file systems are kept in Unicode canonical decomposition
// (form D): HFS+ stores every name so, and the system's own file functions hand APFS, which keeps
// names as given, decomposed names too. A host's path may carry composed characters (an "é" typed
// in user code), so it is decomposed before a file is opened or made with it.
#pragma once

#include <stdio.h>

// fopen of `path` (UTF-8) in form D. Core Foundation does the decomposition; it is looked up in
// the running process (every macOS host has it loaded), and where it is missing or fails, the path
// is opened as it is.
FILE* OpenDecomposedPath(const char* path, const char* mode);
