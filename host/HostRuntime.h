// The host runtime interface: one small wrapper per host operation, each resolved by name through
// the resolver that the host handed to REALPluginMain and kept in the host record's slot of that
// entry point (host/HostFacts.h says how each kind of slot asks).
//
// A missing entry point is never reported: the wrapper does nothing and yields null, false or 0,
// and the caller's own checks take over.
#pragma once

#include "host/HostFacts.h"
#include "host/HostVersions.h"
#include "host/sdk.h"

// Binds `fn` to the entry point of one slot of the host record.
#define HOST_ENTRY(slot, ...) auto fn = gHost.entries.slot.Get(__VA_ARGS__)

// ---------------------------------------------------------------------------------------------
// Registration
// ---------------------------------------------------------------------------------------------

inline void REALRegisterClass(REALclassDefinition* def) {
  HOST_ENTRY(registerClass, "PluginRegisterClass");
  if (fn) fn(def);
}

inline void REALRegisterModule(REALmoduleDefinition* def) {
  HOST_ENTRY(registerModule, "PluginRegisterModule");
  if (fn) fn(def);
}

inline void REALRegisterClassExtension(REALclassDefinition* def) {
  HOST_ENTRY(registerClassExtension, "PluginRegisterClassExtension");
  if (fn) fn(def);
}

inline void REALRegisterMethod(REALmethodDefinition* def) {
  HOST_ENTRY(registerMethod, "PluginRegisterMethod");
  if (fn) fn(def);
}

// ---------------------------------------------------------------------------------------------
// References
// ---------------------------------------------------------------------------------------------

inline void REALLockObject(REALobject obj) {
  HOST_ENTRY(lockObject, "REALLockObject");
  if (fn) fn(obj);
}

inline void REALUnlockObject(REALobject obj) {
  HOST_ENTRY(unlockObject, "REALUnlockObject");
  if (fn) fn(obj);
}

inline void REALLockString(REALstring str) {
  HOST_ENTRY(lockString, "REALLockString");
  if (fn) fn(str);
}

inline void REALUnlockString(REALstring str) {
  HOST_ENTRY(unlockString, "REALUnlockString");
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
  HOST_ENTRY(newInstance, "PluginNewInstance");
  return fn ? fn(className) : nullptr;
}

inline void REALRaiseException(REALobject exception) {
  HOST_ENTRY(raiseException, "RuntimeRaiseException");
  if (fn) fn(exception);
}

inline REALproc REALGetEventInstance(REALobject obj, RBInteger hostWord) {
  HOST_ENTRY(eventInstance, "GetEventInstance");
  return fn ? fn(obj, hostWord) : nullptr;
}

inline REALproc REALLoadObjectMethod(REALobject obj, const char* declaration) {
  HOST_ENTRY(loadObjectMethod, "REALLoadObjectMethod");
  return fn ? fn(obj, declaration) : nullptr;
}

// The class data of an instance: the host keeps it inside the instance, at the byte offset it
// wrote into the registered class definition's host word. Plain arithmetic, no entry point.
inline void* REALGetClassData(REALobject obj, const REALclassDefinition* def) {
  return reinterpret_cast<char*>(obj) + def->forSystemUse;
}

inline RBBoolean REALGetPropValueString(REALobject obj, const char* name, REALstring* value) {
  HOST_ENTRY(getStringProperty, "REALGetPropValueString");
  return fn ? fn(obj, name, value) : 0;
}

inline RBBoolean REALSetPropValueString(REALobject obj, const char* name, REALstring value) {
  HOST_ENTRY(setStringProperty, "REALSetPropValueString");
  return fn ? fn(obj, name, value) : 0;
}

// Integer properties: hosts that lack "REALGetPropValueInteger" (an RBInteger) may still have
// the older "REALGetPropValueInt", which takes 32 bits whatever the build; the slot remembers
// which of the two it found and the wrapper converts.
inline RBBoolean REALGetPropValueInteger(REALobject obj, const char* name, RBInteger* value) {
  auto& slot = gHost.entries.getIntegerProperty;
  slot.Get("REALGetPropValueInteger", "REALGetPropValueInt");
  if (slot.primary) return slot.primary(obj, name, value);
  if (slot.fallback == nullptr) return 0;
  int32_t narrow = 0;
  RBBoolean found = slot.fallback(obj, name, &narrow);
  if (found) *value = narrow;
  return found;
}

