// Calling plug-in handlers the way the host runtime does: arguments marshalled by the declared
// types through libffi, overloads chosen by argument count and types, declared defaults filled
// in, byref slots passed by address, and exceptions raised meanwhile collected afterwards.
#include <cstdlib>
#include <cstring>
#include <deque>

#include "emulator/Internal.h"

namespace emu {

namespace {

union Cell {
  RBInteger i;
  double d;
  float f;
  int8_t b;
  uint32_t c;
  void* p;
};

bool IsHandleType(TypeKind kind) {
  return kind == TypeKind::String || kind == TypeKind::Object || kind == TypeKind::Array;
}

// The arguments of one call, each in a cell of its own whose address libffi is given.
class CallFrame {
 public:
  explicit CallFrame(Host::State& state) : state_(state) {}
  CallFrame(const CallFrame&) = delete;
  CallFrame& operator=(const CallFrame&) = delete;

  ~CallFrame() {
    // Byref handles nobody took over are given back.
    for (auto& [cell, type] : slots_) {
      if (IsHandleType(type.kind) && cell->p != nullptr) {
        if (Object* o = state_.Find(cell->p); o != nullptr && o->alive) state_.Release(o);
      }
    }
  }

  void AddPointer(void* p) {
    Cell& cell = NewCell();
    cell.p = p;
    Push(&ffi_type_pointer, &cell);
  }

  void Add(const TypeRef& type, const Value& value) {
    Cell& cell = NewCell();
    Fill(cell, type, value);
    Push(FfiType(type), &cell);
  }

  // The slot holds its own reference on a handle, as a variable of user code would.
  size_t AddByRef(const TypeRef& type, const Value& value) {
    Cell& slot = NewCell();
    Fill(slot, type, value);
    if (IsHandleType(type.kind) && slot.p != nullptr) state_.Retain(state_.Find(slot.p));
    slots_.emplace_back(&slot, type);
    AddPointer(&slot);
    return slots_.size() - 1;
  }

  Value Call(REALproc fn, const TypeRef& result) {
    ffi_cif cif;
    if (ffi_prep_cif(&cif, FFI_DEFAULT_ABI, static_cast<unsigned>(types_.size()), FfiType(result),
                     types_.data()) != FFI_OK) {
      throw Error("libffi cannot describe the call");
    }
    union {
      ffi_arg a;
      ffi_sarg s;
      double d;
      float f;
      void* p;
    } ret{};
    ffi_call(&cif, fn, &ret, values_.data());
    switch (result.kind) {
      case TypeKind::Void:
        return Value();
      case TypeKind::Integer:
        return Value(static_cast<RBInteger>(ret.s));
      case TypeKind::Double:
        return Value(ret.d);
      case TypeKind::Single:
        return Value(ret.f);
      case TypeKind::Boolean:
        return Value(static_cast<int8_t>(ret.s) != 0);
      case TypeKind::Color:
        return Value::Color(static_cast<RBColor>(ret.a));
      default:
        return state_.ValueFromSlot(result, &ret.p, true, "result");
    }
  }

  // The value the plug-in left in a byref slot; its reference passes to the value.
  Value TakeSlot(size_t index) {
    auto& [cell, type] = slots_[index];
    Value v = state_.ValueFromSlot(type, cell, true, "byref slot");
    cell->p = nullptr;
    if (!IsHandleType(type.kind)) std::memset(cell, 0, sizeof(Cell));
    return v;
  }

 private:
  Cell& NewCell() { return cells_.emplace_back(Cell{}); }

  void Push(ffi_type* type, void* value) {
    types_.push_back(type);
    values_.push_back(value);
  }

  static void Fill(Cell& cell, const TypeRef& type, const Value& value) {
    switch (type.kind) {
      case TypeKind::Integer:
        cell.i = value.AsInteger();
        break;
      case TypeKind::Double:
        cell.d = value.AsDouble();
        break;
      case TypeKind::Single:
        cell.f = value.AsSingle();
        break;
      case TypeKind::Boolean:
        cell.b = value.AsBoolean() ? 1 : 0;
        break;
      case TypeKind::Color:
        cell.c = value.AsColor();
        break;
      default:
        cell.p = const_cast<void*>(value.Handle());
        break;
    }
  }

