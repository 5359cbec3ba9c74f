#include "tests/e2e/Fixture.h"

#include <stdio.h>
#include <stdlib.h>
#if defined(_WIN32)
#include <windows.h>
#else
#include <sys/wait.h>
#include <unistd.h>
#endif

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <set>
#include <utility>

namespace e2e {

namespace {

const emu::Profile* SelectedProfile() {
  const char* name = getenv("PNGKRV_HOST");
  const emu::Profile* profile = emu::FindProfile(name ? name : emu::DesktopProfileName("2019.1"));
  if (profile == nullptr) {
    fprintf(stderr, "unknown host profile %s\n", name);
    exit(2);
  }
  return profile;
}

class HostEnvironment : public ::testing::Environment {
 public:
  void SetUp() override {
    emu::Host& host = emu::Host::Instance();
    host.Start(*SelectedProfile());
    host.LoadPlugin(PNGKRV_PLUGIN_PATH);
  }
  void TearDown() override { emu::Host::Instance().Shutdown(); }
};

const ::testing::Environment* const kEnvironment =
    ::testing::AddGlobalTestEnvironment(new HostEnvironment);

}  // namespace

emu::Host& Host() {
  return emu::Host::Instance();
}

const emu::Profile& Profile() {
  return Host().CurrentProfile();
}

bool FullServiceHost() {
  return Profile().version == 2019.1 && Profile().withheld.empty();
}

bool Desktop() {
  return Profile().app == emu::AppKind::Desktop;
}

std::vector<PictureStorage> PictureStorages() {
  if (!Desktop()) return {{2, 0, 8}};
  switch (Profile().platform) {
    case emu::Platform::Linux:
      return {{2, 0, 10}, {2, 12, 10}};
    // Windows hosts keep rows without padding: premultiplied pixels, or 32bppRGB GDI+ bitmaps.
    case emu::Platform::Windows:
      return {{2, 0, 9}};
    case emu::Platform::WindowsGdiplus:
      return {{2, 0, 10}};
    case emu::Platform::Mac:
      break;
  }
  std::vector<PictureStorage> storages;
  for (int alpha = 1; alpha <= 6; ++alpha) {
    storages.push_back({alpha, 0, alpha});
    storages.push_back({alpha, 12, alpha});
  }
  return storages;
}

std::string PngSuiteDir() {
  const char* dir = getenv("PNGKRV_PNGSUITE");
  std::string path = dir ? dir : PNGSUITE_DEFAULT_DIR;
  std::error_code error;
  return std::filesystem::is_directory(path, error) ? path : std::string();
}

Reader::Reader() {
  object = Host().New(
      "PNGReaderKRV",
      {{"Error", [this](const emu::EventArgs& a) { errors.push_back(a.String(0)); }},
       {"Warning", [this](const emu::EventArgs& a) { warnings.push_back(a.String(0)); }}});
}

emu::Value Reader::Call(const char* name, std::vector<emu::Arg> args) {
  return Host().Call(object, name, std::move(args));
}

RBInteger Reader::Int(const char* property) {
  return Host().GetProperty(object, property).AsInteger();
}

bool Reader::OpenData(const samples::Bytes& png) {
  return Ok("OpenData", {Str(png)});
}

emu::Value Str(const samples::Bytes& bytes) {
  return Host().MakeString(
      std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()),
      kREALTextEncodingUnknown);
}

samples::Bytes Colours(samples::Bytes rgba, bool swap) {
  for (size_t i = 0; i < rgba.size(); i += 4) {
    if (swap) std::swap(rgba[i], rgba[i + 2]);
    rgba[i + 3] = 255;
  }
  return rgba;
}

samples::Bytes Rgba(const emu::Value& picture) {
  const std::string bytes = Host().PictureRgba(picture);
  return samples::Bytes(bytes.begin(), bytes.end());
}

samples::Bytes Decoded(const samples::Bytes& png) {
  uint32_t w = 0, h = 0;
  return samples::DecodeRGBA(png, &w, &h);
}

samples::Bytes MaskOf(const samples::Bytes& rgba) {
  samples::Bytes mask;
  for (size_t i = 0; i < rgba.size(); i += 4) {
    const uint8_t m = 255 - rgba[i + 3];
    mask.insert(mask.end(), {m, m, m, 255});
  }
  return mask;
}

