// The host runtime interface: one small wrapper per host operation, each resolved by name through
// the resolver that the host handed to REALPluginMain, and cached.
//
// Two kinds of cache slot exist. A "once" slot asks the resolver on first use and keeps the answer
// for the life of the process, also a null answer, so a missing entry point stays missing. A
// "retry" slot asks again (with its fallback name) on every call while it holds null.
//
// A missing entry point is never reported: the wrapper does nothing and yields null, false or 0,
// and the caller's own checks take over.
#pragma once

#include "host/sdk.h"

// Process-wide state, set by REALPluginMain before any handler runs.
extern REALResolver gResolver;    // the host's resolver (may be null)
extern double rbversion;          // the host version, 0 until known
extern uint32_t gControlVersion;  // the definition layout version the host expects, 9..13

namespace hostrt {

inline void* Resolve(const char* name) {
  return gResolver ? gResolver(name) : nullptr;
}

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

// Declares the cache slot of one wrapper and binds `fn` to the resolved entry point.
#define HOST_ONCE(Type, name)          \
  static hostrt::OnceSlot<Type> slot_; \
  Type fn = slot_.Get(name)
#define HOST_RETRY(Type, ...)           \
  static hostrt::RetrySlot<Type> slot_; \
  Type fn = slot_.Get(__VA_ARGS__)

// ---------------------------------------------------------------------------------------------
// Registration
// ---------------------------------------------------------------------------------------------

inline void REALRegisterClass(REALclassDefinition* def) {
  HOST_ONCE(PluginRegisterClassProc, "PluginRegisterClass");
  if (fn) fn(def);
}

inline void REALRegisterModule(REALmoduleDefinition* def) {
  HOST_ONCE(PluginRegisterModuleProc, "PluginRegisterModule");
  if (fn) fn(def);
}

inline void REALRegisterClassExtension(REALclassDefinition* def) {
  HOST_ONCE(PluginRegisterClassProc, "PluginRegisterClassExtension");
  if (fn) fn(def);
}

inline void REALRegisterMethod(REALmethodDefinition* def) {
  HOST_ONCE(PluginRegisterMethodProc, "PluginRegisterMethod");
  if (fn) fn(def);
}

// ---------------------------------------------------------------------------------------------
// References
// ---------------------------------------------------------------------------------------------

inline void REALLockObject(REALobject obj) {
  HOST_ONCE(REALObjectProc, "REALLockObject");
  if (fn) fn(obj);
}

inline void REALUnlockObject(REALobject obj) {
  HOST_ONCE(REALObjectProc, "REALUnlockObject");
  if (fn) fn(obj);
}

inline void REALLockString(REALstring str) {
  HOST_ONCE(REALStringProc, "REALLockString");
  if (fn) fn(str);
}

inline void REALUnlockString(REALstring str) {
  HOST_ONCE(REALStringProc, "REALUnlockString");
  if (fn) fn(str);
}

// Typed conveniences over REALLockObject / REALUnlockObject for the host's object handles.
template <typename Handle>
inline void LockHandle(Handle h) {
  REALLockObject(reinterpret_cast<REALobject>(h));
}
template <typename Handle>
inline void UnlockHandle(Handle h) {
  REALUnlockObject(reinterpret_cast<REALobject>(h));
}

// ---------------------------------------------------------------------------------------------
// Objects, events, exceptions, methods and properties
// ---------------------------------------------------------------------------------------------

inline REALobject REALnewInstance(const char* className) {
  HOST_ONCE(PluginNewInstanceProc, "PluginNewInstance");
  return fn ? fn(className) : nullptr;
}

inline void REALRaiseException(REALobject exception) {
  HOST_ONCE(RuntimeRaiseExceptionProc, "RuntimeRaiseException");
  if (fn) fn(exception);
}

inline REALproc REALGetEventInstance(REALobject obj, RBInteger hostWord) {
  HOST_RETRY(GetEventInstanceProc, "GetEventInstance");
  return fn ? fn(obj, hostWord) : nullptr;
}

inline REALproc REALLoadObjectMethod(REALobject obj, const char* declaration) {
  HOST_ONCE(REALLoadObjectMethodProc, "REALLoadObjectMethod");
  return fn ? fn(obj, declaration) : nullptr;
}

// The class data of an instance: the host keeps it inside the instance, at the byte offset it
// wrote into the registered class definition's host word. Plain arithmetic, no entry point.
inline void* REALGetClassData(REALobject obj, const REALclassDefinition* def) {
  return reinterpret_cast<char*>(obj) + def->forSystemUse;
}

inline RBBoolean REALGetPropValueString(REALobject obj, const char* name, REALstring* value) {
  HOST_ONCE(REALGetPropValueStringProc, "REALGetPropValueString");
  return fn ? fn(obj, name, value) : 0;
}

inline RBBoolean REALSetPropValueString(REALobject obj, const char* name, REALstring value) {
  HOST_RETRY(REALSetPropValueStringProc, "REALSetPropValueString");
  return fn ? fn(obj, name, value) : 0;
}

// Integer properties: hosts that lack "REALGetPropValueInteger" (an RBInteger) may still have
// the older "REALGetPropValueInt", which takes 32 bits whatever the build; the slot remembers
// which of the two it found and the wrapper converts.
inline RBBoolean REALGetPropValueInteger(REALobject obj, const char* name, RBInteger* value) {
  static hostrt::FallbackSlot<REALGetPropValueIntegerProc, REALGetPropValueIntProc> slot_;
  slot_.Get("REALGetPropValueInteger", "REALGetPropValueInt");
  if (slot_.primary) return slot_.primary(obj, name, value);
  if (slot_.fallback == nullptr) return 0;
  int32_t narrow = 0;
  RBBoolean found = slot_.fallback(obj, name, &narrow);
  if (found) *value = narrow;
  return found;
}

inline RBBoolean REALSetPropValueInteger(REALobject obj, const char* name, RBInteger value) {
  static hostrt::FallbackSlot<REALSetPropValueIntegerProc, REALSetPropValueIntProc> slot_;
  slot_.Get("REALSetPropValueInteger", "REALSetPropValueInt");
  if (slot_.primary) return slot_.primary(obj, name, value);
  return slot_.fallback ? slot_.fallback(obj, name, static_cast<int32_t>(value)) : 0;
}

inline RBBoolean REALGetPropValueBoolean(REALobject obj, const char* name, RBBoolean* value) {
  HOST_RETRY(REALGetPropValueBoolProc, "REALGetPropValueBool");
  return fn ? fn(obj, name, value) : 0;
}

// ---------------------------------------------------------------------------------------------
// Strings
// ---------------------------------------------------------------------------------------------

inline RBBoolean REALGetStringData(REALstring str, uint32_t encoding, REALstringData* out) {
  HOST_ONCE(PluginGetStringDataProc, "PluginGetStringData");
  return fn ? fn(str, encoding, out) : 0;
}

inline void REALDisposeStringData(REALstringData* data) {
  HOST_ONCE(PluginDisposeStringDataProc, "PluginDisposeStringData");
  if (fn) fn(data);
}

inline REALstring REALConvertString(REALstring str, uint32_t encoding) {
  HOST_ONCE(REALConvertStringProc, "REALConvertString");
  return fn ? fn(str, encoding) : nullptr;
}

inline uint32_t REALGetStringEncoding(REALstring str) {
  HOST_ONCE(REALGetStringEncodingProc, "REALGetStringEncoding");
  return fn ? fn(str) : static_cast<uint32_t>(kREALTextEncodingUnknown);
}

inline void REALSetStringEncoding(REALstring str, uint32_t encoding) {
  HOST_ONCE(REALSetStringEncodingProc, "REALSetStringEncoding");
  if (fn) fn(str, encoding);
}

inline REALstring originalREALBuildString(const void* data, int32_t length) {
  HOST_ONCE(REALBuildStringProc, "REALBuildString");
  return fn ? fn(data, length) : nullptr;
}

inline REALstring REALBuildStringWithEncoding(const void* data, int32_t length, uint32_t encoding) {
  HOST_ONCE(REALBuildStringWithEncodingProc, "REALBuildStringWithEncoding");
  return fn ? fn(data, length, encoding) : nullptr;
}

// ---------------------------------------------------------------------------------------------
// Arrays
// ---------------------------------------------------------------------------------------------

inline RBInteger REALGetArrayUBound(REALarray array) {
  HOST_ONCE(RuntimeUBoundProc, "RuntimeUBound");
  return fn ? fn(array) : -1;
}

// The element wrappers are two-stage: the entry point hands out a getter for the array, which is
// then called with the index. A missing getter yields `found` = false.
inline RBColor REALGetArrayValueColor(REALarray array, RBInteger index, bool* found) {
  HOST_RETRY(PluginArrayGetProcProc, "PluginColorArrayGetProc", "RuntimeArrayDirectGetGetProc");
  auto getter = fn ? reinterpret_cast<REALColorArrayGetter>(fn(array)) : nullptr;
  *found = getter != nullptr;
  return getter ? getter(array, index) : 0;
}

inline RBInteger REALGetArrayValueInteger(REALarray array, RBInteger index, bool* found) {
  HOST_RETRY(PluginArrayGetProcProc, "PluginIntegerArrayGetProc", "RuntimeArrayDirectGetGetProc");
  auto getter = fn ? reinterpret_cast<REALIntegerArrayGetter>(fn(array)) : nullptr;
  *found = getter != nullptr;
  return getter ? getter(array, index) : 0;
}

inline REALobject REALGetArrayValueObject(REALarray array, RBInteger index) {
  HOST_RETRY(PluginArrayGetProcProc, "PluginObjectArrayGetProc", "RuntimeArrayDirectGetGetProc");
  auto getter = fn ? reinterpret_cast<REALObjectArrayGetter>(fn(array)) : nullptr;
  return getter ? getter(array, index) : nullptr;
}

// ---------------------------------------------------------------------------------------------
// Memory blocks
// ---------------------------------------------------------------------------------------------

inline REALmemoryBlock REALNewMemoryBlockOriginal(RBInteger bytes) {
  HOST_RETRY(NewMemoryBlockProc, "newMemoryBlock");
  return fn ? fn(bytes) : nullptr;
}

// Hosts older than 2017.0 let the plug-in read the block's data pointer from its record.
inline void* REALMemoryBlockGetPtr(REALmemoryBlock block) {
  if (block == nullptr) return nullptr;
  if (rbversion < 2017.0) return reinterpret_cast<REALmemoryBlockLegacy*>(block)->data;
  HOST_ONCE(MemoryBlockGetPtrProc, "memoryBlockGetPtr");
  return fn ? fn(block) : nullptr;
}

// ---------------------------------------------------------------------------------------------
// Pictures
// ---------------------------------------------------------------------------------------------

inline REALpicture REALNewPicture(RBInteger width, RBInteger height, RBInteger depth) {
  HOST_ONCE(NewPictureProc, "newPicture");
  return fn ? fn(width, height, depth) : nullptr;
}

inline REALpicture REALGetPictureMask(REALpicture pic, RBBoolean create) {
  HOST_ONCE(REALGetPictureMaskProc, "REALGetPictureMask");
  return fn ? fn(pic, create) : nullptr;
}

inline REALgraphics REALGetPictureGraphics(REALpicture pic) {
  HOST_ONCE(PictureGraphicsGetterProc, "pluginPictureGraphicsGetter");
  return fn ? fn(pic) : nullptr;
}

inline RBBoolean REALLockPictureDescription(REALpicture pic, REALpictureDescription* desc,
                                            uint32_t type) {
  HOST_RETRY(REALLockPictureDescriptionProc, "REALLockPictureDescription");
  return fn ? fn(pic, desc, type) : 0;
}

inline void REALUnlockPictureDescription(REALpicture pic) {
  HOST_ONCE(UnlockPictureDescriptionProc, "unlockPictureDescription");
  if (fn) fn(pic);
}

inline void REALPictureClearCache(REALpicture pic) {
  HOST_ONCE(REALPictureClearCacheProc, "REALPictureClearCache");
  if (fn) fn(pic);
}

inline REALpicture REALBuildPictureFromBuffer(RBInteger width, RBInteger height, int32_t pixelType,
                                              const void* buffer, RBInteger rowBytes) {
  HOST_ONCE(REALBuildPictureFromBufferProc, "REALBuildPictureFromBuffer");
  return fn ? fn(width, height, pixelType, buffer, rowBytes) : nullptr;
}

inline int32_t REALGetPictureType(REALpicture pic, bool* available) {
  HOST_ONCE(PluginPictureGetTypeProc, "PluginPictureGetType");
  *available = fn != nullptr;
  return fn ? fn(pic) : 0;
}

inline REALclassRef REALGetClassRef(const char* className) {
  HOST_ONCE(PluginObjectTypeProc, "pluginObjectType");
  return fn ? fn(className) : nullptr;
}

#undef HOST_ONCE
#undef HOST_RETRY

// The user's implementation of one of a class's events, or null. The host knows the event by the
// word it wrote into the registered event record. `tableEvent` is the record in the plug-in's own
// table; on hosts that took the older definition layout the registered record is the converted
// copy, whose address registration left in the table record's host word.
inline REALproc EventHandlerFor(REALobject obj, const REALevent* tableEvent) {
  if (gControlVersion > 9) return REALGetEventInstance(obj, tableEvent->forSystemUse);
  const auto* registered = reinterpret_cast<const REALevent9*>(tableEvent->forSystemUse);
  return registered ? REALGetEventInstance(obj, registered->forSystemUse) : nullptr;
}

// Signature of an implementation of "Error(msg as string)" and "Warning(msg as string)".
typedef void (*StringEventProc)(REALobject owner, REALstring message);

// The size of a memory block, or -1 when the host cannot tell. Hosts older than 2017.0 keep it
// in the block's record.
inline RBInteger REALMemoryBlockGetSize(REALmemoryBlock block) {
  if (block == nullptr) return -1;
  if (rbversion < 2017.0) return reinterpret_cast<REALmemoryBlockLegacy*>(block)->size;
  static hostrt::OnceSlot<MemoryBlockGetSizeProc> slot;
  MemoryBlockGetSizeProc fn = slot.Get("memoryBlockGetSize");
  return fn ? fn(block) : -1;
}
