// Text encodings on Windows: every conversion goes through UTF-16, the system's own form. UTF-16
// and UTF-32 (little-endian) and ASCII are converted here; the others by the system's code pages,
// which fail, as iconv does, on bytes that are not text of the encoding and on characters that the
// target cannot hold.
#include <windows.h>

#include <cstring>

#include "emulator/Internal.h"

namespace emu {

namespace {

// The Windows code page of an encoding; 0 for one converted here or unknown.
UINT CodePage(uint32_t encoding) {
  switch (encoding) {
    case kREALTextEncodingMacRoman:
      return 10000;
    case kREALTextEncodingISOLatin1:
      return 28591;
    case kREALTextEncodingWindowsLatin1:
      return 1252;
    case kREALTextEncodingUTF8:
      return CP_UTF8;
    default:
      return 0;
  }
}

bool Known(uint32_t encoding) {
  return CodePage(encoding) != 0 || encoding == kREALTextEncodingUTF16 ||
         encoding == kREALTextEncodingUTF32 || encoding == kREALTextEncodingASCII;
}

bool IsSurrogate(uint32_t c) {
  return c >= 0xD800 && c <= 0xDFFF;
}

std::optional<std::u16string> FromUTF32(std::string_view bytes) {
  if (bytes.size() % 4 != 0) return std::nullopt;
  std::u16string out;
  for (size_t i = 0; i < bytes.size(); i += 4) {
    uint32_t c = 0;
    for (int b = 3; b >= 0; --b) c = c << 8 | static_cast<unsigned char>(bytes[i + b]);
    if (c > 0x10FFFF || IsSurrogate(c)) return std::nullopt;
    if (c >= 0x10000) {
      out += static_cast<char16_t>(0xD800 + ((c - 0x10000) >> 10));
      out += static_cast<char16_t>(0xDC00 + ((c - 0x10000) & 0x3FF));
    } else {
      out += static_cast<char16_t>(c);
    }
  }
  return out;
}

std::optional<std::string> ToUTF32(const std::u16string& text) {
  std::string out;
  for (size_t i = 0; i < text.size(); ++i) {
    uint32_t c = text[i];
    if (c >= 0xD800 && c <= 0xDBFF && i + 1 < text.size() && text[i + 1] >= 0xDC00 &&
        text[i + 1] <= 0xDFFF) {
      c = 0x10000 + ((c - 0xD800) << 10) + (text[++i] - 0xDC00);
    } else if (IsSurrogate(c)) {
      return std::nullopt;
    }
    for (int b = 0; b < 4; ++b) out += static_cast<char>(c >> (8 * b));
  }
  return out;
}

std::optional<std::u16string> Decode(std::string_view bytes, uint32_t encoding) {
  if (bytes.empty()) return std::u16string();
  if (encoding == kREALTextEncodingUTF16) {
    if (bytes.size() % 2 != 0) return std::nullopt;
    std::u16string out(bytes.size() / 2, u'\0');
    std::memcpy(out.data(), bytes.data(), bytes.size());
    return out;
  }
  if (encoding == kREALTextEncodingUTF32) return FromUTF32(bytes);
  if (encoding == kREALTextEncodingASCII) {
    std::u16string out;
    for (char c : bytes) {
      if (static_cast<unsigned char>(c) >= 0x80) return std::nullopt;
      out += static_cast<char16_t>(c);
    }
    return out;
  }
  const UINT page = CodePage(encoding);
  const int size = static_cast<int>(bytes.size());
  const int count = MultiByteToWideChar(page, MB_ERR_INVALID_CHARS, bytes.data(), size, nullptr, 0);
  if (count <= 0) return std::nullopt;
  std::u16string out(static_cast<size_t>(count), u'\0');
  MultiByteToWideChar(page, MB_ERR_INVALID_CHARS, bytes.data(), size,
                      reinterpret_cast<wchar_t*>(out.data()), count);
  return out;
}

std::optional<std::string> Encode(const std::u16string& text, uint32_t encoding) {
  if (text.empty()) return std::string();
  if (encoding == kREALTextEncodingUTF16) {
    return std::string(reinterpret_cast<const char*>(text.data()), text.size() * 2);
  }
  if (encoding == kREALTextEncodingUTF32) return ToUTF32(text);
  if (encoding == kREALTextEncodingASCII) {
    std::string out;
    for (char16_t c : text) {
      if (c >= 0x80) return std::nullopt;
      out += static_cast<char>(c);
    }
    return out;
  }
  const UINT page = CodePage(encoding);
  const auto* wide = reinterpret_cast<const wchar_t*>(text.data());
  const int size = static_cast<int>(text.size());
  // UTF-8 fails on unpaired surrogates; the other pages report a character they lack.
  const DWORD flags = page == CP_UTF8 ? WC_ERR_INVALID_CHARS : WC_NO_BEST_FIT_CHARS;
  BOOL lacking = FALSE;
  BOOL* lackingOut = page == CP_UTF8 ? nullptr : &lacking;
  const int count = WideCharToMultiByte(page, flags, wide, size, nullptr, 0, nullptr, lackingOut);
  if (count <= 0 || lacking) return std::nullopt;
  std::string out(static_cast<size_t>(count), '\0');
  WideCharToMultiByte(page, flags, wide, size, out.data(), count, nullptr, nullptr);
  return out;
}

}  // namespace

std::optional<std::string> Transcode(std::string_view bytes, uint32_t from, uint32_t to) {
  if (!Known(from) || !Known(to)) return std::nullopt;
  std::optional<std::u16string> text = Decode(bytes, from);
  if (!text) return std::nullopt;
  return Encode(*text, to);
}

}  // namespace emu
