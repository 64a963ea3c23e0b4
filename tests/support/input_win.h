// Waiting for and typing into the windows the Windows tests drive.
#pragma once

#include <windows.h>

#include <functional>

// Polls `condition` every 10 ms for up to `ms` milliseconds; its last value.
inline bool WaitUntil(const std::function<bool()>& condition, int ms) {
  for (int waited = 0; waited < ms && !condition(); waited += 10) Sleep(10);
  return condition();
}

// Ctrl+C as the keyboard gives it, to whatever window has the focus.
inline void PressCtrlC() {
  const WORD keys[4] = {VK_CONTROL, 'C', 'C', VK_CONTROL};
  INPUT input[4] = {};
  for (int i = 0; i < 4; ++i) {
    input[i].type = INPUT_KEYBOARD;
    input[i].ki.wVk = keys[i];
    input[i].ki.dwFlags = i < 2 ? 0 : KEYEVENTF_KEYUP;
  }
  SendInput(4, input, sizeof(INPUT));
}
