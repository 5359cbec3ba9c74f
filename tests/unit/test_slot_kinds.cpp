// Which cache slot each host wrapper uses. A "once" wrapper asks the resolver on first use and
// keeps even a null answer; a "retry" wrapper asks again (with its fallback name) while it has
// none. Each wrapper starts from a fresh host record.
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

// A wrapper called as `call`, asking for these names.
#define ONCE(call, ...) Wrapper({[&] { call; }, {__VA_ARGS__}, kOnce})
#define RETRY(call, ...) Wrapper({[&] { call; }, {__VA_ARGS__}, kRetry})

TEST(SlotKinds, EveryWrapperAsksAsItsKindSays) {
  RBInteger block[4] = {};
  auto* mb = reinterpret_cast<REALmemoryBlock>(block);
  bool found = false;
  const Wrapper kWrappers[] = {
      ONCE(REALRegisterClass(nullptr), "PluginRegisterClass"),
      ONCE(REALRegisterModule(nullptr), "PluginRegisterModule"),
      ONCE(REALRegisterClassExtension(nullptr), "PluginRegisterClassExtension"),
      ONCE(REALRegisterMethod(nullptr), "PluginRegisterMethod"),
      ONCE(REALLockObject(nullptr), "REALLockObject"),
      ONCE(REALUnlockObject(nullptr), "REALUnlockObject"),
      ONCE(REALLockString(nullptr), "REALLockString"),
      ONCE(REALUnlockString(nullptr), "REALUnlockString"),
      ONCE(REALnewInstance("C"), "PluginNewInstance"),
      ONCE(REALRaiseException(nullptr), "RuntimeRaiseException"),
      RETRY(REALGetEventInstance(nullptr, 0), "GetEventInstance"),
      ONCE(REALLoadObjectMethod(nullptr, "M"), "REALLoadObjectMethod"),
      ONCE(REALGetPropValueString(nullptr, "P", nullptr), "REALGetPropValueString"),
      RETRY(REALSetPropValueString(nullptr, "P", nullptr), "REALSetPropValueString"),
      RETRY(REALGetPropValueInteger(nullptr, "P", nullptr), "REALGetPropValueInteger",
            "REALGetPropValueInt"),
      RETRY(REALSetPropValueInteger(nullptr, "P", 0), "REALSetPropValueInteger",
            "REALSetPropValueInt"),
      RETRY(REALGetPropValueBoolean(nullptr, "P", nullptr), "REALGetPropValueBool"),
      ONCE(REALGetStringData(nullptr, 0, nullptr), "PluginGetStringData"),
      ONCE(REALDisposeStringData(nullptr), "PluginDisposeStringData"),
      ONCE(REALConvertString(nullptr, 0), "REALConvertString"),
      ONCE(REALGetStringEncoding(nullptr), "REALGetStringEncoding"),
      ONCE(REALSetStringEncoding(nullptr, 0), "REALSetStringEncoding"),
      ONCE(originalREALBuildString(nullptr, 0), "REALBuildString"),
      ONCE(REALBuildStringWithEncoding(nullptr, 0, 0), "REALBuildStringWithEncoding"),
      ONCE(REALGetArrayUBound(nullptr), "RuntimeUBound"),
      RETRY(REALGetArrayValueColor(nullptr, 0, &found), "PluginColorArrayGetProc",
            "RuntimeArrayDirectGetGetProc"),
      RETRY(REALGetArrayValueInteger(nullptr, 0, &found), "PluginIntegerArrayGetProc",
            "RuntimeArrayDirectGetGetProc"),
      RETRY(REALGetArrayValueObject(nullptr, 0), "PluginObjectArrayGetProc",
            "RuntimeArrayDirectGetGetProc"),
      RETRY(REALNewMemoryBlockOriginal(1), "newMemoryBlock"),
      ONCE(REALMemoryBlockGetPtr(mb), "memoryBlockGetPtr"),
      ONCE(REALMemoryBlockGetSize(mb), "memoryBlockGetSize"),
      ONCE(REALNewPicture(1, 1, 32), "newPicture"),
      ONCE(REALGetPictureMask(nullptr, 0), "REALGetPictureMask"),
      ONCE(REALGetPictureGraphics(nullptr), "pluginPictureGraphicsGetter"),
      RETRY(REALLockPictureDescription(nullptr, nullptr, 0), "REALLockPictureDescription"),
      ONCE(REALUnlockPictureDescription(nullptr), "unlockPictureDescription"),
      ONCE(REALPictureClearCache(nullptr), "REALPictureClearCache"),
      ONCE(REALBuildPictureFromBuffer(1, 1, 1, nullptr, 3), "REALBuildPictureFromBuffer"),
      ONCE(REALGetPictureType(nullptr, &found), "PluginPictureGetType"),
      ONCE(REALGetClassRef("C"), "pluginObjectType"),
  };
  for (const Wrapper& w : kWrappers) {
    gHost = HostFacts();
    gHost.resolver = CountingResolver;
    gHost.version = 2019.1;
    asked.clear();
    w.call();
    w.call();
    for (const char* name : w.names) EXPECT_EQ(asked[name], w.kind) << name;
    EXPECT_EQ(asked.size(), w.names.size()) << w.names[0];
  }
  gHost = HostFacts();
}

}  // namespace
