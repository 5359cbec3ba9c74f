#include "emulator/Cairo.h"

#include <dlfcn.h>

#include <memory>

#include "emulator/Emulator.h"

namespace emu {

namespace {

std::unique_ptr<CairoApi>& Loaded() {
  static std::unique_ptr<CairoApi> api;
  return api;
}

template <typename Fn>
void Bind(void* library, Fn* fn, const char* name) {
  *fn = reinterpret_cast<Fn>(dlsym(library, name));
  if (*fn == nullptr) throw Error(std::string("libcairo has no ") + name);
}

CairoApi Bound(void* library) {
  CairoApi c{};
  Bind(library, &c.createImage, "cairo_image_surface_create");
  Bind(library, &c.createForData, "cairo_image_surface_create_for_data");
  Bind(library, &c.imageData, "cairo_image_surface_get_data");
  Bind(library, &c.imageStride, "cairo_image_surface_get_stride");
  Bind(library, &c.strideForWidth, "cairo_format_stride_for_width");
  Bind(library, &c.surfaceStatus, "cairo_surface_status");
  Bind(library, &c.surfaceDestroy, "cairo_surface_destroy");
  Bind(library, &c.flush, "cairo_surface_flush");
  Bind(library, &c.markDirty, "cairo_surface_mark_dirty");
  Bind(library, &c.create, "cairo_create");
  Bind(library, &c.status, "cairo_status");
  Bind(library, &c.destroy, "cairo_destroy");
  Bind(library, &c.getTarget, "cairo_get_target");
  Bind(library, &c.translate, "cairo_translate");
  Bind(library, &c.scale, "cairo_scale");
  Bind(library, &c.rectangle, "cairo_rectangle");
  Bind(library, &c.clip, "cairo_clip");
  Bind(library, &c.setSource, "cairo_set_source");
  Bind(library, &c.setSourceSurface, "cairo_set_source_surface");
  Bind(library, &c.setOperator, "cairo_set_operator");
  Bind(library, &c.createPattern, "cairo_pattern_create_for_surface");
  Bind(library, &c.setFilter, "cairo_pattern_set_filter");
  Bind(library, &c.setMatrix, "cairo_pattern_set_matrix");
  Bind(library, &c.patternDestroy, "cairo_pattern_destroy");
  Bind(library, &c.matrixTranslate, "cairo_matrix_init_translate");
  Bind(library, &c.paint, "cairo_paint");
  Bind(library, &c.mask, "cairo_mask");
  return c;
}

}  // namespace

void LoadCairo() {
  if (Loaded()) return;
  void* library = dlopen("libcairo.so.2", RTLD_NOW | RTLD_GLOBAL);
  if (library == nullptr) throw Error(std::string("cannot load libcairo: ") + dlerror());
  Loaded() = std::make_unique<CairoApi>(Bound(library));
}

const CairoApi& Cairo() {
  if (!Loaded()) throw Error("cairo is used before a Linux desktop host loaded it");
  return *Loaded();
}

}  // namespace emu
