// The host emulator: the host side of the plug-in interface, faithful to the byte, so that C++
// code can load the real plug-in and drive it the way Xojo user code would.
//
// One process is one host: pick a profile, start the host, load the plug-in, then create
// instances, call methods by name or by declaration, read and write properties, implement
// events with lambdas and finally audit that the plug-in gave back every reference it took.
//
//   emu::Host& host = emu::Host::Instance();
//   host.Start(*emu::FindProfile("linux-desktop-2019.1"));
//   host.LoadPlugin(PNGKRV_PLUGIN_PATH);
//   std::vector<std::string> errors;
//   emu::Value reader = host.New("PNGReaderKRV",
//       {{"Error", [&](const emu::EventArgs& a) { errors.push_back(a.String(0)); }}});
//   emu::Value ok = host.Call(reader, "OpenData", {host.MakeString(pngBytes,
//   kREALTextEncodingUnknown)}); RBInteger width = host.GetProperty(reader, "Width").AsInteger();
//   emu::Value name, compression(RBInteger{0}), profile;  // byref slots
//   host.Call(reader, "ReadICCProfile", {emu::ByRef(name), emu::ByRef(compression),
//   emu::ByRef(profile)}); if (host.LastException()) { ... }  // an exception the plug-in raised
//   during the last call reader = emu::Value();  // drop the instance: its destructor runs
//   emu::AuditReport report = host.Audit();  // report.Clean() when nothing leaked
//
// Values are copyable: a copy of a string or object value takes its own host reference and every
// value gives its reference back when destroyed. Misuse by the caller (unknown method, no matching
// overload, wrong value kind) throws emu::Error; faults of the plug-in (bad handles, double
// unlocks, event words it never issued, names no host serves) never throw into plug-in code but are
// recorded for the audit.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <ostream>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "host/sdk.h"

namespace emu {

// Raised by the emulator's own API for mistakes of the calling C++ code.
class Error : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// ---------------------------------------------------------------------------------------------
// Host profiles
// ---------------------------------------------------------------------------------------------

enum class AppKind { Desktop, Console, Web, None };

// The platform a host plays. It decides how desktop pictures are stored: cairo image surfaces on
// Linux, bitmap contexts (the Core Graphics stand-in) on macOS, premultiplied BGRA pixels on
// modern Windows hosts, GDI+ bitmaps on older Windows hosts. Console and web hosts keep gd images
// on all. The Windows build of the emulator has no cairo and plays no Linux desktop host; only
// the Windows build plays Windows hosts.
enum class Platform { Linux, Mac, Windows, WindowsGdiplus };

struct Profile {
  std::string name;
  double version = 2019.1;
  AppKind app = AppKind::Desktop;
  Platform platform = Platform::Linux;
  std::set<std::string> withheld;  // entry points the resolver answers with null
  // Linux desktop pictures check, at every lock, that the plug-in marks the pixels it writes
  // dirty for cairo: a copy of the surface at the first lock, a clearing paint and, at the last
  // unlock, a comparison. That is the tests' instrumentation, not host behaviour; the benchmark
  // turns it off to time the plug-in against the work a real host does.
  bool auditCairoLocks = true;

  // Hosts older than 2017.0 let the plug-in read strings, blocks and arrays directly.
  bool LegacyRecords() const { return version < 2017.0; }
  bool CairoPictures() const { return app == AppKind::Desktop && platform == Platform::Linux; }
};

const std::vector<Profile>& BuiltInProfiles();
const Profile* FindProfile(std::string_view name);  // null for an unknown name
// The name of a desktop profile of the build's own platform: "linux-desktop-" (Windows:
// "windows-desktop-") followed by `version`, e.g. "2019.1" or "2019.1-bare".
std::string DesktopProfileName(std::string_view version);
// The build's own desktop platform: Linux, or Windows.
Platform DesktopPlatform();

// ---------------------------------------------------------------------------------------------
// Values
// ---------------------------------------------------------------------------------------------

enum class ValueKind { Nil, Integer, Double, Single, Boolean, Color, String, Object };

// Kinds of host objects. Every handle the emulator hands out is one of these.
enum class ObjectKind {
  String,
  Instance,
  MemoryBlock,
  Array,
  FolderItem,
  Exception,
  Picture,
  Graphics
};

const char* KindName(ValueKind kind);
const char* KindName(ObjectKind kind);

class Value {
 public:
  Value() = default;
  template <typename T,
            std::enable_if_t<std::is_integral_v<T> && !std::is_same_v<T, bool>, int> = 0>
  Value(T v) : kind_(ValueKind::Integer) {
    scalar_.i = static_cast<RBInteger>(v);
  }
  Value(double v) : kind_(ValueKind::Double) { scalar_.d = v; }
  Value(float v) : kind_(ValueKind::Single) { scalar_.f = v; }
  Value(bool v) : kind_(ValueKind::Boolean) { scalar_.b = v; }
  Value(const char*) = delete;  // strings are host objects: use Host::MakeString

