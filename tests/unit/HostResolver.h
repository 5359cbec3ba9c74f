// The emulator's resolver as the unit tests hand it to the plug-in's code, with one fault a test
// can arm: the next string the host builds throws instead. The wrappers keep what they resolve
// for the life of the process, so every test that starts a host uses this resolver.
#pragma once

#include <string.h>

#include <functional>
#include <utility>

#include "emulator/Emulator.h"

namespace unittest {

inline std::function<void()>& BuildFault() {
  static std::function<void()> fault;
  return fault;
}

// The next REALBuildString call runs `fault` (which throws) instead of building the string.
inline void ArmBuildFault(std::function<void()> fault) {
  BuildFault() = std::move(fault);
}

inline REALstring BuildStringOrFault(const void* data, int32_t length) {
  if (std::function<void()> fault = std::exchange(BuildFault(), nullptr)) fault();
  static const auto build =
      reinterpret_cast<REALBuildStringProc>(emu::Host::Resolver()("REALBuildString"));
  return build(data, length);
}

inline void* ResolveWithFaults(const char* name) {
  if (strcmp(name, "REALBuildString") == 0) return reinterpret_cast<void*>(BuildStringOrFault);
  return emu::Host::Resolver()(name);
}

inline REALResolver Resolver() {
  return ResolveWithFaults;
}

}  // namespace unittest
