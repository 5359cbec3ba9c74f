// A PNGWriterKRV for the tests, and its output read back with libpng: chunks and raw rows.
#pragma once

#include <png.h>

#include <string>
#include <vector>

#include "tests/e2e/Fixture.h"

namespace e2e {

struct Writer {
  // Without events the instance implements neither Error nor Warning.
  explicit Writer(bool withEvents = true);
  emu::Value Call(const char* name, std::vector<emu::Arg> args = {});
  bool Ok(const char* name, std::vector<emu::Arg> args = {}) {
    return Call(name, std::move(args)).AsBoolean();
  }
  RBInteger Int(const char* property);
  void Set(const char* property, RBInteger value);
  // Finish as bytes; empty for nil.
  samples::Bytes Finish();

  emu::Value object;
  std::vector<std::string> errors;
  std::vector<std::string> warnings;
};

// The message of the exception raised by the last call, or "" for none.
std::string RaisedMessage();

struct ReadBack {
  bool ok = false;
  png_uint_32 width = 0;
  png_uint_32 height = 0;
  int bitDepth = 0;
  int colorType = -1;
  int interlace = -1;
  samples::Bytes palette;  // RGB triples
  samples::Bytes trns;     // palette alphas
  double gamma = 0.0;      // 0: no gAMA
  int srgbIntent = -1;     // -1: no sRGB
  std::string iccName;
  samples::Bytes icc;
  png_uint_32 physX = 0;
  png_uint_32 physY = 0;
  int physUnit = -1;
  std::vector<samples::Bytes> rows;  // as stored, interlacing undone

  // The pixels as RGBA (8-bit images only): grey and palette expanded, tRNS applied.
  samples::Bytes Rgba() const;
};

ReadBack ReadWithLibpng(const samples::Bytes& png);

// Memory blocks holding `rows`, as a memory block array.
emu::Value RowsArray(const std::vector<samples::Bytes>& rows);

}  // namespace e2e
