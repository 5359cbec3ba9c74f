// pngkrv encode: PAM and PNG input through host pictures and PNGWriterKRV, its options, and its
// failures.
#include "tests/e2e/test_writer_helpers.h"

namespace e2e {
namespace {

using samples::Bytes;

ToolRun Encode(const std::string& arguments) {
  return RunTool("--host " + Profile().name + " encode " + arguments);
}

Bytes Decoded(const std::string& path) {
  uint32_t width = 0, height = 0;
  return samples::DecodeRGBA(samples::ReadFile(path), &width, &height);
}

// The RGBA of `rgba` as grey by the writer's weights.
Bytes Grey(Bytes rgba) {
  for (size_t i = 0; i < rgba.size(); i += 4) {
    const auto g = static_cast<uint8_t>((77 * rgba[i] + 151 * rgba[i + 1] + 28 * rgba[i + 2]) >> 8);
    rgba[i] = rgba[i + 1] = rgba[i + 2] = g;
  }
  return rgba;
}

class WriterTool : public PluginTest {
 protected:
  void SetUp() override {
    // The tool runs a process of its own; one profile of each application kind covers it.
    const std::string profile = Profile().name;
    if (profile != "desktop-2019.1" && profile != "console-2019.1") GTEST_SKIP();
    if (PngSuiteDir().empty()) GTEST_SKIP() << "no PNG suite";
  }
  std::string Suite(const char* name) { return PngSuiteDir() + "/" + name; }
  TempFile out{{}};
};

TEST_F(WriterTool, TypesAndDestinations) {
  struct Case {
    const char* file;
    const char* options;
    bool grey;
  };
  for (const Case& c :
       {Case{"basn6a08.png", "", false}, Case{"basi4a08.png", "--type graya --interlace", true},
        Case{"basn2c08.png", "--type gray --to-string", true},
        Case{"basn3p08.png", "--type palette --to-string", false},
        Case{"tbbn3p08.png", "--type palette --alphas", false}}) {
    const ToolRun run = Encode(std::string(c.options) + " " + Suite(c.file) + " " + out.path);
    ASSERT_EQ(run.status, 0) << c.file << " " << run.output;
    const Bytes in = Decoded(Suite(c.file));
    EXPECT_EQ(Decoded(out.path), c.grey ? Grey(in) : in) << c.file << " " << c.options;
  }
  EXPECT_EQ(ReadWithLibpng(samples::ReadFile(out.path)).colorType, 3);

  const Bytes rgba = Decoded(Suite("basn6a08.png"));
  TempFile pam(samples::EncodePAM(32, 32, rgba));
  ASSERT_EQ(Encode("--type rgb " + pam.path + " " + out.path).status, 0);
  const ReadBack back = ReadWithLibpng(samples::ReadFile(out.path));
  EXPECT_EQ(back.colorType, 2) << "rgb drops the mask";
}

TEST_F(WriterTool, ChunkOptions) {
  const Bytes icc = samples::ReadFile(Suite("basn2c08.png"));  // any bytes: libpng checks them
  TempFile profile(icc);
  const ToolRun run = Encode("--dpi 300 --gamma 2.2 --srgb 2 --filter 0x20 --level 9 " +
                             Suite("basn2c08.png") + " " + out.path);
  ASSERT_EQ(run.status, 0) << run.output;
  const ReadBack back = ReadWithLibpng(samples::ReadFile(out.path));
  EXPECT_EQ(back.physX, 11811u);
  EXPECT_EQ(back.physUnit, 1);
  EXPECT_NEAR(back.gamma, 1 / 2.2, 1e-5);
  EXPECT_EQ(back.srgbIntent, 2);

  const ToolRun bad =
      Encode("--icc Name " + profile.path + " " + Suite("basn2c08.png") + " " + out.path);
  EXPECT_EQ(bad.status, 1);
  EXPECT_NE(bad.output.find("error: "), std::string::npos) << "libpng's message";
}

TEST_F(WriterTool, Failures) {
  const ToolRun many = Encode("--type palette " + Suite("basn2c16.png") + " " + out.path);
  EXPECT_EQ(many.status, 1);
  EXPECT_NE(many.output.find("more than 256 colours"), std::string::npos) << many.output;
  EXPECT_EQ(Encode("--type cmyk " + Suite("basn2c08.png") + " " + out.path).status, 1);
  EXPECT_EQ(Encode("--filter x " + Suite("basn2c08.png") + " " + out.path).status, 1);
  EXPECT_EQ(Encode("/nonexistent.pam " + out.path).status, 1);
  EXPECT_EQ(Encode(Suite("basn2c08.png") + " /nonexistent/dir/out.png").status, 1);
  EXPECT_EQ(Encode("--icc Name " + Suite("basn2c08.png") + " " + out.path).status, 2);
}

}  // namespace
}  // namespace e2e
