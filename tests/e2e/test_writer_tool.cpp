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
  ToolRun Encode(const std::string& options, const std::string& in) {
    return RunTool("--host " + Profile().name + " encode " + options + " " + in + " " + out.path);
  }
  std::string Suite(const char* name) { return PngSuiteDir() + "/" + name; }
  TempFile out{{}};
};

TEST_F(WriterTool, TypesDestinationsAndChunks) {
  struct Case {
    const char* file;
    const char* options;
    bool grey;
    int colorType;
  };
  for (const Case& c : {Case{"basn6a08.png", "", false, 6},
                        Case{"basi4a08.png", "--type graya --interlace", true, 4},
                        Case{"basn2c08.png", "--type gray --to-string", true, 0},
                        Case{"basn3p08.png", "--type palette --to-string", false, 3},
                        Case{"tbbn3p08.png", "--type palette --alphas", false, 3},
                        Case{"basn6a08.png", "--type rgb", false, 2}}) {
    const ToolRun run = Encode(c.options, Suite(c.file));
    ASSERT_EQ(run.status, 0) << c.file << " " << run.output;
    Bytes in = Decoded(Suite(c.file));
    const Bytes got = Decoded(out.path);
    ASSERT_EQ(got.size(), in.size());
    for (size_t i = 0; i < in.size(); i += 4) {
      // Grey levels are the writer's own (pinned where it is tested); colours come through.
      if (c.grey) in[i] = in[i + 1] = in[i + 2] = got[i];
      if (c.colorType == 2) in[i + 3] = 255;
    }
    EXPECT_EQ(got, in) << c.file << " " << c.options;
    EXPECT_EQ(ReadWithLibpng(samples::ReadFile(out.path)).colorType, c.colorType) << c.options;
  }

  const Bytes rgba = Decoded(Suite("basn6a08.png"));
  const TempFile pam(samples::EncodePAM(32, 32, rgba));
  ASSERT_EQ(Encode("", pam.path).status, 0);
  EXPECT_EQ(Decoded(out.path), rgba) << "PAM input with its alpha as the mask";

  const ToolRun run =
      Encode("--dpi 300 --gamma 2.2 --srgb 2 --filter 0x20 --level 9", Suite("basn2c08.png"));
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
    const ToolRun run = RunTool("--host " + Profile().name + " encode " + arguments);
    EXPECT_EQ(run.status, status) << arguments;
    EXPECT_NE(run.output.find(message), std::string::npos) << run.output;
  }
}

}  // namespace
}  // namespace e2e
