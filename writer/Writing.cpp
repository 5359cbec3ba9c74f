// The writing sequence: header chunks, the image rows (all at once or one by one) and the end of
// the stream, each through one armed libpng call.
#include "writer/PNGWriter.h"

namespace {

bool WriteInfoArmed(PNGWriter& w) {
  if (setjmp(*w.jumpBuffer)) return false;
  png_write_info(w.pngPtr, w.infoPtr);
  return true;
}

bool WriteImageArmed(PNGWriter& w) {
  if (setjmp(*w.jumpBuffer)) return false;
  png_write_image(w.pngPtr, w.rowPointers);
  return true;
}

bool WriteRowArmed(PNGWriter& w, png_const_bytep row) {
  if (setjmp(*w.jumpBuffer)) return false;
  png_write_row(w.pngPtr, row);
  return true;
}

bool WriteEndArmed(PNGWriter& w) {
  if (setjmp(*w.jumpBuffer)) return false;
  png_write_end(w.pngPtr, w.infoPtr);
  return true;
}

// png_write_end refuses a stream whose image data libpng did not write itself; the writer puts
// no chunk after the image data, so the end is IEND alone.
bool WriteIENDArmed(PNGWriter& w) {
  static constexpr png_byte kIEND[] = "IEND";
  if (setjmp(*w.jumpBuffer)) return false;
  png_write_chunk(w.pngPtr, kIEND, nullptr, 0);
  return true;
}

// libpng reads one row of the header's size for each image line from each row pointer.
bool RowsMatchHeader(const PNGWriter& w) {
  if (w.rowPointers == nullptr || w.rowCount != w.height) return false;
  if (png_get_image_height(w.pngPtr, w.infoPtr) != static_cast<png_uint_32>(w.rowCount)) {
    return false;
  }
  return w.rowCapacity < 0 ||
         static_cast<int64_t>(png_get_rowbytes(w.pngPtr, w.infoPtr)) <= w.rowCapacity;
}

// libpng takes rows past the end of the image without complaint and appends a second compressed
// stream: the image is complete after its last pass, or its last row when it is not interlaced.
bool ImageComplete(const PNGWriter& w) {
  const png_uint_32 height = png_get_image_height(w.pngPtr, w.infoPtr);
  if (png_get_current_pass_number(w.pngPtr) >= 7) return true;
  return height > 0 && png_get_interlace_type(w.pngPtr, w.infoPtr) == PNG_INTERLACE_NONE &&
         png_get_current_row_number(w.pngPtr) >= height;
}

// Settles the state after an armed call of the stream's writing: `next` when libpng succeeded,
// Failed when it gave up midway (its stream and row state are then broken for good).
bool Settle(PNGWriter& w, bool written, WriterState next) {
  w.state = written ? next : WriterState::kFailed;
  return Report(w, written);
}

}  // namespace

bool WriteInfo(PNGWriter& w) {
  if (!Admit(w, WriterCall::kWriteInfo)) return false;
  return Settle(w, WriteInfoArmed(w), WriterState::kInfoWritten);
}

bool WriteRows(PNGWriter& w) {
  if (!Admit(w, WriterCall::kWriteRows)) return false;
  if (!RowsMatchHeader(w)) return Refuse(w, "The loaded rows do not match the header.");
  const bool written = TakesParallelPath(w) ? WriteImageInParallel(w) : WriteImageArmed(w);
  return Settle(w, written, WriterState::kRowsWritten);
}

// `size` is the bytes at `row`, or -1 when the host cannot tell.
void WriteRow(PNGWriter& w, const void* row, int64_t size) {
  if (!Admit(w, WriterCall::kWriteRow)) return;
  const int64_t needed = static_cast<int64_t>(png_get_rowbytes(w.pngPtr, w.infoPtr));
  if (row == nullptr || (size >= 0 && size < needed)) {
    Refuse(w, "The memoryblock is shorter than one row.");
    return;
  }
  const bool written = WriteRowArmed(w, static_cast<png_const_bytep>(row));
  Settle(w, written,
         written && ImageComplete(w) ? WriterState::kRowsWritten : WriterState::kRowsStarted);
}

bool WriteEnd(PNGWriter& w) {
  if (!Admit(w, WriterCall::kWriteEnd)) return false;
  return Settle(w, w.dataWrittenAside ? WriteIENDArmed(w) : WriteEndArmed(w), WriterState::kEnded);
}
