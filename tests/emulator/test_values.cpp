// Host values as the plug-in sees them through the entry points: strings and their encodings,
// memory blocks, arrays and folder items, including the legacy record layouts.
#include <cstring>

#include "tests/emulator/FakeHost.h"

namespace {

using emutest::Entry;
using emutest::HostTest;

// "Grüße €" in UTF-8.
const std::string kText =
    "Gr\xC3\xBC\xC3\x9F"
    "e \xE2\x82\xAC";

std::string Bytes(const REALstringData& d) {
  return std::string(static_cast<const char*>(d.data), d.length);
}

TEST_F(HostTest, StringsKeepTheLegacyLayout) {
  auto build = Entry<REALBuildStringProc>("REALBuildString");
  REALstring s = build("abc", 3);
  auto* record = reinterpret_cast<REALstringLegacy*>(s);
  EXPECT_EQ(record->length, 3);
  EXPECT_EQ(record->encoding, kREALTextEncodingUnknown);
  EXPECT_EQ(std::memcmp(record->data + 1, "abc", 4), 0);  // text, then a zero byte
  EXPECT_EQ(record->usageCount, 1);
  Entry<REALStringProc>("REALLockString")(s);
  EXPECT_EQ(record->usageCount, 2);
  emu::Value owned = emu::Value::AdoptString(s);
  Entry<REALStringProc>("REALUnlockString")(s);
  EXPECT_EQ(owned.Bytes(), "abc");
  EXPECT_EQ(build(nullptr, 2), nullptr);
  EXPECT_EQ(build("x", -1), nullptr);
}

TEST_F(HostTest, StringDataConvertsToEveryEncodingAndBack) {
  const uint32_t encodings[] = {kREALTextEncodingUTF16, kREALTextEncodingUTF32,
                                kREALTextEncodingISOLatin1, kREALTextEncodingWindowsLatin1,
                                kREALTextEncodingMacRoman};
  auto getData = Entry<PluginGetStringDataProc>("PluginGetStringData");
  auto dispose = Entry<PluginDisposeStringDataProc>("PluginDisposeStringData");
  for (uint32_t enc : encodings) {
    std::string_view text = enc == kREALTextEncodingISOLatin1 || enc == kREALTextEncodingMacRoman
                                ? std::string_view(kText).substr(0, 8)  // no euro sign there
                                : std::string_view(kText);
    emu::Value source = host.MakeText(text, enc);
    REALstringData utf8;
    ASSERT_TRUE(getData(source.AsString(), kREALTextEncodingUTF8, &utf8)) << enc;
    EXPECT_EQ(Bytes(utf8), text) << enc;
    EXPECT_EQ(utf8.encoding, kREALTextEncodingUTF8);
    dispose(&utf8);
    emu::Value round = host.MakeString(text);
    REALstringData back;
    ASSERT_TRUE(getData(round.AsString(), enc, &back));
    EXPECT_EQ(Bytes(back), source.Bytes()) << enc;
    dispose(&back);
  }
  EXPECT_EQ(host.MakeText("\xE2\x82\xAC", kREALTextEncodingWindowsLatin1).Bytes(), "\x80");
  EXPECT_EQ(host.MakeText("a", kREALTextEncodingUTF16).Bytes(), std::string("a\0", 2));
}

TEST_F(HostTest, StringDataFailsOrCopiesWhereItMust) {
  auto getData = Entry<PluginGetStringDataProc>("PluginGetStringData");
  auto dispose = Entry<PluginDisposeStringDataProc>("PluginDisposeStringData");
  emu::Value text = host.MakeString(kText);
  REALstringData d;
  EXPECT_FALSE(getData(text.AsString(), kREALTextEncodingASCII, &d));
  EXPECT_EQ(d.data, nullptr);
  emu::Value binary = host.MakeString("\xFF\x00\x89PNG", kREALTextEncodingUnknown);
  ASSERT_TRUE(getData(binary.AsString(), kREALTextEncodingUTF8, &d));
  EXPECT_EQ(Bytes(d), binary.Bytes());
  EXPECT_EQ(host.Audit().openStringData, 1u);
  dispose(&d);
  dispose(&d);  // a second dispose is a fault
  emu::AuditReport report = host.Audit();
  EXPECT_EQ(report.openStringData, 0u);
  ASSERT_EQ(report.errors.size(), 1u);
  host.ClearAuditErrors();
}

TEST_F(HostTest, ConvertAndTagEncodings) {
  emu::Value latin = host.MakeText(kText.substr(0, 8), kREALTextEncodingISOLatin1);
  REALstring converted =
      Entry<REALConvertStringProc>("REALConvertString")(latin.AsString(), kREALTextEncodingUTF8);
  emu::Value utf8 = emu::Value::AdoptString(converted);
  EXPECT_EQ(utf8.Bytes(), kText.substr(0, 8));
  EXPECT_EQ(utf8.Encoding(), kREALTextEncodingUTF8);
  EXPECT_EQ(
      Entry<REALConvertStringProc>("REALConvertString")(utf8.AsString(), kREALTextEncodingASCII),
      nullptr);
  Entry<REALSetStringEncodingProc>("REALSetStringEncoding")(utf8.AsString(), 0x600);
  EXPECT_EQ(Entry<REALGetStringEncodingProc>("REALGetStringEncoding")(utf8.AsString()), 0x600u);
  REALstring built = Entry<REALBuildStringWithEncodingProc>("REALBuildStringWithEncoding")(
      "\x80", 1, kREALTextEncodingWindowsLatin1);
  EXPECT_EQ(emu::Value::AdoptString(built).Text(), "\xE2\x82\xAC");
}

TEST_F(HostTest, MemoryBlocksAreZeroFilledLegacyRecords) {
  auto make = Entry<NewMemoryBlockProc>("newMemoryBlock");
  emu::Value block = emu::Value::AdoptObject(make(16));
  auto* record = block.As<REALmemoryBlockLegacy*>();
  EXPECT_EQ(record->size, 16);
  EXPECT_EQ(Entry<MemoryBlockGetPtrProc>("memoryBlockGetPtr")(block.As<REALmemoryBlock>()),
            record->data);
  EXPECT_EQ(host.BlockBytes(block), std::string(16, '\0'));
  EXPECT_EQ(make(-1), nullptr);
  host.SetMemoryBlockLimit(1024);
  EXPECT_EQ(make(1025), nullptr);
  emu::Value bytes = host.MemoryBlockFrom("rows");
  EXPECT_EQ(host.BlockSize(bytes), 4);
}

TEST_F(HostTest, ArraysWithAndWithoutDirectStorage) {
  for (emu::Storage storage : {emu::Storage::Direct, emu::Storage::GetterOnly}) {
    emu::Value colors = host.MakeColorArray({0xFF0000, 0x00FF00}, storage);
    auto* record = colors.As<REALarrayLegacy*>();
    EXPECT_EQ(record->upperBound, 1);
    EXPECT_EQ(record->storage == nullptr, storage == emu::Storage::GetterOnly);
    auto getProc = Entry<PluginArrayGetProcProc>("PluginColorArrayGetProc");
    auto getter = reinterpret_cast<REALColorArrayGetter>(getProc(colors.As<REALarray>()));
    ASSERT_NE(getter, nullptr);
    EXPECT_EQ(getter(colors.As<REALarray>(), 1), 0x00FF00u);
    emu::Value ints = host.MakeIntegerArray({5, -7}, storage);
    auto direct = Entry<PluginArrayGetProcProc>("RuntimeArrayDirectGetGetProc");
    auto intGetter = reinterpret_cast<REALIntegerArrayGetter>(direct(ints.As<REALarray>()));
    EXPECT_EQ(intGetter(ints.As<REALarray>(), 1), -7);
    EXPECT_EQ(Entry<RuntimeUBoundProc>("RuntimeUBound")(ints.As<REALarray>()), 1);
  }
  // A getter of the wrong kind and an index out of bounds are plug-in faults.
  emu::Value ints = host.MakeIntegerArray({1});
  EXPECT_EQ(Entry<PluginArrayGetProcProc>("PluginColorArrayGetProc")(ints.As<REALarray>()),
            nullptr);
  auto intGetter = reinterpret_cast<REALIntegerArrayGetter>(
      Entry<PluginArrayGetProcProc>("PluginIntegerArrayGetProc")(ints.As<REALarray>()));
  EXPECT_EQ(intGetter(ints.As<REALarray>(), 1), 0);
  EXPECT_EQ(host.Audit().errors.size(), 2u);
  host.ClearAuditErrors();
}

TEST_F(HostTest, ObjectArraysHoldAndHandOutReferences) {
  emu::Value block = host.NewMemoryBlock(8);
  emu::Value rows = host.MakeMemoryBlockArray({block, emu::Value()});
  EXPECT_EQ(host.References(block.Handle()), 2);
  auto getter = reinterpret_cast<REALObjectArrayGetter>(
      Entry<PluginArrayGetProcProc>("PluginObjectArrayGetProc")(rows.As<REALarray>()));
  REALobject element = getter(rows.As<REALarray>(), 0);
  EXPECT_EQ(element, block.AsObject());
  EXPECT_EQ(host.References(block.Handle()), 3);
  EXPECT_EQ(getter(rows.As<REALarray>(), 1), nullptr);
  Entry<REALObjectProc>("REALUnlockObject")(element);
  rows = emu::Value();
  EXPECT_EQ(host.References(block.Handle()), 1);
}

TEST_F(HostTest, FolderItemPathsAsStringProperties) {
  emu::Value file = host.MakeFolderItem("/tmp/a b/ü.png");
  auto get = Entry<REALGetPropValueStringProc>("REALGetPropValueString");
  REALstring path = nullptr;
  ASSERT_TRUE(get(file.AsObject(), "NativePath", &path));
  EXPECT_EQ(emu::Value::AdoptString(path).Text(), "/tmp/a b/ü.png");
  ASSERT_TRUE(get(file.AsObject(), "URLPath", &path));
  EXPECT_EQ(emu::Value::AdoptString(path).Text(), "file:///tmp/a%20b/%C3%BC.png");
  EXPECT_FALSE(get(file.AsObject(), "Parent", &path));
}

TEST_F(HostTest, ValuesCountTheirReferences) {
  emu::Value a = host.MakeString("x");
  {
    emu::Value b = a;
    EXPECT_EQ(host.References(a.Handle()), 2);
    emu::Value c = std::move(b);
    EXPECT_EQ(host.References(a.Handle()), 2);
  }
  const void* handle = a.Handle();
  a = emu::Value(RBInteger{3});
  EXPECT_FALSE(host.IsAlive(handle));
  EXPECT_EQ(a.AsDouble(), 3.0);
  EXPECT_THROW(a.AsString(), emu::Error);
}

}  // namespace
