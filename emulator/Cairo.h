// cairo in the emulator: a Linux desktop host keeps its pictures in cairo image surfaces and draws
// them with cairo. The library is loaded into the process, its symbols global as in a host that
// links it, only when such a host starts: a console host's process has no cairo, and the plug-in
// must work there all the same.
#pragma once

#include <cairo.h>

namespace emu {

struct CairoApi {
  decltype(&cairo_image_surface_create) createImage;
  decltype(&cairo_image_surface_create_for_data) createForData;
  decltype(&cairo_image_surface_get_data) imageData;
  decltype(&cairo_image_surface_get_stride) imageStride;
  decltype(&cairo_format_stride_for_width) strideForWidth;
  decltype(&cairo_surface_status) surfaceStatus;
  decltype(&cairo_surface_destroy) surfaceDestroy;
  decltype(&cairo_surface_flush) flush;
  decltype(&cairo_surface_mark_dirty) markDirty;
  decltype(&cairo_create) create;
  decltype(&cairo_status) status;
  decltype(&cairo_destroy) destroy;
  decltype(&cairo_get_target) getTarget;
  decltype(&cairo_translate) translate;
  decltype(&cairo_scale) scale;
  decltype(&cairo_rectangle) rectangle;
  decltype(&cairo_clip) clip;
  decltype(&cairo_set_source) setSource;
  decltype(&cairo_set_source_surface) setSourceSurface;
  decltype(&cairo_set_operator) setOperator;
  decltype(&cairo_pattern_create_for_surface) createPattern;
  decltype(&cairo_pattern_set_filter) setFilter;
  decltype(&cairo_pattern_set_matrix) setMatrix;
  decltype(&cairo_pattern_destroy) patternDestroy;
  decltype(&cairo_matrix_init_translate) matrixTranslate;
  decltype(&cairo_paint) paint;
  decltype(&cairo_mask) mask;
};

// Loads libcairo (once for the process); emu::Error when it cannot be loaded.
void LoadCairo();
// The loaded library's functions; emu::Error before LoadCairo.
const CairoApi& Cairo();

}  // namespace emu
