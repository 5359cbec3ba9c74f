#include "host/Events.h"

#include <string.h>

#include "host/Text.h"

namespace {

void Keep(EventQueue::Message& slot, const char* message, bool isError) {
  slot.isError = isError;
  slot.isNull = message == nullptr;
  slot.text[0] = 0;
  if (message == nullptr) return;
  strncpy(slot.text, message, EventQueue::kTextBytes - 1);
  slot.text[EventQueue::kTextBytes - 1] = 0;
}

}  // namespace

void QueueError(EventQueue& queue, const char* message) {
  const int32_t slot = queue.count < EventQueue::kSlots ? queue.count : EventQueue::kSlots - 1;
  Keep(queue.messages[slot], message, true);
  queue.count = slot + 1;
}

void QueueWarning(EventQueue& queue, const char* message) {
  if (queue.count >= EventQueue::kSlots - 1) return;
  Keep(queue.messages[queue.count++], message, false);
}

bool HasQueuedError(const EventQueue& queue) {
  for (int32_t i = 0; i < queue.count; ++i) {
    if (queue.messages[i].isError) return true;
  }
  return false;
}

void RaiseQueued(EventQueue& queue, const EventHooks& hooks) {
  if (queue.count == 0) return;
  const EventQueue taken = queue;
  const EventHooks to = hooks;
  queue.count = 0;
  for (int32_t i = 0; i < taken.count; ++i) {
    const EventQueue::Message& m = taken.messages[i];
    RaiseMessageEvent(m.isError ? to.error : to.warning, to.owner, m.isNull ? nullptr : m.text);
  }
}
