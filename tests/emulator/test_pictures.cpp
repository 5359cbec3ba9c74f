// Host pictures: bitmap contexts in every format, gd images, masks, drawing, representations,
// picture types, the bitmap context queries and the audit of picture references and locks.
#include <dlfcn.h>
#include <gd.h>

#include "tests/emulator/FakeHost.h"

namespace {

using emutest::Entry;

struct Px {
  uint8_t r, g, b, a;
};

std::string Bytes(std::initializer_list<Px> pixels) {
  std::string out;
  for (Px p : pixels) out += {char(p.r), char(p.g), char(p.b), char(p.a)};
  return out;
}

std::string Repeat(Px p, size_t count) {
  std::string out;
  for (size_t i = 0; i < count; ++i) out += Bytes({p});
  return out;
}

Px At(const std::string& rgba, size_t i) {
  return {uint8_t(rgba[4 * i]), uint8_t(rgba[4 * i + 1]), uint8_t(rgba[4 * i + 2]),
          uint8_t(rgba[4 * i + 3])};
}

void ExpectNear(Px got, Px want, int tolerance) {
  EXPECT_NEAR(got.r, want.r, tolerance);
  EXPECT_NEAR(got.g, want.g, tolerance);
  EXPECT_NEAR(got.b, want.b, tolerance);
  EXPECT_EQ(got.a, want.a);
}

emu::Value NewPicture(RBInteger width, RBInteger height, RBInteger depth = 32) {
  return emu::Value::AdoptObject(Entry<NewPictureProc>("newPicture")(width, height, depth));
}

REALpicture Pic(const emu::Value& v) {
  return v.As<REALpicture>();
}

REALproc Method(const emu::Value& object, const char* declaration) {
  return Entry<REALLoadObjectMethodProc>("REALLoadObjectMethod")(object.AsObject(), declaration);
}

const char* const kDrawInteger =
    "DrawPicture(Image as Picture, x as Integer, y as Integer, w as Integer, h as Integer, "
    "sx as Integer = 0, sy as Integer = 0, sw as Integer = -10000, sh as Integer = -10000)";
const char* const kDrawDouble =
    "DrawPicture(Image as Picture, x as Double, y as Double, w as Double, h as Double, "
    "sx as Double = 0, sy as Double = 0, sw as Double = -10000, sh as Double = -10000)";
const char* const kMask = "Mask(assigns newMask As Picture)";
const char* const kConstructor = "Constructor(width as integer, height as integer)";
const char* const kBest =
    "BestRepresentation(width As Integer, height As Integer, scale As Double) As Picture";

class PictureTest : public emutest::HostTest {
 protected:
  void Restart(const char* profile) {
    host.Shutdown();
    host.Start(*emu::FindProfile(profile));
  }

  // Draws `source` into `target` through the target's graphics with the host's overload.
  void Draw(const emu::Value& target, const emu::Value& source, RBInteger x, RBInteger y,
            RBInteger w, RBInteger h, RBInteger sx = 0, RBInteger sy = 0, RBInteger sw = -10000,
            RBInteger sh = -10000) {
    emu::Value g = emu::Value::AdoptObject(
        Entry<PictureGraphicsGetterProc>("pluginPictureGraphicsGetter")(Pic(target)));
    ASSERT_FALSE(g.IsNil());
    if (REALproc fn = Method(g, kDrawInteger)) {
      using Fn = void (*)(REALobject, REALpicture, RBInteger, RBInteger, RBInteger, RBInteger,
                          RBInteger, RBInteger, RBInteger, RBInteger);
      reinterpret_cast<Fn>(fn)(g.AsObject(), Pic(source), x, y, w, h, sx, sy, sw, sh);
      return;
    }
    REALproc fn = Method(g, kDrawDouble);
    ASSERT_NE(fn, nullptr);
    using Fn = void (*)(REALobject, REALpicture, double, double, double, double, double, double,
                        double, double);
    reinterpret_cast<Fn>(fn)(g.AsObject(), Pic(source), double(x), double(y), double(w), double(h),
                             double(sx), double(sy), double(sw), double(sh));
  }

