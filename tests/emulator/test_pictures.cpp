// The picture stores against the hosts' layouts: a store wrong both ways would pass end to end.
#if defined(_WIN32)
#include <windows.h>
// GDI+ after the Windows declarations it builds on.
#include <gdiplus.h>
#else
#include <cairo.h>
#include <dlfcn.h>
#endif

#include "tests/emulator/HostFixture.h"

namespace {

using namespace emutest;
using namespace std::string_literals;

struct Px {
  uint8_t r, g, b, a;
};

std::string Bytes(std::initializer_list<Px> pixels) {
  std::string out;
  for (Px p : pixels) out += {char(p.r), char(p.g), char(p.b), char(p.a)};
  return out;
}

struct Stored {
  const char* profile;
  int alphaInfo;  // macOS desktop hosts only
  bool alphaChannel;
  int format;          // as stored
  RBInteger rowBytes;  // with 3 bytes of padding asked for
  size_t colour;       // where the stored bytes below start in a pixel
  std::string raw;
  Px back;  // what reading the picture gives
};

// One pixel of colour 200, 100, 50 at alpha 128, stored premultiplied (rounded to 100, 50, 25,
// read back as 199, 100, 50) or not, in 7-bit gd alpha (63, read back as 129) on gd images. cairo
// keeps rows of whole words and the words in host byte order (this machine's is little-endian);
// the ignored top byte of RGB24 carries the marker. Windows hosts keep the same words in rows
// without padding: modern hosts with alpha 255 in opaque pictures, older ones (GDI+ 32bppRGB) with
// the marker.
const Stored kStores[] = {
#if defined(_WIN32)
    {"windows-desktop-2019.1", 0, true, 9, 4, 0, "\x19\x32\x64\x80", {199, 100, 50, 128}},
    {"windows-desktop-2019.1", 0, false, 9, 4, 0, "\x32\x64\xC8\xFF", {200, 100, 50, 255}},
    {"windows-gdiplus-2019.1", 0, true, 9, 4, 0, "\x19\x32\x64\x80", {199, 100, 50, 128}},
    {"windows-gdiplus-2019.1", 0, false, 10, 4, 0, "\x32\x64\xC8\xA5", {200, 100, 50, 255}},
#else
    {"linux-desktop-2019.1", 0, true, 9, 8, 0, "\x19\x32\x64\x80", {199, 100, 50, 128}},
    {"linux-desktop-2019.1", 0, false, 10, 8, 0, "\x32\x64\xC8\xA5", {200, 100, 50, 255}},
#endif
    {"mac-desktop-2019.1", 1, true, 1, 7, 0, "\x64\x32\x19\x80", {199, 100, 50, 128}},
    {"mac-desktop-2019.1", 2, true, 2, 7, 0, "\x80\x64\x32\x19", {199, 100, 50, 128}},
    {"mac-desktop-2019.1", 3, true, 3, 7, 0, "\xC8\x64\x32\x80", {200, 100, 50, 128}},
    {"mac-desktop-2019.1", 4, true, 4, 7, 0, "\x80\xC8\x64\x32", {200, 100, 50, 128}},
    {"mac-desktop-2019.1", 5, false, 5, 7, 0, "\xC8\x64\x32", {200, 100, 50, 255}},
    {"mac-desktop-2019.1", 6, false, 6, 7, 1, "\xC8\x64\x32", {200, 100, 50, 255}},
    {"console-2019.1", 0, true, 8, 4, 0, "\x32\x64\xC8\x3F", {200, 100, 50, 129}},
    {"console-2019.1", 0, false, 8, 4, 0, "\x32\x64\xC8\x00"s, {200, 100, 50, 255}},
};

TEST_F(HostTest, PicturesAreStoredInTheLayoutOfTheirFormat) {
  const Px in{200, 100, 50, 128};
  for (const Stored& s : kStores) {
    SCOPED_TRACE(std::string(s.profile) + " alpha info " + std::to_string(s.alphaInfo) +
                 (s.alphaChannel ? " with alpha" : ""));
    Restart(s.profile);
    const bool desktop = host.CurrentProfile().app == emu::AppKind::Desktop;
    // Odd padding: bitmap context rows start anywhere.
    if (desktop) host.SetPictureFormat(s.alphaInfo != 0 ? s.alphaInfo : 2, 3);
    emu::PictureOptions options;
    options.alphaChannel = s.alphaChannel;
    emu::Value pic = host.MakePicture(1, 2, Bytes({in, in}), options);
    const emu::PictureRaw raw = host.RawPicture(pic);
    EXPECT_EQ(raw.format, s.format);
    ASSERT_EQ(raw.rowBytes, s.rowBytes);
    for (size_t row = 0; row < 2; ++row) {
      EXPECT_EQ(raw.bytes.substr(row * raw.rowBytes + s.colour, s.raw.size()), s.raw) << row;
    }
    EXPECT_EQ(raw.bytes.substr(4, s.rowBytes - 4), std::string(s.rowBytes - 4, '\xA5'));
    EXPECT_EQ(host.PictureRgba(pic), Bytes({s.back, s.back}));
  }
}

TEST_F(HostTest, MaskGreyIsTransparencyBlackOpaque) {
  emu::PictureOptions masked;
  masked.mask = emu::MaskSource::Grey;
  masked.maskGrey = "\x00\x80\xFF"s;
  const Px c{10, 20, 30, 255};
  for (const char* profile : {
#if defined(_WIN32)
         "windows-desktop-2019.1", "windows-gdiplus-2019.1",
#else
           "linux-desktop-2019.1",
#endif
             "mac-desktop-2019.1", "console-2019.1"
       }) {
    SCOPED_TRACE(profile);
    Restart(profile);
    emu::Value pic = host.MakePicture(3, 1, Bytes({c, c, c}), masked);
    EXPECT_EQ(host.PictureRgba(pic), Bytes({c, {10, 20, 30, 127}, {10, 20, 30, 0}}));
    EXPECT_EQ(host.PictureRgba(host.PictureMask(pic)),
              Bytes({{0, 0, 0, 255}, {128, 128, 128, 255}, {255, 255, 255, 255}}));
  }
}

// A function of the process, as the plug-in finds the cairo and bitmap context functions (on
// Windows, a function the program exports).
template <typename Fn>
Fn Sym(const char* name) {
#if defined(_WIN32)
  auto fn = reinterpret_cast<Fn>(
      reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(nullptr), name)));
