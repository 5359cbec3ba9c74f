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
#define SAME_OFFSET(field) EXPECT_EQ(offsetof(gd::Image, field), offsetof(gdImage, field)) << #field
TEST(LibraryLayouts, GdImageRecord) {
  EXPECT_EQ(gd::kMaxColors, gdMaxColors);
  EXPECT_EQ(sizeof(gd::Image), sizeof(gdImage));
  SAME_OFFSET(pixels);
  SAME_OFFSET(sx);
  SAME_OFFSET(sy);
  SAME_OFFSET(colorsTotal);
  SAME_OFFSET(red);
  SAME_OFFSET(green);
  SAME_OFFSET(blue);
  SAME_OFFSET(open);
  SAME_OFFSET(transparent);
  SAME_OFFSET(polyInts);
  SAME_OFFSET(polyAllocated);
  SAME_OFFSET(brush);
  SAME_OFFSET(tile);
  SAME_OFFSET(brushColorMap);
  SAME_OFFSET(tileColorMap);
  SAME_OFFSET(styleLength);
  SAME_OFFSET(stylePos);
  SAME_OFFSET(style);
  SAME_OFFSET(interlace);
  SAME_OFFSET(thick);
  SAME_OFFSET(alpha);
  SAME_OFFSET(trueColor);
  SAME_OFFSET(tpixels);
  SAME_OFFSET(alphaBlendingFlag);
  SAME_OFFSET(saveAlphaFlag);
  SAME_OFFSET(AA);
  SAME_OFFSET(AA_color);
  SAME_OFFSET(AA_dont_blend);
  SAME_OFFSET(cx1);
  SAME_OFFSET(cy1);
  SAME_OFFSET(cx2);
  SAME_OFFSET(cy2);
  SAME_OFFSET(res_x);
  SAME_OFFSET(res_y);
  SAME_OFFSET(paletteQuantizationMethod);
  SAME_OFFSET(paletteQuantizationSpeed);
  SAME_OFFSET(paletteQuantizationMinQuality);
  SAME_OFFSET(paletteQuantizationMaxQuality);
  SAME_OFFSET(interpolation_id);
  SAME_OFFSET(interpolation);
}
#undef SAME_OFFSET

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
