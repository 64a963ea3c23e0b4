// Bounded access to a log writer's lock, for paths that must never wait for long or nest: a
// crash handler may run on a thread that was stopped inside a record, or while another thread
// holds the lock forever. Such a path takes the lock only when it can have it within a bounded
// time and the calling thread is not already inside one of the writer's operations, and
// otherwise drops what it meant to write.
#pragma once

#include <chrono>

#include "deskaid/diag/internal/log_writer_state.h"
#include "deskaid/diag/log_writer.h"

class LogWriterTryLock {
 public:
  LogWriterTryLock(CLogWriter& writer, std::chrono::milliseconds patience)
      : m_state(writer.m_state.get()),
        m_owns(m_state != nullptr && m_state->lock.TryLockFor(patience)) {}
  ~LogWriterTryLock() {
    if (!m_owns) return;
    m_state->rotationDeferred = false;
    m_state->lock.Unlock();
  }
  LogWriterTryLock(const LogWriterTryLock&) = delete;
  LogWriterTryLock& operator=(const LogWriterTryLock&) = delete;

  // True when the lock is held: the writer's operations may then be called on this thread.
  bool OwnsLock() const { return m_owns; }

  // For as long as this holds the lock, records leave the file over its size limit rather than
  // rotate it: a rotation opens files and allocates, which a crash report may not do. The first
  // record after the lock is given up rotates a file left over its limit.
  void DeferRotation() {
    if (m_owns) m_state->rotationDeferred = true;
  }

 private:
  CLogWriter::State* const m_state;  // none once the writer is destroyed
  const bool m_owns;
};
