#include "plugin/Registration.h"

#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static_assert(offsetof(REALclassDefinition, delegates) == REAL_CLASS_HEADER_WORDS * sizeof(void*),
              "the shared class header must span REAL_CLASS_HEADER_WORDS words");
static_assert(sizeof(REALclassDefinition9) == REAL_CLASS_HEADER_WORDS * sizeof(void*),
              "the older class definition must be exactly the shared header");
static_assert(offsetof(REALclassDefinition9, mFlags) == offsetof(REALclassDefinition, mFlags),
              "both class layouts must agree word for word");

namespace {

// Size of the buffers in which module names are printed.
constexpr size_t kModuleNameSize = 100;

// Arrays handed to the host stay below the largest block its allocator deals in.
constexpr uint64_t kArrayByteLimit = uint64_t{1} << 31;

// A zero-filled array of `count` records, or null when the count is 0, the array would take
// kArrayByteLimit bytes or more, or memory runs out.
template <typename Record>
Record* AllocateRecords(size_t count) {
  if (count == 0 || count > (kArrayByteLimit - 1) / sizeof(Record)) return nullptr;
  return static_cast<Record*>(calloc(count, sizeof(Record)));
}

template <typename Record, typename Rewrite>
void RewriteFlags(Record* records, size_t count, uint32_t Record::*flags, Rewrite rewrite) {
  if (records == nullptr) return;
  for (size_t i = 0; i < count; ++i) records[i].*flags = rewrite(records[i].*flags);
}

void CopyMethod(const REALmethodDefinition& source, REALmethodDefinition9& copy) {
  copy = {source.function, source.setterFunction, source.declaration, source.mFlags};
}

void CopyProperty(const REALproperty& source, REALproperty9& copy) {
  copy = {source.group,  source.name,  source.type,   source.flags,     source.getter,
          source.setter, source.param, source.editor, source.enumCount, source.enumEntries};
}

void CopyConstant(const REALconstant& source, REALconstant9& copy) {
  copy = {source.declaration, source.reserved1, source.mFlags};
}

void CopyEvent(REALevent& source, REALevent9& copy) {
  copy = {source.declaration, source.forSystemUse};
  // Handlers reach the registered copy, whose host word the host fills, through their table.
  source.forSystemUse = reinterpret_cast<RBInteger>(&copy);
}

// An older-layout copy of `count` records, or null for a null array or a count of 0.
template <typename Copy, typename Source, typename Convert>
Copy* ConvertRecords(Source* source, size_t count, Convert convert) {
  if (source == nullptr) return nullptr;
  Copy* copies = AllocateRecords<Copy>(count);
  if (copies == nullptr) return nullptr;
  for (size_t i = 0; i < count; ++i) convert(source[i], copies[i]);
  return copies;
}

// Converts one array and its count; false when a non-empty array could not be copied.
template <typename Source, typename Convert, typename Copy>
bool ConvertArray(Source* source, size_t count, Convert convert, Copy*& copies, size_t& copyCount) {
  copies = ConvertRecords<Copy>(source, count, convert);
  copyCount = copies != nullptr ? count : 0;
  return copies != nullptr || source == nullptr || count == 0;
}

void CopyClassHeader(const REALclassDefinition& def, REALclassDefinition9& copy) {
  copy.version = def.version;
  copy.name = def.name;
  copy.superName = def.superName;
  copy.dataSize = def.dataSize;
  copy.forSystemUse = def.forSystemUse;
  copy.constructor = def.constructor;
  copy.destructor = def.destructor;
  copy.eventInstances = def.eventInstances;
  copy.eventInstanceCount = def.eventInstanceCount;
  copy.interfaces = def.interfaces;
  copy.mFlags = def.mFlags;
}

bool ConvertClassArrays(REALclassDefinition& def, REALclassDefinition9& copy) {
  return ConvertArray(def.properties, def.propertyCount, CopyProperty, copy.properties,
                      copy.propertyCount) &&
         ConvertArray(def.methods, def.methodCount, CopyMethod, copy.methods, copy.methodCount) &&
         ConvertArray(def.events, def.eventCount, CopyEvent, copy.events, copy.eventCount) &&
         ConvertArray(def.constants, def.constantCount, CopyConstant, copy.constants,
                      copy.constantCount) &&
         ConvertArray(def.sharedProperties, def.sharedPropertyCount, CopyProperty,
                      copy.sharedProperties, copy.sharedPropertyCount) &&
         ConvertArray(def.sharedMethods, def.sharedMethodCount, CopyMethod, copy.sharedMethods,
                      copy.sharedMethodCount);
}

void FreeLegacyClass(REALclassDefinition9* def) {
  free(def->properties);
  free(def->methods);
  free(def->events);
  free(def->constants);
  free(def->sharedProperties);
  free(def->sharedMethods);
  free(def);
}

// Registers a class definition through `registrar` in the layout of the running host.
void RegisterInHostLayout(REALclassDefinition& def, void (*registrar)(REALclassDefinition*)) {
  if (gHost.controlVersion > hostversion::kOldestControlVersion) {
    def.version = gHost.controlVersion;
    registrar(&def);
    return;
  }
  REALclassDefinition9* legacy = FixClass(def);
  // A partial copy would hand the host counts without arrays; such a class stays unregistered.
  if (legacy == nullptr) return;
  memcpy(&def, legacy, sizeof(*legacy));
  registrar(&def);
  free(legacy);
}

// Replaces the module's methods, properties and constants by older-layout copies; false, with
// the module unchanged, when a copy cannot be made.
bool ConvertModuleArrays(REALmoduleDefinition& def) {
  REALmethodDefinition9* methods = nullptr;
  REALproperty9* properties = nullptr;
  REALconstant9* constants = nullptr;
  size_t methodCount = 0, propertyCount = 0, constantCount = 0;
  if (!ConvertArray(def.methods, def.methodCount, CopyMethod, methods, methodCount) ||
      !ConvertArray(def.properties, def.propertyCount, CopyProperty, properties, propertyCount) ||
      !ConvertArray(def.constants, def.constantCount, CopyConstant, constants, constantCount)) {
    free(methods);
    free(properties);
    free(constants);
    return false;
  }
  // The host of this layout reads these arrays as older records.
  def.methods = reinterpret_cast<REALmethodDefinition*>(methods);
  def.methodCount = methodCount;
  def.properties = reinterpret_cast<REALproperty*>(properties);
  def.propertyCount = propertyCount;
  def.constants = reinterpret_cast<REALconstant*>(constants);
  def.constantCount = constantCount;
  return true;
}

void ApplyDefaultScope(REALmoduleDefinition& def) {
  RewriteFlags(def.methods, def.methodCount, &REALmethodDefinition::mFlags, WithDefaultScope);
  RewriteFlags(def.constants, def.constantCount, &REALconstant::mFlags, WithDefaultScope);
  RewriteFlags(def.properties, def.propertyCount, &REALproperty::flags, WithDefaultScope);
  RewriteFlags(static_cast<REALenumeration*>(def.enums), def.enumCount, &REALenumeration::mFlags,
               WithDefaultScope);
}

// Writes `headLength` bytes of `head` and then the formatted text into `out`; false when the
// whole does not fit, so that no declaration is ever registered cut short.
__attribute__((format(printf, 4, 5))) bool Compose(char (&out)[kDeclarationBufferSize],
                                                   const char* head, size_t headLength,
                                                   const char* format, ...) {
  if (headLength >= kDeclarationBufferSize) return false;
  memcpy(out, head, headLength);
  const size_t room = kDeclarationBufferSize - headLength;
  va_list args;
  va_start(args, format);
  const int written = vsnprintf(out + headLength, room, format, args);
  va_end(args);
  return written >= 0 && static_cast<size_t>(written) < room;
}

bool GetterDeclaration(const char* declaration, const char* className,
                       char (&out)[kDeclarationBufferSize]) {
  const char* stop = strpbrk(declaration, " (");
  if (stop == nullptr) return Compose(out, "", 0, "%s(extends ref as %s)", declaration, className);
  const size_t head = static_cast<size_t>(stop - declaration);
  if (*stop == ' ')
    return Compose(out, declaration, head, "(extends ref as %s)%s", className, stop);
  // Empty parentheses take the folder item alone.
  if (stop[1] == ')')
    return Compose(out, declaration, head, "(extends ref as %s%s", className, stop + 1);
  return Compose(out, declaration, head, "(extends ref as %s, %s", className, stop + 1);
}

bool SetterDeclaration(const char* getter, char (&out)[kDeclarationBufferSize]) {
  if (const char* close = strchr(getter, ')')) {
    return Compose(out, getter, static_cast<size_t>(close - getter), ", assigns value%s)",
                   close + 1);
  }
  if (const char* blank = strchr(getter, ' ')) {
    return Compose(out, getter, static_cast<size_t>(blank - getter), "(assigns value%s)", blank);
  }
  return false;
}

// Fills one module method serving `handler` of extension method `source`.
bool MakeModuleMethod(const REALmethodDefinition& source, REALproc handler, bool asSetter,
                      const char* className, REALmethodDefinition& method) {
  char declaration[kDeclarationBufferSize];
  if (!ExtensionDeclaration(source.declaration, className, asSetter, declaration)) return false;
  method = {handler,
            nullptr,
            strdup(declaration),
            source.mFlags | REALScopeGlobal,
            source.attributeCount,
            source.attributes};
  return method.declaration != nullptr;
}

void FreeModuleMethods(REALmethodDefinition* methods, size_t count) {
  for (size_t i = 0; i < count; ++i) free(const_cast<char*>(methods[i].declaration));
  free(methods);
}

size_t CountModuleMethods(const REALclassDefinition& ext) {
  size_t count = 0;
  for (size_t i = 0; i < ext.methodCount; ++i) {
    count += (ext.methods[i].function != nullptr) + (ext.methods[i].setterFunction != nullptr);
  }
  return count;
}

// The module methods of an extension definition: for each method its setter, then its
// handler. Null when a method cannot be built.
REALmethodDefinition* BuildModuleMethods(const REALclassDefinition& ext, size_t& count) {
  count = CountModuleMethods(ext);
  REALmethodDefinition* methods = AllocateRecords<REALmethodDefinition>(count);
  if (methods == nullptr) return nullptr;
  size_t next = 0;
  for (size_t i = 0; i < ext.methodCount; ++i) {
    const REALmethodDefinition& source = ext.methods[i];
    const bool built =
        (source.setterFunction == nullptr ||
         MakeModuleMethod(source, source.setterFunction, true, ext.name, methods[next++])) &&
        (source.function == nullptr ||
         MakeModuleMethod(source, source.function, false, ext.name, methods[next++]));
    if (!built) {
      FreeModuleMethods(methods, count);
      return nullptr;
    }
  }
  return methods;
}

// A zero-filled module definition of the tables' version holding `methods`, or null.
REALmoduleDefinition* NewModule(const char* name, REALmethodDefinition* methods, size_t count) {
  REALmoduleDefinition* module = AllocateRecords<REALmoduleDefinition>(1);
  char* nameCopy = strdup(name);
  if (module == nullptr || nameCopy == nullptr) {
    free(module);
    free(nameCopy);
    return nullptr;
  }
  module->version = kTableVersion;
  module->name = nameCopy;
  module->methods = methods;
  module->methodCount = count;
  return module;
}

void RegisterExtensionAsModule(const REALclassDefinition& ext, const char* partName) {
  char name[kModuleNameSize];
  snprintf(name, sizeof(name), "%s%s%s", ext.name, partName, "ExtensionKRV");
  size_t count = 0;
  REALmethodDefinition* methods = BuildModuleMethods(ext, count);
  if (methods == nullptr) return;
  REALmoduleDefinition* module = NewModule(name, methods, count);
  if (module == nullptr) {
    FreeModuleMethods(methods, count);
    return;
  }
  MyREALRegisterModule(*module);
}

void RegisterGlobalsAsModule(const REALmethodDefinition* globals, size_t count,
                             const char* partName) {
  char name[kModuleNameSize];
  snprintf(name, sizeof(name), "%s%s", partName, "GlobalsKRV");
  REALmethodDefinition* methods = AllocateRecords<REALmethodDefinition>(count);
  if (methods == nullptr) return;
  for (size_t i = 0; i < count; ++i) {
    methods[i] = globals[i];
    methods[i].mFlags |= REALScopeGlobal;
  }
  REALmoduleDefinition* module = NewModule(name, methods, count);
  if (module == nullptr) {
    free(methods);
    return;
  }
  MyREALRegisterModule(*module);
}

}  // namespace

