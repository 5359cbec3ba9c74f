// A host started afresh for each test and audited at its end; entry points through its resolver.
#pragma once

#include <gtest/gtest.h>

#include "emulator/Emulator.h"

namespace emutest {

template <typename Fn>
Fn Entry(const char* name) {
  return reinterpret_cast<Fn>(emu::Host::Resolver()(name));
}

inline REALpicture NewPicture(RBInteger width, RBInteger height = 1) {
  return Entry<NewPictureProc>("newPicture")(width, height, 32);
}
inline emu::Value Picture(RBInteger width, RBInteger height = 1) {
  return emu::Value::AdoptObject(NewPicture(width, height));
}
inline bool Lock(REALpicture picture, int32_t type, REALpictureDescription* desc = nullptr) {
  REALpictureDescription local{};
  return Entry<REALLockPictureDescriptionProc>("REALLockPictureDescription")(
      picture, desc != nullptr ? desc : &local, type);
}
inline void Unlock(REALpicture picture) {
  Entry<UnlockPictureDescriptionProc>("unlockPictureDescription")(picture);
}

class HostTest : public ::testing::Test {
 protected:
  void SetUp() override { Restart("linux-desktop-2019.1"); }
  void TearDown() override {
    const emu::AuditReport report = host.Audit();
    EXPECT_TRUE(report.Clean()) << report.Format();
  }
  void Restart(const char* profile) {
    host.Shutdown();
    host.Start(*emu::FindProfile(profile));
  }

  emu::Host& host = emu::Host::Instance();
};

}  // namespace emutest
