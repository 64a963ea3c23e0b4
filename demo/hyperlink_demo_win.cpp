// A small dialog with four kinds of link: a plain static whose text is its address, a tagged
// label, a bold tagged label and a link underlined only under the pointer (shown hovered). It
// saves a picture of itself as a BMP file and closes.
//
//   hyperlink_demo_win.exe [picture.bmp]
#include <windows.h>
#include <commctrl.h>

#include <cstdio>
#include <vector>

#include <deskaid/ui/hyperlink.h>

namespace {

const char* g_picturePath = "hyperlink_demo.bmp";
CHyperLinkEx g_plain, g_tagged, g_bold, g_hover;
bool g_saved = false;

HWND AddStatic(HWND dialog, const char* text, int id, int x, int y, int width) {
  HWND control = ::CreateWindowExA(0, "STATIC", text, WS_CHILD | WS_VISIBLE | SS_LEFT, x, y, width,
                                   18, dialog, reinterpret_cast<HMENU>(static_cast<INT_PTR>(id)),
                                   ::GetModuleHandleA(nullptr), nullptr);
  ::SendMessageA(control, WM_SETFONT, ::SendMessageA(dialog, WM_GETFONT, 0, 0), FALSE);
  return control;
}

// Writes the screen area of the window's client as a 24-bit BMP. The client only: without a
// window manager (a virtual display) nobody draws the caption.
bool SavePicture(HWND hWnd, const char* path) {
  RECT r;
  ::GetClientRect(hWnd, &r);
  ::MapWindowPoints(hWnd, nullptr, reinterpret_cast<POINT*>(&r), 2);
  const int width = r.right - r.left, height = r.bottom - r.top;
  HDC screen = ::GetDC(nullptr);
  HDC dc = ::CreateCompatibleDC(screen);
  HBITMAP bitmap = ::CreateCompatibleBitmap(screen, width, height);
  HGDIOBJ old = ::SelectObject(dc, bitmap);
  ::BitBlt(dc, 0, 0, width, height, screen, r.left, r.top, SRCCOPY);
  ::SelectObject(dc, old);

  BITMAPINFOHEADER info = {};
  info.biSize = sizeof(info);
  info.biWidth = width;
  info.biHeight = height;  // bottom-up, as the file stores it
  info.biPlanes = 1;
  info.biBitCount = 24;
  const DWORD stride = (static_cast<DWORD>(width) * 3 + 3) & ~3u;
  std::vector<BYTE> pixels(static_cast<size_t>(stride) * height);
  const int rows = ::GetDIBits(dc, bitmap, 0, height, pixels.data(),
                               reinterpret_cast<BITMAPINFO*>(&info), DIB_RGB_COLORS);
  ::DeleteObject(bitmap);
  ::DeleteDC(dc);
  ::ReleaseDC(nullptr, screen);
  if (rows != height) return false;

  BITMAPFILEHEADER file = {};
  file.bfType = 0x4D42;  // "BM"
  file.bfOffBits = sizeof(file) + sizeof(info);
  file.bfSize = file.bfOffBits + static_cast<DWORD>(pixels.size());
  std::FILE* f = std::fopen(path, "wb");
  if (f == nullptr) return false;
  bool ok = std::fwrite(&file, sizeof(file), 1, f) == 1 && std::fwrite(&info, sizeof(info), 1, f) == 1 &&
            std::fwrite(pixels.data(), 1, pixels.size(), f) == pixels.size();
  return std::fclose(f) == 0 && ok;
}

INT_PTR CALLBACK DialogProc(HWND dialog, UINT message, WPARAM wParam, LPARAM) {
  switch (message) {
    case WM_INITDIALOG: {
      AddStatic(dialog, "Plain link, its text is the address:", 100, 12, 10, 330);
      g_plain.AttachToWindow(AddStatic(dialog, "https://www.example.com/", 101, 24, 28, 300));

      g_tagged.SetExtendedStyle(LinkStyleUseTags);
      g_tagged.SetTarget("https://www.example.com/notes");
      g_tagged.AttachToWindow(AddStatic(dialog, "Read the <A>release notes</A> first.", 102, 12, 58, 330));

      g_bold.SetExtendedStyle(LinkStyleUseTagsBold | LinkStyleCommandButton);
      g_bold.AttachToWindow(AddStatic(dialog, "Questions? <A>Contact support</A> any time.", 103, 12, 84, 330));

      g_hover.SetExtendedStyle(LinkStyleUnderlineHover);
      g_hover.SetTarget("https://www.example.com/hover");
      g_hover.SetLinkColor(RGB(0, 128, 64));
      g_hover.AttachToWindow(AddStatic(dialog, "Underlined while the pointer is over it", 104, 12, 110, 330));
      // Show it as the pointer would leave it: hovered.
      ::SendMessageA(g_hover.GetHwnd(), WM_MOUSEMOVE, 0, MAKELPARAM(4, 4));

      ::SetTimer(dialog, 1, 1000, nullptr);
      return TRUE;
    }
    case WM_TIMER:
      ::KillTimer(dialog, 1);
      ::RedrawWindow(dialog, nullptr, nullptr, RDW_INVALIDATE | RDW_ERASE | RDW_ALLCHILDREN | RDW_UPDATENOW);
      g_saved = SavePicture(dialog, g_picturePath);
      ::DestroyWindow(dialog);
      return TRUE;
    case WM_COMMAND:
      if (LOWORD(wParam) == 103) std::printf("support link pressed\n");
      return TRUE;
    case WM_CLOSE:
      ::DestroyWindow(dialog);
      return TRUE;
    case WM_DESTROY:
      ::PostQuitMessage(0);
      return TRUE;
  }
  return FALSE;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc > 1) g_picturePath = argv[1];
  INITCOMMONCONTROLSEX icc = {sizeof(icc), ICC_WIN95_CLASSES};
  ::InitCommonControlsEx(&icc);

