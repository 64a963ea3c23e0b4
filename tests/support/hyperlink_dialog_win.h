// The hyperlink demo's dialog: its template and its labels and links, laid out for the display's
// DPI. Shared by the demo program and the tests, which measure it as the demo shows it.
#pragma once

#include <windows.h>

#include <deskaid/ui/hyperlink.h>
#include <deskaid/ui/scoped_gdi.h>

namespace hyperlink_demo {

// The four kinds of link: a plain static whose text is its address, a tagged label, a bold
// tagged label and a link underlined only under the pointer.
struct Links {
  CHyperLinkEx plain, tagged, bold, hover;
};

// The dialog's template in `buffer`: no controls of its own, a caption and the dialog font.
inline const DLGTEMPLATE* Template(WORD (&buffer)[64]) {
  auto* tmpl = reinterpret_cast<DLGTEMPLATE*>(buffer);
  const DWORD style =
      DS_SETFONT | DS_MODALFRAME | DS_CENTER | WS_POPUP | WS_VISIBLE | WS_CAPTION | WS_SYSMENU;
  *tmpl = {style, 0, 0, 0, 0, 240, 90};  // no items; at 0,0, 240 by 90 dialog units
  WORD* p = reinterpret_cast<WORD*>(tmpl + 1);
  *p++ = 0;  // no menu
  *p++ = 0;  // the dialog class
  for (const char* c = "Hyperlink demo"; *c; ++c) *p++ = static_cast<WORD>(*c);
  *p++ = 0;
  *p++ = 8;
  for (const char* c = "MS Shell Dlg"; *c; ++c) *p++ = static_cast<WORD>(*c);
  *p++ = 0;
  return tmpl;
}

// A static of `style` with the dialog's font, at `r` in pixels.
inline HWND AddStatic(HWND dialog, const char* text, DWORD style, int id, RECT r) {
  HWND control = ::CreateWindowExA(0, "STATIC", text, WS_CHILD | WS_VISIBLE | style, r.left, r.top,
                                   r.right - r.left, r.bottom - r.top, dialog,
                                   reinterpret_cast<HMENU>(static_cast<INT_PTR>(id)),
                                   ::GetModuleHandleA(nullptr), nullptr);
  ::SendMessageA(control, WM_SETFONT, ::SendMessageA(dialog, WM_GETFONT, 0, 0), FALSE);
  return control;
}

// Adds the labels and attaches the links (statics 100-104).
inline void AddLinks(HWND dialog, Links& links) {
  // Each place is given in pixels for 96 DPI and scaled to the display's, as the dialog's font is.
  const int dpi = ::GetDeviceCaps(deskaid::ScopedWindowDC(nullptr), LOGPIXELSY);
  auto add = [&](const char* text, int id, int x, int y, int width) {
    auto px = [dpi](int pixels) { return ::MulDiv(pixels, dpi, 96); };
    return AddStatic(dialog, text, SS_LEFT, id, {px(x), px(y), px(x) + px(width), px(y) + px(18)});
  };
  add("Plain link, its text is the address:", 100, 12, 10, 330);
  links.plain.AttachToWindow(add("https://www.example.com/", 101, 24, 28, 300));

  links.tagged.SetExtendedStyle(LinkStyleUseTags);
  links.tagged.SetTarget("https://www.example.com/notes");
  links.tagged.AttachToWindow(add("Read the <A>release notes</A> first.", 102, 12, 58, 330));

  links.bold.SetExtendedStyle(LinkStyleUseTagsBold | LinkStyleCommandButton);
  links.bold.AttachToWindow(add("Questions? <A>Contact support</A> any time.", 103, 12, 84, 330));

  links.hover.SetExtendedStyle(LinkStyleUnderlineHover);
  links.hover.SetTarget("https://www.example.com/hover");
  links.hover.SetLinkColor(RGB(0, 128, 64));
  links.hover.AttachToWindow(add("Underlined while the pointer is over it", 104, 12, 110, 330));
}

}  // namespace hyperlink_demo
