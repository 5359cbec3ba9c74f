// Text chunks: written by AddText as the text needs, read back by the reader's text queries
// with the chunks after the image data once the image has been read, and their limits.
#include <zlib.h>

#include <tuple>

#include "tests/e2e/test_writer_helpers.h"

namespace e2e {
namespace {

using samples::Bytes;
using namespace std::string_literals;

constexpr char kTextCount[] = "TextCount As Integer";
constexpr char kTextKey[] = "TextKey(index As Integer) As String";
constexpr char kTextValue[] = "TextValue(index As Integer) As String";
constexpr char kAddText[] =
    "AddText(key As String, value As String, compressed As Boolean = False) As Boolean";

Bytes Of(const std::string& text) {
  return Bytes(text.begin(), text.end());
}

// Key, value (UTF-8), compressed; the chunk it must go into and the encoding it comes back in.
struct Text {
  const char* key;
  const char* value;
  bool compressed;
  const char* chunk;
  uint32_t encoding;
};
const Text kTexts[] = {
    {"L\u00e9gende", "Caf\u00e9 cr\u00e8me", false, "tEXt", kREALTextEncodingISOLatin1},
    {"Comment", "The same words, the same words, the same words.", true, "zTXt",
     kREALTextEncodingASCII},
    {"Author", "J\u00fcrgen \u65e5\u672c \u0394", false, "iTXt", kREALTextEncodingUTF8},
    {"Description", "\u0394\u0394\u0394\u0394\u0394\u0394\u0394\u0394", true, "iTXt",
     kREALTextEncodingUTF8},
};

// The types of the chunks of a stream, in order.
std::vector<std::string> ChunkTypes(const Bytes& png) {
  std::vector<std::string> types;
  for (const samples::Chunk& c : samples::SplitChunks(png)) types.push_back(c.type);
  return types;
}

// Every key and value the reader gives, as UTF-8, with the values' encodings.
std::vector<std::tuple<std::string, std::string, uint32_t>> ReadTexts(Reader& reader) {
  std::vector<std::tuple<std::string, std::string, uint32_t>> texts;
  const RBInteger count = Host().CallDeclaration(reader.object, kTextCount).AsInteger();
  for (RBInteger i = 0; i < count; ++i) {
    const emu::Value value = Host().CallDeclaration(reader.object, kTextValue, {i});
    texts.emplace_back(Host().CallDeclaration(reader.object, kTextKey, {i}).Text(), value.Text(),
                       value.Encoding());
  }
  return texts;
}

class TextChunks : public PluginTest {};

TEST_F(TextChunks, WrittenAndReadBack) {
  Writer w;
  LoadRows(w, samples::Pattern(4, 3, 8, 2, false));
  ASSERT_TRUE(w.Ok("SetHeader"));
  for (const Text& t : kTexts) {
    EXPECT_TRUE(
        Host()
            .CallDeclaration(w.object, kAddText,
                             {Host().MakeString(t.key), Host().MakeString(t.value), t.compressed})
            .AsBoolean())
        << t.key;
  }
  const Bytes png = WriteStream(w);
  const std::vector<std::string> types = ChunkTypes(png);
  EXPECT_EQ(std::vector<std::string>(types.begin() + 1, types.begin() + 5),
            std::vector<std::string>({"tEXt", "zTXt", "iTXt", "iTXt"}));
  EXPECT_EQ(samples::SplitChunks(png)[1].data, Of("L\xe9gende\0Caf\xe9 cr\xe8me"s));
  const Bytes compressedText = samples::SplitChunks(png)[4].data;
  EXPECT_EQ(Bytes(compressedText.begin(), compressedText.begin() + 13), Of("Description\0\1"s))
      << "the compression flag";

  Reader reader;
  ASSERT_TRUE(reader.OpenData(png) && reader.Ok("ApplyOptions"));
  std::vector<std::tuple<std::string, std::string, uint32_t>> expected;
  for (const Text& t : kTexts) expected.emplace_back(t.key, t.value, t.encoding);
  EXPECT_EQ(ReadTexts(reader), expected);
  EXPECT_TRUE(reader.errors.empty());
}

// Keys follow PNG's rules; a refused key writes nothing. Text comes before WriteInfo.
TEST_F(TextChunks, KeysAndOrder) {
  const std::pair<std::string, bool> kKeys[] = {
      {"a b", true},          {std::string(79, 'k'), true},
      {"\u00ff\u00a1", true}, {"", false},
      {" lead", false},       {"trail ", false},
      {"dou  ble", false},    {std::string(80, 'k'), false},
      {"tab\there", false},   {"\u0394elta", false},
      {"nb\u00a0sp", false},  {"del\x7f", false}};
  Writer w;
  LoadRows(w, samples::Pattern(4, 3, 8, 2, false));
  ASSERT_TRUE(w.Ok("SetHeader"));
  for (const auto& [key, accepted] : kKeys) {
    w.errors.clear();
    const bool added =
        Host()
            .CallDeclaration(w.object, kAddText, {Host().MakeString(key), Host().MakeString("v")})
            .AsBoolean();
    EXPECT_EQ(added, accepted) << key;
    EXPECT_EQ(
        w.errors,
        accepted
            ? std::vector<std::string>()
            : std::vector<std::string>{"A text key must be 1 to 79 printable Latin-1 characters, "
                                       "without leading, trailing or double spaces."})
        << key;
  }
  w.errors.clear();
  const Bytes png = WriteStream(w);
  size_t texts = 0;
  for (const std::string& type : ChunkTypes(png)) texts += type == "tEXt";
  EXPECT_EQ(texts, 3u);
  EXPECT_FALSE(
      Host()
          .CallDeclaration(w.object, kAddText, {Host().MakeString("Late"), Host().MakeString("v")})
          .AsBoolean());
}

// An image with one text chunk before its data and three after: tEXt, zTXt, iTXt.
Bytes TextsAroundTheImage(const samples::Image& image) {
  std::vector<samples::Chunk> chunks = samples::SplitChunks(samples::Encode(image));
  Bytes packed(200, 'z');
  uLongf size = compressBound(packed.size());
  Bytes compressed(size);
  compress(compressed.data(), &size, packed.data(), packed.size());
  compressed.resize(size);
  Bytes ztxt = Of("Zipped\0\0"s);
  ztxt.insert(ztxt.end(), compressed.begin(), compressed.end());
  chunks.insert(chunks.begin() + 1, samples::MakeChunk("tEXt", Of("Before\0b"s)));
  chunks.insert(chunks.end() - 1,
                {samples::MakeChunk("tEXt", Of("After\0a"s)), samples::MakeChunk("zTXt", ztxt),
                 samples::MakeChunk("iTXt", Of("Intl\0\0\0en\0\0\xce\x94"s))});
  return samples::JoinChunks(chunks);
}

const std::vector<std::string> kBefore = {"Before"};
const std::vector<std::string> kAll = {"Before", "After", "Zipped", "Intl"};

std::vector<std::string> Keys(Reader& reader) {
  std::vector<std::string> keys;
  for (const auto& t : ReadTexts(reader)) keys.push_back(std::get<0>(t));
  return keys;
}

// The chunks after the image data come once the whole image has been read, by a picture decode
// or the last row of the last pass; a decode that failed gives those before it.
TEST_F(TextChunks, AfterTheImageData) {
  for (const bool interlaced : {false, true}) {
    SCOPED_TRACE(interlaced ? "interlaced" : "plain");
    const Bytes png = TextsAroundTheImage(samples::Pattern(9, 5, 8, 6, interlaced));
    for (const char* decode : {"ReadPicture", "ReadAlphaPicture"}) {
      if (decode[4] == 'A' && Profile().version < 2011.04) continue;
      Reader reader;
      ASSERT_TRUE(reader.OpenData(png) && reader.Ok("ApplyOptions"));
      EXPECT_EQ(Keys(reader), kBefore);
      ASSERT_TRUE(reader.Ok(decode));
      EXPECT_EQ(Keys(reader), kAll) << decode;
      EXPECT_EQ(ReadTexts(reader)[2],
                std::make_tuple("Zipped", std::string(200, 'z'), uint32_t{kREALTextEncodingASCII}));
      EXPECT_EQ(ReadTexts(reader)[3],
                std::make_tuple("Intl", "\u0394", uint32_t{kREALTextEncodingUTF8}));
      EXPECT_FALSE(reader.Ok(decode));
      EXPECT_EQ(reader.errors, std::vector<std::string>{"The whole image has been read already; "
                                                        "call ApplyOptions to read it again."});
    }
    Reader rows;
    ASSERT_TRUE(rows.OpenData(png) && rows.Ok("ApplyOptions"));
    const RBInteger reads = rows.Int("Interlacing") * rows.Int("Height");
    for (RBInteger i = 0; i < reads; ++i) {
      EXPECT_EQ(Keys(rows), kBefore) << "before row " << i;
      ASSERT_TRUE(rows.Ok("ReadRow", {Host().NewMemoryBlock(36)}));
    }
    EXPECT_EQ(Keys(rows), kAll);
    EXPECT_FALSE(rows.Ok("ReadRow", {Host().NewMemoryBlock(36)}));
    EXPECT_EQ(rows.errors, std::vector<std::string>{"The whole image has been read already; call "
                                                    "ApplyOptions to read it again."});
  }
  const Bytes png = TextsAroundTheImage(samples::Pattern(40, 40, 8, 2, false));
  const Bytes cut(png.begin(), png.begin() + png.size() / 2);
  Reader damaged;
  Host().SetProperty(damaged.object, "AllowDamaged", true);
  ASSERT_TRUE(damaged.OpenData(cut) && damaged.Ok("ApplyOptions"));
  ASSERT_TRUE(damaged.Ok("ReadPicture"));
  EXPECT_EQ(Keys(damaged), kBefore);
}

// A damaged end costs the picture nothing; the text queries report it and keep the chunks read
// before it. Queries out of order or range are refused.
TEST_F(TextChunks, DamagedEndAndRefusals) {
  std::vector<samples::Chunk> chunks =
      samples::SplitChunks(TextsAroundTheImage(samples::Pattern(9, 5, 8, 2, false)));
  chunks.back().crc ^= 1;
  Reader reader;
  ASSERT_TRUE(reader.OpenData(samples::JoinChunks(chunks)));
  EXPECT_EQ(Host().CallDeclaration(reader.object, kTextCount).AsInteger(), 0);
  EXPECT_EQ(reader.errors,
            std::vector<std::string>{"ApplyOptions has not set the reader up; call it first."});
  reader.errors.clear();
  ASSERT_TRUE(reader.Ok("ApplyOptions") && reader.Ok("ReadPicture"));
  EXPECT_TRUE(reader.errors.empty());
  EXPECT_EQ(Keys(reader), kAll);
  EXPECT_EQ(reader.errors, std::vector<std::string>{"IEND: CRC error"});
  EXPECT_TRUE(Host().CallDeclaration(reader.object, kTextKey, {RBInteger{4}}).IsNil());
  EXPECT_EQ(RaisedMessage(),
            "OutOfBoundsException: Parameter index  is too big. Range is 0 to 3, but value is 4.");
}

// libpng keeps 30 text chunks and a text of up to 8,000,000 bytes with its key, each limit passed
// with a warning.
TEST_F(TextChunks, Limits) {
  std::vector<samples::Chunk> chunks =
      samples::SplitChunks(samples::Encode(samples::Pattern(4, 3, 8, 2, false)));
  for (int i = 0; i < 40; ++i) {
    chunks.insert(chunks.begin() + 1, samples::MakeChunk("tEXt", Of("Key\0value"s)));
  }
  Reader many;
  ASSERT_TRUE(many.OpenData(samples::JoinChunks(chunks)) && many.Ok("ApplyOptions"));
  EXPECT_EQ(Host().CallDeclaration(many.object, kTextCount).AsInteger(), 30);
  EXPECT_EQ(many.warnings, std::vector<std::string>{"tEXt: no space in chunk cache"});

  for (const size_t size : {size_t{7999990}, size_t{8000000}}) {
    Bytes text(size, 'x');
    uLongf packed = compressBound(text.size());
    Bytes ztxt(packed + 3);
    ztxt[0] = 'K';
    compress(ztxt.data() + 3, &packed, text.data(), text.size());
    ztxt.resize(packed + 3);
    chunks = samples::SplitChunks(samples::Encode(samples::Pattern(4, 3, 8, 2, false)));
    chunks.insert(chunks.begin() + 1, samples::MakeChunk("zTXt", ztxt));
    Reader big;
    ASSERT_TRUE(big.OpenData(samples::JoinChunks(chunks)) && big.Ok("ApplyOptions"));
    const RBInteger count = Host().CallDeclaration(big.object, kTextCount).AsInteger();
    EXPECT_EQ(count, size < 8000000 ? 1 : 0) << size;
    EXPECT_EQ(big.warnings.size(), size < 8000000 ? 0u : 1u) << size;
  }
}

// pngkrv encode adds text chunks, info lists them, those after the image data too.
TEST_F(TextChunks, Tool) {
  if (!FullServiceHost() || !Desktop()) GTEST_SKIP() << "one profile is enough";
  const TempFile in(samples::Encode(samples::Pattern(4, 3, 8, 2, false))), out({});
  ToolRun run = RunTool(
      "encode --text Title=Caf\u00e9 --compressed-text \"Note=a = b\" --text "
      "Name=\u0394 " +
      in.path + " " + out.path);
  ASSERT_EQ(run.status, 0) << run.output;
  run = RunTool("info " + out.path);
  EXPECT_NE(run.output.find("text: Title=Caf\u00e9\ntext: Name=\u0394\ntext: Note=a = b\n"),
            std::string::npos)
      << run.output;
  const TempFile around(TextsAroundTheImage(samples::Pattern(9, 5, 8, 6, true)));
  run = RunTool("info " + around.path);
  EXPECT_NE(run.output.find("text: Before=b\ntext: After=a\ntext: Zipped=zzz"), std::string::npos)
      << run.output;
  EXPECT_EQ(RunTool("encode --text NoValue " + in.path + " " + out.path).status, 2);
  EXPECT_EQ(RunTool("encode --text \" bad=key\" " + in.path + " " + out.path).status, 1);
}

}  // namespace
}  // namespace e2e
