// What the plug-in knows of the host it runs in, in one record: REALPluginMain builds it before
// anything else runs, and it is the plug-in's only state that lives beyond a call. (The plug-in's
// definition tables, which registration adapts to the host in place, are its published tables,
// not state of its own: plugin/Tables.h.)
//
// The host's entry points are resolved by name on first use and kept in the record's slots. Two
// kinds of slot exist. A "once" slot asks the resolver on first use and keeps the answer, also a
// null answer, so a missing entry point stays missing. A "retry" slot asks again (with its
// fallback name) on every use while it holds null.
#pragma once

#include "host/ProcessFunctions.h"
#include "host/sdk.h"

namespace hostrt {

// The host's resolver's answer for `name`; null without a resolver.
void* Resolve(const char* name);

template <typename Fn>
struct OnceSlot {
  bool resolved = false;
  Fn fn = nullptr;

  Fn Get(const char* name) {
    if (!resolved) {
      fn = reinterpret_cast<Fn>(Resolve(name));
      resolved = true;
    }
    return fn;
  }
};

template <typename Fn>
struct RetrySlot {
  Fn fn = nullptr;

  Fn Get(const char* name, const char* fallback = nullptr) {
    if (fn == nullptr) {
      void* entry = Resolve(name);
      if (entry == nullptr && fallback != nullptr) entry = Resolve(fallback);
      fn = reinterpret_cast<Fn>(entry);
    }
    return fn;
  }
};

// A retry slot whose two names have different signatures: at most one of the two is set.
template <typename Primary, typename Fallback>
struct FallbackSlot {
  Primary primary = nullptr;
  Fallback fallback = nullptr;

  void Get(const char* name, const char* fallbackName) {
    if (primary != nullptr || fallback != nullptr) return;
    primary = reinterpret_cast<Primary>(Resolve(name));
    if (primary == nullptr) fallback = reinterpret_cast<Fallback>(Resolve(fallbackName));
  }
};

}  // namespace hostrt

// The slot of every host entry point the plug-in uses (host/HostRuntime.h wraps each one).
struct EntryPoints {
  hostrt::OnceSlot<PluginRegisterClassProc> registerClass;
  hostrt::OnceSlot<PluginRegisterModuleProc> registerModule;
  hostrt::OnceSlot<PluginRegisterClassProc> registerClassExtension;
  hostrt::OnceSlot<PluginRegisterMethodProc> registerMethod;
  hostrt::OnceSlot<REALObjectProc> lockObject;
  hostrt::OnceSlot<REALObjectProc> unlockObject;
  hostrt::OnceSlot<REALStringProc> lockString;
  hostrt::OnceSlot<REALStringProc> unlockString;
  hostrt::OnceSlot<PluginNewInstanceProc> newInstance;
  hostrt::OnceSlot<RuntimeRaiseExceptionProc> raiseException;
  hostrt::RetrySlot<GetEventInstanceProc> eventInstance;
  hostrt::OnceSlot<REALLoadObjectMethodProc> loadObjectMethod;
  hostrt::OnceSlot<REALGetPropValueStringProc> getStringProperty;
  hostrt::RetrySlot<REALSetPropValueStringProc> setStringProperty;
  hostrt::FallbackSlot<REALGetPropValueIntegerProc, REALGetPropValueIntProc> getIntegerProperty;
  hostrt::FallbackSlot<REALSetPropValueIntegerProc, REALSetPropValueIntProc> setIntegerProperty;
  hostrt::RetrySlot<REALGetPropValueBoolProc> getBooleanProperty;
  hostrt::OnceSlot<PluginGetStringDataProc> getStringData;
  hostrt::OnceSlot<PluginDisposeStringDataProc> disposeStringData;
  hostrt::OnceSlot<REALConvertStringProc> convertString;
  hostrt::OnceSlot<REALGetStringEncodingProc> getStringEncoding;
  hostrt::OnceSlot<REALSetStringEncodingProc> setStringEncoding;
  hostrt::OnceSlot<REALBuildStringProc> buildString;
  hostrt::OnceSlot<REALBuildStringWithEncodingProc> buildStringWithEncoding;
  hostrt::OnceSlot<RuntimeUBoundProc> arrayUBound;
  hostrt::RetrySlot<PluginArrayGetProcProc> colourArrayGetter;
  hostrt::RetrySlot<PluginArrayGetProcProc> integerArrayGetter;
  hostrt::RetrySlot<PluginArrayGetProcProc> objectArrayGetter;
  hostrt::RetrySlot<NewMemoryBlockProc> newMemoryBlock;
  hostrt::OnceSlot<MemoryBlockGetPtrProc> memoryBlockData;
  hostrt::OnceSlot<MemoryBlockGetSizeProc> memoryBlockSize;
  hostrt::OnceSlot<NewPictureProc> newPicture;
  hostrt::OnceSlot<REALGetPictureMaskProc> pictureMask;
  hostrt::OnceSlot<PictureGraphicsGetterProc> pictureGraphics;
  hostrt::RetrySlot<REALLockPictureDescriptionProc> lockPictureDescription;
  hostrt::OnceSlot<UnlockPictureDescriptionProc> unlockPictureDescription;
  hostrt::OnceSlot<REALPictureClearCacheProc> pictureClearCache;
  hostrt::OnceSlot<REALBuildPictureFromBufferProc> buildPictureFromBuffer;
  hostrt::OnceSlot<PluginPictureGetTypeProc> pictureType;
  hostrt::OnceSlot<PluginObjectTypeProc> classRef;
};

