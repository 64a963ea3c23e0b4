// Helpers shared by the tests that show message boxes: the tests' resource module,
// driving a shown box from a second thread, control texts and their measures, and Ctrl+C copies.
#pragma once

#include <windows.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <thread>

#include <deskaid/msgbox/message_dialog.h>
#include <deskaid/ui/scoped_gdi.h>

#include "support/input_win.h"
#include "support/scratch_dir.h"
#include "support/trace_capture.h"

namespace msgbox_test {

// The tests' resource DLL, loaded once from beside the test executable.
inline HINSTANCE TestResources() {
  static HINSTANCE module = LoadLibraryA(BesideThisProgram("msgbox_test_resources.dll").c_str());
  return module;
}

// Shows a box titled `title` (in the host's code page) while `drive` gets it on a second thread;
// the box's result. The waits are generous, as a loaded machine may take seconds to show or end a
// box; a box its driver left open is ended with command 0x7777 and fails the test.
inline int Drive(const char* title, unsigned style, const MessageDialogParams* p,
                 const std::function<void(HWND)>& drive, const char* text = "Message text") {
  std::thread driver([&] {
    HWND dialog = nullptr;
    if (!WaitUntil([&] { return IsWindowVisible(dialog = FindWindowA("#32770", title)); }, 60000)) {
      ADD_FAILURE() << "no dialog titled " << title;
      return;
    }
    drive(dialog);
    if (!WaitUntil([&] { return !IsWindow(dialog); }, 30000)) {
      ADD_FAILURE() << "the dialog " << title << " was still open after its driver finished";
      PostMessageA(dialog, WM_COMMAND, 0x7777, 0);
    }
  });
  const int result = ShowMessageDialog(nullptr, text, title, style | MDS_NOSOUND, p);
  driver.join();
  return result;
}

inline std::wstring TextOf(HWND window) {
  wchar_t text[1024] = {};
  GetWindowTextW(window, text, 1024);
  return text;
}

// The room `text` takes in `control`'s font, drawn with `format` within `width`: a rectangle at
// the origin.
inline RECT Needed(HWND control, const std::wstring& text, UINT format, int width = 1 << 20) {
  deskaid::ScopedWindowDC dc(control);
  deskaid::ScopedSelection font(dc,
                                reinterpret_cast<HFONT>(SendMessageW(control, WM_GETFONT, 0, 0)));
  RECT r = {0, 0, width, 0};
  DrawTextW(dc, text.c_str(), static_cast<int>(text.size()), &r, format | DT_CALCRECT);
  return r;
}

// Presses Ctrl+C on the box and returns the clipboard's text once it has changed; empty if it
// does not change within two seconds. The box stays open.
inline std::wstring CopyOf(HWND dialog) {
  SetForegroundWindow(dialog);
  Sleep(100);
  const DWORD since = GetClipboardSequenceNumber();
  for (BYTE key : {BYTE{VK_CONTROL}, BYTE{'C'}}) keybd_event(key, 0, 0, 0);
  for (BYTE key : {BYTE{'C'}, BYTE{VK_CONTROL}}) keybd_event(key, 0, KEYEVENTF_KEYUP, 0);
  std::wstring text;
  WaitUntil(
      [&] {
        if (GetClipboardSequenceNumber() == since || !OpenClipboard(nullptr)) return false;
        if (HANDLE data = GetClipboardData(CF_UNICODETEXT)) {
          text = static_cast<const wchar_t*>(GlobalLock(data));
          GlobalUnlock(data);
        }
        CloseClipboard();
        return true;
      },
      2000);
  return text;
}

// What Ctrl+C copies of a box: title, message and the button captions (each followed by three
// spaces) between rules.
inline std::wstring CopyText(const std::wstring& title, const std::wstring& message,
                             const std::wstring& buttons) {
  const std::wstring rule = L"---------------------------\r\n";
  return rule + title + L"\r\n" + rule + message + L"\r\n" + rule + buttons + L"   \r\n" + rule;
}

}  // namespace msgbox_test
