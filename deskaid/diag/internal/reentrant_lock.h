// A lock that the thread holding it may take again, and that a path which must never wait long
// (a crash handler) can ask for with a time limit.
//
// The owner is written only by the thread that holds the mutex, so a thread that reads its own
// id there is the holder, and the depth is touched only by that thread.
#pragma once

#include <atomic>
#include <chrono>
#include <mutex>
#include <thread>

namespace deskaid {

class ReentrantLock {
 public:
  ReentrantLock() = default;
  ReentrantLock(const ReentrantLock&) = delete;
  ReentrantLock& operator=(const ReentrantLock&) = delete;

  // Takes the lock, or only counts one level more when this thread holds it already.
  void Lock() {
    if (HeldByThisThread()) {
      ++m_depth;
      return;
    }
    m_mutex.lock();
    Own();
  }

  // Takes the lock when it comes within `patience`. A thread that holds it already is refused:
  // it is inside an operation that a bounded path must not nest into.
  bool TryLockFor(std::chrono::milliseconds patience) {
    if (HeldByThisThread() || !m_mutex.try_lock_for(patience)) return false;
    Own();
    return true;
  }

  // Gives up one level; the last one releases the lock.
  void Unlock() {
    if (--m_depth > 0) return;
    m_owner.store(std::thread::id(), std::memory_order_relaxed);
    m_mutex.unlock();
  }

  bool HeldByThisThread() const {
    return m_owner.load(std::memory_order_relaxed) == std::this_thread::get_id();
  }

 private:
  void Own() {
    m_owner.store(std::this_thread::get_id(), std::memory_order_relaxed);
    m_depth = 1;
  }

  std::timed_mutex m_mutex;
  std::atomic<std::thread::id> m_owner{};
  int m_depth = 0;
};

}  // namespace deskaid
