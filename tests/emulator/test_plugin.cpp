// The emulator driving the fake plug-in: registration in both layouts, calls, properties,
// events, exceptions, entry-point lookups and the audit.
#include <sstream>

#include "tests/emulator/FakeHost.h"

namespace {

using emutest::PluginTest;

class CounterTest : public PluginTest {
 protected:
  emu::Value NewCounter() {
    return host.New(
        "CounterKRV",
        {{"Changed", [this](const emu::EventArgs& a) { changes.push_back(a.String(0)); }},
         {"Ask", [](const emu::EventArgs& a) { a.result = a[0].AsInteger() * 10; }}});
  }
  std::vector<std::string> changes;
};

void ExpectRegistered(const emu::Registry& r, uint32_t layout) {
  const emu::ClassInfo* c = r.FindClass("counterkrv");
  ASSERT_NE(c, nullptr);
  EXPECT_EQ(c->versionWord, 13u);
  EXPECT_EQ(c->layoutVersion, layout);
  EXPECT_EQ(c->properties.size(), 8u);
  EXPECT_EQ(c->methods.size(), 11u);
  EXPECT_EQ(c->methods[3].declaration, "Swap(byref name as string, byref n as integer) as boolean");
  EXPECT_EQ(c->constants[0].declaration, "kLimit = 10");
  ASSERT_EQ(c->events.size(), 2u);
  EXPECT_NE(c->events[0].hostWord, 0);
  EXPECT_NE(c->events[0].hostWord, c->events[1].hostWord);
  EXPECT_EQ(c->sharedMethods[0].parsed.name, "Version");
  ASSERT_EQ(r.extensions.size(), 1u);
  EXPECT_EQ(r.extensions[0].name, "Folderitem");
  ASSERT_NE(r.FindModule("FakeGlobalsKRV"), nullptr);
  ASSERT_EQ(r.methods.size(), 1u);
  EXPECT_EQ(r.pluginVersion, static_cast<int32_t>(layout));
}

TEST_F(CounterTest, RegistersInTheCurrentLayout) {
  ExpectRegistered(host.GetRegistry(), 13);
  std::ostringstream dump;
  host.DumpRegistry(dump);
  const std::string text = dump.str();
  EXPECT_LT(text.find("class CounterKRV"), text.find("extension Folderitem"));
  EXPECT_LT(text.find("module FakeGlobalsKRV"), text.find("global method \"Hello"));
  EXPECT_NE(text.find("method \"Add(amount as integer = 1) as integer\" flags 0x4"),
            std::string::npos);
}

TEST_F(CounterTest, RegistersAndRunsInTheOlderLayout) {
  emutest::StartWithPlugin(*emu::FindProfile("desktop-2011.5"));
  ExpectRegistered(host.GetRegistry(), 9);
  emu::Value counter = NewCounter();
  EXPECT_EQ(host.Call(counter, "Add", {RBInteger{2}}).AsInteger(), 2);
  EXPECT_EQ(changes, std::vector<std::string>{"added"});
  EXPECT_EQ(host.Call(counter, "Ask", {RBInteger{4}}).AsInteger(), 40);
}

TEST_F(CounterTest, OverloadsAndDefaults) {
  emu::Value counter = NewCounter();
  EXPECT_EQ(host.Call(counter, "Add").AsInteger(), 1);
  EXPECT_EQ(host.Call(counter, "Add", {RBInteger{5}}).AsInteger(), 6);
  EXPECT_EQ(host.Call(counter, "Add", {2.5}).AsDouble(), 2.5);
  EXPECT_EQ(host.Call(counter, "Mix", {1.5f}).Text(), "1.50 0 00FF00");
  EXPECT_EQ(host.Call(counter, "Mix", {2.0, true, emu::Value::Color(0xABCDEF)}).Text(),
            "2.00 1 ABCDEF");
  EXPECT_THROW(host.Call(counter, "Add", {host.MakeString("x")}), emu::Error);
  EXPECT_THROW(host.Call(counter, "Missing"), emu::Error);
  EXPECT_EQ(
      host.CallDeclaration(counter, "Add(amount as double) as double", {RBInteger{3}}).AsDouble(),
      5.5);
}

TEST_F(CounterTest, ByRefSlotsComeBackChanged) {
  emu::Value counter = NewCounter();
  emu::Value name = host.MakeString("old");
  emu::Value n(RBInteger{21});
  EXPECT_TRUE(host.Call(counter, "Swap", {emu::ByRef(name), emu::ByRef(n)}).AsBoolean());
  EXPECT_EQ(name.Text(), "was old");
  EXPECT_EQ(n.AsInteger(), 42);
  emu::Value empty, zero;
  host.Call(counter, "Swap", {emu::ByRef(empty), emu::ByRef(zero)});
  EXPECT_EQ(empty.Text(), "was ");
  EXPECT_THROW(host.Call(counter, "Swap", {name, n}), emu::Error);  // byref needs a slot
}

TEST_F(CounterTest, ArrayArguments) {
  emu::Value counter = NewCounter();
  for (emu::Storage storage : {emu::Storage::Direct, emu::Storage::GetterOnly}) {
    EXPECT_EQ(host.Call(counter, "Sum", {host.MakeIntegerArray({1, 2, 39}, storage)}).AsInteger(),
              42);
    emu::Value packed = host.Call(counter, "Pack", {host.MakeColorArray({0x01020304}, storage)});
    EXPECT_EQ(host.BlockBytes(packed), "\x04\x03\x02\x01");
    emu::Value rows =
        host.MakeMemoryBlockArray({host.NewMemoryBlock(3), host.NewMemoryBlock(4)}, storage);
    EXPECT_EQ(host.Call(counter, "Join", {rows}).AsInteger(), 7);
  }
  EXPECT_THROW(host.Call(counter, "Sum", {host.MakeColorArray({1})}), emu::Error);
}

TEST_F(CounterTest, SharedModuleGlobalAndExtensionMethods) {
  EXPECT_EQ(host.CallShared("CounterKRV", "Version").Text(), "fake 1.0");
  EXPECT_EQ(host.CallGlobal("Twice", {RBInteger{21}}).AsInteger(), 42);
  EXPECT_EQ(host.CallGlobal("Hello").Text(), "hello world");
  EXPECT_EQ(host.CallGlobal("Hello", {host.MakeString("you")}).Text(), "hello you");
  emu::Value file = host.MakeFolderItem("/tmp/abc");
  EXPECT_EQ(host.Call(file, "PathLength").AsInteger(), 8);
  EXPECT_EQ(host.Call(file, "NameLength", {RBInteger{2}}).AsInteger(), 10);
  EXPECT_EQ(host.CallDeclaration(emu::Value(), "Twice(n as integer) as integer", {RBInteger{4}})
                .AsInteger(),
            8);
}

TEST_F(CounterTest, StandardAndHandlerProperties) {
  emu::Value counter = NewCounter();
  host.SetProperty(counter, "Count", RBInteger{-4});
  host.SetProperty(counter, "scale", 0.25);
  host.SetProperty(counter, "Ratio", 1.5f);
  host.SetProperty(counter, "Flag", true);
  host.SetProperty(counter, "Tint", emu::Value::Color(0x123456));
  EXPECT_EQ(host.GetProperty(counter, "Count").AsInteger(), -4);
  EXPECT_EQ(host.GetProperty(counter, "Scale").AsDouble(), 0.25);
  EXPECT_EQ(host.GetProperty(counter, "Ratio").AsSingle(), 1.5f);
  EXPECT_TRUE(host.GetProperty(counter, "Flag").AsBoolean());
  EXPECT_EQ(host.GetProperty(counter, "Tint").AsColor(), 0x123456u);
  host.SetProperty(counter, "Hidden", RBInteger{5});  // the setter stores value * param (3)
  EXPECT_EQ(host.GetProperty(counter, "Hidden").AsInteger(), 18);
  EXPECT_THROW(host.SetProperty(counter, "Label", RBInteger{1}), emu::Error);
  EXPECT_THROW(host.GetProperty(counter, "Nothing"), emu::Error);
}

TEST_F(CounterTest, HandleFieldsTakeAndDropReferences) {
  emu::Value counter = NewCounter();
  emu::Value first = host.MakeString("first");
  emu::Value file = host.MakeFolderItem("/x");
  host.SetProperty(counter, "Label", first);
  host.SetProperty(counter, "File", file);
  EXPECT_EQ(host.References(first.Handle()), 2);
  host.SetProperty(counter, "Label", host.MakeString("second"));
  EXPECT_EQ(host.References(first.Handle()), 1);
  EXPECT_EQ(host.GetProperty(counter, "Label").Text(), "second");
  EXPECT_EQ(host.ClassName(host.GetProperty(counter, "File")), "FolderItem");
  counter = emu::Value();  // the destructor gives back both fields
  EXPECT_EQ(host.References(file.Handle()), 1);
}

TEST_F(CounterTest, EventsWithoutHandlersAndHandlersThatThrow) {
  emu::Value plain = host.New("CounterKRV");
  EXPECT_EQ(host.Call(plain, "Ask", {RBInteger{1}}).AsInteger(), -1);
  emu::Value throwing = host.New(
      "CounterKRV", {{"Changed", [](const emu::EventArgs&) { throw std::runtime_error("boom"); }}});
  EXPECT_THROW(host.Call(throwing, "Add"), std::runtime_error);
  EXPECT_EQ(host.GetProperty(throwing, "Count").AsInteger(), 1);  // the handler ran in the call
  EXPECT_THROW(host.New("CounterKRV", {{"Missing", [](const emu::EventArgs&) {}}}), emu::Error);
}

TEST_F(CounterTest, RaisedExceptionsReachTheCaller) {
  emu::Value counter = NewCounter();
  host.Call(counter, "Fail", {host.MakeString("memoryblock is nil")});
  ASSERT_TRUE(host.LastException().has_value());
  EXPECT_EQ(host.LastException()->className, "NilObjectException");
  EXPECT_EQ(host.LastException()->message, "memoryblock is nil");
  EXPECT_EQ(host.LastException()->errorNumber, 7);
  host.Call(counter, "Add");
  EXPECT_FALSE(host.LastException().has_value());
}

TEST_F(CounterTest, AuditFindsLeaksAndBadHandles) {
  emu::Value counter = NewCounter();
  host.Call(counter, "Leak");
  emu::AuditReport report = host.Audit();
  ASSERT_EQ(report.live.size(), 2u);  // the counter and the leaked string
  bool leakFound = false;
  for (const emu::LiveObject& o : report.live) {
    leakFound = leakFound ||
                (o.kind == emu::ObjectKind::String && o.creator == "REALBuildStringWithEncoding");
  }
  EXPECT_TRUE(leakFound) << report.Format();
  host.Call(counter, "Abuse");
  report = host.Audit();
  ASSERT_EQ(report.errors.size(), 1u);
  EXPECT_NE(report.errors[0].find("freed string"), std::string::npos) << report.errors[0];
  host.Shutdown();  // drops the leak; the fixture's audit then starts clean
  emutest::StartWithPlugin(*emu::FindProfile("desktop-2019.1"));
}

TEST_F(CounterTest, ClassDataAndEventRecordsAreChecked) {
  emu::Value counter = NewCounter();
  auto classData = emutest::Entry<REALGetClassDataProc>("REALGetClassData");
  const emu::ClassInfo* c = host.GetRegistry().FindClass("CounterKRV");
  auto* def = const_cast<REALclassDefinition*>(c->definition);
  EXPECT_NE(classData(counter.AsObject(), def), nullptr);
  emu::Value file = host.MakeFolderItem("/x");
  EXPECT_EQ(classData(file.AsObject(), def), nullptr);
  REALevent foreign{"Changed(text as string)", c->events[0].hostWord, 0, nullptr};
  auto eventInstance = emutest::Entry<GetEventInstanceProc>("GetEventInstance");
  EXPECT_EQ(eventInstance(counter.AsObject(), &foreign), nullptr);
  EXPECT_EQ(host.Audit().errors.size(), 2u);
  host.ClearAuditErrors();
}

TEST_F(CounterTest, OnceSlotsLookUpOnce) {
  emu::Value counter = NewCounter();
  for (int i = 0; i < 3; ++i) host.Call(counter, "Add");
  EXPECT_EQ(host.LookupCount("REALBuildStringWithEncoding"), 1u);
  EXPECT_EQ(host.LookupCount("REALGetClassData"), 1u);
  EXPECT_EQ(host.LookupCount("REALGetRBVersion"), 1u);
}

TEST_F(CounterTest, WithheldEntryPointsAndFallbacks) {
  emutest::StartWithPlugin(*emu::FindProfile("desktop-2019.1-intfallback"));
  emu::Value counter = NewCounter();
  host.Call(counter, "Fail", {host.MakeString("m")});
  EXPECT_EQ(host.LastException()->errorNumber, 7);  // set through REALSetPropValueInt
  EXPECT_EQ(host.LookupCount("REALSetPropValueInteger"), 1u);
  EXPECT_EQ(host.LookupCount("REALSetPropValueInt"), 1u);
  EXPECT_EQ(host.Call(counter, "Sum", {host.MakeIntegerArray({4, 5})}).AsInteger(), 9);
  EXPECT_EQ(emutest::Entry<void*>("PluginIntegerArrayGetProc"), nullptr);

  emutest::StartWithPlugin(*emu::FindProfile("desktop-2019.1-bare"));
  emu::Value bare = NewCounter();
  host.Call(bare, "Add");
  EXPECT_TRUE(changes.empty());  // no GetEventInstance: no events
  host.Call(bare, "Fail", {host.MakeString("m")});
  EXPECT_FALSE(host.LastException().has_value());
}

TEST_F(CounterTest, HostVersionAndApplicationClassesFollowTheProfile) {
  auto version = emutest::Entry<REALGetRBVersionProc>("REALGetRBVersion");
  auto classRef = emutest::Entry<PluginObjectTypeProc>("pluginObjectType");
  EXPECT_EQ(version(), 2019.1);
  EXPECT_NE(classRef("Application"), nullptr);
  EXPECT_EQ(classRef("ConsoleApplication"), nullptr);
  EXPECT_EQ(classRef("CounterKRV"), classRef("counterkrv"));
  emutest::StartWithPlugin(*emu::FindProfile("console-2019.1"));
  classRef = emutest::Entry<PluginObjectTypeProc>("pluginObjectType");
  EXPECT_EQ(classRef("Application"), nullptr);
  EXPECT_NE(classRef("ConsoleApplication"), nullptr);
}

}  // namespace
