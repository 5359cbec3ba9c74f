// Which cache slot each host wrapper uses. A "once" wrapper asks the resolver on first use and
// keeps even a null answer; a "retry" wrapper asks again (with its fallback name) while it has
// none, for entry points that a host may serve only later. Each wrapper is called twice against
// a resolver that answers nothing and counts the names asked. The slots are process-wide, so this
// runs in a process of its own, before anything else has asked the resolver.
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
  const char* what;
  std::function<void()> call;
  std::vector<const char*> names;
  Kind kind;
};

TEST(SlotKinds, EveryWrapperAsksAsItsKindSays) {
  gResolver = CountingResolver;
  rbversion = 2019.1;
  RBInteger block[4] = {};
  auto* someBlock = reinterpret_cast<REALmemoryBlock>(block);
  bool found = false;
  const Wrapper kWrappers[] = {
      {"REALRegisterClass", [] { REALRegisterClass(nullptr); }, {"PluginRegisterClass"}, kOnce},
      {"REALRegisterModule", [] { REALRegisterModule(nullptr); }, {"PluginRegisterModule"}, kOnce},
      {"REALRegisterClassExtension",
       [] { REALRegisterClassExtension(nullptr); },
       {"PluginRegisterClassExtension"},
       kOnce},
      {"REALRegisterMethod", [] { REALRegisterMethod(nullptr); }, {"PluginRegisterMethod"}, kOnce},
      {"REALLockObject", [] { REALLockObject(nullptr); }, {"REALLockObject"}, kOnce},
      {"REALUnlockObject", [] { REALUnlockObject(nullptr); }, {"REALUnlockObject"}, kOnce},
      {"REALLockString", [] { REALLockString(nullptr); }, {"REALLockString"}, kOnce},
      {"REALUnlockString", [] { REALUnlockString(nullptr); }, {"REALUnlockString"}, kOnce},
      {"REALnewInstance", [] { REALnewInstance("C"); }, {"PluginNewInstance"}, kOnce},
      {"REALRaiseException", [] { REALRaiseException(nullptr); }, {"RuntimeRaiseException"}, kOnce},
      {"REALGetEventInstance",
       [] { REALGetEventInstance(nullptr, 0); },
       {"GetEventInstance"},
       kRetry},
      {"REALLoadObjectMethod",
       [] { REALLoadObjectMethod(nullptr, "M"); },
       {"REALLoadObjectMethod"},
       kOnce},
      {"REALGetPropValueString",
       [] { REALGetPropValueString(nullptr, "P", nullptr); },
       {"REALGetPropValueString"},
       kOnce},
      {"REALSetPropValueString",
       [] { REALSetPropValueString(nullptr, "P", nullptr); },
       {"REALSetPropValueString"},
       kRetry},
      {"REALGetPropValueInteger",
       [] { REALGetPropValueInteger(nullptr, "P", nullptr); },
       {"REALGetPropValueInteger", "REALGetPropValueInt"},
       kRetry},
      {"REALSetPropValueInteger",
       [] { REALSetPropValueInteger(nullptr, "P", 0); },
       {"REALSetPropValueInteger", "REALSetPropValueInt"},
       kRetry},
      {"REALGetPropValueBoolean",
       [] { REALGetPropValueBoolean(nullptr, "P", nullptr); },
       {"REALGetPropValueBool"},
       kRetry},
      {"REALGetStringData",
       [] { REALGetStringData(nullptr, 0, nullptr); },
       {"PluginGetStringData"},
       kOnce},
      {"REALDisposeStringData",
       [] { REALDisposeStringData(nullptr); },
       {"PluginDisposeStringData"},
       kOnce},
      {"REALConvertString", [] { REALConvertString(nullptr, 0); }, {"REALConvertString"}, kOnce},
      {"REALGetStringEncoding",
       [] { REALGetStringEncoding(nullptr); },
       {"REALGetStringEncoding"},
       kOnce},
      {"REALSetStringEncoding",
       [] { REALSetStringEncoding(nullptr, 0); },
       {"REALSetStringEncoding"},
       kOnce},
      {"originalREALBuildString",
       [] { originalREALBuildString(nullptr, 0); },
       {"REALBuildString"},
       kOnce},
      {"REALBuildStringWithEncoding",
       [] { REALBuildStringWithEncoding(nullptr, 0, 0); },
       {"REALBuildStringWithEncoding"},
       kOnce},
      {"REALGetArrayUBound", [] { REALGetArrayUBound(nullptr); }, {"RuntimeUBound"}, kOnce},
      {"REALGetArrayValueColor",
       [&] { REALGetArrayValueColor(nullptr, 0, &found); },
       {"PluginColorArrayGetProc", "RuntimeArrayDirectGetGetProc"},
       kRetry},
      {"REALGetArrayValueInteger",
       [&] { REALGetArrayValueInteger(nullptr, 0, &found); },
       {"PluginIntegerArrayGetProc", "RuntimeArrayDirectGetGetProc"},
       kRetry},
      {"REALGetArrayValueObject",
       [] { REALGetArrayValueObject(nullptr, 0); },
       {"PluginObjectArrayGetProc", "RuntimeArrayDirectGetGetProc"},
       kRetry},
      {"REALNewMemoryBlockOriginal",
       [] { REALNewMemoryBlockOriginal(1); },
       {"newMemoryBlock"},
       kRetry},
      {"REALMemoryBlockGetPtr",
       [&] { REALMemoryBlockGetPtr(someBlock); },
       {"memoryBlockGetPtr"},
       kOnce},
      {"REALMemoryBlockGetSize",
       [&] { REALMemoryBlockGetSize(someBlock); },
       {"memoryBlockGetSize"},
       kOnce},
      {"REALNewPicture", [] { REALNewPicture(1, 1, 32); }, {"newPicture"}, kOnce},
      {"REALGetPictureMask", [] { REALGetPictureMask(nullptr, 0); }, {"REALGetPictureMask"}, kOnce},
      {"REALGetPictureGraphics",
       [] { REALGetPictureGraphics(nullptr); },
       {"pluginPictureGraphicsGetter"},
       kOnce},
      {"REALLockPictureDescription",
       [] { REALLockPictureDescription(nullptr, nullptr, 0); },
       {"REALLockPictureDescription"},
       kRetry},
      {"REALUnlockPictureDescription",
       [] { REALUnlockPictureDescription(nullptr); },
       {"unlockPictureDescription"},
       kOnce},
      {"REALPictureClearCache",
       [] { REALPictureClearCache(nullptr); },
       {"REALPictureClearCache"},
       kOnce},
      {"REALBuildPictureFromBuffer",
       [] { REALBuildPictureFromBuffer(1, 1, 1, nullptr, 3); },
       {"REALBuildPictureFromBuffer"},
       kOnce},
      {"REALGetPictureType",
       [&] { REALGetPictureType(nullptr, &found); },
       {"PluginPictureGetType"},
       kOnce},
      {"REALGetClassRef", [] { REALGetClassRef("C"); }, {"pluginObjectType"}, kOnce},
  };
  for (const Wrapper& w : kWrappers) {
    asked.clear();
    w.call();
    w.call();
    for (const char* name : w.names) {
      EXPECT_EQ(asked[name], w.kind) << w.what << " asking for " << name;
    }
    EXPECT_EQ(asked.size(), w.names.size()) << w.what;
  }
  gResolver = nullptr;
  rbversion = 0.0;
}

}  // namespace
