#include "bench/Plugin.h"

#include <stdexcept>
#include <string>

namespace bench {

namespace {

template <typename Fn>
Fn As(REALproc proc) {
  return reinterpret_cast<Fn>(proc);
}

std::string Text(const Bytes& bytes) {
  return std::string(bytes.begin(), bytes.end());
}

const emu::MethodInfo* FindIn(const std::vector<emu::MethodInfo>& methods,
                              const char* declaration) {
  for (const emu::MethodInfo& m : methods) {
    if (m.declaration == declaration) return &m;
  }
  return nullptr;
}

}  // namespace

Plugin::Plugin() : host_(emu::Host::Instance()) {
  // A Linux desktop host as it runs: its pictures' locks without the tests' check of cairo's dirty
  // mark, which copies, clears and compares the whole surface at every lock.
  emu::Profile profile = *emu::FindProfile("linux-desktop-2019.1");
  profile.auditCairoLocks = false;
  host_.Start(profile);
  host_.LoadPlugin(PNGKRV_PLUGIN_PATH);
  As<void (*)(RBInteger)>(Find(nullptr, "PNGSaveThreadsKRV(assigns threads as integer)"))(1);
}

REALproc Plugin::Find(const char* className, const char* declaration) const {
  const emu::Registry& registry = host_.GetRegistry();
  const emu::MethodInfo* found = nullptr;
  if (className) {
    const emu::ClassInfo* info = registry.FindClass(className);
    found = info ? FindIn(info->methods, declaration) : nullptr;
  } else {
    for (const emu::GlobalMethodInfo& g : registry.methods) {
      if (g.method.declaration == declaration) found = &g.method;
    }
    for (const emu::ModuleInfo& module : registry.modules) {
      if (found == nullptr) found = FindIn(module.methods, declaration);
    }
  }
  if (found == nullptr) throw std::runtime_error(std::string("no handler for ") + declaration);
  return found->handler;
}

emu::Value Plugin::String(const Bytes& bytes) {
  return host_.MakeString(Text(bytes), kREALTextEncodingUnknown);
}

std::pair<emu::Value, emu::Value> Plugin::Pictures(const Image& image) {
  Bytes colors = image.rgba;
  Bytes mask;
  for (size_t i = 0; i < colors.size(); i += 4) {
    const uint8_t grey = static_cast<uint8_t>(255 - colors[i + 3]);
    mask.insert(mask.end(), {grey, grey, grey, 255});
    colors[i + 3] = 255;
  }
  emu::Value picture = host_.MakePicture(image.width, image.height, Text(colors));
  if (!image.alpha) return {picture, emu::Value()};
  return {picture, host_.MakePicture(image.width, image.height, Text(mask))};
}

size_t Plugin::DecodeString(const emu::Value& png) {
  static const auto decode = As<REALobject (*)(REALstring, float, RBBoolean)>(
      Find(nullptr,
           "PNGStringToPNGPictureKRV(data as string, gamma as single = 0.0, AllowDamaged as "
           "boolean = false) as PNGPictureKRV"));
  emu::Value result = emu::Value::AdoptObject(decode(png.AsString(), -1.0f, false));
  if (result.IsNil()) throw std::runtime_error("the plug-in did not decode");
  return 1;
}

size_t Plugin::ReadPicture(const emu::Value& png) {
  static const auto open = As<RBBoolean (*)(REALobject, REALstring)>(
      Find("PNGReaderKRV", "OpenData(data as string) as boolean"));
  static const auto apply = As<RBBoolean (*)(REALobject, double, double)>(
      Find("PNGReaderKRV",
           "ApplyOptions(gamma as double = 0.0, ScreenGamma as double = -1.0) as boolean"));
  static const auto read =
      As<RBBoolean (*)(REALobject)>(Find("PNGReaderKRV", "ReadPicture as boolean"));
  emu::Value reader = host_.New("PNGReaderKRV");
  REALobject r = reader.AsObject();
  if (!open(r, png.AsString()) || !apply(r, -1.0, -1.0) || !read(r)) {
    throw std::runtime_error("the plug-in did not read the picture");
  }
  return 1;
}

size_t Plugin::ReadRows(const emu::Value& png) {
  static const auto open = As<RBBoolean (*)(REALobject, REALstring)>(
      Find("PNGReaderKRV", "OpenData(data as string) as boolean"));
  static const auto apply = As<RBBoolean (*)(REALobject, double, double)>(
      Find("PNGReaderKRV",
           "ApplyOptions(gamma as double = 0.0, ScreenGamma as double = -1.0) as boolean"));
  static const auto rowBytes =
      As<RBInteger (*)(REALobject)>(Find("PNGReaderKRV", "RowBytes as integer"));
  static const auto readRow = As<RBBoolean (*)(REALobject, REALmemoryBlock)>(
      Find("PNGReaderKRV", "ReadRow(mem as memoryblock) as boolean"));
  emu::Value reader = host_.New("PNGReaderKRV");
  REALobject r = reader.AsObject();
  if (!open(r, png.AsString()) || !apply(r, -1.0, -1.0)) {
    throw std::runtime_error("the plug-in did not set up");
  }
  const RBInteger height = host_.GetProperty(reader, "Height").AsInteger();
  emu::Value block = host_.NewMemoryBlock(rowBytes(r));
  REALmemoryBlock b = block.As<REALmemoryBlock>();
  for (RBInteger y = 0; y < height; ++y) {
    if (!readRow(r, b)) throw std::runtime_error("the plug-in did not read a row");
  }
  return static_cast<size_t>(height);
}

size_t Plugin::EncodeString(const emu::Value& picture, const emu::Value& mask) {
  static const auto encode = As<REALstring (*)(REALpicture, float)>(
      Find(nullptr, "PictureToPNGStringKRV(pic as picture, gamma as single = 0.0) as string"));
  static const auto encodeMasked = As<REALstring (*)(REALpicture, REALpicture, float)>(
      Find(nullptr,
           "PictureToPNGStringKRV(pic as picture, mask as picture, gamma as single = 0.0) as "
           "string"));
  REALpicture p = picture.As<REALpicture>();
  emu::Value out = emu::Value::AdoptString(
      mask.IsNil() ? encode(p, 0.0f) : encodeMasked(p, mask.As<REALpicture>(), 0.0f));
  if (out.IsNil()) throw std::runtime_error("the plug-in did not encode");
  return 1;
}

emu::Value Plugin::EncodeWriter(const emu::Value& picture, const emu::Value& mask,
                                RBInteger threads) {
  const char* cls = "PNGWriterKRV";
  static const auto load = As<RBBoolean (*)(REALobject, REALpicture, REALpicture)>(
      Find(cls, "SetRGBPicture(pict as picture, mask as picture = nil) as boolean"));
  static const auto header = As<RBBoolean (*)(REALobject, RBBoolean, RBInteger, RBInteger)>(
      Find(cls,
           "SetHeader(Interlace as boolean = false, Filter as integer = -1, Compression as "
           "Integer = -1) as boolean"));
  static const auto gamma = As<RBBoolean (*)(REALobject, double)>(
      Find(cls, "SetGamma(gamma as double = 0.0) as boolean"));
  static const auto open = As<RBBoolean (*)(REALobject, REALfolderItem)>(
      Find(cls, "OpenWriteDestination(file as folderitem) as boolean"));
  static const auto info = As<RBBoolean (*)(REALobject)>(Find(cls, "WriteInfo as boolean"));
  static const auto rows = As<RBBoolean (*)(REALobject)>(Find(cls, "WriteRows as boolean"));
  static const auto end = As<RBBoolean (*)(REALobject)>(Find(cls, "WriteEnd as boolean"));
  static const auto finish = As<REALstring (*)(REALobject)>(Find(cls, "Finish as string"));
  emu::Value writer = host_.New(cls);
  host_.SetProperty(writer, "Threads", threads);
  REALobject w = writer.AsObject();
  const bool ok = load(w, picture.As<REALpicture>(), mask.As<REALpicture>()) &&
                  header(w, false, -1, -1) && gamma(w, 0.0) && open(w, nullptr) && info(w) &&
                  rows(w) && end(w);
  emu::Value out = emu::Value::AdoptString(ok ? finish(w) : nullptr);
  if (out.IsNil()) throw std::runtime_error("the writer did not encode");
  return out;
}

}  // namespace bench
