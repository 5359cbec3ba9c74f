// The order of calls a PNGReaderKRV accepts: ApplyOptions starts over, a decode after rows or a
// second decode is refused with its reason, and Error handlers may call anything on the reader.
#include <functional>

#include "tests/e2e/Fixture.h"

namespace e2e {
namespace {

using samples::Bytes;

class ReaderOrder : public PluginTest {
 protected:
  void SetUp() override {
    if (PngSuiteDir().empty()) GTEST_SKIP() << "PNG suite not found (set PNGKRV_PNGSUITE)";
  }
  static std::string Path(const std::string& name) { return PngSuiteDir() + "/" + name; }
  static Bytes Suite(const std::string& name) { return samples::ReadFile(Path(name)); }
  // The picture a fresh reader decodes.
  static Bytes FreshPicture(const Bytes& png) {
    Reader reader;
    EXPECT_TRUE(reader.OpenData(png) && reader.Ok("ApplyOptions") && reader.Ok("ReadPicture"));
    return Rgba(Host().GetProperty(reader.object, "Pict"));
  }
};

// Whatever the reader did before, ApplyOptions reads the source again from its start: rows of
// the size RowBytes reports, the same as a fresh reader's.
TEST_F(ReaderOrder, ApplyOptionsStartsOver) {
  const struct {
    const char* before;
    int rows;  // read before ApplyOptions again
    bool picture;
  } kCases[] = {{"set up", 0, false}, {"three rows", 3, false}, {"a picture", 0, true}};
  const Bytes png = Suite("basn0g01.png");
  Reader fresh;
  const Bytes expected = DecodeThroughRows(fresh, png, 0.0);
  ASSERT_EQ(expected.size(), 32u * 32 * 4);
  TempFile file(png);
  for (bool fromFile : {false, true}) {
    for (const auto& c : kCases) {
      SCOPED_TRACE(::testing::Message() << c.before << (fromFile ? " from a file" : " from data"));
      Reader reader;
      ASSERT_TRUE(fromFile ? reader.Ok("OpenFile", {Host().MakeFolderItem(file.path)})
                           : reader.OpenData(png));
      ASSERT_TRUE(reader.Ok("ApplyOptions"));
      for (int i = 0; i < c.rows; ++i) {
        EXPECT_FALSE(reader.Call("ReadRow").IsNil());
      }
      if (c.picture) {
        EXPECT_TRUE(reader.Ok("ReadPicture"));
      }
      ASSERT_TRUE(reader.Ok("ApplyOptions"));
      EXPECT_EQ(reader.Call("RowBytes").AsInteger(), 128);
      EXPECT_TRUE(Host().GetProperty(reader.object, "Pict").IsNil()) << "a new decode";
      Bytes rows;
      for (int y = 0; y < 32; ++y) {
        const std::string row = Host().BlockBytes(reader.Call("ReadRow"));
        rows.insert(rows.end(), row.begin(), row.end());
      }
      EXPECT_EQ(rows, expected);
      EXPECT_TRUE(reader.errors.empty());
    }
  }
}

// A decode after rows, a second decode and rows after a decode are refused with their reason and
// leave the pictures as they were; ApplyOptions then decodes the whole image again.
TEST_F(ReaderOrder, RefusedDecodes) {
  const char* const kRowsRead = "Rows have been read already; call ApplyOptions to start over.";
  const char* const kDecoded =
      "The picture has been decoded already; call ApplyOptions to read the image again.";
  const struct {
    const char* file;
    bool rowFirst;  // one ReadRow, then ReadPicture; else ReadPicture twice
    bool rowAfter;  // then a ReadRow
    const char* message;
  } kCases[] = {
      {"basi0g08.png", true, false, kRowsRead}, {"basi2c08.png", true, false, kRowsRead},
      {"basi6a08.png", true, false, kRowsRead}, {"basn0g08.png", true, false, kRowsRead},
      {"basn0g08.png", false, false, kDecoded}, {"basi6a08.png", false, true, kDecoded},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(::testing::Message() << c.file << (c.rowFirst ? " row first" : " twice"));
    const Bytes png = Suite(c.file);
    const Bytes expected = FreshPicture(png);
    Reader reader;
    ASSERT_TRUE(reader.OpenData(png) && reader.Ok("ApplyOptions"));
    EXPECT_TRUE(c.rowFirst ? !reader.Call("ReadRow").IsNil() : reader.Ok("ReadPicture"));
    const void* first = Host().GetProperty(reader.object, "Pict").Handle();
    EXPECT_FALSE(c.rowAfter ? !reader.Call("ReadRow").IsNil() : reader.Ok("ReadPicture"));
    EXPECT_EQ(reader.errors, std::vector<std::string>{c.message});
    EXPECT_EQ(Host().GetProperty(reader.object, "Pict").Handle(), first);
    ASSERT_TRUE(reader.Ok("ApplyOptions") && reader.Ok("ReadPicture"));
    EXPECT_EQ(Rgba(Host().GetProperty(reader.object, "Pict")), expected);
    EXPECT_EQ(reader.errors.size(), 1u);
  }
}

// A handler action: one call on the reader from inside its Error event.
struct Action {
  const char* name;
  std::function<void(const emu::Value&)> call;
};

std::vector<Action> EveryCall(const Bytes& good, const std::string& goodPath) {
  const auto block = [] { return Host().NewMemoryBlock(4096); };
  return {
      {"RowBytes", [](const emu::Value& r) { Host().Call(r, "RowBytes"); }},
      {"ApplyOptions", [](const emu::Value& r) { Host().Call(r, "ApplyOptions"); }},
      {"OpenData", [good](const emu::Value& r) { Host().Call(r, "OpenData", {Str(good)}); }},
      {"OpenFile",
       [goodPath](const emu::Value& r) {
         Host().Call(r, "OpenFile", {Host().MakeFolderItem(goodPath)});
       }},
      {"Open",
       [good, goodPath](const emu::Value& r) {
         Host().Call(r, "Open", {Host().MakeFolderItem(goodPath), Str(good)});
       }},
      {"OpenSpecialData",
       [good](const emu::Value& r) { Host().Call(r, "OpenSpecialData", {Str(good)}); }},
      {"ReadRow", [](const emu::Value& r) { Host().Call(r, "ReadRow"); }},
      {"ReadRow(mem)", [block](const emu::Value& r) { Host().Call(r, "ReadRow", {block()}); }},
      {"ReadRowMaskOnly",
       [block](const emu::Value& r) { Host().Call(r, "ReadRowMaskOnly", {block()}); }},
      {"ReadRowAlphaOnly",
       [block](const emu::Value& r) { Host().Call(r, "ReadRowAlphaOnly", {block()}); }},
      {"ReadPicture", [](const emu::Value& r) { Host().Call(r, "ReadPicture"); }},
      {"ReadsRGBTag",
       [](const emu::Value& r) {
         emu::Value intent(RBInteger{0});
         Host().Call(r, "ReadsRGBTag", {emu::ByRef(intent)});
       }},
      {"ReadICCProfile",
       [](const emu::Value& r) {
         emu::Value name, compression(RBInteger{0}), profile;
         Host().Call(r, "ReadICCProfile",
                     {emu::ByRef(name), emu::ByRef(compression), emu::ByRef(profile)});
       }},
      {"CombinePictureWithMask",
       [](const emu::Value& r) { Host().Call(r, "CombinePictureWithMask"); }},
      {"properties",
       [](const emu::Value& r) {
         for (const char* name :
              {"Width", "Height", "InterlaceType", "ColorType", "BitDepth", "Interlacing", "Mask",
               "Pict", "SwapRB", "SourceData", "SourceFile", "AllowDamaged"}) {
           Host().GetProperty(r, name);
         }
         Host().SetProperty(r, "AllowDamaged", true);
       }},
  };
}

// Each kind of libpng error, with a handler that calls each method of the reader once: the
// failing call still fails, and the reader then decodes a good stream.
TEST_F(ReaderOrder, ErrorHandlersMayCallTheReader) {
  const Bytes good = Suite("basn2c08.png");
  const Bytes cut(good.begin(), good.begin() + good.size() / 2);
  TempFile goodFile(good);
  const struct {
    const char* what;
    const char* file;
    bool truncated;
    const char* call;  // the call that fails
  } kErrors[] = {
      {"a bad signature in ApplyOptions", "xcrn0g04.png", false, "ApplyOptions"},
      {"a truncated stream in ReadRow", "basn2c08.png", true, "ReadRow"},
      {"a truncated stream in ReadPicture", "basn2c08.png", true, "ReadPicture"},
  };
  for (const auto& e : kErrors) {
    const Bytes png = e.truncated ? cut : Suite(e.file);
    for (const Action& action : EveryCall(good, goodFile.path)) {
      SCOPED_TRACE(::testing::Message() << e.what << ", the handler calls " << action.name);
      emu::Value reader;
      int events = 0;
      bool inHandler = false;
      reader = Host().New("PNGReaderKRV", {{"Error", [&](const emu::EventArgs&) {
                                              ++events;
                                              if (inHandler) return;
                                              inHandler = true;
                                              action.call(reader);
                                              inHandler = false;
                                            }}});
      ASSERT_TRUE(Host().Call(reader, "OpenData", {Str(png)}).AsBoolean());
      bool failed = false;
      if (e.call == std::string("ApplyOptions")) {
        failed = !Host().Call(reader, "ApplyOptions").AsBoolean();
      } else if (Host().Call(reader, "ApplyOptions").AsBoolean()) {
        const bool rows = e.call == std::string("ReadRow");
        for (int y = 0; y <= 32 && !failed; ++y) {
          failed = rows ? Host().Call(reader, "ReadRow").IsNil()
                        : !Host().Call(reader, "ReadPicture").AsBoolean();
        }
      }
      EXPECT_TRUE(failed);
      EXPECT_GE(events, 1);
      EXPECT_FALSE(Host().LastException());
      events = 0;
      ASSERT_TRUE(Host().Call(reader, "OpenData", {Str(good)}).AsBoolean());
      EXPECT_TRUE(Host().Call(reader, "ApplyOptions").AsBoolean());
      EXPECT_TRUE(Host().Call(reader, "ReadPicture").AsBoolean());
      EXPECT_EQ(Rgba(Host().GetProperty(reader, "Pict")), FreshPicture(good));
      EXPECT_EQ(events, 0);
    }
  }
}

}  // namespace
}  // namespace e2e
