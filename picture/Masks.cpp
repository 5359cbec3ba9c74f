// Drawing one picture into another, joining a picture with its mask, and colours of host arrays.
#include <string.h>

#include "host/Exceptions.h"
#include "picture/GdImage.h"
#include "picture/PictureEditor.h"

namespace {

constexpr char kDrawDouble[] =
    "DrawPicture(Image as Picture, x as Double, y as Double, w as Double, h as Double, sx as "
    "Double = 0, sy as Double = 0, sw as Double = -10000, sh as Double = -10000)";
constexpr char kDrawInteger[] =
    "DrawPicture(Image as Picture, x as Integer, y as Integer, w as Integer, h as Integer, sx as "
    "Integer = 0, sy as Integer = 0, sw as Integer = -10000, sh as Integer = -10000)";

using DrawDoubleProc = void (*)(REALobject, REALpicture, double, double, double, double, double,
                                double, double, double);
using DrawIntegerProc = void (*)(REALobject, REALpicture, RBInteger, RBInteger, RBInteger,
                                 RBInteger, RBInteger, RBInteger, RBInteger, RBInteger);

REALobject AsObject(REALgraphics g) {
  return reinterpret_cast<REALobject>(g);
}

// Draws through the graphics object's DrawPicture; false when the host has no such method.
bool DrawWithGraphics(REALgraphics g, REALpicture source, RBInteger w, RBInteger h, RBInteger sw,
                      RBInteger sh) {
  if (gHost.version >= hostversion::kDrawPictureDoublesFrom) {
    auto draw = reinterpret_cast<DrawDoubleProc>(REALLoadObjectMethod(AsObject(g), kDrawDouble));
    if (draw == nullptr) return false;
    draw(AsObject(g), source, 0.0, 0.0, static_cast<double>(w), static_cast<double>(h), 0.0, 0.0,
         static_cast<double>(sw), static_cast<double>(sh));
    return true;
  }
  auto draw = reinterpret_cast<DrawIntegerProc>(REALLoadObjectMethod(AsObject(g), kDrawInteger));
  if (draw == nullptr) return false;
  draw(AsObject(g), source, 0, 0, w, h, 0, 0, sw, sh);
  return true;
}

bool LockGD(REALpicture picture, REALpictureDescription* description) {
  if (REALLockPictureDescription(picture, description, pictureGDPtr)) return true;
  if (gHost.version < hostversion::kFailedLockHeldBefore) REALUnlockPictureDescription(picture);
  return false;
}

bool TrueColour(const gd::Image* image) {
  return image && image->pixels == nullptr && image->tpixels != nullptr;
}

// Console hosts have no graphics: copy the rows of one gd image into another of the same size.
void CopyGDImage(REALpicture destination, REALpicture source) {
  REALpictureDescription from = {};
  REALpictureDescription to = {};
  const bool fromLocked = LockGD(source, &from);
  const bool toLocked = fromLocked && LockGD(destination, &to);
  if (toLocked && from.pictureType == pictureGDPtr && to.pictureType == pictureGDPtr) {
    const auto* src = static_cast<const gd::Image*>(from.pictureData);
    auto* dst = static_cast<gd::Image*>(to.pictureData);
    if (TrueColour(src) && TrueColour(dst) && src->sx == dst->sx && src->sy == dst->sy &&
        src->sy >= 1) {
      for (int y = 0; y < src->sy; ++y) {
        memcpy(dst->tpixels[y], src->tpixels[y], static_cast<size_t>(src->sx) * 4);
      }
    }
  }
  if (toLocked) REALUnlockPictureDescription(destination);
  if (fromLocked) REALUnlockPictureDescription(source);
  REALPictureClearCache(destination);
}

}  // namespace

void GraphicsDrawPicture(REALpicture destination, REALpicture source, RBInteger width,
                         RBInteger height, RBInteger sourceWidth, RBInteger sourceHeight, RBInteger,
                         RBInteger, RBInteger, RBInteger) {
  REALgraphics g = destination ? REALGetPictureGraphics(destination) : nullptr;
  const bool drawn =
      g && source && DrawWithGraphics(g, source, width, height, sourceWidth, sourceHeight);
  if (!drawn && destination && source && sourceWidth == width && sourceHeight == height) {
    CopyGDImage(destination, source);
  }
  if (g) UnlockHandle(g);
}

REALpicture CreatePictureWithMask(REALpicture picture, REALpicture mask, bool, RBInteger width,
                                  RBInteger height) {
  if (picture == nullptr) return nullptr;
  if (mask == nullptr) {
    LockHandle(picture);
    return picture;
  }
  REALpicture combined = REALNewPicture(width, height, 32);
  if (combined == nullptr) return nullptr;
  CopyPictureResolutions(picture, combined);
  REALpicture combinedMask = REALGetPictureMask(combined, true);
  REALpicture result = nullptr;
  if (combinedMask) {
    GraphicsDrawPicture(combined, picture, width, height, width, height);
    GraphicsDrawPicture(combinedMask, mask, width, height, width, height);
    LockHandle(combined);
    result = combined;
    UnlockHandle(combinedMask);
  }
  UnlockHandle(combined);
  return result;
}

void REALGetArrayValue(REALarray array, RBInteger index, RBColor* out) {
  if (array == nullptr) return;
  const RBInteger upperBound = REALGetArrayUBound(array);
  if (index < 0 || index > upperBound) {
    RaiseOutOfBoundsException(index, upperBound + 1);
    return;
  }
  const auto* legacy = reinterpret_cast<const REALarrayLegacy*>(array);
  if (gHost.version >= hostversion::kLegacyRecordsBefore || legacy->storage == nullptr) {
    bool found = false;
    const RBColor colour = REALGetArrayValueColor(array, index, &found);
    if (found) *out = colour;
    return;
  }
  *out = static_cast<const RBColor*>(legacy->storage)[index];
}
