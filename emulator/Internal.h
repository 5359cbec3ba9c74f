// The emulator's private state: the host objects behind every handle, the object table with its
// reference counts, and the host state that the entry points and the public API share.
#pragma once

#include <ffi.h>
#if !defined(_WIN32)
#include <cairo.h>
#endif

#include <array>
#include <deque>
#include <exception>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "emulator/Emulator.h"

namespace emu {

std::string Lower(std::string_view text);
bool SameName(std::string_view a, std::string_view b);  // Xojo names ignore case

// The first words of every object the plug-in only sees as an opaque handle.
struct OpaqueRecord {
  void* header[2] = {nullptr, nullptr};
};

// A host object. The handle the plug-in sees is the address of the record that the concrete
// object keeps as a member, laid out as the legacy records of sdk.h where they exist.
struct Object {
  Object(ObjectKind k, std::string made) : kind(k), creator(std::move(made)) {}
  virtual ~Object() = default;
  virtual void* Handle() = 0;
  virtual std::string ClassName() const = 0;
  virtual void SyncReferences() {}
  // The references this object holds on other objects, given back when it dies.
  virtual std::vector<void*> TakeChildren() { return {}; }
  // Frees the payload of a dead object; its record stays readable for the audit.
  virtual void FreePayload() {}

  ObjectKind kind;
  std::string creator;
  long refs = 1;
  bool alive = true;
  bool dying = false;
};

// Hosts from 2017.0 on keep strings, memory blocks and arrays opaque: their handles lead to no
// record a plug-in may read. There the emulator hands out the address of a record that says
// nothing (no data, negative sizes, an array storage of zeros, a string that claims to be UTF-8),
// so that a plug-in that reads it anyway gets a wrong result instead of the right one.
bool LegacyRecordsShown();

struct StringObject : Object {
  StringObject(std::string_view bytes, uint32_t encoding, std::string made);
  void* Handle() override { return shown ? static_cast<void*>(&record) : &opaque; }
  std::string ClassName() const override { return "String"; }
  void SyncReferences() override { record.usageCount = refs; }
  void FreePayload() override;
  std::string_view Bytes() const;

  REALstringLegacy record{};
  std::unique_ptr<unsigned char[]> buffer;
  bool shown = LegacyRecordsShown();
  REALstringLegacy opaque{0, nullptr, -1, -1, kREALTextEncodingUTF8};
};

struct MemoryBlockObject : Object {
  MemoryBlockObject(size_t size, std::string made);
  void* Handle() override { return shown ? static_cast<void*>(&record) : &opaque; }
  std::string ClassName() const override { return "MemoryBlock"; }
  void FreePayload() override;

  REALmemoryBlockLegacy record{};
  std::unique_ptr<unsigned char[]> data;
  bool shown = LegacyRecordsShown();
  REALmemoryBlockLegacy opaque{{nullptr, nullptr}, nullptr, -1};
};

struct ArrayObject : Object {
  ArrayObject(TypeKind element, bool direct, std::string made);
  void* Handle() override { return shown ? static_cast<void*>(&record) : &opaque; }
  std::string ClassName() const override;
  std::vector<void*> TakeChildren() override;
  void FreePayload() override;
  size_t Size() const;
  void Publish();  // points the record at the elements

  REALarrayLegacy record{};
  bool shown = LegacyRecordsShown();
  REALarrayLegacy opaque{{nullptr, nullptr}, -1, nullptr};
  std::vector<uint64_t> zeros;  // the opaque record's storage, as many elements as the array
  TypeKind element;
  bool direct;
  std::vector<RBColor> colors;
  std::vector<RBInteger> integers;
  std::vector<void*> objects;  // each holds one reference
};

struct FolderItemObject : Object {
  FolderItemObject(std::string p, std::string made)
      : Object(ObjectKind::FolderItem, std::move(made)), path(std::move(p)) {}
  void* Handle() override { return &record; }
  std::string ClassName() const override { return "FolderItem"; }

  OpaqueRecord record;
  std::string path;
};

struct ExceptionObject : Object {
  ExceptionObject(std::string cls, std::string made)
      : Object(ObjectKind::Exception, std::move(made)), className(std::move(cls)) {}
  void* Handle() override { return &record; }
  std::string ClassName() const override { return className; }
  std::vector<void*> TakeChildren() override;

