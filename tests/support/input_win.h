// Waiting for the windows the Windows tests drive.
#pragma once

#include <windows.h>

#include <functional>

// Polls `condition` every 10 ms for up to `ms` milliseconds; its last value.
inline bool WaitUntil(const std::function<bool()>& condition, int ms) {
  for (int waited = 0; waited < ms && !condition(); waited += 10) Sleep(10);
  return condition();
}
