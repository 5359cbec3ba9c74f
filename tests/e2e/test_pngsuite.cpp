// The PNG conformance suite under every host profile: every valid image decodes to what an
// independent decoder gives, every corrupt one (x*) fails with a message; and the tool's info.
#include <algorithm>
#include <filesystem>

#include "tests/e2e/Fixture.h"

namespace e2e {
namespace {

using samples::Bytes;

std::vector<std::string> SuiteFiles() {
  std::vector<std::string> files;
  if (PngSuiteDir().empty()) return files;
  for (const auto& entry : std::filesystem::directory_iterator(PngSuiteDir())) {
    if (entry.path().extension() == ".png") files.push_back(entry.path().filename().u8string());
  }
  std::sort(files.begin(), files.end());
  return files;
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
    if (name[0] == 'x') {
      EXPECT_TRUE(rows.empty());
      EXPECT_FALSE(reader.errors.empty());
      continue;
    }
    EXPECT_EQ(rows, Decoded(png));
    EXPECT_TRUE(reader.errors.empty()) << reader.errors[0];
  }
}

TEST_F(PngSuite, ToolInfo) {
  if (!FullServiceHost() || !Desktop()) GTEST_SKIP() << "one profile is enough";
  const ToolRun info = RunTool("info " + PathOf("basi3p02.png"));
  EXPECT_EQ(info.status, 0);
  EXPECT_EQ(info.output,
            "width: 32\nheight: 32\nbit_depth: 2\ncolor_type: 2\ninterlace_type: 1\npasses: 7\n"
            "row_bytes: 128\nsrgb_intent: none\nicc_profile: none\ntext: none\n");
}

}  // namespace
}  // namespace e2e
