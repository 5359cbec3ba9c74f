// What the plug-in registers with the running host: layout versions, flags, record sizes, and the
// whole public API (classes, the folder item extension, the global methods) exactly and in order.
#include "tests/e2e/Fixture.h"

namespace e2e {
namespace {

// By host version: control version, class layout and version word, the mark of members needing
// pictures, and whether the extension and globals come as modules. Unlisted versions fail.
struct HostExpectation {
  double version;
  int32_t control;
  uint32_t layout, versionWord, pictureMark;
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

// Flag letters, a space, the declaration. R: run time only (2); C: console-safe (4); P: the
// mark for what needs pictures; M: a module's method (16). Events and constants have none.
std::string Entry(const std::string& line) {
  const size_t space = line.find(' ');
  if (line.find_first_not_of("RCPM") != space) return line;
  uint32_t flags = 0;
  for (char f : line.substr(0, space)) {
    flags |= f == 'R' ? 2 : f == 'C' ? 4 : f == 'M' ? 16 : Expected().pictureMark;
  }
  return line.substr(space + 1) + " flags " + std::to_string(flags);
}

std::vector<std::string> Entries(const std::vector<std::vector<std::string>>& lists,
                                 const char* flags = "") {
  std::vector<std::string> entries;
  for (const auto& list : lists) {
    for (const std::string& line : list) entries.push_back(Entry(flags + line));
  }
  return entries;
}

// What the host took, listed the same way.
std::vector<std::string> Listed(const std::vector<emu::MethodInfo>& methods,
                                const std::string& prefix = "") {
  std::vector<std::string> listed;
  for (const emu::MethodInfo& m : methods) {
    listed.push_back(prefix + m.declaration + (m.handler ? "" : " without a handler") + " flags " +
                     std::to_string(m.flags));
  }
  return listed;
}

// Properties are record fields, AllowDamaged alone goes through handlers.
std::vector<std::string> Listed(const emu::ClassInfo& info) {
  std::vector<std::string> listed;
  for (const emu::PropertyInfo& p : info.properties) {
    const bool field = p.StandardGetter() && p.StandardSetter();
    listed.push_back(p.name + " as " + p.type + (field ? "" : " by handlers") + " flags " +
                     std::to_string(p.flags));
    EXPECT_LT(static_cast<size_t>(p.param), info.dataSize) << p.name;
  }
  for (const auto& more : {Listed(info.methods), Listed(info.sharedMethods, "shared ")}) {
    listed.insert(listed.end(), more.begin(), more.end());
  }
  for (const emu::EventInfo& e : info.events) {
    listed.push_back("event " + e.declaration + (e.hostWord ? "" : " without a word"));
  }
  for (const emu::ConstantInfo& c : info.constants) listed.push_back("const " + c.declaration);
  return listed;
}

struct Class {
  const char* name;
  bool constructor;
  std::vector<std::string> properties, methods, eventsAndConstants;
};

const std::vector<Class> kClasses = {
    {"PNGReaderKRV",
     true,
     {"RC Width as Integer", "RC Height as Integer", "RC InterlaceType as Integer",
      "RC ColorType as Integer", "RC BitDepth as Integer", "RC Interlacing as Integer",
      "RP Mask as Picture", "RP Pict as Picture", "RC SwapRB as Boolean", "RC SourceData as String",
      "RC SourceFile as FolderItem", "RC AllowDamaged as Boolean by handlers",
      "RC PixelLimit as Integer"},
     {"C OpenSpecialData(data as string) as boolean", "P CombinePictureWithMask as picture",
      "C ApplyOptions(gamma as double = 0.0, ScreenGamma as double = -1.0) as boolean",
      "C OpenFile(file as folderitem) as boolean", "C OpenData(data as string) as boolean",
      "C Open(file as folderitem, data as string) as boolean", "P ReadPicture as boolean",
      "C RowBytes as integer", "C ReadRow as memoryblock",
      "C ReadRow(mem as memoryblock) as boolean",
      "C ReadRowMaskOnly(mem as memoryblock) as boolean",
      "C ReadRowAlphaOnly(mem as memoryblock) as boolean",
      "C ReadICCProfile(byref name as string, byref compression as integer, byref profile as "
      "string) as boolean",
      "C ReadsRGBTag(byref file_srgb_intent as integer) as boolean",
      "P ReadAlphaPicture() As Boolean", "C TextCount As Integer",
      "C TextKey(index As Integer) As String", "C TextValue(index As Integer) As String",
      "C shared PNGLibVersion as string"},
     {"event Error(msg as string)", "event Warning(msg as string)"}},
    {"PNGWriterKRV",
     true,
     {"RC Width as Integer", "RC Height as Integer", "RC bpc as Integer", "RC Type as Integer",
      "RC Rowbytes as Integer", "RC Threads as Integer"},
     {"C SetResolution(ResolutionHorizontal as integer, ResolutionVertical as integer, Unit as "
      "integer) as boolean",
      "C SetsRGB(intent as integer) as boolean",
      "C SetICCProfile(name as string, CompressionType as integer, Profile as string) as boolean",
      "C SetGamma(gamma as double = 0.0) as boolean",
      "C OpenWriteDestination(file as folderitem) as boolean",
      "C WriteRow(row as memoryblock)",
      "C Finish as string",
      "C CloseDestination",
      "C WriteInfo as boolean",
      "C WriteRows as boolean",
      "C WriteEnd as boolean",
      "C SetPalette as boolean",
      "C SetAlphas as boolean",
      "C SetHeader(Interlace as boolean = false, Filter as integer = -1, Compression as Integer = "
      "-1) as boolean",
      "C SetPaletteData(colors() as color) as boolean",
      "C SetAlphaData(alphas() as integer, colors() as color) as boolean",
      "P SetRGBPicture(pict as picture, mask as picture = nil) as boolean",
      "P SetGrayPicture(pict as picture, mask as picture = nil) as boolean",
      "P SetRows(rows() as memoryblock) as boolean",
      "P SetPalettePicture(pict as picture) as boolean",
      "P SetAlphaPicture(pict As Picture) As Boolean",
      "C AddText(key As String, value As String, compressed As Boolean = False) As Boolean",
      "C shared PNGLibVersion as string"},
     {"event Error(msg as string)", "event Warning(msg as string)", "const ResolutionUnknown = 0",
      "const ResolutionMeter = 1", "const ResolutionDPI = 2", "const TypeGray = 0",
      "const TypePalette = 1", "const TypeRGB = 2", "const TypeRGBA = 6", "const TypeGrayA = 4"}},
    {"PNGPictureKRV",
     false,
     {"RC Width as Integer", "RC Height as Integer", "RP Mask as Picture", "RP Pict as Picture"},
     {"P CombinePictureWithMask as picture", "C shared PNGLibVersion as string"},
     {"const kDefaultGamma = 0"}},
};

// Flag letters follow the one for a module's methods when they come as modules.
const std::vector<std::string> kExtension = {
    "C OpenAsPNGKRV(gamma as single = 0.0, AllowDamaged as Boolean = false) as PNGPictureKRV",
    "P SaveAsPNGKRV(pic as picture, gamma as single = 0.0) as boolean",
    "P SaveAsPNGKRV(pic as picture, mask as picture, gamma as single = 0.0) as boolean",
    "P SaveAsPNGKRV(pic as picture, gamma as single, Interlace as Boolean, FilterType as integer) "
    "as boolean",
    "P SaveAsPNGKRV(pic as picture, mask as picture, gamma as single, Interlace as Boolean, "
    "FilterType as integer) as boolean",
    "P SaveAs8BitPNGKRV(pic as picture, colors() as color, gamma as single = 0.0) as boolean",
    "P SaveAs8BitAlphaPNGKRV(pic as picture, colors() as color, alphas() as integer, gamma as "
    "single = 0.0) as boolean",
    "P SaveAs8BitPNGKRV(pic as picture, colors() as color, gamma as single, Interlace as Boolean, "
    "FilterType as integer) as boolean",
    "P SaveAs8BitAlphaPNGKRV(pic as picture, colors() as color, alphas() as integer, gamma as "
    "single, Interlace as Boolean, FilterType as integer) as boolean",
    "P OpenAsAlphaPNGKRV() As Picture",
    "P SaveAsAlphaPNGKRV(pic As Picture, gamma As Single = 0.0) As Boolean",
};

const std::vector<std::string> kGlobals = {
    "C PNGStringToPNGPictureKRV(data as string, gamma as single = 0.0, AllowDamaged as boolean = "
    "false) as PNGPictureKRV",
    "P PNGStringToPictureKRV(data as string, gamma as single = 0.0, AllowDamaged as boolean = "
    "false) as picture",
    "P PictureToPNGStringKRV(pic as picture, gamma as single = 0.0) as string",
    "P PictureToPNGStringKRV(pic as picture, mask as picture, gamma as single = 0.0) as string",
    "P PictureToPNGStringKRV(pic as picture, gamma as single, Interlace as Boolean, FilterType as "
    "integer) as string",
    "P PictureToPNGStringKRV(pic as picture, mask as picture, gamma as single, Interlace as "
    "Boolean, FilterType as integer) as string",
    "C CgBIToPNGStringKRV(data as string) as string",
    "P PNGStringToAlphaPictureKRV(data As String) As Picture",
    "P AlphaPictureToPNGStringKRV(pic As Picture, gamma As Single = 0.0) As String",
    "C PNGSaveThreadsKRV as integer",
    "C PNGSaveThreadsKRV(assigns threads as integer)",
    "C PNGOpenPixelLimitKRV as integer",
    "C PNGOpenPixelLimitKRV(assigns pixels as integer)",
};

class Registry : public PluginTest {};

TEST_F(Registry, ClassesInTableOrder) {
  const HostExpectation& host = Expected();
  const emu::Registry& registry = Host().GetRegistry();
  EXPECT_EQ(registry.pluginVersion, host.control);
  ASSERT_EQ(registry.classes.size(), kClasses.size());
  for (size_t c = 0; c < kClasses.size(); ++c) {
    const Class& expected = kClasses[c];
    const emu::ClassInfo& info = registry.classes[c];
    EXPECT_EQ(info.name, expected.name);
    // Hosts that take the older layout get the table's own version word with it.
    EXPECT_EQ(info.layoutVersion, host.layout) << expected.name;
    EXPECT_EQ(info.versionWord, host.versionWord) << expected.name;
    EXPECT_EQ(info.flags, 4u);
    EXPECT_EQ(info.dataSize % 16, 0u);
    EXPECT_TRUE(info.superName.empty());
    EXPECT_EQ(info.constructor != nullptr, expected.constructor) << expected.name;
    EXPECT_NE(info.destructor, nullptr);
    EXPECT_EQ(Listed(info),
              Entries({expected.properties, expected.methods, expected.eventsAndConstants}));
  }
}

TEST_F(Registry, FolderItemExtensionAndGlobalMethods) {
  const emu::Registry& registry = Host().GetRegistry();
  if (Expected().modules) {
    EXPECT_TRUE(registry.extensions.empty() && registry.methods.empty());
    ASSERT_EQ(registry.modules.size(), 2u);
    EXPECT_EQ(registry.modules[0].name, "FolderitemPNGExtensionKRV");
    std::vector<std::string> asModule;  // the folder item comes as the first parameter
    for (std::string line : kExtension) {
      line.insert(line.find('(') + 1, "extends ref as Folderitem, ");
      if (const size_t empty = line.find(", )"); empty != std::string::npos) line.erase(empty, 2);
      asModule.push_back(line);
    }
    EXPECT_EQ(Listed(registry.modules[0].methods), Entries({asModule}, "M"));
    EXPECT_EQ(registry.modules[1].name, "PNGGlobalsKRV");
    EXPECT_EQ(Listed(registry.modules[1].methods), Entries({kGlobals}, "M"));
    return;
  }
  EXPECT_TRUE(registry.modules.empty());
  ASSERT_EQ(registry.extensions.size(), 1u);
  EXPECT_EQ(registry.extensions[0].name, "Folderitem");
  EXPECT_EQ(Listed(registry.extensions[0].methods), Entries({kExtension}));
  std::vector<emu::MethodInfo> globals;
  for (const emu::GlobalMethodInfo& m : registry.methods) globals.push_back(m.method);
  EXPECT_EQ(Listed(globals), Entries({kGlobals}));
}

TEST_F(Registry, EventsReachTheirHandlersInEveryLayout) {
  Reader reader;
  ASSERT_TRUE(reader.OpenData(samples::Bytes(20, 'x')));
  EXPECT_FALSE(reader.Ok("ApplyOptions"));
  EXPECT_EQ(!reader.errors.empty(), !Profile().withheld.count("GetEventInstance"));
}

}  // namespace
}  // namespace e2e