  static Value Color(RBColor c);
  // Takes over one reference the caller owns.
  static Value AdoptString(REALstring s);
  static Value AdoptObject(void* object);
  // Takes a new reference of its own.
  static Value RetainString(REALstring s);
  static Value RetainObject(void* object);

  Value(const Value& other);
  Value(Value&& other) noexcept;
  Value& operator=(const Value& other);
  Value& operator=(Value&& other) noexcept;
  ~Value();

  ValueKind Kind() const { return kind_; }
  bool IsNil() const { return kind_ == ValueKind::Nil; }

  // Scalar accessors convert between the numeric kinds; anything else throws emu::Error.
  RBInteger AsInteger() const;
  double AsDouble() const;
  float AsSingle() const;
  bool AsBoolean() const;
  RBColor AsColor() const;

  // Handles: null for nil; emu::Error for any other kind.
  REALstring AsString() const;
  REALobject AsObject() const;
  template <typename Handle>
  Handle As() const {
    return reinterpret_cast<Handle>(AsObject());
  }
  const void* Handle() const { return handle_; }

  // A string value's raw bytes, its encoding, and its text converted to UTF-8 ("" for nil).
  std::string Bytes() const;
  uint32_t Encoding() const;
  std::string Text() const;

  std::string Describe() const;

 private:
  void Release() noexcept;
  void Retain() const;

  ValueKind kind_ = ValueKind::Nil;
  union {
    RBInteger i;
    double d;
    float f;
    bool b;
    RBColor c;
  } scalar_{};
  void* handle_ = nullptr;
  uint64_t generation_ = 0;  // the host run the reference belongs to
};

// One argument of a call: a value passed by value, or a caller's slot passed byref. After the
// call a byref slot holds what the plug-in left in it.
struct Arg {
  template <typename T, std::enable_if_t<std::is_constructible_v<Value, T&&> &&
                                             !std::is_same_v<std::decay_t<T>, Arg>,
                                         int> = 0>
  Arg(T&& v) : value(std::forward<T>(v)) {}

  Value value;
  Value* slot = nullptr;

 private:
  friend Arg ByRef(Value& slot);
  Arg() = default;
};

Arg ByRef(Value& slot);

// ---------------------------------------------------------------------------------------------
// Declarations
// ---------------------------------------------------------------------------------------------

enum class TypeKind { Void, Integer, Double, Single, Boolean, Color, String, Object, Array };

struct TypeRef {
  TypeKind kind = TypeKind::Void;
  std::string name;                   // as written, e.g. "Folderitem", "PNGPictureKRV"
  TypeKind element = TypeKind::Void;  // arrays: the element kind
  std::string elementName;            // arrays: the element type as written
};

struct Param {
  std::string name;
  TypeRef type;
  bool byRef = false;
  bool extends = false;
  bool assigns = false;
  std::optional<std::string> defaultText;  // e.g. "0.0", "-1", "false", "nil"
};

struct Declaration {
  std::string name;
  std::vector<Param> params;
  TypeRef result;
};

// Parses a Xojo method or event declaration; throws emu::Error when it is malformed.
Declaration ParseDeclaration(std::string_view text);
// Maps a Xojo type name ("integer", "Picture", ...) to its kind; arrays are written "name()".
TypeRef ParseType(std::string_view text);

// ---------------------------------------------------------------------------------------------
// Registry: what the plug-in registered, as read from its definition records
// ---------------------------------------------------------------------------------------------

struct MethodInfo {
  std::string declaration;
  Declaration parsed;
  uint32_t flags = 0;
  REALproc handler = nullptr;
  REALproc setter = nullptr;
};

struct PropertyInfo {
  std::string group;
  std::string name;
  std::string type;
  TypeRef parsedType;
  uint32_t flags = 0;
  REALproc getter = nullptr;
  REALproc setter = nullptr;
  int32_t param = 0;
  bool StandardGetter() const { return getter == REALstandardGetter; }
  bool StandardSetter() const { return setter == REALstandardSetter; }
};

struct EventInfo {
  std::string declaration;
  Declaration parsed;
  RBInteger hostWord = 0;        // the value the emulator stored in the record's host word
  const void* record = nullptr;  // the registered event record
};

struct ConstantInfo {
  std::string declaration;
  uint32_t flags = 0;
};

struct ClassInfo {
  int sequence = 0;            // registration order over classes, extensions, modules and methods
  uint32_t versionWord = 0;    // the definition's version word as registered
  uint32_t layoutVersion = 0;  // the layout it was read in: 9 (older) or 13
  bool extension = false;      // a class extension adds methods to a host class
  std::string name;
  std::string superName;
  size_t dataSize = 0;
  RBInteger dataOffset = 0;  // where the class data lies in an instance, written to forSystemUse
  uint32_t flags = 0;
  REALproc constructor = nullptr;
  REALproc destructor = nullptr;
  std::vector<PropertyInfo> properties;
  std::vector<MethodInfo> methods;
  std::vector<EventInfo> events;
  std::vector<ConstantInfo> constants;
  std::vector<PropertyInfo> sharedProperties;
  std::vector<MethodInfo> sharedMethods;
  std::string interfaces;
  const REALclassDefinition* definition = nullptr;
};

struct ModuleInfo {
  int sequence = 0;
  uint32_t versionWord = 0;
  uint32_t layoutVersion = 0;
  std::string name;
  std::vector<MethodInfo> methods;
  std::vector<ConstantInfo> constants;
  std::vector<PropertyInfo> properties;
};

struct GlobalMethodInfo {
  int sequence = 0;
  MethodInfo method;
};

struct Registry {
  std::vector<ClassInfo> classes;
  std::vector<ClassInfo> extensions;
  std::vector<ModuleInfo> modules;
  std::vector<GlobalMethodInfo> methods;
  std::optional<int32_t> pluginVersion;  // the value given to RegisterPluginVersion

