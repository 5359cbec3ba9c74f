// The resolver and the entry points for registration, objects, exceptions, events, classes and
// properties by name. Every entry point catches everything: nothing may unwind into the plug-in.
#include <cstring>

#include "emulator/Internal.h"

namespace emu {

namespace {

void RegisterClassEntry(REALclassDefinition* def) noexcept {
  GuardVoid("PluginRegisterClass", [&](Host::State& s) {
    if (def == nullptr) return s.Fault("PluginRegisterClass: null definition");
    s.RegisterClass(def, false);
  });
}

void RegisterExtensionEntry(REALclassDefinition* def) noexcept {
  GuardVoid("PluginRegisterClassExtension", [&](Host::State& s) {
    if (def == nullptr) return s.Fault("PluginRegisterClassExtension: null definition");
    s.RegisterClass(def, true);
  });
}

void RegisterModuleEntry(REALmoduleDefinition* def) noexcept {
  GuardVoid("PluginRegisterModule", [&](Host::State& s) {
    if (def == nullptr) return s.Fault("PluginRegisterModule: null definition");
    s.RegisterModule(def);
  });
}

void RegisterMethodEntry(REALmethodDefinition* def) noexcept {
  GuardVoid("PluginRegisterMethod", [&](Host::State& s) {
    if (def == nullptr) return s.Fault("PluginRegisterMethod: null definition");
    s.RegisterMethod(def);
  });
}

void RegisterPluginVersion(int32_t version) noexcept {
  GuardVoid("RegisterPluginVersion", [&](Host::State& s) { s.registry.pluginVersion = version; });
}

double GetRBVersion() noexcept {
  return Guard<double>("REALGetRBVersion", 0.0, [](Host::State& s) { return s.profile.version; });
}

void LockObject(REALobject obj) noexcept {
  GuardVoid("REALLockObject", [&](Host::State& s) { s.LockEntry(obj, false, "REALLockObject"); });
}

void UnlockObject(REALobject obj) noexcept {
  GuardVoid("REALUnlockObject",
            [&](Host::State& s) { s.UnlockEntry(obj, false, "REALUnlockObject"); });
}

REALobject NewInstance(const char* className) noexcept {
  return Guard<REALobject>("PluginNewInstance", nullptr, [&](Host::State& s) -> REALobject {
    if (className == nullptr) return nullptr;
    // A picture waits for its constructor; the caller owns its creation reference.
    if (SameName(className, "Picture")) {
      return static_cast<REALobject>(
          s.Add(std::make_unique<PictureObject>("PluginNewInstance"))->Handle());
    }
    Value made = IsExceptionClass(className)
                     ? s.NewException(className, "PluginNewInstance")
                     : (s.ClassIndex(className) ? s.Instantiate(className, {}, "PluginNewInstance")
                                                : Value());
    // The caller owns the creation reference; the value's own is given back.
    if (made.IsNil()) return nullptr;
    s.Retain(s.Find(made.Handle()));
    return made.AsObject();
  });
}

void RaiseException(REALobject exception) noexcept {
  GuardVoid("RuntimeRaiseException", [&](Host::State& s) {
    Object* o = s.Live(exception, "RuntimeRaiseException");
    if (o == nullptr) return;
    if (s.depth == 0) {
      // Plug-in code called directly by a test: report at once.
      s.lastException = s.DescribeException(*o);
      return;
    }
    s.Retain(o);
    if (void* previous = std::exchange(s.pendingException, o->Handle())) {
      s.Release(s.Find(previous));
    }
  });
}

REALproc GetEventInstance(REALobject obj, RBInteger hostWord) noexcept {
  return Guard<REALproc>("GetEventInstance", nullptr, [&](Host::State& s) {
    return reinterpret_cast<REALproc>(s.EventInstance(obj, hostWord));
  });
}

REALproc LoadObjectMethod(REALobject obj, const char* declaration) noexcept {
  return Guard<REALproc>("REALLoadObjectMethod", nullptr, [&](Host::State& s) -> REALproc {
    Object* object = s.Live(obj, "REALLoadObjectMethod");
    if (object == nullptr || declaration == nullptr) return nullptr;
    if (object->kind != ObjectKind::Instance) return HostClassMethod(s, *object, declaration);
    auto* instance = static_cast<InstanceObject*>(object);
    for (size_t index : s.ClassChain(instance->classIndex)) {
      for (const MethodInfo& m : s.registry.classes[index].methods) {
        if (m.declaration == declaration) return m.handler;
      }
    }
    return nullptr;
  });
}

REALclassRef ObjectType(const char* className) noexcept {
  return Guard<REALclassRef>("pluginObjectType", nullptr, [&](Host::State& s) -> REALclassRef {
    if (className == nullptr) return nullptr;
    static const char* const kHostClasses[] = {"Object", "FolderItem", "MemoryBlock", "Picture",
                                               "Graphics"};
    static const char* const kApplications[] = {"Application", "ConsoleApplication",
                                                "WebApplication", nullptr};
    const char* app = kApplications[static_cast<int>(s.profile.app)];
    bool known = s.ClassIndex(className).has_value() || IsExceptionClass(className) ||
                 (app != nullptr && SameName(className, app));
    for (const char* name : kHostClasses) known = known || SameName(className, name);
    if (!known) return nullptr;
    auto [it, added] =
        s.classRefs.emplace(Lower(className), static_cast<int>(s.classRefs.size()) + 1);
    return reinterpret_cast<REALclassRef>(&it->second);
  });
}

// Property access by name answers false for an unknown property or one of another type.
RBBoolean GetPropString(REALobject obj, const char* name, REALstring* out) noexcept {
  return Guard<RBBoolean>("REALGetPropValueString", 0, [&](Host::State& s) -> RBBoolean {
    if (out == nullptr || name == nullptr || s.Live(obj, "REALGetPropValueString") == nullptr) {
      return 0;
    }
    std::optional<Value> v = s.ReadProperty(obj, name);
    if (!v || (v->Kind() != ValueKind::String && !v->IsNil())) return 0;
    if (!v->IsNil()) s.Retain(s.Find(v->Handle()));  // the caller's reference
    *out = v->AsString();
    return 1;
  });
}

RBBoolean SetPropString(REALobject obj, const char* name, REALstring value) noexcept {
  return Guard<RBBoolean>("REALSetPropValueString", 0, [&](Host::State& s) -> RBBoolean {
    if (name == nullptr || s.Live(obj, "REALSetPropValueString") == nullptr) return 0;
    if (value != nullptr &&
        s.LiveAs<StringObject>(value, ObjectKind::String, "REALSetPropValueString") == nullptr) {
      return 0;
    }
    return s.WriteProperty(obj, name, Value::RetainString(value)) ? 1 : 0;
  });
}

template <typename T>
RBBoolean GetPropScalar(const char* entry, REALobject obj, const char* name, T* out,
                        ValueKind kind) {
  return Guard<RBBoolean>(entry, 0, [&](Host::State& s) -> RBBoolean {
    if (out == nullptr || name == nullptr || s.Live(obj, entry) == nullptr) return 0;
    std::optional<Value> v = s.ReadProperty(obj, name);
    if (!v || v->Kind() != kind) return 0;
    *out = kind == ValueKind::Boolean ? static_cast<T>(v->AsBoolean())
                                      : static_cast<T>(v->AsInteger());
    return 1;
  });
}

RBBoolean GetPropInteger(REALobject obj, const char* name, RBInteger* out) noexcept {
  return GetPropScalar("REALGetPropValueInteger", obj, name, out, ValueKind::Integer);
}

RBBoolean GetPropBool(REALobject obj, const char* name, RBBoolean* out) noexcept {
  return GetPropScalar("REALGetPropValueBool", obj, name, out, ValueKind::Boolean);
}

// The older entry point gives 32 bits whatever the build; a value that does not fit is not read.
RBBoolean GetPropInt32(REALobject obj, const char* name, int32_t* out) noexcept {
  RBInteger wide = 0;
  if (out == nullptr ||
      !GetPropScalar("REALGetPropValueInt", obj, name, &wide, ValueKind::Integer)) {
    return 0;
  }
  if (wide < INT32_MIN || wide > INT32_MAX) return 0;
  *out = static_cast<int32_t>(wide);
  return 1;
}

RBBoolean SetPropScalar(const char* entry, REALobject obj, const char* name, RBInteger value) {
  return Guard<RBBoolean>(entry, 0, [&](Host::State& s) -> RBBoolean {
    if (name == nullptr || s.Live(obj, entry) == nullptr) return 0;
    return s.WriteProperty(obj, name, Value(value)) ? 1 : 0;
  });
}

RBBoolean SetPropInteger(REALobject obj, const char* name, RBInteger value) noexcept {
  return SetPropScalar("REALSetPropValueInteger", obj, name, value);
}

RBBoolean SetPropInt32(REALobject obj, const char* name, int32_t value) noexcept {
  return SetPropScalar("REALSetPropValueInt", obj, name, value);
}

EntryTable BuildTable() {
  EntryTable table;
  table["PluginRegisterClass"] = reinterpret_cast<void*>(&RegisterClassEntry);
  table["PluginRegisterClassExtension"] = reinterpret_cast<void*>(&RegisterExtensionEntry);
  table["PluginRegisterModule"] = reinterpret_cast<void*>(&RegisterModuleEntry);
  table["PluginRegisterMethod"] = reinterpret_cast<void*>(&RegisterMethodEntry);
  table["RegisterPluginVersion"] = reinterpret_cast<void*>(&RegisterPluginVersion);
  table["REALGetRBVersion"] = reinterpret_cast<void*>(&GetRBVersion);
  table["REALLockObject"] = reinterpret_cast<void*>(&LockObject);
  table["REALUnlockObject"] = reinterpret_cast<void*>(&UnlockObject);
  table["PluginNewInstance"] = reinterpret_cast<void*>(&NewInstance);
  table["RuntimeRaiseException"] = reinterpret_cast<void*>(&RaiseException);
  table["GetEventInstance"] = reinterpret_cast<void*>(&GetEventInstance);
  table["REALLoadObjectMethod"] = reinterpret_cast<void*>(&LoadObjectMethod);
  table["pluginObjectType"] = reinterpret_cast<void*>(&ObjectType);
  table["REALGetPropValueString"] = reinterpret_cast<void*>(&GetPropString);
  table["REALSetPropValueString"] = reinterpret_cast<void*>(&SetPropString);
  table["REALGetPropValueInteger"] = reinterpret_cast<void*>(&GetPropInteger);
  table["REALGetPropValueInt"] = reinterpret_cast<void*>(&GetPropInt32);
  table["REALSetPropValueInteger"] = reinterpret_cast<void*>(&SetPropInteger);
  table["REALSetPropValueInt"] = reinterpret_cast<void*>(&SetPropInt32);
  table["REALGetPropValueBool"] = reinterpret_cast<void*>(&GetPropBool);
  AddStringEntries(table);
  AddCollectionEntries(table);
  AddPictureEntries(table);
  return table;
}

void* Resolve(const char* name) noexcept {
  try {
    Host::State& s = CurrentState();
    if (!s.started || name == nullptr) return nullptr;
    ++s.lookups[name];
    static const EntryTable table = BuildTable();
    auto it = table.find(std::string_view(name));
    if (it == table.end()) {
      // The table is what a real host serves: a plug-in that needs anything else is inert there.
      if (s.unserved[name]++ == 0)
        s.Fault(std::string("resolver: no host serves \"") + name + "\"");
      return nullptr;
    }
    return s.profile.withheld.count(name) != 0 ? nullptr : it->second;
  } catch (...) {
    return nullptr;
  }
}

}  // namespace

REALResolver Host::Resolver() {
  return &Resolve;
}

std::vector<std::string> Host::LookedUpNames() const {
  std::vector<std::string> names;
  for (const auto& entry : state_->lookups) names.push_back(entry.first);
  return names;
}

size_t Host::UnservedLookups() const {
  size_t total = 0;
  for (const auto& entry : state_->unserved) total += entry.second;
  return total;
}

size_t Host::LookupCount(std::string_view name) const {
  auto it = state_->lookups.find(name);
  return it != state_->lookups.end() ? it->second : 0;
}

}  // namespace emu
