// Host strings: bytes with a text encoding, laid out as the legacy string record so that old-host
// code can read them directly, and the string entry points, converting with glibc's iconv (on
// Windows with the system's code pages: WindowsText.cpp).
#if !defined(_WIN32)
#include <iconv.h>

#include <cerrno>
#endif
#include <cstring>

#include "emulator/Internal.h"

namespace emu {

namespace {

// Strings carry a few zero bytes after the text so that a reader of UTF-16 or UTF-32 text also
// finds a terminator.
constexpr size_t kStringPadding = 4;
constexpr uint32_t kStringDataTag = 0x45534454;

#if !defined(_WIN32)
class IconvHandle {
 public:
  IconvHandle(const char* to, const char* from) : cd_(iconv_open(to, from)) {}
  ~IconvHandle() {
    if (Valid()) iconv_close(cd_);
  }
  IconvHandle(const IconvHandle&) = delete;
  IconvHandle& operator=(const IconvHandle&) = delete;
  bool Valid() const { return cd_ != reinterpret_cast<iconv_t>(-1); }
  iconv_t Get() const { return cd_; }

 private:
  iconv_t cd_;
};

std::optional<std::string> RunIconv(const IconvHandle& cd, std::string_view bytes) {
  std::string out(bytes.size() * 4 + 16, '\0');
  char* in = const_cast<char*>(bytes.data());
  size_t inLeft = bytes.size();
  size_t used = 0;
  while (inLeft > 0) {
    char* dst = out.data() + used;
    size_t dstLeft = out.size() - used;
    size_t rc = iconv(cd.Get(), &in, &inLeft, &dst, &dstLeft);
    used = out.size() - dstLeft;
    if (rc != static_cast<size_t>(-1)) break;
    if (errno != E2BIG) return std::nullopt;
    out.resize(out.size() * 2);
  }
  out.resize(used);
  return out;
}
#endif

StringObject* LiveString(Host::State& s, REALstring str, const char* entry) {
  return s.LiveAs<StringObject>(str, ObjectKind::String, entry);
}

REALstring HandleOf(StringObject* s) {
  return s != nullptr ? static_cast<REALstring>(s->Handle()) : nullptr;
}

REALstring BuildStringWithEncoding(const void* bytes, int32_t length, uint32_t encoding) noexcept {
  return Guard<REALstring>("REALBuildStringWithEncoding", nullptr, [&](Host::State& s) {
    if (length < 0 || (bytes == nullptr && length > 0)) return REALstring{nullptr};
    std::string_view view(static_cast<const char*>(bytes), static_cast<size_t>(length));
    return HandleOf(s.NewString(view, encoding, "REALBuildStringWithEncoding"));
  });
}

REALstring BuildString(const void* bytes, int32_t length) noexcept {
  return Guard<REALstring>("REALBuildString", nullptr, [&](Host::State& s) {
    if (length < 0 || (bytes == nullptr && length > 0)) return REALstring{nullptr};
    std::string_view view(static_cast<const char*>(bytes), static_cast<size_t>(length));
    return HandleOf(s.NewString(view, kREALTextEncodingUnknown, "REALBuildString"));
  });
}

uint32_t GetStringEncoding(REALstring str) noexcept {
  return Guard<uint32_t>("REALGetStringEncoding", kREALTextEncodingUnknown, [&](Host::State& s) {
    StringObject* o = LiveString(s, str, "REALGetStringEncoding");
    return o != nullptr ? static_cast<uint32_t>(o->record.encoding)
                        : uint32_t{kREALTextEncodingUnknown};
  });
}

void SetStringEncoding(REALstring str, uint32_t encoding) noexcept {
  GuardVoid("REALSetStringEncoding", [&](Host::State& s) {
    if (StringObject* o = LiveString(s, str, "REALSetStringEncoding"))
      o->record.encoding = encoding;
  });
}

REALstring ConvertStringEntry(REALstring str, uint32_t encoding) noexcept {
  return Guard<REALstring>("REALConvertString", nullptr, [&](Host::State& s) {
    StringObject* o = LiveString(s, str, "REALConvertString");
    return o != nullptr ? HandleOf(s.ConvertString(o, encoding, "REALConvertString")) : nullptr;
  });
}

RBBoolean GetStringData(REALstring str, uint32_t encoding, REALstringData* out) noexcept {
  return Guard<RBBoolean>("PluginGetStringData", 0, [&](Host::State& s) -> RBBoolean {
    if (out == nullptr) {
      s.Fault("PluginGetStringData: null record");
      return 0;
    }
    *out = REALstringData{};
    StringObject* o = LiveString(s, str, "PluginGetStringData");
    if (o == nullptr) return 0;
    auto record = std::make_unique<Host::State::StringDataRecord>();
    const uint32_t from = static_cast<uint32_t>(o->record.encoding);
    if (NeedsConversion(from, encoding)) {
      std::optional<std::string> converted = Convert(o->Bytes(), from, encoding);
      if (!converted) return 0;
      record->copy.reset(new unsigned char[converted->size() + kStringPadding]);
      std::memcpy(record->copy.get(), converted->data(), converted->size());
      std::memset(record->copy.get() + converted->size(), 0, kStringPadding);
      out->data = record->copy.get();
      out->length = converted->size();
    } else {
      // The string's own bytes, kept alive by a reference while the record is out.
      s.LockEntry(str, true, "PluginGetStringData");
      record->retained = str;
      out->data = o->Bytes().data();
      out->length = o->Bytes().size();
    }
    out->encoding = encoding;
    out->private1 = record.get();
    out->private2 = kStringDataTag;
    s.stringData[record.get()] = std::move(record);
    return 1;
  });
}

void DisposeStringData(REALstringData* data) noexcept {
  GuardVoid("PluginDisposeStringData", [&](Host::State& s) {
    if (data == nullptr) {
      s.Fault("PluginDisposeStringData: null record");
      return;
    }
    auto it = s.stringData.find(data->private1);
    if (data->private2 != kStringDataTag || it == s.stringData.end()) {
      s.Fault("PluginDisposeStringData: record not issued or already disposed");
      return;
    }
    void* retained = it->second->retained;
    s.stringData.erase(it);
    *data = REALstringData{};
    if (retained) s.UnlockEntry(retained, true, "PluginDisposeStringData");
  });
}

void LockString(REALstring str) noexcept {
  GuardVoid("REALLockString", [&](Host::State& s) { s.LockEntry(str, true, "REALLockString"); });
}

void UnlockString(REALstring str) noexcept {
  GuardVoid("REALUnlockString",
            [&](Host::State& s) { s.UnlockEntry(str, true, "REALUnlockString"); });
}

}  // namespace

StringObject::StringObject(std::string_view bytes, uint32_t encoding, std::string made)
    : Object(ObjectKind::String, std::move(made)) {
  // The text starts one byte past `data`, as old hosts lay it out.
  buffer = std::make_unique<unsigned char[]>(1 + bytes.size() + kStringPadding);
  if (!bytes.empty()) std::memcpy(buffer.get() + 1, bytes.data(), bytes.size());
  record.usageCount = refs;
  record.data = buffer.get();
  record.allocated = static_cast<RBInteger>(bytes.size() + 1);
  record.length = static_cast<RBInteger>(bytes.size());
  record.encoding = encoding;
}

void StringObject::FreePayload() {
  buffer.reset();
  record.data = nullptr;
  record.length = 0;
}

std::string_view StringObject::Bytes() const {
  if (record.data == nullptr) return {};
  return {reinterpret_cast<const char*>(record.data) + 1, static_cast<size_t>(record.length)};
}

bool NeedsConversion(uint32_t from, uint32_t to) {
  // Text without an encoding, or already in the wanted one, is handed over unchanged.
  return from != to && from != kREALTextEncodingUnknown && to != kREALTextEncodingUnknown;
}

#if !defined(_WIN32)
namespace {

const char* IconvName(uint32_t encoding) {
  const bool little = __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__;
  switch (encoding) {
    case kREALTextEncodingMacRoman:
      return "MACINTOSH";
    case kREALTextEncodingUTF16:
      return little ? "UTF-16LE" : "UTF-16BE";
    case kREALTextEncodingISOLatin1:
      return "ISO-8859-1";
    case kREALTextEncodingWindowsLatin1:
      return "CP1252";
    case kREALTextEncodingASCII:
      return "ASCII";
    case kREALTextEncodingUTF8:
      return "UTF-8";
    case kREALTextEncodingUTF32:
      return little ? "UTF-32LE" : "UTF-32BE";
    default:
      return nullptr;
  }
}

}  // namespace

std::optional<std::string> Transcode(std::string_view bytes, uint32_t from, uint32_t to) {
  const char* fromName = IconvName(from);
  const char* toName = IconvName(to);
  if (fromName == nullptr || toName == nullptr) return std::nullopt;
  IconvHandle cd(toName, fromName);
  if (!cd.Valid()) return std::nullopt;
  return RunIconv(cd, bytes);
}
#endif

std::optional<std::string> Convert(std::string_view bytes, uint32_t from, uint32_t to) {
  if (!NeedsConversion(from, to)) return std::string(bytes);
  return Transcode(bytes, from, to);
}

StringObject* Host::State::NewString(std::string_view bytes, uint32_t encoding,
                                     std::string creator) {
  return Add(std::make_unique<StringObject>(bytes, encoding, std::move(creator)));
}

StringObject* Host::State::ConvertString(StringObject* from, uint32_t encoding,
                                         std::string creator) {
  std::optional<std::string> bytes =
      Convert(from->Bytes(), static_cast<uint32_t>(from->record.encoding), encoding);
  return bytes ? NewString(*bytes, encoding, std::move(creator)) : nullptr;
}

void AddStringEntries(EntryTable& table) {
  table["REALBuildString"] = reinterpret_cast<void*>(&BuildString);
  table["REALBuildStringWithEncoding"] = reinterpret_cast<void*>(&BuildStringWithEncoding);
  table["REALGetStringEncoding"] = reinterpret_cast<void*>(&GetStringEncoding);
  table["REALSetStringEncoding"] = reinterpret_cast<void*>(&SetStringEncoding);
  table["REALConvertString"] = reinterpret_cast<void*>(&ConvertStringEntry);
  table["PluginGetStringData"] = reinterpret_cast<void*>(&GetStringData);
  table["PluginDisposeStringData"] = reinterpret_cast<void*>(&DisposeStringData);
  table["REALLockString"] = reinterpret_cast<void*>(&LockString);
  table["REALUnlockString"] = reinterpret_cast<void*>(&UnlockString);
}

Value Host::MakeString(std::string_view bytes, uint32_t encoding) {
  return Value::AdoptString(HandleOf(state_->NewString(bytes, encoding, "MakeString")));
}

Value Host::MakeText(std::string_view utf8, uint32_t encoding) {
  std::optional<std::string> bytes = Convert(utf8, kREALTextEncodingUTF8, encoding);
  if (!bytes) throw Error("text cannot be represented in encoding " + std::to_string(encoding));
  return Value::AdoptString(HandleOf(state_->NewString(*bytes, encoding, "MakeText")));
}

std::optional<std::string> Host::ConvertBytes(std::string_view bytes, uint32_t from, uint32_t to) {
  return Convert(bytes, from, to);
}

}  // namespace emu
