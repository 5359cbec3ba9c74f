// Registration of the plug-in's definition tables with hosts of every supported version: the
// control version a host expects, the console marks of the tables, the conversion to the older
// definition layout, and the folder item extension and global methods registered either natively
// or as modules.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "host/HostRuntime.h"

// The definition version the tables are written in and modules are built with.
constexpr uint32_t kTableVersion = 13;

// The plug-in's own flag marks in its tables, rewritten for the running host at start-up: they
// become REALconsoleSafe and REALconsoleOnly on hosts that know those flags.
constexpr uint32_t kConsoleSafeMark = 0x40000;
constexpr uint32_t kConsoleOnlyMark = 0x80000;

// Size of the buffer in which an extension declaration is rebuilt.
constexpr size_t kDeclarationBufferSize = 1000;

// True when the host takes extension and global methods only as modules.
bool UsesModulesForExtensions(double hostVersion);

// One flag word with the plug-in's console marks turned into the host's flags (hosts that know
// them) or removed (older hosts).
uint32_t ConsoleFlagsFor(uint32_t flags, double hostVersion);

// Module members without scope bits become public.
uint32_t WithDefaultScope(uint32_t flags);

// An instance record size rounded up to a multiple of 16.
size_t RoundedRecordSize(size_t size);

// Rewrites the console marks of a class definition (class, methods, shared methods, properties,
// shared properties) for the running host, in place.
void FixConsoleFlags(REALclassDefinition& def);
void FixConsoleFlags(REALmethodDefinition* methods, size_t count);

// Older-layout copies, zero-filled. FixProperties yields null for a null array or a count of 0.
// FixClass points each source event's host word at its copy and yields null when an allocation
// fails; its arrays go to the host, its header is the caller's to free().
REALproperty9* FixProperties(const REALproperty* properties, size_t count);
REALclassDefinition9* FixClass(REALclassDefinition& def);

// Register with the host, converting to the older layout where the host needs it.
void MyREALRegisterClass(REALclassDefinition& def);
void MyREALRegisterModule(REALmoduleDefinition& def);

// Rebuilds an extension method's declaration as a module method's: the getter form takes the
// extended object as its first parameter, the setter form also an assigned value. False when no
// form can be built or it does not fit the buffer.
bool ExtensionDeclaration(const char* declaration, const char* className, bool asSetter,
                          char (&out)[kDeclarationBufferSize]);

// The folder item extension: a class extension, or on hosts that need it the module
// "<class><part>ExtensionKRV". A definition without methods registers nothing.
void RegisterExtension(REALclassDefinition& def, const char* partName);

// The global methods: one by one, or on hosts that need it the module "<part>GlobalsKRV".
// A count of 0 registers nothing.
void RegisterGlobalMethods(REALmethodDefinition* globals, size_t count, const char* partName);
