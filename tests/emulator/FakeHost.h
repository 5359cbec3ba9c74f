// Test fixtures: a host started with a chosen profile, with or without a fresh copy of the fake
// plug-in, and audited after each test.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "emulator/Emulator.h"

namespace emutest {

// Starts the host afresh with `profile` and loads a private copy of the fake plug-in, so that
// its cached entry points and tables start over as in a new process.
void StartWithPlugin(const emu::Profile& profile);

template <typename Fn>
Fn Entry(const char* name) {
  return reinterpret_cast<Fn>(emu::Host::Resolver()(name));
}

class HostTest : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;
  emu::Host& host = emu::Host::Instance();
};

class PluginTest : public HostTest {
 protected:
  void SetUp() override { StartWithPlugin(*emu::FindProfile("desktop-2019.1")); }
};

}  // namespace emutest
