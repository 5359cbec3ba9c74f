// The image record of the gd library, which console and web hosts hand out as a picture's
// description (type 10). The plug-in only reads it (the palette table `pixels`, `trueColor`, the
// true-colour rows `tpixels`, the size `sx` × `sy`), so it declares the record itself, field for
// field as gd's public header has it, and needs no gd header to build: the Windows and macOS
// builds have none. A unit test holds it to gd's own header.
#pragma once

namespace gd {

constexpr int kMaxColors = 256;

struct Image {
  unsigned char** pixels;  // the palette image's rows, null for a true-colour image
  int sx;
  int sy;
  int colorsTotal;
  int red[kMaxColors];
  int green[kMaxColors];
  int blue[kMaxColors];
  int open[kMaxColors];
  int transparent;
  int* polyInts;
  int polyAllocated;
  Image* brush;
  Image* tile;
  int brushColorMap[kMaxColors];
  int tileColorMap[kMaxColors];
  int styleLength;
  int stylePos;
  int* style;
  int interlace;
  int thick;
  int alpha[kMaxColors];
  int trueColor;
  int** tpixels;  // the true-colour image's rows
  int alphaBlendingFlag;
  int saveAlphaFlag;
  int AA;
  int AA_color;
  int AA_dont_blend;
  int cx1;
  int cy1;
  int cx2;
  int cy2;
  unsigned int res_x;
  unsigned int res_y;
  int paletteQuantizationMethod;
  int paletteQuantizationSpeed;
  int paletteQuantizationMinQuality;
  int paletteQuantizationMaxQuality;
  int interpolation_id;  // an enumeration in gd's header
  double (*interpolation)(double, double);
};

}  // namespace gd
