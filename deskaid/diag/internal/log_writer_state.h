// What a CLogWriter keeps beside its own fields: kept here so that the public header brings no
// thread, lock or cipher headers into a host.
#pragma once

#include <memory>

#include "deskaid/diag/internal/log_keystreams.h"
#include "deskaid/diag/internal/reentrant_lock.h"
#include "deskaid/diag/log_writer.h"

struct CLogWriter::State {
  // Held by every operation; a thread that holds it may call in again (a trace hook that logs).
  deskaid::ReentrantLock lock;
  // The keystreams of the trailer's keys, started over whenever the trailer (and so the keys)
  // changes. Their room is taken up front for any formatted record (1,023 characters): the first
  // enciphered record after an open may be a crash report's, which must not allocate.
  deskaid::LogKeystreams keystreams{1024};
  // Set while a crash report holds the lock (LogWriterTryLock::DeferRotation): records then leave
  // the file over its size limit rather than rotate it.
  bool rotationDeferred = false;

  // The lock of a writer's state; none once the writer is destroyed (its state is gone).
  static deskaid::ReentrantLock* LockOf(const std::unique_ptr<State>& state) {
    return state ? &state->lock : nullptr;
  }
};
