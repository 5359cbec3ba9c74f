// The row operations: full, alpha-only and mask-only rows, and the failures around them.
#include "tests/e2e/Fixture.h"

namespace e2e {
namespace {

using samples::Bytes;

class ReaderRows : public PluginTest {};

// The row is read whole, then its alphas (or 255 − alpha) are packed at the start of the block.
TEST_F(ReaderRows, AlphaAndMaskRowsCompactInPlace) {
  const Bytes rgb = {1, 2, 3, 4, 5, 6, 7, 8, 9};
  const Bytes rgba = {1, 2, 3, 10, 4, 5, 6, 20, 7, 8, 9, 30};
  const struct {
    int colorType;
    const char* method;
    Bytes block;
  } kCases[] = {
      {6, "ReadRowAlphaOnly", {10, 20, 30, 10, 4, 5, 6, 20, 7, 8, 9, 30}},
      {6, "ReadRowMaskOnly", {245, 235, 225, 10, 4, 5, 6, 20, 7, 8, 9, 30}},
      {2, "ReadRowAlphaOnly", {255, 255, 255, 255, 4, 5, 6, 255, 7, 8, 9, 255}},
      {2, "ReadRowMaskOnly", {0, 0, 0, 255, 4, 5, 6, 255, 7, 8, 9, 255}},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.method + std::string(c.colorType == 2 ? " RGB" : " RGBA"));
    samples::Image image = samples::Pattern(3, 1, 8, c.colorType, false);
    image.rows[0] = c.colorType == 2 ? rgb : rgba;
    Reader rows;
    ASSERT_TRUE(rows.OpenData(samples::Encode(image)) && rows.Ok("ApplyOptions", {-1.0}));
    emu::Value row = Host().NewMemoryBlock(12);
    ASSERT_TRUE(rows.Ok(c.method, {row}));
    const std::string bytes = Host().BlockBytes(row);
    EXPECT_EQ(Bytes(bytes.begin(), bytes.end()), c.block);
  }
}

// Rows before set-up, into a nil block or one too small are refused rather than overrun.
TEST_F(ReaderRows, BadBlocksAndReadingPastTheLastRow) {
  Reader reader;
  EXPECT_TRUE(reader.Call("ReadRow").IsNil()) << "no stream opened";
  EXPECT_EQ(reader.Call("RowBytes").AsInteger(), 0);
  ASSERT_TRUE(reader.OpenData(samples::Encode(samples::Pattern(4, 2, 8, 2, false))));
  EXPECT_FALSE(reader.Ok("ReadRow", {Host().NewMemoryBlock(64)})) << "not set up";
  EXPECT_EQ(reader.errors.size(), 1u);
  ASSERT_TRUE(reader.Ok("ApplyOptions", {-1.0}));
  const emu::Value block = Host().NewMemoryBlock(16);
  for (const char* method : {"ReadRow", "ReadRowMaskOnly", "ReadRowAlphaOnly"}) {
    EXPECT_FALSE(reader.Ok(method, {emu::Value::AdoptObject(nullptr)})) << method;
    EXPECT_FALSE(Host().LastException()) << method;
  }
  EXPECT_FALSE(reader.Ok("ReadRow", {Host().NewMemoryBlock(15)}));
  EXPECT_TRUE(reader.Ok("ReadRow", {block}));
  EXPECT_TRUE(reader.Ok("ReadRow", {block}));
  EXPECT_EQ(reader.errors.size(), 1u);
  EXPECT_FALSE(reader.Ok("ReadRow", {block}));
  EXPECT_EQ(reader.errors.size(), 2u);
  EXPECT_TRUE(reader.Call("ReadRow").IsNil());
  EXPECT_FALSE(reader.Ok("ReadRowAlphaOnly", {block}));
  EXPECT_EQ(reader.errors.size(), 4u);
}

}  // namespace
}  // namespace e2e
