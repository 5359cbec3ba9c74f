// The audit against every fault a plug-in can commit through the entry points. The end-to-end
// suite takes a clean audit as proof that the plug-in gave back all it took and touched only live
// handles, so a fault the audit misses would pass there unseen.
#include <cstring>
#include <functional>

#include "tests/emulator/HostFixture.h"

namespace {

using namespace emutest;

// Two classes, registered straight through the resolver: one with an event, one without.
REALevent gEvents[] = {{"Changed()", 0, 0, nullptr}};
REALclassDefinition Class(const char* name, size_t eventCount) {
  REALclassDefinition c{};
  c.version = 13;
  c.name = name;
  c.dataSize = sizeof(RBInteger);
  c.events = gEvents;
  c.eventCount = eventCount;
  return c;
}
REALclassDefinition gProbe = Class("Probe", 1);
REALclassDefinition gOther = Class("Other", 0);

emu::Host& H() {
  return emu::Host::Instance();
}

// An instance of `def`, with both classes registered.
emu::Value New(const REALclassDefinition& def) {
  for (REALclassDefinition* c : {&gProbe, &gOther}) {
    Entry<void (*)(REALclassDefinition*)>("PluginRegisterClass")(c);
  }
  return H().New(def.name);
}

REALstring Build(const char* text) {
  return Entry<REALBuildStringWithEncodingProc>("REALBuildStringWithEncoding")(
      text, static_cast<int32_t>(std::strlen(text)), kREALTextEncodingUTF8);
}

void UnlockString(REALstring s) {
  Entry<REALStringProc>("REALUnlockString")(s);
}

void GetStringData(uint32_t encoding, REALstringData* d) {
  Entry<PluginGetStringDataProc>("PluginGetStringData")(H().MakeString("x").AsString(), encoding,
                                                        d);
}

void SetMask(const emu::Value& picture, const emu::Value& mask) {
  auto load = Entry<REALLoadObjectMethodProc>("REALLoadObjectMethod");
  auto set = reinterpret_cast<void (*)(REALobject, REALpicture)>(
      load(picture.AsObject(), "Mask(assigns newMask As Picture)"));
  set(picture.AsObject(), mask.As<REALpicture>());
}

REALproc ColorGetProc(const emu::Value& array) {
  return Entry<PluginArrayGetProcProc>("PluginColorArrayGetProc")(array.As<REALarray>());
}

struct Fault {
  const char* reported;  // a part of the audit's report, naming the fault
  std::function<void()> commit;
};

const Fault kFaults[] = {
    {"live string", [] { Build("kept"); }},
    {"REALUnlockString: freed string",
     [] {
       REALstring s = Build("twice");
       UnlockString(s);
       UnlockString(s);
     }},
    {"wrong entry point for a memory block",
     [] { UnlockString(H().NewMemoryBlock(1).As<REALstring>()); }},
    {"unknown handle",
     [] {
       RBInteger local = 0;
       Entry<REALObjectProc>("REALUnlockObject")(reinterpret_cast<REALobject>(&local));
     }},
    {"1 string data record(s) not disposed",
     [] {
       REALstringData d;
       GetStringData(kREALTextEncodingUTF16, &d);
     }},
    {"already disposed",
     [] {
       REALstringData d;
       GetStringData(kREALTextEncodingUTF8, &d);
       REALstringData copy = d;
       Entry<PluginDisposeStringDataProc>("PluginDisposeStringData")(&d);
       Entry<PluginDisposeStringDataProc>("PluginDisposeStringData")(&copy);
     }},
    {"made by REALGetPictureMask",
     [] { Entry<REALGetPictureMaskProc>("REALGetPictureMask")(Picture(1).As<REALpicture>(), 1); }},
    {"live graphics",
     [] {
       Entry<PictureGraphicsGetterProc>("pluginPictureGraphicsGetter")(
           Picture(1).As<REALpicture>());
     }},
    {"left locked", [] { Lock(NewPicture(1), kDesktopType); }},
    {"freed with its description locked", [] { Lock(Picture(1).As<REALpicture>(), kDesktopType); }},
    {"description is not locked", [] { Unlock(Picture(1).As<REALpicture>()); }},
    {"the mask must be another picture of the picture's size",
     [] { SetMask(Picture(2), Picture(3)); }},
    {"takes no mask",
     [] {
       emu::PictureOptions alpha;
       alpha.alphaChannel = true;
       SetMask(H().MakePicture(1, 1, std::string(4, '\0'), alpha), Picture(1));
     }},
    {"no host serves \"REALGetClassData\"",
     [] { EXPECT_EQ(Entry<void*>("REALGetClassData"), nullptr); }},
    {"Other has no event Changed()",
     [] {
       emu::Value other = New(gOther);
       Entry<GetEventInstanceProc>("GetEventInstance")(other.AsObject(), gEvents[0].forSystemUse);
     }},
    {"is no event word this host issued",
     [] {
       emu::Value probe = New(gProbe);
       Entry<GetEventInstanceProc>("GetEventInstance")(probe.AsObject(),
                                                       reinterpret_cast<RBInteger>(&gEvents[0]));
     }},
    {"asked for an array of", [] { ColorGetProc(H().MakeIntegerArray({1})); }},
    {"index 1 out of bounds",
     [] {
       emu::Value colors = H().MakeColorArray({1});
       reinterpret_cast<REALColorArrayGetter>(ColorGetProc(colors))(colors.As<REALarray>(), 1);
     }},
};

TEST_F(HostTest, AuditReportsEveryFault) {
  for (const Fault& fault : kFaults) {
    SCOPED_TRACE(fault.reported);
    Restart(emu::DesktopProfileName("2019.1"));
    fault.commit();
    const std::string report = host.Audit().Format();
    EXPECT_NE(report.find(fault.reported), std::string::npos) << report;
  }
  // Hosts before 2012 keep a failed lock until it is unlocked.
  Restart(emu::DesktopProfileName("2011.5"));
  EXPECT_FALSE(Lock(NewPicture(1), pictureGDPtr));
  EXPECT_NE(host.Audit().Format().find("left locked"), std::string::npos);
  Restart(emu::DesktopProfileName("2019.1"));  // drops what the faults left behind
}

}  // namespace
