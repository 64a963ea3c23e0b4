// The Windows-only README examples: a message box and a hyperlink, shown for real.
#include <windows.h>

#include <commctrl.h>
#include <gtest/gtest.h>

#include <cstring>

#include <deskaid/deskaid.h>

namespace {

TEST(ReadmeExamples, MessageDialog) {
  // README: msgbox
  MessageDialogParams params{};
  params.nTimeoutSeconds = 2;  // the default button is pressed after a visible countdown
  std::strcpy(params.szCustomButtons, "Save\nDiscard");
  int result = ShowMessageDialog(nullptr, "The document has changed.", "Unsaved changes",
                                 MB_ICONQUESTION | MDS_DONTASKAGAIN | MDS_NOSOUND, &params);
  bool timedOut = (result & MDR_TIMEOUT) != 0;       // the countdown ended it
  bool dontAskAgain = (result & MDS_DONTASKAGAIN) != 0;  // the check box was ticked
  int button = result & 0xFFFF;                       // IDCUSTOM1 for "Save"
  // README: end
  EXPECT_TRUE(timedOut && !dontAskAgain && button == IDCUSTOM1) << std::hex << result;
}

TEST(ReadmeExamples, HyperLink) {
  INITCOMMONCONTROLSEX controls = {sizeof controls, ICC_WIN95_CLASSES};
  InitCommonControlsEx(&controls);
  HWND dialog = CreateWindowExA(0, "STATIC", "", WS_POPUP, 0, 0, 300, 100, nullptr, nullptr,
                                nullptr, nullptr);
  HWND label = CreateWindowExA(0, "STATIC", "Read the <A>release notes</A> first.",
                               WS_CHILD | WS_VISIBLE, 10, 10, 280, 20, dialog,
                               reinterpret_cast<HMENU>(100), nullptr, nullptr);
  // README: hyperlink
  CHyperLinkEx link;  // lives as long as the dialog
  link.SetExtendedStyle(LinkStyleUseTags);
  link.AttachToWindow(GetDlgItem(dialog, 100));
  link.SetTarget("https://www.example.com/notes");
  // README: end
  EXPECT_EQ(link.GetHwnd(), label);
  DestroyWindow(dialog);
}

}  // namespace
