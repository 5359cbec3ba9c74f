// Registration where the end-to-end registry test cannot see it: version thresholds between the
// emulated profiles, flag rewriting at its boundaries, record rounding, and declaration rewrites
// the plug-in's own tables never need.
#include <gtest/gtest.h>
#include <string.h>

#include <cmath>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "plugin/Registration.h"

namespace {

TEST(ControlVersion, FollowsTheHostVersionThresholds) {
  const std::pair<double, uint32_t> cases[] = {{3000.0, 13}, {2013.04, 13},  {2013.03, 12},
                                               {2013.0, 11}, {2012.999, 10}, {2012.0, 10},
                                               {2011.5, 9},  {0.0, 9},       {std::nan(""), 9}};
  for (const auto& [host, control] : cases) EXPECT_EQ(ControlVersionFor(host), control) << host;
}

TEST(Flags, ConsoleMarksFrom2010_029AndDefaultModuleScope) {
  const std::tuple<uint32_t, double, uint32_t> console[] = {
      {2 | kConsoleSafeMark, 2010.029, 2 | REALconsoleSafe},
      {kConsoleOnlyMark, 2010.029, REALconsoleOnly},
      {kConsoleSafeMark | kConsoleOnlyMark, 2019.0, 12},
      {2 | kConsoleSafeMark, 2010.028, 2},
      {4 | kConsoleOnlyMark, 2009.0, 4},
      {2 | 4, 2010.029, 6}};
  for (const auto& [flags, host, expected] : console) {
    EXPECT_EQ(ConsoleFlagsFor(flags, host), expected) << flags << " " << host;
  }
  const std::pair<uint32_t, uint32_t> scopes[] = {
      {0, REALScopePublic}, {4, 4 | REALScopePublic}, {16 | 4, 20}, {0x20, 0x20}};
  for (const auto& [flags, expected] : scopes) EXPECT_EQ(WithDefaultScope(flags), expected);
}

TEST(RecordSize, RoundsUpToSixteen) {
  const std::pair<size_t, size_t> sizes[] = {{96, 96}, {1364, 1376}, {1, 16}, {0, 0}};
  for (const auto& [size, rounded] : sizes) EXPECT_EQ(RoundedRecordSize(size), rounded) << size;
}

std::string Rewritten(const char* declaration, bool asSetter) {
  char out[kDeclarationBufferSize];
  return ExtensionDeclaration(declaration, "Folderitem", asSetter, out) ? out : "<failed>";
}

TEST(ExtensionDeclaration, GetterAndSetterForms) {
  const std::tuple<const char*, bool, const char*> cases[] = {
      {"Name as string", false, "Name(extends ref as Folderitem) as string"},
      {"Name as string", true, "Name(extends ref as Folderitem, assigns value as string)"},
      {"Name", false, "Name(extends ref as Folderitem)"},
      {"Name", true, "Name(extends ref as Folderitem, assigns value)"},
      {"Name() as string", false, "Name(extends ref as Folderitem) as string"},
      {"Size(unit as integer) as integer", false,
       "Size(extends ref as Folderitem, unit as integer) as integer"},
      {"Size(unit as integer) as integer", true,
       "Size(extends ref as Folderitem, unit as integer, assigns value as integer)"}};
  for (const auto& [declaration, setter, expected] : cases) {
    EXPECT_EQ(Rewritten(declaration, setter), expected) << declaration << " " << setter;
  }
}

TEST(ExtensionDeclaration, ResultsThatOverflowTheBufferFail) {
  const std::string fits(kDeclarationBufferSize - 1 - strlen("(extends ref as Folderitem)"), 'x');
  EXPECT_EQ(Rewritten(fits.c_str(), false), fits + "(extends ref as Folderitem)");
  EXPECT_EQ(Rewritten((fits + "x").c_str(), false), "<failed>");
  EXPECT_EQ(Rewritten(fits.c_str(), true), "<failed>");
}

// Extension methods with a setter become two module methods, setter first (no profile sees this).
std::vector<REALmoduleDefinition*>& Modules() {
  static auto* modules = new std::vector<REALmoduleDefinition*>;  // kept, as by a host
  return *modules;
}

void CaptureModule(REALmoduleDefinition* def) {
  Modules().push_back(def);
}

void* ModuleResolver(const char* name) {
  return strcmp(name, "PluginRegisterModule") == 0 ? reinterpret_cast<void*>(CaptureModule)
                                                   : nullptr;
}

// Distinct handlers, told apart by address.
template <int N>
void Handler() {
  static volatile int calls;
  calls = calls + N;
}

TEST(ExtensionModule, SettersComeBeforeTheirGetters) {
  gHost = HostFacts();
  gHost.resolver = ModuleResolver;
  gHost.version = 2013.0;
  gHost.controlVersion = 11;
  REALmethodDefinition methods[] = {
      {Handler<1>, nullptr, "Open(gamma as single) as boolean", 4, 0, nullptr},
      {Handler<2>, Handler<3>, "Name as string", 0, 0, nullptr}};
  REALclassDefinition ext{};
  ext.name = "Folderitem";
  ext.methods = methods;
  ext.methodCount = 2;
  RegisterExtension(ext, "PNG");
  gHost = HostFacts();

  ASSERT_EQ(Modules().size(), 1u);
  const REALmoduleDefinition& module = *Modules()[0];
  ASSERT_EQ(module.methodCount, 3u);
  const std::tuple<REALproc, const char*, uint32_t> expected[] = {
      {Handler<1>, "Open(extends ref as Folderitem, gamma as single) as boolean", 20},
      {Handler<3>, "Name(extends ref as Folderitem, assigns value as string)", 16},
      {Handler<2>, "Name(extends ref as Folderitem) as string", 16}};
  for (size_t i = 0; i < 3; ++i) {
    const auto& [handler, declaration, flags] = expected[i];
    EXPECT_EQ(module.methods[i].function, handler) << i;
    EXPECT_EQ(module.methods[i].setterFunction, nullptr) << i;
    EXPECT_STREQ(module.methods[i].declaration, declaration);
    EXPECT_EQ(module.methods[i].mFlags, flags) << i;
  }
}

}  // namespace
