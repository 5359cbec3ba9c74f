// Reading the plug-in's definition records, in the control-version-13 layout or the older one
// (version word 9 or lower), into the registry, and printing the registry.
#include <algorithm>
#include <cstdio>
#include <functional>

#include "emulator/Internal.h"

namespace emu {

namespace {

// A count beyond this is a corrupt definition rather than an API.
constexpr size_t kMaxRecords = 10000;

// Hosts before 2012.0 know only the older layout and read every definition in it, whatever its
// version word says; later hosts go by the version word.
constexpr double kFirstCurrentLayoutHost = 2012.0;

std::string Text(const char* s) {
  return s != nullptr ? s : "";
}

template <typename Rec, typename Read>
auto ReadArray(const Rec* records, size_t count, Read read) {
  std::vector<decltype(read(*records))> out;
  if (records == nullptr || count == 0) return out;
  if (count > kMaxRecords) throw Error("record count " + std::to_string(count) + " is implausible");
  for (size_t i = 0; i < count; ++i) out.push_back(read(records[i]));
  return out;
}

template <typename M>
MethodInfo ReadMethod(const M& m) {
  MethodInfo info;
  info.declaration = Text(m.declaration);
  info.parsed = ParseDeclaration(info.declaration);
  info.flags = m.mFlags;
  info.handler = m.function;
  info.setter = m.setterFunction;
  return info;
}

template <typename P>
PropertyInfo ReadProperty(const P& p) {
  PropertyInfo info;
  info.group = Text(p.group);
  info.name = Text(p.name);
  info.type = Text(p.type);
  info.parsedType = ParseType(info.type);
  info.flags = p.flags;
  info.getter = p.getter;
  info.setter = p.setter;
  info.param = p.param;
  return info;
}

template <typename C>
ConstantInfo ReadConstant(const C& c) {
  return {Text(c.declaration), c.mFlags};
}

// The record arrays of a class, read as records of layout L.
template <typename Method, typename Property, typename Constant>
void ReadClassArrays(const REALclassDefinition* def, ClassInfo& info) {
  info.properties = ReadArray(reinterpret_cast<const Property*>(def->properties),
                              def->propertyCount, ReadProperty<Property>);
  info.methods = ReadArray(reinterpret_cast<const Method*>(def->methods), def->methodCount,
                           ReadMethod<Method>);
  info.constants = ReadArray(reinterpret_cast<const Constant*>(def->constants), def->constantCount,
                             ReadConstant<Constant>);
  info.sharedProperties = ReadArray(reinterpret_cast<const Property*>(def->sharedProperties),
                                    def->sharedPropertyCount, ReadProperty<Property>);
  info.sharedMethods = ReadArray(reinterpret_cast<const Method*>(def->sharedMethods),
                                 def->sharedMethodCount, ReadMethod<Method>);
}

template <typename Method, typename Property, typename Constant>
void ReadModuleArrays(const REALmoduleDefinition* def, ModuleInfo& info) {
  info.methods = ReadArray(reinterpret_cast<const Method*>(def->methods), def->methodCount,
                           ReadMethod<Method>);
  info.constants = ReadArray(reinterpret_cast<const Constant*>(def->constants), def->constantCount,
                             ReadConstant<Constant>);
  info.properties = ReadArray(reinterpret_cast<const Property*>(def->properties),
                              def->propertyCount, ReadProperty<Property>);
}

// Event records of both layouts start with the declaration and the host word.
template <typename Event>
std::vector<REALevent*> EventRecords(REALclassDefinition* def) {
  std::vector<REALevent*> records;
  if (def->events == nullptr || def->eventCount > kMaxRecords) return records;
  auto* first = reinterpret_cast<Event*>(def->events);
  for (size_t i = 0; i < def->eventCount; ++i) {
    records.push_back(reinterpret_cast<REALevent*>(first + i));
  }
  return records;
}

std::string Flags(uint32_t flags) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%X", flags);
  return text;
}

void DumpMethods(std::ostream& out, const char* label, const std::vector<MethodInfo>& methods) {
  for (const MethodInfo& m : methods) {
    out << "  " << label << " \"" << m.declaration << "\" flags " << Flags(m.flags)
        << (m.setter != nullptr ? " (with setter)" : "") << "\n";
  }
}

void DumpProperties(std::ostream& out, const char* label,
                    const std::vector<PropertyInfo>& properties) {
  for (const PropertyInfo& p : properties) {
    out << "  " << label << " " << p.name << " as " << p.type << " flags " << Flags(p.flags);
    if (p.StandardGetter()) {
      out << " field +" << p.param;
    } else {
      out << " accessors";
    }
    out << "\n";
  }
}

void DumpConstants(std::ostream& out, const std::vector<ConstantInfo>& constants) {
  for (const ConstantInfo& c : constants) {
    out << "  constant \"" << c.declaration << "\" flags " << Flags(c.flags) << "\n";
  }
}

void DumpClass(std::ostream& out, const ClassInfo& c) {
  out << (c.extension ? "extension " : "class ") << c.name << " (version " << c.versionWord
      << ", layout " << c.layoutVersion << ", flags " << Flags(c.flags) << ", data " << c.dataSize
      << " bytes";
  if (!c.superName.empty()) out << ", super " << c.superName;
  out << ")\n";
  DumpProperties(out, "property", c.properties);
  DumpMethods(out, "method", c.methods);
  for (const EventInfo& e : c.events) out << "  event \"" << e.declaration << "\"\n";
  DumpConstants(out, c.constants);
  DumpProperties(out, "shared property", c.sharedProperties);
  DumpMethods(out, "shared method", c.sharedMethods);
}

void DumpModule(std::ostream& out, const ModuleInfo& m) {
  out << "module " << m.name << " (version " << m.versionWord << ", layout " << m.layoutVersion
      << ")\n";
  DumpMethods(out, "method", m.methods);
  DumpConstants(out, m.constants);
  DumpProperties(out, "property", m.properties);
}

// A host keeps what plug-ins register to the end of the process, past Shutdown too: the module
// records a plug-in builds on the heap stay referenced from here, never freed, so that a leak
// checker does not take them for lost.
void KeepForTheProcess(const void* record) {
  static auto* const kept = new std::vector<const void*>();
  kept->push_back(record);
}

}  // namespace

