// Real message boxes under the platform's dialog manager, driven from a second thread: countdown,
// disabled period, Escape, Help, Report, placement, the painted icon and handle hygiene.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "msgbox/message_dialog.h"
#include "msgbox_test_util_win.h"
#include "test_resource_ids.h"

using msgbox_test::ControlText;
using msgbox_test::ShowDriven;
using msgbox_test::Sleep;

namespace {

int Show(const char* title, unsigned style, const MessageDialogParams* p = nullptr,
         HWND owner = nullptr) {
  return ShowMessageDialog(owner, "Message text", title, style | MDS_NOSOUND, p);
}

bool WaitUntil(const std::function<bool()>& condition, int ms) {
  for (int waited = 0; waited < ms; waited += 20) {
    if (condition()) return true;
    Sleep(20);
  }
  return condition();
}

void Click(HWND dialog, int id) { SendMessageA(GetDlgItem(dialog, id), BM_CLICK, 0, 0); }

void PressEscape(HWND dialog) {
  PostMessageA(GetDlgItem(dialog, IDOK) ? GetDlgItem(dialog, IDOK) : GetDlgItem(dialog, IDYES),
               WM_KEYDOWN, VK_ESCAPE, 0);
}

bool CloseGrayed(HWND dialog) {
  return (GetMenuState(GetSystemMenu(dialog, FALSE), SC_CLOSE, MF_BYCOMMAND) & MF_GRAYED) != 0;
}

bool Enabled(HWND dialog, int id) { return IsWindowEnabled(GetDlgItem(dialog, id)) != FALSE; }

}  // namespace

TEST(MessageDialogRuntime, CountdownPressesTheDefaultButton) {
  msgbox_test::TraceCapture trace;
  MessageDialogParams p{};
  p.nTimeoutSeconds = 3;
  std::vector<std::string> seen;
  const DWORD start = GetTickCount();
  int result = ShowDriven("Countdown", [&] { return Show("Countdown", MB_OKCANCEL, &p); },
                          [&](HWND dialog) {
                            while (IsWindow(dialog)) {
                              std::string text = ControlText(dialog, IDOK);
                              if (text.find(" = ") != std::string::npos &&
                                  (seen.empty() || seen.back() != text))
                                seen.push_back(text);
                              Sleep(20);
                            }
                          });
  EXPECT_EQ(static_cast<unsigned>(result), 0x80000001u);
  EXPECT_EQ(seen, (std::vector<std::string>{"OK = 3", "OK = 2", "OK = 1"}));
  EXPECT_GE(GetTickCount() - start, 3500u);  // ends on the fourth tick
  EXPECT_TRUE(trace.Has("in WM_TIMER\n"));

  // A ticked box comes back with the countdown's result.
  p.nTimeoutSeconds = 1;
  result = ShowDriven("Ticked", [&] { return Show("Ticked", MB_OK | MDS_DONTASKAGAIN, &p); },
                      [](HWND dialog) {
                        SendMessageA(GetDlgItem(dialog, ID_CHECKBOX), BM_SETCHECK, BST_CHECKED, 0);
                      });
  EXPECT_EQ(static_cast<unsigned>(result), 0x81000001u);

  // 1000 seconds or more is taken for 10; 999 stays.
  for (int seconds : {1000, 999}) {
    p.nTimeoutSeconds = seconds;
    std::string first;
    result = ShowDriven("Clamped", [&] { return Show("Clamped", MB_OK, &p); },
                        [&](HWND dialog) {
                          WaitUntil([&] { return ControlText(dialog, IDOK) != "OK"; }, 3000);
                          first = ControlText(dialog, IDOK);
                          Click(dialog, IDOK);
                        });
    EXPECT_EQ(result, IDOK);
    EXPECT_EQ(first, "OK = " + std::to_string(seconds == 1000 ? 10 : 999));
  }
}

TEST(MessageDialogRuntime, ClickOrCommandStopsTheCountdown) {
  MessageDialogParams p{};
  p.nTimeoutSeconds = 5;
  const unsigned style = MB_YESNO | MDS_DONTTELLAGAIN;
  // A click on the dialog itself, then a click on the check box.
  for (bool onCheckBox : {false, true}) {
    int result = ShowDriven("Stopped", [&] { return Show("Stopped", style, &p); },
                            [&](HWND dialog) {
                              EXPECT_TRUE(WaitUntil(
                                  [&] { return ControlText(dialog, IDYES) == "&Yes = 5"; }, 3000));
                              if (onCheckBox)
                                Click(dialog, ID_CHECKBOX);
                              else
                                SendMessageA(dialog, WM_LBUTTONDOWN, MK_LBUTTON, MAKELPARAM(5, 5));
                              EXPECT_EQ(ControlText(dialog, IDYES), "&Yes");
                              Sleep(2200);
                              EXPECT_EQ(ControlText(dialog, IDYES), "&Yes");
                              Click(dialog, IDNO);
                            });
    EXPECT_EQ(static_cast<unsigned>(result), onCheckBox ? 0x02000007u : 7u);
  }
}

