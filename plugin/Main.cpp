// The plug-in's one export. The host calls REALPluginMain once, right after loading the library;
// it learns the host (host/HostFacts.h), adapts the definition tables to that host and registers
// them.
#include "host/HostRuntime.h"
#include "plugin/Registration.h"
#include "plugin/Tables.h"

namespace {

// The name part from which the plug-in's module names are built.
constexpr char kPartName[] = "PNG";

void AnnounceControlVersion(REALResolver resolver) {
  auto announce = reinterpret_cast<RegisterPluginVersionProc>(resolver("RegisterPluginVersion"));
  // Every host that loads plug-ins provides this entry point, so it is called without a test.
  announce(static_cast<int32_t>(gHost.controlVersion));
}

void FixAllConsoleFlags() {
  for (size_t i = 0; i < PluginClassCount; ++i) FixConsoleFlags(*PluginClasses[i]);
  FixConsoleFlags(FolderitemExtension);
  FixConsoleFlags(GlobalMethods, GlobalMethodCount);
}

void RegisterAll() {
  for (size_t i = 0; i < PluginClassCount; ++i) MyREALRegisterClass(*PluginClasses[i]);
  RegisterExtension(FolderitemExtension, kPartName);
  RegisterGlobalMethods(GlobalMethods, GlobalMethodCount, kPartName);
}

}  // namespace

// Windows exports what is marked for export; elsewhere what is visible.
#if defined(_WIN32)
#define PLUGIN_EXPORT __declspec(dllexport)
#else
#define PLUGIN_EXPORT __attribute__((visibility("default")))
#endif

extern "C" PLUGIN_EXPORT void REALPluginMain(REALResolver resolver) {
  LearnHost(resolver);
  if (resolver == nullptr) return;
  AnnounceControlVersion(resolver);
  FixAllConsoleFlags();
  RegisterAll();
}
