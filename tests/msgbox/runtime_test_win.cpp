// Real message boxes under the platform's dialog manager, driven from a second thread: countdown,
// disabled period, Escape, Help, Report, placement, the painted icon and handle hygiene.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "support/msgbox_test_util_win.h"
#include "test_resource_ids.h"

namespace {

using msgbox_test::Drive;

std::wstring ControlText(HWND d, int id) { return msgbox_test::TextOf(GetDlgItem(d, id)); }
void Click(HWND dialog, int id) { SendMessageA(GetDlgItem(dialog, id), BM_CLICK, 0, 0); }
void Escape(HWND dialog) {  // the key goes to the focused default button
  HWND ok = GetDlgItem(dialog, IDOK);
  PostMessageA(ok ? ok : GetDlgItem(dialog, IDYES), WM_KEYDOWN, VK_ESCAPE, 0);
}
bool Enabled(HWND dialog, int id) { return IsWindowEnabled(GetDlgItem(dialog, id)) != FALSE; }
bool CloseGrayed(HWND dialog) {
  return (GetMenuState(GetSystemMenu(dialog, FALSE), SC_CLOSE, MF_BYCOMMAND) & MF_GRAYED) != 0;
}

// Stands in for the help viewer: WinHelp hands its request to the window of this class.
struct {
  int calls;
  WORD command;
  LONG data;
  std::string file;
} g_help;

LRESULT CALLBACK HelpViewerProc(HWND hwnd, UINT message, WPARAM wParam, LPARAM lParam) {
  if (message != WM_COPYDATA) return DefWindowProcA(hwnd, message, wParam, lParam);
  // The block: size, command, data, reserved, file name offset, data offset.
  const BYTE* block = static_cast<const BYTE*>(reinterpret_cast<COPYDATASTRUCT*>(lParam)->lpData);
  g_help = {g_help.calls + 1, *reinterpret_cast<const WORD*>(block + 2),
            *reinterpret_cast<const LONG*>(block + 4),
            reinterpret_cast<const char*>(block + *reinterpret_cast<const WORD*>(block + 12))};
  return TRUE;
}

// Live {GDI, USER} objects of this process. Wine answers GetGuiResources with 0; there the objects
// are counted by probing handle values, as Wine accepts a table index without its generation.
std::vector<DWORD> Objects() {
  std::vector<DWORD> n = {GetGuiResources(GetCurrentProcess(), GR_GDIOBJECTS),
                          GetGuiResources(GetCurrentProcess(), GR_USEROBJECTS)};
  const bool probe = n[0] == 0 && n[1] == 0;
  for (UINT_PTR i = 1; probe && i < 0x10000; ++i) {
    HANDLE h = reinterpret_cast<HANDLE>(i);
    n[0] += GetObjectType(h) != 0;
    if (i % 2) continue;
    ICONINFO icon{};  // the bitmaps GetIconInfo hands out are copies, deleted again
    n[1] += IsWindow(static_cast<HWND>(h)) || IsMenu(static_cast<HMENU>(h)) ||
            GetIconInfo(static_cast<HICON>(h), &icon);
    DeleteObject(icon.hbmColor);
    DeleteObject(icon.hbmMask);
  }
  return n;
}

}  // namespace