TEST(MessageDialogRuntime, EscapeAndCloseFollowTheButtonSet) {
  // Yes/No: Escape does nothing and Close is grayed.
  int result = ShowDriven("YesNo", [] { return Show("YesNo", MB_YESNO); }, [](HWND dialog) {
    EXPECT_TRUE(CloseGrayed(dialog));
    PressEscape(dialog);
    Sleep(500);
    EXPECT_TRUE(IsWindowVisible(dialog));
    Click(dialog, IDYES);
  });
  EXPECT_EQ(result, IDYES);
  // OK alone: Escape is OK; Cancel sets: Escape is Cancel. Neither carries the ticked box.
  for (unsigned set : {MB_OK, MB_OKCANCEL}) {
    result = ShowDriven("Escape", [&] { return Show("Escape", set | MDS_DONTSHOWAGAIN); },
                        [](HWND dialog) {
                          EXPECT_FALSE(CloseGrayed(dialog));
                          Click(dialog, ID_CHECKBOX);
                          PressEscape(dialog);
                        });
    EXPECT_EQ(result, set == MB_OK ? IDOK : IDCANCEL);
  }
}

TEST(MessageDialogRuntime, DisabledPeriod) {
  MessageDialogParams p{};
  p.nDisabledSeconds = 1;
  const unsigned style = MB_OKCANCEL | MB_HELP | MDS_DONTASKAGAIN;
  int result = ShowDriven("Disabled", [&] { return Show("Disabled", style, &p); },
                          [](HWND dialog) {
                            const DWORD start = GetTickCount();
                            EXPECT_FALSE(Enabled(dialog, IDOK));
                            EXPECT_FALSE(Enabled(dialog, IDCANCEL));
                            EXPECT_TRUE(Enabled(dialog, ID_HELPBUTTON));
                            EXPECT_TRUE(Enabled(dialog, ID_CHECKBOX));
                            EXPECT_TRUE(CloseGrayed(dialog));
                            EXPECT_TRUE(WaitUntil([&] { return Enabled(dialog, IDOK); }, 3000));
                            EXPECT_GE(GetTickCount() - start, 700u);
                            EXPECT_TRUE(Enabled(dialog, IDCANCEL));
                            EXPECT_FALSE(CloseGrayed(dialog));
                            Click(dialog, IDOK);
                          });
  EXPECT_EQ(result, IDOK);

  p.nDisabledSeconds = -1;  // for good
  result = ShowDriven("Forever", [&] { return Show("Forever", style, &p); }, [](HWND dialog) {
    Sleep(2500);
    EXPECT_FALSE(Enabled(dialog, IDOK));
    EXPECT_TRUE(CloseGrayed(dialog));
    PostMessageA(dialog, WM_COMMAND, IDCANCEL, 0);
  });
  EXPECT_EQ(result, IDCANCEL);
}

TEST(MessageDialogRuntime, ReportCallbackKeepsTheDialogOpen) {
  struct Seen {
    std::atomic<int> calls{0};
    std::string text;
  } seen;
  MessageDialogParams p{};
  p.pReportData = &seen;
  p.pfnReport = [](const char* text, void* data) {
    Seen* s = static_cast<Seen*>(data);
    s->text = text;
    ++s->calls;
  };
  int result = ShowDriven("Report", [&] { return Show("Report", MB_OK, &p); }, [&](HWND dialog) {
    Click(dialog, ID_REPORTBUTTON);
    EXPECT_EQ(seen.calls.load(), 1);
    Sleep(300);
    EXPECT_TRUE(IsWindowVisible(dialog));
    Click(dialog, IDOK);
  });
  EXPECT_EQ(result, IDOK);
  EXPECT_EQ(seen.text, "Message text");
}

namespace {

// Stands in for the help viewer: the platform hands WinHelp requests to the window of this class.
struct HelpRequest {
  int calls = 0;
  unsigned command = 0;
  long data = 0;
  std::string file;
};
HelpRequest g_help;

LRESULT CALLBACK HelpViewerProc(HWND hwnd, UINT message, WPARAM wParam, LPARAM lParam) {
  if (message == WM_COPYDATA) {
    const COPYDATASTRUCT* copy = reinterpret_cast<const COPYDATASTRUCT*>(lParam);
    const BYTE* block = static_cast<const BYTE*>(copy->lpData);
    WORD command, ofsFilename;
    LONG data;
    std::memcpy(&command, block + 2, 2);
    std::memcpy(&data, block + 4, 4);
    std::memcpy(&ofsFilename, block + 12, 2);
    ++g_help.calls;
    g_help.command = command;
    g_help.data = data;
    g_help.file = reinterpret_cast<const char*>(block + ofsFilename);
    return TRUE;
  }
  return DefWindowProcA(hwnd, message, wParam, lParam);
}

}  // namespace

