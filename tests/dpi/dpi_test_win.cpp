// The message box and the hyperlink demo's dialog on displays of 96, 120, 144 and 192 DPI: every
// control's text fits the control in the font it is drawn with, the icon is not clipped, and
// every control, the button row included, lies inside the dialog. The display's DPI is read when
// a program starts, so the test sets it (Wine's LogPixels) and runs this program again for each
// value.
#include <windows.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "hyperlink_dialog_win.h"
#include "msgbox/msgbox_test_util_win.h"

using msgbox_test::Needed;
using msgbox_test::TextOf;

namespace {

constexpr const char kDesktopKey[] = "Control Panel\\Desktop";
constexpr const char kChildVariable[] = "DESKAID_TEST_DPI";

bool Inside(const RECT& inner, const RECT& outer) {
  return inner.left >= outer.left && inner.top >= outer.top && inner.right <= outer.right &&
         inner.bottom <= outer.bottom;
}

// Checks every control of a shown message box, and closes it.
void CheckFits(HWND dialog) {
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
    EXPECT_TRUE(Inside(box, client)) << "control " << id << " leaves the dialog";
    const std::wstring text = TextOf(control);
    const LONG style = GetWindowLongW(control, GWL_STYLE);
    SIZE need;
    if (id == ID_ICON) {  // the icon unclipped
      need = {GetSystemMetrics(SM_CXICON), GetSystemMetrics(SM_CYICON)};
    } else if (id == ID_FIRSTTEXT) {
      need = Needed(control, text, DT_WORDBREAK | DT_EXPANDTABS | DT_NOPREFIX, inner.right);
    } else if ((style & 0xF) == BS_AUTOCHECKBOX) {
      need = Needed(control, text, DT_SINGLELINE, 1 << 20);
      need.cx += GetSystemMetrics(SM_CXMENUCHECK) + 4;
    } else {  // a push button: the caption inside its border
      need = Needed(control, text, DT_SINGLELINE, 1 << 20);
      need.cx += 8;
      need.cy += 4;
    }
    EXPECT_TRUE(need.cx <= inner.right && need.cy <= inner.bottom)
        << "control " << id << " needs " << need.cx << "x" << need.cy << ", has " << inner.right
        << "x" << inner.bottom;
  }
  EXPECT_GE(controls, 3);
  for (int id : {IDCANCEL, IDOK, IDCUSTOM1}) PostMessageA(dialog, WM_COMMAND, id, 0);
}

}  // namespace

// Runs in the programs started below, one per DPI.
TEST(HighDpi, BoxesFit) {
  const char* dpi = std::getenv(kChildVariable);
  if (dpi == nullptr) GTEST_SKIP() << "run by HighDpi.BoxesFitAtEveryDpi";
  HDC screen = GetDC(nullptr);
  EXPECT_EQ(GetDeviceCaps(screen, LOGPIXELSY), std::atoi(dpi));
  ReleaseDC(nullptr, screen);
  std::printf("at %s DPI\n", dpi);
  MessageDialogParams p{}, countdown{}, custom{};
  p.pfnReport = [](const char*, void*) {};
  msgbox_test::Drive("Import finished", MB_OKCANCEL | MB_HELP | MB_ICONASTERISK | MDS_DONTSHOWAGAIN,
                     &p, CheckFits,
                     "212 records were imported; 3 were skipped because their dates could not "
                     "be read.");
  countdown.nTimeoutSeconds = 30;
  msgbox_test::Drive("Unsaved changes", MB_YESNOCANCEL | MDS_YESTOALL | MB_ICONQUESTION,
                     &countdown, [](HWND dialog) {
                       EXPECT_TRUE(WaitUntil([&] {
                         return TextOf(GetDlgItem(dialog, IDYES)).find(L" = ") != std::wstring::npos;
                       }, 5000));
                       CheckFits(dialog);
                     }, "The document has changed.\n\nSave it before closing?");
  std::strcpy(custom.szCustomButtons, "&Save\nDiscard\nLater");
  custom.dwOptions = MDO_RIGHTJUSTIFY;
  msgbox_test::Drive("Custom", MB_ICONEXCLAMATION | MDS_DONTASKAGAIN, &custom, CheckFits,
                     "Keep the changes?");
}

namespace {

INT_PTR CALLBACK LinkDialogProc(HWND dialog, UINT message, WPARAM, LPARAM lParam) {
  if (message != WM_INITDIALOG) return FALSE;
  hyperlink_demo::AddLinks(dialog, *reinterpret_cast<hyperlink_demo::Links*>(lParam));
  return TRUE;
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
  CHyperLinkEx* linkOf[] = {nullptr, &links.plain, &links.tagged, &links.bold, &links.hover};
  for (int id = 100; id <= 104; ++id) {
    SCOPED_TRACE(id);
    HWND control = GetDlgItem(dialog, id);
    RECT client, box;
    GetClientRect(control, &client);
    GetWindowRect(control, &box);
    MapWindowPoints(nullptr, dialog, reinterpret_cast<POINT*>(&box), 2);
    EXPECT_TRUE(Inside(box, dialogClient));
    const std::wstring text = TextOf(control);
    if (id == 100) {
      const SIZE need = Needed(control, text, DT_SINGLELINE, 1 << 20);
      EXPECT_TRUE(need.cx <= client.right && need.cy <= client.bottom);
      continue;
    }
    const RECT r = linkOf[id - 100]->GetLinkRect();
    EXPECT_TRUE(Inside(r, client)) << "the link";
    const std::string narrow(text.begin(), text.end());
    const LinkLabelParts parts = deskaid::ParseTaggedText(narrow.c_str());
    if (parts.pszAfter != nullptr) {  // drawn from the link's right edge on, in the normal font
      const SIZE after = Needed(control, std::wstring(parts.pszAfter, parts.pszAfter + parts.cchAfter),
                                DT_SINGLELINE, 1 << 20);
      EXPECT_TRUE(r.right + after.cx <= client.right && after.cy <= client.bottom) << "after";
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
    // A program that does not end in time is ended here, before the setting changes again.
    const DWORD start = GetTickCount();
    const bool ended = WaitForSingleObject(process.hProcess, 120000) == WAIT_OBJECT_0;
    if (!ended) TerminateProcess(process.hProcess, 1), WaitForSingleObject(process.hProcess, 10000);
    std::printf("the program for %lu DPI ran %lu ms\n", dpi, GetTickCount() - start);
    DWORD status = 1;
    GetExitCodeProcess(process.hProcess, &status);
    CloseHandle(process.hThread);
    CloseHandle(process.hProcess);
    EXPECT_TRUE(ended && status == 0) << "at " << dpi << " DPI, " << (ended ? "failed" : "hung");
  }
  SetEnvironmentVariableA(kChildVariable, nullptr);
  if (hadValue)
    RegSetValueExA(key, "LogPixels", 0, REG_DWORD, reinterpret_cast<const BYTE*>(&saved),
                   sizeof saved);
  else
    RegDeleteValueA(key, "LogPixels");
  RegCloseKey(key);
}
