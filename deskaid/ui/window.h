// CWindow: a window handle with the few operations the controls use. It owns nothing: copying
// it copies the handle, and destroying it leaves the window alone.
#pragma once

#include <windows.h>

class CWindow {
 public:
  explicit CWindow(HWND hWnd = nullptr) : m_hWnd(hWnd) {}

  HWND GetHwnd() const { return m_hWnd; }
  bool IsWindow() const { return m_hWnd != nullptr && ::IsWindow(m_hWnd) != FALSE; }

  HWND GetParent() const { return ::GetParent(m_hWnd); }
  int GetDlgCtrlID() const { return ::GetDlgCtrlID(m_hWnd); }
  DWORD GetStyle() const { return static_cast<DWORD>(::GetWindowLongA(m_hWnd, GWL_STYLE)); }

  LRESULT SendMessage(UINT message, WPARAM wParam = 0, LPARAM lParam = 0) const {
    return ::SendMessageA(m_hWnd, message, wParam, lParam);
  }

  BOOL Invalidate(BOOL erase = TRUE) const { return ::InvalidateRect(m_hWnd, nullptr, erase); }
  BOOL InvalidateRect(const RECT* rect, BOOL erase = TRUE) const {
    return ::InvalidateRect(m_hWnd, rect, erase);
  }
  BOOL UpdateWindow() const { return ::UpdateWindow(m_hWnd); }

  HWND m_hWnd;
};
