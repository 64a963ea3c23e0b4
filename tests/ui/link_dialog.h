// A real dialog for the hyperlink tests: a modeless dialog built from an in-memory template with
// the dialog font, static controls created in it, and a record of the commands and notifications
// its children send. Plus a renderer that paints a control into a bitmap to read its pixels.
#pragma once

#include <windows.h>
#include <commctrl.h>

#include <vector>

struct ParentRecord {
  int commands = 0;
  int notifies = 0;
  WPARAM lastCommandWParam = 0;
  LPARAM lastCommandLParam = 0;
  NMHDR lastNotify = {};
};

class LinkDialog {
 public:
  LinkDialog();
  ~LinkDialog();
  HWND hwnd() const { return m_hWnd; }
  ParentRecord& record();
  // A static control with the dialog's font.
  HWND AddStatic(const char* text, DWORD style, int id, RECT rect = {10, 10, 250, 30});

 private:
  HWND m_hWnd = nullptr;
};

// The client area of `control` as it paints itself into a memory bitmap (WM_PRINTCLIENT).
struct Picture {
  int width = 0, height = 0;
  std::vector<COLORREF> pixels;
  COLORREF at(int x, int y) const { return pixels[static_cast<size_t>(y) * width + x]; }
  // Pixels of exactly `color` with left <= x < right.
  int Count(COLORREF color, int left = 0, int right = 1 << 30) const;
  // The longest horizontal run of `color` in any row.
  int LongestRun(COLORREF color) const;
};
Picture Render(HWND control);
