// Picture editors, drawing, masks and colour arrays on desktop and console hosts of many versions.
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <tuple>

#include "convert/PNGPicture.h"
#include "reader/PNGReader.h"
#include "tests/unit/HostResolver.h"
#include "tools/samples/Samples.h"

namespace {

// The desktop hosts whose pictures the plug-in built here edits directly.
#if defined(_WIN32)
const emu::Platform kDesktops[] = {emu::Platform::Windows, emu::Platform::WindowsGdiplus};
#else
const emu::Platform kDesktops[] = {emu::Platform::Linux, emu::Platform::Mac};
#endif

// What reading a picture through a drawn copy gave, and what it left on the picture.
struct Read {
  bool ok = false;
  bool copied = false;  // read from another picture than the source
  RBInteger width = 0;
  int red = -1;  // of row 1
  std::pair<int32_t, int32_t> resolution;
  bool maskKept = false;
  long lockCalls = 0;
  long openLocks = 0;
};

class Pictures : public unittest::HostTest {
 protected:
  // A width × height picture of one colour.
  static emu::Value Plain(RBInteger w, RBInteger h, uint8_t r, const emu::PictureOptions& o = {}) {
    std::string rgba;
    for (RBInteger i = 0; i < w * h; ++i) rgba += std::string{char(r), 20, 30, char(255)};
    return host().MakePicture(w, h, rgba, o);
  }
  static emu::PictureOptions Typed(int32_t type, bool alphaChannel = false) {
    emu::PictureOptions options;
    options.type = type;
    options.alphaChannel = alphaChannel;
    options.horizontalResolution = 150;
    options.verticalResolution = 300;
    return options;
  }
  static REALpicture P(const emu::Value& v) { return v.As<REALpicture>(); }
  // The red byte of the first pixel of row `y`, by the editor's pixel format (little-endian).
  static uint8_t Red(const PictureEditor& editor, RBInteger y) {
    static const std::map<int32_t, int> kRedByte = {{1, 0}, {2, 1}, {3, 0}, {4, 1},  {5, 0},
                                                    {6, 1}, {8, 2}, {9, 2}, {10, 2}, {11, 2}};
    return editor.RowAddress(y)[kRedByte.at(editor.pixelFormat)];
  }
  static RBInteger Resolution(const emu::Value& v, const char* name) {
    return host().GetProperty(v, name).AsInteger();
  }
  // Restarts the host as given and reads a 4 × 4 picture of red 9 through the reading route.
  Read ReadOn(double version, emu::AppKind app, emu::Platform platform,
              const emu::PictureOptions& options) {
    Use(version, app, platform);
    emu::Value source = Plain(4, 4, 9, options);
    const void* mask =
        options.mask != emu::MaskSource::None ? host().PictureMask(source).Handle() : nullptr;
    Read r;
    {
      PictureReader reader;
      r.ok = reader.GetPictureEditor(P(source), true, false);
      if (r.ok) {
        r.copied = reader.picture != P(source);
        r.width = reader.width;
        r.red = Red(reader, 1);
        r.resolution = {reader.horizontalResolution, reader.verticalResolution};
      }
    }
    r.maskKept = mask != nullptr && host().PictureMask(source).Handle() == mask;
    r.lockCalls = host().PictureStats(source).lockCalls;
    r.openLocks = host().PictureStats(source).openLocks;
    const emu::AuditReport report = host().Audit();
    EXPECT_TRUE(report.errors.empty()) << report.Format();
    return r;
  }
};

// Resolutions go onto the rendered picture only when both are at least 1.
TEST_F(Pictures, WriterSizesAndRendering) {
  EXPECT_EQ(PictureWriter().RenderPictureWriter(), nullptr);
  PictureWriter writer;
  ASSERT_TRUE(writer.NewPictureWriter(32767, 1));
  emu::Value widest = emu::Value::AdoptObject(writer.RenderPictureWriter());
  ASSERT_FALSE(widest.IsNil());
  EXPECT_EQ(host().PictureStats(widest).openLocks, 0);

  emu::PictureOptions fine;
  fine.horizontalResolution = fine.verticalResolution = 300;
  emu::Value source = Plain(2, 2, 1, fine);
  for (const auto& [set, expected] : {std::pair{0, 300}, {150, 150}}) {
    PictureWriter editor;
    ASSERT_TRUE(editor.GetPictureEditor(P(source), false, true));
    editor.verticalResolution = set;
    editor.horizontalResolution = 150;
    emu::Value rendered = emu::Value::AdoptObject(editor.RenderPictureWriter());
    EXPECT_EQ(Resolution(rendered, "HorizontalResolution"), expected) << set;
    EXPECT_EQ(Resolution(rendered, "VerticalResolution"), expected) << set;
  }
  EXPECT_GE(host().PictureStats(source).clearCaches, 2);
}

TEST_F(Pictures, StoragesTheEditorRefuses) {
  Use(2019.1, emu::AppKind::Console);
  emu::PictureOptions palette;
  palette.storage = emu::PictureStorage::GdPalette;
  emu::Value gdPalette = Plain(3, 3, 9, palette);
  PictureEditor editor;
  EXPECT_FALSE(editor.GetPictureEditor(P(gdPalette), false, true));
  EXPECT_FALSE(editor.GetPictureEditor(P(gdPalette), true, false)) << "no drawn copy on console";
  EXPECT_FALSE(editor.GetPictureEditor(nullptr, true, false));

  // Pictures of types 0, 1 and 3 are only read, type 0 and 3 at their scale-4 representation,
  // which hosts from 2016.0 have.
  const std::tuple<double, int32_t, RBInteger> kTypes[] = {
      {2019.1, 0, 16}, {2019.1, 1, 4}, {2015.99, 3, 4}, {2016.0, 3, 16}};
  for (emu::Platform platform : kDesktops) {
    for (const auto& [version, type, width] : kTypes) {
      Use(version, emu::AppKind::Desktop, platform);
      emu::Value special = Plain(4, 4, 9, Typed(type));
      EXPECT_FALSE(PictureEditor().GetPictureEditor(P(special), false, true)) << type;
      special = emu::Value();
      const Read r = ReadOn(version, emu::AppKind::Desktop, platform, Typed(type));
      EXPECT_TRUE(r.ok && r.width == width && r.red == 9) << version << " type " << type;
    }
  }
}

// The copy holds the picture's own colours, not the transparent look its mask gives, and both
// routes' failed locks are undone.
TEST_F(Pictures, ReadingThroughADrawnCopyKeepsTheMask) {
  emu::PictureOptions masked = Typed(1);  // immutable: read through a copy
  masked.mask = emu::MaskSource::Grey;
  masked.maskGrey = std::string(16, char(255));
  for (emu::Platform platform : kDesktops) {
    const Read r = ReadOn(2010.0, emu::AppKind::Desktop, platform, masked);
    EXPECT_TRUE(r.ok && r.copied && r.maskKept) << int(platform);
    EXPECT_EQ(r.red, 9);
    EXPECT_EQ(r.openLocks, 0);
    EXPECT_EQ(r.lockCalls, 2);
  }
}

TEST_F(Pictures, ConsoleDrawingCopiesOnlyEqualSizes) {
  Use(2019.1, emu::AppKind::Console);
  emu::Value source = Plain(3, 3, 40);
  emu::Value target = Plain(3, 3, 0);
  emu::Value other = Plain(4, 3, 0);
  const std::string before = host().PictureRgba(target);
  GraphicsDrawPicture(P(target), P(source), 3, 3, 2, 2);
  EXPECT_EQ(host().PictureRgba(target), before) << "scaling is not possible";
  GraphicsDrawPicture(P(other), P(source), 3, 3, 3, 3);
  EXPECT_EQ(host().PictureRgba(other)[0], 0) << "sizes differ";
  GraphicsDrawPicture(P(target), P(source), 3, 3, 3, 3);
  EXPECT_EQ(host().PictureRgba(target), host().PictureRgba(source));
  EXPECT_GE(host().PictureStats(target).clearCaches, 1);
}

TEST_F(Pictures, ColourArrays) {
  for (double version : {2019.1, 2016.0}) {
    Use(version, emu::AppKind::Desktop);
    for (emu::Storage storage : {emu::Storage::Direct, emu::Storage::GetterOnly}) {
      emu::Value colors = host().MakeColorArray({0x112233, 0x445566}, storage);
      RBColor out = 7;
      REALGetArrayValue(colors.As<REALarray>(), 1, &out);
      EXPECT_EQ(out, 0x445566u);
      for (RBInteger bad : {RBInteger{-1}, RBInteger{2}}) {
        REALGetArrayValue(colors.As<REALarray>(), bad, &out);
        ASSERT_TRUE(host().LastException());
        EXPECT_EQ(host().LastException()->className, "OutOfBoundsException");
        EXPECT_EQ(out, 0x445566u);
      }
      EXPECT_EQ(host().LastException()->message,
                "Parameter index  is too big. Range is 0 to 1, but value is 2.");
      host().ClearLastException();
    }
  }
}

// A nil folder item (an extension method called on nil): nothing is saved, and the savers say so.
TEST_F(Pictures, SaversRefuseANilFolderItem) {
  emu::Value picture = Plain(2, 2, 5);
  emu::Value colors = host().MakeColorArray({0x050000});
  emu::Value alphas = host().MakeIntegerArray({255});
  EXPECT_FALSE(SaveAsPNGKRV3(nullptr, P(picture), 0.0f));
  EXPECT_FALSE(SaveAs8BitPNGKRV4(nullptr, P(picture), colors.As<REALarray>(), 0.0f));
  EXPECT_FALSE(SaveAs8BitPNGwithAlphaKRV5(nullptr, P(picture), colors.As<REALarray>(),
                                          alphas.As<REALarray>(), 0.0f));
  emu::Value data = emu::Value::AdoptString(PictureToPNGStringKRV2(P(picture), 0.0f));
  EXPECT_FALSE(data.IsNil()) << "a string is still made when one is asked for";
}

// Graphics draw with Double coordinates from 2018.02, Integer ones before; a host has only its own.
// Resolutions of 72 × 0 are not copied onto the combined picture.
TEST_F(Pictures, CreatePictureWithMaskDrawsWithTheOverloadOfTheHost) {
  emu::PictureOptions odd;
  odd.horizontalResolution = 150;
  odd.verticalResolution = 0;
  for (double version : {2018.01, 2018.02}) {
    for (emu::Platform platform : kDesktops) {
      SCOPED_TRACE(::testing::Message() << version << " platform " << int(platform));
      Use(version, emu::AppKind::Desktop, platform);
      emu::Value colour = Plain(2, 1, 200, odd);
      EXPECT_EQ(CreatePictureWithMask(nullptr, P(colour), false, 2, 1), nullptr);
      emu::Value mask = host().MakePicture(2, 1, std::string("\xFF\xFF\xFF\xFF\0\0\0\xFF", 8));
      emu::Value combined =
          emu::Value::AdoptObject(CreatePictureWithMask(P(colour), P(mask), false, 2, 1));
      ASSERT_FALSE(combined.IsNil());
      EXPECT_EQ(host().PictureRgba(combined), std::string("\xC8\x14\x1E\0\xC8\x14\x1E\xFF", 8))
          << "white hides, black shows";
      EXPECT_EQ(Resolution(combined, "HorizontalResolution"), 72);
    }
  }
}

// Immutable pictures with alpha are copied with the picture constructor, which hosts have from
// 2011.04; the copy takes the picture's resolutions.
TEST_F(Pictures, AlphaPicturesAreCopiedFrom2011_04) {
  for (const auto& [version, readable] : {std::pair{2011.03, false}, {2011.04, true}}) {
    for (emu::Platform platform : kDesktops) {
      SCOPED_TRACE(::testing::Message() << version << " platform " << int(platform));
      const Read r = ReadOn(version, emu::AppKind::Desktop, platform, Typed(1, true));
      ASSERT_EQ(r.ok, readable);
      if (!readable) continue;
      EXPECT_TRUE(r.copied);
      EXPECT_EQ(r.red, 9);
      EXPECT_EQ(r.resolution, std::make_pair(int32_t{150}, int32_t{300}));
    }
  }
}

#if defined(_WIN32)
std::vector<std::string> gErrors;

void CollectError(REALobject, REALstring message) {
  gErrors.push_back(emu::Value::RetainString(message).Text());
}

// A desktop host that hands out neither its pictures' pixels nor GDI+ bitmaps (here a macOS host,
// whose bitmap contexts the plug-in built for Windows does not reach): ReadPicture fails and says
// why, where a Windows host's pictures are written.
TEST_F(Pictures, ReadPictureTellsWhenPicturesCannotBeWritten) {
  const samples::Bytes png = samples::Encode(samples::Pattern(3, 2, 8, 2, false));
  const std::pair<emu::Platform, std::vector<std::string>> kCases[] = {
      {emu::Platform::Windows, {}},
      {emu::Platform::Mac, {"The host's pictures cannot be written to."}}};
  for (const auto& [platform, errors] : kCases) {
    SCOPED_TRACE(int(platform));
    Use(2019.1, emu::AppKind::Desktop, platform);
    gErrors.clear();
    int owner = 0;
    PNGReader r;
    ASSERT_TRUE(Init(r, reinterpret_cast<REALobject>(&owner), CollectError, nullptr));
    const emu::Value data =
        host().MakeString(std::string_view(reinterpret_cast<const char*>(png.data()), png.size()),
                          kREALTextEncodingUnknown);
    ASSERT_TRUE(OpenReadString(r, data.AsString()));
    ASSERT_TRUE(ApplyOptions(r, 0.0, -1.0));
    EXPECT_EQ(ReadPicture(r), errors.empty());
    EXPECT_EQ(gErrors, errors);
    Finish(r);
  }
}
#endif

// The kind of application decides the routes tried on a picture none can lock: desktop 2, console
// and web the gd route, a host of no known kind all three and the gd copy drawing falls back to.
// Hosts before 2012.0 keep a picture locked after a failed lock until it is unlocked; later hosts
// take that unlock for a fault, which the audit reports (ReadOn checks it).
TEST_F(Pictures, HostKindChoosesTheRoutes) {
  const std::tuple<double, emu::AppKind, emu::Platform, long> cases[] = {
      {2019.1, emu::AppKind::Desktop, kDesktops[0], 2},
      {2019.1, emu::AppKind::Desktop, kDesktops[1], 2},
      {2019.1, emu::AppKind::Console, kDesktops[0], 1},
      {2019.1, emu::AppKind::Web, kDesktops[0], 1},
      {2019.1, emu::AppKind::None, kDesktops[0], 4},
      {2011.99, emu::AppKind::Desktop, kDesktops[0], 2},
      {2011.99, emu::AppKind::Console, kDesktops[0], 1}};
  for (const auto& [version, app, platform, lockCalls] : cases) {
    const Read r = ReadOn(version, app, platform, Typed(1));
    EXPECT_EQ(r.lockCalls, lockCalls)
        << version << " app " << int(app) << " platform " << int(platform);
    EXPECT_EQ(r.openLocks, 0) << version << " app " << int(app);
  }
}

}  // namespace
