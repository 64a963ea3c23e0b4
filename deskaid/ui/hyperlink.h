// CHyperLinkEx: turns a window, as a rule a static text control of a dialog, into a clickable
// link. It paints its text in the link colour with an underlined (or bold) font, shows the hand
// cursor and a tooltip with the target over the link, draws a focus rectangle, follows the link on
// a click or on Enter and Space, and then either opens the target with the shell's "open" verb or
// tells its parent by WM_COMMAND or WM_NOTIFY. Link colours come from the user's browser settings
// when they are set. With LinkStyleUseTags only the part of the label between "<A>" and "</A>" is
// the link.
//
// Usage: construct, set the extended style and colours, then AttachToWindow(GetDlgItem(...)) once
// the dialog exists (or Create a window of the control's own). The tooltip needs the common
// controls' window classes, which the host registers (InitCommonControlsEx) as for any tooltip.
// The control runs on the thread that owns its window and logs nothing.
#pragma once

#include <windows.h>
#include <commctrl.h>
#include <shellapi.h>

#include <cstdlib>
#include <cstring>

#include "deskaid/common/ansi_text.h"
#include "deskaid/ui/link_text.h"
#include "deskaid/ui/scoped_gdi.h"
#include "deskaid/ui/window_impl.h"

// Extended style bits, set by the owner before the control is initialised.
enum : DWORD {
  LinkStyleNotUnderlined = 0x01,   // the link font is not underlined
  LinkStyleUnderlineHover = 0x02,  // the link font only while the mouse is over the link
  LinkStyleCommandButton = 0x04,   // following the link sends WM_COMMAND to the parent
  LinkStyleNotifyButton = 0x0C,    // following the link sends WM_NOTIFY / NM_CLICK to the parent
  LinkStyleUseTags = 0x10,         // only the text between "<A>" and "</A>" is the link
  LinkStyleUseTagsBold = 0x30,     // as above, with a bold instead of an underlined link font
  LinkStyleNoToolTip = 0x40,       // mouse messages are not relayed to the tooltip
};

// State bits.
enum : BYTE {
  LinkStatePaintLabel = 0x01,  // the control paints its own text
  LinkStateVisited = 0x02,     // the shell has opened the target once
  LinkStateHover = 0x04,       // the mouse is over the link (LinkStyleUnderlineHover only)
  LinkStateOwnsFont = 0x08,    // the link font was created by the control
};

namespace deskaid {
namespace link_internal {
// IDC_HAND by number: the named constant is wide or narrow by the host's UNICODE setting.
constexpr WORD kHandCursorId = 32649;
// The static styles compared when deciding who paints: the whole low byte.
constexpr DWORD kStaticStyleLowByte = 0xFF;
// The browser's colour settings are opened for writing as well as reading, though only read.
constexpr REGSAM kBrowserSettingsAccess = KEY_READ | KEY_WRITE;
// The mouse messages relayed to the tooltip: WM_MOUSEFIRST up to the horizontal wheel.
constexpr UINT kLastRelayedMouseMessage = 0x20E;  // WM_MOUSEHWHEEL
// ShellExecute's result is an error code up to this value and succeeds above it.
constexpr INT_PTR kShellExecuteLastError = 32;
}  // namespace link_internal
}  // namespace deskaid

// Everything the owner and the window see of the control; the message map and painting are
// added by CHyperLinkImplEx.
template <class T, class TBase = CWindow, class TWinTraits = CControlWinTraits>
class CHyperLinkImpl : public CWindowImpl<T, TBase, TWinTraits> {
 public:
  static const char* GetWndClassName() { return "deskaid.HyperLink"; }

  CHyperLinkImpl() { ::SetRectEmpty(&m_rcLink); }

  ~CHyperLinkImpl() override {
    std::free(m_pszLabel);
    std::free(m_pszTarget);
    if ((m_bState & LinkStateOwnsFont) && m_hFontLink != nullptr) ::DeleteObject(m_hFontLink);
  }