void Host::State::RegisterClass(REALclassDefinition* def, bool extension) {
  ClassInfo info;
  const bool old = OldLayout(def->version);
  info.sequence = nextSequence++;
  info.versionWord = def->version;
  info.layoutVersion = old ? 9 : 13;
  info.extension = extension;
  info.name = Text(def->name);
  info.superName = Text(def->superName);
  info.dataSize = def->dataSize;
  info.flags = def->mFlags;
  info.constructor = def->constructor;
  info.destructor = def->destructor;
  info.interfaces = Text(def->interfaces);
  info.definition = def;
  if (old) {
    ReadClassArrays<REALmethodDefinition9, REALproperty9, REALconstant9>(def, info);
  } else {
    ReadClassArrays<REALmethodDefinition, REALproperty, REALconstant>(def, info);
  }
  std::vector<REALevent*> events =
      old ? EventRecords<REALevent9>(def) : EventRecords<REALevent>(def);
  for (REALevent* record : events) {
    EventInfo e;
    e.declaration = Text(record->declaration);
    e.parsed = ParseDeclaration(e.declaration);
    e.record = record;
    info.events.push_back(std::move(e));
  }
  if (extension) {
    registry.extensions.push_back(std::move(info));
    return;
  }
  PlaceClassData(info, def);
  registry.classes.push_back(std::move(info));
  IssueEventWords(registry.classes.size() - 1);
}

// Places the class data of a new class inside its instances, after the host's header and the
// data of its ancestors, and tells the plug-in where through the definition's host word (the
// fifth word in both layouts). The gap before the data differs from class to class, so that a
// plug-in that computes one class's data with another class's definition lands on wrong bytes.
void Host::State::PlaceClassData(ClassInfo& info, REALclassDefinition* def) {
  const ClassInfo* super = registry.FindClass(info.superName);
  const size_t base =
      super != nullptr ? static_cast<size_t>(super->dataOffset) + (super->dataSize + 15) / 16 * 16
                       : kInstanceHeaderSize;
  info.dataOffset = static_cast<RBInteger>(base + 16 * (registry.classes.size() + 1));
  def->forSystemUse = info.dataOffset;
}

