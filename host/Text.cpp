#include "host/Text.h"

#include <stdlib.h>
#include <string.h>

#include <new>
#include <stdexcept>
#include <typeinfo>

#include "host/Exceptions.h"

namespace {

constexpr int64_t kMaxHostLength = 0x7FFFFFFF;

bool AllASCII(const unsigned char* bytes, int64_t length) {
  for (int64_t i = 0; i < length; ++i) {
    if (bytes[i] >= 0x80) return false;
  }
  return true;
}

bool IsEightBitEncoding(unsigned long encoding) {
  return encoding == kREALTextEncodingMacRoman || encoding == kREALTextEncodingISOLatin1 ||
         encoding == kREALTextEncodingWindowsLatin1 || encoding == kREALTextEncodingUnknown;
}

REALstring BuildTagged(const void* data, int64_t length, uint32_t encoding) {
  REALstring str = originalREALBuildString(data, static_cast<int32_t>(length));
  if (str) REALSetStringEncoding(str, encoding);
  return str;
}

// The UTF-32 string through a UTF-16 copy, for hosts that build no UTF-32 strings.
REALstring BuildUTF32ViaUTF16(const void* data, int64_t length) {
  const size_t count = static_cast<size_t>(length / 4);
  uint16_t stackUnits[2 * 200 + 1];
  uint16_t* units = stackUnits;
  if (length >= 800) {
    units = static_cast<uint16_t*>(calloc(2 * count + 1, sizeof(uint16_t)));
    if (units == nullptr) throw std::bad_alloc();
  }
  const size_t written = UTF32ToUTF16(static_cast<const unsigned char*>(data), count, units);
  REALstring result = REALBuildUnicodeStringUTF16(units, static_cast<int64_t>(written) * 2);
  if (units != stackUnits) free(units);
  return result;
}

REALstring BuildUTF32(const void* data, int64_t length) {
  if (gHost.version < hostversion::kUTF32StringsFrom) return BuildUTF32ViaUTF16(data, length);
  REALstring wide =
      REALBuildStringWithEncoding(data, static_cast<int32_t>(length), kREALTextEncodingUTF32);
  if (wide == nullptr) return nullptr;
  REALstring utf8 = REALConvertString(wide, kREALTextEncodingUTF8);
  REALUnlockString(wide);
  return utf8;
}

REALstring BuildUnchecked(const void* data, int64_t length, unsigned long encoding) {
  if (encoding == kREALTextEncodingUTF16) return REALBuildUnicodeStringUTF16(data, length);
  if (IsEightBitEncoding(encoding) && AllASCII(static_cast<const unsigned char*>(data), length)) {
    encoding = kREALTextEncodingASCII;
  }
  if (encoding == kREALTextEncodingUTF32) return BuildUTF32(data, length);
  return BuildTagged(data, length, static_cast<uint32_t>(encoding));
}

}  // namespace

size_t UTF32ToUTF16(const unsigned char* codePoints, size_t count, uint16_t* out) {
  size_t n = 0;
  for (size_t i = 0; i < count; ++i) {
    uint32_t c;  // the caller's bytes need not be aligned
    memcpy(&c, codePoints + 4 * i, 4);
    if (c <= 0xFFFF) {
      if (c < 0xD800 || c > 0xDFFF) out[n++] = static_cast<uint16_t>(c);
    } else if (c <= 0x10FFFF) {
      out[n++] = static_cast<uint16_t>(0xD800 + ((c - 0x10000) >> 10));
      out[n++] = static_cast<uint16_t>(0xDC00 + ((c - 0x10000) & 0x3FF));
    } else {
      out[n++] = 0xFFFD;
    }
  }
  out[n] = 0;
  return n;
}

REALstring REALBuildUnicodeString(const void* data, int64_t length, unsigned long encoding) {
  if (data == nullptr || length < 1 || length > kMaxHostLength) return nullptr;
  try {
    return BuildUnchecked(data, length, encoding);
  } catch (const std::bad_alloc&) {
    RaiseException("OutOfMemoryException", "Failed to allocate memory.", kREALTextEncodingUTF8, 0);
  } catch (const std::range_error& e) {
    RaiseException("OutOfBoundsException", e.what(), kREALTextEncodingUTF8, 0);
  } catch (const std::out_of_range& e) {
    RaiseException("OutOfBoundsException", e.what(), kREALTextEncodingUTF8, 0);
  } catch (const std::overflow_error& e) {
    RaiseException("OutOfBoundsException", e.what(), kREALTextEncodingUTF8, 0);
  } catch (const std::underflow_error& e) {
    RaiseException("OutOfBoundsException", e.what(), kREALTextEncodingUTF8, 0);
  } catch (const std::logic_error& e) {
    RaiseException("RuntimeException", e.what(), kREALTextEncodingUTF8, 0);
  } catch (const std::runtime_error& e) {
    RaiseException("RuntimeException", e.what(), kREALTextEncodingUTF8, 0);
  } catch (const std::bad_cast& e) {
    RaiseException("IllegalCastException", e.what(), kREALTextEncodingUTF8, 0);
  } catch (const std::exception& e) {
    RaiseException("RuntimeException", e.what(), kREALTextEncodingUTF8, 0);
  } catch (...) {
    RaiseException("RuntimeException", "Sorry, but there was an unnamed C++ Exception.",
                   kREALTextEncodingUTF8, 0);
  }
  return nullptr;
}