ToolRun RunTool(const std::string& arguments) {
  ToolRun run;
  std::string command = std::string(PNGKRV_TOOL_PATH) + " " + arguments + " 2>&1";
#if defined(_WIN32)
  // cmd.exe, which runs the command, takes the program's path with backslashes.
  std::replace(command.begin(), command.begin() + strlen(PNGKRV_TOOL_PATH), '/', '\\');
  FILE* pipe = _popen(command.c_str(), "r");  // text: the lines end as on Linux
#else
  FILE* pipe = popen(command.c_str(), "r");
#endif
  if (pipe == nullptr) return run;
  char buffer[4096];
  size_t n;
  while ((n = fread(buffer, 1, sizeof buffer, pipe)) > 0) run.output.append(buffer, n);
#if defined(_WIN32)
  run.status = _pclose(pipe);
#else
  const int status = pclose(pipe);
  run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
#endif
  return run;
}

#if defined(_WIN32)

TempFile::TempFile(const samples::Bytes& contents) {
  wchar_t dir[MAX_PATH + 1];
  wchar_t name[MAX_PATH + 1];
  if (GetTempPathW(MAX_PATH + 1, dir) == 0 || GetTempFileNameW(dir, L"krv", 0, name) == 0) {
    ADD_FAILURE() << "no temporary file";
    return;
  }
  path = std::filesystem::path(name).u8string();
  samples::WriteFile(path, contents);
}
#else
TempFile::TempFile(const samples::Bytes& contents) {
  char name[] = "/tmp/pngkrv-e2e-XXXXXX";
  const int fd = mkstemp(name);
  if (fd >= 0) close(fd);
  path = name;
  samples::WriteFile(path, contents);
}
#endif

TempFile::~TempFile() {
  std::error_code error;
  std::filesystem::remove(std::filesystem::u8path(path), error);
}

// The entry points a real host serves, by resolver name. A plug-in that asks for anything else
// depends on something no host gives it.
const std::set<std::string, std::less<>> kRealHostEntryPoints = {
    "PluginRegisterClass",
    "PluginRegisterModule",
    "PluginRegisterClassExtension",
    "PluginRegisterMethod",
    "REALLockObject",
    "REALUnlockObject",
    "REALLockString",
    "REALUnlockString",
    "PluginNewInstance",
    "RuntimeRaiseException",
    "GetEventInstance",
    "REALLoadObjectMethod",
    "REALGetPropValueString",
    "REALSetPropValueString",
    "REALGetPropValueInteger",
    "REALGetPropValueInt",
    "REALSetPropValueInteger",
    "REALSetPropValueInt",
    "REALGetPropValueBool",
    "PluginGetStringData",
    "PluginDisposeStringData",
    "REALConvertString",
    "REALGetStringEncoding",
    "REALSetStringEncoding",
    "REALBuildString",
    "REALBuildStringWithEncoding",
    "REALGetStringCFString",
    "RuntimeUBound",
    "PluginColorArrayGetProc",
    "PluginIntegerArrayGetProc",
    "PluginObjectArrayGetProc",
    "RuntimeArrayDirectGetGetProc",
    "newMemoryBlock",
    "memoryBlockGetPtr",
    "memoryBlockGetSize",
    "newPicture",
    "REALGetPictureMask",
    "pluginPictureGraphicsGetter",
    "REALLockPictureDescription",
    "unlockPictureDescription",
    "REALPictureClearCache",
    "REALBuildPictureFromBuffer",
    "PluginPictureGetType",
    "pluginObjectType",
    "REALGetRBVersion",
    "RegisterPluginVersion",
};

void PluginTest::TearDown() {
  if (Desktop()) Host().SetPictureFormat(2, 0);
  const emu::AuditReport report = Host().Audit();
  EXPECT_TRUE(report.Clean()) << report.Format();
  Host().ClearAuditErrors();
  for (const std::string& name : Host().LookedUpNames()) {
    EXPECT_TRUE(kRealHostEntryPoints.count(name)) << "the plug-in asked for " << name;
  }
}

}  // namespace e2e

int main(int argc, char** argv) {
  ::testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}

namespace e2e {

samples::Bytes DecodeThroughRows(Reader& reader, const samples::Bytes& png, double gamma) {
  if (!reader.OpenData(png) || !reader.Ok("ApplyOptions", {gamma})) return {};
  const RBInteger height = reader.Int("Height");
  const RBInteger rowBytes = reader.Call("RowBytes").AsInteger();
  std::vector<emu::Value> blocks;
  for (RBInteger y = 0; y < height; ++y) blocks.push_back(Host().NewMemoryBlock(rowBytes));
  for (RBInteger pass = 0; pass < reader.Int("Interlacing"); ++pass) {
    for (RBInteger y = 0; y < height; ++y) {
      if (!reader.Ok("ReadRow", {blocks[y]})) return {};
    }
  }
  samples::Bytes out;
  for (const emu::Value& block : blocks) {
    const std::string bytes = Host().BlockBytes(block);
    out.insert(out.end(), bytes.begin(), bytes.end());
  }
  return out;
}

}  // namespace e2e
