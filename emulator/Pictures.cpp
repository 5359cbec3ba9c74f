// Pictures: host storage for new pictures, their masks and properties, and the picture entry
// points (new pictures, masks, graphics, description locks, cache clearing, pictures from RGB
// buffers and picture types).
#include "emulator/Internal.h"

namespace emu {

namespace {

constexpr RBInteger kMaxPictureSide = 32767;
constexpr Rgba kWhite{255, 255, 255, 255};
constexpr Rgba kBlack{0, 0, 0, 255};

uint8_t Multiply(uint8_t a, uint8_t b) {
  return static_cast<uint8_t>((a * b + 127) / 255);
}

PictureObject* LivePictureEntry(Host::State& s, const void* handle, const char* entry) {
  return s.LiveAs<PictureObject>(handle, ObjectKind::Picture, entry);
}

// Runs `make`; a picture that cannot be had comes out as null.
template <typename Make>
REALpicture NewOrNull(Make&& make) {
  try {
    return static_cast<REALpicture>(make()->Handle());
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

REALpicture NewPictureEntry(RBInteger width, RBInteger height, RBInteger depth) noexcept {
  return Guard<REALpicture>("newPicture", nullptr, [&](Host::State& s) -> REALpicture {
    if (depth != 32 || !ValidPictureSize(width, height)) return nullptr;
    return NewOrNull([&] {
      PictureObject* p = s.NewPicture(static_cast<size_t>(width), static_cast<size_t>(height),
                                      false, "newPicture");
      Fill(*p, kWhite);
      return p;
    });
  });
}

// A new black mask, so that the picture looks as before; the picture holds its reference.
void AttachNewMask(Host::State& s, PictureObject& p) {
  PictureObject* mask = s.NewPicture(p.width, p.height, false, "REALGetPictureMask");
  Fill(*mask, kBlack);
  p.mask = mask->Handle();
}

REALpicture GetMask(REALpicture picture, RBBoolean create) noexcept {
  return Guard<REALpicture>("REALGetPictureMask", nullptr, [&](Host::State& s) -> REALpicture {
    PictureObject* p = LivePictureEntry(s, picture, "REALGetPictureMask");
    if (p == nullptr || p->alpha) return nullptr;
    if (p->mask == nullptr && create != 0 && p->Lockable()) {
      try {
        AttachNewMask(s, *p);
      } catch (const std::bad_alloc&) {
        return nullptr;
      }
    }
    PictureObject* mask = s.LivePicture(p->mask);
    if (mask == nullptr) return nullptr;
    s.Retain(mask);  // the caller's reference
    return static_cast<REALpicture>(p->mask);
  });
}

REALgraphics GraphicsGetter(REALpicture picture) noexcept {
  return Guard<REALgraphics>(
      "pluginPictureGraphicsGetter", nullptr, [&](Host::State& s) -> REALgraphics {
        PictureObject* p = LivePictureEntry(s, picture, "pluginPictureGraphicsGetter");
        if (p == nullptr || !p->Lockable() || s.profile.app != AppKind::Desktop) return nullptr;
        s.Retain(p);
        auto graphics =
            std::make_unique<GraphicsObject>(p->Handle(), "pluginPictureGraphicsGetter");
        return static_cast<REALgraphics>(s.Add(std::move(graphics))->Handle());
      });
}

// Hosts before 2012.0 keep a picture locked even when the lock fails; the plug-in unlocks it.
RBBoolean LockDescription(REALpicture picture, REALpictureDescription* desc,
                          uint32_t type) noexcept {
  return Guard<RBBoolean>("REALLockPictureDescription", 0, [&](Host::State& s) -> RBBoolean {
    PictureObject* p = LivePictureEntry(s, picture, "REALLockPictureDescription");
    if (p == nullptr || desc == nullptr) return 0;
    ++p->counts.lockCalls;
    const bool locked = p->Lockable() && p->store->Describe(type, *desc);
    if (locked || s.profile.version < 2012.0) ++p->counts.openLocks;
    return locked ? 1 : 0;
  });
}

// Records what the locks of a cairo surface did; pixels written behind cairo's back without the
// mark are a fault, as cairo goes on showing what it had.
void RecordLocks(Host::State& s, PictureObject& p, const LocksEnded& locks) {
  if (!locks.ended || !locks.written) return;
  ++p.counts.writtenLocks;
  if (locks.marked) return;
  ++p.counts.unmarkedWrites;
  s.Fault("unlockPictureDescription: a picture made by " + p.creator +
          " was written while locked without cairo_surface_mark_dirty");
}

void UnlockDescription(REALpicture picture) noexcept {
  GuardVoid("unlockPictureDescription", [&](Host::State& s) {
    PictureObject* p = LivePictureEntry(s, picture, "unlockPictureDescription");
    if (p == nullptr) return;
    if (p->counts.openLocks == 0) {
      return s.Fault("unlockPictureDescription: the picture's description is not locked");
    }
    --p->counts.openLocks;
    if (p->store != nullptr) RecordLocks(s, *p, p->store->EndDescription(p->counts.openLocks));
  });
}

void ClearCache(REALpicture picture) noexcept {
  GuardVoid("REALPictureClearCache", [&](Host::State& s) {
    if (PictureObject* p = LivePictureEntry(s, picture, "REALPictureClearCache")) {
      ++p->counts.clearCaches;
    }
  });
}

void CopyRgb(PictureObject& p, const unsigned char* buffer, size_t rowBytes) {
  for (size_t y = 0; y < p.height; ++y) {
    const unsigned char* row = buffer + y * rowBytes;
    for (size_t x = 0; x < p.width; ++x) {
      p.store->Put(x, y, {row[3 * x], row[3 * x + 1], row[3 * x + 2], 255});
    }
  }
}

REALpicture BuildFromBuffer(RBInteger width, RBInteger height, int32_t pixelType,
                            const void* buffer, RBInteger rowBytes) noexcept {
  return Guard<REALpicture>("REALBuildPictureFromBuffer", nullptr, [&](Host::State& s) {
    if (pixelType != kRBPixelTypeRGB24 || buffer == nullptr || !ValidPictureSize(width, height) ||
        rowBytes < 3 * width) {
      return REALpicture{nullptr};
    }
    return NewOrNull([&] {
      PictureObject* p = s.NewPicture(static_cast<size_t>(width), static_cast<size_t>(height),
                                      false, "REALBuildPictureFromBuffer");
      CopyRgb(*p, static_cast<const unsigned char*>(buffer), static_cast<size_t>(rowBytes));
      return p;
    });
  });
}

int32_t GetType(REALpicture picture) noexcept {
  return Guard<int32_t>("PluginPictureGetType", -1, [&](Host::State& s) {
    PictureObject* p = LivePictureEntry(s, picture, "PluginPictureGetType");
    return p != nullptr ? p->type : -1;
  });
}

}  // namespace

std::vector<void*> PictureObject::TakeChildren() {
  std::vector<void*> children;
  if (mask != nullptr) children.push_back(std::exchange(mask, nullptr));
  for (const auto& [scale, representation] : representations) children.push_back(representation);
  representations.clear();
  return children;
}

std::vector<void*> GraphicsObject::TakeChildren() {
  return {std::exchange(picture, nullptr)};
}

void Host::SetPicturePixelLimit(uint64_t pixels) {
  state_->picturePixelLimit = pixels;
}

bool ValidPictureSize(RBInteger width, RBInteger height) {
  return width >= 1 && height >= 1 && width <= kMaxPictureSide && height <= kMaxPictureSide;
}

void Host::State::ConstructPicture(PictureObject& picture, size_t width, size_t height,
                                   bool alpha) {
  if (uint64_t{width} * height > picturePixelLimit) throw std::bad_alloc();
  picture.store = NewPlatformStore(width, height, alpha);
  if (picture.store == nullptr && profile.app == AppKind::Desktop) {
    // A context without alpha cannot hold an alpha channel: such pictures use its premultiplied
    // counterpart.
    int alphaInfo = alpha && pictureFormat >= 5 ? pictureFormat - 4 : pictureFormat;
    picture.store = NewBitmapStore(width, height, alphaInfo, picturePadding, alpha);
  } else if (picture.store == nullptr) {
    picture.store = NewGdStore(width, height, false, alpha);
  }
  picture.width = width;
  picture.height = height;
  picture.alpha = alpha;
}

// The desktop pictures of Linux and Windows hosts; null for other hosts.
std::unique_ptr<PixelStore> Host::State::NewPlatformStore(size_t width, size_t height,
                                                          bool alpha) const {
  if (profile.app != AppKind::Desktop) return nullptr;
#if defined(_WIN32)
  if (profile.platform == Platform::Windows) return NewBgraStore(width, height, alpha);
  if (profile.platform == Platform::WindowsGdiplus) return NewGdiplusStore(width, height, alpha);
#else
  if (profile.platform == Platform::Linux) {
    return NewCairoStore(width, height, picturePadding, alpha, profile.auditCairoLocks);
  }
#endif
  return nullptr;
}

PictureObject* Host::State::NewPicture(size_t width, size_t height, bool alpha,
                                       std::string creator) {
  auto picture = std::make_unique<PictureObject>(std::move(creator));
  ConstructPicture(*picture, width, height, alpha);
  return Add(std::move(picture));
}

PictureObject* Host::State::LivePicture(const void* handle) {
  Object* o = Find(handle);
  return o != nullptr && o->alive && o->kind == ObjectKind::Picture ? static_cast<PictureObject*>(o)
                                                                    : nullptr;
}

void Host::State::CheckUnlocked(const PictureObject& picture) {
  if (picture.counts.openLocks > 0) {
    Fault("a picture made by " + picture.creator + " was freed with its description locked");
  }
}

void Fill(PictureObject& picture, Rgba pixel) {
  picture.store->Fill(pixel);
}

Rgba ShownPixel(Host::State& s, const PictureObject& picture, size_t x, size_t y) {
  Rgba p = picture.store->Get(x, y);
  const PictureObject* mask = s.LivePicture(picture.mask);
  if (mask != nullptr && mask->store != nullptr && x < mask->width && y < mask->height) {
    p.a = Multiply(p.a, static_cast<uint8_t>(255 - mask->store->Get(x, y).r));
  }
  return p;
}

std::optional<Value> ReadPictureProperty(const PictureObject& picture, std::string_view name) {
  if (SameName(name, "Width")) return Value(static_cast<RBInteger>(picture.width));
  if (SameName(name, "Height")) return Value(static_cast<RBInteger>(picture.height));
  if (SameName(name, "HorizontalResolution")) return Value(picture.horizontalResolution);
  if (SameName(name, "VerticalResolution")) return Value(picture.verticalResolution);
  if (SameName(name, "HasAlphaChannel")) return Value(picture.alpha);
  return std::nullopt;
}

bool WritePictureProperty(PictureObject& picture, std::string_view name, const Value& value) {
  if (value.Kind() != ValueKind::Integer) return false;
  if (SameName(name, "HorizontalResolution")) {
    picture.horizontalResolution = value.AsInteger();
    return true;
  }
  if (SameName(name, "VerticalResolution")) {
    picture.verticalResolution = value.AsInteger();
    return true;
  }
  return false;
}

void AddPictureEntries(EntryTable& table) {
  table["newPicture"] = reinterpret_cast<void*>(&NewPictureEntry);
  table["REALGetPictureMask"] = reinterpret_cast<void*>(&GetMask);
  table["pluginPictureGraphicsGetter"] = reinterpret_cast<void*>(&GraphicsGetter);
  table["REALLockPictureDescription"] = reinterpret_cast<void*>(&LockDescription);
  table["unlockPictureDescription"] = reinterpret_cast<void*>(&UnlockDescription);
  table["REALPictureClearCache"] = reinterpret_cast<void*>(&ClearCache);
  table["REALBuildPictureFromBuffer"] = reinterpret_cast<void*>(&BuildFromBuffer);
  table["PluginPictureGetType"] = reinterpret_cast<void*>(&GetType);
}

}  // namespace emu
