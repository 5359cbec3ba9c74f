// Picture editors, drawing, masks and colour arrays against the emulator's pictures, on desktop
// and console hosts of several versions.
#include <gtest/gtest.h>

#include <map>
#include <string>

#include "convert/PNGPicture.h"
#include "emulator/Emulator.h"
#include "host/HostRuntime.h"
#include "picture/PictureEditor.h"
#include "tests/unit/HostResolver.h"

namespace {

class Pictures : public ::testing::Test {
 protected:
  void TearDown() override {
    picture = emu::Value();
    const emu::AuditReport report = host().Audit();
    EXPECT_TRUE(report.Clean()) << report.Format();
    host().Shutdown();
    gResolver = nullptr;
    rbversion = 0.0;
  }
  // The plug-in looks cairo up once for the process: it must be there from the start, as it is in
  // a Linux desktop host, so the first host is one.
  void SetUp() override { Use(2019.1, emu::AppKind::Desktop); }
  void Use(double version, emu::AppKind app, emu::Platform platform = emu::Platform::Linux) {
    emu::Profile profile;
    profile.name = "pictures";
    profile.version = version;
    profile.app = app;
    profile.platform = platform;
    if (host().Started()) host().Shutdown();
    host().Start(profile);
    gResolver = unittest::Resolver();
    rbversion = version;
    IsDesktop = false;
    IsConsole = false;
  }
  static emu::Host& host() { return emu::Host::Instance(); }

  // A width × height picture of one colour.
  static emu::Value Plain(RBInteger w, RBInteger h, uint8_t r, const emu::PictureOptions& o = {}) {
    std::string rgba;
    for (RBInteger i = 0; i < w * h; ++i) rgba += std::string{char(r), 20, 30, char(255)};
    return host().MakePicture(w, h, rgba, o);
  }
  static REALpicture P(const emu::Value& v) { return v.As<REALpicture>(); }
  // The red byte of the first pixel of row `y`, by the editor's pixel format on this little-endian
  // machine.
  static uint8_t Red(const PictureEditor& editor, RBInteger y) {
    static const std::map<int32_t, int> kRedByte = {{1, 0}, {2, 1}, {3, 0}, {4, 1}, {5, 0},
                                                    {6, 1}, {8, 2}, {9, 2}, {10, 2}};
    return editor.RowAddress(y)[kRedByte.at(editor.pixelFormat)];
  }
  static RBInteger Resolution(const emu::Value& v, const char* name) {
    return host().GetProperty(v, name).AsInteger();
  }