  // Binds `hWnd` to the control and initialises it. Returns false, without initialising, when
  // the window procedure cannot be replaced.
  bool AttachToWindow(HWND hWnd) {
    if (!this->SubclassWindow(hWnd)) return false;
    static_cast<T*>(this)->InitControl();
    return true;
  }

  // Owner settings, meant to be made before the control is initialised.
  void SetExtendedStyle(DWORD dwStyle) { m_dwExtendedStyle = dwStyle; }
  DWORD GetExtendedStyle() const { return m_dwExtendedStyle; }
  void SetLinkColor(COLORREF color) { m_clrLink = color; }
  COLORREF GetLinkColor() const { return m_clrLink; }
  void SetVisitedColor(COLORREF color) { m_clrVisited = color; }
  COLORREF GetVisitedColor() const { return m_clrVisited; }

  BYTE GetState() const { return m_bState; }
  const char* GetLabelText() const { return m_pszLabel; }
  const char* GetTarget() const { return m_pszTarget; }
  RECT GetLinkRect() const { return m_rcLink; }
  HWND GetToolTip() const { return m_hWndToolTip; }
  HFONT GetLinkFont() const { return m_hFontLink; }
  HFONT GetNormalFont() const { return m_hFontNormal; }

  // Stores a copy of `text` as the label, measures the link again and shows the text in the
  // window. Returns false (label null) when the copy cannot be made.
  bool SetLabelText(const char* text) {
    std::free(m_pszLabel);
    m_pszLabel = CopyText(text);
    if (m_pszLabel == nullptr) return false;
    static_cast<T*>(this)->CalcLinkRect();
    if (this->m_hWnd != nullptr && ::IsWindow(this->m_hWnd))
      ::SetWindowTextA(this->m_hWnd, m_pszLabel);
    return true;
  }

  // Stores a copy of `target`. Without a label the target is the text shown, so the link is
  // measured again. Every call adds a tool with the target to the tooltip.
  bool SetTarget(const char* target) {
    std::free(m_pszTarget);
    m_pszTarget = CopyText(target);
    if (m_pszTarget == nullptr) return false;
    if (m_pszLabel == nullptr) static_cast<T*>(this)->CalcLinkRect();
    if (m_hWndToolTip != nullptr && ::IsWindow(m_hWndToolTip)) AddToolTip();
    return true;
  }

  // Follows the link: a notification or command to the parent, or the shell's "open" on the
  // target. Returns true when something was done; only a successful open marks the link visited.
  bool Navigate() {
    const int id = this->GetDlgCtrlID();
    if ((m_dwExtendedStyle & LinkStyleNotifyButton) == LinkStyleNotifyButton) {
      NMHDR header = {this->m_hWnd, static_cast<UINT_PTR>(id), static_cast<UINT>(NM_CLICK)};
      ::SendMessageA(this->GetParent(), WM_NOTIFY, static_cast<WPARAM>(id),
                     reinterpret_cast<LPARAM>(&header));
      return true;
    }
    if (m_dwExtendedStyle & LinkStyleCommandButton) {
      ::SendMessageA(this->GetParent(), WM_COMMAND, MAKEWPARAM(id, 0),
                     reinterpret_cast<LPARAM>(this->m_hWnd));
      return true;
    }
    HINSTANCE result =
        ::ShellExecuteA(nullptr, "open", m_pszTarget, nullptr, nullptr, SW_SHOWNORMAL);
    if (reinterpret_cast<INT_PTR>(result) <= deskaid::link_internal::kShellExecuteLastError)
      return false;
    m_bState |= LinkStateVisited;
    this->Invalidate(TRUE);
    return true;
  }

  // "r,g,b" to a COLORREF, CLR_INVALID on failure (see deskaid::ParseColorText).
  static COLORREF ParseColorText(const char* text) { return deskaid::ParseColorText(text); }