inline RBBoolean REALSetPropValueInteger(REALobject obj, const char* name, RBInteger value) {
  auto& slot = gHost.entries.setIntegerProperty;
  slot.Get("REALSetPropValueInteger", "REALSetPropValueInt");
  if (slot.primary) return slot.primary(obj, name, value);
  return slot.fallback ? slot.fallback(obj, name, static_cast<int32_t>(value)) : 0;
}

inline RBBoolean REALGetPropValueBoolean(REALobject obj, const char* name, RBBoolean* value) {
  HOST_ENTRY(getBooleanProperty, "REALGetPropValueBool");
  return fn ? fn(obj, name, value) : 0;
}

// ---------------------------------------------------------------------------------------------
// Strings
// ---------------------------------------------------------------------------------------------

inline RBBoolean REALGetStringData(REALstring str, uint32_t encoding, REALstringData* out) {
  HOST_ENTRY(getStringData, "PluginGetStringData");
  return fn ? fn(str, encoding, out) : 0;
}

inline void REALDisposeStringData(REALstringData* data) {
  HOST_ENTRY(disposeStringData, "PluginDisposeStringData");
  if (fn) fn(data);
}

inline REALstring REALConvertString(REALstring str, uint32_t encoding) {
  HOST_ENTRY(convertString, "REALConvertString");
  return fn ? fn(str, encoding) : nullptr;
}

inline uint32_t REALGetStringEncoding(REALstring str) {
  HOST_ENTRY(getStringEncoding, "REALGetStringEncoding");
  return fn ? fn(str) : static_cast<uint32_t>(kREALTextEncodingUnknown);
}

inline void REALSetStringEncoding(REALstring str, uint32_t encoding) {
  HOST_ENTRY(setStringEncoding, "REALSetStringEncoding");
  if (fn) fn(str, encoding);
}

inline REALstring originalREALBuildString(const void* data, int32_t length) {
  HOST_ENTRY(buildString, "REALBuildString");
  return fn ? fn(data, length) : nullptr;
}

inline REALstring REALBuildStringWithEncoding(const void* data, int32_t length, uint32_t encoding) {
  HOST_ENTRY(buildStringWithEncoding, "REALBuildStringWithEncoding");
  return fn ? fn(data, length, encoding) : nullptr;
}

// ---------------------------------------------------------------------------------------------
// Arrays
// ---------------------------------------------------------------------------------------------

inline RBInteger REALGetArrayUBound(REALarray array) {
  HOST_ENTRY(arrayUBound, "RuntimeUBound");
  return fn ? fn(array) : -1;
}

// The element wrappers are two-stage: the entry point hands out a getter for the array, which is
// then called with the index. A missing getter yields `found` = false.
inline RBColor REALGetArrayValueColor(REALarray array, RBInteger index, bool* found) {
  HOST_ENTRY(colourArrayGetter, "PluginColorArrayGetProc", "RuntimeArrayDirectGetGetProc");
  auto getter = fn ? reinterpret_cast<REALColorArrayGetter>(fn(array)) : nullptr;
  *found = getter != nullptr;
  return getter ? getter(array, index) : 0;
}

inline RBInteger REALGetArrayValueInteger(REALarray array, RBInteger index, bool* found) {
  HOST_ENTRY(integerArrayGetter, "PluginIntegerArrayGetProc", "RuntimeArrayDirectGetGetProc");
  auto getter = fn ? reinterpret_cast<REALIntegerArrayGetter>(fn(array)) : nullptr;
  *found = getter != nullptr;
  return getter ? getter(array, index) : 0;
}

inline REALobject REALGetArrayValueObject(REALarray array, RBInteger index) {
  HOST_ENTRY(objectArrayGetter, "PluginObjectArrayGetProc", "RuntimeArrayDirectGetGetProc");
  auto getter = fn ? reinterpret_cast<REALObjectArrayGetter>(fn(array)) : nullptr;
  return getter ? getter(array, index) : nullptr;
}

// ---------------------------------------------------------------------------------------------
// Memory blocks
// ---------------------------------------------------------------------------------------------

