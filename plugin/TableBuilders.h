// Small builders for the records of the definition tables, so that each table reads as a list of
// declarations.
#pragma once

#include <stddef.h>

#include "host/sdk.h"

namespace tables {

constexpr uint32_t kRuntimeOnly = REALpropRuntimeOnly;
constexpr uint32_t kConsole = REALconsoleSafe;

template <typename Handler>
inline REALproc Proc(Handler handler) {
  return reinterpret_cast<REALproc>(handler);
}

inline REALmethodDefinition Method(REALproc handler, const char* declaration, uint32_t flags) {
  return {handler, nullptr, declaration, flags, 0, nullptr};
}

// A property that the host reads and writes itself, at byte `offset` of the instance record.
inline REALproperty FieldProperty(const char* name, const char* type, uint32_t flags,
                                  size_t offset) {
  return {nullptr,
          name,
          type,
          flags,
          REALstandardGetter,
          REALstandardSetter,
          static_cast<int32_t>(offset),
          nullptr,
          0,
          nullptr,
          0,
          nullptr};
}

inline REALproperty HandlerProperty(const char* name, const char* type, uint32_t flags,
                                    REALproc getter, REALproc setter) {
  return {nullptr, name, type, flags, getter, setter, 0, nullptr, 0, nullptr, 0, nullptr};
}

inline REALevent Event(const char* declaration) {
  return {declaration, 0, 0, nullptr};
}

inline REALconstant Constant(const char* declaration) {
  return {declaration, nullptr, 0, 0, nullptr};
}

}  // namespace tables
