// The message box while it is shown: fonts and focus, the disabled period, the countdown, Help,
// Report, placement, Ctrl+C, and the pressed button turned into the result.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>

#include "deskaid/diag/debug_trace.h"
#include "deskaid/msgbox/internal/button_model.h"
#include "deskaid/msgbox/internal/xdialog_template.h"

namespace {

bool IsButtonControl(HWND control) {
  char className[CXDialogTemplate::kClassNameSize];
  if (GetClassNameA(control, className, sizeof className) == 0) return false;
  return lstrcmpiA(className, "Button") == 0;
}

HWND ExistingControl(HWND dialog, int id) {
  HWND control = GetDlgItem(dialog, id);
  return control != nullptr && IsWindow(control) ? control : nullptr;
}

void SetCloseItem(HWND dialog, UINT state) {
  EnableMenuItem(GetSystemMenu(dialog, FALSE), SC_CLOSE, MF_BYCOMMAND | state);
}

void SetFont(HWND control, HFONT font) {
  if (control != nullptr) SendMessageA(control, WM_SETFONT, reinterpret_cast<WPARAM>(font), TRUE);
}

// The dialog keeps the handle of its keyboard hook in this window property while it is shown.
constexpr char kCopyHookProperty[] = "deskaid.msgbox.copyhook";

// Puts the box's text on the clipboard as UTF-16, from which the platform offers the other text
// formats. Returns false when the clipboard cannot be had.
bool CopyToClipboard(HWND dialog, const std::string& text) {
  const int n = MultiByteToWideChar(CP_ACP, 0, text.c_str(), -1, nullptr, 0);
  if (n <= 0) return false;
  HGLOBAL memory = GlobalAlloc(GMEM_MOVEABLE, static_cast<SIZE_T>(n) * sizeof(WCHAR));
  if (memory == nullptr) return false;
  bool placed = false;
  if (void* block = GlobalLock(memory)) {
    MultiByteToWideChar(CP_ACP, 0, text.c_str(), -1, static_cast<WCHAR*>(block), n);
    GlobalUnlock(memory);
    if (OpenClipboard(dialog)) {
      EmptyClipboard();
      placed = SetClipboardData(CF_UNICODETEXT, memory) != nullptr;
      CloseClipboard();
    }
  }
  if (!placed) GlobalFree(memory);  // the clipboard owns it once placed
  return placed;
}

// Keys go to the focused button, not to the dialog procedure, so the dialog manager's message
// filter is where Ctrl+C is seen: it becomes WM_COPY for the box that holds the focused control.
LRESULT CALLBACK CopyKeyHook(int code, WPARAM wParam, LPARAM lParam) {
  const MSG* msg = reinterpret_cast<const MSG*>(lParam);
  if (code == MSGF_DIALOGBOX && msg != nullptr && msg->message == WM_KEYDOWN &&
      msg->wParam == 'C' && GetKeyState(VK_CONTROL) < 0 && GetKeyState(VK_MENU) >= 0) {
    HWND dialog = GetAncestor(msg->hwnd, GA_ROOT);
    if (dialog != nullptr && GetPropA(dialog, kCopyHookProperty) != nullptr) {
      SendMessageA(dialog, WM_COPY, 0, 0);
      return TRUE;  // the button has no use for the key
    }
  }
  return CallNextHookEx(nullptr, code, wParam, lParam);
}

}  // namespace

INT_PTR CALLBACK MessageDialogProc(HWND hwnd, UINT message, WPARAM wParam, LPARAM lParam) {
  CXDialogTemplate* dialog = nullptr;
  if (message == WM_INITDIALOG) {
    dialog = reinterpret_cast<CXDialogTemplate*>(lParam);
    SetWindowLongPtrA(hwnd, GWLP_USERDATA, static_cast<LONG_PTR>(lParam));
  } else {
    dialog = reinterpret_cast<CXDialogTemplate*>(GetWindowLongPtrA(hwnd, GWLP_USERDATA));
  }
  if (dialog == nullptr) return 0;

  switch (message) {
    case WM_INITDIALOG: return dialog->OnInitDialog(hwnd);
    case WM_TIMER: return dialog->OnTimer(hwnd, wParam);
    case WM_COPY: CopyToClipboard(hwnd, dialog->ClipboardText()); return TRUE;
    case WM_DESTROY:
      if (HANDLE hook = RemovePropA(hwnd, kCopyHookProperty))
        UnhookWindowsHookEx(static_cast<HHOOK>(hook));
      return 0;
    case WM_LBUTTONDOWN:
    case WM_NCLBUTTONDOWN: dialog->StopCountdown(hwnd); return 0;
    case WM_COMMAND: return dialog->OnCommand(hwnd, wParam);
  }
  return 0;
}

