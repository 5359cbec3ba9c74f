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

inline REALproc REALGetEventInstance(REALobject obj, REALevent* event) {
  HOST_RETRY(GetEventInstanceProc, "GetEventInstance");
  return fn ? fn(obj, event) : nullptr;
}

inline REALproc REALLoadObjectMethod(REALobject obj, const char* declaration) {
  HOST_ONCE(REALLoadObjectMethodProc, "REALLoadObjectMethod");
  return fn ? fn(obj, declaration) : nullptr;
}

inline void* REALGetClassData(REALobject obj, REALclassDefinition* def) {
  HOST_ONCE(REALGetClassDataProc, "REALGetClassData");
  return fn ? fn(obj, def) : nullptr;
}

inline RBBoolean REALGetPropValueString(REALobject obj, const char* name, REALstring* value) {
  HOST_ONCE(REALGetPropValueStringProc, "REALGetPropValueString");
  return fn ? fn(obj, name, value) : 0;
}

inline RBBoolean REALSetPropValueString(REALobject obj, const char* name, REALstring value) {
  HOST_RETRY(REALSetPropValueStringProc, "REALSetPropValueString");
  return fn ? fn(obj, name, value) : 0;
}

inline RBBoolean REALGetPropValueInteger(REALobject obj, const char* name, RBInteger* value) {
  HOST_RETRY(REALGetPropValueIntegerProc, "REALGetPropValueInteger", "REALGetPropValueInt");
  return fn ? fn(obj, name, value) : 0;
}

inline RBBoolean REALSetPropValueInteger(REALobject obj, const char* name, RBInteger value) {
  HOST_RETRY(REALSetPropValueIntegerProc, "REALSetPropValueInteger", "REALSetPropValueInt");
  return fn ? fn(obj, name, value) : 0;
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

// The user's implementation of one of a class's events, or null. `tableEvent` is the event record
// in the plug-in's own table; on hosts that took the older definition layout, the registered copy
// is the one the host knows, and its address was left in the table record's host word.
inline REALproc EventHandlerFor(REALobject obj, REALevent* tableEvent) {
  REALevent* registered =
      gControlVersion <= 9 ? reinterpret_cast<REALevent*>(tableEvent->forSystemUse) : tableEvent;
  return registered ? REALGetEventInstance(obj, registered) : nullptr;
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
