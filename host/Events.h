// The Error and Warning events of a reader or writer, raised after libpng has returned.
//
// libpng reports errors and warnings through callbacks that run inside its own frames. User code
// must not run there: a handler that calls a method of the same object would arm libpng again
// over the jump buffer of the call still in progress. So the callbacks only keep the message in
// the record's queue (no allocation, no host call), and the record's operation raises the queued
// events once its libpng call has returned and the record is in a settled state.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "host/HostRuntime.h"

// Where a record's events go: user code's implementations of "Error(msg as string)" and
// "Warning(msg as string)", and the object they are raised on (null: no events at all).
struct EventHooks {
  StringEventProc error;
  StringEventProc warning;
  REALobject owner;
};

struct EventQueue {
  // libpng's longest message is 196 bytes with its terminator (PNG_MAX_ERROR_TEXT).
  static constexpr size_t kTextBytes = 200;
  // One libpng call can warn many times but fails once: the last slot is kept for the error.
  static constexpr int32_t kSlots = 8;

  struct Message {
    char text[kTextBytes];
    bool isNull;
    bool isError;
  };

  Message messages[kSlots];
  int32_t count;
};

// Keeps a message for later; safe inside libpng's callbacks. Warnings past the free slots are
// dropped; an error always finds its slot. A message longer than a slot is cut.
void QueueError(EventQueue& queue, const char* message);
void QueueWarning(EventQueue& queue, const char* message);

// Whether the queue holds an error.
bool HasQueuedError(const EventQueue& queue);

// Empties the queue, then raises its events in the order they came. Handlers may call back into
// the record (even arm libpng again, or close it): the queue is taken over before the first event.
void RaiseQueued(EventQueue& queue, const EventHooks& hooks);
