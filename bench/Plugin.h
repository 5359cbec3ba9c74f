// The plug-in in the host emulator, called the way a compiled host application calls it: through
// the handlers it registered, looked up once, with no per-call bookkeeping of the emulator's own.
#pragma once

#include "bench/Corpus.h"
#include "emulator/Emulator.h"

namespace bench {

class Plugin {
 public:
  // Starts the emulator as a modern Linux desktop host (cairo pictures) and loads the plug-in,
  // whose one-call savers are then set to compress on the calling thread.
  Plugin();

  emu::Value String(const Bytes& bytes);
  // The image's colours as a picture and, for an image with alpha, its mask.
  std::pair<emu::Value, emu::Value> Pictures(const Image& image);

  // "PNGStringToPNGPictureKRV": the pixels decoded.
  size_t DecodeString(const emu::Value& png);
  // PNGReaderKRV: OpenData, ApplyOptions and ReadPicture.
  size_t ReadPicture(const emu::Value& png);
  // PNGReaderKRV: "ReadRow(mem as memoryblock) as boolean" for every row of a plain image.
  size_t ReadRows(const emu::Value& png);
  // "PictureToPNGStringKRV", with the mask when there is one, compressed by libpng on the calling
  // thread (PNGSaveThreadsKRV = 1).
  size_t EncodeString(const emu::Value& picture, const emu::Value& mask);
  // PNGWriterKRV step by step into memory with Threads = `threads`: the stream.
  emu::Value EncodeWriter(const emu::Value& picture, const emu::Value& mask, RBInteger threads);

 private:
  REALproc Find(const char* className, const char* declaration) const;
  emu::Host& host_;
};

}  // namespace bench