  OpaqueRecord record;
  std::string className;
  void* message = nullptr;  // a string, one reference held
  RBInteger errorNumber = 0;
};

// One pixel, colour not premultiplied.
struct Rgba {
  uint8_t r = 0, g = 0, b = 0, a = 0;
};

// What the unlock that ended the last open lock of a cairo surface found about the locks: the
// plug-in must mark pixels it wrote dirty while they are locked.
struct LocksEnded {
  bool ended = false;    // this unlock ended them; the rest is meaningful only then
  bool written = false;  // the pixels changed while locked
  bool marked = false;   // cairo was told of a change (cairo_surface_mark_dirty)
};

// Where a picture's pixels live. A store made for an opaque picture reads every pixel as opaque
// and keeps what it writes opaque.
class PixelStore {
 public:
  virtual ~PixelStore() = default;
  virtual Rgba Get(size_t x, size_t y) const = 0;
  virtual void Put(size_t x, size_t y, Rgba pixel) = 0;
  // Every pixel set to `pixel`, in one pass as a host clears a new picture.
  virtual void Fill(Rgba pixel) = 0;
  virtual PictureRaw Raw() const = 0;
  // Fills `desc` when the store can be described as `type` (8 bitmap context, 10 gd image, 12
  // cairo context).
  virtual bool Describe(uint32_t type, REALpictureDescription& desc) = 0;
  // An unlock left `openLocks` locks open: what was made for the others is given up.
  virtual LocksEnded EndDescription(long /*openLocks*/) { return {}; }
#if !defined(_WIN32)
  // The cairo surface of a cairo store, up to date with every pixel written; null for others.
  virtual cairo_surface_t* CairoSurface() {
    return nullptr;
  }
#endif
};

// These throw std::bad_alloc when the pixels cannot be had.
#if defined(_WIN32)
// Premultiplied B, G, R, A bytes, rows of width × 4 bytes (modern Windows hosts), and GDI+ bitmaps
// (older ones; GDI+ is started when the first is made).
std::unique_ptr<PixelStore> NewBgraStore(size_t width, size_t height, bool alpha);
std::unique_ptr<PixelStore> NewGdiplusStore(size_t width, size_t height, bool alpha);
#else
// `audit`: the locks check cairo's dirty mark (Profile::auditCairoLocks).
std::unique_ptr<PixelStore> NewCairoStore(size_t width, size_t height, size_t padding, bool alpha,
                                          bool audit);
#endif
std::unique_ptr<PixelStore> NewBitmapStore(size_t width, size_t height, int alphaInfo,
                                           size_t padding, bool alpha);
std::unique_ptr<PixelStore> NewGdStore(size_t width, size_t height, bool palette, bool alpha);

struct PictureObject : Object {
  explicit PictureObject(std::string made) : Object(ObjectKind::Picture, std::move(made)) {}
  void* Handle() override { return &record; }
  std::string ClassName() const override { return "Picture"; }
  std::vector<void*> TakeChildren() override;
  void FreePayload() override { store.reset(); }
  bool Lockable() const { return store != nullptr && type == 2; }

  OpaqueRecord record;
  std::unique_ptr<PixelStore> store;  // null until constructed
  size_t width = 0;
  size_t height = 0;
  bool alpha = false;
  int32_t type = 2;
  RBInteger horizontalResolution = 72;
  RBInteger verticalResolution = 72;
  void* mask = nullptr;                                   // one reference held
  std::vector<std::pair<double, void*>> representations;  // by scale, one reference each
  PictureCounts counts;
};

struct GraphicsObject : Object {
  GraphicsObject(void* target, std::string made)
      : Object(ObjectKind::Graphics, std::move(made)), picture(target) {}
  void* Handle() override { return &record; }
  std::string ClassName() const override { return "Graphics"; }
  std::vector<void*> TakeChildren() override;

  OpaqueRecord record;
  void* picture;  // one reference held
};

struct EventClosure;

// Bytes of the host's own at the start of every instance, before any class data.
constexpr size_t kInstanceHeaderSize = 32;

// An instance is one zero-filled allocation: the host's header, then the class data of each class
// of its chain at the offset the host wrote into that class's definition. The handle the plug-in
// sees is the address of the allocation.
struct InstanceObject : Object {
  InstanceObject(size_t cls, std::string name, size_t bytes, EventHandlers events,
                 std::string made);
  ~InstanceObject() override;
  void* Handle() override { return memory.get(); }
  std::string ClassName() const override { return className; }
  void FreePayload() override;
  unsigned char* ClassData(RBInteger offset) { return memory.get() + offset; }

  std::unique_ptr<unsigned char[]> memory;
  size_t size;
  size_t classIndex;
  std::string className;
  EventHandlers handlers;
  std::map<RBInteger, std::unique_ptr<EventClosure>> closures;  // by event host word
};

// A C function pointer made by libffi that runs a test's event handler.
struct EventClosure {
  EventClosure(Host::State& state, std::string name, const Declaration& decl, EventHandler handler);
  ~EventClosure();
  EventClosure(const EventClosure&) = delete;
  EventClosure& operator=(const EventClosure&) = delete;

