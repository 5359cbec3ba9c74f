// The object table: every handle the emulator hands out, its reference count, and the checks
// that catch a plug-in passing in a freed, foreign or wrongly typed handle.
#include <algorithm>
#include <cctype>
#include <cstdio>
#include <sstream>

#include "emulator/Internal.h"

namespace emu {

namespace {

// Dead objects stay in the table for a while so that a late unlock is recognised as such; the
// oldest are forgotten so that long runs (fuzzing, benchmarks) keep a bounded table.
constexpr size_t kGraveyardSize = 4096;

std::string HandleText(const void* handle) {
  char text[32];
  std::snprintf(text, sizeof text, "%p", handle);
  return text;
}

}  // namespace

std::string Lower(std::string_view text) {
  std::string out(text);
  std::transform(out.begin(), out.end(), out.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return out;
}

bool SameName(std::string_view a, std::string_view b) {
  return a.size() == b.size() && Lower(a) == Lower(b);
}

std::vector<void*> ExceptionObject::TakeChildren() {
  std::vector<void*> children;
  if (message != nullptr) children.push_back(std::exchange(message, nullptr));
  return children;
}

void Host::State::Fault(std::string message) {
  auditErrors.push_back(std::move(message));
}

Object* Host::State::Find(const void* handle) const {
  for (const auto& entry : recent) {
    if (entry.first == handle && handle != nullptr) return entry.second;
  }
  auto it = objects.find(handle);
  if (it == objects.end()) return nullptr;
  recent[nextRecent++ % recent.size()] = {handle, it->second.get()};
  return it->second.get();
}

Object* Host::State::Live(const void* handle, const char* entry) {
  if (handle == nullptr) {
    Fault(std::string(entry) + ": null handle");
    return nullptr;
  }
  Object* object = Find(handle);
  if (object == nullptr) {
    Fault(std::string(entry) + ": unknown handle " + HandleText(handle));
    return nullptr;
  }
  if (!object->alive) {
    Fault(std::string(entry) + ": freed " + KindName(object->kind) + " " + HandleText(handle) +
          " (made by " + object->creator + ")");
    return nullptr;
  }
  return object;
}

void Host::State::Retain(Object* object) {
  ++object->refs;
  object->SyncReferences();
}

void Host::State::Release(Object* object) {
  if (object->refs <= 0) {
    Fault("unlock of " + std::string(KindName(object->kind)) + " " + HandleText(object->Handle()) +
          " that holds no reference");
    return;
  }
  --object->refs;
  object->SyncReferences();
  if (object->refs == 0) Kill(object);
}

void Host::State::LockEntry(const void* handle, bool isString, const char* entry) {
  if (handle == nullptr) return;  // the host ignores nil
  Object* object = Live(handle, entry);
  if (object == nullptr) return;
  if ((object->kind == ObjectKind::String) != isString) {
    Fault(std::string(entry) + ": wrong entry point for a " + KindName(object->kind));
    return;
  }
  Retain(object);
}

void Host::State::UnlockEntry(const void* handle, bool isString, const char* entry) {
  if (handle == nullptr) return;
  Object* object = Live(handle, entry);
  if (object == nullptr) return;
  if ((object->kind == ObjectKind::String) != isString) {
    Fault(std::string(entry) + ": wrong entry point for a " + KindName(object->kind));
    return;
  }
  Release(object);
}

void Host::State::Kill(Object* object) {
  if (object->dying) return;
  object->dying = true;
  if (object->kind == ObjectKind::Instance) Destroy(static_cast<InstanceObject&>(*object));
  if (object->kind == ObjectKind::Picture) CheckUnlocked(static_cast<PictureObject&>(*object));
  if (object->refs != 0) {
    Fault(object->ClassName() + " " + HandleText(object->Handle()) +
          " was locked again by its destructor");
  }
  for (void* child : object->TakeChildren()) {
    if (Object* c = Find(child); c != nullptr && c->alive) Release(c);
  }
  Bury(object);
}

void Host::State::Bury(Object* object) {
  object->alive = false;
  object->FreePayload();
  graveyard.push_back(object->Handle());
  if (graveyard.size() > kGraveyardSize) {
    Forget(graveyard.front());
    objects.erase(graveyard.front());
    graveyard.pop_front();
  }
}

void Host::State::Reset() {
  // Values released while the table is cleared (say, captured by event handlers) must find
  // themselves out of date rather than touch the table.
  ++generation;
  recent.fill({nullptr, nullptr});
  objects.clear();
  graveyard.clear();
  stringData.clear();
  auditErrors.clear();
  registry = Registry();
  nextSequence = 0;
  eventWords.clear();
  unserved.clear();
  classRefs.clear();
  lookups.clear();
  pendingException = nullptr;
  lastException.reset();
  deferred = nullptr;
  depth = 0;
  started = false;
}

AuditReport Host::Audit() const {
  AuditReport report;
  for (const auto& [handle, object] : state_->objects) {
    if (!object->alive) continue;
    report.live.push_back(
        {handle, object->kind, object->ClassName(), object->refs, object->creator});
    if (object->kind == ObjectKind::Picture &&
        static_cast<const PictureObject&>(*object).counts.openLocks > 0) {
      report.lockedPictures.push_back(handle);
    }
  }
  std::sort(report.lockedPictures.begin(), report.lockedPictures.end());
  std::sort(report.live.begin(), report.live.end(),
            [](const LiveObject& a, const LiveObject& b) { return a.handle < b.handle; });
  report.openStringData = state_->stringData.size();
  report.errors = state_->auditErrors;
  return report;
}

void Host::ClearAuditErrors() {
  state_->auditErrors.clear();
}

std::string AuditReport::Format() const {
  std::ostringstream out;
  for (const LiveObject& o : live) {
    out << "live " << KindName(o.kind) << " " << o.className << " " << HandleText(o.handle)
        << " references " << o.references << ", made by " << o.creator << "\n";
  }
  if (openStringData != 0) out << openStringData << " string data record(s) not disposed\n";
  for (const void* p : lockedPictures) out << "picture " << HandleText(p) << " left locked\n";
  for (const std::string& e : errors) out << "error: " << e << "\n";
  return out.str();
}

long Host::References(const void* handle) const {
  Object* object = state_->Find(handle);
  return object != nullptr && object->alive ? object->refs : 0;
}

bool Host::IsAlive(const void* handle) const {
  return References(handle) > 0;
}

}  // namespace emu
