// Events: the plug-in asks for the user's implementation of an event with the host word of the
// event record it registered; the emulator answers with a libffi closure of the event's declared
// signature that runs the test's lambda.
#include <cstring>

#include "emulator/Internal.h"

namespace emu {

namespace {

// Writes an event's result where libffi expects it: integral results fill a whole ffi_arg.
void StoreResult(Host::State& s, const TypeRef& type, const Value& value, void* ret) {
  Value v = s.Coerce(type, value);
  switch (type.kind) {
    case TypeKind::Void:
      return;
    case TypeKind::Integer:
      *static_cast<ffi_sarg*>(ret) = v.AsInteger();
      return;
    case TypeKind::Boolean:
      *static_cast<ffi_sarg*>(ret) = v.AsBoolean() ? 1 : 0;
      return;
    case TypeKind::Color:
      *static_cast<ffi_arg*>(ret) = v.AsColor();
      return;
    case TypeKind::Double:
      *static_cast<double*>(ret) = v.AsDouble();
      return;
    case TypeKind::Single:
      *static_cast<float*>(ret) = v.AsSingle();
      return;
    default:
      break;
  }
  // A handle result carries one reference for the plug-in.
  void* handle = const_cast<void*>(v.Handle());
  if (handle != nullptr) s.Retain(s.Find(handle));
  *static_cast<void**>(ret) = handle;
}

void Trampoline(ffi_cif* cif, void* ret, void** args, void* user) {
  auto* self = static_cast<EventClosure*>(user);
  Host::State& s = self->state;
  std::memset(ret, 0, cif->rtype->size < sizeof(ffi_arg) ? sizeof(ffi_arg) : cif->rtype->size);
  try {
    std::vector<Value> values;
    const std::vector<Param>& params = self->declaration.params;
    for (size_t i = 0; i < params.size(); ++i) {
      values.push_back(s.ValueFromSlot(params[i].type, args[i + 1], false, "event argument"));
    }
    EventArgs event(self->name, *static_cast<REALobject*>(args[0]), std::move(values));
    self->handler(event);
    StoreResult(s, self->declaration.result, event.result, ret);
  } catch (...) {
    // The exception waits until control is back in the emulator's caller.
    if (!s.deferred) s.deferred = std::current_exception();
  }
}

}  // namespace

EventClosure::EventClosure(Host::State& hostState, std::string eventName, const Declaration& decl,
                           EventHandler fn)
    : state(hostState), name(std::move(eventName)), declaration(decl), handler(std::move(fn)) {
  types.push_back(&ffi_type_pointer);
  for (const Param& p : declaration.params) {
    if (p.byRef) throw Error("event " + name + ": byref parameters are not supported");
    types.push_back(FfiType(p.type));
  }
  if (ffi_prep_cif(&cif, FFI_DEFAULT_ABI, static_cast<unsigned>(types.size()),
                   FfiType(declaration.result), types.data()) != FFI_OK) {
    throw Error("libffi cannot describe event " + name);
  }
  closure = static_cast<ffi_closure*>(ffi_closure_alloc(sizeof(ffi_closure), &code));
  if (closure == nullptr) throw std::bad_alloc();
  if (ffi_prep_closure_loc(closure, &cif, Trampoline, this, code) != FFI_OK) {
    ffi_closure_free(closure);
    throw Error("libffi cannot make a closure for event " + name);
  }
}

EventClosure::~EventClosure() {
  ffi_closure_free(closure);
}

// The host knows an event only by the word it wrote into the registered event record; anything
// else (the address of a record, a word of another host) is a fault, as it would crash a host.
void* Host::State::EventInstance(void* object, RBInteger hostWord) {
  auto* instance = LiveAs<InstanceObject>(object, ObjectKind::Instance, "GetEventInstance");
  if (instance == nullptr) return nullptr;
  auto known = eventWords.find(hostWord);
  if (known == eventWords.end()) {
    Fault("GetEventInstance: " + std::to_string(hostWord) + " is no event word this host issued");
    return nullptr;
  }
  const ClassInfo& owner = registry.classes[known->second.classIndex];
  const EventInfo& event = owner.events[known->second.eventIndex];
  if (!IsA(instance->className, owner.name)) {
    Fault("GetEventInstance: " + instance->className + " has no event " + event.declaration);
    return nullptr;
  }
  auto cached = instance->closures.find(event.hostWord);
  if (cached != instance->closures.end()) return cached->second->code;
  for (const auto& [name, handler] : instance->handlers) {
    if (!SameName(name, event.parsed.name)) continue;
    auto closure = std::make_unique<EventClosure>(*this, event.parsed.name, event.parsed, handler);
    void* code = closure->code;
    instance->closures[event.hostWord] = std::move(closure);
    return code;
  }
  return nullptr;
}

}  // namespace emu
