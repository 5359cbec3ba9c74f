// The methods of the host's Picture and Graphics classes that the plug-in finds by declaration:
// the picture constructor, masks, best representations and drawing one picture into another.
#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "emulator/Internal.h"
#if !defined(_WIN32)
#include "emulator/Cairo.h"
#endif

namespace emu {

namespace {

constexpr const char* kConstructor = "Constructor(width as integer, height as integer)";
constexpr const char* kMask = "Mask(assigns newMask As Picture)";
constexpr const char* kBestRepresentation =
    "BestRepresentation(width As Integer, height As Integer, scale As Double) As Picture";
constexpr const char* kDrawInteger =
    "DrawPicture(Image as Picture, x as Integer, y as Integer, w as Integer, h as Integer, "
    "sx as Integer = 0, sy as Integer = 0, sw as Integer = -10000, sh as Integer = -10000)";
constexpr const char* kDrawDouble =
    "DrawPicture(Image as Picture, x as Double, y as Double, w as Double, h as Double, "
    "sx as Double = 0, sy as Double = 0, sw as Double = -10000, sh as Double = -10000)";

// The host versions that brought the methods.
constexpr double kFirstConstructor = 2011.04;
constexpr double kFirstBestRepresentation = 2016.0;
constexpr double kFirstDoubleDrawing = 2018.02;

// A source size meaning "the rest of the source".
constexpr int64_t kFullSource = -10000;
// Coordinates beyond this draw nothing; below it the scaling arithmetic stays in 64 bits.
constexpr int64_t kMaxCoordinate = int64_t{1} << 30;

struct Area {
  int64_t x, y, w, h;
  bool Bounded() const {
    return std::llabs(x) <= kMaxCoordinate && std::llabs(y) <= kMaxCoordinate &&
           std::llabs(w) <= kMaxCoordinate && std::llabs(h) <= kMaxCoordinate;
  }
};

PictureObject* LivePictureArg(Host::State& s, const void* handle, const char* entry) {
  return s.LiveAs<PictureObject>(handle, ObjectKind::Picture, entry);
}

// Source over destination, both not premultiplied.
Rgba Over(Rgba src, Rgba dst) {
  if (src.a == 255 || dst.a == 0) return src;
  if (src.a == 0) return dst;
  const uint32_t below = dst.a * (255u - src.a);  // the destination's share, times 255
  const uint32_t total = src.a * 255u + below;    // the result's alpha, times 255
  auto mix = [&](uint8_t s, uint8_t d) {
    return static_cast<uint8_t>((s * src.a * 255u + d * below + total / 2) / total);
  };
  return {mix(src.r, dst.r), mix(src.g, dst.g), mix(src.b, dst.b),
          static_cast<uint8_t>((total + 127) / 255)};
}

// Nearest neighbour: the source index for index i of n destination pixels over `span` source
// pixels from `start`.
int64_t SourceIndex(int64_t start, int64_t span, int64_t i, int64_t n) {
  return start + ((2 * i + 1) * span) / (2 * n);
}

#if !defined(_WIN32)
// A cairo surface of alpha 255 − the mask's grey, which cairo masks with as the mask hides.
struct MaskSurface {
  explicit MaskSurface(const PictureObject& mask) {
    const CairoApi& c = Cairo();
    const int w = static_cast<int>(mask.width);
    const int h = static_cast<int>(mask.height);
    const int stride = c.strideForWidth(CAIRO_FORMAT_A8, w);
    alphas.assign(static_cast<size_t>(stride) * mask.height, 0);
    for (size_t y = 0; y < mask.height; ++y) {
      for (size_t x = 0; x < mask.width; ++x) {
        alphas[y * stride + x] = static_cast<unsigned char>(255 - mask.store->Get(x, y).r);
      }
    }
    surface = c.createForData(alphas.data(), CAIRO_FORMAT_A8, w, h, stride);
  }
  ~MaskSurface() { Cairo().surfaceDestroy(surface); }
  MaskSurface(const MaskSurface&) = delete;
  MaskSurface& operator=(const MaskSurface&) = delete;