// The kind of application the host runs, by the application class it knows.
enum class HostKind {
  kNone,     // no application class is known
  kDesktop,  // "Application"
  kConsole,  // "ConsoleApplication"
  kWeb,      // "WebApplication"
};

// The PixelLimit of a new reader, and of the one-call openers until the application sets theirs:
// a gigapixel, a 4 GB picture (8 GB with its mask), far beyond what an application asks of a PNG
// in use, yet refusing what a few kilobytes of crafted data can demand.
constexpr RBInteger kDefaultPixelLimit = 1000000000;

struct HostFacts {
  REALResolver resolver = nullptr;
  double version = 0.0;         // the host version, 0 when the host cannot tell
  uint32_t controlVersion = 0;  // the definition layout version the host expects, 9 to 13
  HostKind kind = HostKind::kNone;
  EntryPoints entries;
  // The application's module-level settings: the Threads value of the one-call savers' private
  // writers (PNGSaveThreadsKRV) and the PixelLimit of the one-call openers' private readers
  // (PNGOpenPixelLimitKRV). Xojo runs user code on one thread, so each call reads what the last
  // assignment left.
  RBInteger saveThreads = 0;
  RBInteger openPixelLimit = kDefaultPixelLimit;
  bool processFunctionsLookedUp = false;
  ProcessFunctions processFunctions;

  // The picture routes this host serves. A host of no known kind may serve any, until its first
  // picture tells (SettleKind).
  bool ServesDesktopPictures() const {
    return kind != HostKind::kConsole && kind != HostKind::kWeb;
  }
  bool ServesGDPictures() const { return kind != HostKind::kDesktop; }

  // A host of no known kind is of the kind whose picture storage it was first seen to lock.
  void SettleKind(HostKind seen) {
    if (kind == HostKind::kNone) kind = seen;
  }

  // Looked up on first use, once for the process, like the host's own entry points.
  const ProcessFunctions& Process() {
    if (!processFunctionsLookedUp) {
      processFunctions = LookUpProcessFunctions();
      processFunctionsLookedUp = true;
    }
    return processFunctions;
  }
};

extern HostFacts gHost;

// Builds gHost for the host of `resolver` (null: no host): its version, the control version
// that version expects, and its kind.
void LearnHost(REALResolver resolver);

// The host's kind by the application classes it knows; kNone while it knows none.
HostKind AskHostKind();