INT_PTR CXDialogTemplate::OnInitDialog(HWND hwnd) {
  SetUpControls(hwnd);
  if (HWND button = ExistingControl(hwnd, m_nDefaultButtonId)) SetFocus(button);

  // Sets that Escape cannot end cannot be closed from the system menu either.
  if (!(m_dwCloseFlags & (deskaid::kCloseHasCancel | deskaid::kCloseOkOnly)))
    SetCloseItem(hwnd, MF_GRAYED);

  if (m_hIcon != nullptr) AttachIconPainter(hwnd);
  Place(hwnd);

  if (HHOOK hook = SetWindowsHookExA(WH_MSGFILTER, CopyKeyHook, nullptr, GetCurrentThreadId()))
    SetPropA(hwnd, kCopyHookProperty, hook);

  if (m_nTimeoutSeconds > 0) SetTimer(hwnd, kCountdownTimer, kMillisecondsPerSecond, nullptr);
  if (m_nDisabledSeconds > 0)
    SetTimer(hwnd, kEnableTimer, static_cast<UINT>(m_nDisabledSeconds) * kMillisecondsPerSecond,
             nullptr);
  return 0;  // the focus is set already
}

// Gives every control the message font, disables the push buttons for the disabled period and
// clears the check box.
void CXDialogTemplate::SetUpControls(HWND hwnd) const {
  HFONT font = m_hFont;
  for (unsigned id = ID_FIRSTTEXT; id < m_nNextTextId; ++id) {
    HWND text = ExistingControl(hwnd, static_cast<int>(id));
    if (text == nullptr) break;
    SetFont(text, font);
  }
  for (int id = kFirstButtonId; id <= kLastButtonId; ++id) {
    HWND control = ExistingControl(hwnd, id);
    if (control == nullptr) continue;
    SetFont(control, font);
    if (m_nDisabledSeconds != 0) {
      if (IsButtonControl(control)) {
        SetWindowLongA(control, GWL_STYLE, GetWindowLongA(control, GWL_STYLE) | WS_DISABLED);
      }
      // While the buttons are disabled the box cannot be closed either.
      SetCloseItem(hwnd, MF_GRAYED);
    }
  }
  SetFont(ExistingControl(hwnd, ID_HELPBUTTON), font);
  if (HWND check = ExistingControl(hwnd, ID_CHECKBOX)) {
    SetFont(check, font);
    CheckDlgButton(hwnd, ID_CHECKBOX, BST_UNCHECKED);
  }
  SetFont(ExistingControl(hwnd, ID_REPORTBUTTON), font);
}

void CXDialogTemplate::AttachIconPainter(HWND hwnd) const {
  // For a named icon there is no holder control and both calls do nothing.
  HWND holder = GetDlgItem(hwnd, ID_ICON);
  SetWindowLongPtrA(holder, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(&IconPaintProc));
  SetWindowLongPtrA(holder, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(m_hIcon));
  // Dialog units round the holder's size; on a display of many DPI it may come out a few pixels
  // short of the icon, which it then grows to hold whole.
  RECT room;
  if (holder != nullptr && GetClientRect(holder, &room)) {
    const int cx = GetSystemMetrics(SM_CXICON), cy = GetSystemMetrics(SM_CYICON);
    if (room.right < cx || room.bottom < cy)
      SetWindowPos(holder, nullptr, 0, 0, std::max<int>(room.right, cx),
                   std::max<int>(room.bottom, cy), SWP_NOMOVE | SWP_NOZORDER | SWP_NOACTIVATE);
  }
}

// Topmost and in front when asked; at the requested position, or else centred on the owner.
void CXDialogTemplate::Place(HWND hwnd) const {
  if (m_nStyle & MB_TOPMOST) SetWindowPos(hwnd, HWND_TOPMOST, 0, 0, 0, 0, SWP_NOSIZE | SWP_NOMOVE);
  if (m_nStyle & MB_SETFOREGROUND) SetForegroundWindow(hwnd);

  RECT rect;
  GetWindowRect(hwnd, &rect);
  const int width = rect.right - rect.left;
  const int height = rect.bottom - rect.top;
  if (m_nX != 0 || m_nY != 0) {
    MoveWindow(hwnd, m_nX, m_nY, width, height, TRUE);
  } else if (HWND parent = GetParent(hwnd)) {
    RECT parentRect;
    GetWindowRect(parent, &parentRect);
    const int x = (parentRect.left + parentRect.right) / 2 - width / 2;
    const int y = (parentRect.top + parentRect.bottom) / 2 - height / 2;
    MoveWindow(hwnd, x, y, width, height, TRUE);
  }
}

INT_PTR CXDialogTemplate::OnTimer(HWND hwnd, WPARAM timer) {
  DebugTrace("in WM_TIMER\n");
  if (timer == kCountdownTimer)
    CountDown(hwnd);
  else if (timer == kEnableTimer)
    EndDisabledPeriod(hwnd);
  return 0;
}

