// pngkrv decode, save, cgbi, registry and demo, run as a process: the one-call openers and savers
// round-trip the PNG suite and generated images with the expected pixels, in each picture storage.
#include <stdlib.h>

#include <deque>
#include <filesystem>
#include <map>
#include <set>
#include <utility>

#include "tests/e2e/Fixture.h"

namespace e2e {
namespace {

using samples::Bytes;

Bytes Expected(const std::string& png) {
  uint32_t w = 0, h = 0;
  return samples::DecodeRGBA(samples::ReadFile(png), &w, &h);
}

Bytes PamPixels(const std::string& pam) {
  uint32_t w = 0, h = 0;
  Bytes rgba;
  return samples::DecodePAM(samples::ReadFile(pam), &w, &h, &rgba) ? rgba : Bytes{};
}

Bytes Opaque(Bytes rgba) {
  for (size_t i = 3; i < rgba.size(); i += 4) rgba[i] = 255;
  return rgba;
}

// What a palette can hold: at most 256 colours and, with alphas, one alpha to a colour.
bool FitsPalette(const Bytes& rgba, bool withAlphas) {
  std::map<uint32_t, std::set<uint8_t>> alphas;
  for (size_t i = 0; i < rgba.size(); i += 4) {
    alphas[uint32_t{rgba[i]} << 16 | uint32_t{rgba[i + 1]} << 8 | rgba[i + 2]].insert(rgba[i + 3]);
  }
  if (alphas.size() > 256) return false;
  for (const auto& entry : alphas) {
    if (withAlphas && entry.second.size() > 1) return false;
  }
  return true;
}

// Input PNGs, each with an output file: the suite's valid images (when present) and generated
// images with alpha, grey, 16-bit and interlaced among them; under one profile of each
// application kind.
class ToolRoundTrip : public PluginTest {
 protected:
  void SetUp() override {
    if (!FullServiceHost()) GTEST_SKIP() << "one profile of each application kind";
    if (!PngSuiteDir().empty()) {
      for (const auto& entry : std::filesystem::directory_iterator(PngSuiteDir())) {
        const std::string name = entry.path().filename();
        if (name[0] != 'x' && entry.path().extension() == ".png") inputs.push_back(entry.path());
      }
    }
    for (const samples::Image& image :
         {samples::Pattern(33, 17, 8, 6, false), samples::Pattern(20, 9, 16, 6, true),
          samples::Pattern(15, 15, 8, 4, true), samples::Pattern(7, 30, 16, 4, false)}) {
      generated.emplace_back(samples::Encode(image));
      inputs.push_back(generated.back().path);
    }
    for (size_t i = 0; i < inputs.size(); ++i) {
      outputs.emplace_back(Bytes{});
      all.push_back(i);
    }
  }
  // The chosen inputs with their outputs, as the tool takes them.
  std::string Pairs(const std::vector<size_t>& chosen) {
    std::string pairs;
    for (size_t i : chosen) pairs += " " + inputs[i] + " " + outputs[i].path;
    return pairs;
  }
  std::string OnThisHost() { return "--host " + Profile().name + " "; }

