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

constexpr UINT_PTR TIMER_COUNTDOWN = 1;  // every second while the countdown runs
constexpr UINT_PTR TIMER_ENABLE = 2;     // once, when the disabled period ends

// Buttons of the sets and the custom buttons have ids in this range; Help, Report and the check
// box lie outside it and are never disabled.
constexpr int kFirstButtonId = 1;
constexpr int kLastButtonId = 26;

bool IsButtonControl(HWND control) {
  char className[258];
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

  // Stops the countdown for good and gives the default button its own caption back.
  auto stopCountdown = [&]() {
    KillTimer(hwnd, TIMER_COUNTDOWN);
    if (dialog->m_szDefaultCaption[0] != '\0') {
      if (HWND button = ExistingControl(hwnd, dialog->m_nDefaultButtonId))
        SetWindowTextA(button, dialog->m_szDefaultCaption);
    }
  };

  switch (message) {
    case WM_INITDIALOG: {
      HFONT font = dialog->m_hFont;
      if (HDC dc = CreateDCA("DISPLAY", nullptr, nullptr, nullptr)) {
        HGDIOBJ previous = SelectObject(dc, font);
        SelectObject(dc, previous);
        DeleteDC(dc);
      }
      for (unsigned id = ID_FIRSTTEXT; id < dialog->m_nNextTextId; ++id) {
        HWND text = ExistingControl(hwnd, static_cast<int>(id));
        if (text == nullptr) break;
        SetFont(text, font);
      }
      for (int id = kFirstButtonId; id <= kLastButtonId; ++id) {
        HWND control = ExistingControl(hwnd, id);
        if (control == nullptr) continue;
        SetFont(control, font);
        if (dialog->m_nDisabledSeconds != 0) {
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

      if (HWND button = ExistingControl(hwnd, dialog->m_nDefaultButtonId)) SetFocus(button);

      // Sets that Escape cannot end cannot be closed from the system menu either.
      if (!(dialog->m_dwCloseFlags & (deskaid::kCloseHasCancel | deskaid::kCloseOkOnly)))
        SetCloseItem(hwnd, MF_GRAYED);

      if (dialog->m_hIcon != nullptr) {
        // For a named icon there is no holder control and both calls do nothing.
        HWND holder = GetDlgItem(hwnd, ID_ICON);
        SetWindowLongPtrA(holder, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(&IconPaintProc));
        SetWindowLongPtrA(holder, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(dialog->m_hIcon));
        // Dialog units round the holder's size; on a display of many DPI it may come out a few
        // pixels short of the icon, which it then grows to hold whole.
        RECT room;
        if (holder != nullptr && GetClientRect(holder, &room)) {
          const int cx = GetSystemMetrics(SM_CXICON), cy = GetSystemMetrics(SM_CYICON);
          if (room.right < cx || room.bottom < cy)
            SetWindowPos(holder, nullptr, 0, 0, std::max<int>(room.right, cx),
                         std::max<int>(room.bottom, cy), SWP_NOMOVE | SWP_NOZORDER | SWP_NOACTIVATE);
        }
      }

      if (dialog->m_nStyle & MB_TOPMOST)
        SetWindowPos(hwnd, HWND_TOPMOST, 0, 0, 0, 0, SWP_NOSIZE | SWP_NOMOVE);
      if (dialog->m_nStyle & MB_SETFOREGROUND) SetForegroundWindow(hwnd);

      RECT rect;
      GetWindowRect(hwnd, &rect);
      const int width = rect.right - rect.left;
      const int height = rect.bottom - rect.top;
      if (dialog->m_nX != 0 || dialog->m_nY != 0) {
        MoveWindow(hwnd, dialog->m_nX, dialog->m_nY, width, height, TRUE);
      } else if (HWND parent = GetParent(hwnd)) {
        RECT parentRect;
        GetWindowRect(parent, &parentRect);
        const int x = (parentRect.left + parentRect.right) / 2 - width / 2;
        const int y = (parentRect.top + parentRect.bottom) / 2 - height / 2;
        MoveWindow(hwnd, x, y, width, height, TRUE);
      }

      if (HHOOK hook = SetWindowsHookExA(WH_MSGFILTER, CopyKeyHook, nullptr, GetCurrentThreadId()))
        SetPropA(hwnd, kCopyHookProperty, hook);

      if (dialog->m_nTimeoutSeconds > 0) SetTimer(hwnd, TIMER_COUNTDOWN, 1000, nullptr);
      if (dialog->m_nDisabledSeconds > 0)
        SetTimer(hwnd, TIMER_ENABLE, static_cast<UINT>(dialog->m_nDisabledSeconds) * 1000, nullptr);
      return 0;  // the focus is set already
    }

    case WM_TIMER:
      DebugTrace("in WM_TIMER\n");
      if (wParam == TIMER_COUNTDOWN) {
        if (dialog->m_nTimeoutSeconds < 1) {
          KillTimer(hwnd, TIMER_COUNTDOWN);
          // The countdown presses the default button, marked as its doing.
          const WPARAM command =
              static_cast<WPARAM>(static_cast<unsigned>(dialog->m_nDefaultButtonId) | MDR_TIMEOUT);
          SendMessageA(hwnd, WM_COMMAND, command, 0);
        } else if (HWND button = ExistingControl(hwnd, dialog->m_nDefaultButtonId)) {
          if (dialog->m_szDefaultCaption[0] == '\0')
            GetWindowTextA(button, dialog->m_szDefaultCaption, deskaid::kCaptionSlotSize);
          char text[deskaid::kCaptionSlotSize + 16];
          std::snprintf(text, sizeof text, "%s = %d", dialog->m_szDefaultCaption,
                        dialog->m_nTimeoutSeconds);
          SetWindowTextA(button, text);
          --dialog->m_nTimeoutSeconds;
        }
      } else if (wParam == TIMER_ENABLE) {
        KillTimer(hwnd, TIMER_ENABLE);
        for (int id = kFirstButtonId; id <= kLastButtonId; ++id) {
          HWND control = ExistingControl(hwnd, id);
          if (control != nullptr && IsButtonControl(control))
            SetWindowLongA(control, GWL_STYLE, GetWindowLongA(control, GWL_STYLE) & ~WS_DISABLED);
        }
        if (dialog->m_dwCloseFlags & (deskaid::kCloseHasCancel | deskaid::kCloseOkOnly))
          SetCloseItem(hwnd, MF_ENABLED);
        RedrawWindow(hwnd, nullptr, nullptr, RDW_INVALIDATE | RDW_UPDATENOW);
      }
      return 0;

    case WM_COPY:
      CopyToClipboard(hwnd, dialog->ClipboardText());
      return TRUE;

    case WM_DESTROY:
      if (HANDLE hook = RemovePropA(hwnd, kCopyHookProperty))
        UnhookWindowsHookEx(static_cast<HHOOK>(hook));
      return 0;

    case WM_LBUTTONDOWN:
    case WM_NCLBUTTONDOWN:
      stopCountdown();
      return 0;

    case WM_COMMAND: {
      stopCountdown();
      // The whole wParam is compared: a notification code other than 0 never matches an id.
      const unsigned command = static_cast<unsigned>(wParam);
      if (command == ID_HELPBUTTON) {
        // The help file is named after the host executable: C:\app\tool.exe -> C:\app\tool.hlp.
        char path[524] = {};
        GetModuleFileNameA(nullptr, path, 519);
        path[519] = '\0';
        char* dot = std::strrchr(path, '.');
        if (path[0] != '\0' && dot != nullptr) {
          std::strcpy(dot, ".hlp");
          if (dialog->m_nHelpContextId != 0)
            WinHelpA(hwnd, path, HELP_CONTEXT, static_cast<ULONG_PTR>(dialog->m_nHelpContextId));
          else
            WinHelpA(hwnd, path, HELP_PARTIALKEY, 0);
        }
        return 0;
      }
      if (command == ID_REPORTBUTTON) {
        if (dialog->m_pfnReport != nullptr)
          dialog->m_pfnReport(dialog->m_pszMessageText.get(), dialog->m_pReportData);
        return 0;
      }
      if (command == ID_CHECKBOX) return 0;
      if (command == IDCANCEL) {
        // Cancel and Escape never carry the check box state.
        if (dialog->m_dwCloseFlags & deskaid::kCloseHasCancel)
          EndDialog(hwnd, IDCANCEL);
        else if (dialog->m_dwCloseFlags & deskaid::kCloseOkOnly)
          EndDialog(hwnd, IDOK);
        return 1;
      }
      if (command == IDCLOSE) return 1;
      unsigned result = command;
      if (HWND check = ExistingControl(hwnd, ID_CHECKBOX)) {
        if (SendMessageA(check, BM_GETCHECK, 0, 0) != BST_UNCHECKED)
          result |= deskaid::CheckBoxResultBit(dialog->m_dwCloseFlags);
      }
      EndDialog(hwnd, static_cast<INT_PTR>(static_cast<int>(result)));
      return 0;
    }
  }
  return 0;
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
