// The host for the end-to-end tests: one profile per process (PNGKRV_HOST), the real plug-in
// loaded once, and an audit after every test that every host reference was given back.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "emulator/Emulator.h"
#include "tools/samples/Samples.h"

namespace e2e {

emu::Host& Host();
const emu::Profile& Profile();
std::string PngSuiteDir();  // empty when the suite is absent

// A current host that serves everything, one profile of each application kind: where the checks
// that need no run under every profile (the tool's own processes, the every-offset loops) run.
bool FullServiceHost();
bool Desktop();

// A storage new pictures of this host come in: the alpha info and row padding set on the host
// (SetPictureFormat), and the pixel format the picture is then stored in. Linux desktop hosts:
// cairo RGB24, with and without row padding; macOS desktop hosts: the six bitmap-context layouts,
// each with and without padding; Windows desktop hosts: their one layout; elsewhere gd true
// colour.
struct PictureStorage {
  int alphaInfo, padding, format;
};
std::vector<PictureStorage> PictureStorages();

// A PNGReaderKRV whose events are collected.
struct Reader {
  Reader();
  emu::Value Call(const char* name, std::vector<emu::Arg> args = {});
  bool Ok(const char* name, std::vector<emu::Arg> args = {}) {
    return Call(name, args).AsBoolean();
  }
  RBInteger Int(const char* property);
  bool OpenData(const samples::Bytes& png);

  emu::Value object;
  std::vector<std::string> errors;
  std::vector<std::string> warnings;
};

emu::Value Str(const samples::Bytes& bytes);
// A picture's pixels as the host shows them, RGBA with its mask applied.
samples::Bytes Rgba(const emu::Value& picture);

// Decoded RGBA as the picture must hold it: opaque, red and blue exchanged with `swap`.
samples::Bytes Colours(samples::Bytes rgba, bool swap);
// RGBA as an independent decoder gives it.
samples::Bytes Decoded(const samples::Bytes& png);
// The mask as the decoder must make it: grey 255 − alpha, opaque.
samples::Bytes MaskOf(const samples::Bytes& rgba);

// A run of the command-line tool: its exit status and its standard output and error together.
struct ToolRun {
  int status = -1;
  std::string output;
};
ToolRun RunTool(const std::string& arguments);

// A scratch file that is removed when the test ends.
struct TempFile {
  explicit TempFile(const samples::Bytes& contents);
  ~TempFile();
  std::string path;
};

// After each test: the audit, and new pictures back in the host's first storage.
class PluginTest : public ::testing::Test {
 protected:
  void TearDown() override;
};

}  // namespace e2e

namespace e2e {

// Opens `png` as data, sets it up with ApplyOptions(gamma) and reads every row of every pass
// into one block per image row. Empty when any step fails.
samples::Bytes DecodeThroughRows(Reader& reader, const samples::Bytes& png, double gamma);

}  // namespace e2e
