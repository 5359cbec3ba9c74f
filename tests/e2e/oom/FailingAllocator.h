// Allocation failures on demand for the code under test (the plug-in, libpng and zlib), made by
// this executable's own malloc, calloc and realloc, which those libraries reach through the
// dynamic linker. Allocations made elsewhere (the host emulator, the C library) always succeed.
#pragma once

#include <stddef.h>
#include <stdint.h>

namespace oom {

// Finds the code under test among the loaded libraries; call once the plug-in is loaded.
void Watch();

// From now on, counts the allocations of the code under test and keeps track of those not yet
// freed. The `failAt`-th of them (1 for the first; 0 for none) fails, and so does every one of
// at least `failFrom` bytes (0: none).
void Arm(uint64_t failAt, size_t failFrom = 0);

// Stops failing and counting; returns how many allocations were counted.
uint64_t Disarm();

// Allocations of the code under test made while armed and not freed since.
size_t Live();

// The most bytes that the code under test held at once in those allocations since Arm, beyond
// what it held at Arm.
size_t PeakBytes();

}  // namespace oom
