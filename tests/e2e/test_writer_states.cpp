// The order of calls PNGWriterKRV accepts, and Error handlers that call back into the writer.
#include <functional>
#include <utility>

#include "tests/e2e/test_writer_helpers.h"

namespace e2e {
namespace {

using samples::Bytes;
using Texts = std::vector<std::string>;

const Bytes kSignature = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
constexpr char kFinished[] =
    "Finish has ended this writer; use a new PNGWriterKRV for the next image.";
constexpr char kChunkLate[] = "The header chunks are written already; set chunks before WriteInfo.";

bool StartsWith(const Bytes& bytes, const Bytes& start) {
  return bytes.size() >= start.size() && std::equal(start.begin(), start.end(), bytes.begin());
}

// RGB rows of bytes that do not compress, so that zlib hands out image data long before the
// last row.
samples::Image Noise(uint32_t width, uint32_t height) {
  samples::Image image = samples::Pattern(width, height, 8, 2, false);
  uint32_t seed = 7;
  for (Bytes& row : image.rows) {
    for (uint8_t& byte : row) {
      seed = seed * 1103515245 + 12345;
      byte = static_cast<uint8_t>(seed >> 16);
    }
  }
  return image;
}

// Rows of `image` and its header; with `level`, the compression level given to SetHeader.
void Describe(Writer& w, const samples::Image& image, RBInteger level = -1) {
  if (image.colorType == 3) {
    ASSERT_TRUE(w.Ok("SetPaletteData", {Host().MakeColorArray({0x102030, 0x405060})}));
  }
  LoadRows(w, image);
  ASSERT_TRUE(w.Ok("SetHeader", {image.interlaced, RBInteger{-1}, level}));
  if (image.colorType == 3) {
    ASSERT_TRUE(w.Ok("SetPalette"));
  }
}

void Begin(Writer& w, const samples::Image& image) {
  Describe(w, image);
  ASSERT_TRUE(w.Ok("OpenWriteDestination", {kNil}));
  ASSERT_TRUE(w.Ok("WriteInfo"));
}

void WriteRows(Writer& w, const samples::Image& image, size_t count) {
  for (size_t y = 0; y < count; ++y) {
    w.Call("WriteRow",
           {Host().MemoryBlockFrom(std::string(image.rows[y].begin(), image.rows[y].end()))});
  }
}

class WriterStates : public PluginTest {};

// Calls that libpng would take on trust, each refused with the reason once the stream has gone
// past the point where they could act.
TEST_F(WriterStates, CallsPastTheirPointAreRefused) {
  samples::Image palette = samples::Pattern(3, 2, 8, 3, false);
  palette.rows = {{0, 1, 0}, {1, 0, 1}};
  const samples::Image noise = Noise(600, 80);
  const Bytes whole = [&] {
    Writer w;
    Describe(w, noise);
    return WriteStream(w);
  }();
  {
    SCOPED_TRACE("chunk setters after the rows");
    Writer w;
    Begin(w, palette);
    ASSERT_TRUE(w.Ok("WriteRows"));
    const std::pair<const char*, std::vector<emu::Arg>> kSetters[] = {
        {"SetPalette", {}},
        {"SetAlphas", {}},
        {"SetGamma", {2.2}},
        {"SetsRGB", {RBInteger{0}}},
        {"SetResolution", {RBInteger{72}, RBInteger{72}, RBInteger{2}}},
        {"SetICCProfile", {Host().MakeString("p"), RBInteger{0}, kNil}},
        {"SetHeader", {}}};
    for (const auto& [method, args] : kSetters) EXPECT_FALSE(w.Ok(method, args)) << method;
    Texts expected(6, kChunkLate);
    expected.push_back("The header is written already.");
    EXPECT_EQ(w.errors, expected);
  }
  {
    SCOPED_TRACE("WriteEnd before the last row, and twice");
    Writer w;
    Begin(w, noise);
    WriteRows(w, noise, noise.height - 1);
    EXPECT_FALSE(w.Ok("WriteEnd"));
    w.Call(
        "WriteRow",
        {Host().MemoryBlockFrom(std::string(noise.rows.back().begin(), noise.rows.back().end()))});
    EXPECT_TRUE(w.Ok("WriteEnd"));
    EXPECT_FALSE(w.Ok("WriteEnd"));
    EXPECT_EQ(w.errors, Texts({"Rows of the image are missing; write them all first.",
                               "The end of the stream is written already."}));
    EXPECT_EQ(w.Finish(), whole);
  }
  {
    SCOPED_TRACE("Finish in the middle");
    Writer w;
    Begin(w, noise);
    WriteRows(w, noise, noise.height / 2);
    const Bytes head = w.Finish();
    EXPECT_TRUE(StartsWith(whole, head) && StartsWith(head, kSignature)) << head.size();
    EXPECT_FALSE(w.Ok("WriteEnd"));
    EXPECT_FALSE(w.Ok("SetRows", {RowsArray(noise.rows)}));
    EXPECT_TRUE(w.Call("Finish").IsNil()) << "a second Finish";
    EXPECT_EQ(w.errors, Texts(2, kFinished));
  }
  {
    SCOPED_TRACE("Finish before anything was written");
    Writer w;
    Describe(w, palette);
    ASSERT_TRUE(w.Ok("OpenWriteDestination", {kNil}));
    EXPECT_TRUE(w.Call("Finish").IsNil());
    EXPECT_FALSE(w.Ok("OpenWriteDestination", {kNil}));
    EXPECT_EQ(w.errors, Texts{kFinished});
  }
  {
    SCOPED_TRACE("the memory destination closed in the middle");
    Writer w;
    Begin(w, noise);
    WriteRows(w, noise, 1);
    w.Call("CloseDestination");
    WriteRows(w, noise, 1);
    EXPECT_FALSE(w.Ok("OpenWriteDestination", {kNil}));
    EXPECT_TRUE(w.Call("Finish").IsNil());
    EXPECT_EQ(w.errors, Texts(2, "The destination is closed."));
  }
}

// The ways a call of the writer fails: the refusals before and after the destination, and libpng
// failing inside the rows.
struct Failure {
  const char* message;
  std::function<bool(Writer&, const TempFile&)> fail;  // the failing call's result
};

// A handler may call anything on the writer it handles an error of: the event comes once libpng
// has returned and the writer is settled, so the handler's calls find it in one piece.
TEST_F(WriterStates, ErrorHandlersMayCallEveryMethod) {
  const samples::Image image = samples::Pattern(3, 2, 8, 2, false);
  const Failure kFailures[] = {
      {"No destination is open.",
       [&](Writer& w, const TempFile&) {
         Describe(w, image);
         return w.Ok("WriteInfo");
       }},
      {"The destination is closed.",
       [&](Writer& w, const TempFile& file) {
         Describe(w, image);
         EXPECT_TRUE(w.Ok("OpenWriteDestination", {Host().MakeFolderItem(file.path)}));
         EXPECT_TRUE(w.Ok("WriteInfo"));
         w.Call("CloseDestination");
         return w.Ok("WriteRows");
       }},
      {"",  // libpng's own message: zlib refuses the level when the rows start
       [&](Writer& w, const TempFile&) {
         Describe(w, image, 10);
         EXPECT_TRUE(w.Ok("OpenWriteDestination", {kNil}));
         EXPECT_TRUE(w.Ok("WriteInfo"));
         return w.Ok("WriteRows");
       }}};
  // Every method of the writer, with arguments it takes, and its properties.
  const emu::Value picture = Host().MakePicture(2, 2, std::string(16, '\x40'));
  const emu::Value colors = Host().MakeColorArray({0x404040, 0x102030});
  const std::pair<const char*, std::vector<emu::Arg>> kCalls[] = {
      {"SetHeader", {}},
      {"SetResolution", {RBInteger{1}, RBInteger{1}, RBInteger{0}}},
      {"SetsRGB", {RBInteger{0}}},
      {"SetICCProfile", {Host().MakeString("p"), RBInteger{0}, kNil}},
      {"SetGamma", {2.2}},
      {"SetPaletteData", {colors}},
      {"SetAlphaData", {Host().MakeIntegerArray({0, 255}), colors}},
      {"SetPalette", {}},
      {"SetAlphas", {}},
      {"SetRGBPicture", {picture, picture}},
      {"SetGrayPicture", {picture, kNil}},
      {"SetPalettePicture", {picture}},
      {"SetRows", {RowsArray(image.rows)}},
      {"OpenWriteDestination", {kNil}},
      {"WriteInfo", {}},
      {"WriteRows", {}},
      {"WriteRow", {Host().NewMemoryBlock(9)}},
      {"WriteEnd", {}},
      {"Finish", {}},
      {"CloseDestination", {}},
      {"PNGLibVersion", {}}};
  const char* const kProperties[] = {"Width", "Height", "bpc", "Type", "Rowbytes"};
  for (const Failure& failure : kFailures) {
    for (const auto& [method, args] : kCalls) {
      SCOPED_TRACE(std::string(failure.message) + " / " + method);
      TempFile file({});
      Texts errors;
      bool handling = false;
      Writer w;
      const auto handler = [&, method = method, args = args](const emu::EventArgs& a) {
        errors.push_back(a.String(0));
        if (handling) return;
        handling = true;
        if (method == std::string("PNGLibVersion")) {
          Host().CallShared("PNGWriterKRV", method);
        } else {
          w.Call(method, args);
        }
        for (const char* property : kProperties) Host().GetProperty(w.object, property);
        handling = false;
      };
      w.object = Host().New("PNGWriterKRV", {{"Error", handler}});
      EXPECT_FALSE(failure.fail(w, file));
      ASSERT_FALSE(errors.empty());
      if (*failure.message) {
        EXPECT_EQ(errors.front(), failure.message);
      }
      const Bytes rest = w.Finish();
      EXPECT_TRUE(rest.empty() || StartsWith(rest, kSignature)) << rest.size();
      w.Call("CloseDestination");
    }
  }
}

}  // namespace
}  // namespace e2e
