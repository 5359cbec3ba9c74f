// The PNG conformance suite: every valid image decodes to what an independent decoder gives after
// the same transformations, and every deliberately corrupt one (x*) fails with a message. Run in
// process under every host profile, and through the command-line tool.
#include <algorithm>
#include <deque>
#include <filesystem>

#include "tests/e2e/Fixture.h"

namespace e2e {
namespace {

using samples::Bytes;

std::vector<std::string> SuiteFiles() {
  std::vector<std::string> files;
  if (PngSuiteDir().empty()) return files;
  for (const auto& entry : std::filesystem::directory_iterator(PngSuiteDir())) {
    if (entry.path().extension() == ".png") files.push_back(entry.path().filename());
  }
  std::sort(files.begin(), files.end());
  return files;
}

bool Corrupt(const std::string& name) {
  return name[0] == 'x';
}

class PngSuite : public PluginTest {
 protected:
  void SetUp() override {
    files = SuiteFiles();
    if (files.empty()) GTEST_SKIP() << "PNG suite not found (set PNGKRV_PNGSUITE)";
  }
  std::string PathOf(const std::string& name) { return PngSuiteDir() + "/" + name; }

  std::vector<std::string> files;
};

TEST_F(PngSuite, DecodesThroughRowsInProcess) {
  for (const std::string& name : files) {
    SCOPED_TRACE(name);
    const Bytes png = samples::ReadFile(PathOf(name));
    Reader reader;
    const Bytes rows = DecodeThroughRows(reader, png, -1.0);
    if (Corrupt(name)) {
      EXPECT_TRUE(rows.empty());
      EXPECT_FALSE(reader.errors.empty());
      continue;
    }
    uint32_t w = 0, h = 0;
    EXPECT_EQ(rows, samples::DecodeRGBA(png, &w, &h));
    EXPECT_TRUE(reader.errors.empty()) << reader.errors[0];
  }
}

// The valid files go through one run of the tool, each corrupt one through a run of its own;
// one profile of each application kind is enough to cover the tool's code, the in-process test
// above covers every profile.
TEST_F(PngSuite, DecodesThroughTheTool) {
  if (!FullServiceHost()) GTEST_SKIP() << "covered in process";
  const std::string profile = Profile().name;
  const std::string rows = "--host " + profile + " rows --gamma -1 ";
  std::deque<TempFile> outputs;
  std::string pairs;
  for (const std::string& name : files) {
    outputs.emplace_back(Bytes{});
    if (Corrupt(name)) {
      const ToolRun run = RunTool(rows + PathOf(name) + " " + outputs.back().path);
      EXPECT_EQ(run.status, 1) << name;
      EXPECT_NE(run.output.find("error: "), std::string::npos) << name << ": " << run.output;
    } else {
      pairs += PathOf(name) + " " + outputs.back().path + " ";
    }
  }
  const ToolRun run = RunTool(rows + pairs);
  ASSERT_EQ(run.status, 0) << run.output;
  for (size_t i = 0; i < files.size(); ++i) {
    if (Corrupt(files[i])) continue;
    SCOPED_TRACE(files[i]);
    uint32_t w = 0, h = 0, pw = 0, ph = 0;
    const Bytes expected = samples::DecodeRGBA(samples::ReadFile(PathOf(files[i])), &w, &h);
    Bytes rgba;
    ASSERT_TRUE(samples::DecodePAM(samples::ReadFile(outputs[i].path), &pw, &ph, &rgba));
    EXPECT_EQ(pw, w);
    EXPECT_EQ(ph, h);
    EXPECT_EQ(rgba, expected);
  }
}

TEST_F(PngSuite, ToolInfoAndUsage) {
  if (!FullServiceHost() || !Desktop()) GTEST_SKIP() << "one profile is enough";
  const ToolRun info = RunTool("info " + PathOf("basi3p02.png"));
  EXPECT_EQ(info.status, 0);
  EXPECT_EQ(info.output,
            "width: 32\nheight: 32\nbit_depth: 2\ncolor_type: 2\ninterlace_type: 1\npasses: 7\n"
            "row_bytes: 128\nsrgb_intent: none\nicc_profile: none\n");
  EXPECT_EQ(RunTool("info").status, 2);
  EXPECT_EQ(RunTool("--host nowhere info x.png").status, 2);
  EXPECT_EQ(RunTool("rows --gamma abc a.png b.pam").status, 2);
  const ToolRun missing = RunTool("info /nonexistent.png");
  EXPECT_EQ(missing.status, 1);
  EXPECT_NE(missing.output.find("cannot open"), std::string::npos);
}

}  // namespace
}  // namespace e2e
