// pngkrv encode: PAM and PNG input through host pictures and PNGWriterKRV, its options, and its
// failures.
#include <tuple>

#include "tests/e2e/test_writer_helpers.h"

namespace e2e {
namespace {

using samples::Bytes;

Bytes Decoded(const std::string& path) {
  uint32_t width = 0, height = 0;
  return samples::DecodeRGBA(samples::ReadFile(path), &width, &height);
}

class WriterTool : public PluginTest {
 protected:
  void SetUp() override {
    // The tool runs a process of its own; one profile of each application kind covers it.
    if (!FullServiceHost() || Profile().app == emu::AppKind::Web) GTEST_SKIP();
    if (PngSuiteDir().empty()) GTEST_SKIP() << "no PNG suite";
  }
  ToolRun Encode(const std::string& arguments) {
    return RunTool("--host " + Profile().name + " encode " + arguments);
  }
  std::string Suite(const char* name) { return PngSuiteDir() + "/" + name; }
  TempFile out{{}};
};

TEST_F(WriterTool, TypesDestinationsAndChunks) {
  // Input, options -> the colour type written. Grey levels are the writer's own (pinned where it
  // is tested); colours come through.
  const std::tuple<const char*, const char*, int> kCases[] = {
      {"basn6a08.png", "", 6},
      {"basi4a08.png", "--type graya --interlace", 4},
      {"basn2c08.png", "--type gray --to-string", 0},
      {"basn3p08.png", "--type palette --to-string", 3},
      {"tbbn3p08.png", "--type palette --alphas", 3},
      {"basn6a08.png", "--type rgb", 2}};
  for (const auto& [file, options, colorType] : kCases) {
    const ToolRun run = Encode(std::string(options) + " " + Suite(file) + " " + out.path);
    ASSERT_EQ(run.status, 0) << file << " " << run.output;
    Bytes in = Decoded(Suite(file));
    const Bytes got = Decoded(out.path);
    ASSERT_EQ(got.size(), in.size());
    for (size_t i = 0; i < in.size(); i += 4) {
      if (colorType == 0 || colorType == 4) in[i] = in[i + 1] = in[i + 2] = got[i];
      if (colorType == 2) in[i + 3] = 255;
    }
    EXPECT_EQ(got, in) << file << " " << options;
    EXPECT_EQ(ReadWithLibpng(samples::ReadFile(out.path)).colorType, colorType) << options;
  }

  const Bytes rgba = Decoded(Suite("basn6a08.png"));
  const TempFile pam(samples::EncodePAM(32, 32, rgba));
  ASSERT_EQ(Encode(pam.path + " " + out.path).status, 0);
  EXPECT_EQ(Decoded(out.path), rgba) << "PAM input with its alpha as the mask";

  const ToolRun run = Encode("--dpi 300 --gamma 2.2 --srgb 2 --filter 0x20 --level 9 " +
                             Suite("basn2c08.png") + " " + out.path);
  ASSERT_EQ(run.status, 0) << run.output;
  const ReadBack back = ReadWithLibpng(samples::ReadFile(out.path));
  EXPECT_EQ(std::make_tuple(back.physX, back.physUnit, back.srgbIntent),
            std::make_tuple(11811u, 1, 2));
  EXPECT_NEAR(back.gamma, 1 / 2.2, 1e-5);
}

TEST_F(WriterTool, Failures) {
  const TempFile profile(samples::ReadFile(Suite("basn2c08.png")));  // libpng refuses the bytes
  const std::string in = Suite("basn2c08.png"), to = " " + out.path;
  const std::tuple<std::string, int, const char*> cases[] = {
      {"--icc Name " + profile.path + " " + in + to, 1, "error: "},
      {"--type palette " + Suite("basn2c16.png") + to, 1, "more than 256 colours"},
      {"--type cmyk " + in + to, 1, ""},
      {"--filter x " + in + to, 1, ""},
      {"--icc Name " + in + to, 2, ""},
      {"/nonexistent.pam" + to, 1, ""},
      {in + " /nonexistent/dir/out.png", 1, ""}};
  for (const auto& [arguments, status, message] : cases) {
    const ToolRun run = Encode(arguments);
    EXPECT_EQ(run.status, status) << arguments;
    EXPECT_NE(run.output.find(message), std::string::npos) << run.output;
  }
}

}  // namespace
}  // namespace e2e