TEST(MessageDialogRuntime, Countdown) {
  MessageDialogParams p{};
  p.nTimeoutSeconds = 3;
  std::vector<std::wstring> seen;
  const DWORD start = GetTickCount();
  // Ticked, the box comes back with the countdown's result and the check box's (unticked: README).
  EXPECT_EQ(Drive("Countdown", MB_OKCANCEL | MDS_DONTASKAGAIN, &p,
                  [&](HWND dialog) {
                    SendMessageA(GetDlgItem(dialog, ID_CHECKBOX), BM_SETCHECK, BST_CHECKED, 0);
                    for (std::wstring text; IsWindow(dialog); Sleep(20))
                      if ((text = ControlText(dialog, IDOK)).find(L" = ") != std::wstring::npos &&
                          (seen.empty() || seen.back() != text))
                        seen.push_back(text);
                  }),
            0x81000001u);
  EXPECT_EQ(seen, (std::vector<std::wstring>{L"OK = 3", L"OK = 2", L"OK = 1"}));
  EXPECT_GE(GetTickCount() - start, 3500u);  // ends on the fourth tick

  // 1000 seconds or more are taken for 10; a click on the box, or on its check box, stops the
  // countdown for good.
  const struct {
    int seconds, stop;
    const wchar_t* first;
    unsigned result;
  } runs[] = {{1000, 0, L"OK = 10", IDOK},
              {999, 0, L"OK = 999", IDOK},
              {5, 1, L"&Yes = 5", 7u},
              {5, ID_CHECKBOX, L"&Yes = 5", 0x02000007u}};
  for (const auto& r : runs) {
    p.nTimeoutSeconds = r.seconds;
    EXPECT_EQ(
        Drive("Counting", r.stop ? MB_YESNO | MDS_DONTTELLAGAIN : MB_OK, &p,
              [&](HWND dialog) {
                const int first = r.stop ? IDYES : IDOK;
                EXPECT_TRUE(WaitUntil([&] { return ControlText(dialog, first) == r.first; }, 3000));
                if (r.stop == ID_CHECKBOX) Click(dialog, ID_CHECKBOX);
                if (r.stop == 1) SendMessageA(dialog, WM_LBUTTONDOWN, MK_LBUTTON, MAKELPARAM(5, 5));
                if (r.stop) Sleep(2200);
                EXPECT_EQ(ControlText(dialog, first), r.stop ? L"&Yes" : r.first);
                Click(dialog, r.stop ? IDNO : IDOK);
              }),
        r.result)
        << r.seconds;
  }
}

TEST(MessageDialogRuntime, EscapeAndCloseFollowTheButtonSet) {
  EXPECT_EQ(Drive("YesNo", MB_YESNO, nullptr,
                  [](HWND dialog) {
                    EXPECT_TRUE(CloseGrayed(dialog));
                    Escape(dialog);  // does nothing here: the box would not come back with Yes
                    Sleep(500);
                    Click(dialog, IDYES);
                  }),
            IDYES);
  for (unsigned set : {MB_OK, MB_OKCANCEL}) {  // neither carries the ticked box
    EXPECT_EQ(Drive("Escape", set | MDS_DONTSHOWAGAIN, nullptr,
                    [](HWND dialog) {
                      EXPECT_FALSE(CloseGrayed(dialog));
                      Click(dialog, ID_CHECKBOX);
                      Escape(dialog);
                    }),
              set == MB_OK ? IDOK : IDCANCEL);
  }
}

// The copy has the system box's layout; every message line ends in CR LF, whether the text broke
// it with LF or CR LF. Access-key marks go, "&&" stays one "&"; Help and Report are listed, the
// check box is not (wherever the focus is); a running countdown shows on its button but not in
// the copy; an empty message leaves an empty line.
TEST(MessageDialogRuntime, CtrlCCopiesTheBoxAsTheSystemBoxDoes) {
  MessageDialogParams custom{}, countdown{};
  std::strcpy(custom.szCustomButtons, "&Save\nSave && &close\nLa&ter");
  custom.pfnReport = [](const char*, void*) {};
  countdown.nTimeoutSeconds = 20;
  const struct {
    const char *title, *text;
    unsigned style;
    const MessageDialogParams* p;
    const wchar_t *message, *buttons;
  } cases[] = {
      {"Copy", "First line\nsecond line\r\nthird", MB_YESNOCANCEL | MB_HELP | MDS_DONTASKAGAIN,
       nullptr, L"First line\r\nsecond line\r\nthird", L"Yes   No   Cancel   Help"},
      {"Custom", "Save?", MB_OK, &custom, L"Save?", L"Save   Save & close   Later   Report"},
      {"Counting", "", MB_YESNO | MDS_YESTOALL | MDS_NOTOALL, &countdown, L"",
       L"Yes   Yes to All   No   No to All"},
  };
  for (const auto& c : cases) {
    Drive(
        c.title, c.style, c.p,
        [&](HWND dialog) {
          if (c.style & MDS_DONTASKAGAIN)
            SendMessageA(dialog, WM_NEXTDLGCTL,
                         reinterpret_cast<WPARAM>(GetDlgItem(dialog, ID_CHECKBOX)), TRUE);
          const std::wstring title(c.title, c.title + std::strlen(c.title));
          EXPECT_EQ(msgbox_test::CopyOf(dialog),
                    msgbox_test::CopyText(title, c.message, c.buttons));
          PostMessageA(dialog, WM_COMMAND, IDCANCEL, 0);
          PostMessageA(dialog, WM_COMMAND, IDOK, 0);
        },
        c.text);
  }
}