  // The label, or the target when there is no label, split at its anchor mark-up.
  LinkLabelParts ParseTaggedLabel() const {
    return deskaid::ParseTaggedText(m_pszLabel != nullptr ? m_pszLabel : m_pszTarget);
  }

 protected:
  static char* CopyText(const char* text) {
    if (text == nullptr) return nullptr;
    const size_t size = std::strlen(text) + 1;
    char* copy = static_cast<char*>(std::malloc(size));
    if (copy != nullptr) std::memcpy(copy, text, size);
    return copy;
  }

  // The text the control shows: the label, or else the target.
  const char* DisplayText() const { return m_pszLabel != nullptr ? m_pszLabel : m_pszTarget; }

  void AddToolTip() {
    ::SendMessageA(m_hWndToolTip, TTM_ACTIVATE, TRUE, 0);
    TOOLINFOA info = {};
    info.cbSize = TTTOOLINFOA_V2_SIZE;
    info.hwnd = this->m_hWnd;
    info.uId = 1;
    info.rect = m_rcLink;
    info.lpszText = m_pszTarget;
    ::SendMessageA(m_hWndToolTip, TTM_ADDTOOLA, 0, reinterpret_cast<LPARAM>(&info));
  }

  // Runs once the window is bound: style, cursor, fonts, tooltip, label and target, colours.
  void InitControl() {
    AdaptStatic();
    m_hCursor = ::LoadCursorA(nullptr, MAKEINTRESOURCEA(deskaid::link_internal::kHandCursorId));
    if (m_bState & LinkStatePaintLabel) CreateFonts();
    CreateToolTip();
    if (m_pszLabel == nullptr) AdoptWindowText();
    static_cast<T*>(this)->CalcLinkRect();
    SetUpTarget();
    if (m_bState & LinkStatePaintLabel) ReadBrowserColors();
  }

  void ReadBrowserColors() {
    HKEY key = nullptr;
    if (::RegOpenKeyExA(HKEY_CURRENT_USER, "Software\\Microsoft\\Internet Explorer\\Settings", 0,
                        deskaid::link_internal::kBrowserSettingsAccess, &key) != ERROR_SUCCESS)
      return;
    char buffer[12];
    if (deskaid::ReadRegistryString(key, "Anchor Color", buffer, sizeof(buffer)) == ERROR_SUCCESS) {
      COLORREF color = ParseColorText(buffer);
      if (color != CLR_INVALID) m_clrLink = color;
    }
    if (deskaid::ReadRegistryString(key, "Anchor Color Visited", buffer, sizeof(buffer)) ==
        ERROR_SUCCESS) {
      COLORREF color = ParseColorText(buffer);
      if (color != CLR_INVALID) m_clrVisited = color;
    }
    ::RegCloseKey(key);
  }

 private:
  // A static gets SS_NOTIFY, so that it hears the mouse. The whole low byte of its style is
  // compared, not just the type bits: a static with SS_NOPREFIX is painted by the control whatever
  // its type.
  void AdaptStatic() {
    char className[8] = {};
    ::GetClassNameA(this->m_hWnd, className, sizeof(className));
    if (::lstrcmpiA(className, "static") != 0) return;
    DWORD style = this->GetStyle();
    if ((style & SS_NOTIFY) == 0) ::SetWindowLongA(this->m_hWnd, GWL_STYLE, style | SS_NOTIFY);
    switch (style & deskaid::link_internal::kStaticStyleLowByte) {
      // Icons, rectangles, frames, owner-drawn, bitmaps and metafiles keep their own painting.
      case SS_ICON:
      case SS_BLACKRECT:
      case SS_GRAYRECT:
      case SS_WHITERECT:
      case SS_BLACKFRAME:
      case SS_GRAYFRAME:
      case SS_WHITEFRAME:
      case SS_OWNERDRAW:
      case SS_BITMAP:
      case SS_ENHMETAFILE: m_bState &= static_cast<BYTE>(~LinkStatePaintLabel); break;
      default: break;
    }
  }

