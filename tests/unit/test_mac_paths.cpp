// The macOS path decomposition, over Core Foundation stand-ins that this executable exports (the
// code finds Core Foundation in the running process): the names files get, and every Core
// Foundation object given back.
#include <gtest/gtest.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "host/mac/Paths.h"

namespace {

// A Core Foundation string of the stand-ins: its UTF-8 bytes.
struct StandInString {
  std::string utf8;
};

long liveStrings = 0;

// The decompositions the stand-in knows; form D is Core Foundation's form 0.
const std::pair<std::string, std::string> kDecompositions[] = {
    {"\xC3\xA9", "e\xCC\x81"},  // é
    {"\xC3\xBC", "u\xCC\x88"},  // ü
};

StandInString* NewString(std::string utf8) {
  ++liveStrings;
  return new StandInString{std::move(utf8)};
}

}  // namespace

extern "C" {

const void* CFStringCreateWithBytes(const void*, const uint8_t* bytes, intptr_t length,
                                    uint32_t encoding, unsigned char) {
  if (encoding != 0x08000100) return nullptr;
  return NewString(std::string(reinterpret_cast<const char*>(bytes), length));
}

void* CFStringCreateMutableCopy(const void*, intptr_t, const void* string) {
  return NewString(static_cast<const StandInString*>(string)->utf8);
}

void CFStringNormalize(void* string, intptr_t form) {
  if (form != 0) return;
  std::string& s = static_cast<StandInString*>(string)->utf8;
  for (const auto& [composed, decomposed] : kDecompositions) {
    for (size_t at = s.find(composed); at != std::string::npos; at = s.find(composed, at)) {
      s.replace(at, composed.size(), decomposed);
    }
  }
}

// UTF-16 units: one a character of these texts (none lies beyond U+FFFF).
intptr_t CFStringGetLength(const void* string) {
  intptr_t units = 0;
  for (unsigned char c : static_cast<const StandInString*>(string)->utf8)
    units += (c & 0xC0) != 0x80;
  return units;
}

unsigned char CFStringGetCString(const void* string, char* buffer, intptr_t size,
                                 uint32_t encoding) {
  const std::string& s = static_cast<const StandInString*>(string)->utf8;
  if (encoding != 0x08000100 || static_cast<intptr_t>(s.size()) >= size) return 0;
  memcpy(buffer, s.c_str(), s.size() + 1);
  return 1;
}

void CFRelease(const void* object) {
  --liveStrings;
  delete static_cast<const StandInString*>(object);
}

}  // extern "C"

namespace {

std::vector<std::string> Names(const std::string& folder) {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    names.push_back(entry.path().filename().string());
  }
  return names;
}

// A file made through a path with composed characters gets their decomposed form, and is found
// again through the same path; names without such characters are kept. The long name needs more
// UTF-8 bytes decomposed than composed.
TEST(MacPaths, FilesAreNamedDecomposed) {
  std::string e20, decomposedE20;
  for (int i = 0; i < 20; ++i) e20 += "\xC3\xA9", decomposedE20 += "e\xCC\x81";
  const std::pair<std::string, std::string> kCases[] = {
      {"plain.png", "plain.png"},
      {"caf\xC3\xA9.png", "cafe\xCC\x81.png"},
      {"\xC3\xBC"
       "ber e\xCC\x81",
       "u\xCC\x88"
       "ber e\xCC\x81"},
      {e20, decomposedE20},
  };
  char folder[] = "/tmp/pngkrv-paths-XXXXXX";
  ASSERT_NE(mkdtemp(folder), nullptr);
  for (const auto& [name, onDisk] : kCases) {
    SCOPED_TRACE(name);
    const std::string path = std::string(folder) + "/" + name;
    FILE* made = OpenDecomposedPath(path.c_str(), "wb");
    ASSERT_NE(made, nullptr);
    fclose(made);
    EXPECT_EQ(Names(folder), std::vector<std::string>{onDisk});
    FILE* found = OpenDecomposedPath(path.c_str(), "rb");
    EXPECT_NE(found, nullptr);
    if (found) fclose(found);
    EXPECT_EQ(liveStrings, 0);
    unlink((std::string(folder) + "/" + onDisk).c_str());
  }
  rmdir(folder);
}

}  // namespace
