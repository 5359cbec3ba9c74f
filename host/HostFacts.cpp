#include "host/HostFacts.h"

#include "host/HostRuntime.h"
#include "host/HostVersions.h"

HostFacts gHost;

void* hostrt::Resolve(const char* name) {
  return gHost.resolver ? gHost.resolver(name) : nullptr;
}

HostKind AskHostKind() {
  const bool desktop = REALGetClassRef("Application") != nullptr;
  const bool web = REALGetClassRef("WebApplication") != nullptr;
  const bool console = REALGetClassRef("ConsoleApplication") != nullptr;
  if (desktop) return HostKind::kDesktop;
  if (web) return HostKind::kWeb;
  return console ? HostKind::kConsole : HostKind::kNone;
}

void LearnHost(REALResolver resolver) {
  gHost = HostFacts();
  gHost.resolver = resolver;
  auto getVersion =
      reinterpret_cast<REALGetRBVersionProc>(resolver ? resolver("REALGetRBVersion") : nullptr);
  if (getVersion != nullptr) gHost.version = getVersion();
  gHost.controlVersion = ControlVersionFor(gHost.version);
  gHost.kind = AskHostKind();
}