  // The normal font is the parent's (or the system font); the link font, unless the owner gave
  // one, is built from it: bold, underlined or plain by the extended style.
  void CreateFonts() {
    m_hFontNormal = reinterpret_cast<HFONT>(::SendMessageA(this->GetParent(), WM_GETFONT, 0, 0));
    if (m_hFontNormal == nullptr) m_hFontNormal = static_cast<HFONT>(::GetStockObject(SYSTEM_FONT));
    if (m_hFontNormal == nullptr || m_hFontLink != nullptr) return;
    LOGFONTA lf = {};
    ::GetObjectA(m_hFontNormal, sizeof(lf), &lf);
    if ((m_dwExtendedStyle & LinkStyleUseTagsBold) == LinkStyleUseTagsBold)
      lf.lfWeight = FW_BOLD;
    else if ((m_dwExtendedStyle & LinkStyleNotUnderlined) == 0)
      lf.lfUnderline = TRUE;
    m_hFontLink = ::CreateFontIndirectA(&lf);
    m_bState |= LinkStateOwnsFont;
  }

  void CreateToolTip() {
    // The default rectangle's size is 0 - CW_USEDEFAULT in each direction.
    const int defaultSize = static_cast<int>(0u - static_cast<unsigned>(CW_USEDEFAULT));
    m_hWndToolTip = ::CreateWindowExA(0, "tooltips_class32", nullptr, 0, CW_USEDEFAULT,
                                      CW_USEDEFAULT, defaultSize, defaultSize, this->m_hWnd,
                                      nullptr, deskaid::ThisModuleInstance(), nullptr);
  }

  // The window's text becomes the label.
  void AdoptWindowText() {
    const int length = ::GetWindowTextLengthA(this->m_hWnd);
    if (length <= 0) return;
    char* text = static_cast<char*>(std::malloc(static_cast<size_t>(length) + 1));
    if (text == nullptr) return;
    ::GetWindowTextA(this->m_hWnd, text, length + 1);
    SetLabelText(text);
    std::free(text);
  }

  // A plain static whose text is an address opens that address; a given target goes to the
  // tooltip.
  void SetUpTarget() {
    if (m_pszTarget == nullptr && (m_dwExtendedStyle & LinkStyleCommandButton) == 0) {
      if (m_pszLabel != nullptr) SetTarget(m_pszLabel);
    } else if (m_hWndToolTip != nullptr) {
      AddToolTip();
    }
  }

 protected:
  char* m_pszLabel = nullptr;
  char* m_pszTarget = nullptr;
  HCURSOR m_hCursor = nullptr;
  HFONT m_hFontLink = nullptr;
  HFONT m_hFontNormal = nullptr;
  RECT m_rcLink;
  HWND m_hWndToolTip = nullptr;
  COLORREF m_clrLink = RGB(0, 0, 255);
  COLORREF m_clrVisited = RGB(128, 0, 128);
  DWORD m_dwExtendedStyle = 0;
  BYTE m_bState = LinkStatePaintLabel;
};

