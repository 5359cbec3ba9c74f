// A small plug-in for testing the emulator: one class with every kind of property, parameter
// and event, a shared method, a module, a global method, folder item extensions and a painter
// that writes picture pixels through a locked description. It reaches the host only through the
// runtime wrappers, as the real plug-in does, and registers in the older definition layout on
// hosts that need it.
#include <dlfcn.h>
#include <gd.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "host/HostRuntime.h"

REALResolver gResolver = nullptr;
double rbversion = 0;
uint32_t gControlVersion = 9;

namespace {

struct Counter {
  RBInteger count;
  double scale;
  float ratio;
  RBBoolean flag;
  RBColor tint;
  REALstring label;
  REALobject file;
  RBInteger hidden;
  REALproc onChanged;
  REALproc onAsk;
};

REALevent gEvents[] = {
    {"Changed(text as string)", 0, 0, nullptr},
    {"Ask(n as integer) as integer", 0, 0, nullptr},
};

REALclassDefinition gCounterClass{};

Counter* Data(REALobject self) {
  return static_cast<Counter*>(REALGetClassData(self, &gCounterClass));
}

REALstring Text(const std::string& text) {
  return REALBuildStringWithEncoding(text.data(), static_cast<int32_t>(text.size()),
                                     kREALTextEncodingUTF8);
}

std::string Utf8(REALstring s) {
  REALstringData data;
  if (s == nullptr || !REALGetStringData(s, kREALTextEncodingUTF8, &data)) return "";
  std::string text(static_cast<const char*>(data.data), data.length);
  REALDisposeStringData(&data);
  return text;
}

void Construct(REALobject self) {
  Counter* c = Data(self);
  c->onChanged = EventHandlerFor(self, &gEvents[0]);
  c->onAsk = EventHandlerFor(self, &gEvents[1]);
}

void Destruct(REALobject self) {
  Counter* c = Data(self);
  REALUnlockString(c->label);
  REALUnlockObject(c->file);
}

void Changed(REALobject self, const char* what) {
  Counter* c = Data(self);
  if (c->onChanged == nullptr) return;
  REALstring text = Text(what);
  reinterpret_cast<StringEventProc>(c->onChanged)(self, text);
  REALUnlockString(text);
}

RBInteger AddInteger(REALobject self, RBInteger amount) {
  Data(self)->count += amount;
  Changed(self, "added");
  return Data(self)->count;
}

double AddDouble(REALobject self, double amount) {
  return Data(self)->scale += amount;
}

REALstring Mix(REALobject, float a, RBBoolean b, RBColor c) {
  char text[64];
  std::snprintf(text, sizeof text, "%.2f %d %06X", a, b, c);
  return Text(text);
}

RBBoolean Swap(REALobject, REALstring* name, RBInteger* n) {
  std::string old = Utf8(*name);
  REALUnlockString(*name);
  *name = Text("was " + old);
  *n *= 2;
  return 1;
}

RBInteger Sum(REALobject, REALarray values) {
  RBInteger sum = 0;
  bool found = false;
  for (RBInteger i = 0; i <= REALGetArrayUBound(values); ++i) {
    sum += REALGetArrayValueInteger(values, i, &found);
  }
  return sum;
}

REALmemoryBlock Pack(REALobject, REALarray colors) {
  RBInteger count = REALGetArrayUBound(colors) + 1;
  REALmemoryBlock block = REALNewMemoryBlockOriginal(count * 4);
  auto* bytes = static_cast<RBColor*>(REALMemoryBlockGetPtr(block));
  bool found = false;
  for (RBInteger i = 0; i < count; ++i) bytes[i] = REALGetArrayValueColor(colors, i, &found);
  return block;
}

RBInteger Join(REALobject, REALarray rows) {
  RBInteger total = 0;
  for (RBInteger i = 0; i <= REALGetArrayUBound(rows); ++i) {
    REALobject row = REALGetArrayValueObject(rows, i);
    if (row != nullptr) total += reinterpret_cast<REALmemoryBlockLegacy*>(row)->size;
    REALUnlockObject(row);
  }
  return total;
}

void Fail(REALobject, REALstring message) {
  REALobject e = REALnewInstance("NilObjectException");
  REALSetPropValueString(e, "Message", message);
  REALSetPropValueInteger(e, "ErrorNumber", 7);
  REALRaiseException(e);
  REALUnlockObject(e);
}

RBInteger Ask(REALobject self, RBInteger n) {
  Counter* c = Data(self);
  return c->onAsk ? reinterpret_cast<RBInteger (*)(REALobject, RBInteger)>(c->onAsk)(self, n) : -1;
}

// Deliberate faults for the audit: a string never given back, and a string unlocked twice.
void Leak(REALobject) {
  Text("leaked");
}

void Abuse(REALobject) {
  REALstring s = Text("freed");
  REALUnlockString(s);
  REALUnlockString(s);
}

RBInteger GetHidden(REALobject self, RBInteger param) {
  return Data(self)->hidden + param;
}

void SetHidden(REALobject self, RBInteger param, RBInteger value) {
  Data(self)->hidden = value * param;
}

REALstring Version() {
  return Text("fake 1.0");
}

RBInteger Twice(RBInteger n) {
  return 2 * n;
}

REALstring Hello(REALstring name) {
  return Text("hello " + Utf8(name));
}

RBInteger PathLength(REALobject file, RBInteger extra) {
  REALstring path = nullptr;
  if (!REALGetPropValueString(file, "NativePath", &path)) return -1;
  RBInteger length = static_cast<RBInteger>(Utf8(path).size());
  REALUnlockString(path);
  return length + extra;
}

template <typename R>
R ContextQuery(const char* name, void* context) {
  auto fn = reinterpret_cast<R (*)(void*)>(dlsym(RTLD_DEFAULT, name));
  return fn != nullptr ? fn(context) : R{};
}

// Bytes by the context's alpha info: "first" formats (even codes) put colour in bytes 1 to 3,
// codes up to 4 keep alpha in the remaining byte.
bool PaintContext(void* context, RBColor tint) {
  auto* data = static_cast<unsigned char*>(ContextQuery<void*>("CGBitmapContextGetData", context));
  if (data == nullptr || ContextQuery<size_t>("CGBitmapContextGetBitsPerPixel", context) != 32) {
    return false;
  }
  size_t width = ContextQuery<size_t>("CGBitmapContextGetWidth", context);
  size_t height = ContextQuery<size_t>("CGBitmapContextGetHeight", context);
  size_t rowBytes = ContextQuery<size_t>("CGBitmapContextGetBytesPerRow", context);
  uint32_t info = ContextQuery<uint32_t>("CGBitmapContextGetAlphaInfo", context) & 7;
  bool first = info % 2 == 0;
  for (size_t y = 0; y < height; ++y) {
    for (size_t x = 0; x < width; ++x) {
      unsigned char* px = data + y * rowBytes + x * 4;
      unsigned char* c = px + (first ? 1 : 0);
      c[0] = static_cast<unsigned char>(tint >> 16);
      c[1] = static_cast<unsigned char>(tint >> 8);
      c[2] = static_cast<unsigned char>(tint);
      if (info <= 4) px[first ? 0 : 3] = 255;
    }
  }
  return true;
}

bool PaintGd(gdImagePtr image, RBColor tint) {
  if (image == nullptr || !image->trueColor || image->tpixels == nullptr) return false;
  for (int y = 0; y < image->sy; ++y) {
    for (int x = 0; x < image->sx; ++x) image->tpixels[y][x] = static_cast<int>(tint & 0xFFFFFF);
  }
  return true;
}

RBBoolean PaintPicture(REALpicture picture, RBColor tint) {
  REALpictureDescription desc{};
  bool context = REALLockPictureDescription(picture, &desc, pictureCGBitmapContext) != 0;
  if (!context && !REALLockPictureDescription(picture, &desc, pictureGDPtr)) return 0;
  bool painted = context ? PaintContext(desc.pictureData, tint)
                         : PaintGd(static_cast<gdImagePtr>(desc.pictureData), tint);
  REALUnlockPictureDescription(picture);
  REALPictureClearCache(picture);
  return painted ? 1 : 0;
}

#define FIELD(name) static_cast<int32_t>(offsetof(Counter, name))
#define STD REALstandardGetter, REALstandardSetter

REALproperty gProperties[] = {
    {nullptr, "Count", "Integer", 4, STD, FIELD(count), nullptr, 0, nullptr, 0, nullptr},
    {nullptr, "Scale", "Double", 4, STD, FIELD(scale), nullptr, 0, nullptr, 0, nullptr},
    {nullptr, "Ratio", "Single", 4, STD, FIELD(ratio), nullptr, 0, nullptr, 0, nullptr},
    {nullptr, "Flag", "Boolean", 4, STD, FIELD(flag), nullptr, 0, nullptr, 0, nullptr},
    {nullptr, "Tint", "Color", 4, STD, FIELD(tint), nullptr, 0, nullptr, 0, nullptr},
    {nullptr, "Label", "String", 4, STD, FIELD(label), nullptr, 0, nullptr, 0, nullptr},
    {nullptr, "File", "FolderItem", 4, STD, FIELD(file), nullptr, 0, nullptr, 0, nullptr},
    {nullptr, "Hidden", "Integer", 4, reinterpret_cast<REALproc>(GetHidden),
     reinterpret_cast<REALproc>(SetHidden), 3, nullptr, 0, nullptr, 0, nullptr},
};

#define METHOD(fn, decl) \
  { reinterpret_cast<REALproc>(fn), nullptr, decl, 4, 0, nullptr }

REALmethodDefinition gMethods[] = {
    METHOD(AddInteger, "Add(amount as integer = 1) as integer"),
    METHOD(AddDouble, "Add(amount as double) as double"),
    METHOD(Mix, "Mix(a as single, b as boolean = false, c as color = &h00FF00) as string"),
    METHOD(Swap, "Swap(byref name as string, byref n as integer) as boolean"),
    METHOD(Sum, "Sum(values() as integer) as integer"),
    METHOD(Pack, "Pack(colors() as color) as memoryblock"),
    METHOD(Join, "Join(rows() as memoryblock) as integer"),
    METHOD(Fail, "Fail(message as string)"),
    METHOD(Ask, "Ask(n as integer) as integer"),
    METHOD(Leak, "Leak"),
    METHOD(Abuse, "Abuse"),
};

REALmethodDefinition gShared[] = {METHOD(Version, "Version as string")};
REALconstant gConstants[] = {{"kLimit = 10", nullptr, 0, 0, nullptr}};

REALmethodDefinition gExtensionMethods[] = {
    METHOD(PathLength, "PathLength(extra as integer = 0) as integer")};
REALclassDefinition gExtension{};

REALmethodDefinition gModuleMethods[] = {
    METHOD(Twice, "Twice(n as integer) as integer"),
    METHOD(PathLength, "NameLength(extends ref as Folderitem, add as integer = 0) as integer"),
    METHOD(PaintPicture, "PaintPicture(pict as picture, tint as color) as boolean"),
};
REALmoduleDefinition gModule{};

REALmethodDefinition gHello = METHOD(Hello, "Hello(name as string = \"world\") as string");

void FillTables() {
  REALclassDefinition& c = gCounterClass;
  c.version = 13;
  c.name = "CounterKRV";
  c.dataSize = sizeof(Counter);
  c.constructor = reinterpret_cast<REALproc>(Construct);
  c.destructor = reinterpret_cast<REALproc>(Destruct);
  c.properties = gProperties;
  c.propertyCount = 8;
  c.methods = gMethods;
  c.methodCount = 11;
  c.events = gEvents;
  c.eventCount = 2;
  c.constants = gConstants;
  c.constantCount = 1;
  c.mFlags = 4;
  c.sharedMethods = gShared;
  c.sharedMethodCount = 1;
  gExtension.version = 13;
  gExtension.name = "Folderitem";
  gExtension.methods = gExtensionMethods;
  gExtension.methodCount = 1;
  gModule.version = 13;
  gModule.name = "FakeGlobalsKRV";
  gModule.methods = gModuleMethods;
  gModule.methodCount = 3;
}

// The older layout: method records of four fields, properties of ten, events of two. The
// table's events keep the address of their registered copy in the host word. The version word
// stays 13: an old host reads its own layout whatever the word says.
template <typename Old, typename New>
Old* Copy(const New* records, size_t count) {
  Old* out = new Old[count];
  for (size_t i = 0; i < count; ++i) std::memcpy(&out[i], &records[i], sizeof(Old));
  return out;
}

void RegisterOldLayout(REALclassDefinition* def) {
  def->properties =
      reinterpret_cast<REALproperty*>(Copy<REALproperty9>(def->properties, def->propertyCount));
  def->methods = reinterpret_cast<REALmethodDefinition*>(
      Copy<REALmethodDefinition9>(def->methods, def->methodCount));
  auto* events = Copy<REALevent9>(def->events, def->eventCount);
  for (size_t i = 0; i < def->eventCount; ++i) {
    def->events[i].forSystemUse = reinterpret_cast<RBInteger>(&events[i]);
  }
  def->events = reinterpret_cast<REALevent*>(events);
  def->constants =
      reinterpret_cast<REALconstant*>(Copy<REALconstant9>(def->constants, def->constantCount));
  def->sharedMethods = reinterpret_cast<REALmethodDefinition*>(
      Copy<REALmethodDefinition9>(def->sharedMethods, def->sharedMethodCount));
  REALRegisterClass(def);
}

}  // namespace

extern "C" __attribute__((visibility("default"))) void REALPluginMain(REALResolver resolver) {
  gResolver = resolver;
  auto version = reinterpret_cast<REALGetRBVersionProc>(resolver("REALGetRBVersion"));
  rbversion = version ? version() : 0;
  gControlVersion = rbversion >= 2012.0 ? 13 : 9;
  FillTables();
  reinterpret_cast<RegisterPluginVersionProc>(resolver("RegisterPluginVersion"))(
      static_cast<int32_t>(gControlVersion));
  if (gControlVersion <= 9) {
    RegisterOldLayout(&gCounterClass);
    gModule.methods = reinterpret_cast<REALmethodDefinition*>(
        Copy<REALmethodDefinition9>(gModule.methods, gModule.methodCount));
  } else {
    REALRegisterClass(&gCounterClass);
  }
  REALRegisterClassExtension(&gExtension);
  REALRegisterModule(&gModule);
  REALRegisterMethod(&gHello);
}
