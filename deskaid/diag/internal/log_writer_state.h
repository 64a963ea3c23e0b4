// What a CLogWriter keeps beside its own fields: kept here so that the public header brings no
// thread, lock or cipher headers into a host.
#pragma once

#include <memory>
#include <vector>

#include "deskaid/common/rc4.h"
#include "deskaid/diag/internal/reentrant_lock.h"
#include "deskaid/diag/log_writer.h"

struct CLogWriter::State {
  // Held by every operation; a thread that holds it may call in again (a trace hook that logs).
  deskaid::ReentrantLock lock;
  // The cipher of each trailer key right after its key schedule, made when first needed and
  // dropped whenever the trailer (and so the keys) changes.
  std::vector<Rc4Cipher> keySchedules;
  // Set while a crash report holds the lock (LogWriterTryLock::DeferRotation): records then leave
  // the file over its size limit rather than rotate it.
  bool rotationDeferred = false;

  // Room for every key's schedule from the start: the first enciphered record after an open may
  // be a crash report's, which must not allocate.
  State() { keySchedules.reserve(kLogKeyCount); }

  // The lock of a writer's state; none once the writer is destroyed (its state is gone).
  static deskaid::ReentrantLock* LockOf(const std::unique_ptr<State>& state) {
    return state ? &state->lock : nullptr;
  }
};