// One second of the countdown: the default button shows the seconds left; at none left the
// countdown presses it, marked as its doing.
void CXDialogTemplate::CountDown(HWND hwnd) {
  if (m_nTimeoutSeconds < 1) {
    KillTimer(hwnd, kCountdownTimer);
    const WPARAM command =
        static_cast<WPARAM>(static_cast<unsigned>(m_nDefaultButtonId) | MDR_TIMEOUT);
    SendMessageA(hwnd, WM_COMMAND, command, 0);
  } else if (HWND button = ExistingControl(hwnd, m_nDefaultButtonId)) {
    if (m_szDefaultCaption[0] == '\0')
      GetWindowTextA(button, m_szDefaultCaption, deskaid::kCaptionSlotSize);
    char text[deskaid::kCaptionSlotSize + kCountdownSuffixSize];
    std::snprintf(text, sizeof text, "%s = %d", m_szDefaultCaption, m_nTimeoutSeconds);
    SetWindowTextA(button, text);
    --m_nTimeoutSeconds;
  }
}

void CXDialogTemplate::EndDisabledPeriod(HWND hwnd) const {
  KillTimer(hwnd, kEnableTimer);
  for (int id = kFirstButtonId; id <= kLastButtonId; ++id) {
    HWND control = ExistingControl(hwnd, id);
    if (control != nullptr && IsButtonControl(control))
      SetWindowLongA(control, GWL_STYLE, GetWindowLongA(control, GWL_STYLE) & ~WS_DISABLED);
  }
  if (m_dwCloseFlags & (deskaid::kCloseHasCancel | deskaid::kCloseOkOnly))
    SetCloseItem(hwnd, MF_ENABLED);
  RedrawWindow(hwnd, nullptr, nullptr, RDW_INVALIDATE | RDW_UPDATENOW);
}

void CXDialogTemplate::StopCountdown(HWND hwnd) {
  KillTimer(hwnd, kCountdownTimer);
  if (m_szDefaultCaption[0] != '\0') {
    if (HWND button = ExistingControl(hwnd, m_nDefaultButtonId))
      SetWindowTextA(button, m_szDefaultCaption);
  }
}

INT_PTR CXDialogTemplate::OnCommand(HWND hwnd, WPARAM wParam) {
  StopCountdown(hwnd);
  // The whole wParam is compared: a notification code other than 0 never matches an id.
  const unsigned command = static_cast<unsigned>(wParam);
  if (command == ID_HELPBUTTON) {
    OpenHelp(hwnd);
    return 0;
  }
  if (command == ID_REPORTBUTTON) {
    if (m_pfnReport != nullptr) m_pfnReport(m_pszMessageText.get(), m_pReportData);
    return 0;
  }
  if (command == ID_CHECKBOX) return 0;
  if (command == IDCANCEL) {
    // Cancel and Escape never carry the check box state.
    if (m_dwCloseFlags & deskaid::kCloseHasCancel)
      EndDialog(hwnd, IDCANCEL);
    else if (m_dwCloseFlags & deskaid::kCloseOkOnly)
      EndDialog(hwnd, IDOK);
    return 1;
  }
  if (command == IDCLOSE) return 1;
  unsigned result = command;
  if (HWND check = ExistingControl(hwnd, ID_CHECKBOX)) {
    if (SendMessageA(check, BM_GETCHECK, 0, 0) != BST_UNCHECKED)
      result |= deskaid::CheckBoxResultBit(m_dwCloseFlags);
  }
  EndDialog(hwnd, static_cast<INT_PTR>(static_cast<int>(result)));
  return 0;
}

// The help file is named after the host executable: C:\app\tool.exe -> C:\app\tool.hlp.
void CXDialogTemplate::OpenHelp(HWND hwnd) const {
  char path[kHelpPathSize] = {};
  GetModuleFileNameA(nullptr, path, kHelpPathLimit);
  path[kHelpPathLimit] = '\0';
  char* dot = std::strrchr(path, '.');
  if (path[0] == '\0' || dot == nullptr) return;
  std::strcpy(dot, ".hlp");
  if (m_nHelpContextId != 0)
    WinHelpA(hwnd, path, HELP_CONTEXT, static_cast<ULONG_PTR>(m_nHelpContextId));
  else
    WinHelpA(hwnd, path, HELP_PARTIALKEY, 0);
}

LRESULT CALLBACK IconPaintProc(HWND hwnd, UINT message, WPARAM, LPARAM) {
  if (message == WM_PAINT) {
    PAINTSTRUCT paint;
    HDC dc = BeginPaint(hwnd, &paint);
    DrawIcon(dc, 0, 0, reinterpret_cast<HICON>(GetWindowLongPtrA(hwnd, GWLP_USERDATA)));
    EndPaint(hwnd, &paint);
  }
  // The holder shows the icon and nothing else: no message goes on to the static control.
  return 0;
}