#else
  auto fn = reinterpret_cast<Fn>(dlsym(RTLD_DEFAULT, name));
#endif
  EXPECT_NE(fn, nullptr) << name;
  return fn;
}

template <typename R>
R Query(const char* name, void* context) {
  auto fn = Sym<R (*)(void*)>(name);
  return fn != nullptr ? fn(context) : R{};
}

// Each host describes its pictures as its own type only.
TEST_F(HostTest, PicturesAreDescribedAsTheHostsOwnType) {
  const std::pair<const char*, uint32_t> kOwnType[] = {
#if defined(_WIN32)
    {"windows-desktop-2019.1", pictureBGRAPixels},
    {"windows-gdiplus-2019.1", pictureGDIPlusBitmap},
#else
    {"linux-desktop-2019.1", pictureCairoContext},
#endif
    {"mac-desktop-2019.1", pictureCGBitmapContext},
    {"console-2019.1", pictureGDPtr}
  };
  for (const auto& [profile, own] : kOwnType) {
    Restart(profile);
    emu::Value pic = Picture(2, 2);
    for (uint32_t type : {pictureCGBitmapContext, pictureGDPtr, pictureGDIPlusBitmap,
                          pictureCairoContext, pictureBGRAPixels}) {
      const bool locked = Lock(pic.As<REALpicture>(), type);
      EXPECT_EQ(locked, type == own) << profile << " type " << type;
      if (locked) Unlock(pic.As<REALpicture>());
    }
  }
}