REALstring REALBuildUnicodeStringUTF16(const void* data, int64_t length) {
  if (data == nullptr || length < 1 || length > kMaxHostLength) return nullptr;
  REALstring wide =
      gHost.version >= hostversion::kBuildWithEncodingFrom
          ? REALBuildStringWithEncoding(data, static_cast<int32_t>(length), kREALTextEncodingUTF16)
          : BuildTagged(data, length, kREALTextEncodingUTF16);
  if (wide == nullptr) return nullptr;
  REALstring utf8 = REALConvertString(wide, kREALTextEncodingUTF8);
  REALUnlockString(wide);
  return utf8;
}

// Characters up to U+00FF take one byte below 0x80, or the lead byte 0xC2 or 0xC3 and one
// continuation byte.
bool UTF8ToLatin1(const char* utf8, std::string* out) {
  out->clear();
  for (const unsigned char* p = reinterpret_cast<const unsigned char*>(utf8); *p; ++p) {
    if (*p < 0x80) {
      out->push_back(static_cast<char>(*p));
    } else if ((*p == 0xC2 || *p == 0xC3) && (p[1] & 0xC0) == 0x80) {
      out->push_back(static_cast<char>((*p & 0x1F) << 6 | (p[1] & 0x3F)));
      ++p;
    } else {
      return false;
    }
  }
  return true;
}

REALstring BuildASCIIString(const char* text) {
  return text ? REALBuildUnicodeString(text, static_cast<int64_t>(strlen(text)),
                                       kREALTextEncodingASCII)
              : nullptr;
}

// ---------------------------------------------------------------------------------------------
// rbText
// ---------------------------------------------------------------------------------------------

rbText::~rbText() {
  if (holdsData_) REALDisposeStringData(&data_);
  if (converted_) REALUnlockString(converted_);
  if (stringLocked_) REALUnlockString(string_);
  free(copy_);
}

rbText* rbText::MakeRaw(REALstring str) {
  if (str == nullptr) return nullptr;
  rbText* text = new (std::nothrow) rbText(str);
  if (text == nullptr) return nullptr;
  REALLockString(str);
  text->stringLocked_ = true;
  text->length_ = 0;
  const bool ok = gHost.version < hostversion::kLegacyRecordsBefore
                      ? text->UseLegacyBytes(str)
                      : text->UseStringData(REALGetStringEncoding(str));
  if (!ok) {
    delete text;
    return nullptr;
  }
  return text;
}

// Hosts with legacy records let the plug-in read a string's bytes from its record.
bool rbText::UseLegacyBytes(REALstring str) {
  const auto* record = reinterpret_cast<const REALstringLegacy*>(str);
  if (record->length < 0 || record->data == nullptr) return false;
  bytes_ = reinterpret_cast<const char*>(record->data + 1);
  length_ = record->length;
  return true;
}

bool rbText::UseStringData(uint32_t encoding) {
  if (!REALGetStringData(string_, encoding, &data_)) return false;
  holdsData_ = true;
  if (data_.length > static_cast<size_t>(kMaxHostLength) ||
      (data_.data == nullptr && data_.length > 0)) {
    return false;
  }
  bytes_ = data_.data ? static_cast<const char*>(data_.data) : "";
  length_ = static_cast<int64_t>(data_.length);
  return true;
}

const char* rbText::GetUTF8() {
  if (length_ >= 0) return bytes_;
  length_ = 0;
  bytes_ = "";
  if (string_ == nullptr) return bytes_;
  const auto* record = reinterpret_cast<const REALstringLegacy*>(string_);
  if (gHost.version < hostversion::kLegacyRecordsBefore &&
      (record->encoding == kREALTextEncodingUTF8 || record->encoding == kREALTextEncodingASCII)) {
    UseLegacyBytes(string_);
    // The record's buffer holds the terminator when it was allocated beyond the text.
    EnsureTerminated(record->allocated >= record->length + 2 && bytes_[length_] == 0);
  } else if (gHost.version >= hostversion::kStringDataRecordsFrom) {
    if (UseStringData(kREALTextEncodingUTF8)) {
      // A string-data record says nothing of what follows its bytes: always copy.
      EnsureTerminated(false);
    } else {
      failed_ = true;
      bytes_ = "";
      length_ = 0;
    }
  } else {
    converted_ = REALConvertString(string_, kREALTextEncodingUTF8);
    if (converted_ == nullptr || !UseLegacyBytes(converted_)) {
      failed_ = true;
      bytes_ = "";
      length_ = 0;
    } else {
      const auto* conv = reinterpret_cast<const REALstringLegacy*>(converted_);
      EnsureTerminated(conv->allocated >= conv->length + 2 && bytes_[length_] == 0);
    }
  }
  return bytes_;
}

void rbText::EnsureTerminated(bool terminatorKnown) {
  if (terminatorKnown || length_ == 0) {
    if (length_ == 0) bytes_ = "";
    return;
  }
  const int64_t size = length_ + 4;
  copy_ = size > 0 && size < (int64_t{1} << 31) ? static_cast<char*>(calloc(1, size)) : nullptr;
  if (copy_ == nullptr) {
    bytes_ = "";
    length_ = 0;
    return;
  }
  memcpy(copy_, bytes_, static_cast<size_t>(length_));
  bytes_ = copy_;
}

void RaiseMessageEvent(StringEventProc hook, REALobject owner, const char* message) {
  if (owner == nullptr || hook == nullptr) return;
  REALstring text = BuildASCIIString(message);
  hook(owner, text);
  if (text) REALUnlockString(text);
}
