// The host's plug-in interface: scalar types, opaque handles, definition records, picture
// descriptions and string data records, laid out exactly as the host reads and writes them.
// This header is shared by the plug-in and the host emulator, so both agree on every byte.
#pragma once

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

// ---------------------------------------------------------------------------------------------
// Scalars
// ---------------------------------------------------------------------------------------------

// The host's Integer is pointer-sized: int32 in a 32-bit build, int64 in a 64-bit build.
typedef intptr_t RBInteger;
typedef int8_t RBBoolean;
typedef uint32_t RBColor;
typedef void (*REALproc)(void);

// The resolver that the host hands to REALPluginMain: entry-point name to address, or null.
typedef void* (*REALResolver)(const char* entryName);

// ---------------------------------------------------------------------------------------------
// Opaque host handles. The plug-in never looks inside them except through the legacy records
// below, on hosts older than hostversion::kLegacyRecordsBefore.
// ---------------------------------------------------------------------------------------------

struct REALobjectStruct;
struct REALstringStruct;
struct REALpictureStruct;
struct REALfolderItemStruct;
struct REALmemoryBlockStruct;
struct REALgraphicsStruct;
struct REALarrayStruct;
struct REALclassRefStruct;

typedef struct REALobjectStruct* REALobject;
typedef struct REALstringStruct* REALstring;
typedef struct REALpictureStruct* REALpicture;
typedef struct REALfolderItemStruct* REALfolderItem;
typedef struct REALmemoryBlockStruct* REALmemoryBlock;
typedef struct REALgraphicsStruct* REALgraphics;
typedef struct REALarrayStruct* REALarray;
typedef struct REALclassRefStruct* REALclassRef;

// ---------------------------------------------------------------------------------------------
// Definition records, control version 13 layout.
// ---------------------------------------------------------------------------------------------

typedef struct REALattribute {
  const char* name;
  const char* value;
} REALattribute;

typedef struct REALmethodDefinition {
  REALproc function;
  REALproc setterFunction;
  const char* declaration;
  uint32_t mFlags;
  size_t attributeCount;
  REALattribute* attributes;
} REALmethodDefinition;

typedef struct REALproperty {
  const char* group;
  const char* name;
  const char* type;
  uint32_t flags;
  REALproc getter;
  REALproc setter;
  int32_t param;
  REALproc editor;
  size_t enumCount;
  const char** enumEntries;
  size_t attributeCount;
  REALattribute* attributes;
} REALproperty;

typedef struct REALevent {
  const char* declaration;
  RBInteger forSystemUse;
  size_t attributeCount;
  REALattribute* attributes;
} REALevent;

typedef struct REALeventInstance {
  const char* name;
  REALproc implementation;
} REALeventInstance;

typedef struct REALconstant {
  const char* declaration;
  const char* reserved1;
  uint32_t mFlags;
  size_t attributeCount;
  REALattribute* attributes;
} REALconstant;

// A getter or setter of all bits set asks the host to read or write the instance record's field
// at byte offset `param` directly.
#define REALstandardGetter ((REALproc)(intptr_t)-1)
#define REALstandardSetter ((REALproc)(intptr_t)-1)

typedef struct REALclassDefinition {
  uint32_t version;
  const char* name;
  const char* superName;
  size_t dataSize;
  RBInteger forSystemUse;
  REALproc constructor;
  REALproc destructor;
  REALproperty* properties;
  size_t propertyCount;
  REALmethodDefinition* methods;
  size_t methodCount;
  REALevent* events;
  size_t eventCount;
  REALeventInstance* eventInstances;
  size_t eventInstanceCount;
  const char* interfaces;
  REALattribute* attributes;  // the former "binding descriptions"
  size_t attributeCount;
  REALconstant* constants;
  size_t constantCount;
  uint32_t mFlags;
  REALproperty* sharedProperties;
  size_t sharedPropertyCount;
  REALmethodDefinition* sharedMethods;
  size_t sharedMethodCount;
  // Words a control-version-9 host does not know.
  void* delegates;
  size_t delegateCount;
  void* enums;
  size_t enumCount;
} REALclassDefinition;

// Number of pointer-sized words that both class layouts share.
#define REAL_CLASS_HEADER_WORDS 25

typedef struct REALmoduleDefinition {
  uint32_t version;
  const char* name;
  REALmethodDefinition* methods;
  size_t methodCount;
  REALconstant* constants;
  size_t constantCount;
  REALproperty* properties;
  size_t propertyCount;
  void* structures;
  size_t structureCount;
  void* enums;
  size_t enumCount;
  REALattribute* attributes;
  size_t attributeCount;
  void* delegates;
  size_t delegateCount;
  REALclassDefinition* classes;
  size_t classCount;
  void* interfaces;
  size_t interfaceCount;
  struct REALmoduleDefinition* modules;
  size_t moduleCount;
  void* controls;
  size_t controlCount;
} REALmoduleDefinition;