  const ClassInfo* FindClass(std::string_view name) const;  // case-insensitive
  const ModuleInfo* FindModule(std::string_view name) const;
};

// ---------------------------------------------------------------------------------------------
// Events
// ---------------------------------------------------------------------------------------------

class EventArgs {
 public:
  EventArgs(std::string event, REALobject owner, std::vector<Value> args)
      : event_(std::move(event)), owner_(owner), args_(std::move(args)) {}

  const std::string& Event() const { return event_; }
  REALobject Owner() const { return owner_; }
  size_t Count() const { return args_.size(); }
  const Value& operator[](size_t i) const;
  std::string String(size_t i) const;  // the argument's text in UTF-8; "" for a nil string
  bool IsNil(size_t i) const { return (*this)[i].IsNil(); }

  // What the event returns, for events declared with a result.
  mutable Value result;

 private:
  std::string event_;
  REALobject owner_;
  std::vector<Value> args_;
};

using EventHandler = std::function<void(const EventArgs&)>;
using EventHandlers = std::map<std::string, EventHandler>;  // by event name

// ---------------------------------------------------------------------------------------------
// Audit
// ---------------------------------------------------------------------------------------------

struct LiveObject {
  const void* handle = nullptr;
  ObjectKind kind = ObjectKind::Instance;
  std::string className;
  long references = 0;
  std::string creator;  // the entry point or API call that made it
};

struct AuditReport {
  std::vector<LiveObject> live;
  size_t openStringData = 0;  // PluginGetStringData records not yet disposed
  std::vector<std::string> errors;
  std::vector<const void*> lockedPictures;  // picture descriptions locked and never unlocked