TEST(MessageDialogRuntime, DisabledPeriod) {
  MessageDialogParams p{};
  p.nDisabledSeconds = 1;
  const unsigned style = MB_OKCANCEL | MB_HELP | MDS_DONTASKAGAIN;
  EXPECT_EQ(Drive("Disabled", style, &p,
                  [](HWND dialog) {
                    const DWORD start = GetTickCount();
                    EXPECT_FALSE(Enabled(dialog, IDOK) || Enabled(dialog, IDCANCEL));
                    EXPECT_TRUE(Enabled(dialog, ID_HELPBUTTON) && Enabled(dialog, ID_CHECKBOX));
                    EXPECT_TRUE(WaitUntil([&] { return Enabled(dialog, IDOK); }, 3000));
                    EXPECT_GE(GetTickCount() - start, 700u);
                    EXPECT_TRUE(Enabled(dialog, IDCANCEL));
                    // Close comes back in the same timer message, just after the buttons.
                    EXPECT_TRUE(WaitUntil([&] { return !CloseGrayed(dialog); }, 1000));
                    Click(dialog, IDOK);
                  }),
            IDOK);
  p.nDisabledSeconds = -1;  // for good
  EXPECT_EQ(Drive("Forever", style, &p,
                  [](HWND dialog) {
                    Sleep(2500);
                    EXPECT_TRUE(!Enabled(dialog, IDOK) && CloseGrayed(dialog));
                    PostMessageA(dialog, WM_COMMAND, IDCANCEL, 0);
                  }),
            IDCANCEL);
}

TEST(MessageDialogRuntime, HelpAndReportKeepTheDialogOpen) {
  WNDCLASSA wc{0, HelpViewerProc, 0, 0, nullptr, nullptr, nullptr, nullptr, nullptr, "MS_WINHELP"};
  RegisterClassA(&wc);
  HWND viewer = CreateWindowA("MS_WINHELP", "", 0, 0, 0, 0, 0, nullptr, nullptr, nullptr, nullptr);
  ASSERT_NE(viewer, nullptr);
  const std::string file = BesideThisProgram("msgbox_tests.hlp");  // the program's, by default
  std::vector<std::string> reports;
  MessageDialogParams p{};
  p.pReportData = &reports;
  p.pfnReport = [](const char* text, void* data) {
    static_cast<std::vector<std::string>*>(data)->push_back(text);
  };
  for (int context : {42, 0}) {
    g_help = {};
    p.nHelpContextId = context;
    EXPECT_EQ(Drive("Help", MB_OK | MB_HELP, &p,
                    [](HWND dialog) {
                      Click(dialog, ID_HELPBUTTON);
                      Click(dialog, ID_REPORTBUTTON);  // returns once the callback has run
                      Click(dialog, IDOK);  // the result shows that neither ended the box
                    }),
              IDOK);
    EXPECT_EQ(g_help.calls, 1);
    EXPECT_EQ(g_help.command, context ? HELP_CONTEXT : HELP_PARTIALKEY);
    EXPECT_TRUE(!context || g_help.data == 42) << g_help.data;
    EXPECT_STRCASEEQ(g_help.file.c_str(), file.c_str());
  }
  EXPECT_EQ(reports, (std::vector<std::string>{"Message text", "Message text"}));
  DestroyWindow(viewer);
}