  // The dialog's template: no controls of its own, a caption and the dialog font.
  alignas(4) WORD buffer[64] = {};
  auto* tmpl = reinterpret_cast<DLGTEMPLATE*>(buffer);
  tmpl->style = DS_SETFONT | DS_MODALFRAME | DS_CENTER | WS_POPUP | WS_VISIBLE | WS_CAPTION | WS_SYSMENU;
  tmpl->cx = 240;
  tmpl->cy = 90;
  WORD* p = reinterpret_cast<WORD*>(tmpl + 1);
  *p++ = 0;  // no menu
  *p++ = 0;  // the dialog class
  for (const char* c = "Hyperlink demo"; *c; ++c) *p++ = static_cast<WORD>(*c);
  *p++ = 0;
  *p++ = 8;
  for (const char* c = "MS Shell Dlg"; *c; ++c) *p++ = static_cast<WORD>(*c);
  *p++ = 0;

  HWND dialog = ::CreateDialogIndirectParamA(::GetModuleHandleA(nullptr), tmpl, nullptr, DialogProc, 0);
  if (dialog == nullptr) {
    std::printf("the dialog could not be created\n");
    return 1;
  }
  MSG msg;
  while (::GetMessageA(&msg, nullptr, 0, 0) > 0) {
    if (!::IsDialogMessageA(dialog, &msg)) {
      ::TranslateMessage(&msg);
      ::DispatchMessageA(&msg);
    }
  }
  std::printf("plain link target: %s\n", g_plain.GetTarget() ? g_plain.GetTarget() : "(none)");
  std::printf("link colour 0x%08lX, visited colour 0x%08lX\n",
              static_cast<unsigned long>(g_plain.GetLinkColor()),
              static_cast<unsigned long>(g_plain.GetVisitedColor()));
  std::printf("%s %s\n", g_saved ? "picture saved to" : "could not save the picture to", g_picturePath);
  return g_saved ? 0 : 1;
}
