// The text chunks of a stream (tEXt, zTXt, iTXt) as libpng has read them into the info: those
// before the image data from ApplyOptions on, and those after it once the end of the stream has
// been read, which the text queries do themselves, once, after the last row of the image.
#include <string.h>

#include "host/Exceptions.h"
#include "host/Text.h"
#include "reader/PNGReader.h"

namespace {

bool ReadEndArmed(PNGReader& r) {
  if (setjmp(*r.jump)) return false;
  png_read_end(r.png, r.info);
  return true;
}

// The end of the stream, read once every row of the image has been read. A damaged end raises the
// Error event; the chunks before the damage are kept, and the end is not read again.
void ReadEndOnce(PNGReader& r) {
  if (r.state != ReaderState::kLastRowRead && r.state != ReaderState::kDecodedWhole) return;
  r.state = ReaderState::kEndRead;
  ReadEndArmed(r);
}

// The text chunks known so far; false when the reader's state refuses the query.
bool Texts(PNGReader& r, png_textp* texts, int* count) {
  if (!Admit(r, ReaderCall::kText)) return false;
  ReadEndOnce(r);
  *count = png_get_text(r.png, r.info, texts, nullptr);
  return true;
}

// Text chunk `index`, or null (after OutOfBoundsException for an index outside the list).
const png_text* TextAt(PNGReader& r, RBInteger index) {
  png_textp texts = nullptr;
  int count = 0;
  if (!Texts(r, &texts, &count)) return nullptr;
  if (index < 0 || index >= count) {
    RaiseOutOfBoundsException(index, count);
    return nullptr;
  }
  return &texts[index];
}

}  // namespace

RBInteger TextCount(PNGReader& r) {
  png_textp texts = nullptr;
  int count = 0;
  const bool known = Texts(r, &texts, &count);
  return Report(r, known ? RBInteger{count} : RBInteger{0});
}

// Keys are Latin-1 in every kind of text chunk.
REALstring TextKey(PNGReader& r, RBInteger index) {
  const png_text* text = TextAt(r, index);
  REALstring key = text ? REALBuildUnicodeString(text->key, static_cast<int64_t>(strlen(text->key)),
                                                 kREALTextEncodingISOLatin1)
                        : nullptr;
  return Report(r, key);
}

// The text of an iTXt chunk is UTF-8, that of the others Latin-1.
REALstring TextValue(PNGReader& r, RBInteger index) {
  const png_text* text = TextAt(r, index);
  REALstring value = nullptr;
  if (text) {
    const bool international = text->compression >= PNG_ITXT_COMPRESSION_NONE;
    const size_t length = international ? text->itxt_length : text->text_length;
    value =
        REALBuildUnicodeString(text->text, static_cast<int64_t>(length),
                               international ? kREALTextEncodingUTF8 : kREALTextEncodingISOLatin1);
  }
  return Report(r, value);
}