  Host::State& state_;
  std::deque<Cell> cells_;
  std::vector<ffi_type*> types_;
  std::vector<void*> values_;
  std::vector<std::pair<Cell*, TypeRef>> slots_;
};

std::string Signature(const MethodInfo& m) {
  return "  " + m.declaration + "\n";
}

}  // namespace

ffi_type* FfiType(const TypeRef& type) {
  switch (type.kind) {
    case TypeKind::Void:
      return &ffi_type_void;
    case TypeKind::Integer:
      return sizeof(RBInteger) == 8 ? &ffi_type_sint64 : &ffi_type_sint32;
    case TypeKind::Double:
      return &ffi_type_double;
    case TypeKind::Single:
      return &ffi_type_float;
    case TypeKind::Boolean:
      return &ffi_type_sint8;
    case TypeKind::Color:
      return &ffi_type_uint32;
    default:
      return &ffi_type_pointer;
  }
}

RaisedException Host::State::DescribeException(Object& exception) {
  RaisedException info;
  info.className = exception.ClassName();
  if (exception.kind != ObjectKind::Exception) return info;
  auto& e = static_cast<ExceptionObject&>(exception);
  info.errorNumber = e.errorNumber;
  if (auto* message = static_cast<StringObject*>(Find(e.message))) {
    std::optional<std::string> text = Convert(
        message->Bytes(), static_cast<uint32_t>(message->record.encoding), kREALTextEncodingUTF8);
    info.message = text ? *text : std::string(message->Bytes());
  }
  return info;
}

void Host::State::FinishPluginFrame(void* saved) {
  void* raised = std::exchange(pendingException, saved);
  if (raised == nullptr) return;
  Object* o = Find(raised);
  lastException = DescribeException(*o);
  Release(o);
}

void Host::State::RethrowDeferred() {
  if (depth == 0 && deferred) std::rethrow_exception(std::exchange(deferred, nullptr));
}

Value Host::State::ValueFromSlot(const TypeRef& type, const void* slot, bool adopt,
                                 const char* what) {
  Cell cell;
  std::memcpy(&cell, slot, sizeof(Cell));
  switch (type.kind) {
    case TypeKind::Integer:
      return Value(cell.i);
    case TypeKind::Double:
      return Value(cell.d);
    case TypeKind::Single:
      return Value(cell.f);
    case TypeKind::Boolean:
      return Value(cell.b != 0);
    case TypeKind::Color:
      return Value::Color(cell.c);
    case TypeKind::Void:
      return Value();
    default:
      break;
  }
  if (cell.p == nullptr) return Value();
  Object* o = Live(cell.p, what);
  if (o == nullptr) return Value();
  bool isString = o->kind == ObjectKind::String;
  if (isString != (type.kind == TypeKind::String)) {
    Fault(std::string(what) + ": a " + KindName(o->kind) + " where " + type.name + " belongs");
    if (adopt) Release(o);
    return Value();
  }
  if (isString)
    return adopt ? Value::AdoptString(static_cast<REALstring>(cell.p))
                 : Value::RetainString(static_cast<REALstring>(cell.p));
  return adopt ? Value::AdoptObject(cell.p) : Value::RetainObject(cell.p);
}

int Host::State::Match(const TypeRef& type, const Value& value) const {
  const ValueKind k = value.Kind();
  switch (type.kind) {
    case TypeKind::Integer:
      return k == ValueKind::Integer ? 2 : -1;
    case TypeKind::Double:
      return k == ValueKind::Double                                ? 2
             : (k == ValueKind::Single || k == ValueKind::Integer) ? 1
                                                                   : -1;
    case TypeKind::Single:
      return k == ValueKind::Single                                ? 2
             : (k == ValueKind::Double || k == ValueKind::Integer) ? 1
                                                                   : -1;
    case TypeKind::Boolean:
      return k == ValueKind::Boolean ? 2 : -1;
    case TypeKind::Color:
      return k == ValueKind::Color ? 2 : k == ValueKind::Integer ? 1 : -1;
    case TypeKind::String:
      return k == ValueKind::String ? 2 : k == ValueKind::Nil ? 1 : -1;
    default:
      break;
  }
  if (k == ValueKind::Nil) return 1;
  if (k != ValueKind::Object) return -1;
  Object* o = Find(value.Handle());
  if (o == nullptr || !o->alive) return -1;
  if (type.kind == TypeKind::Array) {
    return o->kind == ObjectKind::Array && static_cast<ArrayObject*>(o)->element == type.element
               ? 2
               : -1;
  }
  return IsA(o->ClassName(), type.name) ? 2 : -1;
}

// The sum of the argument matches, or -1 when the candidate cannot take the arguments.
int Host::State::Score(const Candidate& c, const std::vector<Arg>& args) const {
  const std::vector<Param>& params = c.method->parsed.params;
  if (args.size() + c.skip > params.size()) return -1;
  int score = 0;
  for (size_t i = c.skip; i < params.size(); ++i) {
    const Param& p = params[i];
    size_t k = i - c.skip;
    if (k >= args.size()) {
      if (!p.defaultText) return -1;
      continue;
    }
    const Arg& a = args[k];
    if (p.byRef != (a.slot != nullptr)) return -1;
    const Value& v = a.slot != nullptr ? *a.slot : a.value;
    int m = p.byRef && v.IsNil() ? 1 : Match(p.type, v);
    if (m < 0) return -1;
    score += m;
  }
  return score;
}

const Candidate& Host::State::Choose(const std::vector<Candidate>& candidates,
                                     const std::vector<Arg>& args, std::string_view what) const {
  const Candidate* best = nullptr;
  int bestScore = -1;
  bool tie = false;
  std::string listing;
  for (const Candidate& c : candidates) {
    listing += Signature(*c.method);
    int score = Score(c, args);
    if (score > bestScore) {
      best = &c;
      bestScore = score;
      tie = false;
    } else if (score >= 0 && score == bestScore) {
      tie = true;
    }
  }
  if (candidates.empty()) throw Error("no method " + std::string(what));
  if (best == nullptr) {
    throw Error("no overload of " + std::string(what) + " takes these " +
                std::to_string(args.size()) + " argument(s); candidates:\n" + listing);
  }
  if (tie) throw Error("ambiguous call of " + std::string(what) + "; candidates:\n" + listing);
  return *best;
}

Value Host::State::Coerce(const TypeRef& type, const Value& value) const {
  // A nil byref slot of a scalar type starts as zero.
  if (value.IsNil() && !IsHandleType(type.kind)) return Coerce(type, Value(RBInteger{0}));
  switch (type.kind) {
    case TypeKind::Integer:
      return Value(value.AsInteger());
    case TypeKind::Double:
      return Value(value.AsDouble());
    case TypeKind::Single:
      return Value(value.AsSingle());
    case TypeKind::Boolean:
      return Value(value.AsBoolean());
    case TypeKind::Color:
      return Value::Color(value.AsColor());
    default:
      return value;
  }
}

Value Host::State::DefaultValue(const Param& param) {
  const std::string text = Lower(*param.defaultText);
  if (text == "nil") return Value();
  if (text == "true" || text == "false") return Value(text == "true");
  if (text.size() >= 2 && text.front() == '"' && text.back() == '"') {
    const std::string& raw = *param.defaultText;
    std::string_view inner(raw.data() + 1, raw.size() - 2);
    return Value::AdoptString(
        static_cast<REALstring>(NewString(inner, kREALTextEncodingUTF8, "default")->Handle()));
  }
  char* end = nullptr;
  if (text.rfind("&h", 0) == 0) {
    RBInteger v = static_cast<RBInteger>(std::strtoll(text.c_str() + 2, &end, 16));
    if (*end == '\0') return Value(v);
  } else if (text.find_first_of(".e") == std::string::npos) {
    RBInteger v = static_cast<RBInteger>(std::strtoll(text.c_str(), &end, 10));
    if (*end == '\0') return Value(v);
  } else {
    double v = std::strtod(text.c_str(), &end);
    if (*end == '\0') return Value(v);
  }
  throw Error("cannot read the default value \"" + *param.defaultText + "\" of " + param.name);
}

Value Host::State::Invoke(const Candidate& c, const Value* receiver, std::vector<Arg>& args) {
  const MethodInfo& method = *c.method;
  if (method.handler == nullptr) throw Error("no handler for " + method.declaration);
  const std::vector<Param>& params = method.parsed.params;
  CallFrame frame(*this);
  std::vector<Value> keep;  // holds the coerced arguments for the call's duration
  std::vector<std::pair<size_t, Value*>> outputs;
  if (c.receiverFirst) frame.AddPointer(const_cast<void*>(receiver->Handle()));
  for (size_t i = c.skip; i < params.size(); ++i) {
    const Param& p = params[i];
    size_t k = i - c.skip;
    const Value* given = k < args.size() ? (args[k].slot ? args[k].slot : &args[k].value) : nullptr;
    Value v = Coerce(p.type, given != nullptr ? *given : DefaultValue(p));
    if (p.byRef) {
      size_t slot = frame.AddByRef(p.type, v);
      if (k < args.size()) outputs.emplace_back(slot, args[k].slot);
    } else {
      frame.Add(p.type, v);
    }
    keep.push_back(std::move(v));
  }
  Value result;
  RunPlugin([&] { result = frame.Call(method.handler, method.parsed.result); });
  for (auto& [slot, target] : outputs) *target = frame.TakeSlot(slot);
  return result;
}

Value Host::State::InvokeAccessor(REALproc fn, void* object, int32_t param, const TypeRef& type,
                                  const Value* newValue) {
  CallFrame frame(*this);
  frame.AddPointer(object);
  frame.Add(ParseType("Integer"), Value(static_cast<RBInteger>(param)));
  Value result;
  if (newValue != nullptr) {
    Value v = Coerce(type, *newValue);
    frame.Add(type, v);
    RunPlugin([&] { frame.Call(fn, TypeRef{}); });
  } else {
    RunPlugin([&] { result = frame.Call(fn, type); });
  }
  return result;
}

}  // namespace emu