  Host::State& state;
  std::string name;
  Declaration declaration;
  EventHandler handler;
  std::vector<ffi_type*> types;
  ffi_cif cif{};
  ffi_closure* closure = nullptr;
  void* code = nullptr;
};

// Where a registered event record came from.
struct EventKey {
  size_t classIndex;
  size_t eventIndex;
};

// A candidate method for a call: `skip` leading parameters are filled by the receiver.
struct Candidate {
  const MethodInfo* method;
  bool receiverFirst;
  size_t skip;
};

struct Host::State {
  // Host
  bool started = false;
  Profile profile;
  uint64_t generation = 1;
  std::map<std::string, size_t, std::less<>> lookups;
  std::map<std::string, size_t, std::less<>> unserved;  // names no real host answers
  std::vector<void*> pluginHandles;
  RBInteger memoryBlockLimit = RBInteger{1} << 30;
  uint64_t picturePixelLimit = uint64_t{1} << 28;
  int pictureFormat = 2;
  size_t picturePadding = 0;

  // Registry
  Registry registry;
  int nextSequence = 0;
  RBInteger nextEventWord = 0x45560001;
  std::map<RBInteger, EventKey> eventWords;           // the words issued at registration
  std::map<std::string, int, std::less<>> classRefs;  // lower-case name -> tag

  // Objects
  std::unordered_map<const void*, std::unique_ptr<Object>> objects;
  // The last handles Find looked up: a plug-in's calls keep coming back to the same few objects
  // (its instance, the block it reads into), and a host would not pay a table lookup for them.
  mutable std::array<std::pair<const void*, Object*>, 4> recent{};
  mutable size_t nextRecent = 0;
  std::deque<const void*> graveyard;
  // Records handed out by PluginGetStringData, by their private token: converted bytes in a copy
  // of their own, or, where nothing needed converting, the string's own bytes with a reference
  // on the string that keeps them for as long as the record is out.
  struct StringDataRecord {
    std::unique_ptr<unsigned char[]> copy;
    void* retained = nullptr;
  };
  std::map<const void*, std::unique_ptr<StringDataRecord>> stringData;
  std::vector<std::string> auditErrors;

  // Calls into the plug-in
  int depth = 0;
  void* pendingException = nullptr;
  std::optional<RaisedException> lastException;
  std::exception_ptr deferred;

  // Objects.cpp
  template <typename T>
  T* Add(std::unique_ptr<T> object) {
    T* raw = object.get();
    Forget(raw->Handle());
    objects[raw->Handle()] = std::move(object);
    return raw;
  }
  // Drops a handle from the lookup cache of Find.
  void Forget(const void* handle) const {
    for (auto& entry : recent) {
      if (entry.first == handle) entry = {nullptr, nullptr};
    }
  }
  Object* Find(const void* handle) const;
  Object* Live(const void* handle, const char* entry);
  template <typename T>
  T* LiveAs(const void* handle, ObjectKind kind, const char* entry) {
    Object* o = Live(handle, entry);
    if (o != nullptr && o->kind != kind) {
      Fault(std::string(entry) + ": expected a " + KindName(kind) + ", got a " + KindName(o->kind));
      return nullptr;
    }
    return static_cast<T*>(o);
  }
  void Retain(Object* object);
  void Release(Object* object);
  void LockEntry(const void* handle, bool isString, const char* entry);
  void UnlockEntry(const void* handle, bool isString, const char* entry);
  void Kill(Object* object);
  void Bury(Object* object);
  void Fault(std::string message);
  void Reset();

  // Strings.cpp
  StringObject* NewString(std::string_view bytes, uint32_t encoding, std::string creator);
  StringObject* ConvertString(StringObject* from, uint32_t encoding, std::string creator);

  // Registry.cpp
  void RegisterClass(REALclassDefinition* def, bool extension);
  void RegisterModule(const REALmoduleDefinition* def);
  void RegisterMethod(const REALmethodDefinition* def);
  void IssueEventWords(size_t classIndex);
  void PlaceClassData(ClassInfo& info, REALclassDefinition* def);
  bool OldLayout(uint32_t versionWord) const;
  bool IsA(const std::string& className, std::string_view ancestor) const;

  // Calls.cpp
  template <typename Fn>
  void RunPlugin(Fn&& fn);
  void FinishPluginFrame(void* saved);
  void RethrowDeferred();
  RaisedException DescribeException(Object& exception);
  Value ValueFromSlot(const TypeRef& type, const void* slot, bool adopt, const char* what);
  Value Invoke(const Candidate& candidate, const Value* receiver, std::vector<Arg>& args);
  Value InvokeAccessor(REALproc fn, void* object, int32_t param, const TypeRef& type,
                       const Value* newValue);
  const Candidate& Choose(const std::vector<Candidate>& candidates, const std::vector<Arg>& args,
                          std::string_view what) const;
  int Match(const TypeRef& type, const Value& value) const;
  int Score(const Candidate& candidate, const std::vector<Arg>& args) const;
  Value Coerce(const TypeRef& type, const Value& value) const;
  Value DefaultValue(const Param& param);

