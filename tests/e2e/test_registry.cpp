// What the plug-in registers with the running host: layout versions, flags, record sizes, and the
// whole public API (classes, the folder item extension, the global methods) exactly and in order.
#include "tests/e2e/Fixture.h"

namespace e2e {
namespace {

// What registration gives each host, by the host version (a profile's version field): the
// control version, the layout and version word the classes arrive in, what the plug-in's mark
// for members that need pictures becomes (console-safe 4, or nothing), and whether the folder
// item extension and the global methods come as modules. A profile of a version not listed
// here fails until its row is added.
struct HostExpectation {
  double version;
  int32_t control;
  uint32_t layout, versionWord;
  uint32_t pictureMark;
  bool modules;
};
const HostExpectation kHosts[] = {
    {2010.0, 9, 9, 13, 0, false},   {2011.5, 9, 9, 13, 4, false},   {2012.0, 10, 13, 10, 4, false},
    {2013.0, 11, 13, 11, 4, true},  {2013.04, 13, 13, 13, 4, true}, {2016.0, 13, 13, 13, 4, true},
    {2017.0, 13, 13, 13, 4, true},  {2018.02, 13, 13, 13, 4, true}, {2019.1, 13, 13, 13, 4, true},
    {3000.0, 13, 13, 13, 4, false},
};

const HostExpectation& Expected() {
  for (const HostExpectation& h : kHosts) {
    if (h.version == Profile().version) return h;
  }
  ADD_FAILURE() << "no registry expectations for host version " << Profile().version;
  static const HostExpectation none{};
  return none;
}

// Flags of the tables: C is console-safe; P is the plug-in's mark for what needs pictures.
constexpr uint32_t C = 4;
constexpr uint32_t P = 0x40000;
constexpr uint32_t R = 2;  // properties: run time only

uint32_t Flags(uint32_t table) {
  return (table & ~P) | ((table & P) ? Expected().pictureMark : 0);
}

struct Property {
  const char* name;
  const char* type;
  uint32_t flags;
};

struct Method {
  const char* declaration;
  uint32_t flags;
};

struct Class {
  const char* name;
  bool constructor;
  std::vector<Property> properties;
  std::vector<Method> methods;
  std::vector<const char*> events;
  std::vector<const char*> constants;
};

const std::vector<Method> kLibVersion = {{"PNGLibVersion as string", C}};

const std::vector<Class>& Classes() {
  static const std::vector<Class> classes = {
      {"PNGReaderKRV",
       true,
       {{"Width", "Integer", R | C},
        {"Height", "Integer", R | C},
        {"InterlaceType", "Integer", R | C},
        {"ColorType", "Integer", R | C},
        {"BitDepth", "Integer", R | C},
        {"Interlacing", "Integer", R | C},
        {"Mask", "Picture", R | P},
        {"Pict", "Picture", R | P},
        {"SwapRB", "Boolean", R | C},
        {"SourceData", "String", R | C},
        {"SourceFile", "FolderItem", R | C},
        {"AllowDamaged", "Boolean", R | C}},
       {{"OpenSpecialData(data as string) as boolean", C},
        {"CombinePictureWithMask as picture", P},
        {"ApplyOptions(gamma as double = 0.0, ScreenGamma as double = -1.0) as boolean", C},
        {"OpenFile(file as folderitem) as boolean", C},
        {"OpenData(data as string) as boolean", C},
        {"Open(file as folderitem, data as string) as boolean", C},
        {"ReadPicture as boolean", P},
        {"RowBytes as integer", C},
        {"ReadRow as memoryblock", C},
        {"ReadRow(mem as memoryblock) as boolean", C},
        {"ReadRowMaskOnly(mem as memoryblock) as boolean", C},
        {"ReadRowAlphaOnly(mem as memoryblock) as boolean", C},
        {"ReadICCProfile(byref name as string, byref compression as integer, byref profile as "
         "string) as boolean",
         C},
        {"ReadsRGBTag(byref file_srgb_intent as integer) as boolean", C}},
       {"Error(msg as string)", "Warning(msg as string)"},
       {}},
      {"PNGWriterKRV",
       true,
       {{"Width", "Integer", R | C},
        {"Height", "Integer", R | C},
        {"bpc", "Integer", R | C},
        {"Type", "Integer", R | C},
        {"Rowbytes", "Integer", R | C}},
       {{"SetResolution(ResolutionHorizontal as integer, ResolutionVertical as integer, Unit as "
         "integer) as boolean",
         C},
        {"SetsRGB(intent as integer) as boolean", C},
        {"SetICCProfile(name as string, CompressionType as integer, Profile as string) as boolean",
         C},
        {"SetGamma(gamma as double = 0.0) as boolean", C},
        {"OpenWriteDestination(file as folderitem) as boolean", C},
        {"WriteRow(row as memoryblock)", C},
        {"Finish as string", C},
        {"CloseDestination", C},
        {"WriteInfo as boolean", C},
        {"WriteRows as boolean", C},
        {"WriteEnd as boolean", C},
        {"SetPalette as boolean", C},
        {"SetAlphas as boolean", C},
        {"SetHeader(Interlace as boolean = false, Filter as integer = -1, Compression as Integer = "
         "-1) as boolean",
         C},
        {"SetPaletteData(colors() as color) as boolean", C},
        {"SetAlphaData(alphas() as integer, colors() as color) as boolean", C},
        {"SetRGBPicture(pict as picture, mask as picture = nil) as boolean", P},
        {"SetGrayPicture(pict as picture, mask as picture = nil) as boolean", P},
        {"SetRows(rows() as memoryblock) as boolean", P},
        {"SetPalettePicture(pict as picture) as boolean", P}},
       {"Error(msg as string)", "Warning(msg as string)"},
       {"ResolutionUnknown = 0", "ResolutionMeter = 1", "ResolutionDPI = 2", "TypeGray = 0",
        "TypePalette = 1", "TypeRGB = 2", "TypeRGBA = 6", "TypeGrayA = 4"}},
      {"PNGPictureKRV",
       false,
       {{"Width", "Integer", R | C},
        {"Height", "Integer", R | C},
        {"Mask", "Picture", R | P},
        {"Pict", "Picture", R | P}},
       {{"CombinePictureWithMask as picture", P}},
       {},
       {"kDefaultGamma = 0"}},
  };
  return classes;
}

const std::vector<Method> kExtension = {
    {"OpenAsPNGKRV(gamma as single = 0.0, AllowDamaged as Boolean = false) as PNGPictureKRV", C},
    {"SaveAsPNGKRV(pic as picture, gamma as single = 0.0) as boolean", P},
    {"SaveAsPNGKRV(pic as picture, mask as picture, gamma as single = 0.0) as boolean", P},
    {"SaveAsPNGKRV(pic as picture, gamma as single, Interlace as Boolean, FilterType as integer) "
     "as boolean",
     P},
    {"SaveAsPNGKRV(pic as picture, mask as picture, gamma as single, Interlace as Boolean, "
     "FilterType as integer) as boolean",
     P},
    {"SaveAs8BitPNGKRV(pic as picture, colors() as color, gamma as single = 0.0) as boolean", P},
    {"SaveAs8BitAlphaPNGKRV(pic as picture, colors() as color, alphas() as integer, gamma as "
     "single = 0.0) as boolean",
     P},
    {"SaveAs8BitPNGKRV(pic as picture, colors() as color, gamma as single, Interlace as Boolean, "
     "FilterType as integer) as boolean",
     P},
    {"SaveAs8BitAlphaPNGKRV(pic as picture, colors() as color, alphas() as integer, gamma as "
     "single, Interlace as Boolean, FilterType as integer) as boolean",
     P},
};

const std::vector<Method> kGlobals = {
    {"PNGStringToPNGPictureKRV(data as string, gamma as single = 0.0, AllowDamaged as boolean = "
     "false) as PNGPictureKRV",
     C},
    {"PNGStringToPictureKRV(data as string, gamma as single = 0.0, AllowDamaged as boolean = "
     "false) as picture",
     P},
    {"PictureToPNGStringKRV(pic as picture, gamma as single = 0.0) as string", P},
    {"PictureToPNGStringKRV(pic as picture, mask as picture, gamma as single = 0.0) as string", P},
    {"PictureToPNGStringKRV(pic as picture, gamma as single, Interlace as Boolean, FilterType as "
     "integer) as string",
     P},
    {"PictureToPNGStringKRV(pic as picture, mask as picture, gamma as single, Interlace as "
     "Boolean, FilterType as integer) as string",
     P},
    {"CgBIToPNGStringKRV(data as string) as string", C},
};

// Extension methods registered as module methods take the folder item as their first parameter.
std::string AsModuleMethod(const std::string& declaration) {
  const size_t open = declaration.find('(');
  return declaration.substr(0, open) + "(extends ref as Folderitem, " +
         declaration.substr(open + 1);
}

void ExpectMethods(const std::vector<emu::MethodInfo>& got, const std::vector<Method>& expected,
                   uint32_t extraFlags, bool extension) {
  ASSERT_EQ(got.size(), expected.size());
  for (size_t i = 0; i < expected.size(); ++i) {
    const std::string declaration =
        extension ? AsModuleMethod(expected[i].declaration) : expected[i].declaration;
    EXPECT_EQ(got[i].declaration, declaration);
    EXPECT_EQ(got[i].flags, Flags(expected[i].flags) | extraFlags) << declaration;
    EXPECT_NE(got[i].handler, nullptr) << declaration;
  }
}

class Registry : public PluginTest {};

TEST_F(Registry, LayoutVersionsAndRecordSizes) {
  const HostExpectation& host = Expected();
  EXPECT_EQ(Host().GetRegistry().pluginVersion, host.control);
  for (const Class& expected : Classes()) {
    SCOPED_TRACE(expected.name);
    const emu::ClassInfo* info = Host().GetRegistry().FindClass(expected.name);
    ASSERT_NE(info, nullptr);
    // Hosts that take the older layout get the table's own version word with it.
    EXPECT_EQ(info->layoutVersion, host.layout);
    EXPECT_EQ(info->versionWord, host.versionWord);
    EXPECT_EQ(info->flags, 4u);
    EXPECT_EQ(info->dataSize % 16, 0u);
    EXPECT_TRUE(info->superName.empty());
    EXPECT_EQ(info->constructor != nullptr, expected.constructor);
    EXPECT_NE(info->destructor, nullptr);
    for (const emu::PropertyInfo& p : info->properties) {
      EXPECT_LT(static_cast<size_t>(p.param), info->dataSize) << p.name;
    }
  }
}

TEST_F(Registry, ClassesInTableOrder) {
  const emu::Registry& registry = Host().GetRegistry();
  ASSERT_EQ(registry.classes.size(), Classes().size());
  for (size_t c = 0; c < Classes().size(); ++c) {
    const Class& expected = Classes()[c];
    SCOPED_TRACE(expected.name);
    const emu::ClassInfo& info = registry.classes[c];
    EXPECT_EQ(info.name, expected.name);
    ASSERT_EQ(info.properties.size(), expected.properties.size());
    for (size_t i = 0; i < expected.properties.size(); ++i) {
      const emu::PropertyInfo& p = info.properties[i];
      EXPECT_EQ(p.name, expected.properties[i].name);
      EXPECT_EQ(p.type, expected.properties[i].type) << p.name;
      EXPECT_EQ(p.flags, Flags(expected.properties[i].flags)) << p.name;
      // AllowDamaged alone goes through handlers; every other property is the record's field.
      const bool standard = p.name != "AllowDamaged";
      EXPECT_EQ(p.StandardGetter() && p.StandardSetter(), standard) << p.name;
    }
    ExpectMethods(info.methods, expected.methods, 0, false);
    ExpectMethods(info.sharedMethods, kLibVersion, 0, false);
    ASSERT_EQ(info.events.size(), expected.events.size());
    for (size_t i = 0; i < expected.events.size(); ++i) {
      EXPECT_EQ(info.events[i].declaration, expected.events[i]);
      EXPECT_NE(info.events[i].hostWord, 0);
    }
    ASSERT_EQ(info.constants.size(), expected.constants.size());
    for (size_t i = 0; i < expected.constants.size(); ++i) {
      EXPECT_EQ(info.constants[i].declaration, expected.constants[i]);
    }
  }
}

TEST_F(Registry, FolderItemExtensionAndGlobalMethods) {
  const emu::Registry& registry = Host().GetRegistry();
  if (Expected().modules) {
    EXPECT_TRUE(registry.extensions.empty());
    EXPECT_TRUE(registry.methods.empty());
    ASSERT_EQ(registry.modules.size(), 2u);
    EXPECT_EQ(registry.modules[0].name, "FolderitemPNGExtensionKRV");
    ExpectMethods(registry.modules[0].methods, kExtension, 16, true);
    EXPECT_EQ(registry.modules[1].name, "PNGGlobalsKRV");
    ExpectMethods(registry.modules[1].methods, kGlobals, 16, false);
    return;
  }
  EXPECT_TRUE(registry.modules.empty());
  ASSERT_EQ(registry.extensions.size(), 1u);
  EXPECT_EQ(registry.extensions[0].name, "Folderitem");
  ExpectMethods(registry.extensions[0].methods, kExtension, 0, false);
  std::vector<emu::MethodInfo> globals;
  for (const emu::GlobalMethodInfo& m : registry.methods) globals.push_back(m.method);
  ExpectMethods(globals, kGlobals, 0, false);
}

TEST_F(Registry, EventsReachTheirHandlersInEveryLayout) {
  Reader reader;
  ASSERT_TRUE(reader.OpenData(samples::Bytes(20, 'x')));
  EXPECT_FALSE(reader.Ok("ApplyOptions"));
  const bool eventsAvailable = !Profile().withheld.count("GetEventInstance");
  EXPECT_EQ(!reader.errors.empty(), eventsAvailable);
}

}  // namespace
}  // namespace e2e
