// The plug-in declares what it reads of gd and cairo itself; here those declarations meet the
// libraries' own headers (cairo's off Windows, where the plug-in has no cairo route).
#if !defined(_WIN32)
#include <cairo.h>
#endif
#include <gd.h>
#include <gtest/gtest.h>
#include <stddef.h>

#include "host/ProcessFunctions.h"
#include "picture/GdImage.h"

namespace {

// Every field of gd's image record at gd's offset, and the record's size.
struct Field {
  size_t ours, gds;
  const char* name;
};
template <typename... Fields>
void SameOffsets(const Fields&... fields) {
  for (const Field& f : {fields...}) EXPECT_EQ(f.ours, f.gds) << f.name;
}
#define FIELD(name) (Field{offsetof(gd::Image, name), offsetof(gdImage, name), #name})
TEST(LibraryLayouts, GdImageRecord) {
  EXPECT_EQ(gd::kMaxColors, gdMaxColors);
  EXPECT_EQ(sizeof(gd::Image), sizeof(gdImage));
  SameOffsets(FIELD(pixels), FIELD(sx), FIELD(sy), FIELD(colorsTotal), FIELD(red), FIELD(green),
              FIELD(blue), FIELD(open), FIELD(transparent), FIELD(polyInts), FIELD(polyAllocated),
              FIELD(brush), FIELD(tile), FIELD(brushColorMap), FIELD(tileColorMap),
              FIELD(styleLength), FIELD(stylePos), FIELD(style), FIELD(interlace), FIELD(thick),
              FIELD(alpha), FIELD(trueColor), FIELD(tpixels), FIELD(alphaBlendingFlag),
              FIELD(saveAlphaFlag), FIELD(AA), FIELD(AA_color), FIELD(AA_dont_blend), FIELD(cx1),
              FIELD(cy1), FIELD(cx2), FIELD(cy2), FIELD(res_x), FIELD(res_y),
              FIELD(paletteQuantizationMethod), FIELD(paletteQuantizationSpeed),
              FIELD(paletteQuantizationMinQuality), FIELD(paletteQuantizationMaxQuality),
              FIELD(interpolation_id), FIELD(interpolation));
}
#undef FIELD

#if !defined(_WIN32)
// cairo's enumerations are passed as int, with cairo's values.
TEST(LibraryLayouts, CairoConstants) {
  EXPECT_EQ(sizeof(cairo_format_t), sizeof(int));
  EXPECT_EQ(sizeof(cairo_status_t), sizeof(int));
  EXPECT_EQ(sizeof(cairo_surface_type_t), sizeof(int));
  EXPECT_EQ(cairo::kStatusSuccess, CAIRO_STATUS_SUCCESS);
  EXPECT_EQ(cairo::kSurfaceTypeImage, CAIRO_SURFACE_TYPE_IMAGE);
  EXPECT_EQ(cairo::kFormatARGB32, CAIRO_FORMAT_ARGB32);
  EXPECT_EQ(cairo::kFormatRGB24, CAIRO_FORMAT_RGB24);
}
#endif

}  // namespace
