// The host versions at which hosts changed in ways the plug-in must follow, each named for what
// it decides. Versions are the host's own numbers (REALGetRBVersion): the year, then the release
// in the fraction. "From" thresholds are the first version that has the behaviour, "Before"
// thresholds the first that no longer has it.
#pragma once

#include <stddef.h>
#include <stdint.h>

namespace hostversion {

// Hosts know the console flags of definitions (REALconsoleSafe, REALconsoleOnly).
constexpr double kConsoleFlagsFrom = 2010.029;
// Pictures with an alpha channel can be made with the Picture class's constructor.
constexpr double kAlphaPictureConstructorFrom = 2011.04;
// A failed REALLockPictureDescription leaves the picture locked until it is unlocked.
constexpr double kFailedLockHeldBefore = 2012.0;
// UTF-16 strings are built by REALBuildStringWithEncoding; older hosts build bytes and tag them.
constexpr double kBuildWithEncodingFrom = 2012.0;
// Text is read through string data records (PluginGetStringData); older hosts convert it.
constexpr double kStringDataRecordsFrom = 2012.0;
// Hosts build UTF-32 strings themselves; older ones are given UTF-16.
constexpr double kUTF32StringsFrom = 2013.0;
// A folder item's "NativePath" is a POSIX path; older hosts give only a file URL ("URLPath").
constexpr double kNativePathFrom = 2013.0;
// Extension and global methods are registered as modules, by hosts from the first version up to
// the one before the second.
constexpr double kModuleExtensionsFrom = 2013.0;
constexpr double kModuleExtensionsBefore = 3000.0;
// Multi-representation pictures answer "BestRepresentation".
constexpr double kBestRepresentationFrom = 2016.0;
// The plug-in reads strings, memory blocks and arrays from their records directly (the layouts
// in host/sdk.h); later hosts are asked through their entry points.
constexpr double kLegacyRecordsBefore = 2017.0;
// Graphics.DrawPicture takes Double coordinates; older hosts take Integer ones.
constexpr double kDrawPictureDoublesFrom = 2018.02;

// The definition layout version (control version) a host expects, from the first version that
// expects it; hosts older than the last row expect kOldestControlVersion.
struct ControlVersionStep {
  double from;
  uint32_t controlVersion;
};
inline constexpr ControlVersionStep kControlVersions[] = {
    {2013.04, 13},
    {2013.03, 12},
    {2013.0, 11},
    {2012.0, 10},
};
constexpr uint32_t kOldestControlVersion = 9;

}  // namespace hostversion

// The control version (9 to 13) that a host of the given version expects.
constexpr uint32_t ControlVersionFor(double hostVersion) {
  for (const hostversion::ControlVersionStep& step : hostversion::kControlVersions) {
    if (hostVersion >= step.from) return step.controlVersion;
  }
  return hostversion::kOldestControlVersion;
}
