// Compression on several threads: WriteRows with Threads other than 1 on an image of a megapixel
// or more that is not interlaced gives one valid stream, the same whatever the number of threads,
// with libpng's filters and level; Threads 1 and every other image keep libpng's own bytes;
// failures leave no thread running; the one-call savers follow PNGSaveThreadsKRV.
#include <stdio.h>
#if !defined(_WIN32)
#include <sys/wait.h>
#endif

#include "tests/e2e/test_writer_helpers.h"

namespace e2e {
namespace {

using samples::Bytes;
using Texts = std::vector<std::string>;

class WriterThreads : public PluginTest {
 protected:
  void SetUp() override {
    if (!FullServiceHost() || !Desktop()) GTEST_SKIP() << "one profile is enough";
  }
};

Bytes ImageData(const Bytes& png) {
  Bytes data;
  for (const samples::Chunk& chunk : samples::SplitChunks(png)) {
    if (chunk.type == "IDAT") data.insert(data.end(), chunk.data.begin(), chunk.data.end());
  }
  return data;
}

// What pngcheck says of the stream: nothing when it finds it valid. A Linux program: the Windows
// build leaves the stream's validity to libpng's reading of it below.
#if !defined(_WIN32)
std::string Pngcheck(const Bytes& png) {
  TempFile file(png);
  FILE* pipe = popen(("pngcheck -q " + file.path + " 2>&1").c_str(), "r");
  if (pipe == nullptr) return "pngcheck could not be started";
  std::string said;
  char buffer[256];
  while (fgets(buffer, sizeof buffer, pipe)) said += buffer;
  const int status = pclose(pipe);
  if (WIFEXITED(status) && WEXITSTATUS(status) == 127) {
    return "pngcheck is not installed (./run test installs it)";
  }
  return status == 0 ? "" : said + " (exit status " + std::to_string(status) + ")";
}
#endif

struct Written {
  Bytes png;  // empty when Finish gave nil
  Texts errors;
};

// `image` through SetRows and SetHeader(interlacing, filter, level) into memory.
Written Write(const samples::Image& image, RBInteger threads, RBInteger filter, RBInteger level,
              const emu::Value& destination = kNil) {
  Writer w;
  w.Set("Threads", threads);
  LoadRows(w, image);
  std::vector<RBColor> colors;
  for (size_t i = 0; i + 2 < image.palette.size(); i += 3) {
    colors.push_back(RBColor{image.palette[i]} << 16 | image.palette[i + 1] << 8 |
                     image.palette[i + 2]);
  }
  const bool palette = !colors.empty();
  if (palette) {
    EXPECT_TRUE(w.Ok("SetPaletteData", {Host().MakeColorArray(colors)}));
  }
  EXPECT_TRUE(w.Ok("SetHeader", {image.interlaced, filter, level}));
  if (palette) {
    EXPECT_TRUE(w.Ok("SetPalette"));
  }
  if (w.Ok("OpenWriteDestination", {destination}) && w.Ok("WriteInfo") && w.Ok("WriteRows")) {
    w.Ok("WriteEnd");
  }
  return {w.Finish(), w.errors};
}

// libpng's own stream of `image` with the writer's filter value and level.
Bytes Libpng(samples::Image image, int filter, int level) {
  image.filters = filter < 0 ? 0 : filter;
  image.level = level;
  return samples::Encode(image);
}

TEST_F(WriterThreads, OneStreamWhateverTheThreads) {
  const struct {
    const char* name;
    samples::Image image;
    int filter, level;  // as SetHeader takes them: a mask of filter bits, -1 for libpng's own
  } kCases[] = {
      {"RGB, libpng's filters and level", samples::Pattern(1000, 1000, 8, 2, false), -1, -1},
      {"RGBA, Paeth, level 1", samples::Pattern(1000, 1000, 8, 6, false), 0x80, 1},
      {"grey, Sub and Up, level 9", samples::Pattern(1000, 1000, 8, 0, false), 0x30, 9},
      {"grey and alpha, a value without filter bits", samples::Pattern(1000, 1000, 8, 4, false), 3,
       -1},
      {"palette, libpng's choice", samples::Pattern(1250, 800, 8, 3, false), -1, -1},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    const Bytes libpng = Libpng(c.image, c.filter, c.level);
    EXPECT_EQ(Write(c.image, 1, c.filter, c.level).png, libpng) << "Threads 1: libpng's bytes";
    const Written two = Write(c.image, 2, c.filter, c.level);
    EXPECT_EQ(two.errors, Texts());
    EXPECT_NE(two.png, libpng) << "the threads took the image";
    for (RBInteger threads : {0, 3, 8, -1}) {
      EXPECT_EQ(Write(c.image, threads, c.filter, c.level).png, two.png) << threads << " threads";
    }
    const ReadBack back = ReadWithLibpng(two.png);
    EXPECT_TRUE(back.ok);
    EXPECT_TRUE(back.rows == c.image.rows) << "the rows read back";
#if !defined(_WIN32)
    EXPECT_EQ(Pngcheck(two.png), "");
#endif
    EXPECT_EQ(FilterBytes(two.png), FilterBytes(libpng)) << "libpng's filter for every row";
    const Bytes data = ImageData(two.png), libpngData = ImageData(libpng);
    ASSERT_GT(data.size(), 2u);
    EXPECT_EQ(Bytes(data.begin(), data.begin() + 2),
              Bytes(libpngData.begin(), libpngData.begin() + 2))
        << "zlib's header names the level";
  }
}

// Smaller images and interlaced ones are libpng's alone; so is a level zlib refuses, which
// fails as libpng reports it.
TEST_F(WriterThreads, OtherImagesStayWithLibpng) {
  const struct {
    const char* name;
    samples::Image image;
    int level;
  } kCases[] = {{"999 999 pixels", samples::Pattern(999, 1001, 8, 0, false), -1},
                {"interlaced", samples::Pattern(1000, 1000, 8, 0, true), -1},
                {"level 10", samples::Pattern(1000, 1000, 8, 0, false), 10}};
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    const Written one = Write(c.image, 1, -1, c.level), two = Write(c.image, 2, -1, c.level);
    EXPECT_EQ(two.png, one.png);
    EXPECT_EQ(two.errors, one.errors);
    EXPECT_EQ(one.errors.empty(), c.level <= 9);
  }
}

// A destination that takes nothing: the same failure on every path, and every thread ended.
TEST_F(WriterThreads, AFullDestinationLeavesNoThreadRunning) {
#if defined(_WIN32)
  GTEST_SKIP() << "Windows has no device that takes nothing (/dev/full)";
#endif
  const samples::Image image = samples::Pattern(1000, 1000, 8, 2, false);
  const int before = ThreadsRunning();
  for (RBInteger threads : {1, 2, 0}) {
    SCOPED_TRACE(threads);
    const Written written = Write(image, threads, -1, -1, Host().MakeFolderItem("/dev/full"));
    EXPECT_EQ(written.errors, Texts({"Write Error"}));
    EXPECT_EQ(ThreadsRunning(), before);
  }
}

// The one-call savers compress as PNGSaveThreadsKRV says, as a writer with that Threads would.
TEST_F(WriterThreads, OneCallSaversFollowTheModuleSetting) {
  EXPECT_EQ(Host().CallGlobal("PNGSaveThreadsKRV").AsInteger(), 0);
  const samples::Image image = samples::Pattern(1000, 1000, 8, 6, false);
  const Bytes rgba = ReadWithLibpng(samples::Encode(image)).rgba;
  const emu::Value picture = Host().MakePicture(1000, 1000, std::string(rgba.begin(), rgba.end()));
  std::vector<Bytes> byWriter;
  for (RBInteger threads : {1, 2}) {
    Writer w;
    w.Set("Threads", threads);
    ASSERT_TRUE(w.Ok("SetRGBPicture", {picture, kNil}) && w.Ok("SetHeader") &&
                w.Ok("SetGamma", {0.0}));
    byWriter.push_back(WriteStream(w));
    Host().CallGlobal("PNGSaveThreadsKRV", {threads});
    EXPECT_EQ(Host().CallGlobal("PNGSaveThreadsKRV").AsInteger(), threads);
    const std::string saved = Host().CallGlobal("PictureToPNGStringKRV", {picture, 0.0f}).Bytes();
    EXPECT_TRUE(Bytes(saved.begin(), saved.end()) == byWriter.back()) << threads << " threads";
  }
  EXPECT_NE(byWriter[0], byWriter[1]);
  Host().CallGlobal("PNGSaveThreadsKRV", {RBInteger{0}});
}

}  // namespace
}  // namespace e2e
