// A real modeless dialog (dialog font, in-memory template) for the hyperlink tests, recording the
// commands and NM_CLICK notifications of its children; and a renderer reading a control's pixels.
#pragma once

#include <windows.h>
#include <commctrl.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/hyperlink_dialog_win.h"

const COLORREF kBlue = RGB(0, 0, 255), kPurple = RGB(128, 0, 128);  // the default link colours

class LinkDialog {
 public:
  // What the children sent: WM_COMMAND, and WM_NOTIFY with NM_CLICK, and the sender of the last
  // one with its identifier (for WM_COMMAND the whole WPARAM). Zeroed by each dialog.
  struct Record {
    int commands, notifies;
    HWND from;
    UINT_PTR id;
  };
  static inline Record record;

  LinkDialog() {
    INITCOMMONCONTROLSEX icc = {sizeof(icc), ICC_WIN95_CLASSES};
    ::InitCommonControlsEx(&icc);
    record = Record();
    alignas(4) WORD buffer[64] = {};  // the demo's dialog: dialog font, no controls of its own
    m_hWnd = ::CreateDialogIndirectParamA(::GetModuleHandleA(nullptr),
                                          hyperlink_demo::Template(buffer), nullptr, Proc, 0);
    if (m_hWnd == nullptr) ADD_FAILURE() << "no dialog could be created: is there a display?";
  }
  ~LinkDialog() { ::DestroyWindow(m_hWnd); }
  HWND hwnd() const { return m_hWnd; }
  HWND AddStatic(const char* text, DWORD style, int id, RECT r = {10, 10, 250, 30}) {
    return hyperlink_demo::AddStatic(m_hWnd, text, style, id, r);
  }
  // A left-aligned static attached to `link`, given `linkStyle` first.
  HWND Attach(CHyperLinkEx& link, const char* text, DWORD linkStyle, int id,
              RECT r = {10, 10, 250, 30}) {
    link.SetExtendedStyle(linkStyle);
    HWND control = AddStatic(text, SS_LEFT, id, r);
    EXPECT_TRUE(link.AttachToWindow(control));
    return control;
  }

 private:
  static INT_PTR CALLBACK Proc(HWND, UINT message, WPARAM wParam, LPARAM lParam) {
    const NMHDR* notify = reinterpret_cast<const NMHDR*>(lParam);
    if (message == WM_COMMAND && lParam != 0) {
      record = {record.commands + 1, record.notifies, reinterpret_cast<HWND>(lParam), wParam};
    } else if (message == WM_NOTIFY && notify->code == static_cast<UINT>(NM_CLICK)) {
      record = {record.commands, record.notifies + 1, notify->hwndFrom, notify->idFrom};
    }
    return message == WM_INITDIALOG || message == WM_NOTIFY || (message == WM_COMMAND && lParam);
  }
  HWND m_hWnd = nullptr;
};

inline RECT ClientRect(HWND window) {
  RECT r{};
  ::GetClientRect(window, &r);
  return r;
}

inline std::wstring ToolText(HWND tooltip, UINT index = 0) {
  wchar_t text[1024] = L"?";
  TTTOOLINFOW info = {};
  info.cbSize = TTTOOLINFOW_V2_SIZE;
  info.lpszText = text;
  ::SendMessageW(tooltip, TTM_ENUMTOOLSW, index, reinterpret_cast<LPARAM>(&info));
  return text;
}

// The client area of a control as it paints itself into a memory bitmap (WM_PRINTCLIENT).
struct Picture {
  int width = 0, height = 0;
  std::vector<COLORREF> pixels;
  COLORREF at(int x, int y) const { return pixels[static_cast<size_t>(y) * width + x]; }
  // Pixels of exactly `color` with left <= x < right.
  int Count(COLORREF color, int left = 0, int right = 1 << 30) const {
    int n = 0;
    for (int y = 0; y < height; ++y)
      for (int x = left; x < width && x < right; ++x) n += at(x, y) == color;
    return n;
  }
  int LongestRun(COLORREF color) const {
    int best = 0;
    for (int y = 0; y < height; ++y)
      for (int x = 0, run = 0; x < width; ++x) {
        run = at(x, y) == color ? run + 1 : 0;
        best = run > best ? run : best;
      }
    return best;
  }
};

inline Picture Render(HWND control) {
  const RECT client = ClientRect(control);
  Picture picture{client.right, client.bottom, {}};
  BITMAPINFO info{};  // top-down, 32 bits a pixel
  info.bmiHeader = {sizeof info.bmiHeader, client.right, -client.bottom, 1, 32, 0, 0, 0, 0, 0, 0};
  void* bits = nullptr;
  HDC dc = ::CreateCompatibleDC(nullptr);
  HBITMAP bitmap = ::CreateDIBSection(dc, &info, DIB_RGB_COLORS, &bits, nullptr, 0);
  HGDIOBJ old = ::SelectObject(dc, bitmap);
  ::SendMessageA(control, WM_PRINTCLIENT, reinterpret_cast<WPARAM>(dc), PRF_CLIENT);
  ::GdiFlush();
  const BYTE* px = static_cast<const BYTE*>(bits);
  for (size_t i = 0; i < static_cast<size_t>(client.right) * client.bottom; ++i, px += 4)
    picture.pixels.push_back(RGB(px[2], px[1], px[0]));
  ::SelectObject(dc, old);
  ::DeleteObject(bitmap);
  ::DeleteDC(dc);
  return picture;
}
