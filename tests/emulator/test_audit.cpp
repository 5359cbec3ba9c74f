// The audit against every fault a plug-in can commit through the entry points. The end-to-end
// suite takes a clean audit as proof that the plug-in gave back all it took and touched only live
// handles, so a fault the audit misses would pass there unseen.
#include <cstring>
#include <functional>

#include "tests/emulator/HostFixture.h"

namespace {

using emutest::Entry;
using emutest::HostTest;

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

REALpicture NewPicture(RBInteger width) {
  return Entry<NewPictureProc>("newPicture")(width, 1, 32);
}

emu::Value Picture(RBInteger width) {
  return emu::Value::AdoptObject(NewPicture(width));
}

bool Lock(REALpicture picture, int32_t type) {
  REALpictureDescription desc{};
  return Entry<REALLockPictureDescriptionProc>("REALLockPictureDescription")(picture, &desc, type);
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
  const char* what;
  std::function<void()> commit;
  const char* reported;  // a part of the audit's report
};

const Fault kFaults[] = {
    {"a string never given back", [] { Build("kept"); }, "live string"},
    {"a string given back twice",
     [] {
       REALstring s = Build("twice");
       UnlockString(s);
       UnlockString(s);
     },
     "REALUnlockString: freed string"},
    {"an object given back as a string",
     [] { UnlockString(H().NewMemoryBlock(1).As<REALstring>()); },
     "wrong entry point for a memory block"},
    {"a pointer that is no handle",
     [] {
       RBInteger local = 0;
       Entry<REALObjectProc>("REALUnlockObject")(reinterpret_cast<REALobject>(&local));
     },
     "unknown handle"},
    {"string data never disposed",
     [] {
       REALstringData d;
       Entry<PluginGetStringDataProc>("PluginGetStringData")(H().MakeString("x").AsString(),
                                                             kREALTextEncodingUTF16, &d);
     },
     "1 string data record(s) not disposed"},
    {"string data disposed twice",
     [] {
       REALstringData d;
       Entry<PluginGetStringDataProc>("PluginGetStringData")(H().MakeString("x").AsString(),
                                                             kREALTextEncodingUTF8, &d);
       REALstringData copy = d;
       Entry<PluginDisposeStringDataProc>("PluginDisposeStringData")(&d);
       Entry<PluginDisposeStringDataProc>("PluginDisposeStringData")(&copy);
     },
     "already disposed"},
    {"a created mask never given back",
     [] { Entry<REALGetPictureMaskProc>("REALGetPictureMask")(Picture(1).As<REALpicture>(), 1); },
     "made by REALGetPictureMask"},
    {"a graphics object never given back",
     [] {
       Entry<PictureGraphicsGetterProc>("pluginPictureGraphicsGetter")(
           Picture(1).As<REALpicture>());
     },
     "live graphics"},
    {"a picture left locked", [] { Lock(NewPicture(1), pictureCairoContext); }, "left locked"},
    {"a picture freed while locked",
     [] { Lock(Picture(1).As<REALpicture>(), pictureCairoContext); },
     "freed with its description locked"},
    {"an unlock without a lock",
     [] {
       Entry<UnlockPictureDescriptionProc>("unlockPictureDescription")(
           Picture(1).As<REALpicture>());
     },
     "description is not locked"},
    {"a mask of another size", [] { SetMask(Picture(2), Picture(3)); },
     "the mask must be another picture of the picture's size"},
    {"a mask on a picture with alpha channel",
     [] {
       emu::PictureOptions alpha;
       alpha.alphaChannel = true;
       SetMask(H().MakePicture(1, 1, std::string(4, '\0'), alpha), Picture(1));
     },
     "takes no mask"},
    {"an entry point no host serves", [] { EXPECT_EQ(Entry<void*>("REALGetClassData"), nullptr); },
     "no host serves \"REALGetClassData\""},
    {"an event asked of an object of another class",
     [] {
       emu::Value other = New(gOther);
       Entry<GetEventInstanceProc>("GetEventInstance")(other.AsObject(), gEvents[0].forSystemUse);
     },
     "Other has no event Changed()"},
    {"an event asked by its record's address",
     [] {
       emu::Value probe = New(gProbe);
       Entry<GetEventInstanceProc>("GetEventInstance")(probe.AsObject(),
                                                       reinterpret_cast<RBInteger>(&gEvents[0]));
     },
     "is no event word this host issued"},
    {"an array asked for as another kind", [] { ColorGetProc(H().MakeIntegerArray({1})); },
     "asked for an array of"},
    {"an array element past the end",
     [] {
       emu::Value colors = H().MakeColorArray({1});
       reinterpret_cast<REALColorArrayGetter>(ColorGetProc(colors))(colors.As<REALarray>(), 1);
     },
     "index 1 out of bounds"},
};

TEST_F(HostTest, AuditReportsEveryFault) {
  for (const Fault& fault : kFaults) {
    SCOPED_TRACE(fault.what);
    Restart("linux-desktop-2019.1");
    fault.commit();
    const std::string report = host.Audit().Format();
    EXPECT_NE(report.find(fault.reported), std::string::npos) << report;
  }
  // Hosts before 2012 keep a failed lock until it is unlocked.
  Restart("linux-desktop-2011.5");
  EXPECT_FALSE(Lock(NewPicture(1), pictureGDPtr));
  EXPECT_NE(host.Audit().Format().find("left locked"), std::string::npos);
  Restart("linux-desktop-2019.1");  // drops what the faults left behind
}

}  // namespace