bool UsesModulesForExtensions(double hostVersion) {
  return hostVersion >= hostversion::kModuleExtensionsFrom &&
         hostVersion < hostversion::kModuleExtensionsBefore;
}

uint32_t ConsoleFlagsFor(uint32_t flags, double hostVersion) {
  if (hostVersion >= hostversion::kConsoleFlagsFrom) {
    if (flags & kConsoleSafeMark) flags |= REALconsoleSafe;
    if (flags & kConsoleOnlyMark) flags |= REALconsoleOnly;
  }
  return flags & ~(kConsoleSafeMark | kConsoleOnlyMark);
}

uint32_t WithDefaultScope(uint32_t flags) {
  return (flags & REALScopeMask) == 0 ? flags | REALScopePublic : flags;
}

size_t RoundedRecordSize(size_t size) {
  return (size + 15) / 16 * 16;
}

void FixConsoleFlags(REALmethodDefinition* methods, size_t count) {
  RewriteFlags(methods, count, &REALmethodDefinition::mFlags,
               [](uint32_t flags) { return ConsoleFlagsFor(flags, gHost.version); });
}

void FixConsoleFlags(REALclassDefinition& def) {
  const auto rewrite = [](uint32_t flags) { return ConsoleFlagsFor(flags, gHost.version); };
  def.mFlags = rewrite(def.mFlags);
  FixConsoleFlags(def.methods, def.methodCount);
  FixConsoleFlags(def.sharedMethods, def.sharedMethodCount);
  RewriteFlags(def.properties, def.propertyCount, &REALproperty::flags, rewrite);
  RewriteFlags(def.sharedProperties, def.sharedPropertyCount, &REALproperty::flags, rewrite);
}

