#include "link_dialog.h"

#include <gtest/gtest.h>

namespace {

ParentRecord g_record;

INT_PTR CALLBACK DialogProc(HWND, UINT message, WPARAM wParam, LPARAM lParam) {
  if (message == WM_INITDIALOG) return TRUE;
  if (message == WM_COMMAND && lParam != 0) {
    ++g_record.commands;
    g_record.lastCommandWParam = wParam;
    g_record.lastCommandLParam = lParam;
    return TRUE;
  }
  if (message == WM_NOTIFY) {
    const NMHDR* header = reinterpret_cast<const NMHDR*>(lParam);
    if (header->code == static_cast<UINT>(NM_CLICK)) {
      ++g_record.notifies;
      g_record.lastNotify = *header;
    }
    return TRUE;
  }
  return FALSE;
}

}  // namespace

LinkDialog::LinkDialog() {
  static bool initialised = false;
  if (!initialised) {
    INITCOMMONCONTROLSEX icc = {sizeof(icc), ICC_WIN95_CLASSES};
    ::InitCommonControlsEx(&icc);
    initialised = true;
  }
  g_record = ParentRecord();
  // DLGTEMPLATE, then no menu, the default class, no title, and the font.
  alignas(4) WORD buffer[64] = {};
  auto* tmpl = reinterpret_cast<DLGTEMPLATE*>(buffer);
  tmpl->style = DS_SETFONT | DS_MODALFRAME | WS_POPUP | WS_VISIBLE | WS_CAPTION;
  tmpl->cx = 200;
  tmpl->cy = 100;
  WORD* p = reinterpret_cast<WORD*>(tmpl + 1);
  *p++ = 0;
  *p++ = 0;
  *p++ = 0;
  *p++ = 8;
  for (const char* face = "MS Shell Dlg"; *face; ++face) *p++ = static_cast<WORD>(*face);
  *p++ = 0;
  m_hWnd = ::CreateDialogIndirectParamA(::GetModuleHandleA(nullptr), tmpl, nullptr, DialogProc, 0);
  if (m_hWnd == nullptr) ADD_FAILURE() << "no dialog could be created: is there a display?";
}

LinkDialog::~LinkDialog() {
  if (m_hWnd != nullptr) ::DestroyWindow(m_hWnd);
}

ParentRecord& LinkDialog::record() { return g_record; }

HWND LinkDialog::AddStatic(const char* text, DWORD style, int id, RECT rect) {
  HWND control = ::CreateWindowExA(0, "STATIC", text, WS_CHILD | WS_VISIBLE | style, rect.left,
                                   rect.top, rect.right - rect.left, rect.bottom - rect.top,
                                   m_hWnd, reinterpret_cast<HMENU>(static_cast<INT_PTR>(id)),
                                   ::GetModuleHandleA(nullptr), nullptr);
  ::SendMessageA(control, WM_SETFONT, ::SendMessageA(m_hWnd, WM_GETFONT, 0, 0), FALSE);
  return control;
}

int Picture::Count(COLORREF color, int left, int right) const {
  int n = 0;
  for (int y = 0; y < height; ++y)
    for (int x = left; x < width && x < right; ++x) n += at(x, y) == color;
  return n;
}

int Picture::LongestRun(COLORREF color) const {
  int best = 0;
  for (int y = 0; y < height; ++y) {
    int run = 0;
    for (int x = 0; x < width; ++x) {
      run = at(x, y) == color ? run + 1 : 0;
      if (run > best) best = run;
    }
  }
  return best;
}

Picture Render(HWND control) {
  Picture picture;
  RECT client;
  ::GetClientRect(control, &client);
  picture.width = client.right;
  picture.height = client.bottom;
  BITMAPINFO info = {};
  info.bmiHeader.biSize = sizeof(info.bmiHeader);
  info.bmiHeader.biWidth = picture.width;
  info.bmiHeader.biHeight = -picture.height;  // top-down rows
  info.bmiHeader.biPlanes = 1;
  info.bmiHeader.biBitCount = 32;
  void* bits = nullptr;
  HDC screen = ::GetDC(nullptr);
  HDC dc = ::CreateCompatibleDC(screen);
  HBITMAP bitmap = ::CreateDIBSection(screen, &info, DIB_RGB_COLORS, &bits, nullptr, 0);
  ::ReleaseDC(nullptr, screen);
  HGDIOBJ old = ::SelectObject(dc, bitmap);
  ::SendMessageA(control, WM_PRINTCLIENT, reinterpret_cast<WPARAM>(dc), PRF_CLIENT);
  ::GdiFlush();
  const auto* px = static_cast<const BYTE*>(bits);
  picture.pixels.resize(static_cast<size_t>(picture.width) * picture.height);
  for (size_t i = 0; i < picture.pixels.size(); ++i)
    picture.pixels[i] = RGB(px[4 * i + 2], px[4 * i + 1], px[4 * i]);
  ::SelectObject(dc, old);
  ::DeleteObject(bitmap);
  ::DeleteDC(dc);
  return picture;
}