  bool Clean() const {
    return live.empty() && openStringData == 0 && errors.empty() && lockedPictures.empty();
  }
  std::string Format() const;
};

struct RaisedException {
  std::string className;
  std::string message;
  RBInteger errorNumber = 0;
};

enum class Storage { Direct, GetterOnly };

// ---------------------------------------------------------------------------------------------
// Pictures
// ---------------------------------------------------------------------------------------------
//
// Linux desktop hosts keep a picture in a cairo image surface (format codes 9 and 10): one 32-bit
// word a pixel in host byte order, 9 = ARGB32 0xAARRGGBB with the colour premultiplied by alpha
// (pictures with alpha channel), 10 = RGB24 0x..RRGGBB with the top byte ignored (all others).
// REALLockPictureDescription type 12 hands out a cairo context on the surface, made for the lock
// and destroyed at its unlock; DrawPicture draws with cairo. libcairo is loaded into the process
// when such a host starts, and only then.
// macOS desktop hosts keep a picture in a bitmap context of 32 bits a pixel whose rows may be
// longer than width × 4 bytes (description type 8). Its alpha info (the pixel format code) gives
// the bytes of a pixel:
//   1  R G B A, colour premultiplied by alpha     2  A R G B, premultiplied
//   3  R G B A                                    4  A R G B
//   5  R G B x (x ignored)                        6  x R G B
// Windows desktop hosts keep a picture in 32-bit words 0xAARRGGBB in host byte order, B, G, R, A
// in memory, rows of width × 4 bytes: modern hosts (Platform::Windows) as premultiplied pixels
// (format code 9 as cairo's ARGB32, also for pictures without alpha channel, whose alpha is 255),
// handed out as description type 14, a pointer to the pixels; older hosts (WindowsGdiplus) as
// GDI+ bitmaps over these words, 32bppPARGB (format code 9) for pictures with alpha channel,
// 32bppRGB (format code 10 as cairo's RGB24) for the others, handed out as description type 11,
// the GpBitmap*. GDI+ is Windows' own (Wine's under Wine).
// Console and web hosts keep a picture in a gd true-colour image (format code 8, description type
// 10): one int a pixel, 0xAARRGGBB with gd's 7-bit alpha (0 opaque, 127 transparent). Test code
// may also make gd palette images (format code 0), which the plug-in must refuse to edit. A host
// describes its pictures only as its own type.
//
// A picture either has an alpha channel, kept in its pixels (in formats 5 and 6 such a picture is
// stored as 1 and 2), or is opaque and may have a mask: a picture of the same size whose grey
// level (its red channel) is the transparency, black opaque and white transparent.
//
// Picture types (PluginPictureGetType): 2 ordinary bitmap, 1 immutable, 0 and 3 multi-
// representation. Only ordinary pictures lock their description or give a graphics object
// (desktop hosts only). Hosts before 2012.0 keep a picture locked even after a failed
// REALLockPictureDescription, until unlockPictureDescription.
//
// The host's Picture and Graphics methods that REALLoadObjectMethod finds, by exact declaration:
// Picture "Constructor(width as integer, height as integer)" (from 2011.04; a transparent
// picture with alpha channel), "Mask(assigns newMask As Picture)", "BestRepresentation(width As
// Integer, height As Integer, scale As Double) As Picture" (from 2016.0; nil for pictures without
// representations); Graphics "DrawPicture(...)" with Integer parameters below 2018.02 and with
// Double parameters from 2018.02 on.
//
// The plug-in finds the six CGBitmapContextGet... queries with dlsym in the running process:
// executables that link the emulator must export their symbols (CMake ENABLE_EXPORTS). It finds
// cairo the same way, and GDI+ in the loaded gdiplus.dll.

enum class PictureStorage { HostDefault, GdPalette };
enum class MaskSource { None, Grey, Alpha };

struct PictureOptions {
  PictureStorage storage = PictureStorage::HostDefault;
  bool alphaChannel = false;  // keep the alpha bytes in the pixels; such pictures take no mask
  MaskSource mask = MaskSource::None;  // Grey: from maskGrey; Alpha: grey = 255 − the alpha byte
  std::string maskGrey;                // width × height grey bytes
  int32_t type = 2;  // 0 or 3: representations at scales 1, 2 and 4 from the same pixels
  RBInteger horizontalResolution = 72;
  RBInteger verticalResolution = 72;
};

// A picture's storage as it lies in memory.
struct PictureRaw {
  // 1..6 bitmap alpha info, 8 gd true colour, 0 gd palette, 9 and 10 cairo and Windows words
  int format = 0;
  RBInteger rowBytes = 0;
  std::string bytes;  // rows top to bottom, rowBytes each (palette: one index a pixel)
};

struct PictureCounts {
  long lockCalls = 0;    // REALLockPictureDescription calls, failed ones included
  long openLocks = 0;    // locks that no unlockPictureDescription has ended yet
  long clearCaches = 0;  // REALPictureClearCache calls
  // Of the runs of locks on a cairo surface (from a first lock to the unlock that leaves none
  // open): those during which the pixels changed, and of those the ones cairo was not told of.
  long writtenLocks = 0;
  long unmarkedWrites = 0;
};

// ---------------------------------------------------------------------------------------------
// The host
// ---------------------------------------------------------------------------------------------

class Host {
 public:
  static Host& Instance();

  // Starts the host with a profile. A host runs one profile until Shutdown.
  void Start(const Profile& profile);
  // Frees every object (plug-in destructors are not run), the registry and the lookup counts.
  // Values that outlive it become inert.
  void Shutdown();
  bool Started() const;
  const Profile& CurrentProfile() const;

