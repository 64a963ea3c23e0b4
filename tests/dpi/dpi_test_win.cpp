// The message box and the hyperlink demo's dialog on displays of 96, 120, 144 and 192 DPI: every
// control's text fits the control in the font it is drawn with, the icon is not clipped, and
// every control, the button row included, lies inside the dialog. The display's DPI is read when a program starts, so the test
// sets it (Wine's LogPixels) and runs this program again for each value.
#include <windows.h>

#include <gtest/gtest.h>

#include "support/input_win.h"

#include <cstdlib>
#include <cstdio>
#include <cstring>
#include <functional>
#include <string>
#include <thread>

#include <deskaid/msgbox/message_dialog.h>

#include "hyperlink_dialog_win.h"

namespace {

constexpr const char kDesktopKey[] = "Control Panel\\Desktop";
constexpr const char kChildVariable[] = "DESKAID_TEST_DPI";

std::wstring TextOf(HWND window) {
  wchar_t text[1024] = {};
  GetWindowTextW(window, text, 1024);
  return text;
}

// The room `text` takes in `control`'s font with `format`, within `width`.
SIZE Needed(HWND control, const std::wstring& text, UINT format, int width) {
  HDC dc = GetDC(control);
  HGDIOBJ old = SelectObject(dc, reinterpret_cast<HFONT>(SendMessageW(control, WM_GETFONT, 0, 0)));
  RECT r = {0, 0, width, 0};
  DrawTextW(dc, text.c_str(), -1, &r, format | DT_CALCRECT);
  SelectObject(dc, old);
  ReleaseDC(control, dc);
  return {r.right, r.bottom};
}

// Checks every control of a shown message box.
void CheckFits(HWND dialog) {
  HDC screen = GetDC(nullptr);
  const int dpi = GetDeviceCaps(screen, LOGPIXELSY);
  ReleaseDC(nullptr, screen);
  RECT client;
  GetClientRect(dialog, &client);
  MapWindowPoints(dialog, nullptr, reinterpret_cast<POINT*>(&client), 2);
  int controls = 0;
  for (HWND control = GetWindow(dialog, GW_CHILD); control != nullptr;
       control = GetWindow(control, GW_HWNDNEXT), ++controls) {
    const int id = GetDlgCtrlID(control);
    RECT box, inner;
    GetWindowRect(control, &box);
    GetClientRect(control, &inner);
    EXPECT_TRUE(box.left >= client.left && box.top >= client.top && box.right <= client.right &&
                box.bottom <= client.bottom)
        << "control " << id << " leaves the dialog";
    const std::wstring text = TextOf(control);
    const LONG style = GetWindowLongW(control, GWL_STYLE);
    SIZE need = {0, 0};
    if (id == ID_ICON) {
      need = {GetSystemMetrics(SM_CXICON), GetSystemMetrics(SM_CYICON)};
      EXPECT_GE(inner.right, need.cx) << "icon clipped";
      EXPECT_GE(inner.bottom, need.cy) << "icon clipped";
    } else if (id == ID_FIRSTTEXT) {
      need = Needed(control, text, DT_WORDBREAK | DT_EXPANDTABS | DT_NOPREFIX, inner.right);
      EXPECT_LE(need.cx, inner.right) << "message";
      EXPECT_LE(need.cy, inner.bottom) << "message";
    } else if ((style & 0xF) == BS_AUTOCHECKBOX) {
      need = Needed(control, text, DT_SINGLELINE, 1 << 20);
      need.cx += GetSystemMetrics(SM_CXMENUCHECK) + 4;
      EXPECT_LE(need.cx, inner.right) << "check box";
      EXPECT_LE(need.cy, inner.bottom) << "check box";
    } else {  // a push button: the caption inside its border
      need = Needed(control, text, DT_SINGLELINE, 1 << 20);
      need.cx += 8;
      need.cy += 4;
      EXPECT_LE(need.cx, inner.right) << "button " << id;
      EXPECT_LE(need.cy, inner.bottom) << "button " << id;
    }
    // The measurements, for the record: what the control's content needs and the room it has.
    std::printf("dpi %d control %5d needs %4ldx%-3ld has %4ldx%-3ld dialog %ldx%ld\n", dpi, id,
                need.cx, need.cy, inner.right, inner.bottom, client.right - client.left,
                client.bottom - client.top);
  }
  EXPECT_GE(controls, 3);
}

// Shows a box and checks it once `ready` holds.
void ShowAndCheck(const char* title, const char* text, unsigned style,
                  const MessageDialogParams& p, const std::function<bool(HWND)>& ready) {
  std::thread driver([&] {
    HWND dialog = nullptr;
    if (!WaitUntil([&] { return IsWindowVisible(dialog = FindWindowA("#32770", title)); },
                   10000)) {
      ADD_FAILURE() << "no dialog " << title;
      return;
    }
    EXPECT_TRUE(WaitUntil([&] { return ready(dialog); }, 5000));
    CheckFits(dialog);
    PostMessageA(dialog, WM_COMMAND, IDCANCEL, 0);
    PostMessageA(dialog, WM_COMMAND, IDOK, 0);
    PostMessageA(dialog, WM_COMMAND, IDCUSTOM1, 0);
  });
  ShowMessageDialog(nullptr, text, title, style | MDS_NOSOUND, &p);
  driver.join();
}

}  // namespace