inline REALmemoryBlock REALNewMemoryBlockOriginal(RBInteger bytes) {
  HOST_ENTRY(newMemoryBlock, "newMemoryBlock");
  return fn ? fn(bytes) : nullptr;
}

// Hosts with legacy records let the plug-in read the block's data pointer from its record.
inline void* REALMemoryBlockGetPtr(REALmemoryBlock block) {
  if (block == nullptr) return nullptr;
  if (gHost.version < hostversion::kLegacyRecordsBefore)
    return reinterpret_cast<REALmemoryBlockLegacy*>(block)->data;
  HOST_ENTRY(memoryBlockData, "memoryBlockGetPtr");
  return fn ? fn(block) : nullptr;
}

// ---------------------------------------------------------------------------------------------
// Pictures
// ---------------------------------------------------------------------------------------------

inline REALpicture REALNewPicture(RBInteger width, RBInteger height, RBInteger depth) {
  HOST_ENTRY(newPicture, "newPicture");
  return fn ? fn(width, height, depth) : nullptr;
}

inline REALpicture REALGetPictureMask(REALpicture pic, RBBoolean create) {
  HOST_ENTRY(pictureMask, "REALGetPictureMask");
  return fn ? fn(pic, create) : nullptr;
}

inline REALgraphics REALGetPictureGraphics(REALpicture pic) {
  HOST_ENTRY(pictureGraphics, "pluginPictureGraphicsGetter");
  return fn ? fn(pic) : nullptr;
}

inline RBBoolean REALLockPictureDescription(REALpicture pic, REALpictureDescription* desc,
                                            uint32_t type) {
  HOST_ENTRY(lockPictureDescription, "REALLockPictureDescription");
  return fn ? fn(pic, desc, type) : 0;
}

inline void REALUnlockPictureDescription(REALpicture pic) {
  HOST_ENTRY(unlockPictureDescription, "unlockPictureDescription");
  if (fn) fn(pic);
}

inline void REALPictureClearCache(REALpicture pic) {
  HOST_ENTRY(pictureClearCache, "REALPictureClearCache");
  if (fn) fn(pic);
}

inline REALpicture REALBuildPictureFromBuffer(RBInteger width, RBInteger height, int32_t pixelType,
                                              const void* buffer, RBInteger rowBytes) {
  HOST_ENTRY(buildPictureFromBuffer, "REALBuildPictureFromBuffer");
  return fn ? fn(width, height, pixelType, buffer, rowBytes) : nullptr;
}

inline int32_t REALGetPictureType(REALpicture pic, bool* available) {
  HOST_ENTRY(pictureType, "PluginPictureGetType");
  *available = fn != nullptr;
  return fn ? fn(pic) : 0;
}

inline REALclassRef REALGetClassRef(const char* className) {
  HOST_ENTRY(classRef, "pluginObjectType");
  return fn ? fn(className) : nullptr;
}

// The user's implementation of one of a class's events, or null. The host knows the event by the
// word it wrote into the registered event record. `tableEvent` is the record in the plug-in's own
// table; on hosts that took the older definition layout the registered record is the converted
// copy, whose address registration left in the table record's host word.
inline REALproc EventHandlerFor(REALobject obj, const REALevent* tableEvent) {
  if (gHost.controlVersion > hostversion::kOldestControlVersion)
    return REALGetEventInstance(obj, tableEvent->forSystemUse);
  const auto* registered = reinterpret_cast<const REALevent9*>(tableEvent->forSystemUse);
  return registered ? REALGetEventInstance(obj, registered->forSystemUse) : nullptr;
}

// Signature of an implementation of "Error(msg as string)" and "Warning(msg as string)".
typedef void (*StringEventProc)(REALobject owner, REALstring message);

// The size of a memory block, or -1 when the host cannot tell. Hosts with legacy records keep it
// in the block's record.
inline RBInteger REALMemoryBlockGetSize(REALmemoryBlock block) {
  if (block == nullptr) return -1;
  if (gHost.version < hostversion::kLegacyRecordsBefore)
    return reinterpret_cast<REALmemoryBlockLegacy*>(block)->size;
  HOST_ENTRY(memoryBlockSize, "memoryBlockGetSize");
  return fn ? fn(block) : -1;
}

#undef HOST_ENTRY
