// A fresh emulator host for each test, audited at its end, with the resolver the plug-in's code
// gets: the emulator's, with one fault a test can arm (the next string built throws instead). The
// wrappers keep what they resolve for the life of the process, so every host uses this resolver.
#pragma once

#include <gtest/gtest.h>
#include <string.h>

#include <functional>
#include <utility>

#include "emulator/Emulator.h"
#include "host/HostRuntime.h"
#include "picture/PictureEditor.h"

namespace unittest {

inline std::function<void()>& BuildFault() {
  static std::function<void()> fault;
  return fault;
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

class HostTest : public ::testing::Test {
 protected:
  // A desktop of the build's platform first: on Linux the plug-in looks cairo up once for the
  // process.
  void SetUp() override { Use(2019.1); }
  void TearDown() override {
    const emu::AuditReport report = host().Audit();
    EXPECT_TRUE(report.Clean()) << report.Format();
    host().Shutdown();
    gResolver = nullptr;
    rbversion = 0.0;
  }
  // Restarts the host as one of this version and kind.
  void Use(double version, emu::AppKind app = emu::AppKind::Desktop,
           emu::Platform platform = emu::DesktopPlatform()) {
    emu::Profile profile;
    profile.name = "unit";
    profile.version = version;
    profile.app = app;
    profile.platform = platform;
    if (host().Started()) host().Shutdown();
    host().Start(profile);
    gResolver = ResolveWithFaults;
    rbversion = version;
    IsDesktop = false;
    IsConsole = false;
  }
  static emu::Host& host() { return emu::Host::Instance(); }
};

}  // namespace unittest
