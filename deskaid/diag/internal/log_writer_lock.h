// Bounded access to a log writer's lock, for paths that must never wait for long or nest: a
// crash handler may run on a thread that was stopped inside a record, or while another thread
// holds the lock forever. Such a path takes the lock only when it can have it within a bounded
// time and the calling thread is not already inside one of the writer's operations, and
// otherwise drops what it meant to write.
#pragma once

#include <chrono>

#include "deskaid/diag/log_writer.h"

class LogWriterTryLock {
 public:
  LogWriterTryLock(CLogWriter& writer, std::chrono::milliseconds patience) : m_writer(writer) {
    if (writer.m_owner.load(std::memory_order_relaxed) == std::this_thread::get_id()) return;
    m_owns = writer.m_lock.try_lock_for(patience);
    if (!m_owns) return;
    writer.m_owner.store(std::this_thread::get_id(), std::memory_order_relaxed);
    writer.m_nLockDepth = 1;
  }
  ~LogWriterTryLock() {
    if (!m_owns) return;
    m_writer.m_nLockDepth = 0;
    m_writer.m_owner.store(std::thread::id(), std::memory_order_relaxed);
    m_writer.m_lock.unlock();
  }
  LogWriterTryLock(const LogWriterTryLock&) = delete;
  LogWriterTryLock& operator=(const LogWriterTryLock&) = delete;

  // True when the lock is held: the writer's operations may then be called on this thread.
  bool OwnsLock() const { return m_owns; }

 private:
  CLogWriter& m_writer;
  bool m_owns = false;
};
