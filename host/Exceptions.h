// Host exceptions raised by class name. The host raises them when the plug-in's handler returns,
// so a handler that calls these returns at once with its neutral result.
#pragma once

#include <stdint.h>

// Raises an exception of the named host class (or RuntimeException when the host does not know
// it) with the message as UTF-8. `encoding` and `errorNumber` are accepted for the callers' sake;
// the message is always taken as UTF-8 and the error number is always 0.
void RaiseException(const char* className, const char* message, unsigned long encoding,
                    int errorNumber);

// Raises OutOfBoundsException for an index `value` outside 0 .. count - 1.
void RaiseOutOfBoundsException(int64_t value, int64_t count);
