// Which cache slot each host wrapper uses. A "once" wrapper asks the resolver on first use and
// keeps even a null answer; a "retry" wrapper asks again (with its fallback name) while it has
// none. Slots are process-wide, so this runs in a process of its own.
#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "host/HostRuntime.h"

namespace {

std::map<std::string, int> asked;

void* CountingResolver(const char* name) {
  ++asked[name];
  return nullptr;
}

enum Kind { kOnce = 1, kRetry = 2 };  // the times a name is asked in two calls

struct Wrapper {
  std::function<void()> call;
  std::vector<const char*> names;
  Kind kind;
};

TEST(SlotKinds, EveryWrapperAsksAsItsKindSays) {
  gResolver = CountingResolver;
  rbversion = 2019.1;
  RBInteger block[4] = {};
  auto* mb = reinterpret_cast<REALmemoryBlock>(block);
  bool found = false;
  const Wrapper kWrappers[] = {
      {[] { REALRegisterClass(nullptr); }, {"PluginRegisterClass"}, kOnce},
      {[] { REALRegisterModule(nullptr); }, {"PluginRegisterModule"}, kOnce},
      {[] { REALRegisterClassExtension(nullptr); }, {"PluginRegisterClassExtension"}, kOnce},
      {[] { REALRegisterMethod(nullptr); }, {"PluginRegisterMethod"}, kOnce},
      {[] { REALLockObject(nullptr); }, {"REALLockObject"}, kOnce},
      {[] { REALUnlockObject(nullptr); }, {"REALUnlockObject"}, kOnce},
      {[] { REALLockString(nullptr); }, {"REALLockString"}, kOnce},
      {[] { REALUnlockString(nullptr); }, {"REALUnlockString"}, kOnce},
      {[] { REALnewInstance("C"); }, {"PluginNewInstance"}, kOnce},
      {[] { REALRaiseException(nullptr); }, {"RuntimeRaiseException"}, kOnce},
      {[] { REALGetEventInstance(nullptr, 0); }, {"GetEventInstance"}, kRetry},
      {[] { REALLoadObjectMethod(nullptr, "M"); }, {"REALLoadObjectMethod"}, kOnce},
      {[] { REALGetPropValueString(nullptr, "P", nullptr); }, {"REALGetPropValueString"}, kOnce},
      {[] { REALSetPropValueString(nullptr, "P", nullptr); }, {"REALSetPropValueString"}, kRetry},
      {[] { REALGetPropValueInteger(nullptr, "P", nullptr); },
       {"REALGetPropValueInteger", "REALGetPropValueInt"},
       kRetry},
      {[] { REALSetPropValueInteger(nullptr, "P", 0); },
       {"REALSetPropValueInteger", "REALSetPropValueInt"},
       kRetry},
      {[] { REALGetPropValueBoolean(nullptr, "P", nullptr); }, {"REALGetPropValueBool"}, kRetry},
      {[] { REALGetStringData(nullptr, 0, nullptr); }, {"PluginGetStringData"}, kOnce},
      {[] { REALDisposeStringData(nullptr); }, {"PluginDisposeStringData"}, kOnce},
      {[] { REALConvertString(nullptr, 0); }, {"REALConvertString"}, kOnce},
      {[] { REALGetStringEncoding(nullptr); }, {"REALGetStringEncoding"}, kOnce},
      {[] { REALSetStringEncoding(nullptr, 0); }, {"REALSetStringEncoding"}, kOnce},
      {[] { originalREALBuildString(nullptr, 0); }, {"REALBuildString"}, kOnce},
      {[] { REALBuildStringWithEncoding(nullptr, 0, 0); }, {"REALBuildStringWithEncoding"}, kOnce},
      {[] { REALGetArrayUBound(nullptr); }, {"RuntimeUBound"}, kOnce},
      {[&] { REALGetArrayValueColor(nullptr, 0, &found); },
       {"PluginColorArrayGetProc", "RuntimeArrayDirectGetGetProc"},
       kRetry},
      {[&] { REALGetArrayValueInteger(nullptr, 0, &found); },
       {"PluginIntegerArrayGetProc", "RuntimeArrayDirectGetGetProc"},
       kRetry},
      {[] { REALGetArrayValueObject(nullptr, 0); },
       {"PluginObjectArrayGetProc", "RuntimeArrayDirectGetGetProc"},
       kRetry},
      {[] { REALNewMemoryBlockOriginal(1); }, {"newMemoryBlock"}, kRetry},
      {[&] { REALMemoryBlockGetPtr(mb); }, {"memoryBlockGetPtr"}, kOnce},
      {[&] { REALMemoryBlockGetSize(mb); }, {"memoryBlockGetSize"}, kOnce},
      {[] { REALNewPicture(1, 1, 32); }, {"newPicture"}, kOnce},
      {[] { REALGetPictureMask(nullptr, 0); }, {"REALGetPictureMask"}, kOnce},
      {[] { REALGetPictureGraphics(nullptr); }, {"pluginPictureGraphicsGetter"}, kOnce},
      {[] { REALLockPictureDescription(nullptr, nullptr, 0); },
       {"REALLockPictureDescription"},
       kRetry},
      {[] { REALUnlockPictureDescription(nullptr); }, {"unlockPictureDescription"}, kOnce},
      {[] { REALPictureClearCache(nullptr); }, {"REALPictureClearCache"}, kOnce},
      {[] { REALBuildPictureFromBuffer(1, 1, 1, nullptr, 3); },
       {"REALBuildPictureFromBuffer"},
       kOnce},
      {[&] { REALGetPictureType(nullptr, &found); }, {"PluginPictureGetType"}, kOnce},
      {[] { REALGetClassRef("C"); }, {"pluginObjectType"}, kOnce},
  };
  for (const Wrapper& w : kWrappers) {
    asked.clear();
    w.call();
    w.call();
    for (const char* name : w.names) EXPECT_EQ(asked[name], w.kind) << name;
    EXPECT_EQ(asked.size(), w.names.size()) << w.names[0];
  }
  gResolver = nullptr;
  rbversion = 0.0;
}

}  // namespace
