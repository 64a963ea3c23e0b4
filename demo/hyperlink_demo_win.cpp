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

#include "support/hyperlink_dialog_win.h"

namespace {

const char* g_picturePath = "hyperlink_demo.bmp";
hyperlink_demo::Links g_links;
bool g_saved = false;

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
  bool ok = std::fwrite(&file, sizeof(file), 1, f) == 1 &&
            std::fwrite(&info, sizeof(info), 1, f) == 1 &&
            std::fwrite(pixels.data(), 1, pixels.size(), f) == pixels.size();
  return std::fclose(f) == 0 && ok;
}

INT_PTR CALLBACK DialogProc(HWND dialog, UINT message, WPARAM wParam, LPARAM) {
  switch (message) {
    case WM_INITDIALOG: {
      hyperlink_demo::AddLinks(dialog, g_links);
      // Show it as the pointer would leave it: hovered.
      ::SendMessageA(g_links.hover.GetHwnd(), WM_MOUSEMOVE, 0, MAKELPARAM(4, 4));

      ::SetTimer(dialog, 1, 1000, nullptr);
      return TRUE;
    }
    case WM_TIMER:
      ::KillTimer(dialog, 1);
      ::RedrawWindow(dialog, nullptr, nullptr,
                     RDW_INVALIDATE | RDW_ERASE | RDW_ALLCHILDREN | RDW_UPDATENOW);
      g_saved = SavePicture(dialog, g_picturePath);
      ::DestroyWindow(dialog);
      return TRUE;
    case WM_COMMAND:
      if (LOWORD(wParam) == 103) std::printf("support link pressed\n");
      return TRUE;
    case WM_CLOSE: ::DestroyWindow(dialog); return TRUE;
    case WM_DESTROY: ::PostQuitMessage(0); return TRUE;
  }
  return FALSE;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc > 1) g_picturePath = argv[1];
  INITCOMMONCONTROLSEX icc = {sizeof(icc), ICC_WIN95_CLASSES};
  ::InitCommonControlsEx(&icc);

  alignas(4) WORD buffer[64] = {};
  const DLGTEMPLATE* tmpl = hyperlink_demo::Template(buffer);
  HWND dialog =
      ::CreateDialogIndirectParamA(::GetModuleHandleA(nullptr), tmpl, nullptr, DialogProc, 0);
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
  std::printf("plain link target: %s\n",
              g_links.plain.GetTarget() ? g_links.plain.GetTarget() : "(none)");
  std::printf("link colour 0x%08lX, visited colour 0x%08lX\n",
              static_cast<unsigned long>(g_links.plain.GetLinkColor()),
              static_cast<unsigned long>(g_links.plain.GetVisitedColor()));
  std::printf("%s %s\n", g_saved ? "picture saved to" : "could not save the picture to",
              g_picturePath);
  return g_saved ? 0 : 1;
}