#if defined(_WIN32)
// A modern Windows host hands out the picture's own pixels; an older one a GDI+ bitmap whose bits,
// locked through GDI+ in any 32-bit format, are the picture's.
TEST_F(HostTest, WindowsPicturesAreTheirPixels) {
  emu::PictureOptions withAlpha;
  withAlpha.alphaChannel = true;
  const std::string pixels = Bytes({{200, 100, 50, 128}, {1, 2, 3, 255}});
  emu::Value pic = host.MakePicture(2, 1, pixels, withAlpha);
  REALpictureDescription desc{};
  ASSERT_TRUE(Lock(pic.As<REALpicture>(), pictureBGRAPixels, &desc));
  EXPECT_EQ(std::string(static_cast<const char*>(desc.pictureData), 8),
            "\x19\x32\x64\x80\x03\x02\x01\xFF");
  static_cast<unsigned char*>(desc.pictureData)[6] = 0x11;  // the red byte of pixel (1, 0)
  Unlock(pic.As<REALpicture>());
  EXPECT_EQ(uint8_t(host.PictureRgba(pic)[4]), 0x11);

  namespace gp = Gdiplus::DllExports;
  // Bits as locked: a picture with alpha in its own premultiplied words, an opaque one as straight
  // words, whose ignored byte GDI+ turns into alpha 255.
  const std::tuple<bool, Gdiplus::PixelFormat, std::string> kLocked[] = {
      {true, PixelFormat32bppPARGB, "\x19\x32\x64\x80\x03\x02\x01\xFF"},
      {false, PixelFormat32bppARGB, "\x32\x64\xC8\xFF\x03\x02\x01\xFF"}};
  Restart("windows-gdiplus-2019.1");
  for (const auto& [alpha, format, locked] : kLocked) {
    SCOPED_TRACE(alpha ? "with alpha" : "opaque");
    emu::PictureOptions options;
    options.alphaChannel = alpha;
    emu::Value bitmap = host.MakePicture(2, 1, pixels, options);
    ASSERT_TRUE(Lock(bitmap.As<REALpicture>(), pictureGDIPlusBitmap, &desc));
    auto* gdiplus = static_cast<Gdiplus::GpBitmap*>(desc.pictureData);
    const Gdiplus::GpRect all(0, 0, 2, 1);
    Gdiplus::BitmapData data{};
    ASSERT_EQ(
        gp::GdipBitmapLockBits(
            gdiplus, &all, Gdiplus::ImageLockModeRead | Gdiplus::ImageLockModeWrite, format, &data),
        Gdiplus::Ok);
    EXPECT_EQ(std::string(static_cast<const char*>(data.Scan0), 8), locked);
    static_cast<unsigned char*>(data.Scan0)[6] = 0x11;
    gp::GdipBitmapUnlockBits(gdiplus, &data);
    Unlock(bitmap.As<REALpicture>());
    EXPECT_EQ(uint8_t(host.PictureRgba(bitmap)[4]), 0x11);
  }
}
#else
#define CAIRO(fn) Sym<decltype(&fn)>(#fn)

// How pixels written into a locked cairo surface were told to cairo.
enum class Mark { None, Surface, Rectangle, AfterUnlock };

struct CairoWrite {
  bool audit;  // off on the benchmark's host, whose locks only lend the surface
  bool alphaChannel;
  bool write;  // the red byte of pixel (1, 1) becomes 0x11
  Mark mark;
  bool nested;  // written under a second lock of the same picture
  long writtenLocks, unmarkedWrites;
  Px back;  // pixel (1, 1) as the host shows it after the last unlock
};