// Measuring, painting and the message map.
template <class T, class TBase = CWindow, class TWinTraits = CControlWinTraits>
class CHyperLinkImplEx : public CHyperLinkImpl<T, TBase, TWinTraits> {
 public:
  // Measures where the link text lies in the client area. Returns false when there is no
  // window, or neither label nor target.
  bool CalcLinkRect() {
    HWND hWnd = this->m_hWnd;
    if (hWnd == nullptr || !::IsWindow(hWnd)) return false;
    const char* text = this->DisplayText();
    if (text == nullptr) return false;
    deskaid::ScopedWindowDC dc(hWnd);
    RECT client;
    ::GetClientRect(hWnd, &client);
    this->m_rcLink = client;
    if (this->m_bState & LinkStatePaintLabel) {
      // A font that could not be selected leaves nothing to put back.
      deskaid::ScopedSelection font(dc, deskaid::ScopedSelection::kUnlessFailed);
      if (this->m_dwExtendedStyle & LinkStyleUseTags) {
        LinkLabelParts parts = this->ParseTaggedLabel();
        font.Select(this->m_hFontNormal);
        RECT before = client;
        if (parts.pszBefore != nullptr)
          deskaid::DrawAnsiText(dc, parts.pszBefore, parts.cchBefore, &before,
                                DT_CALCRECT | DT_WORDBREAK);
        if (this->m_hFontLink != nullptr) font.Select(this->m_hFontLink);
        RECT link = client;
        if (parts.pszBefore != nullptr) link.left = before.right;
        deskaid::DrawAnsiText(dc, parts.pszLink != nullptr ? parts.pszLink : "", parts.cchLink,
                              &link, DT_CALCRECT | DT_WORDBREAK);
        this->m_rcLink = link;
      } else {
        if (this->m_hFontLink != nullptr) font.Select(this->m_hFontLink);
        const DWORD style = this->GetStyle();
        deskaid::DrawAnsiText(dc, text, -1, &this->m_rcLink,
                              DT_CALCRECT | DT_WORDBREAK | AlignFlags(style));
        if (style & SS_CENTER)
          ::OffsetRect(&this->m_rcLink, (client.right - this->m_rcLink.right) / 2, 0);
        else if (style & SS_RIGHT)
          ::OffsetRect(&this->m_rcLink, client.right - this->m_rcLink.right, 0);
      }
    }
    return true;
  }

  // Draws the label (or the target) on `dc`, the link part in the link colour and font.
  void PaintLink(HDC dc) {
    HWND hWnd = this->m_hWnd;
    COLORREF linkColor;
    if (!::IsWindowEnabled(hWnd))
      linkColor = ::GetSysColor(COLOR_GRAYTEXT);
    else
      linkColor = (this->m_bState & LinkStateVisited) ? this->m_clrVisited : this->m_clrLink;
    HFONT linkFont = (this->m_hFontLink != nullptr &&
                      ((this->m_dwExtendedStyle & LinkStyleUnderlineHover) == 0 ||
                       (this->m_bState & LinkStateHover)))
                         ? this->m_hFontLink
                         : this->m_hFontNormal;
    ::SetBkMode(dc, TRANSPARENT);
    const bool focused = ::GetFocus() == hWnd;
    if ((this->m_dwExtendedStyle & LinkStyleUseTags) == 0) {
      deskaid::ScopedSelection font(dc, linkFont);
      COLORREF oldColor = ::SetTextColor(dc, linkColor);
      const char* text = this->DisplayText();
      if (text != nullptr)
        deskaid::DrawAnsiText(dc, text, -1, &this->m_rcLink,
                              DT_WORDBREAK | AlignFlags(this->GetStyle()));
      if (focused) ::DrawFocusRect(dc, &this->m_rcLink);
      ::SetTextColor(dc, oldColor);
      return;
    }
    RECT client;
    ::GetClientRect(hWnd, &client);
    LinkLabelParts parts = this->ParseTaggedLabel();
    deskaid::ScopedSelection font(dc, this->m_hFontNormal);
    if (parts.pszBefore != nullptr)
      deskaid::DrawAnsiText(dc, parts.pszBefore, parts.cchBefore, &client, DT_WORDBREAK);
    COLORREF oldColor = ::SetTextColor(dc, linkColor);
    font.Select(linkFont);
    if (parts.pszLink != nullptr && parts.cchLink > 0)
      deskaid::DrawAnsiText(dc, parts.pszLink, parts.cchLink, &this->m_rcLink, DT_WORDBREAK);
    ::SetTextColor(dc, oldColor);
    font.Select(this->m_hFontNormal);
    if (parts.pszAfter != nullptr) {
      RECT after = {this->m_rcLink.right, this->m_rcLink.top, client.right, client.bottom};
      deskaid::DrawAnsiText(dc, parts.pszAfter, parts.cchAfter, &after, DT_WORDBREAK);
    }
    if (focused) ::DrawFocusRect(dc, &this->m_rcLink);
  }

