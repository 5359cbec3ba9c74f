// The four row operations: full rows into new or given blocks, alpha-only and mask-only rows,
// interlaced passes, and the failures around them.
#include "tests/e2e/Fixture.h"

namespace e2e {
namespace {

using samples::Bytes;

// A 3 × 1 RGBA image with alphas 10, 20, 30.
Bytes ThreeAlphas() {
  samples::Image image = samples::Pattern(3, 1, 8, 6, false);
  image.rows[0] = {1, 2, 3, 10, 4, 5, 6, 20, 7, 8, 9, 30};
  return samples::Encode(image);
}

class ReaderRows : public PluginTest {
 protected:
  // A reader set up on `png`, and a block of exactly one row.
  void SetUpReader(const Bytes& png) {
    ASSERT_TRUE(reader.OpenData(png));
    ASSERT_TRUE(reader.Ok("ApplyOptions", {-1.0}));
    block = Host().NewMemoryBlock(reader.Call("RowBytes").AsInteger());
  }
  // The fixture's values go before the audit of PluginTest::TearDown.
  void TearDown() override {
    reader.object = emu::Value();
    block = emu::Value();
    PluginTest::TearDown();
  }
  Bytes BlockBytes() {
    const std::string bytes = Host().BlockBytes(block);
    return Bytes(bytes.begin(), bytes.end());
  }

  Reader reader;
  emu::Value block;
};

TEST_F(ReaderRows, AlphaAndMaskRowsCompactInPlace) {
  SetUpReader(ThreeAlphas());
  ASSERT_TRUE(reader.Ok("ReadRowAlphaOnly", {block}));
  EXPECT_EQ(BlockBytes(), (Bytes{10, 20, 30, 10, 4, 5, 6, 20, 7, 8, 9, 30}));

  Reader second;
  ASSERT_TRUE(second.OpenData(ThreeAlphas()));
  ASSERT_TRUE(second.Ok("ApplyOptions", {-1.0}));
  ASSERT_TRUE(second.Ok("ReadRowMaskOnly", {block}));
  EXPECT_EQ(BlockBytes(), (Bytes{245, 235, 225, 10, 4, 5, 6, 20, 7, 8, 9, 30}));
}

TEST_F(ReaderRows, RGBImageGivesOpaqueAlphaAndEmptyMask) {
  SetUpReader(samples::Encode(samples::Pattern(5, 2, 8, 2, false)));
  ASSERT_TRUE(reader.Ok("ReadRowAlphaOnly", {block}));
  const Bytes alpha = BlockBytes();
  EXPECT_EQ(Bytes(alpha.begin(), alpha.begin() + 5), Bytes(5, 255));
  ASSERT_TRUE(reader.Ok("ReadRowMaskOnly", {block}));
  const Bytes mask = BlockBytes();
  EXPECT_EQ(Bytes(mask.begin(), mask.begin() + 5), Bytes(5, 0));
}

TEST_F(ReaderRows, ReadRowReturnsANewBlockOfOneRow) {
  const Bytes png = samples::Encode(samples::Pattern(100, 2, 8, 6, false));
  uint32_t w = 0, h = 0;
  const Bytes expected = samples::DecodeRGBA(png, &w, &h);
  SetUpReader(png);
  emu::Value row = reader.Call("ReadRow");
  ASSERT_FALSE(row.IsNil());
  EXPECT_EQ(Host().BlockSize(row), 400);
  const std::string bytes = Host().BlockBytes(row);
  EXPECT_EQ(Bytes(bytes.begin(), bytes.end()), Bytes(expected.begin(), expected.begin() + 400));
}

TEST_F(ReaderRows, ReadingPastTheLastRowFails) {
  SetUpReader(samples::Encode(samples::Pattern(4, 2, 8, 2, false)));
  EXPECT_TRUE(reader.Ok("ReadRow", {block}));
  EXPECT_TRUE(reader.Ok("ReadRow", {block}));
  EXPECT_TRUE(reader.errors.empty());
  EXPECT_FALSE(reader.Ok("ReadRow", {block}));
  EXPECT_EQ(reader.errors.size(), 1u);
  EXPECT_TRUE(reader.Call("ReadRow").IsNil());
  EXPECT_FALSE(reader.Ok("ReadRowAlphaOnly", {block}));
  EXPECT_EQ(reader.errors.size(), 3u);
}

TEST_F(ReaderRows, NilAndShortBlocks) {
  SetUpReader(samples::Encode(samples::Pattern(4, 2, 8, 2, false)));
  emu::Value nil = emu::Value::AdoptObject(nullptr);
  for (const char* method : {"ReadRow", "ReadRowMaskOnly", "ReadRowAlphaOnly"}) {
    EXPECT_FALSE(reader.Ok(method, {nil})) << method;
    EXPECT_FALSE(Host().LastException()) << method;
  }
  // A block too small for one row is refused rather than overrun, and the row stays unread.
  EXPECT_FALSE(reader.Ok("ReadRow", {Host().NewMemoryBlock(15)}));
  EXPECT_TRUE(reader.Ok("ReadRow", {block}));
  EXPECT_TRUE(reader.Ok("ReadRow", {block}));
  EXPECT_TRUE(reader.errors.empty());
}

TEST_F(ReaderRows, InterlacedPassesFillTheRows) {
  const Bytes png = samples::Encode(samples::Pattern(9, 7, 8, 4, true));
  uint32_t w = 0, h = 0;
  const Bytes expected = samples::DecodeRGBA(png, &w, &h);
  SetUpReader(png);
  ASSERT_EQ(reader.Int("Interlacing"), 7);
  std::vector<emu::Value> rows;
  for (int y = 0; y < 7; ++y) rows.push_back(Host().NewMemoryBlock(36));
  for (int pass = 0; pass < 7; ++pass) {
    for (int y = 0; y < 7; ++y) ASSERT_TRUE(reader.Ok("ReadRow", {rows[y]}));
  }
  Bytes all;
  for (const emu::Value& row : rows) {
    const std::string bytes = Host().BlockBytes(row);
    all.insert(all.end(), bytes.begin(), bytes.end());
  }
  EXPECT_EQ(all, expected);
}

TEST_F(ReaderRows, RowsBeforeOpeningOrSetUpFail) {
  EXPECT_TRUE(reader.Call("ReadRow").IsNil());
  EXPECT_EQ(reader.Call("RowBytes").AsInteger(), 0);
  ASSERT_TRUE(reader.OpenData(samples::Encode(samples::Pattern(4, 2, 8, 2, false))));
  block = Host().NewMemoryBlock(64);
  EXPECT_FALSE(reader.Ok("ReadRow", {block}));
  EXPECT_EQ(reader.errors.size(), 1u);
}

}  // namespace
}  // namespace e2e
