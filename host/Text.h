// Text between host strings and the plug-in's own zero-terminated bytes.
#pragma once

#include <stdint.h>

#include <string>

#include "host/HostRuntime.h"

// A host string seen as zero-terminated UTF-8 (GetUTF8), or as its own bytes with no conversion
// of text encoding (MakeRaw, for PNG data and ICC profiles). Made around one host string; gives
// back everything it took when destroyed.
class rbText {
 public:
  explicit rbText(REALstring str) : string_(str) {}
  ~rbText();
  rbText(const rbText&) = delete;
  rbText& operator=(const rbText&) = delete;

  // A holder on the string's own byte buffer, keeping a lock on the string; null for a null
  // string or when the host cannot hand out the bytes.
  static rbText* MakeRaw(REALstring str);

  // Zero-terminated UTF-8 of the string; the empty text for a null string or a failed
  // conversion. Never null.
  const char* GetUTF8();

  // The bytes last produced (by GetUTF8 or MakeRaw) and their count.
  const unsigned char* Bytes() const { return reinterpret_cast<const unsigned char*>(bytes_); }
  int64_t Length() const { return length_ < 0 ? 0 : length_; }
  bool Failed() const { return failed_; }

 private:
  bool UseLegacyBytes(REALstring str);
  bool UseStringData(uint32_t encoding);
  void EnsureTerminated(bool terminatorKnown);

  REALstring string_;
  bool stringLocked_ = false;
  const char* bytes_ = "";
  int64_t length_ = -1;  // -1: not produced yet
  REALstring converted_ = nullptr;
  REALstringData data_ = {};
  bool holdsData_ = false;
  bool failed_ = false;
  char* copy_ = nullptr;
};

// Bytes in a text encoding to a new host string (one reference, owned by the caller), or null.
// An empty text gives no string at all.
REALstring REALBuildUnicodeString(const void* data, int64_t length, unsigned long encoding);

// UTF-16 bytes (host byte order) to a new UTF-8 host string, or null.
REALstring REALBuildUnicodeStringUTF16(const void* data, int64_t length);

// Zero-terminated UTF-8 text as Latin-1, one byte a character, into `out`; false when a character
// lies beyond Latin-1 or the bytes are not UTF-8.
bool UTF8ToLatin1(const char* utf8, std::string* out);

// The host string of a zero-terminated ASCII message (the form of event messages), or null.
REALstring BuildASCIIString(const char* text);

// UTF-32 code points (host byte order) to zero-terminated UTF-16 units, for hosts that cannot
// convert UTF-32 themselves: surrogates are dropped, code points beyond Unicode become U+FFFD.
// `out` must hold 2 × count + 1 units; returns the number of units written before the terminator.
size_t UTF32ToUTF16(const unsigned char* codePoints, size_t count, uint16_t* out);

// Calls an "Error(msg as string)" / "Warning(msg as string)" implementation with the message as
// an ASCII host string (null for a null message), and gives the string back afterwards. Does
// nothing without an owner or an implementation.
void RaiseMessageEvent(StringEventProc hook, REALobject owner, const char* message);
