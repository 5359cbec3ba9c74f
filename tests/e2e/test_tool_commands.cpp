// pngkrv run as a process: its commands' options, outputs, failures and exit statuses.
#include <stdlib.h>

#include <algorithm>
#include <deque>
#include <filesystem>
#include <tuple>

#include "tests/e2e/Fixture.h"

namespace e2e {
namespace {

using samples::Bytes;

// The RGBA pixels of a PAM or PNG file.
Bytes Pixels(const std::string& path) {
  const Bytes file = samples::ReadFile(path);
  uint32_t w = 0, h = 0;
  Bytes rgba;
  return samples::DecodePAM(file, &w, &h, &rgba) ? rgba : samples::DecodeRGBA(file, &w, &h);
}

// Generated images, each with an output file, under one profile of each application kind.
class ToolRoundTrip : public PluginTest {
 protected:
  void SetUp() override {
    if (!FullServiceHost()) GTEST_SKIP() << "one profile of each application kind";
    for (const samples::Image& image :
         {samples::Pattern(33, 17, 8, 6, false), samples::Pattern(20, 9, 16, 6, true),
          samples::Pattern(15, 15, 8, 4, true), samples::Pattern(7, 30, 16, 4, false)}) {
      inputs.push_back(generated.emplace_back(samples::Encode(image)).path);
      outputs.emplace_back(Bytes{});
    }
  }
  // A run of the tool on this host over the first `count` inputs and their outputs.
  ToolRun Run(const std::string& command, size_t count = 4) {
    std::string pairs;
    for (size_t i = 0; i < count; ++i) pairs += " " + inputs[i] + " " + outputs[i].path;
    return RunTool("--host " + Profile().name + " " + command + pairs);
  }