  std::vector<std::string> inputs;
  std::deque<TempFile> generated;
  std::deque<TempFile> outputs;
  std::vector<size_t> all;
};

class ToolRegistry : public PluginTest {};

class ToolCommands : public PluginTest {
 protected:
  void SetUp() override {
    if (!FullServiceHost() || !Desktop()) GTEST_SKIP() << "one profile is enough";
  }
};

TEST_F(ToolRoundTrip, EveryViaDecodesAsRows) {
  ASSERT_EQ(RunTool(OnThisHost() + "rows --gamma -1" + Pairs(all)).status, 0);
  std::vector<Bytes> rows;
  for (const TempFile& out : outputs) rows.push_back(PamPixels(out.path));
  for (const char* via : {"reader", "string", "file", "combined"}) {
    const ToolRun run = RunTool(OnThisHost() + "decode --gamma -1 --via " + via + Pairs(all));
    ASSERT_EQ(run.status, 0) << via << ": " << run.output;
    for (size_t i = 0; i < inputs.size(); ++i) {
      EXPECT_EQ(PamPixels(outputs[i].path), rows[i]) << via << " " << inputs[i];
    }
  }
}

TEST_F(ToolRoundTrip, EverySaveForm) {
  std::vector<Bytes> expected;
  for (const std::string& input : inputs) expected.push_back(Expected(input));
  // Each overload of the savers; the palette forms take the images that a palette holds.
  for (const std::string form :
       {"", "--file", "--mask", "--mask --file --gamma 0.45", "--interlace --filter 8",
        "--mask --interlace --filter 0", "--file --filter 3", "--file --mask --interlace", "--8bit",
        "--8bit --interlace --filter 1", "--8bit --alphas", "--8bit --alphas --interlace"}) {
    const bool palette = form.find("--8bit") != std::string::npos;
    const bool alphas = form.find("--alphas") != std::string::npos;
    std::vector<size_t> allowed;
    for (size_t i = 0; i < inputs.size(); ++i) {
      if (!palette || FitsPalette(expected[i], alphas)) allowed.push_back(i);
    }
    const ToolRun run = RunTool(OnThisHost() + "save " + form + Pairs(allowed));
    ASSERT_EQ(run.status, 0) << form << ": " << run.output;
    for (size_t i : allowed) {
      const Bytes want = palette && !alphas ? Opaque(expected[i]) : expected[i];
      EXPECT_EQ(Expected(outputs[i].path), want) << form << " " << inputs[i];
    }
  }
}

TEST_F(ToolCommands, FailuresAndUsage) {
  const TempFile colourful(samples::Encode(samples::Pattern(40, 40, 16, 2, false)));
  const TempFile out(Bytes{});
  const ToolRun many = RunTool("save --8bit " + colourful.path + " " + out.path);
  EXPECT_EQ(many.status, 1);
  EXPECT_NE(many.output.find("more than 256 colours"), std::string::npos) << many.output;
  for (const char* options : {"", "--file"}) {
    const ToolRun run = RunTool(std::string("save ") + options + " " + colourful.path +
                                " /nonexistent/dir/out.png");
    EXPECT_EQ(run.status, 1) << options;
  }
  EXPECT_EQ(RunTool("save --alphas " + colourful.path + " " + out.path).status, 2);
  EXPECT_EQ(RunTool("save --8bit --mask " + colourful.path + " " + out.path).status, 2);
  EXPECT_EQ(RunTool("decode --via pipe " + colourful.path + " " + out.path).status, 2);
  EXPECT_EQ(RunTool("decode " + colourful.path).status, 2);
  EXPECT_EQ(RunTool("registry x").status, 2);

  // A failure ends the run: the pairs after it are not converted.
  const ToolRun stopped = RunTool("decode --via file /nonexistent.png " + out.path + " " +
                                  colourful.path + " " + out.path);
  EXPECT_EQ(stopped.status, 1);
  EXPECT_NE(stopped.output.find("/nonexistent.png: no picture decoded"), std::string::npos);
  EXPECT_TRUE(samples::ReadFile(out.path).empty());
}

// CgBI data keeps red and blue exchanged, which the reader puts back in place; a stream with an
// empty chunk (its IEND) among its first 100 chunks does not convert.
TEST_F(ToolCommands, CgBIConverts) {
  const samples::Image image = samples::Pattern(24, 16, 8, 6, false);
  const TempFile converts(samples::CgBIStream(image, 1, 100, false));
  const TempFile ends(samples::CgBIStream(image, 1, 5, true));
  const TempFile out(Bytes{});
  const ToolRun run = RunTool("cgbi " + converts.path + " " + out.path);
  ASSERT_EQ(run.status, 0) << run.output;
  uint32_t w = 0, h = 0;
  Bytes expected = samples::DecodeRGBA(samples::Encode(image), &w, &h);
  for (size_t i = 0; i < expected.size(); i += 4) std::swap(expected[i], expected[i + 2]);
  EXPECT_EQ(PamPixels(out.path), expected);
  const ToolRun failed = RunTool("cgbi " + ends.path + " " + out.path);
  EXPECT_EQ(failed.status, 1);
  EXPECT_NE(failed.output.find("not CgBI data that converts"), std::string::npos);
}

// --to-png writes the standard PNG of a CgBI file as Apple's tool writes it (empty IEND, colour
// premultiplied: opaque pixels keep theirs exactly); a standard PNG ends with status 1.
TEST_F(ToolCommands, CgBIToPNG) {
  const samples::Image image = samples::Pattern(24, 16, 8, 6, false);
  samples::Image opaque = image;
  for (Bytes& row : opaque.rows) {
    for (size_t i = 3; i < row.size(); i += 4) row[i] = 255;
  }
  const TempFile cgbi(samples::CgBIFile(samples::CgBIPixels(opaque), 3, {}));
  const TempFile other(samples::Encode(image));
  const TempFile out(Bytes{});
  const ToolRun run = RunTool("cgbi --to-png " + cgbi.path + " " + out.path);
  ASSERT_EQ(run.status, 0) << run.output;
  uint32_t w = 0, h = 0;
  EXPECT_EQ(Expected(out.path), samples::DecodeRGBA(samples::Encode(opaque), &w, &h));
  const ToolRun failed = RunTool("cgbi --to-png " + other.path + " " + out.path);
  EXPECT_EQ(failed.status, 1);
  EXPECT_NE(failed.output.find(other.path + ": not CgBI data that converts"), std::string::npos);
  EXPECT_EQ(RunTool("cgbi --to-png --gamma 2 " + cgbi.path + " " + out.path).status, 2);
}

// What the tool lists is what the plug-in registered with this host.
TEST_F(ToolRegistry, ListsWhatThePluginRegistered) {
  const ToolRun run = RunTool("--host " + Profile().name + " registry");
  ASSERT_EQ(run.status, 0) << run.output;
  for (const char* line : {"class PNGReaderKRV", "class PNGWriterKRV", "class PNGPictureKRV",
                           "method \"ReadRow(mem as memoryblock) as boolean\" flags 0x4",
                           "event \"Error(msg as string)\"", "constant \"TypeRGBA = 6\""}) {
    EXPECT_NE(run.output.find(line), std::string::npos) << line;
  }
  const emu::Registry& registry = Host().GetRegistry();
  for (const emu::ModuleInfo& module : registry.modules) {
    EXPECT_NE(run.output.find("module " + module.name), std::string::npos) << module.name;
  }
  EXPECT_EQ(run.output.find("extension Folderitem") != std::string::npos,
            !registry.extensions.empty());
  EXPECT_EQ(run.output.find("global method \"PNGStringToPictureKRV(") != std::string::npos,
            !registry.methods.empty());
}

TEST_F(ToolCommands, DemoSavesEveryExampleAgain) {
  char name[] = "/tmp/pngkrv-demo-XXXXXX";
  ASSERT_NE(mkdtemp(name), nullptr);
  const std::filesystem::path dir = name;
  const ToolRun run =
      RunTool("demo --examples " + (dir / "in").string() + " --out " + (dir / "out").string());
  EXPECT_EQ(run.status, 0) << run.output;
  EXPECT_NE(run.output.find("file                colour type     size    interlace decode  encode"),
            std::string::npos)
      << run.output;
  size_t examples = 0;
  for (const auto& entry : std::filesystem::directory_iterator(dir / "in")) {
    const std::string file = entry.path().filename();
    SCOPED_TRACE(file);
    ++examples;
    EXPECT_NE(run.output.find(file), std::string::npos);
    EXPECT_EQ(Expected((dir / "out" / file).string()), Expected(entry.path()));
  }
  EXPECT_EQ(examples, 7u);
  std::filesystem::remove_all(dir);
}

}  // namespace
}  // namespace e2e
