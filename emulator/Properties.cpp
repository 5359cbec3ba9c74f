// Properties by name: the fields and accessors that plug-in classes registered, and the
// properties of the host's own classes (exceptions, folder items, memory blocks).
#include <cstring>

#include "emulator/Internal.h"

namespace emu {

namespace {

struct FoundProperty {
  const PropertyInfo* info;
  size_t classIndex;
};

std::optional<FoundProperty> FindProperty(Host::State& s, const InstanceObject& instance,
                                          std::string_view name) {
  for (size_t index : s.ClassChain(instance.classIndex)) {
    for (const PropertyInfo& p : s.registry.classes[index].properties) {
      if (SameName(p.name, name)) return FoundProperty{&p, index};
    }
  }
  return std::nullopt;
}

size_t FieldSize(TypeKind kind) {
  switch (kind) {
    case TypeKind::Integer:
      return sizeof(RBInteger);
    case TypeKind::Double:
      return sizeof(double);
    case TypeKind::Single:
      return sizeof(float);
    case TypeKind::Boolean:
      return sizeof(RBBoolean);
    case TypeKind::Color:
      return sizeof(RBColor);
    default:
      return sizeof(void*);
  }
}

// The address of a standard property's field, checked against the class's record size.
unsigned char* Field(Host::State& s, InstanceObject& instance, const FoundProperty& found) {
  const PropertyInfo& p = *found.info;
  uint64_t end = static_cast<uint64_t>(p.param) + FieldSize(p.parsedType.kind);
  if (p.param < 0 || end > s.registry.classes[found.classIndex].dataSize) {
    throw Error("property " + p.name + " lies outside the instance record");
  }
  return instance.ClassData(s.registry.classes[found.classIndex].dataOffset) + p.param;
}

template <typename T>
T Load(const unsigned char* field) {
  T v;
  std::memcpy(&v, field, sizeof v);
  return v;
}

template <typename T>
void Store(unsigned char* field, T v) {
  std::memcpy(field, &v, sizeof v);
}

Value ReadField(Host::State& s, const TypeRef& type, const unsigned char* field) {
  switch (type.kind) {
    case TypeKind::Boolean:
      return Value(Load<RBBoolean>(field) != 0);
    default:
      return s.ValueFromSlot(type, field, false, "property field");
  }
}

// Handle fields hold their own reference: the new value is taken, the old one given back.
bool WriteHandleField(Host::State& s, const TypeRef& type, unsigned char* field,
                      const Value& value) {
  if (s.Match(type, value) < 0) return false;
  void* old = Load<void*>(field);
  void* handle = const_cast<void*>(value.Handle());
  if (handle != nullptr) s.Retain(s.Find(handle));
  Store(field, handle);
  if (old != nullptr) {
    if (Object* o = s.Live(old, "property field")) s.Release(o);
  }
  return true;
}

bool WriteField(Host::State& s, const TypeRef& type, unsigned char* field, const Value& value) {
  if (value.Kind() == ValueKind::String || value.Kind() == ValueKind::Object ||
      type.kind == TypeKind::String || type.kind == TypeKind::Object ||
      type.kind == TypeKind::Array) {
    return WriteHandleField(s, type, field, value);
  }
  Value v = s.Coerce(type, value);
  switch (type.kind) {
    case TypeKind::Integer:
      Store(field, v.AsInteger());
      break;
    case TypeKind::Double:
      Store(field, v.AsDouble());
      break;
    case TypeKind::Single:
      Store(field, v.AsSingle());
      break;
    case TypeKind::Boolean:
      Store(field, static_cast<RBBoolean>(v.AsBoolean() ? 1 : 0));
      break;
    default:
      Store(field, v.AsColor());
      break;
  }
  return true;
}

std::optional<Value> ReadHostProperty(Host::State& s, Object& o, std::string_view name) {
  if (o.kind == ObjectKind::Exception) {
    auto& e = static_cast<ExceptionObject&>(o);
    if (SameName(name, "Message")) {
      return e.message != nullptr ? Value::RetainString(static_cast<REALstring>(e.message))
                                  : Value();
    }
    if (SameName(name, "ErrorNumber")) return Value(e.errorNumber);
  }
  if (o.kind == ObjectKind::FolderItem) {
    auto& f = static_cast<FolderItemObject&>(o);
    std::string text;
    if (SameName(name, "NativePath")) text = f.path;
    if (SameName(name, "URLPath")) text = UrlPath(f.path);
    if (!text.empty()) {
      return Value::AdoptString(static_cast<REALstring>(
          s.NewString(text, kREALTextEncodingUTF8, std::string(name))->Handle()));
    }
  }
  if (o.kind == ObjectKind::Picture) {
    return ReadPictureProperty(static_cast<PictureObject&>(o), name);
  }
  if (o.kind == ObjectKind::MemoryBlock && SameName(name, "Size")) {
    return Value(static_cast<MemoryBlockObject&>(o).record.size);
  }
  return std::nullopt;
}

bool WriteHostProperty(Host::State& s, Object& o, std::string_view name, const Value& value) {
  if (o.kind == ObjectKind::Picture) {
    return WritePictureProperty(static_cast<PictureObject&>(o), name, value);
  }
  if (o.kind != ObjectKind::Exception) return false;
  auto& e = static_cast<ExceptionObject&>(o);
  if (SameName(name, "ErrorNumber") && value.Kind() == ValueKind::Integer) {
    e.errorNumber = value.AsInteger();
    return true;
  }
  if (!SameName(name, "Message")) return false;
  TypeRef type = ParseType("String");
  return WriteHandleField(s, type, reinterpret_cast<unsigned char*>(&e.message), value);
}

}  // namespace

std::optional<Value> Host::State::ReadProperty(void* object, std::string_view name) {
  Object* o = Live(object, "property read");
  if (o == nullptr) return std::nullopt;
  if (o->kind != ObjectKind::Instance) return ReadHostProperty(*this, *o, name);
  auto& instance = static_cast<InstanceObject&>(*o);
  std::optional<FoundProperty> found = FindProperty(*this, instance, name);
  if (!found) return std::nullopt;
  const PropertyInfo& p = *found->info;
  if (p.StandardGetter()) return ReadField(*this, p.parsedType, Field(*this, instance, *found));
  if (p.getter == nullptr) return std::nullopt;
  return InvokeAccessor(p.getter, object, p.param, p.parsedType, nullptr);
}

bool Host::State::WriteProperty(void* object, std::string_view name, const Value& value) {
  Object* o = Live(object, "property write");
  if (o == nullptr) return false;
  if (o->kind != ObjectKind::Instance) return WriteHostProperty(*this, *o, name, value);
  auto& instance = static_cast<InstanceObject&>(*o);
  std::optional<FoundProperty> found = FindProperty(*this, instance, name);
  if (!found) return false;
  const PropertyInfo& p = *found->info;
  if (p.StandardSetter()) {
    return WriteField(*this, p.parsedType, Field(*this, instance, *found), value);
  }
  if (p.setter == nullptr || (Match(p.parsedType, value) < 0)) return false;
  InvokeAccessor(p.setter, object, p.param, p.parsedType, &value);
  return true;
}

Value Host::GetProperty(const Value& object, std::string_view name) {
  state_->lastException.reset();
  state_->Require(object, "GetProperty");
  std::optional<Value> v = state_->ReadProperty(const_cast<void*>(object.Handle()), name);
  state_->RethrowDeferred();
  if (!v) throw Error("no readable property " + std::string(name) + " on " + object.Describe());
  return std::move(*v);
}

void Host::SetProperty(const Value& object, std::string_view name, const Value& value) {
  state_->lastException.reset();
  state_->Require(object, "SetProperty");
  bool written = state_->WriteProperty(const_cast<void*>(object.Handle()), name, value);
  state_->RethrowDeferred();
  if (!written) {
    throw Error("cannot set property " + std::string(name) + " of " + object.Describe() + " to " +
                value.Describe());
  }
}

}  // namespace emu