  std::vector<std::string> inputs;
  std::deque<TempFile> generated, outputs;
};

class ToolRegistry : public PluginTest {};

class ToolCommands : public PluginTest {
 protected:
  void SetUp() override {
    if (!FullServiceHost() || !Desktop()) GTEST_SKIP() << "one profile is enough";
  }
};

// Every opener gives the pixels an independent decoder gives.
TEST_F(ToolRoundTrip, EveryViaDecodesAsRows) {
  for (const char* via : {"reader", "string", "file", "combined"}) {
    const ToolRun run = Run(std::string("decode --gamma -1 --via ") + via);
    ASSERT_EQ(run.status, 0) << via << ": " << run.output;
    for (size_t i = 0; i < inputs.size(); ++i) {
      EXPECT_EQ(Pixels(outputs[i].path), Pixels(inputs[i])) << via << " " << inputs[i];
    }
  }
}

// Each overload of the savers; the palette forms take images of at most 256 colours.
TEST_F(ToolRoundTrip, EverySaveForm) {
  std::vector<Bytes> expected;
  for (const std::string& input : inputs) expected.push_back(Pixels(input));
  for (const std::string form :
       {"", "--file", "--mask", "--mask --file --gamma 0.45", "--interlace --filter 8",
        "--mask --interlace --filter 0", "--file --filter 3", "--file --mask --interlace", "--8bit",
        "--8bit --interlace --filter 1", "--8bit --alphas", "--8bit --alphas --interlace"}) {
    const bool palette = form.find("--8bit") != std::string::npos;
    const bool alphas = form.find("--alphas") != std::string::npos;
    const size_t count = alphas ? 3 : 4;  // the last image has greys with several alphas
    const ToolRun run = Run("save " + form, count);
    ASSERT_EQ(run.status, 0) << form << ": " << run.output;
    for (size_t i = 0; i < count; ++i) {
      const Bytes want = palette && !alphas ? Colours(expected[i], false) : expected[i];
      EXPECT_EQ(Pixels(outputs[i].path), want) << form << " " << inputs[i];
    }
  }
}

// Arguments -> exit status and what the output must hold. A failure ends the run: the pairs after
// it are not converted, and nothing is written for a failed pair.
TEST_F(ToolCommands, FailuresAndUsage) {
  const TempFile colourful(samples::Encode(samples::Pattern(40, 40, 16, 2, false)));
  const TempFile out(Bytes{}), junk(Bytes(20, 'x'));
  const std::string in = " " + colourful.path, pair = in + " " + out.path;
  const std::tuple<std::string, int, const char*> kCases[] = {
      {"save" + in + " /nonexistent/dir/out.png", 1, ""},
      {"save --file" + in + " /nonexistent/dir/out.png", 1, ""},
      {"save --alphas" + pair, 2, ""},
      {"save --8bit --mask" + pair, 2, ""},
      {"save --8bit" + pair, 1, "more than 256 colours"},
      {"decode --via pipe" + pair, 2, ""},
      {"decode --via alpha-string --gamma 1" + pair, 2, ""},
      {"save --alpha --mask" + pair, 2, ""},
      {"decode " + colourful.path, 2, ""},
      {"decode --via file /nonexistent.png " + out.path + pair, 1,
       "/nonexistent.png: no picture decoded"},
      {"rows " + junk.path + " " + out.path, 1, "error: Not a PNG file"},
      {"rows --gamma abc a.png b.pam", 2, ""},
      {"info /nonexistent.png", 1, "cannot open"},
      {"info", 2, ""},
      {"--host nowhere info x.png", 2, ""},
      {"registry x", 2, ""}};
  for (const auto& [arguments, status, message] : kCases) {
    const ToolRun run = RunTool(arguments);
    EXPECT_EQ(run.status, status) << arguments;
    EXPECT_NE(run.output.find(message), std::string::npos) << run.output;
  }
  EXPECT_TRUE(samples::ReadFile(out.path).empty());
}

// cgbi opens CgBI data, red and blue left exchanged for the reader to put back; --to-png writes
// the standard PNG. Data that does not convert fails either way.
TEST_F(ToolCommands, CgBI) {
  const samples::Image image = samples::Pattern(24, 16, 8, 6, false),
                       opaque = samples::Pattern(24, 16, 8, 2, false);
  const TempFile out(Bytes{}), standard(samples::Encode(image));
  const TempFile special(samples::CgBIStream(image, 1, 100, false));
  const TempFile cgbi(samples::CgBIFile(samples::CgBIPixels(opaque), 3, {}));
  ASSERT_EQ(RunTool("cgbi " + special.path + " " + out.path).status, 0);
  Bytes swapped = Decoded(samples::Encode(image));
  for (size_t i = 0; i < swapped.size(); i += 4) std::swap(swapped[i], swapped[i + 2]);
  EXPECT_EQ(Pixels(out.path), swapped);
  ASSERT_EQ(RunTool("cgbi --to-png " + cgbi.path + " " + out.path).status, 0);
  EXPECT_EQ(Pixels(out.path), Decoded(samples::Encode(opaque)));
  for (const std::string command : {"cgbi ", "cgbi --to-png "}) {
    const ToolRun failed = RunTool(command + standard.path + " " + out.path);
    EXPECT_EQ(failed.status, 1);
    EXPECT_NE(failed.output.find(standard.path + ": not CgBI data that converts"),
              std::string::npos);
  }
  EXPECT_EQ(RunTool("cgbi --to-png --gamma 2 " + cgbi.path + " " + out.path).status, 2);
}

// What the tool lists is what the plug-in registered with this host.
TEST_F(ToolRegistry, ListsWhatThePluginRegistered) {
  const ToolRun run = RunTool("--host " + Profile().name + " registry");
  ASSERT_EQ(run.status, 0) << run.output;
  const emu::Registry& registry = Host().GetRegistry();
  const std::pair<const char*, bool> kListed[] = {
      {"class PNGPictureKRV", true},
      {"module FolderitemPNGExtensionKRV", !registry.modules.empty()},
      {"extension Folderitem", !registry.extensions.empty()},
      {"global method \"PNGStringToPictureKRV(", !registry.methods.empty()}};
  for (const auto& [line, listed] : kListed) {
    EXPECT_EQ(run.output.find(line) != std::string::npos, listed) << line;
  }
}

TEST_F(ToolCommands, DemoSavesEveryExampleAgain) {
  // A folder named after a new temporary file is new too.
  const TempFile marker({});
  const std::filesystem::path dir = std::filesystem::u8path(marker.path + ".d");
  ASSERT_TRUE(std::filesystem::create_directory(dir));
  const ToolRun run =
      RunTool("demo --examples " + (dir / "in").u8string() + " --out " + (dir / "out").u8string());
  EXPECT_EQ(run.status, 0) << run.output;
  size_t examples = 0;
  for (const auto& entry : std::filesystem::directory_iterator(dir / "in")) {
    const std::string file = entry.path().filename().u8string();
    ++examples;
    EXPECT_NE(run.output.find(file), std::string::npos) << file;
    EXPECT_EQ(Pixels((dir / "out" / file).u8string()), Pixels(entry.path().u8string())) << file;
  }
  EXPECT_EQ(examples, 7u);
  std::filesystem::remove_all(dir);
}

}  // namespace
}  // namespace e2e
