// Values of test code: scalars, and strings and objects that hold one host reference each.
#include <cstdio>

#include "emulator/Internal.h"

namespace emu {

namespace {

// The live object behind a value of the current host run, or null.
Object* ObjectOf(const void* handle, uint64_t generation) {
  Host::State& s = CurrentState();
  if (handle == nullptr || generation != s.generation) return nullptr;
  Object* o = s.Find(handle);
  return o != nullptr && o->alive ? o : nullptr;
}

[[noreturn]] void WrongKind(const Value& v, const char* wanted) {
  throw Error(std::string("expected ") + wanted + ", got " + v.Describe());
}

}  // namespace

const char* KindName(ValueKind kind) {
  static const char* const kNames[] = {"nil",     "integer", "double", "single",
                                       "boolean", "color",   "string", "object"};
  return kNames[static_cast<int>(kind)];
}

const char* KindName(ObjectKind kind) {
  static const char* const kNames[] = {"string",      "instance",  "memory block", "array",
                                       "folder item", "exception", "picture",      "graphics"};
  return kNames[static_cast<int>(kind)];
}

Value Value::Color(RBColor c) {
  Value v;
  v.kind_ = ValueKind::Color;
  v.scalar_.c = c;
  return v;
}

Value Value::AdoptString(REALstring s) {
  Value v;
  if (s == nullptr) return v;
  v.kind_ = ValueKind::String;
  v.handle_ = s;
  v.generation_ = CurrentState().generation;
  return v;
}

Value Value::AdoptObject(void* object) {
  Value v;
  if (object == nullptr) return v;
  v.kind_ = ValueKind::Object;
  v.handle_ = object;
  v.generation_ = CurrentState().generation;
  return v;
}

Value Value::RetainString(REALstring s) {
  Value v = AdoptString(s);
  v.Retain();
  return v;
}

Value Value::RetainObject(void* object) {
  Value v = AdoptObject(object);
  v.Retain();
  return v;
}

Value::Value(const Value& other)
    : kind_(other.kind_),
      scalar_(other.scalar_),
      handle_(other.handle_),
      generation_(other.generation_) {
  Retain();
}

Value::Value(Value&& other) noexcept
    : kind_(other.kind_),
      scalar_(other.scalar_),
      handle_(std::exchange(other.handle_, nullptr)),
      generation_(other.generation_) {
  other.kind_ = ValueKind::Nil;
}

Value& Value::operator=(const Value& other) {
  if (this != &other) *this = Value(other);
  return *this;
}

Value& Value::operator=(Value&& other) noexcept {
  if (this != &other) {
    Release();
    kind_ = std::exchange(other.kind_, ValueKind::Nil);
    scalar_ = other.scalar_;
    handle_ = std::exchange(other.handle_, nullptr);
    generation_ = other.generation_;
  }
  return *this;
}

Value::~Value() {
  Release();
}

void Value::Retain() const {
  if (Object* o = ObjectOf(handle_, generation_)) CurrentState().Retain(o);
}

void Value::Release() noexcept {
  if (handle_ == nullptr) return;
  try {
    Host::State& s = CurrentState();
    if (generation_ == s.generation) {
      if (Object* o = ObjectOf(handle_, generation_)) {
        s.Release(o);
      } else {
        s.Fault("a value's object was freed while the value still held a reference");
      }
    }
  } catch (...) {
    // Releasing runs plug-in destructors; their failures are already in the audit.
  }
  handle_ = nullptr;
}

RBInteger Value::AsInteger() const {
  switch (kind_) {
    case ValueKind::Integer:
      return scalar_.i;
    case ValueKind::Double:
      return static_cast<RBInteger>(scalar_.d);
    case ValueKind::Single:
      return static_cast<RBInteger>(scalar_.f);
    case ValueKind::Boolean:
      return scalar_.b ? 1 : 0;
    case ValueKind::Color:
      return static_cast<RBInteger>(scalar_.c);
    default:
      WrongKind(*this, "a number");
  }
}

double Value::AsDouble() const {
  switch (kind_) {
    case ValueKind::Double:
      return scalar_.d;
    case ValueKind::Single:
      return scalar_.f;
    default:
      return static_cast<double>(AsInteger());
  }
}

float Value::AsSingle() const {
  return kind_ == ValueKind::Single ? scalar_.f : static_cast<float>(AsDouble());
}

bool Value::AsBoolean() const {
  return kind_ == ValueKind::Boolean ? scalar_.b : AsInteger() != 0;
}

RBColor Value::AsColor() const {
  return kind_ == ValueKind::Color ? scalar_.c : static_cast<RBColor>(AsInteger());
}

REALstring Value::AsString() const {
  if (kind_ == ValueKind::Nil) return nullptr;
  if (kind_ != ValueKind::String) WrongKind(*this, "a string");
  return static_cast<REALstring>(handle_);
}

REALobject Value::AsObject() const {
  if (kind_ == ValueKind::Nil) return nullptr;
  if (kind_ != ValueKind::Object) WrongKind(*this, "an object");
  return static_cast<REALobject>(handle_);
}

std::string Value::Bytes() const {
  if (AsString() == nullptr) return {};
  auto* s = static_cast<StringObject*>(ObjectOf(handle_, generation_));
  if (s == nullptr) throw Error("the string of this value is gone");
  return std::string(s->Bytes());
}

uint32_t Value::Encoding() const {
  if (AsString() == nullptr) return kREALTextEncodingUnknown;
  auto* s = static_cast<StringObject*>(ObjectOf(handle_, generation_));
  if (s == nullptr) throw Error("the string of this value is gone");
  return static_cast<uint32_t>(s->record.encoding);
}

std::string Value::Text() const {
  std::optional<std::string> text = Convert(Bytes(), Encoding(), kREALTextEncodingUTF8);
  if (!text) throw Error("the string's bytes are not valid in its encoding");
  return *text;
}

std::string Value::Describe() const {
  char text[64];
  switch (kind_) {
    case ValueKind::Nil:
      return "nil";
    case ValueKind::Integer:
      return "integer " + std::to_string(scalar_.i);
    case ValueKind::Double:
      return "double " + std::to_string(scalar_.d);
    case ValueKind::Single:
      return "single " + std::to_string(scalar_.f);
    case ValueKind::Boolean:
      return scalar_.b ? "true" : "false";
    case ValueKind::Color:
      std::snprintf(text, sizeof text, "color &h%08X", scalar_.c);
      return text;
    default:
      break;
  }
  Object* o = ObjectOf(handle_, generation_);
  std::snprintf(text, sizeof text, " %p", handle_);
  return (o != nullptr ? o->ClassName() : std::string("dead ") + KindName(kind_)) + text;
}

Arg ByRef(Value& slot) {
  Arg a;
  a.slot = &slot;
  return a;
}

const Value& EventArgs::operator[](size_t i) const {
  if (i >= args_.size()) {
    throw Error("event " + event_ + " has no argument " + std::to_string(i));
  }
  return args_[i];
}

std::string EventArgs::String(size_t i) const {
  return (*this)[i].Text();
}

}  // namespace emu