// A white picture, or one of white at alpha 255 (premultiplied words are the same). Unmarked
// writes stay unseen by cairo, which paints a surface with alpha channel that it takes for clear
// as nothing; RGB24 surfaces it paints whole. A mark after the unlock reaches cairo, but too late
// for the host, which may have painted the picture in between. Without the audit the host tells
// cairo of the pixels itself, and counts and reports nothing.
const CairoWrite kCairoWrites[] = {
    {true, false, false, Mark::None, false, 0, 0, {255, 255, 255, 255}},
    {true, false, true, Mark::Surface, false, 1, 0, {0x11, 255, 255, 255}},
    {true, false, true, Mark::Rectangle, false, 1, 0, {0x11, 255, 255, 255}},
    {true, false, true, Mark::None, false, 1, 1, {0x11, 255, 255, 255}},
    {true, true, false, Mark::None, false, 0, 0, {255, 255, 255, 255}},
    {true, true, true, Mark::Surface, false, 1, 0, {0x11, 255, 255, 255}},
    {true, true, true, Mark::Surface, true, 1, 0, {0x11, 255, 255, 255}},
    {true, true, true, Mark::None, false, 1, 1, {0, 0, 0, 0}},
    {true, true, true, Mark::None, true, 1, 1, {0, 0, 0, 0}},
    {true, true, true, Mark::AfterUnlock, false, 1, 1, {0x11, 255, 255, 255}},
    {false, false, true, Mark::None, false, 0, 0, {0x11, 255, 255, 255}},
    {false, true, true, Mark::None, false, 0, 0, {0x11, 255, 255, 255}},
};

// A Linux desktop host locks a picture as a cairo context on the picture's own image surface,
// made for the lock and given up at its unlock, and records whether pixels written through it
// were marked dirty before the last unlock.
TEST_F(HostTest, CairoContextsDrawOnThePictureForTheirLock) {
  for (const CairoWrite& w : kCairoWrites) {
    SCOPED_TRACE(::testing::Message()
                 << "audit " << w.audit << " alpha " << w.alphaChannel << " write " << w.write
                 << " mark " << int(w.mark) << " nested " << w.nested);
    emu::Profile profile = *emu::FindProfile("linux-desktop-2019.1");
    profile.auditCairoLocks = w.audit;
    host.Shutdown();
    host.Start(profile);
    emu::PictureOptions options;
    options.alphaChannel = w.alphaChannel;
    emu::Value pic = host.MakePicture(5, 3, std::string(5 * 3 * 4, '\xFF'), options);
    const auto picture = pic.As<REALpicture>();
    REALpictureDescription desc{};
    for (int lock = 0; lock < (w.nested ? 2 : 1); ++lock) {
      ASSERT_TRUE(Lock(picture, pictureCairoContext, &desc));
    }
    auto* context = static_cast<cairo_t*>(desc.pictureData);
    CAIRO(cairo_reference)(context);
    cairo_surface_t* surface = CAIRO(cairo_get_target)(context);
    EXPECT_EQ(CAIRO(cairo_surface_get_type)(surface), CAIRO_SURFACE_TYPE_IMAGE);
    EXPECT_EQ(CAIRO(cairo_image_surface_get_format)(surface),
              w.alphaChannel ? CAIRO_FORMAT_ARGB32 : CAIRO_FORMAT_RGB24);
    EXPECT_EQ(CAIRO(cairo_image_surface_get_stride)(surface), 20);
    CAIRO(cairo_surface_flush)(surface);
    // The red byte of pixel (1, 1), the word 0x..RRGGBB little-endian.
    if (w.write) CAIRO(cairo_image_surface_get_data)(surface)[20 + 4 + 2] = 0x11;
    if (w.nested) Unlock(picture);
    if (w.mark == Mark::Surface) CAIRO(cairo_surface_mark_dirty)(surface);
    if (w.mark == Mark::Rectangle) CAIRO(cairo_surface_mark_dirty_rectangle)(surface, 1, 1, 1, 1);
    Unlock(picture);
    if (w.mark == Mark::AfterUnlock) CAIRO(cairo_surface_mark_dirty)(surface);
    EXPECT_EQ(CAIRO(cairo_get_reference_count)(context), 1u) << "the host gave its context up";
    CAIRO(cairo_destroy)(context);
    const emu::PictureCounts counts = host.PictureStats(pic);
    EXPECT_EQ(counts.writtenLocks, w.writtenLocks);
    EXPECT_EQ(counts.unmarkedWrites, w.unmarkedWrites);
    EXPECT_EQ(host.PictureRgba(pic).substr(4 * (5 + 1), 4), Bytes({w.back}));
    EXPECT_EQ(host.Audit().errors.size(), size_t(w.unmarkedWrites));
    host.ClearAuditErrors();
  }
}

