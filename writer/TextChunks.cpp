// Text chunks for the stream, put into libpng's info before WriteInfo, which writes them ahead of
// the image data: text that Latin-1 holds as tEXt (zTXt compressed), any other as iTXt in UTF-8.
#include <string.h>

#include <string>

#include "host/Text.h"
#include "writer/PNGWriter.h"

namespace {

constexpr size_t kMaxKeyLength = 79;
constexpr char kBadKey[] =
    "A text key must be 1 to 79 printable Latin-1 characters, without leading, trailing or double "
    "spaces.";

bool Printable(unsigned char c) {
  return (c >= 32 && c <= 126) || c >= 161;
}

// The PNG rules for a key, on its Latin-1 bytes.
bool ValidKey(const std::string& key) {
  if (key.empty() || key.size() > kMaxKeyLength || key.front() == ' ' || key.back() == ' ') {
    return false;
  }
  for (size_t i = 0; i < key.size(); ++i) {
    const auto c = static_cast<unsigned char>(key[i]);
    if (!Printable(c) || (c == ' ' && key[i + 1] == ' ')) return false;
  }
  return true;
}

bool SetTextArmed(PNGWriter& w, png_text* text) {
  if (setjmp(*w.jumpBuffer)) return false;
  png_set_text(w.pngPtr, w.infoPtr, text, 1);
  return true;
}

}  // namespace

bool AddText(PNGWriter& w, REALstring key, REALstring value, bool compressed) {
  if (!Admit(w, WriterCall::kSetChunk)) return false;
  rbText keyText(key);
  rbText valueText(value);
  std::string latin1Key;
  if (!UTF8ToLatin1(keyText.GetUTF8(), &latin1Key) || !ValidKey(latin1Key)) {
    return Refuse(w, kBadKey);
  }
  const char* utf8 = valueText.GetUTF8();
  std::string latin1Value;
  png_text text = {};
  text.key = latin1Key.data();
  if (UTF8ToLatin1(utf8, &latin1Value)) {
    text.compression = compressed ? PNG_TEXT_COMPRESSION_zTXt : PNG_TEXT_COMPRESSION_NONE;
    text.text = latin1Value.data();
    text.text_length = latin1Value.size();
  } else {
    text.compression = compressed ? PNG_ITXT_COMPRESSION_zTXt : PNG_ITXT_COMPRESSION_NONE;
    text.text = const_cast<char*>(utf8);
    text.itxt_length = strlen(utf8);
  }
  return Report(w, SetTextArmed(w, &text));
}
