// The message box and the hyperlink demo's dialog at 96, 120, 144 and 192 DPI, each in a program
// of its own (the DPI is read when a program starts): controls inside, texts fitting, rows even.
#include <windows.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "support/child_process.h"
#include "support/link_dialog_win.h"
#include "support/msgbox_test_util_win.h"
#include "support/scratch_dir.h"

using msgbox_test::Needed;
using msgbox_test::TextOf;

namespace {

constexpr const char kDesktopKey[] = "Control Panel\\Desktop";
constexpr const char kChildVariable[] = "DESKAID_TEST_DPI";

bool Inside(const RECT& inner, const RECT& outer) {
  return inner.left >= outer.left && inner.top >= outer.top && inner.right <= outer.right &&
         inner.bottom <= outer.bottom;
}

RECT In(HWND dialog, HWND control) {  // the control's place in the dialog's client area, if any
  RECT r{};
  if (GetWindowRect(control, &r)) MapWindowPoints(nullptr, dialog, reinterpret_cast<POINT*>(&r), 2);
  return r;
}

// Every control of `dialog` lies inside its client area, and what `drawn` says the control draws
// (in its client area) lies inside the control.
void CheckControls(HWND dialog, const std::function<RECT(HWND control, const RECT& inner)>& drawn) {
  const RECT client = ClientRect(dialog);
  for (HWND control = GetWindow(dialog, GW_CHILD); control != nullptr;
       control = GetWindow(control, GW_HWNDNEXT)) {
    const RECT inner = ClientRect(control), need = drawn(control, inner);
    EXPECT_TRUE(Inside(In(dialog, control), client)) << "control " << GetDlgCtrlID(control);
    EXPECT_TRUE(Inside(need, inner))
        << "control " << GetDlgCtrlID(control) << " needs " << need.right << "x" << need.bottom;
  }
}

enum Row { kCentred, kRight, kAnywhere };

// A shown box: its controls fit (the icon unclipped, the message wrapped in its width, a check
// box's mark and caption, a push button's caption inside its border); the text lies right of the
// icon; the push buttons are one row of equal, evenly spaced buttons below both, centred or at the
// right; the check box lies below the row. Closes the box.
void CheckBox(HWND dialog, Row align) {
  std::vector<RECT> row;
  RECT check{};
  CheckControls(dialog, [&](HWND control, const RECT& inner) {
    const std::wstring text = TextOf(control);
    if (GetDlgCtrlID(control) == ID_ICON)
      return RECT{0, 0, GetSystemMetrics(SM_CXICON), GetSystemMetrics(SM_CYICON)};
    if (GetDlgCtrlID(control) == ID_FIRSTTEXT)
      return Needed(control, text, DT_WORDBREAK | DT_EXPANDTABS | DT_NOPREFIX, inner.right);
    RECT need = Needed(control, text, DT_SINGLELINE);
    if ((GetWindowLongW(control, GWL_STYLE) & 0xF) == BS_AUTOCHECKBOX) {
      check = In(dialog, control);
      need.right += GetSystemMetrics(SM_CXMENUCHECK) + 4;
    } else {
      row.push_back(In(dialog, control));
      need.right += 8;
      need.bottom += 4;
    }
    return need;
  });
  RECT units = {0, 0, 3, 0};  // a dialog unit either way and the rounding to pixels
  MapDialogRect(dialog, &units);
  const int slack = units.right;
  const RECT text = In(dialog, GetDlgItem(dialog, ID_FIRSTTEXT)),
             icon = In(dialog, GetDlgItem(dialog, ID_ICON));
  EXPECT_GE(text.left, icon.right);
  ASSERT_FALSE(row.empty());
  EXPECT_GE(row[0].top, std::max(text.bottom, icon.bottom));
  for (size_t k = 1; k < row.size(); ++k) {
    EXPECT_TRUE(row[k].top == row[0].top && row[k].bottom == row[0].bottom &&
                row[k].right - row[k].left == row[0].right - row[0].left)
        << "button " << k;
    EXPECT_NEAR(row[k].left - row[k - 1].left, row[1].left - row[0].left, slack);
    EXPECT_GT(row[k].left, row[k - 1].right);
  }
  EXPECT_TRUE(check.bottom == 0 || check.top >= row[0].bottom);
  const int left = row.front().left, right = ClientRect(dialog).right - row.back().right;
  EXPECT_TRUE(align != kRight || right + slack < left) << left << ", " << right;
  EXPECT_TRUE(align != kCentred || std::abs(left - right) <= slack) << left << ", " << right;
  for (int id : {IDCANCEL, IDOK, IDCUSTOM1}) PostMessageA(dialog, WM_COMMAND, id, 0);
}

}  // namespace