REALproperty9* FixProperties(const REALproperty* properties, size_t count) {
  return ConvertRecords<REALproperty9>(properties, count, CopyProperty);
}

REALclassDefinition9* FixClass(REALclassDefinition& def) {
  REALclassDefinition9* copy = AllocateRecords<REALclassDefinition9>(1);
  if (copy == nullptr) return nullptr;
  CopyClassHeader(def, *copy);
  if (!ConvertClassArrays(def, *copy)) {
    FreeLegacyClass(copy);
    return nullptr;
  }
  return copy;
}

void MyREALRegisterClass(REALclassDefinition& def) {
  def.dataSize = RoundedRecordSize(def.dataSize);
  RegisterInHostLayout(def, REALRegisterClass);
}

void MyREALRegisterModule(REALmoduleDefinition& def) {
  ApplyDefaultScope(def);
  if (gHost.controlVersion > hostversion::kOldestControlVersion) {
    def.version = gHost.controlVersion;
  } else if (!ConvertModuleArrays(def)) {
    return;
  }
  REALRegisterModule(&def);
}

bool ExtensionDeclaration(const char* declaration, const char* className, bool asSetter,
                          char (&out)[kDeclarationBufferSize]) {
  if (!asSetter) return GetterDeclaration(declaration, className, out);
  char getter[kDeclarationBufferSize];
  return GetterDeclaration(declaration, className, getter) && SetterDeclaration(getter, out);
}

void RegisterExtension(REALclassDefinition& def, const char* partName) {
  if (def.methods == nullptr || def.methodCount == 0) return;
  if (UsesModulesForExtensions(gHost.version)) {
    RegisterExtensionAsModule(def, partName);
  } else {
    RegisterInHostLayout(def, REALRegisterClassExtension);
  }
}

void RegisterGlobalMethods(REALmethodDefinition* globals, size_t count, const char* partName) {
  if (UsesModulesForExtensions(gHost.version)) {
    RegisterGlobalsAsModule(globals, count, partName);
    return;
  }
  for (size_t i = 0; i < count; ++i) REALRegisterMethod(&globals[i]);
}