TEST(MessageDialogRuntime, HelpOpensTheHostsHelpFile) {
  WNDCLASSA wc{};
  wc.lpfnWndProc = HelpViewerProc;
  wc.hInstance = GetModuleHandleA(nullptr);
  wc.lpszClassName = "MS_WINHELP";
  RegisterClassA(&wc);
  HWND viewer = CreateWindowA("MS_WINHELP", "viewer", 0, 0, 0, 0, 0, nullptr, nullptr,
                              wc.hInstance, nullptr);
  ASSERT_NE(viewer, nullptr);
  char exe[MAX_PATH];
  GetModuleFileNameA(nullptr, exe, MAX_PATH);
  std::string expected(exe);
  expected = expected.substr(0, expected.rfind('.')) + ".hlp";

  MessageDialogParams p{};
  for (int context : {42, 0}) {
    g_help = HelpRequest();
    p.nHelpContextId = context;
    int result = ShowDriven("Help", [&] { return Show("Help", MB_OK | MB_HELP, &p); },
                            [](HWND dialog) {
                              Click(dialog, ID_HELPBUTTON);
                              Sleep(200);
                              EXPECT_TRUE(IsWindowVisible(dialog));
                              Click(dialog, IDOK);
                            });
    EXPECT_EQ(result, IDOK);
    EXPECT_EQ(g_help.calls, 1);
    EXPECT_EQ(g_help.command, context ? unsigned{HELP_CONTEXT} : unsigned{HELP_PARTIALKEY});
    if (context) EXPECT_EQ(g_help.data, 42);
    EXPECT_STRCASEEQ(g_help.file.c_str(), expected.c_str());
  }
  DestroyWindow(viewer);
}

TEST(MessageDialogRuntime, Placement) {
  MessageDialogParams p{};
  p.nX = 120;
  p.nY = 90;
  RECT rect{};
  ShowDriven("Placed", [&] { return Show("Placed", MB_OK, &p); }, [&](HWND dialog) {
    GetWindowRect(dialog, &rect);
    Click(dialog, IDOK);
  });
  EXPECT_EQ(rect.left, 120);
  EXPECT_EQ(rect.top, 90);

  // Without an owner the box takes this thread's active window and centres on it.
  HWND owner = CreateWindowA("STATIC", "owner", WS_POPUP | WS_VISIBLE, 300, 200, 640, 480,
                             nullptr, nullptr, nullptr, nullptr);
  ASSERT_NE(owner, nullptr);
  SetActiveWindow(owner);
  ASSERT_EQ(GetActiveWindow(), owner);
  HWND ownerSeen = nullptr;
  ShowDriven("Centred", [&] { return Show("Centred", MB_OK); }, [&](HWND dialog) {
    GetWindowRect(dialog, &rect);
    ownerSeen = GetWindow(dialog, GW_OWNER);
    Click(dialog, IDOK);
  });
  DestroyWindow(owner);
  EXPECT_EQ(ownerSeen, owner);
  EXPECT_NEAR((rect.left + rect.right) / 2, 300 + 320, 1);
  EXPECT_NEAR((rect.top + rect.bottom) / 2, 200 + 240, 1);
}

TEST(MessageDialogRuntime, SystemBoxAndFailedDialog) {
  // Hand and system-modal together: the system's own box, without the engine's controls.
  bool engineBox = true;
  int result = ShowDriven("Severe", [] { return Show("Severe", MB_ICONHAND | MB_SYSTEMMODAL); },
                          [&](HWND dialog) {
                            engineBox = GetDlgItem(dialog, ID_FIRSTTEXT) != nullptr;
                            PostMessageA(dialog, WM_COMMAND, IDOK, 0);
                          });
  EXPECT_FALSE(engineBox);
  EXPECT_EQ(result, IDOK);
  // An owner that is not a window makes the dialog fail; its failure value comes back.
  result = Show("Orphan", MB_OK, nullptr, reinterpret_cast<HWND>(0x4321));
  EXPECT_TRUE(result == 0 || result == -1) << result;
}