// Runs in the programs started below, one per DPI.
TEST(HighDpi, BoxesFit) {
  const char* dpi = std::getenv(kChildVariable);
  if (dpi == nullptr) GTEST_SKIP() << "run by HighDpi.BoxesFitAtEveryDpi";
  EXPECT_EQ(GetDeviceCaps(deskaid::ScopedWindowDC(nullptr), LOGPIXELSY), std::atoi(dpi));
  MessageDialogParams report{}, countdown{}, custom{};
  report.pfnReport = [](const char*, void*) {};
  countdown.nTimeoutSeconds = 30;
  std::strcpy(custom.szCustomButtons, "&Save\nDiscard\nLater");
  custom.dwOptions = MDO_RIGHTJUSTIFY;
  std::string words;  // many short words: wrapped close to the widest line the box allows
  for (int i = 0; i < 300; ++i) words += "ab ";
  const struct {
    const char *title, *text;
    unsigned style;
    const MessageDialogParams* p;
    Row align;
  } boxes[] = {
      {"Import finished",
       "212 records were imported; 3 were skipped because their dates could not be read.",
       MB_OKCANCEL | MB_HELP | MB_ICONASTERISK | MDS_DONTSHOWAGAIN, &report, kCentred},
      {"Unsaved changes", "The document has changed.\n\n\tSave it before closing?",
       MB_YESNOCANCEL | MDS_YESTOALL | MB_ICONQUESTION, &countdown, kCentred},
      {"Custom", "Keep the changes you made to the layout of the monthly report before closing?",
       MB_ICONEXCLAMATION | MDS_DONTASKAGAIN, &custom, kRight},
      {"Wrapped", words.c_str(), MB_OKCANCEL | MB_ICONEXCLAMATION, nullptr, kCentred},
      // The check box widens the dialog after the button row has been placed.
      {"Hi", "Hi", MB_OK | MDS_DONTSHOWAGAIN, nullptr, kAnywhere},
  };
  for (const auto& b : boxes) {
    msgbox_test::Drive(
        b.title, b.style, b.p,
        [&](HWND dialog) {
          SCOPED_TRACE(b.title);
          auto counting = [&] {
            return TextOf(GetDlgItem(dialog, IDYES)).find(L" = ") != std::wstring::npos;
          };
          EXPECT_TRUE(b.p != &countdown || WaitUntil(counting, 5000));
          CheckBox(dialog, b.align);
        },
        b.text);
  }
}

// The hyperlink demo's dialog: every label and link, the text after a tagged link included, lies
// inside its control in the font it is drawn with.
TEST(HighDpi, LinksFit) {
  if (std::getenv(kChildVariable) == nullptr) GTEST_SKIP() << "run by HighDpi.BoxesFitAtEveryDpi";
  LinkDialog dialog;
  hyperlink_demo::Links links;
  hyperlink_demo::AddLinks(dialog.hwnd(), links);
  const CHyperLinkEx* linkOf[] = {&links.plain, &links.tagged, &links.bold, &links.hover};
  CheckControls(dialog.hwnd(), [&](HWND control, const RECT&) {
    const std::wstring text = TextOf(control);
    const int id = GetDlgCtrlID(control);
    if (id == 100) return Needed(control, text, DT_SINGLELINE);
    RECT r = linkOf[id - 101]->GetLinkRect();
    // After a tagged link the rest is drawn from the link's right edge on, in the normal font.
    if (const size_t close = text.find(L"</A>"); close != std::wstring::npos) {
      const RECT after = Needed(control, text.substr(close + 4), DT_SINGLELINE);
      r.right += after.right;
      r.bottom = std::max(r.bottom, after.bottom);
    }
    return r;
  });
}

// Sets the display's DPI and runs BoxesFit and LinksFit in a program of its own for each value;
// the setting the prefix had is put back.
TEST(HighDpi, BoxesFitAtEveryDpi) {
  if (std::getenv(kChildVariable) != nullptr) GTEST_SKIP() << "the program started for one DPI";
  DWORD saved = 0, size = sizeof saved;
  const bool hadValue = RegGetValueA(HKEY_CURRENT_USER, kDesktopKey, "LogPixels", RRF_RT_REG_DWORD,
                                     nullptr, &saved, &size) == ERROR_SUCCESS;
  auto set = [](DWORD dpi) {
    return RegSetKeyValueA(HKEY_CURRENT_USER, kDesktopKey, "LogPixels", REG_DWORD, &dpi,
                           sizeof dpi);
  };
  for (DWORD dpi : {96, 120, 144, 192}) {
    EXPECT_EQ(set(dpi), ERROR_SUCCESS);
    SetEnvironmentVariableA(kChildVariable, std::to_string(dpi).c_str());
    // A program that does not end in time is ended, before the setting changes again.
    const ChildExit child = RunChildProcess(
        OwnExecutablePath(), {"--gtest_filter=HighDpi.BoxesFit:HighDpi.LinksFit"}, 120000);
    EXPECT_TRUE(child.finished && child.code == 0)
        << "at " << dpi << " DPI, " << (child.finished ? "failed" : "hung");
  }
  SetEnvironmentVariableA(kChildVariable, nullptr);
  if (hadValue)
    set(saved);
  else
    RegDeleteKeyValueA(HKEY_CURRENT_USER, kDesktopKey, "LogPixels");
}
