// A fresh emulator host for each test, audited at its end, learnt by the plug-in's code as
// REALPluginMain learns it, through the emulator's resolver with one fault a test can arm (the
// next string built throws instead).
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
  void SetUp() override { Use(2019.1); }
  void TearDown() override {
    const emu::AuditReport report = host().Audit();
    EXPECT_TRUE(report.Clean()) << report.Format();
    host().Shutdown();
    gHost = HostFacts();
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
    LearnHost(ResolveWithFaults);
  }
  static emu::Host& host() { return emu::Host::Instance(); }
};

}  // namespace unittest
