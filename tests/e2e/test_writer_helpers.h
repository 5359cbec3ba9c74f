// A PNGWriterKRV for the tests, the writing sequence they share, and the output read back.
#pragma once

#include <png.h>

#include <string>
#include <vector>

#include "tests/e2e/Fixture.h"

namespace e2e {

inline const emu::Value kNil;

struct Writer {
  // Without events the instance implements neither Error nor Warning.
  explicit Writer(bool withEvents = true);
  emu::Value Call(const char* name, std::vector<emu::Arg> args = {}) {
    return Host().Call(object, name, std::move(args));
  }
  bool Ok(const char* name, std::vector<emu::Arg> args = {}) {
    return Call(name, std::move(args)).AsBoolean();
  }
  RBInteger Int(const char* property) { return Host().GetProperty(object, property).AsInteger(); }
  void Set(const char* property, RBInteger value) { Host().SetProperty(object, property, value); }
  samples::Bytes Finish() {  // empty for nil
    const std::string bytes = Call("Finish").Bytes();
    return samples::Bytes(bytes.begin(), bytes.end());
  }

  emu::Value object;
  std::vector<std::string> errors, warnings;
};

// Width, Type and the rows of `image` (8-bit) through SetRows.
void LoadRows(Writer& w, const samples::Image& image);

// SetHeader and, for palette rows, SetPalette and SetAlphas.
void SetHeaderAndPalette(Writer& w);

// Info, rows and end into memory, given back by Finish; every step must succeed without an Error.
samples::Bytes WriteStream(Writer& w);

// The message of the exception raised by the last call, or "" for none.
std::string RaisedMessage();

struct ReadBack {
  bool ok = false;
  png_uint_32 width = 0, height = 0;
  int bitDepth = 0, colorType = -1, interlace = -1;
  samples::Bytes palette, trns;  // RGB triples; palette alphas
  double gamma = 0.0;            // 0: no gAMA
  int srgbIntent = -1;           // -1: no sRGB
  std::string iccName;
  samples::Bytes icc;
  png_uint_32 physX = 0, physY = 0;
  int physUnit = -1;
  std::vector<samples::Bytes> rows;  // as stored, interlacing undone
  samples::Bytes rgba;               // 8-bit RGBA, decoded by libspng
};

ReadBack ReadWithLibpng(const samples::Bytes& png);

// The filter byte of each row of a stream that is not interlaced, read with zlib; empty when its
// image data does not inflate.
samples::Bytes FilterBytes(const samples::Bytes& png);

// Memory blocks holding `rows`, as a memory block array.
emu::Value RowsArray(const std::vector<samples::Bytes>& rows);

// The threads of this process, or -1 when the system does not say.
int ThreadsRunning();

}  // namespace e2e
