// The plug-in's public API: the static definition tables that REALPluginMain adapts to the running
// host and registers. Handlers reach their instance records through these class definitions.
//
// The tables are the plug-in's published definitions, not state of its own: REALPluginMain
// rewrites them once for the host (its console flags, the older layout's links) and the host
// writes its words into them at registration; nothing changes them after that. Everything else
// the plug-in keeps beyond a call is in the host record (host/HostFacts.h).
#pragma once

#include "host/HostRuntime.h"

extern REALclassDefinition PNGReaderKRVClass;
extern REALevent PNGReaderKRVEvents[2];  // Error, Warning
extern REALclassDefinition PNGPictureKRVClass;
extern REALclassDefinition PNGWriterKRVClass;
extern REALevent PNGWriterKRVEvents[2];  // Error, Warning

// The plug-in's classes, in registration order.
extern REALclassDefinition* const PluginClasses[];
extern const size_t PluginClassCount;

// The folder item extension methods, as a definition naming the host's class.
extern REALclassDefinition FolderitemExtension;

// The global methods, in registration order; null while the count is 0.
extern REALmethodDefinition* const GlobalMethods;
extern const size_t GlobalMethodCount;

// The instance record of an object of a registered class, as the host hands it out.
template <typename Record>
inline Record* InstanceData(REALobject instance, REALclassDefinition& def) {
  return instance ? static_cast<Record*>(REALGetClassData(instance, &def)) : nullptr;
}