// A picture larger than the band of rows the host shows at a time reads back whole, and row by
// row in any order, on both kinds of cairo surface.
TEST_F(HostTest, LargeCairoPicturesAreShownBandByBand) {
  constexpr size_t kWidth = 600, kHeight = 600;
  std::string rgba(kWidth * kHeight * 4, '\xFF');
  for (size_t y = 0; y < kHeight; ++y) {
    for (size_t x = 0; x < kWidth; ++x) {
      rgba[(y * kWidth + x) * 4] = static_cast<char>(y);
      rgba[(y * kWidth + x) * 4 + 1] = static_cast<char>(y >> 8);
      rgba[(y * kWidth + x) * 4 + 2] = static_cast<char>(x);
    }
  }
  Restart("linux-desktop-2019.1");
  for (bool alphaChannel : {false, true}) {
    SCOPED_TRACE(alphaChannel);
    emu::PictureOptions options;
    options.alphaChannel = alphaChannel;
    emu::Value pic = host.MakePicture(kWidth, kHeight, rgba, options);
    EXPECT_EQ(host.PictureRgba(pic), rgba);
    for (size_t y : {599u, 0u, 437u, 436u, 435u, 1u}) {
      EXPECT_EQ(host.PictureRgba(pic, y, 1), rgba.substr(y * kWidth * 4, kWidth * 4)) << y;
    }
  }
}
#endif

// The plug-in finds the bitmap context queries in the process, not through the resolver.
TEST_F(HostTest, ContextQueriesAnswerForLiveContextsOnly) {
  Restart("mac-desktop-2019.1");
  host.SetPictureFormat(4, 8);
  emu::Value pic = Picture(5, 3);
  REALpictureDescription desc{};
  ASSERT_TRUE(Lock(pic.As<REALpicture>(), pictureCGBitmapContext, &desc));
  void* context = desc.pictureData;
  int notAContext = 0;
  for (void* other : {static_cast<void*>(&notAContext), context}) {
    const bool live = other == context;
    SCOPED_TRACE(live ? "live context" : "not a context");
    EXPECT_EQ(Query<size_t>("CGBitmapContextGetWidth", other), live ? 5u : 0u);
    EXPECT_EQ(Query<size_t>("CGBitmapContextGetHeight", other), live ? 3u : 0u);
    EXPECT_EQ(Query<size_t>("CGBitmapContextGetBytesPerRow", other), live ? 28u : 0u);
    EXPECT_EQ(Query<size_t>("CGBitmapContextGetBitsPerPixel", other), live ? 32u : 0u);
    EXPECT_EQ(Query<uint32_t>("CGBitmapContextGetAlphaInfo", other), live ? 4u : 0u);
    EXPECT_EQ(Query<void*>("CGBitmapContextGetData", other) != nullptr, live);
  }
  auto* data = static_cast<unsigned char*>(Query<void*>("CGBitmapContextGetData", context));
  data[28 + 4 + 1] = 0x11;  // the red byte of pixel (1, 1) in A R G B
  Unlock(pic.As<REALpicture>());
  EXPECT_EQ(uint8_t(host.PictureRgba(pic)[4 * (5 + 1)]), 0x11);
  pic = emu::Value();
  EXPECT_EQ(Query<size_t>("CGBitmapContextGetWidth", context), 0u);  // freed with its picture
}

}  // namespace
