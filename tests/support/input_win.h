// Waiting for the windows the Windows tests drive, and finding the files built beside them.
#pragma once

#include <windows.h>

#include <functional>
#include <string>

// Polls `condition` every 10 ms for up to `ms` milliseconds; its last value.
inline bool WaitUntil(const std::function<bool()>& condition, int ms) {
  for (int waited = 0; waited < ms && !condition(); waited += 10) Sleep(10);
  return condition();
}

// The path of `name` in the test program's own folder.
inline std::string BesideThisProgram(const char* name) {
  char path[MAX_PATH] = {};
  const std::string self(path, GetModuleFileNameA(nullptr, path, MAX_PATH));
  return self.substr(0, self.find_last_of('\\') + 1) + name;
}