  BOOL ProcessMessage(HWND hWnd, UINT message, WPARAM wParam, LPARAM lParam, LRESULT& lResult,
                      DWORD dwMsgMapID) override {
    (void)hWnd;
    if (dwMsgMapID != 0) return FALSE;
    lResult = 0;
    if (message >= WM_MOUSEFIRST && message <= deskaid::link_internal::kLastRelayedMouseMessage)
      RelayToToolTip(message, wParam, lParam);
    switch (message) {
      case WM_CREATE: static_cast<T*>(this)->InitControl(); return TRUE;
      case WM_ERASEBKGND:
        // The background is filled while painting.
        lResult = 1;
        return TRUE;
      case WM_PAINT:
      case WM_PRINTCLIENT: return OnPaint(reinterpret_cast<HDC>(wParam));
      case WM_SETFOCUS:
      case WM_KILLFOCUS: return OnFocusChange();
      case WM_MOUSEMOVE: return OnMouseMove(PointOf(lParam));
      case WM_MOUSELEAVE: return OnMouseLeave();
      case WM_LBUTTONDOWN: return OnLButtonDown(PointOf(lParam));
      case WM_LBUTTONUP: return OnLButtonUp(PointOf(lParam));
      case WM_CHAR: return OnChar(wParam);
      case WM_GETDLGCODE: lResult = DLGC_WANTCHARS; return TRUE;
      case WM_SETCURSOR: return OnSetCursor(lResult);
      case WM_ENABLE: Repaint(); return TRUE;
      case WM_GETFONT: lResult = reinterpret_cast<LRESULT>(this->m_hFontNormal); return TRUE;
      case WM_SETFONT: return OnSetFont(reinterpret_cast<HFONT>(wParam), lParam != 0);
      case WM_UPDATEUISTATE: return TRUE;
      default: return FALSE;
    }
  }

 protected:
  static UINT AlignFlags(DWORD style) {
    if (style & SS_CENTER) return DT_CENTER;
    if (style & SS_RIGHT) return DT_RIGHT;
    return 0;
  }

  static POINT PointOf(LPARAM lParam) {
    POINT pt = {static_cast<short>(LOWORD(lParam)), static_cast<short>(HIWORD(lParam))};
    return pt;
  }

  void RelayToToolTip(UINT message, WPARAM wParam, LPARAM lParam) {
    if (this->m_hWndToolTip == nullptr || !::IsWindow(this->m_hWndToolTip) ||
        (this->m_dwExtendedStyle & LinkStyleNoToolTip))
      return;
    MSG msg = {this->m_hWnd, message, wParam, lParam, 0, {0, 0}};
    ::SendMessageA(this->m_hWndToolTip, TTM_RELAYEVENT, 0, reinterpret_cast<LPARAM>(&msg));
  }

  // Fills the client area with the brush the parent gives for static controls, if any.
  void EraseBackground(HDC dc) {
    HBRUSH brush = reinterpret_cast<HBRUSH>(::SendMessageA(this->GetParent(), WM_CTLCOLORSTATIC,
                                                           reinterpret_cast<WPARAM>(dc),
                                                           reinterpret_cast<LPARAM>(this->m_hWnd)));
    if (brush != nullptr) {
      RECT client;
      ::GetClientRect(this->m_hWnd, &client);
      ::FillRect(dc, &client, brush);
    }
  }

