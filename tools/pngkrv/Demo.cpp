// pngkrv demo: makes a handful of small PNGs of different kinds in an examples folder, decodes
// each with "PNGStringToPNGPictureKRV", saves the picture and mask again with
// "PictureToPNGStringKRV" into an output folder, and checks that the new PNG decodes to the same
// pixels. Prints one table row per example.
#include <filesystem>
#include <iomanip>
#include <iostream>

#include "tools/pngkrv/Commands.h"
#include "tools/pngkrv/Images.h"

namespace cli {

namespace {

// Pixels as the file stores them, so that both decodes compare like with like.
constexpr float kNoGamma = -1.0f;

struct Example {
  const char* file;
  const char* description;
  samples::Image image;
};

std::vector<Example> MakeExamples() {
  std::vector<Example> examples = {
      {"grey-1bit.png", "grey, 1 bit", samples::Pattern(48, 32, 1, 0, false)},
      {"grey-8bit.png", "grey, 8 bits", samples::Pattern(48, 32, 8, 0, false)},
      {"grey-alpha.png", "grey + alpha", samples::Pattern(40, 40, 8, 4, false)},
      {"rgb.png", "RGB, 8 bits", samples::Pattern(64, 48, 8, 2, false)},
      {"rgb-interlaced.png", "RGB, Adam7", samples::Pattern(64, 48, 8, 2, true)},
      {"rgba-16bit.png", "RGBA, 16 bits", samples::Pattern(40, 40, 16, 6, false)},
      {"palette-trns.png", "palette + tRNS", samples::Pattern(32, 32, 4, 3, false)},
  };
  examples.back().image.transparency = {0, 64, 128, 192};
  examples[3].image.chunks.gamma = 0.45455;
  examples[3].image.chunks.srgbIntent = 0;
  return examples;
}

struct Column {
  const char* title;
  int width;
  bool right;
};

constexpr Column kColumns[] = {
    {"file", 20, false},      {"colour type", 16, false}, {"size", 8, false},
    {"interlace", 10, false}, {"decode", 8, false},       {"encode", 8, false},
    {"bytes in", 9, true},    {"bytes out", 10, true},
};

void PrintRow(const std::vector<std::string>& cells) {
  for (size_t i = 0; i < cells.size(); ++i) {
    std::cout << (kColumns[i].right ? std::right : std::left) << std::setw(kColumns[i].width)
              << cells[i];
  }
  std::cout << "\n";
}

// The decode and encode results ("ok", "failed", or "differs" when the new PNG decodes to other
// pixels) and the size of the new PNG.
struct Outcome {
  std::string decode = "failed";
  std::string encode = "-";
  size_t bytesOut = 0;
  bool Ok() const { return decode == "ok" && encode == "ok"; }
};

emu::Value DecodeString(Session& session, const std::string& png) {
  return session.CallGlobal("PNGStringToPNGPictureKRV",
                            {session.host().MakeString(png, kREALTextEncodingUnknown), kNoGamma});
}

Pixels Shown(Session& session, const emu::Value& decoded) {
  return PicturePixels(session, session.host().GetProperty(decoded, "Pict"),
                       session.host().GetProperty(decoded, "Mask"));
}

Outcome RoundTrip(Session& session, const samples::Bytes& png, const std::string& outPath) {
  Outcome outcome;
  const emu::Value decoded = DecodeString(session, Text(png));
  if (decoded.IsNil()) return outcome;
  outcome.decode = "ok";
  const emu::Value encoded = session.CallGlobal(
      "PictureToPNGStringKRV", {session.host().GetProperty(decoded, "Pict"),
                                session.host().GetProperty(decoded, "Mask"), 0.0f});
  if (encoded.IsNil()) {
    outcome.encode = "failed";
    return outcome;
  }
  const std::string bytes = encoded.Bytes();
  WriteOutputFile(outPath, samples::Bytes(bytes.begin(), bytes.end()));
  outcome.bytesOut = bytes.size();
  const emu::Value again = DecodeString(session, bytes);
  const bool same = !again.IsNil() && Shown(session, again).rgba == Shown(session, decoded).rgba;
  outcome.encode = same ? "ok" : "differs";
  return outcome;
}

}  // namespace

int Demo(Session& session, const Options& options) {
  const std::string examplesDir = options.Text("--examples", "examples");
  const std::string outDir = options.Text("--out", "demo-output");
  std::error_code error;
  std::filesystem::create_directory(std::filesystem::u8path(examplesDir), error);
  std::filesystem::create_directory(std::filesystem::u8path(outDir), error);
  std::cout << "Examples in " << examplesDir << "/, saved again in " << outDir << "/\n\n";
  std::vector<std::string> titles;
  for (const Column& c : kColumns) titles.push_back(c.title);
  PrintRow(titles);
  int status = 0;
  for (const Example& example : MakeExamples()) {
    const samples::Bytes png = samples::Encode(example.image);
    WriteOutputFile(examplesDir + "/" + example.file, png);
    Outcome outcome;
    try {
      outcome = RoundTrip(session, png, outDir + "/" + example.file);
    } catch (const Failure& f) {
      std::cerr << example.file << ": " << f.message << "\n";
    }
    if (!outcome.Ok()) status = 1;
    const samples::Image& image = example.image;
    PrintRow({example.file, example.description,
              std::to_string(image.width) + "x" + std::to_string(image.height),
              image.interlaced ? "Adam7" : "none", outcome.decode, outcome.encode,
              std::to_string(png.size()), std::to_string(outcome.bytesOut)});
  }
  return status;
}

}  // namespace cli