TEST(MessageDialogRuntime, ResourceIconIsPainted) {
  MessageDialogParams p{};
  p.hIconModule = msgbox_test::TestResources();
  p.nIconId = IDI_TEST_ICON;
  int red = 0, blue = 0;
  ShowDriven("Icon", [&] { return Show("Icon", MB_OK | MB_TOPMOST, &p); }, [&](HWND dialog) {
    Sleep(500);
    RECT rect;
    GetWindowRect(GetDlgItem(dialog, ID_ICON), &rect);
    HDC screen = GetDC(nullptr);
    for (int y = rect.top; y < rect.bottom; ++y)
      for (int x = rect.left; x < rect.right; ++x) {
        COLORREF c = GetPixel(screen, x, y);
        if (c == RGB(255, 0, 0)) ++red;
        if (c == RGB(0, 0, 255)) ++blue;
      }
    ReleaseDC(nullptr, screen);
    Click(dialog, IDOK);
  });
  // The 32x32 test icon is red around a 16x16 blue square.
  EXPECT_GT(red, 300);
  EXPECT_GT(blue, 200);
}

namespace {

// Live GDI and USER objects of this process. Wine answers GetGuiResources with 0; there the
// objects are counted by probing handle values, since Wine accepts a handle's table index
// without its generation.
DWORD GdiObjects() {
  if (DWORD n = GetGuiResources(GetCurrentProcess(), GR_GDIOBJECTS)) return n;
  DWORD n = 0;
  for (UINT_PTR index = 1; index < 0x10000; ++index)
    if (GetObjectType(reinterpret_cast<HGDIOBJ>(index)) != 0) ++n;
  return n;
}

DWORD UserObjects() {
  if (DWORD n = GetGuiResources(GetCurrentProcess(), GR_USEROBJECTS)) return n;
  DWORD n = 0;
  for (UINT_PTR index = 2; index < 0x10000; index += 2) {
    HANDLE h = reinterpret_cast<HANDLE>(index);
    ICONINFO info;
    if (IsWindow(static_cast<HWND>(h)) || IsMenu(static_cast<HMENU>(h))) {
      ++n;
    } else if (GetIconInfo(static_cast<HICON>(h), &info)) {
      DeleteObject(info.hbmColor);
      DeleteObject(info.hbmMask);
      ++n;
    }
  }
  return n;
}

}  // namespace

TEST(MessageDialogRuntime, ShownBoxesLeaveNoHandlesBehind) {
  MessageDialogParams p{};
  p.hIconModule = msgbox_test::TestResources();
  p.nIconId = IDI_TEST_ICON;
  p.nTimeoutSeconds = 30;
  p.pfnReport = [](const char*, void*) {};
  auto one = [&](int i) {
    const unsigned style = (i % 2 ? MB_ICONQUESTION : 0) | MDS_DONTASKAGAIN | MB_HELP;
    return ShowDriven("Hygiene", [&] { return Show("Hygiene", style, i % 2 ? nullptr : &p); },
                      [](HWND dialog) { Click(dialog, IDOK); });
  };
  // The first boxes settle the process's lasting objects (classes, cached icons and fonts).
  for (int i = 0; i < 20; ++i) ASSERT_EQ(one(i), IDOK);
  // The counters must see what they count: three fonts and two menus more while they live
  // (the second round, once the first has settled whatever creating them caches).
  for (int round = 0; round < 2; ++round) {
    const DWORD gdi = GdiObjects(), user = UserObjects();
    HFONT fonts[3];
    for (HFONT& font : fonts) font = CreateFontA(12, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, "Arial");
    HMENU menus[2];
    for (HMENU& menu : menus) menu = CreateMenu();
    const DWORD gdiWith = GdiObjects(), userWith = UserObjects();
    for (HFONT font : fonts) DeleteObject(font);
    for (HMENU menu : menus) DestroyMenu(menu);
    if (round == 0) continue;
    EXPECT_EQ(gdiWith, gdi + 3);
    EXPECT_EQ(userWith, user + 2);
    EXPECT_EQ(GdiObjects(), gdi);
    EXPECT_EQ(UserObjects(), user);
  }
  const DWORD gdiBefore = GdiObjects(), userBefore = UserObjects();
  for (int i = 0; i < 200; ++i) {
    ASSERT_EQ(one(i), IDOK);
  }
  const DWORD gdiAfter = GdiObjects(), userAfter = UserObjects();
  std::printf("GDI objects %lu -> %lu, USER objects %lu -> %lu\n", gdiBefore, gdiAfter,
              userBefore, userAfter);
  EXPECT_GT(gdiBefore, 0u);
  EXPECT_GT(userBefore, 0u);
  EXPECT_EQ(gdiAfter, gdiBefore);
  EXPECT_EQ(userAfter, userBefore);
}
