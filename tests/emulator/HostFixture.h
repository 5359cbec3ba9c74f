// A host started afresh for each test and audited at its end; entry points through its resolver.
#pragma once

#include <gtest/gtest.h>

#include "emulator/Emulator.h"

namespace emutest {

template <typename Fn>
Fn Entry(const char* name) {
  return reinterpret_cast<Fn>(emu::Host::Resolver()(name));
}

// The description type of the pictures of the build's own desktop hosts.
#if defined(_WIN32)
constexpr uint32_t kDesktopType = pictureBGRAPixels;
#else
constexpr uint32_t kDesktopType = pictureCairoContext;
#endif

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
  void SetUp() override { Restart(emu::DesktopProfileName("2019.1")); }
  void TearDown() override {
    const emu::AuditReport report = host.Audit();
    EXPECT_TRUE(report.Clean()) << report.Format();
  }
  void Restart(const std::string& profile) {
    host.Shutdown();
    const emu::Profile* found = emu::FindProfile(profile);
    ASSERT_NE(found, nullptr) << profile;
    host.Start(*found);
  }

  emu::Host& host = emu::Host::Instance();
};

}  // namespace emutest