// Stores a word of the host's own in each event record, by which GetEventInstance later knows
// the event; both layouts keep the word right after the declaration.
void Host::State::IssueEventWords(size_t classIndex) {
  ClassInfo& info = registry.classes[classIndex];
  for (size_t i = 0; i < info.events.size(); ++i) {
    EventInfo& e = info.events[i];
    e.hostWord = nextEventWord++;
    auto* record = static_cast<REALevent*>(const_cast<void*>(e.record));
    record->forSystemUse = e.hostWord;
    eventWords[e.hostWord] = EventKey{classIndex, i};
  }
}

void Host::State::RegisterModule(const REALmoduleDefinition* def) {
  ModuleInfo info;
  const bool old = OldLayout(def->version);
  info.sequence = nextSequence++;
  info.versionWord = def->version;
  info.layoutVersion = old ? 9 : 13;
  info.name = Text(def->name);
  KeepForTheProcess(def);
  if (old) {
    ReadModuleArrays<REALmethodDefinition9, REALproperty9, REALconstant9>(def, info);
  } else {
    ReadModuleArrays<REALmethodDefinition, REALproperty, REALconstant>(def, info);
  }
  registry.modules.push_back(std::move(info));
}

void Host::State::RegisterMethod(const REALmethodDefinition* def) {
  // A single method record: only the four fields both layouts share are read.
  registry.methods.push_back(
      {nextSequence++, ReadMethod(*reinterpret_cast<const REALmethodDefinition9*>(def))});
}

bool Host::State::OldLayout(uint32_t versionWord) const {
  return versionWord <= 9 || profile.version < kFirstCurrentLayoutHost;
}

bool Host::State::IsA(const std::string& className, std::string_view ancestor) const {
  if (SameName(ancestor, "Object")) return true;
  std::string current = className;
  for (int depth = 0; depth < 64 && !current.empty(); ++depth) {
    if (SameName(current, ancestor)) return true;
    const ClassInfo* c = registry.FindClass(current);
    current = c != nullptr ? c->superName : std::string();
  }
  // The host's exception classes all derive from RuntimeException.
  return SameName(ancestor, "RuntimeException") && IsExceptionClass(className);
}

const ClassInfo* Registry::FindClass(std::string_view name) const {
  for (const ClassInfo& c : classes) {
    if (SameName(c.name, name)) return &c;
  }
  return nullptr;
}

const ModuleInfo* Registry::FindModule(std::string_view name) const {
  for (const ModuleInfo& m : modules) {
    if (SameName(m.name, name)) return &m;
  }
  return nullptr;
}

void Dump(const Registry& registry, std::ostream& out) {
  std::vector<std::pair<int, std::function<void()>>> items;
  for (const ClassInfo& c : registry.classes)
    items.emplace_back(c.sequence, [&] { DumpClass(out, c); });
  for (const ClassInfo& c : registry.extensions) {
    items.emplace_back(c.sequence, [&] { DumpClass(out, c); });
  }
  for (const ModuleInfo& m : registry.modules)
    items.emplace_back(m.sequence, [&] { DumpModule(out, m); });
  for (const GlobalMethodInfo& g : registry.methods) {
    items.emplace_back(g.sequence, [&] {
      out << "global method \"" << g.method.declaration << "\" flags " << Flags(g.method.flags)
          << "\n";
    });
  }
  std::sort(items.begin(), items.end(),
            [](const auto& a, const auto& b) { return a.first < b.first; });
  for (const auto& item : items) item.second();
  if (registry.pluginVersion) out << "plug-in version " << *registry.pluginVersion << "\n";
}

void Host::DumpRegistry(std::ostream& out) const {
  Dump(state_->registry, out);
}

const Registry& Host::GetRegistry() const {
  return state_->registry;
}

}  // namespace emu
