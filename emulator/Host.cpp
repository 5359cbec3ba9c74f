// The host itself: start-up with a profile, loading the plug-in, instances of plug-in and host
// classes, and calls by name or declaration.
#if defined(_WIN32)
#include <windows.h>
#else
#include <dlfcn.h>

#include "emulator/Cairo.h"
#endif

#include <algorithm>

#include "emulator/Internal.h"

namespace emu {

namespace {

// The exception classes of the host that the plug-in creates by name.
const char* const kExceptionClasses[] = {"RuntimeException", "NilObjectException",
                                         "OutOfMemoryException", "OutOfBoundsException",
                                         "IllegalCastException"};

// An instance record larger than this is a corrupt definition.
constexpr size_t kMaxRecordSize = size_t{1} << 28;

using Wanted = std::function<bool(const MethodInfo&)>;

Wanted Named(std::string_view name) {
  return [name = std::string(name)](const MethodInfo& m) { return SameName(m.parsed.name, name); };
}

Wanted Declared(std::string_view declaration) {
  return [d = std::string(declaration)](const MethodInfo& m) { return m.declaration == d; };
}

#if defined(_WIN32)
// The plug-in DLL at the UTF-8 `path`, as a host loads it, and its REALPluginMain.
REALPluginMainProc LoadLibraryMain(const std::string& path, void** library) {
  const int count = MultiByteToWideChar(CP_UTF8, 0, path.c_str(), -1, nullptr, 0);
  std::wstring wide(count > 0 ? static_cast<size_t>(count) : 1, L'\0');
  MultiByteToWideChar(CP_UTF8, 0, path.c_str(), -1, wide.data(), count);
  HMODULE module = LoadLibraryW(wide.c_str());
  if (module == nullptr) {
    throw Error("cannot load " + path + ": error " + std::to_string(GetLastError()));
  }
  *library = module;
  return reinterpret_cast<REALPluginMainProc>(
      reinterpret_cast<void*>(GetProcAddress(module, "REALPluginMain")));
}
#else
REALPluginMainProc LoadLibraryMain(const std::string& path, void** library) {
  *library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (*library == nullptr) throw Error("cannot load " + path + ": " + dlerror());
  return reinterpret_cast<REALPluginMainProc>(dlsym(*library, "REALPluginMain"));
}
#endif

bool ExtendsFolderItem(const MethodInfo& m) {
  const std::vector<Param>& params = m.parsed.params;
  return !params.empty() && params[0].extends && SameName(params[0].type.name, "FolderItem");
}

void AddMethods(std::vector<Candidate>& out, const std::vector<MethodInfo>& methods,
                const Wanted& wanted, bool receiverFirst) {
  for (const MethodInfo& m : methods) {
    if (wanted(m)) out.push_back({&m, receiverFirst, 0});
  }
}

}  // namespace

bool IsExceptionClass(std::string_view name) {
  for (const char* e : kExceptionClasses) {
    if (SameName(name, e)) return true;
  }
  return false;
}

Host::State& CurrentState() {
  return Host::Instance().Internal();
}

bool LegacyRecordsShown() {
  return CurrentState().profile.LegacyRecords();
}

InstanceObject::InstanceObject(size_t cls, std::string name, size_t bytes, EventHandlers events,
                               std::string made)
    : Object(ObjectKind::Instance, std::move(made)),
      memory(std::make_unique<unsigned char[]>(bytes)),
      size(bytes),
      classIndex(cls),
      className(std::move(name)),
      handlers(std::move(events)) {}

InstanceObject::~InstanceObject() = default;

// The allocation stays (a late unlock of the handle must still be recognised); its class data is
// overwritten so that a plug-in reading a freed instance finds nothing it wrote.
void InstanceObject::FreePayload() {
  std::fill(memory.get() + kInstanceHeaderSize, memory.get() + size, 0xDD);
  closures.clear();
  handlers.clear();
}

Host::Host() : state_(std::make_unique<State>()) {}
Host::~Host() {
  state_->Reset();
}

Host& Host::Instance() {
  static Host host;
  return host;
}

Host::State& Host::Internal() {
  return *state_;
}

void Host::Start(const Profile& profile) {
  if (state_->started) throw Error("the host is already running; call Shutdown first");
#if defined(_WIN32)
  if (profile.CairoPictures()) throw Error("the Windows build has no cairo for " + profile.name);
#else
  if (profile.CairoPictures()) LoadCairo();
#endif
  state_->profile = profile;
  state_->pictureFormat = 2;
  state_->picturePadding = 0;
  state_->started = true;
}

void Host::Shutdown() {
  state_->Reset();
}

bool Host::Started() const {
  return state_->started;
}

const Profile& Host::CurrentProfile() const {
  return state_->profile;
}

void Host::LoadPlugin(const std::string& path) {
  if (!state_->started) throw Error("start the host before loading a plug-in");
  void* library = nullptr;
  REALPluginMainProc main = LoadLibraryMain(path, &library);
  state_->pluginHandles.push_back(library);
  if (main == nullptr) throw Error(path + " does not export REALPluginMain");
  state_->lastException.reset();
  state_->RunPlugin([&] { main(Resolver()); });
  state_->RethrowDeferred();
}

std::optional<size_t> Host::State::ClassIndex(std::string_view name) const {
  for (size_t i = 0; i < registry.classes.size(); ++i) {
    if (SameName(registry.classes[i].name, name)) return i;
  }
  return std::nullopt;
}

std::vector<size_t> Host::State::ClassChain(size_t classIndex) const {
  std::vector<size_t> chain{classIndex};
  for (int depth = 0; depth < 64; ++depth) {
    std::optional<size_t> super = ClassIndex(registry.classes[chain.back()].superName);
    if (!super) break;
    chain.push_back(*super);
  }
  return chain;
}

Object& Host::State::Require(const Value& value, const char* what) {
  Object* o = value.Kind() == ValueKind::Object ? Find(value.Handle()) : nullptr;
  if (o == nullptr || !o->alive) {
    throw Error(std::string(what) + ": expected a live object, got " + value.Describe());
  }
  return *o;
}

Value Host::State::Instantiate(std::string_view className, const EventHandlers& events,
                               std::string creator) {
  std::optional<size_t> index = ClassIndex(className);
  if (!index) throw Error("no class " + std::string(className));
  std::vector<size_t> chain = ClassChain(*index);
  for (const auto& [name, handler] : events) {
    bool declared = false;
    for (size_t c : chain) {
      for (const EventInfo& e : registry.classes[c].events) {
        declared = declared || SameName(e.parsed.name, name);
      }
    }
    if (!declared) throw Error(std::string(className) + " has no event " + name);
  }
  // The class itself comes last in the allocation, after its ancestors.
  const ClassInfo& cls = registry.classes[*index];
  if (cls.dataSize > kMaxRecordSize) throw Error("instance record of " + cls.name);
  const size_t bytes = static_cast<size_t>(cls.dataOffset) + cls.dataSize;
  auto instance =
      std::make_unique<InstanceObject>(*index, cls.name, bytes, events, std::move(creator));
  void* handle = Add(std::move(instance))->Handle();
  Value made = Value::AdoptObject(handle);
  // Constructors run from the base class down.
  for (auto it = chain.rbegin(); it != chain.rend(); ++it) {
    if (REALproc ctor = registry.classes[*it].constructor) {
      RunPlugin(
          [&] { reinterpret_cast<void (*)(REALobject)>(ctor)(static_cast<REALobject>(handle)); });
    }
  }
  return made;
}

void Host::State::Destroy(InstanceObject& instance) {
  void* handle = instance.Handle();
  for (size_t c : ClassChain(instance.classIndex)) {
    if (REALproc dtor = registry.classes[c].destructor) {
      RunPlugin(
          [&] { reinterpret_cast<void (*)(REALobject)>(dtor)(static_cast<REALobject>(handle)); });
    }
  }
}

Value Host::State::NewException(std::string_view className, std::string creator) {
  for (const char* name : kExceptionClasses) {
    if (SameName(name, className)) {
      auto e = std::make_unique<ExceptionObject>(name, std::move(creator));
      return Value::AdoptObject(Add(std::move(e))->Handle());
    }
  }
  throw Error("no exception class " + std::string(className));
}

std::vector<Candidate> Host::State::Candidates(const Object& receiver, const Wanted& wanted) const {
  std::vector<Candidate> out;
  if (receiver.kind == ObjectKind::Instance) {
    for (size_t c : ClassChain(static_cast<const InstanceObject&>(receiver).classIndex)) {
      AddMethods(out, registry.classes[c].methods, wanted, true);
    }
  }
  if (receiver.kind == ObjectKind::FolderItem) {
    for (const ClassInfo& e : registry.extensions) {
      if (SameName(e.name, "FolderItem")) AddMethods(out, e.methods, wanted, true);
    }
    for (const ModuleInfo& m : registry.modules) {
      for (const MethodInfo& method : m.methods) {
        if (ExtendsFolderItem(method) && wanted(method)) out.push_back({&method, true, 1});
      }
    }
  }
  return out;
}

// Global methods, module methods and shared methods.
std::vector<Candidate> Host::State::StaticCandidates(const Wanted& wanted) const {
  std::vector<Candidate> out;
  for (const GlobalMethodInfo& g : registry.methods) {
    if (wanted(g.method)) out.push_back({&g.method, false, 0});
  }
  for (const ModuleInfo& m : registry.modules) {
    for (const MethodInfo& method : m.methods) {
      if (!ExtendsFolderItem(method) && wanted(method)) out.push_back({&method, false, 0});
    }
  }
  return out;
}

Value Host::New(std::string_view className, const EventHandlers& events) {
  state_->lastException.reset();
  if (IsExceptionClass(className)) {
    if (!events.empty()) throw Error("exceptions have no events");
    return state_->NewException(className, "New");
  }
  Value made = state_->Instantiate(className, events, "New");
  state_->RethrowDeferred();
  return made;
}

Value Host::Call(const Value& target, std::string_view name, std::vector<Arg> args) {
  state_->lastException.reset();
  Object& receiver = state_->Require(target, "Call");
  std::vector<Candidate> candidates = state_->Candidates(receiver, Named(name));
  const Candidate& chosen =
      state_->Choose(candidates, args, receiver.ClassName() + "." + std::string(name));
  Value result = state_->Invoke(chosen, &target, args);
  state_->RethrowDeferred();
  return result;
}

Value Host::CallShared(std::string_view className, std::string_view name, std::vector<Arg> args) {
  state_->lastException.reset();
  std::optional<size_t> index = state_->ClassIndex(className);
  if (!index) throw Error("no class " + std::string(className));
  std::vector<Candidate> candidates;
  for (size_t c : state_->ClassChain(*index)) {
    AddMethods(candidates, state_->registry.classes[c].sharedMethods, Named(name), false);
  }
  const Candidate& chosen =
      state_->Choose(candidates, args, std::string(className) + "." + std::string(name));
  Value result = state_->Invoke(chosen, nullptr, args);
  state_->RethrowDeferred();
  return result;
}

Value Host::CallGlobal(std::string_view name, std::vector<Arg> args) {
  state_->lastException.reset();
  std::vector<Candidate> candidates = state_->StaticCandidates(Named(name));
  const Candidate& chosen = state_->Choose(candidates, args, name);
  Value result = state_->Invoke(chosen, nullptr, args);
  state_->RethrowDeferred();
  return result;
}

Value Host::CallDeclaration(const Value& target, std::string_view declaration,
                            std::vector<Arg> args) {
  state_->lastException.reset();
  std::vector<Candidate> candidates;
  if (target.IsNil()) {
    candidates = state_->StaticCandidates(Declared(declaration));
    for (const ClassInfo& c : state_->registry.classes) {
      AddMethods(candidates, c.sharedMethods, Declared(declaration), false);
    }
  } else {
    candidates =
        state_->Candidates(state_->Require(target, "CallDeclaration"), Declared(declaration));
  }
  // The same declaration may be registered twice (shared by several classes): the first wins.
  if (candidates.size() > 1) candidates.resize(1);
  const Candidate& chosen = state_->Choose(candidates, args, declaration);
  Value result = state_->Invoke(chosen, target.IsNil() ? nullptr : &target, args);
  state_->RethrowDeferred();
  return result;
}

const std::optional<RaisedException>& Host::LastException() const {
  return state_->lastException;
}

void Host::ClearLastException() {
  state_->lastException.reset();
}

std::string Host::ClassName(const Value& object) const {
  return state_->Require(object, "ClassName").ClassName();
}

}  // namespace emu
