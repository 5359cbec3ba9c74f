#include "tools/pngkrv/Commands.h"

#include <sys/stat.h>

#include <iomanip>
#include <iostream>

namespace cli {

int Encode(Session& session, const Options& options);  // Encode.cpp
int Decode(Session& session, const Options& options);  // Decode.cpp

namespace {

constexpr char kReadsRGBTag[] = "ReadsRGBTag(byref file_srgb_intent as integer) as boolean";
constexpr char kReadICCProfile[] =
    "ReadICCProfile(byref name as string, byref compression as integer, byref profile as string) "
    "as boolean";

int Info(Session& session, const Options& options) {
  const std::string& path = options.positional[0];
  emu::Value reader = session.NewReader();
  session.OpenAndSetUp(reader, path, 0.0, -1.0);
  std::cout << "width: " << session.Integer(reader, "Width") << "\n"
            << "height: " << session.Integer(reader, "Height") << "\n"
            << "bit_depth: " << session.Integer(reader, "BitDepth") << "\n"
            << "color_type: " << session.Integer(reader, "ColorType") << "\n"
            << "interlace_type: " << session.Integer(reader, "InterlaceType") << "\n"
            << "passes: " << session.Integer(reader, "Interlacing") << "\n"
            << "row_bytes: " << session.Call(reader, "RowBytes as integer", {}).AsInteger() << "\n";
  emu::Value intent(RBInteger{0});
  const bool hasIntent = session.CallBool(reader, kReadsRGBTag, {emu::ByRef(intent)});
  std::cout << "srgb_intent: " << (hasIntent ? std::to_string(intent.AsInteger()) : "none") << "\n";
  emu::Value name, compression(RBInteger{0}), profile;
  const bool hasProfile = session.CallBool(
      reader, kReadICCProfile, {emu::ByRef(name), emu::ByRef(compression), emu::ByRef(profile)});
  std::cout << "icc_profile: "
            << (hasProfile ? name.Text() + ", " + std::to_string(profile.Bytes().size()) + " bytes"
                           : "none")
            << "\n";
  return 0;
}

int Rows(Session& session, const Options& options) {
  const DecodedRows rows = ReadRows(session, options.positional[0], options.Number("--gamma", 0.0),
                                    options.Number("--screen-gamma", -1.0));
  samples::WriteFile(options.positional[1], samples::EncodePAM(rows.width, rows.height, rows.rgba));
  return 0;
}

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

int Demo(Session& session, const Options& options) {
  const std::string examplesDir = options.Text("--examples", "examples");
  const std::string outDir = options.Text("--out", "demo-output");
  mkdir(examplesDir.c_str(), 0755);
  mkdir(outDir.c_str(), 0755);
  std::cout << "Examples in " << examplesDir << "/, decoded rows in " << outDir << "/\n\n"
            << std::left << std::setw(20) << "file" << std::setw(16) << "content" << std::setw(8)
            << "size" << std::setw(7) << "rows" << std::setw(10) << "interlace" << std::setw(8)
            << "decode" << std::right << std::setw(9) << "bytes in" << std::setw(10) << "bytes out"
            << "\n";
  int status = 0;
  for (const Example& example : MakeExamples()) {
    const std::string in = examplesDir + "/" + example.file;
    const samples::Bytes png = samples::Encode(example.image);
    samples::WriteFile(in, png);
    std::string result = "ok";
    samples::Bytes pam;
    RBInteger rowsType = 0;
    try {
      const DecodedRows rows = ReadRows(session, in, 0.0, -1.0);
      pam = samples::EncodePAM(rows.width, rows.height, rows.rgba);
      samples::WriteFile(outDir + "/" + example.file + ".pam", pam);
      rowsType = rows.colorType;
    } catch (const Failure& f) {
      result = "failed";
      status = 1;
      std::cerr << f.message << "\n";
    }
    const std::string size =
        std::to_string(example.image.width) + "x" + std::to_string(example.image.height);
    std::cout << std::left << std::setw(20) << example.file << std::setw(16) << example.description
              << std::setw(8) << size << std::setw(7)
              << (rowsType == 6   ? "RGBA"
                  : rowsType == 2 ? "RGB+F"
                                  : "-")
              << std::setw(10) << (example.image.interlaced ? "Adam7" : "none") << std::setw(8)
              << result << std::right << std::setw(9) << png.size() << std::setw(10) << pam.size()
              << "\n";
  }
  return status;
}

const std::vector<Command>& Commands() {
  static const std::vector<Command> commands = {
      {"info", 1, {}, Info},
      {"rows", 2, {"--gamma", "--screen-gamma"}, Rows},
      {"demo", 0, {"--examples", "--out"}, Demo},
      {"decode", 2, {"--gamma", "--allow-damaged"}, Decode, {{"--allow-damaged", 0}}},
      {"encode",
       2,
       {"--type", "--alphas", "--interlace", "--filter", "--level", "--gamma", "--srgb", "--icc",
        "--dpi", "--to-string"},
       Encode,
       {{"--alphas", 0}, {"--interlace", 0}, {"--to-string", 0}, {"--icc", 2}}},
  };
  return commands;
}

}  // namespace

double Options::Number(const std::string& name, double fallback) const {
  auto it = values.find(name);
  return it == values.end() ? fallback : std::stod(it->second);
}

std::string Options::Text(const std::string& name, const std::string& fallback) const {
  auto it = values.find(name);
  return it == values.end() ? fallback : it->second;
}

const Command* FindCommand(const std::string& name) {
  for (const Command& c : Commands()) {
    if (name == c.name) return &c;
  }
  return nullptr;
}

int Run(const Command& command, const Options& options) {
  try {
    Session session(*options.profile, options.pluginPath);
    int status = 0;
    std::string failure;
    try {
      status = command.run(session, options);
    } catch (const Failure& f) {
      failure = f.message;
      status = 1;
    }
    for (const std::string& m : session.messages()) std::cerr << m << "\n";
    if (!failure.empty()) std::cerr << "pngkrv: " << failure << "\n";
    session.CheckAudit();
    return status;
  } catch (const Failure& f) {
    std::cerr << "pngkrv: " << f.message << "\n";
  } catch (const std::exception& e) {
    std::cerr << "pngkrv: " << e.what() << "\n";
  }
  return 1;
}

}  // namespace cli
