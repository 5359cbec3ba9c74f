// The resolver's withheld names (which drive the plug-in's fallbacks) and its lookup counts.
#include "tests/emulator/HostFixture.h"

namespace {

using emutest::Entry;
using emutest::HostTest;

TEST_F(HostTest, ProfilesWithholdNamesTheHostOtherwiseHas) {
  for (const emu::Profile& profile : emu::BuiltInProfiles()) {
    for (const std::string& name : profile.withheld) {
      SCOPED_TRACE(profile.name + " " + name);
      Restart(emu::DesktopProfileName("2019.1"));
      EXPECT_NE(Entry<void*>(name.c_str()), nullptr);  // or withholding it tests nothing
      Restart(profile.name.c_str());
      EXPECT_EQ(Entry<void*>(name.c_str()), nullptr);
    }
  }
}

TEST_F(HostTest, FallbacksStayWhereTheirPrimaryNamesAreWithheld) {
  Restart(emu::DesktopProfileName("2019.1-intfallback"));
  for (const char* name : {"REALGetPropValueInt", "REALSetPropValueInt",
                           "RuntimeArrayDirectGetGetProc", "RuntimeUBound"}) {
    EXPECT_NE(Entry<void*>(name), nullptr) << name;
  }
}

TEST_F(HostTest, EveryLookupIsCountedWithheldOrUnknown) {
  Restart(emu::DesktopProfileName("2019.1-bare"));
  for (const char* name : {"REALBuildString", "GetEventInstance", "NoSuchEntry"}) {
    EXPECT_EQ(host.LookupCount(name), 0u) << name;
    Entry<void*>(name);
    Entry<void*>(name);
    EXPECT_EQ(host.LookupCount(name), 2u) << name;
  }
  EXPECT_EQ(host.UnservedLookups(), 2u);  // only the name no real host has
  host.ClearAuditErrors();
}

}  // namespace
