#include "host/Exceptions.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "host/HostRuntime.h"
#include "host/Text.h"

void RaiseException(const char* className, const char* message, unsigned long, int) {
  REALstring text = message ? REALBuildUnicodeString(message, static_cast<int64_t>(strlen(message)),
                                                     kREALTextEncodingUTF8)
                            : nullptr;
  REALobject exception = REALnewInstance(className);
  if (exception == nullptr) exception = REALnewInstance("RuntimeException");
  if (exception == nullptr) {
    if (text) REALUnlockString(text);
    return;
  }
  REALSetPropValueString(exception, "Message", text);
  REALSetPropValueInteger(exception, "ErrorNumber", 0);
  REALRaiseException(exception);
  REALUnlockObject(exception);
  if (text) REALUnlockString(text);
}

void RaiseOutOfBoundsException(int64_t value, int64_t count) {
  constexpr size_t kSize = 205;
  char* message = static_cast<char*>(calloc(1, kSize));
  if (message == nullptr) {
    RaiseException("OutOfBoundsException", "Out of Bounds", kREALTextEncodingUTF8, 0);
    return;
  }
  const char* format =
      value < 0 ? "Parameter %s %s%s is too small. Range is %lld to %lld, but value is %lld."
                : "Parameter %s %s%s is too big. Range is %lld to %lld, but value is %lld.";
  snprintf(message, kSize, format, "index", "", "", 0LL, static_cast<long long>(count - 1),
           static_cast<long long>(value));
  RaiseException("OutOfBoundsException", message, kREALTextEncodingUTF8, 0);
  free(message);
}
