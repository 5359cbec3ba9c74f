// The writing sequence of PNGWriterKRV: rows from memory blocks to memory and to files, the
// destinations in every state, and how out-of-order calls and bad input reach user code.
#include "tests/e2e/test_writer_helpers.h"

namespace e2e {
namespace {

using samples::Bytes;

const emu::Value kNil;

// Width, Type, rows and header of `image` (8-bit) set through SetRows.
void Prepare(Writer& w, const samples::Image& image) {
  w.Set("Width", image.width);
  w.Set("Type", image.colorType);
  ASSERT_TRUE(w.Ok("SetRows", {RowsArray(image.rows)}));
  ASSERT_TRUE(w.Ok("SetHeader", {image.interlaced}));
}

void WriteAll(Writer& w) {
  EXPECT_TRUE(w.Ok("WriteInfo"));
  EXPECT_TRUE(w.Ok("WriteRows"));
  EXPECT_TRUE(w.Ok("WriteEnd"));
}

Bytes WriteToMemory(const samples::Image& image) {
  Writer w;
  Prepare(w, image);
  EXPECT_TRUE(w.Ok("OpenWriteDestination", {kNil}));
  WriteAll(w);
  EXPECT_TRUE(w.errors.empty()) << w.errors[0];
  return w.Finish();
}

class WriterSequence : public PluginTest {};

TEST_F(WriterSequence, RowsRoundTripToMemoryAndToFiles) {
  for (int type : {0, 2, 4, 6}) {
    for (bool interlaced : {false, true}) {
      const samples::Image image = samples::Pattern(13, 9, 8, type, interlaced);
      const Bytes png = WriteToMemory(image);
      const ReadBack back = ReadWithLibpng(png);
      ASSERT_TRUE(back.ok) << type;
      EXPECT_EQ(back.width, 13u);
      EXPECT_EQ(back.height, 9u);
      EXPECT_EQ(back.bitDepth, 8);
      EXPECT_EQ(back.colorType, type);
      EXPECT_EQ(back.interlace, interlaced ? 1 : 0);
      EXPECT_EQ(back.rows, image.rows) << type << " " << interlaced;

      TempFile file({});
      {
        Writer w;
        Prepare(w, image);
        EXPECT_TRUE(w.Ok("OpenWriteDestination", {Host().MakeFolderItem(file.path)}));
        WriteAll(w);
        w.Call("CloseDestination");
      }
      EXPECT_EQ(samples::ReadFile(file.path), png) << "the same stream in both destinations";
    }
  }
}

TEST_F(WriterSequence, WriteRowOneByOne) {
  const samples::Image image = samples::Pattern(6, 4, 8, 2, false);
  Writer w;
  w.Set("Width", 6);
  w.Set("Height", 4);
  w.Set("Type", 2);
  ASSERT_TRUE(w.Ok("SetHeader"));
  ASSERT_TRUE(w.Ok("OpenWriteDestination", {kNil}));
  ASSERT_TRUE(w.Ok("WriteInfo"));

  w.Call("WriteRow", {kNil});
  EXPECT_EQ(RaisedMessage(), "NilObjectException: memoryblock is nil");
  w.Call("WriteRow", {Host().NewMemoryBlock(17)});
  EXPECT_EQ(w.errors, std::vector<std::string>{"The memoryblock is shorter than one row."});
  w.errors.clear();

  for (const Bytes& row : image.rows) {
    w.Call("WriteRow", {Host().MemoryBlockFrom(std::string(row.begin(), row.end()))});
    ASSERT_TRUE(w.Ok("SetRows", {RowsArray(image.rows)}));
    EXPECT_FALSE(w.Ok("WriteRows")) << "after WriteRow";
  }
  EXPECT_EQ(w.errors, std::vector<std::string>(4, "Rows of the image are written already."));
  w.errors.clear();
  w.Call("WriteRow", {Host().MemoryBlockFrom(std::string(18, 'x'))});
  EXPECT_EQ(w.errors, std::vector<std::string>{"Every row of the image is written."});
  w.errors.clear();
  EXPECT_TRUE(w.Ok("WriteEnd"));
  EXPECT_EQ(w.Finish(), WriteToMemory(image)) << "the same stream as WriteRows";
}

TEST_F(WriterSequence, FinishAndCloseDestinationInEveryState) {
  const samples::Image image = samples::Pattern(5, 5, 8, 0, false);
  {
    Writer w;
    EXPECT_TRUE(w.Call("Finish").IsNil()) << "no destination";
    w.Call("CloseDestination");
    EXPECT_TRUE(w.Ok("OpenWriteDestination", {kNil}));
    EXPECT_TRUE(w.Call("Finish").IsNil()) << "nothing written";
    EXPECT_TRUE(w.Call("Finish").IsNil());
  }
  {
    Writer w;
    Prepare(w, image);
    ASSERT_TRUE(w.Ok("OpenWriteDestination", {kNil}));
    ASSERT_TRUE(w.Ok("WriteInfo"));
    ASSERT_TRUE(w.Ok("WriteRows"));
    const Bytes head = w.Finish();
    EXPECT_TRUE(w.Call("Finish").IsNil()) << "a second Finish";
    // Writing goes on into a new buffer: the rest of the stream.
    ASSERT_TRUE(w.Ok("WriteEnd"));
    Bytes whole = head;
    const Bytes tail = w.Finish();
    whole.insert(whole.end(), tail.begin(), tail.end());
    EXPECT_EQ(whole, WriteToMemory(image));
  }
  {
    Writer w;
    Prepare(w, image);
    ASSERT_TRUE(w.Ok("OpenWriteDestination", {kNil}));
    ASSERT_TRUE(w.Ok("WriteInfo"));
    w.Call("CloseDestination");
    EXPECT_TRUE(w.Call("Finish").IsNil()) << "CloseDestination drops the bytes";
  }
  TempFile file({});
  Writer w;
  Prepare(w, image);
  ASSERT_TRUE(w.Ok("OpenWriteDestination", {Host().MakeFolderItem(file.path)}));
  EXPECT_TRUE(w.Call("Finish").IsNil()) << "a file destination";
  ASSERT_TRUE(w.Ok("WriteInfo"));
  w.Call("CloseDestination");
  const size_t written = samples::ReadFile(file.path).size();
  EXPECT_GT(written, 8u);
  EXPECT_FALSE(w.Ok("WriteRows")) << "the closed file is never written again";
  EXPECT_EQ(w.errors, std::vector<std::string>{"The destination is closed."});
  EXPECT_EQ(samples::ReadFile(file.path).size(), written);
}

TEST_F(WriterSequence, OneDestinationAtATime) {
  TempFile file({});
  Writer w;
  EXPECT_TRUE(w.Ok("OpenWriteDestination", {kNil}));
  EXPECT_FALSE(w.Ok("OpenWriteDestination", {Host().MakeFolderItem(file.path)}));
  EXPECT_FALSE(w.Ok("OpenWriteDestination", {kNil}));
  w.Call("CloseDestination");
  EXPECT_TRUE(w.Ok("OpenWriteDestination", {Host().MakeFolderItem(file.path)}));
  EXPECT_FALSE(w.Ok("OpenWriteDestination", {kNil}));

  Writer other;
  EXPECT_FALSE(other.Ok("OpenWriteDestination", {Host().MakeFolderItem("/nonexistent/dir/x.png")}));
  EXPECT_TRUE(other.errors.empty());
  EXPECT_FALSE(Host().LastException());
}

TEST_F(WriterSequence, OutOfOrderCallsFailThroughTheErrorEvent) {
  for (bool withEvents : {true, false}) {
    Writer w(withEvents);
    ASSERT_TRUE(w.Ok("OpenWriteDestination", {kNil}));
    EXPECT_FALSE(w.Ok("WriteInfo")) << "no header";
    EXPECT_EQ(w.errors.size(), withEvents ? 1u : 0u);
    EXPECT_FALSE(w.Ok("WriteEnd"));
  }
  Writer w;
  w.Set("Width", 4);
  w.Set("Height", 2);
  w.Set("Type", 2);
  ASSERT_TRUE(w.Ok("SetHeader"));
  ASSERT_TRUE(w.Ok("SetResolution", {1, 1, 5}));
  ASSERT_TRUE(w.Ok("OpenWriteDestination", {kNil}));
  EXPECT_FALSE(w.Ok("WriteRows")) << "no rows loaded";
  ASSERT_TRUE(w.Ok("SetRows", {RowsArray({Bytes(12), Bytes(11)})}));
  ASSERT_TRUE(w.Ok("WriteInfo"));
  EXPECT_EQ(w.warnings.size(), 1u) << "an unknown pHYs unit: a warning, and the call goes on";
  EXPECT_FALSE(w.Ok("WriteRows")) << "a block shorter than the header's rows";
  EXPECT_EQ(w.errors, std::vector<std::string>(2, "The loaded rows do not match the header."));
  ASSERT_TRUE(w.Ok("SetRows", {RowsArray({Bytes(12), Bytes(12)})}));
  EXPECT_TRUE(w.Ok("WriteRows"));
  EXPECT_FALSE(w.Ok("WriteRows")) << "the image is complete";
  EXPECT_EQ(w.errors.back(), "Rows of the image are written already.");
  EXPECT_FALSE(Host().LastException());
}

TEST_F(WriterSequence, SetRowsTakesBlocksAndRefusesBadArrays) {
  Writer w;
  w.Set("Width", 9);
  EXPECT_TRUE(w.Ok("SetRows", {RowsArray({Bytes(3), Bytes(3), Bytes(3)})}));
  EXPECT_EQ(w.Int("Height"), 3);
  EXPECT_EQ(w.Int("Width"), 9);

  EXPECT_FALSE(w.Ok("SetRows", {kNil}));
  EXPECT_EQ(RaisedMessage(), "NilObjectException: Rows are nil");
  EXPECT_FALSE(w.Ok("SetRows", {RowsArray({})}));
  EXPECT_EQ(RaisedMessage(), "");
  EXPECT_FALSE(w.Ok("SetRows", {Host().MakeMemoryBlockArray({Host().NewMemoryBlock(3), kNil})}));
  EXPECT_EQ(RaisedMessage(), "NilObjectException: Row is nil");
  EXPECT_FALSE(w.Ok("WriteRows")) << "the failed SetRows left no rows";
}

}  // namespace
}  // namespace e2e