// Enumeration record of a module: the plug-in only rewrites its flags.
typedef struct REALenumeration {
  const char* name;
  const char* type;
  uint32_t mFlags;
  const char** fields;
  size_t fieldCount;
  size_t attributeCount;
  REALattribute* attributes;
} REALenumeration;

// ---------------------------------------------------------------------------------------------
// Older definition layout (control version 9 or lower): no attribute words.
// ---------------------------------------------------------------------------------------------

typedef struct REALmethodDefinition9 {
  REALproc function;
  REALproc setterFunction;
  const char* declaration;
  uint32_t mFlags;
} REALmethodDefinition9;

typedef struct REALproperty9 {
  const char* group;
  const char* name;
  const char* type;
  uint32_t flags;
  REALproc getter;
  REALproc setter;
  int32_t param;
  REALproc editor;
  size_t enumCount;
  const char** enumEntries;
} REALproperty9;

typedef struct REALevent9 {
  const char* declaration;
  RBInteger forSystemUse;
} REALevent9;

typedef struct REALconstant9 {
  const char* declaration;
  const char* reserved1;
  uint32_t mFlags;
} REALconstant9;

// The class definition of hosts with control version 9 or lower: the first
// REAL_CLASS_HEADER_WORDS words of the current layout, pointing at arrays of the older records.
typedef struct REALclassDefinition9 {
  uint32_t version;
  const char* name;
  const char* superName;
  size_t dataSize;
  RBInteger forSystemUse;
  REALproc constructor;
  REALproc destructor;
  REALproperty9* properties;
  size_t propertyCount;
  REALmethodDefinition9* methods;
  size_t methodCount;
  REALevent9* events;
  size_t eventCount;
  REALeventInstance* eventInstances;
  size_t eventInstanceCount;
  const char* interfaces;
  REALattribute* attributes;
  size_t attributeCount;
  REALconstant9* constants;
  size_t constantCount;
  uint32_t mFlags;
  REALproperty9* sharedProperties;
  size_t sharedPropertyCount;
  REALmethodDefinition9* sharedMethods;
  size_t sharedMethodCount;
} REALclassDefinition9;

// ---------------------------------------------------------------------------------------------
// Flags
// ---------------------------------------------------------------------------------------------

enum {
  REALpropRuntimeOnly = 2,
  REALconsoleSafe = 4,
  REALconsoleOnly = 8,
  REALScopeGlobal = 16,
  REALScopePublic = 64,
  REALScopeMask = 0xF0,
};

// ---------------------------------------------------------------------------------------------
// Pictures
// ---------------------------------------------------------------------------------------------

enum {
  pictureCGBitmapContext = 8,
  pictureGDPtr = 10,
  pictureGDIPlusBitmap = 11,  // a GpBitmap*, older Windows hosts
  pictureCairoContext = 12,
  // Premultiplied B, G, R, A bytes, rows of width × 4 bytes top to bottom: modern Windows hosts.
  pictureBGRAPixels = 14,
};

typedef struct REALpictureDescription {
  uint32_t pictureType;
  void* pictureData;
  int32_t width;
  int32_t height;
  int32_t depth;
  RBBoolean transparent;
} REALpictureDescription;

// Pixel type of REALBuildPictureFromBuffer: 3 bytes per pixel, RGB.
enum { kRBPixelTypeRGB24 = 1 };

// ---------------------------------------------------------------------------------------------
// Strings and text encodings
// ---------------------------------------------------------------------------------------------

typedef struct REALstringData {
  const void* data;
  size_t length;
  uint32_t encoding;
  const void* private1;
  uint32_t private2;
} REALstringData;

enum {
  kREALTextEncodingMacRoman = 0,
  kREALTextEncodingUTF16 = 0x100,
  kREALTextEncodingISOLatin1 = 0x201,
  kREALTextEncodingWindowsLatin1 = 0x500,
  kREALTextEncodingASCII = 0x600,
  kREALTextEncodingUTF8 = 0x08000100,
  kREALTextEncodingUTF32 = 0x0C000100,
  kREALTextEncodingUnknown = 0xFFFF,
};

// ---------------------------------------------------------------------------------------------
// Legacy records that hosts older than hostversion::kLegacyRecordsBefore let the plug-in read
// directly.
// ---------------------------------------------------------------------------------------------