  std::vector<unsigned char> alphas;
  cairo_surface_t* surface = nullptr;
};

// A pattern of `surface` with the source area's origin at the user origin, sampled at the
// nearest pixel as the host scales pictures.
cairo_pattern_t* SourcePattern(cairo_surface_t* surface, const Area& from) {
  const CairoApi& c = Cairo();
  cairo_pattern_t* pattern = c.createPattern(surface);
  cairo_matrix_t shift;
  c.matrixTranslate(&shift, static_cast<double>(from.x), static_cast<double>(from.y));
  c.setMatrix(pattern, &shift);
  c.setFilter(pattern, CAIRO_FILTER_NEAREST);
  return pattern;
}

// A Linux desktop host draws with cairo: the source area scaled onto the destination area, through
// the source's mask when it has one.
void DrawWithCairo(Host::State& s, cairo_surface_t* dst, const PictureObject& src, Area to,
                   Area from) {
  const CairoApi& c = Cairo();
  cairo_t* cr = c.create(dst);
  c.translate(cr, static_cast<double>(to.x), static_cast<double>(to.y));
  c.scale(cr, static_cast<double>(to.w) / static_cast<double>(from.w),
          static_cast<double>(to.h) / static_cast<double>(from.h));
  c.rectangle(cr, 0, 0, static_cast<double>(from.w), static_cast<double>(from.h));
  c.clip(cr);
  cairo_pattern_t* source = SourcePattern(src.store->CairoSurface(), from);
  c.setSource(cr, source);
  const PictureObject* mask = s.LivePicture(src.mask);
  if (mask != nullptr && mask->store != nullptr) {
    MaskSurface alphas(*mask);
    cairo_pattern_t* hides = SourcePattern(alphas.surface, from);
    c.mask(cr, hides);
    c.patternDestroy(hides);
  } else {
    c.paint(cr);
  }
  c.patternDestroy(source);
  c.destroy(cr);
  c.flush(dst);
}
#endif

// Any other pair of stores: pixel by pixel, source over destination.
void DrawPixels(Host::State& s, PictureObject& dst, const PictureObject& src, Area to, Area from) {
  const auto srcW = static_cast<int64_t>(src.width);
  const auto srcH = static_cast<int64_t>(src.height);
  const int64_t x0 = std::max<int64_t>(0, -to.x);
  const int64_t x1 = std::min<int64_t>(to.w, static_cast<int64_t>(dst.width) - to.x);
  const int64_t y0 = std::max<int64_t>(0, -to.y);
  const int64_t y1 = std::min<int64_t>(to.h, static_cast<int64_t>(dst.height) - to.y);
  for (int64_t dy = y0; dy < y1; ++dy) {
    const int64_t sy = SourceIndex(from.y, from.h, dy, to.h);
    if (sy < 0 || sy >= srcH) continue;
    const auto y = static_cast<size_t>(to.y + dy);
    for (int64_t dx = x0; dx < x1; ++dx) {
      const int64_t sx = SourceIndex(from.x, from.w, dx, to.w);
      if (sx < 0 || sx >= srcW) continue;
      const auto x = static_cast<size_t>(to.x + dx);
      Rgba shown = ShownPixel(s, src, static_cast<size_t>(sx), static_cast<size_t>(sy));
      dst.store->Put(x, y, Over(shown, dst.store->Get(x, y)));
    }
  }
}

void Draw(Host::State& s, PictureObject& dst, const PictureObject& src, Area to, Area from) {
  if (dst.store == nullptr || src.store == nullptr || !to.Bounded() || !from.Bounded()) return;
  if (from.w == kFullSource) from.w = static_cast<int64_t>(src.width) - from.x;
  if (from.h == kFullSource) from.h = static_cast<int64_t>(src.height) - from.y;
  if (to.w <= 0 || to.h <= 0 || from.w <= 0 || from.h <= 0) return;
#if !defined(_WIN32)
  cairo_surface_t* target = dst.store->CairoSurface();
  if (target != nullptr && src.store->CairoSurface() != nullptr) {
    return DrawWithCairo(s, target, src, to, from);
  }
#endif
  DrawPixels(s, dst, src, to, from);
}

void DrawWith(REALobject graphics, REALpicture image, Area to, Area from) {
  GuardVoid("Graphics.DrawPicture", [&](Host::State& s) {
    auto* g = s.LiveAs<GraphicsObject>(graphics, ObjectKind::Graphics, "Graphics.DrawPicture");
    PictureObject* src = LivePictureArg(s, image, "Graphics.DrawPicture");
    PictureObject* dst = g != nullptr ? s.LivePicture(g->picture) : nullptr;
    if (src != nullptr && dst != nullptr) Draw(s, *dst, *src, to, from);
  });
}

void DrawInteger(REALobject graphics, REALpicture image, RBInteger x, RBInteger y, RBInteger w,
                 RBInteger h, RBInteger sx, RBInteger sy, RBInteger sw, RBInteger sh) noexcept {
  DrawWith(graphics, image, {x, y, w, h}, {sx, sy, sw, sh});
}

// Rounds a coordinate; one that is not finite or too large comes out out of bounds.
int64_t Coordinate(double v) {
  return std::isfinite(v) && std::fabs(v) <= kMaxCoordinate ? std::llround(v) : kMaxCoordinate + 1;
}

void DrawDouble(REALobject graphics, REALpicture image, double x, double y, double w, double h,
                double sx, double sy, double sw, double sh) noexcept {
  DrawWith(graphics, image, {Coordinate(x), Coordinate(y), Coordinate(w), Coordinate(h)},
           {Coordinate(sx), Coordinate(sy), Coordinate(sw), Coordinate(sh)});
}

// Makes a picture from PluginNewInstance a fully transparent picture with alpha channel.
void Construct(REALobject self, RBInteger width, RBInteger height) noexcept {
  GuardVoid("Picture.Constructor", [&](Host::State& s) {
    PictureObject* p = LivePictureArg(s, self, "Picture.Constructor");
    if (p == nullptr || !ValidPictureSize(width, height)) return;
    if (p->store != nullptr) return s.Fault("Picture.Constructor: the picture is constructed");
    try {
      s.ConstructPicture(*p, static_cast<size_t>(width), static_cast<size_t>(height), true);
      Fill(*p, Rgba{0, 0, 0, 0});
    } catch (const std::bad_alloc&) {
      p->store.reset();
    }
  });
}

// Attaches a mask (the picture takes a reference) or, with nil, detaches it.
void SetMask(REALobject self, REALpicture newMask) noexcept {
  GuardVoid("Picture.Mask", [&](Host::State& s) {
    PictureObject* p = LivePictureArg(s, self, "Picture.Mask");
    if (p == nullptr) return;
    PictureObject* mask = newMask != nullptr ? LivePictureArg(s, newMask, "Picture.Mask") : nullptr;
    if (newMask != nullptr && mask == nullptr) return;
    if (mask != nullptr && p->alpha) {
      return s.Fault("Picture.Mask: a picture with alpha channel takes no mask");
    }
    if (mask != nullptr &&
        (mask == p || mask->width != p->width || mask->height != p->height || !mask->store)) {
      return s.Fault("Picture.Mask: the mask must be another picture of the picture's size");
    }
    if (mask != nullptr) s.Retain(mask);
    void* old = std::exchange(p->mask, mask != nullptr ? mask->Handle() : nullptr);
    if (PictureObject* o = s.LivePicture(old)) s.Release(o);
  });
}

// The representation whose scale lies closest to `scale`, with a new reference.
REALpicture BestRepresentation(REALobject self, RBInteger, RBInteger, double scale) noexcept {
  return Guard<REALpicture>("Picture.BestRepresentation", nullptr, [&](Host::State& s) {
    PictureObject* p = LivePictureArg(s, self, "Picture.BestRepresentation");
    if (p == nullptr || p->representations.empty()) return REALpicture{nullptr};
    auto distance = [scale](const std::pair<double, void*>& r) {
      return std::fabs(r.first - scale);
    };
    const std::pair<double, void*>* best = &p->representations.front();
    for (const auto& r : p->representations) {
      if (distance(r) < distance(*best)) best = &r;
    }
    PictureObject* chosen = s.LivePicture(best->second);
    if (chosen == nullptr) return REALpicture{nullptr};
    s.Retain(chosen);
    return static_cast<REALpicture>(chosen->Handle());
  });
}

template <typename Fn>
REALproc Proc(Fn* fn) {
  return reinterpret_cast<REALproc>(fn);
}

}  // namespace

REALproc HostClassMethod(Host::State& s, Object& object, std::string_view declaration) {
  const double version = s.profile.version;
  if (object.kind == ObjectKind::Picture) {
    if (declaration == kConstructor && version >= kFirstConstructor) return Proc(&Construct);
    if (declaration == kMask) return Proc(&SetMask);
    if (declaration == kBestRepresentation && version >= kFirstBestRepresentation) {
      return Proc(&BestRepresentation);
    }
  }
  if (object.kind == ObjectKind::Graphics) {
    if (declaration == kDrawInteger && version < kFirstDoubleDrawing) return Proc(&DrawInteger);
    if (declaration == kDrawDouble && version >= kFirstDoubleDrawing) return Proc(&DrawDouble);
  }
  return nullptr;
}

}  // namespace emu
