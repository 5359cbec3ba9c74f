// Memory blocks, arrays and folder items: their records, their entry points and the helpers that
// let test code make and inspect them.
#include <algorithm>
#include <cctype>
#include <cstring>

#include "emulator/Internal.h"

namespace emu {

namespace {

template <typename T>
T* LiveFromValue(Host::State& s, const Value& v, ObjectKind kind, const char* what) {
  Object* o = v.Kind() == ValueKind::Object ? s.Find(v.Handle()) : nullptr;
  if (o == nullptr || !o->alive || o->kind != kind) {
    throw Error(std::string(what) + ": expected a live " + KindName(kind) + ", got " +
                v.Describe());
  }
  return static_cast<T*>(o);
}

ArrayObject* LiveArray(Host::State& s, REALarray array, const char* entry) {
  return s.LiveAs<ArrayObject>(array, ObjectKind::Array, entry);
}

// The element at `index`, or null (after an audit error) when the access is out of bounds.
ArrayObject* CheckedElement(Host::State& s, REALarray array, RBInteger index, TypeKind element,
                            const char* entry) {
  ArrayObject* a = LiveArray(s, array, entry);
  if (a == nullptr) return nullptr;
  if (a->element != element) {
    s.Fault(std::string(entry) + ": getter used on an array of " + a->ClassName());
    return nullptr;
  }
  if (index < 0 || static_cast<size_t>(index) >= a->Size()) {
    s.Fault(std::string(entry) + ": index " + std::to_string(index) + " out of bounds");
    return nullptr;
  }
  return a;
}

RBColor ColorAt(REALarray array, RBInteger index) noexcept {
  return Guard<RBColor>("color array getter", 0, [&](Host::State& s) -> RBColor {
    ArrayObject* a = CheckedElement(s, array, index, TypeKind::Color, "color array getter");
    return a != nullptr ? a->colors[static_cast<size_t>(index)] : 0;
  });
}

RBInteger IntegerAt(REALarray array, RBInteger index) noexcept {
  return Guard<RBInteger>("integer array getter", 0, [&](Host::State& s) -> RBInteger {
    ArrayObject* a = CheckedElement(s, array, index, TypeKind::Integer, "integer array getter");
    return a != nullptr ? a->integers[static_cast<size_t>(index)] : 0;
  });
}

// Hands out the element with a new reference that the caller gives back.
REALobject ObjectAt(REALarray array, RBInteger index) noexcept {
  return Guard<REALobject>("object array getter", nullptr, [&](Host::State& s) -> REALobject {
    ArrayObject* a = CheckedElement(s, array, index, TypeKind::Object, "object array getter");
    void* element = a != nullptr ? a->objects[static_cast<size_t>(index)] : nullptr;
    if (element != nullptr) s.Retain(s.Find(element));
    return static_cast<REALobject>(element);
  });
}

REALproc TypedGetProc(REALarray array, TypeKind element, const char* entry) {
  return Guard<REALproc>(entry, nullptr, [&](Host::State& s) -> REALproc {
    ArrayObject* a = LiveArray(s, array, entry);
    if (a == nullptr) return nullptr;
    if (a->element != element) {
      s.Fault(std::string(entry) + ": asked for an array of " + a->ClassName());
      return nullptr;
    }
    return ArrayGetter(element);
  });
}

REALproc ColorGetProc(REALarray array) noexcept {
  return TypedGetProc(array, TypeKind::Color, "PluginColorArrayGetProc");
}

REALproc IntegerGetProc(REALarray array) noexcept {
  return TypedGetProc(array, TypeKind::Integer, "PluginIntegerArrayGetProc");
}

REALproc ObjectGetProc(REALarray array) noexcept {
  return TypedGetProc(array, TypeKind::Object, "PluginObjectArrayGetProc");
}

REALproc DirectGetProc(REALarray array) noexcept {
  return Guard<REALproc>("RuntimeArrayDirectGetGetProc", nullptr, [&](Host::State& s) {
    ArrayObject* a = LiveArray(s, array, "RuntimeArrayDirectGetGetProc");
    return a != nullptr ? ArrayGetter(a->element) : nullptr;
  });
}

RBInteger UBound(REALarray array) noexcept {
  return Guard<RBInteger>("RuntimeUBound", -1, [&](Host::State& s) -> RBInteger {
    ArrayObject* a = LiveArray(s, array, "RuntimeUBound");
    return a != nullptr ? a->record.upperBound : -1;
  });
}

REALmemoryBlock NewMemoryBlockEntry(RBInteger size) noexcept {
  return Guard<REALmemoryBlock>("newMemoryBlock", nullptr, [&](Host::State& s) {
    if (size < 0 || size > s.memoryBlockLimit) return REALmemoryBlock{nullptr};
    try {
      auto block = std::make_unique<MemoryBlockObject>(static_cast<size_t>(size), "newMemoryBlock");
      return static_cast<REALmemoryBlock>(s.Add(std::move(block))->Handle());
    } catch (const std::bad_alloc&) {
      return REALmemoryBlock{nullptr};
    }
  });
}

void* MemoryBlockGetPtr(REALmemoryBlock block) noexcept {
  return Guard<void*>("memoryBlockGetPtr", nullptr, [&](Host::State& s) -> void* {
    auto* b = s.LiveAs<MemoryBlockObject>(block, ObjectKind::MemoryBlock, "memoryBlockGetPtr");
    return b != nullptr ? b->record.data : nullptr;
  });
}

RBInteger MemoryBlockGetSize(REALmemoryBlock block) noexcept {
  return Guard<RBInteger>("memoryBlockGetSize", -1, [&](Host::State& s) -> RBInteger {
    auto* b = s.LiveAs<MemoryBlockObject>(block, ObjectKind::MemoryBlock, "memoryBlockGetSize");
    return b != nullptr ? b->record.size : -1;
  });
}

bool IsUnreserved(unsigned char c) {
  return std::isalnum(c) || c == '-' || c == '.' || c == '_' || c == '~' || c == '/';
}

}  // namespace

MemoryBlockObject::MemoryBlockObject(size_t size, std::string made)
    : Object(ObjectKind::MemoryBlock, std::move(made)) {
  data = std::make_unique<unsigned char[]>(size > 0 ? size : 1);
  record.data = data.get();
  record.size = static_cast<RBInteger>(size);
}

void MemoryBlockObject::FreePayload() {
  data.reset();
  record.data = nullptr;
  record.size = 0;
}

ArrayObject::ArrayObject(TypeKind elementKind, bool directStorage, std::string made)
    : Object(ObjectKind::Array, std::move(made)), element(elementKind), direct(directStorage) {}

std::string ArrayObject::ClassName() const {
  switch (element) {
    case TypeKind::Color:
      return "Color()";
    case TypeKind::Integer:
      return "Integer()";
    default:
      return "MemoryBlock()";
  }
}

size_t ArrayObject::Size() const {
  switch (element) {
    case TypeKind::Color:
      return colors.size();
    case TypeKind::Integer:
      return integers.size();
    default:
      return objects.size();
  }
}

void ArrayObject::Publish() {
  void* storage = nullptr;
  if (element == TypeKind::Color) storage = colors.data();
  if (element == TypeKind::Integer) storage = integers.data();
  if (element == TypeKind::Object) storage = objects.data();
  record.upperBound = static_cast<RBInteger>(Size()) - 1;
  record.storage = direct ? storage : nullptr;
  if (direct && !shown) {
    zeros.assign(Size(), 0);
    opaque.storage = zeros.data();
  }
}

std::vector<void*> ArrayObject::TakeChildren() {
  std::vector<void*> children;
  for (void* o : objects) {
    if (o != nullptr) children.push_back(o);
  }
  objects.clear();
  return children;
}

void ArrayObject::FreePayload() {
  colors.clear();
  integers.clear();
  objects.clear();
  record.storage = nullptr;
  opaque.storage = nullptr;
}

REALproc ArrayGetter(TypeKind element) {
  switch (element) {
    case TypeKind::Color:
      return reinterpret_cast<REALproc>(&ColorAt);
    case TypeKind::Integer:
      return reinterpret_cast<REALproc>(&IntegerAt);
    case TypeKind::Object:
      return reinterpret_cast<REALproc>(&ObjectAt);
    default:
      return nullptr;
  }
}

std::string UrlPath(const std::string& path) {
  static const char kHex[] = "0123456789ABCDEF";
  std::string url = "file://";
#if defined(_WIN32)
  // A Windows path's URL: forward slashes, and a slash before the drive, file:///C:/dir/name.
  std::string forward = path;
  std::replace(forward.begin(), forward.end(), '\\', '/');
  if (forward.size() >= 2 && forward[1] == ':') url += '/';
  for (unsigned char c : forward) {
#else
  for (unsigned char c : path) {
#endif
    if (IsUnreserved(c)) {
      url += static_cast<char>(c);
    } else {
      url += '%';
      url += kHex[c >> 4];
      url += kHex[c & 15];
    }
  }
  return url;
}

void AddCollectionEntries(EntryTable& table) {
  table["newMemoryBlock"] = reinterpret_cast<void*>(&NewMemoryBlockEntry);
  table["memoryBlockGetPtr"] = reinterpret_cast<void*>(&MemoryBlockGetPtr);
  table["memoryBlockGetSize"] = reinterpret_cast<void*>(&MemoryBlockGetSize);
  table["RuntimeUBound"] = reinterpret_cast<void*>(&UBound);
  table["PluginColorArrayGetProc"] = reinterpret_cast<void*>(&ColorGetProc);
  table["PluginIntegerArrayGetProc"] = reinterpret_cast<void*>(&IntegerGetProc);
  table["PluginObjectArrayGetProc"] = reinterpret_cast<void*>(&ObjectGetProc);
  table["RuntimeArrayDirectGetGetProc"] = reinterpret_cast<void*>(&DirectGetProc);
}

Value Host::NewMemoryBlock(RBInteger size) {
  if (size < 0 || size > state_->memoryBlockLimit) {
    throw Error("memory block size " + std::to_string(size) + " out of range");
  }
  auto block = std::make_unique<MemoryBlockObject>(static_cast<size_t>(size), "NewMemoryBlock");
  return Value::AdoptObject(state_->Add(std::move(block))->Handle());
}

Value Host::MemoryBlockFrom(std::string_view bytes) {
  Value block = NewMemoryBlock(static_cast<RBInteger>(bytes.size()));
  if (!bytes.empty()) std::memcpy(BlockData(block), bytes.data(), bytes.size());
  return block;
}

unsigned char* Host::BlockData(const Value& block) const {
  auto* b = LiveFromValue<MemoryBlockObject>(*state_, block, ObjectKind::MemoryBlock, "BlockData");
  return b->data.get();
}

RBInteger Host::BlockSize(const Value& block) const {
  auto* b = LiveFromValue<MemoryBlockObject>(*state_, block, ObjectKind::MemoryBlock, "BlockSize");
  return b->record.size;
}

std::string Host::BlockBytes(const Value& block) const {
  return std::string(reinterpret_cast<const char*>(BlockData(block)),
                     static_cast<size_t>(BlockSize(block)));
}

void Host::SetMemoryBlockLimit(RBInteger bytes) {
  state_->memoryBlockLimit = bytes;
}

Value Host::MakeColorArray(const std::vector<RBColor>& colors, Storage storage) {
  auto array =
      std::make_unique<ArrayObject>(TypeKind::Color, storage == Storage::Direct, "MakeColorArray");
  array->colors = colors;
  array->Publish();
  return Value::AdoptObject(state_->Add(std::move(array))->Handle());
}

Value Host::MakeIntegerArray(const std::vector<RBInteger>& values, Storage storage) {
  auto array = std::make_unique<ArrayObject>(TypeKind::Integer, storage == Storage::Direct,
                                             "MakeIntegerArray");
  array->integers = values;
  array->Publish();
  return Value::AdoptObject(state_->Add(std::move(array))->Handle());
}

Value Host::MakeMemoryBlockArray(const std::vector<Value>& blocks, Storage storage) {
  auto array = std::make_unique<ArrayObject>(TypeKind::Object, storage == Storage::Direct,
                                             "MakeMemoryBlockArray");
  std::vector<Object*> elements;
  for (const Value& v : blocks) {
    elements.push_back(v.IsNil()
                           ? nullptr
                           : LiveFromValue<MemoryBlockObject>(*state_, v, ObjectKind::MemoryBlock,
                                                              "MakeMemoryBlockArray"));
  }
  // Every element checked: the array now takes its references.
  for (Object* element : elements) {
    if (element != nullptr) state_->Retain(element);
    array->objects.push_back(element != nullptr ? element->Handle() : nullptr);
  }
  array->Publish();
  return Value::AdoptObject(state_->Add(std::move(array))->Handle());
}

Value Host::MakeFolderItem(const std::string& path) {
  auto item = std::make_unique<FolderItemObject>(path, "MakeFolderItem");
  return Value::AdoptObject(state_->Add(std::move(item))->Handle());
}

}  // namespace emu
