// The writing sequence: header chunks, the image rows (all at once or one by one) and the end of
// the stream, each through one armed libpng call.
#include "host/Text.h"
#include "writer/PNGWriter.h"

namespace {

constexpr const char* kRowsFailed = "Writing the image failed; a new writer is needed.";

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

// png_write_image writes every row of the image from wherever writing stands, so after any row
// it would run past the end.
bool RowsStarted(const PNGWriter& w) {
  return png_get_current_row_number(w.pngPtr) > 0 || png_get_current_pass_number(w.pngPtr) > 0;
}

// Refuses, through the Error event, a step that would not end up in the image.
bool Refuse(const PNGWriter& w, const char* message) {
  RaiseMessageEvent(w.errorEvent, w.owner, message);
  return false;
}

// Latches a failure of libpng inside the image rows.
bool RowsWritten(PNGWriter& w, bool written) {
  if (!written) w.rowsFailed = true;
  return written;
}

}  // namespace

bool WriteInfo(PNGWriter& w) {
  if (!HasHandles(w)) return false;
  if (w.headerRefused) return Refuse(w, "The header was refused.");
  if (w.infoWritten) return Refuse(w, "The header chunks are written already.");
  // From here libpng may write the header, even when a later chunk then fails: libpng keeps
  // that header for the rows, so the one in the info must stay as it is.
  if (png_get_image_width(w.pngPtr, w.infoPtr) != 0) w.headerFixed = true;
  w.infoWritten = WriteInfoArmed(w);
  return w.infoWritten;
}

bool WriteRows(PNGWriter& w) {
  if (!HasHandles(w)) return false;
  if (w.rowsFailed) return Refuse(w, kRowsFailed);
  if (!RowsMatchHeader(w)) return Refuse(w, "The loaded rows do not match the header.");
  if (RowsStarted(w)) return Refuse(w, "Rows of the image are written already.");
  return RowsWritten(w, WriteImageArmed(w));
}

// `size` is the bytes at `row`, or -1 when the host cannot tell.
void WriteRow(PNGWriter& w, const void* row, int64_t size) {
  if (!HasHandles(w)) return;
  const int64_t needed = static_cast<int64_t>(png_get_rowbytes(w.pngPtr, w.infoPtr));
  if (w.rowsFailed) {
    Refuse(w, kRowsFailed);
  } else if (row == nullptr || (size >= 0 && size < needed)) {
    Refuse(w, "The memoryblock is shorter than one row.");
  } else if (ImageComplete(w)) {
    Refuse(w, "Every row of the image is written.");
  } else {
    RowsWritten(w, WriteRowArmed(w, static_cast<png_const_bytep>(row)));
  }
}

bool WriteEnd(PNGWriter& w) {
  return HasHandles(w) && WriteEndArmed(w);
}