  // dlopens the plug-in and calls its REALPluginMain with the resolver.
  void LoadPlugin(const std::string& path);
  // The resolver for plug-in code linked into the process directly.
  static REALResolver Resolver();
  size_t LookupCount(std::string_view name) const;
  // Every name the plug-in asked the resolver for, and how many of its requests named an entry
  // point that no real host serves (each such name is also an audit error).
  std::vector<std::string> LookedUpNames() const;
  size_t UnservedLookups() const;

  const Registry& GetRegistry() const;
  void DumpRegistry(std::ostream& out) const;

  // Instances of plug-in classes (constructor run, events bound) and of the host's exception
  // classes.
  Value New(std::string_view className, const EventHandlers& events = {});

  // Calls by name with overload resolution: instance methods of plug-in instances, extension
  // methods of folder items (class extensions and module methods with "extends").
  Value Call(const Value& target, std::string_view name, std::vector<Arg> args = {});
  Value CallShared(std::string_view className, std::string_view name, std::vector<Arg> args = {});
  // Global methods and module methods.
  Value CallGlobal(std::string_view name, std::vector<Arg> args = {});
  // Calls the method registered with exactly this declaration: of the target's class (instance
  // or extension method), or, with a nil target, a global, module or shared method.
  Value CallDeclaration(const Value& target, std::string_view declaration,
                        std::vector<Arg> args = {});

  Value GetProperty(const Value& object, std::string_view name);
  void SetProperty(const Value& object, std::string_view name, const Value& value);

  // The exception the plug-in raised during the last call, property access or New.
  const std::optional<RaisedException>& LastException() const;
  void ClearLastException();

  // Strings: `bytes` are already in `encoding`. MakeText converts UTF-8 text into it.
  Value MakeString(std::string_view bytes, uint32_t encoding = kREALTextEncodingUTF8);
  Value MakeText(std::string_view utf8, uint32_t encoding);
  // Converts bytes between encodings; nullopt when they cannot be converted.
  static std::optional<std::string> ConvertBytes(std::string_view bytes, uint32_t from,
                                                 uint32_t to);

  // Memory blocks.
  Value NewMemoryBlock(RBInteger size);
  Value MemoryBlockFrom(std::string_view bytes);
  std::string BlockBytes(const Value& block) const;
  unsigned char* BlockData(const Value& block) const;
  RBInteger BlockSize(const Value& block) const;
  // Blocks larger than this are refused (newMemoryBlock returns null).
  void SetMemoryBlockLimit(RBInteger bytes);
  // Pictures of more pixels than this are refused as if memory had run out (newPicture and the
  // other picture makers return null).
  void SetPicturePixelLimit(uint64_t pixels);

  // Arrays.
  Value MakeColorArray(const std::vector<RBColor>& colors, Storage storage = Storage::Direct);
  Value MakeIntegerArray(const std::vector<RBInteger>& values, Storage storage = Storage::Direct);
  Value MakeMemoryBlockArray(const std::vector<Value>& blocks, Storage storage = Storage::Direct);

  // Folder items.
  Value MakeFolderItem(const std::string& path);

  // Pictures. New desktop pictures take this alpha info (1..6, bitmap contexts only) and these
  // extra bytes a row (rounded up to whole pixels in cairo surfaces); Start resets them to 2 and 0.
  void SetPictureFormat(int alphaInfo, int rowPaddingBytes);
  // A width × height picture from RGBA bytes, 4 a pixel, rows top to bottom. Without an alpha
  // channel the alpha bytes only serve MaskSource::Alpha.
  Value MakePicture(RBInteger width, RBInteger height, std::string_view rgba,
                    const PictureOptions& options = {});
  // Any picture as RGBA bytes with its alpha channel or mask applied: colours un-premultiplied,
  // gd alpha a read as 255 − round(a × 255 / 127), mask grey g as alpha 255 − g. `rowCount` rows
  // from `firstRow` on (as many as there are), so that a large picture can be read in parts.
  std::string PictureRgba(const Value& picture, size_t firstRow = 0,
                          size_t rowCount = SIZE_MAX) const;
  PictureRaw RawPicture(const Value& picture) const;
  Value PictureMask(const Value& picture) const;  // nil when the picture has none
  PictureCounts PictureStats(const Value& picture) const;

  // Introspection for assertions.
  std::string ClassName(const Value& object) const;
  long References(const void* handle) const;  // 0 when the handle is not alive
  bool IsAlive(const void* handle) const;

  AuditReport Audit() const;
  void ClearAuditErrors();

  struct State;
  State& Internal();

 private:
  Host();
  ~Host();
  Host(const Host&) = delete;
  Host& operator=(const Host&) = delete;

  std::unique_ptr<State> state_;
};

}  // namespace emu
