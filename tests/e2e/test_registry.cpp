// What the plug-in registers with the running host: layout version, flags, record sizes and the
// public API of PNGReaderKRV, exactly and in order.
#include "tests/e2e/Fixture.h"

namespace e2e {
namespace {

uint32_t ExpectedControlVersion(double version) {
  if (version >= 2013.04) return 13;
  if (version >= 2013.03) return 12;
  if (version >= 2013.0) return 11;
  if (version >= 2012.0) return 10;
  return 9;
}

// The plug-in's console mark becomes the console-safe flag from 2010.029 on.
uint32_t ConsoleMark() {
  return Profile().version >= 2010.029 ? 4 : 0;
}

class Registry : public PluginTest {
 protected:
  const emu::ClassInfo& ReaderClass() {
    const emu::ClassInfo* info = Host().GetRegistry().FindClass("PNGReaderKRV");
    EXPECT_NE(info, nullptr);
    return *info;
  }
};

TEST_F(Registry, LayoutVersionAndRecordSize) {
  const uint32_t control = ExpectedControlVersion(Profile().version);
  EXPECT_EQ(Host().GetRegistry().pluginVersion, static_cast<int32_t>(control));
  const emu::ClassInfo& reader = ReaderClass();
  // Hosts that take the older layout get the table's own version word with it.
  EXPECT_EQ(reader.layoutVersion, control > 9 ? 13u : 9u);
  EXPECT_EQ(reader.versionWord, control > 9 ? control : 13u);
  EXPECT_EQ(reader.flags, 4u);
  EXPECT_EQ(reader.dataSize % 16, 0u);
  EXPECT_TRUE(reader.superName.empty());
  EXPECT_NE(reader.constructor, nullptr);
  EXPECT_NE(reader.destructor, nullptr);
  for (const emu::PropertyInfo& p : reader.properties) {
    EXPECT_LT(static_cast<size_t>(p.param), reader.dataSize) << p.name;
  }
}

TEST_F(Registry, ReaderPropertiesInOrder) {
  struct Expected {
    const char* name;
    const char* type;
    uint32_t flags;
    bool standard;
  };
  const uint32_t console = 4;
  const Expected expected[] = {
      {"Width", "Integer", 2 | console, true},
      {"Height", "Integer", 2 | console, true},
      {"InterlaceType", "Integer", 2 | console, true},
      {"ColorType", "Integer", 2 | console, true},
      {"BitDepth", "Integer", 2 | console, true},
      {"Interlacing", "Integer", 2 | console, true},
      {"Mask", "Picture", 2 | ConsoleMark(), true},
      {"Pict", "Picture", 2 | ConsoleMark(), true},
      {"SwapRB", "Boolean", 2 | console, true},
      {"SourceData", "String", 2 | console, true},
      {"SourceFile", "FolderItem", 2 | console, true},
      {"AllowDamaged", "Boolean", 2 | console, false},
  };
  const emu::ClassInfo& reader = ReaderClass();
  ASSERT_EQ(reader.properties.size(), std::size(expected));
  for (size_t i = 0; i < std::size(expected); ++i) {
    const emu::PropertyInfo& p = reader.properties[i];
    EXPECT_EQ(p.name, expected[i].name);
    EXPECT_EQ(p.type, expected[i].type) << p.name;
    EXPECT_EQ(p.flags, expected[i].flags) << p.name;
    EXPECT_EQ(p.StandardGetter() && p.StandardSetter(), expected[i].standard) << p.name;
  }
}

TEST_F(Registry, ReaderMethodsEventsAndSharedMethods) {
  const char* const methods[] = {
      "OpenSpecialData(data as string) as boolean",
      "CombinePictureWithMask as picture",
      "ApplyOptions(gamma as double = 0.0, ScreenGamma as double = -1.0) as boolean",
      "OpenFile(file as folderitem) as boolean",
      "OpenData(data as string) as boolean",
      "Open(file as folderitem, data as string) as boolean",
      "ReadPicture as boolean",
      "RowBytes as integer",
      "ReadRow as memoryblock",
      "ReadRow(mem as memoryblock) as boolean",
      "ReadRowMaskOnly(mem as memoryblock) as boolean",
      "ReadRowAlphaOnly(mem as memoryblock) as boolean",
      "ReadICCProfile(byref name as string, byref compression as integer, byref profile as "
      "string) as boolean",
      "ReadsRGBTag(byref file_srgb_intent as integer) as boolean",
  };
  const emu::ClassInfo& reader = ReaderClass();
  ASSERT_EQ(reader.methods.size(), std::size(methods));
  for (size_t i = 0; i < std::size(methods); ++i) {
    EXPECT_EQ(reader.methods[i].declaration, methods[i]);
    const bool picture = i == 1 || i == 6;
    EXPECT_EQ(reader.methods[i].flags, picture ? ConsoleMark() : 4u) << methods[i];
  }
  ASSERT_EQ(reader.events.size(), 2u);
  EXPECT_EQ(reader.events[0].declaration, "Error(msg as string)");
  EXPECT_EQ(reader.events[1].declaration, "Warning(msg as string)");
  EXPECT_TRUE(reader.constants.empty());
  ASSERT_EQ(reader.sharedMethods.size(), 1u);
  EXPECT_EQ(reader.sharedMethods[0].declaration, "PNGLibVersion as string");
  EXPECT_EQ(reader.sharedMethods[0].flags, 4u);
}

TEST_F(Registry, EventsReachTheirHandlersInEveryLayout) {
  Reader reader;
  ASSERT_TRUE(reader.OpenData(samples::Bytes(20, 'x')));
  EXPECT_FALSE(reader.Ok("ApplyOptions"));
  const bool eventsAvailable = !Profile().withheld.count("GetEventInstance");
  EXPECT_EQ(!reader.errors.empty(), eventsAvailable);
}

TEST_F(Registry, OnceSlotsAskTheResolverOnce) {
  Reader reader;
  ASSERT_TRUE(reader.OpenData(samples::Bytes(20, 'x')));
  reader.Ok("ApplyOptions");
  Reader again;
  again.OpenData(samples::Bytes(20, 'x'));
  again.Ok("ApplyOptions");
  for (const char* name : {"REALLockString", "REALUnlockString", "REALLockObject",
                           "REALUnlockObject", "REALGetClassData", "REALBuildString"}) {
    EXPECT_LE(Host().LookupCount(name), 1u) << name;
  }
}

}  // namespace
}  // namespace e2e