  void SetMask(const emu::Value& picture, const emu::Value& mask) {
    reinterpret_cast<void (*)(REALobject, REALpicture)>(Method(picture, kMask))(picture.AsObject(),
                                                                                Pic(mask));
  }
};

class PaintTest : public emutest::PluginTest {};

TEST_F(PaintTest, EveryDesktopFormatThroughTheContextQueries) {
  for (int info = 1; info <= 6; ++info) {
    for (int padding : {0, 12}) {
      SCOPED_TRACE("alpha info " + std::to_string(info) + " padding " + std::to_string(padding));
      host.SetPictureFormat(info, padding);
      emu::Value pic = NewPicture(3, 2);
      EXPECT_EQ(host.PictureRgba(pic), Repeat({255, 255, 255, 255}, 6));
      ASSERT_TRUE(host.CallGlobal("PaintPicture", {pic, emu::Value::Color(0x102030)}).AsBoolean());
      EXPECT_EQ(host.PictureRgba(pic), Repeat({0x10, 0x20, 0x30, 255}, 6));
      emu::PictureRaw raw = host.RawPicture(pic);
      EXPECT_EQ(raw.format, info);
      ASSERT_EQ(raw.rowBytes, 12 + padding);
      const size_t colour = info % 2 == 0 ? 1 : 0;
      EXPECT_EQ(raw.bytes.substr(raw.rowBytes + 4 + colour, 3), "\x10\x20\x30");
      EXPECT_EQ(raw.bytes.substr(12, padding), std::string(padding, '\xA5'));
      emu::PictureCounts counts = host.PictureStats(pic);
      EXPECT_EQ(counts.lockCalls, 1);
      EXPECT_EQ(counts.openLocks, 0);
      EXPECT_EQ(counts.clearCaches, 1);
    }
  }
}

TEST_F(PaintTest, GdImagesOnConsoleHosts) {
  emutest::StartWithPlugin(*emu::FindProfile("console-2019.1"));
  emu::Value pic = NewPicture(2, 2);
  emu::PictureRaw raw = host.RawPicture(pic);
  EXPECT_EQ(raw.format, 8);
  EXPECT_EQ(raw.rowBytes, 8);
  EXPECT_EQ(raw.bytes.substr(0, 4), std::string("\xFF\xFF\xFF\x00", 4));  // 0x00FFFFFF
  ASSERT_TRUE(host.CallGlobal("PaintPicture", {pic, emu::Value::Color(0xAABBCC)}).AsBoolean());
  EXPECT_EQ(host.PictureRgba(pic), Repeat({0xAA, 0xBB, 0xCC, 255}, 4));
  EXPECT_EQ(Entry<PictureGraphicsGetterProc>("pluginPictureGraphicsGetter")(Pic(pic)), nullptr);

  emu::PictureOptions palette;
  palette.storage = emu::PictureStorage::GdPalette;
  emu::Value indexed = host.MakePicture(2, 1, Bytes({{1, 2, 3, 255}, {4, 5, 6, 255}}), palette);
  EXPECT_EQ(host.RawPicture(indexed).format, 0);
  EXPECT_EQ(host.PictureRgba(indexed), Bytes({{1, 2, 3, 255}, {4, 5, 6, 255}}));
  EXPECT_FALSE(host.CallGlobal("PaintPicture", {indexed, emu::Value::Color(0)}).AsBoolean());
  REALpictureDescription desc{};
  auto lock = Entry<REALLockPictureDescriptionProc>("REALLockPictureDescription");
  EXPECT_FALSE(lock(Pic(indexed), &desc, pictureCGBitmapContext));
  ASSERT_TRUE(lock(Pic(indexed), &desc, pictureGDPtr));
  EXPECT_FALSE(static_cast<gdImagePtr>(desc.pictureData)->trueColor);
  Entry<UnlockPictureDescriptionProc>("unlockPictureDescription")(Pic(indexed));
}

TEST_F(PictureTest, AlphaIsPremultipliedOrSevenBitAsTheStorageSays) {
  emu::PictureOptions withAlpha;
  withAlpha.alphaChannel = true;
  const std::string rgba = Bytes({{200, 100, 50, 128}, {10, 20, 30, 0}});
  for (int info = 1; info <= 6; ++info) {
    SCOPED_TRACE("alpha info " + std::to_string(info));
    host.SetPictureFormat(info, 0);
    emu::Value pic = host.MakePicture(2, 1, rgba, withAlpha);
    emu::PictureRaw raw = host.RawPicture(pic);
    EXPECT_EQ(raw.format, info > 4 ? info - 4 : info);
    const bool premultiplied = raw.format <= 2;
    const size_t colour = raw.format % 2 == 0 ? 1 : 0;
    EXPECT_EQ(uint8_t(raw.bytes[colour]), premultiplied ? 100 : 200);
    ExpectNear(At(host.PictureRgba(pic), 0), {200, 100, 50, 128}, premultiplied ? 1 : 0);
    EXPECT_EQ(At(host.PictureRgba(pic), 1).a, 0);
  }
  Restart("web-2019.1");
  emu::Value pic = host.MakePicture(2, 1, rgba, withAlpha);
  EXPECT_EQ(uint8_t(host.RawPicture(pic).bytes[3]), 63);  // 7-bit alpha of 128
  EXPECT_EQ(At(host.PictureRgba(pic), 0).a, 129);         // 255 − round(63 × 255 / 127)
  EXPECT_EQ(At(host.PictureRgba(pic), 1).a, 0);
}

TEST_F(PictureTest, MasksAreCreatedAttachedAndDetached) {
  auto getMask = Entry<REALGetPictureMaskProc>("REALGetPictureMask");
  emu::Value pic = NewPicture(2, 1);
  EXPECT_EQ(getMask(Pic(pic), 0), nullptr);
  emu::Value created = emu::Value::AdoptObject(getMask(Pic(pic), 1));
  ASSERT_FALSE(created.IsNil());
  EXPECT_EQ(host.References(created.Handle()), 2);
  EXPECT_EQ(host.PictureRgba(created), Repeat({0, 0, 0, 255}, 2));
  EXPECT_EQ(host.PictureRgba(pic), Repeat({255, 255, 255, 255}, 2));

  emu::Value grey = host.MakePicture(2, 1, Bytes({{0, 0, 0, 255}, {200, 200, 200, 255}}));
  SetMask(pic, grey);
  EXPECT_EQ(host.PictureMask(pic).Handle(), grey.Handle());
  EXPECT_EQ(host.References(created.Handle()), 1);
  EXPECT_EQ(host.PictureRgba(pic), Bytes({{255, 255, 255, 255}, {255, 255, 255, 55}}));
  SetMask(pic, emu::Value());
  EXPECT_TRUE(host.PictureMask(pic).IsNil());
  EXPECT_EQ(host.References(grey.Handle()), 1);

  emu::PictureOptions alpha;
  alpha.alphaChannel = true;
  emu::Value transparent = host.MakePicture(2, 1, Repeat({1, 2, 3, 4}, 2), alpha);
  EXPECT_EQ(getMask(Pic(transparent), 1), nullptr);
  SetMask(transparent, grey);
  SetMask(pic, NewPicture(3, 1));
  EXPECT_EQ(host.Audit().errors.size(), 2u);
  EXPECT_TRUE(host.PictureMask(transparent).IsNil());
  host.ClearAuditErrors();
}

TEST_F(PictureTest, DrawPictureScalesAndCompositesOnEitherOverload) {
  // Red opaque, green at alpha 127 through the mask, blue fully masked.
  emu::PictureOptions masked;
  masked.mask = emu::MaskSource::Grey;
  masked.maskGrey = std::string("\x00\x80\xFF", 3);
  const std::string rgb = Bytes({{255, 0, 0, 255}, {0, 255, 0, 255}, {0, 0, 255, 255}});
  const Px red{255, 0, 0, 255}, blend{128, 255, 128, 255}, white{255, 255, 255, 255};
  for (const char* profile : {"desktop-2017.0", "desktop-2019.1"}) {
    SCOPED_TRACE(profile);
    Restart(profile);
    emu::Value source = host.MakePicture(3, 1, rgb, masked);
    emu::Value target = NewPicture(6, 2);
    Draw(target, source, 0, 0, 6, 2);
    std::string row = Bytes({red, red, blend, blend, white, white});
    EXPECT_EQ(host.PictureRgba(target), row + row);

    emu::Value part = NewPicture(2, 1);
    Draw(part, source, 1, 0, 1, 1, 1, 0, 1, 1);
    EXPECT_EQ(host.PictureRgba(part), Bytes({white, blend}));

    const bool integers = emu::FindProfile(profile)->version < 2018.02;
    emu::Value g = emu::Value::AdoptObject(
        Entry<PictureGraphicsGetterProc>("pluginPictureGraphicsGetter")(Pic(target)));
    EXPECT_EQ(Method(g, kDrawInteger) != nullptr, integers);
    EXPECT_EQ(Method(g, kDrawDouble) != nullptr, !integers);

    emu::Value mask = host.PictureMask(source);
    Draw(mask, NewPicture(3, 1), 0, 0, 3, 1);
    EXPECT_EQ(At(host.PictureRgba(source), 0).a, 0);
  }
}

TEST_F(PictureTest, ConstructedPicturesTakeAlphaSourcesExactly) {
  host.SetPictureFormat(3, 4);
  emu::Value pic =
      emu::Value::AdoptObject(Entry<PluginNewInstanceProc>("PluginNewInstance")("Picture"));
  EXPECT_EQ(host.GetProperty(pic, "Width").AsInteger(), 0);
  using Ctor = void (*)(REALobject, RBInteger, RBInteger);
  reinterpret_cast<Ctor>(Method(pic, kConstructor))(pic.AsObject(), 2, 1);
  RBBoolean hasAlpha = 0;
  ASSERT_TRUE(Entry<REALGetPropValueBoolProc>("REALGetPropValueBool")(
      pic.AsObject(), "HasAlphaChannel", &hasAlpha));
  EXPECT_TRUE(hasAlpha);
  EXPECT_EQ(host.PictureRgba(pic), Repeat({0, 0, 0, 0}, 2));
  emu::PictureOptions alpha;
  alpha.alphaChannel = true;
  Draw(pic, host.MakePicture(2, 1, Bytes({{10, 20, 30, 200}, {40, 50, 60, 1}}), alpha), 0, 0, 2, 1);
  EXPECT_EQ(host.PictureRgba(pic), Bytes({{10, 20, 30, 200}, {40, 50, 60, 1}}));

  Restart("desktop-2010.0");
  emu::Value old =
      emu::Value::AdoptObject(Entry<PluginNewInstanceProc>("PluginNewInstance")("Picture"));
  EXPECT_EQ(Method(old, kConstructor), nullptr);
}

TEST_F(PictureTest, RepresentationsTypesAndLockRefusals) {
  const std::string rgba = Bytes({{1, 2, 3, 255}, {4, 5, 6, 255}});
  auto type = Entry<PluginPictureGetTypeProc>("PluginPictureGetType");
  auto lock = Entry<REALLockPictureDescriptionProc>("REALLockPictureDescription");
  for (int32_t t : {0, 1, 2, 3}) {
    emu::PictureOptions options;
    options.type = t;
    emu::Value pic = host.MakePicture(2, 1, rgba, options);
    EXPECT_EQ(type(Pic(pic)), t);
    REALpictureDescription desc{};
    EXPECT_EQ(lock(Pic(pic), &desc, pictureCGBitmapContext) != 0, t == 2);
    if (t == 2) Entry<UnlockPictureDescriptionProc>("unlockPictureDescription")(Pic(pic));
    using Best = REALpicture (*)(REALobject, RBInteger, RBInteger, double);
    auto best = reinterpret_cast<Best>(Method(pic, kBest));
    emu::Value at4 = emu::Value::AdoptObject(best(pic.AsObject(), 2, 1, 4.0));
    emu::Value at16 = emu::Value::AdoptObject(best(pic.AsObject(), 2, 1, 1.6));
    if (t == 0 || t == 3) {
      EXPECT_EQ(host.GetProperty(at4, "Width").AsInteger(), 8);
      EXPECT_EQ(host.GetProperty(at16, "Width").AsInteger(), 4);
      EXPECT_EQ(At(host.PictureRgba(at4), 5).r, 4);
    } else {
      EXPECT_TRUE(at4.IsNil());
    }
  }
  Restart("desktop-2013.04");
  EXPECT_EQ(Method(NewPicture(1, 1), kBest), nullptr);
}

TEST_F(PictureTest, ResolutionsBuffersAndRefusedSizes) {
  emu::Value pic = NewPicture(1, 1);
  auto getInt = Entry<REALGetPropValueIntegerProc>("REALGetPropValueInteger");
  RBInteger resolution = 0;
  ASSERT_TRUE(getInt(pic.AsObject(), "HorizontalResolution", &resolution));
  EXPECT_EQ(resolution, 72);
  ASSERT_TRUE(Entry<REALSetPropValueIntegerProc>("REALSetPropValueInt")(pic.AsObject(),
                                                                        "VerticalResolution", 300));
  EXPECT_EQ(host.GetProperty(pic, "VerticalResolution").AsInteger(), 300);
  EXPECT_FALSE(
      Entry<REALSetPropValueIntegerProc>("REALSetPropValueInt")(pic.AsObject(), "Width", 5));

  auto build = Entry<REALBuildPictureFromBufferProc>("REALBuildPictureFromBuffer");
  const unsigned char rows[] = {1, 2, 3, 4, 5, 6, 9, 9, 7, 8, 9, 10, 11, 12, 9, 9};
  emu::Value built = emu::Value::AdoptObject(build(2, 2, kRBPixelTypeRGB24, rows, 8));
  EXPECT_EQ(host.PictureRgba(built),
            Bytes({{1, 2, 3, 255}, {4, 5, 6, 255}, {7, 8, 9, 255}, {10, 11, 12, 255}}));
  EXPECT_EQ(build(2, 2, 2, rows, 8), nullptr);
  EXPECT_EQ(build(2, 2, kRBPixelTypeRGB24, rows, 5), nullptr);
  EXPECT_TRUE(NewPicture(1, 1, 24).IsNil());
  EXPECT_TRUE(NewPicture(0, 1).IsNil());
  EXPECT_TRUE(NewPicture(32768, 1).IsNil());
  EXPECT_FALSE(NewPicture(32767, 1).IsNil());
}

TEST_F(PictureTest, AuditCatchesLeakedMasksGraphicsAndLocks) {
  auto getMask = Entry<REALGetPictureMaskProc>("REALGetPictureMask");
  REALpicture mask = getMask(Pic(NewPicture(1, 1)), 1);
  ASSERT_EQ(host.Audit().live.size(), 1u);
  EXPECT_EQ(host.Audit().live[0].creator, "REALGetPictureMask");
  Entry<REALObjectProc>("REALUnlockObject")(reinterpret_cast<REALobject>(mask));

  REALgraphics g =
      Entry<PictureGraphicsGetterProc>("pluginPictureGraphicsGetter")(Pic(NewPicture(1, 1)));
  emu::AuditReport withGraphics = host.Audit();
  ASSERT_EQ(withGraphics.live.size(), 2u);  // the graphics and the picture it holds
  Entry<REALObjectProc>("REALUnlockObject")(reinterpret_cast<REALobject>(g));
  EXPECT_TRUE(host.Audit().Clean());

  emu::Value pic = NewPicture(1, 1);
  REALpictureDescription desc{};
  ASSERT_TRUE(Entry<REALLockPictureDescriptionProc>("REALLockPictureDescription")(
      Pic(pic), &desc, pictureCGBitmapContext));
  EXPECT_EQ(host.Audit().lockedPictures, std::vector<const void*>{pic.Handle()});
  auto unlock = Entry<UnlockPictureDescriptionProc>("unlockPictureDescription");
  unlock(Pic(pic));
  unlock(Pic(pic));
  emu::AuditReport report = host.Audit();
  EXPECT_TRUE(report.lockedPictures.empty());
  EXPECT_EQ(report.errors.size(), 1u);
  host.ClearAuditErrors();
}

TEST_F(PictureTest, OldHostsKeepAFailedLockUntilUnlocked) {
  Restart("desktop-2011.5");
  emu::Value pic = NewPicture(1, 1);
  REALpictureDescription desc{};
  EXPECT_FALSE(Entry<REALLockPictureDescriptionProc>("REALLockPictureDescription")(Pic(pic), &desc,
                                                                                   pictureGDPtr));
  EXPECT_EQ(host.PictureStats(pic).openLocks, 1);
  Entry<UnlockPictureDescriptionProc>("unlockPictureDescription")(Pic(pic));
  EXPECT_EQ(host.PictureStats(pic).openLocks, 0);
}

TEST_F(PictureTest, ContextQueriesAreProcessSymbols) {
  host.SetPictureFormat(4, 8);
  emu::Value padded = NewPicture(5, 3);
  REALpictureDescription desc{};
  ASSERT_TRUE(Entry<REALLockPictureDescriptionProc>("REALLockPictureDescription")(
      Pic(padded), &desc, pictureCGBitmapContext));
  auto query = [](const char* name) {
    return reinterpret_cast<size_t (*)(void*)>(dlsym(RTLD_DEFAULT, name));
  };
  int bogus = 0;
  for (const char* name : {"CGBitmapContextGetData", "CGBitmapContextGetBitsPerPixel",
                           "CGBitmapContextGetWidth", "CGBitmapContextGetHeight",
                           "CGBitmapContextGetBytesPerRow", "CGBitmapContextGetAlphaInfo"}) {
    ASSERT_NE(query(name), nullptr) << name;
    EXPECT_EQ(query(name)(&bogus), 0u) << name;
  }
  EXPECT_EQ(query("CGBitmapContextGetWidth")(desc.pictureData), 5u);
  EXPECT_EQ(query("CGBitmapContextGetBytesPerRow")(desc.pictureData), 28u);
  EXPECT_EQ(reinterpret_cast<uint32_t (*)(void*)>(
                dlsym(RTLD_DEFAULT, "CGBitmapContextGetAlphaInfo"))(desc.pictureData),
            4u);
  Entry<UnlockPictureDescriptionProc>("unlockPictureDescription")(Pic(padded));
}

}  // namespace