  // Properties.cpp: nullopt or false for a property the object does not have.
  std::optional<Value> ReadProperty(void* object, std::string_view name);
  bool WriteProperty(void* object, std::string_view name, const Value& value);

  // Events.cpp
  void* EventInstance(void* object, RBInteger hostWord);

  // Pictures.cpp
  // Gives a picture host storage of that size, its pixels not yet set; std::bad_alloc when too
  // large. NewPicture does the same for a new picture.
  void ConstructPicture(PictureObject& picture, size_t width, size_t height, bool alpha);
  std::unique_ptr<PixelStore> NewPlatformStore(size_t width, size_t height, bool alpha) const;
  PictureObject* NewPicture(size_t width, size_t height, bool alpha, std::string creator);
  PictureObject* LivePicture(const void* handle);  // null, without a fault, for anything else
  void CheckUnlocked(const PictureObject& picture);

  // Host.cpp
  void Destroy(InstanceObject& instance);
  std::vector<size_t> ClassChain(size_t classIndex) const;  // the class, then its ancestors
  std::optional<size_t> ClassIndex(std::string_view name) const;
  Value Instantiate(std::string_view className, const EventHandlers& events, std::string creator);
  Value NewException(std::string_view className, std::string creator);
  // The live object of a value given by test code; emu::Error otherwise.
  Object& Require(const Value& value, const char* what);
  std::vector<Candidate> Candidates(const Object& receiver,
                                    const std::function<bool(const MethodInfo&)>& wanted) const;
  std::vector<Candidate> StaticCandidates(
      const std::function<bool(const MethodInfo&)>& wanted) const;
};

// Runs plug-in code. An exception the plug-in raises meanwhile becomes the last exception once
// the code returns. Exceptions of event handlers wait in `deferred` until the public call that
// started it all rethrows them (RethrowDeferred).
template <typename Fn>
void Host::State::RunPlugin(Fn&& fn) {
  void* saved = std::exchange(pendingException, nullptr);
  ++depth;
  try {
    fn();
  } catch (...) {
    --depth;
    FinishPluginFrame(saved);
    throw;
  }
  --depth;
  FinishPluginFrame(saved);
}

// The entry points, by resolver name. Each file that implements some adds them here.
using EntryTable = std::map<std::string, void*, std::less<>>;
void AddStringEntries(EntryTable& table);      // Strings.cpp
void AddCollectionEntries(EntryTable& table);  // Collections.cpp
void AddPictureEntries(EntryTable& table);     // Pictures.cpp

Host::State& CurrentState();

// Runs the body of an entry point: nothing thrown may reach the plug-in, so an exception
// becomes an audit error and the entry point returns its neutral result.
template <typename R, typename Fn>
R Guard(const char* entry, R neutral, Fn&& body) noexcept {
  try {
    return body(CurrentState());
  } catch (const std::exception& e) {
    CurrentState().Fault(std::string(entry) + ": " + e.what());
  } catch (...) {
    CurrentState().Fault(std::string(entry) + ": unknown exception");
  }
  return neutral;
}

template <typename Fn>
void GuardVoid(const char* entry, Fn&& body) noexcept {
  Guard<int>(entry, 0, [&](Host::State& state) {
    body(state);
    return 0;
  });
}

// Calls.cpp
ffi_type* FfiType(const TypeRef& type);

// Strings.cpp
bool NeedsConversion(uint32_t from, uint32_t to);
std::optional<std::string> Convert(std::string_view bytes, uint32_t from, uint32_t to);
// Converts between two different known encodings; nullopt when the bytes are not text of `from`
// or cannot be written in `to`. Strings.cpp (iconv) or WindowsText.cpp (code pages).
std::optional<std::string> Transcode(std::string_view bytes, uint32_t from, uint32_t to);

// Collections.cpp
std::string UrlPath(const std::string& path);
REALproc ArrayGetter(TypeKind element);

// Host.cpp
bool IsExceptionClass(std::string_view name);

// Pictures.cpp
bool ValidPictureSize(RBInteger width, RBInteger height);
void Fill(PictureObject& picture, Rgba pixel);
Rgba ShownPixel(Host::State& s, const PictureObject& picture, size_t x, size_t y);
std::optional<Value> ReadPictureProperty(const PictureObject& picture, std::string_view name);
bool WritePictureProperty(PictureObject& picture, std::string_view name, const Value& value);

// Drawing.cpp: the methods of the host's Picture and Graphics classes, by exact declaration.
REALproc HostClassMethod(Host::State& s, Object& object, std::string_view declaration);

// Registry.cpp
void Dump(const Registry& registry, std::ostream& out);

}  // namespace emu