  emu::Value picture;
};

TEST_F(Pictures, WriterSizesAndRendering) {
  Use(2019.1, emu::AppKind::Desktop);
  for (auto [w, h] : {std::pair{0, 10}, {32768, 1}, {-1, 5}, {5, 0}}) {
    PictureWriter writer;
    EXPECT_FALSE(writer.NewPictureWriter(w, h)) << w << " x " << h;
  }
  PictureWriter idle;
  EXPECT_EQ(idle.RenderPictureWriter(), nullptr);

  PictureWriter writer;
  ASSERT_TRUE(writer.NewPictureWriter(32767, 1));
  writer.horizontalResolution = 72;
  writer.verticalResolution = 0;
  picture = emu::Value::AdoptObject(writer.RenderPictureWriter());
  ASSERT_FALSE(picture.IsNil());
  EXPECT_EQ(host().PictureStats(picture).openLocks, 0);

  // Resolutions go onto the rendered picture only when both are at least 1.
  emu::PictureOptions fine;
  fine.horizontalResolution = fine.verticalResolution = 300;
  emu::Value source = Plain(2, 2, 1, fine);
  PictureWriter editor;
  ASSERT_TRUE(editor.GetPictureEditor(P(source), false, true));
  editor.verticalResolution = 0;
  emu::Value same = emu::Value::AdoptObject(editor.RenderPictureWriter());
  EXPECT_EQ(Resolution(same, "HorizontalResolution"), 300);
  ASSERT_TRUE(editor.GetPictureEditor(P(source), false, true));
  editor.verticalResolution = editor.horizontalResolution = 150;
  emu::Value changed = emu::Value::AdoptObject(editor.RenderPictureWriter());
  EXPECT_EQ(Resolution(changed, "VerticalResolution"), 150);
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

  for (emu::Platform platform : {emu::Platform::Linux, emu::Platform::Mac}) {
    Use(2019.1, emu::AppKind::Desktop, platform);
    for (int32_t type : {0, 1, 3}) {
      emu::PictureOptions options;
      options.type = type;
      emu::Value special = Plain(4, 4, 9, options);
      PictureEditor desktop;
      EXPECT_FALSE(desktop.GetPictureEditor(P(special), false, true)) << "type " << type;
      ASSERT_TRUE(desktop.GetPictureEditor(P(special), true, false)) << "type " << type;
      // Multi-representation pictures are read at their scale-4 representation.
      EXPECT_EQ(desktop.width, type == 1 ? 4 : 16) << "type " << type;
      EXPECT_EQ(Red(desktop, 0), 9);
    }
  }
}

TEST_F(Pictures, ReadingThroughADrawnCopyKeepsTheMask) {
  for (emu::Platform platform : {emu::Platform::Linux, emu::Platform::Mac}) {
    Use(2010.0, emu::AppKind::Desktop, platform);
    emu::PictureOptions masked;
    masked.type = 1;  // immutable: no route locks it, so it is read through a copy
    masked.mask = emu::MaskSource::Grey;
    masked.maskGrey = std::string(4, char(255));
    emu::Value source = Plain(2, 2, 77, masked);
    const void* mask = host().PictureMask(source).Handle();
    {
      PictureReader reader;
      ASSERT_TRUE(reader.GetPictureEditor(P(source), true, false));
      // The copy holds the picture's own colours, not the transparent look its mask gives.
      EXPECT_EQ(Red(reader, 1), 77);
      EXPECT_NE(reader.picture, P(source));
    }
    EXPECT_EQ(host().PictureMask(source).Handle(), mask);
    // Both routes' failed locks on an old host are undone.
    EXPECT_EQ(host().PictureStats(source).openLocks, 0);
    EXPECT_EQ(host().PictureStats(source).lockCalls, 2);
  }
}

TEST_F(Pictures, CreatePictureWithMask) {
  Use(2019.1, emu::AppKind::Desktop);
  emu::PictureOptions odd;
  odd.horizontalResolution = 150;
  odd.verticalResolution = 0;
  picture = Plain(3, 2, 200, odd);
  EXPECT_EQ(CreatePictureWithMask(nullptr, P(picture), false, 3, 2), nullptr);
  const long references = host().References(picture.Handle());
  emu::Value same =
      emu::Value::AdoptObject(CreatePictureWithMask(P(picture), nullptr, false, 3, 2));
  EXPECT_EQ(same.Handle(), picture.Handle());
  EXPECT_EQ(host().References(picture.Handle()), references + 1);

  emu::Value mask = Plain(3, 2, 255);
  emu::Value combined =
      emu::Value::AdoptObject(CreatePictureWithMask(P(picture), P(mask), false, 3, 2));
  ASSERT_FALSE(combined.IsNil());
  EXPECT_EQ(Resolution(combined, "HorizontalResolution"), 72) << "72 × 0 is not copied";
  const std::string rgba = host().PictureRgba(combined);
  EXPECT_EQ(static_cast<uint8_t>(rgba[0]), 200);
  EXPECT_EQ(static_cast<uint8_t>(rgba[3]), 0) << "a white mask hides the pixel";
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

// Xojo hands a nil folder item to an extension method called on nil: nothing is saved, and the
// savers say so instead of encoding into memory that nobody reads.
TEST_F(Pictures, SaversRefuseANilFolderItem) {
  Use(2019.1, emu::AppKind::Desktop);
  picture = Plain(2, 2, 5);
  emu::Value colors = host().MakeColorArray({0x050000});
  emu::Value alphas = host().MakeIntegerArray({255});
  EXPECT_FALSE(SaveAsPNGKRV3(nullptr, P(picture), 0.0f));
  EXPECT_FALSE(SaveAs8BitPNGKRV4(nullptr, P(picture), colors.As<REALarray>(), 0.0f));
  EXPECT_FALSE(SaveAs8BitPNGwithAlphaKRV5(nullptr, P(picture), colors.As<REALarray>(),
                                          alphas.As<REALarray>(), 0.0f));
  emu::Value data = emu::Value::AdoptString(PictureToPNGStringKRV2(P(picture), 0.0f));
  EXPECT_FALSE(data.IsNil()) << "a string is still made when one is asked for";
}

// ---------------------------------------------------------------------------------------------
// Each host version the editors branch on, on both sides.
// ---------------------------------------------------------------------------------------------

const emu::Platform kDesktops[] = {emu::Platform::Linux, emu::Platform::Mac};

// From 2018.02 graphics draw with Double coordinates, before with Integer ones; a host has only
// its own overload, so joining a picture with its mask shows which one the plug-in asked for.
TEST_F(Pictures, DrawingTakesTheOverloadOfTheHost) {
  for (double version : {2018.01, 2018.02}) {
    for (emu::Platform platform : kDesktops) {
      SCOPED_TRACE(::testing::Message() << version << " platform " << int(platform));
      Use(version, emu::AppKind::Desktop, platform);
      emu::Value colour = Plain(2, 1, 200);
      emu::Value mask = host().MakePicture(2, 1, std::string("\xFF\xFF\xFF\xFF\0\0\0\xFF", 8));
      emu::Value combined =
          emu::Value::AdoptObject(CreatePictureWithMask(P(colour), P(mask), false, 2, 1));
      ASSERT_FALSE(combined.IsNil());
      EXPECT_EQ(host().PictureRgba(combined), std::string("\xC8\x14\x1E\0\xC8\x14\x1E\xFF", 8))
          << "white hides, black shows";
    }
  }
}

struct RepresentationCase {
  double version;
  RBInteger width;  // of what the editor reads from a 4 × 4 picture of several representations
};

// From 2016.0 a picture of several representations is read at its scale-4 representation; before,
// through a drawn copy of the picture itself.
TEST_F(Pictures, BestRepresentationFrom2016) {
  const RepresentationCase cases[] = {{2015.99, 4}, {2016.0, 16}};
  for (const RepresentationCase& c : cases) {
    for (emu::Platform platform : kDesktops) {
      SCOPED_TRACE(::testing::Message() << c.version << " platform " << int(platform));
      Use(c.version, emu::AppKind::Desktop, platform);
      emu::PictureOptions several;
      several.type = 3;
      emu::Value source = Plain(4, 4, 9, several);
      PictureReader reader;
      ASSERT_TRUE(reader.GetPictureEditor(P(source), true, false));
      EXPECT_EQ(reader.width, c.width);
      EXPECT_EQ(Red(reader, 0), 9);
    }
  }
}

struct DrawnCopyCase {
  double version;
  bool readable;
};

// An immutable picture with an alpha channel is read through a copy made with the picture
// constructor, which hosts have from 2011.04; the copy takes the picture's resolutions.
TEST_F(Pictures, AlphaPicturesAreCopiedFrom2011_04) {
  const DrawnCopyCase cases[] = {{2011.03, false}, {2011.04, true}};
  for (const DrawnCopyCase& c : cases) {
    for (emu::Platform platform : kDesktops) {
      SCOPED_TRACE(::testing::Message() << c.version << " platform " << int(platform));
      Use(c.version, emu::AppKind::Desktop, platform);
      emu::PictureOptions immutable;
      immutable.type = 1;
      immutable.alphaChannel = true;
      immutable.horizontalResolution = 150;
      immutable.verticalResolution = 300;
      emu::Value source = Plain(3, 2, 61, immutable);
      PictureReader reader;
      ASSERT_EQ(reader.GetPictureEditor(P(source), true, false), c.readable);
      if (!c.readable) continue;
      EXPECT_NE(reader.picture, P(source));
      EXPECT_EQ(Red(reader, 1), 61);
      EXPECT_EQ(std::make_pair(reader.horizontalResolution, reader.verticalResolution),
                std::make_pair(int32_t{150}, int32_t{300}));
    }
  }
}

// Hosts before 2012.0 keep a picture locked after a failed lock until it is unlocked; later hosts
// take that unlock for a fault. The audit reports either mistake.
TEST_F(Pictures, FailedLocksAreUndoneBefore2012) {
  for (double version : {2011.99, 2012.0}) {
    for (emu::AppKind app : {emu::AppKind::Console, emu::AppKind::Desktop}) {
      SCOPED_TRACE(::testing::Message() << version << " app " << int(app));
      Use(version, app);
      emu::PictureOptions immutable;
      immutable.type = 1;
      emu::Value source = Plain(2, 2, 5, immutable);
      {
        PictureReader reader;
        reader.GetPictureEditor(P(source), true, false);
      }
      EXPECT_GE(host().PictureStats(source).lockCalls, 1);
      EXPECT_EQ(host().PictureStats(source).openLocks, 0);
      const emu::AuditReport report = host().Audit();
      EXPECT_TRUE(report.errors.empty()) << report.Format();
    }
  }
}

struct HostKindCase {
  emu::AppKind app;
  emu::Platform platform;
  long lockCalls;  // the routes tried on a picture that none can lock
};

// The kind of application decides the routes: desktop hosts try the surface and bitmap-context
// routes, console and web hosts the gd route, a host of no known kind all three (and then, for
// the drawn copy, the gd copy that drawing falls back to).
TEST_F(Pictures, HostKindChoosesTheRoutes) {
  const HostKindCase cases[] = {
      {emu::AppKind::Desktop, emu::Platform::Linux, 2},
      {emu::AppKind::Desktop, emu::Platform::Mac, 2},
      {emu::AppKind::Console, emu::Platform::Linux, 1},
      {emu::AppKind::Web, emu::Platform::Linux, 1},
      {emu::AppKind::None, emu::Platform::Linux, 4},
  };
  for (const HostKindCase& c : cases) {
    SCOPED_TRACE(::testing::Message() << "app " << int(c.app) << " platform " << int(c.platform));
    Use(2019.1, c.app, c.platform);
    emu::PictureOptions immutable;
    immutable.type = 1;
    emu::Value source = Plain(2, 2, 5, immutable);
    PictureReader reader;
    reader.GetPictureEditor(P(source), true, false);
    EXPECT_EQ(host().PictureStats(source).lockCalls, c.lockCalls);
  }
}

}  // namespace