// Runs in the programs started below, one per DPI.
TEST(HighDpi, BoxesFit) {
  const char* dpi = std::getenv(kChildVariable);
  if (dpi == nullptr) GTEST_SKIP() << "run by HighDpi.BoxesFitAtEveryDpi";
  HDC screen = GetDC(nullptr);
  EXPECT_EQ(GetDeviceCaps(screen, LOGPIXELSY), std::atoi(dpi));
  ReleaseDC(nullptr, screen);

  MessageDialogParams p{};
  p.pfnReport = [](const char*, void*) {};
  ShowAndCheck("Import finished",
               "212 records were imported; 3 were skipped because their dates could not be read.",
               MB_OKCANCEL | MB_HELP | MB_ICONASTERISK | MDS_DONTSHOWAGAIN, p,
               [](HWND) { return true; });
  MessageDialogParams countdown{};
  countdown.nTimeoutSeconds = 30;
  ShowAndCheck("Unsaved changes", "The document has changed.\n\nSave it before closing?",
               MB_YESNOCANCEL | MDS_YESTOALL | MB_ICONQUESTION, countdown, [](HWND dialog) {
                 return TextOf(GetDlgItem(dialog, IDYES)).find(L" = ") != std::wstring::npos;
               });
  MessageDialogParams custom{};
  std::strcpy(custom.szCustomButtons, "&Save\nDiscard\nLater");
  custom.dwOptions = MDO_RIGHTJUSTIFY;
  ShowAndCheck("Custom", "Keep the changes?", MB_ICONEXCLAMATION | MDS_DONTASKAGAIN, custom,
               [](HWND) { return true; });
}

namespace {

INT_PTR CALLBACK LinkDialogProc(HWND dialog, UINT message, WPARAM, LPARAM lParam) {
  if (message != WM_INITDIALOG) return FALSE;
  hyperlink_demo::AddLinks(dialog, *reinterpret_cast<hyperlink_demo::Links*>(lParam));
  return TRUE;
}

// The width and height of `length` characters of `text` on one line in `font`.
SIZE Extent(HWND control, HFONT font, const char* text, int length) {
  HDC dc = GetDC(control);
  HGDIOBJ old = SelectObject(dc, font);
  RECT r = {0, 0, 1 << 20, 0};
  DrawTextA(dc, text, length, &r, DT_CALCRECT | DT_SINGLELINE);
  SelectObject(dc, old);
  ReleaseDC(control, dc);
  return {r.right, r.bottom};
}

}  // namespace

