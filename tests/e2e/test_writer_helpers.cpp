#include "tests/e2e/test_writer_helpers.h"

#include <string.h>
#include <zlib.h>
#if defined(_WIN32)
#include <windows.h>
// The thread list after the Windows declarations it builds on.
#include <tlhelp32.h>
#else
#include <fstream>
#endif

namespace e2e {

namespace {

// A stream read from memory.
struct Cursor {
  const samples::Bytes& bytes;
  size_t offset;
};

void ReadFromCursor(png_structp png, png_bytep out, size_t count) {
  auto* cursor = static_cast<Cursor*>(png_get_io_ptr(png));
  if (count > cursor->bytes.size() - cursor->offset) png_error(png, "read past the end");
  memcpy(out, cursor->bytes.data() + cursor->offset, count);
  cursor->offset += count;
}

bool ReadAll(png_structp png, png_infop info) {
  if (setjmp(png_jmpbuf(png))) return false;
  png_read_png(png, info, PNG_TRANSFORM_IDENTITY, nullptr);
  return true;
}

void CollectChunks(png_structp png, png_infop info, ReadBack& out) {
  png_get_IHDR(png, info, &out.width, &out.height, &out.bitDepth, &out.colorType, &out.interlace,
               nullptr, nullptr);
  png_colorp palette = nullptr;
  int count = 0;
  if (png_get_PLTE(png, info, &palette, &count)) {
    for (int i = 0; i < count; ++i) {
      out.palette.insert(out.palette.end(), {palette[i].red, palette[i].green, palette[i].blue});
    }
  }
  png_bytep alphas = nullptr;
  if (png_get_tRNS(png, info, &alphas, &count, nullptr) && alphas) {
    out.trns.assign(alphas, alphas + count);
  }
  png_get_gAMA(png, info, &out.gamma);
  png_get_sRGB(png, info, &out.srgbIntent);
  png_charp name = nullptr;
  int compression = 0;
  png_bytep profile = nullptr;
  png_uint_32 length = 0;
  if (png_get_iCCP(png, info, &name, &compression, &profile, &length)) {
    out.iccName = name;
    out.icc.assign(profile, profile + length);
  }
  png_get_pHYs(png, info, &out.physX, &out.physY, &out.physUnit);
  const size_t rowBytes = png_get_rowbytes(png, info);
  png_bytepp rows = png_get_rows(png, info);
  for (png_uint_32 y = 0; y < out.height; ++y) out.rows.emplace_back(rows[y], rows[y] + rowBytes);
}

}  // namespace

Writer::Writer(bool withEvents) {
  emu::EventHandlers events;
  if (withEvents) {
    events = {{"Error", [this](const emu::EventArgs& a) { errors.push_back(a.String(0)); }},
              {"Warning", [this](const emu::EventArgs& a) { warnings.push_back(a.String(0)); }}};
  }
  object = Host().New("PNGWriterKRV", events);
}

void LoadRows(Writer& w, const samples::Image& image) {
  w.Set("Width", image.width);
  w.Set("Type", image.colorType);
  EXPECT_TRUE(w.Ok("SetRows", {RowsArray(image.rows)}));
}

void SetHeaderAndPalette(Writer& w) {
  EXPECT_TRUE(w.Ok("SetHeader"));
  if (w.Int("Type") != 3) return;
  EXPECT_TRUE(w.Ok("SetPalette"));
  EXPECT_TRUE(w.Ok("SetAlphas"));
}

samples::Bytes WriteStream(Writer& w) {
  EXPECT_TRUE(w.Ok("OpenWriteDestination", {kNil}));
  EXPECT_TRUE(w.Ok("WriteInfo"));
  EXPECT_TRUE(w.Ok("WriteRows"));
  EXPECT_TRUE(w.Ok("WriteEnd"));
  EXPECT_EQ(w.errors, std::vector<std::string>());
  return w.Finish();
}

std::string RaisedMessage() {
  const auto& raised = Host().LastException();
  return raised ? raised->className + ": " + raised->message : std::string();
}

ReadBack ReadWithLibpng(const samples::Bytes& png) {
  ReadBack out;
  Cursor cursor{png, 0};
  png_structp reader = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_infop info = png_create_info_struct(reader);
  png_set_read_fn(reader, &cursor, ReadFromCursor);
  out.ok = ReadAll(reader, info);
  if (out.ok) CollectChunks(reader, info, out);
  png_destroy_read_struct(&reader, &info, nullptr);
  if (out.ok) out.rgba = samples::DecodeRGBA(png, &out.width, &out.height);
  return out;
}

samples::Bytes FilterBytes(const samples::Bytes& png) {
  const ReadBack back = ReadWithLibpng(png);
  if (!back.ok || back.rows.empty()) return {};
  const size_t stride = back.rows[0].size() + 1;
  samples::Bytes idat, raw(stride * back.height), filters;
  for (const samples::Chunk& chunk : samples::SplitChunks(png)) {
    if (chunk.type == "IDAT") idat.insert(idat.end(), chunk.data.begin(), chunk.data.end());
  }
  uLongf size = raw.size();
  if (uncompress(raw.data(), &size, idat.data(), idat.size()) != Z_OK) return {};
  for (size_t y = 0; y < back.height; ++y) filters.push_back(raw[y * stride]);
  return filters;
}

emu::Value RowsArray(const std::vector<samples::Bytes>& rows) {
  std::vector<emu::Value> blocks;
  for (const samples::Bytes& row : rows) {
    blocks.push_back(Host().MemoryBlockFrom(
        std::string_view(reinterpret_cast<const char*>(row.data()), row.size())));
  }
  return Host().MakeMemoryBlockArray(blocks);
}

#if defined(_WIN32)
int ThreadsRunning() {
  const HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
  if (snapshot == INVALID_HANDLE_VALUE) return -1;
  int count = 0;
  THREADENTRY32 entry{};
  entry.dwSize = sizeof entry;
  for (BOOL more = Thread32First(snapshot, &entry); more; more = Thread32Next(snapshot, &entry)) {
    if (entry.th32OwnerProcessID == GetCurrentProcessId()) ++count;
  }
  CloseHandle(snapshot);
  return count;
}
#else
int ThreadsRunning() {
  std::ifstream status("/proc/self/status");
  std::string key;
  while (status >> key) {
    int count = 0;
    if (key == "Threads:" && status >> count) return count;
  }
  return -1;
}
#endif

}  // namespace e2e
