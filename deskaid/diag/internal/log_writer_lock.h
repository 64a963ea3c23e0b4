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
      : m_lock(CLogWriter::State::LockOf(writer.m_state)),
        m_owns(m_lock != nullptr && m_lock->TryLockFor(patience)) {}
  ~LogWriterTryLock() {
    if (m_owns) m_lock->Unlock();
  }
  LogWriterTryLock(const LogWriterTryLock&) = delete;
  LogWriterTryLock& operator=(const LogWriterTryLock&) = delete;

  // True when the lock is held: the writer's operations may then be called on this thread.
  bool OwnsLock() const { return m_owns; }

 private:
  deskaid::ReentrantLock* const m_lock;  // none once the writer is destroyed
  const bool m_owns;
};