// The hyperlink demo's dialog: every label and link, the text before and after a tagged link
// included, lies inside its control in the font it is drawn with.
TEST(HighDpi, LinksFit) {
  if (std::getenv(kChildVariable) == nullptr) GTEST_SKIP() << "run by HighDpi.BoxesFitAtEveryDpi";
  hyperlink_demo::Links links;
  alignas(4) WORD buffer[64] = {};
  HWND dialog = CreateDialogIndirectParamA(GetModuleHandleA(nullptr),
                                           hyperlink_demo::Template(buffer), nullptr,
                                           LinkDialogProc, reinterpret_cast<LPARAM>(&links));
  ASSERT_NE(dialog, nullptr);
  RECT dialogClient;
  GetClientRect(dialog, &dialogClient);
  for (int id = 100; id <= 104; ++id) {
    HWND control = GetDlgItem(dialog, id);
    RECT client, box;
    GetClientRect(control, &client);
    GetWindowRect(control, &box);
    MapWindowPoints(nullptr, dialog, reinterpret_cast<POINT*>(&box), 2);
    EXPECT_LE(box.right, dialogClient.right) << "control " << id;
    EXPECT_LE(box.bottom, dialogClient.bottom) << "control " << id;
    char text[256] = {};
    GetWindowTextA(control, text, sizeof text);
    HFONT font = reinterpret_cast<HFONT>(SendMessageA(dialog, WM_GETFONT, 0, 0));
    if (id == 100) {
      const SIZE need = Extent(control, font, text, -1);
      EXPECT_LE(need.cx, client.right);
      EXPECT_LE(need.cy, client.bottom);
      continue;
    }
    CHyperLinkEx& link = id == 101 ? links.plain : id == 102 ? links.tagged
                       : id == 103 ? links.bold : links.hover;
    const RECT r = link.GetLinkRect();
    EXPECT_TRUE(r.left >= 0 && r.top >= 0 && r.right <= client.right && r.bottom <= client.bottom)
        << "link of control " << id;
    const LinkLabelParts parts = deskaid::ParseTaggedText(text);
    if (parts.pszAfter != nullptr) {  // drawn from the link's right edge on, in the normal font
      const SIZE after = Extent(control, font, parts.pszAfter, parts.cchAfter);
      EXPECT_LE(r.right + after.cx, client.right) << "text after the link of control " << id;
      EXPECT_LE(after.cy, client.bottom);
    }
  }
  DestroyWindow(dialog);
}

// Sets the display's DPI and runs BoxesFit and LinksFit in a program of its own for each value;
// the setting the prefix had is put back.
TEST(HighDpi, BoxesFitAtEveryDpi) {
  if (std::getenv(kChildVariable) != nullptr) GTEST_SKIP() << "the program started for one DPI";
  HKEY key;
  ASSERT_EQ(RegCreateKeyExA(HKEY_CURRENT_USER, kDesktopKey, 0, nullptr, 0, KEY_ALL_ACCESS,
                            nullptr, &key, nullptr),
            ERROR_SUCCESS);
  DWORD saved = 0, size = sizeof saved;
  const bool hadValue =
      RegQueryValueExA(key, "LogPixels", nullptr, nullptr, reinterpret_cast<BYTE*>(&saved),
                       &size) == ERROR_SUCCESS;
  char self[MAX_PATH];
  GetModuleFileNameA(nullptr, self, MAX_PATH);
  for (DWORD dpi : {96, 120, 144, 192}) {
    RegSetValueExA(key, "LogPixels", 0, REG_DWORD, reinterpret_cast<const BYTE*>(&dpi),
                   sizeof dpi);
    SetEnvironmentVariableA(kChildVariable, std::to_string(dpi).c_str());
    std::string command =
        std::string("\"") + self + "\" --gtest_filter=HighDpi.BoxesFit:HighDpi.LinksFit";
    STARTUPINFOA startup = {};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION process = {};
    ASSERT_TRUE(CreateProcessA(nullptr, &command[0], nullptr, nullptr, TRUE, 0, nullptr, nullptr,
                               &startup, &process));
    WaitForSingleObject(process.hProcess, 120000);
    DWORD status = 1;
    GetExitCodeProcess(process.hProcess, &status);
    CloseHandle(process.hThread);
    CloseHandle(process.hProcess);
    EXPECT_EQ(status, 0u) << "at " << dpi << " DPI";
  }
  SetEnvironmentVariableA(kChildVariable, nullptr);
  if (hadValue)
    RegSetValueExA(key, "LogPixels", 0, REG_DWORD, reinterpret_cast<const BYTE*>(&saved),
                   sizeof saved);
  else
    RegDeleteValueA(key, "LogPixels");
  RegCloseKey(key);
}