  BOOL OnPaint(HDC dc) {
    if ((this->m_bState & LinkStatePaintLabel) == 0) return FALSE;
    if (dc != nullptr) {
      EraseBackground(dc);
      PaintLink(dc);
    } else {
      PAINTSTRUCT ps;
      HDC paintDc = ::BeginPaint(this->m_hWnd, &ps);
      EraseBackground(paintDc);
      PaintLink(paintDc);
      ::EndPaint(this->m_hWnd, &ps);
    }
    return TRUE;
  }

  BOOL OnMouseMove(POINT pt) {
    const bool active =
        this->m_pszTarget != nullptr || (this->m_dwExtendedStyle & LinkStyleCommandButton);
    if (active && ::PtInRect(&this->m_rcLink, pt)) {
      ::SetCursor(this->m_hCursor);
      if ((this->m_dwExtendedStyle & LinkStyleUnderlineHover) &&
          (this->m_bState & LinkStateHover) == 0) {
        this->m_bState |= LinkStateHover;
        this->InvalidateRect(&this->m_rcLink);
        this->UpdateWindow();
        StartLeaveTracking();
      }
      return TRUE;
    }
    if ((this->m_dwExtendedStyle & LinkStyleUnderlineHover) && (this->m_bState & LinkStateHover))
      LeaveHover();
    return FALSE;
  }

  void LeaveHover() {
    this->m_bState &= static_cast<BYTE>(~LinkStateHover);
    this->InvalidateRect(&this->m_rcLink);
    this->UpdateWindow();
  }

  void StartLeaveTracking() {
    TRACKMOUSEEVENT tme = {};
    tme.cbSize = sizeof(tme);
    tme.dwFlags = TME_LEAVE;
    tme.hwndTrack = this->m_hWnd;
    ::_TrackMouseEvent(&tme);
  }

 private:
  // The focus rectangle comes and goes with the focus.
  BOOL OnFocusChange() {
    if ((this->m_bState & LinkStatePaintLabel) == 0) return FALSE;
    this->Invalidate(TRUE);
    return TRUE;
  }

  BOOL OnMouseLeave() {
    if ((this->m_dwExtendedStyle & LinkStyleUnderlineHover) && (this->m_bState & LinkStateHover))
      LeaveHover();
    return TRUE;
  }

  // A press on the link takes the focus and the mouse; the link is followed when the button is
  // released on it too.
  BOOL OnLButtonDown(POINT pt) {
    if (::PtInRect(&this->m_rcLink, pt)) {
      ::SetFocus(this->m_hWnd);
      ::SetCapture(this->m_hWnd);
    }
    return TRUE;
  }

  BOOL OnLButtonUp(POINT pt) {
    if (::GetCapture() == this->m_hWnd) {
      ::ReleaseCapture();
      if (::PtInRect(&this->m_rcLink, pt)) this->Navigate();
    }
    return TRUE;
  }

  BOOL OnChar(WPARAM key) {
    if (key == VK_RETURN || key == VK_SPACE) this->Navigate();
    return TRUE;
  }

  BOOL OnSetCursor(LRESULT& lResult) {
    if (this->m_pszTarget == nullptr && (this->m_dwExtendedStyle & LinkStyleCommandButton) == 0)
      return FALSE;
    POINT pt;
    ::GetCursorPos(&pt);
    ::ScreenToClient(this->m_hWnd, &pt);
    if (!::PtInRect(&this->m_rcLink, pt)) return FALSE;
    lResult = 1;  // the cursor was set on the mouse move
    return TRUE;
  }

  // The link font is kept as it was built.
  BOOL OnSetFont(HFONT font, bool redraw) {
    this->m_hFontNormal = font;
    if (redraw) Repaint();
    return TRUE;
  }

  void Repaint() {
    this->Invalidate(TRUE);
    this->UpdateWindow();
  }
};

// The hyperlink control.
class CHyperLinkEx : public CHyperLinkImplEx<CHyperLinkEx> {};
