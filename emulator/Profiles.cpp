// The built-in host profiles: the host versions the plug-in branches on, as desktop hosts of the
// build's own platform (Linux; Windows, with pictures of modern and of older hosts) and as macOS
// desktop hosts, the console and web kinds of application, and hosts that lack some services.
#include "emulator/Internal.h"

namespace emu {

namespace {

Profile Make(std::string name, double version, AppKind app, Platform platform = Platform::Linux,
             std::set<std::string> withheld = {}) {
  Profile p;
  p.name = std::move(name);
  p.version = version;
  p.app = app;
  p.platform = platform;
  p.withheld = std::move(withheld);
  return p;
}

// The versions the plug-in branches on: drawing with Double coordinates (2018.02), direct record
// reads (below 2017.0), best representations (2016.0), control versions 13, 11, 10 and 9 (2013.04,
// 2013.0, 2012.0, 2011.5), the modules of 2013.0 up to 3000.0, the picture constructor (2011.04),
// the unlock after a failed picture lock (below 2012.0) and console marks (below 2010.029).
const double kVersions[] = {2019.1, 2018.02, 2017.0, 2016.0, 2013.04,
                            2013.0, 3000.0,  2012.0, 2011.5, 2010.0};

// "2019.1", "2013.04", "3000.0".
std::string VersionText(double version) {
  std::string text = std::to_string(version);
  text.erase(text.find_last_not_of('0') + 1);
  if (text.back() == '.') text += '0';
  return text;
}

// The desktop hosts of the build's own platform.
#if defined(_WIN32)
constexpr char kDesktopPrefix[] = "windows-desktop-";
constexpr Platform kDesktopPlatform = Platform::Windows;
#else
constexpr char kDesktopPrefix[] = "linux-desktop-";
constexpr Platform kDesktopPlatform = Platform::Linux;
#endif

std::vector<Profile> MakeBuiltIns() {
  std::vector<Profile> profiles;
  for (double v : kVersions) {
    profiles.push_back(
        Make(kDesktopPrefix + VersionText(v), v, AppKind::Desktop, kDesktopPlatform));
  }
#if defined(_WIN32)
  for (double v : kVersions) {
    profiles.push_back(
        Make("windows-gdiplus-" + VersionText(v), v, AppKind::Desktop, Platform::WindowsGdiplus));
  }
#endif
  for (double v : kVersions) {
    profiles.push_back(Make("mac-desktop-" + VersionText(v), v, AppKind::Desktop, Platform::Mac));
  }
  profiles.push_back(Make("console-2019.1", 2019.1, AppKind::Console));
  // A console host that keeps a picture locked after a failed lock.
  profiles.push_back(Make("console-2011.5", 2011.5, AppKind::Console));
  profiles.push_back(Make("web-2019.1", 2019.1, AppKind::Web));
  // Only the older names of the integer property and array services exist.
  profiles.push_back(
      Make(DesktopProfileName("2019.1-intfallback"), 2019.1, AppKind::Desktop, kDesktopPlatform,
           {"REALGetPropValueInteger", "REALSetPropValueInteger", "PluginColorArrayGetProc",
            "PluginIntegerArrayGetProc", "PluginObjectArrayGetProc"}));
  // A host without the optional services: events, property access by name, exceptions, direct
  // array getters and string data records.
  profiles.push_back(
      Make(DesktopProfileName("2019.1-bare"), 2019.1, AppKind::Desktop, kDesktopPlatform,
           {"GetEventInstance", "REALGetPropValueInteger", "REALGetPropValueInt",
            "REALSetPropValueInteger", "REALSetPropValueInt", "REALGetPropValueBool",
            "REALSetPropValueString", "RuntimeRaiseException", "RuntimeArrayDirectGetGetProc",
            "REALLoadObjectMethod", "pluginObjectType"}));
  return profiles;
}

}  // namespace

std::string DesktopProfileName(std::string_view version) {
  return kDesktopPrefix + std::string(version);
}

Platform DesktopPlatform() {
  return kDesktopPlatform;
}

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