// A string: the text starts one byte past `data` and runs `length` bytes. Its words are pointer-
// sized on every platform.
typedef struct REALstringLegacy {
  RBInteger usageCount;
  unsigned char* data;
  RBInteger allocated;
  RBInteger length;
  uintptr_t encoding;
} REALstringLegacy;

typedef struct REALmemoryBlockLegacy {
  void* header[2];
  void* data;
  RBInteger size;
} REALmemoryBlockLegacy;

// An array; `storage` null means the array has no direct storage and must be read through the
// host's element getter.
typedef struct REALarrayLegacy {
  void* header[2];
  RBInteger upperBound;
  void* storage;
} REALarrayLegacy;

// ---------------------------------------------------------------------------------------------
// Entry-point signatures, by resolver name.
// ---------------------------------------------------------------------------------------------

typedef void (*PluginRegisterClassProc)(REALclassDefinition*);
typedef void (*PluginRegisterModuleProc)(REALmoduleDefinition*);
typedef void (*PluginRegisterMethodProc)(REALmethodDefinition*);
typedef void (*REALObjectProc)(REALobject);
typedef void (*REALStringProc)(REALstring);
typedef REALobject (*PluginNewInstanceProc)(const char* className);
typedef void (*RuntimeRaiseExceptionProc)(REALobject);
// The second argument is the host word of the registered event record (its forSystemUse).
typedef REALproc (*GetEventInstanceProc)(REALobject, RBInteger hostWord);
typedef REALproc (*REALLoadObjectMethodProc)(REALobject, const char* declaration);
typedef RBBoolean (*REALGetPropValueStringProc)(REALobject, const char*, REALstring*);
typedef RBBoolean (*REALSetPropValueStringProc)(REALobject, const char*, REALstring);
typedef RBBoolean (*REALGetPropValueIntegerProc)(REALobject, const char*, RBInteger*);
typedef RBBoolean (*REALSetPropValueIntegerProc)(REALobject, const char*, RBInteger);
// The older integer property entry points take and give 32 bits in every build.
typedef RBBoolean (*REALGetPropValueIntProc)(REALobject, const char*, int32_t*);
typedef RBBoolean (*REALSetPropValueIntProc)(REALobject, const char*, int32_t);
typedef RBBoolean (*REALGetPropValueBoolProc)(REALobject, const char*, RBBoolean*);
typedef RBBoolean (*PluginGetStringDataProc)(REALstring, uint32_t, REALstringData*);
typedef void (*PluginDisposeStringDataProc)(REALstringData*);
typedef REALstring (*REALConvertStringProc)(REALstring, uint32_t);
typedef uint32_t (*REALGetStringEncodingProc)(REALstring);
typedef void (*REALSetStringEncodingProc)(REALstring, uint32_t);
typedef REALstring (*REALBuildStringProc)(const void*, int32_t);
typedef REALstring (*REALBuildStringWithEncodingProc)(const void*, int32_t, uint32_t);
typedef RBInteger (*RuntimeUBoundProc)(REALarray);
typedef RBColor (*REALColorArrayGetter)(REALarray, RBInteger);
typedef RBInteger (*REALIntegerArrayGetter)(REALarray, RBInteger);
typedef REALobject (*REALObjectArrayGetter)(REALarray, RBInteger);
typedef REALproc (*PluginArrayGetProcProc)(REALarray);
typedef REALmemoryBlock (*NewMemoryBlockProc)(RBInteger);
typedef void* (*MemoryBlockGetPtrProc)(REALmemoryBlock);
typedef RBInteger (*MemoryBlockGetSizeProc)(REALmemoryBlock);
typedef REALpicture (*NewPictureProc)(RBInteger width, RBInteger height, RBInteger depth);
typedef REALpicture (*REALGetPictureMaskProc)(REALpicture, RBBoolean create);
typedef REALgraphics (*PictureGraphicsGetterProc)(REALpicture);
typedef RBBoolean (*REALLockPictureDescriptionProc)(REALpicture, REALpictureDescription*, uint32_t);
typedef void (*UnlockPictureDescriptionProc)(REALpicture);
typedef void (*REALPictureClearCacheProc)(REALpicture);
typedef REALpicture (*REALBuildPictureFromBufferProc)(RBInteger width, RBInteger height,
                                                      int32_t pixelType, const void* buffer,
                                                      RBInteger rowBytes);
typedef int32_t (*PluginPictureGetTypeProc)(REALpicture);
typedef REALclassRef (*PluginObjectTypeProc)(const char* className);
typedef double (*REALGetRBVersionProc)(void);
typedef void (*RegisterPluginVersionProc)(int32_t);

// The plug-in's one export.
typedef void (*REALPluginMainProc)(REALResolver);

#ifdef __cplusplus
}
#endif
