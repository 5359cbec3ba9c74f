// The built-in host profiles: the host versions the plug-in branches on, the three kinds of
// application, and hosts that lack some services.
#include "emulator/Internal.h"

namespace emu {

namespace {

Profile Make(std::string name, double version, AppKind app, std::set<std::string> withheld = {}) {
  Profile p;
  p.name = std::move(name);
  p.version = version;
  p.app = app;
  p.withheld = std::move(withheld);
  return p;
}

std::vector<Profile> MakeBuiltIns() {
  return {
      Make("desktop-2019.1", 2019.1, AppKind::Desktop),
      Make("console-2019.1", 2019.1, AppKind::Console),
      Make("web-2019.1", 2019.1, AppKind::Web),
      Make("desktop-2013.04", 2013.04, AppKind::Desktop),
      Make("desktop-3000.0", 3000.0, AppKind::Desktop),
      Make("desktop-2012.0", 2012.0, AppKind::Desktop),
      Make("desktop-2011.5", 2011.5, AppKind::Desktop),
      Make("desktop-2010.0", 2010.0, AppKind::Desktop),
      Make("desktop-2013.0", 2013.0, AppKind::Desktop),
      Make("desktop-2017.0", 2017.0, AppKind::Desktop),
      // Only the older names of the integer property and array services exist.
      Make("desktop-2019.1-intfallback", 2019.1, AppKind::Desktop,
           {"REALGetPropValueInteger", "REALSetPropValueInteger", "PluginColorArrayGetProc",
            "PluginIntegerArrayGetProc", "PluginObjectArrayGetProc"}),
      // A host without the optional services: events, property access by name, exceptions,
      // direct array getters and string data records.
      Make("desktop-2019.1-bare", 2019.1, AppKind::Desktop,
           {"GetEventInstance", "REALGetPropValueInteger", "REALGetPropValueInt",
            "REALSetPropValueInteger", "REALSetPropValueInt", "REALGetPropValueBool",
            "REALSetPropValueString", "RuntimeRaiseException", "RuntimeArrayDirectGetGetProc",
            "REALLoadObjectMethod", "pluginObjectType"}),
  };
}

}  // namespace

const std::vector<Profile>& BuiltInProfiles() {
  static const std::vector<Profile> profiles = MakeBuiltIns();
  return profiles;
}

const Profile* FindProfile(std::string_view name) {
  for (const Profile& p : BuiltInProfiles()) {
    if (p.name == name) return &p;
  }
  return nullptr;
}

}  // namespace emu