TEST(MessageDialogRuntime, PlacementAndPaintedIcon) {
  MessageDialogParams p{};
  p.nX = 120;
  p.nY = 90;
  p.hIconModule = msgbox_test::TestResources();
  p.nIconId = 0x10000 | IDI_TEST_ICON;  // only the low 16 bits name the icon
  Drive("Placed", MB_OK | MB_TOPMOST, &p, [&](HWND dialog) {
    RECT r;
    GetWindowRect(dialog, &r);
    EXPECT_TRUE(r.left == 120 && r.top == 90) << r.left << ", " << r.top;
    Sleep(500);
    GetWindowRect(GetDlgItem(dialog, ID_ICON), &r);
    int red = 0, blue = 0;  // the 32x32 test icon is red around a 16x16 blue square
    const deskaid::ScopedWindowDC screen(nullptr);
    for (int y = r.top; y < r.bottom; ++y)
      for (int x = r.left; x < r.right; ++x) {
        const COLORREF c = GetPixel(screen, x, y);
        red += c == RGB(255, 0, 0);
        blue += c == RGB(0, 0, 255);
      }
    EXPECT_TRUE(red > 300 && blue > 200) << red << " red, " << blue << " blue pixels";
    Click(dialog, IDOK);
  });
  // Without an owner the box takes this thread's active window and centres on it.
  HWND owner = CreateWindowA("STATIC", "owner", WS_POPUP | WS_VISIBLE, 300, 200, 640, 480, nullptr,
                             nullptr, nullptr, nullptr);
  SetActiveWindow(owner);
  ASSERT_EQ(GetActiveWindow(), owner);
  Drive("Centred", MB_OK, nullptr, [&](HWND dialog) {
    RECT r;
    GetWindowRect(dialog, &r);
    EXPECT_NEAR((r.left + r.right) / 2, 300 + 320, 1);
    EXPECT_NEAR((r.top + r.bottom) / 2, 200 + 240, 1);
    Click(dialog, IDOK);
  });
  DestroyWindow(owner);
}

TEST(MessageDialogRuntime, SystemBoxAndFailedDialog) {
  // Hand and system-modal together: the system's own box, without the engine's controls.
  EXPECT_EQ(Drive("Severe", MB_ICONHAND | MB_SYSTEMMODAL, nullptr,
                  [](HWND dialog) {
                    EXPECT_EQ(GetDlgItem(dialog, ID_FIRSTTEXT), nullptr);
                    PostMessageA(dialog, WM_COMMAND, IDOK, 0);
                  }),
            IDOK);
  // An owner that is not a window makes the dialog fail; the failure value comes back.
  const int result =
      ShowMessageDialog(reinterpret_cast<HWND>(0x4321), "t", "Orphan", MDS_NOSOUND, nullptr);
  EXPECT_TRUE(result == 0 || result == -1) << result;
}

TEST(MessageDialogRuntime, ShownBoxesLeaveNoHandlesBehind) {
  MessageDialogParams p{};
  p.hIconModule = msgbox_test::TestResources();
  p.nIconId = IDI_TEST_ICON;
  p.nTimeoutSeconds = 30;
  p.pfnReport = [](const char*, void*) {};
  auto boxes = [&](int n) {
    for (int i = 0; i < n; ++i)
      ASSERT_EQ(Drive("Hygiene", (i % 2 ? MB_ICONQUESTION : 0) | MDS_DONTASKAGAIN | MB_HELP,
                      i % 2 ? nullptr : &p, [](HWND dialog) { Click(dialog, IDOK); }),
                IDOK);
  };
  // The first boxes settle the process's lasting objects (classes, cached icons and fonts).
  ASSERT_NO_FATAL_FAILURE(boxes(20));
  const std::vector<DWORD> before = Objects();
  ASSERT_NO_FATAL_FAILURE(boxes(200));
  EXPECT_EQ(Objects(), before) << "GDI and USER objects before: " << before[0] << ", " << before[1];
}
