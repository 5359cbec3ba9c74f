// Registration with hosts of different versions: control versions, console marks, the older
// definition layout, module scopes and the folder item extension rewritten as a module.
//
// The host's registration entry points are cached by the runtime wrappers for the whole process,
// so the fixture installs one capturing resolver and the capture functions record into the
// current test's state.
#include <gtest/gtest.h>
#include <string.h>

#include <cmath>
#include <string>
#include <utility>
#include <vector>

#include "plugin/Registration.h"

namespace {

template <typename Definition>
struct Registered {
  Definition* at;
  Definition copy;  // keeps what the plug-in allocated for the host reachable
};

// What the host was handed during the current test.
struct Captures {
  std::vector<Registered<REALclassDefinition>> classes, extensions;
  std::vector<Registered<REALmoduleDefinition>> modules;
  std::vector<REALmethodDefinition*> methods;

  static inline Captures* current = nullptr;
  static void Class(REALclassDefinition* def) { current->classes.push_back({def, *def}); }
  static void Extension(REALclassDefinition* def) { current->extensions.push_back({def, *def}); }
  static void Module(REALmoduleDefinition* def) { current->modules.push_back({def, *def}); }
  static void Method(REALmethodDefinition* def) { current->methods.push_back(def); }
};

// Registered definitions stay with the host for the life of the process, as in a real host.
std::vector<Captures>& HostArchive() {
  static auto* archive = new std::vector<Captures>;
  return *archive;
}

void* CaptureResolver(const char* name) {
  const std::pair<const char*, void*> entries[] = {
      {"PluginRegisterClass", reinterpret_cast<void*>(Captures::Class)},
      {"PluginRegisterClassExtension", reinterpret_cast<void*>(Captures::Extension)},
      {"PluginRegisterModule", reinterpret_cast<void*>(Captures::Module)},
      {"PluginRegisterMethod", reinterpret_cast<void*>(Captures::Method)}};
  for (const auto& [entry, address] : entries) {
    if (strcmp(name, entry) == 0) return address;
  }
  return nullptr;
}

// Distinct handlers, told apart by address.
template <int N>
void Handler() {
  static volatile int calls;
  calls = calls + N;
}

class RegistrationTest : public ::testing::Test {
 protected:
  void SetUp() override {
    gResolver = CaptureResolver;
    Captures::current = &captures_;
  }
  void TearDown() override {
    HostArchive().push_back(std::move(captures_));
    Captures::current = nullptr;
    gResolver = nullptr;
    rbversion = 0.0;
    gControlVersion = 0;
  }
  static void Host(double version) {
    rbversion = version;
    gControlVersion = ControlVersionFor(version);
  }
  Captures captures_;
};

REALclassDefinition ClassWithMethods(const char* name, REALmethodDefinition* methods,
                                     size_t count) {
  REALclassDefinition def{};
  def.version = kTableVersion;
  def.name = name;
  def.methods = methods;
  def.methodCount = count;
  return def;
}

// A class with records of every kind, for the walks over all of a definition's arrays. Its
// definition points into itself, so it is built in place and never copied.
struct SampleClass {
  REALmethodDefinition methods[1] = {{Handler<1>, Handler<2>, "M", kConsoleSafeMark, 1, nullptr}};
  REALmethodDefinition shared[1] = {{Handler<3>, nullptr, "S", kConsoleOnlyMark, 0, nullptr}};
  REALproperty properties[1] = {{nullptr, "P", "Integer", 2 | kConsoleSafeMark, REALstandardGetter,
                                 REALstandardSetter, 24, nullptr, 0, nullptr, 0, nullptr}};
  REALproperty sharedProperties[1] = {{nullptr, "Q", "Boolean", kConsoleSafeMark, Handler<4>,
                                       Handler<5>, 0, nullptr, 0, nullptr, 0, nullptr}};
  REALevent events[2] = {{"Error(msg as string)", 0, 0, nullptr},
                         {"Warning(msg as string)", 0, 0, nullptr}};
  REALconstant constants[1] = {{"K = 2", nullptr, kConsoleSafeMark, 0, nullptr}};
  REALeventInstance instances[1] = {{"Open", Handler<6>}};
  REALattribute bindings[1] = {{"n", "v"}};
  // One line per group of related words.
  // clang-format off
  REALclassDefinition def = {
      kTableVersion, "C", nullptr, 40, 0, Handler<7>, nullptr,
      properties, 1, methods, 1, events, 2, instances, 1, "I", bindings, 1, constants, 1,
      kConsoleSafeMark, sharedProperties, 1, shared, 1,
      nullptr, 0, this, 7};
  // clang-format on
};

TEST(ControlVersion, FollowsTheHostVersionThresholds) {
  const std::pair<double, uint32_t> cases[] = {
      {2019.1, 13},   {3000.0, 13}, {2013.04, 13}, {2013.03, 12}, {2013.0, 11},
      {2012.999, 10}, {2012.0, 10}, {2011.5, 9},   {0.0, 9},      {std::nan(""), 9}};
  for (const auto& [host, control] : cases) EXPECT_EQ(ControlVersionFor(host), control) << host;
}

TEST(ConsoleFlags, MarksBecomeHostFlagsFrom2010_029AndVanishBefore) {
  EXPECT_EQ(ConsoleFlagsFor(2 | kConsoleSafeMark, 2010.029), 2u | REALconsoleSafe);
  EXPECT_EQ(ConsoleFlagsFor(kConsoleOnlyMark, 2010.029), uint32_t{REALconsoleOnly});
  EXPECT_EQ(ConsoleFlagsFor(kConsoleSafeMark | kConsoleOnlyMark, 2019.0), 12u);
  EXPECT_EQ(ConsoleFlagsFor(2 | kConsoleSafeMark, 2010.028), 2u);
  EXPECT_EQ(ConsoleFlagsFor(4 | kConsoleOnlyMark, 2009.0), 4u);
  EXPECT_EQ(ConsoleFlagsFor(2 | 4, 2010.029), 6u);
}

TEST_F(RegistrationTest, ConsoleMarksOfClassMethodsAndPropertiesButNotConstantsAreRewritten) {
  Host(2013.04);
  SampleClass sample;
  FixConsoleFlags(sample.def);
  EXPECT_EQ(sample.def.mFlags, 4u);
  EXPECT_EQ(sample.methods[0].mFlags, 4u);
  EXPECT_EQ(sample.shared[0].mFlags, 8u);
  EXPECT_EQ(sample.properties[0].flags, 6u);
  EXPECT_EQ(sample.sharedProperties[0].flags, 4u);
  EXPECT_EQ(sample.constants[0].mFlags, kConsoleSafeMark);
}

TEST_F(RegistrationTest, ClassesGetRoundedRecordSizeAndTheControlVersion) {
  Host(2012.0);
  const std::pair<size_t, size_t> sizes[] = {{96, 96}, {1364, 1376}, {1, 16}, {0, 0}};
  for (const auto& [size, rounded] : sizes) {
    REALclassDefinition def = ClassWithMethods("C", nullptr, 0);
    def.dataSize = size;
    MyREALRegisterClass(def);
    ASSERT_EQ(captures_.classes.size(), 1u);
    EXPECT_EQ(captures_.classes[0].at, &def);
    EXPECT_EQ(def.dataSize, rounded) << size;
    EXPECT_EQ(def.version, 10u);
    captures_.classes.clear();
  }
}

TEST_F(RegistrationTest, OldHostsGetTheOlderLayoutCopiedOverTheTable) {
  Host(2011.0);
  SampleClass sample;
  MyREALRegisterClass(sample.def);

  ASSERT_EQ(captures_.classes.size(), 1u);
  EXPECT_EQ(captures_.classes[0].at, &sample.def);
  EXPECT_EQ(sample.def.enums, &sample);  // a word the older layout lacks stays untouched
  REALclassDefinition9 view;
  memcpy(&view, &sample.def, sizeof(view));
  EXPECT_EQ(view.dataSize, 48u);
  EXPECT_EQ(view.constructor, Handler<7>);
  ASSERT_EQ(view.methodCount, 1u);
  EXPECT_EQ(view.methods[0].setterFunction, Handler<2>);
  EXPECT_STREQ(view.methods[0].declaration, "M");
  ASSERT_EQ(view.propertyCount, 1u);
  EXPECT_EQ(view.properties[0].param, 24);
  EXPECT_EQ(view.properties[0].getter, REALstandardGetter);
  ASSERT_EQ(view.eventCount, 2u);
  EXPECT_STREQ(view.events[1].declaration, "Warning(msg as string)");
  EXPECT_EQ(sample.events[0].forSystemUse, reinterpret_cast<RBInteger>(&view.events[0]));
  EXPECT_EQ(sample.events[1].forSystemUse, reinterpret_cast<RBInteger>(&view.events[1]));
  ASSERT_EQ(view.constantCount, 1u);
  EXPECT_STREQ(view.constants[0].declaration, "K = 2");
  EXPECT_EQ(view.eventInstances, sample.instances);
  EXPECT_STREQ(view.interfaces, "I");
  EXPECT_EQ(view.attributes, nullptr);
  EXPECT_EQ(view.attributeCount, 0u);
  ASSERT_EQ(view.sharedPropertyCount, 1u);
  EXPECT_EQ(view.sharedProperties[0].setter, Handler<5>);
  ASSERT_EQ(view.sharedMethodCount, 1u);
  EXPECT_STREQ(view.sharedMethods[0].declaration, "S");
}

TEST_F(RegistrationTest, ModuleMembersWithoutScopeBecomePublic) {
  REALmethodDefinition methods[] = {{Handler<1>, nullptr, "A", 0, 0, nullptr},
                                    {Handler<2>, nullptr, "B", 16 | 4, 0, nullptr}};
  REALconstant constants[] = {{"K = 1", nullptr, 4, 0, nullptr}};
  REALproperty properties[1] = {};
  properties[0].flags = 0x20;
  REALenumeration enums[1] = {};
  REALmoduleDefinition module{};
  module.methods = methods;
  module.methodCount = 2;
  module.constants = constants;
  module.constantCount = 1;
  module.properties = properties;
  module.propertyCount = 1;
  module.enums = enums;
  module.enumCount = 1;
  Host(2013.03);

  MyREALRegisterModule(module);

  ASSERT_EQ(captures_.modules.size(), 1u);
  EXPECT_EQ(module.version, 12u);
  EXPECT_EQ(methods[0].mFlags, 0x40u);
  EXPECT_EQ(methods[1].mFlags, 20u);
  EXPECT_EQ(constants[0].mFlags, 0x44u);
  EXPECT_EQ(properties[0].flags, 0x20u);
  EXPECT_EQ(enums[0].mFlags, 0x40u);
}

TEST_F(RegistrationTest, OldHostsGetModuleRecordsWithoutAttributes) {
  REALmethodDefinition methods[] = {{Handler<1>, nullptr, "A", 16, 0, nullptr},
                                    {Handler<2>, nullptr, "B", 0, 0, nullptr}};
  REALmoduleDefinition module{};
  module.methods = methods;
  module.methodCount = 2;
  Host(2011.0);

  MyREALRegisterModule(module);

  ASSERT_EQ(captures_.modules.size(), 1u);
  ASSERT_EQ(module.methodCount, 2u);
  const auto* old = reinterpret_cast<const REALmethodDefinition9*>(module.methods);
  EXPECT_EQ(old[1].function, Handler<2>);
  EXPECT_STREQ(old[1].declaration, "B");
  EXPECT_EQ(old[1].mFlags, 0x40u);
  EXPECT_EQ(module.constants, nullptr);
}

std::string Rewritten(const char* declaration, bool asSetter) {
  char out[kDeclarationBufferSize];
  return ExtensionDeclaration(declaration, "Folderitem", asSetter, out) ? out : "<failed>";
}

TEST(ExtensionDeclaration, EveryFolderitemExtensionTakesTheItemFirst) {
  const std::pair<const char*, const char*> cases[] = {
      {"OpenAsPNGKRV(gamma as single = 0.0, AllowDamaged as Boolean = false) as PNGPictureKRV",
       "OpenAsPNGKRV(extends ref as Folderitem, gamma as single = 0.0, AllowDamaged as Boolean "
       "= false) as PNGPictureKRV"},
      {"SaveAsPNGKRV(pic as picture, gamma as single = 0.0) as boolean",
       "SaveAsPNGKRV(extends ref as Folderitem, pic as picture, gamma as single = 0.0) as "
       "boolean"},
      {"SaveAsPNGKRV(pic as picture, mask as picture, gamma as single = 0.0) as boolean",
       "SaveAsPNGKRV(extends ref as Folderitem, pic as picture, mask as picture, gamma as single "
       "= 0.0) as boolean"},
      {"SaveAsPNGKRV(pic as picture, gamma as single, Interlace as Boolean, FilterType as "
       "integer) as boolean",
       "SaveAsPNGKRV(extends ref as Folderitem, pic as picture, gamma as single, Interlace as "
       "Boolean, FilterType as integer) as boolean"},
      {"SaveAsPNGKRV(pic as picture, mask as picture, gamma as single, Interlace as Boolean, "
       "FilterType as integer) as boolean",
       "SaveAsPNGKRV(extends ref as Folderitem, pic as picture, mask as picture, gamma as "
       "single, Interlace as Boolean, FilterType as integer) as boolean"},
      {"SaveAs8BitPNGKRV(pic as picture, colors() as color, gamma as single = 0.0) as boolean",
       "SaveAs8BitPNGKRV(extends ref as Folderitem, pic as picture, colors() as color, gamma as "
       "single = 0.0) as boolean"},
      {"SaveAs8BitAlphaPNGKRV(pic as picture, colors() as color, alphas() as integer, gamma as "
       "single = 0.0) as boolean",
       "SaveAs8BitAlphaPNGKRV(extends ref as Folderitem, pic as picture, colors() as color, "
       "alphas() as integer, gamma as single = 0.0) as boolean"},
      {"SaveAs8BitPNGKRV(pic as picture, colors() as color, gamma as single, Interlace as "
       "Boolean, FilterType as integer) as boolean",
       "SaveAs8BitPNGKRV(extends ref as Folderitem, pic as picture, colors() as color, gamma as "
       "single, Interlace as Boolean, FilterType as integer) as boolean"},
      {"SaveAs8BitAlphaPNGKRV(pic as picture, colors() as color, alphas() as integer, gamma as "
       "single, Interlace as Boolean, FilterType as integer) as boolean",
       "SaveAs8BitAlphaPNGKRV(extends ref as Folderitem, pic as picture, colors() as color, "
       "alphas() as integer, gamma as single, Interlace as Boolean, FilterType as integer) as "
       "boolean"},
  };
  for (const auto& [declaration, expected] : cases) {
    EXPECT_EQ(Rewritten(declaration, false), expected);
  }
}

TEST(ExtensionDeclaration, GettersAndSettersOfPropertyLikeMethods) {
  EXPECT_EQ(Rewritten("Name as string", false), "Name(extends ref as Folderitem) as string");
  EXPECT_EQ(Rewritten("Name as string", true),
            "Name(extends ref as Folderitem, assigns value as string)");
  EXPECT_EQ(Rewritten("Name", false), "Name(extends ref as Folderitem)");
  EXPECT_EQ(Rewritten("Name", true), "Name(extends ref as Folderitem, assigns value)");
  EXPECT_EQ(Rewritten("Size(unit as integer) as integer", true),
            "Size(extends ref as Folderitem, unit as integer, assigns value as integer)");
}

TEST(ExtensionDeclaration, ResultsThatOverflowTheBufferFail) {
  const std::string fits(kDeclarationBufferSize - 1 - strlen("(extends ref as Folderitem)"), 'x');
  EXPECT_EQ(Rewritten(fits.c_str(), false), fits + "(extends ref as Folderitem)");
  const std::string tooLong = fits + "x";
  EXPECT_EQ(Rewritten(tooLong.c_str(), false), "<failed>");
  EXPECT_EQ(Rewritten(fits.c_str(), true), "<failed>");
}

TEST_F(RegistrationTest, ExtensionBecomesAModuleFrom2013) {
  Host(2013.0);
  REALmethodDefinition methods[] = {
      {Handler<1>, nullptr, "Open(gamma as single) as boolean", 4, 0, nullptr},
      {Handler<2>, Handler<3>, "Name as string", 0, 0, nullptr}};
  REALclassDefinition ext = ClassWithMethods("Folderitem", methods, 2);

  RegisterExtension(ext, "PNG");

  EXPECT_TRUE(captures_.extensions.empty());
  ASSERT_EQ(captures_.modules.size(), 1u);
  const REALmoduleDefinition& module = captures_.modules[0].copy;
  EXPECT_STREQ(module.name, "FolderitemPNGExtensionKRV");
  EXPECT_EQ(module.version, 11u);
  ASSERT_EQ(module.methodCount, 3u);
  const REALproc handlers[] = {Handler<1>, Handler<3>, Handler<2>};
  const char* declarations[] = {"Open(extends ref as Folderitem, gamma as single) as boolean",
                                "Name(extends ref as Folderitem, assigns value as string)",
                                "Name(extends ref as Folderitem) as string"};
  const uint32_t flags[] = {20, 16, 16};
  for (size_t i = 0; i < 3; ++i) {
    EXPECT_EQ(module.methods[i].function, handlers[i]) << i;
    EXPECT_EQ(module.methods[i].setterFunction, nullptr) << i;
    EXPECT_STREQ(module.methods[i].declaration, declarations[i]);
    EXPECT_EQ(module.methods[i].mFlags, flags[i]) << i;
  }
  EXPECT_EQ(methods[0].mFlags, 4u);
}

TEST_F(RegistrationTest, ExtensionIsAClassExtensionBefore2013AndFrom3000) {
  REALmethodDefinition methods[] = {{Handler<1>, nullptr, "Open as boolean", 4, 0, nullptr}};
  REALclassDefinition ext = ClassWithMethods("Folderitem", methods, 1);
  Host(3000.0);
  RegisterExtension(ext, "PNG");
  ASSERT_EQ(captures_.extensions.size(), 1u);
  EXPECT_EQ(captures_.extensions[0].at, &ext);
  EXPECT_EQ(ext.version, 13u);
  EXPECT_EQ(ext.methods, methods);

  Host(2011.0);
  RegisterExtension(ext, "PNG");
  ASSERT_EQ(captures_.extensions.size(), 2u);
  const auto* old = reinterpret_cast<const REALmethodDefinition9*>(ext.methods);
  EXPECT_NE(ext.methods, methods);
  EXPECT_STREQ(old[0].declaration, "Open as boolean");
  EXPECT_TRUE(captures_.modules.empty());
}

TEST_F(RegistrationTest, EmptyTablesAndUnbuildableExtensionsRegisterNothing) {
  const std::string tooLong(kDeclarationBufferSize, 'x');
  REALmethodDefinition methods[] = {{Handler<1>, nullptr, tooLong.c_str(), 4, 0, nullptr}};
  REALclassDefinition empty = ClassWithMethods("Folderitem", nullptr, 0);
  REALclassDefinition unbuildable = ClassWithMethods("Folderitem", methods, 1);
  for (double host : {3000.0, 2013.04}) {
    Host(host);
    RegisterExtension(empty, "PNG");
    RegisterGlobalMethods(nullptr, 0, "PNG");
  }
  RegisterExtension(unbuildable, "PNG");
  EXPECT_TRUE(captures_.extensions.empty());
  EXPECT_TRUE(captures_.modules.empty());
  EXPECT_TRUE(captures_.methods.empty());
}

TEST_F(RegistrationTest, GlobalMethodsBecomeAModuleFrom2013) {
  Host(2013.04);
  REALmethodDefinition globals[] = {{Handler<1>, nullptr, "A(x as integer)", 4, 0, nullptr},
                                    {Handler<2>, nullptr, "B as string", 0, 0, nullptr}};
  RegisterGlobalMethods(globals, 2, "PNG");
  ASSERT_EQ(captures_.modules.size(), 1u);
  const REALmoduleDefinition& module = captures_.modules[0].copy;
  EXPECT_STREQ(module.name, "PNGGlobalsKRV");
  EXPECT_EQ(module.version, 13u);
  ASSERT_EQ(module.methodCount, 2u);
  EXPECT_EQ(module.methods[1].function, Handler<2>);
  EXPECT_STREQ(module.methods[1].declaration, "B as string");
  EXPECT_EQ(module.methods[0].mFlags, 20u);
  EXPECT_EQ(module.methods[1].mFlags, 16u);
  EXPECT_EQ(globals[1].mFlags, 0u);
  EXPECT_TRUE(captures_.methods.empty());
}

TEST_F(RegistrationTest, GlobalMethodsRegisterOneByOneBefore2013AndFrom3000) {
  REALmethodDefinition globals[] = {{Handler<1>, nullptr, "A", 4, 0, nullptr},
                                    {Handler<2>, nullptr, "B", 4, 0, nullptr}};
  for (double host : {2012.0, 3000.0}) {
    Host(host);
    RegisterGlobalMethods(globals, 2, "PNG");
  }
  const std::vector<REALmethodDefinition*> expected = {&globals[0], &globals[1], &globals[0],
                                                       &globals[1]};
  EXPECT_EQ(captures_.methods, expected);
  EXPECT_TRUE(captures_.modules.empty());
}

}  // namespace
